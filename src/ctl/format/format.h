// Times, numbers and texts for people, and back.
#ifndef CTL_FORMAT_FORMAT_H_
#define CTL_FORMAT_FORMAT_H_

#include <ctime>
#include <string>
#include <string_view>

#include "link/status.h"

namespace client {

// "2026-11-21 08:30", in local time.
std::string LocalTime(time_t t);
// "2026-11-21T08:30:00+01:00", in local time.
std::string FullTime(time_t t);
// "2026-11-21T08:30:00Z".
std::string UtcTime(time_t t);
// "5m", "3h", "2d": the largest unit that fits.
std::string Span(long long seconds);
// "1.5 GB".
std::string Bytes(unsigned long long bytes);

// A time as a person types it, in local time unless it ends in Z: now, HH:MM
// (the next one), YYYY-MM-DD[ HH:MM[:SS]] (also with a T), +N s, m, h or d.
Status ParseTime(const std::string& text, time_t now, time_t* t);
// A whole number within limits and nothing else; false for anything else.
bool ParseNumber(const std::string& text, long lowest, long highest,
                 long* number);
// Splits "NAME=VALUE" at the first "="; false without one, or without a name.
bool SplitPair(const std::string& text, std::string* name, std::string* value);

// How many columns a UTF-8 text takes on a terminal, one a character.
size_t Width(const std::string& text);
// The text cut to so many columns, its last an ellipsis.
std::string Shorten(const std::string& text, size_t width);
// Control characters but those of `keep`, and bytes that are no UTF-8, in
// hexadecimal: what a server or a file says cannot command the terminal.
std::string Printable(const std::string& text, std::string_view keep = {});
std::string Lower(std::string text);

}  // namespace client

#endif  // CTL_FORMAT_FORMAT_H_
