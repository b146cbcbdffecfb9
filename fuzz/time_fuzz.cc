// Any bytes as a text that stands for a time and as a time: no undefined
// behaviour, and a time that prints comes back from both of its texts.
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz/check.h"
#include "util/kuttime.h"

namespace {

constexpr long kYear2100 = 4102444800;  // from here on leap years count twice

void RoundTrip(long t) {
  for (const int long_form : {0, 1}) {
    const char* text = Kut_time_2_str(t, long_form);
    CHECK(text != nullptr || t < 0 || t > kYear2100);
    if (text == nullptr || t >= kYear2100) continue;
    CHECK(Kut_str_2_time(std::string(text).c_str()) == t);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  RoundTrip(Kut_str_2_time(text.c_str()));
  long t = 0;
  std::memcpy(&t, data, std::min(size, sizeof t));
  RoundTrip(t);
  RoundTrip(t & 0xffffffff);
  return 0;
}
