#include "phonebook/pbwalk.h"

int pb_grp_add(int kind, kx_object* group) {
  const pb_use book(kind, kx_pbm_write);
  if (book == nullptr) return -1;
  if (!Kfx_Is_Obj_Type(group, pb_group_side.type) ||
      kx::Text(group, "galias") == nullptr) {
    return pb_fail(kx_err_pb_data);
  }
  return pb_rec_add(book, pb_group_side, group);
}

int pb_grp_upd(int kind, kx_object* group) {
  const pb_use book(kind, kx_pbm_write);
  return book != nullptr ? pb_rec_upd(book, pb_group_side, group) : -1;
}

int pb_grp_del(int kind, const char* alias) {
  const pb_use book(kind, kx_pbm_write);
  return book != nullptr ? pb_rec_del(book, pb_group_side, alias) : -1;
}

int pb_grp_get(int kind, kx_object* group, int step, const char* key) {
  const pb_use book(kind);
  if (book == nullptr) return -1;
  pb_table_walk walk(book->grp, kAliasKey, kx_err_group);
  return walk.ReadObject(pb_group_side.type, group, step, pb_text_key(key));
}
