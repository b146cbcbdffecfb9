#include "faxserver/fsuser.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "util/kuterr.h"
#include "util/kutfile.h"

bool fx_is_valid_user(const char* root, const char* user) {
  // The path of a name that is none is empty, and no directory.
  return Kut_is_directory(cm_get_user_dir(root, user)) != 0;
}

bool fx_get_identity(const char* user, bool or_krt, kut_identity* identity,
                     const kut_identity** result) {
  errno = 0;
  const passwd* entry = user != nullptr ? getpwnam(user) : nullptr;
  if (entry == nullptr && or_krt && !Kut_is_shortage(errno)) {
    user = cm_get_krt_uname();
    entry = getpwnam(user);
  }
  if (entry == nullptr) {
    if (errno == 0) errno = ENOENT;
    return false;
  }
  *identity = {entry->pw_uid, entry->pw_gid, user};
  *result = identity;
  if (geteuid() == 0) return true;
  *result = nullptr;
  errno = EPERM;
  return identity->uid == geteuid();
}
