#include "daemon/sxready.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bitset>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <string_view>

#include "cm/cmkrt.h"
#include "daemon/spool/logfile.h"
#include "daemon/spool/sxfile.h"
#include "daemon/spool/sxspool.h"
#include "daemon/subtask.h"
#include "util/kutdir.h"
#include "util/kuterr.h"
#include "util/kutfile.h"
#include "util/kutstr.h"
#include "util/kuttime.h"

namespace {

constexpr int kNamesMax = 100;
// Names of one user in a list that has others'. Whoever has a single command
// waits for so many of each other user's, not for a hundred.
constexpr int kOwnerNames = 10;
// A directory's time tells nothing about changes within its own granularity
// (a clock tick, a second or two on some file systems): a directory that
// changed less than this before it was read is read again.
constexpr time_t kTimeGranularity = 2;
// Microseconds until all of a directory that has more than a list is looked
// through again while one user has everything there, and until the rest of a
// list that is his is made anew; in between, a list is full with the first
// names that come. While several have, looks follow each other, but take no
// more than one part in kLookPart of the time.
constexpr long kLookPause = 1'000'000;
constexpr int kLookPart = 10;
// What could not be claimed is tried again after so many, whatever the
// directory's time says: that knows nothing of permissions, say.
constexpr long kRetryPause = 60'000'000;
constexpr int kClaimsMax = 10;  // claimed names tried that can be foreseen

// The name comes first, for sx_comp_rtn.
struct Candidate {
  char* name;
  uid_t owner;
};

struct ReadyList {
  char names[kNamesMax][kSxNameSize];
  Candidate candidates[kNamesMax];
  int count = -1;  // -1 or 0: no list is pending
  int next = 0;
  bool single = false;  // the last look saw one user's names alone
  uid_t single_owner = 0;
  bool left = false;   // names that have no place in the list were seen
  bool stuck = false;  // the last scan saw one that cannot be claimed
  timespec dir_time = {0, -1};  // of the directory when it was read last
  timespec read_time = {0, 0};  // when that was
  long look_due = 0;            // when all of it is to be read, see Kut_now_us
  long stale_due = 0;  // when the list is made anew, if it is one user's
  long retry_due = 0;  // when it is read for the stuck ones
  int unchanged = 0;   // scans in a row that found the same time
  int pid = 0;         // of this process, for the claims
  int ending = 0;      // characters that it takes in their names
  uid_t owner = 0;     // of the file claimed last
  bool held = false;   // what is left is of one who has all his workers
};
ReadyList g_list;

// One bit for each name that was told to be impossible to claim, by its hash:
// that many files, and no memory that grows with them. A name that shares its
// bit with an earlier one is not told.
std::bitset<65536> g_told;

bool SameTime(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// Whether the directory need not be read: its time is the one of the last scan,
// that time was well in the past then, and a scan has confirmed it.
bool CanSkip(const struct stat& st) {
  if (!SameTime(st.st_mtim, g_list.dir_time)) {
    g_list.unchanged = 0;
    return false;
  }
  if (g_list.stuck && Kut_now_us() >= g_list.retry_due) return false;
  if (g_list.read_time.tv_sec - st.st_mtim.tv_sec <= kTimeGranularity) {
    return false;
  }
  return g_list.unchanged++ != 0;
}

// ---- Names that cannot be claimed ----

void TellOnce(const char* name, int error) {
  const size_t bit = std::hash<std::string_view>()(name) % g_told.size();
  if (g_told.test(bit)) return;
  g_told.set(bit);
  dmn_logf("Cannot claim command file %s: %s", name, Kut_strerror(error));
}

// Notes that the name cannot be claimed at present; errno tells why.
void Stuck(const char* name) {
  g_list.stuck = true;
  TellOnce(name, errno);
}

// The length of the part of a command's name that its claim keeps.
int BaseLength(const char* name) {
  return static_cast<int>(Kut_get_file_ext(name) - name) - 1;
}

// Claims `name` as <base>.<pid> into `claimed`. A file of that name (a command
// of the same name that a worker has yet to read, or one that was left behind
// under this pid) is not overwritten: the claim is <base>-<n>.<pid> then, and
// in the end one with a number that nobody can have taken.
bool Claim(int dirfd, const char* name, char* claimed) {
  const int base = BaseLength(name);
  char suffix[16] = "";
  for (int n = 1; n <= kClaimsMax; ++n) {
    const int length = snprintf(claimed, kSxNameSize, "%.*s%s.%d", base, name,
                                suffix, g_list.pid);
    if (length >= static_cast<int>(kSxNameSize)) break;
    if (Kut_rename_fresh(dirfd, name, claimed) == 0) return true;
    if (errno != EEXIST) return false;
    snprintf(suffix, sizeof suffix, "-%d", n);
  }
  char pid[16];
  snprintf(pid, sizeof pid, "%d", g_list.pid);
  return spool_fresh_name(name, base, pid, claimed, kSxNameSize) == 0 &&
         Kut_rename_fresh(dirfd, name, claimed) == 0;
}

// Whether the file's claim would have a possible name, and its owner, who is
// not asked for while everything is one user's.
bool IsClaimable(int dirfd, const char* name, bool all, uid_t* owner) {
  if (BaseLength(name) + g_list.ending > NAME_MAX) {
    TellOnce(name, ENAMETOOLONG);
    return false;
  }
  *owner = g_list.single_owner;
  if (g_list.single && !all) return true;
  struct stat st;
  if (fstatat(dirfd, name, &st, AT_SYMLINK_NOFOLLOW) == 0) {
    *owner = st.st_uid;
    return true;
  }
  // One that is gone was claimed by somebody faster.
  if (errno != ENOENT) Stuck(name);
  return false;
}

// ---- Whose names are in the list ----

int CountOf(uid_t owner) {
  return static_cast<int>(std::count_if(
      g_list.candidates, g_list.candidates + g_list.count,
      [owner](const Candidate& one) { return one.owner == owner; }));
}

// The last name of the user who has the most.
Candidate* OfTheMany(int* most) {
  Candidate* found = nullptr;
  *most = 0;
  for (int i = g_list.count - 1; i >= 0; --i) {
    const int count = CountOf(g_list.candidates[i].owner);
    if (count <= *most) continue;
    *most = count;
    found = &g_list.candidates[i];
  }
  return found;
}

// A place for one more name of `owner`: a free one or, in a full list, that of
// a user who has more of them. Null when there is none.
Candidate* PlaceFor(uid_t owner) {
  if (g_list.count < kNamesMax) {
    Candidate* place = &g_list.candidates[g_list.count];
    place->name = g_list.names[g_list.count++];
    return place;
  }
  g_list.left = true;
  const int count = CountOf(owner);
  if (count >= kOwnerNames) return nullptr;
  int most;
  Candidate* place = OfTheMany(&most);
  return most > count + 1 ? place : nullptr;
}

// Whether all names that are still in the list belong to one user.
bool HasOneOwner() {
  for (int i = g_list.next + 1; i < g_list.count; ++i) {
    const Candidate* one = &g_list.candidates[i];
    if (one->owner != one[-1].owner) return false;
  }
  return true;
}

// Takes names over kOwnerNames of one user out of a list that has others'.
// Those of the fax system, which acts for many, stay.
void Share() {
  if (HasOneOwner()) return;
  const int krtfax = cm_get_krt_uid();
  int kept = 0;
  for (int i = 0, all = g_list.count; i < all; ++i) {
    const Candidate one = g_list.candidates[i];
    g_list.count = kept;
    const bool system = one.owner == 0 || static_cast<int>(one.owner) == krtfax;
    if (system || CountOf(one.owner) < kOwnerNames) {
      g_list.candidates[kept++] = one;
    } else {
      g_list.left = true;
    }
  }
  g_list.count = kept;
}

// ---- The list ----

// Makes a list of what the reader delivers next; with `all`, of everything that
// it delivers.
void ReadNames(DirReader& reader, const char* ext, bool all) {
  g_list.count = g_list.next = 0;
  g_list.left = false;
  while (all || g_list.count < kNamesMax) {
    const char* name = reader.Next();
    if (name == nullptr) break;
    const char* got = Kut_get_file_ext(name);
    uid_t owner;
    if (got == nullptr || strcmp(got, ext) != 0 ||
        !IsClaimable(reader.fd(), name, all, &owner)) {
      continue;
    }
    Candidate* place = PlaceFor(owner);
    if (place == nullptr) continue;
    strcpy(place->name, name);
    place->owner = owner;
  }
  // There may be more.
  if (!all && g_list.count == kNamesMax) g_list.left = true;
  qsort(g_list.candidates, static_cast<size_t>(g_list.count),
        sizeof g_list.candidates[0], sx_comp_rtn);
}

// Makes the first list of a scan, which has names of everybody who has some.
void Look(DirReader& reader, const char* ext) {
  const long start = Kut_now_us();
  const bool all = start >= g_list.look_due;
  ReadNames(reader, ext, all);
  const long end = Kut_now_us();
  g_list.stale_due = end + kLookPause;
  if (all) {
    g_list.single = g_list.count > 0 && HasOneOwner();
    g_list.single_owner = g_list.candidates[0].owner;
  }
  if (!g_list.left) {
    g_list.look_due = 0;
  } else if (all) {
    const long pause = (end - start) * (kLookPart - 1);
    g_list.look_due =
        end + (g_list.single ? std::max(pause, kLookPause) : pause);
  }
  Share();
}

// Takes the next name out of the list: the first one of a user who has not had
// his share of the workers, if there is one, else the first.
Candidate TakeNext() {
  int at = g_list.next;
  if (!HasOneOwner()) {
    while (at < g_list.count &&
           subtask_has_share(g_list.candidates[at].owner)) {
      ++at;
    }
    if (at == g_list.count) at = g_list.next;
  }
  Candidate* first = &g_list.candidates[g_list.next++];
  std::rotate(first, &g_list.candidates[at], &g_list.candidates[at] + 1);
  return *first;
}

// Whether what is left of the list is of one user who must wait for a worker of
// his own. The directory is read again then, for others who come.
bool IsHeld() {
  g_list.held =
      HasOneOwner() && subtask_has_most(g_list.candidates[g_list.next].owner);
  if (g_list.held) {
    g_list.left = false;
    g_list.dir_time.tv_nsec = -1;
  }
  return g_list.held;
}

// Claims a file of the list, which is over when there is none.
bool ClaimFromList(int dirfd, char* claimed) {
  g_list.held = false;
  while (g_list.next < g_list.count) {
    if (IsHeld()) break;
    const Candidate next = TakeNext();
    if (Claim(dirfd, next.name, claimed)) {
      g_list.owner = next.owner;
      return true;
    }
    if (errno != ENOENT) Stuck(next.name);
  }
  g_list.count = -1;
  return false;
}

// Whether the rest of the list is one user's and others may have come: it is
// made anew then. Nothing of it is lost, as its files lie where they lay.
bool IsStale() {
  if (g_list.count < 1 || !HasOneOwner()) return false;
  if (Kut_now_us() < std::max(g_list.stale_due, g_list.look_due)) return false;
  const uid_t owner = g_list.candidates[g_list.next].owner;
  return !cm_is_krt_admin(static_cast<int>(owner));
}

// Claims a file of a new list. What cannot be claimed must not stand before
// what can: as long as nothing of a list could be claimed, the next one is made
// of the names behind it.
int ClaimFromNames(DirReader& reader, const char* ext, char* claimed) {
  Look(reader, ext);
  for (bool first = true;; first = false) {
    const bool more = g_list.left;
    if (ClaimFromList(reader.fd(), claimed)) {
      // The next pass reads again, whatever the time says.
      if (more) g_list.dir_time.tv_nsec = -1;
      return 0;
    }
    if (!more || g_list.held) return 1;
    if (first) reader.Rewind();
    ReadNames(reader, ext, false);
  }
}

// Makes a new list and claims a file of it. 0; 1 when no file is ready; -1 with
// 3.
int Scan(const char* dir, const char* ext, char* claimed) {
  struct stat st;
  kx_errno = kx_err_system;
  if (stat(dir, &st) != 0) return -1;
  if (CanSkip(st)) {
    kx_errno = kx_err_none;
    return 1;
  }
  spool_refresh(st);
  g_list.dir_time = st.st_mtim;
  clock_gettime(CLOCK_REALTIME_COARSE, &g_list.read_time);
  g_list.retry_due = Kut_now_us() + kRetryPause;
  g_list.stuck = false;
  g_list.pid = getpid();
  g_list.ending = snprintf(nullptr, 0, ".%d", g_list.pid);
  const int dirfd = spool_fd(dir);
  DirReader reader;
  if (dirfd < 0 || reader.Open(".", dirfd) != 0) {
    g_list.dir_time.tv_nsec = -1;
    return -1;
  }
  kx_errno = kx_err_none;
  return ClaimFromNames(reader, ext, claimed);
}

}  // namespace

int sx_comp_rtn(const void* a, const void* b) {
  return strcmp(*static_cast<const char* const*>(a),
                *static_cast<const char* const*>(b));
}

int sx_ready(const char* dir, char* name) {
  if (IsStale()) {
    g_list.count = -1;
    g_list.dir_time.tv_nsec = -1;
  }
  if (g_list.count < 1) {
    char ext[kSxNameSize];
    Kut_strcpyz(ext, name, sizeof ext);
    return Scan(dir, ext, name);
  }
  kx_errno = kx_err_none;
  return ClaimFromList(spool_fd(dir), name) ? 0 : 1;
}

uid_t sx_ready_owner() { return g_list.owner; }

bool sx_ready_held() { return g_list.held; }
