#include "commands/cmdtable.h"

#include "commands/handlers.h"

const cmd_row cmd_table[] = {
#define KRT_COMMAND(type, handler, flags, ...) \
  {kx_cmd_##type, process_##handler, flags, {__VA_ARGS__}},
#include "commands/commands.def"
#undef KRT_COMMAND
    {0, nullptr, 0, {}},
};

const cmd_row* find_ptbl(int type, const cmd_row* table) {
  for (; table->type != 0; ++table) {
    if (table->type == type) return table;
  }
  return nullptr;
}
