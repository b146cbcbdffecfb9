// Lists and cover pages: what the commands make of what the library reads.
#include "handler.h"

namespace {

using Lists = HandlerTest;

TEST_F(Lists, EachCommandServesItsOwnTypes) {
  // A list whose source is missing is refused in the same words.
  for (const char* type :
       {"lst-events", "lst-cvrtags", "cmd-noop", "lst-queues"}) {
    ExpectFailure(19, std::string("Invalid list type ") + type, "cmd-reslist",
                  ListOf(type));
  }
  ExpectFailures(
      {{19, "Invalid list type ", "cmd-reslist", Argument("obj-reqlst")},
       {19, "Invalid list type ", "cmd-msglist", Argument("obj-reqlst")},
       {19, "Invalid msg type lst-covers", "cmd-msglist", ListOf("lst-covers")},
       {19, "No filename specified", "cmd-filetype", Argument("obj-file")}});
}

// Of the request only the time counts: a client sees its own lists.
TEST_F(Lists, MessagesAreTheClientsOwnSinceATime) {
  root_.Put("faxq/jsmith/a.fax", "");
  root_.Put("faxq/bob/b.fax", "");
  const timespec times[2] = {{86400, 0}, {86400, 0}};
  utimensat(AT_FDCWD, (root_ / "faxq/jsmith/a.fax").c_str(), times, 0);
  const std::string fax =
      ListField("listptr", "obj-faxinfo",
                {"filename=a.fax\nclientid=jsmith\nfstatus=fst-new\n"
                 "rcvtime=19700102000000\n"});
  const std::string bobs = ListOf("lst-faxfiles", "listid=bob\n");
  EXPECT_EQ(Run("cmd-msglist", bobs),
            kDone + ListOf("lst-faxfiles", "listid=bob\n" + fax));
  const std::string later = ListOf("lst-faxfiles", "listtime=19700103000000\n");
  EXPECT_EQ(Run("cmd-msglist", later), kDone + later);
  EXPECT_EQ(Run("cmd-msglist", bobs, "clientid=carol\n"),
            "result=19\nerrmsg=Invalid msg type lst-faxfiles\n");
}

TEST_F(Lists, CoverPagesTellTheirTags) {
  root_.PutProgram("Covers/plain.cvr", "echo 'to:R cc:o'");
  root_.PutProgram("Covers/bare.cvr", "exit 1");
  EXPECT_EQ(Run("cmd-cvrtags", Named("plain")),
            kDone + ListOf("lst-cvrtags",
                           "listid=plain\n" +
                               ListField("listptr", "obj-cvrtag",
                                         {"tagname=to\ntagtype=tag-req\n",
                                          "tagname=cc\ntagtype=tag-opt\n"})));
  ExpectFailure(19, "Invalid coverpage bare", "cmd-cvrtags", Named("bare"));
  const std::string to = TextsField("objptr", "obj-cvrtag", "tagname", {"to"});
  EXPECT_EQ(Run("cmd-cvrmatch", to),
            kDone + ListField("objptr", "obj-resource", {"rname=plain\n"}));
  std::filesystem::remove_all(root_ / "Covers");
  root_.Put("Covers", "no directory");
  EXPECT_EQ(Run("cmd-cvrmatch", to), "result=2\nerrmsg=Not a directory\n");
  EXPECT_EQ(returned_, 0);
}

}  // namespace
