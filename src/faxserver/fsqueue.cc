#include "faxserver/fsqueue.h"

#include <cerrno>
#include <string>
#include <vector>

#include "cm/cmpaths.h"
#include "faxserver/fsbase.h"
#include "faxserver/fsfile.h"
#include "faxserver/fslog.h"
#include "faxserver/fsqstat.h"
#include "faxserver/fsres.h"
#include "util/kutfile.h"

namespace {

constexpr size_t kNameSize = 128;

}  // namespace

const char* fx_queue_get_default(const char* root) {
  static char name[kNameSize];
  name[0] = '\0';
  const fx_stream stream = fx_open_stream(cm_get_default_file(root));
  if (stream == nullptr || !fx_read_line(stream.get(), name, sizeof name)) {
    // An empty file names no queue, as a missing one does.
    if (stream != nullptr && ferror(stream.get()) == 0) errno = ENOENT;
    name[0] = '\0';
    kx_errno = kx_err_system;
  } else {
    kx_errno = kx_err_none;
  }
  return name;
}

int fx_queue_set_default(const char* root, const char* name) {
  return fx_guarded([&]() -> int {
    const std::string line = std::string(name != nullptr ? name : "") + "\n";
    FileReplacer file;
    const bool done =
        file.Open(cm_get_default_file(root), 0666) == 0 &&
        file.KeepAttributes() == 0 &&
        Kut_write_full(file.fd(), line.data(), line.size()) == 0 &&
        file.Commit() == 0;
    return done ? fx_ok() : fx_fail(kx_err_system);
  });
}

kx_object* fx_queue_list(const char* root) {
  return fx_guarded([&]() -> kx_object* {
    std::vector<fx_qstat_record> records;
    if (!fx_read_qstat(root, &records)) return fx_null(kx_err_system);
    kx::Object list;
    for (const fx_qstat_record& record : records) {
      kx::Object queue = fx_build("obj-resource");
      if (kx::SetText(queue.get(), "rname", record.qname.c_str()) != 0) {
        fx_logf("Queue name %s is too long", record.qname.c_str());
        continue;
      }
      kx::SetText(queue.get(), "rdesc", record.qname.c_str());
      list.reset(fx_add_in_order(list.release(), queue.release()));
      if (kx_errno == kx_err_memory) return nullptr;
    }
    return fx_give(std::move(list));
  });
}
