// What handlers share: the command's argument, its client, and the files in a
// user's directories.
//
// - A user owns those directories and may put anything there. So a file is
//   reached through the directory's descriptor, by a name that is one plain
//   component; a link is never followed, and only a regular file is one.
// - Failure is told in errno; ENOENT for a name that is none, and for what is
//   no regular file when it is to be deleted.
// - The functions on files take the -1 of a directory that could not be opened,
//   and leave the errno of that as theirs.
#ifndef COMMANDS_CMDARGS_H_
#define COMMANDS_CMDARGS_H_

#include <sys/stat.h>

#include "kx/object.h"
#include "util/kutio.h"

// The command's "objptr", which the command goes on owning, when it is of the
// type; else null.
kx_object* cmd_argument(kx_object* cmd, const char* type);
// The command's user, "" when it names none.
const char* cmd_client(kx_object* cmd);

// A user's queue directory, and the messages directory in it. Good for names
// relative to it and for its status, not for reading its entries.
UniqueFd cmd_open_queue(const char* user);
UniqueFd cmd_open_messages(const char* user);

// Opens a file to read. Its status goes to `st`, which may be null.
UniqueFd cmd_open_file(int dirfd, const char* name, struct stat* st);
// Deletes a file. 0 or -1.
int cmd_delete_file(int dirfd, const char* name);

// Moves a file to another directory, in one step also where it replaces one. 0
// or -1.
int cmd_move_file(int dirfd, const char* name, int to_dirfd,
                  const char* to_name);

#endif  // COMMANDS_CMDARGS_H_
