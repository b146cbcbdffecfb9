// The record database: errors, steps, and every kind of value on its way
// through a record.
#include "db/db.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "support/objects.h"
#include "support/temp_dir.h"
#include "util/kutmem.h"

namespace {

// "clntpgmid" of an "obj-connect" is not stored, but made from the session's
// number and put into it.
int ToText(const char* record, char* text, size_t size) {
  return std::snprintf(text, size, "%d", record[16]) > 0 ? 0 : -1;
}
int FromText(const char* text, char* record) {
  if (std::strcmp(text, "wrong") == 0) return -1;
  record[16] = static_cast<char>(atoi(text));
  return 0;
}

constexpr db_field kFields[] = {
    {"clientid", "cli", "client", kx_typ_str, 16, 0, nullptr, nullptr},
    {"sessionid", "ses", "session", kx_typ_long, 4, 16, nullptr, nullptr},
    {"usrmode", "mod", "mode", kx_typ_enum, 4, 20, nullptr, nullptr},
    {"connected", "con", "connected", kx_typ_bool, 4, 24, nullptr, nullptr},
    {"srvtime", "tim", "time", kx_typ_time, 4, 28, nullptr, nullptr},
    {"servaddr", "adr", "address", kx_typ_data, 64, 32, nullptr, nullptr},
    {"altfax", "alt", "short of its object", kx_typ_str, 4, 96, nullptr,
     nullptr},
    {},
};
constexpr db_field kPseudo[] = {
    {"", "clntpgmid", "program", kx_typ_str, 0, 0, ToText, FromText},
    {},
};
constexpr db_key kKeys[] = {{1, 1, {0}}, {0, 1, {6}}, {-1, 0, {}}};

struct Close {
  void operator()(db_handle* db) const { db_close(db); }
};
using Handle = std::unique_ptr<db_handle, Close>;

class Db : public ::testing::Test {
 protected:
  Db() : path_(dir_ / "a.table") {
    EXPECT_EQ(db_create(path_.c_str(), kFields, kKeys), 0);
  }
  Handle Open(int mode = kx_pbm_write) {
    Handle db(db_open(path_.c_str(), mode, kPseudo));
    EXPECT_NE(db, nullptr) << db_errmsg();
    return db;
  }
  static kx::Object Client(const char* id, const char* altfax = "") {
    kx::Object obj = kx::Build("obj-connect");
    kx::SetText(obj.get(), "clientid", id);
    kx::SetText(obj.get(), "altfax", altfax);
    return obj;
  }
  // The error of a call that has to fail.
  static int Failed(int result) {
    EXPECT_EQ(result, -1);
    return db_errno();
  }
  // The ids of all clients in the order of a key.
  static std::string Ids(db_handle* db, int key) {
    std::string ids;
    kx::Object obj = kx::Build("obj-connect");
    int step = kx_pbc_first;
    while (db_get_obj(db, key, obj.get(), step, nullptr) == 0) {
      ids += kx::Text(obj.get(), "clientid");
      step = kx_pbc_next;
    }
    EXPECT_EQ(db_errno(), kDbEof);
    return ids;
  }

  TempDir dir_;
  std::string path_;
};

TEST_F(Db, EveryKindOfValueSurvives) {
  const Handle db = Open();
  for (const char* fields : {"clientid=\xe4Z\nsessionid=-7\nconnected="
                             "false\nsrvtime=20240229120000\n"
                             "usrmode=usr-dept\naltfax=abc\n",
                             "clientid=only\n"}) {
    const kx::Object obj = Parsed("obj-connect", fields);
    char address[64] = "\x01\x00\xff";
    Kfx_Set(obj.get(), "servaddr", address);
    ASSERT_EQ(db_add_obj(db.get(), obj.get()), 0) << db_errmsg();
    kx::Object back = Client("else", "x");
    ASSERT_EQ(db_get_obj(db.get(), 0, back.get(), kx_pbc_alias, nullptr), 0);
    EXPECT_EQ(std::memcmp(Kfx_Get(back.get(), "servaddr"), address, 64), 0);
    kx::SetText(back.get(), "clntpgmid", nullptr);  // is not stored
    EXPECT_EQ(ToText(back.get()), ToText(obj.get()));
  }
}

TEST_F(Db, PseudoFieldsAreMadeFromAndPutIntoStoredOnes) {
  const Handle db = Open();
  kx::Object obj = Client("a");
  kx::SetText(obj.get(), "clntpgmid", "42");
  ASSERT_EQ(db_add_obj(db.get(), obj.get()), 0) << db_errmsg();
  kx::Object back = Client("");
  ASSERT_EQ(db_get_obj(db.get(), 1, back.get(), kx_pbc_first, nullptr), 0);
  EXPECT_STREQ(kx::Text(back.get(), "clntpgmid"), "42");
  EXPECT_EQ(kx::Number(back.get(), "sessionid"), ~0xff | 42);
  kx::SetText(obj.get(), "clntpgmid", "wrong");
  EXPECT_EQ(Failed(db_upd_obj(db.get(), obj.get())), kDbField);
  EXPECT_STREQ(db_errmsg(), "Invalid field clntpgmid");
  // A text that is longer than its field.
  EXPECT_EQ(Failed(db_add_obj(db.get(), Client("b", "abcd").get())), kDbData);
  EXPECT_EQ(db_count(db.get()), 1);
}

TEST_F(Db, StepsMoveAndTellTheirEnds) {
  const Handle db = Open();
  for (const char* id : {"b", "C", "a"}) {
    ASSERT_EQ(db_add_obj(db.get(), Client(id, "x").get()), 0);
  }
  EXPECT_EQ(Ids(db.get(), 0), "bCa");
  EXPECT_EQ(Ids(db.get(), 1), "abC");
  EXPECT_EQ(Ids(db.get(), 2), "bCa");  // equal keys come as they were added

  const Handle fresh = Open(kx_pbm_read);
  char key[16] = "B";
  struct {
    int step;
    int key;
    int result;
    int error;
    uint32_t current;
  } const kSteps[] = {
      {kx_pbc_alias, 1, -1, kDbNotFound, 0},
      {kx_pbc_next, 1, 0, 0, 3},
      {kx_pbc_prev, 1, -1, kDbEof, 3},
      {kx_pbc_last, 1, 0, 0, 2},
      {kx_pbc_next, 1, -1, kDbEof, 2},
      {kx_pbc_next, 0, 0, 0, 3},
      {kx_pbc_equal, 1, 0, 0, 1},
      {kx_pbc_equal, 2, -1, kDbNotFound, 1},
      {kx_pbc_gteq, 1, 0, 0, 1},
      {129, 1, -1, kDbData, 1},
      {133, 1, -1, kDbData, 1},
      {kx_pbc_first, 3, -1, kDbData, 1},
      {kx_pbc_alias, 2, 0, 0, 1},
  };
  for (const auto& s : kSteps) {
    SCOPED_TRACE(testing::Message() << "step " << s.step << " key " << s.key);
    db_errnum = 0;
    EXPECT_EQ(db_pos(fresh.get(), s.key, s.step, key), s.result);
    EXPECT_EQ(db_errno(), s.error);
    EXPECT_EQ(fresh->current, s.current);
  }
  const Handle last = Open(kx_pbm_read);
  EXPECT_EQ(db_pos(last.get(), 1, kx_pbc_prev, nullptr), 0);
  EXPECT_EQ(last->current, 2u);
}

TEST_F(Db, ChangesCheckModeKeyAndCurrentRecord) {
  const Handle db = Open();
  EXPECT_EQ(Failed(db_del(db.get())), kDbNotFound);
  ASSERT_EQ(db_add_obj(db.get(), Client("a").get()), 0);
  ASSERT_EQ(db_add_obj(db.get(), Client("b").get()), 0);
  EXPECT_EQ(Failed(db_add_obj(db.get(), Client("A").get())), kDbDuplicate);
  EXPECT_EQ(Failed(db_upd_obj(db.get(), Client("A").get())), kDbDuplicate);
  EXPECT_EQ(db_upd_obj(db.get(), Client("c").get()), 0);
  EXPECT_EQ(Ids(db.get(), 1), "ac");
  ASSERT_EQ(db_del(db.get()), 0);
  EXPECT_EQ(Failed(db_del(db.get())), kDbNotFound);
  EXPECT_EQ(Failed(db_upd_obj(db.get(), Client("d").get())), kDbNotFound);
  EXPECT_EQ(Ids(db.get(), 1), "a");

  const Handle reader = Open(kx_pbm_read);
  ASSERT_EQ(db_pos(reader.get(), 0, kx_pbc_first, nullptr), 0);
  const kx::Object client = Client("e");
  EXPECT_EQ(Failed(db_add_obj(reader.get(), client.get())), kDbReadOnly);
  EXPECT_EQ(Failed(db_del(reader.get())), kDbReadOnly);
}

TEST_F(Db, ALockedReadAndUpdateLetNobodyBetween) {
  const Handle mine = Open();
  const Handle other = Open();
  ASSERT_EQ(db_add_obj(mine.get(), Client("a").get()), 0);
  ASSERT_EQ(db_lock(mine.get()), 0);
  ASSERT_EQ(db_pos(mine.get(), 0, kx_pbc_first, nullptr), 0);
  EXPECT_EQ(Failed(db_lock(other.get())), kDbLocked);
  ASSERT_EQ(db_upd_obj(mine.get(), Client("b").get()), 0);
  EXPECT_EQ(db_lock(other.get()), 0);
  db_unlock();
}

TEST_F(Db, FilesAreCreatedOnceAndDeletedBoth) {
  EXPECT_EQ(Failed(db_create(path_.c_str(), kFields, kKeys)), kDbExists);
  EXPECT_EQ(db_delete(path_.c_str()), 0);
  EXPECT_EQ(db_open(path_.c_str(), kx_pbm_read, nullptr), nullptr);
  EXPECT_EQ(db_errno(), kDbAbsent);
  EXPECT_EQ(db_delete(path_.c_str()), -1);
  EXPECT_STREQ(db_errmsg(),
               "FNOP_ERR: Could not open file: not there or locked");
  EXPECT_EQ(db_open(path_.c_str(), 0, nullptr), nullptr);
  EXPECT_EQ(db_errno(), kDbData);
  EXPECT_EQ(Failed(db_create(std::string(300, 'p').c_str(), kFields, kKeys)),
            kDbData);
}

TEST_F(Db, ATableKnowsItsLayout) {
  const Handle db = Open();
  EXPECT_EQ(db_record_size(db.get()), 100);
  EXPECT_EQ(db_same_layout(db.get(), kFields, kKeys), 0);
  EXPECT_STREQ(db_field_str(&db->fields[1]), "sessionid (ses) long[4] ");
  EXPECT_EQ(db_valid_flds(db->fields, "clientid, alt,clntpgmid"), 0);
  EXPECT_EQ(db_valid_flds(db->fields, "clientid, altf"), -1);
  EXPECT_STREQ(db_errmsg(), "Invalid field altf");
  constexpr db_key kOtherKeys[] = {{1, 1, {0}}, {1, 1, {6}}, {-1, 0, {}}};
  constexpr db_key kFewerKeys[] = {{1, 1, {0}}, {-1, 0, {}}};
  EXPECT_EQ(db_same_layout(db.get(), kFields, kOtherKeys), -1);
  EXPECT_EQ(db_same_layout(db.get(), kFields, kFewerKeys), -1);
  EXPECT_EQ(db_same_layout(db.get(), kFields + 1, kKeys), -1);
}

TEST(DbErrors, HaveTheirTexts) {
  const std::pair<int, const char*> kTexts[] = {
      {kDbOk, "No error"},
      {kDbLocked, "Cannot get lock for record"},
      {kDbForbidden, "Database error 12"},
      {-1, "Database error -1"},
      {kDbStore, "INOT_ERR: Could not find isam keyno request"},
  };
  db_ct_errno = 101;
  for (const auto& [code, text] : kTexts) {
    db_errnum = code;
    EXPECT_STREQ(db_errmsg(), text);
  }
  EXPECT_STREQ(db_ct_errmsg(0), "NO_ERROR: No error");
  EXPECT_STREQ(db_ct_errmsg(2), "KDUP_ERR: Key value already exists");
  EXPECT_STREQ(db_ct_errmsg(599), "C-Tree error code # 599");
}

}  // namespace
