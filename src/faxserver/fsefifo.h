// Events to the session daemons, which tell a user's clients what changed.
//
// One record, 36 bytes, numbers in the byte order of the host:
//
//     offset  size  content
//          0    16  user name, padded with NULs; a longer one is cut to 15
//         16     4  event code, signed
//         20    16  zero
//
// - The events of a session daemon go through the fifo "efifo" of its spool
//   directory.
// - An event is a hint: no reader, no event, and nobody waits.
// - fx_efifo_open and what follows it work on one reading and one writing
//   descriptor of the process. Both are close-on-exec.
#ifndef FAXSERVER_FSEFIFO_H_
#define FAXSERVER_FSEFIFO_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

enum fx_event_code : int32_t {
  kFxEventFaxes = 2,       // the user's received faxes changed
  kFxEventMessages = 8,    // the user's messages changed
  kFxEventCancelled = 16,  // a request of the user was cancelled
};

constexpr size_t kFxEventSize = 36;
using fx_event_record = std::array<unsigned char, kFxEventSize>;

fx_event_record fx_encode_event(const char* user, int32_t code);
std::string fx_event_user(const fx_event_record& record);
int32_t fx_event_record_code(const fx_event_record& record);

// Gives the event to the daemon of the file protocol, then to that of the
// network protocol, each where it is registered, alive and reading. Returns 0,
// whatever came of it; errno is kept.
int fx_efifo_send(const char* kfaxdir, const fx_event_record& record);

// Makes the fifo of a spool directory, mode 0660 and the fax system's where the
// process may give it away. 0, also when a fifo was there; else -1 with errno.
int fx_efifo_make(const char* dir);
// Opens the fifo of a spool directory, for reading (mode 0) or writing (mode
// 1), in place of one that is open already. Neither waits for the other side:
// writing without a reader fails with ENXIO. 0, or -1 with errno.
int fx_efifo_open(const char* dir, int mode);
// Reads an event, waiting for it at most `seconds`. 0; 1 when there was none
// (also, at once, when no writer is left); -1 on an error and when the fifo
// holds no whole number of records, of which none is read then.
int fx_efifo_read(int seconds, fx_event_record* record);
// Writes an event. 0 or -1.
int fx_efifo_write(const fx_event_record& record);
// Closes what is open. 0, or -1 when a close failed.
int fx_efifo_close();

#endif  // FAXSERVER_FSEFIFO_H_
