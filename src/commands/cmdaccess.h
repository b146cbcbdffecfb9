// Who may ask for what.
//
// A command carries no proof of who sent it. What a client cannot choose is who
// owns the command's file, as long as the file has a single name and nobody
// else could write to it. So the owner decides:
//
//     owner of the file                  may act for
//     root, the fax system's user,
//     a member of its group,
//     the daemon's own user              every client
//     any other user                     itself: the client of its login name
//     a user of no name, and any owner
//     where outsiders could have written
//     to the file                        nobody
//
// But who owns a file need not have put it there: whoever can rename in a
// directory can bring any file of root's into it. So a file is never more
// trusted than the spool directory that it lies in, whose mode and owner are
// asked with every command:
//
//     who can write the directory        its files count
//     others, a group but the three      each owner's for itself alone; those
//     below, or somebody by an access    of owners who may act for every client
//     control list                       are refused
//     a group: the fax system's, root's  at most as the fax system's: for every
//     or the daemon's own                client, never as root
//     its owner alone: root, as of all
//     directories above it               as their owners
//     ... else root, and who may act
//     for every client                   at most as the fax system's
//     ... any other user                 the owner's own for itself; no others
//
// - A program runs with uid 0 only for root: in a file that nobody but root
//   could write to, in a directory that nobody but root can write to.
// - Outsiders are those beyond the owner and the fax system's group. What all
//   may write counts as theirs where they can enter the spool directory: the
//   daemon's own responses are such files.
#ifndef COMMANDS_CMDACCESS_H_
#define COMMANDS_CMDACCESS_H_

#include "kx/object.h"
#include "util/kutident.h"

// Whether the command's owner may have it carried out, as one that runs a
// program or none; if not, the reason is logged with the owner.
bool cmd_is_permitted(kx_object* cmd, bool runs_program);

// Whether its owner may act for every client.
bool cmd_is_trusted(kx_object* cmd);

// The owner of the command's file, for work on files as that user; the fax
// system's user for a file of root's that is not trusted as root. False, with
// errno, for a command that came from no file or when it cannot be told.
bool cmd_owner(kx_object* cmd, kut_fsid* owner);

#endif  // COMMANDS_CMDACCESS_H_
