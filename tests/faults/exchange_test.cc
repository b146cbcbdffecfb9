// The exchange of commands and responses with the real daemon, while calls of
// the daemon and its workers fail.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>

#include <fstream>
#include <iostream>
#include <optional>

#include "faults/sweep.h"
#include "faxserver/fsshm.h"
#include "phonebook/pb.h"
#include "support/own_ipc.h"
#include "support/peers.h"
#include "support/processes.h"
#include "util/kutuser.h"

namespace {

using support::Command;
using support::DaemonProcess;
using support::Eventually;
using support::SampleRoot;

// A root, and the other ends of its fifos.
struct World : InMemory, SampleRoot {
  FifoReader queue{*this / "krtnet/filspool/kfifo"};
  UniqueFd queue_look{
      open((*this / "krtnet/filspool/kfifo").c_str(), O_RDONLY | O_NONBLOCK)};
  FifoReader scheduler{*this / "FIFO"};
};

// A kind of command. Its answer is compared with the one that it has when
// nothing fails. `file` holds `before` (nothing: it is not there) and, if the
// command was answered with success, `after`; `check` says what else is wrong.
struct Kind {
  const char* name;
  const char* type;
  std::string argument;
  const char* file = nullptr;
  std::string before = "", after = "";
  std::string (*check)(const World&, bool done) = nullptr;
  bool silent = false;  // success is not answered
};

void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

// A submit is queued whole and announced, or it is not there.
std::string CheckQueued(const World& world, bool done) {
  const std::size_t announced = world.queue.Take().size();
  int count = 0;
  for (const auto& entry :
       std::filesystem::directory_iterator(world / "krtnet/queued")) {
    if (entry.path().filename().string().starts_with(".")) continue;
    ++count;
    const kx::Object cmd(Kfx_Load_Obj("obj-cmdrsp", entry.path().c_str()));
    if (cmd == nullptr) return "half a command is queued";
    std::filesystem::remove(entry.path());
  }
  return Unless(count == (done ? 1 : 0) && announced == (done ? 80U : 0U),
                std::to_string(count) + " queued, " +
                    std::to_string(announced) + " bytes announced");
}

std::string CheckCancelled(const World& world, bool done) {
  const std::size_t sent = world.scheduler.Take().size();
  return Unless(sent == (done ? 68U : 0U), "told " + std::to_string(sent));
}

// The last rename of a copy is not checked: the fax is there all the same.
std::string CheckCopied(const World& world, bool done) {
  const std::string fax = world / "faxq/bob/a.fax";
  if (done && world.Has("faxq/bob/a.tmp")) {
    std::filesystem::rename(world / "faxq/bob/a.tmp", fax);
  }
  const std::string found = ReadFile(fax);
  std::filesystem::remove(fax);
  return Unless(found == (done ? "image" : ""), "bob has " + found);
}

// Also removes the person, so that the next can be added.
std::string CheckPerson(const World& world, bool done) {
  pb_setup("jsmith", world.root(), nullptr);
  if (pb_open(kx_pbt_usr, kx_pbm_write) != 0) return "the book does not open";
  const bool found = pb_per_del(kx_pbt_usr, "ann") == 0;
  const int error = pb_errno;
  pb_close(kx_pbt_usr);
  if (!found && error != kx_err_person) return "the book is damaged";
  return Unless(found == done, found ? "a person" : "no person");
}

const std::string kMonitor =
    "clientid=jsmith\nmontype=mon-excall\n" +
    ListField("names", "obj-resource", {"rname=carol\n", "rname=dave\n"});
const std::string kAddPerson =
    "pbcmd=pbc-peradd\npbtype=pbt-usr\npbmode=pbm-write\n" +
    Field("objptr", "obj-person", "palias=ann\nlname=Lee\n");

const Kind kKinds[] = {
    {"Noop", "cmd-noop", ""},
    // One that wants an answer gets it from the other side; from here it hears
    // of failures alone.
    {.name = "Submit",
     .type = "cmd-sendfax",
     .argument = "respond=true\n",
     .check = CheckQueued,
     .silent = true},
    {"GetImage", "cmd-imgret", FaxInfo("a.fax", "jsmith")},
    {"StoreImage", "cmd-imgstore",
     Upload("ROOT/krtnet/filspool/load", "up.fax"), "faxq/jsmith/up.fax", "Dog",
     "Cat"},
    {.name = "CopyFax",
     .type = "cmd-copyfax",
     .argument = Route("jsmith", "bob", "a.fax"),
     .check = CheckCopied},
    {"SetConfig", "cmd-setcfg", Argument("obj-config", "queue=new\n"),
     "faxq/jsmith/options/config", Object("obj-config", "queue=old\n"),
     Object("obj-config", "queue=new\n")},
    {"GetConfig", "cmd-getcfg", ""},
    {"SetMonitors", "cmd-setmon", Argument("obj-monitor", kMonitor),
     "faxq/jsmith/options/monitors", "bob\n", "carol\ndave\n"},
    {"GetMonitors", "cmd-getmon", ""},
    {"ListFaxes", "cmd-msglist", ListOf("lst-faxfiles")},
    {"ListEvents", "cmd-msglist", ListOf("lst-events")},
    {"GetMessage", "cmd-msgret", Named("m")},
    {"CoverTags", "cmd-cvrtags", Named("std")},
    {"External", "cmd-extcmd",
     "clientid=USER\n" + Argument("obj-extcmd", "cmdstr=echo hi\n")},
    {"Status", "cmd-statatt", RequestId("7")},
    {"State", "cmd-state", ""},
    {.name = "Cancel",
     .type = "cmd-cancel",
     .argument = "clientid=USER\n" + RequestId("7"),
     .check = CheckCancelled},
    {.name = "AddPerson",
     .type = "cmd-pbcmd",
     .argument = Argument("obj-pbcom", kAddPerson),
     .check = CheckPerson},
};

class Exchange
    : public ::testing::TestWithParam<std::tuple<const char*, Kind>> {
 protected:
  Exchange() {
    page_ = fault::MapPage((world_ / "page").c_str());
    world_.AddUser("jsmith");
    world_.AddUser("bob");
    world_.AddUser(Kut_get_usrname());
    world_.Put("requests/r-7",
               "7\n" + std::to_string(getuid()) + std::string(33, '\n'));
    world_.Put("faxq/jsmith/a.fax", "image");
    world_.Put("faxq/jsmith/b.fax", "image");
    world_.Put("faxq/jsmith/msgs/m", "hello\nworld\n");
    world_.Put("faxq/jsmith/options/monitors", "bob\ncarol\n");
    world_.Put("faxq/jsmith/options/config", Object("obj-config", "queue=q\n"));
    world_.Put("faxq/jsmith/events/7",
               Object("obj-status", "clientid=jsmith\nseqno=7\nattempt=0\n"));
    world_.PutProgram("Covers/std.cvr", "echo to:R from:O");
    pb_setup("jsmith", world_.root(), nullptr);
    pb_create(kx_pbt_usr);
  }

  void Start() {
    setenv("LD_PRELOAD", KRT_FAULT_SHIM, 1);
    setenv("KRT_FAULT_PAGE", (world_ / "page").c_str(), 1);
    const char* asan = getenv("ASAN_OPTIONS");
    const std::string before = asan != nullptr ? asan : "";
    setenv("ASAN_OPTIONS",
           (before + ":verify_asan_link_order=0:allocator_may_return_null=1")
               .c_str(),
           1);
    daemon_.emplace(
        KRTCMD_PATH, world_,
        std::vector<std::string>{"-N", std::get<0>(GetParam()), "-w", "60"});
    setenv("ASAN_OPTIONS", before.c_str(), 1);
    unsetenv("LD_PRELOAD");
    unsetenv("KRT_FAULT_PAGE");
  }

  // Drops the command of this test, or a probe that does nothing. The name of
  // the exchange.
  std::string Drop(const char* type, std::string argument) {
    const int number = ++number_;
    for (const auto& [word, text] :
         {std::pair("ROOT", world_.root()), {"USER", Kut_get_usrname()}}) {
      const std::size_t at = argument.find(word);
      if (at != argument.npos) argument.replace(at, 4, text);
    }
    const std::string name =
        support::ExchangeName(number / 1000, number % 1000);
    world_.Drop(name, Command(type, number / 1000, number % 1000, argument));
    return name;
  }
  bool InSpool(const std::string& name) const {
    return std::filesystem::exists(world_.spool() / name);
  }
  // Whether the daemon answers, which it does when it is through with what was
  // there before.
  bool Probe() {
    const std::string answer = world_.Response(Drop("cmd-noop", ""));
    return answer.find("result=0\n") != answer.npos;
  }
  bool HasWorkers() const {
    return !support::ChildrenOf(daemon_->pid()).empty();
  }
  // A response without what differs between two exchanges.
  static std::string Body(const std::string& response) {
    std::istringstream lines(response);
    std::string body;
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("sessionid=") || line.starts_with("reference=") ||
          line.starts_with("respond=") || line.starts_with("curper=")) {
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
    world_.Put("krtnet/filspool/load", "Cat");
    if (kind.file != nullptr) world_.Put(kind.file, kind.before);
    fault::Arm(page_, row.call, row.error, n);
    const std::string name = Drop(kind.type, kind.argument);
    const auto announced = [&] {
      int bytes = 0;
      return kind.silent &&
             ioctl(world_.queue_look.get(), FIONREAD, &bytes) == 0 && bytes > 0;
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

  std::string CheckWorld(bool done) {
    const Kind& kind = std::get<1>(GetParam());
    if (kind.check != nullptr) return kind.check(world_, done);
    if (kind.file == nullptr) return "";
    const std::string found = ReadFile(world_ / kind.file);
    return Unless(found == (done ? kind.after : kind.before),
                  std::string(kind.file) + " holds " + found);
  }

  std::string CheckOutcome(const std::string& name, const FaultRow& row) {
    const Kind& kind = std::get<1>(GetParam());
    const std::string claim = name + "." + std::to_string(daemon_->pid());
    const bool answered = InSpool(name + ".rsp");
    if (kind.silent && !answered && !InSpool(claim)) {
      return CheckWorld(true);
    }
    const bool claimed = std::filesystem::remove(world_.spool() / claim);
    if (answered == claimed) {
      return answered ? "answered, and the claim is there" : "lost";
    }
    if (claimed) return CheckWorld(false);
    const std::string body = Body(world_.Response(name));
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
    return CheckWorld(done);
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
    return RemoveTemporaries(world_.path()) && row.call != fault::kUnlink
               ? "left a temporary file"
               : "";
  }

  World world_;
  fault::Page* page_;
  std::optional<DaemonProcess> daemon_;
  int number_ = 1000;
  std::string good_;  // the answer when nothing fails
  long fds_ = 0;      // of the daemon when it is idle
};

TEST_P(Exchange, EveryFault) {
  const OwnIpc ipc;
  SKIP_WITHOUT(ipc);
  ASSERT_EQ(fx_creat_stat_shm("", 1), 0);
  Start();
  bool untouched;
  ASSERT_EQ(Run({fault::kNone, 0}, 1, &untouched), "");
  CountIdle();
  // Submit alone has none.
  ASSERT_TRUE(good_.empty() || good_.find("result=0\n") != good_.npos) << good_;
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
           std::filesystem::directory_iterator(world_.spool())) {
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
