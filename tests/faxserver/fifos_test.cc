#include <gtest/gtest.h>

#include <chrono>
#include <optional>

#include "cm/cmdaemon.h"
#include "cm/cmpaths.h"
#include "faxserver/fscom.h"
#include "faxserver/fsdmnlst.h"
#include "faxserver/fsefifo.h"
#include "support/peers.h"
#include "util/kutfifo.h"

namespace {

using SchedulerFifo = FaxTest;
using Fifo = FaxTest;
using Events = FaxTest;
using EventFifo = FaxTest;

TEST_F(SchedulerFifo, RecordIsExactlyThese68Bytes) {
  const fx_sched_record record = fx_encode_sched(kFxSchedTry, -5);
  EXPECT_EQ(ErrorOf(fx_send_cmd(root.root(), record)), 3) << "no fifo";
  root.Put("FIFO", "a file");
  EXPECT_EQ(ErrorOf(fx_send_cmd(root.root(), record)), 3);
  EXPECT_EQ(ReadFile(root / "FIFO"), "a file");
  std::filesystem::remove(root / "FIFO");
  const FifoReader scheduler(root / "FIFO");
  ASSERT_EQ(fx_send_cmd(root.root(), record), 0);
  EXPECT_EQ(kx_errno, 0);
  const std::string expected =
      Bytes(Bytes<uint16_t>(12), 8) + Bytes(Bytes<int32_t>(-5), 60);
  EXPECT_EQ(scheduler.Take(), expected);
}

TEST_F(Fifo, WaitForAReaderEnds) {
  ASSERT_EQ(mkfifo((root / "FIFO").c_str(), 0600), 0);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Kut_send_record((root / "FIFO").c_str(), "x", 1, 1), -1);
  EXPECT_EQ(errno, ENXIO);
  const auto taken = std::chrono::steady_clock::now() - start;
  EXPECT_LT(taken, std::chrono::seconds(10));
}

TEST_F(Fifo, ReaderThatDoesNotReadHoldsNobody) {
  const FifoReader reader(root / "FIFO");
  const std::string record(68, 'r');
  const char* path = cm_get_fifo_file(root.root());
  int sent = 0;
  while (Kut_send_record(path, record.data(), record.size(), 0) == 0) {
    ASSERT_LT(++sent, 100000);
  }
  EXPECT_EQ(errno, EAGAIN);
  // A write that finds too little room writes nothing: no half records.
  std::string all;
  for (std::string got; !(got = reader.Take()).empty();) all += got;
  EXPECT_EQ(all.size(), static_cast<size_t>(sent) * record.size());
}

TEST_F(Fifo, ReaderThatGoesAwayIsAnErrorAndNoSignal) {
  ASSERT_EQ(fx_efifo_make(root.root()), 0);
  ASSERT_EQ(fx_efifo_open(root.root(), 0), 0);
  ASSERT_EQ(fx_efifo_open(root.root(), 1), 0);
  const UniqueFd writer(Kut_open_fifo_writer((root / "efifo").c_str(), 0));
  ASSERT_TRUE(writer.valid());
  ASSERT_EQ(fx_efifo_close(), 0);
  EXPECT_EQ(Kut_write_record(writer.get(), "x", 1, 0), -1);
  EXPECT_EQ(errno, EPIPE);
}

struct SessionDaemons {
  explicit SessionDaemons(const FaxRoot& root)
      : file(root / "krtnet/filspool/efifo"),
        network(root / "krtnet/netspool/efifo") {}
  FifoReader file;
  FifoReader network;
};

std::string Event(const std::string& user, int32_t code) {
  return Bytes(user, 16) + Bytes(Bytes(code), 20);
}

TEST_F(Events, GoToEachRegisteredAndLivingDaemon) {
  std::optional<SessionDaemons> daemons(root);
  const fx_event_record event = fx_encode_event("bob", kFxEventCancelled);

  EXPECT_EQ(fx_efifo_send(root.root(), event), 0);
  EXPECT_EQ(daemons->file.Take(), "") << "nobody is registered";

  fx_add_daemon_list(root.root(), kCmNetDaemon, getpid());
  fx_add_daemon_list(root.root(), kCmFileDaemon, DeadPid());
  EXPECT_EQ(fx_efifo_send(root.root(), event), 0);
  EXPECT_EQ(daemons->file.Take(), "") << "the file daemon is dead";
  EXPECT_EQ(daemons->network.Take(), Event("bob", 16));

  fx_add_daemon_list(root.root(), kCmFileDaemon, getpid());
  EXPECT_EQ(fx_efifo_send(root.root(), event), 0);
  EXPECT_EQ(daemons->file.Take(), Event("bob", 16));
  EXPECT_EQ(daemons->network.Take(), Event("bob", 16));

  daemons.reset();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(fx_efifo_send(root.root(), event), 0) << "nobody reads";
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST_F(Events, LongUserNameIsCutByItsField) {
  const fx_event_record event = fx_encode_event("a-name-of-twenty-by", 2);
  EXPECT_EQ(Text(event), Event("a-name-of-twent", 2));
  EXPECT_EQ(fx_event_user(event), "a-name-of-twent");
}

TEST_F(EventFifo, ReadsWholeRecordsOnly) {
  fx_event_record event;
  EXPECT_EQ(fx_efifo_open(root.root(), 0), -1) << "no fifo yet";
  EXPECT_EQ(fx_efifo_read(0, &event), -1) << "not open";
  ASSERT_EQ(fx_efifo_make(root.root()), 0);
  ASSERT_EQ(fx_efifo_make(root.root()), 0) << "it is there already";
  EXPECT_EQ(PermsOf(root / "efifo"), 0660u);
  EXPECT_EQ(fx_efifo_open(root.root(), 2), -1) << "no such mode";
  EXPECT_EQ(fx_efifo_open(root.root(), 1), -1) << "no reader";
  ASSERT_EQ(fx_efifo_open(root.root(), 0), 0);
  ASSERT_EQ(fx_efifo_open(root.root(), 1), 0);

  EXPECT_EQ(fx_efifo_read(0, &event), 1);
  ASSERT_EQ(fx_efifo_write(fx_encode_event("ann", 2)), 0);
  ASSERT_EQ(fx_efifo_write(fx_encode_event("bob", 8)), 0);
  ASSERT_EQ(fx_efifo_read(5, &event), 0);
  EXPECT_EQ(fx_event_user(event), "ann");
  EXPECT_EQ(fx_event_record_code(event), 2);

  EXPECT_EQ(fx_efifo_close(), 0);
  EXPECT_EQ(fx_efifo_write(event), -1) << "closed";
}

}  // namespace
