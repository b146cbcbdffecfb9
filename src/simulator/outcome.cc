#include "simulator/outcome.h"

#include <algorithm>
#include <iterator>

#include "cm/cmresult.h"

namespace sim {
namespace {

constexpr Outcome kOutcomes[] = {
    {"ok", kCmAttemptNormal, 100, false},
    {"busy", kCmAttemptBusy, 0, true},
    {"linedrop", kCmAttemptLineDrop, 50, true},
    {"notfax", kCmAttemptNotFax, 0, true},
    {"noanswer", kCmAttemptNoAnswer, 0, true},
    {"voice", kCmAttemptVoice, 0, true},
    {"nodial", kCmAttemptNoDialtone, 0, true},
    {"rejected", kCmAttemptRejected, 0, true},
    {"badreq", kCmAttemptBadRequest, 0, false},
    {"badmodem", kCmAttemptBadModem, 0, true},
    {"timeout", kCmAttemptTimedOut, 50, true},
    {"nofile", kCmAttemptNoFile, 0, false},
    {"badfile", kCmAttemptBadFile, 0, false},
};

const Outcome* Find(std::string_view word) {
  const auto at = std::find_if(
      std::begin(kOutcomes), std::end(kOutcomes),
      [&](const Outcome& outcome) { return word == outcome.word; });
  return at != std::end(kOutcomes) ? at : nullptr;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// A number as people write it has blanks and dashes that mean nothing.
std::string DigitsOf(std::string_view number) {
  std::string digits;
  std::copy_if(number.begin(), number.end(), std::back_inserter(digits),
               IsDigit);
  return digits;
}

}  // namespace

bool Outcomes::Add(std::string_view text) {
  Rule rule;
  if (const size_t equals = text.find('='); equals != text.npos) {
    rule.digits = text.substr(0, equals);
    if (rule.digits.empty() || DigitsOf(rule.digits) != rule.digits) {
      return false;
    }
    text.remove_prefix(equals + 1);
  }
  for (;;) {
    const size_t comma = text.find(',');
    const Outcome* outcome = Find(text.substr(0, comma));
    if (outcome == nullptr) return false;
    rule.course.push_back(outcome);
    if (comma == text.npos) break;
    text.remove_prefix(comma + 1);
  }
  rules_.push_back(std::move(rule));
  return true;
}

const Outcome& Outcomes::Of(std::string_view number, int attempt) const {
  const std::string digits = DigitsOf(number);
  const Rule* best = nullptr;
  for (const Rule& rule : rules_) {
    if (!digits.ends_with(rule.digits)) continue;
    // ">=": the later of two alike, so that a script can add to what it was
    // given.
    if (best == nullptr || rule.digits.size() >= best->digits.size()) {
      best = &rule;
    }
  }
  if (best == nullptr) return kOutcomes[0];  // "ok"
  const size_t step = static_cast<size_t>(std::max(attempt, 1)) - 1;
  return *best->course[std::min(step, best->course.size() - 1)];
}

std::string OutcomeWords() {
  std::string words;
  for (const Outcome& outcome : kOutcomes) {
    if (!words.empty()) words += ' ';
    words += outcome.word;
  }
  return words;
}

int ResultAfter(const Outcome& last, int attempts, int most) {
  if (last.result == kCmAttemptNormal) return kCmRequestNormal;
  // A request that is wrong in itself fails the same way each time.
  if (!last.worth_a_retry) return kCmRequestFailed;
  return attempts < most ? kCmRequestRescheduled : kCmRequestMaxAttempts;
}

}  // namespace sim
