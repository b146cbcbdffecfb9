// What a command does to its object and to the book as a whole.
#include <unistd.h>

#include "book.h"
#include "support/child.h"

namespace {

using Command = BookTest;

TEST_F(Command, FailuresHaveTheirNumbers) {
  client_.Talk("persons a\ngroup g a");
  const std::pair<const char*, const char*> kFail[] = {
      {" => 38", "open pbtype=pbt-sys;gteq pbtype=pbt-sys"},
      {" => 30",
       "perget rcmd=pbc-alias pbkey=b;perget rcmd=pbc-gteq pbkey=b;"
       "perget rcmd=pbc-next curper=9;perget rcmd=pbc-next curper=-9;"
       "perdel pbkey=b;perdel;lstper rcmd=pbc-equal pbkey=b"},
      {" => 31", "grpget rcmd=pbc-equal pbkey=h;grpdel pbkey=b"},
      {" => 32", "memget rcmd=pbc-alias;memgbg rcmd=pbc-next curmem=9"},
      {" => 36",
       "perpos rcmd=pbc-first pbmax=2;memgbg rcmd=pbc-first pbkey=h;"
       "memgbp rcmd=pbc-first pbkey=b"},
      {" => 37",
       "open pbtype=pbt-lcl;create pbtype=pbt-lcl;open pbtype=;"
       "open pbtype=pbs-alias;open pbmode=;open pbmode=pbt-usr;gteq;"
       "perget rcmd=;perget rcmd=pbc-create;perget rcmd=pbc-first pbsort=;"
       "perget rcmd=pbc-alias pbsort=pbt-usr;perpos rcmd=pbc-alias pbmax=1;"
       "perpos rcmd=pbc-first pbsort=;peradd;perupd;grpadd;memadd;memdel;"
       "cntper pbbeg=a pbsort=;cntper pbkey=h;lstprl pboffset=-2"}};
  for (const auto& [due, lines] : kFail) {
    std::istringstream stream(lines);
    for (std::string line; std::getline(stream, line, ';');) {
      client_.Reset();
      client_.Set(Words("pbmax=0 curgrp=3"));
      client_.Talk(line + due);
      // Nothing is written back.
      EXPECT_EQ(client_.Get("curgrp"), "3") << line;
      EXPECT_EQ(client_.Result("palias"), "none") << line;
    }
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
    Client(name).Talk("create => 37\nopen => 37\ndelete => 37");
  }
  WriteFile(root_ / "faxq/carol", "");  // no folder can be made there
  Client("carol").Talk("create => 40\nopen => 38");
}

TEST_F(Command, CreateKeepsWhatIsThereAndDeleteRemovesAll) {
  client_.Talk("persons a\ngroup g a\ncreate\nmembers g:a");
  EXPECT_EQ(PermsOf(root_ / "faxq/alice/options/pbgrp.idx"), 0660u);
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

// A user owns the directory that "options" lies in.
TEST_F(Command, BookBehindALinkIsNotTheUsers) {
  client_.Talk("persons a\ncreate pbtype=pbt-sys\npersons s");
  for (const std::pair<const char*, const char*>& link :
       {std::pair("mallory", "../alice/options"), {"eve", "../.."}}) {
    const std::string folder = root_ / "faxq/" + link.first;
    std::filesystem::create_directories(folder);
    std::filesystem::create_symlink(link.second, folder + "/options");
    Client(link.first).Talk("open => 38\ncreate => 40\ndelete => 29");
  }
  client_.Talk("lstper rcmd=pbc-first => [s]");
  client_.Talk("lstper pbtype=pbt-usr => [a]");
}

// A user may put any file where the book should be.
TEST_F(Command, TableOfAnotherLayoutIsNoBook) {
  const std::string dir = root_ / "faxq/alice/options/";
  db_field narrow[] = {{"galias", "g", "", kx_typ_str, 4, 0, nullptr, nullptr},
                       {}};
  db_field wide[] = {narrow[0], {}};
  wide[0].length = 9000;
  const db_key keys[] = {{0, 1, {0}}, {-1, 0, {}}};
  const db_key none[] = {{-1, 0, {}}};
  for (const char* table : {"pbper", "pbgrp", "pbmem"}) {
    for (const db_field* fields :
         std::initializer_list<const db_field*>{narrow, wide, pb_grp_fields}) {
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
