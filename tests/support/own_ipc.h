// The status segment has one key for the whole machine: a test that touches it
// has an IPC namespace of its own, or holds a lock that keeps other tests away.
#ifndef SUPPORT_OWN_IPC_H_
#define SUPPORT_OWN_IPC_H_

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include "faxserver/fsshm.h"

class OwnIpc {
 public:
  OwnIpc() {
    if (unshare(CLONE_NEWIPC) == 0) return;
    lock_ = open("/tmp/krt-status-segment.lock", O_RDWR | O_CREAT | O_CLOEXEC,
                 0666);
    // Every user's tests share the lock, whatever the umask of the first.
    if (lock_ >= 0) static_cast<void>(fchmod(lock_, 0666) == 0);
    usable_ =
        lock_ >= 0 && flock(lock_, LOCK_EX) == 0 && shmget(kFxShmKey, 0, 0) < 0;
  }
  OwnIpc(const OwnIpc&) = delete;
  OwnIpc& operator=(const OwnIpc&) = delete;
  ~OwnIpc() {
    if (usable_) fx_rm_stat_shm("");
    if (lock_ >= 0) close(lock_);
  }
  // False where somebody else's segment is in the way: the test is skipped.
  bool usable() const { return usable_; }

 private:
  int lock_ = -1;
  bool usable_ = true;
};

#define SKIP_WITHOUT(ipc) \
  if (!(ipc).usable()) GTEST_SKIP() << "a status segment is in use here"

#endif  // SUPPORT_OWN_IPC_H_
