#include "util/kutmem.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t kPrefix = 16;  // keeps the alignment of malloc
static_assert(kPrefix % alignof(max_align_t) == 0);

constinit kut_memstats g_stats = {};
constinit bool g_debug = false;

char* SizeWord(void* block) {
  return static_cast<char*>(block) - sizeof(uint32_t);
}

void* Count(void* raw, size_t size) {
  if (raw == nullptr) return nullptr;
  g_stats.allocs++;
  if (!g_debug) return raw;
  void* block = static_cast<char*>(raw) + kPrefix;
  const uint32_t word = static_cast<uint32_t>(size);
  memcpy(SizeWord(block), &word, sizeof word);
  g_stats.total += size;
  if (g_stats.total > g_stats.peak) g_stats.peak = g_stats.total;
  return block;
}

void* Allocate(size_t size, bool zeroed) {
  const size_t limit = g_debug ? UINT32_MAX : PTRDIFF_MAX;
  if (size > limit - 3) {
    errno = ENOMEM;
    return nullptr;
  }
  const size_t rounded = (size + 3) & ~size_t{3};
  const size_t prefix = g_debug ? kPrefix : 0;
  // Never 0 bytes, for which the C library may give null.
  const size_t whole = prefix + rounded > 0 ? prefix + rounded : 4;
  return Count(zeroed ? calloc(1, whole) : malloc(whole), rounded);
}

}  // namespace

void* Kut_malloc(size_t size) { return Allocate(size, false); }

void* Kut_calloc(size_t count, size_t size) {
  size_t bytes;
  if (__builtin_mul_overflow(count, size, &bytes)) {
    errno = ENOMEM;
    return nullptr;
  }
  return Allocate(bytes, true);
}

char* Kut_strdup(const char* text) {
  if (text == nullptr) return nullptr;
  const size_t size = strlen(text) + 1;
  void* copy = Allocate(size, false);
  if (copy != nullptr) memcpy(copy, text, size);
  return static_cast<char*>(copy);
}

void Kut_free(void* block) {
  if (block == nullptr) return;
  g_stats.frees++;
  if (!g_debug) {
    free(block);
    return;
  }
  uint32_t size;
  memcpy(&size, SizeWord(block), sizeof size);
  g_stats.total -= size;
  free(static_cast<char*>(block) - kPrefix);
}

int Kut_mdebug(int on) {
  const bool debug = on != 0;
  if (debug != g_debug && g_stats.allocs != g_stats.frees) {
    errno = EBUSY;
    return -1;
  }
  g_debug = debug;
  return 0;
}

void Kut_mstats(kut_memstats* stats) { *stats = g_stats; }
