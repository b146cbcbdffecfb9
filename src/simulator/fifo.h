// A fifo that brings records of one size, read without waiting.
//
// - A fifo that was not there is made at Open and removed at the end of the
//   object's life.
// - The reader keeps a writing end of its own, so that it sees no end of file
//   when writers come and go.
#ifndef SIMULATOR_FIFO_H_
#define SIMULATOR_FIFO_H_

#include <span>
#include <string>

#include "util/kutio.h"

namespace sim {

// Make the fifos of the scheduler, the queueing side and a session daemon, each
// at its path, with its mode and the fax system's where the process may give it
// away. False with errno.
bool MakeSchedulerFifo(const std::string& path);
bool MakeSpoolFifo(const std::string& path);
bool MakeEventFifo(const std::string& path);

class RecordFifo {
 public:
  enum class Got { kRecord, kNothing, kOutOfStep };

  RecordFifo() = default;
  RecordFifo(const RecordFifo&) = delete;
  RecordFifo& operator=(const RecordFifo&) = delete;
  ~RecordFifo();

  // Opens `path`, a fifo that `make` makes when it is missing. False with
  // errno.
  bool Open(const std::string& path, bool (*make)(const std::string& path));
  // The next record. What is shorter than a record is thrown away: a guess
  // would make records out of halves.
  Got Next(std::span<unsigned char> record);
  int fd() const { return reader_.get(); }

 private:
  std::string made_;  // the path when this object made it
  UniqueFd reader_;
  UniqueFd writer_;
};

}  // namespace sim

#endif  // SIMULATOR_FIFO_H_
