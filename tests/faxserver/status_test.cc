#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstring>
#include <tuple>

#include "faxserver/fscom.h"
#include "faxserver/fsdstat.h"
#include "faxserver/fsfreq.h"
#include "faxserver/fsolog.h"
#include "faxserver/fsqstat.h"
#include "faxserver/fsreq.h"
#include "faxserver/fsshm.h"
#include "faxserver/fsstat.h"
#include "faxserver/fsstate.h"
#include "support/own_ipc.h"
#include "support/peers.h"

namespace {

using Status = BobTest;
using StatusList = BobTest;
using CleanEvents = BobTest;

class StatusMemory : public testing::Test {
 protected:
  void SetUp() override { SKIP_WITHOUT(ipc_); }
  const OwnIpc ipc_;
  const FaxRoot root_;
};
using State = StatusMemory;
using Cancel = StatusMemory;

// A segment of any size and header, as a program gone wrong might leave it.
unsigned char* RawSegment(size_t size) {
  fx_shm_detach();
  shmctl(shmget(kFxShmKey, 0, 0), IPC_RMID, nullptr);
  const int id = shmget(kFxShmKey, size, IPC_CREAT | IPC_EXCL | 0600);
  return static_cast<unsigned char*>(shmat(id, nullptr, 0));
}

shmid_ds Segment() {
  shmid_ds status = {};
  EXPECT_EQ(shmctl(shmget(0x6B72742A, 0, 0), IPC_STAT, &status), 0);
  return status;
}

template <typename Int>
void Put(unsigned char* base, size_t at, Int value) {
  memcpy(base + at, &value, sizeof value);
}

TEST_F(StatusMemory, MissingSegmentIsNoScheduler) {
  EXPECT_FALSE(fx_is_sched_running(""));
  EXPECT_EQ(fx_get_jobs_in_queue(""), -1);
  EXPECT_EQ(fx_get_stat_shm("", 0), nullptr);
  EXPECT_EQ(kx_errno, 3);
  EXPECT_EQ(fx_get_num_modems(""), -1);
  EXPECT_EQ(fx_rm_stat_shm(""), -1);
  EXPECT_EQ(fx_set_jobs_in_queue(1), -1);
  EXPECT_EQ(fx_shm_detach(), 0);
}

TEST_F(StatusMemory, HasItsFixedLayout) {
  ASSERT_EQ(fx_creat_stat_shm("made by a test", 2), 0);
  ASSERT_EQ(fx_set_jobs_in_queue(17), 0);
  ASSERT_EQ(fx_set_device_state(1, 10), 0);
  EXPECT_EQ(fx_set_device_state(2, 1), -1);
  const unsigned char* base = fx_get_stat_shm("", 0) - 152;
  EXPECT_EQ(Segment().shm_segsz, 168u + 2 * 48);
  EXPECT_EQ(Segment().shm_perm.mode & 0777, 0664);
  const std::string bytes(base, base + 152 + 2 * 48);
  EXPECT_EQ(bytes.substr(0, 31), Bytes(0xA0B0C0D0) + Bytes(2) +
                                     Bytes(getpid()) + Bytes(17) +
                                     Bytes("made by a test", 15));
  EXPECT_EQ(bytes.substr(152 + 48 + 8, 4), Bytes(10));
  EXPECT_TRUE(fx_is_sched_running(""));
  EXPECT_EQ(fx_get_jobs_in_queue(""), 17);
  EXPECT_EQ(fx_get_num_modems(""), 2);
}

TEST_F(StatusMemory, SchedulerThatDiedIsLetGo) {
  ASSERT_EQ(fx_creat_stat_shm("", 1), 0);
  Put(fx_get_stat_shm("", 0) - 152, 8, DeadPid());
  EXPECT_FALSE(fx_is_sched_running(""));
  EXPECT_EQ(Segment().shm_nattch, 0u) << "still attached";
}

TEST_F(StatusMemory, NewSegmentOfANewSchedulerIsFoundAtOnce) {
  ASSERT_EQ(fx_creat_stat_shm("", 1), 0);
  fx_shm_detach();
  ASSERT_TRUE(fx_is_sched_running(""));
  const LivePid scheduler;
  // Another process replaces the segment while this one has the old attached.
  ASSERT_EQ(shmctl(shmget(kFxShmKey, 0, 0), IPC_RMID, nullptr), 0);
  EXPECT_FALSE(fx_is_sched_running("")) << "the old one stands for nobody";
  unsigned char* base = RawSegment(168 + 48);
  Put(base, 0, kFxShmMagic);
  Put(base, 8, scheduler.get());
  Put(base, 12, 5);
  EXPECT_TRUE(fx_is_sched_running(""));
  EXPECT_EQ(fx_get_jobs_in_queue(""), 5);
  shmdt(base);
}

TEST_F(StatusMemory, WrongMagicIsNoScheduler) {
  unsigned char* base = RawSegment(168);
  Put(base, 8, getpid());
  EXPECT_EQ(fx_get_stat_shm("", 0), nullptr);
  EXPECT_EQ(kx_errno, 19);
  EXPECT_NE(fx_get_stat_shm("", 0), nullptr) << "checked when attaching only";
  EXPECT_FALSE(fx_is_sched_running(""));
  EXPECT_EQ(fx_get_jobs_in_queue(""), -1);
  shmdt(base);
}

TEST_F(StatusMemory, HeaderThatPromisesTooMuchIsNotBelieved) {
  const std::tuple<size_t, int32_t, int> cases[] = {
      {168 + 48, 1, 1},    {168 + 48, 2, 1},
      {168 + 47, 1, 0},    {168, INT32_MAX, 0},
      {168 + 96, -1, 0},   {4096, INT32_MAX, (4096 - 168) / 48},
      {168 + 48 * 3, 2, 2}};
  for (const auto& [size, said, modems] : cases) {
    unsigned char* base = RawSegment(size);
    Put(base, 0, kFxShmMagic);
    Put(base, 4, said);
    EXPECT_EQ(fx_get_num_modems(""), modems) << size;
    EXPECT_EQ(fx_get_device_state("", modems), -1) << size;
    EXPECT_EQ(fx_get_device_state("", -1), -1) << size;
    EXPECT_EQ(kx_errno, 22);
    shmdt(base);
  }
  unsigned char* base = RawSegment(100);
  Put(base, 0, kFxShmMagic);
  EXPECT_EQ(fx_get_num_modems(""), -1);
  EXPECT_EQ(kx_errno, 19) << "no room for a header";
  EXPECT_FALSE(fx_is_sched_running(""));
  shmdt(base);
}

// ---- State ----

void PutRequest(const FaxRoot& root_, int seqno, const std::string& owner) {
  const std::string fields =
      "clientid=" + owner + "\nseqno=" + std::to_string(seqno) + "\n";
  ASSERT_EQ(fx_save_freq(root_.root(), Parsed("obj-freq", fields).get()), 0);
}

TEST_F(State, TellsAllThatIsThere) {
  ASSERT_EQ(fx_creat_stat_shm("", 2), 0);
  fx_set_device_state(0, 2);
  fx_set_device_state(1, 99);
  std::string devices;
  for (const int16_t number : std::to_array<int16_t>({1, 0, 7})) {
    devices += Text(
        fx_encode_dstat({"dev" + std::to_string(number), 0, 0, 0, number, 1, "",
                         "", "", "a name that is longer than the field", ""}));
  }
  root_.Put("dstat", devices + "a record that was cut");
  root_.Put("Default", "sales\n");
  root_.Put("qstat", Text(fx_encode_qstat({"sales", 1, 0, "", 0})));
  PutRequest(root_, 4, "root");

  const kx::Object state(fx_get_state(root_.root()));
  ASSERT_NE(state, nullptr);
  EXPECT_EQ(kx_errno, 0);
  EXPECT_EQ(Missing(state.get(), "schedup=true\ndefq=sales\n"), "");
  EXPECT_EQ(Kfx_Bcount(kx::Child(state.get(), "queuelist")), 1);
  EXPECT_EQ(Kfx_Bcount(kx::Child(state.get(), "freqlist")), 1);
  EXPECT_EQ(Shown(kx::Child(state.get(), "devlist"),
                  {"destname", "devstate", "enabled", "fim"}),
            "dev1=?=true=;dev0=idle=true=;dev7==true=;");
}

TEST_F(State, OfAnEmptyRootIsAStateAllTheSame) {
  const kx::Object state(fx_get_state(root_.root()));
  ASSERT_NE(state, nullptr);
  EXPECT_EQ(kx_errno, 0);
  EXPECT_EQ(ToText(state.get()), Object("obj-state", "schedup=false\n"));
}

// ---- Cancel and try ----

kx::Object RequestObject(const std::string& seqno, const std::string& type) {
  return Parsed("obj-reqid", "seqno=" + seqno + "\nreqtype=" + type + "\n");
}

TEST_F(Cancel, IsTheOwnersAndTheAdministratorsAndTryEverybodys) {
  const FifoReader scheduler(root_ / "FIFO");
  ASSERT_EQ(fx_creat_stat_shm("", 0), 0);
  for (const char* user : {"root", "daemon", "bin"}) root_.AddUser(user);
  PutRequest(root_, 1, "daemon");
  PutRequest(root_, 2, "root");
  PutRequest(root_, 4, "a-name-unknown");
  const auto cancel = [&](auto client, auto seqno, auto type) {
    return ErrorOf(
        fx_cancel(root_.root(), client, RequestObject(seqno, type).get()));
  };
  const std::tuple<const char*, const char*, const char*, int> cases[] = {
      {"daemon", "1", "req-regular", 0},
      {"root", "1", "req-regular", 0},
      {"bin", "1", "req-regular", 12},
      {"daemon", "2", "req-regular", 12},
      {"daemon", "4", "req-regular", 12},  // nobody's, so the fax system's
      {"daemon", "3", "req-regular", 3},
      {"daemon", "1", "req-group", 13},
      {"daemon", "1", "req-exp", 19},
      {"daemon", "1", "", 19},
      {"daemon", "", "req-regular", 19},
      {"sys", "1", "req-regular", 19},
      {"../faxq/root", "1", "req-regular", 19},
      {"", "1", "req-regular", 19},
  };
  for (const auto& [client, seqno, type, error] : cases) {
    EXPECT_EQ(cancel(client, seqno, type), error)
        << client << " " << seqno << " " << type;
    EXPECT_EQ(scheduler.Take(), error == 0 ? Text(fx_encode_sched(7, 1)) : "");
  }
  fx_rm_stat_shm("");
  EXPECT_EQ(cancel("root", "1", "req-regular"), 13) << "no scheduler";
  EXPECT_EQ(ErrorOf(fx_try(root_.root(), RequestObject("1", "").get())), 17);
  ASSERT_EQ(fx_creat_stat_shm("", 0), 0);
  EXPECT_EQ(ErrorOf(fx_try(root_.root(), RequestObject("1", "").get())), 0);
  EXPECT_EQ(scheduler.Take(), Text(fx_encode_sched(12, 1)));
  for (const char* seqno : {"3", ""}) {
    EXPECT_EQ(ErrorOf(fx_try(root_.root(), RequestObject(seqno, "").get())),
              19);
  }
}

// ---- Statuses ----

void PutStatus(const FaxRoot& root_, const std::string& name,
               const std::string& fields) {
  root_.Put("faxq/bob/events/" + name, Object("obj-status", fields));
}

fx_olog_record Attempt(int seqno, int attempt,
                       const std::string& client = "bob") {
  return {seqno, attempt, 0,    0,      static_cast<int16_t>(10 + attempt),
          0,     4,       1001, client, "far side",
          "",    "",      ""};
}

TEST_F(Status, IsReadFromTheClientsOwnEvents) {
  PutStatus(root, "5", "seqno=5\nclientid=bob\n");
  const kx::Object status(fx_read_status(root.root(), "bob", 5));
  EXPECT_STREQ(kx::Text(status.get(), "seqno"), "5");
  for (const char* client : {"carol", "../faxq/bob", "", ".."}) {
    EXPECT_EQ(ErrorOf(fx_read_status(root.root(), client, 5)), 3) << client;
  }
  std::filesystem::create_symlink(root / "faxq/bob/events/5",
                                  root / "faxq/bob/events/6");
  EXPECT_EQ(fx_read_status(root.root(), "bob", 6), nullptr);
  root.Put("faxq/bob/events/7", "objbeg=obj-status\nseqno=7\n");
  EXPECT_EQ(ErrorOf(fx_read_status(root.root(), "bob", 7)), 6);
  // No object that names a file comes out of it.
  PutStatus(
      root, "8",
      "seqno=8\n" + ListField("ltags", "obj-file", {"pathname=/etc/shadow\n"}));
  const kx::Object tagged(fx_read_status(root.root(), "bob", 8));
  EXPECT_EQ(ToText(tagged.get()), Object("obj-status", "seqno=8\n"));
}

TEST_F(StatusList, HoldsTheAttemptsAndThenTheSummary) {
  for (const int attempt : {1, 2, 3}) {
    fx_append_olog(root.root(), Attempt(attempt == 2 ? 6 : 5, attempt));
  }
  // A status says how many attempts to show; its owner wrote it.
  fx_append_olog(root.root(), Attempt(5, 2, "carol"));
  PutStatus(root, "5",
            "seqno=5\nattempt=3\naresult=4\nrresult=1001\nnpages=13\nnaks=1\n"
            "stime=20010203040506\netime=20010203040507\ncsi=x\nqueue=q\n");
  EXPECT_EQ(Shown(kx::Object(fx_status_list(root.root(), "bob", 5)),
                  {"attempt", "aresult", "rresult", "npages", "naks", "etime",
                   "csi", "queue"}),
            "1=4=1001=11=0=now=far side=q;3=4=1001=13=0=now=far side=q;"
            "0==1007=====q;");
}

TEST_F(StatusList, WithoutAttemptsIsTheOneStatus) {
  for (const std::string attempt : {"attempt=0\n", ""}) {
    PutStatus(root, "5", "rresult=1008\n" + attempt);
    const kx::Object list(fx_status_list(root.root(), "bob", 5));
    EXPECT_EQ(Shown(list, {"rresult"}), "1008;") << attempt;
  }
  PutStatus(root, "5", "attempt=2\n");
  EXPECT_EQ(ErrorOf(fx_status_list(root.root(), "bob", 5)), 3) << "no log";
  fx_append_olog(root.root(), Attempt(6, 1));
  EXPECT_EQ(ErrorOf(fx_status_list(root.root(), "bob", 5)), 19)
      << "no record in it";
}

TEST_F(CleanEvents, DropsThoseOfRequestsThatAreGone) {
  for (const char* name : {"1", "2", "3", "1x", "01", "note.tmp"}) {
    PutStatus(root, name, "");
  }
  root.MakeDir("faxq/bob/events/dir");
  root.Put("requests/r-1", "");
  root.MakeDir("requests/r-2");
  EXPECT_EQ(fx_clean_events(root.root(), "bob"), 0);
  EXPECT_EQ(kx_errno, 0);
  EXPECT_EQ(NamesIn(root / "faxq/bob/events"),
            (std::vector<std::string>{"01", "1", "1x", "dir", "note.tmp"}));
  EXPECT_EQ(fx_clean_events(root.root(), "../requests"), 0);
  EXPECT_TRUE(root.Has("requests/r-1"));
}

}  // namespace
