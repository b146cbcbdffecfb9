// Resource lists, message lists, cover pages, file types.
#include "handler_test.h"

namespace {

using Lists = HandlerTest;

std::string Request(const std::string& type, const std::string& more = "") {
  return Argument("obj-reqlst", "listtype=" + type + "\n" + more);
}

// The answer of a list command: one object of `type` an element.
std::string List(const std::string& fields, const std::string& type,
                 const std::vector<std::string>& elements) {
  const std::string list = ListField("listptr", type, elements);
  return kDone + Argument("obj-reqlst", fields + list);
}

TEST_F(Lists, ResourcesAreThoseOfTypes1To12) {
  EXPECT_EQ(Run("cmd-reslist", Request("lst-resolutions")),
            List("listtype=lst-resolutions\n", "obj-resource",
                 {"rname=std\nrdesc=standard\n", "rname=fine\nrdesc=fine\n"}));
  EXPECT_EQ(Run("cmd-reslist", Request("lst-tnps")),
            List("listtype=lst-tnps\n", "", {}));
  ExpectFailure(11, "Invalid list request command", "cmd-reslist", "");
  ExpectFailure(19, "Invalid list type ", "cmd-reslist",
                Argument("obj-reqlst"));
  // A list whose source is missing is refused in the same words.
  for (const char* type :
       {"lst-events", "lst-cvrtags", "cmd-noop", "lst-queues"}) {
    ExpectFailure(19, std::string("Invalid list type ") + type, "cmd-reslist",
                  Request(type));
  }
}

TEST_F(Lists, MessagesAreThoseOfTypes13To17) {
  root_.Put("faxq/jsmith/a.fax", "");
  root_.Put("faxq/jsmith/half.tmp", "");
  root_.Put("faxq/bob/b.fax", "");
  const timespec times[2] = {{86400, 0}, {86400, 0}};
  utimensat(AT_FDCWD, (root_ / "faxq/jsmith/a.fax").c_str(), times, 0);
  const std::string fax =
      "filename=a.fax\nclientid=jsmith\nfstatus=fst-new\n"
      "rcvtime=19700102000000\n";
  EXPECT_EQ(Run("cmd-msglist", Request("lst-faxfiles", "listid=bob\n")),
            List("listtype=lst-faxfiles\nlistid=bob\n", "obj-faxinfo", {fax}));
  const std::string later = "listtime=19700103000000\n";
  EXPECT_EQ(Run("cmd-msglist", Request("lst-faxfiles", later)),
            List("listtype=lst-faxfiles\n" + later, "", {}));
  EXPECT_EQ(Run("cmd-msglist", Request("lst-routes")),
            List("listtype=lst-routes\n", "obj-route",
                 {"fromid=jsmith\ntoid=bob\n"}));
  for (const char* type : {"lst-srvmsgs", "lst-tmsgs", "lst-events"}) {
    EXPECT_EQ(Run("cmd-msglist", Request(type)),
              List(std::string("listtype=") + type + "\n", "", {}));
  }
  ExpectFailure(11, "Invalid list request command", "cmd-msglist",
                Argument("obj-resource"));
  ExpectFailure(19, "Invalid list type ", "cmd-msglist",
                Argument("obj-reqlst"));
  ExpectFailure(19, "Invalid msg type lst-covers", "cmd-msglist",
                Request("lst-covers"));
  EXPECT_EQ(Run("cmd-msglist", Request("lst-faxfiles"), "clientid=carol\n"),
            "result=19\nerrmsg=Invalid msg type lst-faxfiles\n");
}

TEST_F(Lists, CoverPagesTellTheirTags) {
  root_.PutProgram("Covers/plain.cvr",
                   "echo 'to:R:F:Courier:30:\"Who it is\" FXPAGES:S cc:o'");
  root_.PutProgram("Covers/bare.cvr", "exit 1");
  const auto page = [](const std::string& name) {
    return Argument("obj-resource", "rname=" + name + "\n");
  };
  const auto tags = [](const std::vector<std::string>& names) {
    std::vector<std::string> elements;
    for (const auto& name : names) elements.push_back("tagname=" + name + "\n");
    return ListField("objptr", "obj-cvrtag", elements);
  };
  EXPECT_EQ(Run("cmd-cvrtags", page("plain")),
            List("listtype=lst-cvrtags\nlistid=plain\n", "obj-cvrtag",
                 {"tagname=to\ntagtype=tag-req\nfonttype=fnt-fixed\n"
                  "fontname=Courier\nmaxlen=30\ntagdesc=Who it is\n",
                  "tagname=cc\ntagtype=tag-opt\n"}));
  ExpectFailure(19, "No coverpage supplied", "cmd-cvrtags", "");
  ExpectFailure(19, "Invalid coverpage ", "cmd-cvrtags", Argument("obj-reqid"));
  for (const char* name : {"none", "bare", "..", "../bin/sh", "plain.cvr"}) {
    ExpectFailure(19, std::string("Invalid coverpage ") + name, "cmd-cvrtags",
                  page(name));
  }

  EXPECT_EQ(Run("cmd-cvrmatch", tags({"cc", "to"})),
            kDone + ListField("objptr", "obj-resource", {"rname=plain\n"}));
  EXPECT_EQ(Run("cmd-cvrmatch", tags({"to", "from"})), kDone);
  ExpectFailure(19, "No tags supplied", "cmd-cvrmatch", "");
  ExpectFailure(19, "No tags supplied", "cmd-cvrmatch", page("plain"));
  std::filesystem::remove_all(root_ / "Covers");
  root_.Put("Covers", "no directory");
  EXPECT_EQ(Run("cmd-cvrmatch", tags({"to"})),
            "result=2\nerrmsg=Not a directory\n");
  EXPECT_EQ(returned_, 0);
}

TEST_F(Lists, FileTypesAreToldByTheExtension) {
  for (const auto& [path, type] :
       {std::pair("/x/y.tif", "tif"), std::pair("y.TIF", "txt")}) {
    EXPECT_EQ(
        Run("cmd-filetype",
            Argument("obj-file", std::string("pathname=") + path + "\n")),
        kDone + Argument("obj-resource", std::string("rname=") + type + "\n"));
  }
  ExpectFailure(11, "Invalid file-type command", "cmd-filetype",
                Argument("obj-resource"));
  ExpectFailure(19, "No filename specified", "cmd-filetype",
                Argument("obj-file"));
}

}  // namespace
