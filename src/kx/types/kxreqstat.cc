// "obj-reqstat": a request for the status of a fax.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"seqno", kx_typ_long},       {"reqtype", kx_typ_enum},
    {"attempt", kx_typ_word},     {"stattype", kx_typ_word},
    {"clientid", kx_typ_str, 16},
};

}  // namespace

KX_DEFINE_TYPE(reqstat, kRows)
