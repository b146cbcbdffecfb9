// The simulator as the scheduler whose status segment the machine has.
#ifndef SIMULATOR_SEGMENT_H_
#define SIMULATOR_SEGMENT_H_

#include <string>

namespace sim {

// The status segment of this process, gone with the object.
//
// - There is one segment on a machine. That of a scheduler that runs is left
//   alone; that of a dead one is replaced.
// - Limits: two schedulers that start in the same moment may each take the
//   other for dead. The one whose segment is replaced does not remove the
//   other's.
class StatusSegment {
 public:
  StatusSegment() = default;
  StatusSegment(const StatusSegment&) = delete;
  StatusSegment& operator=(const StatusSegment&) = delete;
  ~StatusSegment();

  // Makes it, with `devices` device records. False with the reason.
  bool Make(int devices, std::string* reason);

 private:
  bool made_ = false;
};

}  // namespace sim

#endif  // SIMULATOR_SEGMENT_H_
