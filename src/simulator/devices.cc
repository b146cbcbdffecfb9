#include "simulator/devices.h"

#include <algorithm>
#include <cassert>

#include "cm/cmpaths.h"
#include "faxserver/fsdstat.h"
#include "faxserver/fsfile.h"
#include "faxserver/fsqstat.h"
#include "faxserver/fsshm.h"

namespace sim {
namespace {

enum State : int { kIdle = 2, kSending = 3 };  // see cm/cmstatus.h

constexpr int kMaxDevices = 1000;  // more are a damaged dstat

}  // namespace

Devices::Devices(const std::string& root) : root_(root) {
  // fx_rd_dstat would detach the segment.
  const fx_stream stream = fx_open_stream(cm_get_dstat_file(root.c_str()));
  fx_dstat_bytes bytes;
  while (stream != nullptr &&
         fread(bytes.data(), bytes.size(), 1, stream.get()) == 1) {
    const fx_dstat_record record = fx_decode_dstat(bytes);
    // The number is a record's place in the status segment.
    if (record.devno < 0 || record.devno >= kMaxDevices ||
        record.enabled == 0) {
      continue;
    }
    devices_.push_back({record.destname, record.devno, false});
  }
  if (stream == nullptr) devices_.push_back({"fax0", 0, false});
}

int Devices::count() const {
  int highest = -1;
  for (const Device& device : devices_) {
    highest = std::max(highest, device.number);
  }
  return highest + 1;
}

void Devices::Announce() const {
  for (const Device& device : devices_) {
    fx_set_device_state(device.number, kIdle);
  }
}

int Devices::Take(const std::string& queue) {
  const std::vector<std::string> names = Serving(queue);
  for (Device& device : devices_) {
    if (device.busy) continue;
    if (!names.empty() &&
        std::find(names.begin(), names.end(), device.name) == names.end()) {
      continue;
    }
    device.busy = true;
    fx_set_device_state(device.number, kSending);
    return device.number;
  }
  return -1;
}

void Devices::Release(int device) {
  devices_[IndexOf(device)].busy = false;
  fx_set_device_state(device, kIdle);
}

const std::string& Devices::name(int device) const {
  return devices_[IndexOf(device)].name;
}

size_t Devices::IndexOf(int device) const {
  const auto at =
      std::find_if(devices_.begin(), devices_.end(),
                   [&](const Device& d) { return d.number == device; });
  assert(at != devices_.end());
  return static_cast<size_t>(at - devices_.begin());
}

std::vector<std::string> Devices::Serving(const std::string& queue) const {
  // Read anew for each request: classes are changed while this runs.
  const kx::Object queues(fx_rd_qstat(root_.c_str()));
  for (kx_object* known : kx::Elements(queues.get())) {
    if (queue != kx::TextOrEmpty(known, "qname")) continue;
    if (kx::Enum(known, "qtype") != kx_que_class) return {queue};
    std::vector<std::string> names;
    for (kx_object* device : kx::Elements(kx::Child(known, "devices"))) {
      names.emplace_back(kx::TextOrEmpty(device, "rname"));
    }
    return names;
  }
  return {};
}

}  // namespace sim
