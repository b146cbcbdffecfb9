// Files that travel inside an object.
#include <sys/resource.h>
#include <sys/stat.h>

#include <random>
#include <tuple>

#include "pairs.h"

namespace {

using EmbeddedFile = FolderTest;

std::string RandomBytes(std::size_t count) {
  std::mt19937 random(42);
  std::string bytes(count, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

// An "obj-file" that names the path.
kx::Object FileObject(const std::string& path) {
  kx::Object obj = kx::Build("obj-file");
  EXPECT_EQ(kx::SetText(obj.get(), "pathname", path.c_str()), 0);
  return obj;
}

// The pairs of an "obj-file" that carries a file of this name.
Pairs Carrying(const std::string& name) {
  return {{"pathname", "*", 3},     {"filebeg", name, 4},
          {"filedata", "#8V%T", 6},  // "cat"
          {"filedata", " ", 6},     {"fileend", name, 5},
          {"objend", "obj-file", 2}};
}

TEST_F(EmbeddedFile, KeepsItsBytes) {
  std::filesystem::create_directory("out");
  for (const std::size_t size :
       {0U, 1U, 2U, 3U, 44U, 45U, 46U, 90U, 4095U, 4096U, 1U << 20}) {
    const std::string bytes = RandomBytes(size);
    Spill("page.tif", bytes);
    const Pairs pairs = Decomposed(FileObject(folder_ / "page.tif").get(), 1);
    EXPECT_EQ(pairs.size(), 6 + (size + 44) / 45) << size;
    const kx::Object back = Composed("obj-file", pairs, "out");
    ASSERT_NE(back, nullptr) << size;
    EXPECT_STREQ(kx::Text(back.get(), "pathname"), "out/page.tif");
    EXPECT_TRUE(ReadFile("out/page.tif") == bytes) << size;
  }
}

TEST_F(EmbeddedFile, IsTheseVeryLines) {
  Spill("f", std::string(46, '\0'));
  EXPECT_EQ(Decomposed(FileObject("f").get(), 1),
            (Pairs{{"objbeg", "obj-file", 1},
                   {"pathname", "*", 3},
                   {"filebeg", "f", 4},
                   {"filedata", "M" + std::string(60, ' '), 6},
                   {"filedata", "!    ", 6},
                   {"filedata", " ", 6},
                   {"fileend", "f", 5},
                   {"objend", "obj-file", 2}}));
  EXPECT_EQ(Decomposed(FileObject("f").get())[1], (Pair{"pathname", "f", 3}))
      << "only when asked to embed";
}

// Other writers use the back-quote for zero bits and lose blanks at the end of
// a line; lines may be longer than ours.
TEST_F(EmbeddedFile, DecodesWhatOthersWrite) {
  const std::tuple<std::string, std::string, int> rows[] = {
      {" ", "", 0},
      {"`", "", 0},
      {"", "", 0},
      {"#8V%T", "cat", 3},
      {"#8V%Tjunk", "cat", 3},
      {"\"8V%", "ca", 2},
      {"#````", std::string(3, '\0'), 3},
      {"#", std::string(3, '\0'), 3},
      {"#8", std::string("\x60\0\0", 3), 3},
      {"_" + std::string(84, '_'), std::string(63, '\xff'), 63},
  };
  for (const auto& [line, bytes, count] : rows) {
    FILE* file = std::fopen("out", "w");
    EXPECT_EQ(kx_outbuf(line.c_str(), file), count) << line;
    std::fclose(file);
    EXPECT_EQ(ReadFile("out"), bytes) << line;
  }
}

TEST_F(EmbeddedFile, StaysInItsFolder) {
  std::filesystem::create_directories("top/out");
  for (const char* name : {"../x", "/x", "a/../../x", "..\\x", "top/x", "x"}) {
    const kx::Object obj = Composed("obj-file", Carrying(name), "top/out");
    ASSERT_NE(obj, nullptr) << name;
    EXPECT_STREQ(kx::Text(obj.get(), "pathname"), "top/out/x") << name;
    EXPECT_EQ(ReadFile("top/out/x"), "cat") << name;
    std::filesystem::remove("top/out/x");
  }
  for (const char* name : {"", ".", "..", "a/", "a/..", "a\\."}) {
    Stream stream{.pairs = Carrying(name), .at = 1};
    EXPECT_EQ(kx_decode(Stream::Read, &stream, "top/out"), nullptr) << name;
    EXPECT_EQ(kx_errno, kx_err_data) << name;
    EXPECT_EQ(
        ErrorOf(Composed("obj-file", Carrying(name), "top/out").release()),
        kx_err_callback)
        << name;
  }
  const std::string longest(255, 'n');  // fits a name, but no path field
  EXPECT_EQ(Composed("obj-file", Carrying(longest), "top/out"), nullptr);
  std::filesystem::remove("top/out");
  EXPECT_TRUE(std::filesystem::is_empty("top")) << "nothing left elsewhere";
}

// What lies in the folder is replaced, never written through.
TEST_F(EmbeddedFile, ReplacesWhatIsThere) {
  Spill("victim", "mine");
  std::filesystem::create_directory("out");
  const auto unpack = [] {
    return Composed("obj-file", Carrying("x"), "out") != nullptr &&
           ReadFile("out/x") == "cat";
  };
  std::filesystem::create_symlink("../victim", "out/x");
  EXPECT_TRUE(unpack());
  std::filesystem::remove("out/x");
  std::filesystem::create_hard_link("victim", "out/x");
  EXPECT_TRUE(unpack());
  std::filesystem::remove("out/x");
  ASSERT_EQ(mkfifo("out/x", 0600), 0);  // would block a writer for ever
  EXPECT_TRUE(unpack());
  EXPECT_EQ(ReadFile("victim"), "mine");
  std::filesystem::remove("out/x");
  std::filesystem::create_directory("out/x");
  EXPECT_FALSE(unpack());
  EXPECT_FALSE(Composed("obj-file", Carrying("x"), "no/such"));
}

// Cut anywhere: no object, and no half file in place of a whole one.
TEST_F(EmbeddedFile, CutShortChangesNothing) {
  const Pairs whole = Carrying("x");
  Spill("x", "old");
  for (std::size_t n = 1; n + 1 < whole.size(); ++n) {
    const Pairs cut(whole.begin(), whole.begin() + static_cast<long>(n));
    for (const Pair& next : {Pair{"objbeg", "x", 1}, Pair{"", "", 0}}) {
      Stream stream{.pairs = cut};
      if (next.code != 0) stream.pairs.push_back(next);
      EXPECT_EQ(Kfx_Comp_Obj("obj-file", Stream::Read, &stream, "."), nullptr);
      EXPECT_EQ(kx_errno, kx_err_callback) << n;
    }
  }
  EXPECT_EQ(ReadFile("x"), "old");
  std::filesystem::remove("x");
  EXPECT_TRUE(std::filesystem::is_empty("."));
}

TEST_F(EmbeddedFile, ThatCannotBeRead) {
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  for (const char* path : {"missing", "fifo", "."}) {
    Stream stream;
    EXPECT_EQ(ErrorOf(kx_encode(Stream::Write, &stream, path)), kx_err_system);
    EXPECT_NE(Kfx_Decomp_Obj(FileObject(path).get(), Stream::Write, &stream, 1),
              0);
    EXPECT_EQ(kx_errno, kx_err_callback) << path;
  }
  Spill("file", RandomBytes(100));
  for (std::size_t n = 0; n < 6; ++n) {  // filebeg, four lines, fileend
    Stream stream{.fail_at = n};
    EXPECT_EQ(ErrorOf(kx_encode(Stream::Write, &stream, "file")),
              kx_err_callback)
        << n;
  }
}

// All five fields that carry files, each with its own type.
TEST_F(EmbeddedFile, TravelsInFiveFields) {
  Spill("x", "cat");
  std::filesystem::create_directory("out");
  const std::pair<const char*, const char*> rows[] = {{"obj-file", "pathname"},
                                                      {"obj-senv", "pathname"},
                                                      {"obj-reqcd", "clntpath"},
                                                      {"obj-cover", "notefile"},
                                                      {"obj-arg", "argstr"}};
  for (const auto& [type, field] : rows) {
    const kx::Object obj = kx::Build(type);
    kx::SetText(obj.get(), field, "x");
    kx::SetBool(obj.get(), "ispath", true);
    const Pairs pairs = Decomposed(obj.get(), 1);
    kx::Object back = Composed(type, pairs);
    EXPECT_STREQ(kx::Text(back.get(), field), "*") << "no folder, no file";
    back = Composed(type, pairs, "out");
    ASSERT_NE(back, nullptr) << type;
    EXPECT_STREQ(kx::Text(back.get(), field), "out/x") << type;
    EXPECT_TRUE(std::filesystem::remove("out/x")) << type;
  }
  // An argument that is no path, or does not say, is plain text.
  const kx::Object arg = kx::Build("obj-arg");
  kx::SetText(arg.get(), "argstr", "x");
  EXPECT_EQ(Decomposed(arg.get(), 1)[1], (Pair{"argstr", "x", 3}));
  kx::SetBool(arg.get(), "ispath", false);
  EXPECT_EQ(Decomposed(arg.get(), 1)[2], (Pair{"argstr", "x", 3}));
  kx::SetText(arg.get(), "argstr", "*");
  const kx::Object star = Composed("obj-arg", Decomposed(arg.get()), "out");
  EXPECT_STREQ(kx::Text(star.get(), "argstr"), "*");
}

TEST_F(EmbeddedFile, SpoolPathsMoveToTheFolder) {
  const std::string name(240, 'n');
  const struct {
    std::string value;
    std::string stored;  // empty: refused
  } rows[] = {
      {"$NETSPOOL/page", "/spool/page"},
      {"$NETSPOOL/a b$*", "/spool/a b$*"},
      {"$NETSPOOL/sub/page", "$NETSPOOL/sub/page"},
      {"$NETSPOOLX/page", "$NETSPOOLX/page"},
      {"$NETSPOOL", "$NETSPOOL"},
      {"NETSPOOL/page", "NETSPOOL/page"},
      {"$NETSPOOL/" + name, "/spool/" + name},
      {"$NETSPOOL/..", ""},
      {"$NETSPOOL/.", ""},
      {"$NETSPOOL/", ""},
  };
  for (const auto& row : rows) {
    const Pairs pairs = {{"pathname", row.value, 3}, {"objend", "", 2}};
    const kx::Object obj = Composed("obj-file", pairs, "/spool");
    EXPECT_EQ(obj != nullptr, !row.stored.empty()) << row.value;
    if (obj != nullptr) {
      EXPECT_EQ(kx::Text(obj.get(), "pathname"), row.stored);
    } else {
      EXPECT_EQ(kx_errno, kx_err_data) << row.value;
    }
  }
  // What would not fit the field any more is refused, not cut.
  const std::string folder(20, 'd');
  EXPECT_EQ(Composed("obj-file", {{"pathname", "$NETSPOOL/" + name, 3}},
                     folder.c_str()),
            nullptr);
  EXPECT_EQ(kx_errno, kx_err_data);
}

long PeakKilobytes() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

TEST_F(EmbeddedFile, IsStreamedInConstantMemory) {
  constexpr int kMegabytes = 32;
  Spill("big", "");
  std::filesystem::resize_file("big", kMegabytes << 20);
  const kx_writer drop = [](void*, const char*, const char*, int) { return 0; };
  const kx_reader make = [](void* context, char* name, char* value, int) {
    constexpr int kLines = (kMegabytes << 20) / 45;
    const int n = (*static_cast<int*>(context))++;
    std::strcpy(name, n == 0           ? "filebeg"
                      : n < kLines + 2 ? "filedata"
                                       : "fileend");
    std::strcpy(value, n == 0 ? "out" : n == kLines + 1 ? " " : "M");
    return 0;
  };
  const long before = PeakKilobytes();
  int read = 0;
  EXPECT_EQ(kx_encode(drop, nullptr, "big"), 0);
  EXPECT_STREQ(kx_decode(make, &read, "."), "./out");
  EXPECT_EQ(std::filesystem::file_size("out"), (kMegabytes << 20) / 45 * 45);
  EXPECT_LT(PeakKilobytes() - before, 4096);
}

}  // namespace
