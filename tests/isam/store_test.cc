// What the store does when nothing goes wrong, and what it refuses.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <sstream>
#include <tuple>
#include <utility>

#include "isam/harness.h"

namespace {

// Why an open failed.
int ErrorOf(int file) { return file < 0 ? isam_err : 0; }

class Store : public testing::Test {
 protected:
  // Opens the table filled with `records` samples.
  int Filled(uint32_t records) {
    EXPECT_EQ(0, Fill(name_, records, model_));
    return Open(name_);
  }
  // The alias of the record that a reading call found, or its code.
  std::string Found(int code) const {
    return code == 0 ? FromBytes(record_).alias : std::to_string(code);
  }

  Started started_;
  Faults faults_;
  TempDir dir_;
  std::string name_ = dir_ / "book";
  Model model_;
  char record_[kRecord];
};

TEST_F(Store, RandomChangesMatchTheModel) {
  const int file = Filled(0);
  std::mt19937 random(1);
  uint32_t last = 0;
  for (uint32_t n = 0; n < 900; ++n) {
    // The size swings, so that trees grow to three levels and vanish again.
    const size_t most = n / 150 % 2 == 0 ? 120 : 6;
    const Op op = RandomOp(model_, random, most, n % 200);
    const int code = Do(file, op, model_);
    ASSERT_TRUE(code == 0 || code == kIsamDuplicate) << n << ": " << code;
    if (op.kind == Op::kAdd && code == 0) {
      ASSERT_GT(isam_current(file), last) << "a serial number came again";
      last = isam_current(file);
    }
    if (n % 30 == 0) {
      ASSERT_EQ("", Verify(name_, model_)) << "after " << n;
    }
  }
  ASSERT_EQ(0, CLRFIL(file));
  EXPECT_EQ("", Verify(name_, model_));
}

// A few records whose order by alias, name and mark differs.
class Cursor : public Store {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, Create(name_));
    file_ = Open(name_);
    other_ = Open(name_);
    for (const Rec& rec :
         {Rec{"b", "Same", "2"}, Rec{"D", "same", "1"}, Rec{"a", "SAME", "1"},
          Rec{"c", "\xe4last", "1"}, Rec{"e", "Samey", "0"}})
      ASSERT_EQ(0, Do(file_, {Op::kAdd, 0, rec}, model_));
  }
  // Takes steps, each of which comes to an alias or a code: "first", "last",
  // "next" and "prev" with an index, or the start of a key with index and "="
  // or ">". "next 2 D" is such a step.
  void Walk(const std::string& steps) {
    std::istringstream stream(steps);
    for (std::string step, index, due; stream >> step >> index >> due;) {
      const int number = file_ + 1 + (index[0] - '0');
      const std::string key = Padded(step, kName);
      const int code = index[1] == '='   ? EQLREC(number, key.c_str(), record_)
                       : index[1] == '>' ? GTEREC(number, key.c_str(), record_)
                       : step == "first" ? FRSREC(number, record_)
                       : step == "last"  ? LSTREC(number, record_)
                       : step == "next"  ? NXTREC(number, record_)
                                         : PRVREC(number, record_);
      EXPECT_EQ(due, Found(code)) << step << " " << index;
    }
  }

  int file_ = -1, other_ = -1;
};

TEST_F(Cursor, KeysAreComparedUpperCasedAndDuplicatesComeBySerialNumber) {
  // Bytes above 127 come last, and the end moves nothing.
  Walk("sAmE 2= b  next 2 D  next 2 a  next 2 e  next 2 c");
  Walk("next 2 101  next 2 101  prev 2 e");
}

TEST_F(Cursor, AStartOfAKeyIsAPlaceToBegin) {
  Walk("sam 2= 101  sam 2> b  1 3> a  f 1> 101");
  const std::string key = Padded("1", kMark) + Padded("D", kAlias);
  EXPECT_EQ("D", Found(EQLREC(file_ + 4, key.c_str(), record_)));
  EXPECT_EQ("e", Found(EQLREC(file_ + 2, "e\0\0\0\0x\0\0", record_)))
      << "text ends at its first NUL";
}

TEST_F(Cursor, GoesOnInAnyIndexFromTheCurrentRecord) {
  EXPECT_EQ("100", Found(NXTREC(other_ + 1, record_)));
  // The record added last is the current one.
  Walk("next 0 101  d 1= D  next 0 a  next 1 b  prev 2 101  first 1 a");
  Walk("last 2 c");
}

TEST_F(Cursor, SurvivesWhatOthersDoToTheRecord) {
  const auto rename = [&](uint32_t serial, const char* name) {
    Rec rec = model_[serial];
    rec.name = name;
    ASSERT_EQ(0, Do(other_, {Op::kRewrite, serial, rec}, model_));
  };
  Walk("d 1= D");
  ASSERT_EQ(0, Do(other_, {Op::kDelete, 2, {}}, model_));
  EXPECT_EQ(kIsamNoCurrent, DELREC(file_));
  EXPECT_EQ(kIsamNoCurrent, RWTREC(file_, record_));
  // After where the deleted one was; the last step reads ahead.
  Walk("next 2 a  prev 2 b  next 2 a");
  rename(5, "Aaa");
  Walk("next 2 c");  // the next one moved away after it was read ahead
  rename(4, "Zzz");
  EXPECT_EQ(0, DELREC(file_)) << "found by its serial number";
  EXPECT_EQ(0u, isam_current(file_));
  Walk("next 2 101  prev 2 a");
  model_.erase(4);
  EXPECT_EQ("", Verify(name_, model_));
}

TEST_F(Cursor, AFailedChangeLeavesRecordAndPosition) {
  Walk("d 1= D");
  std::string bytes = ToBytes({"A", "other", "9"});
  const std::string before = bytes;
  EXPECT_EQ(kIsamDuplicate, ADDREC(file_, bytes.data()));
  EXPECT_EQ(kIsamDuplicate, RWTREC(file_, bytes.data()));
  EXPECT_EQ(kIsamDuplicate, isam_err);
  EXPECT_EQ(before, bytes);
  EXPECT_EQ(2u, isam_current(file_));
  EXPECT_EQ("", Verify(name_, model_));
}

TEST_F(Store, LocksAreKeptForAGroupOfChangesAndGivenBackByAFailure) {
  const int file = Filled(3), other = Open(name_);
  const Op add = {Op::kAdd, 0, Sample(50)}, again = {Op::kAdd, 0, Sample(51)};
  const Op duplicate = {Op::kAdd, 0, Sample(1)};
  EXPECT_EQ(0, LKISAM(kIsamEnableLocks));
  EXPECT_EQ(0, Do(file, add, model_));
  EXPECT_EQ(kIsamCannotLock, Do(other, again, model_)) << "kept after a change";
  EXPECT_EQ(kIsamDuplicate, Do(file, duplicate, model_));
  EXPECT_EQ(0, Do(other, again, model_)) << "given back by the failure";
  EXPECT_EQ(0, LKISAM(kIsamFreeLocks));
  EXPECT_EQ(0, isam_lock(file));
  EXPECT_EQ(kIsamCannotLock, isam_lock(other));
  EXPECT_EQ("", Verify(name_, model_)) << "a writer's lock stops no reader";
  EXPECT_EQ(0, CLRFIL(file));
  EXPECT_EQ(0, isam_lock(other));
  EXPECT_EQ(0, LKISAM(kIsamFreeLocks));
  // A lock lives as long as its open, whatever else the process closes.
  const int third = Open(name_);
  EXPECT_EQ(0, isam_lock(other));
  EXPECT_EQ(0, CLRFIL(third));
  EXPECT_EQ(77, InChild([&] {
              CLISAM();  // of what the parent opened: takes no lock away
              Started child;
              const int mine = Open(name_);
              return isam_lock(mine) == kIsamCannotLock ? 77 : 1;
            }));
}

TEST_F(Store, FreedSpaceIsUsedAgain) {
  const int file = Filled(400);
  const auto size = [&] {
    return ReadFile(name_ + ".dat").size() + ReadFile(name_ + ".idx").size();
  };
  const auto before = size();
  while (!model_.empty())
    ASSERT_EQ(0, Do(file, {Op::kDelete, model_.rbegin()->first, {}}, model_));
  for (uint32_t n = 400; n-- > 0;)
    ASSERT_EQ(0, Do(file, {Op::kAdd, 0, Sample(n)}, model_));
  EXPECT_LE(size(), before + before / 20);
  EXPECT_EQ("", Verify(name_, model_));
}

TEST_F(Store, OnAFullDiskNothingIsAddedButAllCanBeDeleted) {
  const int file = Filled(20);
  faults_.FillDisk(true);
  int code = 0;
  for (uint32_t n = 20; code == 0; ++n)
    code = Do(file, {Op::kAdd, 0, Sample(n)}, model_);
  EXPECT_EQ(kIsamNoSpace, code);
  EXPECT_EQ("", Verify(name_, model_));
  while (!model_.empty())
    ASSERT_EQ(0, Do(file, {Op::kDelete, model_.begin()->first, {}}, model_));
  EXPECT_EQ(0, Do(file, {Op::kAdd, 0, Sample(1)}, model_));
  EXPECT_EQ("", Verify(name_, model_));
}

TEST_F(Store, ATableOpenedForReadingIsNotWritten) {
  CLRFIL(Filled(30));
  Faults faults;
  const int file = Open(name_, kIsamRead);
  EXPECT_EQ(0, FRSREC(file + 1, record_));
  EXPECT_EQ(kIsamReadOnly, ADDREC(file, record_));
  EXPECT_EQ(kIsamReadOnly, RWTREC(file, record_));
  EXPECT_EQ(kIsamReadOnly, DELREC(file));
  EXPECT_EQ(kIsamReadOnly, isam_lock(file));
  EXPECT_EQ("", Verify(name_, model_));
  EXPECT_EQ(0, faults.writes());
}

TEST_F(Store, DescriptionsAreReadBack) {
  const int file = Filled(1);
  alignas(IFIL) char buffer[2048];
  const int used = GETIFIL(file, sizeof buffer, buffer);
  ASSERT_GT(used, 0);
  const auto* table = reinterpret_cast<const IFIL*>(buffer);
  EXPECT_EQ(name_, table->name);
  ASSERT_EQ(kIndexes, table->index_count);
  const IIDX& last = table->indexes[3];
  EXPECT_EQ(kMark + kAlias + 4, last.key_length);
  EXPECT_EQ(1, last.duplicates);
  ASSERT_EQ(2, last.segment_count);
  EXPECT_EQ(4, last.segments[1].offset);
  EXPECT_EQ(kIsamUpper, last.segments[1].mode);
  EXPECT_EQ(-1, GETIFIL(file, used - 1, buffer));
  DODA fields[4];
  ASSERT_EQ(2 * static_cast<int>(sizeof(DODA)),
            GETDODA(file, sizeof fields, fields, kIsamAllFields));
  EXPECT_STREQ("name", fields[1].name);
  EXPECT_EQ(kAlias, fields[1].offset);
  EXPECT_EQ(0, GETDODA(file, sizeof(DODA), fields, kIsamAllFields));
  EXPECT_EQ(kRecord, GETFIL(file, kIsamRecordLength));
  EXPECT_EQ(1, DATENT(file));
}

TEST_F(Store, OnlyATableThatIsNotThereIsCreated) {
  EXPECT_EQ(kIsamNoFile, ErrorOf(Open(name_)));
  const mode_t before = umask(077);
  ASSERT_EQ(0, Create(name_));
  umask(before);
  EXPECT_EQ(0660u, PermsOf(name_ + ".idx"));
  EXPECT_EQ(kIsamDataExists, Create(name_));
  unlink((name_ + ".dat").c_str());
  EXPECT_EQ(kIsamNoFile, ErrorOf(Open(name_)));
  EXPECT_EQ(0, Create(name_)) << "an index without its data file is garbage";
  EXPECT_EQ("", Verify(name_, {}));

  const std::string foreign = dir_ / "foreign";
  WriteFile(foreign + ".idx", "somebody's notes");
  EXPECT_EQ(kIsamIndexExists, Create(foreign));
  EXPECT_FALSE(std::filesystem::exists(foreign + ".dat"));
  std::filesystem::rename(foreign + ".idx", foreign + ".dat");
  EXPECT_EQ(kIsamDataExists, Create(foreign));
  EXPECT_EQ("somebody's notes", ReadFile(foreign + ".dat"));
  std::filesystem::permissions(dir_.path(), std::filesystem::perms{0555});
  EXPECT_EQ(0, InChild([&] {
              // The superuser may do everything: it asks as somebody else.
              if (getuid() == 0 && setuid(65534) != 0) return 2;
              return Create(dir_ / "mine") == kIsamNoPermission ? 0 : 1;
            }));
  std::filesystem::permissions(dir_.path(), std::filesystem::perms{0755});
}

TEST_F(Store, AddingToADeletedTableIsRefused) {
  const int file = Filled(3);
  unlink((name_ + ".dat").c_str());
  EXPECT_EQ(kIsamDeleted, Do(file, {Op::kAdd, 0, Sample(9)}, model_));
  ASSERT_EQ(0, Create(name_));
  EXPECT_EQ(kIsamDeleted, Do(file, {Op::kAdd, 0, Sample(9)}, model_));
  EXPECT_EQ("", Verify(name_, {}));
}

TEST_F(Store, ImpossibleCallsAreRefused) {
  const int file = Filled(1);
  const std::string path = name_ + ".dat";
  const std::pair<int, int> kCalls[] = {
      {kIsamBadNumber, FRSREC(file, record_)},
      {kIsamBadNumber, FRSREC(file + 1 + kIndexes, record_)},
      {kIsamBadNumber, ADDREC(file + 1, record_)},
      {kIsamBadNumber, CLRFIL(-5)},
      {kIsamBadNumber, CLRFIL(1 << 20)},
      {kIsamBadArgument, EQLREC(file + 1, nullptr, record_)},
      {kIsamBadArgument, ADDREC(file, nullptr)},
      {kIsamBadArgument, LKISAM(1)},
      {kIsamBadArgument, ErrorOf(OPNRFIL(-1, name_.c_str(), kIsamRead))},
      {kIsamBadArgument, ErrorOf(OPNRFIL(-1, path.c_str(), 5))},
      {kIsamBadArgument, INTISAM(6, 10, 4)},
  };
  for (const auto& [due, code] : kCalls)
    EXPECT_EQ(due, code) << "row " << &due - &kCalls[0].first;
  for (int n = 1; n < 10; ++n) EXPECT_GE(Open(name_), 0);
  EXPECT_EQ(kIsamTooManyFiles, ErrorOf(Open(name_)));
  EXPECT_EQ(0, CLISAM());
  EXPECT_EQ(kIsamNotStarted, FRSREC(file + 1, record_));
  ASSERT_EQ(0, INTISAM(6, 10, 4));

  // One thing wrong with each description.
  ISEG serial = {0, 4, kIsamSerial}, text = {4, 8, kIsamUpper};
  const std::tuple<const char*, int, int, IIDX> kWrong[] = {
      {"record too long", kIsamMaxRecord + 1, 1, {}},
      {"no index", 100, 0, {}},
      {"key length without the serial number", 100, 2,
       IIDX{8, 0, 1, 0, 0, 1, &text}},
      {"segment behind the record", 11, 2, IIDX{8, 0, 0, 0, 0, 1, &text}},
      {"no segments", 100, 2, IIDX{8, 0, 0, 0, 0, 0, &text}},
  };
  for (const auto& [what, length, count, second] : kWrong) {
    IIDX indexes[2] = {IIDX{4, 0, 0, 0, 0, 1, &serial}, second};
    const std::string wrong = dir_ / "wrong";
    IFIL table = {wrong.c_str(), -1, length, 0, 0, count, 0, 0, indexes};
    EXPECT_EQ(kIsamBadArgument, CREIFIL(&table)) << what;
    EXPECT_FALSE(std::filesystem::exists(wrong + ".dat")) << what;
  }
}

}  // namespace
