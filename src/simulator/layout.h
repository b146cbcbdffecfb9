// "krtsim init": lays out the root directory of a fax server with samples of
// all that a client can ask for.
//
// - What is there stays: a second run adds what is missing, users among it. A
//   folder that is not empty and was not laid out here is refused.
#ifndef SIMULATOR_LAYOUT_H_
#define SIMULATOR_LAYOUT_H_

#include "simulator/options.h"

namespace sim {

// The exit status, as in sysexits.h.
int InitRoot(const Options& options);

}  // namespace sim

#endif  // SIMULATOR_LAYOUT_H_
