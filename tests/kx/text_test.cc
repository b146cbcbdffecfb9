// What a file of pairs may hold without doing harm.
#include <sys/stat.h>

#include <climits>

#include "pairs.h"
#include "util/kutmem.h"

namespace {

using TextForm = FolderTest;

std::string Repeated(const std::string& text, int times) {
  std::string result;
  for (int i = 0; i < times; ++i) result += text;
  return result;
}

TEST_F(TextForm, IsTheseVeryLines) {
  const std::string lines =
      "objbeg=obj-cmdrsp\nclientid=jsmith\nhostname=hostA\nsessionid=1234\n"
      "reference=7\ncmdtype=cmd-status\niscmd=true\nobjptr=obj-reqid\n"
      "objbeg=obj-reqid\nseqno=42\nreqtype=req-regular\nobjend=obj-reqid\n"
      "objend=obj-cmdrsp\n";
  const kx::Object obj = Loaded("", lines);
  ASSERT_NE(obj, nullptr);
  char address[64] = "10.0.0.1";
  Kfx_Set(obj.get(), "hostaddr", address);  // data: never in the text form
  ASSERT_EQ(Kfx_Save_Obj(obj.get(), "again"), 0);
  EXPECT_EQ(ReadFile("again"), lines);
}

TEST_F(TextForm, EveryLineHasOneMeaning) {
  const struct {
    std::string lines;
    const char* text;  // what `text` of the "obj-text" is then; null for unset
    int error = 0;
  } inputs[] = {
      // Neither "objbeg" nor the name of "objend" is required, nor the last
      // line's newline.
      {"text=a\nobjend=obj-text\n", "a"},
      {"text=a=b==\nobjend=obj-arg", "a=b=="},
      {"text= \t\x01\x1b\x7f\xff\r\nobjend=\n", " \t\x01\x1b\x7f\xff\r"},
      {"objbeg=obj-text\nobjbeg=obj-text\nobjend=\n", nullptr},
      {"text=a\ntext=\nobjend=\n", nullptr},
      {"text=a\ntext=b\nobjend=\n", "b"},
      {"=a\nTEXT=a\n text=a\ntext =a\nobjend=\n", nullptr},
      {"filebeg=x\nfiledata=!\nfileend=x\nobjptr=obj-arg\nobjend=\n", nullptr},
      // What follows a NUL is lost, but it is no line of its own.
      {std::string("text=a\0\nz=1\nobjend=\n", 20), "a"},
      {std::string("x=\0text=a\nobjend=\n", 18), nullptr},
      {std::string("\0text=a\nobjend=\n", 16), nullptr, kx_err_callback},
      {"", nullptr, kx_err_callback},
      {"text=a\n", nullptr, kx_err_callback},
      {"text=a\n\nobjend=\n", nullptr, kx_err_callback},
      {"text\nobjend=\n", nullptr, kx_err_callback},
      {"objend\n", nullptr, kx_err_callback},
      {"objbeg=obj-arg\nobjend=\n", nullptr, kx_err_object},
      {"objbeg=obj-textual\nobjend=\n", nullptr, kx_err_object},
      {"objbeg=\nobjend=\n", nullptr, kx_err_object}};
  for (const auto& [lines, text, error] : inputs) {
    const kx::Object obj = Loaded("obj-text", lines);
    ASSERT_EQ(kx_errno, error) << lines;
    ASSERT_EQ(obj != nullptr, error == 0) << lines;
    if (error == 0) {
      EXPECT_STREQ(kx::Text(obj.get(), "text"), text) << lines;
    }
  }
}

// Around every size of a buffer. A line that fills it is read in pieces, and a
// piece without "=" ends the object.
TEST_F(TextForm, LinesOfEveryLength) {
  constexpr std::size_t kPiece = KX_PAIR_SIZE - 1;
  for (std::size_t n = 0; n <= 2000; ++n) {
    const std::string run(n, 'x');
    const std::string tail = "\ntext=next\nobjend=obj-text\n";
    kx::Object obj = Loaded("obj-text", "text=" + run + tail);
    ASSERT_EQ(obj != nullptr, n <= 255) << n;
    ASSERT_EQ(kx_errno, n <= 255 ? 0 : kx_err_data) << n;
    const std::string unknown = "unknown=" + run;
    obj = Loaded("obj-text", unknown + tail);
    ASSERT_EQ(obj != nullptr, unknown.size() < kPiece) << n;
    obj = Loaded("obj-text", run.substr(0, 500) + "=value" + tail);
    ASSERT_NE(obj, nullptr) << n;
    ASSERT_STREQ(kx::Text(obj.get(), "text"), "next") << n;
  }
}

TEST_F(TextForm, NumbersAreClamped) {
  const std::pair<const char*, int> rows[] = {
      {"2147483648", INT_MAX},
      {"4294967295", INT_MAX},
      {"99999999999999999999999", INT_MAX},
      {"-2147483649", INT_MIN},
      {"-99999999999999999999999", INT_MIN},
      {" 12 monkeys", 12},
      {"abc", 0},
      {"+", 0}};
  for (const auto& [text, value] : rows) {
    const std::string line = std::string("seqno=") + text;
    const kx::Object obj = Loaded("obj-reqid", line + "\nobjend=\n");
    ASSERT_NE(obj, nullptr) << text;
    EXPECT_EQ(kx::Number(obj.get(), "seqno"), value) << text;
  }
  for (const char* line : {"seqno=-1", "seqno=-1x", "reqtype=req-none",
                           "reqtype=40", "reqtype=REQ-EXP"}) {
    EXPECT_EQ(ErrorOfLoading("obj-reqid", line), kx_err_data) << line;
  }
}

TEST_F(TextForm, NestsSixtyFourLevels) {
  for (const int levels : {1, 63, 64, 65, 66, 100000}) {
    EXPECT_EQ(
        ErrorOfLoading("obj-pbcom", Repeated("objptr=obj-pbcom\n", levels - 1) +
                                        Repeated("objend=obj-pbcom\n", levels)),
        levels <= 64 ? 0 : kx_err_callback)
        << levels;
  }
  // Lists in lists go just as deep.
  for (const int lists : {63, 64, 100000}) {
    EXPECT_EQ(
        ErrorOfLoading("obj-dest",
                       "ltags=obj-list\n" +
                           Repeated("objptr=obj-list\n", lists - 1) +
                           "objptr=obj-text\nobjend=\n" +
                           Repeated("objend=obj-list\n", lists) + "objend=\n"),
        lists + 2 <= 64 ? 0 : kx_err_callback)
        << lists;
  }
}

TEST_F(TextForm, NestedFailureIsOneOfTheHolder) {
  for (const char* lines : {
           "ltags=obj-list\nobjbeg=obj-list\nobjend=obj-list\nobjend=\n",
           "ltags=obj-list\nobjend=\nobjend=\n",  // no writer emits it empty
           "ltags=obj-list\nobjbeg=obj-text\nobjend=\nobjend=\n",
           "ltags=obj-list\nobjptr=obj-none\nobjend=\nobjend=\n",
           "ltags=obj-list\nobjptr=obj-localtag\nobjend=\nobjend=\n",
           "ltags=obj-list\nobjptr=obj-localtag\ntagname=12345678901234567\n",
       }) {
    EXPECT_EQ(ErrorOfLoading("obj-dest", lines), kx_err_callback) << lines;
  }
  EXPECT_EQ(Loaded("obj-list", "objbeg=obj-list\nobjend=\n"), nullptr);
  EXPECT_EQ(kx_errno, 0);
  EXPECT_EQ(ErrorOfLoading("obj-list", "objptr=obj-text\nobjend=\nobjbeg=x\n"),
            kx_err_object);
}

// The last one counts and the others are freed, as the sanitizer build sees.
TEST_F(TextForm, DoubledFieldsDoNotLeak) {
  const std::string list =
      "ltags=\nobjptr=obj-localtag\ntagname=a\nobjend=\nobjend=\n";
  const kx::Object dest = Loaded("obj-dest", Repeated(list, 3) + "objend=\n");
  EXPECT_EQ(Kfx_Bcount(kx::Child(dest.get(), "ltags")), 1);
  const std::string part = "reqidptr=obj-text\ntext=a\nobjend=\n";
  const kx::Object modify = Loaded("obj-modify", Repeated(part, 3) + "objend=");
  EXPECT_STREQ(kx::Text(kx::Child(modify.get(), "reqidptr"), "text"), "a");
}

TEST_F(TextForm, NewlineCannotInjectAField) {
  const kx::Object obj = kx::Build("obj-faxinfo");
  kx::SetText(obj.get(), "filename", "a\nseqno=1\n\nobjend=");
  ASSERT_EQ(Kfx_Save_Obj(obj.get(), "object"), 0);
  EXPECT_EQ(ReadFile("object"),
            "objbeg=obj-faxinfo\nfilename=a seqno=1  objend=\n"
            "objend=obj-faxinfo\n");
  // Nor can the name of a file on disk.
  Stream stream;
  Spill("a\nseqno=1", "");
  ASSERT_EQ(kx_encode(Stream::Write, &stream, "a\nseqno=1"), 0);
  EXPECT_EQ(stream.pairs[0], (Pair{"filebeg", "a seqno=1", 4}));
}

TEST_F(TextForm, ObjectFileThatCannotBe) {
  const kx::Object obj = kx::Build("obj-text");
  for (const char* lines : {"", "\nobjbeg=obj-text\n", "objbeg\n"}) {
    EXPECT_EQ(ErrorOfLoading(nullptr, lines), kx_err_system) << lines;
  }
  for (const char* lines :
       {"text=a\nobjend=\n", "objbeg=obj-none\nobjend=\n"}) {
    EXPECT_EQ(ErrorOfLoading("", lines), kx_err_object) << lines;
  }
  EXPECT_EQ(ErrorOfLoading("obj-none", "objend=\n"), kx_err_object);
  // A fifo without a writer must not hold the reader, nor a link lead it away.
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  std::filesystem::create_symlink("object", "link");
  for (const char* path : {"fifo", "link", ".", "no-such-file"}) {
    EXPECT_EQ(ErrorOf(Kfx_Load_Obj("obj-text", path)), kx_err_system) << path;
  }
  // Nor is anything but a file replaced by one.
  for (const char* path : {"fifo", ".", "no/such/folder"}) {
    EXPECT_EQ(ErrorOf(Kfx_Save_Obj(obj.get(), path)), kx_err_system) << path;
  }
  EXPECT_TRUE(std::filesystem::is_fifo("fifo"));
}

// A composer that hears of every refused value of the outermost object.
TEST_F(TextForm, LenientComposerMayWaiveARefusal) {
  static std::string g_heard;
  const kx_refused waive_cmdtype = [](const kx_fielddef* field,
                                      const char* value) {
    g_heard += std::string(field->name) + '=' + value + ' ';
    return std::strcmp(field->name, "cmdtype") == 0 ? 0 : -1;
  };
  const auto compose = [&](const Pairs& pairs) {
    g_heard.clear();
    kx_budget budget;
    Stream stream{.pairs = pairs};
    return kx::Object(kx_comp_object_within(&budget, "obj-cmdrsp", Stream::Read,
                                            &stream, waive_cmdtype));
  };
  const Pair bogus = {"cmdtype", "cmd-bogus", 3}, end = {"objend", "", 2};
  // A refused value does not leave an earlier one standing.
  const kx::Object obj =
      compose({{"cmdtype", "cmd-noop", 3}, bogus, {"clientid", "me", 3}, end});
  EXPECT_EQ(g_heard, "cmdtype=cmd-bogus ");
  EXPECT_EQ(ToText(obj.get()), Object("obj-cmdrsp", "clientid=me\n"));
  EXPECT_EQ(ErrorOf(compose({{"result", "-1", 3}, end}).release()),
            kx_err_data);
  EXPECT_EQ(g_heard, "result=-1 ");
  EXPECT_EQ(compose({{"objptr", "obj-cmdrsp", 3}, bogus, end, end}), nullptr);
  EXPECT_EQ(g_heard, "") << "a nested object is as strict as ever";
}

// Nested empty objects take many times the bytes of their lines.
TEST_F(TextForm, ComposingStaysWithinABudget) {
  const std::string nested = "objptr=obj-list\n" +
                             Repeated("objptr=obj-config\nobjend=\n", 1000) +
                             "objend=\n";
  constexpr long kLittle = 1 << 16;
  constexpr long kEnough = 1 << 20;
  // By the memory: only the most that was ever taken is known.
  const struct {
    std::string lines;
    kx_budget budget;
    int error;
    const char* errmsg;  // of what was kept, without nested objects
  } kCases[] = {
      {nested + "errmsg=e\nobjend=\n", {0, kEnough, true}, 0, "e"},
      {nested + "errmsg=e\n", {kLittle, kEnough, true}, 0, "e"},
      {Repeated("objptr=obj-text\nobjend=\n", 2) + nested,
       {kLittle, kEnough, true},
       0,
       ""},
      {nested, {kLittle, kEnough, false}, kx_err_too_long, ""},
      {nested + "iscmd=x\n", {kLittle, kEnough, true}, kx_err_too_long, ""},
      {nested + "iscmd=x\n", {kEnough, kEnough, true}, kx_err_data, ""},
      {nested, {kEnough, 5000, false}, kx_err_too_long, ""},
      {"errmsg=e\n" + nested, {kEnough, 5000, true}, 0, "e"},
  };
  ASSERT_EQ(Kut_mdebug(1), 0);
  for (auto [lines, budget, error, errmsg] : kCases) {
    SCOPED_TRACE(testing::Message() << budget.memory << " " << budget.input);
    const std::size_t most = static_cast<std::size_t>(budget.memory) + 1024;
    FILE* file = fmemopen(lines.data(), lines.size(), "r");
    kx_source source = {file};
    const kx::Object obj(kx_comp_object_within(
        &budget, "obj-cmdrsp", kx_read_source, &source, nullptr));
    fclose(file);
    EXPECT_EQ(kx_errno, error);
    EXPECT_EQ(obj != nullptr, error == 0);
    EXPECT_STREQ(kx::TextOrEmpty(obj.get(), "errmsg"), errmsg);
    EXPECT_EQ(kx::Child(obj.get(), "objptr"), nullptr);
    kut_memstats stats;
    Kut_mstats(&stats);
    EXPECT_LE(stats.peak, most);
  }
  EXPECT_EQ(Kut_mdebug(0), 0) << "all is freed";
}

}  // namespace
