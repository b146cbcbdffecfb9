#include "faxserver/fsefifo.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "cm/cmdaemon.h"
#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "faxserver/fsbytes.h"
#include "faxserver/fsdmnlst.h"
#include "faxserver/fsfifo.h"
#include "util/kutio.h"

namespace {

constexpr char kFifoName[] = "efifo";
constexpr size_t kUserAt = 0;
constexpr size_t kUserSize = 16;
constexpr size_t kCodeAt = 16;

// The open ends of this process, -1 when closed.
constinit int g_reader = -1;
constinit int g_writer = -1;

int CloseEnd(int* fd) {
  if (*fd < 0) return 0;
  const int result = close(*fd);
  *fd = -1;
  return result;
}

void SendTo(const char* kfaxdir, const char* daemon, const char* spool,
            const fx_event_record& record) {
  if (fx_chk_daemon_list(kfaxdir, daemon) <= 0) return;
  const cm_path fifo = cm_join_path(spool, kFifoName);
  fx_fifo_send(fifo.text, record.data(), record.size(), 0);
}

// A reading end in blocking mode, got without waiting for a writer.
int OpenReader(const char* path) {
  UniqueFd fd(Kut_open(path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW));
  struct stat st;
  if (!fd.valid() || fstat(fd.get(), &st) != 0) return -1;
  if (!S_ISFIFO(st.st_mode)) {
    errno = EINVAL;
    return -1;
  }
  if (fcntl(fd.get(), F_SETFL, O_RDONLY) != 0) return -1;
  return fd.release();
}

}  // namespace

fx_event_record fx_encode_event(const char* user, int32_t code) {
  fx_event_record record = {};
  fx_put_text(record, kUserAt, kUserSize, user != nullptr ? user : "");
  fx_put(record, kCodeAt, code);
  return record;
}

std::string fx_event_user(const fx_event_record& record) {
  return std::string(fx_get_text(record, kUserAt, kUserSize));
}

int32_t fx_event_record_code(const fx_event_record& record) {
  return fx_get<int32_t>(record, kCodeAt);
}

int fx_efifo_send(const char* kfaxdir, const fx_event_record& record) {
  const int saved = errno;
  SendTo(kfaxdir, kCmFileDaemon, cm_get_filspool_dir(kfaxdir), record);
  SendTo(kfaxdir, kCmNetDaemon, cm_get_netspool_dir(kfaxdir), record);
  errno = saved;
  return 0;
}

int fx_efifo_make(const char* dir) {
  const cm_path fifo = cm_join_path(dir, kFifoName);
  // The mode is right from the beginning: a chmod later could be led astray by
  // a link in the fifo's place.
  const mode_t mask = umask(0);
  const int made = mkfifo(fifo.text, 0660);
  umask(mask);
  if (made == 0) {
    // Only the super-user may; a fifo of the process's own serves as well.
    static_cast<void>(lchown(fifo.text, static_cast<uid_t>(cm_get_krt_uid()),
                             static_cast<gid_t>(cm_get_krt_gid())));
    return 0;
  }
  struct stat st;
  if (errno != EEXIST || lstat(fifo.text, &st) != 0) return -1;
  if (S_ISFIFO(st.st_mode)) return 0;
  errno = EEXIST;
  return -1;
}

int fx_efifo_open(const char* dir, int mode) {
  if (mode != 0 && mode != 1) {
    errno = EINVAL;
    return -1;
  }
  const cm_path fifo = cm_join_path(dir, kFifoName);
  const int fd =
      mode == 0 ? OpenReader(fifo.text) : Kut_open_fifo_writer(fifo.text, 0);
  if (fd < 0) return -1;
  int* end = mode == 0 ? &g_reader : &g_writer;
  CloseEnd(end);
  *end = fd;
  return 0;
}

int fx_efifo_read(int seconds, fx_event_record* record) {
  if (g_reader < 0) return -1;
  pollfd wanted = {g_reader, POLLIN, 0};
  const int ready = poll(&wanted, 1, seconds > 0 ? seconds * 1000 : 0);
  if (ready < 0) return -1;
  if (ready == 0) return 1;
  // A fifo's size is not in its status here; the driver tells what is pending.
  int pending = 0;
  if (ioctl(g_reader, FIONREAD, &pending) != 0) return -1;
  if (pending == 0) return 1;
  // Out of step: a guess would make records out of halves for ever after.
  if (pending % static_cast<int>(kFxEventSize) != 0) return -1;
  const ssize_t got = Kut_read_full(g_reader, record->data(), record->size());
  return got == static_cast<ssize_t>(record->size()) ? 0 : -1;
}

int fx_efifo_write(const fx_event_record& record) {
  if (g_writer < 0) return -1;
  return fx_fifo_write(g_writer, record.data(), record.size(), 0);
}

int fx_efifo_close() {
  const int reader = CloseEnd(&g_reader);
  const int writer = CloseEnd(&g_writer);
  return reader == 0 && writer == 0 ? 0 : -1;
}
