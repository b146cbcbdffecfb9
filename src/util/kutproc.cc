#include "util/kutproc.h"

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "util/kutio.h"

namespace {

constexpr int kSetupFailed = 127;
constexpr int kReportFd = 3;  // in the child, once its descriptors are in place
constexpr int kFirstFreeFd = kReportFd + 1;

// A soft limit as it was before this process lowered it.
struct LoweredLimit {
  bool lowered;
  rlim_t before;
};
constinit LoweredLimit g_limits[RLIM_NLIMITS] = {};

// Blocks every signal for a scope.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &old_);
  }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;
  ~AllSignalsBlocked() { sigprocmask(SIG_SETMASK, &old_, nullptr); }

 private:
  sigset_t old_;
};

[[noreturn]] void FailChild(int report) {
  const int error = errno;
  Kut_write_full(report, &error, sizeof error);
  _exit(kSetupFailed);
}

// Numbers that take no action (SIGKILL, the C library's own) are refused, which
// is as good.
void DefaultActions() {
  for (int sig = 1; sig < NSIG; sig++) signal(sig, SIG_DFL);
}

void CloseFrom(int first) {
  if (close_range(static_cast<unsigned>(first), UINT_MAX, 0) == 0) return;
  const long limit = sysconf(_SC_OPEN_MAX);  // a kernel before 5.9
  for (int fd = first; fd < limit; fd++) close(fd);
}

// Puts the three descriptors in place and `*report` at kReportFd. First all of
// them are copied out of the way: a source may be another one's place.
bool PlaceDescriptors(const int (&fds)[3], int* report) {
  int copies[3];
  const int report_copy = fcntl(*report, F_DUPFD_CLOEXEC, kFirstFreeFd);
  if (report_copy < 0) return false;
  *report = report_copy;
  for (int i = 0; i < 3; i++) {
    const int from = fds[i] >= 0 ? fds[i] : open("/dev/null", O_RDWR);
    if (from < 0) return false;
    copies[i] = fcntl(from, F_DUPFD, kFirstFreeFd);
    if (copies[i] < 0) return false;
  }
  for (int i = 0; i < 3; i++) {
    if (dup2(copies[i], i) < 0) return false;
  }
  if (dup3(*report, kReportFd, O_CLOEXEC) < 0) return false;
  *report = kReportFd;
  CloseFrom(kFirstFreeFd);
  return true;
}

// Groups first and uid last: with the uid the right to change the others goes.
bool TakeIdentity(const kut_identity& id) {
  const int grouped =
      id.user != nullptr ? initgroups(id.user, id.gid) : setgroups(1, &id.gid);
  return grouped == 0 && setresgid(id.gid, id.gid, id.gid) == 0 &&
         setresuid(id.uid, id.uid, id.uid) == 0;
}

bool DieWithParent(pid_t parent) {
  if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0) return false;
  if (getppid() == parent) return true;
  errno = ESRCH;  // it ended before the request: no signal would ever come
  return false;
}

bool EnterDirectory(const kut_spawn& what) {
  if (what.dir == nullptr || chdir(what.dir) == 0) return true;
  return what.dir_or_root && chdir("/") == 0;
}

bool RestoreLimits() {
  for (int i = 0; i < RLIM_NLIMITS; i++) {
    if (!g_limits[i].lowered) continue;
    const auto resource = static_cast<__rlimit_resource_t>(i);
    rlimit limit;
    if (getrlimit(resource, &limit) != 0) return false;
    limit.rlim_cur = g_limits[i].before;
    if (setrlimit(resource, &limit) != 0) return false;
  }
  return true;
}

void Execute(const kut_spawn& what) {
  const char* const shell[] = {"/bin/sh", "-c", what.command, nullptr};
  const char* const* argv = what.argv != nullptr ? what.argv : shell;
  // The search goes by the PATH of this process, not by that of its argument.
  if (what.envp != nullptr) environ = const_cast<char**>(what.envp);
  execvp(argv[0], const_cast<char* const*>(argv));
}

[[noreturn]] void RunChild(const kut_spawn& what, int report, pid_t parent) {
  DefaultActions();
  if (!RestoreLimits()) FailChild(report);
  if (!PlaceDescriptors(what.fds, &report)) FailChild(report);
  if (what.new_session && setsid() < 0) FailChild(report);
  if (what.identity != nullptr && !TakeIdentity(*what.identity)) {
    FailChild(report);
  }
  if (what.die_with_parent && !DieWithParent(parent)) FailChild(report);
  if (!EnterDirectory(what)) FailChild(report);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  Execute(what);
  if (what.exec_status != 0) _exit(what.exec_status);
  FailChild(report);
}

}  // namespace

pid_t Kut_spawn(const kut_spawn* what) {
  if (what->argv != nullptr ? what->argv[0] == nullptr
                            : what->command == nullptr) {
    errno = EINVAL;
    return -1;
  }
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return -1;
  const UniqueFd reader(ends[0]);
  UniqueFd writer(ends[1]);

  // Until a child that failed has been waited for, no SIGCHLD handler may see
  // it.
  const AllSignalsBlocked blocked;
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid < 0) return -1;
  if (pid == 0) RunChild(*what, writer.get(), parent);

  // The running program closes the pipe; a number in it is the child's errno.
  writer.reset();
  int error = 0;
  if (Kut_read_full(reader.get(), &error, sizeof error) != sizeof error) {
    return pid;
  }
  Kut_wait_child(pid, nullptr);
  errno = error;
  return -1;
}

pid_t Kut_wait_child(pid_t pid, int* status) {
  pid_t done;
  do {
    done = waitpid(pid, status, 0);
  } while (done < 0 && errno == EINTR);
  return done;
}

bool Kut_process_exists(pid_t pid) {
  return pid > 0 && (kill(pid, 0) == 0 || errno == EPERM);
}

int Kut_lower_limit(int resource, rlim_t limit) {
  const auto which = static_cast<__rlimit_resource_t>(resource);
  rlimit present;
  if (getrlimit(which, &present) != 0) return -1;
  if (present.rlim_cur <= limit) return 0;
  LoweredLimit& noted = g_limits[resource];
  if (!noted.lowered) noted = {true, present.rlim_cur};
  present.rlim_cur = limit;
  return setrlimit(which, &present);
}
