// Every system call of the store goes through this table, which is the seam
// where tests stop, fail, record and reorder them.
#ifndef ISAM_ISSYS_H_
#define ISAM_ISSYS_H_

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>

#include "isam/iscode.h"

namespace isam {

// Each call sets errno when it fails; interruptions are handled inside.
struct Sys {
  int (*open)(const char* path, int flags, mode_t mode);
  ssize_t (*read)(int fd, void* buf, size_t size, off_t offset);
  // All of `size`: 0 or -1.
  int (*write)(int fd, const void* buf, size_t size, off_t offset);
  int (*sync)(int fd);       // the contents, and the size where it matters
  int (*sync_full)(int fd);  // with owner and mode; directories
  int (*truncate)(int fd, off_t size);
  int (*chmod)(int fd, mode_t mode);
  int (*stat)(int fd, struct stat* st);  // device, inode, links and size
  // lseek(2) with SEEK_DATA or SEEK_HOLE; nothing here goes by the position.
  off_t (*seek)(int fd, off_t offset, int whence);
  int (*unlink)(const char* path);
  // One try to set F_RDLCK, F_WRLCK or F_UNLCK on a range; EAGAIN when another
  // open has it. The lock belongs to the open file, not to the process.
  int (*lock)(int fd, int type, off_t start, off_t length);
  // 1 when F_RDLCK on the byte would be refused, 0 when not, -1.
  int (*is_locked)(int fd, off_t byte);
  // 16 bytes that the kernel chose when it started.
  const uint8_t* (*boot_id)();
  int (*random)(void* buf, size_t size);
  int lock_wait_ms;  // how long a lock is tried for
};

extern Sys g_sys;

// The directory that relative paths lead from, the working directory at first,
// and the mode of the files that are made there.
void SetFolder(int dirfd, mode_t file_mode);
mode_t FileMode();

// What errno means to the caller of the store.
isam_code CodeFromErrno();

// All of `size` bytes; a file that ends before is kIsamDamaged.
[[nodiscard]] isam_code ReadAt(int fd, void* buf, size_t size, off_t offset);
[[nodiscard]] isam_code WriteAt(int fd, const void* buf, size_t size,
                                off_t offset);
// Writes zeros from `from` to `to`.
[[nodiscard]] isam_code WriteZeros(int fd, off_t from, off_t to);
[[nodiscard]] isam_code SyncFile(int fd);

}  // namespace isam

#endif  // ISAM_ISSYS_H_
