// "obj-freq": a fax request as the scheduler's request file holds it.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"clientid", kx_typ_str, 16},  {"seqno", kx_typ_long},
    {"active", kx_typ_enum},       {"faxpath", kx_typ_path, 256},
    {"cvrpath", kx_typ_path, 256}, {"submittime", kx_typ_time},
    {"sendtime", kx_typ_time},     {"exptime", kx_typ_time},
    {"atttime", kx_typ_time},      {"tofnum", kx_typ_rstr, 64},
    {"dialed", kx_typ_rstr, 64},   {"tsi", kx_typ_str, 24},
    {"csi", kx_typ_str, 24},       {"prilevel", kx_typ_word},
    {"attempt", kx_typ_word},      {"maxtrys", kx_typ_word},
    {"retrymins", kx_typ_word},    {"sendres", kx_typ_pstr, 16},
    {"queue", kx_typ_pstr, 16},    {"numpgs", kx_typ_word},
    {"npages", kx_typ_word},       {"naks", kx_typ_word},
    {"notify", kx_typ_enum},       {"mailaddr", kx_typ_str, 64},
    {"tnp", kx_typ_path, 256},     {"gseqno", kx_typ_long},
    {"memno", kx_typ_word},        {"rresult", kx_typ_word},
};

}  // namespace

KX_DEFINE_TYPE(freq, kRows)
