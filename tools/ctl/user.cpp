#include "tools/ctl/user.h"

#include <grp.h>
#include <pwd.h>
#include <sysexits.h>
#include <unistd.h>

#include "tools/common/tool.h"

UserGuard::UserGuard(const char *name) : is_other_(false), group_(getegid()) {
  if (name == nullptr || geteuid() != 0) return;
  passwd user = {};
  passwd *found = nullptr;
  char buffer[4096];  // of the texts of one user
  if (getpwnam_r(name, &user, buffer, sizeof buffer, &found) != 0 || found == nullptr ||
      user.pw_uid == 0)
    return;
  const int count = getgroups(0, nullptr);
  groups_.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  if (count < 0 || getgroups(count, groups_.data()) != count) return;
  if (initgroups(name, user.pw_gid) != 0) return;
  is_other_ = setegid(user.pw_gid) == 0 && seteuid(user.pw_uid) == 0;
  if (!is_other_) Restore();
}

UserGuard::~UserGuard() {
  if (is_other_) Restore();
}

void UserGuard::Restore() const {
  if (seteuid(0) != 0 || setegid(group_) != 0 || setgroups(groups_.size(), groups_.data()) != 0)
    Tool_Fail(EX_OSERR, "cannot take the rights of root back");
}
