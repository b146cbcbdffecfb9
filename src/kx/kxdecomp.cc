// Decomposing: from an object to a writer's pairs.
#include <algorithm>
#include <cstring>

#include "kx/kxtext.h"
#include "kx/kxtype.h"
#include "util/kutstr.h"

namespace kx::engine {
namespace {

struct Sink {
  kx_writer writer;
  void* context;
  int embed;

  bool Put(const char* name, const char* value, int code) const {
    return kx_put_pair(writer, context, name, value, code) == 0;
  }
};

bool PutAny(const Sink& sink, kx_object* obj) {
  return obj->type->decomp(obj, sink.writer, sink.context, sink.embed) == 0;
}

bool PutField(const Sink& sink, kx_object* obj, const kx_fielddef& field) {
  if (field.type == kx_typ_data) return true;  // memory, not for others' eyes
  void* value = GetField(obj, field);
  if (value == nullptr) return true;
  if (IsReference(field.type, field.length)) {
    auto* child = static_cast<kx_object*>(value);
    return sink.Put(field.name, child->type->name, kx_write_field) &&
           PutAny(sink, child);
  }
  const auto* text = static_cast<const char*>(value);
  if (sink.embed == 0 || !CarriesFile(obj, field)) {
    return sink.Put(field.name, text, kx_write_field);
  }
  return sink.Put(field.name, "*", kx_write_field) &&
         kx_encode(sink.writer, sink.context, text) == 0;
}

bool PutFields(const Sink& sink, const kx_objdef& type, kx_object* obj) {
  for (const kx_fielddef* f = type.fields; f->name != nullptr; ++f) {
    if (!PutField(sink, obj, *f)) return false;
  }
  return true;
}

bool PutElements(const Sink& sink, kx_object* list) {
  for (kx_object* element : Elements(list)) {
    if (element == nullptr) continue;
    if (!sink.Put("objptr", element->type->name, kx_write_field) ||
        !PutAny(sink, element)) {
      return false;
    }
  }
  return true;
}

}  // namespace

int Decomp(const kx_objdef& type, kx_object* obj, kx_writer writer,
           void* context, int embed) {
  if (!IsOfType(type, obj)) return -1;
  const Sink sink = {writer, context, embed};
  const bool is_list = &type == &kx_objdef_list;
  const bool done =
      sink.Put(kx_obj_kwrds[0], type.name, kx_write_obj_begin) &&
      (is_list ? PutElements(sink, obj) : PutFields(sink, type, obj)) &&
      sink.Put(kx_obj_kwrds[1], type.name, kx_write_obj_end);
  kx_errno = done ? kx_err_none : kx_err_callback;
  return done ? 0 : -1;
}

}  // namespace kx::engine

int kx_put_pair(kx_writer writer, void* context, const char* name,
                const char* value, int code) {
  if (strchr(value, '\n') == nullptr) {
    return writer(context, name, value, code);
  }
  char clean[KX_PAIR_SIZE];
  Kut_strcpyz(clean, value, sizeof clean);
  std::replace(clean, clean + strlen(clean), '\n', ' ');
  return writer(context, name, clean, code);
}
