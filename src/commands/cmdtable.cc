#include "commands/cmdtable.h"

#include "commands/cmdpcmd.h"

namespace {

constexpr int kAlways = 0;

}  // namespace

const cmd_row cmd_table[] = {
    {kx_cmd_noop, process_noop, kAlways},
    {kx_cmd_pbcmd, process_pbcmd, kAlways},
    {0, nullptr, 0},
};
