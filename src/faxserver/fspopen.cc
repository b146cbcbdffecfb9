#include "faxserver/fspopen.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "util/kutio.h"
#include "util/kutproc.h"

namespace {

// The command that is open.
struct OpenCommand {
  FILE* stream;
  pid_t pid;
  sigset_t old_mask;
};

constinit OpenCommand g_open = {};

void BlockChildSignal(sigset_t* old) {
  sigset_t child;
  sigemptyset(&child);
  sigaddset(&child, SIGCHLD);
  sigprocmask(SIG_BLOCK, &child, old);
}

}  // namespace

fx_child_guard::fx_child_guard() { BlockChildSignal(&old_); }

fx_child_guard::~fx_child_guard() { sigprocmask(SIG_SETMASK, &old_, nullptr); }

std::string fx_shell_word(const char* text) {
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
  if (g_open.stream != nullptr) {
    errno = EBUSY;
    return nullptr;
  }
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return nullptr;
  UniqueFd reader(ends[0]);
  const UniqueFd writer(ends[1]);
  FILE* stream = fdopen(reader.get(), "r");
  if (stream == nullptr) return nullptr;
  static_cast<void>(reader.release());

  BlockChildSignal(&g_open.old_mask);
  kut_spawn what;
  what.command = command;
  what.fds[1] = writer.get();
  g_open.pid = Kut_spawn(&what);
  if (g_open.pid < 0) {
    const int saved = errno;
    sigprocmask(SIG_SETMASK, &g_open.old_mask, nullptr);
    fclose(stream);
    errno = saved;
    return nullptr;
  }
  return g_open.stream = stream;
}

int fx_pclose(FILE* stream) {
  if (stream == nullptr || stream != g_open.stream) {
    errno = EINVAL;
    return -1;
  }
  // A command that has more to say dies of it, and is not waited for in vain.
  fclose(stream);
  g_open.stream = nullptr;
  int status = 0;
  const pid_t done = Kut_wait_child(g_open.pid, &status);
  const int saved = errno;
  sigprocmask(SIG_SETMASK, &g_open.old_mask, nullptr);
  errno = saved;
  return done > 0 ? status : -1;
}
