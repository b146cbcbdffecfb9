#include <cstdlib>

#include "kx/kxobj.h"
#include "util/kutmem.h"

namespace {

// The array that sorts work in, kept from one sort to the next.
void** g_scratch = nullptr;
int g_scratch_size = 0;

kx_node* Node(kx_object* obj) { return static_cast<kx_node*>(obj); }

kx_node* Last(kx_object* list) {
  kx_node* node = Node(list);
  while (node != nullptr && node->next != nullptr) node = node->next;
  return node;
}

void Link(kx_node* first, kx_node* second) {
  if (first != nullptr) first->next = second;
  if (second != nullptr) second->prev = first;
}

// The node before `node`, found from the head: a node's own `prev` is not
// trusted, since the node need not be in this list.
kx_node* Predecessor(kx_object* list, const kx_node* node) {
  kx_node* at = Node(list);
  while (at != nullptr && at->next != node) at = at->next;
  return at;
}

bool ReserveScratch(int count) {
  if (g_scratch_size >= count) return true;
  Kfx_Bsfree();
  g_scratch = static_cast<void**>(
      Kut_malloc(static_cast<std::size_t>(count) * sizeof(void*)));
  if (g_scratch == nullptr) return false;
  g_scratch_size = count;
  return true;
}

}  // namespace

kx_object* Kfx_Bnew(void* element) {
  auto* node = static_cast<kx_node*>(Kut_malloc(sizeof(kx_node)));
  if (node == nullptr) {
    kx_errno = kx_err_memory;
    return nullptr;
  }
  *node = {{&kx_objdef_list}, nullptr, nullptr, element};
  kx_errno = kx_err_none;
  return node;
}

kx_object* Kfx_Bappend(kx_object* list, kx_object* chain) {
  if (list == nullptr) return chain;
  if (chain != nullptr) Link(Last(list), Node(chain));
  return list;
}

kx_object* Kfx_Binsert(kx_object* node, kx_object* chain) {
  if (node == nullptr) return chain;
  if (chain == nullptr) return node;
  Link(Last(chain), Node(node)->next);
  Link(Node(node), Node(chain));
  return node;
}

kx_object* Kfx_Blast(kx_object* list) { return Last(list); }

int Kfx_Bcount(kx_object* list) {
  int count = 0;
  for (kx_node* node = Node(list); node != nullptr; node = node->next) ++count;
  return count;
}

kx_object* Kfx_Bnth(kx_object* list, int n) {
  if (n < 0) return nullptr;
  kx_node* node = Node(list);
  while (node != nullptr && n-- > 0) node = node->next;
  return node;
}

void* Kfx_Bnthid(kx_object* list, int n) {
  return Kfx_Bdata(Kfx_Bnth(list, n));
}

int Kfx_Bindex(kx_object* list, kx_object* node) {
  int index = 0;
  for (kx_node* at = Node(list); at != nullptr; at = at->next, ++index) {
    if (at == node) return index;
  }
  return -1;
}

kx_object* Kfx_Bfind(kx_object* list, void* element) {
  kx_node* node = Node(list);
  while (node != nullptr && node->element != element) node = node->next;
  return node;
}

kx_object* Kfx_Bremove(kx_object* list, kx_object* node) {
  if (list == nullptr || node == nullptr) return list;
  kx_node* gone = Node(node);
  kx_object* head = list;
  if (list == node) {
    head = gone->next;
    if (gone->next != nullptr) gone->next->prev = nullptr;
  } else if (kx_node* before = Predecessor(list, gone); before != nullptr) {
    Link(before, gone->next);
  }
  gone->next = nullptr;
  gone->prev = nullptr;
  return head;
}

kx_object* Kfx_Bdelete(kx_object* list, kx_object* node) {
  kx_object* head = Kfx_Bremove(list, node);
  Kfx_Bfree(node);
  return head;
}

int Kfx_Bfree(kx_object* node) {
  Kut_free(node);
  return 0;
}

kx_object* Kfx_Bscrap(kx_object* list) {
  for (kx_node* node = Node(list); node != nullptr;) {
    kx_node* next = node->next;
    Kfx_Bfree(node);
    node = next;
  }
  return nullptr;
}

kx_object* Kfx_Bdup(kx_object* list) {
  kx_object* head = nullptr;
  kx_node* tail = nullptr;
  for (kx_node* node = Node(list); node != nullptr; node = node->next) {
    kx_node* copy = Node(Kfx_Bnew(node->element));
    if (copy == nullptr) return Kfx_Bscrap(head);
    if (head == nullptr) head = copy;
    Link(tail, copy);
    tail = copy;
  }
  return head;
}

void Kfx_Bapplyf(kx_object* list, void (*function)(kx_object* node)) {
  for (kx_node* node = Node(list); node != nullptr; node = node->next) {
    function(node);
  }
}

kx_object* Kfx_Bsort(kx_object* list,
                     int (*compare)(const void* a, const void* b)) {
  const int count = Kfx_Bcount(list);
  if (count < 2 || !ReserveScratch(count)) return list;
  int i = 0;
  for (kx_node* node = Node(list); node != nullptr; node = node->next) {
    g_scratch[i++] = node->element;
  }
  qsort(g_scratch, static_cast<std::size_t>(count), sizeof(void*), compare);
  i = 0;
  for (kx_node* node = Node(list); node != nullptr; node = node->next) {
    node->element = g_scratch[i++];
  }
  return list;
}

void Kfx_Bsfree() {
  Kut_free(g_scratch);
  g_scratch = nullptr;
  g_scratch_size = 0;
}

kx_object* Kfx_Bnext(kx_object* node) {
  return node != nullptr ? Node(node)->next : nullptr;
}

void* Kfx_Bdata(kx_object* node) {
  return node != nullptr ? Node(node)->element : nullptr;
}
