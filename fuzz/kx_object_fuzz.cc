// Any bytes as an object file of the type that it names. What composes must
// come back from its own text form, and from that of its copy, just the same.
#include <stdio.h>

#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "fuzz/objects.h"

namespace {

using fuzz::TextOf;

// The type that the first line names, else that of commands.
std::string TypeOf(kx_source* source) {
  char name[KX_PAIR_SIZE];
  char value[KX_PAIR_SIZE];
  if (kx_read_source(source, name, value, kx_read_next) != 0)
    return "obj-cmdrsp";
  kx_read_source(source, name, value, kx_read_push);
  return kx_obj_by_type(value) != nullptr ? value : "obj-cmdrsp";
}

kx::Object ObjectOf(const std::string& text) {
  std::string bytes = text;
  kx_source source = {fmemopen(bytes.data(), bytes.size(), "r")};
  if (source.file == nullptr) return nullptr;
  kx::Object obj(
      Kfx_Comp_Obj(TypeOf(&source).c_str(), kx_read_source, &source, nullptr));
  CHECK(obj == nullptr || kx_errno == 0);
  fclose(source.file);
  return obj;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const kx::Object obj =
      ObjectOf(std::string(reinterpret_cast<const char*>(data), size));
  if (obj == nullptr) return 0;
  const std::string text = TextOf(obj.get());
  const kx::Object back = ObjectOf(text);
  CHECK(back != nullptr);
  CHECK(TextOf(back.get()) == text);
  const kx::Object copy(Kfx_Copy_Obj(obj.get()));
  CHECK(TextOf(copy.get()) == text);
  return 0;
}
