#include "isam/islock.h"

#include <fcntl.h>
#include <time.h>

#include <algorithm>
#include <cerrno>

#include "isam/isbudget.h"
#include "isam/issys.h"
#include "util/kuttime.h"

namespace isam {
namespace {

constexpr off_t kWriterByte = off_t{1} << 62;
constexpr off_t kPendingByte = kWriterByte + 1;
constexpr off_t kApplyByte = kWriterByte + 2;
constexpr long kFirstPauseNs = 20'000;
constexpr long kLongestPauseNs = 10'000'000;

isam_code TryOnce(int fd, int type, off_t start, off_t length) {
  if (g_sys.lock(fd, type, start, length) == 0) return kIsamOk;
  return errno == EAGAIN || errno == EACCES ? kIsamCannotLock : kIsamIo;
}

// Repeats `attempt` with growing pauses while it says kIsamCannotLock.
template <typename Attempt>
isam_code Patiently(Attempt attempt) {
  isam_code code = attempt();
  const int64_t begin = Kut_now_ms();
  const int64_t deadline = begin + LongestWaitMs();
  long pause = kFirstPauseNs;
  while (code == kIsamCannotLock && Kut_now_ms() < deadline) {
    const timespec time = {0, pause};
    nanosleep(&time, nullptr);
    pause = std::min(pause * 2, kLongestPauseNs);
    code = attempt();
  }
  NoteWaited(static_cast<int>(Kut_now_ms() - begin));
  return code;
}

}  // namespace

void Lock::Hold(int fd, off_t start, off_t length) {
  fd_ = fd;
  start_ = start;
  length_ = length;
}

isam_code Lock::TryWriter(int fd) {
  const isam_code code = TryOnce(fd, F_WRLCK, kWriterByte, 1);
  if (code == kIsamOk) Hold(fd, kWriterByte, 1);
  return code;
}

isam_code Lock::TakeWriter(int fd) {
  return Patiently([&] { return TryWriter(fd); });
}

isam_code Lock::TakeApply(int fd) {
  isam_code code = TryOnce(fd, F_WRLCK, kPendingByte, 2);
  if (code == kIsamCannotLock) {
    // Readers are at work. Ours is the writer lock, so the pending byte is
    // free.
    code = TryOnce(fd, F_WRLCK, kPendingByte, 1);
    if (code == kIsamOk)
      code = Patiently([&] { return TryOnce(fd, F_WRLCK, kApplyByte, 1); });
  }
  Hold(fd, kPendingByte, 2);
  if (code != kIsamOk) Release();
  return code;
}

isam_code Lock::TakeRead(int fd) {
  const isam_code code = Patiently([&] {
    const int pending = g_sys.is_locked(fd, kPendingByte);
    if (pending != 0) return pending > 0 ? kIsamCannotLock : kIsamIo;
    return TryOnce(fd, F_RDLCK, kApplyByte, 1);
  });
  if (code == kIsamOk) Hold(fd, kApplyByte, 1);
  return code;
}

void Lock::Release() {
  if (fd_ >= 0) g_sys.lock(fd_, F_UNLCK, start_, length_);
  fd_ = -1;
}

}  // namespace isam
