#include "daemon/subtask.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "cm/cmkrt.h"
#include "cm/cmlimits.h"
#include "daemon/spool/logfile.h"
#include "daemon/spool/settings.h"
#include "util/kutmem.h"
#include "util/kuttime.h"

namespace {

constexpr int kWaitSeconds = 30;  // for a worker to end, before a sweep
constexpr int kHungSeconds = 30;  // a worker older than this has hung
constexpr int kStatusUnknown = -1;

struct Subtask {
  pid_t pid;  // 0: free
  int state;
  int status;
  long start;   // in seconds; setting the time hangs nobody
  uid_t owner;  // of the command
};

Subtask* g_tasks = nullptr;
int g_size = -1;  // -1: no table
volatile sig_atomic_t g_in_use = 0;
volatile sig_atomic_t g_alarm_fired = 0;
// Workers collected beyond one for each signal: that many further signals may
// still come and find nothing.
volatile sig_atomic_t g_collected_ahead = 0;

long Now() { return Kut_now_ms() / 1000; }

bool Initialized() {
  if (g_size != -1) return true;
  dmn_log_pieces({"SUBTASK: Subtask table not initialized"});
  return false;
}

// The entry of `pid`, 0 being a free one; or null.
Subtask* Find(pid_t pid) {
  for (int i = 0; i < g_size; ++i) {
    if (g_tasks[i].pid == pid) return &g_tasks[i];
  }
  return nullptr;
}

void Release(Subtask& task) {
  task = {.pid = 0,
          .state = kRunning,
          .status = kStatusUnknown,
          .start = 0,
          .owner = 0};
  g_in_use = g_in_use - 1;
}

// A worker that has been waited for.
void Collected(pid_t pid, int status) {
  subtask_cnt = subtask_cnt - 1;
  if (subtask_del(pid, status) != 0) subtask_add(pid, status, kFinished);
}

void Kill(Subtask& task) {
  task.state = kKilled;
  const pid_t pid = task.pid;
  if (kill(pid, SIGTERM) == 0) {
    kill(pid, SIGKILL);
    kill(-pid, SIGKILL);  // what the worker had started dies with it
  } else if (errno == ESRCH) {
    Release(task);
  }
}

// Collects children until the killed worker of this entry is among them.
void CollectKilled(const Subtask& task) {
  const pid_t wanted = task.pid;
  pid_t pid;
  int status;
  do {
    pid = wait(&status);
    if (pid < 0 && errno == EINTR) continue;
    if (pid < 0) return;
    g_collected_ahead = g_collected_ahead + 1;
    Collected(pid, status);
  } while (pid != wanted);
}

void Sweep(Subtask& task, long cut_off, bool force) {
  switch (task.state) {
    case kRunning:
      if (task.start < cut_off) {
        dmn_logf("SUBTASK: Terminating PID %d: too old", task.pid);
        Kill(task);
      } else if (force) {
        Kill(task);
      }
      break;
    case kKilled:
      CollectKilled(task);
      // Somebody else may have waited for it.
      if (task.pid != 0 && task.state == kKilled) Release(task);
      break;
    default:
      Release(task);
      break;
  }
}

// Whether so many workers, one at least, run commands of the owner, who is not
// the fax system.
bool HasAtLeast(uid_t owner, long share) {
  if (!subtask_possible() || cm_is_krt_admin(static_cast<int>(owner))) {
    return false;
  }
  const SubtaskGuard guard;
  const auto running =
      std::count_if(g_tasks, g_tasks + g_size, [owner](const Subtask& task) {
        return task.pid != 0 && task.owner == owner;
      });
  return running >= std::max(share, 1L);
}

}  // namespace

SubtaskGuard::SubtaskGuard() {
  sigset_t child;
  sigemptyset(&child);
  sigaddset(&child, SIGCHLD);
  sigprocmask(SIG_BLOCK, &child, &old_);
}

SubtaskGuard::~SubtaskGuard() { sigprocmask(SIG_SETMASK, &old_, nullptr); }

int subtask_init(int size) {
  if (g_size != -1) {
    dmn_log_write("SUBTASK: init called more than once");
    return -1;
  }
  if (size < 0) size = 0;
  g_tasks = static_cast<Subtask*>(
      Kut_calloc(static_cast<size_t>(size), sizeof(Subtask)));
  if (g_tasks == nullptr) return -1;
  g_size = size;
  return 0;
}

int subtask_add(pid_t pid, int status, int state) {
  if (!Initialized()) return -1;
  const SubtaskGuard guard;
  Subtask* task = Find(pid);
  if (task == nullptr) {
    task = Find(0);
    if (task == nullptr) return -1;
    g_in_use = g_in_use + 1;
  }
  *task = {
      .pid = pid, .state = state, .status = status, .start = Now(), .owner = 0};
  return 0;
}

void subtask_set_owner(pid_t pid, uid_t owner) {
  const SubtaskGuard guard;
  Subtask* task = Find(pid);
  if (task != nullptr) task->owner = owner;
}

bool subtask_has_share(uid_t owner) {
  const long workers = g_size - 1;
  return HasAtLeast(owner, workers * cm_limit(cm_limit_id::kUserShare) / 100);
}

bool subtask_has_most(uid_t owner) { return HasAtLeast(owner, g_size - 2); }

int subtask_del(pid_t pid, int) {
  if (!Initialized()) return -1;
  const SubtaskGuard guard;
  Subtask* task = pid != 0 ? Find(pid) : nullptr;
  if (task == nullptr) return -1;
  Release(*task);
  return 0;
}

bool subtask_possible() { return g_size > 1; }

int subtask_wait() {
  if (!Initialized()) return -1;
  if (g_in_use < g_size - 1) return 0;
  // All signals are blocked from here on, so that one that comes between the
  // look and the wait ends the wait.
  sigset_t all;
  sigset_t old;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, &old);
  const bool full = g_in_use >= g_size - 1;
  if (full) {
    if (Debug != 0) dmn_log_write("SUBTASK: Max tasks reached");
    g_alarm_fired = 0;
    struct sigaction action {};
    action.sa_handler = alarm_rtn;
    sigaction(SIGALRM, &action, nullptr);
    alarm(kWaitSeconds);
    sigset_t none;
    sigemptyset(&none);
    sigsuspend(&none);
    alarm(0);
    signal(SIGALRM, SIG_DFL);
  }
  sigprocmask(SIG_SETMASK, &old, nullptr);
  if (!full || g_alarm_fired == 0) return 0;
  if (Debug != 0) dmn_log_write("SUBTASK: Subtask wait timed out");
  return -1;
}

void subtask_sweep(int force) {
  if (!Initialized()) return;
  const SubtaskGuard guard;
  if (g_in_use == 0) return;
  const long cut_off = Now() - kHungSeconds;
  if (Debug != 0) dmn_log_write("SUBTASK: Looking for hung tasks");
  // A forced sweep goes round twice: to kill, and to collect the killed.
  for (int round = 0; round < (force != 0 ? 2 : 1); ++round) {
    for (int i = 0; i < g_size; ++i) {
      if (g_tasks[i].pid != 0) Sweep(g_tasks[i], cut_off, force != 0);
    }
  }
}

void subtask_reap() {
  int collected = 0;
  int status;
  pid_t pid;
  while ((pid = waitpid(-1, &status, WNOHANG)) > 0) {
    Collected(pid, status);
    ++collected;
  }
  if (collected > 0) {
    g_collected_ahead = g_collected_ahead + collected - 1;
  } else if (pid < 0 && g_collected_ahead > 0) {
    g_collected_ahead = g_collected_ahead - 1;
  } else if (pid < 0) {
    dmn_log_pieces({"Error in catch_cld routine: ", strerrordesc_np(errno)});
  }
}

void alarm_rtn(int) { g_alarm_fired = 1; }
