#include <cstring>

#include "phonebook/pbrange.h"
#include "phonebook/pbwalk.h"

namespace {

int CountAll(db_handle* db) {
  const int64_t count = db_count(db);
  if (count < 0) return pb_fail(kx_err_database);
  pb_errno = kx_err_none;
  return static_cast<int>(count);
}

// The memberships of one side from the first one on, as long as they spell the
// alias as the caller does.
int CountMemberships(pb_book* book, const pb_side& side, const char* alias) {
  const pb_key key = pb_alias_key(alias);
  pb_record member;
  char spelled[kAliasSize + 1];
  // A book in which no membership can come after is not told from a failure.
  if (db_get(book->mem, side.member_key, kx_pbc_gteq, key.bytes,
             member.bytes) != 0) {
    return pb_fail(kx_err_pb_data);
  }
  for (int count = 0;; ++count) {
    pb_put_field(member.bytes + side.member_offset, kAliasSize, spelled);
    if (strcmp(spelled, alias) != 0) {
      pb_errno = kx_err_none;
      return count;
    }
    if (db_get(book->mem, side.member_key, kx_pbc_next, nullptr,
               member.bytes) == 0) {
      continue;
    }
    if (db_errno() != kDbEof) return pb_fail_db(kx_err_member);
    pb_errno = kx_err_none;
    return count + 1;
  }
}

// Moves to where counting can begin: past persons that are below the range
// anyway. When that is all of them, the cursor is where passing them one by one
// would leave it.
int Begin(pb_walk* walk, const pb_range& range) {
  if (!range.CanSeek()) return walk->Step(kx_pbc_first, pb_key{});
  if (walk->Step(kx_pbc_gteq, range.from()) == 0) return 0;
  if (pb_errno != walk->absent()) return -1;
  if (walk->Step(kx_pbc_last, pb_key{}) != 0) return -1;
  return pb_fail(kx_err_eof);
}

int CountRange(pb_book* book, int order, const pb_range& range,
               const char* group) {
  const pb_key group_key = pb_alias_key(group);
  pb_table_walk walk(book->per, order, kx_err_person);
  int count = 0;
  int result = Begin(&walk, range);
  for (; result == 0 && !range.IsBeyond(walk.record());
       result = walk.MoveOn(kx_pbc_next)) {
    if (range.IsBelow(walk.record())) continue;
    const pb_member member = pb_is_empty(group)
                                 ? pb_member::kYes
                                 : pb_is_member(book, group_key, walk.record());
    if (member == pb_member::kFailed) return -1;
    if (member == pb_member::kYes) ++count;
  }
  if (result != 0 && pb_errno != kx_err_eof) return -1;
  pb_errno = kx_err_none;
  return count;
}

}  // namespace

int pb_count_persons(int kind, int sort, const char* group, const char* from,
                     const char* to) {
  const pb_use book(kind);
  if (book == nullptr) return -1;
  if (pb_is_empty(from) && pb_is_empty(to)) {
    return pb_is_empty(group) ? CountAll(book->per)
                              : CountMemberships(book, pb_group_side, group);
  }
  const int order = pb_cvt_sort(sort);
  if (order == -1) return -1;
  return CountRange(book, order, pb_range(order, from, to), group);
}

int pb_count_groups(int kind, const char* person) {
  const pb_use book(kind);
  if (book == nullptr) return -1;
  return pb_is_empty(person) ? CountAll(book->grp)
                             : CountMemberships(book, pb_person_side, person);
}
