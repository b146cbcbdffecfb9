// The state of the fax server as a whole.
#ifndef FAXSERVER_FSSTATE_H_
#define FAXSERVER_FSSTATE_H_

#include "kx/kfx.h"

// An "obj-state", which the caller frees: whether the scheduler runs, the
// default queue, devices, queues, and the requests waiting. A part whose file
// is missing is left unset. Null with kx_err_memory without memory,
// kx_err_system when a part cannot be read for want of descriptors or a sound
// disk.
kx_object* fx_get_state(const char* root);

#endif  // FAXSERVER_FSSTATE_H_
