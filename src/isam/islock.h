// The locks of a table: bytes of the index file far beyond its end.
//
//   writer   exclusive while a change is built and committed
//   pending  exclusive while a writer waits for, or has, the apply lock; looked
//            at first by readers, so that a stream of them keeps no writer out
//   apply    exclusive while a commit is written in place (a few writes, no
//            flush); shared by readers that met one, and by a check
//
// - A lock belongs to the open file: it does not vanish when another descriptor
//   of the file is closed, and the kernel frees it with the last descriptor.
// - Each is tried for g_sys.lock_wait_ms, or what the budget has left for that,
//   then kIsamCannotLock: a stopped process must not hang the others for ever.
#ifndef ISAM_ISLOCK_H_
#define ISAM_ISLOCK_H_

#include <sys/types.h>

#include "isam/iscode.h"

namespace isam {

class Lock {
 public:
  Lock() = default;
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  ~Lock() { Release(); }

  [[nodiscard]] isam_code TakeWriter(int fd);
  [[nodiscard]] isam_code TryWriter(int fd);  // without waiting
  [[nodiscard]] isam_code TakeApply(int fd);
  [[nodiscard]] isam_code TakeRead(int fd);
  // The right to create a table, on its data file.
  [[nodiscard]] isam_code TakeCreate(int fd) { return TakeWriter(fd); }

  bool held() const { return fd_ >= 0; }
  void Release();
  // Leaves the lock to the descriptor: in a forked child an unlock would take
  // it from the parent, whose open file it shares.
  void Forget() { fd_ = -1; }

 private:
  void Hold(int fd, off_t start, off_t length);

  int fd_ = -1;
  off_t start_ = 0, length_ = 0;
};

}  // namespace isam

#endif  // ISAM_ISLOCK_H_
