// Text helpers. Letters and white space are ASCII's, whatever the locale; bytes
// above 127 are compared and copied as they are. A null text is an empty one
// when it is read and left alone when it would be changed.
#ifndef UTIL_KUTSTR_H_
#define UTIL_KUTSTR_H_

#include <cstddef>

// Compares without regard to case: the difference of the first two characters
// that differ, lowered, else 0. It ends with the shorter text, so a text equals
// each of its own beginnings, and "" equals everything: good for a choice among
// fixed words, wrong for a test of equality.
int Kut_strccmp(const char* a, const char* b);
// The same over at most `n` characters.
int Kut_strccmpn(const char* a, const char* b, size_t n);

// Copies at most `size` - 1 characters and fills the rest of the `size` bytes
// of `dst` with zeros; a `size` of 0 does nothing. Returns 0.
int Kut_strcpyz(char* dst, const char* src, size_t size);

// Changes the letters in place. Return 0.
int Kut_strupper(char* text);
int Kut_strlower(char* text);

// Removes white space from both ends, in place, moving the text to its start.
// Returns `text`.
char* Kut_strip(char* text);

// Removes one trailing newline, in place. Returns `text`.
char* Kut_strip_nl(char* text);

// Splits `text` in place at white space into at most `n` words and sets
// `fields` to them; further words are left out. The number of words set.
int Kut_awk(char* text, char** fields, int n);

// Writes the character that `text` begins with so that a terminal or a log
// shows it and does not obey it: to `out`, of kKutEscapeSize bytes, with a
// final zero. Each byte of a control character (C0 with newline and tab, DEL,
// C1) and each byte that is no valid UTF-8 becomes "\x1b", in hexadecimal;
// everything else, the backslash too, stays as it is. The number of bytes of
// `text` that it took; 0, with nothing written but the zero, at the end. Safe
// in a signal handler.
constexpr size_t kKutEscapeSize = 16;
size_t Kut_escape_char(const char* text, char* out);

#endif  // UTIL_KUTSTR_H_
