#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "kx/object.h"
#include "util/kuttime.h"

namespace {

constexpr std::size_t kNumberSize = 16;  // "-2147483648" and its terminator

struct EnumName {
  int value;
  std::string_view name;
};

// Ascending by value.
constexpr EnumName kEnums[] = {
#define KX_ENUM(group, name, value) {value, #group "-" #name},
#include "kx/kxenum.def"
#undef KX_ENUM
};

constexpr auto kEnumsByName = [] {
  auto sorted = std::to_array(kEnums);
  std::sort(
      sorted.begin(), sorted.end(),
      [](const EnumName& a, const EnumName& b) { return a.name < b.name; });
  return sorted;
}();

const char* Decimal(char (&buffer)[kNumberSize], int value) {
  *std::to_chars(buffer, buffer + sizeof buffer, value).ptr = '\0';
  return buffer;
}

// The leading decimal number, brought into the range of 32 bits.
int LeadingNumber(const char* text) {
  if (text == nullptr) return -1;
  const long value = strtol(text, nullptr, 10);
  return static_cast<int>(std::clamp(value, static_cast<long>(INT_MIN),
                                     static_cast<long>(INT_MAX)));
}

}  // namespace

const char* Kfx_Bool_To_Str(int value) {
  return value == 1 ? "true" : value == 0 ? "false" : "-1";
}

int Kfx_Str_To_Bool(const char* text) {
  if (text == nullptr) return -1;
  for (const char* word : {"true", "yes", "on"}) {
    if (strcmp(text, word) == 0) return 1;
  }
  for (const char* word : {"false", "no", "off"}) {
    if (strcmp(text, word) == 0) return 0;
  }
  return -1;
}

const char* Kfx_Word_To_Str(int value) {
  static char buffer[kNumberSize];
  return Decimal(buffer, value);
}

int Kfx_Str_To_Word(const char* text) { return LeadingNumber(text); }

const char* Kfx_Long_To_Str(int value) {
  static char buffer[kNumberSize];
  return Decimal(buffer, value);
}

int Kfx_Str_To_Long(const char* text) { return LeadingNumber(text); }

const char* Kfx_Time_To_Str(int seconds) { return Kut_time_2_str(seconds, 0); }

int Kfx_Str_To_Time(const char* text) {
  if (text == nullptr) return -1;
  const long seconds = Kut_str_2_time(text);
  // Beyond what a time field holds the text is as good as no time.
  return seconds > INT_MAX || seconds < INT_MIN ? -1
                                                : static_cast<int>(seconds);
}

const char* Kfx_Enum_To_Str(int value) {
  const auto* row = std::lower_bound(
      std::begin(kEnums), std::end(kEnums), value,
      [](const EnumName& entry, int v) { return entry.value < v; });
  if (row == std::end(kEnums) || row->value != value) return "-1";
  return row->name.data();
}

int Kfx_Str_To_Enum(const char* name) {
  if (name == nullptr) return -1;
  const std::string_view wanted(name);
  const auto* row = std::lower_bound(
      kEnumsByName.begin(), kEnumsByName.end(), wanted,
      [](const EnumName& entry, std::string_view v) { return entry.name < v; });
  if (row == kEnumsByName.end() || row->name != wanted) return -1;
  return row->value;
}
