#include "ctl/format/format.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "util/kutstr.h"

namespace client {
namespace {

std::string Print(const char* format, const tm& parts) {
  char text[64];
  return {text, strftime(text, sizeof text, format, &parts)};
}

bool IsContinuation(char c) { return (c & 0xC0) == 0x80; }

// "+2h" as seconds; false for anything else.
bool ParseSpan(const std::string& text, long* seconds) {
  if (text.size() < 3 || text[0] != '+') return false;
  constexpr char kUnits[] = "smhd";
  constexpr long kSeconds[] = {1, 60, 3600, 86400};
  for (int i = 0; i < 4; ++i) {
    if (text.back() != kUnits[i]) continue;
    long count;
    if (!ParseNumber(text.substr(1, text.size() - 2), 0, 100'000, &count)) {
      return false;
    }
    *seconds = count * kSeconds[i];
    return true;
  }
  return false;
}

// The whole of a text by one of strptime's formats.
bool Scan(const std::string& text, const char* format, tm* parts) {
  const char* end = strptime(text.c_str(), format, parts);
  return end != nullptr && *end == '\0';
}

bool ParseClock(const std::string& text, time_t now, time_t* t) {
  tm parts;
  localtime_r(&now, &parts);
  parts.tm_sec = 0;
  if (!Scan(text, "%H:%M", &parts) && !Scan(text, "%H:%M:%S", &parts)) {
    return false;
  }
  parts.tm_isdst = -1;
  *t = mktime(&parts);
  // Tomorrow by the calendar, not by 24 hours: those differ when the clock is
  // changed.
  if (*t <= now) {
    ++parts.tm_mday;
    parts.tm_isdst = -1;
    *t = mktime(&parts);
  }
  return true;
}

bool ParseDate(std::string text, time_t* t) {
  const bool utc = text.back() == 'Z';
  if (utc) text.pop_back();
  for (const char* format : {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%d %H:%M:%S",
                             "%Y-%m-%dT%H:%M", "%Y-%m-%dT%H:%M:%S"}) {
    tm parts = {};
    if (!Scan(text, format, &parts)) continue;
    parts.tm_isdst = -1;
    const tm given = parts;
    *t = utc ? timegm(&parts) : mktime(&parts);
    // 31 April would become 1 May.
    return parts.tm_mday == given.tm_mday && parts.tm_mon == given.tm_mon;
  }
  return false;
}

}  // namespace

std::string LocalTime(time_t t) {
  tm parts;
  localtime_r(&t, &parts);
  return Print("%Y-%m-%d %H:%M", parts);
}

std::string FullTime(time_t t) {
  tm parts;
  localtime_r(&t, &parts);
  std::string text = Print("%Y-%m-%dT%H:%M:%S%z", parts);
  if (text.size() > 2) text.insert(text.size() - 2, ":");
  return text;
}

std::string UtcTime(time_t t) {
  tm parts;
  gmtime_r(&t, &parts);
  return Print("%Y-%m-%dT%H:%M:%SZ", parts);
}

std::string Span(long long seconds) {
  // A file of another machine may be from the future.
  if (seconds < 0) seconds = 0;
  if (seconds < 60) return std::to_string(seconds) + "s";
  if (seconds < 3600) return std::to_string(seconds / 60) + "m";
  if (seconds < 2 * 86400) return std::to_string(seconds / 3600) + "h";
  return std::to_string(seconds / 86400) + "d";
}

std::string Bytes(unsigned long long bytes) {
  constexpr const char* kUnits[] = {"B", "kB", "MB", "GB", "TB"};
  double value = static_cast<double>(bytes);
  int unit = 0;
  while (value >= 1000 && unit < 4) {
    value /= 1000;
    ++unit;
  }
  char text[32];
  snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", value,
           kUnits[unit]);
  return text;
}

Status ParseTime(const std::string& text, time_t now, time_t* t) {
  long seconds;
  if (text == "now") {
    *t = now;
  } else if (ParseSpan(text, &seconds)) {
    *t = now + seconds;
  } else if (text.empty() ||
             (!ParseClock(text, now, t) && !ParseDate(text, t))) {
    return {krt_usage, "\"" + text +
                           "\" is not a time (now, HH:MM, YYYY-MM-DD HH:MM, "
                           "+2h)"};
  }
  // Objects hold times in 32 bits.
  if (*t <= 0 || *t > INT_MAX) return {krt_bad_data, text + ": out of range"};
  return {};
}

bool ParseNumber(const std::string& text, long lowest, long highest,
                 long* number) {
  if (text.empty() ||
      (isdigit(static_cast<unsigned char>(text[0])) == 0 && text[0] != '-')) {
    return false;
  }
  // strtol skips blanks and takes a "+", which were refused above.
  char* end;
  errno = 0;
  *number = strtol(text.c_str(), &end, 10);
  return errno == 0 && *end == '\0' && *number >= lowest && *number <= highest;
}

bool SplitPair(const std::string& text, std::string* name, std::string* value) {
  const size_t equals = text.find('=');
  if (equals == text.npos || equals == 0) return false;
  *name = text.substr(0, equals);
  *value = text.substr(equals + 1);
  return true;
}

size_t Width(const std::string& text) {
  size_t width = 0;
  for (const char c : text) width += IsContinuation(c) ? 0 : 1;
  return width;
}

std::string Shorten(const std::string& text, size_t width) {
  if (Width(text) <= width) return text;
  std::string cut;
  size_t used = 0;
  for (const char c : text) {
    if (!IsContinuation(c) && ++used >= width) break;
    cut += c;
  }
  return width == 0 ? "" : cut + "\u2026";
}

std::string Printable(const std::string& text, std::string_view keep) {
  std::string shown;
  char escaped[kKutEscapeSize];
  for (size_t at = 0; at < text.size();) {
    const size_t taken = Kut_escape_char(text.c_str() + at, escaped);
    // A NUL, where a C text would end.
    if (taken == 0) {
      shown += "\\x00";
    } else if (keep.find(text[at]) != keep.npos) {
      shown += text[at];
    } else {
      shown += escaped;
    }
    at += taken == 0 ? 1 : taken;
  }
  return shown;
}

std::string Lower(std::string text) {
  for (char& c : text) {
    c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  }
  return text;
}

}  // namespace client
