// Users of the fax server, and whom the system takes them for.
#ifndef FAXSERVER_FSUSER_H_
#define FAXSERVER_FSUSER_H_

#include <sys/types.h>

#include "faxserver/fsfile.h"
#include "util/kutfile.h"
#include "util/kutproc.h"

// A user may own the queue directory and everything in it. So what lies below
// is reached through descriptors, one component of the path after the other,
// none of which may be a link: not the file, and not the directory that it is
// in. `path` is what a cm_get_* function made of the same root and user. On
// failure errno tells why.

// Opens a directory below the queue directory, or that itself: to reach files
// in it, not to read its entries.
UniqueFd fx_open_user_dir(const char* root, const char* user, const char* path);
// The user's options directory, made when missing.
UniqueFd fx_make_options_dir(const char* root, const char* user);
// Starts the replacement of a file in that directory. A new file is given to
// the directory's owner: what a user wrote must not look like root's. 0, or -1
// with errno.
int fx_replace_option(int dirfd, const char* path, FileReplacer* file);
// A stream on a regular file below the queue directory, or null.
fx_stream fx_open_user_stream(const char* root, const char* user,
                              const char* path);

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
