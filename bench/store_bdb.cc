#include <db.h>

#include <cstring>

#include "measure.h"
#include "store.h"

namespace {

DBT Dbt(const std::string& s) {
  DBT dbt = {};
  dbt.data = const_cast<char*>(s.data());
  dbt.size = static_cast<uint32_t>(s.size());
  return dbt;
}

std::string Text(const DBT& dbt) {
  return {static_cast<const char*>(dbt.data), dbt.size};
}

class BdbStore : public TreeStore {
 public:
  using TreeStore::TreeStore;
  void Open(bool) override {
    db_env_create(&env_, 0);
    env_->set_cachesize(env_, 0, 8 << 20, 1);
    Must(env_->open(env_, dir_.c_str(),
                    DB_CREATE | DB_INIT_TXN | DB_INIT_LOCK | DB_INIT_LOG |
                        DB_INIT_MPOOL,
                    0660) == 0,
         "DB_ENV->open");
    env_->log_set_config(env_, DB_LOG_AUTO_REMOVE, 1);
    for (size_t i = 0; i < kTreeCount; ++i) {
      db_create(&db_[i], env_, 0);
      Must(db_[i]->open(db_[i], nullptr, "book.db", kTrees[i], DB_BTREE,
                        DB_CREATE | DB_AUTO_COMMIT, 0660) == 0,
           "DB->open");
    }
  }
  void Close() override {
    for (DB* db : db_) db->close(db, 0);
    env_->close(env_, 0);
  }
  bool Get(const std::string& alias) override {
    DBT key = Dbt(alias), serial = {}, value = {};
    if (db_[1]->get(db_[1], nullptr, &key, &serial, 0) != 0) return false;
    if (db_[0]->get(db_[0], nullptr, &serial, &value, 0) != 0) return false;
    memcpy(record_, value.data, kPerson);
    return true;
  }
  long Scan(const std::string& lname, long most) override {
    DBC* cursor;
    db_[2]->cursor(db_[2], nullptr, &cursor, 0);
    DBT key = Dbt(lname), serial = {}, value = {};
    long count = 0;
    int code = cursor->get(cursor, &key, &serial, DB_SET_RANGE);
    while (code == 0 && count < most) {
      Must(db_[0]->get(db_[0], nullptr, &serial, &value, 0) == 0, "DB->get");
      memcpy(record_, value.data, kPerson);
      ++count;
      code = cursor->get(cursor, &key, &serial, DB_NEXT);
    }
    cursor->close(cursor);
    return count;
  }

 protected:
  void Begin() override {
    Must(env_->txn_begin(env_, nullptr, &txn_, 0) == 0, "txn_begin");
  }
  void Commit() override { Must(txn_->commit(txn_, 0) == 0, "DB_TXN->commit"); }
  std::string LastKey() override {
    DBC* cursor;
    DBT key = {}, value = {};
    db_[0]->cursor(db_[0], txn_, &cursor, 0);
    const bool any = cursor->get(cursor, &key, &value, DB_LAST | DB_RMW) == 0;
    const std::string text = any ? Text(key) : "";
    cursor->close(cursor);
    return text;
  }
  std::string Find(size_t tree, const std::string& text) override {
    DBT key = Dbt(text), value = {};
    Must(db_[tree]->get(db_[tree], txn_, &key, &value, DB_RMW) == 0, "DB->get");
    return Text(value);
  }
  void Put(size_t tree, const std::string& k, const std::string& v) override {
    DBT key = Dbt(k), value = Dbt(v);
    Must(db_[tree]->put(db_[tree], txn_, &key, &value, 0) == 0, "DB->put");
  }
  void Erase(size_t tree, const std::string& text) override {
    DBT key = Dbt(text);
    Must(db_[tree]->del(db_[tree], txn_, &key, 0) == 0, "DB->del");
  }

 private:
  DB_ENV* env_ = nullptr;
  DB_TXN* txn_ = nullptr;
  DB* db_[kTreeCount];
};

}  // namespace

std::unique_ptr<Store> MakeBdb(const std::string& dir) {
  return std::make_unique<BdbStore>(dir);
}

std::string BdbVersion() {
  int major, minor, patch;
  db_version(&major, &minor, &patch);
  return std::to_string(major) + "." + std::to_string(minor) + "." +
         std::to_string(patch);
}
