// Copies of commands and responses, in the folder "save" of the spool
// directory.
//
// - The folder counts only if it is a real directory of the daemon's own that
//   neither others nor a foreign group can write; it is made, for its owner
//   alone, where there is none. Everything below is done through its
//   descriptor.
// - A copy belongs to the command's owner and replaces one of its name in one
//   step; links are not followed.
// - A copy that cannot be kept is told in the log once for each process, and to
//   nobody else. `dirfd` and `dir` are the spool directory.
#ifndef DAEMON_SPOOL_SXSAVE_H_
#define DAEMON_SPOOL_SXSAVE_H_

#include <sys/types.h>

#include "kx/object.h"

// Logs now if the folder is there and does not count, so that workers, which
// inherit that this was told, need not.
void sx_save_check(const char* dir);
// Keep a copy of what `owner` commanded, and of what was answered.
void sx_save_cmd(int dirfd, kx_object* cmd, uid_t owner);
void sx_save_rsp(int dirfd, kx_object* rsp, uid_t owner);

#endif  // DAEMON_SPOOL_SXSAVE_H_
