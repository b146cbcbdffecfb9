// Numbers in byte order, and the checksum of the store's formats.
#ifndef ISAM_ISBYTES_H_
#define ISAM_ISBYTES_H_

#include <cstddef>
#include <cstdint>

namespace isam {

inline uint16_t Get16(const uint8_t* p) {
  return static_cast<uint16_t>(p[0] | p[1] << 8);
}

inline uint32_t Get32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
         static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

inline uint64_t Get64(const uint8_t* p) {
  return Get32(p) | static_cast<uint64_t>(Get32(p + 4)) << 32;
}

inline void Put16(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}

inline void Put32(uint8_t* p, uint32_t v) {
  Put16(p, v);
  Put16(p + 2, v >> 16);
}

inline void Put64(uint8_t* p, uint64_t v) {
  Put32(p, static_cast<uint32_t>(v));
  Put32(p + 4, static_cast<uint32_t>(v >> 32));
}

// Most significant byte first, so that memcmp orders the numbers.
inline void Put32Big(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 24);
  p[1] = static_cast<uint8_t>(v >> 16);
  p[2] = static_cast<uint8_t>(v >> 8);
  p[3] = static_cast<uint8_t>(v);
}

// A 64-bit checksum against accidents, not against forgers. Each step is a
// one-to-one mapping of its 8 bytes, so a change within one aligned 8-byte word
// is always seen. Four lanes, because a look-up checks every page that it
// reads: a byte-wise CRC would cost more than the read itself.
inline uint64_t Checksum(const uint8_t* p, size_t size, uint64_t seed) {
  constexpr uint64_t kFactor = 0x9e3779b97f4a7c15;  // odd, so it has an inverse
  const auto mix = [](uint64_t h, uint64_t word) {
    h = (h ^ word) * kFactor;
    return h ^ (h >> 29);
  };
  uint64_t lane[4] = {seed, ~seed, seed ^ kFactor, seed + size};
  for (; size >= 32; p += 32, size -= 32) {
    lane[0] = mix(lane[0], Get64(p));
    lane[1] = mix(lane[1], Get64(p + 8));
    lane[2] = mix(lane[2], Get64(p + 16));
    lane[3] = mix(lane[3], Get64(p + 24));
  }
  uint64_t sum = lane[0];
  for (int i = 1; i < 4; ++i) sum = mix(sum, lane[i]);
  for (; size >= 8; p += 8, size -= 8) sum = mix(sum, Get64(p));
  for (; size > 0; ++p, --size) sum = mix(sum, *p);
  return mix(sum, 0);
}

}  // namespace isam

#endif  // ISAM_ISBYTES_H_
