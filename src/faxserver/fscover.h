// Cover pages and the tags that they want filled in.
//
// - A cover page is an executable file of the covers directory, named without
//   its extension. Run with the option -dump it prints one line of tags.
// - The caller frees a returned list.
#ifndef FAXSERVER_FSCOVER_H_
#define FAXSERVER_FSCOVER_H_

#include "kx/kfx.h"

// The "obj-cvrtag"s of a cover page, without those that the fax server fills in
// itself. Null: kx_err_data for an unknown cover page, kx_err_system when it
// cannot be looked for, run or read, kx_err_io when it prints nothing or
// exceeds its budget; kx_err_none when it has no tags.
kx_object* fx_get_cover_tags(const char* root, const char* name);

// Reads one line of tags, as a cover page prints it; `line` is changed. Entries
// are separated by white space, their up to six fields by colons: name, type
// letter (R, O, S), font letter (F, P), font name, maximum length, description.
// Blanks and colons in double quotes belong to the text. A missing or empty
// field, and one that does not fit, is unset.
kx_object* fx_parse_cover_tags(char* line);

// The cover pages, "obj-resource"s in order of their names, that have all of
// the tags in a list of objects with `tagname`. A page whose tags cannot be
// read has none. Null with kx_err_none: no such page; otherwise as
// fx_res_allcvr_list.
kx_object* fx_cover_matchlist(const char* root, kx_object* tags);

#endif  // FAXSERVER_FSCOVER_H_
