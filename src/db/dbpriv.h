// What the units of this folder share.
#ifndef DB_DBPRIV_H_
#define DB_DBPRIV_H_

#include <memory>

#include "db/db.h"
#include "isam/isam.h"
#include "util/kutmem.h"

constexpr int kSerialSize = 4;  // the serial number in front of a stored record

inline bool db_is_pseudo(const db_field& field) {
  return field.name[0] == '\0';
}
inline bool db_is_end(const db_field& field) {
  return db_is_pseudo(field) && field.to_text == nullptr &&
         field.from_text == nullptr;
}
// All kinds of text are kept alike.
inline bool db_is_text(int type) {
  return type >= kx_typ_str && type <= kx_typ_dir;
}

// Owns what Kut_malloc or Kut_calloc made.
struct db_free {
  void operator()(void* block) const { Kut_free(block); }
};
template <typename T>
using db_block = std::unique_ptr<T, db_free>;

// Set db_errnum, and return -1.
int db_fail(int error);
// For a failure of the store: keeps its code and sets the error number that
// `code` has in the row of pairs given, else kDbStore.
struct db_code_pair {
  int code;
  int error;
};
int db_fail_store(int code, const db_code_pair* pairs, int count);
inline int db_fail_store(int code) { return db_fail_store(code, nullptr, 0); }
template <int N>
int db_fail_store(int code, const db_code_pair (&pairs)[N]) {
  return db_fail_store(code, pairs, N);
}

// Room for a description in the store's form.
struct db_description {
  IFIL file;
  IIDX indexes[kIsamMaxIndexes];
  ISEG segments[kIsamMaxIndexes][kIsamMaxSegments];
};

// Describes a table in the store's form; `name` is its path without extension.
// The result refers to `name` and to itself. kDbData when the tables contradict
// themselves or exceed the store's limits.
int db_ifil_wr(const char* name, const db_field* fields, const db_key* keys,
               db_description* out);
// The stored fields in the store's form, at most kIsamMaxFields. Their number.
int db_flds_to_doda(const db_field* fields, DODA* out);
// The other way round. The caller frees the tables with Kut_free. Null with
// kDbMemory, or kDbData for what no table of this layer can have in it.
db_field* db_doda_to_flds(const DODA* doda, int count, int record_size,
                          const db_field* pseudo);
db_key* db_ifil_to_idx(const IFIL* file, const db_field* fields);

#endif  // DB_DBPRIV_H_
