#include <gtest/gtest.h>

#include <set>
#include <tuple>

#include "cm/cmkrt.h"
#include "faxserver/fsfiles.h"
#include "faxserver/fsfreq.h"
#include "faxserver/fslaunch.h"
#include "faxserver/fsmkfreq.h"
#include "faxserver/fstags.h"
#include "support/peers.h"

namespace {

using RequestFile = FaxTest;
using RequestList = FaxTest;
using RequestNames = FaxTest;
using SequenceNumbers = FaxTest;
using NewRequest = FaxTest;
using Launch = FaxTest;

// A request with every field that its file keeps, as it comes back.
const std::string kRequest =
    "clientid=root\nseqno=42\nfaxpath=/s/temp/f-42.fax\nactive=act-ready\n"
    "submittime=20010203040506\nsendtime=20010203040507\n"
    "exptime=20010204040506\natttime=20010203050506\nprilevel=60\nattempt=2\n"
    "maxtrys=5\nretrymins=15\ntnp=notify\nmailaddr=bob@example.org\n"
    "sendres=fine\ntofnum=555 1234\ntsi=+49 1\nqueue=sales\ngseqno=7\n"
    "memno=3\nrresult=1001\n";

// Saves the request, with `more` in place of or beside its fields.
int Save(const FaxRoot& root, const std::string& more = "") {
  return ErrorOf(
      fx_save_freq(root.root(), Parsed("obj-freq", kRequest + more).get()));
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::string Join(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

TEST_F(RequestFile, HasThese34LinesAndComesBack) {
  ASSERT_EQ(Save(root), 0);
  EXPECT_EQ(ReadFile(root / "requests/r-42"),
            "42\n0\n" + std::to_string(cm_get_krt_gid()) +
                "\nY\n\n/s/temp/f-42.fax\n0\n\n981173106\n981173106\n"
                "981173107\n981259506\n981176706\n2\n5\n15\n0\n" +
                root / "tnp/notify" +
                "\nbob@example.org\n\n\n\n3\n555 1234\n\n\n+49 1\n\nsales\n7\n"
                "3\n60\n1001\n\n");
  const kx::Object back(fx_load_freq(root.root(), 42, 0));
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(kx_errno, 0);
  // The super-user's uid, 0, in the line of the notification.
  EXPECT_EQ(Missing(back.get(), kRequest + "notify=not-fail\n"), "");

  ASSERT_EQ(fx_del_freq(root.root(), 42, 0), 0);
  EXPECT_EQ(ErrorOf(fx_load_freq(root.root(), 42, 0)), 3);
  EXPECT_EQ(ErrorOf(fx_del_freq(root.root(), 42, 0)), 3);
}

TEST_F(RequestFile, OddLinesReadAsTheyAlwaysDid) {
  ASSERT_EQ(Save(root), 0);
  const std::vector<std::string> lines =
      Lines(ReadFile(root / "requests/r-42"));
  const std::tuple<size_t, std::string, const char*, const char*> cases[] = {
      {4, "N", "active", "act-expired"},
      {4, "Never", "active", "act-expired"},
      {4, "n", "active", "act-ready"},
      {4, "", "active", "act-ready"},
      {2, "987654321", "clientid", ""},
      {10, "", "submittime", "now"},
      {10, "-5", "submittime", ""},
      {14, "many", "attempt", "0"},
      {14, "-1", "attempt", ""},
      {14, "99999999999999", "attempt", "2147483647"},
      {17, "17", "notify", "not-okfail"},
      {18, "", "tnp", ""},
      {19, "  padded\t", "mailaddr", "padded"},
      {23, "-1", "sendres", "?"},
      {23, "2", "sendres", "std"},
      {29, "a-queue-name-that-is-too-long", "queue", ""}};
  for (const auto& [line, text, field, value] : cases) {
    SCOPED_TRACE(std::to_string(line) + " " + text);
    std::vector<std::string> changed = lines;
    changed[line - 1] = text;
    root.Put("requests/r-1", Join(changed));
    const kx::Object freq(fx_load_freq(root.root(), 1, 0));
    ASSERT_NE(freq, nullptr);
    EXPECT_STREQ(kx::TextOrEmpty(freq.get(), field), value);
  }
}

TEST_F(RequestFile, CutAtAnyLengthIsNoRequest) {
  ASSERT_EQ(Save(root), 0);
  const std::string whole = ReadFile(root / "requests/r-42");
  for (size_t size = 0; size < whole.size(); ++size) {
    root.Put("requests/r-1", whole.substr(0, size));
    EXPECT_EQ(ErrorOf(fx_load_freq(root.root(), 1, 0)), 3) << size;
  }
  root.Put("requests/r-1", whole + "a line more\n");
  EXPECT_NE(kx::Object(fx_load_freq(root.root(), 1, 0)), nullptr);
}

TEST_F(RequestFile, ExpiredRequestIsWrittenWhereTheSchedulerLooks) {
  const kx::Object freq =
      Parsed("obj-freq", kRequest +
                             "active=act-expired\nsendres=superfine\n"
                             "clientid=no-such-user\n");
  kx::SetText(freq.get(), "mailaddr", "two\nlines");
  ASSERT_EQ(fx_save_freq(root.root(), freq.get()), 0);
  EXPECT_FALSE(root.Has("expired/x-42"));
  const auto lines = Lines(ReadFile(root / "requests/r-42"));
  ASSERT_EQ(lines.size(), 34u);
  EXPECT_EQ(lines[3], "N");
  EXPECT_EQ(lines[22], "-1");
  EXPECT_EQ(lines[1], std::to_string(cm_get_krt_uid()));
  EXPECT_EQ(lines[18], "two lines");
  root.Put("expired/x-9", Join(lines));
  EXPECT_NE(kx::Object(fx_load_freq(root.root(), 9, 1)), nullptr);
}

TEST_F(RequestFile, EmptyRequestIsEmptyLines) {
  ASSERT_EQ(fx_save_freq(root.root(), Parsed("obj-freq", "seqno=1\n").get()),
            0);
  const auto lines = Lines(ReadFile(root / "requests/r-1"));
  ASSERT_EQ(lines.size(), 34u);
  for (const size_t line : {6u, 9u, 10u, 14u, 18u, 29u, 33u}) {
    EXPECT_EQ(lines[line - 1], "") << line;
  }
  EXPECT_EQ(ErrorOf(fx_save_freq(root.root(), kx::Build("obj-person").get())),
            21);
  std::filesystem::remove_all(root / "requests");
  EXPECT_EQ(Save(root), 3);
}

TEST_F(RequestFile, ReplacingKeepsModeAndLeavesNothingBehind) {
  root.Put("requests/r-42", "old");
  chmod((root / "requests/r-42").c_str(), 0640);
  ASSERT_EQ(Save(root), 0);
  EXPECT_EQ(PermsOf(root / "requests/r-42"), 0640u);
  EXPECT_EQ(NamesIn(root / "requests"), std::vector<std::string>{"r-42"});
}

TEST_F(RequestList, IsByNumberWithoutWhatIsNoRequest) {
  ASSERT_EQ(Save(root), 0);
  const std::string whole = ReadFile(root / "requests/r-42");
  for (const char* name : {"r-9", "r-100", "r-1x", "r-", "x-5", ".r-7"}) {
    root.Put(std::string("requests/") + name,
             std::string(name).substr(2) + whole.substr(2));
  }
  root.Put("requests/r-50", "damaged");
  mkfifo((root / "requests/r-51").c_str(), 0600);
  root.MakeDir("requests/r-52");
  EXPECT_EQ(Shown(kx::Object(fx_rd_freqs(root.root())), {"seqno"}),
            "9;42;100;");
  EXPECT_EQ(ErrorOf(fx_rd_freqs((root / "none").c_str())), 3);
}

TEST_F(RequestNames, AreThese) {
  const std::string pid = std::to_string(getpid());
  EXPECT_EQ(fx_cvr_file(root.root(), 7), root / "temp/c-7.fax");
  root.Put("temp/f-" + pid + "-0.fax", "");
  EXPECT_EQ(fx_fax_tmp_file(root.root()), root / ("temp/f-" + pid + "-1.fax"));
  EXPECT_EQ(fx_cvr_tmp_file(root.root()), root / ("temp/c-" + pid + "-0.fax"));
  char name[32];
  snprintf(name, sizeof name, "/fx%05d.", static_cast<int>(getpid()));
  EXPECT_EQ(fx_tmpname(nullptr, "err"), "/tmp" + (name + std::string("err")));
  EXPECT_EQ(fx_tmpname("/d", nullptr), "/d" + (name + std::string("tmp")));
}

// ---- New requests ----

TEST_F(SequenceNumbers, AreGivenOutOnceToMany) {
  const std::string file = root / "OSEQF";
  std::vector<pid_t> children;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  for (int i = 0; i < 4; ++i) {
    children.push_back(BeginChild([&] {
      for (int n = 0; n < 50; ++n) {
        const long number = fx_next_seqno(file.c_str());
        Kut_write_full(ends[1], &number, sizeof number);
      }
      return 0;
    }));
  }
  for (const pid_t pid : children) EXPECT_EQ(Reaped(pid), 0);
  std::set<long> numbers;
  for (int n = 0; n < 200; ++n) {
    long number = 0;
    ASSERT_EQ(read(ends[0], &number, sizeof number), ssize_t{sizeof number});
    numbers.insert(number);
  }
  EXPECT_EQ(numbers.size(), 200u);
  EXPECT_EQ(*numbers.begin(), 1);
  EXPECT_EQ(ReadFile(file), "200\n");
}

TEST_F(SequenceNumbers, SurviveDamage) {
  const std::pair<const char*, long> cases[] = {{"", 1},
                                                {"41", 42},
                                                {"99\n", 100},
                                                {"2147483647\n", 1},
                                                {"garbage", 1},
                                                {"-7\n", 1},
                                                {"999999999999999999999", 1}};
  for (const auto& [content, next] : cases) {
    root.Put("OSEQF", content);
    EXPECT_EQ(fx_next_seqno((root / "OSEQF").c_str()), next) << content;
    EXPECT_EQ(ReadFile(root / "OSEQF"), std::to_string(next) + "\n") << content;
  }
  EXPECT_EQ(fx_next_seqno((root / "none/OSEQF").c_str()), -1);
  EXPECT_EQ(kx_errno, 3);
}

TEST_F(NewRequest, IsMadeOfEnvelopeTagsAndDefaults) {
  root.AddUser("root");
  root.Put("OSEQF", "6\n");
  root.Put("requests/r-7", "in use");
  root.Put("expired/x-8", "in use");
  root.Put("Default", "defq\n");
  root.Put("krtnet/envtags",
           "# settings\n\n MaxTrys = 9\nQUEUE=tagq\nunknown=1\nno equals\n"
           "tsi=tag-tsi\n");
  fx_reset_tags();
  const kx::Object env = kx::Build("obj-env");
  EXPECT_EQ(ErrorOf(fx_make_freq(root.root(), "root", env.get())), 19)
      << "no number to send to";
  kx::SetText(env.get(), "tofnum", "555");
  kx::SetText(env.get(), "tsi", "own-tsi");
  kx::SetText(env.get(), "priority", "h");
  EXPECT_EQ(ErrorOf(fx_make_freq(root.root(), "nobody-here", env.get())), 7);

  const kx::Object freq(fx_make_freq(root.root(), "root", env.get()));
  ASSERT_NE(freq, nullptr);
  EXPECT_EQ(
      Missing(freq.get(),
              "seqno=9\nclientid=root\ntofnum=555\ntsi=own-tsi\nqueue=tagq\n"
              "maxtrys=9\nprilevel=60\nsendres=std\nactive=act-ready\n"
              "attempt=0\nrresult=1007\nfaxpath=" +
                  root / "temp/f-9.fax\n"),
      "");
  EXPECT_LT(kx::Time(freq.get(), "sendtime"), kx::Time(freq.get(), "exptime"));
  EXPECT_EQ(fx_save_freq(root.root(), freq.get()), 0);

  root.Put("krtnet/envtags", "");
  fx_reset_tags();
  const kx::Object next(fx_make_freq(root.root(), "root", env.get()));
  EXPECT_EQ(Missing(next.get(), "seqno=10\nqueue=defq\n"), "");
}

TEST_F(Launch, RunsTheProgramOfTheTagWithTheNumber) {
  const std::string script =
      "echo \"$# $1\" > " + (root / "ran") + "\nexit 3\n";
  fx_reset_tags();
  EXPECT_EQ(fx_launch(42, root.root()), 0) << "no such tag";
  for (const bool executable : {true, false}) {
    root.PutProgram("program", script);
    if (!executable) chmod((root / "program").c_str(), 0644);
    std::filesystem::remove(root / "ran");
    root.Put("krtnet/envtags", "tnp=" + (root / "program") + "\n");
    fx_reset_tags();
    EXPECT_EQ(fx_launch(42, root.root()), 3) << executable;
    EXPECT_EQ(ReadFile(root / "ran"), "1 42\n") << executable;
  }
  root.Put("krtnet/envtags", "tnp=" + (root / "missing") + "\n");
  fx_reset_tags();
  EXPECT_NE(fx_launch(42, root.root()), 0);
  fx_reset_tags();
}

}  // namespace
