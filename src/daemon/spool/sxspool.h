// The spool directory as this process holds it: its descriptor, and the watch
// that tells an idle daemon of new files.
//
// - One directory at a time for the process. The descriptor is inherited by
//   workers and is good for names relative to it, not for reading entries.
#ifndef DAEMON_SPOOL_SXSPOOL_H_
#define DAEMON_SPOOL_SXSPOOL_H_

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>

// The descriptor of `dir`, which this module owns, opened at the first call and
// when another directory is asked for. -1 with errno.
int spool_fd(const char* dir);
// The status of the open directory, as it was when it was looked through last.
// 0, or -1 with errno.
int spool_status(const char* dir, struct stat* st);
// Lets go of the descriptor, and of the watch, unless it is of the very
// directory whose status is `named`: the one of that name may be a new one.
void spool_refresh(const struct stat& named);

// Who this process is; asked for once.
uid_t spool_self();
// Gives the open file to `owner`, before anything is written to it. 0, also
// where only the privilege to do so is missing: then it stays this process's;
// -1 with errno.
int spool_give(int fd, uid_t owner);
// Writes <base>-<random number>.<ext> to `name`, of `size` bytes: a name that
// nobody can have foreseen and taken. `base`, of `length` characters, is cut to
// what a file name holds. 0, or -1 with errno.
int spool_fresh_name(const char* base, int length, const char* ext, char* name,
                     size_t size);

// Starts to watch `dir` for files that arrive. 1 when the watch was not on
// before (files may have come in between: look again before waiting), 0 when it
// was on or there can be none.
int spool_watch(const char* dir);
// Ends the watch, so that a busy daemon is not told of its own files.
void spool_unwatch();
// Waits `secs` seconds (a negative number: for ever), less if a file with the
// extension `ext` arrives or `wake_fd` (-1 for none) becomes readable. Signals
// that do not make it readable end the wait with `any_signal` only.
void spool_wait(const char* ext, int secs, int wake_fd, bool any_signal);

#endif  // DAEMON_SPOOL_SXSPOOL_H_
