// Any bytes as an object file that may carry embedded files, unpacked into a
// folder of its own. Nothing may be written outside, nothing be left when the
// compose fails half way through a file, and what was unpacked must come back
// byte by byte from its own encoding.
#include <stdio.h>
#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "fuzz/check.h"
#include "kx/kxtext.h"

namespace {

namespace fs = std::filesystem;

std::string Slurp(const fs::path& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

// A folder of this process, which lives as long as it does, with two folders in
// it: where the object's files are unpacked, and where what came of them is.
struct Folders {
  fs::path top, in, copies;

  Folders() {
    std::string name =
        std::string(fs::exists("/dev/shm") ? "/dev/shm" : "/tmp") +
        "/kx_file_fuzz-XXXXXX";
    CHECK(mkdtemp(name.data()) != nullptr);
    top = name;
    // Names of one length, or the longest that fit in one do not in the other.
    in = top / "in";
    copies = top / "re";
    fs::create_directory(in);
    fs::create_directory(copies);
  }
  ~Folders() { fs::remove_all(top); }
};

const Folders& Place() {
  static const Folders folders;
  return folders;
}

kx::Object ObjectOf(std::string bytes, const fs::path& directory) {
  kx_source source = {fmemopen(bytes.data(), bytes.size(), "r")};
  if (source.file == nullptr) return nullptr;
  kx::Object obj(
      Kfx_Comp_Obj("obj-file", kx_read_source, &source, directory.c_str()));
  fclose(source.file);
  return obj;
}

void EncodeAgain(const fs::path& file, const fs::path& copies) {
  char* bytes = nullptr;
  std::size_t size = 0;
  FILE* lines = open_memstream(&bytes, &size);
  CHECK(kx_encode(kx_write_pair_fp, lines, file.c_str()) == 0);
  fclose(lines);
  kx_source source = {fmemopen(bytes, size, "r")};
  const char* path = kx_decode(kx_read_source, &source, copies.c_str());
  CHECK(path != nullptr && Slurp(path) == Slurp(file));
  fclose(source.file);
  free(bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const Folders& place = Place();
  const kx::Object obj = ObjectOf(
      std::string(reinterpret_cast<const char*>(data), size), place.in);
  for (const auto& entry : fs::directory_iterator(place.top)) {
    CHECK(entry.path() == place.in || entry.path() == place.copies);
  }
  bool copied = false;
  for (const auto& entry : fs::directory_iterator(place.in)) {
    CHECK(entry.is_regular_file() && !entry.is_symlink());
    // Temporary files begin like this; a stream may name one so, too.
    if (!entry.path().filename().string().starts_with(".new-")) {
      EncodeAgain(entry.path(), place.copies);
      copied = true;
    }
    fs::remove(entry.path());
  }
  if (!copied) return 0;
  for (const auto& entry : fs::directory_iterator(place.copies)) {
    fs::remove(entry.path());
  }
  return 0;
}
