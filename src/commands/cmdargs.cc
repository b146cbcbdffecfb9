#include "commands/cmdargs.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "cm/cmpaths.h"
#include "daemon/settings.h"
#include "faxserver/fsfile.h"
#include "faxserver/fsuser.h"

namespace {

// Whether there can be such a file; errno when not.
bool CanExist(int dirfd, const char* name) {
  if (dirfd < 0) return false;
  if (cm_is_plain_name(name)) return true;
  errno = ENOENT;
  return false;
}

}  // namespace

kx_object* cmd_argument(kx_object* cmd, const char* type) {
  kx_object* argument = kx::Child(cmd, "objptr");
  return Kfx_Is_Obj_Type(argument, type) != 0 ? argument : nullptr;
}

const char* cmd_client(kx_object* cmd) {
  return kx::TextOrEmpty(cmd, "clientid");
}

UniqueFd cmd_open_queue(const char* user) {
  return fx_open_user_dir(kfaxdir, user, cm_get_user_dir(kfaxdir, user));
}

UniqueFd cmd_open_messages(const char* user) {
  return fx_open_user_dir(kfaxdir, user, cm_get_msgs_dir(kfaxdir, user));
}

UniqueFd cmd_open_file(int dirfd, const char* name, struct stat* st) {
  if (!CanExist(dirfd, name)) return UniqueFd();
  return fx_open_file(dirfd, name, fx_links::kRefuse, st);
}

int cmd_delete_file(int dirfd, const char* name) {
  struct stat st;
  if (!CanExist(dirfd, name) ||
      fstatat(dirfd, name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
    return -1;
  }
  if (!S_ISREG(st.st_mode)) {
    errno = ENOENT;
    return -1;
  }
  return unlinkat(dirfd, name, 0);
}

int cmd_move_file(int dirfd, const char* name, int to_dirfd,
                  const char* to_name) {
  if (!CanExist(dirfd, name) || !CanExist(to_dirfd, to_name)) return -1;
  return renameat(dirfd, name, to_dirfd, to_name);
}
