// "krtsim run": the rest of the fax server, until it is told to stop.
//
//     FIFO ----------> scheduler: cancel, try       -> status segment, log
//     kfifo ---------> queueing side: new requests  -> requests, answers
//     efifo, twice --> session daemons: events      -> words
//
// - One process and one loop: it waits for the four fifos, for the next time
//   that the scheduler has something to do, and for the signals that end it.
#ifndef SIMULATOR_SERVER_H_
#define SIMULATOR_SERVER_H_

#include "simulator/options.h"

namespace sim {

// The exit status, as in sysexits.h.
int RunServer(const Options& options);

}  // namespace sim

#endif  // SIMULATOR_SERVER_H_
