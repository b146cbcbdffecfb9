// Faults of the system: the n-th call of one kind fails, or moves only half of
// its bytes.
//
// - The shim (fault_shim.cc) stands in front of the C library, either linked
//   into a test or preloaded into any program. A preloaded shim is told by the
//   environment what to do:
//       LD_PRELOAD=libkrtfault.so KRT_FAULT=write:ENOSPC:3 program ...
//   "short" in place of the error halves a write or a read, "+" behind the
//   number has every call from that one on fail. Or KRT_FAULT_PAGE names a file
//   that holds the page below, by which another process arms it while the
//   program runs. A program with ASan wants
//   ASAN_OPTIONS=verify_asan_link_order=0 besides, as the runtime is not loaded
//   first then.
// - The page is shared with forked children: one count for all of them.
//   Programs that they run are spared.
// - What a stream reads and writes counts as the stream's descriptor. Of what
//   the C library does for itself (the user database, directories) only the
//   memory counts.
// - A call that fails has not been made, but for close, which always closes.
#ifndef SUPPORT_FAULT_H_
#define SUPPORT_FAULT_H_

#include <atomic>

namespace fault {

enum Call : int {
  kNone,
  kOpen,    // open, openat, pipe2
  kRead,    // read, pread
  kWrite,   // write, pwrite
  kSync,    // fsync, fdatasync
  kRename,  // rename, renameat, renameat2
  kUnlink,  // unlink, unlinkat
  kLink,    // link, linkat
  kMkdir,   // mkdir
  kClose,   // close
  kFork,    // fork
  kMemory,  // malloc, calloc, realloc, new
  kShared,  // shmget, shmat
  kCalls,
};
constexpr const char* kCallNames[kCalls] = {
    "none", "open",  "read",  "write", "sync",   "rename", "unlink",
    "link", "mkdir", "close", "fork",  "memory", "shared"};

constexpr int kShort = -1;  // as an error: half of the bytes are moved

struct Page {
  std::atomic<int> call;    // kNone: nothing fails
  std::atomic<int> error;   // errno, or kShort
  std::atomic<int> at;      // the number of the call that fails, from 1 on
  std::atomic<int> lasts;   // not 0: all calls from that one on
  std::atomic<int> seen;    // calls of that kind since Arm
  std::atomic<int> failed;  // of these
};

// A page in the file `path`, made if need be; null: of this process and its
// children alone. Null on failure.
Page* MapPage(const char* path);
// Has the shim of this process, linked in, go by the page.
void Use(Page* page);

inline void Arm(Page* page, int call, int error, int at, bool lasts = false) {
  page->call = kNone;
  page->error = error;
  page->at = at;
  page->lasts = lasts ? 1 : 0;
  page->seen = page->failed = 0;
  page->call = call;
}
inline void Disarm(Page* page) { page->call = kNone; }

}  // namespace fault

#endif  // SUPPORT_FAULT_H_
