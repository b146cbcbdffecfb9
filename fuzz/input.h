// An input taken apart: numbers and texts from its front, zeros and empty texts
// behind its end.
#ifndef FUZZ_INPUT_H_
#define FUZZ_INPUT_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzz {

class Input {
 public:
  Input(const uint8_t* data, std::size_t size) : at_(data), left_(size) {}

  bool empty() const { return left_ == 0; }

  unsigned Byte() {
    if (left_ == 0) return 0;
    --left_;
    return *at_++;
  }

  // Of `bytes` bytes, least significant first.
  uint64_t Number(int bytes) {
    uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value |= uint64_t{Byte()} << 8 * i;
    return value;
  }

  // All up to the byte `end`, which is taken too, or to the end.
  std::string Until(char end) {
    const uint8_t* stop = std::find(at_, at_ + left_, uint8_t(end));
    std::string text(at_, stop);
    const std::size_t taken =
        std::min<std::size_t>(left_, static_cast<std::size_t>(stop - at_) + 1);
    at_ += taken;
    left_ -= taken;
    return text;
  }

  std::string Rest() {
    std::string text(at_, at_ + left_);
    left_ = 0;
    return text;
  }

 private:
  const uint8_t* at_;
  std::size_t left_;
};

}  // namespace fuzz

#endif  // FUZZ_INPUT_H_
