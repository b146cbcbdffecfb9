#include "isam/isam.h"

#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "isam/isbudget.h"
#include "isam/isbytes.h"
#include "isam/ischeck.h"
#include "isam/iscommit.h"
#include "isam/iscreate.h"
#include "isam/isread.h"
#include "isam/issys.h"
#include "isam/istable.h"
#include "isam/isupdate.h"
#include "util/kutguard.h"

int isam_err = 0;

namespace {

using isam::NewTable;
using isam::Step;
using isam::Table;

// A table's numbers are slot * kStride for the file and the following ones for
// its indexes.
constexpr int kStride = 2 * kIsamMaxIndexes;
constexpr int kMostFiles = 64;
constexpr std::string_view kExtension = ".dat";

struct OpenFile {
  std::unique_ptr<Table> table;
  std::unique_ptr<NewTable> fresh;  // between CREIFIL and CLIFIL
};

struct Store {
  int files;
  bool locks_enabled;
  OpenFile open[kMostFiles];
};

constinit Store* g_store = nullptr;

int Fail(isam_code code) {
  isam_err = code;
  return code;
}

// Runs the body of a public function: no exception leaves it, and a failure is
// left in isam_err.
template <typename Body>
int Guarded(Body body) {
  if (g_store == nullptr) return Fail(kIsamNotStarted);
  isam_code code;
  try {
    code = Kut_guarded(body, [] { return kIsamNoMemory; });
  } catch (...) {
    code = kIsamIo;
  }
  return code == kIsamOk ? 0 : Fail(code);
}

Table* FindTable(int datno) {
  if (datno < 0 || datno % kStride != 0 || datno / kStride >= kMostFiles)
    return nullptr;
  return g_store->open[datno / kStride].table.get();
}

NewTable* FindNew(int datno) {
  if (datno < 0 || datno % kStride != 0 || datno / kStride >= kMostFiles)
    return nullptr;
  return g_store->open[datno / kStride].fresh.get();
}

template <typename Body>
int WithTable(int datno, Body body) {
  return Guarded([&] {
    Table* table = FindTable(datno);
    if (table == nullptr) return kIsamBadNumber;
    return isam::IsTimeUp() ? kIsamTooLong : body(*table);
  });
}

int FreeNumber() {
  for (int i = 0; i < g_store->files; ++i)
    if (!g_store->open[i].table && !g_store->open[i].fresh) return i * kStride;
  return -1;
}

void CloseTable(std::unique_ptr<Table>& table) {
  // The last descriptor takes the lock with it. Unlocking would free it for a
  // parent that shares the open file as well.
  table->writer.Forget();
  table.reset();
}

// The name without extension, or empty when `path` is not one of a data file.
std::string TableName(const char* path) {
  const std::string_view name(
      path, path == nullptr ? 0 : strnlen(path, kIsamMaxPath + 1));
  if (name.size() <= kExtension.size() || name.size() > kIsamMaxPath ||
      !name.ends_with(kExtension))
    return {};
  return std::string(name.substr(0, name.size() - kExtension.size()));
}

int ReadAny(int keyno, Step step, const void* key, void* record) {
  const bool needs_key = step == Step::kEqual || step == Step::kGreaterEqual;
  return Guarded([&] {
    if (keyno <= 0 || keyno % kStride == 0) return kIsamBadNumber;
    Table* table = FindTable(keyno - keyno % kStride);
    const auto index = static_cast<uint32_t>(keyno % kStride - 1);
    if (table == nullptr || index >= table->layout.index_count)
      return kIsamBadNumber;
    if (needs_key && key == nullptr) return kIsamBadArgument;
    if (isam::IsTimeUp()) return kIsamTooLong;
    return ReadStep(*table, index, step, static_cast<const uint8_t*>(key),
                    static_cast<uint8_t*>(record));
  });
}

// Hands out aligned pieces of a caller's buffer; null when it is used up.
class Pieces {
 public:
  Pieces(void* buffer, int size)
      : at_(static_cast<char*>(buffer)), left_(size > 0 ? size : 0) {}

  template <typename T>
  T* Take(size_t count) {
    const size_t bytes =
        (sizeof(T) * count + alignof(IFIL) - 1) / alignof(IFIL) * alignof(IFIL);
    if (bytes > static_cast<size_t>(left_)) return nullptr;
    char* piece = at_;
    at_ += bytes;
    left_ -= static_cast<int>(bytes);
    return new (piece) T[count];
  }
  int left() const { return left_; }

 private:
  char* at_;
  int left_;
};

bool DescribeIndex(const isam::Index& from, Pieces& pieces, IIDX* to) {
  auto* segments = pieces.Take<ISEG>(from.segment_count);
  if (segments == nullptr) return false;
  for (uint32_t s = 0; s < from.segment_count; ++s) {
    const isam::Segment& segment = from.segments[s];
    segments[s] = {segment.offset, segment.length, segment.mode};
  }
  *to = {.key_length = static_cast<int>(from.key_length),
         .duplicates = from.duplicates ? 1 : 0,
         .segment_count = static_cast<int>(from.segment_count),
         .segments = segments};
  return true;
}

isam_code Describe(const Table& table, int datno, Pieces& pieces) {
  const isam::Layout& layout = table.layout;
  auto* head = pieces.Take<IFIL>(1);
  auto* indexes = pieces.Take<IIDX>(layout.index_count);
  char* name = pieces.Take<char>(table.name.size() + 1);
  if (head == nullptr || indexes == nullptr || name == nullptr)
    return kIsamBadArgument;
  memcpy(name, table.name.c_str(), table.name.size() + 1);
  *head = {.name = name,
           .file_no = datno,
           .record_length = static_cast<int>(layout.record_length),
           .data_extension = static_cast<int>(layout.data_extension),
           .data_mode = static_cast<int>(layout.data_mode),
           .index_count = static_cast<int>(layout.index_count),
           .index_extension = static_cast<int>(layout.index_extension),
           .index_mode = static_cast<int>(layout.index_mode),
           .indexes = indexes};
  for (uint32_t i = 0; i < layout.index_count; ++i)
    if (!DescribeIndex(layout.index[i], pieces, &indexes[i]))
      return kIsamBadArgument;
  return kIsamOk;
}

isam_code OpenAny(const char* path, int mode, int* number) {
  if (mode != kIsamUpdate && mode != kIsamRead) return kIsamBadArgument;
  const std::string name = TableName(path);
  if (name.empty()) return kIsamBadArgument;
  *number = FreeNumber();
  if (*number < 0) return kIsamTooManyFiles;
  if (isam::IsTimeUp()) return kIsamTooLong;
  std::unique_ptr<Table> table;
  if (isam_code code = isam::OpenTable(name, mode == kIsamUpdate, &table))
    return code;
  // Somebody died, or the machine was started anew: mended at once if nobody
  // else is at it. If that fails, reading goes by the ring, and a change fails.
  if (mode == kIsamUpdate && !table->current &&
      table->writer.TryWriter(table->idx.get()) == kIsamOk) {
    const isam::WriteScope scope{*table};
    (void)isam::BeginWrite(*table);
  }
  g_store->open[*number / kStride].table = std::move(table);
  return kIsamOk;
}

}  // namespace

int INTISAM(int, int files, int) {
  if (g_store != nullptr || files < 1 || files > kMostFiles)
    return Fail(kIsamBadArgument);
  g_store = new (std::nothrow) Store();
  if (g_store == nullptr) return Fail(kIsamNoMemory);
  g_store->files = files;
  return 0;
}

int CLISAM() {
  if (g_store == nullptr) return 0;
  for (OpenFile& file : g_store->open) {
    if (file.table) CloseTable(file.table);
    if (file.fresh) {
      file.fresh->ours = false;
      file.fresh->lock.Forget();
    }
  }
  delete g_store;
  g_store = nullptr;
  return 0;
}

isam_budget isam_swap_budget(const isam_budget& next) {
  return isam::SwapBudget(next);
}

void isam_set_folder(int dirfd, unsigned file_mode) {
  isam::SetFolder(dirfd, file_mode);
}

int isam_remove(const char* path) {
  return isam::g_sys.unlink(path) == 0 ? 0 : Fail(isam::CodeFromErrno());
}

int CREIFIL(IFIL* description) {
  return Guarded([&] {
    if (description == nullptr || description->name == nullptr ||
        description->name[0] == '\0' ||
        strnlen(description->name, kIsamMaxPath) >
            kIsamMaxPath - kExtension.size())
      return kIsamBadArgument;
    isam::Layout layout;
    if (isam_code code = isam::MakeLayout(*description, &layout)) return code;
    const int number = FreeNumber();
    if (number < 0) return kIsamTooManyFiles;
    const isam_code code = isam::BeginTable(
        description->name, layout, &g_store->open[number / kStride].fresh);
    if (code == kIsamOk) description->file_no = number;
    return code;
  });
}

int CLIFIL(const IFIL* description) {
  return Guarded([&] {
    if (description == nullptr) return kIsamBadArgument;
    if (FindNew(description->file_no) == nullptr) return kIsamBadNumber;
    auto& fresh = g_store->open[description->file_no / kStride].fresh;
    const isam_code code = isam::FinishTable(*fresh);
    fresh.reset();
    return code;
  });
}

int PUTDODA(int datno, const DODA* fields, int count) {
  return Guarded([&] {
    NewTable* fresh = FindNew(datno);
    if (fresh == nullptr) return kIsamBadNumber;
    if (count < 0 || count > kIsamMaxFields || (fields == nullptr && count > 0))
      return kIsamBadArgument;
    return isam::WriteFields(*fresh, fields, count);
  });
}

int OPNRFIL(int datno, const char* path, int mode) {
  int number = -1;
  const int code = Guarded([&] {
    return datno == -1 ? OpenAny(path, mode, &number) : kIsamBadArgument;
  });
  return code == 0 ? number : -1;
}

int CLRFIL(int datno) {
  return Guarded([&] {
    if (FindTable(datno) == nullptr) return kIsamBadNumber;
    CloseTable(g_store->open[datno / kStride].table);
    return kIsamOk;
  });
}

int GETIFIL(int datno, int size, void* buffer) {
  Pieces pieces(buffer, size);
  const int code = WithTable(datno, [&](Table& table) {
    return buffer == nullptr ? kIsamBadArgument
                             : Describe(table, datno, pieces);
  });
  return code == 0 ? size - pieces.left() : -1;
}

int GETDODA(int datno, int size, void* buffer, int mode) {
  int used = 0;
  const int code = WithTable(datno, [&](Table& table) {
    if (mode != kIsamAllFields || buffer == nullptr) return kIsamBadArgument;
    std::vector<uint8_t> bytes(isam::kFieldsSize);
    const isam_code read = isam::ReadAt(table.dat.get(), bytes.data(),
                                        bytes.size(), isam::kFieldsOffset);
    if (read != kIsamOk) return read;
    DODA fields[kIsamMaxFields];
    const int count =
        isam::DecodeFields(bytes.data(), table.layout.salt, fields);
    if (count < 0) return kIsamDamaged;
    used = count * static_cast<int>(sizeof(DODA));
    if (used > size) return kIsamBadArgument;
    memcpy(buffer, fields, static_cast<size_t>(used));
    return kIsamOk;
  });
  return code == 0 ? used : 0;
}

int GETFIL(int datno, int mode) {
  int length = -1;
  WithTable(datno, [&](Table& table) {
    if (mode != kIsamRecordLength) return kIsamBadArgument;
    length = static_cast<int>(table.layout.record_length);
    return kIsamOk;
  });
  return length;
}

int64_t DATENT(int datno) {
  int64_t records = -1;
  const int code = WithTable(datno, [&](Table& table) {
    return isam::ReadConsistently(table, [&] {
      records = static_cast<int64_t>(table.root.records);
      return kIsamOk;
    });
  });
  return code == 0 ? records : -1;
}

int LKISAM(int mode) {
  return Guarded([&] {
    if (mode != kIsamEnableLocks && mode != kIsamFreeLocks)
      return kIsamBadArgument;
    g_store->locks_enabled = mode == kIsamEnableLocks;
    if (mode == kIsamFreeLocks) {
      for (OpenFile& file : g_store->open)
        if (file.table) isam::EndWrite(*file.table, false);
    }
    return kIsamOk;
  });
}

int isam_lock(int datno) {
  return WithTable(datno, [](Table& table) {
    isam::WriteScope scope{table};
    const isam_code code = isam::BeginWrite(table);
    table.keep_lock = scope.keep = code == kIsamOk;
    return code;
  });
}

int ADDREC(int datno, void* record) {
  return WithTable(datno, [&](Table& table) {
    if (record == nullptr) return kIsamBadArgument;
    return AddRecord(table, static_cast<uint8_t*>(record),
                     g_store->locks_enabled);
  });
}

int RWTREC(int datno, void* record) {
  return WithTable(datno, [&](Table& table) {
    if (record == nullptr) return kIsamBadArgument;
    return RewriteRecord(table, static_cast<uint8_t*>(record),
                         g_store->locks_enabled);
  });
}

int DELREC(int datno) {
  return WithTable(datno, [](Table& table) {
    return DeleteRecord(table, g_store->locks_enabled);
  });
}

int FRSREC(int keyno, void* record) {
  return ReadAny(keyno, Step::kFirst, nullptr, record);
}

int LSTREC(int keyno, void* record) {
  return ReadAny(keyno, Step::kLast, nullptr, record);
}

int NXTREC(int keyno, void* record) {
  return ReadAny(keyno, Step::kNext, nullptr, record);
}

int PRVREC(int keyno, void* record) {
  return ReadAny(keyno, Step::kPrev, nullptr, record);
}

int EQLREC(int keyno, const void* key, void* record) {
  return ReadAny(keyno, Step::kEqual, key, record);
}

int GTEREC(int keyno, const void* key, void* record) {
  return ReadAny(keyno, Step::kGreaterEqual, key, record);
}

uint32_t isam_current(int datno) {
  uint32_t serial = 0;
  WithTable(datno, [&](Table& table) {
    if (table.cursor.present && !table.cursor.deleted)
      serial = isam_serial(table.cursor.record.data());
    return kIsamOk;
  });
  return serial;
}

uint32_t isam_serial(const void* record) {
  return isam::Get32(static_cast<const uint8_t*>(record));
}

void isam_serial_key(uint32_t serial, unsigned char key[4]) {
  isam::Put32Big(key, serial);
}

int isam_check(const char* path, isam_report report, void* context) {
  return Guarded([&] {
    const std::string name = TableName(path);
    return name.empty() ? kIsamBadArgument
                        : isam::CheckTable(name, report, context);
  });
}

int isam_rebuild(const char* path, isam_report report, void* context) {
  return Guarded([&] {
    const std::string name = TableName(path);
    return name.empty() ? kIsamBadArgument
                        : isam::RebuildTable(name, report, context);
  });
}
