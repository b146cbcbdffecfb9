// The indexed store: fixed-length records in a data file (.dat), reached
// through several keys that are kept as B-trees in one index file (.idx) beside
// it.
//
// - Durable and atomic: a change that was answered with 0 survives the death of
//   any process and a power loss; a change that was not is found whole or not
//   at all. docs/store.md says how.
// - Shared: any number of processes, and several opens in one process, use a
//   table at the same time. A reading operation sees the table as of one
//   moment, including every change that was answered before the operation
//   began; it never waits for a disk flush. A walk (NXTREC or PRVREC again and
//   again) reads up to 32 records ahead and may deliver those for 10
//   milliseconds although another process changes them meanwhile.
// - Results: 0 or an isam_code (iscode.h), unless a function says otherwise;
// every failure
//   is left in `isam_err` as well, which a success does not touch. A failed
//   change leaves the table as it was.
// - Numbers: an open table has a file number n >= 0, its indexes the numbers
//   n+1 (index 0), n+2, ... in the order of the description.
// - Current record: each open table has at most one. Every successful read,
//   ADDREC and RWTREC sets it; a failed call leaves it. It is remembered by its
//   content and its serial number, so the neighbours of a record that was
//   deleted meanwhile, by this process or another, are still found.
// - Buffers belong to the caller; record buffers are record_length bytes long
//   and begin with the serial number: 4 bytes, least significant first (see
//   isam_serial). The store fills them in; what the caller puts there is
//   ignored.
// - One thread at a time. Open tables do not cross a fork: a child closes them
//   (CLISAM; that takes no lock away from the parent) and opens its own.
// - Nothing here throws, exits, prints or handles signals.
//
// Limits: local file systems only (locks, and the kernel's word on restarts,
// must be one machine's). Leaves that lose some of their keys are not merged
// with their neighbours, only empty ones are used again.
#ifndef ISAM_ISAM_H_
#define ISAM_ISAM_H_

#include <cstdint>

#include "isam/iscode.h"
#include "isam/istypes.h"

// Code of the last failed call of this process.
extern int isam_err;

// --- Start and stop ---------------------------------------------------------

// Starts the store; at most `files` (1 to 64) tables can then be open at once.
// `buffers` and `sectors` are hints of which no use is made. Called again while
// started: kIsamBadArgument.
int INTISAM(int buffers, int files, int sectors);

// Closes what is open, forgets tables under creation, stops. 0 also when the
// store was not started.
int CLISAM();

// --- Budget -----------------------------------------------------------------

// Puts a budget in force for whatever this process does from now on, and gives
// back what is left of the one before. The store need not be started.
isam_budget isam_swap_budget(const isam_budget& next);

// --- Files ------------------------------------------------------------------

// From now on paths that do not begin with "/" lead from the open directory
// `dirfd`, which stays the caller's; AT_FDCWD at first. An open table needs it
// no more, one under creation does. New files get the mode given, whatever the
// umask. The store need not be started.
void isam_set_folder(int dirfd, unsigned file_mode = kIsamFileMode);

// Removes one file of a table. The store need not be started.
int isam_remove(const char* path);

// --- Creation ---------------------------------------------------------------

// Begins a table: makes <name>.dat and <name>.idx with the mode that
// isam_set_folder says, and puts the file number in `description`. Only PUTDODA
// and CLIFIL accept that number. The table comes into being with CLIFIL: until
// then it counts as absent, and what a dying creator leaves is used by the
// next. kIsamDataExists, kIsamIndexExists, kIsamBadArgument, kIsamTooManyFiles,
// kIsamCannotLock (somebody else is creating it), or a failure of the system.
int CREIFIL(IFIL* description);

// Finishes the table that CREIFIL began: all of it is on disk when this returns
// 0. A failure takes the files away again.
int CLIFIL(const IFIL* description);

// Puts `count` field definitions (0 to kIsamMaxFields) in the data file;
// between CREIFIL and CLIFIL only.
int PUTDODA(int datno, const DODA* fields, int count);

// --- Open and close ---------------------------------------------------------

enum isam_open_mode : int { kIsamUpdate = 3, kIsamRead = 10 };

// Opens the table of data file `path`, which ends in ".dat". `datno` is -1.
// kIsamRead writes nothing to the files, ever, and works on a read-only mount.
// Returns the file number, or -1 with the code in isam_err: kIsamNoFile,
// kIsamNoPermission, kIsamTooManyFiles, kIsamDamaged, kIsamBadVersion, ...
int OPNRFIL(int datno, const char* path, int mode);

// Closes the table and gives back its locks.
int CLRFIL(int datno);

// Writes the description into `buffer`, which is aligned for an IFIL: an IFIL
// whose pointers lead into the same buffer (so the bytes must not be moved).
// name is the path without extension. Returns the bytes used, or -1 when
// `size` is too small (kIsamBadArgument) or on failure.
int GETIFIL(int datno, int size, void* buffer);

enum isam_fields_mode : int { kIsamAllFields = 4 };
enum isam_file_mode : int { kIsamRecordLength = 0 };

// Writes the field definitions as an array of DODA into `buffer`, aligned for
// one. `mode` is kIsamAllFields. Returns the bytes used (count * sizeof(DODA)),
// or 0 when there are none, `size` is too small or on failure.
int GETDODA(int datno, int size, void* buffer, int mode);

// What `mode` asks for, the record length in bytes, or -1.
int GETFIL(int datno, int mode);

// The number of records, or -1.
int64_t DATENT(int datno);

// --- Changes ----------------------------------------------------------------

enum isam_lock_mode : int { kIsamFreeLocks = 0, kIsamEnableLocks = 2 };

// kIsamEnableLocks: from now on a table's writer lock is taken by its next
// change and kept, so that no other writer comes between the changes of a
// group. kIsamFreeLocks: gives back all writer locks of this process. A failed
// change and CLRFIL give the table's lock back as well, so that a caller which
// stops at an error holds nobody up. Without enabled locks each change takes
// the lock for itself alone; every change is atomic either way.
// kIsamNotStarted, kIsamBadArgument. The lock that is not had in time
// is reported by the change (kIsamCannotLock), as no table is named here.
int LKISAM(int mode);

// Takes the table's writer lock at once and keeps it as above, so that a record
// can be read, altered and rewritten with nobody in between. Lock one table at
// a time: two that wait for each other both fail in the end.
int isam_lock(int datno);

// Adds a record: gives it the next serial number, puts that in `record` and
// makes it current. Serial numbers begin with 1 and never come again.
// kIsamDuplicate: `record` and the current record are unchanged.
int ADDREC(int datno, void* record);

// Replaces the current record by `record`, whose serial number becomes that of
// the current record. kIsamDuplicate, kIsamNoCurrent.
int RWTREC(int datno, void* record);

// Deletes the current record. After that there is none for RWTREC and DELREC;
// NXTREC and PRVREC go to the neighbours of the deleted one. Needs no disk
// space.
int DELREC(int datno);

// --- Reading ----------------------------------------------------------------
// `keyno` is an index number; `record` may be null when only the current record
// is to be moved. 0, kIsamNotFound, or a failure (kIsamDamaged, kIsamIo,
// kIsamCannotLock, ...), which leaves `record` unspecified.

int FRSREC(int keyno, void* record);
int LSTREC(int keyno, void* record);

// The neighbour of the current record in the order of `keyno`, by whichever
// index it was read. kIsamNoCurrent before the first read.
int NXTREC(int keyno, void* record);
int PRVREC(int keyno, void* record);

// The first record whose key equals, or is not less than, `key`: the bytes of
// all segments in order, each padded with NUL to its length (without the 4
// bytes that duplicates add). Upper-cased segments are upper-cased here too,
// and end at their first NUL. So a start of a text, padded with NUL, is the
// place where the texts that begin with it start. For a segment of mode
// kIsamSerial the bytes are those of the serial number, most significant first,
// which is the reverse of how they stand in a record (see isam_serial_key).
int EQLREC(int keyno, const void* key, void* record);
int GTEREC(int keyno, const void* key, void* record);

// The serial number of the current record, 0 when there is none.
uint32_t isam_current(int datno);

// The serial number at the start of a record, and its form as a key.
uint32_t isam_serial(const void* record);
void isam_serial_key(uint32_t serial, unsigned char key[4]);

// --- Check and repair -------------------------------------------------------

// Both take time and memory for what the files hold, not for what they claim:
// a sparse file may speak of four thousand million records.

// Compares every index with every record of the table at `path` (ending in
// ".dat") and walks the free lists. Writes nothing; the table may be in use.
// 0 when all is well, kIsamDamaged after at least one report, or why it could
// not look. `report` may be null.
int isam_check(const char* path, isam_report report, void* context);

// Makes all indexes again from the records alone; also when the .idx file is
// damaged or missing. Records that fail their checksum, and of those with equal
// unique keys all but the oldest, cannot be kept: each is reported. Without
// whole field definitions it is not done (kIsamDamaged): they stand nowhere
// else. Nor is it when most of the data file up to the last record is a hole,
// which would have to be filled. No other process may change the table
// meanwhile (kIsamCannotLock); readers get kIsamDamaged until it is done. Dying
// or failing in it, as at a record that cannot be read (kIsamIo), leaves a
// table that must be rebuilt again. 0, or why it could not be done.
int isam_rebuild(const char* path, isam_report report, void* context);

#endif  // ISAM_ISAM_H_
