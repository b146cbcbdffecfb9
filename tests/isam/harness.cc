#include "isam/harness.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>

namespace {

const char* const kExtensions[] = {".idx", ".dat"};

// --- The seam ---------------------------------------------------------------

isam::Sys g_real;
Faults::Mode g_mode;
int g_at, g_error, g_calls, g_writes;
bool g_disk_full;
Recorder* g_recorder = nullptr;
uint8_t g_boot_id[16] = {1};

// Counts a call; true when it is to fail. Does not return when it is to kill.
bool Strikes(const std::function<void()>& halfway = nullptr) {
  ++g_calls;
  if (g_mode == Faults::kKill && g_calls == g_at) {
    if (halfway) halfway();
    _exit(kKilled);
  }
  const bool strikes = (g_mode == Faults::kFailOnce && g_calls == g_at) ||
                       (g_mode == Faults::kFailForGood && g_calls >= g_at);
  if (strikes) errno = g_error;
  return strikes;
}

// A call that fails when it is its turn, and otherwise does what it should.
template <auto kCall, typename R, typename... Args>
R Hook(Args... args) {
  return Strikes() ? -1 : (g_real.*kCall)(args...);
}
template <auto kCall, typename R, typename... Args>
void Replace(R (*isam::Sys::*)(Args...)) {
  isam::g_sys.*kCall = Hook<kCall, R, Args...>;
}
template <auto... kCalls>
void ReplaceAll() {
  (Replace<kCalls>(kCalls), ...);
}

int HookWrite(int fd, const void* buf, size_t size, off_t offset) {
  ++g_writes;
  // Death ends a write at a page boundary at best, never within a sector.
  const auto half = [&] { g_real.write(fd, buf, size / 1024 * 512, offset); };
  if (Strikes(half)) return -1;
  struct stat st;
  fstat(fd, &st);
  if (g_disk_full && offset + static_cast<off_t>(size) > st.st_size) {
    errno = ENOSPC;
    return -1;
  }
  if (g_recorder != nullptr && g_recorder->FileOf(fd) >= 0)
    g_recorder->Note({g_recorder->FileOf(fd), offset,
                      std::string(static_cast<const char*>(buf), size),
                      Recorder::kWrite});
  return g_real.write(fd, buf, size, offset);
}

int HookSync(int fd) {
  if (Strikes()) return -1;
  if (g_recorder == nullptr || g_recorder->FileOf(fd) < 0) return 0;
  const bool fails = g_recorder->FlushFails();
  g_recorder->Note({g_recorder->FileOf(fd), 0, "",
                    fails ? Recorder::kLost : Recorder::kFlush});
  if (fails) errno = EIO;
  return fails ? -1 : 0;
}

// --- Reading a whole table --------------------------------------------------

std::string Upper(std::string text) {
  for (char& c : text)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return text;
}

// The order of index `index`: its key as text, then the serial number.
using Key = std::pair<std::string, uint32_t>;
Key KeyOf(int index, uint32_t serial, const Rec& rec) {
  const std::string keys[] = {"", Upper(rec.alias), Upper(rec.name),
                              Padded(rec.mark, kMark) + Upper(rec.alias)};
  return {keys[index], serial};
}

// "" when a walk by the index gives the model's records, else what it gives.
std::string CompareIndex(int file, int index, const Model& model, bool back) {
  std::vector<Key> keys;
  for (const auto& [serial, rec] : model)
    keys.push_back(KeyOf(index, serial, rec));
  std::sort(keys.begin(), keys.end());
  if (back) std::reverse(keys.begin(), keys.end());
  std::ostringstream wrong;
  wrong << "index " << index << (back ? " backwards" : " forwards") << ": ";
  char record[kRecord];
  const int number = file + 1 + index;
  int code = back ? LSTREC(number, record) : FRSREC(number, record);
  for (const Key& key : keys) {
    const uint32_t serial = code == 0 ? isam_serial(record) : 0;
    if (serial != key.second || !(FromBytes(record) == model.at(serial))) {
      wrong << "code " << code << ", record " << serial << " instead of "
            << key.second;
      return wrong.str();
    }
    code = back ? PRVREC(number, record) : NXTREC(number, record);
  }
  if (code == kIsamNotFound || (code == kIsamNoCurrent && keys.empty()))
    return "";
  wrong << "code " << code << " at the end";
  return wrong.str();
}

}  // namespace

void AddLine(void* text, const char* line) {
  *static_cast<std::string*>(text) += std::string(line) + "\n";
}

std::string Padded(const std::string& text, size_t size) {
  std::string padded = text;
  padded.resize(size, '\0');
  return padded;
}

std::string ToBytes(const Rec& rec) {
  return std::string(4, '\0') + Padded(rec.alias, kAlias) +
         Padded(rec.name, kName) + Padded(rec.mark, kMark);
}

Rec FromBytes(const char* bytes) {
  const auto text = [&](int at, int size) {
    return std::string(bytes + at,
                       strnlen(bytes + at, static_cast<size_t>(size)));
  };
  return {text(4, kAlias), text(4 + kAlias, kName),
          text(4 + kAlias + kName, kMark)};
}

Rec Sample(uint32_t n) {
  const uint32_t mixed = n * 2654435761u;
  std::string name =
      (n % 2 == 0 ? "Name " : "nAME ") + std::to_string(mixed % 23);
  name.append(mixed % 150, static_cast<char>('a' + mixed % 7));
  return {"p" + std::to_string(mixed % 100000), name,
          std::string(1, static_cast<char>(0x7e + mixed % 4))};
}

int Create(const std::string& name) {
  ISEG serial = {0, 4, kIsamSerial};
  ISEG alias = {4, kAlias, kIsamUpper};
  ISEG name_seg = {4 + kAlias, kName, kIsamUpper};
  ISEG mark[] = {{4 + kAlias + kName, kMark, kIsamPlain}, alias};
  IIDX indexes[kIndexes] = {{4, 0, 0, 0, 0, 1, &serial},
                            {kAlias, 0, 0, 0, 0, 1, &alias},
                            {kName + 4, 0, 1, 0, 0, 1, &name_seg},
                            {kMark + kAlias + 4, 0, 1, 0, 0, 2, mark}};
  IFIL description = {name.c_str(), -1,   kRecord, 4096,   2,
                      kIndexes,     4096, 2,       indexes};
  if (int code = CREIFIL(&description)) return code;
  const DODA fields[] = {{"alias", 0, 22, kAlias}, {"name", kAlias, 22, kName}};
  const int put = PUTDODA(description.file_no, fields, 2);
  const int closed = CLIFIL(&description);
  return put != 0 ? put : closed;
}

int Open(const std::string& name, int mode) {
  return OPNRFIL(-1, (name + ".dat").c_str(), mode);
}

int Do(int file, const Op& op, Model& model) {
  std::string bytes = ToBytes(op.rec);
  if (op.kind == Op::kAdd) {
    const int code = ADDREC(file, bytes.data());
    if (code == 0) model[isam_serial(bytes.data())] = op.rec;
    return code;
  }
  unsigned char key[4];
  isam_serial_key(op.serial, key);
  if (int code = EQLREC(file + 1, key, nullptr)) return code;
  const int code =
      op.kind == Op::kDelete ? DELREC(file) : RWTREC(file, bytes.data());
  if (code == 0 && op.kind == Op::kDelete) model.erase(op.serial);
  if (code == 0 && op.kind == Op::kRewrite) model[op.serial] = op.rec;
  return code;
}

Op RandomOp(const Model& model, std::mt19937& random, size_t most, uint32_t n) {
  const bool add = model.empty() || random() % most >= model.size();
  if (add) return {Op::kAdd, 0, Sample(n)};
  auto it = model.begin();
  std::advance(it, random() % model.size());
  if (random() % 2 == 0) return {Op::kDelete, it->first, {}};
  Rec rec = it->second;
  rec.name = Sample(n).name;
  if (random() % 4 == 0) rec.alias = Sample(n).alias;
  return {Op::kRewrite, it->first, rec};
}

int Fill(const std::string& name, uint32_t count, Model& model) {
  if (int code = Create(name)) return code;
  const int file = Open(name);
  if (file < 0) return isam_err;
  int code = 0;
  for (uint32_t n = 0; code == 0 && n < count; ++n)
    code = Do(file, {Op::kAdd, 0, Sample(n)}, model);
  CLRFIL(file);
  return code;
}

std::string Verify(const std::string& name, const Model& model) {
  std::string wrong;
  const int code = isam_check((name + ".dat").c_str(), AddLine, &wrong);
  if (code != 0) return "check: code " + std::to_string(code) + "\n" + wrong;
  const int file = Open(name, kIsamRead);
  if (file < 0) return "open: code " + std::to_string(isam_err);
  if (DATENT(file) != static_cast<int64_t>(model.size()))
    wrong = "counts " + std::to_string(DATENT(file)) + " records";
  for (int index = 0; wrong.empty() && index < kIndexes; ++index) {
    wrong = CompareIndex(file, index, model, false);
    if (wrong.empty()) wrong = CompareIndex(file, index, model, true);
  }
  CLRFIL(file);
  return wrong;
}

// --- Faults -----------------------------------------------------------------

Faults::Faults(Mode mode, int at, int error) {
  g_mode = mode;
  g_at = at;
  g_error = error;
  g_calls = g_writes = 0;
  g_disk_full = false;
  if (g_real.open == nullptr) {
    g_real = isam::g_sys;
    using isam::Sys;
    ReplaceAll<&Sys::open, &Sys::read, &Sys::truncate, &Sys::chmod, &Sys::stat,
               &Sys::seek, &Sys::unlink, &Sys::lock, &Sys::is_locked>();
    isam::g_sys.write = HookWrite;
    isam::g_sys.sync = isam::g_sys.sync_full = HookSync;
    isam::g_sys.boot_id = [] { return const_cast<const uint8_t*>(g_boot_id); };
    isam::g_sys.lock_wait_ms = 60;
  }
}

Faults::~Faults() {
  g_mode = kCount;
  g_disk_full = false;
}

int Faults::calls() const { return g_calls; }
int Faults::writes() const { return g_writes; }
void Faults::FillDisk(bool full) { g_disk_full = full; }

void RestartMachine() {
  static uint32_t starts = 1;
  ++starts;
  std::memcpy(g_boot_id, &starts, sizeof starts);
}

// --- Power loss -------------------------------------------------------------

Recorder::Recorder(const std::string& name) : name_(name) {
  for (int i = 0; i < 2; ++i) base_[i] = ReadFile(name + kExtensions[i]);
  g_recorder = this;
}

Recorder::~Recorder() { g_recorder = nullptr; }

int Recorder::FileOf(int fd) const {
  struct stat open, named;
  fstat(fd, &open);
  for (int i = 0; i < 2; ++i)
    if (stat((name_ + kExtensions[i]).c_str(), &named) == 0 &&
        open.st_ino == named.st_ino)
      return i;
  return -1;
}

namespace {

constexpr size_t kSector = 512;

void WriteTo(std::string& disk, const Recorder::Event& event, size_t from,
             size_t to) {
  const size_t start = static_cast<size_t>(event.offset);
  const size_t low = std::max(from, start);
  const size_t high = std::min(to, start + event.bytes.size());
  if (low >= high) return;
  if (disk.size() < high) disk.resize(high);
  disk.replace(low, high - low, event.bytes, low - start, high - low);
}

// Of each sector that the writes touch the disk has any version, its oldest and
// its newest included. Sometimes the disk was quick, sometimes it had hardly
// begun.
void WriteSome(std::string& disk,
               const std::vector<const Recorder::Event*>& all,
               std::mt19937& random) {
  std::map<size_t, std::vector<const Recorder::Event*>> sectors;
  for (const Recorder::Event* event : all) {
    const size_t start = static_cast<size_t>(event->offset);
    for (size_t at = start / kSector;
         at * kSector < start + event->bytes.size(); ++at)
      sectors[at].push_back(event);
  }
  const auto eager = random() % 5;
  for (const auto& [sector, versions] : sectors) {
    size_t kept = random() % (versions.size() + 1);
    if (eager == 0 && random() % 8 != 0) kept = 0;
    if (eager == 4 && random() % 8 != 0) kept = versions.size();
    for (size_t i = 0; i < kept; ++i)
      WriteTo(disk, *versions[i], sector * kSector, (sector + 1) * kSector);
  }
}

}  // namespace

void Recorder::PowerLoss(size_t count, std::mt19937& random,
                         const std::string& name) {
  for (int file = 0; file < 2; ++file) {
    std::string disk = base_[file];
    std::vector<const Event*> pending;
    for (size_t i = 0; i < count; ++i) {
      const Event& event = events_[i];
      if (event.file != file) continue;
      if (event.kind == kWrite) {
        pending.push_back(&event);
        continue;
      }
      if (event.kind == kLost) WriteSome(disk, pending, random);
      if (event.kind == kFlush)
        for (const Event* write : pending) WriteTo(disk, *write, 0, SIZE_MAX);
      pending.clear();
    }
    WriteSome(disk, pending, random);
    WriteFile(name + kExtensions[file], disk);
  }
}

void CopyTable(const std::string& from, const std::string& to) {
  for (const char* extension : kExtensions)
    std::filesystem::copy_file(
        from + extension, to + extension,
        std::filesystem::copy_options::overwrite_existing);
}
