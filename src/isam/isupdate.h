// The three changes.
#ifndef ISAM_ISUPDATE_H_
#define ISAM_ISUPDATE_H_

#include <cstdint>

#include "isam/istable.h"

namespace isam {

// `keep_lock` leaves the writer lock with the table if all goes well.
[[nodiscard]] isam_code AddRecord(Table& table, uint8_t* record,
                                  bool keep_lock);
[[nodiscard]] isam_code RewriteRecord(Table& table, uint8_t* record,
                                      bool keep_lock);
[[nodiscard]] isam_code DeleteRecord(Table& table, bool keep_lock);

}  // namespace isam

#endif  // ISAM_ISUPDATE_H_
