#include "link/slot.h"

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
#include <map>
#include <vector>

#include "util/kutdir.h"
#include "util/kuttime.h"

namespace client {
namespace {

constexpr mode_t kMode = 0660;

// What is root's others do not write into.
mode_t Mode() { return geteuid() == 0 ? 0600 : kMode; }

// A session number has 32 bits, signed; what is left above the four digits.
constexpr unsigned kNonces = 214000;

using UsedSlots = std::bitset<kSlots>;

unsigned Random() {
  unsigned value = 0;
  if (getrandom(&value, sizeof value, GRND_NONBLOCK) != sizeof value) {
    value = static_cast<unsigned>(Kut_now_us()) ^
            (static_cast<unsigned>(getpid()) << 16);
  }
  return value;
}

// Calls `use` with each entry of a directory that has a slot's number, and that
// number. False with errno when it cannot be read.
template <typename Use>
bool ForEachNumber(const std::string& path, char separator, Use use) {
  DirReader dir;
  if (dir.Open(path.c_str()) != 0) return false;
  while (const char* entry = dir.Next()) {
    const int number = SlotOfName(entry, separator);
    if (number >= 0) use(dir.fd(), entry, static_cast<size_t>(number));
  }
  return true;
}

// The numbers with files in the spool.
bool ReadSpool(const Place& place, UsedSlots* used) {
  used->reset();
  return ForEachNumber(place.spool, '-', [&](int, const char*, size_t number) {
    used->set(number);
  });
}

std::string FileName(int number) {
  char name[16];
  snprintf(name, sizeof name, "%04d.ctl", number);
  return name;
}

// The numbers that are taken whatever lock NNNN.ctl has.
bool ReadUsed(const Place& place, UsedSlots* used) {
  return ReadSpool(place, used) &&
         ForEachNumber(place.sessions, '.',
                       [&](int, const std::string& name, size_t number) {
                         if (name != FileName(static_cast<int>(number)) &&
                             SlotOfFile(name) >= 0) {
                           used->set(number);
                         }
                       });
}

// Leaves the lowest numbers, `most` of them.
void Cut(UsedSlots* numbers, int most) {
  for (size_t i = 0; i < kSlots; ++i) {
    if (numbers->test(i) && --most < 0) numbers->reset(i);
  }
}

// The numbers with files in either directory, but for `own`, of each other user
// no more than the share.
bool ReadShares(const Place& place, const std::string& own, UsedSlots* used) {
  std::map<uid_t, UsedSlots> owners;
  const auto note = [&](int dirfd, const char* name, size_t number) {
    struct stat st;
    if (name != own && fstatat(dirfd, name, &st, AT_SYMLINK_NOFOLLOW) == 0) {
      owners[st.st_uid].set(number);
    }
  };
  if (!ForEachNumber(place.spool, '-', note) ||
      !ForEachNumber(place.sessions, '.', note)) {
    return false;
  }
  used->reset();
  for (auto& [uid, numbers] : owners) {
    if (uid != geteuid()) Cut(&numbers, kSlotShare);
    *used |= numbers;
  }
  return true;
}

}  // namespace

int SlotOfName(const std::string& name, char separator) {
  if (name.size() < 5 || name[4] != separator) return -1;
  for (size_t i = 0; i < 4; ++i) {
    if (isdigit(static_cast<unsigned char>(name[i])) == 0) return -1;
  }
  return atoi(name.c_str());
}

int SlotOfFile(const std::string& name) {
  return name.ends_with(".ctl") ? SlotOfName(name, '.') : -1;
}

bool Slot::TryLock(const std::string& path, int flags, int* error) {
  UniqueFd fd(
      Kut_open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | flags, Mode()));
  if (!fd.valid()) {
    *error = errno;
    return false;
  }
  struct stat held;
  struct stat named;
  // Whoever gives a number back removes the file under its lock: the lock on a
  // removed file is worth nothing. What has another name may be any file of
  // this user's, which is not to be written to.
  if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0 || fstat(fd.get(), &held) != 0 ||
      !S_ISREG(held.st_mode) || held.st_nlink != 1 ||
      stat(path.c_str(), &named) != 0 || held.st_ino != named.st_ino ||
      held.st_dev != named.st_dev) {
    return false;
  }
  char text[16] = "";
  Kut_pread_full(fd.get(), text, sizeof text - 1, 0);
  last_ = atoi(text);
  if (last_ < 0 || last_ > kMaxReference) last_ = 0;
  // Past the umask, so that another user can reuse what a crash leaves.
  if (held.st_size == 0 && held.st_uid == geteuid()) fchmod(fd.get(), Mode());
  lock_ = std::move(fd);
  file_ = path;
  return true;
}

void Slot::Hold(int number) {
  number_ = number;
  session_ = static_cast<int>(Random() % kNonces) * kSlots + number;
}

Status Slot::Reserve(const Place& place) {
  Status s = ReserveUsual(place);
  if (s.ok() || access(place.sessions.c_str(), W_OK) != 0) return s;
  return ReserveBeside(place).ok() ? Status() : s;
}

Status Slot::ReserveUsual(const Place& place) {
  const std::string& sessions = place.sessions;
  UsedSlots used;
  // From anywhere on: clients that start together do not try each other's
  // numbers one after the other.
  const unsigned start = Random();
  int error = 0;
  for (unsigned i = 0; i < kSlots; ++i) {
    const int number = static_cast<int>((start + i) % kSlots);
    if (used.test(static_cast<size_t>(number))) continue;
    if (!TryLock(sessions + "/" + FileName(number), O_CREAT, &error)) {
      // Where nothing can be made, 10,000 attempts tell no more than one.
      if (i == 0 && error != 0 && access(sessions.c_str(), W_OK) != 0) break;
      continue;
    }
    // Only now does nobody add files of this number.
    if (!ReadUsed(place, &used)) {
      Release(true);
      return SystemFailure(krt_system, place.spool);
    }
    if (!used.test(static_cast<size_t>(number))) {
      Hold(number);
      return {};
    }
    // A file that counts references stays: its number's answers may still come.
    Release(last_ == 0);
  }
  if (error != 0) {
    errno = error;
    return SystemFailure(krt_cannot_create, sessions);
  }
  return {krt_system, sessions + ": all session numbers are taken"};
}

Status Slot::ReserveBeside(const Place& place) {
  UsedSlots used;
  int error = 0;
  const unsigned start = Random();
  if (!ReadShares(place, "", &used)) {
    return SystemFailure(krt_system, place.spool);
  }
  for (unsigned i = 0; i < kSlots; ++i) {
    const int number = static_cast<int>((start + i) % kSlots);
    if (used.test(static_cast<size_t>(number))) continue;
    char name[32];
    snprintf(name, sizeof name, "%04d.%08x.ctl", number, Random());
    if (!TryLock(place.sessions + "/" + name, O_CREAT | O_EXCL, &error)) {
      continue;
    }
    // Of two who do this at once, both see the other's file and go on.
    if (ReadShares(place, name, &used) &&
        !used.test(static_cast<size_t>(number))) {
      Hold(number);
      return {};
    }
    Release(true);
  }
  return {krt_system, place.sessions + ": all session numbers are taken"};
}

bool Slot::TryReserve(const Place& place, const std::string& file) {
  int error = 0;
  return TryLock(place.sessions + "/" + file, 0, &error);
}

Status Slot::NextReference(int* reference) {
  // On the disk before it is used: who takes the number after a crash goes on
  // from here.
  last_ = last_ % kMaxReference + 1;
  char text[16];
  const int length = snprintf(text, sizeof text, "%-3d\n", last_);
  if (Kut_pwrite_full(lock_.get(), text, static_cast<size_t>(length), 0) != 0) {
    return SystemFailure(krt_io, file_);
  }
  *reference = last_;
  return {};
}

void Slot::Release(bool answered) {
  if (!lock_.valid()) return;
  if (answered) unlink(file_.c_str());
  lock_.reset();
}

void RetireSlot(const Place& place, const std::string& file) {
  Slot slot;
  UsedSlots used;
  const int number = SlotOfFile(file);
  // Under its lock, or a client could be starting with it.
  if (number < 0 || !slot.TryReserve(place, file)) return;
  slot.Release(ReadSpool(place, &used) &&
               !used.test(static_cast<size_t>(number)));
}

void RetireSlots(const Place& place, int number) {
  // First all names, then the removals: a directory that changes while it is
  // read may leave some out.
  std::vector<std::string> files;
  ForEachNumber(place.sessions, '.', [&](int, const char* name, size_t found) {
    if (found == static_cast<size_t>(number)) files.emplace_back(name);
  });
  for (const std::string& file : files) RetireSlot(place, file);
}

}  // namespace client
