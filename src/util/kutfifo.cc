#include "util/kutfifo.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

#include "util/kutio.h"
#include "util/kuttime.h"

namespace {

constexpr long kReaderPauseNs = 5'000'000;  // between two looks for one

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

// Opens one end, which is in blocking mode afterwards: opened so, it would wait
// for the other end for ever.
int OpenEnd(const char* path, int access) {
  UniqueFd fd(Kut_open(path, access | O_NONBLOCK | O_NOFOLLOW));
  struct stat st;
  if (!fd.valid() || fstat(fd.get(), &st) != 0) return -1;
  if (!S_ISFIFO(st.st_mode)) {
    errno = EINVAL;
    return -1;
  }
  if (fcntl(fd.get(), F_SETFL, access) != 0) return -1;
  return fd.release();
}

int CloseEnd(int* fd) {
  const int end = std::exchange(*fd, -1);
  return end >= 0 ? close(end) : 0;
}

// Waits for the reading end to become readable: 0, 1 after `seconds`, or -1.
int AwaitReadable(int fd, int seconds) {
  pollfd wanted = {fd, POLLIN, 0};
  const int ready = poll(&wanted, 1, std::min(seconds, INT_MAX / 1000) * 1000);
  if (ready < 0) return -1;
  return ready == 0 ? 1 : 0;
}

// Whether the fifo has room (or has lost its reader, which the write will tell)
// before `deadline`.
bool WaitForRoom(int fd, long deadline) {
  for (;;) {
    const long left = deadline - Kut_now_ms();
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

int Kut_make_fifo(const char* path, mode_t mode) {
  // The mode is right from the beginning: a chmod later could be led astray by
  // a link in the fifo's place.
  const mode_t mask = umask(0);
  const int made = mkfifo(path, mode);
  umask(mask);
  return made;
}

bool Kut_is_fifo(const char* path) {
  struct stat st;
  if (lstat(path, &st) != 0) return false;
  if (S_ISFIFO(st.st_mode)) return true;
  errno = EEXIST;
  return false;
}

int Kut_open_fifo_reader(const char* path) { return OpenEnd(path, O_RDONLY); }

int Kut_open_fifo_writer(const char* path, int seconds) {
  const long deadline = Kut_now_ms() + seconds * 1000L;
  for (;;) {
    const int fd = OpenEnd(path, O_WRONLY);
    if (fd >= 0 || errno != ENXIO) return fd;
    if (Kut_now_ms() >= deadline) {
      errno = ENXIO;
      return -1;
    }
    const timespec pause = {0, kReaderPauseNs};
    nanosleep(&pause, nullptr);
  }
}

int Kut_close_fifo(kut_fifo* fifo) {
  const int reader = CloseEnd(&fifo->reader);
  const int writer = CloseEnd(&fifo->writer);
  return reader == 0 && writer == 0 ? 0 : -1;
}

int Kut_read_record(int fd, void* record, size_t size, int seconds,
                    kut_halves halves) {
  if (seconds > 0) {
    const int waited = AwaitReadable(fd, seconds);
    if (waited != 0) return waited;
  }
  // A fifo's size is not in its status here; the driver tells what is pending.
  int bytes = 0;
  if (ioctl(fd, FIONREAD, &bytes) != 0) return -1;
  if (bytes == 0) return 1;
  const size_t pending = static_cast<size_t>(bytes);
  if (pending % size != 0 && halves == kut_halves::kKeep) return -1;
  const ssize_t got = Kut_read_full(fd, record, std::min(pending, size));
  return got == static_cast<ssize_t>(size) ? 0 : -1;
}

int Kut_write_record(int fd, const void* record, size_t size, int seconds) {
  const SigPipeBlocked no_sigpipe;
  // Without blocking a write of up to PIPE_BUF bytes is done whole or not at
  // all.
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) return -1;
  const long deadline = Kut_now_ms() + seconds * 1000L;
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

int Kut_send_record(const char* path, const void* record, size_t size,
                    int seconds) {
  const UniqueFd fd(Kut_open_fifo_writer(path, seconds));
  return fd.valid() ? Kut_write_record(fd.get(), record, size, seconds) : -1;
}
