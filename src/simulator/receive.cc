#include "simulator/receive.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>

#include "cm/cmpaths.h"
#include "faxserver/fsefifo.h"
#include "faxserver/fshdr.h"
#include "faxserver/fsmkfreq.h"
#include "faxserver/fsuser.h"
#include "simulator/output.h"
#include "util/kutdir.h"
#include "util/kuterr.h"
#include "util/kutfile.h"

namespace sim {
namespace {

constexpr int kDefaultPages = 1;
constexpr mode_t kFaxMode = 0660;

bool WriteFax(int dirfd, const std::string& name, int pages) {
  struct stat st;
  FileReplacer file;
  if (fstat(dirfd, &st) != 0 || file.Open(name.c_str(), kFaxMode, dirfd) != 0 ||
      file.stream() == nullptr) {
    return false;
  }
  // Where it may not be given away, it is the caller's.
  static_cast<void>(!fchown(file.fd(), st.st_uid, st.st_gid));
  const fx_faxhdr header = fx_make_faxhdr(static_cast<int16_t>(pages));
  return fx_wr_faxhdr(file.stream(), &header) == 0 && file.Commit() == 0;
}

}  // namespace

std::string PutReceivedFax(const std::string& root, const std::string& user,
                           int pages) {
  // The queue is the user's, who may put a link in its place: it is opened
  // once, and all that follows is by its descriptor.
  DirReader queue;
  if (queue.Open(cm_get_user_dir(root.c_str(), user.c_str()), AT_FDCWD,
                 O_NOFOLLOW) != 0) {
    return "";
  }
  const long seqno = fx_next_seqno(cm_get_iseqno_file(root.c_str()));
  if (seqno < 0) return "";
  const std::string name = "in-" + std::to_string(seqno) + ".fax";
  return WriteFax(queue.fd(), name, pages) ? name : "";
}

int ReceiveFax(const Options& options) {
  if (options.quiet) BeQuiet();
  const std::string& user = options.users.front();
  if (!fx_is_valid_user(options.root.c_str(), user.c_str())) {
    Complain("%s is no user of %s", user.c_str(), options.root.c_str());
    return EX_NOUSER;
  }
  const int pages = std::max(options.pages, kDefaultPages);
  const std::string name = PutReceivedFax(options.root, user, pages);
  if (name.empty()) {
    Complain("cannot put a fax into the queue of %s: %s", user.c_str(),
             Kut_sys_errstr());
    return EX_CANTCREAT;
  }
  // Once the fax is there: clients look when the event comes.
  fx_efifo_send(options.root.c_str(),
                fx_encode_event(user.c_str(), kFxEventFaxes));
  Say("received %s for %s, %d pages", name.c_str(), user.c_str(), pages);
  return EX_OK;
}

}  // namespace sim
