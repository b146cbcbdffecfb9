#include "faxserver/fsfifo.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "util/kutio.h"

namespace {

// Keeps SIGPIPE away from whatever handler the process has. A signal that this
// scope itself caused is taken back; one that was pending before stays.
class SigPipeBlocked {
 public:
  SigPipeBlocked() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    was_pending_ = sigismember(&pending, SIGPIPE) == 1;
    sigprocmask(SIG_BLOCK, &pipe_, &old_);
  }
  SigPipeBlocked(const SigPipeBlocked&) = delete;
  SigPipeBlocked& operator=(const SigPipeBlocked&) = delete;
  ~SigPipeBlocked() {
    const int saved = errno;
    const timespec now = {0, 0};
    if (!was_pending_) sigtimedwait(&pipe_, nullptr, &now);
    sigprocmask(SIG_SETMASK, &old_, nullptr);
    errno = saved;
  }

 private:
  sigset_t pipe_;
  sigset_t old_;
  bool was_pending_;
};

long long NowMs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

// Whether the fifo has room (or has lost its reader, which the write will tell)
// before `deadline`.
bool WaitForRoom(int fd, long long deadline) {
  for (;;) {
    const long long left = deadline - NowMs();
    pollfd wanted = {fd, POLLOUT, 0};
    const int ready = poll(&wanted, 1, left > 0 ? static_cast<int>(left) : 0);
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
    if (left <= 0) {
      errno = EAGAIN;
      return false;
    }
  }
}

}  // namespace

int fx_fifo_write(int fd, const void* record, size_t size, int seconds) {
  const SigPipeBlocked no_sigpipe;
  // Without blocking a write of up to PIPE_BUF bytes is done whole or not at
  // all.
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) return -1;
  const long long deadline = NowMs() + seconds * 1000LL;
  for (;;) {
    const ssize_t done = write(fd, record, size);
    if (done == static_cast<ssize_t>(size)) return 0;
    if (done >= 0) {
      errno = EIO;
      return -1;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN || !WaitForRoom(fd, deadline)) return -1;
  }
}

int fx_fifo_send(const char* path, const void* record, size_t size,
                 int seconds) {
  const UniqueFd fd(Kut_open_fifo_writer(path, seconds));
  return fd.valid() ? fx_fifo_write(fd.get(), record, size, seconds) : -1;
}
