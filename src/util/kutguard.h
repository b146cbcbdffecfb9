// Keeping the lack of memory inside a public function, which no exception may
// leave.
//
//     return Kut_guarded([&] { return Count(name); });   // -1 with ENOMEM
#ifndef UTIL_KUTGUARD_H_
#define UTIL_KUTGUARD_H_

#include <cerrno>
#include <new>
#include <type_traits>

// The result of `body`; where memory lacked, that of `without_memory`, which
// needs none.
template <typename Body, typename Otherwise>
auto Kut_guarded(Body body, Otherwise without_memory) -> decltype(body()) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return without_memory();
  }
}

// What failure looks like: -1 for a number, else nothing (null, no descriptor).
template <typename Result>
Result Kut_failure() {
  if constexpr (std::is_arithmetic_v<Result>) {
    return -1;
  } else {
    return Result();
  }
}

// The same; without memory errno is ENOMEM and the result a failure.
template <typename Body>
auto Kut_guarded(Body body) -> decltype(body()) {
  return Kut_guarded(body, [] {
    errno = ENOMEM;
    return Kut_failure<decltype(body())>();
  });
}

#endif  // UTIL_KUTGUARD_H_
