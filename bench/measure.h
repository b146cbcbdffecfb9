// What the benchmarks share.
//
// - Turns are timed one by one and reported as counters in microseconds, which
//   scripts/bench puts into its table. The tenth percentile is taken: on a
//   machine that others use too, it is what the work itself takes.
// - Flushes are counted as they leave the process, whoever asks for them, and
//   can be left out while something is filled.
// - What goes wrong ends the program: a benchmark of failures means nothing.
#ifndef BENCH_MEASURE_H_
#define BENCH_MEASURE_H_

#include <benchmark/benchmark.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

// Ends the program with a message unless `good`.
void Must(bool good, const char* what);

// How often fdatasync, fsync and msync were called in this process.
long Flushes();

// No flush reaches the disk while one of these exists; all of it is written out
// at its end.
class WithoutFlushes {
 public:
  WithoutFlushes();
  WithoutFlushes(const WithoutFlushes&) = delete;
  WithoutFlushes& operator=(const WithoutFlushes&) = delete;
  ~WithoutFlushes();
};

// A folder that goes away, with all that is in it, with the process that made
// it.
class Folder {
 public:
  // In `parent`, the folder for temporary files when empty.
  explicit Folder(const std::string& parent = "");
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder();
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const {
    return path_ + "/" + name;
  }

 private:
  std::string path_;
  pid_t owner_;
};

// The times of single turns.
class Turns {
 public:
  template <typename Work>
  void Time(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    ns_.push_back((std::chrono::steady_clock::now() - start).count());
  }
  // The time, in microseconds, that `percent` of the turns kept within; of few
  // turns the fastest. 0 without turns.
  double Us(int percent = 10) const;

 private:
  std::vector<int64_t> ns_;
};

// Times `work` until the benchmark ends; counter "us".
template <typename Work>
void Repeat(benchmark::State& state, Work work) {
  Turns turns;
  for (auto _ : state) turns.Time(work);
  state.counters["us"] = turns.Us();
}

// Times `ours` and `bare` turn by turn; counters "us" and "bare_us".
template <typename Ours, typename Bare>
void Compare(benchmark::State& state, Ours ours, Bare bare) {
  Turns our_turns, bare_turns;
  for (auto _ : state) {
    our_turns.Time(ours);
    bare_turns.Time(bare);
  }
  state.counters["us"] = our_turns.Us();
  state.counters["bare_us"] = bare_turns.Us();
}

#endif  // BENCH_MEASURE_H_
