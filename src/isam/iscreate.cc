#include "isam/iscreate.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "isam/isbytes.h"
#include "isam/issys.h"

namespace isam {
namespace {

// What a file that may stand in the way of a creation is.
enum class Found { kNothing, kUnfinished, kTable, kForeign };

isam_code Look(int fd, FileKind kind, Found* found, Layout* layout) {
  uint8_t header[kHeaderSize] = {};
  const ssize_t got = g_sys.read(fd, header, sizeof header, 0);
  if (got < 0) return kIsamIo;
  const isam_code code = DecodeHeader(header, kind, layout);
  if (code == kIsamNoFile)
    *found = Found::kUnfinished;
  else
    *found = code == kIsamBadVersion ? Found::kForeign : Found::kTable;
  return kIsamOk;
}

// Whether the name still leads to the file that was opened under it.
bool StillThere(const std::string& path, int fd) {
  UniqueFd again(g_sys.open(path.c_str(), O_RDONLY, 0));
  struct stat ours, theirs;
  return again.valid() && g_sys.stat(fd, &ours) == 0 &&
         g_sys.stat(again.get(), &theirs) == 0 &&
         ours.st_ino == theirs.st_ino && ours.st_dev == theirs.st_dev;
}

// Looks at what is under the name of the index file. kIsamOk with kNothing: it
// is free, or a leftover was removed.
isam_code ClearIndex(const std::string& path, bool data_is_new) {
  UniqueFd fd(g_sys.open(path.c_str(), O_RDWR, 0));
  if (!fd.valid()) return errno == ENOENT ? kIsamOk : CodeFromErrno();
  Found found;
  Layout layout;
  if (isam_code code = Look(fd.get(), FileKind::kIndex, &found, &layout))
    return code;
  if (found == Found::kForeign) return kIsamIndexExists;
  // A deletion takes the data file first, so an index without it is garbage.
  if (found == Found::kTable && !data_is_new) return kIsamDataExists;
  return g_sys.unlink(path.c_str()) == 0 || errno == ENOENT ? kIsamOk
                                                            : CodeFromErrno();
}

// Opens or makes the data file and takes the right to create the table.
isam_code OpenData(NewTable& table, const std::string& path) {
  table.dat.reset(g_sys.open(path.c_str(), O_RDWR | O_CREAT, FileMode()));
  if (!table.dat.valid()) return CodeFromErrno();
  if (isam_code code = table.lock.TakeCreate(table.dat.get())) return code;
  return StillThere(path, table.dat.get()) ? kIsamOk : kIsamCannotLock;
}

// Whether the data file is new or what a dead creator left of one.
isam_code CheckData(const NewTable& table, bool* is_new) {
  Found found;
  Layout layout = {};
  if (isam_code code = Look(table.dat.get(), FileKind::kData, &found, &layout))
    return code;
  *is_new = found == Found::kUnfinished;
  if (*is_new) return kIsamOk;
  struct stat st;
  if (g_sys.stat(table.dat.get(), &st) != 0) return kIsamIo;
  // With records it is a table, even if its index file is lost.
  return found == Found::kTable && st.st_size <= layout.slot_offset(1)
             ? kIsamOk
             : kIsamDataExists;
}

isam_code WriteData(const NewTable& table) {
  const int fd = table.dat.get();
  if (g_sys.truncate(fd, 0) != 0) return CodeFromErrno();
  std::vector<uint8_t> bytes(kRingOffset);
  EncodeHeader(table.layout, FileKind::kData, bytes.data());
  EncodeFields(nullptr, 0, table.layout.salt, bytes.data() + kFieldsOffset);
  if (isam_code code = WriteAt(fd, bytes.data(), bytes.size(), 0)) return code;
  return WriteZeros(fd, kRingOffset, table.layout.slot_offset(1));
}

isam_code OpenIndex(NewTable& table, const std::string& path) {
  table.idx.reset(
      g_sys.open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, FileMode()));
  if (!table.idx.valid())
    return errno == EEXIST ? kIsamIndexExists : CodeFromErrno();
  return kIsamOk;
}

}  // namespace

NewTable::~NewTable() {
  if (!ours) return;
  if (idx.valid()) g_sys.unlink(idx_path.c_str());
  g_sys.unlink(dat_path.c_str());
}

isam_code WriteEmptyIndex(int fd, const Layout& layout) {
  std::vector<uint8_t> bytes(kPagesOffset);
  EncodeHeader(layout, FileKind::kIndex, bytes.data());
  memset(bytes.data() + header_at::kMagic, 0, kMagicSize);
  State state = {};
  state.phase = Phase::kApplied;
  state.half_first = 1;
  memcpy(state.boot_id, g_sys.boot_id(), sizeof state.boot_id);
  EncodeState(state, layout.salt, bytes.data() + kStateOffset);
  Root root = {};
  root.next_serial = 1;
  EncodeRoot(root, layout.salt, bytes.data() + kRootOffset);
  return WriteAt(fd, bytes.data(), bytes.size(), 0);
}

isam_code SyncFolder(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "."
                             : slash == 0               ? "/"
                                                        : path.substr(0, slash);
  UniqueFd fd(g_sys.open(folder.c_str(), O_RDONLY | O_DIRECTORY, 0));
  if (!fd.valid()) return CodeFromErrno();
  return g_sys.sync_full(fd.get()) == 0 ? kIsamOk : kIsamIo;
}

isam_code BeginTable(const std::string& name, const Layout& layout,
                     std::unique_ptr<NewTable>* out) {
  auto table = std::make_unique<NewTable>(name);
  table->layout = layout;
  if (g_sys.random(&table->layout.salt, sizeof layout.salt) != 0)
    return kIsamIo;
  isam_code code = OpenData(*table, table->dat_path);
  if (code != kIsamOk) return code;
  bool data_is_new;
  code = CheckData(*table, &data_is_new);
  table->ours = code == kIsamOk && data_is_new;
  if (code == kIsamOk) code = ClearIndex(table->idx_path, data_is_new);
  if (code == kIsamOk) code = OpenIndex(*table, table->idx_path);
  table->ours |= code == kIsamOk;
  if (code == kIsamOk) code = WriteData(*table);
  if (code == kIsamOk) code = WriteEmptyIndex(table->idx.get(), table->layout);
  // The process's umask has no say in who shares a table.
  if (code == kIsamOk && (g_sys.chmod(table->dat.get(), FileMode()) != 0 ||
                          g_sys.chmod(table->idx.get(), FileMode()) != 0))
    code = CodeFromErrno();
  if (code == kIsamOk) *out = std::move(table);
  return code;
}

isam_code WriteFields(NewTable& table, const DODA* fields, int count) {
  std::vector<uint8_t> bytes(kFieldsSize);
  EncodeFields(fields, count, table.layout.salt, bytes.data());
  const isam_code code =
      WriteAt(table.dat.get(), bytes.data(), bytes.size(), kFieldsOffset);
  if (code != kIsamOk) table.failed = code;
  return code;
}

isam_code FinishTable(NewTable& table) {
  if (table.failed != kIsamOk) return table.failed;
  if (g_sys.sync_full(table.dat.get()) != 0 ||
      g_sys.sync_full(table.idx.get()) != 0)
    return kIsamIo;
  if (isam_code code = SyncFolder(table.name)) return code;
  uint8_t header[kHeaderSize];
  EncodeHeader(table.layout, FileKind::kIndex, header);
  isam_code code = WriteAt(table.idx.get(), header + header_at::kMagic,
                           kMagicSize, header_at::kMagic);
  if (code == kIsamOk) code = SyncFile(table.idx.get());
  table.ours = code != kIsamOk;
  return code;
}

}  // namespace isam
