#include <cstring>
#include <iterator>

#include "phonebook/pbpriv.h"
#include "util/kutenv.h"

namespace {

// A command, read from its object. The texts are the object's.
struct Request {
  int pbcmd;
  int pbtype;
  int pbmode;
  int pbsort;
  int rcmd;
  int pbmax;
  int pboffset;
  const char* pbkey;
  const char* pbbeg;
  const char* pbend;
  const char* galias;
  kx_object* objptr;
};

using Operation = int (*)(const Request& r, kx::Object* result);

enum Flag : unsigned {
  kOpens = 1,   // runs on an open book
  kCounts = 2,  // its result goes to "pbmax"
};

// One sub-command. With a result type, the operation gets a new object of that
// type; other results are the operation's own.
struct Row {
  int pbcmd;
  unsigned flags;
  const char* result_type;
  Operation run;
};

constexpr Row kRows[] = {
    {kx_pbc_create, 0, nullptr,
     [](const Request& r, kx::Object*) { return pb_create(r.pbtype); }},
    {kx_pbc_delete, 0, nullptr,
     [](const Request& r, kx::Object*) { return pb_delete(r.pbtype); }},
    // The open is the operation.
    {kx_pbc_open, kOpens, nullptr,
     [](const Request&, kx::Object*) { return 0; }},
    {kx_pbc_close, 0, nullptr, [](const Request&, kx::Object*) { return 0; }},
    {kx_pbc_cntper, kOpens | kCounts, nullptr,
     [](const Request& r, kx::Object*) {
       return pb_count_persons(r.pbtype, r.pbsort, r.pbkey, r.pbbeg, r.pbend);
     }},
    {kx_pbc_cntgrp, kOpens | kCounts, nullptr,
     [](const Request& r, kx::Object*) {
       return pb_count_groups(r.pbtype, r.pbkey);
     }},
    {kx_pbc_peradd, kOpens, nullptr,
     [](const Request& r, kx::Object*) {
       return pb_per_add(r.pbtype, r.objptr);
     }},
    {kx_pbc_perupd, kOpens, nullptr,
     [](const Request& r, kx::Object*) {
       return pb_per_upd(r.pbtype, r.objptr);
     }},
    {kx_pbc_perdel, kOpens, nullptr,
     [](const Request& r, kx::Object*) {
       return pb_per_del(r.pbtype, r.pbkey);
     }},
    {kx_pbc_perget, kOpens, "obj-person",
     [](const Request& r, kx::Object* result) {
       return pb_per_get(r.pbtype, r.pbsort, result->get(), r.rcmd, r.pbkey);
     }},
    {kx_pbc_perpos, kOpens, nullptr,
     [](const Request& r, kx::Object*) {
       return pb_per_pos(r.pbtype, r.pbsort, r.rcmd, r.pbmax, r.galias);
     }},
    {kx_pbc_grpadd, kOpens, nullptr,
     [](const Request& r, kx::Object*) {
       return pb_grp_add(r.pbtype, r.objptr);
     }},
    {kx_pbc_grpupd, kOpens, nullptr,
     [](const Request& r, kx::Object*) {
       return pb_grp_upd(r.pbtype, r.objptr);
     }},
    {kx_pbc_grpdel, kOpens, nullptr,
     [](const Request& r, kx::Object*) {
       return pb_grp_del(r.pbtype, r.pbkey);
     }},
    {kx_pbc_grpget, kOpens, "obj-group",
     [](const Request& r, kx::Object* result) {
       return pb_grp_get(r.pbtype, result->get(), r.rcmd, r.pbkey);
     }},
    {kx_pbc_memadd, kOpens, nullptr,
     [](const Request& r, kx::Object*) {
       return pb_mem_add(r.pbtype, r.objptr);
     }},
    {kx_pbc_memdel, kOpens, nullptr,
     [](const Request& r, kx::Object*) {
       return pb_mem_del(r.pbtype, r.objptr);
     }},
    {kx_pbc_memget, kOpens, "obj-member",
     [](const Request& r, kx::Object* result) {
       return pb_mem_get(r.pbtype, result->get(), r.rcmd);
     }},
    {kx_pbc_memgbg, kOpens, "obj-person",
     [](const Request& r, kx::Object* result) {
       return pb_mem_get_by_grp(r.pbtype, result->get(), r.rcmd, r.pbkey);
     }},
    {kx_pbc_memgbp, kOpens, "obj-group",
     [](const Request& r, kx::Object* result) {
       return pb_mem_get_by_per(r.pbtype, result->get(), r.rcmd, r.pbkey);
     }},
    {kx_pbc_lstper, kOpens, nullptr,
     [](const Request& r, kx::Object* result) {
       result->reset(pb_list_per_get(r.pbtype, r.pbsort, r.rcmd, r.pbkey,
                                     r.pbmax, r.galias));
       return 0;
     }},
    {kx_pbc_lstgrp, kOpens, nullptr,
     [](const Request& r, kx::Object* result) {
       result->reset(pb_list_grp_get(r.pbtype, r.rcmd, r.pbkey, r.pbmax));
       return 0;
     }},
    {kx_pbc_lstmbg, kOpens, nullptr,
     [](const Request& r, kx::Object* result) {
       result->reset(
           pb_list_mem_get_by_grp(r.pbtype, r.rcmd, r.pbkey, r.pbmax));
       return 0;
     }},
    {kx_pbc_lstmbp, kOpens, nullptr,
     [](const Request& r, kx::Object* result) {
       result->reset(
           pb_list_mem_get_by_per(r.pbtype, r.rcmd, r.pbkey, r.pbmax));
       return 0;
     }},
    {kx_pbc_lstprl, kOpens, nullptr,
     [](const Request& r, kx::Object* result) {
       result->reset(pb_list_per_pos_get(r.pbtype, r.pbsort, r.pbbeg, r.pbend,
                                         r.galias, r.pboffset, r.pbmax));
       return 0;
     }},
};

// What an unknown sub-command does: it is found out on the open book.
constexpr Row kUnknown = {0, kOpens, nullptr, [](const Request&, kx::Object*) {
                            return pb_fail(kx_err_pb_data);
                          }};

const Row& FindRow(int pbcmd) {
  for (const Row& row : kRows) {
    if (row.pbcmd == pbcmd) return row;
  }
  return kUnknown;
}

int NumberOrZero(kx_object* pbcom, const char* field) {
  const char* text = kx::Text(pbcom, field);
  return text != nullptr ? Kfx_Str_To_Word(text) : 0;
}

Request ReadRequest(kx_object* pbcom) {
  return {
      .pbcmd = kx::Enum(pbcom, "pbcmd"),
      .pbtype = kx::Enum(pbcom, "pbtype"),
      .pbmode = kx::Enum(pbcom, "pbmode"),
      .pbsort = kx::Enum(pbcom, "pbsort"),
      .rcmd = kx::Enum(pbcom, "rcmd"),
      .pbmax = NumberOrZero(pbcom, "pbmax"),
      .pboffset = NumberOrZero(pbcom, "pboffset"),
      .pbkey = kx::Text(pbcom, "pbkey"),
      .pbbeg = kx::Text(pbcom, "pbbeg"),
      .pbend = kx::Text(pbcom, "pbend"),
      .galias = kx::Text(pbcom, "galias"),
      .objptr = kx::Child(pbcom, "objptr"),
  };
}

// Closes a book at the end of a command, whatever became of it; the command's
// error number stands.
class BookCloser {
 public:
  explicit BookCloser(int kind) : kind_(kind) {}
  BookCloser(const BookCloser&) = delete;
  BookCloser& operator=(const BookCloser&) = delete;
  ~BookCloser() {
    const int error = pb_errno;
    pb_close(kind_);
    pb_errno = error;
  }

 private:
  const int kind_;
};

// Runs the operation and, when it succeeds, puts state and result into the
// object.
void Run(const Row& row, const Request& request, kx_object* pbcom) {
  kx::Object result;
  if (row.result_type != nullptr) {
    result = kx::Build(row.result_type);
    if (result == nullptr) {
      pb_errno = kx_errno;
      return;
    }
  }
  const int count = row.run(request, &result);
  if (pb_errno != 0) return;
  px_pb_to_pbcom(request.pbtype, pbcom);
  pb_errno = kx_err_none;
  kx::SetChild(pbcom, "objptr", std::move(result));
  if ((row.flags & kCounts) != 0) {
    Kfx_Set(pbcom, "pbmax", Kfx_Word_To_Str(count));
  }
}

}  // namespace

int do_pbcmd(const char* clientid, kx_object* pbcom) {
  const Request request = ReadRequest(pbcom);
  const Row& row = FindRow(request.pbcmd);
  pb_setup(clientid, Kut_get_kfaxdir(), nullptr);
  if ((row.flags & kOpens) == 0) {
    Run(row, request, pbcom);
  } else if (pb_open(request.pbtype, request.pbmode) == 0) {
    const BookCloser closer(request.pbtype);
    px_pb_fr_pbcom(pbcom);
    pb_errno = kx_err_none;
    Run(row, request, pbcom);
  }
  return pb_errno == 0 ? 0 : -1;
}
