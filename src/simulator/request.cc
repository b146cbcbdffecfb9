#include "simulator/request.h"

#include <string>
#include <vector>

#include "cm/cmpaths.h"
#include "faxserver/fsfiles.h"
#include "faxserver/fsfreq.h"
#include "faxserver/fsnames.h"
#include "faxserver/fsstat.h"
#include "simulator/output.h"
#include "util/kutfile.h"

namespace sim {
namespace {

cm_path StatusPath(const std::string& root, const Request& request) {
  return cm_join_path(cm_get_evnt_dir(root.c_str(), request.client().c_str()),
                      std::to_string(request.seqno()).c_str());
}

// The status of a request, and with it the client: the request file has the
// owner's uid alone, which a user of the fax server need not have.
kx::Object FindStatus(const std::string& root, long seqno) {
  DirReader dir;
  std::vector<std::string> users;
  if (dir.Open(cm_get_faxq_dir(root.c_str())) != 0 ||
      !fx_visible_names(&dir, &users)) {
    return nullptr;
  }
  for (const std::string& user : users) {
    kx::Object status(fx_read_status(root.c_str(), user.c_str(), seqno));
    if (status == nullptr) continue;
    kx::SetText(status.get(), "clientid", user.c_str());
    return status;
  }
  return nullptr;
}

}  // namespace

bool SaveFreq(const std::string& root, const Request& request) {
  return fx_save_freq(root.c_str(), request.freq.get()) == 0;
}

bool SaveStatus(const std::string& root, const Request& request) {
  kx::SetTime(request.status.get(), "stattime",
              static_cast<int>(time(nullptr)));
  return Kfx_Save_Obj(request.status.get(), StatusPath(root, request).text) ==
         0;
}

// The status last: a client that sees one finds the request that it tells of.
bool Save(const std::string& root, const Request& request) {
  return SaveFreq(root, request) && SaveStatus(root, request);
}

bool Retire(const std::string& root, const Request& request) {
  const long seqno = request.seqno();
  // The fax first: after a kill between the two the request is found again; the
  // other way round a fax would lie there that no request names.
  Kut_delete_file(fx_fax_file(root.c_str(), seqno));
  // A copy: the next call has the same buffer.
  const std::string from = fx_freq_file(root.c_str(), seqno, 0);
  const char* to = fx_freq_file(root.c_str(), seqno, 1);
  if (Kut_rename_file(from.c_str(), to) == 0) return true;
  kx_errno = kx_err_system;
  return false;
}

void Discard(const std::string& root, const Request& request) {
  Kut_delete_file(fx_fax_file(root.c_str(), request.seqno()));
  Kut_delete_file(fx_freq_file(root.c_str(), request.seqno(), 0));
  Kut_delete_file(StatusPath(root, request).text);
}

std::vector<Request> LoadRequests(const std::string& root) {
  std::vector<Request> requests;
  const kx::Object list(fx_rd_freqs(root.c_str()));
  for (kx_object* freq : kx::Elements(list.get())) {
    Request request;
    request.freq.reset(Kfx_Copy_Obj(freq));
    request.status = FindStatus(root, request.seqno());
    if (request.status == nullptr) {
      Say("request %ld: no user has its status; left alone", request.seqno());
      continue;
    }
    // What the request file has no room for, the status remembers.
    kx::SetText(request.freq.get(), "clientid", request.client().c_str());
    kx::SetNumber(request.freq.get(), "numpgs",
                  kx::Number(request.status.get(), "numpgs"));
    requests.push_back(std::move(request));
  }
  return requests;
}

}  // namespace sim
