// Reading files of the fax server, and files that its users can write to.
//
// - Only regular files are opened, without waiting: a fifo or a device that a
//   user put in a file's place neither holds nor feeds anybody.
// - The functions that take a directory's descriptor do not follow a symbolic
//   link in the name's last component; those that take a path do so only with
//   fx_links::kFollow, for files that only an administrator can place.
// - Failures are told in errno: EINVAL for what is no regular file.
#ifndef FAXSERVER_FSFILE_H_
#define FAXSERVER_FSFILE_H_

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <string>

#include "kx/kxtext.h"
#include "kx/object.h"
#include "util/kutident.h"
#include "util/kutio.h"

enum class fx_links { kFollow, kRefuse };

// As whom the fax system's own files are opened from now on, those that are
// given by a path: whoever owns the root directory can put a link to any file
// in the place of one, and is not to read root's by a daemon that is root.
void fx_read_as(const kut_fsid& owner);
const kut_fsid& fx_reader();

// Opens a regular file for reading; its status goes to `st`, which may be null.
UniqueFd fx_open_file(int dirfd, const char* name, fx_links links,
                      struct stat* st);

struct fx_fclose {
  void operator()(FILE* file) const { fclose(file); }
};
using fx_stream = std::unique_ptr<FILE, fx_fclose>;

// A stream on a regular file, or null.
fx_stream fx_open_stream(const char* path, fx_links links = fx_links::kFollow);
// A stream that owns the descriptor; null for -1 as well.
fx_stream fx_stream_on(UniqueFd fd);

// Reads a whole regular file of at most `limit` bytes; a larger one fails with
// EFBIG. A file that grows meanwhile is read up to its size at the beginning.
bool fx_read_file(int dirfd, const char* name, fx_links links, size_t limit,
                  std::string* content, struct stat* st = nullptr);

// Reads a line of at most `size` - 1 characters as fgets does (the rest of a
// longer line is the next one) and strips white space from both ends. False at
// the end.
bool fx_read_line(FILE* stream, char* line, size_t size);

// What objects from files that others write may take: object-bytes of memory,
// and of input as much as a command.
kx_budget fx_object_budget();

// Loads an object of the type (null: of any) from a stream in the text form,
// without unpacking what is embedded. A null budget is one of its own; who
// reads many objects gives one for all of them. Null: kx_err_system when the
// stream is null or cannot be read; kx_err_memory without memory;
// kx_err_too_long over the budget; otherwise as Kfx_Comp_Obj.
kx::Object fx_read_object(FILE* stream, const char* type,
                          kx_budget* budget = nullptr);

// Sets a file's mode, and gives it to the fax system's user and group where the
// process may. errno is kept.
void fx_give_to_krt(int fd, mode_t mode);

#endif  // FAXSERVER_FSFILE_H_
