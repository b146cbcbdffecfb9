#include <cstring>

#include "db/dbpriv.h"
#include "util/kutfile.h"

namespace {

constexpr int kStoreBuffers = 6;
constexpr int kStoreFiles = 10;
constexpr int kStoreSectors = 4;

int g_users = 0;

// `path` with the extension given, or without one for null. kDbData when it
// does not fit.
int SetPath(const char* path, const char* extension, char (&out)[256]) {
  constexpr size_t kExtensionSize = sizeof ".dat";
  if (path == nullptr || *path == '\0' ||
      strlen(path) + kExtensionSize > sizeof out) {
    return db_fail(kDbData);
  }
  strcpy(out, path);
  return Kut_set_file_ext(out, extension);
}

// Creates the table while the store runs.
int Create(db_description* description, const char* path,
           const db_field* fields) {
  static constexpr db_code_pair kExistsCodes[] = {{kIsamIndexExists, kDbExists},
                                                  {kIsamDataExists, kDbExists}};
  const int created = CREIFIL(&description->file);
  if (created != 0) return db_fail_store(created, kExistsCodes);
  DODA doda[kIsamMaxFields];
  const int stored =
      PUTDODA(description->file.file_no, doda, db_flds_to_doda(fields, doda));
  const int closed = CLIFIL(&description->file);
  if (stored == 0 && closed == 0) return 0;
  // A table without its fields is of no use to anybody.
  if (closed == 0) db_delete(path);
  return db_fail_store(stored != 0 ? stored : closed);
}

int DeleteFile(const char* path, const char* extension) {
  char name[sizeof db_handle::path];
  if (SetPath(path, extension, name) != 0) return -1;
  const int code = isam_remove(name);
  return code == 0 ? 0 : db_fail_store(code);
}

// Opens the data file and what belongs to it, while the store runs.
int Open(db_handle* db, const db_field* pseudo) {
  static constexpr db_code_pair kAbsentCode[] = {{kIsamNoFile, kDbAbsent}};
  const int datno =
      OPNRFIL(-1, db->path, db->mode == kx_pbm_read ? kIsamRead : kIsamUpdate);
  if (datno < 0) return db_fail_store(isam_err, kAbsentCode);
  db->datno = static_cast<int16_t>(datno);
  if (db_info(datno, &db->fields, &db->keys, pseudo) != 0) return -1;
  db->record_length = GETFIL(datno, kIsamRecordLength);
  if (db->record_length <= kSerialSize) return db_fail_store(isam_err);
  while (db->keys[db->key_count].unique != -1) ++db->key_count;
  db->buffer = static_cast<unsigned char*>(
      Kut_malloc(static_cast<size_t>(db->record_length)));
  return db->buffer != nullptr ? 0 : db_fail(kDbMemory);
}

void FreeHandle(db_handle* db) {
  Kut_free(db->fields);
  Kut_free(db->keys);
  Kut_free(db->buffer);
  Kut_free(db);
}

}  // namespace

int db_init() {
  if (g_users == 0) {
    const int code = INTISAM(kStoreBuffers, kStoreFiles, kStoreSectors);
    if (code != 0) return db_fail_store(code);
  }
  ++g_users;
  return 0;
}

int db_end() {
  if (g_users == 0 || --g_users > 0) return 0;
  const int code = CLISAM();
  return code == 0 ? 0 : db_fail_store(code);
}

void db_set_folder(int dirfd, unsigned file_mode) {
  isam_set_folder(dirfd, file_mode);
}

db_budget db_swap_budget(const db_budget& next) {
  const isam_budget before = isam_swap_budget({next.wait_ms, next.time_ms});
  return {before.wait_ms, before.time_ms};
}

int db_create(const char* path, const db_field* fields, const db_key* keys) {
  char name[sizeof db_handle::path];
  db_description description;
  if (SetPath(path, nullptr, name) != 0 ||
      db_ifil_wr(name, fields, keys, &description) != 0 || db_init() != 0) {
    return -1;
  }
  const int result = Create(&description, path, fields);
  const int error = db_errnum;
  if (db_end() == 0 || result == 0) return result;
  // Stopping the store failed too; what failed first is told.
  return db_fail(error);
}

int db_delete(const char* path) {
  const int data = DeleteFile(path, "dat");
  const int code = db_ct_errno;
  const int index = DeleteFile(path, "idx");
  if (data != 0) db_ct_errno = code;
  return data == 0 && index == 0 ? 0 : -1;
}

db_handle* db_open(const char* path, int mode, const db_field* pseudo) {
  if (mode != kx_pbm_read && mode != kx_pbm_write) {
    db_fail(kDbData);
    return nullptr;
  }
  auto* db = static_cast<db_handle*>(Kut_calloc(1, sizeof(db_handle)));
  if (db == nullptr) {
    db_fail(kDbMemory);
    return nullptr;
  }
  db->datno = -1;
  db->mode = mode;
  if (SetPath(path, "dat", db->path) != 0 || db_init() != 0) {
    FreeHandle(db);
    return nullptr;
  }
  if (Open(db, pseudo) == 0) return db;
  const int error = db_errnum;
  const int code = db_ct_errno;
  db_close(db);
  db_errnum = error;
  db_ct_errno = code;
  return nullptr;
}

int db_close(db_handle* db) {
  const int code = db->datno >= 0 ? CLRFIL(db->datno) : 0;
  FreeHandle(db);
  const int ended = db_end();
  return code == 0 ? ended : db_fail_store(code);
}

int64_t db_count(db_handle* db) {
  const int64_t count = DATENT(db->datno);
  return count >= 0 ? count : db_fail_store(isam_err);
}

int db_record_size(const db_handle* db) {
  return db->record_length - kSerialSize;
}
