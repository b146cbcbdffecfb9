#include "ctl/app/staging.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "cm/cmfiltp.h"
#include "ctl/app/files.h"
#include "util/kutdir.h"

namespace client {
namespace {

constexpr mode_t kStagedMode = 0660;

// What standard input holds, which has no name to tell it.
std::string TypeByContent(int fd) {
  constexpr struct {
    const char* start;
    size_t size;
    const char* type;
  } kStarts[] = {{"%!PS", 4, "ps"},
                 {"II*\0", 4, "tif"},
                 {"MM\0*", 4, "tif"},
                 {"\033E", 2, "pcl"},
                 {"\x05\xC1\x09\x0F", 4, "fax"}};
  char bytes[4] = "";
  const ssize_t got = Kut_pread_full(fd, bytes, sizeof bytes, 0);
  for (const auto& row : kStarts) {
    if (got >= static_cast<ssize_t>(row.size) &&
        memcmp(bytes, row.start, row.size) == 0) {
      return row.type;
    }
  }
  return "txt";
}

}  // namespace

Status OpenSource(const std::string& path, Source* source) {
  source->path = path;
  if (path == "-") {
    Status s = SpoolStream(STDIN_FILENO, TemporaryParent(), &source->fd);
    if (!s.ok()) return s;
    source->type = TypeByContent(source->fd.get());
  } else {
    // Not held up by a fifo that nobody writes to.
    source->fd.reset(Kut_open(path.c_str(), O_RDONLY | O_NONBLOCK));
    if (!source->fd.valid()) return SystemFailure(krt_no_input, path);
    source->type = cm_filetype(path.c_str());
  }
  // The open file is looked at, not the name, which may be another's by now.
  struct stat st;
  if (fstat(source->fd.get(), &st) != 0) return SystemFailure(krt_io, path);
  const std::string what = path == "-" ? "standard input" : path;
  if (!S_ISREG(st.st_mode)) return {krt_no_input, what + ": not a file"};
  if (st.st_size == 0) return {krt_no_input, what + ": is empty"};
  return {};
}

Staging::~Staging() {
  for (const std::string& path : paths_) unlink(path.c_str());
}

Status Staging::Create(const std::string& type, UniqueFd* fd,
                       std::string* path) {
  // Exclusively, and through no link: in an open spool directory a stranger can
  // guess the name.
  *path = base_ + std::to_string(++count_) + "." + type;
  if (dry_) return {};
  fd->reset(Kut_open(path->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW,
                     kStagedMode));
  if (!fd->valid()) return SystemFailure(krt_cannot_create, *path);
  paths_.push_back(*path);
  // Past the umask: a server that is not root comes to it by the group.
  if (fchmod(fd->get(), kStagedMode) != 0) return SystemFailure(krt_io, *path);
  return {};
}

Status Staging::Add(const Source& source, std::string* path) {
  UniqueFd fd;
  Status s = Create(source.type, &fd, path);
  if (!s.ok() || dry_) return s;
  return CopyAll(source.fd.get(), fd.get(), source.path);
}

Status Staging::AddText(const std::string& text, std::string* path) {
  UniqueFd fd;
  Status s = Create("txt", &fd, path);
  if (!s.ok() || dry_) return s;
  if (Kut_write_full(fd.get(), text.data(), text.size()) == 0) return {};
  return SystemFailure(krt_io, *path);
}

void RemoveStaged(const std::string& spool, const std::string& name) {
  // "<name>.<pid>" of the daemon's and "<name>.rsp" have no second extension.
  const std::string start = name + ".";
  DirReader dir;
  if (dir.Open(spool.c_str()) != 0) return;
  while (const char* entry = dir.Next()) {
    const std::string file = entry;
    if (file.starts_with(start) && file.find('.', start.size()) != file.npos) {
      unlinkat(dir.fd(), entry, 0);
    }
  }
}

}  // namespace client
