#include "isam/issys.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "isam/istypes.h"
#include "util/kutio.h"

namespace isam {
namespace {

int g_folder = AT_FDCWD;
mode_t g_file_mode = kIsamFileMode;

template <typename Call>
auto Uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

int SysOpen(const char* path, int flags, mode_t mode) {
  // A fifo or a link under the name of a table must neither hang nor lead away.
  return Kut_open_at(g_folder, path, flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY,
                     mode);
}

// Not the times: a kernel whose time stamps are fine gives the write after such
// a question a new one, and the next flush a status to write out.
int SysStat(int fd, struct stat* st) {
  struct statx got;
  if (statx(fd, "", AT_EMPTY_PATH, STATX_INO | STATX_NLINK | STATX_SIZE,
            &got) != 0)
    return -1;
  *st = {};
  st->st_dev = makedev(got.stx_dev_major, got.stx_dev_minor);
  st->st_ino = got.stx_ino;
  st->st_nlink = got.stx_nlink;
  st->st_size = static_cast<off_t>(got.stx_size);
  return 0;
}

int SysUnlink(const char* path) { return unlinkat(g_folder, path, 0); }

int SysSync(int fd) {
  return Uninterrupted([=] { return fdatasync(fd); });
}

int SysSyncFull(int fd) {
  return Uninterrupted([=] { return fsync(fd); });
}

int SysTruncate(int fd, off_t size) {
  return Uninterrupted([=] { return ftruncate(fd, size); });
}

int SysLock(int fd, int type, off_t start, off_t length) {
  struct flock range = {};
  range.l_type = static_cast<short>(type);
  range.l_whence = SEEK_SET;
  range.l_start = start;
  range.l_len = length;
  return Uninterrupted([&] { return fcntl(fd, F_OFD_SETLK, &range); });
}

int SysIsLocked(int fd, off_t byte) {
  struct flock range = {};
  range.l_type = F_RDLCK;
  range.l_whence = SEEK_SET;
  range.l_start = byte;
  range.l_len = 1;
  if (Uninterrupted([&] { return fcntl(fd, F_OFD_GETLK, &range); }) != 0)
    return -1;
  return range.l_type == F_UNLCK ? 0 : 1;
}

// "f81d4fae-7dec-11d0-a765-00a0c91e6bf6": hexadecimal digits and dashes.
bool ParseBootId(const char* text, ssize_t length, uint8_t* id) {
  int digits = 0;
  for (ssize_t i = 0; i < length && digits < 32; ++i) {
    const char c = text[i];
    int value;
    if (c >= '0' && c <= '9')
      value = c - '0';
    else if (c >= 'a' && c <= 'f')
      value = c - 'a' + 10;
    else
      continue;
    id[digits / 2] = static_cast<uint8_t>(id[digits / 2] << 4 | value);
    ++digits;
  }
  return digits == 32;
}

int SysRandom(void* buf, size_t size) {
  return Uninterrupted([=] { return getrandom(buf, size, 0); }) ==
                 static_cast<ssize_t>(size)
             ? 0
             : -1;
}

const uint8_t* SysBootId() {
  static uint8_t id[16];
  static bool known = false;
  if (known) return id;
  UniqueFd fd(Kut_open("/proc/sys/kernel/random/boot_id", O_RDONLY));
  char text[64];
  const ssize_t length =
      fd.valid() ? Kut_read_full(fd.get(), text, sizeof text) : -1;
  // Without /proc nobody can tell a restart from none: an id of our own makes
  // this process trust nothing that another has left unsynced.
  if (!ParseBootId(text, length, id)) SysRandom(id, sizeof id);
  known = true;
  return id;
}

}  // namespace

constinit Sys g_sys = {.open = SysOpen,
                       .read = Kut_pread_full,
                       .write = Kut_pwrite_full,
                       .sync = SysSync,
                       .sync_full = SysSyncFull,
                       .truncate = SysTruncate,
                       .chmod = fchmod,
                       .stat = SysStat,
                       .seek = lseek,
                       .unlink = SysUnlink,
                       .lock = SysLock,
                       .is_locked = SysIsLocked,
                       .boot_id = SysBootId,
                       .random = SysRandom,
                       .lock_wait_ms = 5000};

void SetFolder(int dirfd, mode_t file_mode) {
  g_folder = dirfd;
  g_file_mode = file_mode;
}

mode_t FileMode() { return g_file_mode; }

isam_code CodeFromErrno() {
  switch (errno) {
    case ENOENT:
    case ENOTDIR:
      return kIsamNoFile;
    case EACCES:
    case EPERM:
    case EROFS:
      return kIsamNoPermission;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return kIsamNoSpace;
    case EMFILE:
    case ENFILE:
      return kIsamTooManyFiles;
    case ENOMEM:
      return kIsamNoMemory;
    default:
      return kIsamIo;
  }
}

isam_code ReadAt(int fd, void* buf, size_t size, off_t offset) {
  const ssize_t got = g_sys.read(fd, buf, size, offset);
  if (got < 0) return kIsamIo;
  return static_cast<size_t>(got) == size ? kIsamOk : kIsamDamaged;
}

isam_code WriteAt(int fd, const void* buf, size_t size, off_t offset) {
  return g_sys.write(fd, buf, size, offset) == 0 ? kIsamOk : CodeFromErrno();
}

isam_code WriteZeros(int fd, off_t from, off_t to) {
  static constexpr uint8_t kZeros[65536] = {};
  while (from < to) {
    const size_t size = std::min(sizeof kZeros, static_cast<size_t>(to - from));
    if (isam_code code = WriteAt(fd, kZeros, size, from)) return code;
    from += static_cast<off_t>(size);
  }
  return kIsamOk;
}

isam_code SyncFile(int fd) { return g_sys.sync(fd) == 0 ? kIsamOk : kIsamIo; }

}  // namespace isam
