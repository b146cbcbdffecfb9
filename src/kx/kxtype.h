// How an object type is made: a unit in kx/types lists its fields and says
// KX_DEFINE_TYPE; all else is the one implementation behind kx::engine.
//
// The record layout is computed and checked at compile time: a doubled or
// overlong field name, a length that does not fit the kind, or a file in a
// field that is no text do not compile.
#ifndef KX_KXTYPE_H_
#define KX_KXTYPE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "kx/kxobj.h"

namespace kx {

// One field as a type's unit lists it.
struct Row {
  const char* name;
  int type;                                   // kx_typ_str to kx_typ_obj
  int length = 0;                             // declared bytes: text and data
  kx_carries carries = kx_carries::kNothing;  // text fields only
  int stored = 0;  // bytes in the record, where they differ from `length`
};

constexpr bool IsText(int type) {
  return type >= kx_typ_str && type <= kx_typ_dir;
}
constexpr bool IsNumber(int type) {
  return type >= kx_typ_enum && type <= kx_typ_time;
}
// A field that holds a reference: an object, a list, or data of no length.
constexpr bool IsReference(int type, int length) {
  return type == kx_typ_list || type == kx_typ_obj ||
         (type == kx_typ_data && length == 0);
}

// Whether two names are the same. Most differ in their first letter, and the
// call is what a look-up by name costs.
inline bool Same(const char* a, const char* b) {
  return *a == *b && strcmp(a, b) == 0;
}

constexpr std::size_t kFieldNameMax = 10;

// The field table of a type from its rows, ended by a row without a name.
template <std::size_t N>
consteval std::array<kx_fielddef, N + 1> MakeTable(const Row (&rows)[N]) {
  std::array<kx_fielddef, N + 1> table{};
  int end = static_cast<int>(sizeof(kx_object));
  for (std::size_t i = 0; i < N; ++i) {
    const Row& row = rows[i];
    if (std::string_view(row.name).size() > kFieldNameMax) throw "name";
    for (std::size_t j = 0; j < i; ++j) {
      if (std::string_view(rows[j].name) == row.name) throw "doubled name";
    }
    const int bytes = row.stored != 0 ? row.stored : row.length;
    if (IsText(row.type) != (bytes != 0 && row.type != kx_typ_data)) {
      throw "length does not fit the kind";
    }
    if (row.carries != kx_carries::kNothing && !IsText(row.type)) {
      throw "only a text names a file";
    }
    const int size = IsNumber(row.type) ? static_cast<int>(sizeof(int32_t))
                     : IsReference(row.type, row.length)
                         ? static_cast<int>(sizeof(void*))
                         : bytes;
    const int align =
        IsNumber(row.type) || IsReference(row.type, row.length) ? size : 1;
    const int offset = (end + align - 1) / align * align;
    table[i] = {row.name, row.type, row.length, size, offset, row.carries};
    end = offset + size;
  }
  const int align = static_cast<int>(alignof(kx_object));
  table[N] = {nullptr,
              0,
              0,
              0,
              (end + align - 1) / align * align,
              kx_carries::kNothing};
  return table;
}

// The offset of a field in a table: for checks of a layout at compile time.
template <std::size_t N>
consteval int OffsetOf(const std::array<kx_fielddef, N>& table,
                       std::string_view name) {
  for (const kx_fielddef& field : table) {
    if (field.name != nullptr && name == field.name) return field.offset;
  }
  throw "no such field";
}

// The seven operations, once for all types.
namespace engine {

kx_object* Create(const kx_objdef& type);
int Delete(const kx_objdef& type, kx_object* obj);
kx_object* Copy(const kx_objdef& type, kx_object* obj);
int Set(const kx_objdef& type, kx_object* obj, const char* field,
        const void* value);
void* Get(const kx_objdef& type, kx_object* obj, const char* field);
kx_object* Comp(const kx_objdef& type, kx_reader reader, void* context,
                const char* directory);
int Decomp(const kx_objdef& type, kx_object* obj, kx_writer writer,
           void* context, int embed);

// Bytes of one object that is no list.
std::size_t RecordSize(const kx_objdef& type);
// Whether the object is of the type; sets kx_errno to 0 or 21.
bool IsOfType(const kx_objdef& type, const kx_object* obj);
// Stores a value in a field whose row is known: 0, or -1 with 19 or 24.
int SetField(kx_object* obj, const kx_fielddef& field, const void* value);
// What Get returns for a field whose row is known.
void* GetField(kx_object* obj, const kx_fielddef& field);
// The reference in a field for which IsReference holds.
kx_object*& Reference(kx_object* obj, const kx_fielddef& field);
// Whether the field of this object names a file that travels with it.
bool CarriesFile(kx_object* obj, const kx_fielddef& field);

}  // namespace engine
}  // namespace kx

// Defines the descriptor and the seven named operations of type "obj-<t>" over
// its rows; OPS says which functions get and set a field.
#define KX_DEFINE_TYPE_OPS(t, rows, set_op, get_op)                        \
  namespace {                                                              \
  constexpr auto kTable = kx::MakeTable(rows);                             \
  }                                                                        \
  constinit const kx_objdef kx_objdef_##t = {                              \
      "obj-" #t,  kx_create_##t, kx_delete_##t, kx_copy_##t,  kx_set_##t,  \
      kx_get_##t, kx_comp_##t,   kx_decomp_##t, kTable.data()};            \
  kx_object* kx_create_##t() { return kx::engine::Create(kx_objdef_##t); } \
  int kx_delete_##t(kx_object* obj) {                                      \
    return kx::engine::Delete(kx_objdef_##t, obj);                         \
  }                                                                        \
  kx_object* kx_copy_##t(kx_object* obj) {                                 \
    return kx::engine::Copy(kx_objdef_##t, obj);                           \
  }                                                                        \
  int kx_set_##t(kx_object* obj, const char* field, const void* value) {   \
    return set_op(kx_objdef_##t, obj, field, value);                       \
  }                                                                        \
  void* kx_get_##t(kx_object* obj, const char* field) {                    \
    return get_op(kx_objdef_##t, obj, field);                              \
  }                                                                        \
  kx_object* kx_comp_##t(kx_reader reader, void* context,                  \
                         const char* directory) {                          \
    return kx::engine::Comp(kx_objdef_##t, reader, context, directory);    \
  }                                                                        \
  int kx_decomp_##t(kx_object* obj, kx_writer writer, void* context,       \
                    int embed) {                                           \
    return kx::engine::Decomp(kx_objdef_##t, obj, writer, context, embed); \
  }

#define KX_DEFINE_TYPE(t, rows) \
  KX_DEFINE_TYPE_OPS(t, rows, kx::engine::Set, kx::engine::Get)

#endif  // KX_KXTYPE_H_
