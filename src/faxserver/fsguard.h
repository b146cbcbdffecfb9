// Running a program that must not outlive this process, nor anything that it
// started.
//
// - Between this process and the program stands a guard, a fork of this process
//   that does nothing but wait: for the program's end, which it passes on, or
//   for its own parent's end. In both cases it kills all that is left of what
//   the program started: its process group at once, and then what became the
//   guard's own child when its parent ended, whatever group or session it made
//   for itself.
// - Limits: who makes new processes faster than the guard kills them is left
//   after a second, and so is what the kernel does not let die.
#ifndef FAXSERVER_FSGUARD_H_
#define FAXSERVER_FSGUARD_H_

#include "util/kutio.h"
#include "util/kutproc.h"

// Starts a program as Kut_spawn does, in a session of its own. The guard's pid,
// which the caller waits for, or -1 with errno. It does not wait for the
// program to begin, which may hang where its directory or its file does.
// `report` tells: it is readable once the program runs, or cannot be run
// (fx_guard_report). The guard exits with the program's exit status, or with
// 128 and the number of the signal that ended it.
pid_t fx_spawn_guarded(const kut_spawn& what, UniqueFd* report);

// Reads a report: 0 when the program runs, else why it does not: errno, and the
// guard ends by itself.
int fx_guard_report(int report);

// Ends the program, what it started and the guard, which is still to be waited
// for. Before its report only SIGKILL ends a guard.
void fx_kill_guarded(pid_t guard);

#endif  // FAXSERVER_FSGUARD_H_
