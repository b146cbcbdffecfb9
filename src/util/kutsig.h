// Names of signals for the log.
//
// - The numbers are System V's, which the fax server's logs have always shown;
//   they are not those of <signal.h> everywhere.
// - Nothing here allocates, locks or changes errno: both functions may be
//   called from a signal handler.
#ifndef UTIL_KUTSIG_H_
#define UTIL_KUTSIG_H_

// The name ("SIGTERM") and the description ("Software termination") of signal
// `sig`. Where a number has several names, the first of the table. Another
// number gives "<signal N>" in a static buffer of the function.
const char* Kut_signame(int sig);
const char* Kut_sigdesc(int sig);

#endif  // UTIL_KUTSIG_H_
