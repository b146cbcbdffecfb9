#include "faxserver/fsqstat.h"

#include <utility>

#include "cm/cmpaths.h"
#include "faxserver/fsbase.h"
#include "faxserver/fsbytes.h"
#include "faxserver/fsfile.h"

namespace {

constexpr size_t kNameAt = 0, kNameSize = 28;
constexpr size_t kAcceptingAt = 28;
constexpr size_t kSinceAt = 32;
constexpr size_t kReasonAt = 36, kReasonSize = 68;
constexpr size_t kTypeAt = 104;

constexpr int16_t kDeviceQueue = 0;
constexpr int16_t kClassQueue = 1;

constexpr size_t kClassLineSize = 128;

int TypeEnum(int16_t type) {
  if (type == kDeviceQueue) return kx_que_device;
  return type == kClassQueue ? kx_que_class : -1;
}

// The devices of a class, without the class itself, into `devices`. False with
// 3 when they cannot be read at present.
bool ReadClass(const char* root, const std::string& name, kx::Object* out) {
  kx::ListBuilder devices;
  const cm_path path = cm_join_plain(cm_get_class_dir(root), name.c_str());
  const fx_stream stream = fx_open_stream(path.text);
  kx_errno = kx_err_system;
  if (stream == nullptr) return !fx_is_shortage();
  char line[kClassLineSize];
  while (fx_read_line(stream.get(), line, sizeof line)) {
    if (*line == '\0' || name == line) continue;
    kx::Object device = fx_build("obj-resource");
    if (kx::SetText(device.get(), "rname", line) != 0) continue;
    fx_append(&devices, std::move(device));
  }
  *out = devices.Take();
  kx_errno = kx_err_system;
  return ferror(stream.get()) == 0;
}

kx::Object MakeQueue(const char* root, const fx_qstat_record& record) {
  kx::Object queue = fx_build("obj-queue");
  kx::SetText(queue.get(), "qname", record.qname.c_str());
  const int type = TypeEnum(record.qtype);
  if (type != -1) kx::SetEnum(queue.get(), "qtype", type);
  kx::SetTime(queue.get(), "asince", record.asince);
  kx::SetBool(queue.get(), "accepting", record.accepting != 0);
  kx::SetText(queue.get(), "areason", record.areason.c_str());
  if (record.qtype == kClassQueue) {
    kx::Object devices;
    if (!ReadClass(root, record.qname, &devices)) return nullptr;
    kx::SetChild(queue.get(), "devices", std::move(devices));
  }
  return queue;
}

}  // namespace

fx_qstat_bytes fx_encode_qstat(const fx_qstat_record& record) {
  fx_qstat_bytes bytes = {};
  fx_put_text(bytes, kNameAt, kNameSize, record.qname);
  fx_put(bytes, kAcceptingAt, record.accepting);
  fx_put(bytes, kSinceAt, record.asince);
  fx_put_text(bytes, kReasonAt, kReasonSize, record.areason);
  fx_put(bytes, kTypeAt, record.qtype);
  return bytes;
}

fx_qstat_record fx_decode_qstat(const fx_qstat_bytes& bytes) {
  fx_qstat_record record;
  record.qname = fx_get_text(bytes, kNameAt, kNameSize);
  record.accepting = fx_get<int16_t>(bytes, kAcceptingAt);
  record.asince = fx_get<int32_t>(bytes, kSinceAt);
  record.areason = fx_get_text(bytes, kReasonAt, kReasonSize);
  record.qtype = fx_get<int16_t>(bytes, kTypeAt);
  return record;
}

bool fx_read_qstat(const char* root, std::vector<fx_qstat_record>* records) {
  const fx_stream stream = fx_open_stream(cm_get_qstat_file(root));
  if (stream == nullptr) return false;
  fx_qstat_bytes bytes;
  while (fread(bytes.data(), bytes.size(), 1, stream.get()) == 1) {
    records->push_back(fx_decode_qstat(bytes));
  }
  return ferror(stream.get()) == 0;
}

kx_object* fx_rd_qstat(const char* root) {
  return fx_guarded([&]() -> kx_object* {
    std::vector<fx_qstat_record> records;
    if (!fx_read_qstat(root, &records)) return fx_null(kx_err_system);
    kx::ListBuilder list;
    for (const fx_qstat_record& record : records) {
      kx::Object queue = MakeQueue(root, record);
      if (queue == nullptr) return nullptr;
      fx_append(&list, std::move(queue));
    }
    return fx_give(list.Take());
  });
}
