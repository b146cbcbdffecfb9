#include "commands/cmdtable.h"

#include "commands/handlers.h"

namespace {

constexpr int kAlways = 0;
constexpr int kClientDecides = 1;
constexpr int kRunsProgram = 1;

}  // namespace

// Types that are not here are answered as unsupported. "cmd-statatt" and not
// "cmd-statlst" is the status list: that is what clients send.
const cmd_row cmd_table[] = {
    {kx_cmd_noop, process_noop, kAlways, 0},
    {kx_cmd_sendfax, process_submit, kClientDecides, 0},
    {kx_cmd_fwdfax, process_route, kAlways, 0},
    {kx_cmd_copyfax, process_route, kAlways, 0},
    {kx_cmd_reslist, process_reslist, kAlways, 0},
    {kx_cmd_msglist, process_msglist, kAlways, 0},
    {kx_cmd_filetype, process_filetype, kAlways, 0},
    {kx_cmd_msgret, process_msgret, kAlways, 0},
    {kx_cmd_msgdel, process_msgdel, kAlways, 0},
    {kx_cmd_image, process_image, kAlways, 0},
    {kx_cmd_imgret, process_imgret, kAlways, 0},
    {kx_cmd_imgdel, process_imgdel, kAlways, 0},
    {kx_cmd_imgprint, process_imgprint, kAlways, kRunsProgram},
    {kx_cmd_cvrtags, process_cvrtags, kAlways, 0},
    {kx_cmd_cvrmatch, process_cvrmatch, kAlways, 0},
    {kx_cmd_cancel, process_cancel, kAlways, 0},
    {kx_cmd_try, process_try, kAlways, 0},
    {kx_cmd_getmon, process_getmon, kAlways, 0},
    {kx_cmd_setmon, process_setmon, kAlways, 0},
    {kx_cmd_getcfg, process_getcfg, kAlways, 0},
    {kx_cmd_setcfg, process_setcfg, kAlways, 0},
    {kx_cmd_faxcln, process_clnfax, kAlways, 0},
    {kx_cmd_state, process_state, kAlways, 0},
    {kx_cmd_extcmd, process_extcmd, kAlways, kRunsProgram},
    {kx_cmd_status, process_status, kAlways, 0},
    {kx_cmd_statatt, process_statlist, kAlways, 0},
    {kx_cmd_imgstore, process_imgstore, kAlways, 0},
    {kx_cmd_pbcmd, process_pbcmd, kAlways, 0},
    {0, nullptr, 0, 0},
};
