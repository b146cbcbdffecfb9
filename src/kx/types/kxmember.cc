// "obj-member": one membership in a group of a phone book.
#include "kx/kxtype.h"

namespace {

// Declared without a length, as clients know this type, and stored with one.
constexpr int kAliasSize = 16;

constexpr kx::Row kRows[] = {
    {"galias", kx_typ_str, 0, kx_carries::kNothing, kAliasSize},
    {"palias", kx_typ_str, 0, kx_carries::kNothing, kAliasSize},
};

}  // namespace

KX_DEFINE_TYPE(member, kRows)
