// Files in a user's folders (cm/cmfolder.h).
//
// - What the fax system delivered there may be closed to the user, and is read
//   all the same: a regular file with one name that belongs to the fax system's
//   user, or to root and the fax system's group. It cannot have become that by
//   the user's doing.
// - On failure errno tells why.
#ifndef FAXSERVER_FSFOLDER_H_
#define FAXSERVER_FSFOLDER_H_

#include <sys/stat.h>

#include "cm/cmfolder.h"
#include "faxserver/fsfile.h"
#include "util/kutfile.h"

// Opens the queue directory or one below it. `path` is what a cm_get_* function
// made of the same root and user.
cm_folder fx_open_folder(const char* root, const char* user, const char* path);
// The user's options directory, made when missing.
cm_folder fx_make_options(const char* root, const char* user);

// Opens a regular file in the folder for reading, its status in `st` (may be
// null).
UniqueFd fx_open_in(const cm_folder& folder, const char* name, struct stat* st);
// Opens a regular file for reading by its path: one below a queue directory as
// its owner, any other without following a link in the last component.
UniqueFd fx_open_path(const char* root, const char* path);
// A stream on a file of the user's, given by its path below the queue
// directory; null on failure.
fx_stream fx_open_user_stream(const char* root, const char* user,
                              const char* path);

// Starts the replacement of a file in the folder, which the caller enters for
// it, with the attributes of an old one. 0 or -1.
int fx_replace_in(const cm_folder& folder, const char* name,
                  FileReplacer* file);
// Starts a new file of the folder's owner, with a group that he need not be in.
// Where the file system knows no nameless files, or the process is not root, it
// gets the group that the folder gives. Not called within the folder's
// identity; `file` is written and committed there. 0 or -1.
int fx_start_gift(const cm_folder& folder, const char* name, mode_t mode,
                  gid_t group, FileReplacer* file);

#endif  // FAXSERVER_FSFOLDER_H_
