// Several processes on one table, some of which die.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>

#include "isam/harness.h"
#include "isam/islock.h"
#include "isam/istable.h"

namespace {

constexpr int kWriters = 4;
constexpr int kDoomed = 2;  // so many of them write until they are killed
constexpr int kChanges = 250;

using Own = std::map<std::string, Rec>;  // by alias

struct Shared {
  std::atomic<int> answered[kWriters];
  std::atomic<bool> stop;
};

// Change `n` of writer `w`, and what the writer's records are after it; decided
// by the numbers alone, so that the parent can repeat it.
struct Plan {
  Op::Kind kind;
  Rec rec;
};
Plan NextPlan(int w, int n, std::mt19937& random, Own& own) {
  Rec rec = Sample(static_cast<uint32_t>(n * kWriters + w));
  rec.alias = std::string(1, static_cast<char>('A' + w)) + std::to_string(n);
  const bool add = own.size() < 5 || (own.size() < 25 && random() % 2 == 0);
  if (add) {
    own[rec.alias] = rec;
    return {Op::kAdd, rec};
  }
  auto it = own.begin();
  std::advance(it, random() % own.size());
  rec.alias = it->first;
  if (random() % 2 == 0) {
    own.erase(it);
    return {Op::kDelete, rec};
  }
  it->second = rec;
  return {Op::kRewrite, rec};
}

// The body of a writer: 0, or the line number of what went wrong.
int Write(const std::string& name, int w, Shared* shared) {
  CLISAM();  // the parent's
  Started started;
  std::mt19937 random(static_cast<uint32_t>(w));
  Own own;
  char record[kRecord];
  int file = Open(name);
  if (file < 0) return 1;
  for (int n = 0; n < kChanges || w < kDoomed; ++n) {
    const Plan plan = NextPlan(w, n, random, own);
    const std::string key = Padded(plan.rec.alias, kAlias);
    std::string bytes = ToBytes(plan.rec);
    if (plan.kind == Op::kAdd) {
      if (ADDREC(file, bytes.data()) != 0) return 2;
    } else {
      // What was answered is found, by whatever process it was made durable.
      if (EQLREC(file + 2, key.c_str(), record) != 0) return 3;
      if (FromBytes(record).alias != plan.rec.alias) return 4;
      if (plan.kind == Op::kRewrite && RWTREC(file, bytes.data()) != 0)
        return 5;
      if (plan.kind == Op::kDelete && DELREC(file) != 0) return 6;
    }
    shared->answered[w] = n + 1;
    if (n % 40 == 39) {
      CLRFIL(file);
      file = Open(name);
      if (file < 0) return 7;
    }
  }
  return 0;
}

// The body of a reader: walks and looks up until it is told to stop.
int Read(const std::string& name, const Shared* shared) {
  CLISAM();
  Started started;
  const int file = Open(name, kIsamRead);
  if (file < 0) return 1;
  char record[kRecord], last[kRecord];
  while (!shared->stop) {
    int code = FRSREC(file + 2, record);
    while (code == 0) {
      memcpy(last, record, sizeof last);
      code = NXTREC(file + 2, record);
      if (code == 0 && memcmp(last + 4, record + 4, kAlias) >= 0) return 2;
    }
    if (code != kIsamNotFound) return 3;
  }
  return 0;
}

TEST(Processes, AgreeOnATableWhenSomeAreKilled) {
  Started started;
  Faults none;  // spares the disk; the processes share memory, not power
  isam::g_sys.lock_wait_ms = 20'000;
  TempDir dir;
  const std::string name = dir / "book";
  ASSERT_EQ(0, Create(name));
  auto* shared =
      static_cast<Shared*>(mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  new (shared) Shared();
  pid_t writers[kWriters], reader = fork();
  if (reader == 0) _exit(Read(name, shared));
  for (int w = 0; w < kWriters; ++w) {
    writers[w] = fork();
    if (writers[w] == 0) _exit(Write(name, w, shared));
  }
  for (int w = 0; w < kDoomed; ++w) {
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (shared->answered[w] < kChanges / (w + 2) &&
           std::chrono::steady_clock::now() < deadline)
      sched_yield();
    kill(writers[w], SIGKILL);
  }
  int status;
  for (int w = 0; w < kWriters; ++w) {
    waitpid(writers[w], &status, 0);
    const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    EXPECT_TRUE(w < kDoomed ? killed : status == 0) << w << ": " << status;
  }
  shared->stop = true;
  waitpid(reader, &status, 0);
  EXPECT_EQ(0, status) << "the reader saw a table that never was";

  // Of each writer exactly what was answered is there, and of the killed ones
  // perhaps one change more.
  ASSERT_EQ(0, isam_check((name + ".dat").c_str(), nullptr, nullptr));
  std::map<int, Own> there;
  const int file = Open(name);
  char record[kRecord];
  for (int code = FRSREC(file + 2, record); code == 0;
       code = NXTREC(file + 2, record)) {
    const Rec rec = FromBytes(record);
    there[rec.alias[0] - 'A'][rec.alias] = rec;
  }
  for (int w = 0; w < kWriters; ++w) {
    std::mt19937 random(static_cast<uint32_t>(w));
    Own own;
    for (int n = 0; n < shared->answered[w]; ++n) NextPlan(w, n, random, own);
    if (own == there[w]) continue;
    ASSERT_LT(w, kDoomed) << "a writer that was not killed";
    NextPlan(w, shared->answered[w], random, own);
    EXPECT_TRUE(own == there[w]) << "writer " << w;
  }
  isam::g_sys.lock_wait_ms = 60;
  munmap(shared, sizeof(Shared));
}

// A process that is stopped while it holds a lock costs the others a failed
// change, not their lives.
TEST(Processes, DoNotWaitForAStoppedOneForEver) {
  Started started;
  Faults faults;
  TempDir dir;
  const std::string name = dir / "book";
  Model model;
  ASSERT_EQ(0, Fill(name, 10, model));
  const int file = Open(name);
  std::unique_ptr<isam::Table> stopped;
  ASSERT_EQ(kIsamOk, isam::OpenTable(name, true, &stopped));
  const Op add = {Op::kAdd, 0, Sample(70)};
  {
    isam::Lock reader;
    ASSERT_EQ(kIsamOk, reader.TakeRead(stopped->idx.get()));
    EXPECT_EQ(kIsamCannotLock, Do(file, add, model)) << "flushed, not applied";
  }
  EXPECT_EQ("", Verify(name, model)) << "and taken back";
  RestartMachine();
  EXPECT_EQ("", Verify(name, model)) << "from the ring too";
  {
    isam::Lock writer;
    ASSERT_EQ(kIsamOk, writer.TakeWriter(stopped->idx.get()));
    EXPECT_EQ(kIsamCannotLock, Do(file, add, model));
  }
  EXPECT_EQ(0, Do(file, add, model));
  EXPECT_EQ("", Verify(name, model));
}

TEST(Processes, SpendNoMoreThanTheirBudget) {
  Started started;
  Faults faults;
  isam::g_sys.lock_wait_ms = 20'000;
  TempDir dir;
  const std::string name = dir / "book";
  Model model;
  ASSERT_EQ(0, Fill(name, 10, model));
  std::unique_ptr<isam::Table> stopped;
  ASSERT_EQ(kIsamOk, isam::OpenTable(name, true, &stopped));
  isam::Lock writer;
  ASSERT_EQ(kIsamOk, writer.TakeWriter(stopped->idx.get()));
  const int file = Open(name);
  const Op add = {Op::kAdd, 0, Sample(70)};
  isam_swap_budget({200, -1});
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(kIsamCannotLock, Do(file, add, model));
  }
  EXPECT_EQ(0, isam_swap_budget({0, 0}).wait_ms);
  EXPECT_EQ(kIsamTooLong, FRSREC(file + 1, nullptr));
  EXPECT_EQ(kIsamTooLong, Do(file, add, model));
  EXPECT_EQ(-1, OPNRFIL(-1, (name + ".dat").c_str(), kIsamRead));
  EXPECT_EQ(0, isam_swap_budget({}).time_ms);
  writer.Release();
  EXPECT_EQ(0, Do(file, add, model));
  EXPECT_EQ(0, CLRFIL(file));
  isam::g_sys.lock_wait_ms = 60;
}

}  // namespace
