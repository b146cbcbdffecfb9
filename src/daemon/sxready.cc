// Finding and claiming command files.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "daemon/sxfile.h"
#include "daemon/sxspool.h"
#include "util/kutdir.h"
#include "util/kutfile.h"
#include "util/kutstr.h"

namespace {

constexpr int kNamesMax = 100;
// A directory's time tells nothing about changes within its own granularity
// (a clock tick, a second or two on some file systems): a directory that
// changed less than this before it was read is read again.
constexpr time_t kTimeGranularity = 2;
constexpr int kClaimsMax = 100;  // claimed names tried for one command

struct ReadyList {
  char names[kNamesMax][kSxNameSize];
  const char* sorted[kNamesMax];
  int count = -1;  // -1 or 0: no list is pending
  int next = 0;
  timespec dir_time = {0, -1};  // of the directory when it was read last
  timespec read_time = {0, 0};  // when that was
  int unchanged = 0;            // scans in a row that found the same time
  int pid = 0;                  // of this process, for the claims
};
ReadyList g_list;

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
  if (g_list.read_time.tv_sec - st.st_mtim.tv_sec <= kTimeGranularity) {
    return false;
  }
  return g_list.unchanged++ != 0;
}

// Reads the directory into the list; false with errno when it cannot be read.
bool ReadNames(int dirfd, const char* ext) {
  DirReader reader;
  if (reader.Open(".", dirfd) != 0) return false;
  g_list.count = 0;
  while (g_list.count < kNamesMax) {
    const char* name = reader.Next();
    if (name == nullptr) return true;
    const char* got = Kut_get_file_ext(name);
    if (got == nullptr || std::strcmp(got, ext) != 0) continue;
    char* copy = g_list.names[g_list.count];
    Kut_strcpyz(copy, name, kSxNameSize);
    g_list.sorted[g_list.count++] = copy;
  }
  // There may be more: the next pass reads again, whatever the time says.
  g_list.dir_time.tv_nsec = -1;
  return true;
}

// Makes a new list. 0; 1 when no file is ready; -1 with 3.
int Scan(const char* dir, const char* ext) {
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
  const int dirfd = spool_fd(dir);
  if (dirfd < 0 || !ReadNames(dirfd, ext)) {
    g_list.dir_time.tv_nsec = -1;
    return -1;
  }
  kx_errno = kx_err_none;
  if (g_list.count == 0) return 1;
  std::qsort(g_list.sorted, static_cast<std::size_t>(g_list.count),
             sizeof g_list.sorted[0], sx_comp_rtn);
  g_list.next = 0;
  g_list.pid = getpid();
  return 0;
}

// Claims `name` as <base>.<pid> into `claimed`. A file of that name (a command
// of the same name that a worker has yet to read, or one that was left behind
// under this pid) is not overwritten: the claim is <base>-<n>.<pid> then.
bool Claim(int dirfd, const char* name, char* claimed) {
  const char* ext = Kut_get_file_ext(name);
  const int base = static_cast<int>(ext - name) - 1;
  char suffix[16] = "";
  for (int n = 1; n <= kClaimsMax; ++n) {
    const int length = std::snprintf(claimed, kSxNameSize, "%.*s%s.%d", base,
                                     name, suffix, g_list.pid);
    if (length >= static_cast<int>(kSxNameSize)) return false;
    if (Kut_rename_fresh(dirfd, name, claimed) == 0) return true;
    if (errno != EEXIST) return false;
    std::snprintf(suffix, sizeof suffix, "-%d", n);
  }
  return false;
}

}  // namespace

int sx_comp_rtn(const void* a, const void* b) {
  return std::strcmp(*static_cast<const char* const*>(a),
                     *static_cast<const char* const*>(b));
}

int sx_ready(const char* dir, char* name) {
  if (g_list.count < 1) {
    char ext[kSxNameSize];
    Kut_strcpyz(ext, name, sizeof ext);
    const int result = Scan(dir, ext);
    if (result != 0) return result;
  }
  kx_errno = kx_err_none;
  const int dirfd = spool_fd(dir);
  while (g_list.next < g_list.count) {
    // A file that is gone was claimed by somebody faster.
    if (Claim(dirfd, g_list.sorted[g_list.next++], name)) return 0;
  }
  g_list.count = -1;
  return 1;
}
