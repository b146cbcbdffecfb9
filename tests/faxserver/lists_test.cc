#include <gtest/gtest.h>
#include <utime.h>

#include "cm/cmlimits.h"
#include "faxserver/fscover.h"
#include "faxserver/fshdr.h"
#include "faxserver/fslist.h"
#include "faxserver/fslog.h"
#include "faxserver/fsmon.h"
#include "faxserver/fsmsg.h"
#include "faxserver/fsolog.h"
#include "faxserver/fspopen.h"
#include "faxserver/fsres.h"
#include "faxserver/fsstat.h"
#include "support/peers.h"

namespace {

using ResourceLists = FaxTest;
using CoverTags = FaxTest;
using CoverMatch = FaxTest;
using Messages = BobTest;
using MessageLists = BobTest;

std::string Resources(const FaxRoot& root, int listtype) {
  return Shown(kx::Object(fx_get_res_list(root.root(), listtype)),
               {"rname", "rdesc"});
}

constinit int g_logged = 0;

TEST_F(ResourceLists, AreBuiltFromTheirSources) {
  for (const std::string cover : {"plain.cvr", "plain-2", "plain.ps", ".hidden",
                                  "a-cover-whose-name-is-long"}) {
    root.PutProgram("Covers/" + cover, "");
  }
  for (const char* file : {"Covers/README", "Formatters/ps", "Formatters/troff",
                           "groups/team", "tnp/notify"}) {
    root.Put(file, "");
  }
  root.MakeDir("Covers/dir");
  root.MakeDir("groups/dir");
  root.Put("krtnet/prtdests.lst", "# printers\nlp0\n  lp1 \t The big one \n\n");
  root.Put("retrys", "fast three times\nslow once a day\n");
  g_logged = 0;
  fx_log_to([](const char*) { ++g_logged; });
  EXPECT_EQ(Resources(root, kx_lst_covers), "plain=;plain-2=;")
      << "without covers.lst all of them";
  EXPECT_EQ(g_logged, 1) << "the name that does not fit";
  fx_log_to(nullptr);
  root.Put("krtnet/covers.lst", "zz not there\nplain The plain one\n");
  EXPECT_EQ(Resources(root, kx_lst_covers),
            "zz=not there;plain=The plain one;");
  EXPECT_EQ(Resources(root, kx_lst_allcovers), "plain=The plain one;plain-2=;");
  const std::string types = Resources(root, kx_lst_filetypes);
  EXPECT_EQ(std::count(types.begin(), types.end(), ';'), 6) << types;
  EXPECT_NE(types.find(";troff=;"), std::string::npos) << types;
  EXPECT_EQ(Resources(root, kx_lst_groups), "team=;");
  EXPECT_EQ(Resources(root, kx_lst_tnps), "notify=;");
  EXPECT_EQ(Resources(root, kx_lst_prtdests), "lp0=;lp1=The big one;");
  EXPECT_EQ(Resources(root, kx_lst_retrys),
            "fast=three times;slow=once a day;");
  EXPECT_TRUE(Resources(root, kx_lst_pglengths).starts_with("letter="));
  EXPECT_EQ(Resources(root, kx_lst_resolutions), "std=standard;fine=fine;");
  EXPECT_EQ(kx_errno, 0);
}

TEST_F(ResourceLists, AreTwelve) {
  for (int type = -1; type <= 22; ++type) {
    const kx::Object list(fx_get_res_list(root.root(), type));
    const bool served = type >= 1 && type <= 12;
    // Of an empty root only the queues are an error: their file must exist.
    EXPECT_EQ(kx_errno, !served ? 19 : type == kx_lst_queues ? 3 : 0) << type;
  }
}

TEST_F(ResourceLists, KeepTheirOrderWhenOneIsAdded) {
  kx_object* list = nullptr;
  for (const char* fields :
       {"rname=m\nrdesc=0\n", "rname=z\nrdesc=1\n", "rname=a\nrdesc=2\n",
        "rname=m\nrdesc=3\n", "rname=b\nrdesc=4\n"}) {
    list = fx_add_in_order(list, Parsed("obj-resource", fields).release());
  }
  EXPECT_EQ(Shown(kx::Object(list), {"rname", "rdesc"}),
            "a=2;b=4;m=0;m=3;z=1;");
}

// ---- Cover pages ----

TEST_F(CoverTags, LineIsTakenApart) {
  const std::initializer_list<const char*> kFields = {
      "tagname", "tagtype", "fonttype", "fontname", "maxlen", "tagdesc"};
  const std::pair<const char*, const char*> cases[] = {
      {"to:R:F:Courier:30:\"Who gets\"\n",
       "to=tag-req=fnt-fixed=Courier=30=Who gets;"},
      {"a:o:p b:S:x  c", "a=tag-opt=fnt-prop===;b=tag-sys====;c=====;"},
      {"a::F::: b:R", "a==fnt-fixed===;b=tag-req====;"},
      {"a:O:F:\"Two: words\":5:\"x:y z\"q:r",
       "a=tag-opt=fnt-fixed=Two: words=5=x:y zq:r;"},
      {"FXPAGES:S FXSENTON x:Req", "x=====;"},
      {"a:R:F:C:abc:open \"a name that is too long\"",
       "a=tag-req=fnt-fixed=C=0=open;"},
      {"", ""},
      {" \t\n", ""},
  };
  for (const auto& [line, shown] : cases) {
    std::string text = line;
    const std::string got =
        Shown(kx::Object(fx_parse_cover_tags(text.data())), kFields);
    EXPECT_EQ(got, shown) << line;
  }
}

TEST_F(CoverTags, AreAskedFromTheCoverItself) {
  const std::string name = "it's $(x) \"q";  // one word, whatever it holds
  root.PutProgram("Covers/" + name + ".cvr",
                  "[ \"$#$1\" = 1-dump ] && echo 'to:R FXPAGES:S\nmore:R'\n"
                  "exit 7\n");
  root.PutProgram("Covers/silent.cvr", "");
  root.PutProgram("Covers/none.cvr", "echo\n");
  root.Put("Covers/flat.cvr", "not executable");
  EXPECT_EQ(Shown(kx::Object(fx_get_cover_tags(root.root(), name.c_str())),
                  {"tagname"}),
            "to;");
  const std::pair<const char*, int> cases[] = {
      {"silent", 5}, {"none", 0}, {"flat", 19},       {"absent", 19},
      {"", 19},      {"..", 19},  {"silent.cvr", 19}, {"../Covers/silent", 19},
  };
  for (const auto& [cover, error] : cases) {
    EXPECT_EQ(fx_get_cover_tags(root.root(), cover), nullptr) << cover;
    EXPECT_EQ(kx_errno, error) << cover;
  }
}

TEST_F(CoverMatch, FindsThePagesWithAllTags) {
  root.PutProgram("Covers/z.cvr", "echo to:R from:O\n");
  root.PutProgram("Covers/a.cvr", "echo from:O to:R subject:O\n");
  root.PutProgram("Covers/b.cvr", "echo to:R\n");
  root.PutProgram("Covers/broken.cvr", "exit 1\n");
  const auto match = [&](const std::vector<std::string>& names) {
    const kx::Object tags = TextList("obj-cvrtag", "tagname", names);
    const std::string shown = Shown(
        kx::Object(fx_cover_matchlist(root.root(), tags.get())), {"rname"});
    EXPECT_EQ(kx_errno, 0);
    return shown;
  };
  EXPECT_EQ(match({"to", "from"}), "a;z;");
  EXPECT_EQ(match({"to"}), "a;b;z;");
  EXPECT_EQ(match({"TO"}), "");
  EXPECT_EQ(match({"to", ""}), "") << "a tag without a name";
}

// ---- Messages ----

TEST_F(Messages, KeepEveryLine) {
  root.MakeDir("faxq/bob/msgs/d");
  EXPECT_EQ(ErrorOf(fx_msg_retrieve(root.root(), "bob", "d")), 3);
  root.Put("faxq/bob/msgs/f", "");
  EXPECT_EQ(fx_msg_retrieve(root.root(), "../faxq/bob", "f"), nullptr);
  const std::string a(255, 'a'), b(254, 'b');
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"one\n  two \n\nfour", "one;two; ;four;"},
      {"\n", " ;"},
      {a + "\n" + b + "\n", a + ";" + b + ";"},
      {a + "\n\nend\n", a + "; ;end;"},
      {a + "rest\nnext\n", a + ";rest;next;"},
      {a, a + ";"},
  };
  for (const auto& [content, lines] : cases) {
    root.Put("faxq/bob/msgs/m.msg", content);
    const kx::Object message(fx_msg_retrieve(root.root(), "bob", "m.msg"));
    ASSERT_NE(message, nullptr) << content;
    EXPECT_EQ(Shown(kx::Child(message.get(), "lines"), {"text"}), lines)
        << content;
  }
}

// ---- Message lists ----

void SetTime(const std::string& path, time_t when) {
  const utimbuf times = {when, when};
  ASSERT_EQ(utime(path.c_str(), &times), 0);
}

TEST_F(MessageLists, HoldRegularVisibleFilesByName) {
  const fx_faxhdr header = fx_make_faxhdr(3);
  root.Put("faxq/bob/b.fax", Bytes(header));
  root.Put("faxq/bob/a.tif", "not a fax file");
  SetTime(root / "faxq/bob/a.tif", 1000);
  SetTime(root / "faxq/bob/b.fax", 2000);
  for (const std::string name :
       {"x.tmp", ".hidden", "msgs/x.tmp", "msgs/.hidden", "msgs/msg.srv",
        "msgs/m.msg"}) {
    root.Put("faxq/bob/" + name, "");
  }
  root.Put("faxq/bob/" + std::string(200, 'n'), "");
  SetTime(root / "faxq/bob/msgs/m.msg", 3000);
  std::filesystem::create_symlink("/etc/passwd", root / "faxq/bob/link");
  mkfifo((root / "faxq/bob/fifo").c_str(), 0600);
  EXPECT_EQ(Shown(kx::Object(fx_get_fax_list(root.root(), "bob", 0)),
                  {"filename", "clientid", "fstatus", "npages", "rcvtime"}),
            "a.tif=bob=fst-new==19700101001640;"
            "b.fax=bob=fst-new=3=19700101003320;");
  EXPECT_EQ(Shown(kx::Object(fx_get_fax_list(root.root(), "bob", 1000)),
                  {"filename"}),
            "b.fax;");
  EXPECT_EQ(Shown(kx::Object(fx_get_msg_list(root.root(), "bob", 2999)),
                  {"filename", "msgtime"}),
            "m.msg=19700101005000;");
  EXPECT_EQ(fx_get_msg_list(root.root(), "bob", 3000), nullptr);
  EXPECT_EQ(kx_errno, 0);
}

TEST_F(MessageLists, OfTheServerAreTheObjectsOfItsFile) {
  const std::string path = root / "faxq/bob/msgs/msg.srv";
  EXPECT_EQ(fx_get_srv_list(root.root(), "bob", 0), nullptr);
  EXPECT_EQ(kx_errno, 0) << "no file, no messages";
  const auto message = [](const std::string& text) {
    return Object("obj-servmsg", "servcode=srv-start\ntext=" + text + "\n");
  };
  WriteFile(path, message("b") + message("a") + "objbeg=obj-servmsg\ntext=c\n");
  SetTime(path, 1000);
  EXPECT_EQ(Shown(kx::Object(fx_get_srv_list(root.root(), "bob", 999)),
                  {"servcode", "text"}),
            "srv-start=b;srv-start=a;");
  EXPECT_EQ(fx_get_srv_list(root.root(), "bob", 1000), nullptr);
  EXPECT_EQ(kx_errno, 0);
}

TEST_F(MessageLists, OfEventsAreByNumber) {
  for (const std::string seqno : {"10", "9"}) {
    root.Put("faxq/bob/events/" + seqno,
             Object("obj-status", "seqno=" + seqno + "\n"));
  }
  root.Put("faxq/bob/events/11", "damaged");
  root.Put("faxq/bob/events/x", "no number");
  EXPECT_EQ(
      Shown(kx::Object(fx_get_evt_list(root.root(), "bob", 0)), {"seqno"}),
      "9;10;");
}

TEST_F(MessageLists, OfRoutesAreTheOtherUsers) {
  for (const char* user : {"bob", "carol", "ann", "a-user-with-a-long-name"}) {
    root.AddUser(user);
  }
  root.Put("faxq/file", "");
  EXPECT_EQ(Shown(kx::Object(fx_get_rte_list(root.root(), "bob", 0)),
                  {"fromid", "toid"}),
            "bob=ann;bob=carol;");
}

TEST_F(MessageLists, AreForValidUsersOnly) {
  root.MakeDir("faxq/fresh");
  std::filesystem::remove_all(root / "faxq/bob");
  for (const auto list : {fx_get_srv_list, fx_get_fax_list, fx_get_msg_list,
                          fx_get_rte_list, fx_get_evt_list}) {
    for (const char* user : {"nobody", "", ".", "..", "../faxq/fresh"}) {
      EXPECT_EQ(ErrorOf(list(root.root(), user, 0)), 7) << user;
    }
    EXPECT_EQ(list(root.root(), "fresh", 0), nullptr);
    EXPECT_EQ(kx_errno, 0) << "a directory that is not there yet";
  }
}

// What a user fills with names and large objects is refused whole, not held in
// memory.
TEST_F(MessageLists, HaveABudget) {
  ASSERT_EQ(cm_set_limits("object-bytes=64K message-lines=9"), nullptr);
  for (int i = 0; i <= 64; ++i) {
    root.Put("faxq/bob/" + std::to_string(i), "");
    root.Put("faxq/bob/msgs/" + std::to_string(i), "");
  }
  std::vector<std::string> tags(200, "tagname=x\n");
  for (const std::string event : {"1", "2", "3", "4", "5", "6"}) {
    root.Put("faxq/bob/events/" + event,
             Object("obj-status",
                    "attempt=9\n" + ListField("ltags", "obj-localtag", tags)));
    fx_append_olog(root.root(),
                   {1, 0, 0, 0, 0, 0, 0, 0, "bob", "", "", "", ""});
  }
  root.Put("faxq/bob/options/monitors", "a\nb\nc\nd\ne\nf\ng\nh\ni\nj\n");
  EXPECT_EQ(ErrorOf(fx_get_fax_list(root.root(), "bob", 0)), 3);
  EXPECT_EQ(ErrorOf(fx_get_msg_list(root.root(), "bob", 0)), 3);
  EXPECT_EQ(ErrorOf(fx_get_evt_list(root.root(), "bob", 0)), 24);
  EXPECT_EQ(ErrorOf(fx_status_list(root.root(), "bob", 1)), 24);
  EXPECT_EQ(ErrorOf(fx_get_monlist(root.root(), "bob")), 24);
  cm_set_limits("object-bytes=64M message-lines=20000");
  EXPECT_NE(kx::Object(fx_get_evt_list(root.root(), "bob", 0)), nullptr);
}

}  // namespace
