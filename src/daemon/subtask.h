// The table of running command workers.
//
// - One table per process, made by subtask_init; every other call before that
//   logs and fails (-1).
// - The table is changed by the main flow and by the child handler. Both sides
//   change it with SIGCHLD blocked (SubtaskGuard), so neither sees half an
//   entry.
// - Nothing here allocates after subtask_init; subtask_add and subtask_del may
//   be called from a signal handler.
//
// Limits: a worker that the kernel does not let die (it waits for a disk, say)
// holds the sweep that has killed it.
#ifndef DAEMON_SUBTASK_H_
#define DAEMON_SUBTASK_H_

#include <signal.h>
#include <sys/types.h>

enum subtask_state : int {
  kRunning = 0,   // forked, not yet reaped
  kKilled = 1,    // signals sent, not yet reaped
  kFinished = 2,  // its exit was seen before it was added
};

// Blocks SIGCHLD while it lives.
class SubtaskGuard {
 public:
  SubtaskGuard();
  SubtaskGuard(const SubtaskGuard&) = delete;
  SubtaskGuard& operator=(const SubtaskGuard&) = delete;
  ~SubtaskGuard();
  // The mask before the guard, which a forked worker goes back to.
  const sigset_t* old_mask() const { return &old_; }

 private:
  sigset_t old_;
};

// Makes the table, of `size` entries; a negative size is a table of none. 0, or
// -1 with errno; also, with a log line, when there is a table already.
int subtask_init(int size);

// Records worker `pid` with the present time; an entry of that pid is reused,
// else the first free one. 0, or -1 when the table is full.
int subtask_add(pid_t pid, int status, int state);

// Notes for whom the worker `pid` works; an unknown pid is no matter.
void subtask_set_owner(pid_t pid, uid_t owner);
// Whether `owner` has all the workers that one user may have while others wait:
// cm_limit_id::kUserShare percent of those that can run at a time, at least
// one. Never so for root and krtfax, which act for many, and without a table.
bool subtask_has_share(uid_t owner);
// Whether `owner` has all of them but one, which is not his: those who come
// while all the others are his would wait for a worker of his.
bool subtask_has_most(uid_t owner);

// Frees the entry of `pid`. 0, or -1 when there is none.
int subtask_del(pid_t pid, int status);

// Returns 0 at once while fewer than size - 1 workers are recorded: one entry
// is always spare. Else waits for a signal, mostly a worker's end: 0, or -1
// after 30 seconds without one.
int subtask_wait();

// Whether a worker can ever be run: not in a table of fewer than two entries.
bool subtask_possible();

// Kills workers older than 30 seconds, with `force` all; collects those that
// were killed (with `force` at once, else at the next sweep) and drops entries
// of those that had ended before they were added.
void subtask_sweep(int force);

// The child handler's part: collects every worker that has ended, and keeps
// subtask_cnt and the table. Logs when there was nothing to collect and no
// earlier call can have collected it.
void subtask_reap();

// The handler of SIGALRM during subtask_wait.
void alarm_rtn(int sig);

#endif  // DAEMON_SUBTASK_H_
