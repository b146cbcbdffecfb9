#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <string>
#include <utility>

#include "support/temp_dir.h"
#include "util/kutdir.h"
#include "util/kutfile.h"

namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;

// The error of a call, 0 where it succeeds.
int ErrnoOf(int result) { return result == 0 ? 0 : errno; }

// Each in a working directory of its own.
class Files : public testing::Test {
 protected:
  Files() : before_(fs::current_path()) { fs::current_path(dir_.path()); }
  ~Files() override { fs::current_path(before_); }

  // What the working directory holds.
  static Names List() {
    Names names;
    DirReader reader;
    EXPECT_EQ(reader.Open("."), 0);
    while (const char* name = reader.Next()) names.insert(name);
    EXPECT_EQ(errno, 0);
    return names;
  }

 private:
  const TempDir dir_;
  const fs::path before_;
};

TEST_F(Files, KindsAreTold) {
  WriteFile("plain", "");
  WriteFile("program", "");
  ASSERT_EQ(Kut_set_file_perms("program", 0700), 0);
  fs::create_symlink("program", "link");
  fs::create_symlink("nothing", "dangling");
  const std::pair<const char*, const char*> cases[] = {
      {"plain", "100"},    {"program", "101"}, {"link", "101"},
      {"dangling", "000"}, {".", "010"},       {"none", "000"}};
  for (const auto& [name, kinds] : cases) {
    EXPECT_EQ(std::to_string(Kut_is_reg_file(name)) +
                  std::to_string(Kut_is_directory(name)) +
                  std::to_string(Kut_is_exec_file(name)),
              kinds)
        << name;
  }
}

TEST_F(Files, CopyTakesContentAndPermissionsOrLeavesNothing) {
  std::string content(300'000, '\0');
  for (size_t i = 0; i < content.size(); i++) {
    content[i] = static_cast<char>(i * 7 % 251);
  }
  WriteFile("from", content);
  Kut_set_file_perms("from", 0640);
  WriteFile("victim", "kept");
  fs::create_symlink("victim", "to");
  for (const char* from : {"from", "to"}) {  // then onto itself
    ASSERT_EQ(Kut_copy_file(from, "to"), 0);
    EXPECT_EQ(ReadFile("to"), content);
    EXPECT_TRUE(S_ISREG(StatusOf("to").st_mode));
    EXPECT_EQ(PermsOf("to"), 0640u);
  }
  EXPECT_EQ(ReadFile("victim"), "kept");
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  EXPECT_EQ(ErrnoOf(Kut_copy_file("fifo", "new")), EINVAL);
  EXPECT_EQ(ErrnoOf(Kut_copy_file("none", "new")), ENOENT);
  EXPECT_EQ(List(), (Names{"fifo", "from", "to", "victim"}));
}

TEST_F(Files, OwnerOfALinkIsTheLinks) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  WriteFile("victim", "");
  fs::create_symlink("victim", "link");
  ASSERT_EQ(Kut_set_file_owner("link", 12345, -1), 0);
  EXPECT_EQ(StatusOf("victim").st_uid, 0u);
  EXPECT_EQ(StatusOf("link").st_uid, 12345u);
}

TEST_F(Files, ReplacementAppearsWithTheCommitOrLeavesNoTrace) {
  WriteFile("target", "old");
  {
    FileReplacer file;
    ASSERT_EQ(file.Open("target", 0600), 0);
    ASSERT_EQ(Kut_write_full(file.fd(), "new", 3), 0);
    ASSERT_EQ(file.Open("other", 0600), 0);  // drops the first
    fputs("new", file.stream());
  }
  EXPECT_EQ(List(), Names{"target"});
  FileReplacer file;
  ASSERT_EQ(file.Open("target", 0600), 0);
  fputs("new", file.stream());
  EXPECT_EQ(ReadFile("target"), "old");
  for (const std::string& name : List()) {
    if (name == "target") continue;
    EXPECT_EQ(name[0], '.');
    EXPECT_EQ(std::string(Kut_get_file_ext(name.c_str())).substr(0, 4), "new-");
  }
  ASSERT_EQ(file.Commit(FileReplacer::Sync::kDurable), 0);
  EXPECT_EQ(ReadFile("target"), "new");
  EXPECT_EQ(List(), Names{"target"});
  // Relative to a directory.
  ASSERT_EQ(Kut_make_dir("sub"), 0);
  const UniqueFd dir(Kut_open("sub", O_RDONLY | O_DIRECTORY));
  for (const char* path : {"plain", "../sub/nested"}) {
    ASSERT_EQ(file.Open(path, 0644, dir.get()), 0) << path;
    ASSERT_EQ(file.Commit(FileReplacer::Sync::kDurable), 0) << path;
  }
  EXPECT_TRUE(fs::exists("sub/plain") && fs::exists("sub/nested"));
}

TEST_F(Files, ReplacementThatCannotBeWrittenIsRemoved) {
  WriteFile("target", "old");
  FileReplacer file;
  ASSERT_EQ(file.Open("target", 0600), 0);
  const UniqueFd full(Kut_open("/dev/full", O_WRONLY));
  FILE* stream = file.stream();
  ASSERT_GE(dup3(full.get(), file.fd(), O_CLOEXEC), 0);  // "no space" from here
  fputs("new", stream);
  EXPECT_EQ(ErrnoOf(file.Commit()), ENOSPC);
  EXPECT_EQ(ReadFile("target"), "old");
  EXPECT_EQ(List(), Names{"target"});
  EXPECT_EQ(ErrnoOf(file.Commit()), EBADF);
}

TEST_F(Files, ReplacementOverADirectoryFails) {
  ASSERT_EQ(Kut_make_dir("target"), 0);
  FileReplacer file;
  ASSERT_EQ(file.Open("target", 0600), 0);
  EXPECT_EQ(ErrnoOf(file.Commit()), EISDIR);
  EXPECT_EQ(List(), Names{"target"});
  EXPECT_EQ(ErrnoOf(file.Open("none/target", 0600)), ENOENT);
  EXPECT_EQ(file.Open("", 0600), -1);
  EXPECT_EQ(ErrnoOf(file.Open(std::string(5000, 'x').c_str(), 0600)),
            ENAMETOOLONG);
}

TEST_F(Files, DirectoriesAreMade) {
  EXPECT_EQ(Kut_make_dir("a"), 0);
  EXPECT_EQ(Kut_make_dir("a"), 0);
  EXPECT_EQ(Kut_make_dir("x/y"), -1);
  EXPECT_EQ(Kut_make_dir_path("a//b/c/"), 0);
  EXPECT_EQ(Kut_make_dir_path("a/b/c"), 0);
  WriteFile("file", "");
  EXPECT_EQ(ErrnoOf(Kut_make_dir_path("file")), ENOTDIR);
  EXPECT_EQ(Kut_make_dir_path("file/under"), -1);
  EXPECT_EQ(Kut_make_dir_path(""), -1);
  EXPECT_EQ(Kut_delete_dir("a/b"), -1) << "not empty";
  EXPECT_EQ(Kut_delete_dir("a/b/c"), 0);
}

TEST_F(Files, DirectoryNamesAreFixed) {
  char name[32] = "//a///b//";
  EXPECT_STREQ(Kut_fix_dir_name(name), "/a/b");
  for (const char* fixed : {"/", "", "a/b"}) {
    snprintf(name, sizeof name, "%s%s", fixed, *fixed != '\0' ? "/" : "");
    EXPECT_STREQ(Kut_fix_dir_name(name), fixed);
    EXPECT_STREQ(Kut_fix_dir_name(name), fixed) << "fixed already";
  }
}

TEST_F(Files, OneStreamIsReadToItsEnd) {
  const std::string longest(255, 'n');
  WriteFile(longest, "");
  WriteFile(".hidden", "");
  char name[kKutDirNameSize];
  EXPECT_EQ(Kut_read_dir(name), -1) << "none open";
  EXPECT_EQ(Kut_close_dir(), -1);
  ASSERT_EQ(Kut_open_dir("/"), 0);
  ASSERT_EQ(Kut_open_dir("."), 0) << "the first is closed";
  Names names;
  while (Kut_read_dir(name) == 0) names.insert(name);
  EXPECT_EQ(names, (Names{longest, ".hidden"}));
  EXPECT_EQ(Kut_read_dir(name), -1);
  EXPECT_EQ(Kut_close_dir(), 0);
  EXPECT_EQ(Kut_open_dir("none"), -1);
  EXPECT_EQ(Kut_read_dir(name), -1);
}

TEST_F(Files, ReaderSeesNewEntriesAfterARewind) {
  DirReader reader;
  ASSERT_EQ(reader.Open("."), 0);
  EXPECT_EQ(reader.Next(), nullptr);
  WriteFile("new", "");
  reader.Rewind();
  EXPECT_STREQ(reader.Next(), "new");
  EXPECT_EQ(fcntl(reader.fd(), F_GETFD), FD_CLOEXEC);

  fs::create_directory_symlink(".", "link");
  EXPECT_EQ(reader.Open("link", reader.fd(), O_NOFOLLOW), -1)
      << "the descriptor of the reader itself is closed first";
  ASSERT_EQ(reader.Open("."), 0);
  DirReader nested;
  EXPECT_EQ(nested.Open("link", reader.fd(), O_NOFOLLOW), -1);
  EXPECT_EQ(nested.Open("link", reader.fd()), 0);
}

}  // namespace
