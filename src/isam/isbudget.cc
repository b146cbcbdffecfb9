#include "isam/isbudget.h"

#include <algorithm>

#include "isam/issys.h"
#include "util/kuttime.h"

namespace isam {
namespace {

constinit int g_wait_ms = -1;       // -1: no budget
constinit int64_t g_until_ms = -1;  // by Kut_coarse_ms

}  // namespace

isam_budget SwapBudget(const isam_budget& next) {
  const bool timed = g_until_ms >= 0 || next.time_ms >= 0;
  const int64_t now = timed ? Kut_coarse_ms() : 0;
  isam_budget left = {g_wait_ms, -1};
  if (g_until_ms >= 0) {
    left.time_ms = static_cast<int>(std::max<int64_t>(g_until_ms - now, 0));
  }
  g_wait_ms = next.wait_ms;
  g_until_ms = next.time_ms < 0 ? -1 : now + next.time_ms;
  return left;
}

int LongestWaitMs() { return g_wait_ms < 0 ? g_sys.lock_wait_ms : g_wait_ms; }

void NoteWaited(int ms) {
  if (g_wait_ms >= 0) g_wait_ms = std::max(g_wait_ms - ms, 0);
}

bool IsTimeUp() { return g_until_ms >= 0 && Kut_coarse_ms() >= g_until_ms; }

}  // namespace isam
