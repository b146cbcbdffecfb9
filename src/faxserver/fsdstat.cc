#include "faxserver/fsdstat.h"

#include <utility>

#include "cm/cmpaths.h"
#include "cm/cmstatus.h"
#include "faxserver/fsbase.h"
#include "faxserver/fsbytes.h"
#include "faxserver/fsfile.h"
#include "faxserver/fsshm.h"

namespace {

constexpr size_t kEsinceAt = 28;
constexpr size_t kRsinceAt = 32;
constexpr size_t kRecvingAt = 40;
constexpr size_t kDevnoAt = 42;
constexpr size_t kEnabledAt = 44;

// Where the texts stand, and the object's field of each.
struct TextField {
  size_t offset;
  size_t size;
  std::string fx_dstat_record::*member;
  const char* field;
};

constexpr TextField kTexts[] = {
    {0, 28, &fx_dstat_record::destname, "destname"},
    {46, 65, &fx_dstat_record::ereason, "ereason"},
    {111, 65, &fx_dstat_record::rreason, "rreason"},
    {176, 129, &fx_dstat_record::device, "device"},
    {305, 81, &fx_dstat_record::fim, "fim"},
    {386, 86, &fx_dstat_record::rnp, "rnp"},
};

kx::Object MakeDevice(const char* root, const fx_dstat_record& record) {
  kx::Object device = fx_build("obj-device");
  for (const TextField& text : kTexts) {
    kx::SetText(device.get(), text.field, (record.*text.member).c_str());
  }
  kx::SetTime(device.get(), "esince", record.esince);
  kx::SetTime(device.get(), "rsince", record.rsince);
  kx::SetBool(device.get(), "recving", record.recving != 0);
  kx::SetBool(device.get(), "enabled", record.enabled != 0);
  const int state = fx_get_device_state(root, record.devno);
  if (kx_errno == kx_err_none) {
    kx::SetText(device.get(), "devstate", cm_state_str(state));
  }
  return device;
}

// One attachment serves all devices; none outlives the list.
struct Attachment {
  Attachment() = default;
  Attachment(const Attachment&) = delete;
  Attachment& operator=(const Attachment&) = delete;
  ~Attachment() { fx_shm_detach(); }
};

}  // namespace

fx_dstat_bytes fx_encode_dstat(const fx_dstat_record& record) {
  fx_dstat_bytes bytes = {};
  for (const TextField& text : kTexts) {
    fx_put_text(bytes, text.offset, text.size, record.*text.member);
  }
  fx_put(bytes, kEsinceAt, record.esince);
  fx_put(bytes, kRsinceAt, record.rsince);
  fx_put(bytes, kRecvingAt, record.recving);
  fx_put(bytes, kDevnoAt, record.devno);
  fx_put(bytes, kEnabledAt, record.enabled);
  return bytes;
}

fx_dstat_record fx_decode_dstat(const fx_dstat_bytes& bytes) {
  fx_dstat_record record;
  for (const TextField& text : kTexts) {
    record.*text.member = fx_get_text(bytes, text.offset, text.size);
  }
  record.esince = fx_get<int32_t>(bytes, kEsinceAt);
  record.rsince = fx_get<int32_t>(bytes, kRsinceAt);
  record.recving = fx_get<int16_t>(bytes, kRecvingAt);
  record.devno = fx_get<int16_t>(bytes, kDevnoAt);
  record.enabled = fx_get<int16_t>(bytes, kEnabledAt);
  return record;
}

kx_object* fx_rd_dstat(const char* root) {
  return fx_guarded([&]() -> kx_object* {
    const fx_stream stream = fx_open_stream(cm_get_dstat_file(root));
    if (stream == nullptr) return fx_null(kx_err_system);
    const Attachment attachment;
    kx::ListBuilder list;
    fx_dstat_bytes bytes;
    while (fread(bytes.data(), bytes.size(), 1, stream.get()) == 1) {
      fx_append(&list, MakeDevice(root, fx_decode_dstat(bytes)));
    }
    if (ferror(stream.get()) != 0) return fx_null(kx_err_system);
    return fx_give(list.Take());
  });
}
