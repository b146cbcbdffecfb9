// What a fax device is doing.
#ifndef CM_CMSTATUS_H_
#define CM_CMSTATUS_H_

// The name of device state 0 to 10 ("not running", "initializing", "idle",
// ...), kx_errno 0; "?" and kx_errno kx_err_data for any other number.
const char* cm_state_str(int state);

#endif  // CM_CMSTATUS_H_
