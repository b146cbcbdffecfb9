// Texts of the system's error numbers. Each function has its own static buffer,
// overwritten by its next call, and leaves errno alone. Not for signal
// handlers.
#ifndef UTIL_KUTERR_H_
#define UTIL_KUTERR_H_

// The text of errno.
const char* Kut_sys_errstr();
// The text of error number `errnum`; "Unknown error N" for one that is none.
const char* Kut_strerror(int errnum);

// Whether the error number tells that the machine lacks something at present
// (descriptors, memory, room, a sound disk), and so tells nothing about the
// file or user that was asked for: what could not be looked at is not missing.
bool Kut_is_shortage(int errnum);

#endif  // UTIL_KUTERR_H_
