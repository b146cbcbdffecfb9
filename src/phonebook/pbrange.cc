#include "phonebook/pbrange.h"

#include <cstring>

pb_range::pb_range(int order, const char* from, const char* to)
    : from_(pb_text_key(from)), to_(pb_text_key(to)) {
  if (order <= kSerialOrder) return;
  const db_field& field = pb_per_fields[pb_per_index[order - 1].fields[0]];
  offset_ = field.offset;
  length_ = field.length;
}

bool pb_range::IsReversed() const {
  return has_from() && has_to() && strcmp(from_.bytes, to_.bytes) > 0;
}

bool pb_range::IsBelow(const pb_record& person) const {
  return has_from() && Compare(person, from_) < 0;
}

bool pb_range::IsBeyond(const pb_record& person) const {
  return has_to() && Compare(person, to_) >= 0;
}

int pb_range::Compare(const pb_record& person, const pb_key& bound) const {
  char text[kKeySize];
  pb_put_upper(person.bytes + offset_, length_, text);
  return strcmp(text, bound.bytes);
}
