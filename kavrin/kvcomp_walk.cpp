// Ways through the records of composites: heads, flat runs, items of a note, and the two cursors.
//
// (1) A head is believed only after it was compared with the bytes that are left; each step goes forward by
// at least the head's size, so every walk ends. (2) A cursor's address is made anew from its node and offset
// whenever the cursor is used, since a node's bytes may have moved in between. (3) A node that was counted
// holds whole records up to its end.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kNoSuchItem = 0x222;
constexpr uint32_t kTypeWordBytes = 2;

struct CDFORM {
  uint16_t header_bytes;
  uint16_t signature;
};
// A record says with the high byte of its first word where its length stands: 0xff a word behind it, 0 a
// double word behind it, else that byte itself.
CDFORM FormOf(uint16_t first_word) {
  switch (first_word & 0xff00) {
    case 0xff00:
      return {4, first_word};
    case 0:
      return {6, first_word};
    default:
      return {2, static_cast<uint16_t>(first_word & 0xff)};
  }
}

uint16_t ReadWord(const char* data) {
  const void* at = data;
  uint16_t word = 0;
  EngOdsRead(&at, kOdsWord, &word, 1);
  return word;
}

uint32_t ReadLong(const char* data) {
  const void* at = data;
  uint32_t value = 0;
  EngOdsRead(&at, kOdsLong, &value, 1);
  return value;
}

uint32_t LengthOf(const char* data, uint16_t first_word, const CDFORM& form) {
  if (form.header_bytes == 2) return first_word >> 8;
  return form.header_bytes == 4 ? ReadWord(data + 2) : ReadLong(data + 2);
}

// Reads the head of the record at the cursor's offset, in a node whose first record is at base.
uint32_t ReadAtCursor(COMPRECORD* cursor, char* base) {
  CDHEADER header;
  if (cursor->offset > cursor->node->value_len) return KVFAIL_BAD_FORMAT;
  if (!KVICDReadHeader(base + cursor->offset, cursor->node->value_len - cursor->offset, &header))
    return KVFAIL_BAD_FORMAT;
  cursor->buffer = base + cursor->offset;
  cursor->signature = header.signature;
  cursor->length = header.length;
  cursor->align = static_cast<uint16_t>(header.length & 1);
  return KVSUCCESS;
}

// Puts a cursor on the first record of a node, which is locked.
uint32_t EnterNode(COMPRECORD* cursor, _COMPNODE* node) {
  char* base = _KVICompNodeLock(node);
  if (base == nullptr) return KVFAIL_INTERNAL;
  cursor->node = node;
  cursor->node_index = 1;
  cursor->offset = 0;
  return ReadAtCursor(cursor, base);
}

// The first node from here on that has records, counted; null behind the last.
uint32_t NodeWithRecords(_COMPNODE* node, _COMPNODE** found) {
  for (; node != nullptr; node = node->next) {
    if (const uint32_t status = _KVICompCount(node)) return status;
    if (node->field_count != 0) break;
  }
  *found = node;
  return KVSUCCESS;
}

// Moves a cursor that is on a record within its node.
uint32_t StepInNode(COMPRECORD* cursor, char* base) {
  cursor->offset += cursor->length + cursor->align;
  ++cursor->node_index;
  return ReadAtCursor(cursor, base);
}

// The cursor gives up its place when it cannot be believed any more.
uint32_t Drop(COMPRECORD* cursor, uint32_t status) {
  if (cursor->node != nullptr) _KVICompNodeUnlock(cursor->node);
  cursor->node = nullptr;
  return status;
}

// The last node, and the number of records before it. The search starts where the last one ended.
uint32_t FindTail(_COMPOSITE* comp) {
  if (comp->tail == nullptr) {
    comp->tail = comp->nodelist;
    comp->tail_base = 0;
  }
  for (;;) {
    if (const uint32_t status = _KVICompCount(comp->tail)) return status;
    if (comp->tail->next == nullptr) return KVSUCCESS;
    comp->tail_base += comp->tail->field_count;
    comp->tail = comp->tail->next;
  }
}

// Behind the last record: a place without a record.
uint32_t GoToEnd(_COMPOSITE* comp) {
  COMPRECORD* cursor = &comp->comprec;
  if (comp->nodelist == nullptr) {
    *cursor = COMPRECORD{};
    return KVSUCCESS;
  }
  if (cursor->node == nullptr || cursor->node->next != nullptr) {
    if (const uint32_t status = FindTail(comp)) return status;
    cursor->node = comp->tail;
    cursor->node_index = 0;
    cursor->comp_index = comp->tail_base;
  }
  _COMPNODE* node = cursor->node;
  char* base = _KVICompNodeLock(node);
  if (base == nullptr) return Drop(cursor, KVFAIL_INTERNAL);
  cursor->comp_index += node->field_count + 1 - cursor->node_index;
  cursor->node_index = node->field_count + 1;
  cursor->offset = node->value_len;
  cursor->buffer = base + node->value_len;
  cursor->signature = 0;
  cursor->length = 0;
  cursor->align = static_cast<uint16_t>(cursor->offset & 1);
  _KVICompNodeUnlock(node);
  return KVSUCCESS;
}

// Finds the node of a record, with base records before it; null behind the last.
uint32_t FindNode(_COMPOSITE* comp, uint32_t index, _COMPNODE** found, uint32_t* base) {
  *base = 0;
  for (_COMPNODE* node = comp->nodelist; node != nullptr; node = node->next) {
    if (const uint32_t status = _KVICompCount(node)) return status;
    if (node->field_count >= index - *base) {
      *found = node;
      return KVSUCCESS;
    }
    *base += node->field_count;
  }
  *found = nullptr;
  return KVSUCCESS;
}

bool LiesAhead(const COMPRECORD& cursor, uint32_t index) {
  if (cursor.node == nullptr || cursor.node_index == 0 || cursor.comp_index > index) return false;
  if (cursor.node_index > cursor.node->field_count) return false;
  return index - cursor.comp_index <= cursor.node->field_count - cursor.node_index;
}

uint32_t GoToRecord(_COMPOSITE* comp, uint32_t index, bool last_ok) {
  COMPRECORD* cursor = &comp->comprec;
  uint32_t skip = 0;
  if (LiesAhead(*cursor, index)) {
    skip = index - cursor->comp_index;
  } else {
    _COMPNODE* node = nullptr;
    uint32_t base = 0;
    if (const uint32_t status = FindNode(comp, index, &node, &base)) return status;
    if (node == nullptr) {
      if (!last_ok || base + 1 != index) return KVFAIL_DATA_UNAVAILABLE;
      return GoToEnd(comp);
    }
    cursor->node = node;
    cursor->node_index = 1;
    cursor->offset = 0;
    skip = index - (base + 1);
  }
  char* base_address = _KVICompNodeLock(cursor->node);
  if (base_address == nullptr) return Drop(cursor, KVFAIL_INTERNAL);
  uint32_t status = ReadAtCursor(cursor, base_address);
  for (; status == KVSUCCESS && skip != 0; --skip) status = StepInNode(cursor, base_address);
  if (status != KVSUCCESS) return Drop(cursor, status);
  cursor->comp_index = index;
  _KVICompNodeUnlock(cursor->node);
  return KVSUCCESS;
}

}  // namespace

// ---- Heads

bool KVICDReadHeader(const char* data, size_t left_bytes, CDHEADER* header) {
  if (left_bytes < 2) return false;
  const uint16_t first_word = ReadWord(data);
  const CDFORM form = FormOf(first_word);
  if (left_bytes < form.header_bytes) return false;
  const uint32_t length = LengthOf(data, first_word, form);
  if (length < form.header_bytes || length > left_bytes) return false;
  const bool has_pad = (length & 1) != 0 && length < left_bytes;
  *header = {form.signature, form.header_bytes, length, has_pad ? length + 1 : length};
  return true;
}

void KVICDGetSigLen(const char* data, uint32_t* plen, uint16_t* psignature) {
  if (plen == nullptr && psignature == nullptr) return;
  const uint16_t first_word = ReadWord(data);
  const CDFORM form = FormOf(first_word);
  if (plen != nullptr) *plen = LengthOf(data, first_word, form);
  if (psignature != nullptr) *psignature = form.signature;
}

// ---- Flat runs and items

bool KVICDNextRecord(CDRUN* run) {
  if (run->left_bytes == 0 || run->is_damaged) return false;
  if (!KVICDReadHeader(run->next, run->left_bytes, &run->header)) {
    run->is_damaged = true;
    return false;
  }
  run->record = run->next;
  run->next += run->header.step;
  run->left_bytes -= run->header.step;
  return true;
}

CDITEMWALK KVICDWalkItems(EngNote note, const char* name, uint16_t name_bytes) {
  CDITEMWALK walk{};
  walk.note = note;
  walk.name = name;
  walk.name_bytes = name_bytes;
  return walk;
}

void KVICDEndWalk(CDITEMWALK* walk) {
  if (walk->is_locked) EngMemUnlock(walk->value.pool);
  walk->is_locked = false;
}

// Goes on to the next item, locked. False behind the last composite item of the row.
static bool NextItem(CDITEMWALK* walk) {
  KVICDEndWalk(walk);
  uint16_t type = 0;
  uint32_t value_bytes = 0;
  walk->brstatus = walk->is_started ? EngItemInfoNext(walk->note, walk->item, walk->name, walk->name_bytes,
                                                      &walk->item, &type, &walk->value, &value_bytes)
                                    : EngItemInfo(walk->note, walk->name, walk->name_bytes, &walk->item,
                                                  &type, &walk->value, &value_bytes);
  walk->is_started = true;
  if (walk->brstatus != 0) return false;
  walk->is_other_type = type != BRTYPE_COMPOSITE;
  if (walk->is_other_type) return false;
  ++walk->item_count;
  walk->run = CDRUN{};
  if (value_bytes <= kTypeWordBytes) return true;
  const auto* start = static_cast<const char*>(EngMemLock(walk->value.pool));
  walk->is_locked = start != nullptr;
  if (!walk->is_locked) return true;
  walk->run.next = start + walk->value.block + kTypeWordBytes;
  walk->run.left_bytes = value_bytes - kTypeWordBytes;
  return true;
}

bool KVICDNextItemRecord(CDITEMWALK* walk) {
  while (!KVICDNextRecord(&walk->run)) {
    walk->is_damaged = walk->run.is_damaged;
    if (walk->is_damaged || walk->is_other_type || walk->brstatus != 0) return false;
    if (!NextItem(walk)) return false;
  }
  return true;
}

uint32_t KVICompositeItemCountBRCD(EngNote nh, const char* szItem, uint16_t wCDSig, uint32_t* pcount) {
  *pcount = 0;
  uint32_t count = 0;
  CDITEMWALK walk = KVICDWalkItems(nh, szItem, KVIItemNameBytes(szItem));
  KVGuard end_walk([&] { KVICDEndWalk(&walk); });
  for (;;) {
    while (KVICDNextItemRecord(&walk))
      if (walk.run.header.signature == wCDSig) ++count;
    if (!walk.is_damaged) break;
    walk.run = CDRUN{};  // the rest of the item is passed over
  }
  if (walk.is_other_type) return KVSUCCESS;
  if (walk.brstatus != kNoSuchItem) return walk.brstatus;
  *pcount = count;
  return KVSUCCESS;
}

uint32_t KVICompositeItemCountFields(EngNote nh, const char* szItem, uint32_t* pcount) {
  uint32_t newer_count = 0;
  uint32_t older_count = 0;
  *pcount = 0;
  if (const uint32_t status = KVICompositeItemCountBRCD(nh, szItem, kCdField, &newer_count)) return status;
  if (const uint32_t status = KVICompositeItemCountBRCD(nh, szItem, kCdFieldPre36, &older_count))
    return status;
  *pcount = newer_count + older_count;
  return KVSUCCESS;
}

// ---- Cursors

uint32_t CompCountFields(_COMPNODE* node) {
  char* base = _KVICompNodeLock(node);
  if (base == nullptr) return KVFAIL_INTERNAL;
  uint32_t count = 0;
  CDRUN run{base, node->value_len};
  while (KVICDNextRecord(&run)) ++count;
  _KVICompNodeUnlock(node);
  if (run.is_damaged) return KVFAIL_BAD_FORMAT;
  node->field_count = count;
  return KVSUCCESS;
}

uint32_t CompRecords(_COMPOSITE* comp, COMPRECORD* comprec) {
  COMPRECORD* cursor = comprec != nullptr ? comprec : &comp->currec;
  if (comp->nodelist == nullptr) return KVFAIL_END_OF_DATA;
  _COMPNODE* node = cursor->node;
  if (node != nullptr && cursor->node_index < node->field_count) {
    char* base = _KVICompNodeLock(node);
    if (base == nullptr) return KVFAIL_INTERNAL;
    if (const uint32_t status = StepInNode(cursor, base)) return Drop(cursor, status);
    ++cursor->comp_index;
    return KVSUCCESS;
  }
  if (node != nullptr) _KVICompNodeUnlock(node);
  _COMPNODE* next = nullptr;
  if (const uint32_t status = NodeWithRecords(node != nullptr ? node->next : comp->nodelist, &next))
    return status;
  if (next == nullptr) return KVFAIL_END_OF_DATA;
  const uint32_t index = node != nullptr ? cursor->comp_index + 1 : 1;
  if (const uint32_t status = EnterNode(cursor, next)) return Drop(cursor, status);
  cursor->comp_index = index;
  return KVSUCCESS;
}

uint32_t CompGetRecord(_COMPOSITE* comp, uint32_t index, int last_ok) {
  if (index == kCompRelease) return Drop(&comp->comprec, KVFAIL_END_OF_DATA);
  if (index != 0) return GoToRecord(comp, index, last_ok != 0);
  return last_ok != 0 ? GoToEnd(comp) : uint32_t{KVFAIL_DATA_UNAVAILABLE};
}

uint32_t _KVICompRecordCount(_COMPOSITE* comp, uint32_t* count) {
  *count = 0;
  uint32_t sum = 0;
  for (_COMPNODE* node = comp->nodelist; node != nullptr; node = node->next) {
    if (const uint32_t status = _KVICompCount(node)) return status;
    sum += node->field_count;
  }
  *count = sum;
  return KVSUCCESS;
}

void _KVICompLoosenCursor(_COMPOSITE* comp) {
  COMPRECORD* cursor = &comp->currec;
  if (cursor->node == nullptr) return;
  _KVICompNodeUnlock(cursor->node);
  const uint32_t index = cursor->comp_index;
  *cursor = COMPRECORD{};
  cursor->comp_index = index;
  comp->currec_stale = 1;
}

uint32_t _KVICompCursorRefresh(COMPRECORD* cursor) {
  char* base = _KVICompNodeLock(cursor->node);
  if (base == nullptr) return KVFAIL_INTERNAL;
  return ReadAtCursor(cursor, base);
}

// ---- Listing

namespace {

// A listing that starts anew forgets where it was.
void ClearListing(_COMPOSITE* comp) {
  if (comp->currec.node != nullptr) _KVICompNodeUnlock(comp->currec.node);
  comp->currec = COMPRECORD{};
  comp->currec_stale = 0;
  comp->current_index = 0;
}

// Puts the listing back on its record after records came or went before it.
uint32_t ResumeListing(_COMPOSITE* comp) {
  COMPRECORD* cursor = &comp->currec;
  uint32_t index = 0;
  if (comp->currec_stale)
    index = comp->current_index != 0 ? comp->current_index : cursor->comp_index;
  else if (cursor->node != nullptr && comp->current_index != cursor->comp_index)
    index = comp->current_index;
  if (index != 0) {
    if (const uint32_t status = CompGetRecord(comp, index, 0)) return status;
    if (cursor->node != nullptr) _KVICompNodeUnlock(cursor->node);
    *cursor = comp->comprec;
    comp->comprec = COMPRECORD{};
  }
  comp->currec_stale = 0;
  return KVSUCCESS;
}

uint32_t Classify(_api_session* session, _COMPOSITE* comp, int32_t* cdtype) {
  *cdtype = 0;
  return _CompData(session, comp->doc, &comp->currec, 0, cdtype, nullptr, nullptr);
}

uint32_t FindNext(_api_session* session, _COMPOSITE* comp, int32_t wanted, int32_t* cdtype) {
  for (;;) {
    if (const uint32_t status = CompRecords(comp, nullptr)) return status;
    if (const uint32_t status = Classify(session, comp, cdtype)) return status;
    if (wanted == 0 || *cdtype == wanted) return KVSUCCESS;
  }
}

uint32_t FindLast(_api_session* session, _COMPOSITE* comp, int32_t wanted, int32_t* cdtype) {
  COMPRECORD last{};
  int32_t found_type = 0;
  uint32_t status;
  while ((status = FindNext(session, comp, wanted, &found_type)) == KVSUCCESS) {
    last = comp->currec;
    *cdtype = found_type;
  }
  if (status != KVFAIL_END_OF_DATA) return status;
  if (last.node == nullptr) return KVFAIL_DATA_UNAVAILABLE;
  comp->currec = last;
  return KVSUCCESS;
}

uint32_t FindCurrent(_api_session* session, _COMPOSITE* comp, int32_t wanted, int32_t* cdtype) {
  if (const uint32_t status = _KVICompCursorRefresh(&comp->currec)) return status;
  if (const uint32_t status = Classify(session, comp, cdtype)) return status;
  return wanted == 0 || *cdtype == wanted ? uint32_t{KVSUCCESS} : uint32_t{KVFAIL_DATA_UNAVAILABLE};
}

}  // namespace

uint32_t KVCDRecordGetCount(uint32_t composite) {
  _api_session* session;
  if (KVIEnter(composite, &session)) return 0;
  _COMPOSITE* comp = _KVIFindComposite(session, composite);
  if (comp == nullptr) {
    KVError(KVFAIL_BAD_COMPOSITE);
    return 0;
  }
  uint32_t count = 0;
  if (const uint32_t status = _KVICompRecordCount(comp, &count)) return KVError(status);
  return count;
}

uint32_t KVCDRecordList(uint32_t composite, int32_t list, int32_t* cdtype, uint32_t* record_index) {
  _api_session* session;
  if (uint32_t status = KVIEnter(composite, &session)) return status;
  if (cdtype == nullptr) return KVError(KVFAIL_NULL_PARAM);
  KVIStoreIf<uint32_t>(record_index, 0);
  _COMPOSITE* comp = _KVIFindComposite(session, composite);
  if (comp == nullptr) return KVError(KVFAIL_BAD_COMPOSITE);
  if (list == KVLIST_PREVIOUS) return KVError(KVFAIL_NO_ACTION);
  if (list < KVLIST_REFRESH || list > KVLIST_CURRENT) return KVError(KVFAIL_BAD_ENUM);
  const auto wanted = KVILoad<int32_t>(cdtype);
  if (wanted != 0 && !_KVICDIsType(wanted)) return KVError(KVFAIL_BAD_ENUM);
  const bool is_restart = list == KVLIST_REFRESH || list == KVLIST_FIRST || list == KVLIST_LAST;
  if (is_restart) ClearListing(comp);
  if (list == KVLIST_CURRENT && comp->currec.node == nullptr && !comp->currec_stale)
    return KVError(KVFAIL_DATA_UNAVAILABLE);
  if (uint32_t status = ResumeListing(comp)) return KVError(status);
  if (list == KVLIST_CURRENT && comp->currec.node == nullptr) return KVError(KVFAIL_DATA_UNAVAILABLE);

  comp->current_index = 0;
  int32_t found_type = 0;
  uint32_t status = KVSUCCESS;
  if (list == KVLIST_CURRENT)
    status = FindCurrent(session, comp, wanted, &found_type);
  else if (list == KVLIST_LAST)
    status = FindLast(session, comp, wanted, &found_type);
  else
    status = FindNext(session, comp, wanted, &found_type);
  if (status != KVSUCCESS) return KVError(status);
  KVIStore<int32_t>(cdtype, found_type);
  comp->current_index = comp->currec.comp_index;
  KVIStoreIf<uint32_t>(record_index, comp->current_index);
  return KVSUCCESS;
}
