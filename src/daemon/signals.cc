#include "daemon/signals.h"

#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "daemon/spool/logfile.h"
#include "daemon/spool/settings.h"
#include "daemon/subtask.h"
#include "faxserver/fsprog.h"
#include "util/kutsig.h"

namespace {

volatile int g_wake_fd = -1;

void Install(int sig, void (*handler)(int), unsigned flags) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = static_cast<int>(flags);
  sigaction(sig, &action, nullptr);
}

}  // namespace

int signals_install(bool workers) {
  g_wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (g_wake_fd < 0) return -1;
  for (const int sig : {SIGINT, SIGQUIT, SIGTERM}) {
    // Files of the command in hand are read to their end.
    Install(sig, catch_sig, SA_RESETHAND | SA_RESTART);
  }
  // Programs are not: the stop shall not wait for them.
  fx_stop_programs_at(g_wake_fd);
  // A fifo's reader may leave while a record is written: an error, not an end.
  Install(SIGPIPE, SIG_IGN, 0);
  // So is a file that is larger than a limit allows.
  Install(SIGXFSZ, SIG_IGN, 0);
  if (workers) Install(SIGCHLD, catch_cld, SA_RESTART);
  return 0;
}

void signals_for_worker() {
  // The channel is the daemon's. A worker that is told to stop just ends, and
  // its program with it.
  g_wake_fd = -1;
  fx_stop_programs_at(-1);
  Install(SIGCHLD, SIG_DFL, 0);
  Install(SIGTERM, monitor_sigint, SA_RESETHAND);
  Install(SIGINT, monitor_sigint, SA_RESETHAND);
}

int signals_wake_fd() { return g_wake_fd; }

void catch_sig(int sig) {
  const int saved = errno;
  dmn_log_pieces({"Signal ", Kut_signame(sig), " caught"});
  daemon_running = 0;
  const uint64_t one = 1;
  if (g_wake_fd >= 0 && write(g_wake_fd, &one, sizeof one) < 0) {
    // The counter is full: then the loop is awake anyway.
  }
  errno = saved;
}

void catch_cld(int) {
  const int saved = errno;
  subtask_reap();
  errno = saved;
}

void monitor_sigint(int sig) {
  dmn_log_pieces({"Signal ", Kut_signame(sig), " caught"});
  _exit(1);
}
