// The spool fifo "kfifo": records of 80 bytes from the daemon to the process
// that queues submitted commands.
//
// - One read side and one write side for each process.
// - 0 on success, -1 on failure with errno, unless said otherwise.
#ifndef DAEMON_SPOOL_KFIFO_H_
#define DAEMON_SPOOL_KFIFO_H_

enum { KFIFO_RECORD_SIZE = 80 };

// Makes <dir>/kfifo, mode 0664, of the fax system's user and group. 0 also when
// it exists.
int kfifo_make(const char* dir);
// Opens the write side and, with `write_only` 0, the read side before it: a
// reader with a write side of its own sees no end of file when writers come and
// go. A writer waits at most 30 seconds for a reader.
int kfifo_open(const char* dir, int write_only);
// Closes what is open.
int kfifo_close();
// Writes one record, whole.
int kfifo_write(const void* record);
// Waits up to `secs` seconds for a record. 0 with the record; 1 when none came;
// -1 also when what lies in the fifo is no whole number of records, which stays
// unread.
int kfifo_read(void* record, int secs);

#endif  // DAEMON_SPOOL_KFIFO_H_
