// Any bytes as one of the fax server's text files: monitors, settings, lists,
// messages, the register. What can be written back is, and read as the same.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "cm/cmdaemon.h"
#include "cm/cmpaths.h"
#include "faxserver/fsconfig.h"
#include "faxserver/fsdmnlst.h"
#include "faxserver/fslist.h"
#include "faxserver/fsmon.h"
#include "faxserver/fsmsg.h"
#include "faxserver/fsqueue.h"
#include "faxserver/fsres.h"
#include "faxserver/fsstat.h"
#include "faxserver/fstags.h"
#include "fuzz/check.h"
#include "fuzz/fax_root.h"
#include "fuzz/input.h"
#include "fuzz/objects.h"

namespace {

constexpr char kUser[] = "ann";
const char* g_root;

void Monitors(const std::string& content) {
  fuzz::Root().Put(cm_get_monitors_file(g_root, kUser), content);
  const kx::Object monitor(fx_get_monlist(g_root, kUser));
  CHECK(monitor != nullptr);
  const std::string text = fuzz::TextOf(monitor.get());
  CHECK(fx_set_monlist(g_root, monitor.get()) == 0);
  const kx::Object back(fx_get_monlist(g_root, kUser));
  CHECK(fuzz::TextOf(back.get()) == text);
}

void Config(const std::string& content) {
  fuzz::Root().Put(cm_get_config_file(g_root, kUser), content);
  const kx::Object config(fx_get_config(g_root, kUser));
  if (config == nullptr) return;
  CHECK(fx_set_config(g_root, kUser, config.get()) == 0);
  const kx::Object back(fx_get_config(g_root, kUser));
  CHECK(fuzz::TextOf(back.get()) == fuzz::TextOf(config.get()));
}

void Tags(const std::string& content) {
  fuzz::Root().Put(cm_get_envtags_file(g_root), content);
  fx_reset_tags();
  std::string again;
  std::vector<std::string> values;
  constexpr const char* kNames[] = {"tnp",      "queue",     "sendres",
                                    "priority", "tsi",       "mailaddr",
                                    "maxtrys",  "retrymins", "exphours"};
  for (const char* name : kNames) {
    values.emplace_back(fx_get_tag(g_root, name));
    CHECK(values.back().size() < 256);
    CHECK(values.back().find('\n') == std::string::npos);
    again += std::string(name) + "=" + values.back() + "\n";
  }
  CHECK(*fx_get_tag(g_root, "nothing") == '\0');
  fuzz::Root().Put(cm_get_envtags_file(g_root), again);
  fx_reset_tags();
  for (std::size_t i = 0; i < values.size(); ++i) {
    CHECK(values[i] == fx_get_tag(g_root, kNames[i]));
  }
}

// Names with a description; of several readers of such files one.
void List(const std::string& content) {
  fuzz::Root().Put(cm_get_prtlist_file(g_root), content);
  const kx::Object list(fx_res_prt_list(g_root));
  CHECK(kx_errno == 0);
  std::string again;
  for (kx_object* entry : kx::Elements(list.get())) {
    const char* name = kx::TextOrEmpty(entry, "rname");
    CHECK(*name != '\0' && *name != '#' && strlen(name) < 16);
    again += std::string(name) + " " + kx::TextOrEmpty(entry, "rdesc") + "\n";
  }
  fuzz::Root().Put(cm_get_prtlist_file(g_root), again);
  const kx::Object back(fx_res_prt_list(g_root));
  CHECK(fuzz::TextOfList(back.get()) == fuzz::TextOfList(list.get()));
}

void DefaultQueue(const std::string& content) {
  fuzz::Root().Put(cm_get_default_file(g_root), content);
  const std::string name = fx_queue_get_default(g_root);
  CHECK(name.size() < 128);
  CHECK(fx_queue_set_default(g_root, name.c_str()) == 0);
  CHECK(name == fx_queue_get_default(g_root));
}

void Message(const std::string& content) {
  fuzz::Root().Put(cm_join_path(cm_get_msgs_dir(g_root, kUser), "m").text,
                   content);
  const kx::Object message(fx_msg_retrieve(g_root, kUser, "m"));
  CHECK(message != nullptr && kx_errno == 0);
  for (kx_object* line : kx::Elements(kx::Child(message.get(), "lines"))) {
    const char* text = kx::TextOrEmpty(line, "text");
    CHECK(*text != '\0' && strlen(text) < 256);
  }
}

void ServerMessages(const std::string& content) {
  fuzz::Root().Put(cm_get_servmsg_file(g_root, kUser), content);
  const kx::Object list(fx_get_srv_list(g_root, kUser, 0));
  CHECK(kx_errno == 0);
  const std::string text = fuzz::TextOfList(list.get());
  fuzz::Root().Put(cm_get_servmsg_file(g_root, kUser), text);
  const kx::Object back(fx_get_srv_list(g_root, kUser, 0));
  CHECK(fuzz::TextOfList(back.get()) == text);
}

// No process is signalled but with signal 0.
void Register(const std::string& content) {
  const char* file = cm_get_dmnlist_file(g_root);
  fuzz::Root().Put(file, content);
  CHECK(fx_chk_daemon_list(g_root, kCmFileDaemon) >= 0);
  CHECK(fx_add_daemon_list(g_root, kCmNetDaemon, getpid()) == 0);
  CHECK(fx_upd_daemon_list(g_root, kCmFileDaemon) == 0);
  CHECK(fx_chk_daemon_list(g_root, kCmFileDaemon) == 0);
}

void Status(const std::string& content) {
  fuzz::Root().Put(cm_join_path(cm_get_evnt_dir(g_root, kUser), "7").text,
                   content);
  const kx::Object status(fx_read_status(g_root, kUser, 7));
  if (status == nullptr) return;
  CHECK(Kfx_Is_Obj_Type(status.get(), "obj-status") == 1);
  const std::string text = fuzz::TextOf(status.get());
  const kx::Object list(fx_get_evt_list(g_root, kUser, 0));
  CHECK(fuzz::TextOfList(list.get()) == text);
}

constexpr void (*kFormats[])(const std::string&) = {
    Monitors, Config,         Tags,     List,  DefaultQueue,
    Message,  ServerMessages, Register, Status};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  g_root = fuzz::Root().path();
  kFormats[data[0] % std::size(kFormats)](
      std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
  return 0;
}
