// Objects made for a test, and what a test wants to see of one.
#ifndef SUPPORT_OBJECTS_H_
#define SUPPORT_OBJECTS_H_

#include <gtest/gtest.h>

#include <cstdio>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "kx/kxtext.h"
#include "kx/object.h"

// ---- Text form ----

// An object in text form, from its fields.
inline std::string Object(const std::string& type, const std::string& fields) {
  return "objbeg=" + type + "\n" + fields + "objend=" + type + "\n";
}

// A field with an object in it, in text form.
inline std::string Field(const std::string& name, const std::string& type,
                         const std::string& fields = "") {
  return name + "=" + type + "\n" + Object(type, fields);
}
inline std::string Argument(const std::string& type,
                            const std::string& fields = "") {
  return Field("objptr", type, fields);
}

// A field with a list of objects of one type, given by their fields; nothing
// for an empty list.
inline std::string ListField(const std::string& name, const std::string& type,
                             const std::vector<std::string>& elements) {
  std::string list;
  for (const std::string& fields : elements) list += Argument(type, fields);
  return elements.empty() ? "" : Field(name, "obj-list", list);
}

// The same of elements with one text field each.
inline std::string TextsField(const std::string& name, const std::string& type,
                              const std::string& field,
                              std::vector<std::string> texts) {
  for (std::string& text : texts) text = field + "=" + text + "\n";
  return ListField(name, type, texts);
}

// The arguments of common commands.
inline std::string FaxInfo(const std::string& name, const std::string& user) {
  return Argument("obj-faxinfo",
                  "filename=" + name + "\nclientid=" + user + "\n");
}
inline std::string Upload(const std::string& path, const std::string& name) {
  return Argument(
      "obj-reqsto",
      Field("finfoptr", "obj-faxinfo", "filename=" + name + "\n") +
          Field("filobjptr", "obj-file", "pathname=" + path + "\n"));
}
inline std::string Route(const std::string& from, const std::string& to,
                         const std::string& name) {
  return Argument("obj-route", "fromid=" + from + "\ntoid=" + to +
                                   "\nfilename=" + name + "\n");
}
inline std::string Named(const std::string& name) {
  return Argument("obj-resource", "rname=" + name + "\n");
}
inline std::string ListOf(const std::string& type,
                          const std::string& more = "") {
  return Argument("obj-reqlst", "listtype=" + type + "\n" + more);
}
inline std::string RequestId(const std::string& seqno) {
  return Argument("obj-reqid", "seqno=" + seqno + "\nreqtype=req-regular\n");
}

// ---- Objects ----

// The object of these fields.
inline kx::Object Parsed(const std::string& type, std::string fields = "") {
  fields += "objend=\n";
  FILE* in = fmemopen(fields.data(), fields.size(), "r");
  kx::Object obj(Kfx_Comp_Obj(type.c_str(), kx_read_pair_fp, in, nullptr));
  fclose(in);
  EXPECT_NE(obj, nullptr) << type << "\n" << fields;
  return obj;
}

// A list of objects with one text field each, whatever the texts hold.
inline kx::Object TextList(const char* type, const char* field,
                           const std::vector<std::string>& texts) {
  kx::ListBuilder list;
  for (const std::string& text : texts) {
    kx::Object element = kx::Build(type);
    kx::SetText(element.get(), field, text.c_str());
    list.Append(std::move(element));
  }
  return list.Take();
}

// An object's text form.
inline std::string ToText(kx_object* object) {
  std::string text;
  const kx_writer append = [](void* context, const char* name,
                              const char* value, int) {
    auto* all = static_cast<std::string*>(context);
    if (name != nullptr) *all += std::string(name) + "=" + value + "\n";
    return 0;
  };
  Kfx_Decomp_Obj(object, append, &text, 0);
  return text;
}

// Those of these lines that the object's text form has not.
inline std::string Missing(kx_object* object, const std::string& lines) {
  const std::string text = ToText(object);
  std::string missing;
  std::istringstream stream(lines);
  for (std::string line; std::getline(stream, line);) {
    if (text.find("\n" + line + "\n") == text.npos) missing += line + "\n";
  }
  return missing + (missing.empty() ? "" : "of " + text);
}

// These fields of a list's elements: "=" between fields, ";" after an element.
inline std::string Shown(kx_object* list,
                         std::initializer_list<const char*> fields) {
  std::string text;
  for (kx_object* element : kx::Elements(list)) {
    for (const char* const& field : fields) {
      if (&field != fields.begin()) text += "=";
      text += kx::TextOrEmpty(element, field);
    }
    text += ";";
  }
  return text;
}
// The same of a list that nobody else owns.
inline std::string Shown(const kx::Object& list,
                         std::initializer_list<const char*> fields) {
  return Shown(list.get(), fields);
}

// ---- Errors ----

// The error number that a call left; its result has to go with it.
inline int ErrorOf(int result) {
  EXPECT_EQ(result, kx_errno == 0 ? 0 : -1) << kx_errno;
  return kx_errno;
}
inline int ErrorOf(kx_object* result) {
  const kx::Object owned(result);
  EXPECT_TRUE(owned == nullptr || kx_errno == 0) << kx_errno;
  return kx_errno;
}

#endif  // SUPPORT_OBJECTS_H_
