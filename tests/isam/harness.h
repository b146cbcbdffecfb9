// A small table, a model of what it must hold, and faults at its system calls.
#ifndef ISAM_HARNESS_H_
#define ISAM_HARNESS_H_

#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "isam/isam.h"
#include "isam/issys.h"
#include "support/child.h"
#include "support/temp_dir.h"

// Nine of the long names fill a page, so that a few dozen records make trees of
// three levels.
constexpr int kAlias = 8, kName = 200, kMark = 4;
constexpr int kRecord = 4 + kAlias + kName + kMark;
constexpr int kIndexes = 4;  // serial; alias (unique); name; mark + alias

struct Rec {
  std::string alias, name, mark;
  bool operator==(const Rec&) const = default;
};
using Model = std::map<uint32_t, Rec>;  // by serial number

std::string ToBytes(const Rec& rec);
Rec FromBytes(const char* bytes);
std::string Padded(const std::string& text, size_t size);
// Record `n` of a made-up book; names repeat, differ in case and come unsorted.
Rec Sample(uint32_t n);

// Starts the store for the time of a test.
struct Started {
  Started() { EXPECT_EQ(0, INTISAM(6, 10, 4)); }
  ~Started() { CLISAM(); }
};

int Create(const std::string& name);  // the code
int Open(const std::string& name, int mode = kIsamUpdate);

// One change. If it succeeds it is made in the model too, and only then.
struct Op {
  enum Kind { kAdd, kRewrite, kDelete } kind;
  uint32_t serial;  // of kRewrite and kDelete
  Rec rec;
};
int Do(int file, const Op& op, Model& model);
// A change that fits the model, of record `n` if it adds one; adds prevail
// while the model holds less than `most`.
Op RandomOp(const Model& model, std::mt19937& random, size_t most, uint32_t n);
// Makes a table of `count` samples; the code of the first failure.
int Fill(const std::string& name, uint32_t count, Model& model);

// For isam_check and isam_rebuild: collects lines in a std::string.
void AddLine(void* text, const char* line);
// Reads the table by every index, both ways, and checks it: "" when it holds
// what the model holds, else what is wrong.
std::string Verify(const std::string& name, const Model& model);

// What goes through the seam while one of these lives. No call flushes anything
// for real: the tests' power never fails but in the simulation.
class Faults {
 public:
  enum Mode { kCount, kKill, kFailOnce, kFailForGood };

  explicit Faults(Mode mode = kCount, int at = 0, int error = 5 /* EIO */);
  ~Faults();
  int calls() const;
  int writes() const;
  // Writes that would make a file longer fail with ENOSPC.
  void FillDisk(bool full);
};
constexpr int kKilled = 77;  // exit status of a process that Faults ended

// The machine starts anew: the kernel has another boot id.
void RestartMachine();

// Everything that is written while this lives, and what a power loss may leave
// of it.
class Recorder {
 public:
  explicit Recorder(const std::string& name);
  ~Recorder();
  // What happened so far.
  size_t events() const { return events_.size(); }
  // Writes to `name` what the disk may hold if the power fails after `count`
  // events: all that was flushed, and of each later 512 byte sector any of the
  // versions that it had.
  void PowerLoss(size_t count, std::mt19937& random, const std::string& name);

  // From now on every `n`th flush fails, and what it should have written is
  // lost but for what the disk had already; as with a real kernel, later
  // flushes do not make up for it.
  void FailEachFlush(int n) { fail_each_ = n; }

  enum Kind { kWrite, kFlush, kLost };
  struct Event {
    int file;  // 0 .idx, 1 .dat
    off_t offset;
    std::string bytes;
    Kind kind;
  };
  void Note(Event event) { events_.push_back(std::move(event)); }
  bool FlushFails() { return fail_each_ > 0 && ++flushes_ % fail_each_ == 0; }
  int FileOf(int fd) const;

 private:
  std::string name_;
  std::string base_[2];
  std::vector<Event> events_;
  int fail_each_ = 0, flushes_ = 0;
};

void CopyTable(const std::string& from, const std::string& to);

#endif  // ISAM_HARNESS_H_
