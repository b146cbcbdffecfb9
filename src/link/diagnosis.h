// What an answer means whose "result" is not 0.
//
// - An answer tells its failure by a number of the object library and a text.
//   There are few numbers: what differs for the one who asked shares them, and
//   only the text tells it apart, which ends with the system's or the library's
//   own words. So this is the one place that compares texts. They are part of
//   the protocol and do not change. What cannot be told by them is taken for a
//   plain refusal.
#ifndef LINK_DIAGNOSIS_H_
#define LINK_DIAGNOSIS_H_

#include "kx/kfx.h"
#include "link/status.h"

namespace client {

// What a response with a "result" other than 0 says, "<text> (<number>)"; the
// text is the number's own where the response only puts words before it.
Status Refusal(kx_object* answer);
// The krt_status for a response's "result".
int StatusOfResult(kx_object* answer);
// Whether a submit failed since the queueing side was not to be reached: its
// number is that of every command that fails.
bool IsOfTheQueueingSide(kx_object* answer);

}  // namespace client

#endif  // LINK_DIAGNOSIS_H_
