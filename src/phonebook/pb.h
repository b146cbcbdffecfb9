// The phone book: persons, groups of persons, and the memberships between them.
//
// - There are three books, named by their kind: kx_pbt_lcl, kx_pbt_usr,
//   kx_pbt_sys. Each is three tables of the record database, pbper, pbgrp and
//   pbmem, in one directory.
// - Results: 0, a count or an object; -1 or null on failure. Every function
//   sets pb_errno, to 0 on success, so a null list with 0 is the empty list.
// - Needs: all but pb_setup, pb_create and pb_delete want the book to be open
//   (kx_err_not_open), those that change something want it open for writing
//   (kx_err_read_only), and a kind that is unknown or not set up is
//   kx_err_pb_data. A failure of the database is kx_err_database unless said
//   otherwise.
// - Keys are looked up without regard to case. Aliases and groups are cut to 15
//   characters first; the key of a step is taken as it is. A null key, group or
//   bound is the empty text, which stands for none.
// - Objects and lists that are returned belong to the caller.
// - A change is on disk when it returns 0, and found by every later call of any
//   process. Each of several changes that belong together (a person and its
//   memberships) is made for itself: dying in between leaves the rest.
// - A process that is root works on a book as the owner of the queue directory,
//   or of the root directory. A command waits no longer for the locks of a book
//   that is its user's own, and takes no longer, than cm/cmlimits.def says
//   (kx_err_database).
// - The books of a process are static: set up and opened after a fork.
#ifndef PHONEBOOK_PB_H_
#define PHONEBOOK_PB_H_

#include "db/db.h"
#include "kx/kfx.h"

// An open or closed book.
struct pb_book {
  int kind;
  int mode = 0;   // kx_pbm_read or kx_pbm_write; 0: never opened
  int sort = -1;  // key number of the order of persons, 0 to 4; -1: none
  int open = 0;   // 1 while the three tables are
  char per_path[256] = "";  // without extension; empty: not set up
  char grp_path[256] = "";
  char mem_path[256] = "";
  db_handle* per = nullptr;  // null while closed
  db_handle* grp = nullptr;
  db_handle* mem = nullptr;
};

extern pb_book pb_lcl;
extern pb_book pb_usr;
extern pb_book pb_sys;

extern const char* const pb_per_name;  // "pbper"
extern const char* const pb_grp_name;  // "pbgrp"
extern const char* const pb_mem_name;  // "pbmem"

// What is stored, see db/db.h.
extern const db_field pb_per_fields[];
extern const db_field pb_per_fields_pseudo[];
extern const db_field pb_grp_fields[];
extern const db_field pb_mem_fields[];
extern const db_key pb_per_index[];
extern const db_key pb_grp_index[];
extern const db_key pb_mem_index[];

// --- Errors -----------------------------------------------------------------

// Number of the last error, from the object library's number space:
// kx_err_database to kx_err_pb_system are the phone book's own.
extern int pb_errno;
// The text for an error number. kx_err_database: the database's own;
// kx_err_pb_system: the system's for errno; a number without a text: "Error # "
// and the number less kx_err_database.
const char* pb_errmsg(int code);

// --- Books ------------------------------------------------------------------

// Says where the books lie: the local book in `local`, the system's in `base`,
// the user's in the user's options directory below `base`. A null directory
// leaves its books as they are; a path that is too long, or a user whose name
// is none, leaves the book not set up. 0.
int pb_setup(const char* user, const char* base, const char* local);
// The book of a kind that is set up, or null with kx_err_pb_data.
pb_book* pb_get_pb(int kind);
// Makes a book ready to be opened. kx_err_pb_data for an unknown mode.
int pb_init(pb_book* book, int mode);

// Opens a book. One that is open stays as it is, its mode too. kx_err_no_book
// when it was never created; so counts a user's options directory that is a
// link, which may lead to the book of another.
int pb_open(int kind, int mode);
// Closes it if it is open.
int pb_close(int kind);
// Makes the book, and the directory that it lies in with all above it
// (kx_err_pb_system, also for a link as above). What exists already is left as
// it is. New files have mode 0660, and belong to the owner of the queue
// directory, or of the root directory for the system's book (where that is
// root, to the fax system). Where the group would be that of the owner's login
// and not the fax system's, it gets no access.
int pb_create(int kind);
// Removes the book, which must not be open. Removes as many of its files as it
// can; kx_err_database if one could not be, and for an open book.
int pb_delete(int kind);

// --- Check and repair -------------------------------------------------------
// Of a book that is set up, open or not, table by table: pb_per_name and so on.
// They wait half a second for a lock, as whoever can open a book can hold its
// locks for ever, but take all the time that the book's size needs.

// Compares a table's indexes with its records. kx_err_no_book when there is
// none. kx_err_database when the table is damaged, after at least one `report`,
// or pb_errmsg says why it could not be looked at; kx_err_pb_system when that
// is for want of permission (errno).
int pb_check(int kind, const char* table, db_report report, void* context);
// Makes the indexes again from the records, and reports those that cannot be
// kept. kx_err_database when it could not be done, kx_err_pb_system as above.
int pb_repair(int kind, const char* table, db_report report, void* context);

// --- Persons ----------------------------------------------------------------

// The key number of an order of persons (kx_pbs_unsorted and so on): 0 is the
// order in which they were added. -1 with kx_err_pb_data.
int pb_cvt_sort(int sort);

// Adds an "obj-person". Without "palias" it gets the present time in seconds
// as its alias, in the object too. kx_err_duplicate, kx_err_pb_data.
int pb_per_add(int kind, kx_object* person);
// Changes the person of that alias: fields that are set replace the stored
// ones, the others stay; the alias stays as it was spelled. kx_err_person,
// kx_err_pb_data.
int pb_per_upd(int kind, kx_object* person);
// Deletes the person, and its memberships from the first one on as long as
// they spell the alias exactly as `alias` does. kx_err_person.
int pb_per_del(int kind, const char* alias);
// The step between kx_pbc_last and kx_pbc_alias, which has no name of its own.
constexpr int pb_step_current = 129;

// Reads a person into `person`. `step` in the order `sort`:
//   kx_pbc_alias                the person of alias `key`; needs no order
//   kx_pbc_equal, kx_pbc_gteq   the first whose sort key is, or is not less
//                               than, `key`
//   kx_pbc_first, kx_pbc_last
//   kx_pbc_next, kx_pbc_prev    from the current person; without one, the
//                               first or last
//   pb_step_current             the current person again; without one, the
//                               first
// kx_err_person: no such person, or the current one was deleted. kx_err_eof:
// past either end. kx_err_pb_data.
int pb_per_get(int kind, int sort, kx_object* person, int step,
               const char* key);
// Moves the current person by `count` persons, the first of them reached by
// `step` (kx_pbc_next to pb_step_current), the others in the same direction;
// with a group, only its members count. A `count` below 1 moves nothing. As
// pb_per_get.
int pb_per_pos(int kind, int sort, int step, int count, const char* group);

// --- Groups -----------------------------------------------------------------

// As their counterparts for persons, by "galias", with kx_err_group for
// kx_err_person. The order is that of the aliases. pb_grp_add without "galias":
// kx_err_pb_data.
int pb_grp_add(int kind, kx_object* group);
int pb_grp_upd(int kind, kx_object* group);
int pb_grp_del(int kind, const char* alias);
int pb_grp_get(int kind, kx_object* group, int step, const char* key);

// --- Memberships ------------------------------------------------------------

// Adds an "obj-member". kx_err_pb_data without both aliases, kx_err_person or
// kx_err_group when there is no such one, kx_err_duplicate.
int pb_mem_add(int kind, kx_object* member);
// Deletes it. kx_err_pb_data, kx_err_person when there is none.
int pb_mem_del(int kind, kx_object* member);
// Reads a membership by step, in the order of group and person. The keyed steps
// look for the empty key. kx_err_member, kx_err_eof, kx_err_pb_data.
int pb_mem_get(int kind, kx_object* member, int step);
// Read the person of a membership of group `key`, or the group of one of person
// `key`. The steps stay among these memberships: the first and the last are
// the group's, next after the last is kx_err_eof, and the keyed steps mean the
// first. A current membership of another group or person counts as none.
// Memberships whose other side was deleted are skipped.
int pb_mem_get_by_grp(int kind, kx_object* person, int step, const char* key);
int pb_mem_get_by_per(int kind, kx_object* group, int step, const char* key);

// --- Counts -----------------------------------------------------------------

// The number of persons. With a group and no bounds: of its memberships, as
// far as they spell its alias exactly as `group` does; kx_err_pb_data when no
// membership comes at or after it. With bounds: of the persons (with a group,
// its members) whose field of the order `sort` is not less than `from` and less
// than `to`.
int pb_count_persons(int kind, int sort, const char* group, const char* from,
                     const char* to);
// The number of groups; with a person, of its memberships, as above.
int pb_count_groups(int kind, const char* person);

// --- Lists ------------------------------------------------------------------
// `max` below 1 is no limit. The first entry is reached by `step` and `key`,
// the others in the same direction: descending after kx_pbc_prev and
// kx_pbc_last. An end that is reached is no error. The cursor stays at the last
// entry, so kx_pbc_next goes on from there. kx_err_pb_memory: there was no
// memory for an entry; the entries before it are returned.

// With a group, of its members only.
kx_object* pb_list_per_get(int kind, int sort, int step, const char* key,
                           int max, const char* group);
kx_object* pb_list_grp_get(int kind, int step, const char* key, int max);
// Persons of a group, groups of a person, as pb_mem_get_by_grp and
// pb_mem_get_by_per read them.
kx_object* pb_list_mem_get_by_grp(int kind, int step, const char* key, int max);
kx_object* pb_list_mem_get_by_per(int kind, int step, const char* key, int max);
// Persons (with a group, its members) from the first not less than `from` up to
// the first not less than `to`, in the order `sort`, the first `offset` of them
// left out. Skipped persons are not compared with `to`. The cursor moves past
// the last entry. kx_err_pb_data for a negative offset.
kx_object* pb_list_per_pos_get(int kind, int sort, const char* from,
                               const char* to, const char* group, int offset,
                               int max);

// --- The command ------------------------------------------------------------

// Carries out the command in an "obj-pbcom" on the books of a client, and puts
// the book's state and the result into it. The book is closed again in every
// case. On failure the object stays as it was, but for an alias that pb_per_add
// made.
int do_pbcmd(const char* clientid, kx_object* pbcom);

// Takes over the book's kind, mode and order and, if it is open, its cursors,
// as far as the object has them. 0, or -1 with kx_err_data in kx_errno when
// that book is not set up.
int px_pb_fr_pbcom(kx_object* pbcom);
// Puts the same into the object. 0, or -1 as above.
int px_pb_to_pbcom(int kind, kx_object* pbcom);
// The error number to tell a client that wants the database's own words:
// kx_err_database becomes kx_err_server, with the words in kx_servmsg. Any
// other code is returned.
int px_check_errno(int code);

// --- Names and numbers ------------------------------------------------------
// Between the stored fields of a person and one text; the converters of
// pb_per_fields_pseudo, see db/db.h. A part that is too long for its field is
// kx_err_pb_data.

// "First Last". Into a record: of two words or more the first is the first
// name, together with the second if that has a "." and a third follows; a
// single word is the last name.
int pb_perrec_to_name(const char* record, char* text, size_t size);
int pb_name_to_perrec(const char* text, char* record);

// "country-area-local xextension", without the parts that are empty. Into a
// record: parts are divided at "-", blanks, ".", "/", "(" and ")"; one is the
// local number, two are area and local, with three the country comes first, and
// what follows belongs to the local number. The extension begins at the first
// of "xX#*".
int pb_perrec_to_fax(const char* record, char* text, size_t size);
int pb_fax_to_perrec(const char* text, char* record);
int pb_perrec_to_voice(const char* record, char* text, size_t size);
int pb_voice_to_perrec(const char* text, char* record);
int pb_perrec_to_pager(const char* record, char* text, size_t size);
int pb_pager_to_perrec(const char* text, char* record);
int pb_perrec_to_cell(const char* record, char* text, size_t size);
int pb_cell_to_perrec(const char* text, char* record);

#endif  // PHONEBOOK_PB_H_
