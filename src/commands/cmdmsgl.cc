// "cmd-msglist"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/settings.h"
#include "faxserver/fslist.h"

namespace {

// The lists of this command; all other types belong to "cmd-reslist".
struct MessageList {
  int type;
  kx_object* (*build)(const char* root, const char* user, int since);
};

constexpr MessageList kLists[] = {
    {kx_lst_srvmsgs, fx_get_srv_list}, {kx_lst_faxfiles, fx_get_fax_list},
    {kx_lst_tmsgs, fx_get_msg_list},   {kx_lst_routes, fx_get_rte_list},
    {kx_lst_events, fx_get_evt_list},
};

const MessageList* FindList(int type) {
  for (const MessageList& list : kLists) {
    if (list.type == type) return &list;
  }
  return nullptr;
}

}  // namespace

int process_msglist(kx_object* cmd, kx_object* rsp) {
  kx_object* request = cmd_argument(cmd);
  const char* name = kx::TextOrEmpty(request, "listtype");
  const int type = Kfx_Str_To_Enum(name);
  if (type == -1) {
    return cmd_fail(rsp, kx_err_data, "Invalid list type %s", name);
  }
  // Only the client's own: no other field of the request widens the view.
  const MessageList* entry = FindList(type);
  kx::Object list;
  if (entry != nullptr) {
    const int since = kx::Time(request, "listtime");
    list.reset(entry->build(kfaxdir, cmd_client(cmd), since));
  }
  if (entry == nullptr || Kfx_Errno() != 0) {
    return cmd_fail(rsp, kx_err_data, "Invalid msg type %s", name);
  }
  kx::Object answer = cmd_make_list(name, std::move(list));
  if (answer == nullptr) {
    return cmd_fail_why(rsp, Kfx_Errno(), "Cannot create list req object");
  }
  kx::SetText(answer.get(), "listid", kx::Text(request, "listid"));
  kx::SetText(answer.get(), "listtime", kx::Text(request, "listtime"));
  return cmd_succeed(rsp, std::move(answer));
}
