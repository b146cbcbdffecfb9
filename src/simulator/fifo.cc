#include "simulator/fifo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "cm/cmkrt.h"
#include "daemon/spool/kfifo.h"
#include "faxserver/fsefifo.h"
#include "util/kutfile.h"

namespace sim {
namespace {

constexpr mode_t kSchedulerMode = 0660;

bool IsFifo(const std::string& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) return false;
  if (!S_ISFIFO(st.st_mode)) errno = EEXIST;
  return S_ISFIFO(st.st_mode);
}

}  // namespace

bool MakeSchedulerFifo(const std::string& path) {
  const mode_t mask = umask(0);
  const int made = mkfifo(path.c_str(), kSchedulerMode);
  umask(mask);
  if (made != 0) return false;
  static_cast<void>(lchown(path.c_str(), static_cast<uid_t>(cm_get_krt_uid()),
                           static_cast<gid_t>(cm_get_krt_gid())));
  return true;
}

bool MakeSpoolFifo(const std::string& path) {
  return kfifo_make(Kut_dirname(path.c_str())) == 0;
}

bool MakeEventFifo(const std::string& path) {
  return fx_efifo_make(Kut_dirname(path.c_str())) == 0;
}

RecordFifo::~RecordFifo() {
  if (!made_.empty()) unlink(made_.c_str());
}

bool RecordFifo::Open(const std::string& path,
                      bool (*make)(const std::string& path)) {
  const bool was_there = IsFifo(path);
  // Only what came of it counts: who may not give a fifo away has one all the
  // same.
  if (!was_there && !make(path) && !IsFifo(path)) return false;
  if (!was_there) made_ = path;
  reader_.reset(Kut_open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW));
  if (!reader_.valid()) return false;
  writer_.reset(Kut_open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW));
  return writer_.valid();
}

RecordFifo::Got RecordFifo::Next(std::span<unsigned char> record) {
  ssize_t got;
  do {
    got = read(reader_.get(), record.data(), record.size());
  } while (got < 0 && errno == EINTR);
  if (got <= 0) return Got::kNothing;
  return got == static_cast<ssize_t>(record.size()) ? Got::kRecord
                                                    : Got::kOutOfStep;
}

}  // namespace sim
