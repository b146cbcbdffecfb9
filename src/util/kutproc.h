// Running other programs: the one place where a child is made to run one.
//
// - What the child does, in this order, all of it before the program starts:
//    1. every signal has been blocked by the parent before the fork, so that no
//       handler of the parent runs in the child;
//    2. default actions for all signals, also those the parent ignores, and
//       the limits that the parent has lowered for itself as they were;
//    3. standard input, output and error are put in place, every other
//       descriptor is closed;
//    4. a session of its own, if asked for;
//    5. identity, if asked for: groups, then gid, then uid, each checked;
//    6. SIGKILL at the parent's death, if asked for: after the identity, whose
//       change clears it, and then a look whether the parent is still there;
//    7. the directory, entered with the new identity's rights: this, and the
//       program, can lie where they hang;
//    8. empty signal mask, and the program.
// - A step that fails ends the child with status 127 and is told to the parent:
//   Kut_spawn gives -1 with the child's errno and leaves no child behind.
// - The child is the caller's to wait for. A SIGCHLD handler that waits for any
//   child takes it away; such a process blocks SIGCHLD around spawn and wait.
// - Not for signal handlers, unless a function says so. For processes with one
// thread.
#ifndef UTIL_KUTPROC_H_
#define UTIL_KUTPROC_H_

#include <sys/resource.h>
#include <sys/types.h>

// Whom a child runs as. Taking one on needs the privilege to do so; without it
// the step fails, also when it would change nothing.
struct kut_identity {
  uid_t uid;
  gid_t gid;
  const char* user;  // its groups are looked up by this name; null: `gid` alone
};

struct kut_spawn {
  // The program, looked for along the PATH that it gets, and its arguments,
  // ending with null.
  const char* const* argv = nullptr;
  // Or a command line for /bin/sh, when `argv` is null.
  const char* command = nullptr;
  // Environment, ending with null; null: the caller's.
  const char* const* envp = nullptr;
  // Directory to run in; null: the caller's.
  const char* dir = nullptr;
  bool dir_or_root = false;  // "/" where that directory cannot be entered
  // The child's descriptors 0, 1 and 2; -1 stands for /dev/null.
  int fds[3] = {-1, -1, -1};
  // Null: the caller's identity.
  const kut_identity* identity = nullptr;
  bool new_session = false;     // leader of a session, and so of a group
  bool die_with_parent = true;  // SIGKILL when the caller ends
  // When not 0: a program that cannot be run is no failure of Kut_spawn; the
  // child ends with this status (1 to 255).
  int exec_status = 0;
};

// Starts a child. Its pid once the program runs, or -1 with errno (EINVAL:
// neither a program nor a command line).
[[nodiscard]] pid_t Kut_spawn(const kut_spawn* what);

// Waits for the end of child `pid`, whatever signals arrive; `status`, as of
// waitpid(2), may be null. `pid`, or -1 with errno (ECHILD: not a child, or
// somebody else has waited for it).
pid_t Kut_wait_child(pid_t pid, int* status);

// Whether process `pid` exists, as a zombie at least: one that the caller may
// not signal does. No number below 1 is a process. errno is not kept. Safe in a
// signal handler.
bool Kut_process_exists(pid_t pid);

// Lowers a soft limit (RLIMIT_AS, ...) of this process and of those that it
// forks, but not of programs: these have what was before the first call. A
// limit that is lower already stays. 0, or -1 with errno.
int Kut_lower_limit(int resource, rlim_t limit);

#endif  // UTIL_KUTPROC_H_
