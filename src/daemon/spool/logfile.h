// The daemon's log: one time-stamped line a message.
//
// - A line is written with one system call, so lines of several processes on
//   one descriptor do not mix. Control characters inside a message, newlines
//   too, and bytes that are no UTF-8 are written as "\x0a"; a message longer
//   than kLogMessageMax bytes is cut.
// - With no log open, lines are dropped: logging never fails loudly.
// - Only dmn_log_pieces may be called from a signal handler. It takes local
//   time from the offset that the last ordinary line saw.
//
//     126/03/02 09:05:03: Terminating
//     4711:126/03/02 09:05:03: Terminating      (with the log's debug flag)
//
// The year counts from 1900.
#ifndef DAEMON_SPOOL_LOGFILE_H_
#define DAEMON_SPOOL_LOGFILE_H_

#include <initializer_list>

constexpr int kLogMessageMax = 1024;  // bytes of a message that are written

// Opens the log: a duplicate of standard error, or `path`, truncated. The
// descriptor, which dmn_log_close closes; -1 with errno on failure, and the log
// stays as it was.
int dmn_log_open(const char* path, int to_stderr, int debug);
// Takes the open descriptor `fd` over as the log (closed by dmn_log_close); a
// negative one means standard error, which is left open. 0, or -1 with errno
// when `fd` is not open for writing.
int dmn_log_reopen(int fd, int debug);
void dmn_log_close();

void dmn_log_write(const char* msg);
// The same, only with the log's debug flag.
void dmn_log_writed(const char* msg);
// The same, formatted as printf does.
void dmn_logf(const char* format, ...) __attribute__((format(printf, 1, 2)));
// One line made of several texts; safe in a signal handler, keeps errno.
void dmn_log_pieces(std::initializer_list<const char*> pieces);
// A line of 26 dashes, without a time.
void dmn_log_separator();

// Rotates a log file: base-0.ext is the newest old copy, base-n.ext the oldest.
// The result of renaming `path` to base-0.ext: 0, or -1 with errno.
int dmn_log_age(const char* path, int n);

#endif  // DAEMON_SPOOL_LOGFILE_H_
