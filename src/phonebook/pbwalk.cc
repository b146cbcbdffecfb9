#include "phonebook/pbwalk.h"

#include <cstring>

namespace {

bool IsStep(int step) { return step >= kx_pbc_next && step <= kx_pbc_gteq; }

}  // namespace

int pb_cvt_sort(int sort) {
  static_assert(kx_pbs_company - kx_pbs_unsorted == 4);
  if (sort < kx_pbs_unsorted || sort > kx_pbs_company) {
    return pb_fail(kx_err_pb_data);
  }
  pb_errno = kx_err_none;
  return sort - kx_pbs_unsorted;
}

bool pb_get_order(int sort, int* order) {
  *order = -1;
  if (sort == -1 || sort == 0) return true;
  *order = pb_cvt_sort(sort);
  return *order != -1;
}

int pb_walk::GetObject(kx_object* obj) const {
  return db_rec_to_obj(table(), record_.bytes, obj) == 0
             ? pb_succeed()
             : pb_fail(kx_err_database);
}

int pb_walk::ReadObject(const char* type, kx_object* obj, int step,
                        const pb_key& key) {
  if (!Kfx_Is_Obj_Type(obj, type)) return pb_fail(kx_err_pb_data);
  return Step(step, key) == 0 ? GetObject(obj) : -1;
}

int pb_table_walk::Read(int order, int step, const char* key) {
  return db_get(db_, order, step, key, record_.bytes) == 0
             ? pb_succeed()
             : pb_fail_db(absent_);
}

int pb_table_walk::Step(int step, const pb_key& key) {
  if (!IsStep(step) || (order_ < 0 && step != kx_pbc_alias)) {
    return pb_fail(kx_err_pb_data);
  }
  switch (step) {
    case kx_pbc_alias:
      return Read(kAliasKey, kx_pbc_equal, key.bytes);
    case kx_pbc_next:
    case kx_pbc_prev:
    case pb_step_current:
      if (db_->current == 0) {
        return Read(order_, pb_is_backward(step) ? kx_pbc_last : kx_pbc_first);
      }
      // The cursor came with the command, the store has not seen it yet.
      if (Read(kSerialOrder, kx_pbc_alias) != 0) return -1;
      return step == pb_step_current ? 0 : Read(order_, step);
    default:
      return Read(order_, step, key.bytes);
  }
}

int pb_table_walk::MoveOn(int step) {
  if (order_ < 0) return pb_fail(kx_err_pb_data);
  return Read(order_, pb_direction(step));
}

// Reads a membership. When that leaves the group or person, the cursor stays
// behind, so that the next step from it ends here too.
int pb_side_walk::Read(int step, const char* key) {
  const uint32_t cursor = book_->mem->current;
  if (db_get(book_->mem, from_.member_key, step, key, member_.bytes) != 0) {
    return db_errno() == kDbNotFound ? pb_fail(kx_err_eof)
                                     : pb_fail_db(kx_err_member);
  }
  if (IsInside()) return pb_succeed();
  book_->mem->current = cursor;
  return pb_fail(kx_err_eof);
}

// The last membership is the one before all that a greater alias begins.
int pb_side_walk::ReadLast() {
  const uint32_t cursor = book_->mem->current;
  pb_key beyond = alias_;
  memset(beyond.bytes + kAliasSize, 0xff, kAliasSize);
  if (db_pos(book_->mem, from_.member_key, kx_pbc_gteq, beyond.bytes) != 0) {
    return db_errno() == kDbNotFound ? Read(kx_pbc_last)
                                     : pb_fail_db(kx_err_member);
  }
  const int result = Read(kx_pbc_prev);
  if (result != 0) book_->mem->current = cursor;
  return result;
}

bool pb_side_walk::IsInside() const {
  char alias[kAliasSize + 1];
  pb_put_upper(member_.bytes + from_.member_offset, kAliasSize, alias);
  return strcmp(alias, alias_.bytes) == 0;
}

// Reads the other side of the membership read last, or of the next one that
// still has it.
int pb_side_walk::SkipVanished(int direction) {
  for (;;) {
    char alias[kAliasSize + 1];
    pb_put_field(member_.bytes + to_.member_offset, kAliasSize, alias);
    if (db_get(book_->*to_.file, kAliasKey, kx_pbc_equal,
               pb_alias_key(alias).bytes, record_.bytes) == 0) {
      return pb_succeed();
    }
    if (db_errno() != kDbNotFound) return pb_fail_db(absent());
    if (Read(direction) != 0) return -1;
  }
}

int pb_side_walk::Step(int step, const pb_key&) {
  if (!IsStep(step)) return pb_fail(kx_err_pb_data);
  bool has_cursor = false;
  if ((step == kx_pbc_next || step == kx_pbc_prev || step == pb_step_current) &&
      book_->mem->current != 0) {
    if (db_get(book_->mem, kSerialOrder, kx_pbc_alias, nullptr,
               member_.bytes) != 0) {
      return pb_fail_db(kx_err_member);
    }
    has_cursor = IsInside();
  }
  int result = 0;
  if (!has_cursor) {
    result =
        pb_is_backward(step) ? ReadLast() : Read(kx_pbc_gteq, alias_.bytes);
  } else if (step != pb_step_current) {
    result = Read(step);
  }
  return result == 0 ? SkipVanished(pb_direction(step)) : -1;
}

int pb_side_walk::MoveOn(int step) {
  const int direction = pb_direction(step);
  return Read(direction) == 0 ? SkipVanished(direction) : -1;
}
