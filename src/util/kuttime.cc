#include "util/kuttime.h"

#include <charconv>
#include <cstring>
#include <ctime>
#include <initializer_list>

#include "util/kutstr.h"

namespace {

constexpr size_t kMaxText = 79;  // characters, this many are too many
constexpr long kMonthDays[12] = {31, 28, 31, 30, 31, 30,
                                 31, 31, 30, 31, 30, 31};

struct CivilTime {
  long year, month, day, hour, minute, second;
};

// Every fourth year, as the fax server's time stamps have always counted; so
// 2000 is right and 2100 is not.
bool IsLeap(long year) { return year % 4 == 0; }

CivilTime Today() {
  const time_t now = time(nullptr);
  tm utc = {};
  gmtime_r(&now, &utc);
  return {utc.tm_year + 1900L, utc.tm_mon + 1L, utc.tm_mday, 0, 0, 0};
}

// Cuts "am" or "pm" off the end of `text`; whether it was "pm".
bool CutHalfOfDay(char* text) {
  const size_t length = strlen(text);
  if (length < 2) return false;
  char* last = text + length - 2;
  const bool pm = Kut_strccmp(last, "pm") == 0;
  if (pm || Kut_strccmp(last, "am") == 0) *last = '\0';
  return pm;
}

// The digits of `text`, an even number of them. How many.
size_t KeepDigits(const char* text, char* digits) {
  size_t count = 0;
  for (const char* p = text; *p != '\0'; p++) {
    if (*p >= '0' && *p <= '9') digits[count++] = *p;
  }
  if (count % 2 != 0) {
    memmove(digits + 1, digits, count++);
    digits[0] = '0';
  }
  return count;
}

// Reads the digits into `t`, from the seconds back to the year as far as they
// go. False for a number of digits that has no meaning.
bool ReadDigits(const char* digits, size_t count, CivilTime* t) {
  if (count != 6 && count != 10 && count != 12 && count != 14) return false;
  const char* p = digits;
  const auto pair = [&p] {
    const long value = (p[0] - '0') * 10L + (p[1] - '0');
    p += 2;
    return value;
  };
  if (count == 14) {
    t->year = pair() * 100;
    t->year += pair();
  }
  if (count == 12) t->year = pair() + 1900;
  if (count >= 10) {
    t->month = pair();
    t->day = pair();
  }
  t->hour = pair();
  t->minute = pair();
  t->second = pair();
  return true;
}

bool InRange(const CivilTime& t) {
  if (t.minute >= 60 || t.hour >= 24 || t.month >= 13) return false;
  if (t.month == 0) return true;  // no month, no length
  const bool leap_day = t.month == 2 && t.day == 29 && IsLeap(t.year);
  return leap_day || t.day <= kMonthDays[t.month - 1];
}

// The division rounds toward zero, which makes most dates before 1969 a day
// late; callers have always got them so.
long ToSeconds(const CivilTime& t) {
  long days = 365 * (t.year - 1970) + (t.year - 1969) / 4 + t.day - 1;
  for (long month = 1; month < t.month; month++) {
    days += kMonthDays[month - 1];
  }
  if (t.month > 2 && IsLeap(t.year)) days++;
  return ((days * 24 + t.hour) * 60 + t.minute) * 60 + t.second;
}

timespec Now(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return now;
}

}  // namespace

const char* Kut_time_2_str(long t, int long_form) {
  static char buffer[64];
  if (t < 0) return nullptr;
  if (t == 0) return "now";
  const time_t when = t;
  tm utc = {};
  if (gmtime_r(&when, &utc) == nullptr) return nullptr;
  // By hand: printf took a sixth of the time of writing a status.
  char* at = std::to_chars(buffer, buffer + 32, utc.tm_year + 1900L).ptr;
  const char* before = long_form != 0 ? "// ::" : "";
  for (const int part :
       {utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec}) {
    if (*before != '\0') *at++ = *before++;
    *at++ = static_cast<char>('0' + part / 10);
    *at++ = static_cast<char>('0' + part % 10);
  }
  *at = '\0';
  return buffer;
}

long Kut_str_2_time(const char* text) {
  if (text == nullptr || *text == '\0') return -1;
  const size_t length = strnlen(text, kMaxText);
  if (length >= kMaxText) return -1;
  char copy[kMaxText];
  memcpy(copy, text, length + 1);
  Kut_strip(copy);
  if (strcmp(copy, "now") == 0) return 0;

  CivilTime t = Today();
  const bool afternoon = CutHalfOfDay(copy);
  char digits[kMaxText + 1];
  const size_t count = KeepDigits(copy, digits);
  if (!ReadDigits(digits, count, &t)) return -1;
  if (afternoon && t.hour < 12) t.hour += 12;
  return InRange(t) ? ToSeconds(t) : -1;
}

long Kut_now_ms() { return Kut_now_us() / 1000; }

long Kut_now_us() {
  const timespec now = Now(CLOCK_MONOTONIC);
  return now.tv_sec * 1'000'000 + now.tv_nsec / 1000;
}

long Kut_coarse_ms() {
  const timespec now = Now(CLOCK_MONOTONIC_COARSE);
  return now.tv_sec * 1000 + now.tv_nsec / 1'000'000;
}
