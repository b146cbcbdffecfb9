// What the units of this folder share: checks, errors, keys and sides.
#ifndef PHONEBOOK_PBPRIV_H_
#define PHONEBOOK_PBPRIV_H_

#include <cstddef>

#include "kx/object.h"
#include "phonebook/pb.h"
#include "phonebook/pbfolder.h"

constexpr int kAliasSize = 16;
constexpr int kKeySize = 128;
constexpr int kRecordSize = 704;  // of a person, the largest

// --- Where fields stand: pbfields.cc makes the tables of these ---

struct pb_place {
  int offset;
  int length;
};
// In persons and groups.
constexpr pb_place kAliasPlace = {0, kAliasSize};
// In a person.
constexpr pb_place kLastName = {16, 32};
constexpr pb_place kFirstName = {48, 32};
constexpr int kFaxNumber = 208;
constexpr int kVoiceNumber = 258;
constexpr int kPagerNumber = 308;
constexpr int kCellNumber = 358;
// In each phone number, from its first byte.
enum pb_number_part { kCountry, kArea, kLocal, kExtension, kNumberParts };
constexpr pb_place kNumberPlaces[kNumberParts] = {
    {0, 6}, {6, 6}, {12, 32}, {44, 6}};
constexpr int kNumberSize = 50;
// In a membership.
constexpr pb_place kMemberGroup = {0, kAliasSize};
constexpr pb_place kMemberPerson = {16, kAliasSize};

// --- Key numbers ---

constexpr int kSerialOrder = 0;
constexpr int kAliasKey = 1;           // of persons and groups
constexpr int kMemberByGroupKey = 1;   // group, person
constexpr int kMemberByPersonKey = 2;  // person, group

// Any record of the three tables.
struct pb_record {
  char bytes[kRecordSize];
};

// A search key: upper case, filled with zeros.
struct pb_key {
  char bytes[kKeySize];
};

// What is said of persons and of groups in the same words.
struct pb_side {
  db_handle* pb_book::*file;
  const db_field* fields;  // the first is the alias, at offset 0
  const char* type;        // of its objects
  int absent;              // error number when there is none of that alias
  int member_key;          // key of the memberships that begins with its alias
  int member_offset;       // of its alias in a membership
};
extern const pb_side pb_person_side;
extern const pb_side pb_group_side;

// --- pberr.cc ---

// Sets pb_errno, and returns -1.
int pb_fail(int code);
// The same for a failure of the database; `absent` is the number for a record
// that was not found.
int pb_fail_db(int absent);
inline int pb_succeed() { return pb_errno = 0; }

// --- pbopen.cc ---

// The open book of a kind for one operation, which is done as the book's owner
// and within its budget. Null with kx_err_pb_data, kx_err_not_open, for writing
// with kx_err_read_only, or with kx_err_pb_system when its owner's identity
// cannot be had.
class pb_use {
 public:
  explicit pb_use(int kind, int mode = kx_pbm_read);
  operator pb_book*() const { return visit_.held() ? book_ : nullptr; }
  pb_book* operator->() const { return book_; }

 private:
  pb_folder none_;
  pb_book* const book_;
  const pb_visit visit_;
};

// --- pbrec.cc ---

// Keeps other processes' changes of a table away while it lives, so that what
// was read is still so when it is changed. One at a time.
class pb_lock {
 public:
  explicit pb_lock(db_handle* db) : held_(db_lock(db) == 0) {}
  pb_lock(const pb_lock&) = delete;
  pb_lock& operator=(const pb_lock&) = delete;
  ~pb_lock() { db_unlock(); }
  bool held() const { return held_; }  // if not, db_errnum says why

 private:
  const bool held_;
};

// Keys. Null is the empty text.
pb_key pb_text_key(const char* text);
pb_key pb_alias_key(const char* alias);
pb_key pb_member_key(const char* first, const char* second);

inline bool pb_is_empty(const char* text) {
  return text == nullptr || *text == '\0';
}

// Copies a padded field of a record, terminated; upper-cased for pb_put_upper.
// `out` has `length` + 1 bytes.
void pb_put_field(const char* field, int length, char* out);
void pb_put_upper(const char* field, int length, char* out);

// The changes of one side; `obj` may be anything.
int pb_rec_add(pb_book* book, const pb_side& side, kx_object* obj);
int pb_rec_upd(pb_book* book, const pb_side& side, kx_object* obj);
int pb_rec_del(pb_book* book, const pb_side& side, const char* alias);

// Whether the person is a member of the group with that key.
enum class pb_member { kNo, kYes, kFailed };
pb_member pb_is_member(pb_book* book, const pb_key& group,
                       const pb_record& person);

#endif  // PHONEBOOK_PBPRIV_H_
