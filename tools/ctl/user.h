// tools/ctl/user.h: reading with the rights of another user.
#ifndef TOOLS_CTL_USER_H
#define TOOLS_CTL_USER_H

#include <sys/types.h>

#include <vector>

inline constexpr const char *kUserOfPrograms = "korvo";  // as the units have it

// Until the end of its scope root has the rights of that user alone.  Nothing changes when the name
// is null, nobody has it, or this is not root, or a root who may become nobody else.
class UserGuard {
 public:
  explicit UserGuard(const char *name);
  ~UserGuard();
  UserGuard(const UserGuard &) = delete;
  UserGuard &operator=(const UserGuard &) = delete;

  bool IsOther() const { return is_other_; }

 private:
  void Restore() const;

  bool is_other_;
  gid_t group_;
  std::vector<gid_t> groups_;
};

#endif
