// Fifos that carry records of one size from many writers to one reader.
//
// - A record of up to PIPE_BUF bytes is written in one write: those of several
//   writers never mix, and none is written in part.
// - Only fifos are opened (EINVAL for anything else), symbolic links are not
//   followed, descriptors are close-on-exec.
// - Nobody is held up: opening to read does not wait for a writer; opening to
//   write and writing wait as long as the caller says, with 0 seconds not at
//   all. A reader that is gone is an error (EPIPE) and no SIGPIPE.
// - Unless it says otherwise, a function returns 0, or -1 with errno.
// - Not for signal handlers. For processes with one thread: the umask and the
//   signal mask change for a moment.
#ifndef UTIL_KUTFIFO_H_
#define UTIL_KUTFIFO_H_

#include <sys/types.h>

#include <cstddef>

// The ends that a process has open; -1: closed.
struct kut_fifo {
  int reader = -1;
  int writer = -1;
};

// Makes a fifo with that mode, whatever the umask; EEXIST when there is
// something of the name.
int Kut_make_fifo(const char* path, mode_t mode);
// Whether the path is a fifo itself. False with errno, EEXIST for something
// else.
bool Kut_is_fifo(const char* path);

// A reading end, in blocking mode; or -1 with errno.
int Kut_open_fifo_reader(const char* path);
// A writing end, in blocking mode. Waits at most `seconds` for a reader,
// looking again every few milliseconds. -1 with errno: ENXIO when no reader
// came.
int Kut_open_fifo_writer(const char* path, int seconds);
// Closes what is open. 0, or -1 when a close failed.
int Kut_close_fifo(kut_fifo* fifo);

// What becomes of bytes that are no whole number of records: a guess would make
// records out of halves for ever after.
enum class kut_halves {
  kKeep,  // nothing is read
  kDrop,  // whole records are read, and what is left then is thrown away
};

// Reads a record from a reading end, waiting at most `seconds` (0 or less: not
// at all) for one. 0; 1 when there was none (also, at once, when no writer is
// left); -1 on an error, a signal while it waits among them, and for bytes that
// are out of step.
int Kut_read_record(int fd, void* record, size_t size, int seconds,
                    kut_halves halves = kut_halves::kKeep);

// Writes a record to a writing end, which is in non-blocking mode from then on,
// waiting at most `seconds` for room: EAGAIN without.
int Kut_write_record(int fd, const void* record, size_t size, int seconds);

// Opens the fifo, writes one record and closes it. Waits at most `seconds` for
// a reader and as long again for room.
int Kut_send_record(const char* path, const void* record, size_t size,
                    int seconds);

#endif  // UTIL_KUTFIFO_H_
