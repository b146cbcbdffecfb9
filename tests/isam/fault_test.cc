// What is left after a process died, the power failed, a call failed or a file
// was damaged, at every place where that can happen.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "isam/harness.h"
#include "isam/isbytes.h"
#include "isam/ispage.h"

namespace {

// Instead of a number of records: as many as it takes until the next change
// makes the files grow, or begins a new lap of the ring.
constexpr uint32_t kUntilGrowth = 1000, kUntilWrap = 1001;

// A table as it stands before, and the work during which something happens.
struct Scenario {
  const char* name;
  uint32_t records;  // of the table before, and commits in the ring
  std::vector<Op> before;
  Op op;
  bool restarted = false;  // the machine was started anew before it
  bool torn = false;       // a process died while it wrote in place before it
};

void PrintTo(const Scenario& scenario, std::ostream* out) {
  *out << scenario.name;
}

Op Add(uint32_t n) { return {Op::kAdd, 0, Sample(n)}; }
Op Delete(uint32_t serial) { return {Op::kDelete, serial, {}}; }
Op Rewrite(uint32_t serial, uint32_t n) {
  return {Op::kRewrite, serial, Sample(n)};
}

const Scenario kScenarios[] = {
    {"FirstAdd", 0, {}, Add(1)},
    {"AddThatSplits", 72, {}, Add(500)},
    {"AddIntoFreeSlotAndPage", 30, {Delete(3), Delete(4)}, Add(700)},
    {"Rewrite", 40, {}, Rewrite(11, 900)},
    {"Delete", 40, {}, Delete(20)},
    {"DeleteTheLast", 1, {}, Delete(1)},
    {"AddThatGrowsTheData", kUntilGrowth, {}, Add(600)},
    {"AddThatWrapsTheRing", kUntilWrap, {}, Add(601)},
    {"AddAfterRestart", 25, {}, Add(30), true},
    {"AddAfterTornCommit", 25, {Add(40)}, Add(30), false, true},
};

// Adds records until the next add does what `until` says.
void FillUntil(const std::string& name, uint32_t until, const std::string& copy,
               Model& model) {
  ASSERT_EQ(0, Create(name));
  for (uint32_t n = 0;; ++n) {
    std::unique_ptr<isam::Table> before, after;
    Model next = model;
    CopyTable(name, copy);
    const int file = Open(copy);
    ASSERT_EQ(kIsamOk, isam::OpenTable(copy, false, &before));
    ASSERT_EQ(0, Do(file, Add(n), next));
    ASSERT_EQ(kIsamOk, isam::OpenTable(copy, false, &after));
    CLRFIL(file);
    const bool reached =
        until == kUntilWrap
            ? after->state.entry_offset < before->state.entry_offset
            : n > 0 && after->root.slots_capacity > before->root.slots_capacity;
    if (reached) return;
    CopyTable(copy, name);
    model = next;
  }
}

// Opens the table, does the work, closes: the code of what failed first.
int Work(const std::string& name, const Op& op, Model& model) {
  const int file = Open(name);
  if (file < 0) return isam_err;
  int code = LKISAM(kIsamEnableLocks);
  if (code == 0) code = Do(file, op, model);
  LKISAM(kIsamFreeLocks);
  CLRFIL(file);
  return code;
}

class Fault : public testing::TestWithParam<Scenario> {
 protected:
  // Makes the table before the work, and the models before and after it.
  void SetUp() override {
    const Scenario& scenario = GetParam();
    Faults none;
    if (scenario.records >= kUntilGrowth)
      FillUntil(base_, scenario.records, work_, before_);
    else
      ASSERT_EQ(0, Fill(base_, scenario.records, before_));
    for (size_t i = 0; i < scenario.before.size(); ++i) {
      if (scenario.torn && i + 1 == scenario.before.size())
        TearCommit(scenario.before[i]);
      else
        ASSERT_EQ(0, Work(base_, scenario.before[i], before_));
    }
    after_ = before_;
    Begin();
    Faults counting;
    ASSERT_EQ(0, Work(work_, scenario.op, after_));
    calls_ = counting.calls();
    ASSERT_EQ("", Verify(work_, after_));
  }

  // A commit whose process dies in the middle of writing in place.
  void TearCommit(const Op& op) {
    Model after = before_;
    for (int at = 1;; ++at) {
      CopyTable(base_, work_);
      const int status = InChild([&] {
        Faults kill(Faults::kKill, at);
        return Work(work_, op, after);
      });
      Faults none;
      ASSERT_EQ(kKilled, status) << "never found the commit torn";
      Model there = before_;
      there[before_.rbegin()->first + 1] = op.rec;
      const int file = Open(work_, kIsamRead);
      const bool committed = DATENT(file) == static_cast<int64_t>(there.size());
      CLRFIL(file);
      if (!committed) continue;
      before_ = there;
      CopyTable(work_, base_);
      return;
    }
  }

  void Begin() {
    CopyTable(base_, work_);
    if (GetParam().restarted) RestartMachine();
  }

  // Whatever happened, the table is now the one before or the one after the
  // work, for a reader who may not write, and it can be changed again.
  void ExpectWhole(const std::string& where, bool may_be_before,
                   bool may_be_after) {
    Faults faults;
    Model model = after_;
    std::string wrong = may_be_after ? Verify(work_, after_) : "not looked";
    if (!wrong.empty() && may_be_before) {
      model = before_;
      wrong = Verify(work_, before_) + (may_be_after ? " / " + wrong : "");
      if (Verify(work_, before_).empty()) wrong.clear();
    }
    EXPECT_EQ(0, faults.writes()) << "a reader wrote";
    ASSERT_EQ("", wrong) << where;
    ASSERT_EQ(0, Work(work_, Add(999), model)) << where;
    ASSERT_EQ("", Verify(work_, model)) << where << ", one more change";
  }

  Started started_;
  TempDir dir_;
  std::string base_ = dir_ / "base", work_ = dir_ / "work";
  Model before_, after_;
  int calls_ = 0;
};

TEST_P(Fault, DeathAtEveryCall) {
  for (int at = 1; at <= calls_; ++at) {
    Begin();
    ASSERT_EQ(kKilled, InChild([&] {
                Faults kill(Faults::kKill, at);
                Model model = before_;
                return Work(work_, GetParam().op, model);
              }));
    ExpectWhole("killed at call " + std::to_string(at), true, true);
  }
}

TEST_P(Fault, EveryCallFailingOnceOrForGood) {
  for (const int error : {EIO, ENOSPC}) {
    for (const auto mode : {Faults::kFailOnce, Faults::kFailForGood}) {
      for (int at = 1; at <= calls_; ++at) {
        Begin();
        Model model = before_;
        int code;
        {
          Faults fail(mode, at, error);
          code = Work(work_, GetParam().op, model);
        }
        // Success is success, and a failure leaves nothing behind.
        ExpectWhole("errno " + std::to_string(error) +
                        (mode == Faults::kFailOnce ? " once at " : " from ") +
                        std::to_string(at) + ", code " + std::to_string(code),
                    code != 0, code == 0);
      }
    }
  }
}

// A change as it was tried, and what the table holds if it was made.
struct Attempt {
  size_t begin, end;  // events of the recorder
  Model model;
  bool answered;  // with success
};

// Tries `count` changes of the table in `model`, and of the models along the
// way.
std::vector<Attempt> TryChanges(const std::string& name, Recorder& recorder,
                                Model model, int count, std::mt19937& random) {
  std::vector<Attempt> attempts = {
      {recorder.events(), recorder.events(), model, true}};
  static uint32_t last_serial = 0;  // only flushes of the first table fail
  const int file = Open(name);
  for (int n = 0; n < count; ++n) {
    // Mostly adds: the ring must not hold all records.
    const Op op = RandomOp(model, random, 600, static_cast<uint32_t>(random()));
    const size_t begin = recorder.events();
    Model made = model;
    const int code = Do(file, op, made);
    EXPECT_TRUE(code == 0 || code == kIsamDuplicate || code == kIsamIo) << code;
    if (code == kIsamIo && op.kind == Op::kDelete)
      made.erase(op.serial);
    else if (code == kIsamIo)
      made[op.kind == Op::kAdd ? last_serial + 1 : op.serial] = op.rec;
    attempts.push_back({begin, recorder.events(), made, code == 0});
    if (code == 0) model = made;
    if (code == 0 && op.kind == Op::kAdd) last_serial = isam_current(file);
  }
  CLRFIL(file);
  return attempts;
}

// What the table holds when the power failed at `moment`: what the last
// answered change before left, or what one tried since then would have left.
// Null when it is neither; `why` then says why it is not the former.
const Model* FindModel(const std::string& name, size_t moment,
                       const std::vector<Attempt>& attempts, std::string* why) {
  size_t last = 0;
  for (size_t i = 0; i < attempts.size(); ++i)
    if (attempts[i].answered && attempts[i].end <= moment) last = i;
  *why = Verify(name, attempts[last].model);
  if (why->empty()) return &attempts[last].model;
  for (size_t i = last + 1; i < attempts.size() && attempts[i].begin <= moment;
       ++i)
    if (Verify(name, attempts[i].model).empty()) return &attempts[i].model;
  return nullptr;
}

// A disk that loses, of the sectors written since the last flush, whichever it
// likes, at any moment of a long series of changes, and again while the next
// process repairs that and goes on. Some flushes fail on the way.
TEST(PowerLoss, LeavesEveryAnsweredChange) {
  Started started;
  Faults faults;
  TempDir dir;
  const std::string name = dir / "book", after = dir / "after",
                    again = dir / "again";
  std::mt19937 random(2);
  ASSERT_EQ(0, Create(name));
  Recorder recorder(name);
  const auto first = TryChanges(name, recorder, {}, 200, random);
  recorder.FailEachFlush(29);
  auto attempts = TryChanges(name, recorder, first.back().model, 250, random);
  attempts.insert(attempts.begin(), first.begin(), first.end());
  for (int trial = 0; trial < 300; ++trial) {
    std::string why;
    const size_t moment = random() % recorder.events();
    recorder.PowerLoss(moment, random, after);
    RestartMachine();
    const Model* model = FindModel(after, moment, attempts, &why);
    ASSERT_NE(nullptr, model) << "trial " << trial << ": " << why;

    // Mostly during the repair, sometimes when the ring has gone round since.
    Recorder repair(after);
    const auto more =
        TryChanges(after, repair, *model, trial % 10 == 0 ? 120 : 2, random);
    const size_t moment2 = trial % 10 == 0 ? repair.events() - 1 - random() % 20
                                           : random() % repair.events();
    repair.PowerLoss(moment2, random, again);
    RestartMachine();
    ASSERT_NE(nullptr, FindModel(again, moment2, more, &why))
        << "again, trial " << trial << ": " << why;
  }
}

// A process dies between the flush of an entry and its first write in place, so
// that the entry was never answered. The next change has the same number. Where
// its entry goes to the start of the ring and the dead one stands at the end,
// it must be the later one that a restart finds.
TEST(PowerLoss, AnEntryThatWasNeverAnsweredDoesNotComeBack) {
  Started started;
  Faults none;
  TempDir dir;
  const std::string base = dir / "base", work = dir / "work";
  Model before;
  FillUntil(base, kUntilWrap, work, before);
  const auto place_of = [&](const std::string& name) {
    std::unique_ptr<isam::Table> table;
    EXPECT_EQ(kIsamOk, isam::OpenTable(name, false, &table));
    return table->state.entry_offset;
  };
  // A change whose entry still fits where that of the next add does not.
  Op fits = {};
  int calls = 0;
  for (const auto& [serial, rec] : before) {
    CopyTable(base, work);
    Model model = before;
    Faults counting;
    ASSERT_EQ(0, Work(work, Delete(serial), model));
    calls = counting.calls();
    fits = Delete(serial);
    if (place_of(work) > place_of(base)) break;
  }
  ASSERT_GT(place_of(work), place_of(base)) << "all entries go round";
  for (int at = 1; at <= calls; ++at) {
    CopyTable(base, work);
    Faults none_yet;
    CLRFIL(Open(work));  // settles the restart of the turn before
    Model model = before;
    ASSERT_EQ(kKilled, InChild([&] {
                Faults kill(Faults::kKill, at);
                return Work(work, fits, model);
              }));
    Faults faults;
    if (!Verify(work, before).empty()) break;  // from here on it counts
    ASSERT_EQ(0, Work(work, Add(static_cast<uint32_t>(before.size())), model));
    ASSERT_LT(place_of(work), place_of(base)) << "the add did not go round";
    RestartMachine();
    ASSERT_EQ("", Verify(work, model)) << "killed at call " << at;
  }
}

INSTANTIATE_TEST_SUITE_P(, Fault, testing::ValuesIn(kScenarios),
                         [](const auto& scenario) {
                           return scenario.param.name;
                         });

}  // namespace
