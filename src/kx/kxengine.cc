// The operations of every type but the text form, over its field table. What
// differs between the fields lies in the kinds below.
#include <cstring>

#include "kx/kxtype.h"
#include "util/kutmem.h"

namespace kx::engine {
namespace {

constexpr int32_t kUnset = -1;

// How a number is printed and parsed; -1 from `parse` means "refused".
struct NumberKind {
  const char* (*print)(int value);
  int (*parse)(const char* text);
};

constexpr NumberKind kNumberKinds[] = {
    {Kfx_Enum_To_Str, Kfx_Str_To_Enum},  // typ-enum
    {Kfx_Word_To_Str, Kfx_Str_To_Word},  // typ-word
    {Kfx_Long_To_Str, Kfx_Str_To_Long},  // typ-long
    {Kfx_Bool_To_Str, Kfx_Str_To_Bool},  // typ-bool
    {Kfx_Time_To_Str, Kfx_Str_To_Time},  // typ-time
};
static_assert(std::size(kNumberKinds) == kx_typ_time - kx_typ_enum + 1);

const NumberKind& KindOf(const kx_fielddef& field) {
  return kNumberKinds[field.type - kx_typ_enum];
}

char* Bytes(kx_object* obj, const kx_fielddef& field) {
  return reinterpret_cast<char*>(obj) + field.offset;
}

int32_t& Number(kx_object* obj, const kx_fielddef& field) {
  return *reinterpret_cast<int32_t*>(Bytes(obj, field));
}

// A list or an object: owned, copied and freed with its holder.
bool IsOwned(const kx_fielddef& field) {
  return field.type == kx_typ_list || field.type == kx_typ_obj;
}

int SetNumber(kx_object* obj, const kx_fielddef& field, const char* text) {
  if (text == nullptr || *text == '\0') {
    Number(obj, field) = kUnset;
    return 0;
  }
  const int value = KindOf(field).parse(text);
  if (value == kUnset) {
    kx_errno = kx_err_data;
    return -1;
  }
  Number(obj, field) = value;
  return 0;
}

int SetText(kx_object* obj, const kx_fielddef& field, const char* text) {
  const std::size_t length = text != nullptr ? strlen(text) : 0;
  if (length >= static_cast<std::size_t>(field.size)) {
    kx_errno = kx_err_too_long;
    return -1;
  }
  if (length != 0) memmove(Bytes(obj, field), text, length);
  Bytes(obj, field)[length] = '\0';
  return 0;
}

void SetData(kx_object* obj, const kx_fielddef& field, const void* bytes) {
  const auto size = static_cast<std::size_t>(field.size);
  if (bytes != nullptr) {
    memmove(Bytes(obj, field), bytes, size);
  } else {
    memset(Bytes(obj, field), 0, size);
  }
}

}  // namespace

std::size_t RecordSize(const kx_objdef& type) {
  const kx_fielddef* field = type.fields;
  while (field->name != nullptr) ++field;
  return static_cast<std::size_t>(field->offset);
}

bool IsOfType(const kx_objdef& type, const kx_object* obj) {
  const bool is = obj != nullptr && obj->type == &type;
  kx_errno = is ? kx_err_none : kx_err_object;
  return is;
}

kx_object*& Reference(kx_object* obj, const kx_fielddef& field) {
  return *reinterpret_cast<kx_object**>(Bytes(obj, field));
}

kx_object* Create(const kx_objdef& type) {
  auto* obj = static_cast<kx_object*>(Kut_calloc(1, RecordSize(type)));
  if (obj == nullptr) {
    kx_errno = kx_err_memory;
    return nullptr;
  }
  obj->type = &type;
  for (const kx_fielddef* f = type.fields; f->name != nullptr; ++f) {
    if (IsNumber(f->type)) Number(obj, *f) = kUnset;
  }
  kx_errno = kx_err_none;
  return obj;
}

int Delete(const kx_objdef& type, kx_object* obj) {
  if (!IsOfType(type, obj)) return -1;
  for (const kx_fielddef* f = type.fields; f->name != nullptr; ++f) {
    if (!IsOwned(*f)) continue;
    if (kx_object* child = Reference(obj, *f); child != nullptr) {
      child->type->del(child);
    }
  }
  Kut_free(obj);
  kx_errno = kx_err_none;
  return 0;
}

kx_object* Copy(const kx_objdef& type, kx_object* obj) {
  if (!IsOfType(type, obj)) return nullptr;
  const std::size_t size = RecordSize(type);
  auto* copy = static_cast<kx_object*>(Kut_malloc(size));
  if (copy == nullptr) {
    kx_errno = kx_err_memory;
    return nullptr;
  }
  memcpy(static_cast<void*>(copy), obj, size);
  for (const kx_fielddef* f = type.fields; f->name != nullptr; ++f) {
    if (!IsOwned(*f)) continue;
    if (kx_object*& child = Reference(copy, *f); child != nullptr) {
      child = child->type->copy(child);
    }
  }
  kx_errno = kx_err_none;
  return copy;
}

void* GetField(kx_object* obj, const kx_fielddef& field) {
  kx_errno = kx_err_none;
  if (IsReference(field.type, field.length)) return Reference(obj, field);
  if (IsNumber(field.type)) {
    const int value = Number(obj, field);
    if (value == kUnset) return nullptr;
    return const_cast<char*>(KindOf(field).print(value));
  }
  char* bytes = Bytes(obj, field);
  return IsText(field.type) && *bytes == '\0' ? nullptr : bytes;
}

int SetField(kx_object* obj, const kx_fielddef& field, const void* value) {
  kx_errno = kx_err_none;
  if (IsReference(field.type, field.length)) {
    Reference(obj, field) = static_cast<kx_object*>(const_cast<void*>(value));
    return 0;
  }
  if (IsNumber(field.type)) {
    return SetNumber(obj, field, static_cast<const char*>(value));
  }
  if (IsText(field.type)) {
    return SetText(obj, field, static_cast<const char*>(value));
  }
  SetData(obj, field, value);
  return 0;
}

void* Get(const kx_objdef& type, kx_object* obj, const char* field) {
  if (!IsOfType(type, obj)) return nullptr;
  const kx_fielddef* row = kx_field_list(field, type.fields);
  return row != nullptr ? GetField(obj, *row) : nullptr;
}

int Set(const kx_objdef& type, kx_object* obj, const char* field,
        const void* value) {
  if (!IsOfType(type, obj)) return -1;
  const kx_fielddef* row = kx_field_list(field, type.fields);
  // An unknown field is no failure: newer callers set what older types lack.
  return row != nullptr ? SetField(obj, *row, value) : 0;
}

}  // namespace kx::engine
