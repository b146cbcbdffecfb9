#include "simulator/notify.h"

#include <fcntl.h>

#include <algorithm>

#include "cm/cmpaths.h"
#include "cm/cmresult.h"
#include "faxserver/fsefifo.h"
#include "simulator/output.h"
#include "util/kutdir.h"
#include "util/kuterr.h"
#include "util/kutfile.h"

namespace sim {
namespace {

bool IsWanted(int notify, bool went_well) {
  switch (notify) {
    case kx_not_okfail:
    case kx_not_each:
      return true;
    case kx_not_ok:
      return went_well;
    case kx_not_fail:
      return !went_well;
    default:
      return false;
  }
}

std::string Message(const Request& request, int result) {
  kx_object* status = request.status.get();
  std::string text = "Your fax to ";
  text += kx::TextOrEmpty(status, "tofnum");
  text += " (request " + std::to_string(request.seqno()) + ")\n";
  text += cm_result_to_desc(result);
  text += "\nAttempts: " +
          std::to_string(std::max(kx::Number(status, "attempt"), 0));
  text +=
      "\nPages: " + std::to_string(std::max(kx::Number(status, "npages"), 0));
  return text + "\n";
}

// The directory belongs to the user, who may have put a link in its place.
bool Put(const char* dir, const std::string& name, const std::string& text) {
  DirReader messages;
  FileReplacer file;
  return messages.Open(dir, AT_FDCWD, O_NOFOLLOW) == 0 &&
         file.Open(name.c_str(), 0666, messages.fd()) == 0 &&
         Kut_write_full(file.fd(), text.data(), text.size()) == 0 &&
         file.Commit() == 0;
}

}  // namespace

void LeaveMessage(const std::string& root, const std::string& user,
                  const std::string& name, const std::string& text) {
  if (!Put(cm_get_msgs_dir(root.c_str(), user.c_str()), name, text)) {
    Complain("cannot leave a message for %s: %s", Printable(user).c_str(),
             Kut_sys_errstr());
    return;
  }
  // Once the message is there: the client looks when the event comes. That
  // nobody listens is no fault.
  fx_efifo_send(root.c_str(), fx_encode_event(user.c_str(), kFxEventMessages));
}

void Notify(const std::string& root, const Request& request, int result) {
  // Who cancels a request knows.
  if (result == kCmRequestCancelled) return;
  const int wanted = kx::Enum(request.freq.get(), "notify");
  if (!IsWanted(wanted, result == kCmRequestNormal)) return;
  LeaveMessage(root, request.client(),
               "fax-" + std::to_string(request.seqno()) + ".msg",
               Message(request, result));
}

}  // namespace sim
