#include "faxserver/fsres.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "cm/cmfiltp.h"
#include "cm/cmpaths.h"
#include "cm/cmprior.h"
#include "cm/cmreso.h"
#include "cm/cmresult.h"
#include "faxserver/fsbase.h"
#include "faxserver/fsfile.h"
#include "faxserver/fslog.h"
#include "faxserver/fsnames.h"
#include "faxserver/fsqueue.h"
#include "util/kutdir.h"
#include "util/kutfile.h"

namespace {

constexpr size_t kLineSize = 4096;

struct Choice {
  std::string name;
  std::string desc;
};
using Choices = std::vector<Choice>;

enum class Which { kRegular, kExecutable };

// The lines of a list file. False when it cannot be read; errno ENOENT: there
// is none.
bool ReadListFile(const char* path, Choices* choices) {
  const fx_stream stream = fx_open_stream(path);
  if (stream == nullptr) return false;
  char line[kLineSize];
  while (fx_read_line(stream.get(), line, sizeof line)) {
    if (*line == '\0' || *line == '#') continue;
    const size_t length = strcspn(line, " \t");
    const char* desc = line + length;
    choices->push_back({std::string(line, length), desc + strspn(desc, " \t")});
  }
  if (ferror(stream.get()) == 0) return true;
  errno = EIO;
  return false;
}

// The visible files of a directory, sorted by name. A missing one has none.
// False with errno.
bool ReadFileNames(const char* path, Which which, Choices* choices) {
  const FileIdentity reader(fx_reader());
  DirReader dir;
  if (!reader.held() || dir.Open(path) != 0) return errno == ENOENT;
  std::vector<std::string> names;
  if (!fx_visible_names(&dir, &names)) return false;
  for (const std::string& name : names) {
    struct stat st;
    if (fstatat(dir.fd(), name.c_str(), &st, 0) != 0) continue;
    if (!S_ISREG(st.st_mode)) continue;
    if (which == Which::kExecutable && (st.st_mode & 0111) == 0) continue;
    choices->push_back({name, ""});
  }
  return true;
}

kx_object* MakeList(const Choices& choices) {
  kx::ListBuilder list;
  for (const Choice& choice : choices) {
    kx::Object resource = fx_build("obj-resource");
    if (kx::SetText(resource.get(), "rname", choice.name.c_str()) != 0) {
      fx_logf("Resource name %s is too long", choice.name.c_str());
      continue;
    }
    kx::SetText(resource.get(), "rdesc", choice.desc.c_str());
    fx_append(&list, std::move(resource));
  }
  return fx_give(list.Take());
}

kx_object* ListOfFileNames(const char* path) {
  Choices choices;
  if (!ReadFileNames(path, Which::kRegular, &choices)) {
    return fx_null(kx_err_system);
  }
  return MakeList(choices);
}

kx_object* ListOfLines(const char* path) {
  Choices choices;
  if (!ReadListFile(path, &choices) && errno != ENOENT) {
    return fx_null(kx_err_system);
  }
  return MakeList(choices);
}

const Choice* FindChoice(const Choices& choices, const std::string& name) {
  const auto at =
      std::find_if(choices.begin(), choices.end(),
                   [&](const Choice& choice) { return choice.name == name; });
  return at != choices.end() ? &*at : nullptr;
}

struct ListBuilderRow {
  int listtype;
  kx_object* (*build)(const char* root);
};

constexpr ListBuilderRow kBuilders[] = {
    {kx_lst_covers, fx_res_cvr_list},
    {kx_lst_allcovers, fx_res_allcvr_list},
    {kx_lst_filetypes, fx_res_filtyp_list},
    {kx_lst_pglengths, fx_res_pglen_list},
    {kx_lst_priorities, [](const char*) { return cm_prior_list(); }},
    {kx_lst_queues, fx_queue_list},
    {kx_lst_resolutions, [](const char*) { return cm_reso_list(); }},
    {kx_lst_results, [](const char*) { return cm_result_list(); }},
    {kx_lst_groups, fx_res_grp_list},
    {kx_lst_prtdests, fx_res_prt_list},
    {kx_lst_retrys, fx_res_retry_list},
    {kx_lst_tnps, fx_res_tnp_list},
};

}  // namespace

kx_object* fx_get_res_list(const char* root, int listtype) {
  for (const ListBuilderRow& row : kBuilders) {
    if (row.listtype == listtype) return row.build(root);
  }
  return fx_null(kx_err_data);
}

kx_object* fx_res_cvr_list(const char* root) {
  return fx_guarded([&]() -> kx_object* {
    Choices choices;
    if (ReadListFile(cm_get_cvrlist_file(root), &choices)) {
      return MakeList(choices);
    }
    if (errno != ENOENT) return fx_null(kx_err_system);
    return fx_res_allcvr_list(root);
  });
}

kx_object* fx_res_allcvr_list(const char* root) {
  return fx_guarded([&]() -> kx_object* {
    Choices files;
    if (!ReadFileNames(cm_get_covers_dir(root), Which::kExecutable, &files)) {
      return fx_null(kx_err_system);
    }
    Choices described;
    if (!ReadListFile(cm_get_cvrlist_file(root), &described) &&
        Kut_is_shortage(errno)) {
      return fx_null(kx_err_system);
    }
    Choices covers;
    for (Choice& file : files) {
      Kut_rmv_file_ext(file.name.data());
      file.name.resize(strlen(file.name.c_str()));
      // Two files of one name are one cover page.
      if (FindChoice(covers, file.name) != nullptr) continue;
      const Choice* known = FindChoice(described, file.name);
      covers.push_back({file.name, known != nullptr ? known->desc : ""});
    }
    // Without their extensions the names may sort differently.
    std::sort(covers.begin(), covers.end(),
              [](const Choice& a, const Choice& b) { return a.name < b.name; });
    return MakeList(covers);
  });
}

kx_object* fx_res_filtyp_list(const char* root) {
  return fx_guarded([&]() -> kx_object* {
    Choices types;
    for (const cm_filetype_row& row : cm_filetypes()) {
      types.push_back({row.name, row.desc});
    }
    Choices formatters;
    if (!ReadFileNames(cm_get_format_dir(root), Which::kRegular, &formatters)) {
      return fx_null(kx_err_system);
    }
    for (Choice& formatter : formatters) {
      if (FindChoice(types, formatter.name) == nullptr) {
        types.push_back(std::move(formatter));
      }
    }
    return MakeList(types);
  });
}

kx_object* fx_res_pglen_list(const char*) {
  return fx_guarded([&]() -> kx_object* {
    return MakeList({{"letter", "11 inches"},
                     {"legal", "14 inches"},
                     {"a4", "297 mm"},
                     {"a3", "420 mm"},
                     {"a5", "210 mm"}});
  });
}

kx_object* fx_res_grp_list(const char* root) {
  return fx_guarded(
      [&]() -> kx_object* { return ListOfFileNames(cm_get_groups_dir(root)); });
}

kx_object* fx_res_prt_list(const char* root) {
  return fx_guarded(
      [&]() -> kx_object* { return ListOfLines(cm_get_prtlist_file(root)); });
}

kx_object* fx_res_retry_list(const char* root) {
  return fx_guarded(
      [&]() -> kx_object* { return ListOfLines(cm_get_retry_file(root)); });
}

kx_object* fx_res_tnp_list(const char* root) {
  return fx_guarded(
      [&]() -> kx_object* { return ListOfFileNames(cm_get_tnp_dir(root)); });
}

kx_object* fx_add_in_order(kx_object* list, kx_object* resource) {
  const std::string name = kx::TextOrEmpty(resource, "rname");
  kx_object* node = Kfx_Bnew(resource);
  if (node == nullptr) {
    Kfx_Free_Obj(resource);
    return list;
  }
  kx_object* before = nullptr;
  for (kx_object* at = list; at != nullptr; at = Kfx_Bnext(at)) {
    kx_object* there = static_cast<kx_object*>(Kfx_Bdata(at));
    if (name < kx::TextOrEmpty(there, "rname")) break;
    before = at;
  }
  if (before == nullptr) return Kfx_Bappend(node, list);
  Kfx_Binsert(before, node);
  return list;
}
