// The item table of a document, a snapshot in stored order, and the count of its items.
#include <strings.h>

#include <cstddef>
#include <cstring>

#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kNoMemory = 0x107;
constexpr uint16_t kNoSuchItem = 0x222;
constexpr uint16_t kTypeComposite = 1;
constexpr uint32_t kTableGrowth = 10;
constexpr uint32_t kTypeWordBytes = 2;
constexpr uint32_t kCompositeNameBytes = 65;
constexpr uint32_t kOldVersion = 0x20306;  // programs below it have shorter names in KVITEM

#pragma pack(push, 1)
// KVITEM as programs below version 0x20306 know it.
struct OldItem {
  int32_t type;
  char name[34];
  uint32_t item_flags;
  uint32_t length;
  void* value;
};
#pragma pack(pop)
static_assert(sizeof(OldItem) == 4 + 34 + 4 + 4 + sizeof(void*));
static_assert(sizeof(KVITEM) == 4 + 65 + 4 + 4 + sizeof(void*));

struct COUNTFIELDS {
  uint32_t count;
  _FORMSPEC* form;
  char last_compname[kCompositeNameBytes];
};

void CutName(char* target, uint32_t target_bytes, const char* name, uint16_t namelen) {
  const uint32_t bytes = namelen < target_bytes - 1 ? namelen : target_bytes - 1;
  memcpy(target, name, bytes);
  target[bytes] = 0;
}

bool IsOldCaller(const _api_session* session) { return session->kvprog_version < kOldVersion; }

void ClearItem(const _api_session* session, KVITEM* item) {
  memset(static_cast<void*>(item), 0, IsOldCaller(session) ? sizeof(OldItem) : sizeof(KVITEM));
}

void CopyItemOut(const _api_session* session, const KVITEM& entry, KVITEM* item) {
  if (!IsOldCaller(session)) {
    memcpy(static_cast<void*>(item), &entry, sizeof entry);
    return;
  }
  OldItem old{.type = entry.type,
              .name = {},
              .item_flags = entry.item_flags,
              .length = entry.length,
              .value = entry.value};
  CutName(old.name, sizeof old.name, entry.name, static_cast<uint16_t>(strlen(entry.name)));
  memcpy(static_cast<void*>(item), &old, sizeof old);
}

// Called by the engine for each item of a note.
EngStatus ScanCountFields(uint16_t, uint16_t, const char* name, uint16_t namelen, const void* value,
                          uint32_t value_bytes, void* parameter) {
  auto* state = static_cast<COUNTFIELDS*>(parameter);
  if (value_bytes < kTypeWordBytes) return 0;
  const uint16_t type_word = KVI_BRDataTypeRead(value, 0);
  if (GetKVType(type_word) == KVTYPE_NONE) return 0;
  if (KVIIsHiddenItem(name, namelen)) return 0;
  char cut_name[kCompositeNameBytes + 1];
  CutName(cut_name, sizeof cut_name, name, namelen);
  if (state->form != nullptr && GetFieldspec(state->form, cut_name) == nullptr) return 0;
  if (type_word == kTypeComposite) {
    // Further segments of a composite are one item with its first.
    if (strncasecmp(state->last_compname, cut_name, sizeof state->last_compname) == 0) return 0;
    memcpy(state->last_compname, cut_name, sizeof state->last_compname);
  }
  ++state->count;
  return 0;
}

// A composite segment behind a composite whose name has the same length but other text adds to that entry;
// segments of one name stay entries of their own.
bool JoinsLast(const _DOC_ITEMLIST* list, uint16_t type_word, const char* name, uint16_t namelen) {
  if (list->nCount == 0 || type_word != kTypeComposite) return false;
  const KVITEM& last = list->pTable[list->nCount - 1];
  return last.type == KVTYPE_COMPOSITE && strlen(last.name) == namelen &&
         strncasecmp(last.name, name, namelen) != 0;
}

EngStatus ItemListScan(uint16_t, uint16_t flags, const char* name, uint16_t namelen, const void* value,
                       uint32_t value_bytes, void* parameter) {
  auto* list = static_cast<_DOC_ITEMLIST*>(parameter);
  if (KVIIsHiddenItem(name, namelen)) return 0;
  const uint16_t type_word = value_bytes < kTypeWordBytes ? uint16_t{0} : KVI_BRDataTypeRead(value, 0);
  const uint32_t data_bytes = value_bytes < kTypeWordBytes ? 0 : value_bytes - kTypeWordBytes;
  if (JoinsLast(list, type_word, name, namelen)) {
    list->pTable[list->nCount - 1].length += data_bytes;
    return 0;
  }
  KVITEM entry{};
  entry.type = static_cast<int32_t>(GetKVType(type_word));
  CutName(entry.name, sizeof entry.name, name, namelen);
  entry.item_flags = flags;
  entry.length = data_bytes;
  list->pTable[list->nCount++] = entry;
  if (list->nCount % kTableGrowth != 0) return 0;
  return KVIReallocate(&list->pTable, list->nCount + kTableGrowth) ? EngStatus{0} : kNoMemory;
}

// The direction in which a listing goes on behind an entry that is not shown; 0 when it cannot.
int32_t DirectionBehindHidden(int32_t list) {
  switch (list) {
    case KVLIST_REFRESH:
      return KVLIST_NEXT;
    case KVLIST_FIRST:
      return KVLIST_NEXT;
    case KVLIST_LAST:
      return KVLIST_PREVIOUS;
    case KVLIST_CURRENT:
      return 0;
    default:
      return list;
  }
}

uint32_t NextShownItem(_DOCUMENT* doc, int32_t list, KVITEM** entry) {
  for (;;) {
    if (uint32_t status = KVIItemListIterate(doc->itemlist, &doc->itemlist_cursor, list, entry))
      return status;
    if (doc->form == nullptr || GetFieldspec(doc->form, (*entry)->name) != nullptr) return KVSUCCESS;
    list = DirectionBehindHidden(list);
    if (list == 0) return KVFAIL_DATA_UNAVAILABLE;
  }
}

// A copy of the value of the first item of the name, with a NUL behind a text.
uint32_t CopyValue(_DOCUMENT* doc, const KVITEM& entry, void** copy) {
  BLOCKID value;
  uint32_t value_bytes = 0;
  const auto namelen = static_cast<uint16_t>(strlen(entry.name));
  if (uint16_t brstatus =
          EngItemInfo(doc->notehand, entry.name, namelen, nullptr, nullptr, &value, &value_bytes))
    return (brstatus & 0x3fff) == kNoSuchItem ? KVFAIL_NO_ITEM : brstatus;
  const uint32_t data_bytes = value_bytes < kTypeWordBytes ? 0 : value_bytes - kTypeWordBytes;
  // The entry's length may be that of another item of the name: the buffer is as long as the longer of the
  // two.
  const uint32_t buffer_bytes = data_bytes > entry.length ? data_bytes : entry.length;
  *copy = KVIAllocateBytes(size_t{buffer_bytes} + 1);
  if (*copy == nullptr) return KVFAIL_NO_MEMORY;
  const KVLocked locked(value.pool, value.block);
  if (locked.bytes != nullptr) KVICopyBytes(*copy, locked.bytes + kTypeWordBytes, data_bytes);
  return KVSUCCESS;
}

uint32_t PutValuePointer(_DOCUMENT* doc, KVITEM* entry) {
  if (entry->name[0] == 0) return KVSUCCESS;  // the entry of an empty table has no value
  const int32_t type = entry->type;           // the entry's own word may lie at an odd address
  if (doc->fieldlist != nullptr) {
    if (const _DATAFIELD* cached = GetDatafield(doc, entry->name, &type, &type)) {
      entry->value = cached->buffer;
      return KVSUCCESS;
    }
  }
  void* copy = nullptr;
  if (uint32_t status = CopyValue(doc, *entry, &copy)) return status;
  _DATAFIELD* field = KVIDatafieldAdd(doc, entry->name, static_cast<uint16_t>(strlen(entry->name)));
  if (field == nullptr) {
    KVIFree(copy);
    return KVFAIL_NO_MEMORY;
  }
  field->type = type;
  field->form_type = type;
  field->in_form = doc->form != nullptr;
  field->length = entry->length;
  field->buffer = copy;
  entry->value = copy;
  return KVSUCCESS;
}

}  // namespace

uint32_t KVItemGetCount(uint32_t document) {
  _api_session* session;
  if (KVIEnter(document, &session)) return 0;
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) {
    KVError(KVFAIL_BAD_DOCUMENT);
    return 0;
  }
  COUNTFIELDS state{};
  state.form = doc->form;
  if (EngItemScan(doc->notehand, ScanCountFields, &state)) return 0;
  return state.count;
}

uint32_t KVItemList(uint32_t document, int32_t list, int32_t get_pointer, KVITEM* item) {
  _api_session* session;
  if (uint32_t status = KVIEnter(document, &session)) return status;
  if (item == nullptr) return KVError(KVFAIL_NULL_PARAM);
  ClearItem(session, item);
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  if (doc->itemlist == nullptr) {
    if (uint32_t status = KVIItemListCreate(doc, &doc->itemlist)) return KVError(status);
  }
  KVITEM* entry;
  if (uint32_t status = NextShownItem(doc, list, &entry)) return KVError(status);
  entry->value = nullptr;
  if (get_pointer) {
    if (uint32_t status = PutValuePointer(doc, entry)) return KVError(status);
  }
  CopyItemOut(session, *entry, item);
  return KVSUCCESS;
}

uint32_t KVIItemListCreate(_DOCUMENT* doc, _DOC_ITEMLIST** ppList) {
  if (doc == nullptr) return KVFAIL_NULL_PARAM;
  if (ppList == nullptr) return KVFAIL_NULL_PARAM;
  *ppList = KVIAllocate<_DOC_ITEMLIST>();
  if (*ppList == nullptr) return KVFAIL_NO_MEMORY;
  (*ppList)->pDoc = doc;
  const uint32_t status = KVIItemListLoadTable(*ppList);
  if (status) KVIItemListDestroy(ppList);
  return status;
}

uint32_t KVIItemListLoadTable(_DOC_ITEMLIST* list) {
  KVIFreeAndClear(&list->pTable);
  list->nCount = 0;
  list->pTable = KVIAllocate<KVITEM>(kTableGrowth);
  if (list->pTable == nullptr) return KVFAIL_NO_MEMORY;
  const uint16_t brstatus = EngItemScan(list->pDoc->notehand, ItemListScan, list);
  if (!brstatus) return KVSUCCESS;
  KVIFreeAndClear(&list->pTable);  // a part of a table would pass for the whole
  list->nCount = 0;
  return brstatus == kNoMemory ? KVFAIL_NO_MEMORY : brstatus;
}

uint32_t KVIItemListIterate(_DOC_ITEMLIST* list, uint32_t* cursor, int32_t iter, KVITEM** item) {
  if (list == nullptr) return KVFAIL_NULL_PARAM;
  if (cursor == nullptr) return KVFAIL_NULL_PARAM;
  if (item == nullptr) return KVFAIL_NULL_PARAM;
  // The first entry of an empty table leaves the cursor behind its end. A new table starts anew.
  if (*cursor > list->nCount && iter != KVLIST_REFRESH) return KVFAIL_DATA_TOO_LONG;
  if (iter == KVLIST_REFRESH || list->pTable == nullptr) {
    *cursor = 0;
    if (uint32_t status = KVIItemListLoadTable(list)) return status;
  }
  uint32_t index = 0;
  switch (iter) {
    case KVLIST_REFRESH:
    case KVLIST_FIRST:
      break;
    case KVLIST_LAST:
      if (list->nCount == 0) return KVFAIL_END_OF_DATA;
      index = list->nCount - 1;
      break;
    case KVLIST_NEXT:
      if (*cursor == list->nCount) return KVFAIL_END_OF_DATA;
      index = *cursor;
      break;
    case KVLIST_PREVIOUS:
      if (*cursor < 2) return KVFAIL_END_OF_DATA;
      index = *cursor - 2;
      break;
    case KVLIST_CURRENT:
      if (*cursor == 0) return KVFAIL_DATA_UNAVAILABLE;
      index = *cursor - 1;
      break;
    default:
      return KVFAIL_BAD_ENUM;
  }
  // The table has an entry more than it counts: the first of an empty one is all zero, an item without a type
  // or a name.
  *item = &list->pTable[index];
  *cursor = index + 1;
  return KVSUCCESS;
}

void KVIItemListDestroy(_DOC_ITEMLIST** ppList) {
  if (ppList == nullptr) return;
  if (*ppList == nullptr) return;
  KVIFree((*ppList)->pTable);
  KVIFreeAndClear(ppList);
}
