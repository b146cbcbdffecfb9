#include "commands/cmdtable.h"

namespace {

constexpr int kAlways = 0;

}  // namespace

const cmd_row cmd_table[] = {
    {kx_cmd_noop, process_noop, kAlways},
    {0, nullptr, 0},
};
