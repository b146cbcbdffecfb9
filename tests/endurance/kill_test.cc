// Daemons and workers killed at random moments, while clients go on.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <random>

#include "endurance/spool_client.h"
#include "support/peers.h"
#include "support/processes.h"
#include "util/kutuser.h"

namespace endurance {
namespace {

using std::chrono::milliseconds;
using support::ChildrenOf;
using support::DaemonProcess;
using support::Eventually;
using support::Exit;
using support::ReadFile;
using support::SampleRoot;

#ifdef __SANITIZE_ADDRESS__
constexpr int kExchanges = 2500;  // a process takes long to start
#else
constexpr int kExchanges = 10000;
#endif
constexpr int kDaemons = 3;
constexpr size_t kUnderWay = 80;
constexpr int kAnswersPerKill = 40;  // at most
constexpr size_t kKillsAtOnce = 3;   // at most
constexpr int kLooks = 200;          // for a worker to kill
constexpr size_t kRecordSize = 80;   // bytes, on the spool fifo

unsigned Seed() {
  const char* given = getenv("KRT_KILL_SEED");
  return given != nullptr ? static_cast<unsigned>(std::stoul(given))
                          : std::random_device()();
}

// Three daemons on one directory, some inline and some with workers; whoever is
// killed is replaced.
class Crew {
 public:
  Crew(const SampleRoot& root, std::mt19937& random)
      : root_(root), random_(random), members_(kDaemons) {
    // A worker outlives its killed daemon, and is this process's then.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    for (Member& member : members_) Start(member);
  }
  Crew(const Crew&) = delete;
  Crew& operator=(const Crew&) = delete;
  ~Crew() { prctl(PR_SET_CHILD_SUBREAPER, 0); }

  // Kills a worker of the daemon drawn by lot, or the daemon itself.
  void KillOne() {
    Member& member = members_[random_() % members_.size()];
    if (!member.inline_mode && random_() % 4 != 0) {
      // A worker lives for a moment.
      bool killed = false;
      for (int look = 0; look < kLooks && !killed; ++look) {
        killed = KillWorker(member.pid());
      }
      workers_killed_ += killed ? 1 : 0;
    } else {
      ++daemons_killed_;
      Start(member);
    }
    CollectOrphans();
  }

  // Lets each daemon finish what it has taken, and ends it; no command is
  // waiting. One with workers kills those it still has, so they get the time
  // they need. An inline daemon is not stopped: it may hold the phone book.
  void Retire(SpoolClient& client) {
    std::vector<Member*> with_workers;
    for (Member& member : members_) {
      if (member.inline_mode) {
        EXPECT_EQ(member.daemon->Stop(), 0) << member.daemon->Log();
      } else {
        kill(member.pid(), SIGSTOP);
        with_workers.push_back(&member);
      }
    }
    for (Member* member : with_workers) {
      kill(member->pid(), SIGCONT);
      // What it had claimed before, it has handed to a worker by now.
      const Answer probe = client.Ask("cmd-noop");
      EXPECT_EQ(probe.result, 0) << probe.text;
      EXPECT_TRUE(
          Eventually([&] { return ChildrenOf(member->pid()).empty(); }));
      EXPECT_EQ(member->daemon->Stop(), 0) << member->daemon->Log();
    }
    EXPECT_TRUE(Eventually([&] { return CollectOrphans(); }));
  }

  int kills() const { return daemons_killed_ + workers_killed_; }
  int daemons_killed() const { return daemons_killed_; }
  int workers_killed() const { return workers_killed_; }

 private:
  struct Member {
    pid_t pid() const { return daemon->pid(); }
    std::unique_ptr<DaemonProcess> daemon;
    bool inline_mode = false;
  };

  // In the place of the one that was, which is killed.
  void Start(Member& member) {
    member.daemon.reset();
    member.inline_mode = random_() % 2 == 0;
    member.daemon = std::make_unique<DaemonProcess>(
        KRTCMD_PATH, root_,
        std::vector<std::string>{"-N", member.inline_mode ? "1" : "0", "-Z",
                                 "FD", "-w", "1"});
  }

  // The descriptor holds the process, so that nobody else's dies for having
  // been given its number.
  bool KillWorker(pid_t daemon) {
    const std::vector<pid_t> workers = ChildrenOf(daemon);
    if (workers.empty()) return false;
    const pid_t worker = workers[random_() % workers.size()];
    const UniqueFd process(
        static_cast<int>(syscall(SYS_pidfd_open, worker, 0)));
    const auto still = ChildrenOf(daemon);
    return process.valid() &&
           std::find(still.begin(), still.end(), worker) != still.end() &&
           syscall(SYS_pidfd_send_signal, process.get(), SIGKILL, nullptr, 0) ==
               0;
  }

  // Whether no worker of a killed daemon is left.
  bool CollectOrphans() const {
    bool none = true;
    for (const pid_t child : ChildrenOf(getpid())) {
      const bool ours =
          std::any_of(members_.begin(), members_.end(), [&](const Member& m) {
            return m.daemon != nullptr && m.pid() == child;
          });
      if (!ours && waitpid(child, nullptr, WNOHANG) == 0) none = false;
    }
    return none;
  }

  const SampleRoot& root_;
  std::mt19937& random_;
  std::vector<Member> members_;
  int daemons_killed_ = 0, workers_killed_ = 0;
};

class Kill : public testing::Test {
 protected:
  Kill() { root_.AddUser(user_); }

  // One of the commands; with effects are every 13th and every 17th.
  void SendNext() {
    const int n = client_.sent();
    const std::string alias = "P" + std::to_string(n);
    if (n % 13 == 0) {
      persons_[client_.Send("cmd-pbcmd", Book("peradd", Person(alias)))] =
          alias;
    } else if (n % 17 == 0) {
      submits_.insert(
          client_.Send("cmd-sendfax",
                       "respond=false\n" + Argument("obj-senv", "tofnum=1\n")));
    } else if (n % 11 == 0) {
      client_.Send("cmd-reslist", ListOf("lst-results"));
    } else {
      client_.Send("cmd-noop");
    }
  }

  void Keep(const std::vector<Answer>& answers) {
    for (const Answer& answer : answers) {
      // On a busy machine the lock on the book may not be had in time.
      const bool refused =
          persons_.contains(answer.name) && answer.errmsg == "C-Tree error";
      EXPECT_TRUE(answer.result == 0 || refused) << answer.text;
      answered_.insert(answer.name);
      if (refused) refused_.insert(answer.name);
    }
    // A record of the spool fifo begins with the name of the saved command.
    for (std::string more; !(more = fifo_.Take()).empty();) {
      fifo_content_ += more;
    }
  }

  // Sends all commands while the crew is being killed, and waits until the
  // last one is taken.
  void Exchange(Crew& crew, std::mt19937& random) {
    size_t next_kill = 0;
    auto progress = std::chrono::steady_clock::now();
    while (client_.sent() < kExchanges || Count(".cmd") > 0) {
      // A kill costs one command at most, which then is under way for ever.
      while (client_.sent() < kExchanges &&
             client_.open().size() <
                 kUnderWay + static_cast<size_t>(crew.kills())) {
        SendNext();
      }
      const size_t before = answered_.size();
      Keep(client_.Take(milliseconds(10)));
      const auto now = std::chrono::steady_clock::now();
      if (answered_.size() > before) progress = now;
      ASSERT_LT(now - progress, 2 * support::kDeadline) << Rest();
      if (answered_.size() < next_kill) continue;
      for (size_t n = random() % kKillsAtOnce + 1; n > 0; --n) crew.KillOne();
      next_kill = answered_.size() + 1 + random() % kAnswersPerKill;
    }
  }

  long Count(const std::string& ending) const {
    const auto names = root_.SpoolNames();
    return std::count_if(names.begin(), names.end(), [&](const auto& name) {
      return name.ends_with(ending);
    });
  }
  std::string Rest() const {
    std::string text = "in the spool:";
    for (const auto& name : root_.SpoolNames()) text += " " + name;
    return text;
  }
  Exit Control(std::vector<std::string> args) const {
    args.insert(args.begin(), {"--root", root_.path()});
    return support::RunProgram(KRTCTL_PATH, args);
  }

  // The claims in the spool: the claimed name of each, by exchange.
  std::map<std::string, std::string> Claims() const {
    std::map<std::string, std::string> claims;
    for (const auto& name : root_.SpoolNames()) {
      const std::string ext = std::filesystem::path(name).extension();
      if (ext.size() > 1 && isdigit(static_cast<unsigned char>(ext[1])) != 0) {
        claims[name.substr(0, 8)] = name;
      }
    }
    return claims;
  }
  // Of a process that is gone, as far as its number is nobody else's now.
  static std::set<std::string> OfDeadProcesses(
      const std::map<std::string, std::string>& claims) {
    std::set<std::string> dead;
    for (const auto& [name, claim] : claims) {
      const pid_t pid = atoi(claim.c_str() + claim.rfind('.') + 1);
      if (kill(pid, 0) != 0) dead.insert(claim);
    }
    return dead;
  }
  // The claims that `krtctl check` names.
  std::set<std::string> Named() const {
    const std::string found = Control({"check", "-q"}).out;
    const std::string text = "abandoned command ";
    std::set<std::string> names;
    for (size_t at = 0; (at = found.find(text, at)) != found.npos; ++at) {
      const size_t start = at + text.size();
      names.insert(found.substr(start, found.find(';', start) - start));
    }
    return names;
  }

  // How often each exchange was carried out, as the daemons' logs tell.
  std::map<std::string, int> Processed() const {
    std::map<std::string, int> times;
    for (const auto& entry :
         std::filesystem::directory_iterator(root_.path())) {
      if (!entry.path().filename().string().starts_with("log-")) continue;
      std::ifstream log(entry.path());
      for (std::string line; std::getline(log, line);) {
        const size_t at = line.rfind('(');
        if (line.find("Processing cmd-") == line.npos) continue;
        char name[32];
        int session = 0, reference = 0;
        sscanf(line.c_str() + at, "(%d-%d)", &session, &reference);
        snprintf(name, sizeof name, "%04d-%03d", session, reference);
        ++times[name];
      }
    }
    return times;
  }

  void CheckSpool(const Crew& crew) const;
  void CheckPersons() const;
  void CheckSubmits() const;

  const std::string user_ = Kut_get_usrname();
  SampleRoot root_;
  FifoReader fifo_{root_.spool() / "kfifo"};
  SpoolClient client_{root_.spool(), user_};
  std::set<std::string> answered_, refused_;
  std::map<std::string, std::string> persons_;  // aliases, by exchange
  std::set<std::string> submits_;
  std::string fifo_content_;
};

// What is left in the directory, and what became of the unanswered.
void Kill::CheckSpool(const Crew& crew) const {
  const auto claims = Claims();
  EXPECT_LE(client_.open().size(), static_cast<size_t>(crew.kills()));
  for (const std::string& name : root_.SpoolNames()) {
    const std::string ext = std::filesystem::path(name).extension();
    const bool unanswered = client_.open().contains(name.substr(0, 8));
    EXPECT_TRUE(
        name == "kfifo" ||
        (unanswered && (ext == ".tmp" || claims.contains(name.substr(0, 8)))))
        << name;
  }
  const auto times = Processed();
  for (const auto& [name, count] : times) EXPECT_EQ(count, 1) << name;
  for (const auto& [name, claim] : claims) {
    EXPECT_EQ(times.count(name), 0U) << claim << " was carried out";
  }
  for (const auto& name : answered_) {
    EXPECT_EQ(times.count(name), 1U) << name << " was not carried out";
  }
}

void Kill::CheckPersons() const {
  const std::string found = Control({"check", "-q"}).out;
  EXPECT_EQ(found.find("pbper"), found.npos) << found;
  const auto claims = Claims();
  const Exit book = Control({"pb", "export", "--format", "csv"});
  EXPECT_EQ(book.status, 0) << book.err;
  std::map<std::string, int> times;
  std::istringstream lines(book.out);
  for (std::string line; std::getline(lines, line);) {
    ++times[line.substr(0, line.find(','))];
  }
  for (const auto& [exchange, alias] : persons_) {
    const int count = times.contains(alias) ? times[alias] : 0;
    const bool refused = refused_.contains(exchange);
    const bool acknowledged = answered_.contains(exchange) && !refused;
    EXPECT_GE(count, acknowledged ? 1 : 0) << alias << " is lost";
    EXPECT_LE(count, refused || claims.contains(exchange) ? 0 : 1) << alias;
    times.erase(alias);
  }
  EXPECT_EQ(times.size(), 1U) << book.out.substr(0, 200);  // the heading
}

void Kill::CheckSubmits() const {
  const auto claims = Claims();
  std::map<std::string, int> announced;
  EXPECT_EQ(fifo_content_.size() % kRecordSize, 0U);
  for (size_t at = 0; at < fifo_content_.size(); at += kRecordSize) {
    ++announced[fifo_content_.c_str() + at];
  }
  std::set<std::string> saved;
  for (const auto& entry :
       std::filesystem::directory_iterator(root_.path() / "krtnet/queued")) {
    const std::string name = entry.path().filename();
    if (name.starts_with(".")) continue;  // of a killed writer
    saved.insert(name);
    EXPECT_TRUE(submits_.contains(name)) << name;
    EXPECT_TRUE(IsWhole(ReadFile(entry.path()))) << name;
    EXPECT_FALSE(claims.contains(name)) << name;
  }
  for (const auto& [name, times] : announced) {
    EXPECT_EQ(times, 1) << name;
    EXPECT_TRUE(saved.contains(name)) << name << " was announced in vain";
  }
  for (const auto& name : submits_) {
    if (!answered_.contains(name)) continue;
    EXPECT_TRUE(saved.contains(name)) << name << " is lost";
    EXPECT_EQ(announced.count(name), 1U) << name << " was not announced";
  }
}

TEST_F(Kill, CostsOneUnansweredCommandAndNothingElse) {
  const unsigned seed = Seed();
  SCOPED_TRACE("KRT_KILL_SEED=" + std::to_string(seed));
  std::mt19937 random(seed);
  Crew crew(root_, random);
  const Answer created = client_.Ask("cmd-pbcmd", Book("create"));
  ASSERT_EQ(created.result, 0) << created.text;
  answered_.insert(created.name);
  Exchange(crew, random);
  if (HasFatalFailure()) return;
  crew.Retire(client_);
  Keep(client_.Take(milliseconds(0)));

  DaemonProcess last(KRTCMD_PATH, root_);
  CheckSpool(crew);
  CheckPersons();
  CheckSubmits();
  const auto claims = Claims();
  const std::set<std::string> abandoned = OfDeadProcesses(claims);
  const std::set<std::string> named = Named();
  for (const std::string& claim : OfDeadProcesses(claims)) {
    // A process id may have become another process's in the meantime.
    if (!abandoned.contains(claim)) continue;
    EXPECT_TRUE(named.contains(claim)) << claim << " is not named";
  }
  for (const std::string& claim : named) {
    EXPECT_TRUE(claims.contains(claim.substr(0, 8))) << claim << " is none";
  }
  printf(
      "KRT_KILL_SEED=%u: %zu answers, %d daemons and %d workers killed, "
      "%zu unanswered, %zu of them claimed and not carried out\n",
      seed, answered_.size(), crew.daemons_killed(), crew.workers_killed(),
      client_.open().size(), claims.size());

  // Those can still be carried out.
  Control({"check", "--fix", "--yes"});
  EXPECT_TRUE(Eventually([&] {
    return std::all_of(named.begin(), named.end(), [&](const auto& c) {
      return IsWhole(ReadFile(root_.spool() / (c.substr(0, 8) + ".rsp")));
    });
  })) << Rest();
}

}  // namespace
}  // namespace endurance
