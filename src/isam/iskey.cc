#include "isam/iskey.h"

#include <cstring>

#include "isam/isbytes.h"

namespace isam {
namespace {

// Text ends at its first NUL; what a caller left behind it is no part of the
// key.
void UpperText(const uint8_t* from, uint32_t length, uint8_t* to) {
  uint32_t i = 0;
  for (; i < length && from[i] != 0; ++i) {
    const uint8_t c = from[i];
    to[i] = c >= 'a' && c <= 'z' ? static_cast<uint8_t>(c - 'a' + 'A') : c;
  }
  memset(to + i, 0, length - i);
}

}  // namespace

void RecordKey(const Index& index, const uint8_t* record, uint8_t* key) {
  for (uint32_t i = 0; i < index.segment_count; ++i) {
    const Segment& segment = index.segments[i];
    if (segment.mode == kIsamUpper)
      UpperText(record + segment.offset, segment.length, key);
    else if (segment.mode == kIsamSerial)
      Put32Big(key, Get32(record));
    else
      memcpy(key, record + segment.offset, segment.length);
    key += segment.length;
  }
  if (index.duplicates) Put32Big(key, Get32(record));
}

void SearchKey(const Index& index, const uint8_t* value, uint8_t* key) {
  for (uint32_t i = 0; i < index.segment_count; ++i) {
    const Segment& segment = index.segments[i];
    if (segment.mode == kIsamUpper)
      UpperText(value, segment.length, key);
    else
      memcpy(key, value, segment.length);
    value += segment.length;
    key += segment.length;
  }
}

}  // namespace isam
