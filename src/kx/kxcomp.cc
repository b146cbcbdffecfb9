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

// What the allocator itself takes for a block, about.
constexpr long kBlockOverhead = 16;

class Composer {
 public:
  Composer(kx_reader reader, void* context, const char* directory,
           kx_refused refused, kx_budget* budget)
      : reader_(reader),
        context_(context),
        directory_(directory),
        refused_(refused),
        budget_(budget) {}

  // The object or list of the type, or null with kx_errno. A list that has no
  // elements is null with 0.
  kx_object* Run(const kx_objdef& type);

 private:
  // These are true with a null object for a list that has no elements, and for
  // what is only read over.
  bool Compose(const kx_objdef& type, Object* made);
  bool ComposeObject(const kx_objdef& type, Object* made);
  bool ComposeList(Object* made);
  // The object that a pair's value announces by its type's name. Never null but
  // over the budget.
  bool ComposeNamed(const char* type, Object* made);
  bool ReadElements(ListBuilder* list);
  bool ReadFields(const kx_objdef& type, kx_object* obj);
  bool ReadField(kx_object* obj, const kx_fielddef& field);
  bool ReadChild(kx_object* obj, const kx_fielddef& field);
  bool StoreFile(kx_object* obj, const kx_fielddef& field);
  bool StoreSpoolPath(kx_object* obj, const kx_fielddef& field);
  bool Next();
  bool IsOver() const {
    return budget_ != nullptr && (budget_->memory < 0 || budget_->input < 0);
  }
  // Takes a block from the budget; false when that is used up. From then on
  // nothing is made any more.
  bool Afford(std::size_t block) {
    if (budget_ == nullptr) return true;
    if (!IsOver()) budget_->memory -= static_cast<long>(block) + kBlockOverhead;
    return !IsOver();
  }
  static bool Fail(int error) {
    kx_errno = error;
    return false;
  }

  kx_reader reader_;
  void* context_;
  const char* directory_;
  kx_refused refused_;
  kx_budget* budget_;  // null: none
  int level_ = 0;
  // The pair read last. Nested objects use the same buffers: nobody looks at
  // them after going down a level.
  char name_[KX_PAIR_SIZE] = "";
  char value_[KX_PAIR_SIZE] = "";
};

// Half of what was nested must not pass for all of it.
void DropNested(const kx_objdef& type, kx_object* obj) {
  for (const kx_fielddef* f = type.fields; f->name != nullptr; ++f) {
    if (f->type != kx_typ_obj && f->type != kx_typ_list) continue;
    const Object nested(std::exchange(Reference(obj, *f), nullptr));
  }
}

kx_object* Composer::Run(const kx_objdef& type) {
  Object made;
  const bool done = Compose(type, &made);
  if (!IsOver()) return done ? made.release() : nullptr;
  // What ended early may have ended for the budget. What the outermost object
  // refused is a failure of its own.
  const bool keeps = budget_->keep_outermost && made != nullptr &&
                     (done || kx_errno == kx_err_callback);
  kx_errno = keeps ? kx_err_none : kx_err_too_long;
  if (!keeps) return nullptr;
  DropNested(type, made.get());
  return made.release();
}

bool Composer::Next() {
  if (reader_(context_, name_, value_, kx_read_next) != 0) {
    return Fail(kx_err_callback);
  }
  if (budget_ == nullptr) return true;
  budget_->input -= static_cast<long>(strlen(name_) + strlen(value_) + 2);
  return budget_->input >= 0 || Fail(kx_err_callback);
}

bool Composer::Compose(const kx_objdef& type, Object* made) {
  if (level_ == kLevelsMax) return Fail(kx_err_callback);
  ++level_;
  const bool done =
      &type == &kx_objdef_list ? ComposeList(made) : ComposeObject(type, made);
  --level_;
  if (done) kx_errno = kx_err_none;
  return done;
}

bool Composer::ComposeNamed(const char* type, Object* made) {
  const kx_objdef* def = kx_obj_by_type(type);
  return def != nullptr && Compose(*def, made) &&
         (*made != nullptr || IsOver());
}

bool Composer::ComposeObject(const kx_objdef& type, Object* made) {
  const bool affordable = Afford(RecordSize(type));
  if (!affordable && !budget_->keep_outermost) return Fail(kx_err_callback);
  if (affordable || level_ == 1) {
    made->reset(type.create());
    // Every failure to create counts as this one.
    if (*made == nullptr) return Fail(kx_err_object);
  }
  return ReadFields(type, made->get());
}

// Null for `obj` is an object that is only read over.
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
    return ReadChild(obj, field);
  }
  if (field.type == kx_typ_data) return true;  // never part of the text form
  if (obj == nullptr) return true;
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

bool Composer::ReadChild(kx_object* obj, const kx_fielddef& field) {
  const char* type = field.type == kx_typ_list ? kx_objdef_list.name : value_;
  Object child;
  if (!ComposeNamed(type, &child)) return Fail(kx_err_callback);
  if (obj == nullptr) return true;
  // A field that comes twice must not leak its first object.
  Object old(std::exchange(Reference(obj, field), child.release()));
  return true;
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
      strncmp(value_, kSpoolPrefix, kPrefix) != 0) {
    return true;
  }
  if (*base == '\0' || Same(base, ".") || Same(base, "..")) {
    return Fail(kx_err_data);
  }
  char path[2 * KX_PAIR_SIZE];
  const int length = snprintf(path, sizeof path, "%s/%s", directory_, base);
  if (length >= static_cast<int>(sizeof path) ||
      SetField(obj, field, path) != 0) {
    return Fail(kx_err_data);
  }
  return true;
}

bool Composer::ComposeList(Object* made) {
  ListBuilder list;
  if (!ReadElements(&list)) return false;
  if (!IsOver()) *made = list.Take();
  return true;
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
    Object element;
    if (!ComposeNamed(value_, &element)) return Fail(kx_err_callback);
    if (Afford(sizeof(kx_node)) && !list->Append(std::move(element))) {
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
  return Composer(reader, context, directory, nullptr, nullptr).Run(type);
}

}  // namespace kx::engine

kx_object* kx_comp_object_within(kx_budget* budget, const char* type,
                                 kx_reader reader, void* context,
                                 kx_refused refused) {
  const kx_objdef* def = kx_obj_by_type(type);
  if (def == nullptr) return nullptr;
  return kx::engine::Composer(reader, context, nullptr, refused, budget)
      .Run(*def);
}
