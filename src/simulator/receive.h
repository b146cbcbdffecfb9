// "krtsim receive": a fax comes in.
#ifndef SIMULATOR_RECEIVE_H_
#define SIMULATOR_RECEIVE_H_

#include <string>

#include "simulator/options.h"

namespace sim {

// Puts a fax of so many pages into the user's queue, owned as the queue is. The
// name of its file; empty with errno on failure.
std::string PutReceivedFax(const std::string& root, const std::string& user,
                           int pages);

// The same, told to the user's clients. The exit status, as in sysexits.h.
int ReceiveFax(const Options& options);

}  // namespace sim

#endif  // SIMULATOR_RECEIVE_H_
