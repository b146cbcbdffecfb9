// The codes of cm/cmresult.h that a scheduler deals in.
#ifndef SIMULATOR_RESULTS_H_
#define SIMULATOR_RESULTS_H_

#include "cm/cmresult.h"

namespace sim {

enum AttemptResult : int {
  kAttemptNormal = kCmAttemptNormal,
  kAttemptCancelledIdle = 2,
  kAttemptCancelledWork = 3,
  kAttemptBusy = 4,
  kAttemptLineDrop = 5,
  kAttemptNotFax = 6,
  kAttemptNoAnswer = 7,
  kAttemptVoice = 8,
  kAttemptNoDialtone = 9,
  kAttemptRejected = 10,
  kAttemptBadRequest = 12,
  kAttemptBadModem = 16,
  kAttemptTimedOut = 17,
  kAttemptNoFile = 21,
  kAttemptBadFile = 22,
};

enum RequestResult : int {
  kRequestNormal = kCmRequestNormal,
  kRequestRescheduled = 1001,
  kRequestExpired = 1002,
  kRequestMaxAttempts = 1003,
  kRequestCancelled = kCmRequestCancelled,
  kRequestFailed = 1005,
};

}  // namespace sim

#endif  // SIMULATOR_RESULTS_H_
