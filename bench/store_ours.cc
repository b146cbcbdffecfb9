#include "isam/isam.h"
#include "measure.h"
#include "store.h"

namespace {

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
};

}  // namespace

std::unique_ptr<Store> MakeOurs(const std::string& dir) {
  return std::make_unique<OurStore>(dir);
}
