// All kinds of commands for a while, some from clients that disappear: nothing
// may grow. KRT_SOAK_SECONDS says for how long; scripts/soak shows the table.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <map>
#include <optional>
#include <random>

#include "endurance/spool_client.h"
#include "kx/object.h"
#include "simulator/sim_root.h"
#include "support/own_ipc.h"
#include "support/processes.h"

namespace endurance {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;
using support::ChildrenOf;
using support::DaemonProcess;
using support::Eventually;
using support::SimulatorProcess;
using Clock = std::chrono::steady_clock;

constexpr int kDefaultSeconds = 8;
constexpr size_t kUnderWay = 30;
constexpr int kPersons = 50;  // aliases that come and go
constexpr milliseconds kSampleEvery{200};
// What a heap may gain by the order in which its pieces come and go.
constexpr long kHeapSlack = 192;  // KiB

#ifdef __SANITIZE_ADDRESS__
constexpr bool kMemoryCounts = false;  // freed memory is kept for a while
#else
constexpr bool kMemoryCounts = true;
#endif

// ---- What is measured ----

struct Gauge {
  std::string name;
  long growth;  // allowed; -1: any
  long start = 0, end = 0, peak = 0;
};

long PrivateDirtyKib(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/smaps_rollup");
  for (std::string word; file >> word;) {
    long kib = 0;
    if (word == "Private_Dirty:" && file >> kib) return kib;
  }
  return -1;
}

long CountEntries(const fs::path& dir) {
  std::error_code ignored;
  return std::distance(fs::directory_iterator(dir, ignored),
                       fs::directory_iterator());
}

long Zombies(pid_t parent) {
  const auto children = ChildrenOf(parent);
  return std::count_if(children.begin(), children.end(), [](pid_t pid) {
    const std::string stat = ReadFile("/proc/" + std::to_string(pid) + "/stat");
    return stat.find(") Z ") != stat.npos;
  });
}

long Segments() {
  std::ifstream file("/proc/sysvipc/shm");
  return std::count(std::istreambuf_iterator<char>(file), {}, '\n') - 1;
}

// ---- What is asked ----

struct Kind {
  const char* type;
  std::string more;          // "%n" is a number, of a request or a person
  std::vector<int> results;  // that the answer may have
  int weight;                // how often, beside the others
};

std::vector<Kind> MakeKinds(const std::string& user) {
  const std::string person = Person("P%n");
  std::vector<Kind> kinds = {
      {"cmd-noop", "", {0}, 20},
      {"cmd-sendfax",
       "respond=true\n" + Argument("obj-senv", "tofnum=5550100\n"),
       {0},
       2},
      {"cmd-sendfax", "respond=true\n" + Argument("obj-env"), {19}, 1},
      {"cmd-status", RequestId("%n"), {0, 13}, 5},
      {"cmd-statatt", RequestId("%n"), {0, 13}, 3},
      {"cmd-cancel", RequestId("%n"), {0, 3, 13}, 1},
      {"cmd-try", RequestId("%n"), {0, 19}, 1},
      {"cmd-state", "", {0}, 5},
      {"cmd-msglist", ListOf("lst-faxfiles"), {0}, 3},
      {"cmd-msglist", ListOf("lst-tmsgs"), {0}, 3},
      {"cmd-msglist", ListOf("lst-events"), {0}, 1},
      {"cmd-msglist", ListOf("lst-covers"), {19}, 1},
      {"cmd-msgret", Named("none"), {13}, 2},
      {"cmd-msgdel", Named("../x"), {13}, 1},
      {"cmd-copyfax", Route(user, "bob", "in-1.fax"), {0}, 1},
      {"cmd-imgret", FaxInfo("in-1.fax", user), {0}, 3},
      {"cmd-image", "", {13}, 1},
      {"cmd-cvrtags", Named("standard"), {0}, 1},
      {"cmd-filetype", Argument("obj-file", "pathname=x.ps\n"), {0}, 2},
      {"cmd-extcmd",
       Argument("obj-extcmd", "cmdstr=echo hello\n"),
       {0, 12, 13},
       1},
      {"cmd-setcfg", Argument("obj-config", "queue=q%n\n"), {0}, 2},
      {"cmd-getcfg", "", {0}, 3},
      {"cmd-setmon",
       Argument("obj-monitor", "clientid=" + user + "\nmontype=mon-excall\n"),
       {0},
       2},
      {"cmd-getmon", "", {0}, 3},
      {"cmd-faxcln", "", {0}, 1},
      {"cmd-pbcmd", Book("peradd", person), {0, 33}, 5},
      {"cmd-pbcmd", Book("perupd", person), {0, 30}, 3},
      {"cmd-pbcmd", Book("perdel", "pbkey=P%n\n"), {0, 30}, 4},
      {"cmd-pbcmd", Book("perget", "rcmd=pbc-alias\npbkey=P%n\n"), {0, 30}, 5},
      {"cmd-pbcmd",
       Book("lstper", "pbsort=pbs-lname\nrcmd=pbc-first\n"),
       {0},
       3},
      {"cmd-pbcmd", Book("gteq"), {37}, 1},
      {"cmd-pbcmd", "", {19}, 1},
      // Who has no use for the server.
      {"cmd-bogus", "respond=true\n", {19}, 2},
      {"cmd-login", "respond=true\n", {19}, 1},
      {"cmd-status", "", {13}, 1},
      {"cmd-route", "respond=true\n" + person, {19}, 1},
      {"cmd-reslist", ListOf("lst-events"), {19}, 1},
      {"cmd-getcfg", "clientid=nobody.here\n", {13}, 1},
  };
  for (const char* type :
       {"lst-covers", "lst-allcovers", "lst-filetypes", "lst-pglengths",
        "lst-priorities", "lst-queues", "lst-resolutions", "lst-results",
        "lst-groups", "lst-prtdests", "lst-retrys", "lst-tnps"}) {
    kinds.push_back({"cmd-reslist", ListOf(type), {0}, 1});
  }
  return kinds;
}

// What is no command at all, and has no answer.
std::string Garbage(unsigned n) {
  const std::string whole = support::Command("cmd-noop", 1, 1);
  const std::string kinds[] = {
      "",
      "no pairs here\n",
      whole.substr(0, whole.size() / 2),
      std::string(70000, 'x') + "\n",
      "objbeg=obj-cmdrsp\nobjptr=obj-person\nobjbeg=obj-person\n",
      {"\0\xff=\x80\n\0", 6}};
  return kinds[n % std::size(kinds)];
}

class Soak : public testing::Test {
 protected:
  void SetUp() override {
    SKIP_WITHOUT(ipc_);
    sim_.emplace(KRTSIM_PATH, root_,
                 std::vector<std::string>{"-d", "0", "-r", "0"});
    workers_.emplace(KRTCMD_PATH, root_);
    inline_.emplace(KRTCMD_PATH, root_, std::vector<std::string>{"-N", "1"});
    client_.emplace(root_.spool(), root_.user());
    for (const Kind& kind : kinds_) weights_.push_back(kind.weight);
    ASSERT_EQ(client_->Ask("cmd-pbcmd", Book("create")).result, 0);
  }

  void SendNext() {
    const auto lot = static_cast<unsigned>(random_() % 1000);
    if (lot < 8) {
      client_->Throw("garbage-" + std::to_string(random_()), Garbage(lot));
    } else if (lot < 12) {
      client_->Forsake("cmd-state");
    } else if (lot < 14) {
      // Stopped in the middle, before the rename.
      support::WriteFile(root_.spool() / ("half-" + std::to_string(lost_) +
                                          (lot == 12 ? ".new" : ".tmp")),
                         Garbage(2));
      ++lost_;
    } else {
      const size_t which = std::discrete_distribution<size_t>(
          weights_.begin(), weights_.end())(random_);
      std::string more = kinds_[which].more;
      const std::string number = std::to_string(random_() % kPersons + 1);
      for (size_t at; (at = more.find("%n")) != more.npos;) {
        more.replace(at, 2, number);
      }
      asked_[client_->Send(kinds_[which].type, more)] = which;
    }
  }

  void Judge(const Answer& answer) {
    const auto asked = asked_.find(answer.name);
    ASSERT_NE(asked, asked_.end()) << answer.text;
    const Kind& kind = kinds_[asked->second];
    EXPECT_NE(std::ranges::find(kind.results, answer.result),
              kind.results.end())
        << kind.type << " " << kind.more << answer.text;
    ++results_[answer.result];
    ++answers_;
    asked_.erase(asked);
  }

  void RunFor(milliseconds time) {
    const auto end = Clock::now() + time;
    auto next = Clock::now();
    while (Clock::now() < end) {
      while (client_->open().size() < kUnderWay) SendNext();
      for (const Answer& answer : client_->Take(milliseconds(20))) {
        Judge(answer);
      }
      if (Clock::now() < next) continue;
      Sample();
      next = Clock::now() + kSampleEvery;
    }
  }
  // Waits until everything is answered and nothing is under way any more, in
  // the daemons and in the rest of the fax server.
  void Quiet() {
    EXPECT_TRUE(Eventually([&] {
      for (const Answer& answer : client_->Take(milliseconds(20))) {
        Judge(answer);
      }
      return client_->open().empty();
    })) << client_->open().size()
        << " commands without an answer";
    EXPECT_TRUE(Eventually([&] {
      return ChildrenOf(workers_->pid()).empty() &&
             ChildrenOf(inline_->pid()).empty() && ForeignFiles() == 0 &&
             CountEntries(root_.path() / "krtnet/queued") == 0 &&
             CountEntries(root_.path() / "requests") == 0;
    }));
  }
  // Files in the spool that are not what disappeared clients left there.
  long ForeignFiles() const {
    const auto names = root_.SpoolNames();
    return std::count_if(names.begin(), names.end(), [&](const auto& name) {
      const bool left = name.starts_with("half-") ||
                        (name.ends_with(".rsp") &&
                         client_->forsaken().contains(name.substr(0, 8)));
      return name != "efifo" && name != "kfifo" && !left;
    });
  }

  void Sample() {
    const pid_t pids[] = {workers_->pid(), inline_->pid()};
    auto gauge = gauges_.begin();
    const auto take = [&](long value) {
      gauge->end = value;
      gauge->peak = std::max(gauge->peak, value);
      ++gauge;
    };
    for (const pid_t pid : pids) {
      take(PrivateDirtyKib(pid));
      take(CountEntries("/proc/" + std::to_string(pid) + "/fd"));
      take(Zombies(pid));
    }
    take(Segments());
    take(ForeignFiles());
    for (const char* dir : {"krtnet/queued", "requests", "temp"}) {
      take(CountEntries(root_.path() / dir));
    }
    take(PrivateDirtyKib(sim_->pid()));
  }
  void Begin() {
    Sample();
    for (Gauge& gauge : gauges_) gauge.start = gauge.peak = gauge.end;
    answers_ = 0;
    results_.clear();
  }

  void Print(double time) const {
    printf("%-36s %9s %9s %9s\n", "", "start", "end", "peak");
    for (const Gauge& gauge : gauges_) {
      printf("%-36s %9ld %9ld %9ld\n", gauge.name.c_str(), gauge.start,
             gauge.end, gauge.peak);
    }
    printf(
        "\n%ld answers in %.1f s, %.0f a second; %zu never fetched, %d "
        "commands half written\n",
        answers_, time, static_cast<double>(answers_) / time,
        client_->forsaken().size(), lost_);
    for (const auto& [result, times] : results_) {
      printf("%9ld  %d %s\n", times, result,
             result == kx_err_system ? "System error" : Kfx_Errmsg(result));
    }
  }

  // What disappeared clients leave is named by the check, and goes when it is
  // old enough.
  void Sweep() const {
    const std::string spool = root_.spool();
    const auto shell = [](const std::string& line) {
      EXPECT_EQ(support::RunShell(line).status, 0) << line;
    };
    shell("find " + spool + " -type f -exec touch -d '3 days ago' {} +");
    const std::string found =
        support::RunProgram(KRTCTL_PATH,
                            {"--root", root_.path(), "check", "-q"})
            .out;
    size_t named = 0;
    for (size_t at = 0; (at = found.find(" old; fix: ", at)) != found.npos;
         ++at) {
      ++named;
    }
    EXPECT_EQ(named, client_->forsaken().size() + static_cast<size_t>(lost_));
    for (const std::string ext : {"rsp", "tmp", "new"}) {
      shell("find " + spool + " -name '*." + ext + "' -mtime +1 -delete");
    }
    EXPECT_EQ(root_.SpoolNames(), (std::vector<std::string>{"efifo", "kfifo"}));
  }

  OwnIpc ipc_;
  SimRoot root_;
  const std::vector<Kind> kinds_ = MakeKinds(root_.user());
  std::vector<int> weights_;
  std::optional<SimulatorProcess> sim_;
  std::optional<DaemonProcess> workers_, inline_;
  std::optional<SpoolClient> client_;
  std::mt19937 random_{1};
  std::map<std::string, size_t> asked_;  // kinds, by exchange
  std::map<int, long> results_;          // answers, by result
  long answers_ = 0;
  int lost_ = 0;  // files that a client began
  std::array<Gauge, 12> gauges_ = {{
      {"daemon with workers: memory, KiB", kMemoryCounts ? kHeapSlack : -1},
      {"                     descriptors", 0},
      {"                     zombies", 0},
      {"daemon inline:       memory, KiB", kMemoryCounts ? kHeapSlack : -1},
      {"                     descriptors", 0},
      {"                     zombies", 0},
      {"System V segments", 0},
      {"files in the spool", 0},
      {"files in krtnet/queued", 0},
      {"files in requests", 0},
      {"files in temp", 0},
      {"krtsim:              memory, KiB", -1},
  }};
};

TEST_F(Soak, NothingGrows) {
  const char* given = getenv("KRT_SOAK_SECONDS");
  const seconds time(given != nullptr ? atoi(given) : kDefaultSeconds);
  RunFor(time / 4);
  Quiet();
  Begin();
  const auto start = Clock::now();
  RunFor(time);
  const std::chrono::duration<double> took = Clock::now() - start;
  Quiet();
  Sample();
  Print(took.count());
  for (const Gauge& gauge : gauges_) {
    if (gauge.growth < 0) continue;
    EXPECT_LE(gauge.end, gauge.start + gauge.growth) << gauge.name;
  }
  Sweep();
  for (auto* daemon : {&workers_, &inline_}) {
    EXPECT_EQ((*daemon)->Stop(), 0) << (*daemon)->Log();
  }
}

}  // namespace
}  // namespace endurance
