// "obj-faxinfo": one fax file in a user's queue.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"filename", kx_typ_file, 128}, {"clientid", kx_typ_str, 16},
    {"fstatus", kx_typ_enum},       {"seqno", kx_typ_long},
    {"npages", kx_typ_word},        {"tsi", kx_typ_str, 24},
    {"rcvtime", kx_typ_time},
};

}  // namespace

KX_DEFINE_TYPE(faxinfo, kRows)
