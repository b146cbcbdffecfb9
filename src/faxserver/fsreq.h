// Acting on requests through the scheduler.
//
// - 0 and kx_errno 0, or -1 with the error number.
#ifndef FAXSERVER_FSREQ_H_
#define FAXSERVER_FSREQ_H_

#include "kx/kfx.h"

// Cancels the request that the "obj-reqid" names. -1: kx_err_data for an
// invalid client, sequence number or request type; kx_err_failed for a group
// request and when the scheduler does not run; kx_err_permission when the
// request is somebody else's and the client no administrator; kx_err_system
// when there is no such request or no scheduler fifo, or when nobody can tell
// at present who the client or the owner is.
int fx_cancel(const char* root, const char* clientid, kx_object* reqid);

// Has the request that the "obj-reqid" names tried now. -1: kx_err_no_scheduler
// when the scheduler does not run, kx_err_data for a request that does not
// exist, kx_err_system.
int fx_try(const char* root, kx_object* reqid);

#endif  // FAXSERVER_FSREQ_H_
