#include "phonebook/pbwalk.h"

namespace {

constexpr char kType[] = "obj-member";

// The two aliases of a membership, as its object spells them.
struct Aliases {
  const char* group;
  const char* person;
};

// False, with kx_err_pb_data, unless the object has both.
bool GetAliases(kx_object* member, Aliases* out) {
  if (Kfx_Is_Obj_Type(member, kType)) {
    *out = {kx::Text(member, "galias"), kx::Text(member, "palias")};
    if (out->group != nullptr && out->person != nullptr) return true;
  }
  pb_fail(kx_err_pb_data);
  return false;
}

int CheckExists(pb_book* book, const pb_side& side, const char* alias) {
  return db_pos(book->*side.file, kAliasKey, kx_pbc_equal,
                pb_alias_key(alias).bytes) == 0
             ? 0
             : pb_fail_db(side.absent);
}

}  // namespace

int pb_mem_add(int kind, kx_object* member) {
  const pb_use book(kind, kx_pbm_write);
  Aliases aliases;
  if (book == nullptr || !GetAliases(member, &aliases)) return -1;
  // A person that is deleted from now on is deleted before its memberships are
  // looked for, and those can be changed only when this one is among them.
  const pb_lock lock(book->mem);
  if (!lock.held()) return pb_fail_db(kx_err_member);
  if (CheckExists(book, pb_person_side, aliases.person) != 0 ||
      CheckExists(book, pb_group_side, aliases.group) != 0) {
    return -1;
  }
  return db_add_obj(book->mem, member) == 0 ? pb_succeed()
                                            : pb_fail_db(kx_err_member);
}

int pb_mem_del(int kind, kx_object* member) {
  const pb_use book(kind, kx_pbm_write);
  Aliases aliases;
  if (book == nullptr || !GetAliases(member, &aliases)) return -1;
  const pb_key key = pb_member_key(aliases.person, aliases.group);
  // Clients know a membership that is missing by the person's error number.
  return db_pos(book->mem, kMemberByPersonKey, kx_pbc_equal, key.bytes) == 0 &&
                 db_del(book->mem) == 0
             ? pb_succeed()
             : pb_fail_db(kx_err_person);
}

int pb_mem_get(int kind, kx_object* member, int step) {
  const pb_use book(kind);
  if (book == nullptr) return -1;
  pb_table_walk walk(book->mem, kMemberByGroupKey, kx_err_member);
  return walk.ReadObject(kType, member, step, pb_key{});
}

int pb_mem_get_by_grp(int kind, kx_object* person, int step, const char* key) {
  const pb_use book(kind);
  if (book == nullptr) return -1;
  pb_side_walk walk(book, pb_group_side, pb_person_side, key);
  return walk.ReadObject(pb_person_side.type, person, step, pb_key{});
}

int pb_mem_get_by_per(int kind, kx_object* group, int step, const char* key) {
  const pb_use book(kind);
  if (book == nullptr) return -1;
  pb_side_walk walk(book, pb_person_side, pb_group_side, key);
  return walk.ReadObject(pb_group_side.type, group, step, pb_key{});
}
