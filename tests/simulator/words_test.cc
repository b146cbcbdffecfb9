#include "simulator/words.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

sim::SpoolRecord SpoolRecord(const char* name, const char* host) {
  sim::SpoolRecord record = {};
  memcpy(record.data(), name, strlen(name));
  memcpy(record.data() + 16, host, strlen(host));
  return record;
}

TEST(Words, EveryRecordIsOneLineInWords) {
  EXPECT_EQ(sim::InWords(fx_encode_sched(kFxSchedTry, -1)),
            "scheduler: try request -1 now");
  EXPECT_EQ(sim::InWords(fx_encode_sched(65535, 3)),
            "scheduler: unknown command 65535 for request 3");
  EXPECT_EQ(sim::InWords(SpoolRecord("0001-002", "")),
            "spool: command 0001-002 submitted from no host");
  EXPECT_EQ(sim::InWords("krtnet.net", fx_encode_event("jsmith", -7)),
            "krtnet.net: event -7 for jsmith: unknown event");
  // A record's text must not end the line, nor move a terminal's cursor.
  EXPECT_EQ(sim::InWords(SpoolRecord("a\nrequest 1", "\x1b[2J\xff")),
            "spool: command a?request 1 submitted from ?[2J?");
  // A name that fills its field has no NUL.
  EXPECT_EQ(sim::SpoolRecordName(SpoolRecord("0123456789abcdef", "hostA")),
            "0123456789abcdef");
}

}  // namespace
