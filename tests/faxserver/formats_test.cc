#include <gtest/gtest.h>

#include <tuple>

#include "faxserver/fsbytes.h"
#include "faxserver/fsdstat.h"
#include "faxserver/fsfile.h"
#include "faxserver/fshdr.h"
#include "faxserver/fsolog.h"
#include "faxserver/fsqstat.h"
#include "faxserver/fsqueue.h"
#include "support/peers.h"

namespace {

using FaxHeader = FaxTest;
using OutgoingLog = FaxTest;
using QueueStatus = FaxTest;
using Queues = FaxTest;

kx_object* At(const kx::Object& list, int n) {
  return static_cast<kx_object*>(Kfx_Bnthid(list.get(), n));
}

// ---- Fax file header ----

// A header with every byte different from its neighbours, as the machine of the
// other byte order would write it when `foreign` is set.
fx_faxhdr Header(bool foreign) {
  constexpr std::pair<size_t, size_t> kNumbers[] = {
      {0, 4},  {4, 4},  {44, 4}, {48, 4}, {52, 2}, {54, 2}, {56, 2},
      {58, 2}, {60, 2}, {64, 4}, {68, 2}, {72, 4}, {76, 4}, {80, 2}};
  fx_faxhdr header;
  for (size_t i = 0; i < sizeof header.bytes; ++i) {
    header.bytes[i] = static_cast<unsigned char>(i);
  }
  fx_put(header.bytes, 0, kFxFaxhdrMagic);
  if (!foreign) return header;
  for (const auto& [at, size] : kNumbers) {
    std::reverse(header.bytes + at, header.bytes + at + size);
  }
  return header;
}

TEST_F(FaxHeader, OtherByteOrderIsTurnedRoundInItsNumbersOnly) {
  fx_faxhdr header = Header(true);
  ASSERT_TRUE(fx_fix_faxhdr(&header));
  EXPECT_EQ(Bytes(header), Bytes(Header(false)));
  ASSERT_TRUE(fx_fix_faxhdr(&header)) << "it is right already";
  EXPECT_EQ(Bytes(header), Bytes(Header(false)));
}

TEST_F(FaxHeader, IsReadWholeOrNotAtAll) {
  const fx_faxhdr made = fx_make_faxhdr(7);
  const std::string image = Bytes(made);
  fx_faxhdr foreign = Header(true);
  foreign.bytes[52] = 0x01;  // 258 pages, the high byte first or last
  foreign.bytes[53] = 0x02;
  const std::tuple<const char*, std::string, int, int> cases[] = {
      {"whole", image + "image", 7, 0},
      {"cut", image.substr(0, 255), -1, 5},
      {"empty", "", -1, 5},
      {"text", std::string(300, 't'), -1, 19},
      {"foreign", Bytes(foreign),
       __builtin_bswap16(fx_get<uint16_t>(foreign.bytes, 52)), 0},
  };
  for (const auto& [name, content, pages, error] : cases) {
    root.Put(name, content);
    EXPECT_EQ(fx_num_pages((root / name).c_str()), pages) << name;
    EXPECT_EQ(kx_errno, error) << name;
  }
  EXPECT_EQ(fx_num_pages((root / "none").c_str()), -1);
  EXPECT_EQ(kx_errno, 5);

  const fx_stream out(fopen((root / "copy").c_str(), "w"));
  ASSERT_EQ(fx_wr_faxhdr(out.get(), &made), 0);
  ASSERT_EQ(fflush(out.get()), 0);
  EXPECT_EQ(ReadFile(root / "copy"), image);
}

// ---- Outgoing log ----

fx_olog_record Attempt(int32_t seqno, int32_t attempt) {
  return {seqno,
          attempt,
          1000 + attempt,
          2000 + attempt,
          static_cast<int16_t>(attempt),
          0,
          4,
          1001,
          "",
          "",
          "",
          "",
          ""};
}

std::vector<int32_t> Attempts(const std::vector<fx_olog_record>& records) {
  std::vector<int32_t> attempts;
  for (const fx_olog_record& record : records) {
    attempts.push_back(record.attempt);
  }
  return attempts;
}

TEST_F(OutgoingLog, RecordHasItsFixedLayout) {
  const fx_olog_bytes bytes =
      fx_encode_olog({0x01020304, 2, 1002, 2002, 2, -3, 4, 1001, "bob",
                      std::string(30, 'c'), "tsi", "555", "q1"});
  EXPECT_EQ(Text(bytes),
            Bytes(0x01020304) + Bytes(2) + Bytes(1002) + Bytes(2002) +
                Bytes<int16_t>(2) + Bytes<int16_t>(-3) + Bytes<int16_t>(4) +
                Bytes<int16_t>(1001) + Bytes("bob", 16) +
                Bytes(std::string(23, 'c'), 24) + Bytes("tsi", 24) +
                Bytes("555", 64) + Bytes("q1", 16));
  EXPECT_EQ(Text(fx_encode_olog(fx_decode_olog(bytes))), Text(bytes));
}

TEST_F(OutgoingLog, GivesTheLastRecordsOfARequestFromTheEnd) {
  // More than two of the blocks in which the log is read.
  std::string log;
  for (int i = 1; i <= 1000; ++i) {
    log += Text(fx_encode_olog(Attempt(i % 100 == 7 ? 42 : 1, i)));
  }
  fx_olog_record others = Attempt(42, 3000);
  others.clientid = "bob";
  log += Text(fx_encode_olog(others));
  root.Put("logs/OLOG", log + "a record that was cut");
  const std::tuple<long, int, std::vector<int32_t>, int> cases[] = {
      {42, 3, {707, 807, 907}, 0},
      {42, 99, {7, 107, 207, 307, 407, 507, 607, 707, 807, 907}, 0},
      {42, 0, {}, 19},
      {42, -1, {}, 19},
      {43, 5, {}, 19},
  };
  for (const auto& [seqno, max, attempts, error] : cases) {
    EXPECT_EQ(Attempts(fx_read_olog_list(root.root(), seqno, "", max)),
              attempts)
        << seqno << " " << max;
    EXPECT_EQ(kx_errno, error) << seqno << " " << max;
  }
}

TEST_F(OutgoingLog, GrowsByWholeRecords) {
  EXPECT_TRUE(fx_read_olog_list(root.root(), 1, "", 1).empty());
  EXPECT_EQ(kx_errno, 3);
  for (const int attempt : {2, 1, 3}) {
    ASSERT_EQ(fx_append_olog(root.root(), Attempt(5, attempt)), 0);
  }
  EXPECT_EQ(Attempts(fx_read_olog_list(root.root(), 5, "", 9)),
            (std::vector<int32_t>{1, 2, 3}));
  // Cut at any length, the log holds the records that are whole.
  const std::string log = ReadFile(root / "logs/OLOG");
  for (size_t size = 0; size < log.size(); size += 23) {
    root.Put("logs/OLOG", log.substr(0, size));
    EXPECT_EQ(fx_read_olog_list(root.root(), 5, "", 9).size(), size / 168)
        << size;
  }
}

TEST_F(OutgoingLog, MergedStatusTellsThatAttemptAndNoOther) {
  const kx::Object status =
      Parsed("obj-status", "csi=of an earlier one\nnaks=9\nqueue=its own\n");
  fx_olog_record record = Attempt(5, 2);
  record.dialed = "555";
  record.queue = "other";
  ASSERT_EQ(fx_merge_stat_olog(status.get(), record), 0);
  EXPECT_EQ(Missing(status.get(),
                    "attempt=2\naresult=4\nrresult=1001\nnpages=2\nnaks=0\n"
                    "stime=19700101001642\ndialed=555\nqueue=its own\n"),
            "");
  EXPECT_EQ(Kfx_Get(status.get(), "csi"), nullptr);
  const kx::Object other = kx::Build("obj-person");
  EXPECT_EQ(ErrorOf(fx_merge_stat_olog(other.get(), record)), 21);
}

// ---- Queue and device status ----

fx_qstat_record Queue(const std::string& name, int16_t type) {
  return {name, 0, 0, "", type};
}

TEST_F(QueueStatus, RecordBecomesAnObject) {
  const fx_qstat_bytes bytes =
      fx_encode_qstat({"sales", -1, 86400, "since the morning", 1});
  EXPECT_EQ(Text(bytes), Bytes("sales", 28) + Bytes(Bytes<int16_t>(-1), 4) +
                             Bytes(86400) + Bytes("since the morning", 68) +
                             Bytes(Bytes<int16_t>(1), 16));
  EXPECT_EQ(Text(fx_encode_qstat(fx_decode_qstat(bytes))), Text(bytes));

  root.Put("qstat", Text(bytes));
  root.Put("Classes/sales",
           "tty1\n\n sales \ntty2\na device name that is too long\n");
  const kx::Object list(fx_rd_qstat(root.root()));
  EXPECT_EQ(Shown(list, {"qname", "qtype", "accepting", "asince", "areason"}),
            "sales=que-class=true=19700102000000=since the morning;");
  EXPECT_EQ(Shown(kx::Child(At(list, 0), "devices"), {"rname"}), "tty1;tty2;");
}

TEST_F(QueueStatus, DamageLeavesFieldsUnsetAndReadsNoStrangersFile) {
  root.Put("secret", "device\n");
  fx_qstat_bytes full = fx_encode_qstat(Queue("", 7));
  memset(full.data(), 'x', 28);       // no NUL, and longer than the field
  memset(full.data() + 36, 'r', 68);  // likewise
  root.Put("qstat", Text(full) + Text(fx_encode_qstat(Queue("../secret", 1))) +
                        std::string(10, 'z'));
  const kx::Object list(fx_rd_qstat(root.root()));
  ASSERT_EQ(Kfx_Bcount(list.get()), 2);
  for (const char* field : {"qname", "areason", "qtype"}) {
    EXPECT_EQ(Kfx_Get(At(list, 0), field), nullptr) << field;
  }
  EXPECT_EQ(Kfx_Get(At(list, 1), "devices"), nullptr);
}

TEST_F(QueueStatus, MissingFileIsAnErrorAndEmptyOneIsNot) {
  for (const auto read : {fx_rd_qstat, fx_queue_list, fx_rd_dstat}) {
    EXPECT_EQ(ErrorOf(read(root.root())), 3);
  }
  root.Put("qstat", std::string(119, 'q'));
  EXPECT_EQ(fx_rd_qstat(root.root()), nullptr);
  EXPECT_EQ(kx_errno, 0);
}

TEST_F(Queues, AreListedByName) {
  std::string file;
  for (const char* name : {"m", "b", "z", "a", "a-name-that-is-too-long"}) {
    file += Text(fx_encode_qstat(Queue(name, 0)));
  }
  root.Put("qstat", file);
  EXPECT_EQ(Shown(kx::Object(fx_queue_list(root.root())), {"rname", "rdesc"}),
            "a=a;b=b;m=m;z=z;");
}

TEST_F(Queues, DefaultIsTheFirstLine) {
  const auto get = [&] {
    const std::string name = fx_queue_get_default(root.root());
    return name + std::to_string(kx_errno);
  };
  EXPECT_EQ(get(), "3");
  root.Put("Default", "");
  EXPECT_EQ(get(), "3");
  root.Put("Default", "  sales \nother\n");
  EXPECT_EQ(get(), "sales0");
  ASSERT_EQ(fx_queue_set_default(root.root(), "support"), 0);
  EXPECT_EQ(ReadFile(root / "Default"), "support\n");
  ASSERT_EQ(fx_queue_set_default(root.root(), nullptr), 0);
  EXPECT_EQ(ReadFile(root / "Default"), "\n");
  EXPECT_EQ(ErrorOf(fx_queue_set_default((root / "none").c_str(), "q")), 3);
}

TEST(DeviceStatus, RecordHasItsFixedLayout) {
  const fx_dstat_record record = {
      "dev1", 1, 2, 3, 4, 5, "e", "r", "/dev/ttyS0", "class2", "notify"};
  const fx_dstat_bytes bytes = fx_encode_dstat(record);
  EXPECT_EQ(Text(bytes),
            Bytes("dev1", 28) + Bytes(1) + Bytes(2) + Bytes("", 4) +
                Bytes<int16_t>(3) + Bytes<int16_t>(4) + Bytes<int16_t>(5) +
                Bytes("e", 65) + Bytes("r", 65) + Bytes("/dev/ttyS0", 129) +
                Bytes("class2", 81) + Bytes("notify", 86));
  EXPECT_EQ(Text(fx_encode_dstat(fx_decode_dstat(bytes))), Text(bytes));
}

}  // namespace
