// Any bytes as one of the fax server's binary files: its records come back from
// their own encoding, and readers of the whole file give what is in it.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "cm/cmpaths.h"
#include "faxserver/fscom.h"
#include "faxserver/fsdstat.h"
#include "faxserver/fsefifo.h"
#include "faxserver/fshdr.h"
#include "faxserver/fsolog.h"
#include "faxserver/fsqstat.h"
#include "faxserver/fsqueue.h"
#include "fuzz/check.h"
#include "fuzz/fax_root.h"
#include "fuzz/input.h"
#include "fuzz/objects.h"

namespace {

const char* g_root;

template <typename Bytes>
std::vector<Bytes> Records(const std::string& content) {
  std::vector<Bytes> records(content.size() / sizeof(Bytes));
  const char* from = content.data();
  for (Bytes& record : records) {
    std::memcpy(record.data(), from, sizeof(Bytes));
    from += sizeof(Bytes);
  }
  return records;
}

// What the encoder makes of a record is read as itself, and is written again
// byte for byte.
template <typename Bytes, typename Record>
void RoundTrip(const std::string& content, Record (*decode)(const Bytes&),
               Bytes (*encode)(const Record&)) {
  for (const Bytes& bytes : Records<Bytes>(content)) {
    const Bytes written = encode(decode(bytes));
    CHECK(encode(decode(written)) == written);
  }
}

void Queues(fuzz::Input* in) {
  // The devices of the class queues, then the queues.
  const std::string devices = in->Until('\0');
  const std::string content = in->Rest();
  RoundTrip(content, fx_decode_qstat, fx_encode_qstat);
  fuzz::Root().Put(cm_get_qstat_file(g_root), content);
  std::vector<fx_qstat_record> records;
  CHECK(fx_read_qstat(g_root, &records));
  CHECK(records.size() == content.size() / kFxQstatSize);
  for (const fx_qstat_record& record : records) {
    const cm_path path =
        cm_join_plain(cm_get_class_dir(g_root), record.qname.c_str());
    if (path.text[0] == '\0' || record.qtype != 1) continue;
    fuzz::Root().Put(path.text, devices);
    const kx::Object queues(fx_rd_qstat(g_root));
    fuzz::TextOfList(queues.get());
    unlink(path.text);
    break;
  }
  const kx::Object queues(fx_rd_qstat(g_root));
  CHECK(Kfx_Bcount(queues.get()) == static_cast<int>(records.size()));
  fuzz::TextOfList(queues.get());
  // In order of their names.
  const kx::Object names(fx_queue_list(g_root));
  std::string last;
  for (kx_object* queue : kx::Elements(names.get())) {
    const std::string name = kx::TextOrEmpty(queue, "rname");
    CHECK(last <= name && name.size() < 16);
    last = name;
  }
}

void Devices(fuzz::Input* in) {
  const std::string content = in->Rest();
  RoundTrip(content, fx_decode_dstat, fx_encode_dstat);
  fuzz::Root().Put(cm_get_dstat_file(g_root), content);
  const kx::Object devices(fx_rd_dstat(g_root));
  CHECK(Kfx_Bcount(devices.get()) ==
        static_cast<int>(content.size() / kFxDstatSize));
  fuzz::TextOfList(devices.get());
}

void Log(fuzz::Input* in) {
  const int max = static_cast<int>(in->Number(1));
  const std::string content = in->Rest();
  RoundTrip(content, fx_decode_olog, fx_encode_olog);
  fuzz::Root().Put(cm_get_olog_file(g_root), content);
  const auto all = Records<fx_olog_bytes>(content);
  if (all.empty()) return;
  const fx_olog_record first = fx_decode_olog(all[0]);
  const auto records =
      fx_read_olog_list(g_root, first.seqno, first.clientid.c_str(), max);
  CHECK(records.size() <= static_cast<size_t>(max) &&
        records.empty() == (max == 0));
  const kx::Object status = kx::Build("obj-status");
  for (std::size_t i = 0; i < records.size(); ++i) {
    CHECK(records[i].seqno == first.seqno &&
          records[i].clientid == first.clientid);
    CHECK(i == 0 || records[i - 1].attempt <= records[i].attempt);
    CHECK(fx_merge_stat_olog(status.get(), records[i]) == 0);
    fuzz::TextOf(status.get());
  }
}

void Header(fuzz::Input* in) {
  std::string content = in->Rest();
  fx_faxhdr header;
  FILE* file = fmemopen(content.data(), content.size(), "r");
  if (file == nullptr) return;
  const int read = fx_rd_faxhdr(file, &header);
  fclose(file);
  CHECK(read == 0 || content.size() < kFxFaxhdrSize || kx_errno == 19);
  if (read != 0) return;
  // It is in the host's order now.
  fx_faxhdr again = header;
  CHECK(fx_fix_faxhdr(&again));
  CHECK(std::memcmp(&again, &header, sizeof header) == 0);
  fx_faxhdr_pages(&header);
}

// The records that go through fifos.
void Events(fuzz::Input* in) {
  const std::string content = in->Rest();
  for (const auto& record : Records<fx_event_record>(content)) {
    const std::string user = fx_event_user(record);
    const auto written =
        fx_encode_event(user.c_str(), fx_event_record_code(record));
    CHECK(fx_event_record_code(written) == fx_event_record_code(record));
    CHECK(fx_event_user(written) == user.substr(0, 15));
  }
  for (const auto& record : Records<fx_sched_record>(content)) {
    const auto written = fx_encode_sched(fx_sched_record_code(record),
                                         fx_sched_record_seqno(record));
    CHECK(fx_sched_record_code(written) == fx_sched_record_code(record));
    CHECK(fx_sched_record_seqno(written) == fx_sched_record_seqno(record));
  }
}

constexpr void (*kFormats[])(fuzz::Input*) = {Queues, Devices, Log, Header,
                                              Events};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  g_root = fuzz::Root().path();
  // A few records show as much as many, and sooner.
  constexpr std::size_t kMost = 1024;
  fuzz::Input in(data, std::min(size, kMost));
  kFormats[in.Byte() % std::size(kFormats)](&in);
  return 0;
}
