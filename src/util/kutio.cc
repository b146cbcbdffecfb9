#include "util/kutio.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace {

constexpr size_t kCopyBuffer = size_t{64} * 1024;

// Runs `step(offset, left)` until all of `size` is done, it says 0 or fails.
// The bytes done, or -1.
template <typename Step>
ssize_t MoveAll(size_t size, Step step) {
  size_t done = 0;
  while (done < size) {
    const ssize_t n = step(done, size - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return -1;
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  return static_cast<ssize_t>(done);
}

int AllWritten(ssize_t done, size_t size) {
  if (done == static_cast<ssize_t>(size)) return 0;
  if (done >= 0) errno = EIO;  // a write that moves nothing and says no error
  return -1;
}

}  // namespace

void UniqueFd::reset(int fd) {
  if (fd_ >= 0) {
    const int saved = errno;
    close(fd_);
    errno = saved;
  }
  fd_ = fd;
}

int Kut_open_at(int dirfd, const char* path, int flags, mode_t mode) {
  int fd;
  do {
    fd = openat(dirfd, path, flags | O_CLOEXEC, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

int Kut_open(const char* path, int flags, mode_t mode) {
  return Kut_open_at(AT_FDCWD, path, flags, mode);
}

int Kut_open_regular(int dirfd, const char* path, int flags, struct stat* st) {
  // Without O_NONBLOCK the open of a fifo would wait for its writer.
  UniqueFd fd(
      Kut_open_at(dirfd, path, O_RDONLY | O_NONBLOCK | O_NOCTTY | flags));
  struct stat own;
  if (st == nullptr) st = &own;
  if (!fd.valid() || fstat(fd.get(), st) != 0) return -1;
  if (!S_ISREG(st->st_mode)) {
    errno = S_ISDIR(st->st_mode) ? EISDIR : EINVAL;
    return -1;
  }
  return fd.release();
}

int Kut_reopen(int fd, int flags) {
  char path[32];
  snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
  return Kut_open(path, flags | O_NONBLOCK | O_NOCTTY);
}

ssize_t Kut_read_full(int fd, void* buf, size_t size) {
  return MoveAll(size, [=](size_t done, size_t left) {
    return read(fd, static_cast<char*>(buf) + done, left);
  });
}

ssize_t Kut_pread_full(int fd, void* buf, size_t size, off_t offset) {
  return MoveAll(size, [=](size_t done, size_t left) {
    return pread(fd, static_cast<char*>(buf) + done, left,
                 offset + static_cast<off_t>(done));
  });
}

int Kut_write_full(int fd, const void* buf, size_t size) {
  return AllWritten(
      MoveAll(size,
              [=](size_t done, size_t left) {
                return write(fd, static_cast<const char*>(buf) + done, left);
              }),
      size);
}

int Kut_pwrite_full(int fd, const void* buf, size_t size, off_t offset) {
  return AllWritten(MoveAll(size,
                            [=](size_t done, size_t left) {
                              return pwrite(
                                  fd, static_cast<const char*>(buf) + done,
                                  left, offset + static_cast<off_t>(done));
                            }),
                    size);
}

int Kut_copy_bytes(int from, int to, long most) {
  char buffer[kCopyBuffer];
  for (;;) {
    const ssize_t n = Kut_read_full(from, buffer, sizeof buffer);
    if (n < 0) return -1;
    if (n == 0) return 0;
    if (n > most) {
      errno = EFBIG;
      return -1;
    }
    most -= n;
    if (Kut_write_full(to, buffer, static_cast<size_t>(n)) != 0) return -1;
  }
}
