// Damaged and hostile files: correct data or an error; rebuilding.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

#include "isam/harness.h"
#include "isam/ispage.h"

namespace {

const char* const kFiles[] = {".idx", ".dat"};

void AppendLine(void* text, const char* line) {
  *static_cast<std::string*>(text) += std::string(line) + "\n";
}

class Damage : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, Fill(base_, 60, model_));
    const int file = Open(base_);
    for (const uint32_t serial : {5u, 17u, 44u})
      ASSERT_EQ(0, Do(file, {Op::kDelete, serial, {}}, model_));
    CLRFIL(file);
    for (int i = 0; i < 2; ++i) bytes_[i] = ReadFile(base_ + kFiles[i]);
    ASSERT_EQ(kIsamOk, isam::OpenTable(base_, false, &table_));
  }

  void Write(const std::string& idx, const std::string& dat) const {
    WriteFile(name_ + ".idx", idx);
    WriteFile(name_ + ".dat", dat);
  }

  // Does everything with the damaged table. With `trusting` it need not notice,
  // only survive.
  void Use(const std::string& what, bool trusting = false) {
    char record[kRecord];
    isam_check((name_ + ".dat").c_str(), nullptr, nullptr);
    const int file = Open(name_);
    if (file < 0) {
      EXPECT_NE(0, isam_err) << what;
      return;
    }
    for (int index = 1; index <= kIndexes; ++index) {
      size_t seen = 0;
      int code = FRSREC(file + index, record);
      for (; code == 0; code = NXTREC(file + index, record)) {
        ASSERT_LE(++seen, 2000u) << what << ": walks for ever";
        const auto it = model_.find(isam_serial(record));
        if (trusting) continue;
        ASSERT_TRUE(it != model_.end() && it->second == FromBytes(record))
            << what << ": wrong data";
      }
      if (code == kIsamNotFound && !trusting) {
        ASSERT_EQ(model_.size(), seen) << what << ": lost records";
      }
      LSTREC(file + index, record);
      PRVREC(file + index, record);
    }
    Model model = model_;
    const int code = Do(file, {Op::kAdd, 0, Sample(800)}, model);
    if (code == 0 && !trusting && EQLREC(file + 1, "\0\0\0\x1", record) == 0) {
      EXPECT_EQ(model_.at(1), FromBytes(record)) << what;
    }
    Do(file, {Op::kDelete, 30, {}}, model);
    Do(file, {Op::kRewrite, 31, Sample(801)}, model);
    CLRFIL(file);
  }

  Started started_;
  Faults faults_;
  TempDir dir_;
  std::string base_ = dir_ / "base", name_ = dir_ / "bad";
  std::string bytes_[2];
  Model model_;
  std::unique_ptr<isam::Table> table_;
};

TEST_F(Damage, AnyByteChanged) {
  std::mt19937 random(3);
  const size_t ring = table_->layout.ring_size;
  for (int trial = 0; trial < 700; ++trial) {
    const int file = static_cast<int>(random() % 2);
    size_t at = random() % bytes_[file].size();
    // Most bytes are the ring's and blank pages': more of the rest.
    if (trial % 3 == 0) at %= isam::kPagesOffset;
    if (trial % 3 == 1 && file == 1) at = at % (isam::kRingOffset + 16384);
    if (trial % 3 == 2 && file == 1 && at < isam::kRingOffset + ring)
      at = isam::kRingOffset + ring + at % 14000;
    if (trial % 2 == 0) RestartMachine();
    std::string changed[2] = {bytes_[0], bytes_[1]};
    changed[file][at] = static_cast<char>(
        changed[file][at] ^ (1 + static_cast<int>(random() % 255)));
    Write(changed[0], changed[1]);
    Use("byte " + std::to_string(at) + " of " + kFiles[file] +
        (trial % 2 == 0 ? " after a restart" : ""));
    if (HasFatalFailure()) return;
  }
}

TEST_F(Damage, AnyTruncation) {
  for (int file = 0; file < 2; ++file) {
    for (size_t size = 0; size < bytes_[file].size();
         size += size < 9000 ? 500 : 12345) {
      std::string changed[2] = {bytes_[0], bytes_[1]};
      changed[file].resize(size);
      Write(changed[0], changed[1]);
      Use(std::string(kFiles[file]) + " cut at " + std::to_string(size));
      if (HasFatalFailure()) return;
    }
  }
}

// Pages and roots that lie, with checksums that fit: links in circles, counts
// and targets out of range, keys out of order.
TEST_F(Damage, ForgedPages) {
  std::mt19937 random(4);
  const isam::Layout& layout = table_->layout;
  for (int trial = 0; trial < 500; ++trial) {
    std::string idx = bytes_[0];
    auto* raw = reinterpret_cast<uint8_t*>(idx.data());
    std::string what;
    for (int n = 1 + static_cast<int>(random() % 3); n > 0; --n) {
      const auto number =
          static_cast<uint32_t>(1 + random() % table_->root.pages_used);
      uint8_t* page = raw + isam::Layout::page_offset(number);
      const size_t places[] = {20, 21, 22,
                               24, 28, isam::kPageHeader + random() % 900};
      const size_t at = places[random() % 6];
      page[at] = static_cast<uint8_t>(random() % 40);
      what += " page " + std::to_string(number) + " at " + std::to_string(at);
      const bool fits = page[21] < layout.index_count &&
                        isam::PageCount(page) < 200 &&
                        isam::PageBytes(page, layout) <= isam::kPageSize;
      if (fits) isam::SealPage(page, layout, isam::PageCommit(page));
    }
    if (trial % 4 == 0) {
      isam::Root root = table_->root;
      uint32_t* const fields[] = {&root.free_page, &root.free_slot,
                                  &root.tree[0].page, &root.tree[2].depth,
                                  &root.next_serial};
      *fields[random() % 5] = static_cast<uint32_t>(random() % 70);
      isam::EncodeRoot(root, layout.salt, raw + isam::kRootOffset);
      what += ", root";
    }
    Write(idx, bytes_[1]);
    Use(what, true);
    if (HasFatalFailure()) return;
  }
}

TEST_F(Damage, ARebuildMakesAllIndexesFromTheRecords) {
  const struct {
    const char* what;
    std::function<void(std::string* idx, std::string* dat)> harm;
  } kHarms[] = {
      {"nothing", [](std::string*, std::string*) {}},
      {"all index pages",
       [](std::string* idx, std::string*) {
         std::fill(idx->begin() + isam::kPagesOffset, idx->end(), 'x');
       }},
      {"index file", [](std::string* idx, std::string*) { idx->clear(); }},
      {"header of the data file",
       [](std::string*, std::string* dat) { (*dat)[40] ^= 1; }},
      {"ring", [](std::string*,
                  std::string* dat) { (*dat)[isam::kRingOffset + 99] ^= 1; }},
      {"a header with bytes that mean nothing",
       [](std::string*, std::string* dat) {
         auto* header = reinterpret_cast<uint8_t*>(dat->data());
         header[2000] = 1;
         isam::Put64(header + 8,
                     isam::Checksum(header + 16, isam::kHeaderSize - 16,
                                    isam::Get64(header + 24)));
       }},
  };
  for (const auto& harm : kHarms) {
    std::string idx = bytes_[0], dat = bytes_[1];
    harm.harm(&idx, &dat);
    Write(idx, dat);
    RestartMachine();
    ASSERT_EQ(0, isam_rebuild((name_ + ".dat").c_str(), nullptr, nullptr))
        << harm.what;
    Model model = model_;
    ASSERT_EQ("", Verify(name_, model)) << harm.what;
    EXPECT_EQ(0, isam_check((name_ + ".dat").c_str(), nullptr, nullptr))
        << harm.what;
    RestartMachine();
    const int file = Open(name_);
    ASSERT_EQ(0, Do(file, {Op::kAdd, 0, Sample(90)}, model)) << harm.what;
    EXPECT_EQ(61u, isam_current(file)) << harm.what << ": a number came again";
    CLRFIL(file);
    ASSERT_EQ("", Verify(name_, model)) << harm.what;
  }
}

TEST_F(Damage, ARebuildLeavesOutWhatCannotBeKept) {
  std::string dat = bytes_[1];
  const auto slot = [&](uint32_t n) {
    return reinterpret_cast<uint8_t*>(dat.data()) +
           table_->layout.slot_offset(n);
  };
  slot(8)[100] ^= 1;                                      // damaged
  isam::Put32(slot(11) + isam::kSlotHeader, 0xffffffff);  // never given
  isam::SealSlot(slot(11), 11, table_->layout);
  isam::Put32(slot(12) + isam::kSlotHeader, 0);  // nor was this
  isam::SealSlot(slot(12), 12, table_->layout);
  // Record 10 gets the alias of record 9.
  memcpy(slot(10) + isam::kSlotHeader + 4, slot(9) + isam::kSlotHeader + 4,
         kAlias);
  isam::SealSlot(slot(10), 10, table_->layout);
  std::fill(dat.begin() + isam::kRingOffset,
            dat.begin() + table_->layout.slot_offset(1), '\0');
  Write(bytes_[0], dat);
  std::string said;
  ASSERT_EQ(0, isam_rebuild((name_ + ".dat").c_str(), AppendLine, &said));
  EXPECT_EQ(
      "the record in slot 8 is damaged and was left out\n"
      "the record in slot 11 is damaged and was left out\n"
      "the record in slot 12 is damaged and was left out\n"
      "record 10 has a key of record 9 and was left out\n",
      said);
  model_.erase(8);
  model_.erase(10);
  model_.erase(11);
  model_.erase(12);
  EXPECT_EQ("", Verify(name_, model_));
}

// The index file of a table without records is as long as one with them would
// need it.
TEST_F(Damage, ARebuiltTableWithoutRecordsTakesThemAgain) {
  const std::string path = name_ + ".dat";
  Model model;
  ASSERT_EQ(0, Fill(name_, 3, model));
  int file = Open(name_);
  while (!model.empty())
    ASSERT_EQ(0, Do(file, {Op::kDelete, model.begin()->first, {}}, model));
  CLRFIL(file);
  std::filesystem::remove(name_ + ".idx");
  ASSERT_EQ(0, isam_rebuild(path.c_str(), nullptr, nullptr));
  file = Open(name_);
  EXPECT_EQ(0, Do(file, {Op::kAdd, 0, Sample(1)}, model));
  CLRFIL(file);
  EXPECT_EQ("", Verify(name_, model));
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

TEST_F(Damage, AnEmptyTableIsRebuiltToo) {
  const std::string name = dir_ / "empty", path = name + ".dat";
  ASSERT_EQ(0, Create(name));
  WriteFile(name + ".idx", "");
  ASSERT_EQ(0, isam_rebuild(path.c_str(), nullptr, nullptr));
  EXPECT_EQ(0, isam_check(path.c_str(), nullptr, nullptr));
  Model model;
  const int file = Open(name);
  EXPECT_EQ(0, Do(file, {Op::kAdd, 0, Sample(1)}, model));
  CLRFIL(file);
  EXPECT_EQ("", Verify(name, model));
}

// Each step of growth is written and flushed by whoever changes the table.
TEST_F(Damage, AHeaderCannotDemandADiskFullOfZeros) {
  isam::Layout layout = table_->layout;
  layout.data_extension = layout.index_extension = 64 << 20;
  std::string bytes[2] = {bytes_[0], bytes_[1]};
  const isam::FileKind kinds[] = {isam::FileKind::kIndex,
                                  isam::FileKind::kData};
  for (int i = 0; i < 2; ++i)
    isam::EncodeHeader(layout, kinds[i],
                       reinterpret_cast<uint8_t*>(bytes[i].data()));
  Write(bytes[0], bytes[1]);
  const int file = Open(name_);
  for (uint32_t n = 100; n < 500; ++n)
    ASSERT_EQ(0, Do(file, {Op::kAdd, 0, Sample(n)}, model_));
  CLRFIL(file);
  EXPECT_EQ("", Verify(name_, model_));
  for (const char* extension : kFiles)
    EXPECT_LT(std::filesystem::file_size(name_ + extension), 3u << 20);
}

// Without them nobody can read the records, whatever the indexes.
TEST_F(Damage, ARebuildNeedsTheFieldDefinitions) {
  std::string dat = bytes_[1], said;
  dat[isam::kFieldsOffset + 20] ^= 1;
  Write(bytes_[0], dat);
  EXPECT_EQ(kIsamDamaged,
            isam_rebuild((name_ + ".dat").c_str(), AppendLine, &said));
  EXPECT_EQ("the field definitions are damaged\n", said);
  EXPECT_EQ(bytes_[0], ReadFile(name_ + ".idx"));
  EXPECT_EQ(dat, ReadFile(name_ + ".dat"));
}

// A few bytes that speak of four thousand million slots take no memory for
// them, and no time; nor do the holes that the files may have instead.
TEST_F(Damage, WorkIsBoundedByWhatTheFilesHold) {
  constexpr uint32_t kMany = 40'000'000, kMost = 0xfffffffe;
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
  };
  const isam::Layout& layout = table_->layout;
  const std::string path = name_ + ".dat";
  const auto lay = [&](const auto& test) {
    std::string idx = bytes_[0];
    isam::Root root = table_->root;
    if (test.slots > 0) root.slots_used = root.slots_capacity = test.slots;
    if (test.pages > 0) root.pages_used = root.pages_capacity = test.pages;
    isam::EncodeRoot(
        root, layout.salt,
        reinterpret_cast<uint8_t*>(idx.data()) + isam::kRootOffset);
    Write(idx, bytes_[1]);
    if (test.size == 0) return;
    std::filesystem::resize_file(
        path, static_cast<size_t>(layout.slot_offset(test.size + 1)));
    std::filesystem::resize_file(
        name_ + ".idx", static_cast<size_t>(layout.page_offset(test.size + 1)));
    if (test.record_at == 0) return;
    std::fstream dat(path, std::ios::in | std::ios::out | std::ios::binary);
    dat.seekp(layout.slot_offset(test.record_at));
    dat << "something";
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.what);
    const auto begin = std::chrono::steady_clock::now();
    lay(test);
    Use(test.what, true);
    lay(test);
    std::string found, rebuilt;
    isam_check(path.c_str(), AppendLine, &found);
    EXPECT_EQ(test.found, found);
    EXPECT_EQ(*test.rebuilt != '\0' ? kIsamDamaged : 0,
              isam_rebuild(path.c_str(), AppendLine, &rebuilt));
    EXPECT_EQ(test.rebuilt, rebuilt);
    if (rebuilt.empty()) {
      EXPECT_EQ("", Verify(name_, model_));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin,
              std::chrono::seconds(2));
  }
}

// Each of thousands of bad slots could have the ring read again, for nothing.
TEST_F(Damage, ABadRingIsReadOnce) {
  std::string dat = bytes_[1], idx = bytes_[0];
  const isam::Layout& layout = table_->layout;
  constexpr uint32_t kSlots = 20'000;
  isam::Root root = table_->root;
  root.slots_used = root.slots_capacity = kSlots;
  isam::EncodeRoot(root, layout.salt,
                   reinterpret_cast<uint8_t*>(idx.data()) + isam::kRootOffset);
  dat.resize(static_cast<size_t>(layout.slot_offset(kSlots + 1)), 'x');
  std::fill_n(dat.begin() + isam::kRingOffset, layout.ring_size, 'x');
  Write(idx, dat);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(kIsamDamaged,
            isam_check((name_ + ".dat").c_str(), nullptr, nullptr));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
}

TEST_F(Damage, ARebuildThatDiesOrFailsIsDoneAgain) {
  const std::string path = name_ + ".dat";
  int calls = 0;
  {
    Write(bytes_[0], bytes_[1]);
    Faults counting;
    ASSERT_EQ(0, isam_rebuild(path.c_str(), nullptr, nullptr));
    calls = counting.calls();
  }
  for (const auto mode : {Faults::kKill, Faults::kFailOnce}) {
    for (int at = 1; at <= calls; at += at < 40 || at > calls - 40 ? 1 : 7) {
      Write(bytes_[0], bytes_[1]);
      const int status = InChild([&] {
        Faults fault(mode, at, EIO);
        return isam_rebuild(path.c_str(), nullptr, nullptr) != 0 ? 1 : 0;
      });
      Faults none;
      RestartMachine();
      const std::string left = Verify(name_, model_);
      EXPECT_TRUE(left.empty() ||
                  (status != 0 && left.find("610") != std::string::npos))
          << "mode " << mode << " at call " << at << ": " << left;
      ASSERT_EQ(0, isam_rebuild(path.c_str(), nullptr, nullptr)) << at;
      ASSERT_EQ("", Verify(name_, model_)) << "mode " << mode << " at " << at;
    }
  }
}

// Creation that dies at any call leaves nothing, something that the next
// creator takes over, or a whole table.
TEST(Creation, DeathAndFailureAtEveryCall) {
  Started started;
  TempDir dir;
  const std::string name = dir / "book";
  int calls;
  {
    Faults counting;
    ASSERT_EQ(0, Create(name));
    calls = counting.calls();
  }
  for (const auto mode : {Faults::kKill, Faults::kFailOnce}) {
    for (int at = 1; at <= calls; ++at) {
      std::filesystem::remove(name + ".dat");
      std::filesystem::remove(name + ".idx");
      const int status = InChild([&] {
        Faults fault(mode, at, ENOSPC);
        return Create(name) != 0 ? 1 : 0;
      });
      Faults none;
      if (mode == Faults::kFailOnce && status == 1) {
        EXPECT_FALSE(std::filesystem::exists(name + ".idx"))
            << "left by a failure at call " << at;
      }
      if (Open(name, kIsamRead) < 0) {
        EXPECT_EQ(kIsamNoFile, isam_err) << at;
        EXPECT_EQ(0, Create(name)) << at;
      } else {
        EXPECT_EQ(kIsamDataExists, Create(name)) << at;
        CLISAM();
        INTISAM(6, 10, 4);
      }
      EXPECT_EQ("", Verify(name, {})) << at;
    }
  }
}

}  // namespace
