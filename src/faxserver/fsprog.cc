#include "faxserver/fsprog.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <utility>
#include <vector>

#include "cm/cmlimits.h"
#include "faxserver/fsguard.h"
#include "util/kutenv.h"
#include "util/kuttime.h"
#include "util/kutuser.h"

namespace {

constexpr int kPauseMs = 20;    // between two looks at a program that is silent
constexpr int kGraceMs = 1000;  // for a guard that may have begun
constexpr char kUsualPath[] = "/bin:/usr/bin";
constexpr int kExitUnknown = W_EXITCODE(1, 0);

constinit int g_stop_fd = -1;

// What a program gets instead of the daemon's environment.
struct Environment {
  std::vector<std::string> texts;
  std::vector<const char*> envp;
  std::string home = "/";

  void Add(const char* name, const std::string& value) {
    texts.push_back(std::string(name) + "=" + value);
  }
};

// The directory of the fax server's programs, then where the daemon itself
// finds some.
std::string SearchPath() {
  // The first call of a process may give something else.
  Kut_get_kfaxbin();
  const std::string programs = Kut_get_kfaxbin();
  const char* own = getenv("PATH");
  return programs + ":" + (own != nullptr && *own != '\0' ? own : kUsualPath);
}

void AddUser(const kut_account& user, Environment* environment) {
  environment->home = *user.home != '\0' ? user.home : "/";
  environment->Add("USER", user.name);
  environment->Add("LOGNAME", user.name);
  environment->Add("SHELL", *user.shell != '\0' ? user.shell : "/bin/sh");
}

// Null: the process's own user, who needs no account. False with errno.
bool MakeEnvironment(const char* user, Environment* environment) {
  kut_account account;
  const bool known = user != nullptr ? Kut_find_user(user, &account)
                                     : Kut_find_uid(geteuid(), &account);
  if (!known && user != nullptr) return false;
  if (known) AddUser(account, environment);
  environment->Add("HOME", environment->home);
  environment->Add("PATH", SearchPath());
  environment->Add("KFAXDIR", Kut_get_kfaxdir());
  const char* language = getenv("LANG");
  if (language != nullptr) environment->Add("LANG", language);
  for (const std::string& text : environment->texts) {
    environment->envp.push_back(text.c_str());
  }
  environment->envp.push_back(nullptr);
  return true;
}

bool Exceeds(const fx_watched_file& file, long limit) {
  struct stat st;
  return file.dir != -1 &&
         fstatat(file.dir, file.name, &st,
                 AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW) == 0 &&
         st.st_size > limit;
}

std::string TooMuch(const char* what, long limit) {
  return std::string("The program was ended: more than ") +
         cm_limit_text(limit) + " of " + what;
}

}  // namespace

void fx_stop_programs_at(int fd) { g_stop_fd = fd; }

fx_program::~fx_program() {
  if (pid_ > 0 && !ended_) Kill();
}

bool fx_program::Start(kut_spawn what, const char* user, fx_output output,
                       fx_watched_file errors) {
  Environment environment;
  if (!MakeEnvironment(user, &environment)) return false;
  UniqueFd writer;
  if (output == fx_output::kRead) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    output_.reset(ends[0]);
    writer.reset(ends[1]);
    fcntl(output_.get(), F_SETFL, O_NONBLOCK);
    what.fds[1] = writer.get();
  }
  what.envp = environment.envp.data();
  what.dir = environment.home.c_str();
  what.dir_or_root = true;
  errors_ = errors;
  deadline_ = Kut_now_ms() + cm_limit(cm_limit_id::kProgramSeconds) * 1000;
  UniqueFd report;
  pid_ = fx_spawn_guarded(what, &report);
  if (pid_ < 0) return false;
  exit_.reset(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
  return AwaitBegin(report.get());
}

// Waits until the program runs, or has been ended since it could not begin in
// time. False with errno when it cannot be run.
bool fx_program::AwaitBegin(int report) {
  pollfd told = {report, POLLIN, 0};
  while (poll(&told, 1, 0) <= 0) {
    if (!Pause(report, kPauseMs)) return true;
  }
  const int error = fx_guard_report(report);
  begun_ = error == 0;
  if (begun_) return true;
  Kut_wait_child(std::exchange(pid_, -1), nullptr);
  errno = error;
  return false;
}

ssize_t fx_program::Read(char* buffer, size_t size) {
  for (;;) {
    // First the look, then the reading: what it printed before it ended is in
    // the pipe by then.
    const bool ended = HasEnded();
    const ssize_t got = read(output_.get(), buffer, size);
    if (got > 0) {
      printed_ += got;
      const bool good = ended ? !EndIfTooMuch() : Pause(output_.get(), 0);
      return good ? got : 0;
    }
    if (got == 0) return 0;
    if (errno == EINTR) continue;
    if (errno != EAGAIN) return -1;
    if (ended || !Pause(output_.get(), kPauseMs)) return 0;
  }
}

int fx_program::Wait() {
  output_.reset();
  while (!HasEnded() && Pause(-1, kPauseMs)) {
  }
  // What it wrote last counts as well.
  if (why_.empty()) EndIfTooMuch();
  return WIFEXITED(status_) ? WEXITSTATUS(status_) : 128 + WTERMSIG(status_);
}

bool fx_program::HasEnded() {
  if (ended_) return true;
  const pid_t done = waitpid(pid_, &status_, WNOHANG);
  if (done < 0) status_ = kExitUnknown;
  ended_ = done != 0;
  return ended_;
}

// Waits for something to read, for the end or for a moment. Whether the program
// may go on; if not, it has been ended.
bool fx_program::Pause(int fd, int milliseconds) {
  pollfd fds[] = {
      {fd, POLLIN, 0}, {exit_.get(), POLLIN, 0}, {g_stop_fd, POLLIN, 0}};
  const bool stopped = poll(fds, 3, milliseconds) > 0 && fds[2].revents != 0;
  return MayGoOn(stopped);
}

bool fx_program::MayGoOn(bool stopped) {
  if (stopped) {
    End("The program was ended: the server is stopping");
  } else if (Kut_now_ms() >= deadline_) {
    End("The program was ended after " +
        std::to_string(cm_limit(cm_limit_id::kProgramSeconds)) + " seconds");
  } else {
    return !EndIfTooMuch();
  }
  return false;
}

bool fx_program::EndIfTooMuch() {
  const long output = cm_limit(cm_limit_id::kProgramBytes);
  const long errors = cm_limit(cm_limit_id::kProgramErrorBytes);
  if (printed_ > output) {
    End(TooMuch("output", output));
  } else if (Exceeds(errors_, errors)) {
    End(TooMuch("error output", errors));
  } else {
    return false;
  }
  return true;
}

void fx_program::End(const std::string& why) {
  why_ = why;
  if (!HasEnded()) Kill();
}

// The guard ends what it has started. One that has started nothing, since the
// program hangs before it begins, does not hear and is killed itself; not at
// once, for it may have begun this very moment, and what the program has
// started by then would live on.
void fx_program::Kill() {
  fx_kill_guarded(pid_);
  for (int ms = 0; !begun_ && ms < kGraceMs && !HasEnded(); ms += kPauseMs) {
    poll(nullptr, 0, kPauseMs);
  }
  if (!begun_ && !ended_) kill(pid_, SIGKILL);
  if (ended_) return;
  if (Kut_wait_child(pid_, &status_) < 0) status_ = kExitUnknown;
  ended_ = true;
}
