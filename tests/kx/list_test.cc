#include <algorithm>
#include <random>

#include "pairs.h"

namespace {

using Model = std::vector<int*>;

int g_values[64];  // elements are plain references

kx_node* AsNode(kx_object* obj) { return static_cast<kx_node*>(obj); }

// The elements, after a look at every link.
Model Contents(kx_object* list) {
  Model elements;
  kx_object* before = nullptr;
  for (kx_object* node = list; node != nullptr; node = Kfx_Bnext(node)) {
    EXPECT_EQ(AsNode(node)->prev, before);
    EXPECT_STREQ(Kfx_Object_Type(node), "obj-list");
    elements.push_back(static_cast<int*>(Kfx_Bdata(node)));
    before = node;
  }
  return elements;
}

int Descending(const void* a, const void* b) {
  const int* x = *static_cast<int* const*>(a);
  const int* y = *static_cast<int* const*>(b);
  return y < x ? -1 : y > x ? 1 : 0;
}

class ModelTest : public testing::Test {
 protected:
  ~ModelTest() override { Kfx_Bscrap(list_); }
  int Any(std::size_t below) {
    return static_cast<int>(random_() % std::max<std::size_t>(below, 1));
  }
  // A chain of up to three new nodes, and its elements.
  kx_object* Chain(Model* elements) {
    kx_object* chain = nullptr;
    for (int i = Any(4); i > 0; --i) {
      elements->push_back(&g_values[Any(64)]);
      chain = Kfx_Bappend(chain, Kfx_Bnew(elements->back()));
    }
    return chain;
  }
  void Step();

  std::mt19937 random_{7};
  kx_object* list_ = nullptr;
  Model model_;
};

void ModelTest::Step() {
  const int at = Any(model_.size());
  kx_object* node = Kfx_Bnth(list_, at);
  Model added;
  switch (Any(6)) {
    case 0:
      list_ = Kfx_Bappend(list_, Chain(&added));
      model_.insert(model_.end(), added.begin(), added.end());
      break;
    case 1: {
      kx_object* result = Kfx_Binsert(node, Chain(&added));
      if (node == nullptr) list_ = result;
      model_.insert(model_.begin() + (node != nullptr ? at + 1 : 0),
                    added.begin(), added.end());
      break;
    }
    case 2:
    case 3:  // as often as nodes are added
      list_ = Kfx_Bdelete(list_, node);
      if (node != nullptr) model_.erase(model_.begin() + at);
      break;
    case 4:
      if (Any(8) == 0) Kfx_Bsfree();
      EXPECT_EQ(Kfx_Bsort(list_, Descending), list_);
      EXPECT_EQ(Kfx_Bnth(list_, at), node) << "nodes keep their places";
      std::sort(model_.rbegin(), model_.rend());
      break;
    default: {
      kx_object* copy = Kfx_Bdup(list_);
      EXPECT_EQ(Contents(copy), model_);
      EXPECT_EQ(Kfx_Bscrap(copy), nullptr);
    }
  }
}

TEST_F(ModelTest, BehavesAsAVector) {
  for (int i = 0; i < 5000; ++i) {
    Step();
    ASSERT_EQ(Contents(list_), model_) << "after step " << i;
    const int size = static_cast<int>(model_.size());
    ASSERT_EQ(Kfx_Bcount(list_), size);
    ASSERT_EQ(Kfx_Bdata(Kfx_Blast(list_)),
              model_.empty() ? nullptr : model_.back());
    int* wanted = &g_values[Any(64)];
    const auto found = std::find(model_.begin(), model_.end(), wanted);
    const auto at = static_cast<int>(found - model_.begin());
    const int index = at == size ? -1 : at;
    ASSERT_EQ(Kfx_Bindex(list_, Kfx_Bfind(list_, wanted)), index);
    ASSERT_EQ(Kfx_Bnthid(list_, index), index < 0 ? nullptr : wanted);
    ASSERT_EQ(Kfx_Bnthid(list_, size), nullptr);
  }
  Kfx_Bsfree();
}

TEST(List, RemovingAStrangerClearsItsLinksOnly) {
  kx_object* list = Kfx_Bappend(Kfx_Bnew(&g_values[0]), Kfx_Bnew(&g_values[1]));
  kx_object* stranger =
      Kfx_Bappend(Kfx_Bnew(&g_values[2]), Kfx_Bnew(&g_values[3]));
  kx_object* orphan = Kfx_Bnext(stranger);
  EXPECT_EQ(Kfx_Bremove(list, stranger), list);
  EXPECT_EQ(Kfx_Bnext(stranger), nullptr);
  EXPECT_EQ(Contents(list), (Model{&g_values[0], &g_values[1]}));
  EXPECT_EQ(Kfx_Bremove(list, orphan), list);
  EXPECT_EQ(AsNode(orphan)->prev, nullptr);
  EXPECT_EQ(Kfx_Bremove(nullptr, orphan), nullptr);
  EXPECT_EQ(Kfx_Bremove(list, nullptr), list);
  Kfx_Bfree(stranger);
  Kfx_Bfree(orphan);
  Kfx_Bfree(nullptr);
  Kfx_Bscrap(list);
}

// As an object the list owns its elements: a node has no fields of its own.
TEST(List, IsAnObject) {
  EXPECT_EQ(Kfx_Build_Obj("obj-list"), nullptr);
  EXPECT_EQ(kx_errno, 0) << "the empty list is the null reference";
  const Pairs pairs = {{"objbeg", "obj-list", 1}, {"objptr", "obj-text", 3},
                       {"objbeg", "obj-text", 1}, {"text", "one", 3},
                       {"objend", "obj-text", 2}, {"objptr", "obj-arg", 3},
                       {"objbeg", "obj-arg", 1},  {"objend", "obj-arg", 2},
                       {"objend", "obj-list", 2}};
  kx::Object list = Composed("obj-list", pairs);
  EXPECT_EQ(Decomposed(list.get()), pairs);
  EXPECT_EQ(ErrorOf(static_cast<kx_object*>(Kfx_Get(list.get(), "objptr"))),
            kx_err_field);
  EXPECT_EQ(ErrorOf(Kfx_Set(list.get(), "objptr", nullptr)), kx_err_field);
  Kfx_Bapplyf(list.get(),
              [](kx_object* node) { g_values[0] += node != nullptr; });
  EXPECT_EQ(std::exchange(g_values[0], 0), 2);
  const kx::Object copy(Kfx_Copy_Obj(list.get()));
  kx::SetText(static_cast<kx_object*>(Kfx_Bdata(list.get())), "text", "other");
  list.reset();
  EXPECT_EQ(Decomposed(copy.get()), pairs);
}

// A frame a node would need far more stack than there is.
TEST(List, AMillionNodes) {
  constexpr int kNodes = 1'000'000;
  kx::ListBuilder builder;
  for (int i = 0; i < kNodes; ++i) {
    kx::Object element = kx::Build("obj-localtag");
    kx::SetNumber(element.get(), "tagname", i);
    ASSERT_TRUE(builder.Append(std::move(element)));
  }
  kx::Object holder = kx::Build("obj-dest");
  kx::SetChild(holder.get(), "ltags", builder.Take());
  const kx::Object copy(Kfx_Copy_Obj(holder.get()));
  holder.reset();

  const kx_writer count = [](void* context, const char*, const char*, int) {
    ++*static_cast<int*>(context);
    return 0;
  };
  int pairs = 0;
  EXPECT_EQ(Kfx_Decomp_Obj(copy.get(), count, &pairs, 0), 0);
  EXPECT_EQ(pairs, 4 * kNodes + 7);

  // The reader makes the elements up as it goes.
  const kx_reader make = [](void* context, char* name, char* value, int) {
    const int n = (*static_cast<int*>(context))++;
    const bool begins = n % 2 == 1 && n < 2 * kNodes;
    std::strcpy(name, n == 0 ? "ltags" : begins ? "objptr" : "objend");
    std::strcpy(value, begins ? "obj-localtag" : "");
    return n <= 2 * kNodes + 2 ? 0 : -1;
  };
  int read = 0;
  const kx::Object made(Kfx_Comp_Obj("obj-dest", make, &read, nullptr));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(Kfx_Bcount(kx::Child(made.get(), "ltags")), kNodes);
}

}  // namespace
