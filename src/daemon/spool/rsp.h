// Delivering responses, with a queue of those that could not be written yet.
//
// - One queue for each process, in the order of arrival; the daemon's main loop
//   or the worker itself goes over it until it is empty.
#ifndef DAEMON_SPOOL_RSP_H_
#define DAEMON_SPOOL_RSP_H_

#include "daemon/spool/sxfile.h"
#include "kx/object.h"

// Writes `rsp` into `dir` as sx_rsp_to does, and takes it over. 0 when it was
// written; 1 when it was queued; -1 when it was dropped, with a log line. `dir`
// is not copied.
int rsp_write(const char* dir, kx_object* rsp, int save,
              sx_files files = sx_files::kStayNames);

// Tries each queued response once more. -1 when the queue was empty or at least
// one was written, 0 when all failed again. A response that had `maxtrys`
// further tries is dropped and ends the pass; the result is its session number.
long rsp_check(int maxtrys);

#endif  // DAEMON_SPOOL_RSP_H_
