// How a change becomes part of the table.
//
//   BeginWrite   writer lock; the table as it is now; repair if it needs one
//   (build)      Change: new pages and slots in memory
//   Commit       grow the files, write the redo entry, flush: the commit point;
//                then write everything in place, unflushed
//   EndWrite     gives the writer lock back
#ifndef ISAM_ISCOMMIT_H_
#define ISAM_ISCOMMIT_H_

#include "isam/ischange.h"
#include "isam/istable.h"

namespace isam {

[[nodiscard]] isam_code BeginWrite(Table& table);
// `keep` leaves the lock with the table for its next change.
void EndWrite(Table& table, bool keep);

// Ends what was begun in a scope, also when there was no memory to go on.
struct WriteScope {
  Table& table;
  bool keep = false;
  ~WriteScope() { EndWrite(table, keep); }
};

// Makes the change durable and visible. kIsamOk from the commit point on, even
// if writing in place fails: then the ring stands in. Every other code means
// that the change was not made. (Only if the disk refuses to take it back too,
// and the power fails before the next change, can it come to life after all.)
[[nodiscard]] isam_code Commit(Change& change);

// How many commits this process has made, to any table.
uint64_t LocalChanges();

// With the writer lock held: writes what the ring holds in place. Nothing to do
// for a table that is in order.
[[nodiscard]] isam_code Repair(Table& table);

}  // namespace isam

#endif  // ISAM_ISCOMMIT_H_
