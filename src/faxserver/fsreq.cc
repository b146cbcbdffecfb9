#include "faxserver/fsreq.h"

#include <unistd.h>

#include "cm/cmkrt.h"
#include "faxserver/fsbase.h"
#include "faxserver/fscom.h"
#include "faxserver/fsfiles.h"
#include "faxserver/fsfreq.h"
#include "faxserver/fsshm.h"
#include "faxserver/fsuser.h"
#include "util/kutfile.h"
#include "util/kutuser.h"

namespace {

// The uid of a user into `uid`, `otherwise` for an unknown one. False when that
// cannot be told at present: nobody is taken for somebody else, who may more.
bool GetUid(const char* name, int otherwise, int* uid) {
  *uid = Kut_uname_to_uid(name);
  if (*uid == -1 && Kut_is_shortage(errno)) return false;
  if (*uid == -1) *uid = otherwise;
  return true;
}

int CancelRegular(const char* root, const char* clientid, int seqno) {
  const kx::Object freq(fx_load_freq(root, seqno, 0));
  if (freq == nullptr) return -1;
  int caller;
  int owner;
  if (!GetUid(clientid, static_cast<int>(getuid()), &caller) ||
      !GetUid(kx::TextOrEmpty(freq.get(), "clientid"), cm_get_krt_uid(),
              &owner)) {
    return fx_fail(kx_err_system);
  }
  if (caller != owner && !cm_is_krt_admin(caller)) {
    return fx_fail(kx_err_permission);
  }
  if (!fx_is_sched_running(root)) return fx_fail(kx_err_failed);
  return fx_send_cmd(root, fx_encode_sched(kFxSchedCancel, seqno));
}

}  // namespace

int fx_cancel(const char* root, const char* clientid, kx_object* reqid) {
  const char* text = kx::Text(reqid, "seqno");
  if (!fx_is_valid_user(root, clientid) || text == nullptr) {
    return fx_fail(kx_err_data);
  }
  const int seqno = Kfx_Str_To_Long(text);
  switch (kx::Enum(reqid, "reqtype")) {
    case kx_req_regular:
      return CancelRegular(root, clientid, seqno);
    case kx_req_group:
      // A group is cancelled by its members' requests.
      return fx_fail(kx_err_failed);
    default:
      return fx_fail(kx_err_data);
  }
}

int fx_try(const char* root, kx_object* reqid) {
  if (!fx_is_sched_running(root)) return fx_fail(kx_err_no_scheduler);
  const int seqno = kx::Number(reqid, "seqno");
  if (Kut_is_reg_file(fx_freq_file(root, seqno, 0)) == 0) {
    return fx_fail(kx_err_data);
  }
  return fx_send_cmd(root, fx_encode_sched(kFxSchedTry, seqno));
}
