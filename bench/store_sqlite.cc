#include <sqlite3.h>

#include <cstring>
#include <map>

#include "measure.h"
#include "store.h"

namespace {

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
};

}  // namespace

std::unique_ptr<Store> MakeSqliteJournal(const std::string& dir) {
  return std::make_unique<SqliteStore>(dir, false);
}

std::unique_ptr<Store> MakeSqliteWal(const std::string& dir) {
  return std::make_unique<SqliteStore>(dir, true);
}

std::string SqliteVersion() { return sqlite3_libversion(); }
