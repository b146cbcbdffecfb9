// Damaged and hostile files: correct data or an error; rebuilding.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <fstream>

#include "isam/harness.h"
#include "isam/ispage.h"

// Of fuzz/store_fuzz.cc; ends the process when something is wrong.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

const char* const kFiles[] = {".idx", ".dat"};
enum { kIdx, kDat };

// The two files of a table.
struct Files {
  std::string bytes[2];
  uint8_t* Raw(int file, off_t at = 0) {
    return reinterpret_cast<uint8_t*>(bytes[file].data()) + at;
  }
};

class Damage : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, Fill(base_, 60, model_));
    const int file = Open(base_);
    for (const uint32_t serial : {5u, 17u, 44u})
      ASSERT_EQ(0, Do(file, {Op::kDelete, serial, {}}, model_));
    CLRFIL(file);
    for (int i : {kIdx, kDat}) good_.bytes[i] = ReadFile(base_ + kFiles[i]);
    ASSERT_EQ(kIsamOk, isam::OpenTable(base_, false, &table_));
  }

  void Lay(const Files& files) const {
    for (int i : {kIdx, kDat}) WriteFile(name_ + kFiles[i], files.bytes[i]);
  }
  void PutRoot(const isam::Root& root, Files* files) const {
    isam::EncodeRoot(root, layout().salt, files->Raw(kIdx, isam::kRootOffset));
  }
  const isam::Layout& layout() const { return table_->layout; }
  int Check(std::string* said) const {
    return isam_check((name_ + ".dat").c_str(), AddLine, said);
  }
  int Rebuild(std::string* said = nullptr) const {
    return isam_rebuild((name_ + ".dat").c_str(),
                        said != nullptr ? AddLine : nullptr, said);
  }

  // Does everything with the damaged table. It need not notice, only survive.
  void Use() {
    const int file = Open(name_);
    for (int index = 1; index <= kIndexes; ++index) {
      size_t seen = 0;
      char record[kRecord];
      int code = FRSREC(file + index, record);
      for (; code == 0; code = NXTREC(file + index, record))
        ASSERT_LE(++seen, 2000u) << "walks for ever";
    }
    Model model = model_;
    Do(file, {Op::kAdd, 0, Sample(800)}, model);
    Do(file, {Op::kDelete, 30, {}}, model);
    Do(file, {Op::kRewrite, 31, Sample(801)}, model);
    CLRFIL(file);
  }

  Started started_;
  Faults faults_;
  TempDir dir_;
  std::string base_ = dir_ / "base", name_ = dir_ / "bad";
  Files good_;
  Model model_;
  std::unique_ptr<isam::Table> table_;
};

// What the fuzzer tries, at random: bytes changed and forged with checksums
// that fit, files cut, and every operation on what is left.
TEST(Fuzzed, TablesGiveRightDataOrAnError) {
  EXPECT_EQ(0, InChild([] {  // the fuzzer has system calls of its own
              std::mt19937 random(3);
              for (int trial = 0; trial < 5'000; ++trial) {
                std::vector<uint8_t> input(random() % 160);
                // Small numbers are those of pages, slots and entries.
                for (uint8_t& byte : input)
                  byte = static_cast<uint8_t>(random() %
                                              (random() % 2 == 0 ? 16 : 256));
                LLVMFuzzerTestOneInput(input.data(), input.size());
              }
              return 0;
            }));
}

TEST_F(Damage, ARebuildMakesAllIndexesFromTheRecords) {
  constexpr char kIndexLost[] = "the index file was missing or damaged\n";
  constexpr char kFieldsLost[] = "the field definitions are damaged\n";
  const struct {
    const char* what;
    std::function<void(Files*)> harm;
    const char* said;
  } kHarms[] = {
      {"nothing", [](Files*) {}, ""},
      {"all index pages",
       [](Files* f) {
         std::fill(f->bytes[kIdx].begin() + isam::kPagesOffset,
                   f->bytes[kIdx].end(), 'x');
       },
       ""},
      {"index file", [](Files* f) { f->bytes[kIdx].clear(); }, kIndexLost},
      {"header of the data file", [](Files* f) { *f->Raw(kDat, 40) ^= 1; },
       "the header of the data file was damaged\n"},
      {"ring", [](Files* f) { *f->Raw(kDat, isam::kRingOffset + 99) ^= 1; },
       ""},
      {"a header with bytes that mean nothing",
       [this](Files* f) {
         uint8_t* header = f->Raw(kDat);
         header[2000] = 1;
         constexpr auto kFrom = isam::header_at::kVersion;
         isam::Put64(header + isam::header_at::kChecksum,
                     isam::Checksum(header + kFrom, isam::kHeaderSize - kFrom,
                                    layout().salt));
       },
       ""},
      // Without them nobody can read the records, whatever the indexes.
      {"field definitions",
       [](Files* f) { *f->Raw(kDat, isam::kFieldsOffset + 20) ^= 1; },
       kFieldsLost},
  };
  for (const auto& harm : kHarms) {
    SCOPED_TRACE(harm.what);
    Files files = good_;
    harm.harm(&files);
    Lay(files);
    RestartMachine();
    std::string said;
    const int code = Rebuild(&said);
    EXPECT_EQ(harm.said, said);
    ASSERT_EQ(harm.said == kFieldsLost ? kIsamDamaged : 0, code);
    if (code != 0) {
      for (int i : {kIdx, kDat})
        EXPECT_EQ(files.bytes[i], ReadFile(name_ + kFiles[i]));
      continue;
    }
    Model model = model_;
    ASSERT_EQ("", Verify(name_, model));
    RestartMachine();
    const int file = Open(name_);
    ASSERT_EQ(0, Do(file, {Op::kAdd, 0, Sample(90)}, model));
    EXPECT_EQ(61u, isam_current(file)) << "a number came again";
    CLRFIL(file);
    ASSERT_EQ("", Verify(name_, model));
  }
}

TEST_F(Damage, ARebuildLeavesOutWhatCannotBeKept) {
  Files files = good_;
  const auto record = [&](uint32_t n) {
    return files.Raw(kDat, layout().slot_offset(n) + isam::kSlotHeader);
  };
  const auto seal = [&](uint32_t n) {
    isam::SealSlot(record(n) - isam::kSlotHeader, n, layout());
  };
  record(8)[100] ^= 1;                  // damaged
  isam::Put32(record(11), 0xffffffff);  // never given
  isam::Put32(record(12), 0);           // nor was this
  std::memcpy(record(10) + 4, record(9) + 4, kAlias);
  for (uint32_t n : {10u, 11u, 12u}) seal(n);
  std::fill_n(files.Raw(kDat, isam::kRingOffset), layout().ring_size, 0);
  Lay(files);
  std::string said;
  ASSERT_EQ(0, Rebuild(&said));
  EXPECT_EQ(
      "the record in slot 8 is damaged and was left out\n"
      "the record in slot 11 is damaged and was left out\n"
      "the record in slot 12 is damaged and was left out\n"
      "record 10 has a key of record 9 and was left out\n",
      said);
  for (uint32_t n : {8u, 10u, 11u, 12u}) model_.erase(n);
  EXPECT_EQ("", Verify(name_, model_));
}

// The index file of a table without records is as long as one with them would
// need it.
TEST_F(Damage, ARebuiltTableWithoutRecordsTakesThemAgain) {
  for (const uint32_t records : {0u, 3u}) {
    const std::string name = dir_ / std::to_string(records);
    Model model;
    ASSERT_EQ(0, Fill(name, records, model));
    int file = Open(name);
    while (!model.empty())
      ASSERT_EQ(0, Do(file, {Op::kDelete, model.begin()->first, {}}, model));
    CLRFIL(file);
    WriteFile(name + ".idx", "");
    ASSERT_EQ(0, isam_rebuild((name + ".dat").c_str(), nullptr, nullptr));
    EXPECT_EQ("", Verify(name, model));
    file = Open(name);
    EXPECT_EQ(0, Do(file, {Op::kAdd, 0, Sample(1)}, model));
    CLRFIL(file);
    EXPECT_EQ("", Verify(name, model));
  }
}

// The ring may be all that has the last changes on disk. It is given up only
// when the slots have them too.
TEST_F(Damage, ARebuildSurvivesAPowerLoss) {
  const std::string after = dir_ / "after";
  std::mt19937 random(5);
  Recorder recorder(base_);
  int file = Open(base_);
  for (uint32_t n = 900; n < 905; ++n)
    ASSERT_EQ(0, Do(file, {Op::kRewrite, n % 2 + 1, Sample(n)}, model_));
  CLRFIL(file);
  const size_t begin = recorder.events();
  ASSERT_EQ(0, isam_rebuild((base_ + ".dat").c_str(), nullptr, nullptr));
  for (size_t trial = begin; trial <= recorder.events() + 60; ++trial) {
    const size_t moment = std::min(trial, recorder.events() - 5);
    recorder.PowerLoss(moment, random, after);
    RestartMachine();
    isam_rebuild((after + ".dat").c_str(), nullptr, nullptr);
    ASSERT_EQ("", Verify(after, model_)) << "event " << moment - begin;
  }
}

// Each step of growth is written and flushed by whoever changes the table.
TEST_F(Damage, AHeaderCannotDemandADiskFullOfZeros) {
  isam::Layout large = layout();
  large.data_extension = large.index_extension = 64 << 20;
  Files files = good_;
  isam::EncodeHeader(large, isam::FileKind::kIndex, files.Raw(kIdx));
  isam::EncodeHeader(large, isam::FileKind::kData, files.Raw(kDat));
  Lay(files);
  const int file = Open(name_);
  for (uint32_t n = 100; n < 500; ++n)
    ASSERT_EQ(0, Do(file, {Op::kAdd, 0, Sample(n)}, model_));
  CLRFIL(file);
  EXPECT_EQ("", Verify(name_, model_));
  for (const char* extension : kFiles)
    EXPECT_LT(std::filesystem::file_size(name_ + extension), 3u << 20);
}

// A few bytes that speak of four thousand million slots take no memory for
// them, and no time; nor do the holes that the files may have instead, nor the
// ring, which each of thousands of bad slots could have read again.
TEST_F(Damage, WorkIsBoundedByWhatTheFilesHold) {
  constexpr uint32_t kMany = 40'000'000, kMost = 0xfffffffe, kBad = 20'000;
  constexpr char kShort[] = "the files are shorter than the root page says\n";
  constexpr char kHoles[] =
      "the files have holes where the root page counts data\n";
  constexpr char kHollow[] = "most of the data file is a hole\n";
  const struct {
    const char* what;
    uint32_t slots, pages;  // that the root page claims, if any
    uint32_t size;          // of both files, in slots and pages
    uint32_t record_at;     // a slot that has a record, far off
    const char *found, *rebuilt;
  } kCases[] = {
      {"short", kMost, 0, 0, 0, kShort, ""},
      {"slots of holes", kMany, 0, kMany, 0, kHoles, ""},
      {"pages of holes", 0, kMany, kMany, 0, kHoles, ""},
      {"room in holes", 0, 0, kMany, 0, "", ""},
      {"a record far off", kMany, 0, kMany, kMany, kHoles, kHollow},
      {"bad slots and a bad ring", kBad, 0, 0, 0, nullptr, nullptr},
  };
  const auto lay = [&](const auto& test) {
    Files files = good_;
    isam::Root root = table_->root;
    if (test.slots > 0) root.slots_used = root.slots_capacity = test.slots;
    if (test.pages > 0) root.pages_used = root.pages_capacity = test.pages;
    PutRoot(root, &files);
    if (test.slots == kBad) {
      files.bytes[kDat].resize(isam::kRingOffset);
      files.bytes[kDat].resize(
          static_cast<size_t>(layout().slot_offset(kBad + 1)), 'x');
    }
    Lay(files);
    if (test.size == 0) return;
    std::filesystem::resize_file(
        name_ + ".dat",
        static_cast<size_t>(layout().slot_offset(test.size + 1)));
    std::filesystem::resize_file(
        name_ + ".idx",
        static_cast<size_t>(layout().page_offset(test.size + 1)));
    if (test.record_at == 0) return;
    std::fstream dat(name_ + ".dat",
                     std::ios::in | std::ios::out | std::ios::binary);
    dat.seekp(layout().slot_offset(test.record_at));
    dat << "something";
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.what);
    const auto begin = std::chrono::steady_clock::now();
    lay(test);
    Use();
    lay(test);
    std::string found, rebuilt;
    EXPECT_EQ(test.found == nullptr || *test.found != '\0' ? kIsamDamaged : 0,
              Check(&found));
    if (test.found != nullptr) {
      EXPECT_EQ(test.found, found);
      EXPECT_EQ(*test.rebuilt != '\0' ? kIsamDamaged : 0, Rebuild(&rebuilt));
      EXPECT_EQ(test.rebuilt, rebuilt);
      EXPECT_EQ("", rebuilt.empty() ? Verify(name_, model_) : "");
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin,
              std::chrono::seconds(2));
  }
}

TEST_F(Damage, ARebuildThatDiesOrFailsIsDoneAgain) {
  Lay(good_);
  Faults counting;
  ASSERT_EQ(0, Rebuild());
  const int calls = counting.calls();
  for (const auto mode : {Faults::kKill, Faults::kFailOnce}) {
    for (int at = 1; at <= calls; at += at < 40 || at > calls - 40 ? 1 : 7) {
      SCOPED_TRACE(testing::Message() << "mode " << mode << " at call " << at);
      Lay(good_);
      const int status = InChild([&] {
        Faults fault(mode, at, EIO);
        return Rebuild() != 0 ? 1 : 0;
      });
      Faults none;
      RestartMachine();
      const std::string left = Verify(name_, model_);
      EXPECT_TRUE(left.empty() ||
                  (status != 0 && left.find("610") != std::string::npos))
          << left;
      ASSERT_EQ(0, Rebuild());
      ASSERT_EQ("", Verify(name_, model_));
    }
  }
}

// Creation that dies at any call leaves nothing, something that the next
// creator takes over, or a whole table.
TEST(Creation, DeathAndFailureAtEveryCall) {
  Started started;
  TempDir dir;
  const std::string name = dir / "book";
  Faults counting;
  ASSERT_EQ(0, Create(name));
  const int calls = counting.calls();
  for (const auto mode : {Faults::kKill, Faults::kFailOnce}) {
    for (int at = 1; at <= calls; ++at) {
      SCOPED_TRACE(testing::Message() << "mode " << mode << " at call " << at);
      for (const char* extension : kFiles)
        std::filesystem::remove(name + extension);
      const int status = InChild([&] {
        Faults fault(mode, at, ENOSPC);
        return Create(name) != 0 ? 1 : 0;
      });
      Faults none;
      EXPECT_FALSE(mode == Faults::kFailOnce && status == 1 &&
                   std::filesystem::exists(name + ".idx"));
      const int file = Open(name, kIsamRead);
      EXPECT_EQ(file < 0 ? kIsamNoFile : 0, file < 0 ? isam_err : CLRFIL(file));
      EXPECT_EQ(file < 0 ? 0 : kIsamDataExists, Create(name));
      EXPECT_EQ("", Verify(name, {}));
    }
  }
}

}  // namespace
