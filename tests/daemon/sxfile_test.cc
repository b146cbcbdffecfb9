// Claiming, reading and writing exchange files, within one process.
#include <set>

#include "cm/cmlimits.h"
#include "spool_files.h"
#include "support/objects.h"

namespace {

using support::Command;

class SxFile : public SpoolFiles {
 protected:
  std::string Claimed(const std::string& base) const {
    return base + "." + std::to_string(getpid());
  }
  void Put(const std::string& base) const {
    WriteFile(Path(base + ".cmd"), "");
  }
  kx::Object Read(const std::string& content, int save = 0) const {
    WriteFile(Path("x.1"), content);
    kx::Object cmd(sx_cmd(dir(), "x.1", save));
    EXPECT_NE(access(Path("x.1").c_str(), F_OK), 0);
    return cmd;
  }
};

TEST_F(SxFile, ClaimsInByteOrderAndOnlyTheExtension) {
  for (const char* name : {"b.cmd", "a.cmd", "B.cmd", "a.CMD", "c.cmd.bak",
                           "cmd", ".x.new", "0002-000.cmd", "0001-001.cmd"}) {
    WriteFile(Path(name), "");
  }
  for (const char* base : {"0001-001", "0002-000", "B", "a", "b"}) {
    EXPECT_EQ(Claim(), Claimed(base));
  }
  EXPECT_EQ(Claim(), "");
  EXPECT_TRUE(std::filesystem::exists(Path("a.CMD")));
}

TEST_F(SxFile, MoreThanOneScanfulIsFoundAlthoughTheTimeStandsStill) {
  for (int i = 0; i < 150; ++i) Put(std::to_string(i));
  std::vector<std::string> claimed;
  // The directory's time is held where it was at the first scan.
  const timespec time = StatusOf(dir_).st_mtim;
  for (int calls = 0; calls < 400 && claimed.size() < 150; ++calls) {
    SetTime(time);
    const std::string name = Claim();
    if (!name.empty()) claimed.push_back(name);
  }
  ASSERT_EQ(claimed.size(), 150U);
  EXPECT_TRUE(std::is_sorted(claimed.begin(), claimed.begin() + 100));
  EXPECT_TRUE(std::is_sorted(claimed.begin() + 100, claimed.end()));
  EXPECT_EQ(std::set<std::string>(claimed.begin(), claimed.end()).size(), 150U);
}

// Files that arrive within one tick of the directory's clock, right after a
// scan that saw the same time.
TEST_F(SxFile, NoCommandIsLeftLyingBetweenTwoScans) {
  for (int i = 0; i < 300; ++i) {
    EXPECT_EQ(Claim(), "");
    Put("x");
    ASSERT_EQ(Claim(), Claimed("x")) << i;
    unlink(Path(Claimed("x")).c_str());
  }
}

TEST_F(SxFile, OldUnchangedDirectoryIsNotReadAgain) {
  EXPECT_EQ(Claim(), "");
  for (int i = 0; i < 3; ++i) {
    SetTime({1000, 0});
    EXPECT_EQ(Claim(), "");
  }
  // Hidden behind an unchanged time: seen only by a scan, and there is none.
  Put("x");
  SetTime({1000, 0});
  EXPECT_EQ(Claim(), "");
  SetTime({1000, 1});  // a nanosecond is enough
  EXPECT_EQ(Claim(), Claimed("x"));
}

TEST_F(SxFile, VanishedFilesAreSkippedAndClaimsAreNotOverwritten) {
  for (const char* name : {"a", "b", "c"}) Put(name);
  EXPECT_EQ(Claim(), Claimed("a"));
  unlink(Path("b.cmd").c_str());
  EXPECT_EQ(Claim(), Claimed("c"));
  EXPECT_EQ(Claim(), "");
  WriteFile(Path("a.cmd"), "second");
  EXPECT_EQ(Claim(), Claimed("a-1"));
  EXPECT_EQ(ReadFile(Path(Claimed("a"))) + ReadFile(Path(Claimed("a-1"))),
            "second");
}

// The path stays, the directory behind it is another one; a removed one's inode
// number is likely to be given to its successor.
TEST_F(SxFile, DirectoryThatWasReplacedIsFound) {
  for (const char* name : {"a", "b", "c"}) {
    Put(name);
    EXPECT_EQ(Claim(), Claimed(name));
    EXPECT_EQ(Claim(), "");
    if (*name == 'a') std::filesystem::rename(dir_, dir_ + ".old");
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directory(dir_);
  }
}

TEST_F(SxFile, ReadsCommandsAndSaysWhyNot) {
  const std::string ok = Command("cmd-noop", 1, 2);
  const std::pair<std::string, int> kCases[] = {
      {ok, 0},
      {"sessionid=1\nobjend=x\n", 0},
      {"", kx_err_callback},
      {std::string("objbeg=obj-cmdrsp\n\0\n", 19), kx_err_callback},
      {ok.substr(0, ok.size() - 18), kx_err_callback},
      {"objbeg=obj-person\n", kx_err_object},
      {Command("cmd-noop", 1, 2, "iscmd=maybe\n"), kx_err_data},
      {Command("cmd-noop", 1, 2, "errmsg=" + std::string(256, 'x') + "\n"),
       kx_err_data},
      {Command("cmd-noop", 1, 2, "bogus=" + std::string(600, 'x') + "\n"),
       kx_err_callback},
  };
  for (const auto& [content, error] : kCases) {
    SCOPED_TRACE(content.substr(0, 300));
    const kx::Object cmd = Read(content);
    EXPECT_EQ(kx_errno, error);
    EXPECT_EQ(cmd != nullptr, error == 0);
  }
}

TEST_F(SxFile, CommandTypeIsHandedThroughAsWritten) {
  const std::pair<std::string, std::string> kCases[] = {
      {"", ""},
      {"cmdtype=a=b\n", "a=b"},
      {"cmdtype=cmd-noop\ncmdtype=nonsense\n", "nonsense"},
      {"cmdtype=nonsense\ncmdtype=cmd-state\n", "cmd-state"},
      // Only the envelope's: a nested envelope stays strict, see below.
      {"objptr=obj-text\ncmdtype=inner\ntext=t\nobjend=obj-text\n", ""},
  };
  for (const auto& [lines, type] : kCases) {
    SCOPED_TRACE(lines);
    const kx::Object cmd = Read("sessionid=1\n" + lines + "objend=\n");
    ASSERT_NE(cmd, nullptr);
    EXPECT_STREQ(sx_cmdtype(cmd.get()), type.c_str());
  }
  EXPECT_EQ(Read("objptr=obj-cmdrsp\ncmdtype=nonsense\nobjend=\nobjend=\n"),
            nullptr);
}

TEST_F(SxFile, OnlyRegularFilesAreRead) {
  char name[kSxNameSize] = "cmd";
  EXPECT_EQ(sx_ready("/no/such/folder", name), -1);
  EXPECT_EQ(kx_errno, kx_err_system);
  WriteFile(Path("target"), Command("cmd-noop", 1, 2));
  mkfifo(Path("fifo.1").c_str(), 0666);
  symlink("target", Path("link.1").c_str());
  mkdir(Path("dir.1").c_str(), 0777);
  WriteFile(Path("big.1"), "");
  std::filesystem::resize_file(
      Path("big.1"),
      static_cast<std::uintmax_t>(cm_limit(cm_limit_id::kCommandBytes)) + 1);
  for (const char* file :
       {"fifo.1", "link.1", "dir.1", "big.1", "none.1", "no-folder/x.1"}) {
    EXPECT_EQ(sx_cmd(dir(), file, 0), nullptr) << file;
    EXPECT_EQ(kx_errno, kx_err_system) << file;
  }
  EXPECT_EQ(root_.SpoolNames(), (std::vector<std::string>{"dir.1", "target"}));
}

TEST_F(SxFile, WritesResponsesWholeAndAfresh) {
  // A trap: the temporary name leads somewhere else.
  WriteFile(root_.path() / "victim", "untouched");
  symlink((root_.path() / "victim").c_str(), Path("3456-007.tmp").c_str());
  const kx::Object rsp = Response(123456, 7);
  umask(077);
  EXPECT_EQ(sx_rsp(dir(), rsp.get(), 0), 0);
  umask(022);
  EXPECT_EQ(ReadFile(root_.path() / "victim"), "untouched");
  EXPECT_EQ(ReadFile(Path("3456-007.rsp")),
            "objbeg=obj-cmdrsp\nsessionid=123456\nreference=7\n"
            "objend=obj-cmdrsp\n");
  EXPECT_EQ(PermsOf(Path("3456-007.rsp")), 0666U);
  EXPECT_EQ(root_.SpoolNames(), (std::vector<std::string>{"3456-007.rsp"}));
}

TEST_F(SxFile, ResponseThatCannotBeWrittenFails) {
  EXPECT_EQ(sx_rsp(dir(), kx::Build("obj-cmdrsp").get(), 0), -1);
  EXPECT_EQ(kx_errno, kx_err_data);
  EXPECT_EQ(sx_rsp(dir(), kx::Build("obj-text").get(), 0), -1);
  const kx::Object rsp = Response(1, 1);
  EXPECT_EQ(sx_rsp("/no/such/folder", rsp.get(), 0), -1);
  EXPECT_EQ(kx_errno, kx_err_system);
  // A file to embed that is not there leaves no half response behind.
  kx::SetChild(rsp.get(), "objptr",
               Parsed("obj-file", "pathname=/no/such/file\n"));
  EXPECT_EQ(sx_rsp(dir(), rsp.get(), 0), -1);
  EXPECT_EQ(root_.SpoolNames(), std::vector<std::string>{});
  // Nor does one that outgrew what an answer carries.
  root_.Put("big", std::string(4097, 'x'));
  Kfx_Set(kx::Child(rsp.get(), "objptr"), "pathname", (root_ / "big").c_str());
  ASSERT_EQ(cm_set_limits("file-bytes=4096"), nullptr);
  EXPECT_EQ(sx_rsp(dir(), rsp.get(), 0), -1);
  EXPECT_EQ(errno, EFBIG);
  EXPECT_EQ(root_.SpoolNames(), std::vector<std::string>{});
  cm_set_limits("file-bytes=64M");
}

TEST_F(SxFile, KeepsCopies) {
  EXPECT_NE(Read(Command("cmd-state", 5, 12), 1), nullptr);
  EXPECT_NE(Read(Command("cmd-noop", 5, 13), 1), nullptr);
  EXPECT_NE(Read("cmdtype=cmd-ismsg\nobjend=\n", 1), nullptr);  // no name
  for (int i = 0; i < 2; ++i) {
    sx_rsp(dir(), Response(5, 0).get(), 1);
    sx_rsp(dir(), Response(5, 12).get(), 1);
  }
  EXPECT_EQ(NamesIn(Path("save")),
            (std::vector<std::string>{"0005-000.rsp.001", "0005-000.rsp.002",
                                      "0005-012.cmd", "0005-012.rsp",
                                      "0005-013.net"}));
  EXPECT_EQ(ReadFile(Path("save/0005-012.cmd")), Command("cmd-state", 5, 12));
}

}  // namespace
