// A check whose failure is a finding.
#ifndef FUZZ_CHECK_H_
#define FUZZ_CHECK_H_

#define CHECK(condition) \
  if (!(condition)) __builtin_trap()

#endif  // FUZZ_CHECK_H_
