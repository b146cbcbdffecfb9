// The result codes of the store, and their texts.
#ifndef ISAM_ISCODE_H_
#define ISAM_ISCODE_H_

// Result codes. 2, 12, 18, 19, 100 and 101 are fixed by the callers' tables.
enum isam_code : int {
  kIsamOk = 0,
  kIsamDuplicate = 2,      // a unique key has this value already
  kIsamNoFile = 12,        // no such table, or its creation never finished
  kIsamIndexExists = 18,   // CREIFIL: the .idx file exists and is no leftover
  kIsamDataExists = 19,    // CREIFIL: the table, or a foreign .dat, exists
  kIsamNoCurrent = 100,    // no current record, or it was deleted
  kIsamNotFound = 101,     // no such record; end reached
  kIsamNotStarted = 601,   // INTISAM was not called
  kIsamBadArgument = 602,  // null pointer, unknown mode, impossible description
  kIsamBadNumber = 603,    // no open table or index has this number
  kIsamTooManyFiles = 604,
  kIsamCannotLock = 605,  // another process held the lock all the time that
                          // the budget has for that, 5 seconds without one
  kIsamReadOnly = 606,    // change of a table that was opened for reading
  kIsamNoPermission = 607,
  kIsamIo = 608,          // a system call failed
  kIsamNoSpace = 609,     // disk full; nothing was changed
  kIsamDamaged = 610,     // the files contradict themselves; see isam_rebuild
  kIsamBadVersion = 611,  // not a file of this format version
  kIsamTableFull = 612,   // serial numbers, pages or index levels are used up
  kIsamDeleted = 613,     // the table's files were deleted while it was open
  kIsamNoMemory = 614,
  kIsamTooLong = 615,  // the time of the budget is used up
};

// The text of a code, "SYMBOL: message", static; null for a code that this
// store never returns.
const char* isam_errmsg(int code);

#endif  // ISAM_ISCODE_H_
