#include "faxserver/fspopen.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "cm/cmkrt.h"
#include "faxserver/fslog.h"
#include "faxserver/fsprog.h"
#include "faxserver/fsuser.h"
#include "util/kutguard.h"

namespace {

// The command that is open.
struct OpenCommand {
  std::string line;
  fx_program program;
  FILE* stream = nullptr;
};

constinit OpenCommand* g_open = nullptr;

ssize_t ReadOutput(void* open, char* buffer, size_t size) {
  return Kut_guarded([&]() -> ssize_t {
    return static_cast<OpenCommand*>(open)->program.Read(buffer, size);
  });
}

// Starts the command and opens the stream on its output.
bool Open(OpenCommand* open) {
  kut_spawn what;
  what.command = open->line.c_str();
  // What the fax system's user could have put in the program's place gets no
  // more rights than that.
  kut_identity identity;
  const bool as_krt = geteuid() == 0 && cm_get_krt_uid() != -1;
  if (as_krt &&
      !fx_get_identity(cm_get_krt_uname(), false, &identity, &what.identity)) {
    return false;
  }
  const char* user = as_krt ? cm_get_krt_uname() : nullptr;
  if (!open->program.Start(what, user, fx_output::kRead, {})) return false;
  cookie_io_functions_t functions = {};
  functions.read = ReadOutput;
  open->stream = fopencookie(open, "r", functions);
  return open->stream != nullptr;
}

}  // namespace

fx_child_guard::fx_child_guard() {
  sigset_t child;
  sigemptyset(&child);
  sigaddset(&child, SIGCHLD);
  sigprocmask(SIG_BLOCK, &child, &old_);
}

fx_child_guard::~fx_child_guard() { sigprocmask(SIG_SETMASK, &old_, nullptr); }

std::string fx_shell_word(const char* text) {
  constexpr char kPlain[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-";
  if (*text != '\0' && text[strspn(text, kPlain)] == '\0') return text;
  // Within single quotes nothing has a meaning but the quote itself, which is
  // put between two of them: '\''
  std::string word = "'";
  for (const char* c = text; *c != '\0'; ++c) {
    if (*c == '\'') {
      word += "'\\''";
    } else {
      word += *c;
    }
  }
  return word + "'";
}

FILE* fx_popen(const char* command) {
  return Kut_guarded([&]() -> FILE* {
    if (g_open != nullptr) {
      errno = EBUSY;
      return nullptr;
    }
    auto open = std::make_unique<OpenCommand>();
    open->line = command;
    if (!Open(open.get())) return nullptr;
    g_open = open.release();
    return g_open->stream;
  });
}

int fx_pclose(FILE* stream) {
  return Kut_guarded([&]() -> int {
    if (stream == nullptr || g_open == nullptr || stream != g_open->stream) {
      errno = EINVAL;
      return -1;
    }
    const std::unique_ptr<OpenCommand> open(std::exchange(g_open, nullptr));
    fclose(stream);
    // A command that has more to say dies of it, and is not waited for in vain.
    const int status = open->program.Wait();
    const std::string& why = open->program.why_ended();
    if (why.empty()) return W_EXITCODE(status, 0);
    fx_logf("%s: %s", open->line.c_str(), why.c_str());
    errno = ECANCELED;
    return -1;
  });
}
