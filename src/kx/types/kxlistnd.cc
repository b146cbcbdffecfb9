// "obj-list": the node of a list; the list is its first node. Deleting, copying
// and the text form act on the whole list and go along it, never down it, so
// that its length is no matter.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {{"objptr", kx_typ_obj}};
constexpr auto kTable = kx::MakeTable(kRows);

}  // namespace

constinit const kx_objdef kx_objdef_list = {
    "obj-list",  kx_create_list, kx_delete_list, kx_copy_list, kx_set_list,
    kx_get_list, kx_comp_list,   kx_decomp_list, kTable.data()};

// The empty list is the null list.
kx_object* kx_create_list() {
  kx_errno = kx_err_none;
  return nullptr;
}

int kx_delete_list(kx_object* list) {
  if (!kx::engine::IsOfType(kx_objdef_list, list)) return -1;
  for (kx_object* element : kx::Elements(list)) {
    if (element != nullptr) Kfx_Free_Obj(element);
  }
  Kfx_Bscrap(list);
  kx_errno = kx_err_none;
  return 0;
}

kx_object* kx_copy_list(kx_object* list) {
  if (!kx::engine::IsOfType(kx_objdef_list, list)) return nullptr;
  kx_object* copy = Kfx_Bdup(list);
  if (copy == nullptr) return nullptr;
  for (auto* node = static_cast<kx_node*>(copy); node != nullptr;
       node = node->next) {
    if (node->element == nullptr) continue;
    node->element = Kfx_Copy_Obj(static_cast<kx_object*>(node->element));
  }
  kx_errno = kx_err_none;
  return copy;
}

// A node's element is the list functions' business.
int kx_set_list(kx_object*, const char*, const void*) {
  kx_errno = kx_err_field;
  return -1;
}

void* kx_get_list(kx_object*, const char*) {
  kx_errno = kx_err_field;
  return nullptr;
}

kx_object* kx_comp_list(kx_reader reader, void* context,
                        const char* directory) {
  return kx::engine::Comp(kx_objdef_list, reader, context, directory);
}

int kx_decomp_list(kx_object* list, kx_writer writer, void* context,
                   int embed) {
  return kx::engine::Decomp(kx_objdef_list, list, writer, context, embed);
}
