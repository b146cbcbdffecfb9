// Counts the system calls of another program.
#ifndef BENCH_SYSCALLS_H_
#define BENCH_SYSCALLS_H_

#include <functional>

// Runs `program` in a child of this process, traced, and calls `entered` with
// the number of each system call before it is made, until that returns false
// or the child ends; then kills it. `program` must not return but replace the
// process. -1 where tracing is not allowed.
int TraceCalls(const std::function<void()>& program,
               const std::function<bool(long)>& entered);

#endif  // BENCH_SYSCALLS_H_
