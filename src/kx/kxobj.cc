#include "kx/kxobj.h"

#include <cstring>

#include "kx/kxtype.h"

const kx_objdef* const kx_objs[] = {
#define KX_TYPE(t) &kx_objdef_##t,
#include "kx/kxtypes.def"
#undef KX_TYPE
    nullptr};

const char* const kx_obj_kwrds[5] = {"objbeg", "objend", "filebeg", "filedata",
                                     "fileend"};

namespace {

// The descriptor of an object or of a named type; null with 21.
const kx_objdef* TypeOf(kx_object* obj) { return kx_obj_info(obj); }
const kx_objdef* TypeOf(const char* name) { return kx_obj_by_type(name); }

}  // namespace

const kx_objdef* kx_obj_by_type(const char* type) {
  constexpr std::size_t kPrefix = 4;  // all names begin with "obj-"
  kx_errno = kx_err_none;
  if (type != nullptr && strncmp(type, "obj-", kPrefix) == 0) {
    for (const kx_objdef* const* def = kx_objs; *def != nullptr; ++def) {
      if (kx::Same((*def)->name + kPrefix, type + kPrefix)) return *def;
    }
  }
  kx_errno = kx_err_object;
  return nullptr;
}

const kx_objdef* kx_obj_info(kx_object* obj) {
  kx_errno = obj != nullptr ? kx_err_none : kx_err_object;
  return obj != nullptr ? obj->type : nullptr;
}

const kx_fielddef* kx_field_list(const char* field, const kx_fielddef* table) {
  kx_errno = kx_err_none;
  for (; table->name != nullptr; ++table) {
    if (field != nullptr && kx::Same(table->name, field)) return table;
  }
  kx_errno = kx_err_field;
  return nullptr;
}

const kx_fielddef* kx_field(const char* field, kx_object* obj) {
  const kx_objdef* type = kx_obj_info(obj);
  return type != nullptr ? kx_field_list(field, type->fields) : nullptr;
}

kx_object* kx_create_object(const char* type) {
  const kx_objdef* def = TypeOf(type);
  return def != nullptr ? def->create() : nullptr;
}

int kx_delete_object(kx_object* obj) {
  const kx_objdef* def = TypeOf(obj);
  return def != nullptr ? def->del(obj) : -1;
}

kx_object* kx_copy_object(kx_object* obj) {
  const kx_objdef* def = TypeOf(obj);
  return def != nullptr ? def->copy(obj) : nullptr;
}

kx_object* kx_comp_object(const char* type, kx_reader reader, void* context,
                          const char* directory) {
  const kx_objdef* def = TypeOf(type);
  return def != nullptr ? def->comp(reader, context, directory) : nullptr;
}

int kx_decomp_object(kx_object* obj, kx_writer writer, void* context,
                     int embed) {
  const kx_objdef* def = TypeOf(obj);
  return def != nullptr ? def->decomp(obj, writer, context, embed) : -1;
}

kx_object* Kfx_Build_Obj(const char* type) { return kx_create_object(type); }

int Kfx_Free_Obj(kx_object* obj) { return kx_delete_object(obj); }

kx_object* Kfx_Copy_Obj(kx_object* obj) { return kx_copy_object(obj); }

kx_object* Kfx_Comp_Obj(const char* type, kx_reader reader, void* context,
                        const char* directory) {
  return kx_comp_object(type, reader, context, directory);
}

int Kfx_Decomp_Obj(kx_object* obj, kx_writer writer, void* context, int embed) {
  int result = writer(context, nullptr, nullptr, kx_write_start);
  if (result == 0) result = kx_decomp_object(obj, writer, context, embed);
  if (result == 0) result = writer(context, nullptr, nullptr, kx_write_stop);
  kx_errno = result == 0 ? kx_err_none : kx_err_callback;
  return result;
}

void* Kfx_Get(kx_object* obj, const char* field) {
  const kx_objdef* def = TypeOf(obj);
  return def != nullptr ? def->get(obj, field) : nullptr;
}

int Kfx_Set(kx_object* obj, const char* field, const void* value) {
  const kx_objdef* def = TypeOf(obj);
  return def != nullptr ? def->set(obj, field, value) : -1;
}

int Kfx_Is_Obj_Type(kx_object* obj, const char* type) {
  const kx_objdef* def = TypeOf(obj);
  if (def == nullptr) return 0;
  const bool same = type != nullptr && strcmp(def->name, type) == 0;
  kx_errno = same ? kx_err_none : kx_err_object;
  return same ? 1 : 0;
}

const char* Kfx_Object_Type(kx_object* obj) {
  const kx_objdef* def = TypeOf(obj);
  return def != nullptr ? def->name : nullptr;
}

int Kfx_Field_Type(kx_object* obj, const char* field) {
  const kx_fielddef* row = kx_field(field, obj);
  return row != nullptr ? row->type : -1;
}

int Kfx_Field_Length(kx_object* obj, const char* field) {
  const kx_fielddef* row = kx_field(field, obj);
  return row != nullptr ? row->length : -1;
}

const char* kx_tmp_name(kx_object* obj) {
  static char name[32];
  const char* session = kx::Text(obj, "sessionid");
  if (session == nullptr) {
    kx_errno = kx_err_data;
    return nullptr;
  }
  const int number = Kfx_Str_To_Long(session);
  const char* reference = kx::Text(obj, "reference");
  if (reference == nullptr) {
    kx_errno = kx_err_data;
    return nullptr;
  }
  snprintf(name, sizeof name, "%04ld-%03d", static_cast<long>(number % 10000),
           Kfx_Str_To_Word(reference));
  kx_errno = kx_err_none;
  return name;
}

int kx_get_nextref(kx_object* connection) {
  if (!Kfx_Is_Obj_Type(connection, "obj-connect")) return -1;
  const char* text = kx::Text(connection, "reference");
  const int reference = text != nullptr ? Kfx_Str_To_Word(text) : 0;
  const int next = static_cast<int>(static_cast<unsigned>(reference) + 1U);
  if (kx::SetNumber(connection, "reference", next) != 0) return -1;
  return reference;
}
