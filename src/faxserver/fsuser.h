// Users of the fax server, and whom the system takes them for.
#ifndef FAXSERVER_FSUSER_H_
#define FAXSERVER_FSUSER_H_

#include "util/kutproc.h"

// Whether the name is a plain one and has a queue directory. kx_errno is left
// alone.
bool fx_is_valid_user(const char* root, const char* user);

// Fills `identity` for a child that is to run as the user: uid, gid and groups
// as the system knows them. For a user that the system does not know, the fax
// system's user when `or_krt` is set. The result is what Kut_spawn takes:
// `identity`; or null where the process already is that user without being the
// super-user, which could not change it. False with errno: nobody to run as, a
// process that may not become that user (EPERM), or nobody can tell at present
// who the user is (a shortage).
// `identity->user` points to `user` or to a constant.
bool fx_get_identity(const char* user, bool or_krt, kut_identity* identity,
                     const kut_identity** result);

#endif  // FAXSERVER_FSUSER_H_
