// What is left of the budget that the caller of the store set.
#ifndef ISAM_ISBUDGET_H_
#define ISAM_ISBUDGET_H_

#include "isam/istypes.h"

namespace isam {

// As isam_swap_budget.
isam_budget SwapBudget(const isam_budget& next);

// How long the next lock is waited for at most, in milliseconds, and how long
// it was.
int LongestWaitMs();
void NoteWaited(int ms);

bool IsTimeUp();

}  // namespace isam

#endif  // ISAM_ISBUDGET_H_
