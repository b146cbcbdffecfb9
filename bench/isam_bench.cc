// The store against the embedded stores that one would take instead, at the
// work that the phone book does: short-lived opens of three tables around one
// operation. Persons as they are kept: 704 bytes and a serial number, with the
// real five keys.
//
// The peers are used as they do best: SQLite with one file for the three tables
// and its keys as columns, LMDB and Berkeley DB with keys cut to their text.
// All changes are durable when they return. Peers that are not installed are
// left out.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "isam/isam.h"
#include "isam/issys.h"
#if __has_include(<sqlite3.h>) && defined(HAVE_SQLITE)
#include <sqlite3.h>
#define WITH_SQLITE 1
#endif
#if __has_include(<lmdb.h>) && defined(HAVE_LMDB)
#include <lmdb.h>
#define WITH_LMDB 1
#endif
#if __has_include(<db.h>) && defined(HAVE_BDB)
#include <db.h>
#define WITH_BDB 1
#endif

// --- Flushes are counted as they leave the process ---

static long g_flushes = 0;
static bool g_no_flush = false;  // while tables are filled

extern "C" int fdatasync(int fd) {
  ++g_flushes;
  return g_no_flush ? 0 : static_cast<int>(syscall(SYS_fdatasync, fd));
}
extern "C" int fsync(int fd) {
  ++g_flushes;
  return g_no_flush ? 0 : static_cast<int>(syscall(SYS_fsync, fd));
}
extern "C" int msync(void* at, size_t size, int flags) {
  ++g_flushes;
  return g_no_flush ? 0 : static_cast<int>(syscall(SYS_msync, at, size, flags));
}

namespace {

constexpr int kAlias = 16, kName = 32, kCompany = 64;
constexpr int kPerson = 704, kRecord = kPerson + 4;
constexpr int kRest = kPerson - kAlias - 2 * kName - kCompany;

// --- Persons ---

struct Person {
  std::string alias, lname, fname, company;
  std::string rest;
};

std::string Word(uint32_t n, size_t syllables) {
  static constexpr const char* kSyllables[] = {
      "BA",   "DER", "KO",  "LIN", "MUR", "NE",  "PAS", "RO",
      "STEN", "TI",  "VAL", "WEN", "ZU",  "HAR", "GIM", "FO"};
  std::string word;
  for (; syllables > 0; --syllables, n /= 16) word += kSyllables[n % 16];
  return word;
}

// Spreads numbers so that keys come in no order at all.
uint64_t Mix(uint64_t n) {
  n = (n + 0x9e3779b97f4a7c15) * 0xbf58476d1ce4e5b9;
  n = (n ^ (n >> 27)) * 0x94d049bb133111eb;
  return n ^ (n >> 31);
}

Person MakePerson(uint32_t n) {
  const uint64_t mixed = Mix(n);
  Person p;
  char alias[16];
  snprintf(alias, sizeof alias, "U%011llu",
           static_cast<unsigned long long>(mixed % 100'000'000'000));
  p.alias = alias;
  p.lname = Word(static_cast<uint32_t>(mixed), 3);        // 4096 of them
  p.fname = Word(static_cast<uint32_t>(mixed >> 16), 2);  // 256
  p.company = Word(static_cast<uint32_t>(mixed >> 32), 3) + " COMPANY";
  p.rest.assign(kRest, static_cast<char>('a' + n % 26));
  return p;
}

std::string Field(const std::string& text, size_t size) {
  std::string field = text;
  field.resize(size, '\0');
  return field;
}

std::string PersonRecord(const Person& p) {
  return Field(p.alias, kAlias) + Field(p.lname, kName) +
         Field(p.fname, kName) + Field(p.company, kCompany) + p.rest;
}

// --- What every store can do ---

class Store {
 public:
  explicit Store(std::string dir) : dir_(std::move(dir)) {}
  virtual ~Store() = default;
  virtual void Create() = 0;
  virtual void Open(bool write) = 0;
  virtual void Close() = 0;
  virtual void Add(const Person& person) = 0;
  virtual void Delete(const std::string& alias) = 0;
  virtual bool Get(const std::string& alias) = 0;
  // Reads by last name from `lname` on, at most `most`: the number read.
  virtual long Scan(const std::string& lname, long most) = 0;
  virtual void BeginBulk() {}
  virtual void EndBulk() {}
  const std::string& dir() const { return dir_; }

 protected:
  std::string dir_;
};

void Must(bool good, const char* what) {
  if (good) return;
  fprintf(stderr, "bench: %s failed\n", what);
  abort();
}

// --- This store ---

class OurStore : public Store {
 public:
  using Store::Store;
  void Create() override {
    ISEG serial = {0, 4, kIsamSerial}, alias = {4, kAlias, kIsamUpper},
         lname = {20, kName, kIsamUpper}, fname = {52, kName, kIsamUpper},
         company[] = {{84, kCompany, kIsamUpper}, lname};
    IIDX person[] = {{4, 0, 0, 0, 0, 1, &serial},
                     {kAlias, 0, 0, 0, 0, 1, &alias},
                     {kName + 4, 0, 1, 0, 0, 1, &lname},
                     {kName + 4, 0, 1, 0, 0, 1, &fname},
                     {kCompany + kName + 4, 0, 1, 0, 0, 2, company}};
    CreateTable("pbper", kRecord, 5, person);
    CreateTable("pbgrp", 84, 2, person);
    ISEG both[] = {{4, 16, kIsamUpper}, {20, 16, kIsamUpper}};
    ISEG swapped[] = {both[1], both[0]};
    IIDX member[] = {{4, 0, 0, 0, 0, 1, &serial},
                     {32, 0, 0, 0, 0, 2, both},
                     {32, 0, 0, 0, 0, 2, swapped}};
    CreateTable("pbmem", 36, 3, member);
  }
  void Open(bool write) override {
    const int mode = write ? kIsamUpdate : kIsamRead;
    Must(INTISAM(6, 10, 4) == 0, "INTISAM");
    person_ = OPNRFIL(-1, (dir_ + "/pbper.dat").c_str(), mode);
    group_ = OPNRFIL(-1, (dir_ + "/pbgrp.dat").c_str(), mode);
    member_ = OPNRFIL(-1, (dir_ + "/pbmem.dat").c_str(), mode);
    Must(person_ >= 0 && group_ >= 0 && member_ >= 0, "OPNRFIL");
  }
  void Close() override {
    CLRFIL(member_);
    CLRFIL(group_);
    CLRFIL(person_);
    CLISAM();
  }
  void Add(const Person& p) override {
    std::string record = std::string(4, '\0') + PersonRecord(p);
    LKISAM(kIsamEnableLocks);
    Must(ADDREC(person_, record.data()) == 0, "ADDREC");
    LKISAM(kIsamFreeLocks);
  }
  void Delete(const std::string& alias) override {
    Must(EQLREC(person_ + 2, Field(alias, kAlias).c_str(), nullptr) == 0,
         "EQLREC");
    LKISAM(kIsamEnableLocks);
    Must(DELREC(person_) == 0, "DELREC");
    LKISAM(kIsamFreeLocks);
  }
  bool Get(const std::string& alias) override {
    return EQLREC(person_ + 2, Field(alias, kAlias).c_str(), record_) == 0;
  }
  long Scan(const std::string& lname, long most) override {
    const int index = person_ + 3;
    long count = 0;
    int code = GTEREC(index, Field(lname, kName).c_str(), record_);
    while (code == 0 && ++count < most) code = NXTREC(index, record_);
    return count;
  }

 private:
  void CreateTable(const char* name, int length, int count, IIDX* indexes) {
    const std::string path = dir_ + "/" + name;
    IFIL table = {path.c_str(), -1, length, 4096, 2, count, 4096, 2, indexes};
    INTISAM(6, 10, 4);
    Must(CREIFIL(&table) == 0 && CLIFIL(&table) == 0, "CREIFIL");
    CLISAM();
  }
  int person_ = -1, group_ = -1, member_ = -1;
  char record_[kRecord];
};

// --- SQLite ---
#ifdef WITH_SQLITE
class SqliteStore : public Store {
 public:
  SqliteStore(std::string dir, bool wal) : Store(std::move(dir)), wal_(wal) {}
  void Create() override {
    Open(true);
    if (wal_) Run("PRAGMA journal_mode=WAL");
    Run("CREATE TABLE person(serial INTEGER PRIMARY KEY AUTOINCREMENT,"
        " palias TEXT, lname TEXT, fname TEXT, company TEXT, record BLOB);"
        "CREATE UNIQUE INDEX k1 ON person(palias);"
        "CREATE INDEX k2 ON person(lname); CREATE INDEX k3 ON person(fname);"
        "CREATE INDEX k4 ON person(company, lname);"
        "CREATE TABLE grp(serial INTEGER PRIMARY KEY, galias TEXT UNIQUE,"
        " gdesc TEXT);"
        "CREATE TABLE member(serial INTEGER PRIMARY KEY, galias TEXT,"
        " palias TEXT, UNIQUE(galias, palias), UNIQUE(palias, galias));");
    Close();
  }
  void Open(bool write) override {
    Must(sqlite3_open_v2((dir_ + "/book.db").c_str(), &db_,
                         write ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE
                               : SQLITE_OPEN_READONLY,
                         nullptr) == SQLITE_OK,
         "sqlite3_open");
    sqlite3_busy_timeout(db_, 5000);
    Run("PRAGMA synchronous=FULL");
  }
  void Close() override {
    for (auto& [sql, statement] : statements_) sqlite3_finalize(statement);
    statements_.clear();
    sqlite3_close(db_);
  }
  void Add(const Person& p) override {
    sqlite3_stmt* s = Prepared(
        "INSERT INTO person(palias,lname,fname,company,record)"
        " VALUES(?,?,?,?,?)");
    const std::string* texts[] = {&p.alias, &p.lname, &p.fname, &p.company};
    for (int i = 0; i < 4; ++i) Bind(s, i + 1, *texts[i]);
    const std::string record = PersonRecord(p);
    sqlite3_bind_blob(s, 5, record.data(), kPerson, SQLITE_STATIC);
    Must(sqlite3_step(s) == SQLITE_DONE, "INSERT");
    sqlite3_reset(s);
  }
  void Delete(const std::string& alias) override {
    sqlite3_stmt* s = Prepared("DELETE FROM person WHERE palias=?");
    Bind(s, 1, alias);
    Must(sqlite3_step(s) == SQLITE_DONE, "DELETE");
    sqlite3_reset(s);
  }
  bool Get(const std::string& alias) override {
    sqlite3_stmt* s =
        Prepared("SELECT serial, record FROM person WHERE palias=?");
    Bind(s, 1, alias);
    const bool found = sqlite3_step(s) == SQLITE_ROW;
    if (found) Copy(s);
    sqlite3_reset(s);
    return found;
  }
  long Scan(const std::string& lname, long most) override {
    sqlite3_stmt* s =
        Prepared("SELECT * FROM person WHERE lname>=? ORDER BY lname, serial");
    Bind(s, 1, lname);
    long count = 0;
    while (count < most && sqlite3_step(s) == SQLITE_ROW) {
      Copy(s);
      ++count;
    }
    sqlite3_reset(s);
    return count;
  }
  void BeginBulk() override { Run("BEGIN"); }
  void EndBulk() override { Run("COMMIT"); }

 private:
  void Run(const char* sql) {
    Must(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
  }
  sqlite3_stmt* Prepared(const char* sql) {
    sqlite3_stmt*& s = statements_[sql];
    if (s == nullptr)
      Must(sqlite3_prepare_v2(db_, sql, -1, &s, nullptr) == SQLITE_OK, sql);
    return s;
  }
  static void Bind(sqlite3_stmt* s, int at, const std::string& text) {
    sqlite3_bind_text(s, at, text.data(), static_cast<int>(text.size()),
                      SQLITE_STATIC);
  }
  void Copy(sqlite3_stmt* s) {
    memcpy(record_, sqlite3_column_blob(s, 1), kPerson);
  }
  bool wal_;
  sqlite3* db_ = nullptr;
  std::map<const char*, sqlite3_stmt*> statements_;
  char record_[kRecord];
};
#endif

// Keys of the stores that keep records by number and the indexes apart.
std::string Big(uint32_t n) {
  return {static_cast<char>(n >> 24), static_cast<char>(n >> 16),
          static_cast<char>(n >> 8), static_cast<char>(n)};
}
std::vector<std::string> IndexKeys(const std::string& record, uint32_t serial) {
  const auto text = [&](size_t at) { return std::string(record.c_str() + at); };
  const std::string last = text(kAlias),
                    tail = std::string(1, '\0') + Big(serial);
  return {text(0), last + tail, text(kAlias + kName) + tail,
          text(kAlias + 2 * kName) + std::string(1, '\0') + last + tail};
}
// --- LMDB ---
#ifdef WITH_LMDB
class LmdbStore : public Store {
 public:
  using Store::Store;
  void Create() override {
    Open(true);
    Close();
  }
  void Open(bool write) override {
    Must(mdb_env_create(&env_) == 0, "mdb_env_create");
    mdb_env_set_mapsize(env_, size_t{1} << 30);
    mdb_env_set_maxdbs(env_, 10);
    Must(mdb_env_open(env_, dir_.c_str(), write ? 0u : unsigned{MDB_RDONLY},
                      0660) == 0,
         "mdb_env_open");
    Begin(write);
    static constexpr const char* kNames[] = {"p0", "p1", "p2", "p3", "p4",
                                             "g0", "g1", "m0", "m1", "m2"};
    for (int i = 0; i < 10; ++i)
      Must(mdb_dbi_open(txn_, kNames[i], write ? unsigned{MDB_CREATE} : 0u,
                        &dbi_[i]) == 0,
           "mdb_dbi_open");
    mdb_txn_commit(txn_);
    txn_ = nullptr;
  }
  void Close() override { mdb_env_close(env_); }
  void Add(const Person& p) override {
    const bool own = txn_ == nullptr;
    if (own) Begin(true);
    MDB_cursor* cursor;
    MDB_val key, value;
    mdb_cursor_open(txn_, dbi_[0], &cursor);
    uint32_t serial = 1;
    if (mdb_cursor_get(cursor, &key, &value, MDB_LAST) == 0) {
      const auto* k = static_cast<const unsigned char*>(key.mv_data);
      serial = (uint32_t{k[0]} << 24 | uint32_t{k[1]} << 16 |
                uint32_t{k[2]} << 8 | k[3]) +
               1;
    }
    mdb_cursor_close(cursor);
    const std::string record = PersonRecord(p), number = Big(serial);
    Put(0, number, record);
    const auto keys = IndexKeys(record, serial);
    for (size_t i = 0; i < 4; ++i) Put(i + 1, keys[i], number);
    if (own) Commit();
  }
  void Delete(const std::string& alias) override {
    Begin(true);
    MDB_val key = Val(alias), value;
    Must(mdb_get(txn_, dbi_[1], &key, &value) == 0, "mdb_get");
    const std::string number(static_cast<char*>(value.mv_data), 4);
    key = Val(number);
    Must(mdb_get(txn_, dbi_[0], &key, &value) == 0, "mdb_get");
    const std::string record(static_cast<char*>(value.mv_data), kPerson);
    const auto* k = reinterpret_cast<const unsigned char*>(number.data());
    const auto keys =
        IndexKeys(record, uint32_t{k[0]} << 24 | uint32_t{k[1]} << 16 |
                              uint32_t{k[2]} << 8 | k[3]);
    for (size_t i = 0; i < 4; ++i) {
      key = Val(keys[i]);
      mdb_del(txn_, dbi_[i + 1], &key, nullptr);
    }
    key = Val(number);
    mdb_del(txn_, dbi_[0], &key, nullptr);
    Commit();
  }
  bool Get(const std::string& alias) override {
    Begin(false);
    MDB_val key = Val(alias), number, value;
    const bool found = mdb_get(txn_, dbi_[1], &key, &number) == 0 &&
                       mdb_get(txn_, dbi_[0], &number, &value) == 0;
    if (found) memcpy(record_, value.mv_data, kPerson);
    mdb_txn_abort(txn_);
    txn_ = nullptr;
    return found;
  }
  long Scan(const std::string& lname, long most) override {
    Begin(false);
    MDB_cursor* cursor;
    mdb_cursor_open(txn_, dbi_[2], &cursor);
    MDB_val key = Val(lname), number, value;
    long count = 0;
    int code = mdb_cursor_get(cursor, &key, &number, MDB_SET_RANGE);
    while (code == 0 && count < most) {
      Must(mdb_get(txn_, dbi_[0], &number, &value) == 0, "mdb_get");
      memcpy(record_, value.mv_data, kPerson);
      ++count;
      code = mdb_cursor_get(cursor, &key, &number, MDB_NEXT);
    }
    mdb_cursor_close(cursor);
    mdb_txn_abort(txn_);
    txn_ = nullptr;
    return count;
  }
  void BeginBulk() override { Begin(true); }
  void EndBulk() override { Commit(); }

 private:
  static MDB_val Val(const std::string& s) {
    return {s.size(), const_cast<char*>(s.data())};
  }
  void Begin(bool write) {
    Must(mdb_txn_begin(env_, nullptr, write ? 0u : unsigned{MDB_RDONLY},
                       &txn_) == 0,
         "mdb_txn_begin");
  }
  void Commit() {
    Must(mdb_txn_commit(txn_) == 0, "mdb_txn_commit");
    txn_ = nullptr;
  }
  void Put(size_t db, const std::string& k, const std::string& v) {
    MDB_val key = Val(k), value = Val(v);
    Must(mdb_put(txn_, dbi_[db], &key, &value, 0) == 0, "mdb_put");
  }
  MDB_env* env_ = nullptr;
  MDB_txn* txn_ = nullptr;
  MDB_dbi dbi_[10];
  char record_[kRecord];
};
#endif

// --- Berkeley DB ---
#ifdef WITH_BDB
class BdbStore : public Store {
 public:
  using Store::Store;
  void Create() override {
    Open(true);
    Close();
  }
  void Open(bool) override {
    db_env_create(&env_, 0);
    env_->set_cachesize(env_, 0, 8 << 20, 1);
    Must(env_->open(env_, dir_.c_str(),
                    DB_CREATE | DB_INIT_TXN | DB_INIT_LOCK | DB_INIT_LOG |
                        DB_INIT_MPOOL,
                    0660) == 0,
         "DB_ENV->open");
    env_->log_set_config(env_, DB_LOG_AUTO_REMOVE, 1);
    static constexpr const char* kNames[] = {"p0", "p1", "p2", "p3", "p4",
                                             "g0", "g1", "m0", "m1", "m2"};
    for (int i = 0; i < 10; ++i) {
      db_create(&db_[i], env_, 0);
      Must(db_[i]->open(db_[i], nullptr, "book.db", kNames[i], DB_BTREE,
                        DB_CREATE | DB_AUTO_COMMIT, 0660) == 0,
           "DB->open");
    }
  }
  void Close() override {
    for (DB* db : db_) db->close(db, 0);
    env_->close(env_, 0);
  }
  void Add(const Person& p) override {
    DB_TXN* txn = bulk_;
    if (txn == nullptr) env_->txn_begin(env_, nullptr, &txn, 0);
    DBC* cursor;
    db_[0]->cursor(db_[0], txn, &cursor, 0);
    DBT key = {}, value = {};
    uint32_t serial = 1;
    if (cursor->get(cursor, &key, &value, DB_LAST | DB_RMW) == 0)
      serial = Number(key.data) + 1;
    cursor->close(cursor);
    const std::string record = PersonRecord(p), number = Big(serial);
    Put(txn, 0, number, record);
    const auto keys = IndexKeys(record, serial);
    for (size_t i = 0; i < 4; ++i) Put(txn, i + 1, keys[i], number);
    if (bulk_ == nullptr) Must(txn->commit(txn, 0) == 0, "commit");
  }
  void Delete(const std::string& alias) override {
    DB_TXN* txn;
    env_->txn_begin(env_, nullptr, &txn, 0);
    DBT key = Dbt(alias), value = {};
    Must(db_[1]->get(db_[1], txn, &key, &value, DB_RMW) == 0, "get");
    const std::string number(static_cast<char*>(value.data), 4);
    DBT number_key = Dbt(number), data = {};
    Must(db_[0]->get(db_[0], txn, &number_key, &data, DB_RMW) == 0, "get");
    const std::string record(static_cast<char*>(data.data), kPerson);
    const auto keys = IndexKeys(record, Number(number.data()));
    for (size_t i = 0; i < 4; ++i) {
      key = Dbt(keys[i]);
      db_[i + 1]->del(db_[i + 1], txn, &key, 0);
    }
    number_key = Dbt(number);
    db_[0]->del(db_[0], txn, &number_key, 0);
    Must(txn->commit(txn, 0) == 0, "commit");
  }
  bool Get(const std::string& alias) override {
    DBT key = Dbt(alias), number = {}, value = {};
    if (db_[1]->get(db_[1], nullptr, &key, &number, 0) != 0) return false;
    if (db_[0]->get(db_[0], nullptr, &number, &value, 0) != 0) return false;
    memcpy(record_, value.data, kPerson);
    return true;
  }
  long Scan(const std::string& lname, long most) override {
    DBC* cursor;
    db_[2]->cursor(db_[2], nullptr, &cursor, 0);
    DBT key = Dbt(lname), number = {}, value = {};
    long count = 0;
    int code = cursor->get(cursor, &key, &number, DB_SET_RANGE);
    while (code == 0 && count < most) {
      Must(db_[0]->get(db_[0], nullptr, &number, &value, 0) == 0, "get");
      memcpy(record_, value.data, kPerson);
      ++count;
      code = cursor->get(cursor, &key, &number, DB_NEXT);
    }
    cursor->close(cursor);
    return count;
  }

 private:
  static DBT Dbt(const std::string& s) {
    DBT dbt = {};
    dbt.data = const_cast<char*>(s.data());
    dbt.size = static_cast<uint32_t>(s.size());
    return dbt;
  }
  static uint32_t Number(const void* p) {
    const auto* k = static_cast<const unsigned char*>(p);
    return uint32_t{k[0]} << 24 | uint32_t{k[1]} << 16 | uint32_t{k[2]} << 8 |
           k[3];
  }
  void Put(DB_TXN* txn, size_t db, const std::string& k, const std::string& v) {
    DBT key = Dbt(k), value = Dbt(v);
    Must(db_[db]->put(db_[db], txn, &key, &value, 0) == 0, "put");
  }
  DB_ENV* env_ = nullptr;
  DB* db_[10];
  DB_TXN* bulk_ = nullptr;
  char record_[kRecord];
};
#endif

// --- Filled stores, made once each ---

enum Kind { kOurs, kSqliteJournal, kSqliteWal, kLmdb, kBdb, kKinds };
constexpr const char* kKindNames[] = {"store", "sqlite", "sqlite-wal", "lmdb",
                                      "bdb"};

std::unique_ptr<Store> MakeStore(int kind, const std::string& dir) {
  switch (kind) {
    case kOurs:
      return std::make_unique<OurStore>(dir);
#ifdef WITH_SQLITE
    case kSqliteJournal:
      return std::make_unique<SqliteStore>(dir, false);
    case kSqliteWal:
      return std::make_unique<SqliteStore>(dir, true);
#endif
#ifdef WITH_LMDB
    case kLmdb:
      return std::make_unique<LmdbStore>(dir);
#endif
#ifdef WITH_BDB
    case kBdb:
      return std::make_unique<BdbStore>(dir);
#endif
    default:
      return nullptr;
  }
}

// All books lie in one folder that goes away with the process.
struct Folder {
  std::string path;
  pid_t owner = getpid();
  Folder() {
    std::string name = std::filesystem::temp_directory_path() / "bench-XXXXXX";
    path = mkdtemp(name.data());
  }
  ~Folder() {
    if (getpid() == owner) std::filesystem::remove_all(path);
  }
};

Store* Filled(int kind, uint32_t persons) {
  static Folder folder;
  static std::map<std::pair<int, uint32_t>, std::unique_ptr<Store>> stores;
  auto& store = stores[{kind, persons}];
  if (store) return store.get();
  const std::string dir =
      folder.path + "/" + kKindNames[kind] + "-" + std::to_string(persons);
  std::filesystem::create_directory(dir);
  store = MakeStore(kind, dir);
  if (!store) return nullptr;
  g_no_flush = true;
  store->Create();
  store->Open(true);
  store->BeginBulk();
  for (uint32_t n = 0; n < persons; ++n) store->Add(MakePerson(n));
  store->EndBulk();
  store->Close();
  g_no_flush = false;
  sync();
  return store.get();
}

Store* Prepare(benchmark::State& state) {
  Store* store = Filled(static_cast<int>(state.range(0)),
                        static_cast<uint32_t>(state.range(1)));
  if (store == nullptr) state.SkipWithError("not installed");
  state.SetLabel(kKindNames[state.range(0)]);
  return store;
}

// Goes through the persons in no particular order.
class Picker {
 public:
  explicit Picker(const benchmark::State& state)
      : count_(static_cast<uint32_t>(state.range(1))) {}
  Person Next() { return MakePerson((at_ += 7919) % count_); }

 private:
  uint32_t count_, at_ = 0;
};

// Persons that are not in any book yet. What a forked writer has taken is
// skipped, as it may have left some.
uint32_t g_next_newcomer = 10'000'000;
Person Newcomer() { return MakePerson(g_next_newcomer++); }
void SkipNewcomers() { g_next_newcomer += 10'000'000; }

// Times each turn of a benchmark and reports the tenth percentile besides the
// mean: on a machine that others use too, it is what the work itself takes.
class Turns {
 public:
  explicit Turns(benchmark::State& state) : state_(state) {}
  ~Turns() {
    if (ns_.empty()) return;
    const auto tenth = ns_.begin() + static_cast<long>(ns_.size() / 10);
    std::nth_element(ns_.begin(), tenth, ns_.end());
    state_.counters["p10_us"] = static_cast<double>(*tenth) / 1000;
  }
  template <typename Work>
  void Time(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    ns_.push_back((std::chrono::steady_clock::now() - start).count());
  }

 private:
  benchmark::State& state_;
  std::vector<int64_t> ns_;
};

// --- The work ---

void OpenGetClose(benchmark::State& state) {
  Store* store = Prepare(state);
  if (store == nullptr) return;
  Picker pick(state);
  Turns turns(state);
  for (auto _ : state) {
    const Person person = pick.Next();
    turns.Time([&] {
      store->Open(false);
      Must(store->Get(person.alias), "get");
      store->Close();
    });
  }
}

void OpenAddClose(benchmark::State& state) {
  Store* store = Prepare(state);
  if (store == nullptr) return;
  const long before = g_flushes;
  std::vector<std::string> added;
  Turns turns(state);
  for (auto _ : state) {
    const Person person = Newcomer();
    turns.Time([&] {
      store->Open(true);
      store->Add(person);
      store->Close();
    });
    added.push_back(person.alias);
  }
  state.counters["flushes"] =
      benchmark::Counter(static_cast<double>(g_flushes - before),
                         benchmark::Counter::kAvgIterations);
  store->Open(true);
  for (const std::string& alias : added) store->Delete(alias);
  store->Close();
}

void AddDelete(benchmark::State& state) {
  Store* store = Prepare(state);
  if (store == nullptr) return;
  store->Open(true);
  const long before = g_flushes;
  std::vector<std::string> added;
  bool adding = true;
  Turns turns(state);
  for (auto _ : state) {
    // Sixteen of each in turn, so that the book keeps its size.
    if (adding) {
      const Person person = Newcomer();
      turns.Time([&] { store->Add(person); });
      added.push_back(person.alias);
    } else {
      turns.Time([&] { store->Delete(added.back()); });
      added.pop_back();
    }
    if (added.empty() || added.size() == 16) adding = added.empty();
  }
  state.counters["flushes"] =
      benchmark::Counter(static_cast<double>(g_flushes - before),
                         benchmark::Counter::kAvgIterations);
  for (const std::string& alias : added) store->Delete(alias);
  store->Close();
}

void Get(benchmark::State& state) {
  Store* store = Prepare(state);
  if (store == nullptr) return;
  Picker pick(state);
  store->Open(false);
  Turns turns(state);
  for (auto _ : state) {
    const std::string alias = pick.Next().alias;
    turns.Time([&] { Must(store->Get(alias), "get"); });
  }
  store->Close();
}

void ScanAll(benchmark::State& state) {
  Store* store = Prepare(state);
  if (store == nullptr) return;
  store->Open(false);
  Turns turns(state);
  for (auto _ : state)
    turns.Time(
        [&] { Must(store->Scan(" ", 1L << 40) == state.range(1), "scan"); });
  store->Close();
  state.SetItemsProcessed(state.iterations() * state.range(1));
}

void First20(benchmark::State& state) {
  Store* store = Prepare(state);
  if (store == nullptr) return;
  Picker pick(state);
  store->Open(false);
  Turns turns(state);
  for (auto _ : state) {
    const std::string lname = pick.Next().lname;
    turns.Time([&] { store->Scan(lname, 20); });
  }
  store->Close();
}

// A get by alias while another process adds and deletes without a pause.
void GetBesideWriter(benchmark::State& state) {
  Store* store = Prepare(state);
  if (store == nullptr) return;
  const pid_t writer = fork();
  if (writer == 0) {
    store->Open(true);
    for (;;) {
      const Person person = Newcomer();
      store->Add(person);
      store->Delete(person.alias);
    }
  }
  Picker pick(state);
  store->Open(false);
  Turns turns(state);
  for (auto _ : state) {
    const std::string alias = pick.Next().alias;
    turns.Time([&] { Must(store->Get(alias), "get"); });
  }
  store->Close();
  kill(writer, SIGKILL);
  waitpid(writer, nullptr, 0);
  SkipNewcomers();
}

// The first open and get after a process was killed in the middle of writing a
// commit in place.
int (*g_write)(int, const void*, size_t, off_t);
int g_writes_left;
int WriteUntilKilled(int fd, const void* buf, size_t size, off_t offset) {
  if (g_writes_left-- == 0) _exit(0);
  return g_write(fd, buf, size, offset);
}

void OpenAfterKill(benchmark::State& state) {
  Store* store = Prepare(state);
  if (store == nullptr) return;
  Turns turns(state);
  for (auto _ : state) {
    state.PauseTiming();
    const Person person = Newcomer();
    const pid_t child = fork();
    if (child == 0) {
      store->Open(true);
      g_write = isam::g_sys.write;
      g_writes_left = 5;  // redo entry, "applying", root page, two pages
      isam::g_sys.write = WriteUntilKilled;
      store->Add(person);
      _exit(1);
    }
    int status;
    waitpid(child, &status, 0);
    Must(WIFEXITED(status) && WEXITSTATUS(status) == 0, "killing the writer");
    state.ResumeTiming();
    bool found = false;
    turns.Time([&] {
      store->Open(true);
      found = store->Get(person.alias);
    });
    state.PauseTiming();
    Must(found, "finding the torn commit");
    store->Delete(person.alias);
    store->Close();
    state.ResumeTiming();
  }
}

// --- Sizes: counters instead of times ---

// The files with the persons in them; the peers keep all tables in one, of
// which two are empty.
long PersonBytes(const std::string& dir) {
  long bytes = 0;
  for (const auto& file : std::filesystem::directory_iterator(dir)) {
    const std::string name = file.path().filename();
    for (const char* start : {"pbper.", "book.db", "data.mdb"})
      if (name.rfind(start, 0) == 0)
        bytes += static_cast<long>(file.file_size());
  }
  return bytes;
}

void BytesPerRecord(benchmark::State& state) {
  Store* store = Prepare(state);
  if (store == nullptr) return;
  for (auto _ : state) benchmark::DoNotOptimize(store);
  state.counters["bytes"] = static_cast<double>(PersonBytes(store->dir())) /
                            static_cast<double>(state.range(1));
}

// The memory that a child needs for `work` beyond that of one that does
// nothing.
long PeakKilobytes(const std::function<void()>& work) {
  const auto peak = [](const std::function<void()>& body) {
    const pid_t child = fork();
    if (child == 0) {
      std::ofstream("/proc/self/clear_refs") << 5;  // resets the peak
      body();
      std::ifstream status("/proc/self/status");
      std::string line;
      long hwm = 0;
      while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0) hwm = atol(line.c_str() + 6);
      std::ofstream("/tmp/bench-peak-" + std::to_string(getppid())) << hwm;
      _exit(0);
    }
    waitpid(child, nullptr, 0);
    const std::string path = "/tmp/bench-peak-" + std::to_string(getpid());
    long hwm = 0;
    std::ifstream(path) >> hwm;
    unlink(path.c_str());
    return hwm;
  };
  work();  // so that the program's own pages are in before either
  return peak(work) - peak([] {});
}

void PeakOfGet(benchmark::State& state) {
  Store* store = Prepare(state);
  if (store == nullptr) return;
  long kilobytes = 0;
  for (auto _ : state)
    kilobytes = PeakKilobytes([&] {
      store->Open(false);
      store->Get(MakePerson(77).alias);
      store->Close();
    });
  state.counters["KB"] = static_cast<double>(kilobytes);
}

void PeakOfScan(benchmark::State& state) {
  Store* store = Prepare(state);
  if (store == nullptr) return;
  long kilobytes = 0;
  for (auto _ : state)
    kilobytes = PeakKilobytes([&] {
      store->Open(false);
      store->Scan(" ", 1L << 40);
      store->Close();
    });
  state.counters["KB"] = static_cast<double>(kilobytes);
}

void EachStore(benchmark::internal::Benchmark* b) {
  for (const int persons : {10'000, 100'000})
    for (int kind = kOurs; kind < kKinds; ++kind)
      // Berkeley DB takes minutes to fill with the larger one.
      if (kind != kBdb || persons == 10'000) b->Args({kind, persons});
  b->UseRealTime();
}

void OursOnly(benchmark::internal::Benchmark* b) {
  for (const int persons : {10'000, 100'000}) b->Args({kOurs, persons});
  b->UseRealTime()->Unit(benchmark::kMicrosecond);
}

BENCHMARK(BytesPerRecord)->Apply(EachStore)->Iterations(1);
BENCHMARK(PeakOfGet)->Apply(EachStore)->Iterations(1);
BENCHMARK(PeakOfScan)->Apply(EachStore)->Iterations(1);
BENCHMARK(OpenGetClose)->Apply(EachStore)->Unit(benchmark::kMicrosecond);
BENCHMARK(OpenAddClose)->Apply(EachStore)->Unit(benchmark::kMicrosecond);
BENCHMARK(AddDelete)->Apply(EachStore)->Unit(benchmark::kMicrosecond);
BENCHMARK(Get)->Apply(EachStore)->Unit(benchmark::kMicrosecond);
BENCHMARK(ScanAll)->Apply(EachStore)->Unit(benchmark::kMillisecond);
BENCHMARK(First20)->Apply(EachStore)->Unit(benchmark::kMicrosecond);
BENCHMARK(GetBesideWriter)->Apply(OursOnly);
BENCHMARK(OpenAfterKill)->Apply(OursOnly);

}  // namespace
