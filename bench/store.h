// The persons that the stores keep, and what each store can do with them:
// ours, and the embedded stores that one would take instead.
//
// - The peers are used as they do best: SQLite with one file for the three
//   tables and its keys as columns, LMDB and Berkeley DB with keys cut to their
//   text. All changes are durable when they return.
// - A person is 704 bytes and a serial number, with the real five keys: serial
//   number, alias (unique), last name, first name, company with last name.
// - Peers whose development packages are not installed are left out of the
//   build; HAVE_<PEER> says which are in.
#ifndef BENCH_STORE_H_
#define BENCH_STORE_H_

#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

constexpr int kAlias = 16, kName = 32, kCompany = 64;
constexpr int kPerson = 704, kRecord = kPerson + 4;

struct Person {
  std::string alias, lname, fname, company;
  std::string rest;
};

// The same person for the same number.
Person MakePerson(uint32_t n);
// `text` with NUL bytes up to `size`.
std::string Field(const std::string& text, size_t size);
// The 704 bytes.
std::string PersonRecord(const Person& person);

class Store {
 public:
  explicit Store(std::string dir) : dir_(std::move(dir)) {}
  virtual ~Store() = default;
  virtual void Create() = 0;
  virtual void Open(bool write) = 0;
  virtual void Close() = 0;
  virtual void Add(const Person& person) = 0;
  virtual void Delete(const std::string& alias) = 0;
  // Copies the record; whether it was found.
  virtual bool Get(const std::string& alias) = 0;
  // Reads by last name from `lname` on, at most `most`: the number read.
  virtual long Scan(const std::string& lname, long most) = 0;
  // What is added between these two is one transaction, where there are any.
  virtual void BeginBulk() {}
  virtual void EndBulk() {}
  const std::string& dir() const { return dir_; }

 protected:
  const std::string dir_;
  char record_[kRecord];  // what was read last
};

// A peer that is a set of plain trees: tree 0 has the records by serial number,
// trees 1 to 4 have the serial numbers by key. The five other trees are those
// of groups and members: open, but empty.
class TreeStore : public Store {
 public:
  using Store::Store;
  void Create() override;
  void Add(const Person& person) override;
  void Delete(const std::string& alias) override;
  void BeginBulk() override;
  void EndBulk() override;

 protected:
  static constexpr const char* kTrees[] = {"p0", "p1", "p2", "p3", "p4",
                                           "g0", "g1", "m0", "m1", "m2"};
  static constexpr size_t kTreeCount = std::size(kTrees);

  virtual void Begin() = 0;  // the transaction of a change
  virtual void Commit() = 0;
  // Within a change:
  virtual std::string LastKey() = 0;  // of tree 0; empty without records
  virtual std::string Find(size_t tree, const std::string& key) = 0;
  virtual void Put(size_t tree, const std::string& key,
                   const std::string& value) = 0;
  virtual void Erase(size_t tree, const std::string& key) = 0;

 private:
  bool bulk_ = false;
};

std::unique_ptr<Store> MakeOurs(const std::string& dir);
std::unique_ptr<Store> MakeSqliteJournal(const std::string& dir);
std::unique_ptr<Store> MakeSqliteWal(const std::string& dir);
std::unique_ptr<Store> MakeLmdb(const std::string& dir);
std::unique_ptr<Store> MakeBdb(const std::string& dir);

// The versions of the libraries.
std::string SqliteVersion();
std::string LmdbVersion();
std::string BdbVersion();

#endif  // BENCH_STORE_H_
