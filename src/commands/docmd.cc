#include "commands/docmd.h"

#include <unistd.h>

#include <utility>

#include "commands/cmdaccess.h"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "daemon/spool/logfile.h"
#include "daemon/spool/rsp.h"
#include "daemon/spool/settings.h"
#include "daemon/spool/sxfile.h"
#include "util/kutguard.h"

namespace {

// Fields that a response takes over from its command.
constexpr const char* kEchoed[] = {"sessionid", "reference", "clientid",
                                   "hostname", "clntport"};

// Made in advance: a command whose file is gone gets its answer even when there
// is no memory left to make one.
kx_object* g_reserve = nullptr;

kx_object* BuildResponse(kx_object* cmd, const char* cmdtype) {
  kx_object* rsp = Kfx_Build_Obj("obj-cmdrsp");
  if (rsp == nullptr) rsp = std::exchange(g_reserve, nullptr);
  if (rsp == nullptr) return nullptr;
  for (const char* field : kEchoed) Kfx_Set(rsp, field, Kfx_Get(cmd, field));
  Kfx_Set(rsp, "cmdtype", cmdtype);
  kx::SetBool(rsp, "iscmd", false);
  kx::SetBool(rsp, "respond", kx::Bool(cmd, "respond") == 0);
  return rsp;
}

// The answer to a command that is not its owner's to give; the log has it
// already.
int Refuse(kx_object* rsp) {
  kx::SetNumber(rsp, "result", kx_err_permission);
  kx::SetText(rsp, "errmsg", Kfx_Errmsg(kx_err_permission));
  return -1;
}

// The command's row, or null with the failure in the response.
const cmd_row* FindRow(kx_object* rsp, const char* cmdtype) {
  const int type = Kfx_Str_To_Enum(cmdtype);
  const cmd_row* row = type != -1 ? find_ptbl(type, cmd_table) : nullptr;
  if (row == nullptr) {
    cmd_fail(
        rsp, kx_err_data,
        type == -1 ? "Invalid command type %s" : "Unsupported command type %s",
        cmdtype);
  }
  return row;
}

bool IsTaken(const cmd_takes& takes, kx_object* argument) {
  if (takes.type == nullptr) return true;
  if (*takes.type == '\0') return argument != nullptr;
  return Kfx_Is_Obj_Type(argument, takes.type) != 0;
}

int Run(const cmd_row& row, kx_object* cmd, kx_object* rsp) {
  if ((row.flags & kCmdClientDecides) == 0) kx::SetBool(cmd, "respond", true);
  return Kut_guarded(
      [&] {
        if (!cmd_is_permitted(cmd, (row.flags & kCmdRunsProgram) != 0)) {
          return Refuse(rsp);
        }
        if (const char* excess = sx_cmd_excess(cmd)) {
          return cmd_fail(rsp, kx_err_too_long, "%s", excess);
        }
        return cmd_run(row, cmd, rsp);
      },
      [=] {
        return cmd_fail(rsp, kx_err_memory, "%s", Kfx_Errmsg(kx_err_memory));
      });
}

int Deliver(kx_object* rsp, sx_files files) {
  const int result = rsp_write(file_dir, rsp, save_rsps, files);
  if (result != 0 && num_daemons == 0) {
    do {
      sleep(static_cast<unsigned>(sleeptime > 0 ? sleeptime : 0));
    } while (rsp_check(maxtrys) == 0);
  }
  return result;
}

}  // namespace

int cmd_run(const cmd_row& row, kx_object* cmd, kx_object* rsp) {
  if (!IsTaken(row.takes, cmd_argument(cmd))) {
    return cmd_fail(rsp, row.takes.error, "%s", row.takes.message);
  }
  return row.handler(cmd, rsp);
}

int do_cmd(kx_object* cmd) {
  const char* cmdtype = sx_cmdtype(cmd);
  if (Debug != 0) {
    dmn_logf("Processing %s for %s (%ld-%d)", cmdtype,
             kx::TextOrEmpty(cmd, "clientid"),
             static_cast<long>(kx::Number(cmd, "sessionid")),
             kx::Number(cmd, "reference"));
  }
  kx_object* rsp = BuildResponse(cmd, cmdtype);
  if (rsp == nullptr) {
    dmn_logf("Cannot create response object: %s", Kfx_Errmsg(Kfx_Errno()));
    return -1;
  }
  const cmd_row* row = FindRow(rsp, cmdtype);
  int outcome = row != nullptr ? Run(*row, cmd, rsp) : -1;
  if (kx::Bool(cmd, "respond") == 1) {
    const bool embeds = row != nullptr && (row->flags & kCmdEmbeds) != 0;
    outcome = Deliver(rsp, embeds ? sx_files::kEmbedded : sx_files::kStayNames);
  } else {
    Kfx_Free_Obj(rsp);
  }
  Kfx_Free_Obj(cmd);
  cmd_reserve();
  return outcome;
}

void cmd_reserve() {
  if (g_reserve == nullptr) g_reserve = Kfx_Build_Obj("obj-cmdrsp");
}

void cmd_failed(kx_object* cmd) {
  const char* why = Kfx_Errmsg(Kfx_Errno());
  dmn_logf("Cannot write %s response for %s (%ld-%d): %s",
           kx::TextOrEmpty(cmd, "cmdtype"), kx::TextOrEmpty(cmd, "clientid"),
           static_cast<long>(kx::Number(cmd, "sessionid")),
           kx::Number(cmd, "reference"), why);
}
