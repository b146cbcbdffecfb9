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

Limit* Find(const char* name, size_t length) {
  for (Limit& limit : g_limits) {
    if (strlen(limit.name) == length && memcmp(limit.name, name, length) == 0) {
      return &limit;
    }
  }
  return nullptr;
}

// The factor of a unit, 1 for none; 0 for what is no unit.
long Factor(const char* unit, size_t length) {
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
bool Apply(const char* pair, size_t length) {
  const char* equals = static_cast<const char*>(memchr(pair, '=', length));
  if (equals == nullptr) return false;
  Limit* limit = Find(pair, static_cast<size_t>(equals - pair));
  const char* digits = equals + 1;
  if (limit == nullptr || *digits < '0' || *digits > '9') return false;
  char* end;
  errno = 0;
  const long number = strtol(digits, &end, 10);
  const long factor = Factor(end, static_cast<size_t>(pair + length - end));
  if (errno != 0 || factor == 0 || number > limit->most / factor) return false;
  if (number * factor < limit->least) return false;
  limit->value = number * factor;
  return true;
}

}  // namespace

long cm_limit(cm_limit_id id) {
  return g_limits[static_cast<size_t>(id)].value;
}

const char* cm_set_limits(const char* text) {
  static char wrong[128];
  if (text == nullptr) return nullptr;
  for (const char* pair = text + strspn(text, kBetween); *pair != '\0';) {
    const size_t length = strcspn(pair, kBetween);
    if (!Apply(pair, length)) {
      snprintf(wrong, sizeof wrong, "%.*s", static_cast<int>(length), pair);
      return wrong;
    }
    pair += length;
    pair += strspn(pair, kBetween);
  }
  return nullptr;
}

const char* cm_limit_text(long value) {
  static char text[32];
  static constexpr char kUnits[] = {'G', 'M', 'K'};
  for (int i = 0; i < 3; ++i) {
    const long factor = 1L << (10 * (3 - i));
    if (value < factor || value % factor != 0) continue;
    snprintf(text, sizeof text, "%ld%c", value / factor, kUnits[i]);
    return text;
  }
  snprintf(text, sizeof text, "%ld", value);
  return text;
}
