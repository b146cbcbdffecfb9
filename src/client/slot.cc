#include "client/slot.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bitset>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "util/kutdir.h"

namespace client {
namespace {

constexpr mode_t kMode = 0660;
// A session number has 32 bits, signed; what is left above the four digits.
constexpr unsigned kNonces = 214000;

using UsedSlots = std::bitset<kSlots>;

unsigned Random() {
  unsigned value = 0;
  if (getrandom(&value, sizeof value, GRND_NONBLOCK) != sizeof value) {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    value = static_cast<unsigned>(now.tv_nsec) ^
            (static_cast<unsigned>(getpid()) << 16);
  }
  return value;
}

bool ReadUsed(const std::string& spool, UsedSlots* used) {
  DirReader dir;
  if (dir.Open(spool.c_str()) != 0) return false;
  used->reset();
  while (const char* entry = dir.Next()) {
    const int number = SlotOfName(entry, '-');
    if (number >= 0) used->set(static_cast<size_t>(number));
  }
  return true;
}

std::string ControlFile(const std::string& sessions, int number) {
  char name[16];
  std::snprintf(name, sizeof name, "/%04d.ctl", number);
  return sessions + name;
}

}  // namespace

int SlotOfName(const std::string& name, char separator) {
  if (name.size() < 5 || name[4] != separator) return -1;
  for (int i = 0; i < 4; ++i) {
    if (std::isdigit(static_cast<unsigned char>(name[i])) == 0) return -1;
  }
  return std::atoi(name.c_str());
}

bool Slot::TryLock(int number, int* error) {
  const std::string path = ControlFile(sessions_, number);
  UniqueFd fd(Kut_open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, kMode));
  if (!fd.valid()) {
    *error = errno;
    return false;
  }
  struct stat held;
  struct stat named;
  // Whoever gives a number back removes the file under its lock: the lock on a
  // removed file is worth nothing.
  if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0 || fstat(fd.get(), &held) != 0 ||
      stat(path.c_str(), &named) != 0 || held.st_ino != named.st_ino ||
      held.st_dev != named.st_dev) {
    return false;
  }
  char text[16] = "";
  Kut_pread_full(fd.get(), text, sizeof text - 1, 0);
  last_ = std::atoi(text);
  if (last_ < 0 || last_ > kMaxReference) last_ = 0;
  // Past the umask, so that another user can reuse what a crash leaves.
  if (held.st_size == 0) fchmod(fd.get(), kMode);
  lock_ = std::move(fd);
  number_ = number;
  return true;
}

Status Slot::Reserve(const Place& place) {
  sessions_ = place.sessions;
  UsedSlots used;
  const unsigned start = Random();
  int error = 0;
  for (unsigned i = 0; i < kSlots; ++i) {
    const unsigned number = (start + i) % kSlots;
    if (used.test(number)) continue;
    if (!TryLock(static_cast<int>(number), &error)) {
      if (i == 0 && error != 0 && access(sessions_.c_str(), W_OK) != 0) break;
      continue;
    }
    // Only now does nobody add files of this number.
    if (!ReadUsed(place.spool, &used)) {
      Release(true);
      return SystemFailure(krt_system, place.spool);
    }
    if (!used.test(number)) {
      session_ = static_cast<int>(Random() % kNonces) * kSlots + number_;
      return {};
    }
    Release(last_ == 0);
  }
  if (error != 0) {
    errno = error;
    return SystemFailure(krt_cannot_create, sessions_);
  }
  return {krt_system, sessions_ + ": all session numbers are taken"};
}

bool Slot::TryReserve(const Place& place, int number) {
  sessions_ = place.sessions;
  int error = 0;
  return TryLock(number, &error);
}

Status Slot::NextReference(int* reference) {
  last_ = last_ % kMaxReference + 1;
  char text[16];
  const int length = std::snprintf(text, sizeof text, "%-3d\n", last_);
  if (Kut_pwrite_full(lock_.get(), text, static_cast<size_t>(length), 0) != 0) {
    return SystemFailure(krt_io, ControlFile(sessions_, number_));
  }
  *reference = last_;
  return {};
}

void Slot::Release(bool answered) {
  if (!lock_.valid()) return;
  if (answered) unlink(ControlFile(sessions_, number_).c_str());
  lock_.reset();
}

void RetireSlot(const Place& place, int number) {
  Slot slot;
  UsedSlots used;
  if (access(ControlFile(place.sessions, number).c_str(), F_OK) != 0 ||
      !slot.TryReserve(place, number)) {
    return;
  }
  slot.Release(ReadUsed(place.spool, &used) &&
               !used.test(static_cast<size_t>(number)));
}

}  // namespace client
