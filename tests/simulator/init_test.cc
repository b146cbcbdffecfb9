#include <grp.h>
#include <gtest/gtest.h>

#include "cm/cmtree.h"
#include "faxserver/fscover.h"
#include "faxserver/fsdstat.h"
#include "faxserver/fshdr.h"
#include "faxserver/fslist.h"
#include "faxserver/fsqstat.h"
#include "faxserver/fsqueue.h"
#include "faxserver/fsres.h"
#include "kx/object.h"
#include "simulator/sim_root.h"

namespace {

int Count(kx_object* list) {
  const kx::Object owned(list);
  return Kfx_Bcount(list);
}

// What a client can ask for is there, as the daemon's own functions read it.
TEST(Init, EverythingAClientAsksForHasASample) {
  const SimRoot root;
  for (int type = kx_lst_covers; type <= kx_lst_retrys; ++type) {
    EXPECT_GT(Count(fx_get_res_list(root.root(), type)), 0)
        << Kfx_Enum_To_Str(type);
  }
  EXPECT_STREQ(fx_queue_get_default(root.root()), "any");
  EXPECT_EQ(Count(fx_rd_qstat(root.root())), 3);
  EXPECT_EQ(Count(fx_rd_dstat(root.root())), 2);
  EXPECT_EQ(Count(fx_get_cover_tags(root.root(), "standard")), 2);
  const char* user = root.user().c_str();
  for (const auto list : {fx_get_fax_list, fx_get_msg_list, fx_get_srv_list}) {
    EXPECT_EQ(Count(list(root.root(), user, 0)), 1);
  }
  EXPECT_EQ(fx_num_pages(root.Path("faxq/bob/in-2.fax").c_str()), 2);
}

TEST(Init, TreeIsTheTablesWithItsModes) {
  const SimRoot root;
  auto tree = root.Tree();
  // For the fax system's group, where there is one.
  const mode_t kept = getgrnam("krtfax") != nullptr ? 07777 : 05757;
  const auto expect = [&](const std::string& path, const cm_tree_entry& entry) {
    const mode_t mode = entry.kind == cm_kind::kDir
                            ? S_IFDIR | (entry.mode & kept)
                        : entry.kind == cm_kind::kFifo ? S_IFIFO | entry.mode
                                                       : S_IFREG | entry.mode;
    EXPECT_EQ(tree[path], mode) << path << std::oct << " has " << tree[path];
  };
  for (const cm_tree_entry& entry : cm_tree()) {
    if (*entry.path != '\0') expect(entry.path, entry);
  }
  for (const cm_tree_entry& entry : cm_user_tree()) {
    expect("faxq/bob" + std::string(entry.path), entry);
  }
}

TEST(Init, SecondRunAddsWhatIsMissingAndKeepsTheRest) {
  const SimRoot root;
  root.Put("Default", "fax1\n");
  std::filesystem::remove(root.Path("retrys"));
  std::filesystem::remove(root.Path("faxq/bob/in-2.fax"));
  EXPECT_EQ(
      SimRoot::Sim({"init", root.path(), "-u", "bob", "-u", "ann"}).status, 0);
  EXPECT_EQ(ReadFile(root.Path("Default")), "fax1\n");
  EXPECT_TRUE(root.Has("retrys"));
  EXPECT_FALSE(root.Has("faxq/bob/in-2.fax"));
  EXPECT_TRUE(root.Has("faxq/ann/options/config"));
}

TEST(Init, ForeignFolderIsLeftAlone) {
  const support::SampleRoot root;
  const std::string path = root.path();
  EXPECT_EQ(
      SimRoot::Refusal(73, {"init", path}),
      "krtsim: " + path + " is not empty and was not laid out by krtsim\n");
  EXPECT_FALSE(root.Has("Default"));
  root.Put("file", "");
  EXPECT_EQ(SimRoot::Refusal(73, {"init", path + "/file"}),
            "krtsim: " + path + "/file is no directory\n");
}

TEST(Receive, FaxLiesInTheQueueWithItsPages) {
  const SimRoot root;
  const auto end =
      SimRoot::Sim({"receive", root.path(), "bob", "--pages", "7"});
  EXPECT_EQ(end.status, 0) << end.err;
  EXPECT_EQ(end.out, "received in-3.fax for bob, 7 pages\n");
  EXPECT_EQ(fx_num_pages(root.Path("faxq/bob/in-3.fax").c_str()), 7);
  EXPECT_EQ(SimRoot::Sim({"receive", root.path(), "eve"}).status, 67);
}

}  // namespace
