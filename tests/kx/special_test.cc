// The types that are more than their fields.
#include "pairs.h"

namespace {

TEST(Envelope, PassesNamesThroughToItsParts) {
  const kx::Object env = kx::Build("obj-env");
  for (const char* field : {"toname", "pathname", "subject", "priority"}) {
    EXPECT_EQ(Kfx_Get(env.get(), field), nullptr);
    EXPECT_EQ(kx_errno, kx_err_object) << field << ": the part is missing";
    EXPECT_EQ(Kfx_Set(env.get(), field, field), 0);
    EXPECT_STREQ(kx::Text(env.get(), field), field);
  }
  EXPECT_EQ(Shown(kx::Child(env.get(), "destptr"), {"toname"}), "toname;");
  EXPECT_EQ(Shown(kx::Child(env.get(), "fileptr"), {"pathname"}), "pathname;");
  EXPECT_STREQ(kx::Text(kx::Child(env.get(), "coverptr"), "subject"),
               "subject");
  EXPECT_STREQ(kx::Text(kx::Child(env.get(), "paramptr"), "priority"),
               "priority");
  EXPECT_EQ(ErrorOf(Kfx_Set(env.get(), "notify", "not-a-name")), kx_err_data)
      << "the part's own error";
  // Only its own fields are in its table, and so in its text form.
  EXPECT_EQ(Kfx_Field_Type(env.get(), "toname"), -1);
  EXPECT_EQ(Kfx_Field_Type(env.get(), "destptr"), kx_typ_list);
  EXPECT_NE(Composed("obj-env", {{"toname", "x", 3}, {"objend", "", 2}}),
            nullptr);
}

TEST(Envelope, UsesTheFirstOfEachList) {
  const kx::Object env = kx::Build("obj-env");
  kx_object* empty_node = Kfx_Bnew(nullptr);
  Kfx_Set(env.get(), "destptr", empty_node);
  EXPECT_EQ(Kfx_Get(env.get(), "toname"), nullptr);
  EXPECT_EQ(kx_errno, kx_err_object);
  EXPECT_EQ(Kfx_Set(env.get(), "toname", "first"), 0);
  EXPECT_EQ(kx::Child(env.get(), "destptr"), empty_node) << "filled, not lost";
  Kfx_Bappend(empty_node, Kfx_Bnew(Kfx_Build_Obj("obj-dest")));
  EXPECT_STREQ(kx::Text(env.get(), "toname"), "first");
  // Clients may have put anything in there.
  Kfx_Set(env.get(), "coverptr", Kfx_Build_Obj("obj-text"));
  EXPECT_EQ(ErrorOf(Kfx_Set(env.get(), "subject", "x")), kx_err_object);
}

TEST(Connection, HoldsReferencesAsTheyAre) {
  const kx::Object connection = kx::Build("obj-connect");
  int anything = 0;
  for (const char* field : {"callback", "cbdata", "portdata"}) {
    EXPECT_EQ(Kfx_Get(connection.get(), field), nullptr) << field;
    EXPECT_EQ(Kfx_Set(connection.get(), field, &anything), 0) << field;
    EXPECT_EQ(Kfx_Get(connection.get(), field), &anything) << field;
  }
  EXPECT_EQ(Kfx_Get(kx::Object(Kfx_Copy_Obj(connection.get())).get(), "cbdata"),
            &anything);
  EXPECT_EQ(Decomposed(connection.get()).size(), 2U);
  EXPECT_NE(Kfx_Get(connection.get(), "servaddr"), nullptr)
      << "bytes are never null";
}

TEST(Connection, CountsItsReferences) {
  const kx::Object connection = kx::Build("obj-connect");
  EXPECT_EQ(kx_get_nextref(connection.get()), 0);
  EXPECT_EQ(kx_get_nextref(connection.get()), 1);
  EXPECT_EQ(kx::Number(connection.get(), "reference"), 2);
  kx::SetNumber(connection.get(), "reference", 2147483647);
  EXPECT_EQ(kx_get_nextref(connection.get()), 2147483647);
  EXPECT_EQ(kx_get_nextref(kx::Build("obj-cmdrsp").get()), -1);
  EXPECT_EQ(kx_errno, kx_err_object);
}

TEST(ExchangeName, IsSessionAndReference) {
  const struct {
    int session, reference;
    const char* name;  // null: error 19
  } rows[] = {{5, 12, "0005-012"}, {123456, 7, "3456-007"},
              {0, 0, "0000-000"},  {1, 1000, "0001-1000"},
              {-1, 1, nullptr},    {1, -1, nullptr}};
  for (const auto& row : rows) {
    for (const char* type : {"obj-cmdrsp", "obj-connect"}) {
      const kx::Object obj = kx::Build(type);
      kx::SetNumber(obj.get(), "sessionid", row.session);
      kx::SetNumber(obj.get(), "reference", row.reference);
      EXPECT_STREQ(kx_tmp_name(obj.get()), row.name) << row.session;
      EXPECT_EQ(kx_errno, row.name != nullptr ? 0 : kx_err_data) << row.session;
    }
  }
  EXPECT_EQ(kx_tmp_name(kx::Build("obj-text").get()), nullptr);
  EXPECT_EQ(kx_errno, kx_err_data);
  EXPECT_EQ(kx_tmp_name(nullptr), nullptr);
}

}  // namespace
