#include "store/location.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <ctime>

namespace {

constexpr std::int64_t kSettled = 1000000000;  // nanoseconds; times of files come in coarse steps

std::int64_t Nanoseconds(const statx_timestamp &time) {
  return std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

}  // namespace

LocationState Location_State(const std::string &path) {
  struct statx status = {};
  if (statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS | STATX_BTIME, &status) != 0) return {};
  LocationState state;
  state.device = (std::uint64_t{status.stx_dev_major} << 32) | status.stx_dev_minor;
  state.inode = status.stx_ino;
  if ((status.stx_mask & STATX_BTIME) != 0) state.born = Nanoseconds(status.stx_btime);
  if (!S_ISDIR(status.stx_mode)) state.changed = Nanoseconds(status.stx_mtime);
  return state;
}

LocationState Location_Revision(const std::string &path) {
  const LocationState state = Location_State(path + "/iamglass");
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  const std::int64_t age = std::int64_t{now.tv_sec} * 1000000000 + now.tv_nsec - state.changed;
  return age > kSettled ? state : LocationState{};
}
