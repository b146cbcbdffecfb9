// Reading records one after the other: the step table, written once.
//
// - A walk does not own its book. The cursor is the table's current record, so
//   it goes on from walk to walk and, as a number, from command to command.
// - Every function sets pb_errno; 0 or -1.
#ifndef PHONEBOOK_PBWALK_H_
#define PHONEBOOK_PBWALK_H_

#include "phonebook/pbpriv.h"

class pb_walk {
 public:
  pb_walk() = default;
  pb_walk(const pb_walk&) = delete;
  pb_walk& operator=(const pb_walk&) = delete;
  virtual ~pb_walk() = default;

  // Reads the record of a step. kx_err_pb_data for a step that is none.
  virtual int Step(int step, const pb_key& key) = 0;
  // Reads the one after the last read, in the direction of the step that began
  // the walk.
  virtual int MoveOn(int step) = 0;
  // The error number for a record that is not there.
  virtual int absent() const = 0;

  const pb_record& record() const { return record_; }
  // Puts the record read last into an object. kx_err_database when it does not
  // fit.
  int GetObject(kx_object* obj) const;
  // Step and GetObject. kx_err_pb_data for an object that is null or of another
  // type.
  int ReadObject(const char* type, kx_object* obj, int step, const pb_key& key);

 protected:
  // The table that record_ is of.
  virtual const db_handle* table() const = 0;

  pb_record record_;
};

// The records of one table, in the order of one of its keys.
class pb_table_walk : public pb_walk {
 public:
  // `order` is a key number, or -1 when only a look-up by alias is possible.
  pb_table_walk(db_handle* db, int order, int absent)
      : db_(db), order_(order), absent_(absent) {}
  int Step(int step, const pb_key& key) override;
  int MoveOn(int step) override;
  int absent() const override { return absent_; }

 protected:
  const db_handle* table() const override { return db_; }

 private:
  int Read(int order, int step, const char* key = nullptr);

  db_handle* const db_;
  const int order_;
  const int absent_;
};

// The persons of one group, or the groups of one person. The cursor is that of
// the memberships, and stays among those of the group or person.
class pb_side_walk : public pb_walk {
 public:
  // Walks the `to` side of the memberships whose `from` side is `alias`.
  pb_side_walk(pb_book* book, const pb_side& from, const pb_side& to,
               const char* alias)
      : book_(book), from_(from), to_(to), alias_(pb_alias_key(alias)) {}
  int Step(int step, const pb_key& key) override;
  int MoveOn(int step) override;
  int absent() const override { return to_.absent; }

 protected:
  const db_handle* table() const override { return book_->*to_.file; }

 private:
  int Read(int step, const char* key = nullptr);
  int ReadLast();
  bool IsInside() const;
  int SkipVanished(int direction);

  pb_book* const book_;
  const pb_side& from_;
  const pb_side& to_;
  const pb_key alias_;
  pb_record member_;
};

// Whether a step goes back, and the moving step of its direction.
inline bool pb_is_backward(int step) {
  return step == kx_pbc_prev || step == kx_pbc_last;
}
inline int pb_direction(int step) {
  return pb_is_backward(step) ? kx_pbc_prev : kx_pbc_next;
}

// The key number of an order of persons, -1 when none is given. Failure: false
// with kx_err_pb_data.
bool pb_get_order(int sort, int* order);

#endif  // PHONEBOOK_PBWALK_H_
