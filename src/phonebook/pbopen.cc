#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "phonebook/pbpriv.h"
#include "util/kutdir.h"
#include "util/kutfile.h"
#include "util/kutio.h"
#include "util/kutuser.h"

constexpr const char* pb_per_name = "pbper";
constexpr const char* pb_grp_name = "pbgrp";
constexpr const char* pb_mem_name = "pbmem";

#define PB_CLOSED_BOOK(kind) \
  { kind, 0, -1, 0, "", "", "", nullptr, nullptr, nullptr }
constinit pb_book pb_lcl = PB_CLOSED_BOOK(kx_pbt_lcl);
constinit pb_book pb_usr = PB_CLOSED_BOOK(kx_pbt_usr);
constinit pb_book pb_sys = PB_CLOSED_BOOK(kx_pbt_sys);
#undef PB_CLOSED_BOOK

namespace {

// The three tables of a book.
struct Table {
  const char* name;
  char (pb_book::*path)[256];
  db_handle* pb_book::*handle;
  const db_field* fields;
  const db_field* pseudo;
  const db_key* keys;
  int absent;  // error number at open when its files are not there
};
constexpr Table kTables[] = {
    {pb_per_name, &pb_book::per_path, &pb_book::per, pb_per_fields,
     pb_per_fields_pseudo, pb_per_index, kx_err_no_book},
    {pb_grp_name, &pb_book::grp_path, &pb_book::grp, pb_grp_fields, nullptr,
     pb_grp_index, kx_err_database},
    {pb_mem_name, &pb_book::mem_path, &pb_book::mem, pb_mem_fields, nullptr,
     pb_mem_index, kx_err_database},
};

// Whose the user's book is.
char g_user[kCmPathSize];

void SetPaths(pb_book* book, const char* directory) {
  for (const Table& table : kTables) {
    strcpy(book->*table.path, cm_join_path(directory, table.name).text);
  }
  // What an earlier command set must not show in the answer to the next.
  if (book->open != 0) return;
  book->mode = 0;
  book->sort = -1;
}

// A book's directory, where its tables are reached by their names alone while
// this lives. A user can exchange what lies in the queue directory at any
// moment: "options" must be no link to another's, and stay what it was.
class Folder {
 public:
  explicit Folder(const pb_book& book)
      : fd_(Kut_open(Kut_dirname(book.per_path),
                     O_PATH | O_DIRECTORY |
                         (book.kind == kx_pbt_usr ? O_NOFOLLOW : 0))) {
    db_set_folder(fd_.get());
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() { db_set_folder(AT_FDCWD); }
  // -1 with errno when there is none: then no table can be reached.
  int fd() const { return fd_.get(); }

 private:
  const UniqueFd fd_;
};

void CloseTables(pb_book* book) {
  for (const Table& table : kTables) {
    if (book->*table.handle != nullptr) db_close(book->*table.handle);
    book->*table.handle = nullptr;
  }
  book->open = 0;
}

int OpenTable(pb_book* book, const Table& table) {
  db_handle* db = db_open(table.name, book->mode, table.pseudo);
  if (db == nullptr) {
    return pb_fail(db_errno() == kDbAbsent ? table.absent : kx_err_database);
  }
  book->*table.handle = db;
  // A user can put any file in place of the book's own.
  if (db_same_layout(db, table.fields, table.keys) == 0) return 0;
  return pb_fail(kx_err_database);
}

// Who shall own a book's new files; -1 where that is unknown.
struct Owner {
  int uid;
  int gid;
};

Owner OwnerOf(const pb_book& book) {
  const int uid =
      book.kind == kx_pbt_sys ? cm_get_krt_uid() : Kut_uname_to_uid(g_user);
  return {uid, cm_get_krt_gid()};
}

// Gives away a file or directory that this process has just made. Without the
// right to do so it stays with the process's user, who can use it as well. It
// may lie where the new owner can exchange it: nothing is given away that has
// another name, or that this user did not make.
void GiveAway(int dirfd, const char* path, const Owner& owner) {
  const UniqueFd fd(
      Kut_open_at(dirfd, path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
  struct stat st;
  if (!fd.valid() || fstat(fd.get(), &st) != 0 || st.st_uid != geteuid()) {
    return;
  }
  const bool is_only_name = S_ISREG(st.st_mode) && st.st_nlink == 1;
  if (!is_only_name && !S_ISDIR(st.st_mode)) return;
  static_cast<void>(!fchown(fd.get(), static_cast<uid_t>(owner.uid),
                            static_cast<gid_t>(owner.gid)));
}

int MakeDirectory(const pb_book& book, const Owner& owner) {
  const char* directory = Kut_dirname(book.per_path);
  if (Kut_is_directory(directory)) return 0;
  if (Kut_make_dir_path(directory) != 0) return pb_fail(kx_err_pb_system);
  GiveAway(AT_FDCWD, directory, owner);
  return 0;
}

int CreateTable(const Folder& folder, const Table& table, const Owner& owner) {
  if (db_create(table.name, table.fields, table.keys) != 0) {
    return db_errno() == kDbExists ? 0 : pb_fail(kx_err_database);
  }
  for (const char* extension : {"dat", "idx"}) {
    char name[16];
    snprintf(name, sizeof name, "%s.%s", table.name, extension);
    GiveAway(folder.fd(), name, owner);
  }
  return 0;
}

}  // namespace

int pb_setup(const char* user, const char* base, const char* local) {
  if (local != nullptr) SetPaths(&pb_lcl, local);
  if (base != nullptr) {
    SetPaths(&pb_usr, cm_get_opts_dir(base, user));
    SetPaths(&pb_sys, base);
    snprintf(g_user, sizeof g_user, "%s", user != nullptr ? user : "");
  }
  return pb_succeed();
}

pb_book* pb_get_pb(int kind) {
  pb_book* found = kind == kx_pbt_lcl   ? &pb_lcl
                   : kind == kx_pbt_usr ? &pb_usr
                   : kind == kx_pbt_sys ? &pb_sys
                                        : nullptr;
  pb_errno = kx_err_none;
  if (found == nullptr || found->per_path[0] == '\0' ||
      found->grp_path[0] == '\0' || found->mem_path[0] == '\0') {
    pb_fail(kx_err_pb_data);
    return nullptr;
  }
  return found;
}

int pb_init(pb_book* book, int mode) {
  if (mode != kx_pbm_read && mode != kx_pbm_write) {
    return pb_fail(kx_err_pb_data);
  }
  book->mode = mode;
  book->sort = -1;
  book->open = 0;
  book->per = book->grp = book->mem = nullptr;
  return pb_succeed();
}

int pb_open(int kind, int mode) {
  pb_book* book = pb_get_pb(kind);
  if (book == nullptr) return -1;
  if (book->open != 0) return 0;
  if (pb_init(book, mode) != 0) return -1;
  const Folder folder(*book);
  if (folder.fd() == -1 && (errno == ENOENT || errno == ENOTDIR)) {
    return pb_fail(kx_err_no_book);
  }
  for (const Table& table : kTables) {
    if (OpenTable(book, table) == 0) continue;
    CloseTables(book);
    return -1;
  }
  book->open = 1;
  return 0;
}

int pb_close(int kind) {
  pb_book* book = pb_get_pb(kind);
  if (book == nullptr) return -1;
  CloseTables(book);
  return 0;
}

int pb_create(int kind) {
  const pb_book* book = pb_get_pb(kind);
  if (book == nullptr) return -1;
  if (book->open != 0) return 0;
  const Owner owner = OwnerOf(*book);
  if (MakeDirectory(*book, owner) != 0) return -1;
  const Folder folder(*book);
  if (folder.fd() == -1) return pb_fail(kx_err_pb_system);
  for (const Table& table : kTables) {
    if (CreateTable(folder, table, owner) != 0) return -1;
  }
  return 0;
}

int pb_delete(int kind) {
  const pb_book* book = pb_get_pb(kind);
  if (book == nullptr) return -1;
  if (book->open != 0) return pb_fail(kx_err_database);
  const Folder folder(*book);
  // All of them, since a group left behind would be in the next book.
  int result = 0;
  for (const Table& table : kTables) {
    if (db_delete(table.name) != 0) result = pb_fail(kx_err_database);
  }
  return result;
}

pb_book* pb_open_book(int kind) {
  pb_book* book = pb_get_pb(kind);
  if (book == nullptr || book->open != 0) return book;
  pb_fail(kx_err_not_open);
  return nullptr;
}

pb_book* pb_writable_book(int kind) {
  pb_book* book = pb_open_book(kind);
  if (book == nullptr || book->mode == kx_pbm_write) return book;
  pb_fail(kx_err_read_only);
  return nullptr;
}
