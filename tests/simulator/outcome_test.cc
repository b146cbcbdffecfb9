#include "simulator/outcome.h"

#include <gtest/gtest.h>

#include <tuple>

#include "cm/cmresult.h"

namespace {

TEST(Outcome, MostDigitsDecideThenTheLaterRule) {
  sim::Outcomes outcomes;
  EXPECT_STREQ(outcomes.Of("555-0142", 1).word, "ok");
  for (const char* rule : {"2=voice", "42=busy,noanswer,ok", "noanswer",
                           "7=rejected", "7=linedrop"}) {
    ASSERT_TRUE(outcomes.Add(rule)) << rule;
  }
  const std::tuple<const char*, int, const char*> kCases[] = {
      {"555-0142", 1, "busy"},     {"555 01 4-2", 2, "noanswer"},
      {"555-0142", 3, "ok"},       {"555-0142", 9, "ok"},
      {"555-0132", 5, "voice"},    {"555-0107", 1, "linedrop"},
      {"555-0100", 4, "noanswer"}, {"", 1, "noanswer"},
  };
  for (const auto& [number, attempt, word] : kCases) {
    EXPECT_STREQ(outcomes.Of(number, attempt).word, word)
        << number << " attempt " << attempt;
  }
}

TEST(Outcome, WhatIsNoRuleIsRefused) {
  for (const char* rule :
       {"", "=ok", "4=", "4x=ok", "4=ok,", ",ok", "OK", "engaged", "4=5=ok"}) {
    sim::Outcomes outcomes;
    EXPECT_FALSE(outcomes.Add(rule)) << '"' << rule << '"';
  }
}

TEST(Outcome, RequestEndsAsItsLastAttemptAllows) {
  const std::tuple<const char*, int, int, int> kCases[] = {
      {"ok", 1, 1, kCmRequestNormal},
      {"busy", 1, 3, kCmRequestRescheduled},
      {"busy", 3, 3, kCmRequestMaxAttempts},
      {"badfile", 1, 3, kCmRequestFailed},
  };
  for (const auto& [word, attempts, most, result] : kCases) {
    sim::Outcomes outcomes;
    ASSERT_TRUE(outcomes.Add(word));
    EXPECT_EQ(sim::ResultAfter(outcomes.Of("1", 1), attempts, most), result)
        << word << ' ' << attempts;
  }
}

}  // namespace
