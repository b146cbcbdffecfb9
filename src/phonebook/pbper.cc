#include <cstdio>
#include <ctime>

#include "phonebook/pbwalk.h"

namespace {

// Gives the person the present second as its alias.
void pb_per_make_alias(kx_object* person) {
  char alias[kAliasSize];
  snprintf(alias, sizeof alias, "%ld", static_cast<long>(time(nullptr)));
  kx::SetText(person, "palias", alias);
}

}  // namespace

int pb_per_add(int kind, kx_object* person) {
  const pb_use book(kind, kx_pbm_write);
  if (book == nullptr) return -1;
  if (!Kfx_Is_Obj_Type(person, pb_person_side.type)) {
    return pb_fail(kx_err_pb_data);
  }
  if (kx::Text(person, "palias") == nullptr) pb_per_make_alias(person);
  return pb_rec_add(book, pb_person_side, person);
}

int pb_per_upd(int kind, kx_object* person) {
  const pb_use book(kind, kx_pbm_write);
  return book != nullptr ? pb_rec_upd(book, pb_person_side, person) : -1;
}

int pb_per_del(int kind, const char* alias) {
  const pb_use book(kind, kx_pbm_write);
  return book != nullptr ? pb_rec_del(book, pb_person_side, alias) : -1;
}

int pb_per_get(int kind, int sort, kx_object* person, int step,
               const char* key) {
  const pb_use book(kind);
  int order = 0;
  if (book == nullptr || !pb_get_order(sort, &order)) return -1;
  pb_table_walk walk(book->per, order, kx_err_person);
  return walk.ReadObject(pb_person_side.type, person, step, pb_text_key(key));
}

int pb_per_pos(int kind, int sort, int step, int count, const char* group) {
  const pb_use book(kind);
  if (book == nullptr) return -1;
  if (step < kx_pbc_next || step > pb_step_current) {
    return pb_fail(kx_err_pb_data);
  }
  const int order = pb_cvt_sort(sort);
  if (order == -1) return -1;
  const pb_key group_key = pb_alias_key(group);
  pb_table_walk walk(book->per, order, kx_err_person);
  bool begun = false;
  while (count > 0) {
    if ((begun ? walk.MoveOn(step) : walk.Step(step, pb_key{})) != 0) return -1;
    begun = true;
    const pb_member member = pb_is_empty(group)
                                 ? pb_member::kYes
                                 : pb_is_member(book, group_key, walk.record());
    if (member == pb_member::kFailed) return -1;
    if (member == pb_member::kYes) --count;
  }
  return pb_succeed();
}
