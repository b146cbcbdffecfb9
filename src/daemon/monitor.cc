#include "daemon/monitor.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "cm/cmlimits.h"
#include "commands/docmd.h"
#include "daemon/signals.h"
#include "daemon/spool/logfile.h"
#include "daemon/spool/settings.h"
#include "daemon/spool/sxfile.h"
#include "daemon/spool/sxsave.h"
#include "daemon/spool/sxspool.h"
#include "daemon/subtask.h"
#include "daemon/sxready.h"
#include "kx/object.h"
#include "util/kuterr.h"
#include "util/kutproc.h"

namespace {

constexpr char kExtension[] = "cmd";
constexpr unsigned kForkPause = 1;  // seconds before the one further try

const char* g_dir = nullptr;

// Claims the next command file into `name`: false when none is ready.
bool ClaimNext(char (&name)[kSxNameSize]) {
  strcpy(name, kExtension);
  return sx_ready(g_dir, name) == 0;
}

pid_t Fork() {
  const pid_t pid = fork();
  if (pid >= 0 || errno != EAGAIN) return pid;
  sleep(kForkPause);
  return fork();
}

// What one command may take of the system. A daemon that runs its commands
// itself has no such limits: they would be its own for ever.
void TakeLimits() {
#ifndef __SANITIZE_ADDRESS__  // which reserves terabytes of address space
  // A failure leaves the limit as it is, which is no reason not to serve.
  static_cast<void>(Kut_lower_limit(
      RLIMIT_AS, static_cast<rlim_t>(cm_limit(cm_limit_id::kWorkerBytes))));
  static_cast<void>(Kut_lower_limit(
      RLIMIT_FSIZE,
      static_cast<rlim_t>(cm_limit(cm_limit_id::kWorkerFileBytes))));
#endif
}

// The worker of one command; SIGCHLD is still blocked here.
[[noreturn]] void RunWorker(const char* name, const sigset_t* mask) {
  setpgid(0, 0);  // before it starts anything that a sweep must reach
  signals_for_worker();
  TakeLimits();
  sigprocmask(SIG_SETMASK, mask, nullptr);
  // Not exit(): what the daemon registered or buffered is not the worker's.
  _exit(monitor_cmd(name));
}

void StartWorker(const char* name) {
  while (subtask_wait() != 0) subtask_sweep(0);
  const SubtaskGuard guard;  // its end is not seen before its entry is made
  const pid_t pid = Fork();
  if (pid < 0) {
    dmn_logf("Cannot fork: %s", Kut_sys_errstr());
    return;
  }
  if (pid == 0) RunWorker(name, guard.old_mask());
  subtask_add(pid, -1, kRunning);
  subtask_set_owner(pid, sx_ready_owner());
  subtask_cnt = subtask_cnt + 1;
}

// Waits for the next command, unless one came before the watch was on.
void Idle(int secs) {
  if (spool_watch(g_dir) == 1) return;
  // A worker that ended before the wait is seen a second later.
  const bool held = sx_ready_held();
  spool_wait(kExtension, held ? 1 : secs, signals_wake_fd(), held);
}

}  // namespace

const char* monitor_type() { return "file"; }

int monitor_open(int, int) { return 0; }

int monitor_start(const char* dir, int) {
  struct stat st;
  if (stat(dir, &st) != 0) {
    dmn_logf("Cannot stat directory %s: %s", dir, Kut_sys_errstr());
    return -1;
  }
  g_dir = dir;
  if (spool_fd(dir) < 0) {
    dmn_logf("Cannot open directory %s: %s", dir, Kut_sys_errstr());
  }
  if (save_cmds != 0 || save_rsps != 0) sx_save_check(dir);
  return 0;
}

int monitor_read(int secs) {
  const bool inline_mode = num_daemons != 0;
  if (!inline_mode && !subtask_possible()) {
    // No worker can ever be run: commands stay unclaimed for another daemon.
    spool_wait(kExtension, secs, signals_wake_fd(), false);
    return 0;
  }
  int count = 0;
  char name[kSxNameSize];
  while (ClaimNext(name)) {
    if (++count == 1) spool_unwatch();
    if (inline_mode) {
      monitor_cmd(name);
    } else {
      StartWorker(name);
    }
  }
  if (count == 0 && daemon_running != 0) Idle(secs);
  return count;
}

int monitor_cmd(const char* name) {
  kx_object* cmd = sx_cmd(g_dir, name, save_cmds);
  if (cmd == nullptr) {
    dmn_logf("Error processing cmd file %s: %s", name, Kfx_Errmsg(Kfx_Errno()));
    return -1;
  }
  return do_cmd(cmd);
}

int monitor_stop() { return 0; }

int monitor_close() { return 0; }
