// How the simulated attempts end.
//
// - A rule is "[DIGITS=]OUTCOME[,OUTCOME]...": for the numbers that end in
//   these digits (for all, without any) the first attempt ends in the first
//   outcome, the second in the second, and every further one in the last.
// - Of several rules that fit a number, the one with the most digits decides;
//   of two alike, the later. Without a rule an attempt ends well.
#ifndef SIMULATOR_OUTCOME_H_
#define SIMULATOR_OUTCOME_H_

#include <string>
#include <string_view>
#include <vector>

namespace sim {

struct Outcome {
  const char* word;
  int result;          // of the attempt (cm/cmresult.h)
  int sent_percent;    // of the pages
  bool worth_a_retry;  // false: the request has failed with this attempt
};

class Outcomes {
 public:
  // False for a text that is no rule.
  bool Add(std::string_view text);
  // How attempt `attempt`, counted from 1, at the number ends.
  const Outcome& Of(std::string_view number, int attempt) const;

 private:
  struct Rule {
    std::string digits;
    std::vector<const Outcome*> course;
  };
  std::vector<Rule> rules_;
};

// All words, separated by blanks.
std::string OutcomeWords();

// What becomes of a request after `attempts` of at most `most` attempts, the
// last of which ended so.
int ResultAfter(const Outcome& last, int attempts, int most);

}  // namespace sim

#endif  // SIMULATOR_OUTCOME_H_
