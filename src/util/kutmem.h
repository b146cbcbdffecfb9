// The allocator of the whole system, with optional statistics.
//
// - A block from here is given back with Kut_free, by nobody else; it is
//   aligned for every type.
// - Failure is null with errno ENOMEM. A size of 0 gives a block of its own.
// - Not for signal handlers.
//
// With statistics on, a prefix stands before each block, its last four bytes
// being the size word:
//
//     | 12 unused bytes | size, 4 bytes | block ...
//
// so a block must be freed in the mode it was made in, which is why the mode
// cannot change while any block is out.
#ifndef UTIL_KUTMEM_H_
#define UTIL_KUTMEM_H_

#include <cstddef>

struct kut_memstats {
  long allocs;   // calls that gave a block, since the start
  long frees;    // blocks given back
  size_t total;  // bytes out now, rounded sizes; only with statistics on
  size_t peak;   // the highest `total` so far
};

// `size` is rounded up to a multiple of 4.
[[nodiscard]] void* Kut_malloc(size_t size);
// The same, zeroed, for `count` * `size` bytes; ENOMEM when that overflows.
[[nodiscard]] void* Kut_calloc(size_t count, size_t size);
// A copy of `text`; null for null.
[[nodiscard]] char* Kut_strdup(const char* text);
// Null is ignored.
void Kut_free(void* block);

// Switches the statistics on (not 0) or off. 0, or -1 with errno EBUSY, and
// nothing changed, while blocks are out.
int Kut_mdebug(int on);
void Kut_mstats(kut_memstats* stats);

#endif  // UTIL_KUTMEM_H_
