// Composing: from a reader's pairs to an object. One composer serves a whole
// stream; it goes one level deeper for each nested object or list.
#include <cstring>
#include <utility>

#include "kx/kxtext.h"
#include "kx/kxtype.h"
#include "util/kutfile.h"

namespace kx::engine {
namespace {

constexpr int kLevelsMax = 64;
constexpr char kSpoolPrefix[] = "$NETSPOOL";
constexpr char kEmbedded[] = "*";

class Composer {
 public:
  Composer(kx_reader reader, void* context, const char* directory,
           kx_refused refused)
      : reader_(reader),
        context_(context),
        directory_(directory),
        refused_(refused) {}

  // The object or list of the type, or null with kx_errno. A list that has no
  // elements is null with 0.
  kx_object* Compose(const kx_objdef& type);

 private:
  kx_object* ComposeObject(const kx_objdef& type);
  kx_object* ComposeList();
  bool ReadElements(ListBuilder* list);
  // The object that a pair's value announces by its type's name.
  kx_object* ComposeNamed(const char* type);
  bool ReadFields(const kx_objdef& type, kx_object* obj);
  bool ReadField(kx_object* obj, const kx_fielddef& field);
  bool StoreFile(kx_object* obj, const kx_fielddef& field);
  bool StoreSpoolPath(kx_object* obj, const kx_fielddef& field);
  bool Next() {
    return reader_(context_, name_, value_, kx_read_next) == 0 ||
           Fail(kx_err_callback);
  }
  static bool Fail(int error) {
    kx_errno = error;
    return false;
  }

  kx_reader reader_;
  void* context_;
  const char* directory_;
  kx_refused refused_;
  int level_ = 0;
  // The pair read last. Nested objects use the same buffers: nobody looks at
  // them after going down a level.
  char name_[KX_PAIR_SIZE] = "";
  char value_[KX_PAIR_SIZE] = "";
};

kx_object* Composer::Compose(const kx_objdef& type) {
  if (level_ == kLevelsMax) {
    kx_errno = kx_err_callback;
    return nullptr;
  }
  ++level_;
  kx_object* obj =
      &type == &kx_objdef_list ? ComposeList() : ComposeObject(type);
  --level_;
  return obj;
}

kx_object* Composer::ComposeNamed(const char* type) {
  const kx_objdef* def = kx_obj_by_type(type);
  return def != nullptr ? Compose(*def) : nullptr;
}

kx_object* Composer::ComposeObject(const kx_objdef& type) {
  Object obj(type.create());
  if (obj == nullptr) {
    kx_errno = kx_err_object;  // every failure to create counts as this one
    return nullptr;
  }
  if (!ReadFields(type, obj.get())) return nullptr;
  kx_errno = kx_err_none;
  return obj.release();
}

bool Composer::ReadFields(const kx_objdef& type, kx_object* obj) {
  // Writers keep the table's order: the row wanted is mostly the next one.
  const kx_fielddef* expected = type.fields;
  for (;;) {
    if (!Next()) return false;
    if (Same(name_, kx_obj_kwrds[0])) {
      if (!Same(value_, type.name)) return Fail(kx_err_object);
      continue;
    }
    if (Same(name_, kx_obj_kwrds[1])) return true;
    const kx_fielddef* field =
        expected->name != nullptr && Same(name_, expected->name)
            ? expected
            : kx_field_list(name_, type.fields);
    if (field == nullptr) continue;  // a newer writer's field
    if (!ReadField(obj, *field)) return false;
    expected = field + 1;
  }
}

bool Composer::ReadField(kx_object* obj, const kx_fielddef& field) {
  if (field.type == kx_typ_obj || field.type == kx_typ_list) {
    const char* type = field.type == kx_typ_list ? kx_objdef_list.name : value_;
    kx_object* child = ComposeNamed(type);
    if (child == nullptr) return Fail(kx_err_callback);
    // A field that comes twice must not leak its first object.
    Object old(std::exchange(Reference(obj, field), child));
    return true;
  }
  if (field.type == kx_typ_data) return true;  // never part of the text form
  if (SetField(obj, field, value_) != 0) {
    const bool waived =
        level_ == 1 && refused_ != nullptr && refused_(&field, value_) == 0;
    if (!waived) return Fail(kx_err_data);
    return SetField(obj, field, nullptr) == 0;
  }
  if (directory_ == nullptr || !CarriesFile(obj, field)) return true;
  return Same(value_, kEmbedded) ? StoreFile(obj, field)
                                 : StoreSpoolPath(obj, field);
}

bool Composer::StoreFile(kx_object* obj, const kx_fielddef& field) {
  const char* path = kx_decode(reader_, context_, directory_);
  if (path == nullptr || SetField(obj, field, path) != 0) {
    return Fail(kx_err_callback);
  }
  return true;
}

// "$NETSPOOL/name" names a file in the reader's own folder.
bool Composer::StoreSpoolPath(kx_object* obj, const kx_fielddef& field) {
  constexpr std::size_t kPrefix = sizeof kSpoolPrefix - 1;
  const char* base = Kut_basename(value_);
  if (base != value_ + kPrefix + 1 ||
      std::strncmp(value_, kSpoolPrefix, kPrefix) != 0) {
    return true;
  }
  if (*base == '\0' || Same(base, ".") || Same(base, "..")) {
    return Fail(kx_err_data);
  }
  char path[2 * KX_PAIR_SIZE];
  const int length =
      std::snprintf(path, sizeof path, "%s/%s", directory_, base);
  if (length >= static_cast<int>(sizeof path) ||
      SetField(obj, field, path) != 0) {
    return Fail(kx_err_data);
  }
  return true;
}

kx_object* Composer::ComposeList() {
  ListBuilder list;
  if (!ReadElements(&list)) return nullptr;
  kx_errno = kx_err_none;
  return list.Take().release();
}

bool Composer::ReadElements(ListBuilder* list) {
  for (;;) {
    if (!Next()) return false;
    if (Same(name_, kx_obj_kwrds[1])) return true;
    if (Same(name_, kx_obj_kwrds[0])) {
      if (!Same(value_, kx_objdef_list.name)) return Fail(kx_err_object);
      continue;
    }
    if (!Same(name_, "objptr")) continue;
    Object element(ComposeNamed(value_));
    if (element == nullptr || !list->Append(std::move(element))) {
      return Fail(kx_err_callback);
    }
  }
}

}  // namespace

bool CarriesFile(kx_object* obj, const kx_fielddef& field) {
  if (field.carries == kx_carries::kFileIfPath) return Bool(obj, "ispath") == 1;
  return field.carries == kx_carries::kFile;
}

kx_object* Comp(const kx_objdef& type, kx_reader reader, void* context,
                const char* directory) {
  return Composer(reader, context, directory, nullptr).Compose(type);
}

}  // namespace kx::engine

kx_object* kx_comp_object_lenient(const char* type, kx_reader reader,
                                  void* context, const char* directory,
                                  kx_refused refused) {
  const kx_objdef* def = kx_obj_by_type(type);
  if (def == nullptr) return nullptr;
  return kx::engine::Composer(reader, context, directory, refused)
      .Compose(*def);
}
