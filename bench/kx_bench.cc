// The object library: the text form to and from memory, through the same line
// functions as object files, beside the same lines through stdio alone; and
// fields by name.
#include <stdio.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "kx/kxtext.h"
#include "measure.h"

namespace {

constexpr int kPersons = 10'000;

// An object with every text and number of its type set.
kx::Object Full(const char* type) {
  kx::Object obj = kx::Build(type);
  for (const kx_fielddef* f = kx_obj_info(obj.get())->fields;
       f->name != nullptr; ++f) {
    const std::string text(static_cast<std::size_t>(f->length) * 2 / 3, 'x');
    const char* value = f->type == kx_typ_enum   ? "req-regular"
                        : f->type == kx_typ_bool ? "true"
                        : f->type == kx_typ_time ? "20240229120000"
                        : f->length != 0         ? text.c_str()
                                                 : "1234567";
    if (f->type < kx_typ_data) Kfx_Set(obj.get(), f->name, value);
  }
  return obj;
}

kx::Object Response() {
  kx::Object response = Full("obj-cmdrsp");
  kx::SetChild(response.get(), "objptr", Full("obj-status"));
  return response;
}

kx::Object Persons() {
  kx::ListBuilder list;
  for (int i = 0; i < kPersons; ++i) list.Append(Full("obj-person"));
  return list.Take();
}

// The text form of an object, as it stands in a file.
std::string TextOf(kx_object* obj) {
  char* bytes = nullptr;
  std::size_t size = 0;
  FILE* file = open_memstream(&bytes, &size);
  Kfx_Decomp_Obj(obj, kx_write_pair_fp, file, 0);
  fclose(file);
  const std::string text(bytes, size);
  std::free(bytes);
  return text;
}

// Adds the counters "MB_s" and "bare_MB_s".
void CountBytes(benchmark::State& state, const std::string& text) {
  const double bytes = static_cast<double>(text.size());
  state.counters["MB_s"] = bytes / state.counters["us"];
  state.counters["bare_MB_s"] = bytes / state.counters["bare_us"];
}

void Decompose(benchmark::State& state, kx::Object (*make)()) {
  const kx::Object obj = make();
  const std::string text = TextOf(obj.get());
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line + "\n");
  }
  FILE* file = fopen("/dev/null", "w");
  Compare(
      state,
      [&] {
        Must(Kfx_Decomp_Obj(obj.get(), kx_write_pair_fp, file, 0) == 0,
             "Kfx_Decomp_Obj");
      },
      [&] {
        for (const std::string& line : lines) fputs(line.c_str(), file);
      });
  CountBytes(state, text);
  fclose(file);
}

void Compose(benchmark::State& state, kx::Object (*make)()) {
  const kx::Object obj = make();
  std::string text = TextOf(obj.get());
  FILE* file = fmemopen(text.data(), text.size(), "r");
  Compare(
      state,
      [&] {
        rewind(file);
        const kx::Object back(Kfx_Comp_Obj(Kfx_Object_Type(obj.get()),
                                           kx_read_pair_fp, file, nullptr));
        Must(back != nullptr, "Kfx_Comp_Obj");
      },
      [&] {
        rewind(file);
        char line[KX_PAIR_SIZE];
        while (fgets(line, sizeof line, file) != nullptr) {
        }
      });
  CountBytes(state, text);
  fclose(file);
}

BENCHMARK_CAPTURE(Decompose, status_response, Response);
BENCHMARK_CAPTURE(Decompose, persons, Persons)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Compose, status_response, Response);
BENCHMARK_CAPTURE(Compose, persons, Persons)->Unit(benchmark::kMillisecond);

// The first, a middle and the last field of a long table.
void Get(benchmark::State& state, const char* field) {
  const kx::Object obj = Full("obj-status");
  for (auto _ : state) benchmark::DoNotOptimize(Kfx_Get(obj.get(), field));
}
BENCHMARK_CAPTURE(Get, clientid, "clientid");
BENCHMARK_CAPTURE(Get, toname, "toname");
BENCHMARK_CAPTURE(Get, etime, "etime");

void Set(benchmark::State& state, const char* field, const char* value) {
  const kx::Object obj = Full("obj-status");
  for (auto _ : state) Kfx_Set(obj.get(), field, value);
}
BENCHMARK_CAPTURE(Set, clientid, "clientid", "jsmith");
BENCHMARK_CAPTURE(Set, toname, "toname", "Joan Smith");
BENCHMARK_CAPTURE(Set, active, "active", "act-ready");
BENCHMARK_CAPTURE(Set, etime, "etime", "20240229120000");

void Copy(benchmark::State& state) {
  const kx::Object obj = Response();
  for (auto _ : state) const kx::Object copy(Kfx_Copy_Obj(obj.get()));
}
BENCHMARK(Copy);

}  // namespace
