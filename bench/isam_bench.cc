// The store against the embedded stores that one would take instead, at the
// work that the phone book does: short-lived opens of three tables around one
// operation.
//
// Names are <work>/<store>/<persons>; counters: "us" a turn, "flushes" a
// change, "bytes" a record, "KB" of memory.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>

#include "isam/issys.h"
#include "measure.h"
#include "store.h"

namespace {

struct Kind {
  const char* name;
  std::unique_ptr<Store> (*make)(const std::string& dir);
  uint32_t most;  // persons: more take minutes to fill in
};

constexpr uint32_t kAnySize = UINT32_MAX;
constexpr Kind kKinds[] = {
    {"ours", MakeOurs, kAnySize},
#ifdef HAVE_LMDB
    {"lmdb", MakeLmdb, kAnySize},
#endif
#ifdef HAVE_SQLITE
    {"sqlite", MakeSqliteJournal, kAnySize},
    {"sqlite-wal", MakeSqliteWal, kAnySize},
#endif
#ifdef HAVE_BDB
    {"bdb", MakeBdb, 10'000},
#endif
};
constexpr const Kind& kOurs = kKinds[0];

// --- Books ---

// The bytes of the files with the persons in them; the peers keep all tables in
// one, of which two are empty.
double PersonBytes(const std::string& dir) {
  double bytes = 0;
  for (const auto& file : std::filesystem::directory_iterator(dir))
    for (const char* start : {"pbper.", "book.db", "data.mdb"})
      if (file.path().filename().string().rfind(start, 0) == 0)
        bytes += static_cast<double>(file.file_size());
  return bytes;
}

struct Book {
  std::unique_ptr<Store> store;
  double bytes = 0;  // when it was new
};

// The book with that many persons in it, made at first use.
const Book& Filled(const Kind& kind, uint32_t persons) {
  static const Folder folder;
  static std::map<std::pair<const Kind*, uint32_t>, Book> books;
  Book& book = books[{&kind, persons}];
  auto& store = book.store;
  if (store) return book;
  const std::string dir = folder / kind.name + "-" + std::to_string(persons);
  std::filesystem::create_directory(dir);
  store = kind.make(dir);
  const WithoutFlushes fast;
  store->Create();
  store->Open(true);
  store->BeginBulk();
  for (uint32_t n = 0; n < persons; ++n) store->Add(MakePerson(n));
  store->EndBulk();
  store->Close();
  book.bytes = PersonBytes(dir);
  return book;
}

// Persons that are not in any book yet.
Person Newcomer() {
  static uint32_t next = 10'000'000;
  return MakePerson(next++);
}

class Opened {
 public:
  Opened(Store& store, bool write) : store_(store) { store_.Open(write); }
  Opened(const Opened&) = delete;
  Opened& operator=(const Opened&) = delete;
  ~Opened() { store_.Close(); }

 private:
  Store& store_;
};

// One benchmark on one book.
class Run {
 public:
  Run(benchmark::State& state_in, const Kind& kind, uint32_t persons_in)
      : state(state_in),
        book(Filled(kind, persons_in)),
        store(*book.store),
        persons(persons_in) {}

  // Persons of the book in no particular order.
  Person Anyone() { return MakePerson((at_ += 7919) % persons); }

  // Times `turn` on what `next` yields until the benchmark ends.
  template <typename Next, typename Turn>
  void Each(Next next, Turn turn) {
    Turns turns;
    const long before = Flushes();
    for (auto _ : state) {
      const auto input = next();
      turns.Time([&] { turn(input); });
    }
    state.counters["us"] = turns.Us();
    state.counters["flushes"] =
        benchmark::Counter(static_cast<double>(Flushes() - before),
                           benchmark::Counter::kAvgIterations);
  }
  template <typename Turn>
  void EachAlias(Turn turn) {
    Each([this] { return Anyone().alias; }, turn);
  }

  benchmark::State& state;
  const Book& book;
  Store& store;
  const uint32_t persons;

 private:
  uint32_t at_ = 0;
};

// --- The work ---

void OpenGetClose(Run& run) {
  run.EachAlias([&](const std::string& alias) {
    const Opened book(run.store, false);
    Must(run.store.Get(alias), "get");
  });
}

void OpenAddClose(Run& run) {
  std::vector<std::string> added;
  run.Each(Newcomer, [&](const Person& person) {
    const Opened book(run.store, true);
    run.store.Add(person);
    added.push_back(person.alias);
  });
  const Opened book(run.store, true);
  const WithoutFlushes fast;
  for (const std::string& alias : added) run.store.Delete(alias);
}

// Sixteen of each in turn, so that the book keeps its size.
void AddDelete(Run& run) {
  const Opened book(run.store, true);
  std::vector<std::string> added;
  bool adding = false;
  run.Each(
      [&] {
        if (added.empty() || added.size() == 16) adding = added.empty();
        return adding ? Newcomer() : Person{};
      },
      [&](const Person& person) {
        if (adding) {
          run.store.Add(person);
          added.push_back(person.alias);
        } else {
          run.store.Delete(added.back());
          added.pop_back();
        }
      });
  for (const std::string& alias : added) run.store.Delete(alias);
}

void Get(Run& run) {
  const Opened book(run.store, false);
  run.EachAlias(
      [&](const std::string& alias) { Must(run.store.Get(alias), "get"); });
}

void First20(Run& run) {
  const Opened book(run.store, false);
  run.Each([&] { return run.Anyone().lname; },
           [&](const std::string& lname) { run.store.Scan(lname, 20); });
}

void ScanAll(Run& run) {
  const Opened book(run.store, false);
  run.Each([] { return " "; },
           [&](const char* from) {
             Must(run.store.Scan(from, 1L << 40) == run.persons, "scan");
           });
}

// While another process adds and deletes without a pause. It ends between the
// two, so that nobody is left in the book.
volatile sig_atomic_t g_stop = 0;

[[noreturn]] void AddAndDelete(Store& store) {
  signal(SIGTERM, [](int) { g_stop = 1; });
  store.Open(true);
  while (g_stop == 0) {
    const Person person = Newcomer();
    store.Add(person);
    store.Delete(person.alias);
  }
  store.Close();
  _exit(0);
}

void GetBesideWriter(Run& run) {
  const pid_t writer = fork();
  if (writer == 0) AddAndDelete(run.store);
  Get(run);
  kill(writer, SIGTERM);
  waitpid(writer, nullptr, 0);
}

// Ends the process at a write to the store's files.
int (*g_write)(int, const void*, size_t, off_t);
int g_writes_left;
int WriteUntilKilled(int fd, const void* buf, size_t size, off_t offset) {
  if (g_writes_left-- == 0) _exit(0);
  return g_write(fd, buf, size, offset);
}

// Adds a person in a process that dies while it writes the commit in place.
Person TornCommit(Store& store) {
  const Person person = Newcomer();
  const pid_t child = fork();
  if (child == 0) {
    store.Open(true);
    g_write = isam::g_sys.write;
    g_writes_left = 5;  // redo entry, "applying", root page, two pages
    isam::g_sys.write = WriteUntilKilled;
    store.Add(person);
    _exit(1);
  }
  int status;
  waitpid(child, &status, 0);
  Must(WIFEXITED(status) && WEXITSTATUS(status) == 0, "killing the writer");
  return person;
}

void OpenAfterKill(Run& run) {
  std::string left;
  run.Each(
      [&] {
        if (!left.empty()) {
          const Opened book(run.store, true);
          run.store.Delete(left);
        }
        return left = TornCommit(run.store).alias;
      },
      [&](const std::string& alias) {
        const Opened book(run.store, true);
        Must(run.store.Get(alias), "finding the torn commit");
      });
  const Opened book(run.store, true);
  run.store.Delete(left);
}

// --- Sizes ---

void BytesPerRecord(Run& run) {
  for (auto _ : run.state) benchmark::ClobberMemory();
  run.state.counters["bytes"] = run.book.bytes / run.persons;
}

// The most memory that a child of this process had while it did `work`.
long ChildPeak(const std::function<void()>& work) {
  int ends[2];
  Must(pipe(ends) == 0, "pipe");
  const pid_t child = fork();
  if (child == 0) {
    std::ofstream("/proc/self/clear_refs") << 5;  // resets the peak
    work();
    std::ifstream status("/proc/self/status");
    long peak = 0;
    for (std::string line; std::getline(status, line);)
      if (line.rfind("VmHWM:", 0) == 0) peak = atol(line.c_str() + 6);
    _exit(write(ends[1], &peak, sizeof peak) == sizeof peak ? 0 : 1);
  }
  long peak = 0;
  Must(read(ends[0], &peak, sizeof peak) == sizeof peak, "measuring memory");
  waitpid(child, nullptr, 0);
  close(ends[0]);
  close(ends[1]);
  return peak;
}

// The memory that `work` needs beyond that of a process that does nothing.
void Peak(Run& run, const std::function<void()>& work) {
  for (auto _ : run.state) work();  // so that the program's own pages are in
  run.state.counters["KB"] =
      static_cast<double>(ChildPeak(work) - ChildPeak([] {}));
}

void PeakOfGet(Run& run) {
  Peak(run, [&] {
    const Opened book(run.store, false);
    run.store.Get(MakePerson(77).alias);
  });
}

void PeakOfScan(Run& run) {
  Peak(run, [&] {
    const Opened book(run.store, false);
    run.store.Scan(" ", 1L << 40);
  });
}

// --- All of it ---

constexpr struct {
  const char* name;
  void (*work)(Run&);
  bool peers;
  int iterations;  // 0: as many as fill the time
} kWorks[] = {
    {"BytesPerRecord", BytesPerRecord, true, 1},
    {"PeakOfGet", PeakOfGet, true, 1},
    {"PeakOfScan", PeakOfScan, true, 1},
    {"OpenGetClose", OpenGetClose, true, 0},
    {"OpenAddClose", OpenAddClose, true, 0},
    {"AddDelete", AddDelete, true, 0},
    {"Get", Get, true, 0},
    {"First20", First20, true, 0},
    {"ScanAll", ScanAll, true, 0},
    {"GetBesideWriter", GetBesideWriter, false, 0},
    {"OpenAfterKill", OpenAfterKill, false, 0},
};

void Register(uint32_t persons) {
  for (const auto& work : kWorks) {
    for (const Kind& kind : kKinds) {
      if (&kind != &kOurs && (!work.peers || persons > kind.most)) continue;
      auto* registered = benchmark::RegisterBenchmark(
          (std::string(work.name) + "/" + kind.name + "/" +
           std::to_string(persons))
              .c_str(),
          [&work, &kind, persons](benchmark::State& state) {
            Run run(state, kind, persons);
            work.work(run);
          });
      registered->UseRealTime()->Unit(benchmark::kMicrosecond);
      if (work.iterations != 0) registered->Iterations(work.iterations);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
#ifdef HAVE_SQLITE
  benchmark::AddCustomContext("SQLite", SqliteVersion());
#endif
#ifdef HAVE_LMDB
  benchmark::AddCustomContext("LMDB", LmdbVersion());
#endif
#ifdef HAVE_BDB
  benchmark::AddCustomContext("Berkeley DB", BdbVersion());
#endif
  for (const uint32_t persons : {10'000u, 100'000u}) Register(persons);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
