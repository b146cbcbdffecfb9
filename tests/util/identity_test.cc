// The file-system identity: what a user's folder is entered as.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "support/child.h"
#include "support/temp_dir.h"
#include "util/kutident.h"
#include "util/kutio.h"

namespace {

constexpr kut_fsid kUser = {64102, 64202};
constexpr kut_fsid kOther = {64103, 64203};
constexpr gid_t kDaemonsGroup = 64300;

class Identity : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root";
  }
};

struct stat Made(const TempDir& dir, const char* name) {
  const UniqueFd fd(Kut_open((dir / name).c_str(), O_WRONLY | O_CREAT, 0600));
  struct stat st = {};
  EXPECT_EQ(fstat(fd.get(), &st), 0);
  return st;
}

TEST_F(Identity, FilesAreReachedAsTheUserAndHisLoginGroupAlone) {
  const TempDir dir;
  ASSERT_EQ(chmod(dir.path().c_str(), 0777), 0);
  // The groups of this process are not for a test to change.
  EXPECT_EQ(
      InChild([&] {
        if (setgroups(1, &kDaemonsGroup) != 0) return 2;
        WriteFile(dir / "roots", "");
        WriteFile(dir / "groups", "");
        EXPECT_EQ(chmod((dir / "roots").c_str(), 0600), 0);
        EXPECT_EQ(chmod((dir / "groups").c_str(), 0640), 0);
        EXPECT_EQ(chown((dir / "groups").c_str(), 0, kDaemonsGroup), 0);
        {
          const FileIdentity user(kUser);
          EXPECT_TRUE(user.held());
          const struct stat st = Made(dir, "a");
          EXPECT_EQ(st.st_uid, kUser.uid);
          EXPECT_EQ(st.st_gid, kUser.gid);
          for (const char* name : {"roots", "groups"}) {
            EXPECT_EQ(Kut_open((dir / name).c_str(), O_RDONLY), -1);
            EXPECT_EQ(errno, EACCES) << name;
          }
          {
            const FileIdentity other(kOther);
            EXPECT_EQ(Made(dir, "b").st_uid, kOther.uid);
            const FileIdentity self({0, 0});
            EXPECT_EQ(Made(dir, "c").st_uid, 0U);
            EXPECT_EQ(getgroups(0, nullptr), 1);
          }
          EXPECT_EQ(Made(dir, "d").st_uid, kUser.uid);
          EXPECT_EQ(getgroups(0, nullptr), 0);
        }
        EXPECT_TRUE(
            UniqueFd(Kut_open((dir / "roots").c_str(), O_RDONLY)).valid());
        gid_t group = 0;
        EXPECT_EQ(getgroups(1, &group), 1);
        EXPECT_EQ(group, kDaemonsGroup);
        return HasFailure() ? 1 : 0;
      }),
      0);
}

TEST_F(Identity, AnOwnerWithoutAnAccountHasTheFoldersGroup) {
  const TempDir dir;
  ASSERT_EQ(chown(dir.path().c_str(), 64199, 64250), 0);
  const UniqueFd fd(Kut_open(dir.path().c_str(), O_PATH));
  kut_fsid owner;
  ASSERT_TRUE(Kut_owner_of(fd.get(), &owner));
  EXPECT_EQ(owner.uid, 64199U);
  EXPECT_EQ(owner.gid, 64250U);
  EXPECT_FALSE(Kut_owner_of(-1, &owner));
}

}  // namespace
