// Nodes of composites: their storage, and the splitting of a run at a record.
//
// (1) A split moves no bytes: both nodes look at the same storage afterwards, the head keeps `alloc`. (2)
// Storage that several nodes look at is counted (COMPSTORAGE) and goes with the last of them, in whichever
// order they go: a node that looks at bytes keeps them. (3) A growth block was never split, so it may
// move; one that lies behind its node in the same allocation (holds_bytes) stays, and goes with that node.
// (4) An engine's block is locked once at most through one node.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

void FreeStorage(char* value_ptr, uint32_t pool) {
  if (value_ptr != nullptr)
    KVIFree(value_ptr);
  else if (pool != 0)
    EngMemFree(pool);
}

// Counts the node that is to look at the storage of `node`. Storage that the note owns is not counted.
bool ShareStorage(_COMPNODE* node) {
  if (node->storage != nullptr) {
    ++node->storage->node_count;
    return true;
  }
  if (!node->alloc) return true;
  node->storage = KVIAllocate<COMPSTORAGE>();
  if (node->storage == nullptr) return false;
  *node->storage = {.node_count = 2,
                    .value_ptr = node->value_ptr,
                    .pool = node->value_bid.pool,
                    .holder = node->holds_bytes ? node : nullptr};
  return true;
}

// Parts a node in front of its record node_index, which lies at offset.
uint32_t SplitNode(_COMPNODE* node, const COMPRECORD& place, _COMPNODE** tail) {
  _KVICompNodeFit(node);
  _COMPNODE* behind = _KVICompNodeNew();
  if (behind == nullptr) return KVFAIL_NO_MEMORY;
  if (!ShareStorage(node)) {
    KVIFree(behind);
    return KVFAIL_NO_MEMORY;
  }
  *behind = *node;
  behind->alloc = 0;
  behind->holds_bytes = 0;
  behind->isbidlocked = 0;  // the lock, if there is one, is the head's
  behind->value_len -= place.offset;
  node->value_len -= behind->value_len;
  behind->value_offset += place.offset;
  behind->field_count -= place.node_index - 1;
  node->field_count -= behind->field_count;
  node->next = behind;
  *tail = behind;
  return KVSUCCESS;
}

}  // namespace

_COMPNODE* _KVICompNodeNew() { return KVIAllocate<_COMPNODE>(); }

_COMPNODE* _KVICompNodeNewGrowth() {
  auto* node = static_cast<_COMPNODE*>(KVIAllocateBytes(sizeof(_COMPNODE) + kCompGrowthBytes));
  if (node == nullptr) return nullptr;
  *node = {};
  node->value_ptr = reinterpret_cast<char*>(node + 1);
  node->holds_bytes = 1;
  return node;
}

void _KVICompNodeFree(_COMPNODE* node) {
  _KVICompNodeUnlock(node);
  COMPSTORAGE* storage = node->storage;
  if (storage == nullptr) {
    if (node->alloc && !node->holds_bytes) FreeStorage(node->value_ptr, node->value_bid.pool);
    KVIFree(node);
    return;
  }
  if (node != storage->holder) KVIFree(node);
  if (--storage->node_count != 0) return;
  if (storage->holder != nullptr)
    KVIFree(storage->holder);
  else
    FreeStorage(storage->value_ptr, storage->pool);
  KVIFree(storage);
}

void _KVICompNodesFree(_COMPNODE* node) {
  while (node != nullptr) {
    _COMPNODE* next = node->next;
    _KVICompNodeFree(node);
    node = next;
  }
}

char* _KVICompNodeLock(_COMPNODE* node) {
  if (node->value_ptr != nullptr) return node->value_ptr + node->value_offset;
  if (node->isbidlocked) EngMemUnlock(node->value_bid.pool);
  auto* start = static_cast<char*>(EngMemLock(node->value_bid.pool));
  node->isbidlocked = start != nullptr;
  return start == nullptr ? nullptr : start + node->value_bid.block + node->value_offset;
}

void _KVICompNodeUnlock(_COMPNODE* node) {
  if (node->value_ptr != nullptr || !node->isbidlocked) return;
  EngMemUnlock(node->value_bid.pool);
  node->isbidlocked = 0;
}

void _KVICompNodeFit(_COMPNODE* node) {
  if (!node->comp_alloc) return;
  node->comp_alloc = 0;
  if (node->holds_bytes) return;  // the node cannot move, and the block is full where composites are built
  const size_t bytes = size_t{node->value_offset} + node->value_len;
  void* fitted = KVIReallocateBytes(node->value_ptr, bytes == 0 ? 1 : bytes);
  if (fitted != nullptr) node->value_ptr = static_cast<char*>(fitted);  // else it keeps its slack
}

_COMPNODE* _KVICompNodeCopy(_COMPNODE* source, uint32_t offset, uint32_t value_len, uint32_t field_count,
                            uint32_t* status) {
  *status = KVFAIL_NO_MEMORY;
  _COMPNODE* node = _KVICompNodeNew();
  if (node == nullptr) return nullptr;
  KVGuard free_node([&] { _KVICompNodeFree(node); });
  node->value_ptr = static_cast<char*>(KVIAllocateBytes(value_len));
  if (node->value_ptr == nullptr) return nullptr;
  node->alloc = 1;
  const char* bytes = _KVICompNodeLock(source);
  if (bytes == nullptr) {
    *status = KVFAIL_INTERNAL;
    return nullptr;
  }
  KVICopyBytes(node->value_ptr, bytes + offset, value_len);
  _KVICompNodeUnlock(source);
  node->value_len = value_len;
  node->field_count = field_count;
  free_node.Dismiss();
  *status = KVSUCCESS;
  return node;
}

uint32_t _KVICompNodesCopy(const _COMPOSITE* source, _COMPNODE** copies) {
  _COMPNODE* head = nullptr;
  _COMPNODE** link = &head;
  for (_COMPNODE* node = source->nodelist; node != nullptr; node = node->next) {
    uint32_t status = KVSUCCESS;
    *link = _KVICompNodeCopy(node, 0, node->value_len, node->field_count, &status);
    if (status != KVSUCCESS) {
      _KVICompNodesFree(head);
      return status;
    }
    link = &(*link)->next;
  }
  *copies = head;
  return KVSUCCESS;
}

void _KVICompLink(_COMPOSITE* comp, _COMPNODE* prevnode, _COMPNODE* node) {
  _COMPNODE* last = node;
  while (last->next != nullptr) last = last->next;
  last->next = _KVICompNodeBehind(comp, prevnode);
  (prevnode != nullptr ? prevnode->next : comp->nodelist) = node;
}

void _KVICompUnlink(_COMPOSITE* comp, _COMPNODE* prevnode, _COMPNODE* node) {
  (prevnode != nullptr ? prevnode->next : comp->nodelist) = node->next;
  node->next = nullptr;
}

uint32_t CompSplit(_COMPOSITE* comp, _COMPNODE** prevnode) {
  COMPRECORD* cursor = &comp->comprec;
  _COMPNODE* node = cursor->node;
  *prevnode = nullptr;
  if (node == nullptr) return comp->nodelist != nullptr ? uint32_t{KVFAIL_INTERNAL} : uint32_t{KVSUCCESS};
  if (cursor->node_index == 1 && node->field_count != 0) {
    if (node == comp->nodelist) return KVSUCCESS;
    *prevnode = comp->nodelist;
    while ((*prevnode)->next != node) *prevnode = (*prevnode)->next;
    return KVSUCCESS;
  }
  *prevnode = node;
  if (cursor->node_index > node->field_count) return KVSUCCESS;

  _COMPNODE* behind = nullptr;
  if (const uint32_t status = SplitNode(node, *cursor, &behind)) return status;
  comp->tail = nullptr;
  if (node->field_count < cursor->node_index) {
    cursor->node = behind;
    cursor->node_index -= node->field_count;
    cursor->offset -= node->value_len;
  }
  return KVSUCCESS;
}
