// Which command is next: finding and claiming the command files of the spool
// directory, so that no user's files keep out another's.
//
// - The rename is the claim: of several daemons on one directory, the one whose
//   rename succeeds has the command. One that finds the file gone is no error.
// - The list of ready files is one for the process.
// - This stands with the workers, above the other services of the spool: who is
//   next depends on who has how many of them.
//
// Limits: a command whose claimed name would be longer than a file name may be
// stays where it is.
#ifndef DAEMON_SXREADY_H_
#define DAEMON_SXREADY_H_

#include <sys/types.h>

// Claims the next command file of `dir`. `name`, of kSxNameSize bytes, holds
// the extension to look for and takes the claimed file's name. 0; 1 when none
// is ready; -1 with kx_err_system when the directory cannot be read.
//
// At most 100 names are taken from the directory at a time, and claimed in byte
// order. An unchanged directory is read twice and then left alone until its
// time changes.
//
// Nobody's files keep out another's. A list that has names of several users has
// at most ten of each but root and krtfax, and passes over those of a user who
// has had his share of the workers (subtask_has_share) while it has others'.
// The rest of a list is looked for again when it is one user's alone and a
// second old. Names that cannot be claimed stay where they are, take no place
// that others could have, and are told in the log once.
int sx_ready(const char* dir, char* name);
// The owner of the file that sx_ready claimed last.
uid_t sx_ready_owner();
// Whether sx_ready left commands where they are, of one user who has all the
// workers that he may have: the end of a worker is a reason to look again.
bool sx_ready_held();

// Compares two names (pointers to const char *) byte by byte, for sorting.
int sx_comp_rtn(const void* a, const void* b);

#endif  // DAEMON_SXREADY_H_
