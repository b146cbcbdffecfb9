// The tag table: settings of new requests.
//
// - The file krtnet/envtags holds a line "name=value" for each; blank lines and
//   lines beginning with "#" are skipped, the case of names does not matter,
//   unknown names are ignored. It is read when it is first needed, once per
//   process.
#ifndef FAXSERVER_FSTAGS_H_
#define FAXSERVER_FSTAGS_H_

// Reads the table unless it was. False with errno when its file cannot be read
// for want of memory, descriptors or a sound disk, and the next call tries
// again; without a file the table is empty.
bool fx_load_tags(const char* root);
// The value of a tag: "tnp" (the program to run on a new request), "queue",
// "sendres", "priority", "tsi", "mailaddr", "maxtrys", "retrymins" (minutes
// between attempts) or "exphours" (hours until a request expires). "" for one
// that is not set or not known. Valid for the process.
const char* fx_get_tag(const char* root, const char* name);

// Forgets the table, which is read anew when it is next needed. For tests.
void fx_reset_tags();

#endif  // FAXSERVER_FSTAGS_H_
