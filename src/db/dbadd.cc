#include <cstring>

#include "db/dbpriv.h"

namespace {

constexpr db_code_pair kChangeCodes[] = {
    {kIsamDuplicate, kDbDuplicate},
    {kIsamNoCurrent, kDbNotFound},
    {kIsamCannotLock, kDbLocked},
};

// Runs one change of the store on the handle's buffer inside a lock. A failed
// change has given the lock back itself.
template <typename Change>
int RunLocked(db_handle* db, Change change) {
  if (LKISAM(kIsamEnableLocks) != 0) return db_fail(kDbLocked);
  const int code = change(db->datno, db->buffer);
  if (code != 0) return db_fail_store(code, kChangeCodes);
  LKISAM(kIsamFreeLocks);
  return 0;
}

int CheckWritable(const db_handle* db) {
  return db->mode == kx_pbm_write ? 0 : db_fail(kDbReadOnly);
}

void FillBuffer(db_handle* db, const void* record) {
  for (int i = 0; i < kSerialSize; ++i) {
    db->buffer[i] = static_cast<unsigned char>(db->current >> (8 * i));
  }
  memcpy(db->buffer + kSerialSize, record,
         static_cast<size_t>(db_record_size(db)));
}

// Makes the object's record and hands it to a change.
int ChangeByObject(db_handle* db, kx_object* obj,
                   int (*change)(db_handle* db, const void* record)) {
  const db_block<void> record(
      Kut_malloc(static_cast<size_t>(db_record_size(db))));
  if (record == nullptr) return db_fail(kDbMemory);
  if (db_obj_to_rec(db, obj, record.get()) != 0) return -1;
  return change(db, record.get());
}

}  // namespace

int db_add(db_handle* db, const void* record) {
  if (CheckWritable(db) != 0) return -1;
  FillBuffer(db, record);
  if (RunLocked(db, ADDREC) != 0) return -1;
  db->current = isam_serial(db->buffer);
  return 0;
}

int db_add_obj(db_handle* db, kx_object* obj) {
  return ChangeByObject(db, obj, db_add);
}

int db_upd(db_handle* db, const void* record) {
  if (CheckWritable(db) != 0) return -1;
  FillBuffer(db, record);
  return RunLocked(db, RWTREC);
}

int db_upd_obj(db_handle* db, kx_object* obj) {
  return ChangeByObject(db, obj, db_upd);
}

int db_del(db_handle* db) {
  if (CheckWritable(db) != 0) return -1;
  if (db->current == 0) return db_fail(kDbNotFound);
  return RunLocked(db, [](int datno, void*) { return DELREC(datno); });
}

int db_lock(db_handle* db) {
  if (CheckWritable(db) != 0) return -1;
  const int code = isam_lock(db->datno);
  return code == 0 ? 0 : db_fail_store(code, kChangeCodes);
}

void db_unlock() { LKISAM(kIsamFreeLocks); }
