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
// - A program runs with uid 0 only for root, in a file that nobody but root
//   could write to.
// - Outsiders are those beyond the owner and the fax system's group. What all
//   may write counts as theirs where they can enter the spool directory: the
//   daemon's own responses are such files.
#ifndef COMMANDS_CMDACCESS_H_
#define COMMANDS_CMDACCESS_H_

#include "commands/docmd.h"

// Whether the command's owner may have it carried out; if not, the reason is
// logged with the owner.
bool cmd_is_permitted(const cmd_row& row, kx_object* cmd);

// Whether its owner may act for every client.
bool cmd_is_trusted(kx_object* cmd);

#endif  // COMMANDS_CMDACCESS_H_
