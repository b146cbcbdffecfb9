// What a command may take at most: memory, lines, bytes, time.
//
// - The table is cm/cmlimits.def. Each limit has its default until
//   cm_set_limits changes it, which a daemon does once, at its start.
#ifndef CM_CMLIMITS_H_
#define CM_CMLIMITS_H_

enum class cm_limit_id {
#define CM_LIMIT(id, name, value, least, most, meaning) id,
#include "cm/cmlimits.def"
#undef CM_LIMIT
  kCount
};

// The limit in force.
long cm_limit(cm_limit_id id);

// Changes limits: "name=value" pairs separated by blanks or commas, a value
// being a number with or without K, M or G (times 1024, its square, its cube).
// Null is no pair. Null when all was understood; else what is wrong, in a
// static buffer, and that pair and those after it changed nothing.
const char* cm_set_limits(const char* text);

// A size or number as people write it, "64M", in a static buffer.
const char* cm_limit_text(long value);

#endif  // CM_CMLIMITS_H_
