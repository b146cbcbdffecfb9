// A good table of the store, damaged, and then used. The input is a list of
// edits and a list of operations. Reading gives records that were once stored,
// or an error; with forged checksums it may give others. Whatever the files
// hold, every operation ends, and a rebuild that succeeds leaves a table
// without a fault.
//
// The files are in memory, under the store's table of system calls.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "db/db.h"
#include "fuzz/check.h"
#include "fuzz/input.h"
#include "isam/isam.h"
#include "isam/isbytes.h"
#include "isam/isformat.h"
#include "isam/ispage.h"
#include "isam/issys.h"
#include "kx/object.h"

namespace {

// ---- Two files in memory ----

constexpr int kFirstFd = 1 << 20;  // no descriptor of the process: close fails
constexpr std::size_t kMostBytes = 2 << 20;
constexpr std::size_t kBlock = 4096;

struct File {
  bool exists = false;
  std::vector<uint8_t> bytes;
  std::vector<bool> dirty;  // by blocks, since Restore

  void Touch(std::size_t from, std::size_t to) {
    for (std::size_t b = from / kBlock; b * kBlock < to; ++b) dirty[b] = true;
  }
};

enum { kIdx, kDat };
File g_files[2];
uint8_t g_boot_id[16] = {1};

File& FileOf(int fd) { return g_files[fd - kFirstFd]; }

int MemOpen(const char* path, int flags, mode_t) {
  const std::string name = path;
  const int which = name.ends_with(".idx") ? kIdx : kDat;
  File& file = g_files[which];
  if (!file.exists && (flags & O_CREAT) == 0) return errno = ENOENT, -1;
  if (file.exists && (flags & O_EXCL) != 0) return errno = EEXIST, -1;
  if ((flags & O_TRUNC) != 0) file.bytes.clear();
  file.exists = true;
  return kFirstFd + which;
}

ssize_t MemRead(int fd, void* buf, std::size_t size, off_t offset) {
  const File& file = FileOf(fd);
  const auto at = static_cast<std::size_t>(offset);
  if (at >= file.bytes.size()) return 0;
  const std::size_t count = std::min(size, file.bytes.size() - at);
  std::memcpy(buf, file.bytes.data() + at, count);
  return static_cast<ssize_t>(count);
}

int Resize(File* file, std::size_t size) {
  if (size > kMostBytes) return errno = ENOSPC, -1;
  file->Touch(std::min(size, file->bytes.size()),
              std::max(size, file->bytes.size()));
  file->bytes.resize(size);
  return 0;
}

int MemWrite(int fd, const void* buf, std::size_t size, off_t offset) {
  File& file = FileOf(fd);
  const auto at = static_cast<std::size_t>(offset);
  if (at > kMostBytes || size > kMostBytes - at) return errno = ENOSPC, -1;
  if (at + size > file.bytes.size()) Resize(&file, at + size);
  std::memcpy(file.bytes.data() + at, buf, size);
  file.Touch(at, at + size);
  return 0;
}

int MemTruncate(int fd, off_t size) {
  return Resize(&FileOf(fd), static_cast<std::size_t>(size));
}

int MemStat(int fd, struct stat* st) {
  *st = {};
  st->st_nlink = FileOf(fd).exists ? 1 : 0;
  st->st_size = static_cast<off_t>(FileOf(fd).bytes.size());
  return 0;
}

// No holes.
off_t MemSeek(int fd, off_t offset, int whence) {
  const auto size = static_cast<off_t>(FileOf(fd).bytes.size());
  if (offset >= size) return errno = ENXIO, -1;
  return whence == SEEK_DATA ? offset : size;
}

int MemUnlink(const char* path) {
  g_files[std::string(path).ends_with(".idx") ? kIdx : kDat].exists = false;
  return 0;
}

int MemRandom(void* buf, std::size_t size) {
  std::memset(buf, 0x5a, size);
  return 0;
}

constexpr isam::Sys kMemory = {
    .open = MemOpen,
    .read = MemRead,
    .write = MemWrite,
    .sync = [](int) { return 0; },
    .sync_full = [](int) { return 0; },
    .truncate = MemTruncate,
    .chmod = [](int, mode_t) { return 0; },
    .stat = MemStat,
    .seek = MemSeek,
    .unlink = MemUnlink,
    .lock = [](int, int, off_t, off_t) { return 0; },
    .is_locked = [](int, off_t) { return 0; },
    .boot_id = []() -> const uint8_t* { return g_boot_id; },
    .random = MemRandom,
    .lock_wait_ms = 0};

// ---- The good table ----

// Long keys: nine fill a page.
constexpr int kAlias = 8, kName = 200;
constexpr int kRecord = 4 + kAlias + kName;
constexpr int kIndexes = 3;
constexpr const char* kPath = "book.dat";
constexpr int kRecords = 24, kPassing = 18;

constexpr db_field kFields[] = {
    {"palias", "ali", "", kx_typ_str, kAlias, 0, nullptr, nullptr},
    {"lname", "nam", "", kx_typ_str, kName, kAlias, nullptr, nullptr},
    {},
};
constexpr db_key kKeys[] = {{1, 1, {0}}, {0, 1, {1}}, {-1, 0, {}}};

using Record = std::array<uint8_t, kRecord>;

Record Sample(int n) {
  Record record = {};
  char* text = reinterpret_cast<char*>(record.data()) + 4;
  std::snprintf(text, kAlias, "a%d", n * 7 % 100);
  std::snprintf(text + kAlias, kName, "%c-%d", 'k' + n % 5, n % 9);
  return record;
}

struct Base {
  std::vector<uint8_t> bytes[2];
  isam::Layout layout;
  std::set<Record> stored;  // every record that there ever was
  int64_t count;

  Base();
};

const Base& Good() {
  static const Base base;
  return base;
}

Base::Base() {
  isam::g_sys = kMemory;
  for (File& file : g_files) file.dirty.resize(kMostBytes / kBlock + 1);
  CHECK(db_create(kPath, kFields, kKeys) == 0 && db_init() == 0);
  const int file = OPNRFIL(-1, kPath, kIsamUpdate);
  CHECK(file >= 0);
  for (int n = 0; n < kRecords; ++n) {
    Record record = Sample(n);
    CHECK(ADDREC(file, record.data()) == 0);
    stored.insert(record);
    if (n % 8 == 5) CHECK(DELREC(file) == 0);
    if (n % 8 != 3) continue;
    record = Sample(n + 50);
    CHECK(RWTREC(file, record.data()) == 0);
    stored.insert(record);
  }
  // The last names, deleted again, leave free pages behind.
  for (int n = 0; n < kPassing; ++n) {
    Record record = {};
    const std::string alias = "z" + std::to_string(n);
    const std::string name = "z-" + std::to_string(n);
    alias.copy(reinterpret_cast<char*>(record.data()) + 4, kAlias);
    name.copy(reinterpret_cast<char*>(record.data()) + 4 + kAlias, kName);
    CHECK(ADDREC(file, record.data()) == 0);
    stored.insert(record);
  }
  Record last;
  for (int n = 0; n < kPassing; ++n) {
    CHECK(LSTREC(file + 3, last.data()) == 0 && DELREC(file) == 0);
  }
  count = DATENT(file);
  CHECK(isam_check(kPath, nullptr, nullptr) == 0);
  CHECK(db_end() == 0);
  for (int i = 0; i < 2; ++i) bytes[i] = g_files[i].bytes;
  CHECK(isam::DecodeHeader(bytes[kIdx].data(), isam::FileKind::kIndex,
                           &layout) == kIsamOk);
}

void Restore() {
  g_boot_id[0] = 1;
  for (int i = 0; i < 2; ++i) {
    const std::vector<uint8_t>& good = Good().bytes[i];
    File& file = g_files[i];
    file.exists = true;
    file.bytes.resize(good.size());
    for (std::size_t b = 0; b < file.dirty.size(); ++b) {
      const std::size_t at = b * kBlock;
      if (!file.dirty[b]) continue;
      file.dirty[b] = false;
      if (at >= good.size()) continue;
      std::memcpy(file.bytes.data() + at, good.data() + at,
                  std::min(kBlock, good.size() - at));
    }
  }
}

// ---- Damage ----

struct Damage {
  int edits = 0;
  bool forged = false;  // checksums were made to fit
};

// A block of one of the files, and how to make its checksum fit.
struct Block {
  int file;
  std::size_t at, size;
  void (*seal)(uint8_t* block, std::size_t size, uint32_t number);
};

void SealHeader(uint8_t* p, std::size_t size, uint32_t) {
  const uint64_t salt = isam::Get64(p + isam::header_at::kSalt);
  constexpr auto kFrom = isam::header_at::kVersion;
  isam::Put64(p + isam::header_at::kChecksum,
              isam::Checksum(p + kFrom, size - kFrom, salt));
}

void SealPlain(uint8_t* p, std::size_t size, uint32_t) {
  isam::Put64(p, isam::Checksum(p + 8, size - 8, Good().layout.salt));
}

void SealPage(uint8_t* p, std::size_t, uint32_t) {
  const isam::Layout& layout = Good().layout;
  const bool fits = isam::TypeOfPage(p) == isam::PageType::kFree ||
                    (isam::PageIndex(p) < layout.index_count &&
                     isam::PageBytes(p, layout) <= isam::kPageSize);
  if (fits) isam::SealPage(p, layout, isam::PageCommit(p));
}

void SealSlot(uint8_t* p, std::size_t, uint32_t number) {
  isam::SealSlot(p, number, Good().layout);
}

void SealEntry(uint8_t* p, std::size_t size, uint32_t) {
  const uint32_t length = isam::Get32(p + isam::entry_at::kLength);
  if (length < isam::kEntryHeader || length > size) return;
  constexpr auto kFrom = isam::entry_at::kSalt;
  isam::Put64(p + isam::entry_at::kChecksum,
              isam::Checksum(p + kFrom, length - kFrom, Good().layout.salt));
}

void SealNothing(uint8_t*, std::size_t, uint32_t) {}

Block Choose(unsigned kind, uint32_t number) {
  const isam::Layout& layout = Good().layout;
  switch (kind % 9) {
    case 0:
      return {kIdx, 0, isam::kHeaderSize, SealHeader};
    case 1:
      return {kIdx, isam::kStateOffset, isam::kStateSize, SealPlain};
    case 2:
      return {kIdx, isam::kRootOffset, isam::kRootSize, SealPlain};
    case 3:
      return {kIdx, static_cast<std::size_t>(isam::Layout::page_offset(number)),
              isam::kPageSize, SealPage};
    case 4:
      return {kDat, 0, isam::kHeaderSize, SealHeader};
    case 5:
      return {kDat, isam::kFieldsOffset, isam::kFieldsSize, SealPlain};
    case 6:
      return {kDat, static_cast<std::size_t>(layout.slot_offset(number)),
              layout.slot_size(), SealSlot};
    case 7: {
      // The entries follow each other at multiples of a sector.
      const std::size_t at = (number - 1) * isam::kSector;
      return {kDat, isam::kRingOffset + at, layout.ring_size - at, SealEntry};
    }
    default:
      return {number % 2 == 0 ? kIdx : kDat, 0, Good().bytes[number % 2].size(),
              SealNothing};
  }
}

// One edit: a number put somewhere in a block, a file cut or taken away.
void Edit(fuzz::Input* in, Damage* damage) {
  const unsigned kind = in->Byte();
  const uint32_t number = 1 + in->Byte();
  const std::size_t offset = in->Number(3);
  const unsigned width = 1 + in->Byte() % 4;
  const auto value = static_cast<uint32_t>(in->Number(4));
  ++damage->edits;
  if (kind % 16 == 15) {
    File& file = g_files[number % 2];
    file.exists = value % 2 == 0;
    if (file.exists) Resize(&file, offset % (file.bytes.size() + 1));
    return;
  }
  const Block block = Choose(kind % 16, number);
  File& file = g_files[block.file];
  if (block.at >= file.bytes.size()) return;
  const std::size_t size = std::min(block.size, file.bytes.size() - block.at);
  uint8_t* bytes = file.bytes.data() + block.at;
  for (std::size_t i = 0; i < width; ++i) {
    bytes[(offset + i) % size] = static_cast<uint8_t>(value >> 8 * i);
  }
  file.Touch(block.at, block.at + size);
  // Two edits are eight bytes at the most: a checksum, but nothing beside it.
  if (damage->edits > 2) damage->forged = true;
  if (kind < 128 || size < block.size) return;
  damage->forged = true;
  block.seal(bytes, size, number);
}

// ---- Use ----

// What a walk may give at the most: no more than there is room for.
constexpr int kMostSteps = 1 << 14;

class User {
 public:
  User(const Damage& damage, fuzz::Input* in) : damage_(damage), in_(in) {}

  void Run() {
    for (int left = 8; left > 0 && !in_->empty(); --left) Step(in_->Byte());
    if (file_ >= 0) CLRFIL(file_);
  }

 private:
  void Step(unsigned what) {
    const int index = file_ + 1 + static_cast<int>(what / 16 % kIndexes);
    switch (what % 16) {
      case 0:
      case 1:
        return Open(what % 2 == 0 ? kIsamUpdate : kIsamRead);
      case 2:
        return Walk(index, FRSREC, NXTREC);
      case 3:
        return Walk(index, LSTREC, PRVREC);
      case 4:
        return Find(index, EQLREC);
      case 5:
        return Find(index, GTEREC);
      case 6:
        Put(Sample(60 + static_cast<int>(what / 16)));
        return Change(ADDREC(file_, record_.data()));
      case 7:
        Put(Sample(80 + static_cast<int>(what / 16)));
        return Change(RWTREC(file_, record_.data()));
      case 8:
        return Change(DELREC(file_));
      case 9:
        return Describe();
      case 10:
        Check();
        return;
      case 11:
        return Rebuild();
      case 12:
        return RestartMachine();
      case 13:
        return Take((what & 128 ? NXTREC : PRVREC)(index, record_.data()));
      case 14:
        return UseRecords(what & 16 ? kx_pbm_write : kx_pbm_read);
      default:
        LKISAM(what & 16 ? kIsamEnableLocks : kIsamFreeLocks);
    }
  }

  void Open(int mode) {
    if (file_ >= 0) CLRFIL(file_);
    file_ = OPNRFIL(-1, kPath, mode);
    // Forged headers may name another length, and a caller asks for it.
    record_ = std::vector<uint8_t>(static_cast<std::size_t>(
        std::max(kRecord, GETFIL(file_, kIsamRecordLength))));
  }

  void Put(const Record& record) {
    std::copy(record.begin(), record.end(), record_.begin());
  }

  void Change(int code) { changed_ |= code == 0; }

  // Whatever the damage, a record that is given was stored once: the checksums
  // see to that.
  void Take(int code) const {
    if (code != 0 || damage_.forged || changed_) return;
    Record record;
    std::copy_n(record_.begin(), kRecord, record.begin());
    CHECK(Good().stored.count(record) == 1);
  }

  void Walk(int index, int (*first)(int, void*), int (*next)(int, void*)) {
    int64_t steps = 0;
    int code = first(index, record_.data());
    for (; code == 0; code = next(index, record_.data())) {
      CHECK(++steps < kMostSteps);
      Take(code);
    }
    const bool whole = code == kIsamNotFound && damage_.edits <= 1 &&
                       !damage_.forged && !changed_;
    CHECK(!whole || steps == Good().count);
  }

  void Find(int index, int (*find)(int, const void*, void*)) {
    uint8_t key[kIsamMaxKey] = {};
    for (int i = 0; i < 8; ++i) key[i] = static_cast<uint8_t>(in_->Byte());
    Take(find(index, key, record_.data()));
  }

  void Describe() const {
    alignas(IFIL) char buffer[4096];
    const int used = GETIFIL(file_, sizeof buffer, buffer);
    CHECK(used <= static_cast<int>(sizeof buffer));
    DODA fields[kIsamMaxFields];
    CHECK(GETDODA(file_, sizeof fields, fields, kIsamAllFields) <=
          static_cast<int>(sizeof fields));
    GETFIL(file_, kIsamRecordLength);
    DATENT(file_);
  }

  // The same table one layer up, as objects.
  void UseRecords(int mode) {
    db_handle* db = db_open(kPath, mode, nullptr);
    if (db == nullptr) return;
    db_same_layout(db, kFields, kKeys);
    kx::Object person = kx::Build("obj-person");
    for (int key = 0; key <= db->key_count; ++key) {
      int steps = 0;
      db->current = 0;
      while (db_get_obj(db, key, person.get(), kx_pbc_next, nullptr) == 0) {
        CHECK(++steps < kMostSteps);
      }
    }
    kx::SetText(person.get(), "palias", "new");
    Change(mode == kx_pbm_write ? db_add_obj(db, person.get()) : -1);
    db_close(db);
  }

  static int Check() {
    return isam_check(
        kPath, [](void*, const char* line) { CHECK(std::strlen(line) < 200); },
        nullptr);
  }

  // Nobody else may have the table open.
  void Rebuild() {
    if (file_ >= 0) CLRFIL(file_);
    file_ = -1;
    if (isam_rebuild(kPath, nullptr, nullptr) != 0) return;
    changed_ = true;
    CHECK(Check() == 0);
    Open(kIsamRead);
    CHECK(file_ >= 0);
    for (int index = file_ + 1; index <= file_ + kIndexes; ++index) {
      int64_t steps = 0;
      int code = FRSREC(index, record_.data());
      // Forged headers may name fewer indexes, but that of the serial numbers.
      if (code == kIsamBadNumber && index > file_ + 1) break;
      for (; code == 0; code = NXTREC(index, record_.data())) ++steps;
      CHECK(code == kIsamNotFound && steps == DATENT(file_));
    }
  }

  void RestartMachine() { ++g_boot_id[0]; }

  const Damage& damage_;
  fuzz::Input* in_;
  int file_ = -1;
  std::vector<uint8_t> record_ = std::vector<uint8_t>(kRecord);
  bool changed_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  Good();
  Restore();
  fuzz::Input in(data, size);
  Damage damage;
  for (unsigned left = in.Byte() % 5; left > 0; --left) Edit(&in, &damage);
  CHECK(db_init() == 0);
  User(damage, &in).Run();
  CHECK(db_end() == 0);
  return 0;
}
