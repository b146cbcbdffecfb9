// "obj-env": a send envelope: destinations, files, cover page and parameters.
//
// A name that is a field of one of its parts is passed through to that part,
// which is made when it is set for the first time. So one destination and one
// file are set without a list being seen.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"destptr", kx_typ_list},
    {"fileptr", kx_typ_list},
    {"coverptr", kx_typ_obj},
    {"paramptr", kx_typ_obj},
};

struct Part {
  const char* field;      // of the envelope
  const kx_objdef* type;  // of the part, or of the list's first element
};

// In the order in which a name is looked up.
constexpr Part kParts[] = {
    {"destptr", &kx_objdef_dest},
    {"fileptr", &kx_objdef_file},
    {"coverptr", &kx_objdef_cover},
    {"paramptr", &kx_objdef_param},
};

const Part* PartWith(const char* field) {
  for (const Part& part : kParts) {
    if (kx_field_list(field, part.type->fields) != nullptr) return &part;
  }
  return nullptr;
}

// The part that is there, or null.
kx_object* Find(kx_object* env, const kx_fielddef& row) {
  kx_object* held = kx::engine::Reference(env, row);
  return row.type == kx_typ_list ? static_cast<kx_object*>(Kfx_Bdata(held))
                                 : held;
}

// A new part, put in its place; null with 1 when there is no memory.
kx_object* Make(kx_object* env, const kx_fielddef& row, const Part& part) {
  kx::Object made(part.type->create());
  if (made == nullptr) return nullptr;
  kx_object*& held = kx::engine::Reference(env, row);
  if (row.type == kx_typ_list) {
    if (held == nullptr) held = Kfx_Bnew(nullptr);
    if (held == nullptr) return nullptr;
    static_cast<kx_node*>(held)->element = made.get();
  } else {
    held = made.get();
  }
  return made.release();
}

int SetThrough(const kx_objdef& type, kx_object* env, const char* field,
               const void* value) {
  if (!kx::engine::IsOfType(type, env)) return -1;
  const Part* part = PartWith(field);
  if (part == nullptr) return kx::engine::Set(type, env, field, value);
  const kx_fielddef& row = *kx_field_list(part->field, type.fields);
  kx_object* target = Find(env, row);
  if (target == nullptr) target = Make(env, row, *part);
  return target != nullptr ? part->type->set(target, field, value) : -1;
}

void* GetThrough(const kx_objdef& type, kx_object* env, const char* field) {
  if (!kx::engine::IsOfType(type, env)) return nullptr;
  const Part* part = PartWith(field);
  if (part == nullptr) return kx::engine::Get(type, env, field);
  const kx_fielddef& row = *kx_field_list(part->field, type.fields);
  kx_object* target = Find(env, row);
  if (target == nullptr) {
    kx_errno = kx_err_object;
    return nullptr;
  }
  return part->type->get(target, field);
}

}  // namespace

KX_DEFINE_TYPE_OPS(env, kRows, SetThrough, GetThrough)
