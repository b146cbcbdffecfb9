// What holds for every type: one set of properties over the whole registry,
// with random values of every kind.
#include <algorithm>
#include <climits>
#include <map>
#include <random>

#include "pairs.h"

namespace {

using Values = std::map<std::string, std::string>;

class Random {
 public:
  int Number(int from, int to) {
    return std::uniform_int_distribution<int>(from, to)(engine_);
  }
  std::size_t Index(std::size_t size) {
    return static_cast<std::size_t>(Number(0, 1 << 20)) % size;
  }
  // Any bytes that a line can hold, "=" among them.
  std::string Text(int length) {
    std::string text;
    while (static_cast<int>(text.size()) < length) {
      const char c = static_cast<char>(Number(1, 255));
      text += c == '\n' ? '=' : c;
    }
    return text;
  }
  template <typename T>
  void Shuffle(std::vector<T>& items) {
    std::shuffle(items.begin(), items.end(), engine_);
  }

 private:
  std::mt19937 engine_{20240607};
};

Random g_random;

// The bytes that a text field holds; "obj-member" does not declare them.
std::size_t TextSize(kx_object* obj, const char* field) {
  const int declared = Kfx_Field_Length(obj, field);
  return declared != 0 ? static_cast<std::size_t>(declared) : 16;
}

// A random value as Kfx_Get gives it back.
std::string RandomValue(kx_object* obj, const char* field, int type) {
  switch (type) {
    case kx_typ_enum: {
      const std::string name = Kfx_Enum_To_Str(g_random.Number(1, 157));
      return name != "-1" ? name : "pbc-last";
    }
    case kx_typ_word:
    case kx_typ_long: {
      const int edges[] = {0, 1, -2, INT_MAX, INT_MIN};
      const int n = g_random.Number(0, 9);
      const int any = g_random.Number(INT_MIN, INT_MAX);
      return std::to_string(n < 5 ? edges[n] : any == -1 ? 0 : any);
    }
    case kx_typ_bool:
      return g_random.Number(0, 1) != 0 ? "true" : "false";
    case kx_typ_time:
      return Kfx_Time_To_Str(g_random.Number(0, INT_MAX));
    case kx_typ_data:
      return g_random.Text(Kfx_Field_Length(obj, field));
    default:
      return g_random.Text(
          g_random.Number(1, static_cast<int>(TextSize(obj, field)) - 1));
  }
}

// Every type but that of the list nodes, which has tests of its own.
std::vector<const kx_objdef*> FieldTypes() {
  std::vector<const kx_objdef*> types;
  for (const kx_objdef* const* def = kx_objs; *def != nullptr; ++def) {
    if (*def != &kx_objdef_list) types.push_back(*def);
  }
  return types;
}

kx::Object RandomObject(const kx_objdef& type, int depth, Values* values);

// An object of any type, or a list, to be owned by another object.
kx::Object RandomChild(int type, int depth) {
  const auto types = FieldTypes();
  const kx_objdef* def = types[g_random.Index(types.size())];
  if (type == kx_typ_obj) return RandomObject(*def, depth - 1, nullptr);
  kx::ListBuilder list;
  for (int i = g_random.Number(1, 3); i > 0; --i) {
    list.Append(RandomObject(*def, depth - 1, nullptr));
  }
  return list.Take();
}

// A full object; below `depth` levels the nested ones are left out. What a get
// of its plain fields must give goes to `values`.
kx::Object RandomObject(const kx_objdef& type, int depth, Values* values) {
  kx::Object obj(type.create());
  for (const kx_fielddef* f = type.fields; f->name != nullptr; ++f) {
    if (f->type == kx_typ_obj || f->type == kx_typ_list) {
      if (depth == 0) continue;
      kx::Object child = RandomChild(f->type, depth);
      kx_object* stored = child.get();
      EXPECT_EQ(kx::SetChild(obj.get(), f->name, std::move(child)), 0);
      EXPECT_EQ(Kfx_Get(obj.get(), f->name), stored) << f->name;
    } else if (f->type != kx_typ_data || f->length != 0) {
      const std::string value = RandomValue(obj.get(), f->name, f->type);
      EXPECT_EQ(Kfx_Set(obj.get(), f->name, value.c_str()), 0)
          << f->name << '=' << value;
      if (values != nullptr) (*values)[f->name] = value;
    }
  }
  return obj;
}

// What gets give for the fields in `values`.
Values Got(kx_object* obj, Values values) {
  for (auto& [field, value] : values) {
    const bool data = Kfx_Field_Type(obj, field.c_str()) == kx_typ_data;
    const char* text = kx::TextOrEmpty(obj, field.c_str());
    value = data ? std::string(text, value.size()) : text;
  }
  return values;
}

// The pairs of one object, a group for each of its fields, so that they can be
// brought into another order.
Pairs Reordered(const Pairs& pairs) {
  std::vector<Pairs> groups;
  int level = 0;
  for (std::size_t i = 1; i + 1 < pairs.size(); ++i) {
    const bool begins = pairs[i].code == kx_write_obj_begin;
    if (level == 0 && !begins) groups.emplace_back();
    if (begins) ++level;
    if (pairs[i].code == kx_write_obj_end) --level;
    groups.back().push_back(pairs[i]);
  }
  g_random.Shuffle(groups);
  Pairs result = {pairs.front()};
  for (const Pairs& group : groups) {
    result.insert(result.end(), group.begin(), group.end());
  }
  result.push_back(pairs.back());
  return result;
}

const char* OtherType(const kx_objdef& type) {
  return &type == &kx_objdef_text ? "obj-arg" : "obj-text";
}

class EveryType : public FolderTest {
 protected:
  // Calls the test with a full object of each type and the values set in it.
  template <typename Test>
  static void ForEach(Test test) {
    for (const kx_objdef* type : FieldTypes()) {
      SCOPED_TRACE(type->name);
      Values values;
      kx::Object obj = RandomObject(*type, 2, &values);
      test(*type, std::move(obj), values);
    }
  }
};

TEST_F(EveryType, GivesBackWhatWasSetAndCopyIsIndependent) {
  ForEach([](const kx_objdef& type, kx::Object obj, const Values& values) {
    EXPECT_STREQ(Kfx_Object_Type(obj.get()), type.name);
    EXPECT_EQ(Got(obj.get(), values), values);
    const Pairs pairs = Decomposed(obj.get());
    const kx::Object copy(Kfx_Copy_Obj(obj.get()));
    for (const kx_fielddef* f = type.fields; f->name != nullptr; ++f) {
      if (f->type == kx_typ_obj || f->type == kx_typ_list) {
        EXPECT_EQ(kx::SetChild(obj.get(), f->name, nullptr), 0);
      } else {
        EXPECT_EQ(Kfx_Set(obj.get(), f->name, nullptr), 0);
      }
    }
    EXPECT_EQ(Decomposed(obj.get()),
              (Pairs{{"objbeg", type.name, 1}, {"objend", type.name, 2}}));
    obj.reset();
    EXPECT_EQ(Decomposed(copy.get()), pairs);
    EXPECT_EQ(Got(copy.get(), values), values);
  });
}

TEST_F(EveryType, TextFormComesBack) {
  ForEach([](const kx_objdef& type, kx::Object obj, const Values&) {
    const Pairs pairs = Decomposed(obj.get());
    for (const Pairs& stream : {pairs, Reordered(pairs)}) {
      const kx::Object back = Composed(type.name, stream);
      ASSERT_NE(back, nullptr) << testing::PrintToString(stream);
      EXPECT_EQ(Decomposed(back.get()), pairs);
    }
    ASSERT_EQ(Kfx_Save_Obj(obj.get(), "object"), 0);
    for (const char* name :
         {type.name, "", static_cast<const char*>(nullptr)}) {
      const kx::Object back(Kfx_Load_Obj(name, "object"));
      ASSERT_NE(back, nullptr) << Kfx_Errmsg(kx_errno);
      EXPECT_EQ(Decomposed(back.get()), pairs);
    }
    EXPECT_EQ(ErrorOf(Kfx_Load_Obj(OtherType(type), "object")), kx_err_object);
  });
}

// A stream that breaks off anywhere gives no object and loses no memory.
TEST_F(EveryType, BreaksOffCleanly) {
  ForEach([](const kx_objdef& type, kx::Object, const Values&) {
    const kx::Object obj = RandomObject(type, 1, nullptr);
    const Pairs pairs = Decomposed(obj.get());
    for (std::size_t n = 0; n < pairs.size(); ++n) {
      Stream in{.pairs = pairs, .limit = n};
      EXPECT_EQ(Kfx_Comp_Obj(type.name, Stream::Read, &in, nullptr), nullptr);
      EXPECT_EQ(kx_errno, kx_err_callback) << n;
    }
    for (std::size_t n = 0; n < pairs.size() + 2; ++n) {
      Stream out{.fail_at = n};
      EXPECT_NE(Kfx_Decomp_Obj(obj.get(), Stream::Write, &out, 0), 0) << n;
      EXPECT_EQ(kx_errno, kx_err_callback) << n;
      EXPECT_EQ(out.calls, n + 1) << "went on after a failure";
    }
  });
}

TEST_F(EveryType, RefusedValueLeavesTheField) {
  ForEach([](const kx_objdef&, kx::Object obj, const Values& values) {
    for (const auto& [name, value] : values) {
      const char* field = name.c_str();
      const int kind = Kfx_Field_Type(obj.get(), field);
      if (kind == kx_typ_data) continue;
      std::string bad = kind == kx_typ_bool   ? "TRUE"
                        : kind == kx_typ_time ? "noon"
                                              : "-1";
      const bool is_text = kind <= kx_typ_dir;
      if (is_text) bad.assign(TextSize(obj.get(), field), 'x');
      EXPECT_EQ(Kfx_Set(obj.get(), field, bad.c_str()), -1) << field;
      EXPECT_EQ(kx_errno, is_text ? kx_err_too_long : kx_err_data) << field;
      EXPECT_STREQ(kx::Text(obj.get(), field), value.c_str());
      if (is_text) {
        EXPECT_EQ(Kfx_Set(obj.get(), field, bad.c_str() + 1), 0) << field;
        EXPECT_EQ(kx_errno, 0);
      }
      EXPECT_EQ(Kfx_Set(obj.get(), field, ""), 0);
      EXPECT_EQ(Kfx_Get(obj.get(), field), nullptr);
      EXPECT_EQ(kx_errno, 0) << "unset is no error";
    }
  });
}

TEST_F(EveryType, UnknownFieldAndWrongObject) {
  ForEach([](const kx_objdef& type, kx::Object obj, const Values&) {
    EXPECT_EQ(Kfx_Set(obj.get(), "no-such", "1"), 0)
        << "no failure, on purpose";
    EXPECT_EQ(kx_errno, kx_err_field);
    EXPECT_EQ(Kfx_Get(obj.get(), "no-such"), nullptr);
    EXPECT_EQ(kx_errno, kx_err_field);
    EXPECT_EQ(Kfx_Field_Length(obj.get(), "no-such"), -1);
    const kx::Object other = kx::Build(OtherType(type));
    const char* field = type.fields->name;
    const auto failed = [](bool result) {
      return result && std::exchange(kx_errno, 0) == kx_err_object;
    };
    for (kx_object* wrong : {other.get(), static_cast<kx_object*>(nullptr)}) {
      EXPECT_TRUE(failed(type.get(wrong, field) == nullptr));
      EXPECT_TRUE(failed(type.set(wrong, field, "1") == -1));
      EXPECT_TRUE(failed(type.copy(wrong) == nullptr));
      EXPECT_TRUE(failed(type.del(wrong) == -1));
      EXPECT_TRUE(failed(type.decomp(wrong, nullptr, nullptr, 0) == -1));
      EXPECT_TRUE(failed(Kfx_Is_Obj_Type(wrong, type.name) == 0));
    }
  });
}

// The order is the fax server's own.
TEST(Registry, HoldsTheTypesInTheirOrder) {
  EXPECT_STREQ(kx_objs[0]->name, "obj-arg");
  EXPECT_EQ(kx_objs[12], &kx_objdef_freq);
  EXPECT_EQ(kx_objs[15], &kx_objdef_list);
  EXPECT_STREQ(kx_objs[43]->name, "obj-route");
  for (const char* name :
       {"obj-nothing", "OBJ-ARG", "obj-ar", "arg", "", (const char*)nullptr}) {
    EXPECT_EQ(ErrorOf(Kfx_Build_Obj(name)), kx_err_object);
  }
}

}  // namespace
