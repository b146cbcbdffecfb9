// Where this folder's few log lines go.
//
// - The daemon's log lies in a higher layer: main names it here once. Without a
//   sink the lines are dropped.
#ifndef FAXSERVER_FSLOG_H_
#define FAXSERVER_FSLOG_H_

// `sink` gets one line without a newline; null: none.
void fx_log_to(void (*sink)(const char* text));

// Formats and logs a line, at most 255 characters. errno is kept.
void fx_logf(const char* format, ...) __attribute__((format(printf, 1, 2)));

#endif  // FAXSERVER_FSLOG_H_
