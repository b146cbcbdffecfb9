// The exchange rate of a running daemon, beside the same system calls done bare
// in the same run: no objects, no decisions, only the calls that an exchange
// cannot do without.
//
//     command: stat, rename, open, 2 reads, close, unlink
//     response: open, chmod, write, close, rename
//
// Each iteration drops kBatch commands on a stopped daemon, lets it go on and
// waits for all responses; then it does as many exchanges bare. Reported:
// daemon and bare exchanges a second, their ratio, and the daemon's private
// dirty memory and open descriptors at the end.
//
// KRT_BENCH_DISK names the folder on a disk (default: the current one).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kBatch = 4000;
constexpr char kResponse[] =
    "objbeg=obj-cmdrsp\nclientid=jsmith\nhostname=hostA\nsessionid=1\n"
    "reference=1\ncmdtype=cmd-noop\niscmd=false\nrespond=false\nresult=0\n"
    "objend=obj-cmdrsp\n";

double Seconds(Clock::time_point from) {
  return std::chrono::duration<double>(Clock::now() - from).count();
}

// A spool of its own, removed at the end.
class Spool {
 public:
  explicit Spool(const std::string& folder) {
    std::string name = folder + "/krtbench.XXXXXX";
    if (mkdtemp(name.data()) == nullptr) std::abort();
    root_ = name;
    fs::create_directories(path());
  }
  Spool(const Spool&) = delete;
  Spool& operator=(const Spool&) = delete;
  ~Spool() { fs::remove_all(root_); }

  fs::path root() const { return root_; }
  fs::path path() const { return root_ / "krtnet/filspool"; }
  std::string Name(int i, const char* ext) const {
    char name[32];
    std::snprintf(name, sizeof name, "%04d-%03d.%s", i / 900, i % 900 + 1, ext);
    return path() / name;
  }
  void Fill() const {
    for (int i = 0; i < kBatch; ++i) {
      std::ofstream(Name(i, "new"))
          << "objbeg=obj-cmdrsp\nclientid=jsmith\nhostname=hostA\nsessionid="
          << i / 900 << "\nreference=" << i % 900 + 1
          << "\ncmdtype=cmd-noop\niscmd=true\nobjend=obj-cmdrsp\n";
      fs::rename(Name(i, "new"), Name(i, "cmd"));
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
  fs::path root_;
};

// Daemons on a spool, in the foreground of their own processes.
class Daemons {
 public:
  Daemons(const Spool& spool, int inline_daemons) {
    const int count = inline_daemons == 0 ? 1 : inline_daemons;
    for (int i = 0; i < count; ++i) {
      const pid_t pid = fork();
      if (pid == 0) {
        setenv("KFAXDIR", spool.root().c_str(), 1);
        execl(KRTCMD_PATH, "krtcmd", "-Z", "F", "-N",
              inline_daemons == 0 ? "0" : "1", nullptr);
        _exit(127);
      }
      pids_.push_back(pid);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
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

double RunDaemon(const Spool& spool, const Daemons& daemons) {
  daemons.Signal(SIGSTOP);
  spool.Fill();
  const auto start = Clock::now();
  daemons.Signal(SIGCONT);
  while (spool.Responses() < kBatch) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  const double seconds = Seconds(start);
  spool.Empty();
  return seconds;
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

double RunBare(const Spool& spool, bool with_fork) {
  spool.Fill();
  const auto start = Clock::now();
  for (int i = 0; i < kBatch; ++i) {
    if (!with_fork) {
      BareExchange(spool, i);
      continue;
    }
    const pid_t pid = fork();
    if (pid == 0) {
      BareExchange(spool, i);
      _exit(0);
    }
    waitpid(pid, nullptr, 0);
  }
  const double seconds = Seconds(start);
  spool.Empty();
  return seconds;
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

void Exchange(benchmark::State& state, const std::string& folder,
              int inline_daemons) {
  const Spool spool(folder);
  const Daemons daemons(spool, inline_daemons);
  double daemon_seconds = 0;
  double bare_seconds = 0;
  double batches = 0;
  for ([[maybe_unused]] auto iteration : state) {
    bare_seconds += RunBare(spool, inline_daemons == 0);
    const double seconds = RunDaemon(spool, daemons);
    state.SetIterationTime(seconds);
    daemon_seconds += seconds;
    ++batches;
  }
  state.counters["daemon_per_s"] = batches * kBatch / daemon_seconds;
  state.counters["bare_per_s"] = batches * kBatch / bare_seconds;
  state.counters["ratio"] = bare_seconds / daemon_seconds;
  state.counters["dirty_KiB"] = PrivateDirtyKib(daemons.first());
  state.counters["fds"] = Descriptors(daemons.first());
}

void Register(const std::string& where, const std::string& folder) {
  const struct {
    const char* name;
    int inline_daemons;
  } kModes[] = {{"workers", 0}, {"inline", 1}, {"inline_two", 2}};
  for (const auto& mode : kModes) {
    benchmark::RegisterBenchmark(
        ("Exchange/" + std::string(mode.name) + "/" + where).c_str(),
        [folder, mode](benchmark::State& state) {
          Exchange(state, folder, mode.inline_daemons);
        })
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond)
        ->Iterations(5);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const char* disk = std::getenv("KRT_BENCH_DISK");
  Register("disk", disk != nullptr ? disk : ".");
  Register("memory", "/dev/shm");
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
