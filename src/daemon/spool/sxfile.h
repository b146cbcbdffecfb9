// Command and response files in the spool directory.
//
//     client                       daemon
//     NNNN-RRR.cmd  --rename-->    NNNN-RRR.<pid>   claimed, read, deleted
//     NNNN-RRR.rsp  <--rename--    NNNN-RRR.tmp     written whole
//
// - The rename is the claim: of several daemons on one directory, the one whose
//   rename succeeds has the command. One that finds the file gone is no error.
// - Every function sets kx_errno: 0 on success, kx_err_system when a file or
//   the directory cannot be opened, else what the object library set.
// - The reader's push-back slot and the directory's descriptor are one each for
//   the process; a worker uses what it inherits.
// - Nothing in the directory is followed if it is a symbolic link, and nothing
//   but a regular file with a single name is read: what has another could have
//   been put here by somebody who is not its owner.
#ifndef DAEMON_SPOOL_SXFILE_H_
#define DAEMON_SPOOL_SXFILE_H_

#include <sys/stat.h>

#include <cstddef>

#include "kx/object.h"

enum sx_protocol_code : int {
  kFileProtocol = 36,     // kx_con_file
  kNetworkProtocol = 38,  // kx_con_network
};

constexpr size_t kSxNameSize = 256;  // bytes that hold any file name

// The code of the protocol that this build speaks.
int sx_protocol();

// Reads the claimed command `name`, deletes its file, and with `save` keeps a
// copy in <dir>/save. The command, which the caller frees, or null:
// kx_err_system when it cannot be opened, read or deleted, is no regular file
// or has a second name, else what the reader of objects says. Of one over its
// budget (see sx_cmd_excess) there is the envelope without its objects, or null
// with kx_err_system and errno EFBIG when that has no exchange name. A
// directory stays, and so does a file that could not be read for want of
// descriptors, memory or a sound disk, or that could not be deleted: the claim
// is there, and nothing is done.
kx_object* sx_cmd(const char* dir, const char* name, int save);

// The status of the file that a command came from, as it was when it was read:
// the owner in there is who gave the command. Null for another object than the
// last sx_cmd's. Valid until the next sx_cmd.
const struct stat* sx_cmd_stat(kx_object* cmd);

// The type of a command as its file spelled it, "" when it had none. A type
// that the object library does not know is text here and unset in the object.
// Valid until the next sx_cmd.
const char* sx_cmdtype(kx_object* cmd);

// What a command takes too much of, a sentence with the limit for its client;
// null for one within its budget, and for another object than the last
// sx_cmd's. Valid until the next sx_cmd.
const char* sx_cmd_excess(kx_object* cmd);

// What becomes of the files that a response names: their contents travel with
// it, or they stay names.
enum class sx_files { kEmbedded, kStayNames };

// Writes a response and renames it to its final name; the files that it names
// are embedded. It belongs to the receiver from before its first byte on, where
// the process may give files away. With `save` a copy goes to <dir>/save. The
// response stays with the caller. 0, or -1: kx_err_data when the response has
// no exchange name, kx_err_system when it cannot be written (errno EFBIG: its
// files weigh more than file-bytes) or somebody else moved it while it was
// written. A file in a user's queue is read as that user.
//
// What others than root and the daemon left in the place of the temporary file
// is removed or, if it is a directory, moved aside; so is what lies in the
// final place, but for a regular file of anybody else than the receiver, root
// and the daemon: that is another's answer, or a trap that looks like one.
// Where the response cannot take its final name the log says so, and it keeps
// the temporary one: 0 all the same.
int sx_rsp(const char* dir, kx_object* rsp, int save);
// The same, for a receiver that was asked for earlier; files stay names unless
// the caller says that it chose them itself.
int sx_rsp_to(const char* dir, kx_object* rsp, bool save, uid_t receiver,
              sx_files files = sx_files::kStayNames);
// Whose a response is: the owner of the last sx_cmd's command, if it answers
// that one, else this process's user.
uid_t sx_receiver(kx_object* rsp);

// The extension of a command's saved copy: "net" for the commands that manage a
// client's session, else "cmd".
const char* sx_get_ext(kx_object* cmd);

// The reader and writer callbacks; `file` is the FILE*.
int read_pair(void* file, char* name, char* value, int mode);
int write_pair(void* file, const char* name, const char* value, int code);

#endif  // DAEMON_SPOOL_SXFILE_H_
