// The scheduler: walks each request through its attempts.
//
//     waits -> is sent by a device -> waits ... until it was sent, has had its
//     last attempt, has expired or was cancelled -> over
//
// - What happens is written where the fax server writes it: the device's state
//   and the number of jobs in the status segment, an attempt in the outgoing
//   log, then the client's status, then the request file. So a status never
//   counts an attempt that the log does not have.
// - What is said has been written: a script that waits for a line finds all of
//   it in place.
// - Time goes on in Advance alone.
#ifndef SIMULATOR_SCHEDULER_H_
#define SIMULATOR_SCHEDULER_H_

#include <map>
#include <string>

#include "simulator/devices.h"
#include "simulator/outcome.h"
#include "simulator/request.h"

namespace sim {

// How attempts go.
struct Course {
  Outcomes outcomes;
  long sending_ms = 2000;  // an attempt takes
  long pause_ms = 3000;    // between two attempts
  int most_attempts = 0;   // 0: the request's own number
};

class Scheduler {
 public:
  Scheduler(const std::string& root, const Course& course);

  Devices& devices() { return devices_; }
  // Takes up what an earlier run left waiting.
  void TakeUp();
  // Takes a saved request; it waits until its time to be sent.
  void Add(Request request);
  // What the scheduler's fifo asks for. A request that is not there is told on
  // standard output alone, as nobody waits for an answer.
  void Cancel(long seqno);
  void TryNow(long seqno);

  // Ends the attempts whose time is over and begins those that are due.
  void Advance();
  // When there is something to do for Advance, by Kut_now_ms; LONG_MAX for
  // never.
  long NextTime() const;
  size_t jobs() const { return requests_.size(); }

 private:
  using Entry = std::map<long, Request>::iterator;

  void Insert(Request request);
  Entry Find(long seqno);
  void BeginDue();
  void Begin(Request& request, int device);
  void EndAttempt(Entry entry, const Outcome& outcome);
  void Finish(Entry entry, int result);
  void PublishJobs() const;

  std::string root_;
  Course course_;
  Devices devices_;
  std::map<long, Request> requests_;
  long looked_ = 0;  // when BeginDue looked for what is due
};

}  // namespace sim

#endif  // SIMULATOR_SCHEDULER_H_
