// Embedded files: 45 bytes a line, in the uuencode alphabet.
#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "kx/kxtext.h"
#include "util/kutfile.h"

namespace {

constexpr int kLineBytes = 45;
constexpr int kChunk = 91 * kLineBytes;  // read at once, whole lines
constexpr char kZero = ' ';              // the character of six zero bits

char Encode(int bits) { return static_cast<char>(kZero + (bits & 63)); }
int Decode(char c) { return (c - kZero) & 63; }
int Byte(char c) { return static_cast<unsigned char>(c); }

// The name may come from a folder that others write to: no link is followed.
int OpenByPath(const char* path) {
  return Kut_open_regular(AT_FDCWD, path, O_NOFOLLOW);
}

constinit kx_opener g_opener = OpenByPath;

bool Put(kx_writer writer, void* context, int keyword, const char* value,
         int code) {
  const char* name = kx_obj_kwrds[keyword];
  if (kx_put_pair(writer, context, name, value, code) == 0) return true;
  kx_errno = kx_err_callback;
  return false;
}

bool PutLine(kx_writer writer, void* context, const char* bytes, int count) {
  char line[64];
  kx_inpbuf(bytes, line, count);
  return Put(writer, context, 3, line, kx_write_file_data);
}

// The file's bytes, line by line, and the empty line behind them.
bool PutContents(kx_writer writer, void* context, int fd) {
  char chunk[kChunk + 2] = {};
  for (;;) {
    const ssize_t got = Kut_read_full(fd, chunk, kChunk);
    if (got < 0) {
      kx_errno = kx_err_system;
      return false;
    }
    for (int at = 0; at < got; at += kLineBytes) {
      const int left = static_cast<int>(got) - at;
      if (!PutLine(writer, context, chunk + at,
                   left < kLineBytes ? left : kLineBytes)) {
        return false;
      }
    }
    if (got < kChunk) return PutLine(writer, context, chunk, 0);
  }
}

bool Next(kx_reader reader, void* context, char* name, char* value,
          int keyword) {
  if (reader(context, name, value, kx_read_next) != 0) {
    kx_errno = kx_err_callback;
  } else if (strcmp(name, kx_obj_kwrds[keyword]) != 0) {
    kx_errno = kx_err_data;
  } else {
    return true;
  }
  return false;
}

// The lines of an embedded file, up to and with the one that ends it.
bool DecodeLines(kx_reader reader, void* context, FILE* file) {
  char name[KX_PAIR_SIZE];
  char value[KX_PAIR_SIZE];
  do {
    if (!Next(reader, context, name, value, 3)) return false;
  } while (kx_outbuf(value, file) > 0);
  return Next(reader, context, name, value, 4);
}

// The path in `directory` for the name that the stream gives, of which only the
// base name counts: nothing is written outside.
bool OutputPath(const char* directory, const char* name, char* path,
                std::size_t size) {
  const char* base = Kut_basename(name);
  if (*base == '\0' || strcmp(base, ".") == 0 || strcmp(base, "..") == 0) {
    kx_errno = kx_err_data;
    return false;
  }
  const int length = snprintf(path, size, "%s/%s", directory, base);
  if (length >= static_cast<int>(size)) {
    errno = ENAMETOOLONG;
    kx_errno = kx_err_system;
    return false;
  }
  return true;
}

}  // namespace

int kx_inpbuf(const char* input, char* output, int count) {
  *output++ = static_cast<char>(kZero + count);
  for (int i = 0; i < count; i += 3) {
    const int b0 = Byte(input[i]);
    const int b1 = Byte(input[i + 1]);
    const int b2 = Byte(input[i + 2]);
    *output++ = Encode(b0 >> 2);
    *output++ = Encode((b0 << 4) | (b1 >> 4));
    *output++ = Encode((b1 << 2) | (b2 >> 6));
    *output++ = Encode(b2);
  }
  *output = '\0';
  return 0;
}

int kx_outbuf(const char* line, FILE* file) {
  // An empty line is one whose only character, a blank, got lost on the way;
  // likewise characters missing at the end of a line are blanks, that is zeros.
  if (*line == '\0') return 0;
  const int count = Decode(*line++);
  for (int left = count; left > 0; left -= 3) {
    int c[4];
    for (int& bits : c) bits = *line != '\0' ? Decode(*line++) : 0;
    putc_unlocked((c[0] << 2 | c[1] >> 4) & 0xff, file);
    if (left > 1) putc_unlocked((c[1] << 4 | c[2] >> 2) & 0xff, file);
    if (left > 2) putc_unlocked((c[2] << 6 | c[3]) & 0xff, file);
  }
  return count;
}

void kx_open_with(kx_opener opener) {
  g_opener = opener != nullptr ? opener : OpenByPath;
}

int kx_encode(kx_writer writer, void* context, const char* path) {
  const UniqueFd fd(g_opener(path));
  if (!fd.valid()) {
    kx_errno = kx_err_system;
    return -1;
  }
  const char* base = Kut_basename(path);
  if (!Put(writer, context, 2, base, kx_write_file_begin) ||
      !PutContents(writer, context, fd.get()) ||
      !Put(writer, context, 4, base, kx_write_file_end)) {
    return -1;
  }
  kx_errno = kx_err_none;
  return 0;
}

const char* kx_decode(kx_reader reader, void* context, const char* directory) {
  static char path[256];  // what a file field holds
  char name[KX_PAIR_SIZE];
  char value[KX_PAIR_SIZE];
  if (!Next(reader, context, name, value, 2) ||
      !OutputPath(directory, value, path, sizeof path)) {
    return nullptr;
  }
  // Put in place when it is whole: half a file must not pass for one, and what
  // lies under that name (others may write to the folder) may be a link or a
  // fifo that would hold the writer.
  FileReplacer file;
  if (file.Open(path, 0666) != 0 || file.stream() == nullptr) {
    kx_errno = kx_err_system;
    return nullptr;
  }
  if (!DecodeLines(reader, context, file.stream())) return nullptr;
  if (file.Commit() != 0) {
    kx_errno = kx_err_system;
    return nullptr;
  }
  kx_errno = kx_err_none;
  return path;
}
