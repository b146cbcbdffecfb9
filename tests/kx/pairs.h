// Streams of pairs in memory, and files to read them from: what the tests of
// the object library have in common.
#ifndef KX_PAIRS_H_
#define KX_PAIRS_H_

#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "support/objects.h"
#include "support/temp_dir.h"

struct Pair {
  std::string name, value;
  int code;
  bool operator==(const Pair&) const = default;
};
using Pairs = std::vector<Pair>;

inline void PrintTo(const Pair& pair, std::ostream* out) {
  *out << pair.code << ' ' << pair.name << '=' << pair.value;
}

// Writer and reader over `pairs`. The writer fails at call `fail_at`, the
// reader delivers `limit` pairs.
struct Stream {
  Pairs pairs = {};
  std::size_t at = 0;
  std::size_t calls = 0;
  std::size_t fail_at = SIZE_MAX;
  std::size_t limit = SIZE_MAX;

  static int Write(void* context, const char* name, const char* value,
                   int code) {
    auto* self = static_cast<Stream*>(context);
    if (self->calls++ == self->fail_at) return 7;
    if (name != nullptr) self->pairs.push_back({name, value, code});
    return 0;
  }
  static int Read(void* context, char* name, char* value, int mode) {
    auto* self = static_cast<Stream*>(context);
    if (mode == kx_read_push) return static_cast<void>(self->at--), 0;
    if (self->at >= self->pairs.size() || self->at >= self->limit) return -1;
    const Pair& pair = self->pairs[self->at++];
    std::strcpy(name, pair.name.c_str());
    std::strcpy(value, pair.value.c_str());
    return 0;
  }
};

inline Pairs Decomposed(kx_object* obj, int embed = 0) {
  Stream stream;
  EXPECT_EQ(Kfx_Decomp_Obj(obj, Stream::Write, &stream, embed), 0);
  return stream.pairs;
}

inline kx::Object Composed(const char* type, const Pairs& pairs,
                           const char* directory = nullptr) {
  Stream stream{.pairs = pairs};
  return kx::Object(Kfx_Comp_Obj(type, Stream::Read, &stream, directory));
}

// A folder of its own for each test, which is the working directory meanwhile.
class FolderTest : public testing::Test {
 protected:
  FolderTest() : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(folder_.path());
  }
  ~FolderTest() override { std::filesystem::current_path(before_); }
  static void Spill(const std::string& path, const std::string& bytes) {
    std::filesystem::remove(path);  // truncating syncs on some file systems
    WriteFile(path, bytes);
  }
  // Loads an object from a file of these bytes.
  static kx::Object Loaded(const char* type, const std::string& bytes) {
    Spill("object", bytes);
    return kx::Object(Kfx_Load_Obj(type, "object"));
  }
  // The same of bytes that may be no object: the error.
  static int ErrorOfLoading(const char* type, const std::string& bytes) {
    return ErrorOf(Loaded(type, bytes).release());
  }

  const TempDir folder_;

 private:
  const std::filesystem::path before_;
};

#endif  // KX_PAIRS_H_
