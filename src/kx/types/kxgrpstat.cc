// "obj-grpstat": the progress of a request to a group.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"clientid", kx_typ_str, 16}, {"seqno", kx_typ_long},
    {"nummems", kx_typ_word},     {"numsent", kx_typ_word},
    {"numpend", kx_typ_word},     {"numfailed", kx_typ_word},
    {"submittime", kx_typ_time},  {"subject", kx_typ_str, 64},
};

}  // namespace

KX_DEFINE_TYPE(grpstat, kRows)
