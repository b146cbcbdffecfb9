// "obj-reqid": what names a request.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"seqno", kx_typ_long},     {"reqtype", kx_typ_enum},
    {"nummems", kx_typ_word},   {"gseqno", kx_typ_long},
    {"memno", kx_typ_word},     {"sessionid", kx_typ_long},
    {"reference", kx_typ_word}, {"queue", kx_typ_pstr, 16},
};

}  // namespace

KX_DEFINE_TYPE(reqid, kRows)
