// krtctl's table of verbs and options: one row a verb.
#ifndef CTL_VERBS_H_
#define CTL_VERBS_H_

#include "ctl/app/verb.h"

namespace client {

const VerbTable& Verbs();

}  // namespace client

#endif  // CTL_VERBS_H_
