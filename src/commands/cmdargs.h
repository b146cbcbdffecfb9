// What handlers share: the command's argument, its client, and the files in a
// user's directories.
//
// - A user owns those directories and may put anything there. So a file is
//   reached as the directory's owner (faxserver/fsfolder.h), by a name that is
//   one plain component; a link is never followed, and only a regular file is
//   one.
// - Failure is told in errno; ENOENT for a name that is none, and for what is
//   no regular file when it is to be deleted.
// - The functions on files take the directory that could not be opened as well,
//   and leave the errno of that as theirs.
#ifndef COMMANDS_CMDARGS_H_
#define COMMANDS_CMDARGS_H_

#include <sys/stat.h>

#include "faxserver/fsfolder.h"
#include "kx/object.h"
#include "util/kutio.h"

// The command's "objptr", which the command goes on owning. In a handler it is
// what the command's row takes.
kx_object* cmd_argument(kx_object* cmd);
// The command's user, "" when it names none.
const char* cmd_client(kx_object* cmd);

// A user's queue directory, and the messages directory in it.
cm_folder cmd_open_queue(const char* user);
cm_folder cmd_open_messages(const char* user);

// The name of a file that a field of the argument holds. Null, and the failure
// in the response, when it holds none.
const char* cmd_file_name(kx_object* argument, const char* field,
                          kx_object* rsp);

// Whether a fax can have the name: not the directories that lie beside the
// faxes, nor what no list shows (a hidden file, one being written, a name that
// does not fit its field).
bool cmd_is_fax_name(const char* name);

// Opens a file to read. Its status goes to `st`, which may be null.
UniqueFd cmd_open_file(const cm_folder& folder, const char* name,
                       struct stat* st);
// The same for a fax.
UniqueFd cmd_open_fax(const cm_folder& queue, const char* name,
                      struct stat* st);
// Deletes a file. 0 or -1.
int cmd_delete_file(const cm_folder& folder, const char* name);
int cmd_delete_fax(const cm_folder& queue, const char* name);

#endif  // COMMANDS_CMDARGS_H_
