// The fax system's fifos (util/kutfifo.h): how they are made, and how long one
// waits for them.
#ifndef FAXSERVER_FSFIFO_H_
#define FAXSERVER_FSFIFO_H_

#include <sys/types.h>

// How long a writer waits for a reader of the scheduler's fifo or of the spool
// fifo, and for room in it.
constexpr int kFxFifoSeconds = 30;

// Makes a fifo of that mode, the fax system's where the process may give it
// away. 0, also when a fifo was there; else -1 with errno.
int fx_fifo_make(const char* path, mode_t mode);

#endif  // FAXSERVER_FSFIFO_H_
