#include <gtest/gtest.h>
#include <pwd.h>

#include <algorithm>
#include <set>

#include "cm/cmkrt.h"
#include "fax_root.h"
#include "faxserver/fsfiles.h"
#include "faxserver/fsfreq.h"
#include "faxserver/fslaunch.h"
#include "faxserver/fsmkfreq.h"
#include "faxserver/fstags.h"

namespace {

using Fields = std::vector<std::pair<const char*, const char*>>;

// A request with every field that its file keeps.
const Fields kRequest = {{"clientid", "root"},
                         {"seqno", "42"},
                         {"active", "act-ready"},
                         {"faxpath", "/s/temp/f-42.fax"},
                         {"submittime", "20010203040506"},
                         {"sendtime", "20010203040507"},
                         {"exptime", "20010204040506"},
                         {"atttime", "20010203050506"},
                         {"attempt", "2"},
                         {"maxtrys", "5"},
                         {"retrymins", "15"},
                         {"tnp", "notify"},
                         {"mailaddr", "bob@example.org"},
                         {"sendres", "fine"},
                         {"tofnum", "555 1234"},
                         {"tsi", "+49 1"},
                         {"queue", "sales"},
                         {"gseqno", "7"},
                         {"memno", "3"},
                         {"prilevel", "60"},
                         {"rresult", "1001"}};

kx::Object Make(const Fields& fields) {
  kx::Object freq = kx::Build("obj-freq");
  for (const auto& [field, value] : fields) {
    EXPECT_EQ(kx::SetText(freq.get(), field, value), 0) << field;
  }
  return freq;
}

void ExpectFields(kx_object* freq, const Fields& fields) {
  for (const auto& [field, value] : fields) {
    EXPECT_STREQ(kx::TextOrEmpty(freq, field), value) << field;
  }
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

TEST(RequestFile, HasThese34Lines) {
  const FaxRoot root;
  const kx::Object freq = Make(kRequest);
  ASSERT_EQ(fx_save_freq(root.root(), freq.get()), 0);
  EXPECT_EQ(kx_errno, 0);
  const std::string gid = std::to_string(cm_get_krt_gid());
  EXPECT_EQ(Lines(ReadFile(root / "requests/r-42")),
            (std::vector<std::string>{"42",
                                      "0",
                                      gid,
                                      "Y",
                                      "",
                                      "/s/temp/f-42.fax",
                                      "0",
                                      "",
                                      "981173106",
                                      "981173106",
                                      "981173107",
                                      "981259506",
                                      "981176706",
                                      "2",
                                      "5",
                                      "15",
                                      "0",
                                      root / "tnp/notify",
                                      "bob@example.org",
                                      "",
                                      "",
                                      "",
                                      "3",
                                      "555 1234",
                                      "",
                                      "",
                                      "+49 1",
                                      "",
                                      "sales",
                                      "7",
                                      "3",
                                      "60",
                                      "1001",
                                      ""}));
}

TEST(RequestFile, ComesBackAsItWasWritten) {
  const FaxRoot root;
  const kx::Object freq = Make(kRequest);
  ASSERT_EQ(fx_save_freq(root.root(), freq.get()), 0);
  const kx::Object back(fx_load_freq(root.root(), 42, 0));
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(kx_errno, 0);
  ExpectFields(back.get(), kRequest);
  // The super-user's uid, 0, in the line of the notification.
  EXPECT_STREQ(kx::Text(back.get(), "notify"), "not-fail");

  ASSERT_EQ(fx_del_freq(root.root(), 42, 0), 0);
  EXPECT_EQ(fx_load_freq(root.root(), 42, 0), nullptr);
  EXPECT_EQ(kx_errno, 3);
  EXPECT_EQ(fx_del_freq(root.root(), 42, 0), -1);
  EXPECT_EQ(kx_errno, 3);
}

TEST(RequestFile, OddLinesReadAsTheyAlwaysDid) {
  const FaxRoot root;
  ASSERT_EQ(fx_save_freq(root.root(), Make(kRequest).get()), 0);
  const std::vector<std::string> lines =
      Lines(ReadFile(root / "requests/r-42"));
  const struct {
    size_t line;
    std::string text;
    const char* field;
    const char* value;
  } cases[] = {
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
      {29, "a-queue-name-that-is-too-long", "queue", ""},
  };
  for (const auto& test : cases) {
    std::vector<std::string> changed = lines;
    changed[test.line - 1] = test.text;
    root.Put("requests/r-1", Join(changed));
    const kx::Object freq(fx_load_freq(root.root(), 1, 0));
    ASSERT_NE(freq, nullptr) << test.line << " " << test.text;
    EXPECT_STREQ(kx::TextOrEmpty(freq.get(), test.field), test.value)
        << test.line << " " << test.text;
  }
}

TEST(RequestFile, CutAtAnyLengthIsNoRequest) {
  const FaxRoot root;
  ASSERT_EQ(fx_save_freq(root.root(), Make(kRequest).get()), 0);
  const std::string whole = ReadFile(root / "requests/r-42");
  for (size_t size = 0; size < whole.size(); ++size) {
    root.Put("requests/r-1", whole.substr(0, size));
    EXPECT_EQ(fx_load_freq(root.root(), 1, 0), nullptr) << size;
    EXPECT_EQ(kx_errno, 3) << size;
  }
  root.Put("requests/r-1", whole + "a line more\n");
  EXPECT_NE(kx::Object(fx_load_freq(root.root(), 1, 0)), nullptr);
}

TEST(RequestFile, ExpiredRequestIsWrittenWhereTheSchedulerLooks) {
  const FaxRoot root;
  Fields fields = kRequest;
  fields[2] = {"active", "act-expired"};
  fields.emplace_back("sendres", "superfine");
  fields.emplace_back("clientid", "no-such-user");
  fields.emplace_back("mailaddr", "two\nlines");
  ASSERT_EQ(fx_save_freq(root.root(), Make(fields).get()), 0);
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

TEST(RequestFile, EmptyRequestIsEmptyLines) {
  const FaxRoot root;
  ASSERT_EQ(fx_save_freq(root.root(), Make({{"seqno", "1"}}).get()), 0);
  const auto lines = Lines(ReadFile(root / "requests/r-1"));
  ASSERT_EQ(lines.size(), 34u);
  for (const size_t line : {6u, 9u, 10u, 14u, 18u, 29u, 33u}) {
    EXPECT_EQ(lines[line - 1], "") << line;
  }
  const kx::Object person = kx::Build("obj-person");
  EXPECT_EQ(fx_save_freq(root.root(), person.get()), -1);
  EXPECT_EQ(kx_errno, 21);
  EXPECT_EQ(fx_save_freq((root / "none").c_str(), Make(kRequest).get()), -1);
  EXPECT_EQ(kx_errno, 3);
}

TEST(RequestFile, ReplacingKeepsModeAndLeavesNothingBehind) {
  const FaxRoot root;
  root.Put("requests/r-42", "old");
  chmod((root / "requests/r-42").c_str(), 0640);
  ASSERT_EQ(fx_save_freq(root.root(), Make(kRequest).get()), 0);
  struct stat st;
  ASSERT_EQ(stat((root / "requests/r-42").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0640u);
  size_t entries = 0;
  for ([[maybe_unused]] const auto& entry :
       std::filesystem::directory_iterator(root / "requests")) {
    ++entries;
  }
  EXPECT_EQ(entries, 1u);
}

TEST(RequestList, IsByNumberWithoutWhatIsNoRequest) {
  const FaxRoot root;
  ASSERT_EQ(fx_save_freq(root.root(), Make(kRequest).get()), 0);
  const std::string whole = ReadFile(root / "requests/r-42");
  for (const char* name : {"r-9", "r-100", "r-1x", "r-", "x-5", ".r-7"}) {
    root.Put(std::string("requests/") + name,
             std::string(name).substr(2) + whole.substr(2));
  }
  root.Put("requests/r-50", "damaged");
  mkfifo((root / "requests/r-51").c_str(), 0600);
  root.MakeDir("requests/r-52");
  const kx::Object list(fx_rd_freqs(root.root()));
  std::string numbers;
  for (kx_object* freq : kx::Elements(list.get())) {
    numbers += kx::TextOrEmpty(freq, "seqno") + std::string(" ");
  }
  EXPECT_EQ(numbers, "9 42 100 ");
  EXPECT_EQ(fx_rd_freqs((root / "none").c_str()), nullptr);
  EXPECT_EQ(kx_errno, 3);
}

TEST(RequestNames, AreThese) {
  const FaxRoot root;
  const std::string pid = std::to_string(getpid());
  EXPECT_EQ(fx_freq_file(root.root(), 7, 0), root / "requests/r-7");
  EXPECT_EQ(fx_freq_file(root.root(), 7, 1), root / "expired/x-7");
  EXPECT_EQ(fx_fax_file(root.root(), 7), root / "temp/f-7.fax");
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

TEST(SequenceNumbers, AreGivenOutOnceToMany) {
  const FaxRoot root;
  const std::string file = root / "OSEQF";
  std::vector<pid_t> children;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  for (int i = 0; i < 4; ++i) {
    const pid_t pid = fork();
    if (pid != 0) {
      children.push_back(pid);
      continue;
    }
    for (int n = 0; n < 50; ++n) {
      const long number = fx_next_seqno(file.c_str());
      Kut_write_full(ends[1], &number, sizeof number);
    }
    _exit(0);
  }
  for (const pid_t pid : children) waitpid(pid, nullptr, 0);
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

TEST(SequenceNumbers, SurviveDamage) {
  const FaxRoot root;
  const std::pair<const char*, long> cases[] = {
      {"", 1},
      {"41", 42},
      {"99\n", 100},
      {"2147483647\n", 1},
      {"garbage", 1},
      {"-7\n", 1},
      {"999999999999999999999", 1},
  };
  for (const auto& [content, next] : cases) {
    root.Put("OSEQF", content);
    EXPECT_EQ(fx_next_seqno((root / "OSEQF").c_str()), next) << content;
    EXPECT_EQ(ReadFile(root / "OSEQF"), std::to_string(next) + "\n") << content;
  }
  EXPECT_EQ(fx_next_seqno((root / "none/OSEQF").c_str()), -1);
  EXPECT_EQ(kx_errno, 3);
}

TEST(NewRequest, IsMadeOfEnvelopeTagsAndDefaults) {
  const FaxRoot root;
  root.MakeUser("root");
  root.Put("OSEQF", "6\n");
  root.Put("requests/r-7", "in use");
  root.Put("expired/x-8", "in use");
  root.Put("Default", "defq\n");
  root.Put("krtnet/envtags",
           "# settings\n\n MaxTrys = 9\nQUEUE=tagq\nunknown=1\nno equals\n"
           "tsi=tag-tsi\n");
  fx_reset_tags();
  const kx::Object env = kx::Build("obj-env");
  EXPECT_EQ(fx_make_freq(root.root(), "root", env.get()), nullptr);
  EXPECT_EQ(kx_errno, 19) << "no number to send to";
  kx::SetText(env.get(), "tofnum", "555");
  kx::SetText(env.get(), "tsi", "own-tsi");
  kx::SetText(env.get(), "priority", "h");
  EXPECT_EQ(fx_make_freq(root.root(), "nobody-here", env.get()), nullptr);
  EXPECT_EQ(kx_errno, 7);

  const kx::Object freq(fx_make_freq(root.root(), "root", env.get()));
  ASSERT_NE(freq, nullptr);
  const std::string fax = root / "temp/f-9.fax";
  ExpectFields(freq.get(), {{"seqno", "9"},
                            {"clientid", "root"},
                            {"tofnum", "555"},
                            {"tsi", "own-tsi"},
                            {"queue", "tagq"},
                            {"maxtrys", "9"},
                            {"prilevel", "60"},
                            {"sendres", "std"},
                            {"active", "act-ready"},
                            {"attempt", "0"},
                            {"rresult", "1007"},
                            {"faxpath", fax.c_str()}});
  EXPECT_LT(kx::Time(freq.get(), "sendtime"), kx::Time(freq.get(), "exptime"));
  EXPECT_EQ(fx_save_freq(root.root(), freq.get()), 0);

  root.Put("krtnet/envtags", "");
  fx_reset_tags();
  const kx::Object next(fx_make_freq(root.root(), "root", env.get()));
  ExpectFields(next.get(), {{"seqno", "10"}, {"queue", "defq"}});
}

TEST(Launch, RunsTheProgramOfTheTagWithTheNumber) {
  const FaxRoot root;
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
