// Typed C++ conveniences over the object library.
//
// - Text, Number and the others return what is stored in an object; they own
//   nothing. Object owns.
// - They set kx_errno as the functions that they stand for.
#ifndef KX_OBJECT_H_
#define KX_OBJECT_H_

#include <memory>
#include <utility>

#include "kx/kfx.h"

extern "C" {
// The process's error state behind Kfx_Errno, Kfx_Serverr and Kfx_Servmsg. The
// layers above set it too, since their numbers come from the same space.
extern int kx_errno;
extern int kx_serverr;
extern char kx_servmsg[256];
}

namespace kx {

// Frees an object and keeps kx_errno, which says why the scope is left.
struct Free {
  void operator()(kx_object* obj) const {
    const int error = kx_errno;
    Kfx_Free_Obj(obj);
    kx_errno = error;
  }
};

// An object or a whole list, freed with its owner.
using Object = std::unique_ptr<kx_object, Free>;

inline Object Build(const char* type) { return Object(Kfx_Build_Obj(type)); }

// The text of a field of any kind but object, list and data; null when unset.
inline const char* Text(kx_object* obj, const char* field) {
  return static_cast<const char*>(Kfx_Get(obj, field));
}

// The same, "" when unset.
inline const char* TextOrEmpty(kx_object* obj, const char* field) {
  const char* text = Text(obj, field);
  return text != nullptr ? text : "";
}

// The object or list in a field, which `obj` goes on owning; null when unset.
inline kx_object* Child(kx_object* obj, const char* field) {
  return static_cast<kx_object*>(Kfx_Get(obj, field));
}

// The number in a word or long field, -1 when unset.
inline int Number(kx_object* obj, const char* field) {
  return Kfx_Str_To_Long(Text(obj, field));
}

// The value in an enum, bool or time field, -1 when unset.
inline int Enum(kx_object* obj, const char* field) {
  return Kfx_Str_To_Enum(Text(obj, field));
}
inline int Bool(kx_object* obj, const char* field) {
  return Kfx_Str_To_Bool(Text(obj, field));
}
inline int Time(kx_object* obj, const char* field) {
  return Kfx_Str_To_Time(Text(obj, field));
}

// Store a value of each kind, with Kfx_Set's result. -1 resets a number.
inline int SetText(kx_object* obj, const char* field, const char* text) {
  return Kfx_Set(obj, field, text);
}
inline int SetNumber(kx_object* obj, const char* field, int value) {
  return Kfx_Set(obj, field, value == -1 ? nullptr : Kfx_Long_To_Str(value));
}
inline int SetEnum(kx_object* obj, const char* field, int value) {
  return Kfx_Set(obj, field, Kfx_Enum_To_Str(value));
}
inline int SetBool(kx_object* obj, const char* field, bool value) {
  return Kfx_Set(obj, field, Kfx_Bool_To_Str(value ? 1 : 0));
}
inline int SetTime(kx_object* obj, const char* field, int value) {
  return Kfx_Set(obj, field, Kfx_Time_To_Str(value));
}
// The object in `field` is `child` from now on; the one it replaces is freed.
inline int SetChild(kx_object* obj, const char* field, Object child) {
  Object old(Child(obj, field));
  if (Kfx_Set(obj, field, child.get()) != 0) {
    static_cast<void>(old.release());
    return -1;
  }
  static_cast<void>(child.release());
  return 0;
}

// Walks a list: for (kx_object* element : kx::Elements(list)).
class Elements {
 public:
  explicit Elements(kx_object* list) : list_(list) {}
  class Iterator {
   public:
    explicit Iterator(kx_object* node) : node_(node) {}
    kx_object* operator*() const {
      return static_cast<kx_object*>(Kfx_Bdata(node_));
    }
    Iterator& operator++() {
      node_ = Kfx_Bnext(node_);
      return *this;
    }
    bool operator!=(const Iterator& other) const {
      return node_ != other.node_;
    }

   private:
    kx_object* node_;
  };
  Iterator begin() const { return Iterator(list_); }
  Iterator end() const { return Iterator(nullptr); }

 private:
  kx_object* list_;
};

// Builds a list of objects from its head, at one step an element.
class ListBuilder {
 public:
  // Appends an object; false, and the object freed, without memory.
  bool Append(Object element) {
    kx_object* node = Kfx_Bnew(element.get());
    if (node == nullptr) return false;
    static_cast<void>(element.release());
    if (head_ == nullptr) {
      head_.reset(node);
    } else {
      Kfx_Binsert(tail_, node);
    }
    tail_ = node;
    ++count_;
    return true;
  }
  int count() const { return count_; }
  kx_object* head() const { return head_.get(); }
  // The whole list, null when it is empty.
  Object Take() {
    tail_ = nullptr;
    count_ = 0;
    return std::move(head_);
  }

 private:
  Object head_;
  kx_object* tail_ = nullptr;
  int count_ = 0;
};

}  // namespace kx

#endif  // KX_OBJECT_H_
