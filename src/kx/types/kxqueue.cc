// "obj-queue": the state of one queue.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"qname", kx_typ_str, 16},  {"qdesc", kx_typ_str, 64},
    {"qtype", kx_typ_enum},     {"asince", kx_typ_time},
    {"accepting", kx_typ_bool}, {"areason", kx_typ_str, 64},
    {"devices", kx_typ_list},
};

}  // namespace

KX_DEFINE_TYPE(queue, kRows)
