// What the store does when nothing goes wrong, and what it refuses.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <tuple>

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
    Add({"b", "Same", "2"});
    Add({"D", "same", "1"});
    Add({"a", "SAME", "1"});
    Add({"c", "\xe4last", "1"});
    Add({"e", "Samey", "0"});
  }
  void Add(const Rec& rec) {
    ASSERT_EQ(0, Do(file_, {Op::kAdd, 0, rec}, model_));
  }
  std::string Key(const std::string& text, size_t size = kName) const {
    return Padded(text, size);
  }
  std::string Seek(int index, const std::string& key, bool exact = true) {
    return Found(exact ? EQLREC(file_ + 1 + index, key.c_str(), record_)
                       : GTEREC(file_ + 1 + index, key.c_str(), record_));
  }
  std::string Next(int index) {
    return Found(NXTREC(file_ + 1 + index, record_));
  }
  std::string Prev(int index) {
    return Found(PRVREC(file_ + 1 + index, record_));
  }

  int file_ = -1, other_ = -1;
};

TEST_F(Cursor, KeysAreComparedUpperCasedAndDuplicatesComeBySerialNumber) {
  EXPECT_EQ("b", Seek(2, Key("sAmE")));
  EXPECT_EQ("D", Next(2));
  EXPECT_EQ("a", Next(2));
  EXPECT_EQ("e", Next(2));
  EXPECT_EQ("c", Next(2)) << "bytes above 127 come last";
  EXPECT_EQ("101", Next(2));
  EXPECT_EQ("101", Next(2)) << "the end moves nothing";
  EXPECT_EQ("e", Prev(2));
}

TEST_F(Cursor, AStartOfAKeyIsAPlaceToBegin) {
  EXPECT_EQ("101", Seek(2, Key("sam")));
  EXPECT_EQ("b", Seek(2, Key("sam"), false));
  EXPECT_EQ("a", Seek(3, Key("1", kMark + kAlias), false));
  EXPECT_EQ("D", Seek(3, Key("1", kMark) + Key("D", kAlias)));
  EXPECT_EQ("101", Seek(1, Key("f", kAlias), false));
  std::string junk = Key("e", kAlias);
  junk[5] = 'x';
  EXPECT_EQ("e", Seek(1, junk)) << "text ends at its first NUL";
}

TEST_F(Cursor, GoesOnInAnyIndexFromTheCurrentRecord) {
  EXPECT_EQ("100", Found(NXTREC(other_ + 1, record_)));
  EXPECT_EQ("101", Next(0)) << "the record added last is the current one";
  EXPECT_EQ("D", Seek(1, Key("d", kAlias)));
  EXPECT_EQ("a", Next(0));
  EXPECT_EQ("b", Next(1));
  EXPECT_EQ("a", Prev(2) == "101" ? Found(FRSREC(file_ + 2, record_)) : "?");
  EXPECT_EQ("c", Found(LSTREC(file_ + 3, record_)));
}

TEST_F(Cursor, SurvivesWhatOthersDoToTheRecord) {
  const auto by_other = [&](const char* alias, const char* new_name) {
    const std::string key = Key(alias, kAlias);
    ASSERT_EQ(0, EQLREC(other_ + 2, key.c_str(), record_));
    Rec rec = FromBytes(record_);
    rec.name = new_name == nullptr ? "" : new_name;
    std::string bytes = ToBytes(rec);
    ASSERT_EQ(
        0, new_name == nullptr ? DELREC(other_) : RWTREC(other_, bytes.data()));
  };
  ASSERT_EQ("D", Seek(1, Key("d", kAlias)));
  by_other("d", nullptr);
  EXPECT_EQ(100, DELREC(file_));
  EXPECT_EQ(100, RWTREC(file_, record_));
  EXPECT_EQ("a", Next(2)) << "after where the deleted one was";
  EXPECT_EQ("b", Prev(2));
  EXPECT_EQ("a", Next(2));  // and reads ahead
  by_other("e", "Aaa");
  EXPECT_EQ("c", Next(2)) << "the next one moved away after it was read ahead";
  by_other("c", "Zzz");
  EXPECT_EQ(0, DELREC(file_)) << "found by its serial number";
  EXPECT_EQ(0u, isam_current(file_));
  EXPECT_EQ("101", Next(2));
  EXPECT_EQ("a", Prev(2));
  EXPECT_EQ(
      "",
      Verify(name_, {{1, model_[1]}, {3, model_[3]}, {5, {"e", "Aaa", "0"}}}));
}

TEST_F(Cursor, AFailedChangeLeavesRecordAndPosition) {
  ASSERT_EQ("D", Seek(1, Key("d", kAlias)));
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
    return std::filesystem::file_size(name_ + ".dat") +
           std::filesystem::file_size(name_ + ".idx");
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
  char record[kRecord] = {};
  EXPECT_EQ(0, FRSREC(file + 1, record));
  EXPECT_EQ(kIsamReadOnly, ADDREC(file, record));
  EXPECT_EQ(kIsamReadOnly, RWTREC(file, record));
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
  EXPECT_EQ(kRecord, table->record_length);
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
            GETDODA(file, sizeof fields, fields, 4));
  EXPECT_STREQ("name", fields[1].name);
  EXPECT_EQ(kAlias, fields[1].offset);
  EXPECT_EQ(22, fields[1].type);
  EXPECT_EQ(kName, fields[1].length);
  EXPECT_EQ(0, GETDODA(file, sizeof(DODA), fields, 4));
  EXPECT_EQ(kRecord, GETFIL(file, 0));
  EXPECT_EQ(1, DATENT(file));
}

TEST_F(Store, OnlyATableThatIsNotThereIsCreated) {
  EXPECT_EQ(kIsamNoFile, ErrorOf(Open(name_)));
  const mode_t before = umask(077);
  ASSERT_EQ(0, Create(name_));
  umask(before);
  struct stat st;
  ASSERT_EQ(0, stat((name_ + ".idx").c_str(), &st));
  EXPECT_EQ(0660u, st.st_mode & 0777);
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
  EXPECT_EQ(kIsamNoPermission, [] {
    // The superuser may do everything, so the test asks as somebody else.
    return InChild([] {
             if (getuid() == 0 && setuid(65534) != 0) return -2;
             return Create("/proc/book") == kIsamNoFile ? kIsamNoPermission
                                                        : Create("/book");
           }) == (kIsamNoPermission & 0xff)
               ? kIsamNoPermission
               : -1;
  }());
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
  char record[kRecord] = {};
  EXPECT_EQ(kIsamBadNumber, FRSREC(file, record)) << "no index number";
  EXPECT_EQ(kIsamBadNumber, FRSREC(file + 1 + kIndexes, record));
  EXPECT_EQ(kIsamBadNumber, ADDREC(file + 1, record));
  EXPECT_EQ(kIsamBadNumber, CLRFIL(-5));
  EXPECT_EQ(kIsamBadNumber, CLRFIL(1 << 20));
  EXPECT_EQ(kIsamBadArgument, EQLREC(file + 1, nullptr, record));
  EXPECT_EQ(kIsamBadArgument, ADDREC(file, nullptr));
  EXPECT_EQ(kIsamBadArgument, LKISAM(1));
  EXPECT_EQ(kIsamBadArgument, ErrorOf(OPNRFIL(-1, name_.c_str(), kIsamRead)))
      << "no extension";
  EXPECT_EQ(-1, OPNRFIL(-1, (name_ + ".dat").c_str(), 5));
  EXPECT_EQ(kIsamBadArgument, INTISAM(6, 10, 4)) << "started already";
  for (int n = 1; n < 10; ++n) EXPECT_GE(Open(name_), 0);
  EXPECT_EQ(kIsamTooManyFiles, ErrorOf(Open(name_)));
  EXPECT_EQ(0, CLISAM());
  EXPECT_EQ(kIsamNotStarted, FRSREC(file + 1, record));
  ASSERT_EQ(0, INTISAM(6, 10, 4));

  // One thing wrong with each description.
  ISEG serial = {0, 4, kIsamSerial}, text = {4, 8, kIsamUpper};
  const std::tuple<const char*, int, int, IIDX> kWrong[] = {
      {"record too long", kIsamMaxRecord + 1, 1, {}},
      {"no index", 100, 0, {}},
      {"key length without the serial number",
       100,
       2,
       {8, 0, 1, 0, 0, 1, &text}},
      {"segment behind the record", 11, 2, {8, 0, 0, 0, 0, 1, &text}},
      {"no segments", 100, 2, {8, 0, 0, 0, 0, 0, &text}},
  };
  for (const auto& [what, length, count, second] : kWrong) {
    IIDX indexes[2] = {{4, 0, 0, 0, 0, 1, &serial}, second};
    const std::string path = dir_ / "wrong";
    IFIL table = {path.c_str(), -1, length, 0, 0, count, 0, 0, indexes};
    EXPECT_EQ(kIsamBadArgument, CREIFIL(&table)) << what;
    EXPECT_FALSE(std::filesystem::exists(path + ".dat")) << what;
  }
}

TEST(Messages, BeginWithASymbol) {
  for (int code = -1; code < 700; ++code) {
    const char* text = isam_errmsg(code);
    if (text == nullptr) continue;
    const char* colon = strchr(text, ':');
    ASSERT_NE(nullptr, colon) << text;
    EXPECT_EQ(static_cast<size_t>(colon - text),
              strspn(text, "ABCDEFGHIJKLMNOPQRSTUVWXYZ_"))
        << text;
    EXPECT_EQ(' ', colon[1]) << text;
  }
  EXPECT_STREQ("KDUP_ERR: Key value already exists",
               isam_errmsg(kIsamDuplicate));
  EXPECT_EQ(nullptr, isam_errmsg(1));
}

}  // namespace
