// What callers hand to the store and get back from it, and its limits: the
// words that its interface (isam.h) and its units have in common.
#ifndef ISAM_ISTYPES_H_
#define ISAM_ISTYPES_H_

enum isam_segment_mode : int {
  kIsamPlain = 0,   // bytes as they stand
  kIsamUpper = 2,   // text up to the first NUL, compared with a-z as A-Z; bytes
                    // above 127 order by value
  kIsamSerial = 3,  // the serial number (offset 0, length 4)
};

constexpr int kIsamMaxIndexes = 16;
constexpr int kIsamMaxSegments = 8;    // of one index
constexpr int kIsamMaxKey = 240;       // bytes of one key, see IIDX::key_length
constexpr int kIsamMaxRecord = 16384;  // bytes, serial number included
constexpr int kIsamMaxFields = 128;
constexpr int kIsamMaxPath = 255;  // bytes, extension included

struct ISEG {
  int offset;  // in the record, serial number included
  int length;  // bytes, >= 1
  int mode;    // isam_segment_mode
};

struct IIDX {
  int key_length;  // sum of the segment lengths, plus 4 if duplicates is set
  int key_type = 0;
  int duplicates = 0;  // 1: records may share a key value; they then come in
                       // the order of their serial numbers
  int null_key = 0;
  int empty_char = 0;
  int segment_count;
  ISEG* segments;
};

struct IFIL {
  const char* name;     // path without extension
  int file_no;          // -1; CREIFIL puts the file number here
  int record_length;    // bytes, serial number (4) included
  int data_extension;   // bytes the data file grows by at least, >= 0; no more
                        // than 1 MiB of it counts
  int data_mode;        // kept and returned, not used
  int index_count;      // 1 to kIsamMaxIndexes; index 0 is that of the serial
                        // numbers: one kIsamSerial segment, no duplicates
  int index_extension;  // as data_extension, of the index file
  int index_mode;       // kept and returned, not used
  IIDX* indexes;
};

// One field of the record, for the caller's use alone.
struct DODA {
  char name[32];  // NUL-terminated
  int offset;
  int type;
  int length;
};

constexpr unsigned kIsamFileMode = 0660;  // of new files, unless another is set

// What may be spent on tables whose owner cannot be relied on: who can open a
// table can lock it for ever, or make it large.
struct isam_budget {
  int wait_ms = -1;  // waits for locks, all together; -1: each up to 5 seconds
  int time_ms = -1;  // everything, from now on; -1: without end. Afterwards
                     // tables cannot be opened, read or changed (kIsamTooLong)
};

// Receives one line without a newline for each thing found.
using isam_report = void (*)(void* context, const char* line);

#endif  // ISAM_ISTYPES_H_
