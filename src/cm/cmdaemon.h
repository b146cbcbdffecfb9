// The register of daemons, as everybody reads it: who runs, under which process
// id.
//
// The text file krtnet/krtnet.lck below the root holds one line "%d:%s\n", a
// process id and a name, for each daemon. A line without a colon ends it. White
// space around a line does not count.
//
// - Entries of processes that ended stay until the register is rewritten
//   (faxserver/fsdmnlst.h).
// - A process id below 1 (a damaged line) is no process.
#ifndef CM_CMDAEMON_H_
#define CM_CMDAEMON_H_

#include <sys/types.h>

#include <cstdio>
#include <string>
#include <vector>

// The session daemons: of the file protocol, with the spool directory filspool,
// and of the network protocol, with netspool.
constexpr char kCmFileDaemon[] = "krtnet.fil";
constexpr char kCmNetDaemon[] = "krtnet.net";

struct cm_daemon {
  pid_t pid;
  std::string name;
  // Whether it is one of the session daemons.
  bool serves_sessions() const {
    return name == kCmFileDaemon || name == kCmNetDaemon;
  }
};

// Appends all entries of the open register in their order. False with errno
// when it cannot be read to its end. May throw std::bad_alloc.
[[nodiscard]] bool cm_read_daemons(FILE* list, std::vector<cm_daemon>* daemons);

#endif  // CM_CMDAEMON_H_
