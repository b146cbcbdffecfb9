#include "measure.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace {

long g_flushes = 0;
bool g_no_flush = false;

}  // namespace

// These stand before the C library's for the whole process, the peers included.
extern "C" int fdatasync(int fd) {
  ++g_flushes;
  return g_no_flush ? 0 : static_cast<int>(syscall(SYS_fdatasync, fd));
}
extern "C" int fsync(int fd) {
  ++g_flushes;
  return g_no_flush ? 0 : static_cast<int>(syscall(SYS_fsync, fd));
}
extern "C" int msync(void* at, size_t size, int flags) {
  ++g_flushes;
  return g_no_flush ? 0 : static_cast<int>(syscall(SYS_msync, at, size, flags));
}

void Must(bool good, const char* what) {
  if (good) return;
  fprintf(stderr, "bench: %s failed\n", what);
  abort();
}

long Flushes() { return g_flushes; }

WithoutFlushes::WithoutFlushes() { g_no_flush = true; }

WithoutFlushes::~WithoutFlushes() {
  g_no_flush = false;
  sync();
}

Folder::Folder(const std::string& parent) : owner_(getpid()) {
  path_ = (parent.empty() ? std::filesystem::temp_directory_path().string()
                          : parent) +
          "/krt-bench-XXXXXX";
  Must(mkdtemp(path_.data()) != nullptr, "mkdtemp");
}

Folder::~Folder() {
  std::error_code ignored;
  if (getpid() == owner_) std::filesystem::remove_all(path_, ignored);
}

double Turns::Us(int percent) const {
  if (ns_.empty()) return 0;
  std::vector<int64_t> sorted = ns_;
  const auto at =
      sorted.begin() + static_cast<long>(sorted.size() - 1) * percent / 100;
  std::nth_element(sorted.begin(), at, sorted.end());
  return static_cast<double>(*at) / 1000;
}
