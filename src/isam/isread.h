// Moving the current record of a table.
#ifndef ISAM_ISREAD_H_
#define ISAM_ISREAD_H_

#include <cstdint>

#include "isam/istable.h"

namespace isam {

enum class Step { kFirst, kLast, kNext, kPrev, kEqual, kGreaterEqual };

// Makes the record that `step` leads to the current one and copies it to `out`
// unless that is null. `value` is the search value of kEqual and kGreaterEqual.
[[nodiscard]] isam_code ReadStep(Table& table, uint32_t index, Step step,
                                 const uint8_t* value, uint8_t* out);

// Makes `record` the current one.
void SetCursor(Table& table, const uint8_t* record);

}  // namespace isam

#endif  // ISAM_ISREAD_H_
