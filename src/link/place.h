// Where the fax server is, and who asks.
#ifndef LINK_PLACE_H_
#define LINK_PLACE_H_

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "link/status.h"

namespace client {

// The file with a line KFAXDIR=<directory>, as the service reads it.
constexpr char kDefaultsFile[] = "/etc/default/krtcmd";

// What the field "clientid" holds, in characters.
constexpr size_t kMaxUser = 15;

struct Place {
  std::string root;      // absolute, without links
  std::string source;    // what chose the root, for people
  std::string spool;     // where commands and responses are exchanged
  std::string sessions;  // who has which session number
};

struct Identity {
  std::string user;
  std::string host;
};

// Chooses the root as FindPlace does, and looks at nothing.
void ChooseRoot(const char* root, const char* defaults_file, Place* place);

// The root of the first of: the argument, KFAXDIR, the defaults file, the
// built-in default; null or empty arguments are none. krt_no_root when what was
// chosen is not a fax server's root.
Status FindPlace(const char* root, const char* spool, const char* defaults_file,
                 Place* place);

// The login name of the real uid, or `user` where the process may speak for
// others: as root, as the fax system's user, or in its group.
Status FindIdentity(const char* user, Identity* identity);
// A user's login name, or its number where there is none.
std::string UserName(uid_t uid);
// Whether the process may speak for others.
bool MayActForOthers();

}  // namespace client

#endif  // LINK_PLACE_H_
