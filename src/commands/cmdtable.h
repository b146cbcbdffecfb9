// Every command that the daemon serves.
#ifndef COMMANDS_CMDTABLE_H_
#define COMMANDS_CMDTABLE_H_

#include "commands/docmd.h"

// Ended by a row of type 0.
extern const cmd_row cmd_table[];

#endif  // COMMANDS_CMDTABLE_H_
