#include "simulator/fifo.h"

#include <unistd.h>

#include "daemon/spool/kfifo.h"
#include "faxserver/fsefifo.h"
#include "faxserver/fsfifo.h"
#include "util/kutfifo.h"
#include "util/kutfile.h"

namespace sim {
namespace {

constexpr mode_t kSchedulerMode = 0660;

}  // namespace

bool MakeSchedulerFifo(const std::string& path) {
  return fx_fifo_make(path.c_str(), kSchedulerMode) == 0;
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
  const bool was_there = Kut_is_fifo(path.c_str());
  // Only what came of it counts: who may not give a fifo away has one all the
  // same.
  if (!was_there && !make(path) && !Kut_is_fifo(path.c_str())) {
    return false;
  }
  if (!was_there) made_ = path;
  reader_.reset(Kut_open_fifo_reader(path.c_str()));
  if (!reader_.valid()) return false;
  writer_.reset(Kut_open_fifo_writer(path.c_str(), 0));
  return writer_.valid();
}

RecordFifo::Got RecordFifo::Next(std::span<unsigned char> record) {
  switch (Kut_read_record(reader_.get(), record.data(), record.size(), 0,
                          kut_halves::kDrop)) {
    case 0:
      return Got::kRecord;
    case 1:
      return Got::kNothing;
    default:
      return Got::kOutOfStep;
  }
}

}  // namespace sim
