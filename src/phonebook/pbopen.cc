#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cm/cmpaths.h"
#include "phonebook/pbpriv.h"
#include "util/kutfile.h"

constexpr const char* pb_per_name = "pbper";
constexpr const char* pb_grp_name = "pbgrp";
constexpr const char* pb_mem_name = "pbmem";

constinit pb_book pb_lcl = {.kind = kx_pbt_lcl};
constinit pb_book pb_usr = {.kind = kx_pbt_usr};
constinit pb_book pb_sys = {.kind = kx_pbt_sys};

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
    {.name = pb_per_name,
     .path = &pb_book::per_path,
     .handle = &pb_book::per,
     .fields = pb_per_fields,
     .pseudo = pb_per_fields_pseudo,
     .keys = pb_per_index,
     .absent = kx_err_no_book},
    {.name = pb_grp_name,
     .path = &pb_book::grp_path,
     .handle = &pb_book::grp,
     .fields = pb_grp_fields,
     .pseudo = nullptr,
     .keys = pb_grp_index,
     .absent = kx_err_database},
    {.name = pb_mem_name,
     .path = &pb_book::mem_path,
     .handle = &pb_book::mem,
     .fields = pb_mem_fields,
     .pseudo = nullptr,
     .keys = pb_mem_index,
     .absent = kx_err_database},
};

void SetPaths(pb_book* book, const char* directory) {
  for (const Table& table : kTables) {
    strcpy(book->*table.path, cm_join_path(directory, table.name).text);
  }
  // What an earlier command set must not show in the answer to the next.
  if (book->open != 0) return;
  book->mode = 0;
  book->sort = -1;
}

// The folders of the open books, by kind.
static_assert(kx_pbt_usr == kx_pbt_lcl + 1 && kx_pbt_sys == kx_pbt_lcl + 2);
constinit pb_folder g_folders[3];

pb_folder* FolderOf(const pb_book& book) {
  return &g_folders[book.kind - kx_pbt_lcl];
}

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

int CreateTable(const pb_book& book, const pb_folder& folder,
                const Table& table) {
  if (db_create(table.name, table.fields, table.keys) != 0) {
    return db_errno() == kDbExists ? 0 : pb_fail(kx_err_database);
  }
  for (const char* extension : {"dat", "idx"}) {
    char name[16];
    snprintf(name, sizeof name, "%s.%s", table.name, extension);
    pb_folder_give(book, folder, name);
  }
  return 0;
}

// The book of a kind that is open, for writing if that is the mode.
pb_book* FindOpen(int kind, int mode) {
  pb_book* book = pb_get_pb(kind);
  if (book == nullptr) return nullptr;
  if (book->open == 0) {
    pb_fail(kx_err_not_open);
    return nullptr;
  }
  if (mode == kx_pbm_write && book->mode != kx_pbm_write) {
    pb_fail(kx_err_read_only);
    return nullptr;
  }
  return book;
}

}  // namespace

int pb_setup(const char* user, const char* base, const char* local) {
  if (local != nullptr) SetPaths(&pb_lcl, local);
  if (base != nullptr) {
    SetPaths(&pb_usr, cm_get_opts_dir(base, user));
    SetPaths(&pb_sys, base);
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
  pb_folder* folder = FolderOf(*book);
  if (pb_folder_open(*book, folder) != 0 &&
      (errno == ENOENT || errno == ENOTDIR)) {
    return pb_fail(kx_err_no_book);
  }
  const pb_visit visit(folder);
  for (const Table& table : kTables) {
    if (OpenTable(book, table) == 0) continue;
    CloseTables(book);
    *folder = {};
    return -1;
  }
  book->open = 1;
  return 0;
}

int pb_close(int kind) {
  pb_book* book = pb_get_pb(kind);
  if (book == nullptr) return -1;
  const pb_visit visit(FolderOf(*book));
  CloseTables(book);
  *FolderOf(*book) = {};
  return 0;
}

int pb_create(int kind) {
  const pb_book* book = pb_get_pb(kind);
  if (book == nullptr) return -1;
  if (book->open != 0) return 0;
  pb_folder folder;
  if (pb_folder_make(*book, &folder) != 0) return pb_fail(kx_err_pb_system);
  const pb_visit visit(&folder);
  for (const Table& table : kTables) {
    if (CreateTable(*book, folder, table) != 0) return -1;
  }
  return 0;
}

int pb_delete(int kind) {
  const pb_book* book = pb_get_pb(kind);
  if (book == nullptr) return -1;
  if (book->open != 0) return pb_fail(kx_err_database);
  pb_folder folder;
  static_cast<void>(pb_folder_open(*book, &folder));
  const pb_visit visit(&folder);
  // All of them, since a group left behind would be in the next book.
  int result = 0;
  for (const Table& table : kTables) {
    if (db_delete(table.name) != 0) result = pb_fail(kx_err_database);
  }
  return result;
}

pb_use::pb_use(int kind, int mode)
    : book_(FindOpen(kind, mode)),
      visit_(book_ != nullptr ? FolderOf(*book_) : &none_) {
  if (book_ != nullptr && !visit_.held()) pb_fail(kx_err_pb_system);
}
