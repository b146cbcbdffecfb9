#include "store.h"

#include <cstdio>

namespace {

constexpr int kRest = kPerson - kAlias - 2 * kName - kCompany;

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

// A serial number as a key: in the order of the numbers.
std::string Big(uint32_t n) {
  return {static_cast<char>(n >> 24), static_cast<char>(n >> 16),
          static_cast<char>(n >> 8), static_cast<char>(n)};
}

uint32_t Number(const std::string& big) {
  uint32_t n = 0;
  for (const char byte : big) n = n << 8 | static_cast<unsigned char>(byte);
  return n;
}

// The keys of trees 1 to 4. Where duplicates are allowed the serial number is
// the end of the key.
std::vector<std::string> TreeKeys(const std::string& record,
                                  const std::string& serial) {
  const auto text = [&](size_t at) { return std::string(record.c_str() + at); };
  const std::string last = text(kAlias), tail = '\0' + serial;
  return {text(0), last + tail, text(kAlias + kName) + tail,
          text(kAlias + 2 * kName) + '\0' + last + tail};
}

}  // namespace

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

void TreeStore::Create() {
  Open(true);
  Close();
}

void TreeStore::Add(const Person& person) {
  if (!bulk_) Begin();
  const std::string serial = Big(Number(LastKey()) + 1);
  const std::string record = PersonRecord(person);
  Put(0, serial, record);
  size_t tree = 0;
  for (const std::string& key : TreeKeys(record, serial)) {
    Put(++tree, key, serial);
  }
  if (!bulk_) Commit();
}

void TreeStore::Delete(const std::string& alias) {
  Begin();
  const std::string serial = Find(1, alias);
  size_t tree = 0;
  for (const std::string& key : TreeKeys(Find(0, serial), serial)) {
    Erase(++tree, key);
  }
  Erase(0, serial);
  Commit();
}

void TreeStore::BeginBulk() {
  Begin();
  bulk_ = true;
}

void TreeStore::EndBulk() {
  Commit();
  bulk_ = false;
}
