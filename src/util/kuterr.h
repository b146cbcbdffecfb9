// Texts of the system's error numbers. Each function has its own static buffer,
// overwritten by its next call, and leaves errno alone. Not for signal
// handlers.
#ifndef UTIL_KUTERR_H_
#define UTIL_KUTERR_H_

// The text of errno.
const char* Kut_sys_errstr();
// The text of error number `errnum`; "Unknown error N" for one that is none.
const char* Kut_strerror(int errnum);

#endif  // UTIL_KUTERR_H_
