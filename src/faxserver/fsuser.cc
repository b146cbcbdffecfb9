#include "faxserver/fsuser.h"

#include <unistd.h>

#include <cerrno>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "util/kuterr.h"
#include "util/kutfile.h"
#include "util/kutuser.h"

bool fx_is_valid_user(const char* root, const char* user) {
  // The path of a name that is none is empty, and no directory.
  return Kut_is_directory(cm_get_user_dir(root, user)) != 0;
}

bool fx_get_identity(const char* user, bool or_krt, kut_identity* identity,
                     const kut_identity** result) {
  kut_account account;
  bool known = Kut_find_user(user, &account);
  if (!known && or_krt && !Kut_is_shortage(errno)) {
    user = cm_get_krt_uname();
    known = Kut_find_user(user, &account);
  }
  if (!known) return false;
  *identity = {account.uid, account.gid, user};
  *result = identity;
  if (geteuid() == 0) return true;
  *result = nullptr;
  errno = EPERM;
  return identity->uid == geteuid();
}
