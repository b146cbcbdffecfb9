// Files that travel inside an object.
#include <sys/resource.h>
#include <sys/stat.h>

#include <random>

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
  return Parsed("obj-file", "pathname=" + path + "\n");
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
    const kx::Object back = Composed(
        "obj-file", Decomposed(FileObject("page.tif").get(), 1), "out");
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
  const std::pair<std::string, std::string> rows[] = {
      {" ", ""},
      {"`", ""},
      {"", ""},
      {"#8V%T", "cat"},
      {"#8V%Tjunk", "cat"},
      {"\"8V%", "ca"},
      {"#````", std::string(3, '\0')},
      {"#", std::string(3, '\0')},
      {"#8", std::string("\x60\0\0", 3)},
      {"_" + std::string(84, '_'), std::string(63, '\xff')}};
  for (const auto& [line, bytes] : rows) {
    FILE* file = std::fopen("out", "w");
    EXPECT_EQ(kx_outbuf(line.c_str(), file), static_cast<int>(bytes.size()));
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
    EXPECT_EQ(Composed("obj-file", Carrying(name), "top/out"), nullptr);
    EXPECT_EQ(kx_errno, kx_err_callback) << name;
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
    Pairs cut(whole.begin(), whole.begin() + static_cast<long>(n));
    for (const bool goes_on : {false, true}) {
      if (goes_on) cut.push_back({"objbeg", "x", 1});
      EXPECT_EQ(ErrorOf(Composed("obj-file", cut, ".").release()),
                kx_err_callback);
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
    EXPECT_STREQ(kx::Text(Composed(type, pairs).get(), field), "*");
    const kx::Object back = Composed(type, pairs, "out");
    EXPECT_STREQ(kx::Text(back.get(), field), "out/x") << type;
    EXPECT_TRUE(std::filesystem::remove("out/x")) << type;
  }
  // An argument that is no path, or does not say, is plain text.
  for (const char* says : {"", "ispath=false\n"}) {
    const std::string text = std::string(says) + "argstr=x\n";
    EXPECT_EQ(Decomposed(Parsed("obj-arg", text).get(), 1).end()[-2],
              (Pair{"argstr", "x", 3}));
  }
  EXPECT_STREQ(kx::Text(Composed("obj-arg",
                                 {{"argstr", "*", 3}, {"objend", "", 2}}, "out")
                            .get(),
                        "argstr"),
               "*");
}

TEST_F(EmbeddedFile, SpoolPathsMoveToTheFolder) {
  const std::string name(240, 'n');
  const std::pair<std::string, std::string> rows[] = {
      {"$NETSPOOL/page", "/spool/page"},
      {"$NETSPOOL/a b$*", "/spool/a b$*"},
      {"$NETSPOOL/sub/page", "$NETSPOOL/sub/page"},
      {"$NETSPOOLX/page", "$NETSPOOLX/page"},
      {"$NETSPOOL", "$NETSPOOL"},
      {"NETSPOOL/page", "NETSPOOL/page"},
      {"$NETSPOOL/" + name, "/spool/" + name},
  };
  const auto composed = [](const std::string& value, const char* folder) {
    return Composed("obj-file", {{"pathname", value, 3}, {"objend", "", 2}},
                    folder);
  };
  for (const auto& [value, stored] : rows) {
    EXPECT_EQ(kx::TextOrEmpty(composed(value, "/spool").get(), "pathname"),
              stored);
  }
  for (const char* value : {"$NETSPOOL/..", "$NETSPOOL/.", "$NETSPOOL/"}) {
    EXPECT_EQ(ErrorOf(composed(value, "/spool").release()), kx_err_data);
  }
  // What would not fit the field any more is refused, not cut.
  EXPECT_EQ(ErrorOf(composed(rows[6].first, "/a/longer/spool").release()),
            kx_err_data);
}

TEST_F(EmbeddedFile, IsStreamedInConstantMemory) {
  constexpr int kMegabytes = 32;
  Spill("big", "");
  std::filesystem::resize_file("big", kMegabytes << 20);
  const kx_writer drop = [](void*, const char*, const char*, int) { return 0; };
  const kx_reader make = [](void* context, char* name, char* value, int) {
    constexpr int kLines = (kMegabytes << 20) / 45;
    const int n = (*static_cast<int*>(context))++;
    const bool data = n > 0 && n < kLines + 2;
    std::strcpy(name, data ? "filedata" : n == 0 ? "filebeg" : "fileend");
    std::strcpy(value, !data ? "out" : n == kLines + 1 ? " " : "M");
    return 0;
  };
  rusage before, after;
  getrusage(RUSAGE_SELF, &before);
  int read = 0;
  EXPECT_EQ(kx_encode(drop, nullptr, "big"), 0);
  EXPECT_STREQ(kx_decode(make, &read, "."), "./out");
  EXPECT_EQ(std::filesystem::file_size("out"), (kMegabytes << 20) / 45 * 45);
  getrusage(RUSAGE_SELF, &after);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 4096);
}

}  // namespace
