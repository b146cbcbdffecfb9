// The four phone numbers of a person, each as one text.
#include <cstdio>
#include <cstring>
#include <string_view>

#include "phonebook/pbpriv.h"

namespace {

constexpr std::string_view kDividers = "- \t\n\v\f\r./()";
constexpr std::string_view kExtensionMarks = "xX#*";

struct Number {
  char bytes[kNumberSize];
};

bool Append(std::string_view text, int part, Number* number) {
  char* place = number->bytes + kNumberPlaces[part].offset;
  const size_t length = strlen(place);
  if (length + text.size() >= static_cast<size_t>(kNumberPlaces[part].length)) {
    return false;
  }
  text.copy(place + length, text.size());
  return true;
}

// Takes the first part off a text, and the dividers around it; empty at the
// end.
std::string_view TakePart(std::string_view* text) {
  const size_t begin = text->find_first_not_of(kDividers);
  if (begin == text->npos) return {};
  text->remove_prefix(begin);
  const std::string_view part = text->substr(0, text->find_first_of(kDividers));
  text->remove_prefix(part.size());
  return part;
}

bool HasPart(std::string_view text) { return !TakePart(&text).empty(); }

bool str_to_phone(std::string_view text, Number* number) {
  const size_t mark = text.find_first_of(kExtensionMarks);
  if (mark != text.npos) {
    std::string_view extension = text.substr(mark + 1);
    if (!Append(TakePart(&extension), kExtension, number)) return false;
    text = text.substr(0, mark);
  }
  int count = 0;
  for (std::string_view rest = text; HasPart(rest); ++count) TakePart(&rest);
  // The last part is local, so fewer than three leave out the country first.
  int part = count < 3 ? kNumberParts - 1 - count : kCountry;
  for (; part < kLocal; ++part) {
    if (!Append(TakePart(&text), part, number)) return false;
  }
  if (!Append(TakePart(&text), kLocal, number)) return false;
  while (HasPart(text)) {
    if (!Append("-", kLocal, number)) return false;
    if (!Append(TakePart(&text), kLocal, number)) return false;
  }
  return true;
}

int phone_to_str(const char* number, char* text, size_t size) {
  size_t used = 0;
  if (size > 0) text[0] = '\0';
  for (int part = kCountry; part < kNumberParts; ++part) {
    const char* place = number + kNumberPlaces[part].offset;
    if (*place == '\0') continue;
    const char* divider = part == kExtension ? " x" : used > 0 ? "-" : "";
    const int length = snprintf(text + used, size - used, "%s%.*s", divider,
                                kNumberPlaces[part].length, place);
    if (length < 0 || static_cast<size_t>(length) >= size - used) {
      return pb_fail(kx_err_pb_data);
    }
    used += static_cast<size_t>(length);
  }
  return 0;
}

int PutNumber(const char* text, char* place) {
  Number number = {};
  if (text != nullptr && !str_to_phone(text, &number)) {
    return pb_fail(kx_err_pb_data);
  }
  memcpy(place, number.bytes, sizeof number.bytes);
  return 0;
}

}  // namespace

int pb_perrec_to_fax(const char* record, char* text, size_t size) {
  return phone_to_str(record + kFaxNumber, text, size);
}
int pb_fax_to_perrec(const char* text, char* record) {
  return PutNumber(text, record + kFaxNumber);
}

int pb_perrec_to_voice(const char* record, char* text, size_t size) {
  return phone_to_str(record + kVoiceNumber, text, size);
}
int pb_voice_to_perrec(const char* text, char* record) {
  return PutNumber(text, record + kVoiceNumber);
}

int pb_perrec_to_pager(const char* record, char* text, size_t size) {
  return phone_to_str(record + kPagerNumber, text, size);
}
int pb_pager_to_perrec(const char* text, char* record) {
  return PutNumber(text, record + kPagerNumber);
}

int pb_perrec_to_cell(const char* record, char* text, size_t size) {
  return phone_to_str(record + kCellNumber, text, size);
}
int pb_cell_to_perrec(const char* text, char* record) {
  return PutNumber(text, record + kCellNumber);
}
