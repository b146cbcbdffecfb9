// What a command does to its object and to the book as a whole.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "book.h"
#include "util/kutio.h"

namespace {

using Command = BookTest;

TEST_F(Command, OpenAndCloseTellTheState) {
  EXPECT_EQ(client_.Send("open"), 0);
  EXPECT_EQ(
      client_.Get("curper") + client_.Get("curgrp") + client_.Get("curmem"),
      "000");
  EXPECT_EQ(client_.Get("pbsort"), "pbs-alias");
  client_.Set({{"curper", "7"}, {"pbsort", "pbs-company"}});
  EXPECT_EQ(client_.Send("open"), 0);
  EXPECT_EQ(client_.Get("curper"), "7");

  // Close needs no book, and knows nothing of the commands before.
  Client other("nobody");
  other.Set({{"pbmode", ""}, {"pbsort", ""}});
  EXPECT_EQ(other.Send("close", {}, Person({})), 0);
  EXPECT_EQ(other.Get("pbmode") + other.Get("pbsort") + other.Get("curper"),
            "");
  EXPECT_EQ(other.Result("palias"), "none");
}

TEST_F(Command, FailuresHaveTheirNumbers) {
  AddPersons({"a"});
  AddGroup("g", {"a"});
  const struct {
    const char* command;
    Fields fields;
    int error;
  } kCases[] = {
      {"open", {{"pbtype", "pbt-lcl"}}, 37},
      {"create", {{"pbtype", "pbt-lcl"}}, 37},
      {"open", {{"pbtype", ""}}, 37},
      {"open", {{"pbtype", "pbs-alias"}}, 37},
      {"open", {{"pbtype", "pbt-sys"}}, 38},
      {"open", {{"pbmode", ""}}, 37},
      {"open", {{"pbmode", "pbt-usr"}}, 37},
      {"gteq", {}, 37},
      {"gteq", {{"pbtype", "pbt-sys"}}, 38},
      {"perget", {{"rcmd", ""}}, 37},
      {"perget", {{"rcmd", "pbc-create"}}, 37},
      {"perget", {{"rcmd", "pbc-first"}, {"pbsort", ""}}, 37},
      {"perget", {{"rcmd", "pbc-alias"}, {"pbsort", "pbt-usr"}}, 37},
      {"perget", {{"rcmd", "pbc-alias"}, {"pbkey", "b"}}, 30},
      {"perget", {{"rcmd", "pbc-gteq"}, {"pbkey", "b"}}, 30},
      {"perget", {{"rcmd", "pbc-next"}, {"curper", "9"}}, 30},
      {"perget", {{"rcmd", "pbc-next"}, {"curper", "-9"}}, 30},
      {"perpos", {{"rcmd", "pbc-alias"}, {"pbmax", "1"}}, 37},
      {"perpos", {{"rcmd", "pbc-first"}, {"pbsort", ""}}, 37},
      {"perpos", {{"rcmd", "pbc-first"}, {"pbmax", "2"}}, 36},
      {"grpget", {{"rcmd", "pbc-equal"}, {"pbkey", "h"}}, 31},
      {"memget", {{"rcmd", "pbc-alias"}}, 32},
      {"memgbg", {{"rcmd", "pbc-first"}, {"pbkey", "h"}}, 36},
      {"memgbp", {{"rcmd", "pbc-first"}, {"pbkey", "b"}}, 36},
      {"memgbg", {{"rcmd", "pbc-next"}, {"curmem", "9"}}, 32},
      {"perdel", {{"pbkey", "b"}}, 30},
      {"perdel", {}, 30},
      {"grpdel", {{"pbkey", "b"}}, 31},
      {"peradd", {}, 37},
      {"perupd", {}, 37},
      {"grpadd", {}, 37},
      {"memadd", {}, 37},
      {"memdel", {}, 37},
      {"cntper", {{"pbbeg", "a"}, {"pbsort", ""}}, 37},
      {"cntper", {{"pbkey", "h"}}, 37},
      {"lstper", {{"rcmd", "pbc-equal"}, {"pbkey", "b"}}, 30},
      {"lstprl", {{"pboffset", "-2"}}, 37},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::PrintToString(c.fields) + " " + c.command);
    client_.Reset();
    client_.Set({{"pbmax", "0"}, {"curgrp", "3"}});
    EXPECT_EQ(client_.Send(c.command, c.fields), c.error);
    // Nothing is written back.
    EXPECT_EQ(client_.Get("curgrp"), "3");
    EXPECT_EQ(client_.Result("palias"), "none");
  }
  EXPECT_EQ(client_.Send("peradd", {}, Group({{"galias", "b"}})), 37);
  EXPECT_EQ(client_.Send("peradd", {}, Person({{"palias", "A"}})), 33);
  EXPECT_EQ(client_.Send("grpadd", {}, Group({{"gdesc", "b"}})), 37);
  EXPECT_EQ(client_.Send("grpadd", {}, Group({{"galias", "G"}})), 33);
  EXPECT_EQ(client_.Send("grpupd", {}, Group({{"galias", "b"}})), 31);
  EXPECT_EQ(client_.Send("perupd", {}, Person({{"palias", "b"}})), 30);
  EXPECT_EQ(client_.Send("perupd", {}, Person({{"lname", "b"}})), 37);
  EXPECT_EQ(client_.Send("memadd", {}, Member("g", "A")), 33);
  EXPECT_EQ(client_.Send("memadd", {}, Member("h", "b")), 30);
  EXPECT_EQ(client_.Send("memadd", {}, Member("h", "a")), 31);
  EXPECT_EQ(client_.Send("memadd", {}, Member("", "a")), 37);
  EXPECT_EQ(client_.Send("memdel", {}, Member("h", "a")), 30);
}

TEST_F(Command, ReadingBookRefusesEveryChange) {
  AddPersons({"a"});
  AddGroup("g", {});
  client_.Set({{"pbmode", "pbm-read"}});
  EXPECT_EQ(client_.Send("peradd", {}, Person({{"palias", "b"}})), 35);
  EXPECT_EQ(client_.Send("perupd", {}, Person({{"palias", "a"}})), 35);
  EXPECT_EQ(client_.Send("perdel", {{"pbkey", "a"}}), 35);
  EXPECT_EQ(client_.Send("grpadd", {}, Group({{"galias", "h"}})), 35);
  EXPECT_EQ(client_.Send("grpupd", {}, Group({{"galias", "g"}})), 35);
  EXPECT_EQ(client_.Send("grpdel", {{"pbkey", "g"}}), 35);
  EXPECT_EQ(client_.Send("memadd", {}, Member("g", "a")), 35);
  EXPECT_EQ(client_.Send("memdel", {}, Member("g", "a")), 35);
  EXPECT_EQ(client_.Send("perget", {{"rcmd", "pbc-first"}}), 0);
}

TEST_F(Command, ClosedBookRefusesEverything) {
  pb_setup("alice", root_.path().c_str(), nullptr);
  kx::Object person = Person({{"palias", "a"}});
  EXPECT_EQ(pb_per_add(kx_pbt_usr, person.get()), -1);
  EXPECT_EQ(pb_errno, 34);
  EXPECT_EQ(pb_list_grp_get(kx_pbt_usr, kx_pbc_first, nullptr, 0), nullptr);
  EXPECT_EQ(pb_errno, 34);
  EXPECT_EQ(pb_count_persons(kx_pbt_usr, -1, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(pb_errno, 34);
  EXPECT_EQ(pb_close(kx_pbt_usr), 0);
  ASSERT_EQ(pb_open(kx_pbt_usr, kx_pbm_read), 0);
  EXPECT_EQ(pb_open(kx_pbt_usr, kx_pbm_write), 0);
  EXPECT_EQ(pb_usr.mode, kx_pbm_read);
  EXPECT_EQ(pb_delete(kx_pbt_usr), -1);
  EXPECT_EQ(pb_errno, 29);
  EXPECT_EQ(pb_create(kx_pbt_usr), 0);
  EXPECT_EQ(pb_close(kx_pbt_usr), 0);
}

TEST_F(Command, BooksAreApart) {
  AddPersons({"a"});
  client_.Set({{"pbtype", "pbt-sys"}});
  EXPECT_EQ(client_.Send("create"), 0);
  EXPECT_EQ(client_.Send("peradd", {}, Person({{"palias", "s"}})), 0);
  Client bob("bob");
  EXPECT_EQ(bob.Send("open"), 38);
  EXPECT_EQ(bob.Send("create"), 0);
  EXPECT_EQ(bob.Send("lstper", {{"rcmd", "pbc-first"}}), 0);
  EXPECT_EQ(bob.Listed(), "");
  bob.Set({{"pbtype", "pbt-sys"}});
  EXPECT_EQ(bob.Send("lstper", {{"rcmd", "pbc-first"}}), 0);
  EXPECT_EQ(bob.Listed(), "s");
  EXPECT_EQ(access((root_ / "pbper.dat").c_str(), F_OK), 0);
  EXPECT_EQ(access((root_ / "faxq/bob/options/pbmem.idx").c_str(), F_OK), 0);
}

TEST_F(Command, NameThatIsNoUsersHasNoBook) {
  for (const char* name : {"", "..", "a/../alice", "/alice"}) {
    Client stranger(name);
    EXPECT_EQ(stranger.Send("create"), 37) << name;
    EXPECT_EQ(stranger.Send("open"), 37) << name;
    EXPECT_EQ(stranger.Send("delete"), 37) << name;
  }
}

TEST_F(Command, CreateKeepsWhatIsThereAndDeleteRemovesAll) {
  AddPersons({"a"});
  AddGroup("g", {"a"});
  EXPECT_EQ(client_.Send("create"), 0);
  EXPECT_EQ(Memberships(), "g:a ");
  struct stat st;
  ASSERT_EQ(stat((root_ / "faxq/alice/options/pbgrp.idx").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0660u);

  // Even when a file is missing, nothing stays for the next book.
  unlink((root_ / "faxq/alice/options/pbper.dat").c_str());
  EXPECT_EQ(client_.Send("open"), 38);
  EXPECT_EQ(client_.Send("delete"), 29);
  EXPECT_EQ(client_.Send("create"), 0);
  EXPECT_EQ(client_.Send("cntgrp"), 0);
  EXPECT_EQ(client_.Get("pbmax"), "0");
  EXPECT_EQ(client_.Send("delete"), 0);
  EXPECT_EQ(client_.Send("delete"), 29);
}

TEST_F(Command, DirectoryThatCannotBeMadeIsASystemError) {
  WriteFile(root_ / "faxq/carol", "");
  Client carol("carol");
  EXPECT_EQ(carol.Send("create"), 40);
  EXPECT_EQ(carol.Send("open"), 38);
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
      EXPECT_EQ(client_.Send("open"), 29) << table;
    }
    EXPECT_EQ(client_.Send("delete"), 0);
    EXPECT_EQ(client_.Send("create"), 0);
  }
}

// Several processes change one book: no acknowledged change is lost, no
// membership outlives its person, and updates of one person keep each other's
// fields.
TEST_F(Command, ProcessesShareABook) {
  constexpr const char* kOwnFields[] = {"addr1", "addr2", "city"};
  constexpr int kEach = 12;
  AddPersons({"all"});
  AddGroup("g", {});
  std::vector<pid_t> children;
  for (const char* own : kOwnFields) {
    const pid_t pid = fork();
    ASSERT_NE(pid, -1);
    if (pid == 0) {
      Client client;
      int failures = 0;
      for (int i = 0; i < kEach; ++i) {
        const std::string alias = own + std::to_string(i);
        failures += client.Send("peradd", {}, Person({{"palias", alias}})) != 0;
        failures += client.Send("memadd", {}, Member("g", alias)) != 0;
        failures += client.Send("perupd", {},
                                Person({{"palias", "all"}, {own, alias}})) != 0;
        if (i % 3 == 0) {
          failures += client.Send("perdel", {{"pbkey", alias}}) != 0;
        }
      }
      _exit(failures == 0 ? 0 : 1);
    }
    children.push_back(pid);
  }
  for (const pid_t pid : children) {
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(client_.Send("cntper"), 0);
  EXPECT_EQ(client_.Get("pbmax"), "25");
  EXPECT_EQ(client_.Send("cntper", {{"pbkey", "g"}}), 0);
  EXPECT_EQ(client_.Get("pbmax"), "24");
  EXPECT_EQ(client_.Send("lstmbg", {{"pbmax", "0"}, {"rcmd", "pbc-first"}}), 0);
  EXPECT_EQ(Kfx_Bcount(kx::Child(client_.com(), "objptr")), 24);
  EXPECT_EQ(client_.Send("perget", {{"rcmd", "pbc-alias"}, {"pbkey", "all"}}),
            0);
  for (const char* own : kOwnFields) {
    EXPECT_EQ(client_.Result(own), own + std::to_string(kEach - 1));
  }
}

}  // namespace
