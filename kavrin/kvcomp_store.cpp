// Composites and items: the nodes of an opened composite, and the write-back that cuts the run into items.
//
// (1) An item holds whole records and at most 60000 bytes of them. (2) New items stand before old ones go: a
// failure takes the new ones back and leaves the old ones and `dirty`. (3) A composite that stays open after
// a write-back looks at the new items, since the old ones' values go with them.
#include <strings.h>

#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kNoSuchItem = 0x222;
constexpr uint32_t kTypeWordBytes = 2;
constexpr uint32_t kItemFlagsMask = 0x203;  // of the caller's flags: sign, seal, protected

// The items of one name in a note.
struct Named {
  EngNote note;
  const char* name;
  uint16_t name_bytes;
};

uint16_t NextItem(const Named& items, bool is_first, BLOCKID* item, uint16_t* type, BLOCKID* value,
                  uint32_t* value_bytes) {
  return is_first ? EngItemInfo(items.note, items.name, items.name_bytes, item, type, value, value_bytes)
                  : EngItemInfoNext(items.note, *item, items.name, items.name_bytes, item, type, value,
                                    value_bytes);
}

uint32_t CountItems(const Named& items, uint32_t* count) {
  BLOCKID item{};
  uint16_t brstatus = 0;
  for (*count = 0;; ++*count) {
    brstatus = NextItem(items, *count == 0, &item, nullptr, nullptr, nullptr);
    if (brstatus) break;
  }
  return (brstatus & 0x3fff) == kNoSuchItem ? uint32_t{KVSUCCESS} : brstatus;
}

// Puts a node over each composite item behind the first skip_count ones. Nothing is read.
uint32_t NodesOverItems(const Named& items, uint32_t skip_count, _COMPNODE** nodes) {
  _COMPNODE* head = nullptr;
  _COMPNODE** link = &head;
  KVGuard free_nodes([&] { _KVICompNodesFree(head); });
  BLOCKID item{};
  BLOCKID value{};
  uint16_t type = 0;
  uint32_t value_bytes = 0;
  uint16_t brstatus = NextItem(items, true, &item, &type, &value, &value_bytes);
  for (; !brstatus; brstatus = NextItem(items, false, &item, &type, &value, &value_bytes)) {
    if (skip_count != 0) {
      --skip_count;
      continue;
    }
    // An item without a record adds nothing to the run.
    if (type != BRTYPE_COMPOSITE || value_bytes <= kTypeWordBytes) continue;
    _COMPNODE* node = _KVICompNodeNew();
    if (node == nullptr) return KVFAIL_NO_MEMORY;
    node->value_bid = value;
    node->value_len = value_bytes - kTypeWordBytes;
    node->value_offset = kTypeWordBytes;
    node->field_count = kCompNotCounted;
    *link = node;
    link = &node->next;
  }
  if ((brstatus & 0x3fff) != kNoSuchItem) return brstatus;
  free_nodes.Dismiss();
  *nodes = head;
  return KVSUCCESS;
}

// ---- Reading

uint32_t OpenComposite(_api_session* session, _DOCUMENT* doc, const char* itemname, uint32_t* number) {
  _COMPNODE* nodes = nullptr;
  const Named items{doc->notehand, itemname, KVIItemNameBytes(itemname)};
  if (const uint32_t status = NodesOverItems(items, 0, &nodes)) return KVError(status);
  auto* comp = KVIAllocate<_COMPOSITE>();
  char* name = KVICopyText(itemname, std::strlen(itemname));
  uint32_t status = KVFAIL_NO_MEMORY;
  if (comp != nullptr && name != nullptr) {
    comp->doc = doc;
    comp->nodelist = nodes;
    comp->itemname = name;
    status = _AddComposite(session, comp, number);
  }
  if (status == KVSUCCESS) return KVSUCCESS;
  _KVICompNodesFree(nodes);
  KVIFree(name);
  KVIFree(comp);
  return status;
}

uint32_t ReadComposite(_api_session* session, _DOCUMENT* doc, const char* itemname, void* dest_buf,
                       uint32_t* actual_len) {
  uint32_t number = 0;
  const uint32_t status = OpenComposite(session, doc, itemname, &number);
  KVIStore<uint32_t>(dest_buf, number);
  KVIStoreIf<uint32_t>(actual_len, status == KVSUCCESS ? sizeof number : 0);
  return status;
}

// ---- Writing

// The items that a write has made so far.
struct Written {
  Named items;
  uint16_t item_flags;
  uint32_t item_count;
};

// Gathers the run into items.
struct Staging {
  char* bytes;
  uint32_t length;
};

uint32_t Flush(Staging* staging, Written* written) {
  const uint32_t length = staging->length;
  staging->length = 0;
  const uint16_t brstatus =
      EngItemAppend(written->items.note, written->item_flags, written->items.name, written->items.name_bytes,
                    BRTYPE_COMPOSITE, staging->bytes, length);
  if (brstatus) return brstatus;
  ++written->item_count;
  return KVSUCCESS;
}

// Bytes of the whole records at data that still go into the item. 0 with success: none, but a fresh item
// takes the next one.
uint32_t WholeRecords(const char* data, uint32_t left_bytes, uint32_t staged_bytes, uint32_t* fitting) {
  *fitting = 0;
  for (;;) {
    CDHEADER header;
    if (!KVICDReadHeader(data + *fitting, left_bytes - *fitting, &header)) return KVFAIL_BAD_FORMAT;
    const uint64_t padded = uint64_t{header.length} + (header.length & 1);
    if (padded + *fitting + staged_bytes > kCompItemBytesMax)
      return *fitting == 0 && padded > kCompItemBytesMax ? uint32_t{KVFAIL_INTERNAL} : uint32_t{KVSUCCESS};
    *fitting += header.step;
    if (*fitting == left_bytes) return KVSUCCESS;
  }
}

void Stage(Staging* staging, const char* data, uint32_t bytes) {
  KVICopyBytes(staging->bytes + staging->length, data, bytes);
  staging->length += bytes;
  if (staging->length & 1) staging->bytes[staging->length++] = 0;
}

// Puts a node's records into items; the last one stays in the staging block.
uint32_t StoreNode(_COMPNODE* node, Staging* staging, Written* written) {
  const char* data = _KVICompNodeLock(node);
  if (data == nullptr) return KVFAIL_INTERNAL;
  KVGuard unlock([&] { _KVICompNodeUnlock(node); });
  uint32_t left_bytes = node->value_len;
  while (uint64_t{left_bytes} + staging->length > kCompItemBytesMax) {
    uint32_t fitting = 0;
    if (const uint32_t status = WholeRecords(data, left_bytes, staging->length, &fitting)) return status;
    Stage(staging, data, fitting);
    data += fitting;
    left_bytes -= fitting;
    if (const uint32_t status = Flush(staging, written)) return status;
  }
  Stage(staging, data, left_bytes);
  return KVSUCCESS;
}

// Cuts the whole run into items anew.
uint32_t CompStoreItem(_COMPOSITE* comp, Written* written) {
  constexpr uint32_t kPadBytes = 2;
  uint64_t length = 0;
  for (const _COMPNODE* node = comp->nodelist; node != nullptr; node = node->next)
    length += uint64_t{node->value_len} + (node->value_len & 1);
  const auto block_bytes = static_cast<uint32_t>(length < kCompItemBytesMax ? length : kCompItemBytesMax);
  EngMem block = 0;
  if (EngMemAlloc(0, block_bytes + kPadBytes, &block)) return KVFAIL_NO_MEMORY;
  KVGuard free_block([&] { EngMemFree(block); });
  // The engine copies what is appended, and lets a block stay where it is.
  const KVLocked locked(block);
  if (locked.bytes == nullptr) return KVFAIL_INTERNAL;
  Staging staging{locked.bytes, 0};
  for (_COMPNODE* node = comp->nodelist; node != nullptr; node = node->next)
    if (const uint32_t status = StoreNode(node, &staging, written)) return status;
  return staging.length != 0 ? Flush(&staging, written) : uint32_t{KVSUCCESS};
}

// True when some node is not a whole engine block of the composite's own with the type word in front.
bool NeedsCutting(const _COMPOSITE* comp) {
  for (const _COMPNODE* node = comp->nodelist; node != nullptr; node = node->next)
    if (node->value_ptr != nullptr || !node->alloc || node->value_offset > kTypeWordBytes) return true;
  return false;
}

// The note takes over the blocks as they are.
uint32_t HandOverBlocks(_COMPOSITE* comp, Written* written) {
  for (_COMPNODE* node = comp->nodelist; node != nullptr; node = node->next) {
    const uint16_t brstatus =
        EngItemAppendByBlock(written->items.note, written->item_flags, written->items.name,
                             written->items.name_bytes, node->value_bid, node->value_len + kTypeWordBytes, 0);
    if (brstatus) return brstatus;
    ++written->item_count;
    node->alloc = 0;
    KVIFreeAndClear(&node->storage);  // it was the last one that looked at the block
  }
  return KVSUCCESS;
}

// Blocks that the note took over go away with its items: the composite keeps copies.
void KeepHandedOver(_COMPOSITE* comp, const Written& written) {
  _COMPNODE* node = comp->nodelist;
  for (uint32_t i = 0; i < written.item_count && node != nullptr; ++i, node = node->next) {
    if (node->value_ptr != nullptr || node->alloc) continue;
    uint32_t status = KVSUCCESS;
    _COMPNODE* copy = _KVICompNodeCopy(node, 0, node->value_len, node->field_count, &status);
    if (status != KVSUCCESS) continue;
    _KVICompNodeUnlock(node);
    copy->next = node->next;
    *node = *copy;
    KVIFree(copy);
  }
}

// Takes back the items that were made: the last ones of the name.
void TakeBack(const Written& written) {
  uint32_t kept_count = 0;
  if (CountItems(written.items, &kept_count) != KVSUCCESS || kept_count < written.item_count) return;
  kept_count -= written.item_count;
  BLOCKID item{};
  uint16_t brstatus = NextItem(written.items, true, &item, nullptr, nullptr, nullptr);
  while (!brstatus) {
    const BLOCKID behind = item;
    brstatus = NextItem(written.items, false, &item, nullptr, nullptr, nullptr);
    if (kept_count != 0)
      --kept_count;
    else
      (void)EngItemDeleteByBlock(written.items.note, behind);
  }
}

// The composite looks at the items that were made of it.
uint32_t MoveToItems(_COMPOSITE* comp, const Written& written) {
  uint32_t item_count = 0;
  if (const uint32_t status = CountItems(written.items, &item_count)) return status;
  _COMPNODE* nodes = nullptr;
  if (const uint32_t status = NodesOverItems(written.items, item_count - written.item_count, &nodes))
    return status;
  _KVICompLoosenCursor(comp);
  (void)CompGetRecord(comp, kCompRelease, 0);
  _KVICompNodesFree(comp->nodelist);
  comp->nodelist = nodes;
  comp->tail = nullptr;
  return KVSUCCESS;
}

// True when the composite's own items are the ones that are replaced, and it looks at them.
bool LosesItems(const _COMPOSITE* comp, const _DOCUMENT* doc, const char* itemname) {
  if (comp->doc != doc || comp->itemname == nullptr || strcasecmp(comp->itemname, itemname) != 0)
    return false;
  for (const _COMPNODE* node = comp->nodelist; node != nullptr; node = node->next)
    if (node->value_ptr == nullptr && !node->alloc && node->storage == nullptr) return true;
  return false;
}

bool IsStored(const _COMPOSITE* comp, const _DOCUMENT* doc) {
  if (comp->dirty || comp->doc->dbase->dbinfo != doc->dbase->dbinfo) return false;
  if (comp->doc == doc) return true;
  return doc->docid != 0 && comp->doc->docid == doc->docid;  // documents never stored share the id 0
}

uint32_t WriteItems(_COMPOSITE* comp, _DOCUMENT* doc, Written* written) {
  const bool is_losing = LosesItems(comp, doc, written->items.name);
  const bool needs_cutting = NeedsCutting(comp);
  uint32_t status = needs_cutting ? CompStoreItem(comp, written) : HandOverBlocks(comp, written);
  if (status == KVSUCCESS && is_losing) status = MoveToItems(comp, *written);
  if (status == KVSUCCESS) return KVSUCCESS;
  if (!needs_cutting) KeepHandedOver(comp, *written);
  TakeBack(*written);
  return status;
}

uint32_t WriteComposite(_api_session* session, _DOCUMENT* doc, _COMPOSITE* comp, const char* itemname,
                        uint32_t flags, const FORMAT* format) {
  if (IsStored(comp, doc)) return KVSUCCESS;
  if (format == nullptr) format = comp->format;
  uint16_t item_flags = format != nullptr ? format->item_flags : uint16_t{0};
  if ((flags & KVCONV_ITEM_FLAGS) != 0) item_flags = static_cast<uint16_t>(flags & kItemFlagsMask);
  Written written{{doc->notehand, itemname, KVIItemNameBytes(itemname)}, item_flags, 0};
  if (const uint32_t status = _DeleteItemPrep(session, doc, itemname, written.items.name_bytes))
    return status;
  if (const uint32_t status = WriteItems(comp, doc, &written)) {
    _DropDeleteList(session);
    return KVError(status);
  }
  _DeleteItem(session, doc, nullptr, 0);
  comp->dirty = 0;
  return KVSUCCESS;
}

}  // namespace

uint32_t CompSplitBuffer(const char* buffer, uint32_t max_len) {
  const uint32_t limit = max_len < kCompItemBytesMax ? max_len : kCompItemBytesMax;
  uint32_t offset = 0;
  while (offset < limit) {
    CDHEADER header;
    if (!KVICDReadHeader(buffer + offset, max_len - offset, &header)) break;
    if (uint64_t{header.step} + offset > limit) break;
    offset += header.step;
  }
  return offset;
}

uint32_t _CompConvert(_api_session* session, _DOCUMENT* doc, uint32_t src_type, uint32_t, const void* src_buf,
                      uint32_t dest_type, uint32_t, void* dest_buf, uint32_t* actual_len,
                      const char* itemname, uint32_t flags, const FORMAT* format) {
  const bool is_plain = src_type == KVTYPE_COMPOSITE && dest_type == KVTYPE_COMPOSITE;
  if ((flags & KVCONV_WRITE) != 0) {
    if (itemname == nullptr) return KVSUCCESS;
    if (src_type != KVTYPE_COMPOSITE) return kEngNotAvailable;
    _COMPOSITE* comp = src_buf != nullptr ? _KVIFindComposite(session, KVILoad<uint32_t>(src_buf)) : nullptr;
    if (comp == nullptr) return KVFAIL_BAD_COMPOSITE;
    if (!is_plain) return kEngNotAvailable;
    return WriteComposite(session, doc, comp, itemname, flags, format);
  }
  if (doc == nullptr && (src_type != KVTYPE_COMPOSITE || is_plain || (flags & KVCONV_ALLOC) != 0))
    return KVFAIL_ILLEGAL_CONVERSION;
  if (!is_plain) return kEngNotAvailable;
  return ReadComposite(session, doc, itemname, dest_buf, actual_len);
}
