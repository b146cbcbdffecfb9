#include "daemon/spool/kfifo.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "cm/cmkrt.h"
#include "faxserver/fsfifo.h"
#include "util/kutfile.h"
#include "util/kutio.h"

namespace {

int g_read_fd = -1;
int g_write_fd = -1;

struct Path {
  explicit Path(const char* dir) {
    std::snprintf(text, sizeof text, "%s/kfifo", dir);
  }
  char text[PATH_MAX];
};

int CloseSide(int& fd) {
  const int result = fd >= 0 ? close(fd) : 0;
  fd = -1;
  return result;
}

// Opens the read side without waiting for a writer, for blocking reads.
int OpenReader(const char* path) {
  UniqueFd fd(Kut_open(path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW));
  if (!fd.valid() || fcntl(fd.get(), F_SETFL, O_RDONLY) != 0) return -1;
  return fd.release();
}

// Waits until the read side is readable: 0, 1 after `secs` seconds, or -1.
int AwaitReadable(int secs) {
  fd_set set;
  FD_ZERO(&set);
  FD_SET(g_read_fd, &set);
  timeval limit = {secs, 0};
  const int ready = select(g_read_fd + 1, &set, nullptr, nullptr, &limit);
  if (ready < 0) return -1;
  return ready == 0 ? 1 : 0;
}

}  // namespace

int kfifo_make(const char* dir) {
  const Path path(dir);
  struct stat st;
  if (stat(path.text, &st) == 0) return 0;
  if (mknod(path.text, S_IFIFO | 0664, 0) != 0) return -1;
  // The umask must not keep the fax system's group from writing.
  if (Kut_set_file_perms(path.text, 0664) != 0) return -1;
  return Kut_set_file_owner(path.text, cm_get_krt_uid(), cm_get_krt_gid());
}

int kfifo_open(const char* dir, int write_only) {
  const Path path(dir);
  kfifo_close();
  if (write_only == 0) {
    g_read_fd = OpenReader(path.text);
    if (g_read_fd < 0) return -1;
  }
  g_write_fd = Kut_open_fifo_writer(path.text, kFxFifoSeconds);
  if (g_write_fd >= 0) return 0;
  CloseSide(g_read_fd);
  return -1;
}

int kfifo_close() {
  const int read_result = CloseSide(g_read_fd);
  const int write_result = CloseSide(g_write_fd);
  return read_result == 0 && write_result == 0 ? 0 : -1;
}

int kfifo_write(const void* record) {
  if (g_write_fd < 0) return -1;
  return fx_fifo_write(g_write_fd, record, KFIFO_RECORD_SIZE, kFxFifoSeconds);
}

int kfifo_read(void* record, int secs) {
  if (g_read_fd < 0) return -1;
  const int waited = AwaitReadable(secs);
  if (waited != 0) return waited;
  // fstat() tells the pending bytes of a fifo on some systems only.
  int pending = 0;
  if (ioctl(g_read_fd, FIONREAD, &pending) != 0) return -1;
  if (pending == 0) return 1;
  if (pending % KFIFO_RECORD_SIZE != 0) return -1;
  return Kut_read_full(g_read_fd, record, KFIFO_RECORD_SIZE) ==
                 KFIFO_RECORD_SIZE
             ? 0
             : -1;
}
