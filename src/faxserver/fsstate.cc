#include "faxserver/fsstate.h"

#include <utility>

#include "faxserver/fsbase.h"
#include "faxserver/fsdstat.h"
#include "faxserver/fsfreq.h"
#include "faxserver/fsqstat.h"
#include "faxserver/fsqueue.h"
#include "faxserver/fsshm.h"

kx_object* fx_get_state(const char* root) {
  kx::Object state = kx::Build("obj-state");
  if (state == nullptr) return nullptr;
  kx::SetBool(state.get(), "schedup", fx_is_sched_running(root));
  kx::SetText(state.get(), "defq", fx_queue_get_default(root));
  kx::SetChild(state.get(), "devlist", kx::Object(fx_rd_dstat(root)));
  kx::SetChild(state.get(), "queuelist", kx::Object(fx_rd_qstat(root)));
  kx::SetChild(state.get(), "freqlist", kx::Object(fx_rd_freqs(root)));
  return fx_give(std::move(state));
}
