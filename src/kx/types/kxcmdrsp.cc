// "obj-cmdrsp": the envelope of every exchange, command and response alike.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"clientid", kx_typ_str, 16},  {"hostname", kx_typ_str, 64},
    {"hostaddr", kx_typ_data, 64}, {"sessionid", kx_typ_long},
    {"reference", kx_typ_word},    {"clntport", kx_typ_word},
    {"cmdtype", kx_typ_enum},      {"iscmd", kx_typ_bool},
    {"respond", kx_typ_bool},      {"result", kx_typ_word},
    {"errmsg", kx_typ_str, 256},   {"objptr", kx_typ_obj},
};

}  // namespace

KX_DEFINE_TYPE(cmdrsp, kRows)

// The record as a structure, to hold the computed layout against.
namespace {
struct Record {
  const void* type;
  char clientid[16];
  char hostname[64];
  char hostaddr[64];
  int32_t sessionid, reference, clntport, cmdtype, iscmd, respond, result;
  char errmsg[256];
  kx_object* objptr;
};
static_assert(kx::OffsetOf(kTable, "hostaddr") == offsetof(Record, hostaddr));
static_assert(kx::OffsetOf(kTable, "sessionid") == offsetof(Record, sessionid));
static_assert(kx::OffsetOf(kTable, "errmsg") == offsetof(Record, errmsg));
static_assert(kx::OffsetOf(kTable, "objptr") == offsetof(Record, objptr));
static_assert(kTable.back().offset == sizeof(Record));
}  // namespace
