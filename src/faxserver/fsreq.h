// Acting on requests through the scheduler.
//
// - 0 and kx_errno 0, or -1 with the error number.
#ifndef FAXSERVER_FSREQ_H_
#define FAXSERVER_FSREQ_H_

#include "kx/kfx.h"

// Cancels the request that the "obj-reqid" names. -1: 19 for an invalid client,
// sequence number or request type; 13 for a group request and when the
// scheduler does not run; 12 when the request is somebody else's and the client
// no administrator; 3 when there is no such request or no scheduler fifo, or
// when nobody can tell at present who the client or the owner is.
int fx_cancel(const char* root, const char* clientid, kx_object* reqid);

// Has the request that the "obj-reqid" names tried now. -1: 17 when the
// scheduler does not run, 19 for a request that does not exist, 3.
int fx_try(const char* root, kx_object* reqid);

#endif  // FAXSERVER_FSREQ_H_
