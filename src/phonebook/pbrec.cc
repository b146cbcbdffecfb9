// Keys, and the changes that persons and groups have in common.
#include <cstring>

#include "phonebook/pbpriv.h"
#include "util/kutstr.h"

namespace {

// Deletes the memberships of a deleted person or group: from the first one on,
// as long as they spell the alias as the caller did. One that cannot be deleted
// does not bring the person back, so it is no failure.
void DeleteMemberships(pb_book* book, const pb_side& side, const char* alias) {
  const pb_key key = pb_alias_key(alias);
  pb_record member;
  char spelled[kAliasSize + 1];
  int step = kx_pbc_gteq;
  while (db_get(book->mem, side.member_key, step, key.bytes, member.bytes) ==
         0) {
    pb_put_field(member.bytes + side.member_offset, kAliasSize, spelled);
    if (strcmp(spelled, alias) != 0 || db_del(book->mem) != 0) return;
    step = kx_pbc_next;
  }
}

}  // namespace

pb_key pb_text_key(const char* text) {
  pb_key key = {};
  Kut_strcpyz(key.bytes, text, sizeof key.bytes);
  Kut_strupper(key.bytes);
  return key;
}

pb_key pb_alias_key(const char* alias) {
  pb_key key = {};
  Kut_strcpyz(key.bytes, alias, kAliasSize);
  Kut_strupper(key.bytes);
  return key;
}

pb_key pb_member_key(const char* first, const char* second) {
  pb_key key = pb_alias_key(first);
  const pb_key tail = pb_alias_key(second);
  memcpy(key.bytes + kAliasSize, tail.bytes, kAliasSize);
  return key;
}

void pb_put_field(const char* field, int length, char* out) {
  const size_t used = strnlen(field, static_cast<size_t>(length));
  memcpy(out, field, used);
  out[used] = '\0';
}

void pb_put_upper(const char* field, int length, char* out) {
  pb_put_field(field, length, out);
  Kut_strupper(out);
}

int pb_rec_add(pb_book* book, const pb_side& side, kx_object* obj) {
  return db_add_obj(book->*side.file, obj) == 0 ? pb_succeed()
                                                : pb_fail_db(side.absent);
}

int pb_rec_upd(pb_book* book, const pb_side& side, kx_object* obj) {
  if (!Kfx_Is_Obj_Type(obj, side.type)) return pb_fail(kx_err_pb_data);
  const char* alias = kx::Text(obj, side.fields[0].name);
  if (pb_is_empty(alias)) return pb_fail(kx_err_pb_data);
  db_handle* db = book->*side.file;
  const kx::Object stored = kx::Build(side.type);
  if (stored == nullptr) return pb_fail(kx_err_pb_memory);
  // Without the lock, two updates of different fields could undo each other.
  const pb_lock lock(db);
  if (!lock.held() || db_get_obj(db, kAliasKey, stored.get(), kx_pbc_equal,
                                 pb_alias_key(alias).bytes) != 0) {
    return pb_fail_db(side.absent);
  }
  for (const db_field* field = side.fields + 1; field->name[0] != '\0';
       ++field) {
    const char* text = kx::Text(obj, field->name);
    if (text != nullptr) kx::SetText(stored.get(), field->name, text);
  }
  return db_upd_obj(db, stored.get()) == 0 ? pb_succeed()
                                           : pb_fail_db(side.absent);
}

int pb_rec_del(pb_book* book, const pb_side& side, const char* alias) {
  if (alias == nullptr) alias = "";
  db_handle* db = book->*side.file;
  if (db_pos(db, kAliasKey, kx_pbc_equal, pb_alias_key(alias).bytes) != 0 ||
      db_del(db) != 0) {
    return pb_fail_db(side.absent);
  }
  DeleteMemberships(book, side, alias);
  return pb_succeed();
}

pb_member pb_is_member(pb_book* book, const pb_key& group,
                       const pb_record& person) {
  char alias[kAliasSize + 1];
  pb_put_field(person.bytes, kAliasSize, alias);
  if (db_pos(book->mem, kMemberByGroupKey, kx_pbc_equal,
             pb_member_key(group.bytes, alias).bytes) == 0) {
    return pb_member::kYes;
  }
  if (db_errno() == kDbNotFound) return pb_member::kNo;
  pb_fail_db(kx_err_member);
  return pb_member::kFailed;
}
