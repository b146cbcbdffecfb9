#include "cm/cmlimits.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace {

struct Limit {
  const char* name;
  long value, least, most;
};

constinit Limit g_limits[] = {
#define CM_LIMIT(id, name, value, least, most, meaning) \
  {name, value, least, most},
#include "cm/cmlimits.def"
#undef CM_LIMIT
};

constexpr char kBetween[] = " \t\n,";

Limit* Find(const char* name, std::size_t length) {
  for (Limit& limit : g_limits) {
    if (std::strlen(limit.name) == length &&
        std::memcmp(limit.name, name, length) == 0) {
      return &limit;
    }
  }
  return nullptr;
}

// The factor of a unit, 1 for none; 0 for what is no unit.
long Factor(const char* unit, std::size_t length) {
  if (length == 0) return 1;
  if (length != 1) return 0;
  switch (*unit) {
    case 'K':
      return 1L << 10;
    case 'M':
      return 1L << 20;
    case 'G':
      return 1L << 30;
    default:
      return 0;
  }
}

// Applies one pair; whether it was right.
bool Apply(const char* pair, std::size_t length) {
  const char* equals = static_cast<const char*>(std::memchr(pair, '=', length));
  if (equals == nullptr) return false;
  Limit* limit = Find(pair, static_cast<std::size_t>(equals - pair));
  const char* digits = equals + 1;
  if (limit == nullptr || *digits < '0' || *digits > '9') return false;
  char* end;
  errno = 0;
  const long number = std::strtol(digits, &end, 10);
  const long factor =
      Factor(end, static_cast<std::size_t>(pair + length - end));
  if (errno != 0 || factor == 0 || number > limit->most / factor) return false;
  if (number * factor < limit->least) return false;
  limit->value = number * factor;
  return true;
}

}  // namespace

long cm_limit(cm_limit_id id) {
  return g_limits[static_cast<std::size_t>(id)].value;
}

const char* cm_set_limits(const char* text) {
  static char wrong[128];
  if (text == nullptr) return nullptr;
  for (const char* pair = text + std::strspn(text, kBetween); *pair != '\0';) {
    const std::size_t length = std::strcspn(pair, kBetween);
    if (!Apply(pair, length)) {
      std::snprintf(wrong, sizeof wrong, "%.*s", static_cast<int>(length),
                    pair);
      return wrong;
    }
    pair += length;
    pair += std::strspn(pair, kBetween);
  }
  return nullptr;
}

const char* cm_show_limit(int index) {
  static char shown[64];
  if (index < 0 || index >= static_cast<int>(std::size(g_limits))) {
    return nullptr;
  }
  const Limit& limit = g_limits[index];
  std::snprintf(shown, sizeof shown, "%s=%s", limit.name,
                cm_limit_text(limit.value));
  return shown;
}

const char* cm_limit_text(long value) {
  static char text[32];
  static constexpr char kUnits[] = {'G', 'M', 'K'};
  for (int i = 0; i < 3; ++i) {
    const long factor = 1L << (10 * (3 - i));
    if (value < factor || value % factor != 0) continue;
    std::snprintf(text, sizeof text, "%ld%c", value / factor, kUnits[i]);
    return text;
  }
  std::snprintf(text, sizeof text, "%ld", value);
  return text;
}
