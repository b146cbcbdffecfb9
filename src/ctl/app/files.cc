#include "ctl/app/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "util/kutfile.h"

namespace client {
namespace {

constexpr size_t kBlock = 64 * 1024;

}  // namespace

PrivateDir::~PrivateDir() {
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

Status PrivateDir::Make(const std::string& parent) {
  std::string path = parent + "/krtctl-XXXXXX";
  // Nobody else can enter it from the first moment on.
  if (mkdtemp(path.data()) == nullptr) {
    return SystemFailure(krt_cannot_create, parent);
  }
  path_ = path;
  return {};
}

bool PrivateDir::empty() const {
  std::error_code ignored;
  return path_.empty() || std::filesystem::is_empty(path_, ignored);
}

std::string TemporaryParent() {
  const char* dir = getenv("TMPDIR");
  return dir != nullptr && *dir != '\0' ? dir : "/tmp";
}

Status CopyAll(int from, int to, const std::string& what) {
  // From the beginning: the same source is copied once for each destination.
  if (lseek(from, 0, SEEK_SET) == 0 && Kut_copy_bytes(from, to) == 0) return {};
  return SystemFailure(krt_io, "copy of " + what);
}

Status SpoolStream(int from, const std::string& dir, UniqueFd* file) {
  std::string path = dir + "/krtctl-XXXXXX";
  file->reset(mkostemp(path.data(), O_CLOEXEC));
  if (!file->valid()) return SystemFailure(krt_cannot_create, dir);
  // Without a name nothing is left behind, whatever ends the process.
  unlink(path.c_str());
  if (Kut_copy_bytes(from, file->get()) == 0) return {};
  return SystemFailure(krt_io, "copy of standard input in " + dir);
}

Status ReadWhole(const std::string& path, std::string* content) {
  UniqueFd opened;
  int fd = STDIN_FILENO;
  if (path != "-") {
    opened.reset(Kut_open(path.c_str(), O_RDONLY));
    if (!opened.valid()) return SystemFailure(krt_no_input, path);
    fd = opened.get();
  }
  content->clear();
  std::vector<char> block(kBlock);
  for (;;) {
    const ssize_t size = Kut_read_full(fd, block.data(), kBlock);
    if (size < 0) {
      // A directory can be opened, and says what it is when it is read.
      return SystemFailure(errno == EISDIR ? krt_no_input : krt_io, path);
    }
    if (size == 0) return {};
    content->append(block.data(), static_cast<size_t>(size));
  }
}

Status ReplaceFile(const std::string& path,
                   const std::function<Status(int fd)>& write) {
  struct stat st;
  if (stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) {
    const UniqueFd fd(Kut_open(path.c_str(), O_WRONLY | O_NOCTTY));
    if (!fd.valid()) return SystemFailure(krt_cannot_create, path);
    return write(fd.get());
  }
  FileReplacer file;
  if (file.Open(path.c_str(), 0666) != 0 || file.KeepAttributes() != 0) {
    return SystemFailure(krt_cannot_create, path);
  }
  if (Status s = write(file.fd()); !s.ok()) return s;
  if (file.Commit() != 0) return SystemFailure(krt_io, path);
  return {};
}

Status CreateFile(const std::string& path,
                  const std::function<Status(int fd)>& write) {
  const UniqueFd fd(
      Kut_open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0666));
  if (!fd.valid()) return SystemFailure(krt_cannot_create, path);
  Status s = write(fd.get());
  if (!s.ok()) unlink(path.c_str());
  return s;
}

Status WriteWhole(const std::string& path, const std::string& content) {
  return ReplaceFile(path, [&](int fd) -> Status {
    if (Kut_write_full(fd, content.data(), content.size()) == 0) return {};
    return SystemFailure(krt_io, path);
  });
}

}  // namespace client
