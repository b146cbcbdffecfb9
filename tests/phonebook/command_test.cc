// What a command does to its object and to the book as a whole.
#include <sys/stat.h>
#include <unistd.h>

#include "book.h"
#include "support/child.h"

namespace {

using Command = BookTest;

TEST_F(Command, FailuresHaveTheirNumbers) {
  client_.Talk("persons a\ngroup g a");
  for (const char* line : {
           "open pbtype=pbt-lcl => 37",
           "create pbtype=pbt-lcl => 37",
           "open pbtype= => 37",
           "open pbtype=pbs-alias => 37",
           "open pbtype=pbt-sys => 38",
           "open pbmode= => 37",
           "open pbmode=pbt-usr => 37",
           "gteq => 37",
           "gteq pbtype=pbt-sys => 38",
           "perget rcmd= => 37",
           "perget rcmd=pbc-create => 37",
           "perget rcmd=pbc-first pbsort= => 37",
           "perget rcmd=pbc-alias pbsort=pbt-usr => 37",
           "perget rcmd=pbc-alias pbkey=b => 30",
           "perget rcmd=pbc-gteq pbkey=b => 30",
           "perget rcmd=pbc-next curper=9 => 30",
           "perget rcmd=pbc-next curper=-9 => 30",
           "perpos rcmd=pbc-alias pbmax=1 => 37",
           "perpos rcmd=pbc-first pbsort= => 37",
           "perpos rcmd=pbc-first pbmax=2 => 36",
           "grpget rcmd=pbc-equal pbkey=h => 31",
           "memget rcmd=pbc-alias => 32",
           "memgbg rcmd=pbc-first pbkey=h => 36",
           "memgbp rcmd=pbc-first pbkey=b => 36",
           "memgbg rcmd=pbc-next curmem=9 => 32",
           "perdel pbkey=b => 30",
           "perdel => 30",
           "grpdel pbkey=b => 31",
           "peradd => 37",
           "perupd => 37",
           "grpadd => 37",
           "memadd => 37",
           "memdel => 37",
           "cntper pbbeg=a pbsort= => 37",
           "cntper pbkey=h => 37",
           "lstper rcmd=pbc-equal pbkey=b => 30",
           "lstprl pboffset=-2 => 37",
       }) {
    client_.Reset();
    client_.Set(Words("pbmax=0 curgrp=3"));
    client_.Talk(line);
    // Nothing is written back.
    EXPECT_EQ(client_.Get("curgrp"), "3") << line;
    EXPECT_EQ(client_.Result("palias"), "none") << line;
  }
  EXPECT_EQ(client_.Send("peradd", {}, {{"galias", "b"}}, "obj-group"), 37);
  client_.Talk(R"(
peradd | palias=A => 33
grpadd | gdesc=b => 37
grpadd | galias=G => 33
grpupd | galias=b => 31
perupd | palias=b => 30
perupd | lname=b => 37
memadd | galias=g palias=A => 33
memadd | galias=h palias=b => 30
memadd | galias=h palias=a => 31
memadd | galias= palias=a => 37
memdel | galias=h palias=a => 30
)");
}

TEST_F(Command, ClosedBookRefusesEverything) {
  pb_setup("alice", root_.path().c_str(), nullptr);
  EXPECT_EQ(pb_per_add(kx_pbt_usr, nullptr), -1);
  EXPECT_EQ(pb_errno, kx_err_not_open);
  EXPECT_EQ(pb_list_grp_get(kx_pbt_usr, kx_pbc_first, nullptr, 0), nullptr);
  EXPECT_EQ(pb_errno, kx_err_not_open);
  EXPECT_EQ(pb_close(kx_pbt_usr), 0);
  ASSERT_EQ(pb_open(kx_pbt_usr, kx_pbm_read), 0);
  EXPECT_EQ(pb_open(kx_pbt_usr, kx_pbm_write), 0);
  EXPECT_EQ(pb_usr.mode, kx_pbm_read);
  EXPECT_EQ(pb_delete(kx_pbt_usr), -1);
  EXPECT_EQ(pb_errno, kx_err_database);
  EXPECT_EQ(pb_create(kx_pbt_usr), 0);
  EXPECT_EQ(pb_close(kx_pbt_usr), 0);
}

TEST_F(Command, BooksAreApart) {
  client_.Talk("persons a\ncreate pbtype=pbt-sys\npersons s");
  Client bob("bob");
  bob.Talk(R"(
open => 38
create
lstper rcmd=pbc-first => []
lstper pbtype=pbt-sys => [s]
)");
  EXPECT_EQ(access((root_ / "pbper.dat").c_str(), F_OK), 0);
  EXPECT_EQ(access((root_ / "faxq/bob/options/pbmem.idx").c_str(), F_OK), 0);
}

TEST_F(Command, NameThatIsNoUsersHasNoBook) {
  for (const char* name : {"", "..", "a/../alice", "/alice"}) {
    Client stranger(name);
    stranger.Talk("create => 37\nopen => 37\ndelete => 37");
  }
}

TEST_F(Command, CreateKeepsWhatIsThereAndDeleteRemovesAll) {
  client_.Talk("persons a\ngroup g a\ncreate\nmembers g:a");
  struct stat st;
  ASSERT_EQ(stat((root_ / "faxq/alice/options/pbgrp.idx").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0660u);

  // Even when a file is missing, nothing stays for the next book.
  unlink((root_ / "faxq/alice/options/pbper.dat").c_str());
  client_.Talk(R"(
open => 38
delete => 29
create
cntgrp => .pbmax=0
delete
delete => 29
)");
}

TEST_F(Command, ABookIsCheckedAndRepaired) {
  client_.Talk("persons a b");
  pb_setup("alice", root_.path().c_str(), nullptr);
  const auto check = [](auto* what) {
    return what(kx_pbt_usr, pb_per_name, nullptr, nullptr) == 0 ? 0 : pb_errno;
  };
  EXPECT_EQ(check(pb_check), 0);
  unlink((root_ / "faxq/alice/options/pbper.idx").c_str());
  EXPECT_EQ(check(pb_check), kx_err_database);
  EXPECT_EQ(check(pb_repair), 0);
  EXPECT_EQ(check(pb_check), 0);
  client_.Talk("lstper rcmd=pbc-first => [a b]\ndelete");
  EXPECT_EQ(check(pb_check), kx_err_no_book);
}

TEST_F(Command, DirectoryThatCannotBeMadeIsASystemError) {
  WriteFile(root_ / "faxq/carol", "");
  Client carol("carol");
  carol.Talk("create => 40\nopen => 38");
}

// A user owns the directory that "options" lies in.
TEST_F(Command, BookBehindALinkIsNotTheUsers) {
  client_.Talk("persons a\ncreate pbtype=pbt-sys\npersons s");
  std::filesystem::create_directories(root_ / "faxq/mallory");
  for (const char* target : {"../alice/options", "../.."}) {
    SCOPED_TRACE(target);
    const std::filesystem::path link = root_ / "faxq/mallory/options";
    std::filesystem::remove(link);
    std::filesystem::create_symlink(target, link);
    Client mallory("mallory");
    mallory.Talk("open => 38\ncreate => 40\ndelete => 29");
  }
  client_.Talk(R"(
lstper pbtype=pbt-sys rcmd=pbc-first => [s]
lstper pbtype=pbt-usr rcmd=pbc-first => [a]
)");
}

// A user may put any file where the book should be.
TEST_F(Command, TableOfAnotherLayoutIsNoBook) {
  const std::string dir = root_ / "faxq/alice/options/";
  const db_field narrow[] = {
      {"galias", "g", "", kx_typ_str, 4, 0, nullptr, nullptr}, {}};
  const db_field wide[] = {
      {"galias", "g", "", kx_typ_str, 9000, 0, nullptr, nullptr}, {}};
  const db_key keys[] = {{0, 1, {0}}, {-1, 0, {}}};
  const db_key none[] = {{-1, 0, {}}};
  for (const char* table : {"pbper", "pbgrp", "pbmem"}) {
    for (const db_field* fields : {narrow, wide, pb_grp_fields}) {
      const std::string path = dir + table;
      db_delete(path.c_str());
      ASSERT_EQ(db_create(path.c_str(), fields, fields == wide ? none : keys),
                0);
      client_.Talk("open => 29");
    }
    client_.Talk("delete\ncreate");
  }
}

// Several processes change one book: no acknowledged change is lost, no
// membership outlives its person, and updates of one person keep each other's
// fields.
TEST_F(Command, ProcessesShareABook) {
  constexpr const char* kOwnFields[] = {"addr1", "addr2", "city"};
  constexpr int kEach = 12;
  client_.Talk("persons all\ngroup g");
  std::vector<pid_t> children;
  for (const std::string own : kOwnFields) {
    children.push_back(BeginChild([&] {
      Client client;
      for (int i = 0; i < kEach; ++i) {
        const std::string alias = own + std::to_string(i);
        client.Talk("persons " + alias + "\nmemadd | galias=g palias=" + alias +
                    "\nperupd | palias=all " + own + "=" + alias);
        if (i % 3 == 0) client.Talk("perdel pbkey=" + alias);
      }
      return HasFailure() ? 1 : 0;
    }));
  }
  for (const pid_t pid : children) EXPECT_EQ(Reaped(pid), 0);
  client_.Talk(R"(
cntper => .pbmax=25
cntper pbkey=g => .pbmax=24
lstmbg pbmax=0 rcmd=pbc-first
)");
  EXPECT_EQ(Kfx_Bcount(kx::Child(client_.com(), "objptr")), 24);
  client_.Talk("perget rcmd=pbc-alias pbkey=all");
  for (const char* own : kOwnFields) {
    EXPECT_EQ(client_.Result(own), own + std::to_string(kEach - 1));
  }
}

}  // namespace
