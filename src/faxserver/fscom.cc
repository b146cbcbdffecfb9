#include "faxserver/fscom.h"

#include "cm/cmpaths.h"
#include "faxserver/fsbase.h"
#include "faxserver/fsbytes.h"
#include "faxserver/fsfifo.h"
#include "util/kutfifo.h"

namespace {

constexpr size_t kCodeAt = 0;
constexpr size_t kSeqnoAt = 8;

}  // namespace

fx_sched_record fx_encode_sched(uint16_t code, int32_t seqno) {
  fx_sched_record record = {};
  fx_put(record, kCodeAt, code);
  fx_put(record, kSeqnoAt, seqno);
  return record;
}

uint16_t fx_sched_record_code(const fx_sched_record& record) {
  return fx_get<uint16_t>(record, kCodeAt);
}

int32_t fx_sched_record_seqno(const fx_sched_record& record) {
  return fx_get<int32_t>(record, kSeqnoAt);
}

int fx_send_cmd(const char* kfaxdir, const fx_sched_record& record) {
  const int sent = Kut_send_record(cm_get_fifo_file(kfaxdir), record.data(),
                                   record.size(), kFxFifoSeconds);
  return sent == 0 ? fx_ok() : fx_fail(kx_err_system);
}
