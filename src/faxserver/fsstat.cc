#include "faxserver/fsstat.h"

#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "cm/cmpaths.h"
#include "cm/cmresult.h"
#include "faxserver/fsbase.h"
#include "faxserver/fsfile.h"
#include "faxserver/fsfiles.h"
#include "faxserver/fsfolder.h"
#include "faxserver/fsnames.h"
#include "faxserver/fsolog.h"
#include "util/kutdir.h"
#include "util/kutfile.h"

namespace {

// The directory belongs to the user. A status that travels to a client must
// hold nothing but what a status holds: another object in its list could name
// a file, whose contents would then be sent along.
void KeepLocalTags(kx_object* status) {
  for (kx_object* tag : kx::Elements(kx::Child(status, "ltags"))) {
    if (Kfx_Is_Obj_Type(tag, "obj-localtag") != 0) continue;
    kx::SetChild(status, "ltags", nullptr);
    return;
  }
}

kx::Object ReadStatus(const char* root, const char* clientid, long seqno,
                      kx_budget* budget) {
  const cm_folder events =
      fx_open_folder(root, clientid, cm_get_evnt_dir(root, clientid));
  return fx_read_status_in(events, std::to_string(seqno).c_str(), budget);
}

// Makes a summary of a status: the request without its attempts.
void Reset(kx_object* status) {
  kx::SetNumber(status, "attempt", 0);
  kx::SetNumber(status, "rresult", kCmRequestQueued);
  for (const char* field :
       {"aresult", "npages", "naks", "stime", "etime", "csi"}) {
    kx::SetText(status, field, nullptr);
  }
}

// Whether an entry is the status of a request that is no longer there. Any
// other name is none: it may be one that is being written.
bool IsStale(const char* root, const char* name) {
  const long seqno = fx_plain_number(name);
  return seqno >= 0 && Kut_is_reg_file(fx_freq_file(root, seqno, 0)) == 0;
}

}  // namespace

kx::Object fx_read_status_in(const cm_folder& events, const char* name,
                             kx_budget* budget) {
  const fx_stream stream = fx_stream_on(fx_open_in(events, name, nullptr));
  kx::Object status = fx_read_object(stream.get(), "obj-status", budget);
  if (status == nullptr) return status;
  KeepLocalTags(status.get());
  kx_errno = kx_err_none;
  return status;
}

kx_object* fx_read_status(const char* root, const char* clientid, long seqno) {
  return fx_guarded([&]() -> kx_object* {
    return ReadStatus(root, clientid, seqno, nullptr).release();
  });
}

kx_object* fx_status_list(const char* root, const char* clientid, long seqno) {
  return fx_guarded([&]() -> kx_object* {
    kx_budget budget = fx_object_budget();
    const long whole = budget.memory;
    kx::Object status = ReadStatus(root, clientid, seqno, &budget);
    if (status == nullptr) return nullptr;
    const long one = whole - budget.memory;
    kx::ListBuilder list;
    const int attempts = kx::Number(status.get(), "attempt");
    if (attempts > 0) {
      const std::vector<fx_olog_record> records =
          fx_read_olog_list(root, seqno, clientid, attempts);
      if (records.empty()) return nullptr;
      for (const fx_olog_record& record : records) {
        // The user wrote the status, and how large it is.
        budget.memory -= one;
        if (budget.memory < 0) return fx_null(kx_err_too_long);
        kx::Object copy(Kfx_Copy_Obj(status.get()));
        if (copy == nullptr) return fx_null(kx_err_memory);
        fx_merge_stat_olog(copy.get(), record);
        if (!list.Append(std::move(copy))) return fx_null(kx_err_memory);
      }
      Reset(status.get());
    }
    if (!list.Append(std::move(status))) return fx_null(kx_err_memory);
    return fx_give(list.Take());
  });
}

int fx_clean_events(const char* root, const char* user) {
  return fx_guarded([&]() -> int {
    const cm_folder events =
        fx_open_folder(root, user, cm_get_evnt_dir(root, user));
    std::vector<std::string> names;
    {
      const FileIdentity owner = events.Enter();
      DirReader dir;
      if (!events.valid() || !owner.held() || dir.Open(".", events.fd()) != 0) {
        return fx_ok();
      }
      while (const char* name = dir.Next()) names.emplace_back(name);
    }
    // Not as the owner: where he may not look, every request would be gone.
    std::erase_if(names, [root](const std::string& name) {
      return !IsStale(root, name.c_str());
    });
    const FileIdentity owner = events.Enter();
    if (!owner.held()) return fx_ok();
    for (const std::string& name : names)
      unlinkat(events.fd(), name.c_str(), 0);
    return fx_ok();
  });
}
