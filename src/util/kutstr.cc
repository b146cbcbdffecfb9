#include "util/kutstr.h"

#include <cstdint>
#include <cstring>

namespace {

// The C library's own functions ask the locale, and are undefined for negative
// characters.
bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

char Upper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

int Byte(char c) { return static_cast<unsigned char>(c); }

template <typename Change>
int ChangeEach(char* text, Change change) {
  if (text == nullptr) return 0;
  for (char* p = text; *p != '\0'; p++) *p = change(*p);
  return 0;
}

// The length of the valid UTF-8 character at `text`, and the character; 0 when
// there is none. Overlong forms, surrogates and what lies above U+10FFFF are
// none.
size_t Utf8Length(const char* text, uint32_t* character) {
  const auto byte = [text](size_t i) {
    return static_cast<unsigned char>(text[i]);
  };
  const unsigned first = byte(0);
  *character = first;
  if (first < 0x80) return 1;
  if (first < 0xC2 || first > 0xF4) return 0;
  const size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  *character = first & (0x7FU >> length);
  for (size_t i = 1; i < length; i++) {
    if ((byte(i) & 0xC0) != 0x80) return 0;  // the text's end, too
    *character = *character << 6 | (byte(i) & 0x3F);
  }
  const bool surrogate = *character >= 0xD800 && *character <= 0xDFFF;
  const uint32_t least = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
  return surrogate || *character < least || *character > 0x10FFFF ? 0 : length;
}

bool IsControl(uint32_t character) {
  return character < 0x20 || (character >= 0x7F && character <= 0x9F);
}

}  // namespace

int Kut_strccmp(const char* a, const char* b) {
  return Kut_strccmpn(a, b, SIZE_MAX);
}

int Kut_strccmpn(const char* a, const char* b, size_t n) {
  if (a == nullptr || b == nullptr) return 0;
  for (; n > 0 && *a != '\0' && *b != '\0'; a++, b++, n--) {
    const int difference = Byte(Lower(*a)) - Byte(Lower(*b));
    if (difference != 0) return difference;
  }
  return 0;
}

int Kut_strcpyz(char* dst, const char* src, size_t size) {
  if (size == 0) return 0;
  const size_t length = src == nullptr ? 0 : strnlen(src, size - 1);
  if (length > 0) memcpy(dst, src, length);
  memset(dst + length, 0, size - length);
  return 0;
}

int Kut_strupper(char* text) { return ChangeEach(text, Upper); }

int Kut_strlower(char* text) { return ChangeEach(text, Lower); }

char* Kut_strip(char* text) {
  if (text == nullptr) return text;
  const char* first = text;
  while (IsSpace(*first)) first++;
  size_t length = strlen(first);
  while (length > 0 && IsSpace(first[length - 1])) length--;
  memmove(text, first, length);
  text[length] = '\0';
  return text;
}

char* Kut_strip_nl(char* text) {
  if (text == nullptr) return text;
  const size_t length = strlen(text);
  if (length > 0 && text[length - 1] == '\n') text[length - 1] = '\0';
  return text;
}

int Kut_awk(char* text, char** fields, int n) {
  if (text == nullptr) return 0;
  int count = 0;
  char* p = text;
  while (count < n) {
    while (IsSpace(*p)) p++;
    if (*p == '\0') break;
    fields[count++] = p;
    while (*p != '\0' && !IsSpace(*p)) p++;
    if (*p != '\0') *p++ = '\0';
  }
  return count;
}

size_t Kut_escape_char(const char* text, char* out) {
  constexpr char kDigits[] = "0123456789abcdef";
  *out = '\0';
  if (*text == '\0') return 0;
  uint32_t character;
  const size_t length = Utf8Length(text, &character);
  if (length > 0 && !IsControl(character)) {
    memcpy(out, text, length);
    out[length] = '\0';
    return length;
  }
  const size_t taken = length > 0 ? length : 1;
  for (size_t i = 0; i < taken; i++) {
    *out++ = '\\';
    *out++ = 'x';
    *out++ = kDigits[Byte(text[i]) >> 4];
    *out++ = kDigits[Byte(text[i]) & 15];
  }
  *out = '\0';
  return taken;
}
