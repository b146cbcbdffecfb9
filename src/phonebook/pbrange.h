// Ranges of persons: from a text on up to, and without, another, by the field
// that an order sorts by.
#ifndef PHONEBOOK_PBRANGE_H_
#define PHONEBOOK_PBRANGE_H_

#include "phonebook/pbpriv.h"

class pb_range {
 public:
  // `order` is a key number of persons; unsorted, every field counts as empty.
  // Null and empty bounds are none.
  pb_range(int order, const char* from, const char* to);

  bool has_from() const { return from_.bytes[0] != '\0'; }
  bool has_to() const { return to_.bytes[0] != '\0'; }
  const pb_key& from() const { return from_; }
  // Whether no text at all is in the range.
  bool IsReversed() const;
  // Whether the persons not less than `from` can be sought by the order's key.
  bool CanSeek() const { return has_from() && length_ > 0; }
  bool IsBelow(const pb_record& person) const;
  bool IsBeyond(const pb_record& person) const;

 private:
  int Compare(const pb_record& person, const pb_key& bound) const;

  int offset_ = 0;
  int length_ = 0;  // of the field, 0 for none
  pb_key from_;
  pb_key to_;
};

#endif  // PHONEBOOK_PBRANGE_H_
