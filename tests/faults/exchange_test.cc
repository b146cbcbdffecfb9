// The exchange of commands and responses with the real daemon, while calls of
// the daemon and its workers fail.
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/ioctl.h>

#include <fstream>
#include <iostream>
#include <optional>

#include "faults/sweep.h"
#include "faxserver/fax_root.h"
#include "faxserver/fsshm.h"
#include "phonebook/pb.h"
#include "support/daemon_process.h"
#include "support/own_ipc.h"

namespace {

using support::Command;
using support::DaemonProcess;
using support::Eventually;
using support::SampleRoot;

// What the tests see of a root while they run.
struct World {
  SampleRoot root;
  FifoReader spool{root.path() / "krtnet/filspool/kfifo"};
  UniqueFd spool_look{open((root.path() / "krtnet/filspool/kfifo").c_str(),
                           O_RDONLY | O_NONBLOCK)};
  FifoReader scheduler{root.path() / "FIFO"};

  std::string Path(const std::string& name) const { return root / name; }
  void Put(const std::string& name, const std::string& content) const {
    root.Put(name, content);
  }
};

// A kind of command. The answer to it is compared with the one that it has when
// nothing fails. `prepare` sets the world up for it; `check` says what is wrong
// after it was answered with success (true) or with an error.
struct Kind {
  const char* name;
  const char* type;
  std::string argument;
  std::function<void(const World&)> prepare;
  std::function<std::string(const World&, bool done)> check;
  bool silent = false;  // success is not answered
};

void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

void Nothing(const World&) {}
std::string Fine(const World&, bool) { return ""; }

bool Exists(const std::string& path) { return std::filesystem::exists(path); }

std::string Unless(bool right, const std::string& complaint) {
  return right ? "" : complaint;
}

// Whether a file holds `done` or else `before`, as it should.
std::string Holds(const World& world, const std::string& name, bool done,
                  const std::string& before, const std::string& after) {
  const std::string found = support::ReadFile(world.Path(name));
  return Unless(found == (done ? after : before), name + " holds " + found);
}

// A submit is queued whole and announced, or it is not there.
std::string CheckQueued(const World& world, bool done) {
  const std::string queued = world.Path("krtnet/queued");
  const std::size_t announced = world.spool.Take().size();
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(queued)) {
    const kx::Object cmd(Kfx_Load_Obj("obj-cmdrsp", entry.path().c_str()));
    const bool hidden = entry.path().filename().string().starts_with(".");
    if (!hidden) ++count;
    if (cmd == nullptr && !hidden) return "half a command is queued";
    std::filesystem::remove(entry.path());
  }
  return Unless(count == (done ? 1 : 0) && announced == (done ? 80U : 0U),
                std::to_string(count) + " queued, " +
                    std::to_string(announced) + " bytes announced");
}

// The book is the same each time, to the serial numbers.
void PrepareBook(const World& world) {
  constexpr auto kOver = std::filesystem::copy_options::overwrite_existing |
                         std::filesystem::copy_options::recursive;
  const std::filesystem::path book = world.Path("faxq/jsmith/options");
  const std::filesystem::path copy = world.Path("book");
  if (std::filesystem::create_directory(copy)) {
    pb_setup("jsmith", world.root.path().c_str(), nullptr);
    EXPECT_EQ(pb_create(kx_pbt_usr), 0);
    std::filesystem::copy(book, copy, kOver);
  }
  std::filesystem::copy(copy, book, kOver);
}

std::string CheckPerson(const World& world, bool done) {
  pb_setup("jsmith", world.root.path().c_str(), nullptr);
  if (pb_open(kx_pbt_usr, kx_pbm_read) != 0) return "the book does not open";
  const kx::Object person = kx::Build("obj-person");
  const bool found = pb_per_get(kx_pbt_usr, kx_pbs_alias, person.get(),
                                kx_pbc_alias, "ann") == 0;
  const int error = pb_errno;
  pb_close(kx_pbt_usr);
  if (!found && error != kx_err_person) return "the book is damaged";
  return Unless(found == done, found ? "a person" : "no person");
}

const std::string kMonitor =
    "clientid=jsmith\nmontype=mon-excall\n" +
    ListField("names", "obj-resource", {"rname=carol\n", "rname=dave\n"});

const Kind kKinds[] = {
    {"Noop", "cmd-noop", "", Nothing, Fine},
    // One that wants an answer gets it from the other side; from here it hears
    // of failures alone.
    {"Submit", "cmd-sendfax", "respond=true\n", Nothing, CheckQueued, true},
    {"GetImage", "cmd-imgret",
     Argument("obj-faxinfo", "filename=a.fax\nclientid=jsmith\n"), Nothing,
     Fine},
    {"Unknown", "cmd-bogus", "respond=true\n", Nothing, Fine},
    {"StoreImage", "cmd-imgstore",
     Argument("obj-reqsto",
              Field("finfoptr", "obj-faxinfo", "filename=up.fax\n") +
                  Field("filobjptr", "obj-file",
                        "pathname=ROOT/krtnet/filspool/load\n")),
     [](const World& world) {
       world.Put("krtnet/filspool/load", "Cat");
       world.Put("faxq/jsmith/up.fax", "Dog");
     },
     [](const World& world, bool done) {
       return Holds(world, "faxq/jsmith/up.fax", done, "Dog", "Cat");
     }},
    {"CopyFax", "cmd-copyfax",
     Argument("obj-route", "fromid=jsmith\ntoid=bob\nfilename=a.fax\n"),
     [](const World& world) {
       std::filesystem::remove(world.Path("faxq/bob/a.fax"));
     },
     [](const World& world, bool done) {
       // The last rename is not checked: the fax is with bob all the same.
       const char* temp = "faxq/bob/a.tmp";
       const bool is_temp = done && Exists(world.Path(temp));
       const char* name = is_temp ? temp : "faxq/bob/a.fax";
       const std::string wrong = Holds(world, name, done, "", "image");
       std::filesystem::remove(world.Path(temp));
       return wrong;
     }},
    {"SetConfig", "cmd-setcfg", Argument("obj-config", "queue=new\n"),
     [](const World& world) {
       world.Put("faxq/jsmith/options/config",
                 Object("obj-config", "queue=old\n"));
     },
     [](const World& world, bool done) {
       return Holds(world, "faxq/jsmith/options/config", done,
                    Object("obj-config", "queue=old\n"),
                    Object("obj-config", "queue=new\n"));
     }},
    {"GetConfig", "cmd-getcfg", "", Nothing, Fine},
    {"SetMonitors", "cmd-setmon", Argument("obj-monitor", kMonitor),
     [](const World& world) {
       world.Put("faxq/jsmith/options/monitors", "bob\n");
     },
     [](const World& world, bool done) {
       return Holds(world, "faxq/jsmith/options/monitors", done, "bob\n",
                    "carol\ndave\n");
     }},
    {"GetMonitors", "cmd-getmon", "", Nothing, Fine},
    {"ListMessages", "cmd-msglist",
     Argument("obj-reqlst", "listtype=lst-faxfiles\n"), Nothing, Fine},
    {"ListEvents", "cmd-msglist",
     Argument("obj-reqlst", "listtype=lst-events\n"), Nothing, Fine},
    {"GetMessage", "cmd-msgret", Argument("obj-resource", "rname=m\n"), Nothing,
     Fine},
    {"ListCovers", "cmd-reslist",
     Argument("obj-reqlst", "listtype=lst-covers\n"), Nothing, Fine},
    {"CoverTags", "cmd-cvrtags", Argument("obj-resource", "rname=std\n"),
     Nothing, Fine},
    {"External", "cmd-extcmd",
     std::string("clientid=") + getpwuid(getuid())->pw_name + "\n" +
         Argument("obj-extcmd", "cmdstr=echo hi\n"),
     Nothing, Fine},
    {"Status", "cmd-statatt", Argument("obj-reqid", "seqno=7\n"), Nothing,
     Fine},
    {"State", "cmd-state", "", Nothing, Fine},
    {"Cancel", "cmd-cancel",
     Argument("obj-reqid", "seqno=7\nreqtype=req-regular\n"), Nothing,
     [](const World& world, bool done) {
       const std::size_t sent = world.scheduler.Take().size();
       return Unless(sent == (done ? 68U : 0U),
                     "scheduler was told " + std::to_string(sent));
     }},
    {"AddPerson", "cmd-pbcmd",
     Argument("obj-pbcom",
              "pbcmd=pbc-peradd\npbtype=pbt-usr\npbmode=pbm-write\n" +
                  Field("objptr", "obj-person", "palias=ann\nlname=Lee\n")),
     PrepareBook, CheckPerson},
};

class Exchange
    : public ::testing::TestWithParam<std::tuple<const char*, Kind>> {
 protected:
  Exchange() {
    page_ = fault::MapPage(world_.Path("page").c_str());
    world_.root.AddUser("jsmith");
    world_.root.AddUser("bob");
    std::string request = "7\n" + std::to_string(getuid()) + "\n";
    for (int i = 2; i < 34; ++i) request += "\n";
    world_.Put("requests/r-7", request);
    world_.Put("faxq/jsmith/a.fax", "image");
    world_.Put("faxq/jsmith/b.fax", "image");
    world_.Put("faxq/jsmith/msgs/m", "hello\nworld\n");
    world_.Put("faxq/jsmith/options/monitors", "bob\ncarol\n");
    world_.Put("faxq/jsmith/options/config", Object("obj-config", "queue=q\n"));
    world_.Put("faxq/jsmith/events/7",
               Object("obj-status", "clientid=jsmith\nseqno=7\nattempt=0\n"));
    world_.Put("Covers/std.cvr", "#!/bin/sh\necho to:R from:O\n");
    chmod(world_.Path("Covers/std.cvr").c_str(), 0755);
  }

  void Start() {
    setenv("LD_PRELOAD", KRT_FAULT_SHIM, 1);
    setenv("KRT_FAULT_PAGE", world_.Path("page").c_str(), 1);
    const char* asan = getenv("ASAN_OPTIONS");
    const std::string before = asan != nullptr ? asan : "";
    setenv("ASAN_OPTIONS",
           (before + ":verify_asan_link_order=0:allocator_may_return_null=1")
               .c_str(),
           1);
    daemon_.emplace(
        KRTCMD_PATH, world_.root,
        std::vector<std::string>{"-N", std::get<0>(GetParam()), "-w", "60"});
    setenv("ASAN_OPTIONS", before.c_str(), 1);
    unsetenv("LD_PRELOAD");
    unsetenv("KRT_FAULT_PAGE");
  }

  // Drops the command of this test, or a probe that does nothing. The name of
  // the exchange.
  std::string Drop(const char* type, std::string argument) {
    const int number = ++number_;
    const std::size_t at = argument.find("ROOT");
    if (at != argument.npos) argument.replace(at, 4, world_.root.path());
    char name[32];
    snprintf(name, sizeof name, "%04d-%03d", number / 1000, number % 1000);
    world_.root.Drop(name,
                     Command(type, number / 1000, number % 1000, argument));
    return name;
  }
  bool InSpool(const std::string& name) const {
    return Exists(world_.root.spool() / name);
  }
  // Whether the daemon answers, which it does when it is through with what was
  // there before.
  bool Probe() {
    const std::string answer = world_.root.Response(Drop("cmd-noop", ""));
    return answer.find("result=0\n") != answer.npos;
  }
  bool HasWorkers() const {
    const std::string pid = std::to_string(daemon_->pid());
    return !support::ReadFile("/proc/" + pid + "/task/" + pid + "/children")
                .empty();
  }
  // A response without what differs between two exchanges.
  static std::string Body(const std::string& response) {
    std::istringstream lines(response);
    std::string body;
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("sessionid=") || line.starts_with("reference=") ||
          line.starts_with("respond=")) {
        continue;
      }
      body += line + "\n";
    }
    return body;
  }

  // Has the command carried out with the fault armed; what is wrong then, "" if
  // nothing is. `untouched` tells that the fault was not met.
  std::string Run(const FaultRow& row, int n, bool* untouched) {
    const Kind& kind = std::get<1>(GetParam());
    kind.prepare(world_);
    fault::Arm(page_, row.call, row.error, n);
    const std::string name = Drop(kind.type, kind.argument);
    const auto announced = [&] {
      int bytes = 0;
      return kind.silent &&
             ioctl(world_.spool_look.get(), FIONREAD, &bytes) == 0 && bytes > 0;
    };
    if (!Eventually([&] {
          return InSpool(name + ".rsp") || page_->failed > 0 || announced();
        })) {
      return "neither an answer nor a fault";
    }
    fault::Disarm(page_);
    if (!InSpool(name + ".rsp")) {
      // The second probe: a response that waits is tried between the two.
      if (!Probe() || !Probe()) return "the daemon does not serve any more";
      const std::string claim = name + "." + std::to_string(daemon_->pid());
      const bool settled = Eventually(
          [&] {
            return (InSpool(name + ".rsp") || InSpool(claim) || kind.silent) &&
                   !HasWorkers();
          },
          std::chrono::seconds(3));
      if (!settled) return "lost";
    }
    *untouched = page_->failed == 0;
    if (const std::string wrong = CheckOutcome(name, row); !wrong.empty()) {
      return wrong;
    }
    if (!Probe()) return "the daemon does not serve any more";
    return CheckLeftovers(row);
  }

  std::string CheckOutcome(const std::string& name, const FaultRow& row) {
    const Kind& kind = std::get<1>(GetParam());
    const std::string claim = name + "." + std::to_string(daemon_->pid());
    const bool answered = InSpool(name + ".rsp");
    if (kind.silent && !answered && !InSpool(claim)) {
      return kind.check(world_, true);
    }
    const bool claimed = std::filesystem::remove(world_.root.spool() / claim);
    if (answered == claimed) {
      return answered ? "answered, and the claim is there" : "lost";
    }
    if (claimed) return kind.check(world_, false);
    const std::string body = Body(world_.root.Response(name));
    const bool done = body.find("result=0\n") != body.npos;
    if (done && kind.silent) return "answered: " + body;
    if (good_.empty()) good_ = body;
    const bool same = body == good_;
    if (done && !same) return "the answer is " + body;
    if (!done && !same && body.find("errmsg=") == body.npos) {
      return "no answer: " + body;
    }
    // What a client must find after a loss of power was synced.
    const bool synced = row.call != fault::kSync || page_->failed == 0;
    if (done && !synced) return "not synced, and not told";
    return kind.check(world_, done);
  }

  // Takes the descriptors of a daemon that has nothing to do for normal: the
  // least of some looks.
  void CountIdle() {
    fds_ = CountDescriptors(daemon_->pid());
    for (int i = 0; i < 20; ++i) {
      usleep(1000);
      fds_ = std::min(fds_, CountDescriptors(daemon_->pid()));
    }
  }

  std::string CheckLeftovers(const FaultRow& row) {
    if (!Eventually([&] { return !HasWorkers(); })) return "a zombie";
    // After its last answer an idle daemon looks into the directory once more.
    if (fds_ != 0 &&
        !Eventually([&] { return CountDescriptors(daemon_->pid()) == fds_; },
                    std::chrono::seconds(2))) {
      return "leaks a descriptor";
    }
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(world_.root.path())) {
      const std::string name = entry.path().filename();
      if (name.find(".new") == name.npos && !name.ends_with(".tmp")) continue;
      std::filesystem::remove(entry.path());
      if (row.call != fault::kUnlink) return "left behind: " + name;
    }
    return "";
  }

  World world_;
  fault::Page* page_;
  std::optional<DaemonProcess> daemon_;
  int number_ = 1000;
  std::string good_;  // the answer when nothing fails
  int fds_ = 0;       // of the daemon when it is idle
};

TEST_P(Exchange, EveryFault) {
  const OwnIpc ipc;
  SKIP_WITHOUT(ipc);
  ASSERT_EQ(fx_creat_stat_shm("", 1), 0);
  Start();
  bool untouched;
  ASSERT_EQ(Run({fault::kNone, 0}, 1, &untouched), "");
  CountIdle();
  ASSERT_TRUE(good_.empty() || good_.find("result=") != good_.npos) << good_;
  for (const FaultRow& row : kFaults) {
    if (row.lasts) continue;  // the daemon would have to serve without a disk
    untouched = false;
    for (int n = 1; n < 1000 && !untouched; ++n) {
      SCOPED_TRACE(Describe(row, n));
      const std::string wrong = Run(row, n, &untouched);
      EXPECT_EQ(wrong, "");
      if (wrong.empty()) continue;
      fault::Disarm(page_);
      std::cerr << daemon_->Log() << "\n";
      daemon_.reset();
      for (const auto& entry :
           std::filesystem::directory_iterator(world_.root.spool())) {
        if (entry.path().filename() != "kfifo") {
          std::filesystem::remove(entry.path());
        }
      }
      Start();
      Probe();
      CountIdle();
    }
  }
  EXPECT_EQ(daemon_->Stop(), 0) << daemon_->Log();
}

std::string NameOf(const ::testing::TestParamInfo<Exchange::ParamType>& param) {
  return std::get<1>(param.param).name;
}
INSTANTIATE_TEST_SUITE_P(Inline, Exchange,
                         ::testing::Combine(::testing::Values("1"),
                                            ::testing::ValuesIn(kKinds)),
                         NameOf);
// What a worker does differently shows with the first three.
INSTANTIATE_TEST_SUITE_P(ByWorker, Exchange,
                         ::testing::Combine(::testing::Values("0"),
                                            ::testing::ValuesIn(kKinds,
                                                                kKinds + 3)),
                         NameOf);

}  // namespace
