// Objects to and from their text form, in memory.
#ifndef FUZZ_OBJECTS_H_
#define FUZZ_OBJECTS_H_

#include <stdio.h>

#include <cstdlib>
#include <string>

#include "fuzz/check.h"
#include "kx/kxtext.h"
#include "kx/object.h"

namespace fuzz {

// Null where there is no object of the type in the text.
inline kx::Object ObjectOf(std::string text, const char* type) {
  kx_source source = {fmemopen(text.data(), text.size(), "r")};
  if (source.file == nullptr) return nullptr;
  kx::Object obj(Kfx_Comp_Obj(type, kx_read_source, &source, nullptr));
  fclose(source.file);
  return obj;
}

inline std::string TextOf(kx_object* obj) {
  char* bytes = nullptr;
  std::size_t size = 0;
  FILE* file = open_memstream(&bytes, &size);
  CHECK(Kfx_Decomp_Obj(obj, kx_write_pair_fp, file, 0) == 0);
  fclose(file);
  std::string text(bytes, size);
  std::free(bytes);
  return text;
}

// Of all objects of a list, which may be null.
inline std::string TextOfList(kx_object* list) {
  std::string text;
  for (kx_object* element : kx::Elements(list)) text += TextOf(element);
  return text;
}

}  // namespace fuzz

#endif  // FUZZ_OBJECTS_H_
