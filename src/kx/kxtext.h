// The text form: composing, embedded files, and pairs as lines of a file.
//
// - Readers fill two buffers of KX_PAIR_SIZE bytes each.
// - One stream is composed or decomposed at a time.
#ifndef KX_KXTEXT_H_
#define KX_KXTEXT_H_

#include <climits>

#include "kx/kxobj.h"

// Called when a field of the outermost object refuses a value. 0: the field is
// left unset and the composing goes on; any other value fails it with 19.
using kx_refused = int (*)(const kx_fielddef* field, const char* value);

// What a stream may take. Composing takes from both numbers what it uses; the
// first that gets negative is the one that was too small. Several streams can
// share a budget.
struct kx_budget {
  long memory = LONG_MAX;  // bytes of objects and nodes, also of those freed
  long input = LONG_MAX;   // bytes of pairs, as the lines of a file
  // Over the budget, the rest is read over and the outermost object is the
  // result, with nothing nested in it.
  bool keep_outermost = false;
};

// Kfx_Comp_Obj, which has no budget, within one; nothing is unpacked. `refused`
// (null for none) is asked before a value fails the outermost object. Null also
// with 24: over the budget.
kx_object* kx_comp_object_within(kx_budget* budget, const char* type,
                                 kx_reader reader, void* context,
                                 kx_refused refused);

// Gives one pair to the writer, newlines in the value as blanks, so that a
// value (a file's name, say) cannot pass for further lines. The writer's
// result.
int kx_put_pair(kx_writer writer, void* context, const char* name,
                const char* value, int code);

// Opens a file that is to be embedded, for reading: a descriptor, or -1 with
// errno.
using kx_opener = int (*)(const char* path);
// Has files opened by `opener` from now on; null: by their paths, no link in
// the last component followed.
void kx_open_with(kx_opener opener);

// Gives the file at `path` to the writer, encoded. 0, or -1 with 3 (it cannot
// be read) or 6 (the writer failed).
int kx_encode(kx_writer writer, void* context, const char* path);
// Encodes `count` bytes, 0 to 45, into one line. `input` has room for two more
// bytes, whose values do not matter; `output` takes up to 62 bytes with its
// terminator. 0.
int kx_inpbuf(const char* input, char* output, int count);
// Unpacks the embedded file that the reader delivers next into a folder, under
// the base name of the name it carries; an earlier file of that name is
// replaced in one step. Its path in a static buffer, or null, the earlier file
// untouched: 3 (it cannot be written), 6 (the reader failed), 19 (malformed).
const char* kx_decode(kx_reader reader, void* context, const char* directory);
// Decodes one line onto a file. The number of bytes that the line declares, 0
// to 63; bytes that a short line lacks are written as zeros.
int kx_outbuf(const char* line, FILE* file);

// One pair that a reader took back.
struct kx_pair_slot {
  bool full;
  char name[KX_PAIR_SIZE];
  char value[KX_PAIR_SIZE];
};

// A reader over lines of a file, with the slot that holds its pushed-back pair:
// mode kx_read_push fills the slot, any other reads. What a line holds beyond
// KX_PAIR_SIZE - 1 characters is read as a line of its own, which mostly ends
// the object for want of a "=". 0, or -1 at the end of the file and at a line
// without "=".
int kx_read_line(FILE* file, kx_pair_slot* slot, char* name, char* value,
                 int mode);
// A stream with a slot of its own, and the reader whose context that is.
struct kx_source {
  FILE* file;
  kx_pair_slot slot = {};
};
int kx_read_source(void* source, char* name, char* value, int mode);
// Writes one "name=value" line. 0.
int kx_write_line(FILE* file, const char* name, const char* value);

// The reader and the writer of object files; `file` is the FILE*. The reader
// has one slot for the process.
int kx_read_pair_fp(void* file, char* name, char* value, int mode);
int kx_write_pair_fp(void* file, const char* name, const char* value, int code);

#endif  // KX_KXTEXT_H_
