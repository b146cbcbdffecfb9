// The exchange rate of a running daemon, beside the same system calls done bare
// in the same run: no objects, no decisions, only the calls that an exchange
// cannot do without.
//
//     command: stat, rename, open, 2 reads, close, unlink
//     response: open, chmod, write, close, rename
//
// Each iteration does a batch of exchanges bare, then drops as many commands on
// a stopped daemon, lets it go on and waits for all responses. Counters:
// exchanges a second of both, and the daemon's private dirty memory and open
// descriptors after the first and after the last batch.
//
// "disk" is the folder for temporary files. KRT_BENCH_BATCH sets another size
// of a batch.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "measure.h"
#include "syscalls.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

int g_batch = 3000;
// No further batch is begun after this, where the disk is slow or busy.
constexpr std::chrono::seconds kLongest(15);
constexpr char kResponse[] =
    "objbeg=obj-cmdrsp\nclientid=jsmith\nhostname=hostA\nsessionid=1\n"
    "reference=1\ncmdtype=cmd-noop\niscmd=false\nrespond=false\nresult=0\n"
    "objend=obj-cmdrsp\n";

// A spool of its own, removed at the end.
class Spool {
 public:
  explicit Spool(const std::string& folder) : folder_(folder) {
    fs::create_directories(path());
  }

  const std::string& root() const { return folder_.path(); }
  fs::path path() const { return folder_ / "krtnet/filspool"; }
  std::string Name(int i, const char* ext) const {
    char name[32];
    std::snprintf(name, sizeof name, "%04d-%03d.%s", i / 900, i % 900 + 1, ext);
    return path() / name;
  }
  void Put(int i) const {
    std::ofstream(Name(i, "new"))
        << "objbeg=obj-cmdrsp\nclientid=jsmith\nhostname=hostA\nsessionid="
        << i / 900 << "\nreference=" << i % 900 + 1
        << "\ncmdtype=cmd-noop\niscmd=true\nobjend=obj-cmdrsp\n";
    fs::rename(Name(i, "new"), Name(i, "cmd"));
  }
  void Fill(int commands) const {
    for (int i = 0; i < commands; ++i) Put(i);
  }
  // Waits for the answer to command `i`, and takes it away.
  void Await(int i) const {
    const std::string name = Name(i, "rsp");
    while (unlink(name.c_str()) != 0) {
      std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
  }
  int Responses() const {
    int count = 0;
    for (const auto& entry : fs::directory_iterator(path())) {
      count += entry.path().extension() == ".rsp" ? 1 : 0;
    }
    return count;
  }
  void Empty() const {
    for (const auto& entry : fs::directory_iterator(path())) {
      fs::remove(entry.path());
    }
  }

 private:
  const Folder folder_;
};

// Becomes a daemon in the foreground: -N 0 with workers, -N 1 inline.
void ExecDaemon(const Spool& spool, bool workers, const char* longest_wait) {
  setenv("KFAXDIR", spool.root().c_str(), 1);
  dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);  // its log
  execl(KRTCMD_PATH, "krtcmd", "-Z", "F", "-w", longest_wait, "-N",
        workers ? "0" : "1", nullptr);
  _exit(127);
}

// Daemons on a spool.
class Daemons {
 public:
  // No inline daemons: one with workers.
  Daemons(const Spool& spool, int inline_daemons) {
    for (int i = 0; i < std::max(inline_daemons, 1); ++i) {
      const pid_t pid = fork();
      if (pid == 0) ExecDaemon(spool, inline_daemons == 0, "5");
      pids_.push_back(pid);
      spool.Put(i);
      spool.Await(i);
    }
  }
  Daemons(const Daemons&) = delete;
  Daemons& operator=(const Daemons&) = delete;
  ~Daemons() {
    for (const pid_t pid : pids_) kill(pid, SIGTERM);
    for (const pid_t pid : pids_) waitpid(pid, nullptr, 0);
  }
  void Signal(int sig) const {
    for (const pid_t pid : pids_) kill(pid, sig);
  }
  pid_t first() const { return pids_.front(); }

 private:
  std::vector<pid_t> pids_;
};

// Has the daemons answer a batch.
void AnswerAll(const Spool& spool, const Daemons& daemons, Turns* turns) {
  daemons.Signal(SIGSTOP);
  spool.Fill(g_batch);
  turns->Time([&] {
    daemons.Signal(SIGCONT);
    while (spool.Responses() < g_batch) {
      std::this_thread::sleep_for(milliseconds(10));
    }
  });
  spool.Empty();
}

void BareExchange(const Spool& spool, int i) {
  const std::string cmd = spool.Name(i, "cmd");
  const std::string claimed = spool.Name(i, "1");
  char buffer[4096];
  struct stat st;
  stat(cmd.c_str(), &st);
  rename(cmd.c_str(), claimed.c_str());
  int fd = open(claimed.c_str(), O_RDONLY | O_CLOEXEC);
  while (read(fd, buffer, sizeof buffer) > 0) {
  }
  close(fd);
  unlink(claimed.c_str());
  const std::string tmp = spool.Name(i, "tmp");
  fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  chmod(tmp.c_str(), 0666);
  if (write(fd, kResponse, sizeof kResponse - 1) < 0) std::abort();
  close(fd);
  rename(tmp.c_str(), spool.Name(i, "rsp").c_str());
}

void BareWithFork(const Spool& spool, int i) {
  const pid_t pid = fork();
  if (pid == 0) {
    BareExchange(spool, i);
    _exit(0);
  }
  waitpid(pid, nullptr, 0);
}

void AnswerAllBare(const Spool& spool, bool with_fork, Turns* turns) {
  spool.Fill(g_batch);
  turns->Time([&] {
    for (int i = 0; i < g_batch; ++i) {
      with_fork ? BareWithFork(spool, i) : BareExchange(spool, i);
    }
  });
  spool.Empty();
}

double PrivateDirtyKib(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/smaps_rollup");
  std::string word;
  while (file >> word) {
    if (word == "Private_Dirty:" && file >> word) return std::stod(word);
  }
  return -1;
}

double Descriptors(pid_t pid) {
  return static_cast<double>(std::distance(
      fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd"),
      fs::directory_iterator()));
}

void CountResources(benchmark::State& state, const char* when, pid_t pid) {
  state.counters[std::string(when) + "_KiB"] = PrivateDirtyKib(pid);
  state.counters[std::string(when) + "_fds"] = Descriptors(pid);
}

void Exchange(benchmark::State& state, const std::string& folder,
              int inline_daemons) {
  const Spool spool(folder);
  const Daemons daemons(spool, inline_daemons);
  Turns ours, bare;
  const auto start = std::chrono::steady_clock::now();
  for ([[maybe_unused]] auto iteration : state) {
    if (std::chrono::steady_clock::now() - start > kLongest) continue;
    AnswerAllBare(spool, inline_daemons == 0, &bare);
    AnswerAll(spool, daemons, &ours);
    if (state.counters.empty()) {
      CountResources(state, "first", daemons.first());
    }
  }
  CountResources(state, "last", daemons.first());
  state.counters["per_s"] = g_batch / ours.Us() * 1e6;
  state.counters["bare_per_s"] = g_batch / bare.Us() * 1e6;
}

// One command on an idle daemon, from the rename that drops it to the answer.
// The slower ones count: counter "us" is the 90th percentile.
void LoneCommand(benchmark::State& state, const std::string& folder) {
  const Spool spool(folder);
  const Daemons daemons(spool, 1);
  Turns turns;
  int i = 0;
  for ([[maybe_unused]] auto iteration : state) {
    std::this_thread::sleep_for(milliseconds(20));  // idle again
    ++i;
    turns.Time([&] {
      spool.Put(i);
      spool.Await(i);
    });
  }
  state.counters["us"] = turns.Us(90);
}

// The system calls of an inline daemon: "calls" an exchange, "idle_calls" a
// look at a directory in which nothing happened.
void SystemCalls(benchmark::State& state, const std::string& folder) {
  // From the start to the first wait, with so many commands waiting.
  const auto until_idle = [&](int commands) {
    const Spool spool(folder);
    spool.Fill(commands);
    double calls = 0;
    const int traced =
        TraceCalls([&] { ExecDaemon(spool, false, "1"); },
                   [&](long call) { return ++calls, call != SYS_poll; });
    return traced == 0 ? calls : 0;
  };
  // Between two waits, once the directory has been left alone for so long that
  // its time is trusted.
  const auto idle_pass = [&] {
    const Spool spool(folder);
    double calls = 0, last = 0;
    int waits = 0;
    TraceCalls([&] { ExecDaemon(spool, false, "1"); },
               [&](long call) {
                 ++calls;
                 if (call == SYS_poll) last = std::exchange(calls, 0), ++waits;
                 return waits < 8;
               });
    return last;
  };
  for ([[maybe_unused]] auto iteration : state) {
    const double few = until_idle(100);
    if (few == 0) return state.SkipWithError("tracing is not allowed");
    state.counters["calls"] = (until_idle(700) - few) / 600;
    state.counters["idle_calls"] = idle_pass();
  }
}

template <typename Work>
void Register(const std::string& name, int iterations, Work work) {
  benchmark::RegisterBenchmark(name.c_str(), work)
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond)
      ->Iterations(iterations);
}

void RegisterExchanges(const std::string& where, const std::string& folder) {
  constexpr struct {
    const char* name;
    int inline_daemons;
  } kModes[] = {{"workers", 0}, {"inline", 1}, {"inline-two", 2}};
  for (const auto& mode : kModes) {
    Register("Exchange/" + std::string(mode.name) + "/" + where, 5,
             [folder, mode](benchmark::State& state) {
               Exchange(state, folder, mode.inline_daemons);
             });
  }
}

}  // namespace

int main(int argc, char** argv) {
  const char* batch = std::getenv("KRT_BENCH_BATCH");
  if (batch != nullptr) g_batch = std::stoi(batch);
  const std::string disk = fs::temp_directory_path();
  RegisterExchanges("disk", disk);
  RegisterExchanges("memory", "/dev/shm");
  Register("LoneCommand/disk", 50, [disk](auto& s) { LoneCommand(s, disk); });
  Register("SystemCalls", 1, [](auto& s) { SystemCalls(s, "/dev/shm"); });
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
