// One record into a fifo, without being held up by its reader.
#ifndef FAXSERVER_FSFIFO_H_
#define FAXSERVER_FSFIFO_H_

#include <cstddef>

// How long a writer waits for a reader of the scheduler's fifo or of the spool
// fifo, and for room in it.
constexpr int kFxFifoSeconds = 30;

// Writes `size` bytes, at most PIPE_BUF, in one write, so that records of
// several writers never mix. Waits at most `seconds` for a reader and as long
// again for room; with 0 it does not wait. A reader that is gone is an error
// and no SIGPIPE. 0, or -1 with errno: ENXIO without a reader, EINVAL when the
// path is no fifo, EAGAIN without room, EPIPE, or what open(2) said.
int fx_fifo_send(const char* path, const void* record, size_t size,
                 int seconds);

// The write alone, on the open descriptor of a fifo, which is in non-blocking
// mode from then on.
int fx_fifo_write(int fd, const void* record, size_t size, int seconds);

#endif  // FAXSERVER_FSFIFO_H_
