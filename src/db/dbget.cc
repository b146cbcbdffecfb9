#include <cstring>

#include "db/dbpriv.h"

namespace {

constexpr db_code_pair kAtTheEnd[] = {{kIsamNotFound, kDbEof}};
constexpr db_code_pair kNoSuchKey[] = {{kIsamNotFound, kDbNotFound}};

// Reads by one step into the handle's buffer. The store's code, or -1 for a
// step that there is none of.
int Read(db_handle* db, int key, int step, const void* text) {
  const int serials = db->datno + 1;
  const int index = serials + key;
  unsigned char serial[kSerialSize];
  switch (step) {
    case kx_pbc_next:
      return db->current == 0 ? FRSREC(index, db->buffer)
                              : NXTREC(index, db->buffer);
    case kx_pbc_prev:
      return db->current == 0 ? LSTREC(index, db->buffer)
                              : PRVREC(index, db->buffer);
    case kx_pbc_first:
      return FRSREC(index, db->buffer);
    case kx_pbc_last:
      return LSTREC(index, db->buffer);
    case kx_pbc_equal:
      return EQLREC(index, text, db->buffer);
    case kx_pbc_gteq:
      return GTEREC(index, text, db->buffer);
    case kx_pbc_alias:
      isam_serial_key(db->current, serial);
      return EQLREC(serials, serial, db->buffer);
    default:
      return -1;
  }
}

}  // namespace

int db_pos(db_handle* db, int key, int step, const void* text) {
  const bool keyed = step == kx_pbc_equal || step == kx_pbc_gteq;
  if (key < 0 || key > db->key_count || (keyed && text == nullptr)) {
    return db_fail(kDbData);
  }
  const int code = Read(db, key, step, text);
  if (code == -1) return db_fail(kDbData);
  if (code != 0) {
    return keyed || step == kx_pbc_alias ? db_fail_store(code, kNoSuchKey)
                                         : db_fail_store(code, kAtTheEnd);
  }
  db->current = isam_serial(db->buffer);
  return 0;
}

int db_get(db_handle* db, int key, int step, const void* text, void* record) {
  if (db_pos(db, key, step, text) != 0) return -1;
  memcpy(record, db->buffer + kSerialSize,
         static_cast<size_t>(db_record_size(db)));
  return 0;
}

int db_get_obj(db_handle* db, int key, kx_object* obj, int step,
               const void* text) {
  if (db_pos(db, key, step, text) != 0) return -1;
  return db_rec_to_obj(db, db->buffer + kSerialSize, obj);
}
