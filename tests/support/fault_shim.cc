// The shim of support/fault.h: the C library's calls, each with the question
// before it whether it is to fail.
//
// - Streams on files call the kernel without a name that could be taken over.
//   fdopen therefore makes a stream of a kind whose reads and writes are
//   functions, and those are the ones here.
// - Nothing here may allocate before the real allocator is known, nor may a
//   block of one allocator reach another: each form of new is handed on to the
//   same form, of the C++ library or of ASan.
#include <dlfcn.h>
#include <fcntl.h>
#include <stdarg.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "support/fault.h"

namespace {

constinit fault::Page* g_page = nullptr;
// A call made on behalf of one that has been counted. The programs have one
// thread.
constinit bool g_inside = false;

bool IsDue(fault::Call call) {
  fault::Page* page = g_page;
  if (page == nullptr || g_inside || page->call != call) return false;
  const int n = ++page->seen;
  const bool due = page->lasts != 0 ? n >= page->at : n == page->at;
  if (due) ++page->failed;
  return due;
}

// Whether this call fails; errno is set then.
bool Fails(fault::Call call) {
  if (!IsDue(call)) return false;
  errno = g_page->error;
  return true;
}

// How much of `size` is to be moved, -1 for a failure. Only files are short: a
// fifo takes and gives a small record whole.
ssize_t Share(fault::Call call, int fd, size_t size) {
  const auto whole = static_cast<ssize_t>(size);
  if (g_page == nullptr || g_page->call != call) return whole;
  if (g_page->error != fault::kShort) return Fails(call) ? -1 : whole;
  struct stat st;
  const bool can = size > 1 && fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
  return can && IsDue(call) ? whole / 2 : whole;
}

class Inside {
 public:
  Inside() : before_(g_inside) { g_inside = true; }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;
  ~Inside() { g_inside = before_; }

 private:
  const bool before_;
};

// ---- Streams ----

struct Stream {
  FILE* file;
  int fd;
};
Stream g_streams[64];

Stream* Find(const FILE* file) {
  for (Stream& stream : g_streams) {
    if (stream.file == file) return &stream;
  }
  return nullptr;
}

ssize_t ReadStream(void* cookie, char* buf, size_t size) {
  return read(static_cast<Stream*>(cookie)->fd, buf, size);
}

// As the C library's own: on to the end, or to the first failure.
ssize_t WriteStream(void* cookie, const char* buf, size_t size) {
  size_t done = 0;
  while (done < size) {
    const ssize_t n =
        write(static_cast<Stream*>(cookie)->fd, buf + done, size - done);
    if (n < 0) break;
    done += static_cast<size_t>(n);
  }
  return static_cast<ssize_t>(done);
}

int SeekStream(void* cookie, off64_t* offset, int whence) {
  *offset = lseek(static_cast<Stream*>(cookie)->fd, *offset, whence);
  return *offset < 0 ? -1 : 0;
}

int CloseStream(void* cookie) {
  auto* stream = static_cast<Stream*>(cookie);
  stream->file = nullptr;
  return close(stream->fd);
}

// ---- What is to fail ----

// "write:ENOSPC:3": see the header.
void ArmByText(const char* text) {
  char name[16], error[32], plus = 0;
  int at = 0;
  if (sscanf(text, "%15[^:]:%31[^:]:%d%c", name, error, &at, &plus) < 3) return;
  int number = 133;  // the last that Linux has
  for (; number > 0; --number) {
    const char* known = strerrorname_np(number);
    if (known != nullptr && strcmp(known, error) == 0) break;
  }
  for (int call = 1; call < fault::kCalls; ++call) {
    if (strcmp(name, fault::kCallNames[call]) != 0) continue;
    fault::Arm(g_page, call, number > 0 ? number : fault::kShort, at,
               plus == '+');
  }
}

[[gnu::constructor]] void Start() {
  const char* text = getenv("KRT_FAULT");
  const char* path = getenv("KRT_FAULT_PAGE");
  if (text == nullptr && path == nullptr) return;
  g_page = fault::MapPage(path);
  if (g_page != nullptr && text != nullptr) ArmByText(text);
  for (const char* name : {"LD_PRELOAD", "KRT_FAULT", "KRT_FAULT_PAGE"}) {
    unsetenv(name);
  }
}

}  // namespace

fault::Page* fault::MapPage(const char* path) {
  const Inside inside;
  int fd = -1;
  if (path != nullptr) {
    fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0 || ftruncate(fd, sizeof(Page)) != 0) return nullptr;
  }
  void* page = mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE,
                    MAP_SHARED | (fd < 0 ? MAP_ANONYMOUS : 0), fd, 0);
  if (fd >= 0) close(fd);
  return page != MAP_FAILED ? static_cast<Page*>(page) : nullptr;
}

void fault::Use(Page* page) { g_page = page; }

// The function of that name behind this one.
#define NEXT(name)         \
  static const auto next = \
      reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name))

// A call that fails with `failure`, or is handed on; with -1.
#define CALL_OR(kind, failure, result, name, parameters, arguments) \
  result name parameters {                                          \
    NEXT(name);                                                     \
    return Fails(fault::kind) ? failure : next arguments;           \
  }
#define CALL(kind, ...) CALL_OR(kind, -1, __VA_ARGS__)

// An open of `...`, with a mode where a file may be made.
#define OPEN(name, parameters, ...)                                   \
  int name parameters {                                               \
    NEXT(name);                                                       \
    va_list more;                                                     \
    va_start(more, flags);                                            \
    const mode_t mode =                                               \
        (flags & (O_CREAT | O_TMPFILE)) ? va_arg(more, mode_t) : 0;   \
    va_end(more);                                                     \
    return Fails(fault::kOpen) ? -1 : next(__VA_ARGS__, flags, mode); \
  }

// What is not to fail is not done either: nobody takes the power away here.
#define SYNC(name)                          \
  int name(int fd) {                        \
    NEXT(name);                             \
    if (g_page == nullptr) return next(fd); \
    return Fails(fault::kSync) ? -1 : 0;    \
  }

// A call that moves bytes.
#define MOVE(kind, name, parameters, fd, size, arguments) \
  ssize_t name parameters {                               \
    NEXT(name);                                           \
    const ssize_t share = Share(fault::kind, fd, size);   \
    if (share < 0) return -1;                             \
    size = static_cast<size_t>(share);                    \
    return next arguments;                                \
  }

extern "C" {

OPEN(open, (const char* path, int flags, ...), path)
OPEN(openat, (int dir, const char* path, int flags, ...), dir, path)
CALL(kOpen, int, pipe2, (int* ends, int flags) noexcept, (ends, flags))

MOVE(kRead, read, (int fd, void* buf, size_t size), fd, size, (fd, buf, size))
MOVE(kRead, pread, (int fd, void* buf, size_t size, off_t at), fd, size,
     (fd, buf, size, at))
MOVE(kWrite, write, (int fd, const void* buf, size_t size), fd, size,
     (fd, buf, size))
MOVE(kWrite, pwrite, (int fd, const void* buf, size_t size, off_t at), fd, size,
     (fd, buf, size, at))

SYNC(fsync)
SYNC(fdatasync)
CALL(kRename, int, rename, (const char* from, const char* to) noexcept,
     (from, to))
CALL(kRename, int, renameat,
     (int dir, const char* from, int to_dir, const char* to) noexcept,
     (dir, from, to_dir, to))
CALL(kRename, int, renameat2,
     (int dir, const char* from, int to_dir, const char* to,
      unsigned flags) noexcept,
     (dir, from, to_dir, to, flags))

CALL(kUnlink, int, unlink, (const char* path) noexcept, (path))
CALL(kUnlink, int, unlinkat, (int dir, const char* path, int flags) noexcept,
     (dir, path, flags))
CALL(kLink, int, link, (const char* from, const char* to) noexcept, (from, to))
CALL(kLink, int, linkat,
     (int dir, const char* from, int to_dir, const char* to,
      int flags) noexcept,
     (dir, from, to_dir, to, flags))
CALL(kMkdir, int, mkdir, (const char* path, mode_t mode) noexcept, (path, mode))
CALL(kFork, pid_t, fork, () noexcept, ())
CALL(kShared, int, shmget, (key_t key, size_t size, int flags) noexcept,
     (key, size, flags))

CALL_OR(kShared, reinterpret_cast<void*>(-1), void*, shmat,
        (int id, const void* at, int flags) noexcept, (id, at, flags))
CALL_OR(kMemory, nullptr, void*, malloc, (size_t size) noexcept, (size))
CALL_OR(kMemory, nullptr, void*, calloc, (size_t count, size_t size) noexcept,
        (count, size))
CALL_OR(kMemory, nullptr, void*, realloc, (void* block, size_t size) noexcept,
        (block, size))

int close(int fd) {
  NEXT(close);
  const int result = next(fd);
  return Fails(fault::kClose) ? -1 : result;
}

FILE* fdopen(int fd, const char* mode) noexcept {
  NEXT(fdopen);
  Stream* stream = g_page != nullptr ? Find(nullptr) : nullptr;
  if (stream == nullptr) return next(fd, mode);
  stream->fd = fd;
  stream->file = fopencookie(
      stream, mode, {ReadStream, WriteStream, SeekStream, CloseStream});
  return stream->file;
}

int fileno(FILE* file) noexcept {
  NEXT(fileno);
  const Stream* stream = Find(file);
  return stream != nullptr ? stream->fd : next(file);
}

// A program that waits does so for the sake of others: here nobody is.
unsigned sleep(unsigned seconds) {
  NEXT(sleep);
  if (g_page == nullptr) return next(seconds);
  usleep(seconds * 200);
  return 0;
}

}  // extern "C"

// The plain new, and that for arrays.
#define NEW(name, mangled)                                                  \
  void* name(size_t size) {                                                 \
    static const auto next =                                                \
        reinterpret_cast<void* (*)(size_t)>(dlsym(RTLD_NEXT, mangled));     \
    if (Fails(fault::kMemory)) throw std::bad_alloc();                      \
    const Inside inside;                                                    \
    return next(size);                                                      \
  }                                                                         \
  void* name(size_t size, const std::nothrow_t& tag) noexcept {             \
    using Next = void* (*)(size_t, const std::nothrow_t&);                  \
    static const auto next =                                                \
        reinterpret_cast<Next>(dlsym(RTLD_NEXT, mangled "RKSt9nothrow_t")); \
    if (Fails(fault::kMemory)) return nullptr;                              \
    const Inside inside;                                                    \
    return next(size, tag);                                                 \
  }
NEW(operator new, "_Znwm")
NEW(operator new[], "_Znam")
