// The object model inside the library: field tables, type descriptors, the
// registry, and the operations that every layer of this system may use beside
// the public ones of kx/kfx.h.
//
// - An object is one block: the reference to its type's descriptor, then its
//   fields in the order of the type's table, laid out as a C structure would
//   be. kx/kxtype.h computes the offsets.
// - Every function sets kx_errno, to 0 on success; results and error numbers
//   are those of the public functions unless said otherwise.
#ifndef KX_KXOBJ_H_
#define KX_KXOBJ_H_

#include <cstdio>

#include "kx/object.h"

// Whether a text field names a file whose contents may travel with the object.
enum class kx_carries : unsigned char {
  kNothing,
  kFile,
  kFileIfPath,  // only where the object's `ispath` is true
};

// One row of a type's field table; the row that ends a table has no name, and
// as its offset the size of the whole record.
struct kx_fielddef {
  const char* name;
  int type;    // kx_typ_str to kx_typ_obj
  int length;  // declared bytes of a text or data field, else 0
  int size;    // bytes that it takes in the record
  int offset;  // from the beginning of the record
  kx_carries carries;
};

// What the library knows of a type.
struct kx_objdef {
  const char* name;
  kx_object* (*create)();
  int (*del)(kx_object* obj);
  kx_object* (*copy)(kx_object* obj);
  int (*set)(kx_object* obj, const char* field, const void* value);
  void* (*get)(kx_object* obj, const char* field);
  kx_object* (*comp)(kx_reader reader, void* context, const char* directory);
  int (*decomp)(kx_object* obj, kx_writer writer, void* context, int embed);
  const kx_fielddef* fields;
};

// The beginning of every object.
struct kx_object {
  const kx_objdef* type;
};

// A list's node, an object of type "obj-list". The list is its first node.
struct kx_node : kx_object {
  kx_node* next;
  kx_node* prev;
  void* element;
};

// Each type's descriptor and its seven operations, which follow the contract of
// the public functions: kx_objdef_person, kx_create_person and so on.
#define KX_TYPE(t)                                                      \
  extern const kx_objdef kx_objdef_##t;                                 \
  kx_object* kx_create_##t();                                           \
  int kx_delete_##t(kx_object* obj);                                    \
  kx_object* kx_copy_##t(kx_object* obj);                               \
  int kx_set_##t(kx_object* obj, const char* field, const void* value); \
  void* kx_get_##t(kx_object* obj, const char* field);                  \
  kx_object* kx_comp_##t(kx_reader reader, void* context,               \
                         const char* directory);                        \
  int kx_decomp_##t(kx_object* obj, kx_writer writer, void* context, int embed);
#include "kx/kxtypes.def"
#undef KX_TYPE

// All types, ended by null.
extern const kx_objdef* const kx_objs[];

// "objbeg", "objend", "filebeg", "filedata", "fileend".
extern const char* const kx_obj_kwrds[5];

// The descriptor of a type, or null with 21.
const kx_objdef* kx_obj_by_type(const char* type);
// The descriptor of an object, or null with 21 for a null object.
const kx_objdef* kx_obj_info(kx_object* obj);
// The row of a field in a table, or null with 20.
const kx_fielddef* kx_field_list(const char* field, const kx_fielddef* table);
// The row of an object's field, or null with 20, or 21 for a null object.
const kx_fielddef* kx_field(const char* field, kx_object* obj);

kx_object* kx_create_object(const char* type);
int kx_delete_object(kx_object* obj);
kx_object* kx_copy_object(kx_object* obj);
kx_object* kx_comp_object(const char* type, kx_reader reader, void* context,
                          const char* directory);
int kx_decomp_object(kx_object* obj, kx_writer writer, void* context,
                     int embed);

// The name of one exchange, "SSSS-RRR" of the object's session number modulo
// 10000 and its reference number, in a static buffer. Null with 19 when either
// is unset or missing.
const char* kx_tmp_name(kx_object* obj);
// The next reference number of an "obj-connect", counted up in the object. -1
// with 21 for another object.
int kx_get_nextref(kx_object* connection);

#endif  // KX_KXOBJ_H_
