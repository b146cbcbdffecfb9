#include "faxserver/fsguard.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <ctime>
#include <memory>

#include "util/kutio.h"

namespace {

constexpr int kParentEnded = SIGTERM;  // also how the parent ends it itself
constexpr int kNotStarted = 127;
// How often, and how far apart, what is left is looked for.
constexpr int kRounds = 1000;
constexpr long kPauseNs = 1'000'000;

// Kills every child of the guard. False when there was none to kill.
bool KillChildren() {
  char path[64];
  snprintf(path, sizeof path, "/proc/self/task/%d/children", getpid());
  const std::unique_ptr<FILE, int (*)(FILE*)> list(fopen(path, "re"), fclose);
  bool any = false;
  for (int pid; list != nullptr && fscanf(list.get(), "%d", &pid) == 1;) {
    any = kill(pid, SIGKILL) == 0 || any;
  }
  return any;
}

// Ends all that the program started, and the guard. The group dies as a whole,
// before any of it can run on; the children of what is killed after that come
// to the guard in their turn.
[[noreturn]] void EndAll(pid_t program, int status) {
  kill(-program, SIGKILL);
  for (int round = 0; round < kRounds; ++round) {
    const timespec pause = {0, kPauseNs};
    if (round > 0) nanosleep(&pause, nullptr);
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    if (!KillChildren()) break;
  }
  _exit(status);
}

// Collects those that have ended, but not the program: its number stays its own
// until its group has been killed. True when it has ended.
bool HasEnded(pid_t program, int* status) {
  siginfo_t info;
  for (;;) {
    info.si_pid = 0;
    if (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
        info.si_pid == 0) {
      return false;
    }
    if (info.si_pid == program) break;
    waitpid(info.si_pid, nullptr, 0);
  }
  *status = info.si_code == CLD_EXITED ? info.si_status : 128 + info.si_status;
  return true;
}

// The guard's life. All signals are blocked; it takes the two that it knows.
[[noreturn]] void Guard(const kut_spawn& what, int report, pid_t parent) {
  signal(SIGCHLD, SIG_DFL);
  // Out of the parent's group: who kills that as a whole must not take the
  // guard along before it has done its work.
  setpgid(0, 0);
  if (prctl(PR_SET_PDEATHSIG, kParentEnded) != 0 || getppid() != parent ||
      prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) {
    _exit(kNotStarted);
  }
  kut_spawn program = what;
  program.new_session = true;
  const pid_t pid = Kut_spawn(&program);
  if (pid < 0) {
    const int error = errno;
    Kut_write_full(report, &error, sizeof error);
    _exit(kNotStarted);
  }
  // Whoever reads the program's output waits for its end, not for the guard's.
  close_range(0, UINT_MAX, 0);

  sigset_t awaited;
  sigemptyset(&awaited);
  sigaddset(&awaited, SIGCHLD);
  sigaddset(&awaited, kParentEnded);
  for (;;) {
    const int got = sigwaitinfo(&awaited, nullptr);
    if (got == kParentEnded) EndAll(pid, 128 + SIGKILL);
    int status = 0;
    if (HasEnded(pid, &status)) EndAll(pid, status);
  }
}

}  // namespace

pid_t fx_spawn_guarded(const kut_spawn& what, UniqueFd* report) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return -1;
  report->reset(ends[0]);
  const UniqueFd writer(ends[1]);

  const pid_t parent = getpid();
  sigset_t all, old;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, &old);
  const pid_t guard = fork();
  if (guard == 0) Guard(what, writer.get(), parent);
  const int saved = errno;
  sigprocmask(SIG_SETMASK, &old, nullptr);
  errno = saved;
  return guard;
}

int fx_guard_report(int report) {
  // The guard closes the pipe once the program runs.
  int error = 0;
  return Kut_read_full(report, &error, sizeof error) == sizeof error ? error
                                                                     : 0;
}

void fx_kill_guarded(pid_t guard) { kill(guard, kParentEnded); }
