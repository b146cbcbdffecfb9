#include "faxserver/fsextcmd.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "faxserver/fsbase.h"
#include "faxserver/fsfile.h"
#include "faxserver/fsfiles.h"
#include "faxserver/fsguard.h"
#include "faxserver/fsmsg.h"
#include "faxserver/fspopen.h"
#include "faxserver/fsuser.h"
#include "util/kuterr.h"
#include "util/kutio.h"
#include "util/kutproc.h"
#include "util/kutstr.h"
#include "util/kutuser.h"

namespace {

constexpr int kPauseMs = 50;  // between two looks at a command that is silent
constexpr size_t kChunkSize = 64 * 1024;

// The argument vector of an external command; the texts lie in `texts`.
struct Arguments {
  std::vector<std::string> texts;
  std::vector<const char*> argv;
};

// False when there are none or too many.
bool MakeArguments(kx_object* extcmd, Arguments* arguments) {
  std::string line = kx::TextOrEmpty(extcmd, "cmdstr");
  std::vector<char*> words(kFxMaxArgs + 1);
  const int count =
      Kut_awk(line.data(), words.data(), static_cast<int>(words.size()));
  if (count == 0) return false;
  words.resize(static_cast<size_t>(count));
  arguments->texts.assign(words.begin(), words.end());
  for (kx_object* arg : kx::Elements(kx::Child(extcmd, "args"))) {
    if (arguments->texts.size() > kFxMaxArgs) return false;
    arguments->texts.emplace_back(kx::TextOrEmpty(arg, "argstr"));
  }
  if (arguments->texts.size() > kFxMaxArgs) return false;
  for (const std::string& text : arguments->texts) {
    arguments->argv.push_back(text.c_str());
  }
  arguments->argv.push_back(nullptr);
  return true;
}

// A file for the command's error output. It has no name any more when it is
// opened, so it cannot outlive the command, nor can a stranger who guessed the
// name have put a link there.
UniqueFd OpenErrorFile() {
  const char* name = fx_tmpname(nullptr, "err");
  unlink(name);
  UniqueFd fd(Kut_open(name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0666));
  if (fd.valid()) unlink(name);
  return fd;
}

struct Child {
  pid_t pid = -1;
  bool ended = false;
  int status = 0;

  // One that nobody listens to any more is not left running.
  ~Child() {
    if (pid <= 0 || ended) return;
    fx_kill_guarded(pid);
    Wait();
  }
  bool HasEnded() {
    if (!ended && waitpid(pid, &status, WNOHANG) == pid) ended = true;
    return ended;
  }
  void Wait() {
    if (!ended) Kut_wait_child(pid, &status);
    ended = true;
  }
  int ExitStatus() const {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
};

enum class Got { kSome, kEnd, kNothingNow, kError };

// Reads some of what is there.
Got ReadSome(int fd, std::string* output) {
  char chunk[kChunkSize];
  ssize_t got;
  do {
    got = read(fd, chunk, sizeof chunk);
  } while (got < 0 && errno == EINTR);
  if (got < 0) return errno == EAGAIN ? Got::kNothingNow : Got::kError;
  output->append(chunk, static_cast<size_t>(got));
  return got > 0 ? Got::kSome : Got::kEnd;
}

// Reads all that the command prints, until it closes its output or ends: a
// process that it left behind may hold the pipe open for ever. An error number:
// 19 when it prints too much.
int ReadOutput(int fd, Child* child, std::string* output) {
  fcntl(fd, F_SETFL, O_NONBLOCK);
  for (;;) {
    // First the look, then the reading: what it printed before it ended is in
    // the pipe by then.
    const bool ended = child->HasEnded();
    Got got;
    while ((got = ReadSome(fd, output)) == Got::kSome) {
      if (output->size() > kFxMaxOutput) return kx_err_data;
    }
    if (got == Got::kError) return kx_err_system;
    if (got == Got::kEnd || ended) return kx_err_none;
    pollfd wanted = {fd, POLLIN, 0};
    poll(&wanted, 1, kPauseMs);
  }
}

// A stream on a text in memory.
fx_stream OpenText(const std::string& text) {
  // The C library opens no empty buffer.
  if (text.empty()) return fx_stream(fopen("/dev/null", "re"));
  return fx_stream(fmemopen(const_cast<char*>(text.data()), text.size(), "r"));
}

// Makes an object of what the command printed. Files are neither unpacked nor
// looked for: a path in it is the text that the command printed.
kx_object* MakeResult(const std::string& output, bool is_object) {
  const fx_stream stream = OpenText(output);
  if (stream == nullptr) return fx_null(kx_err_system);
  if (!is_object) return fx_tmsg_read(stream.get());
  kx::Object object = fx_read_object(stream.get(), nullptr);
  return object != nullptr ? fx_give(std::move(object)) : fx_null(kx_err_data);
}

// The error number when there is nobody to run as: by errno.
int NobodyError() {
  return Kut_is_shortage(errno) ? kx_err_system : kx_err_permission;
}

kx_object* MakeErrorText(int fd) {
  std::string text;
  lseek(fd, 0, SEEK_SET);
  while (text.size() <= kFxMaxOutput && ReadSome(fd, &text) == Got::kSome) {
  }
  kx_object* message = MakeResult(text, false);
  kx_errno = kx_err_failed;
  return message;
}

bool Start(const Arguments& arguments, const kut_identity* identity, int out,
           int err, Child* child) {
  kut_spawn what;
  what.argv = arguments.argv.data();
  what.fds[1] = out;
  what.fds[2] = err;
  what.identity = identity;
  what.exec_status = 1;
  child->pid = fx_spawn_guarded(what);
  return child->pid > 0;
}

kx_object* Run(const Arguments& arguments, const kut_identity* identity,
               bool is_object) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return fx_null(kx_err_system);
  const UniqueFd reader(ends[0]);
  UniqueFd writer(ends[1]);
  const UniqueFd errors = OpenErrorFile();
  Child child;
  if (!errors.valid() ||
      !Start(arguments, identity, writer.get(), errors.get(), &child)) {
    return fx_null(kx_err_system);
  }
  writer.reset();
  std::string output;
  const int error = ReadOutput(reader.get(), &child, &output);
  if (error != kx_err_none) return fx_null(error);
  child.Wait();
  if (child.ExitStatus() != 0) return MakeErrorText(errors.get());
  return MakeResult(output, is_object);
}

}  // namespace

kx_object* fx_extcmd(const char*, const char* user, kx_object* extcmd) try {
  Arguments arguments;
  if (!MakeArguments(extcmd, &arguments)) return fx_null(kx_err_data);
  kut_identity identity;
  const kut_identity* run_as;
  if (!fx_get_identity(user, false, &identity, &run_as)) {
    return fx_null(NobodyError());
  }
  const fx_child_guard guard;
  return Run(arguments, run_as, kx::Bool(extcmd, "retobj") == 1);
} catch (const std::bad_alloc&) {
  return fx_null(kx_err_memory);
}

int fx_run_as(const char* user, const char* command) {
  kut_identity identity;
  const kut_identity* run_as;
  if (!fx_get_identity(user, true, &identity, &run_as)) {
    return fx_fail(NobodyError());
  }
  kut_spawn what;
  what.command = command;
  what.identity = run_as;
  const fx_child_guard guard;
  Child child;
  child.pid = fx_spawn_guarded(what);
  if (child.pid < 0) return fx_fail(kx_err_system);
  child.Wait();
  fx_ok();
  return child.ExitStatus();
}
