// Keys: made from a record, or from what a caller searches for.
#ifndef ISAM_ISKEY_H_
#define ISAM_ISKEY_H_

#include <cstdint>

#include "isam/isformat.h"

namespace isam {

// The whole key of a record, serial number of duplicates included, into
// index.key_length bytes.
void RecordKey(const Index& index, const uint8_t* record, uint8_t* key);

// The search value in the form in which keys are compared, into
// index.value_length bytes.
void SearchKey(const Index& index, const uint8_t* value, uint8_t* key);

}  // namespace isam

#endif  // ISAM_ISKEY_H_
