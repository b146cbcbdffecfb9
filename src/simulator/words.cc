#include "simulator/words.h"

#include "faxserver/fsbytes.h"
#include "simulator/output.h"

namespace sim {
namespace {

constexpr size_t kNameSize = 16;
constexpr size_t kHostSize = KFIFO_RECORD_SIZE - kNameSize;

const char* EventMeaning(int code) {
  switch (code) {
    case kFxEventFaxes:
      return "received faxes changed";
    case kFxEventMessages:
      return "messages changed";
    case kFxEventCancelled:
      return "a request was cancelled";
    default:
      return "unknown event";
  }
}

}  // namespace

std::string SpoolRecordName(const SpoolRecord& record) {
  return std::string(fx_get_text(record, 0, kNameSize));
}

std::string InWords(const fx_sched_record& record) {
  const int code = fx_sched_record_code(record);
  const std::string seqno = std::to_string(fx_sched_record_seqno(record));
  switch (code) {
    case kFxSchedCancel:
      return "scheduler: cancel request " + seqno;
    case kFxSchedTry:
      return "scheduler: try request " + seqno + " now";
    default:
      return "scheduler: unknown command " + std::to_string(code) +
             " for request " + seqno;
  }
}

std::string InWords(const SpoolRecord& record) {
  const std::string host(fx_get_text(record, kNameSize, kHostSize));
  return "spool: command " + Printable(SpoolRecordName(record)) +
         " submitted from " + (host.empty() ? "no host" : Printable(host));
}

std::string InWords(const char* daemon, const fx_event_record& record) {
  const int code = fx_event_record_code(record);
  return std::string(daemon) + ": event " + std::to_string(code) + " for " +
         Printable(fx_event_user(record)) + ": " + EventMeaning(code);
}

}  // namespace sim
