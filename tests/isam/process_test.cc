// Several processes on one table, some of which die.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>

#include "isam/harness.h"
#include "isam/islock.h"
#include "isam/istable.h"

namespace {

constexpr int kWriters = 4;
constexpr int kDoomed = 2;  // so many of them write until they are killed
constexpr int kChanges = 250;

struct Shared {
  std::atomic<int> answered[kWriters];
  std::atomic<bool> stop;
};

// Change `n` of writer `w`, made in what the writer's records are, which have
// serial numbers of their own here; decided by the numbers alone, so that the
// parent can repeat it. The alias that it is about is in `rec` always.
Op NextOp(int w, int n, std::mt19937& random, Model& own) {
  const auto serial = static_cast<uint32_t>(n + 1);
  Op op = RandomOp(own, random, 25, serial * kWriters);
  if (op.kind == Op::kAdd) op.serial = serial;
  const std::string alias =
      static_cast<char>('A' + w) + std::to_string(op.serial);
  if (op.kind == Op::kDelete)
    own.erase(op.serial);
  else
    (own[op.serial] = op.rec).alias = alias;
  op.rec.alias = alias;
  return op;
}

// The body of a writer: 0, or which thing went wrong.
int Write(const std::string& name, int w, Shared* shared) {
  CLISAM();  // the parent's
  Started started;
  std::mt19937 random(static_cast<uint32_t>(w));
  Model own;
  char record[kRecord];
  int file = Open(name);
  for (int n = 0; n < kChanges || w < kDoomed; ++n) {
    if (file < 0) return 1;
    const Op op = NextOp(w, n, random, own);
    const std::string key = Padded(op.rec.alias, kAlias);
    std::string bytes = ToBytes(op.rec);
    // What was answered is found, by whatever process it was made durable.
    if (op.kind != Op::kAdd && EQLREC(file + 2, key.c_str(), record) != 0)
      return 2;
    const int code = op.kind == Op::kAdd       ? ADDREC(file, bytes.data())
                     : op.kind == Op::kRewrite ? RWTREC(file, bytes.data())
                                               : DELREC(file);
    if (code != 0) return 3;
    shared->answered[w] = n + 1;
    if (n % 40 == 39) {
      CLRFIL(file);
      file = Open(name);
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
      std::memcpy(last, record, sizeof last);
      code = NXTREC(file + 2, record);
      if (code == 0 && std::memcmp(last + 4, record + 4, kAlias) >= 0) return 2;
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
  const pid_t reader = BeginChild([&] { return Read(name, shared); });
  pid_t writers[kWriters];
  for (int w = 0; w < kWriters; ++w)
    writers[w] = BeginChild([&] { return Write(name, w, shared); });
  for (int w = 0; w < kDoomed; ++w) {
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (shared->answered[w] < kChanges / (w + 2) &&
           std::chrono::steady_clock::now() < deadline)
      sched_yield();
    kill(writers[w], SIGKILL);
  }
  for (int w = 0; w < kWriters; ++w)
    EXPECT_EQ(w < kDoomed ? -1 : 0, Reaped(writers[w])) << w;
  shared->stop = true;
  EXPECT_EQ(0, Reaped(reader)) << "the reader saw a table that never was";

  // Of each writer exactly what was answered is there, and of the killed ones
  // perhaps one change more.
  ASSERT_EQ(0, isam_check((name + ".dat").c_str(), nullptr, nullptr));
  Model there[kWriters];
  const int file = Open(name);
  char record[kRecord];
  for (int code = FRSREC(file + 2, record); code == 0;
       code = NXTREC(file + 2, record)) {
    const Rec rec = FromBytes(record);
    there[rec.alias[0] - 'A']
         [static_cast<uint32_t>(std::stoi(rec.alias.substr(1)))] = rec;
  }
  for (int w = 0; w < kWriters; ++w) {
    std::mt19937 random(static_cast<uint32_t>(w));
    Model own;
    for (int n = 0; n < shared->answered[w]; ++n) NextOp(w, n, random, own);
    if (own == there[w]) continue;
    ASSERT_LT(w, kDoomed) << "a writer that was not killed";
    NextOp(w, shared->answered[w], random, own);
    EXPECT_TRUE(own == there[w]) << "writer " << w;
  }
  isam::g_sys.lock_wait_ms = 60;
  munmap(shared, sizeof(Shared));
}

// A process that is stopped while it holds a lock costs the others a failed
// change, not their lives.
class Stopped : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, Fill(name_, 10, model_));
    ASSERT_EQ(kIsamOk, isam::OpenTable(name_, true, &stopped_));
    file_ = Open(name_);
  }
  int AddOne() { return Do(file_, {Op::kAdd, 0, Sample(70)}, model_); }

  Started started_;
  Faults faults_;
  TempDir dir_;
  const std::string name_ = dir_ / "book";
  Model model_;
  std::unique_ptr<isam::Table> stopped_;
  int file_ = -1;
};

TEST_F(Stopped, IsNotWaitedForForEver) {
  {
    isam::Lock reader;
    ASSERT_EQ(kIsamOk, reader.TakeRead(stopped_->idx.get()));
    EXPECT_EQ(kIsamCannotLock, AddOne()) << "flushed, not applied";
  }
  EXPECT_EQ("", Verify(name_, model_)) << "and taken back";
  RestartMachine();
  EXPECT_EQ("", Verify(name_, model_)) << "from the ring too";
  {
    isam::Lock writer;
    ASSERT_EQ(kIsamOk, writer.TakeWriter(stopped_->idx.get()));
    EXPECT_EQ(kIsamCannotLock, AddOne());
  }
  EXPECT_EQ(0, AddOne());
  EXPECT_EQ("", Verify(name_, model_));
}

TEST_F(Stopped, CostsNoMoreThanTheBudget) {
  isam::g_sys.lock_wait_ms = 20'000;
  isam::Lock writer;
  ASSERT_EQ(kIsamOk, writer.TakeWriter(stopped_->idx.get()));
  isam_swap_budget({200, -1});
  for (int i = 0; i < 50; ++i) ASSERT_EQ(kIsamCannotLock, AddOne());
  EXPECT_EQ(0, isam_swap_budget({0, 0}).wait_ms);
  EXPECT_EQ(kIsamTooLong, FRSREC(file_ + 1, nullptr));
  EXPECT_EQ(kIsamTooLong, AddOne());
  EXPECT_EQ(-1, Open(name_, kIsamRead));
  EXPECT_EQ(0, isam_swap_budget({}).time_ms);
  writer.Release();
  EXPECT_EQ(0, AddOne());
  EXPECT_EQ(0, CLRFIL(file_));
  isam::g_sys.lock_wait_ms = 60;
}

}  // namespace
