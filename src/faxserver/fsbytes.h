// Numbers and texts at fixed offsets of a binary record.
//
// - Numbers are in the byte order of the host: the records travel between
//   processes of one machine, or lie in files that only it reads.
// - A record is never accessed through a struct: offsets are written down once,
//   in the layout table of the format's header.
// - An offset outside the record is a fault of the program and asserts.
#ifndef FAXSERVER_FSBYTES_H_
#define FAXSERVER_FSBYTES_H_

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

using fx_bytes = std::span<const unsigned char>;
using fx_out_bytes = std::span<unsigned char>;

template <typename Int>
Int fx_get(fx_bytes record, size_t offset) {
  assert(offset + sizeof(Int) <= record.size());
  Int value;
  memcpy(&value, record.data() + offset, sizeof value);
  return value;
}

template <typename Int>
void fx_put(fx_out_bytes record, size_t offset, Int value) {
  assert(offset + sizeof(Int) <= record.size());
  memcpy(record.data() + offset, &value, sizeof value);
}

// The text in a field of `size` bytes: up to its NUL, or all of it without one.
inline std::string_view fx_get_text(fx_bytes record, size_t offset,
                                    size_t size) {
  assert(offset + size <= record.size());
  const char* text = reinterpret_cast<const char*>(record.data() + offset);
  return {text, strnlen(text, size)};
}

// Puts a text into a field of `size` bytes, padded with NULs; one that is too
// long is cut so that it still ends with a NUL.
inline void fx_put_text(fx_out_bytes record, size_t offset, size_t size,
                        std::string_view text) {
  assert(size > 0 && offset + size <= record.size());
  const size_t length = text.size() < size ? text.size() : size - 1;
  memset(record.data() + offset, 0, size);
  memcpy(record.data() + offset, text.data(), length);
}

#endif  // FAXSERVER_FSBYTES_H_
