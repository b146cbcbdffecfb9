// The records of the four fifos in words, one line each.
#ifndef SIMULATOR_WORDS_H_
#define SIMULATOR_WORDS_H_

#include <array>
#include <string>

#include "daemon/spool/kfifo.h"
#include "faxserver/fscom.h"
#include "faxserver/fsefifo.h"

namespace sim {

// The record of the spool fifo: a file name in the queued directory in its
// first 16 bytes, the client's host in the others, both padded with NULs.
using SpoolRecord = std::array<unsigned char, KFIFO_RECORD_SIZE>;
std::string SpoolRecordName(const SpoolRecord& record);

std::string InWords(const fx_sched_record& record);
std::string InWords(const SpoolRecord& record);
// `daemon` is the session daemon whose fifo brought the event.
std::string InWords(const char* daemon, const fx_event_record& record);

}  // namespace sim

#endif  // SIMULATOR_WORDS_H_
