// The register of daemons, as a client reads it.
//
// - A process that this user may not signal exists all the same: the daemon
//   runs as somebody else.
#ifndef LINK_DAEMONS_H_
#define LINK_DAEMONS_H_

#include <sys/types.h>

#include <string>
#include <vector>

#include "cm/cmdaemon.h"

namespace client {

// The entries in their order; none without a register.
std::vector<cm_daemon> ReadRegister(const std::string& root);

enum class DaemonState {
  kAlive,  // a registered daemon's process exists
  kDead,   // all registered ones are gone from this host
  kNone,   // none is registered
};

// What the register says of the command daemon. Session daemons do not count.
DaemonState FindDaemon(const std::string& root);
// Whether a command daemon that is registered and alive runs as this user. Not
// so by a register that everybody can write, nor by a process that is younger
// than the register's last entry: it got a dead daemon's number.
bool IsDaemonsUser(const std::string& root, uid_t uid);
// The same for the group that it runs as.
bool IsDaemonsGroup(const std::string& root, gid_t gid);

}  // namespace client

#endif  // LINK_DAEMONS_H_
