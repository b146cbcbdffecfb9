// The record database: fixed-length records of named fields with several keys,
// one table a file pair (.dat and .idx), over the indexed store.
//
// - A table knows its own layout: the field and key descriptions that it was
//   created with are kept in it and read back by db_open.
// - Results: 0 or a value; -1 or null on failure, with the reason in db_errnum
//   and, where the store failed, its code in db_ct_errno. A success does not
//   touch either. A handle stays usable after a failure, but for db_close.
// - Records are the caller's, db_record_size() bytes long: the fields at their
//   offsets. The serial number that the store keeps in front of each record
//   does not appear in them.
// - Text fields are padded with NUL to their length and hold at least one.
//   Numbers are 4 bytes, least significant first, -1 when not set.
// - Each change is atomic and durable when it returns 0. A handle must not be
//   carried into a forked child.
#ifndef DB_DB_H_
#define DB_DB_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "kx/kfx.h"

// --- Errors -----------------------------------------------------------------

enum db_error : int {
  kDbOk = 0,
  kDbStore = 1,  // the store failed: see db_ct_errno
  kDbMemory = 2,
  kDbData = 3,   // bad argument, or a value that its field does not hold
  kDbField = 4,  // a field was refused: see db_errbuf
  kDbAbsent = 5,
  kDbExists = 6,
  kDbNotFound = 7,  // no such record, or no current one
  kDbReadOnly = 8,
  kDbDuplicate = 9,
  kDbEof = 10,
  kDbLocked = 11,
  kDbForbidden = 12,  // of db_check and db_repair: no right to look; no text
};

extern int db_errnum;
extern int db_ct_errno;
extern char db_errbuf[256];

// db_errnum.
int db_errno();
// The text for db_errnum: for kDbStore the store's own, for kDbField what
// db_errbuf holds.
const char* db_errmsg();
// The store's text for one of its codes (-1: db_ct_errno); for a code without a
// text one that tells the number (static buffer).
const char* db_ct_errmsg(int code);

// --- Descriptions -----------------------------------------------------------

// Writes the text of a record, NUL-terminated, to `text` of `size` bytes. 0, or
// -1 when it does not fit.
using db_to_text = int (*)(const char* record, char* text, size_t size);
// Puts a text (null: none) into a record. 0, or -1 and the record unchanged.
using db_from_text = int (*)(const char* text, char* record);

// One field; a table ends with a row that has neither name nor converters. A
// row without a name is a pseudo field: nothing is stored for it, an object's
// field of the name `abbr` is made from and put into the stored ones by the
// converters. Stored fields need no converters.
struct db_field {
  char name[16];
  char abbr[16];  // for field lists; kept in the table
  char desc[64];  // for help; not kept
  int type;       // kx_typ_str and so on: a text, a 4-byte number, kx_typ_data
  int length;     // bytes
  int offset;     // in the record
  db_to_text to_text;
  db_from_text from_text;
};

constexpr int kDbKeyFields = 8;  // of one key, at most

// One key; a table ends with a row whose `unique` is -1.
struct db_key {
  int unique;  // 0: records may share a value
  int count;
  int fields[kDbKeyFields];  // row numbers of the field table
};

struct db_handle {
  char path[256];     // of the data file
  int16_t datno;      // the store's number for it
  uint32_t current;   // serial number of the current record; 0: none
  int record_length;  // the store's, serial number included
  int key_count;
  int mode;          // kx_pbm_read or kx_pbm_write
  db_field* fields;  // read back from the file, pseudo fields at the end
  db_key* keys;
  unsigned char* buffer;  // one record as the store has it
};

// --- Start, create, open ----------------------------------------------------

// Counts a user of the store in and out; the first starts it, the last stops
// it. db_create and db_open do this themselves.
int db_init();
int db_end();

constexpr unsigned kDbFileMode = 0660;

// From now on paths that do not begin with "/" lead from the open directory
// `dirfd`, which stays the caller's; AT_FDCWD at first. New tables have files
// of the mode given, whatever the umask.
void db_set_folder(int dirfd, unsigned file_mode = kDbFileMode);

// What may be spent on tables whose owner cannot be relied on.
struct db_budget {
  int wait_ms = -1;  // waits for locks, all together; -1: each up to 5 seconds
  int time_ms = -1;  // everything, from now on; -1: without end. Afterwards
                     // opening, reading and changing fail with kDbStore
};
// Puts a budget in force for whatever this process does from now on, and gives
// back what is left of the one before.
db_budget db_swap_budget(const db_budget& next);

// Makes an empty table, on disk when this returns. An extension of `path` is
// replaced. kDbExists.
int db_create(const char* path, const db_field* fields, const db_key* keys);
// Removes both files; goes on to the second when the first cannot be removed.
int db_delete(const char* path);

// Opens a table for reading (kx_pbm_read; writes nothing to it, ever) or for
// reading and change (kx_pbm_write). `pseudo` may be null; its rows are copied.
// The handle has no current record. Null: kDbAbsent, kDbData, ...
db_handle* db_open(const char* path, int mode, const db_field* pseudo);
// Closes the table and frees the handle, also when -1 is returned.
int db_close(db_handle* db);

// Reads the descriptions of the store's open file `datno`. The caller frees
// both tables with Kut_free; on failure there are none.
int db_info(int datno, db_field** fields, db_key** keys,
            const db_field* pseudo);

// Whether the table has exactly these stored fields and keys, and nothing else
// in its records: a caller that counts on its own layout asks after db_open,
// since the file may be anybody's. 0, or -1 with kDbData. Pseudo rows end
// `fields`; `unique` is 0 or 1.
int db_same_layout(const db_handle* db, const db_field* fields,
                   const db_key* keys);

// The number of records, or -1.
int64_t db_count(db_handle* db);
// Bytes of a record.
int db_record_size(const db_handle* db);

// --- Reading ----------------------------------------------------------------

// Moves to a record. `key` is 0 for the order of the serial numbers, else the
// number of a key, counted from 1. `step`:
//   kx_pbc_next, kx_pbc_prev     neighbour of the record read last on this
//                                handle; the first or last when `current` is 0
//   kx_pbc_first, kx_pbc_last
//   kx_pbc_equal, kx_pbc_gteq    the first record whose key is, or is not less
//                                than, `text`: the key's fields in order, each
//                                padded with NUL to its length, all of them
//   kx_pbc_alias                 the record of serial number `current`,
//                                whatever `key` says
// kDbEof from the four moving steps, kDbNotFound from the others; `current` is
// then unchanged.
int db_pos(db_handle* db, int key, int step, const void* text);
// The same, and copies the record.
int db_get(db_handle* db, int key, int step, const void* text, void* record);
// The same, into the fields of an object.
int db_get_obj(db_handle* db, int key, kx_object* obj, int step,
               const void* text);

// --- Changes ----------------------------------------------------------------
// kDbReadOnly, kDbDuplicate, kDbNotFound (the current record was deleted, or
// there is none), kDbLocked (another process kept the table for all the time
// that the budget has for that).

// Adds a record, which becomes the current one.
int db_add(db_handle* db, const void* record);
int db_add_obj(db_handle* db, kx_object* obj);
// Replaces the record that was read last.
int db_upd(db_handle* db, const void* record);
int db_upd_obj(db_handle* db, kx_object* obj);
// Deletes the record that was read last. `current` keeps its number, which
// finds nothing from then on.
int db_del(db_handle* db);

// Keeps every other process from changing the table until the next change on
// this handle, or db_unlock: for a change that depends on what was read. Hold
// one table at a time. kDbReadOnly, kDbLocked.
int db_lock(db_handle* db);
void db_unlock();

// --- Check and repair -------------------------------------------------------
// `path` is that of the data file, with its extension.

// Receives one line without a newline for each thing found.
using db_report = void (*)(void* context, const char* line);

// Compares the table's keys with its records. Writes nothing; the table may be
// in use. kDbForbidden; kDbStore when it is damaged, after at least one report,
// or when it could not be looked at. `report` may be null.
int db_check(const char* path, db_report report, void* context);
// Makes the keys again from the records, while no other process changes the
// table. Tells each record that cannot be kept, "... left out". A failure
// leaves a table that must be repaired again.
int db_repair(const char* path, db_report report, void* context);

// --- Records and objects ----------------------------------------------------

// Fills a record from the object's fields of the same names; fields that the
// object lacks are empty. kDbData for a text that is too long, kDbField for one
// that a converter refuses.
int db_obj_to_rec(const db_handle* db, kx_object* obj, void* record);
// Sets the object's fields of the same names.
int db_rec_to_obj(const db_handle* db, const void* record, kx_object* obj);

// --- Field lists ------------------------------------------------------------

struct db_dtype {
  const char* name;
  int type;
};
// How types are called where fields are shown; ended by a null name.
extern const db_dtype db_dtypes[];

// One field as "name (abbr) type[length] description"; static buffer.
const char* db_field_str(const db_field* field);
// Whether every word of `list`, divided by commas and blanks, is a field's name
// or abbreviation. 0, or -1 with kDbField and the first wrong word in
// db_errbuf.
int db_valid_flds(const db_field* fields, const char* list);
// Writes one line a field.
void db_help_flds(const db_field* fields, FILE* out);

#endif  // DB_DB_H_
