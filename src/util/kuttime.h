// Time values as text, always in UTC, and the clock that waits go by.
//
// - A time is in seconds since 1970-01-01 00:00:00 UTC. No value of a `long`
//   and no text leads to undefined behaviour.
#ifndef UTIL_KUTTIME_H_
#define UTIL_KUTTIME_H_

// `t` as "YYYY/MM/DD hh:mm:ss" when `long_form` is not 0, else as
// "YYYYMMDDhhmmss"; "now" for 0; null below 0 and for a year that the C library
// cannot express. The text is in this function's own static buffer.
const char* Kut_time_2_str(long t, int long_form);

// Reads a time, more leniently than it is written: all but the digits is
// dropped, and these stand for hhmmss (6, today), MMDDhhmmss (10, this year),
// YYMMDDhhmmss (12, a year of the 1900s) or YYYYMMDDhhmmss (14), after a "0" is
// put in front of an odd number of digits. A trailing "pm", in any case, adds
// 12 to an hour below 12; "am" changes nothing. "now" is 0. -1 for null, an
// empty text, 79 characters or more, another number of digits, or a minute,
// hour, month or day out of range. Seconds, month 0 and day 0 are not checked:
// they count on from the neighbouring minute, month or day. Dates before 1970
// give negative values, most of them a day late.
long Kut_str_2_time(const char* text);

// The monotonic clock, which counts from some moment in the past and which
// setting the time does not move, in milliseconds and microseconds. Cannot
// fail; safe in a signal handler.
long Kut_now_ms();
long Kut_now_us();
// The same for what asks at every step: cheaper, and some milliseconds behind.
long Kut_coarse_ms();

#endif  // UTIL_KUTTIME_H_
