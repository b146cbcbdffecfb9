#include "faxserver/fsguard.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "util/kutio.h"

namespace {

constexpr int kParentEnded = SIGTERM;  // also how the parent ends it itself
constexpr int kNotStarted = 127;

// The guard's life. All signals are blocked; it takes the two that it knows.
[[noreturn]] void Guard(const kut_spawn& what, int report, pid_t parent) {
  signal(SIGCHLD, SIG_DFL);
  // Out of the parent's group: who kills that as a whole must not take the
  // guard along before it has done its work.
  setpgid(0, 0);
  if (prctl(PR_SET_PDEATHSIG, kParentEnded) != 0 || getppid() != parent) {
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
    if (got == kParentEnded) {
      kill(-pid, SIGKILL);
      _exit(128 + SIGKILL);
    }
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) == pid) {
      _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    }
  }
}

}  // namespace

pid_t fx_spawn_guarded(const kut_spawn& what) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return -1;
  const UniqueFd reader(ends[0]);
  UniqueFd writer(ends[1]);

  const pid_t parent = getpid();
  sigset_t all, old;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, &old);
  const pid_t guard = fork();
  if (guard == 0) Guard(what, writer.get(), parent);
  const int saved = errno;
  sigprocmask(SIG_SETMASK, &old, nullptr);
  errno = saved;
  if (guard < 0) return -1;

  // The guard closes the pipe once the program runs; a number in it is errno.
  writer.reset();
  int error = 0;
  if (Kut_read_full(reader.get(), &error, sizeof error) != sizeof error) {
    return guard;
  }
  Kut_wait_child(guard, nullptr);
  errno = error;
  return -1;
}

void fx_kill_guarded(pid_t guard) { kill(guard, kParentEnded); }
