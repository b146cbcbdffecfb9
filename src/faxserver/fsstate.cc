#include "faxserver/fsstate.h"

#include <utility>

#include "faxserver/fsbase.h"
#include "faxserver/fsdstat.h"
#include "faxserver/fsfreq.h"
#include "faxserver/fsqstat.h"
#include "faxserver/fsqueue.h"
#include "faxserver/fsshm.h"

namespace {

// Puts a list into the state. One that is not there stays out, but not one that
// could not be read at present.
bool Fill(kx_object* state, const char* field, kx_object* list) {
  if (list == nullptr && fx_is_shortage()) return false;
  kx::SetChild(state, field, kx::Object(list));
  return true;
}

}  // namespace

kx_object* fx_get_state(const char* root) {
  kx::Object state = kx::Build("obj-state");
  if (state == nullptr) return nullptr;
  const bool up = fx_is_sched_running(root);
  if (!up && fx_is_shortage()) return nullptr;
  kx::SetBool(state.get(), "schedup", up);
  const char* queue = fx_queue_get_default(root);
  if (*queue == '\0' && fx_is_shortage()) return nullptr;
  kx::SetText(state.get(), "defq", queue);
  if (!Fill(state.get(), "devlist", fx_rd_dstat(root)) ||
      !Fill(state.get(), "queuelist", fx_rd_qstat(root)) ||
      !Fill(state.get(), "freqlist", fx_rd_freqs(root))) {
    return nullptr;
  }
  return fx_give(std::move(state));
}
