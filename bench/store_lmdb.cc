#include <lmdb.h>

#include <cstring>

#include "measure.h"
#include "store.h"

namespace {

MDB_val Val(const std::string& s) {
  return {s.size(), const_cast<char*>(s.data())};
}

std::string Text(const MDB_val& val) {
  return {static_cast<const char*>(val.mv_data), val.mv_size};
}

class LmdbStore : public TreeStore {
 public:
  using TreeStore::TreeStore;
  void Open(bool write) override {
    Must(mdb_env_create(&env_) == 0, "mdb_env_create");
    mdb_env_set_mapsize(env_, size_t{1} << 30);
    mdb_env_set_maxdbs(env_, kTreeCount);
    Must(mdb_env_open(env_, dir_.c_str(), write ? 0u : unsigned{MDB_RDONLY},
                      0660) == 0,
         "mdb_env_open");
    Start(write);
    for (size_t i = 0; i < kTreeCount; ++i) {
      Must(mdb_dbi_open(txn_, kTrees[i], write ? unsigned{MDB_CREATE} : 0u,
                        &dbi_[i]) == 0,
           "mdb_dbi_open");
    }
    Commit();
  }
  void Close() override { mdb_env_close(env_); }
  bool Get(const std::string& alias) override {
    Start(false);
    MDB_val key = Val(alias), serial, value;
    const bool found = mdb_get(txn_, dbi_[1], &key, &serial) == 0 &&
                       mdb_get(txn_, dbi_[0], &serial, &value) == 0;
    if (found) memcpy(record_, value.mv_data, kPerson);
    mdb_txn_abort(txn_);
    return found;
  }
  long Scan(const std::string& lname, long most) override {
    Start(false);
    MDB_cursor* cursor;
    mdb_cursor_open(txn_, dbi_[2], &cursor);
    MDB_val key = Val(lname), serial, value;
    long count = 0;
    int code = mdb_cursor_get(cursor, &key, &serial, MDB_SET_RANGE);
    while (code == 0 && count < most) {
      Must(mdb_get(txn_, dbi_[0], &serial, &value) == 0, "mdb_get");
      memcpy(record_, value.mv_data, kPerson);
      ++count;
      code = mdb_cursor_get(cursor, &key, &serial, MDB_NEXT);
    }
    mdb_cursor_close(cursor);
    mdb_txn_abort(txn_);
    return count;
  }

 protected:
  void Begin() override { Start(true); }
  void Commit() override { Must(mdb_txn_commit(txn_) == 0, "mdb_txn_commit"); }
  std::string LastKey() override {
    MDB_cursor* cursor;
    MDB_val key, value;
    mdb_cursor_open(txn_, dbi_[0], &cursor);
    const bool any = mdb_cursor_get(cursor, &key, &value, MDB_LAST) == 0;
    mdb_cursor_close(cursor);
    return any ? Text(key) : "";
  }
  std::string Find(size_t tree, const std::string& text) override {
    MDB_val key = Val(text), value;
    Must(mdb_get(txn_, dbi_[tree], &key, &value) == 0, "mdb_get");
    return Text(value);
  }
  void Put(size_t tree, const std::string& k, const std::string& v) override {
    MDB_val key = Val(k), value = Val(v);
    Must(mdb_put(txn_, dbi_[tree], &key, &value, 0) == 0, "mdb_put");
  }
  void Erase(size_t tree, const std::string& text) override {
    MDB_val key = Val(text);
    Must(mdb_del(txn_, dbi_[tree], &key, nullptr) == 0, "mdb_del");
  }

 private:
  void Start(bool write) {
    Must(mdb_txn_begin(env_, nullptr, write ? 0u : unsigned{MDB_RDONLY},
                       &txn_) == 0,
         "mdb_txn_begin");
  }

  MDB_env* env_ = nullptr;
  MDB_txn* txn_ = nullptr;
  MDB_dbi dbi_[kTreeCount];
};

}  // namespace

std::unique_ptr<Store> MakeLmdb(const std::string& dir) {
  return std::make_unique<LmdbStore>(dir);
}

std::string LmdbVersion() {
  int major, minor, patch;
  mdb_version(&major, &minor, &patch);
  return std::to_string(major) + "." + std::to_string(minor) + "." +
         std::to_string(patch);
}
