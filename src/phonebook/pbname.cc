// The full name of a person, as one text.
#include <cstdio>
#include <cstring>
#include <string_view>

#include "phonebook/pbpriv.h"

namespace {

constexpr std::string_view kSpace = " \t\n\v\f\r";

void SkipSpace(std::string_view* text) {
  const size_t next = text->find_first_not_of(kSpace);
  text->remove_prefix(next == text->npos ? text->size() : next);
}

// Takes the first word off `text`, which begins with one or is empty, and the
// white space after it.
std::string_view TakeWord(std::string_view* text) {
  const std::string_view word = text->substr(0, text->find_first_of(kSpace));
  text->remove_prefix(word.size());
  SkipSpace(text);
  return word;
}

// Appends a word to the name in a field's buffer, after a blank.
bool AppendWord(std::string_view word, char (&name)[kFirstName.length]) {
  const size_t length = strlen(name);
  const size_t blank = length > 0 ? 1 : 0;
  if (length + blank + word.size() >= sizeof name) return false;
  if (blank > 0) name[length] = ' ';
  word.copy(name + length + blank, word.size());
  return true;
}

bool SplitName(std::string_view text, char (&first)[kFirstName.length],
               char (&last)[kLastName.length]) {
  SkipSpace(&text);
  std::string_view word = TakeWord(&text);
  if (!text.empty()) {
    if (!AppendWord(word, first)) return false;
    word = TakeWord(&text);
    const bool is_initial = word.find('.') != word.npos;
    if (is_initial && !text.empty()) {
      if (!AppendWord(word, first)) return false;
      word = TakeWord(&text);
    }
  }
  for (; !word.empty(); word = TakeWord(&text)) {
    if (!AppendWord(word, last)) return false;
  }
  return true;
}

}  // namespace

int pb_perrec_to_name(const char* record, char* text, size_t size) {
  const int length = snprintf(text, size, "%.*s %.*s", kFirstName.length,
                              record + kFirstName.offset, kLastName.length,
                              record + kLastName.offset);
  return length >= 0 && static_cast<size_t>(length) < size
             ? 0
             : pb_fail(kx_err_pb_data);
}

int pb_name_to_perrec(const char* text, char* record) {
  char first[kFirstName.length] = {};
  char last[kLastName.length] = {};
  if (text != nullptr && !SplitName(text, first, last)) {
    return pb_fail(kx_err_pb_data);
  }
  memcpy(record + kFirstName.offset, first, sizeof first);
  memcpy(record + kLastName.offset, last, sizeof last);
  return 0;
}
