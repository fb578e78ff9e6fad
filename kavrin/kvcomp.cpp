// Composite handles: made anew, opened on an item, copied, merged, closed.
//
// (1) Opening copies nothing: each item becomes a node over the engine's own value. (2) A composite cannot
// outlive its document. (3) What can fail is done before anything changes, so that a failing call leaves
// composites and items as they were. (4) A composite without a name is never written.
#include <strings.h>

#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint32_t kShortNameMax = 33;
constexpr uint32_t kNameMax = 64;

void FreeUnlisted(_COMPOSITE* comp) {
  _KVICompNodesFree(comp->nodelist);
  KVIFree(comp->itemname);
  KVIFree(comp);
}

// The format of the field that the form in force has for a name; null without a name or a form.
uint32_t FormatOf(_DOCUMENT* doc, const char* itemname, const FORMAT** format) {
  *format = nullptr;
  if (KVIEmpty(itemname)) return KVSUCCESS;
  int32_t form_type = 0;
  FORMAT* field_format = nullptr;
  FIELDSPEC* fieldspec = nullptr;
  if (const uint32_t status =
          GetItemTypeInfo(doc->form, itemname, nullptr, &form_type, nullptr, &field_format, &fieldspec))
    return status;
  *format = field_format;
  return KVSUCCESS;
}

// A new composite of a document takes over a chain of nodes, and replaces what is stored and open under its
// name. On failure the nodes are freed.
uint32_t AddNew(_api_session* session, _DOCUMENT* doc, const char* itemname, const FORMAT* format,
                _COMPNODE* nodes, _COMPOSITE** added) {
  auto* comp = KVIAllocate<_COMPOSITE>();
  if (comp == nullptr) {
    _KVICompNodesFree(nodes);
    return KVFAIL_NO_MEMORY;
  }
  KVGuard free_comp([&] { FreeUnlisted(comp); });
  comp->doc = doc;
  comp->nodelist = nodes;
  comp->format = format;
  comp->dirty = 1;
  if (!KVIEmpty(itemname)) {
    comp->itemname = KVICopyText(itemname, std::strlen(itemname));
    if (comp->itemname == nullptr) return KVFAIL_NO_MEMORY;
  }
  uint32_t number = 0;
  if (const uint32_t status = _AddComposite(session, comp, &number)) return status;
  free_comp.Dismiss();  // owned by the session from here
  doc->dirty = 1;
  if (comp->itemname != nullptr) _CompDeleteItem(session, doc, comp->itemname, comp->composite);
  *added = comp;
  return KVSUCCESS;
}

}  // namespace

// ---- What documents and items do with composites

uint32_t _CompStore(_api_session* session, _DOCUMENT* doc, _COMPOSITE* comp) {
  if (!comp->dirty) return KVSUCCESS;
  if (comp->itemname == nullptr) return KVSUCCESS;
  return _CompConvert(session, doc, KVTYPE_COMPOSITE, sizeof comp->composite, comp, KVTYPE_COMPOSITE, 0,
                      nullptr, nullptr, comp->itemname, KVCONV_WRITE, nullptr);
}

void _CompFree(_api_session* session, _COMPOSITE* comp) {
  for (_COMPOSITE** link = &comp->doc->complist; *link != nullptr; link = &(*link)->docnext)
    if (*link == comp) {
      *link = comp->docnext;
      break;
    }
  _KVIUnlinkComposite(session, comp);
  FreeUnlisted(comp);
}

uint32_t _CompDeleteItem(_api_session* session, _DOCUMENT* doc, const char* itemname, uint32_t no_delete) {
  for (_COMPOSITE* comp = doc->complist; comp != nullptr; comp = comp->docnext) {
    if (comp->itemname == nullptr || comp->composite == no_delete) continue;
    if (strcasecmp(comp->itemname, itemname) != 0) continue;
    _CompFree(session, comp);
    break;
  }
  if (_DeleteItemPrep(session, doc, itemname, KVIItemNameBytes(itemname)) == KVSUCCESS)
    _DeleteItem(session, doc, nullptr, 0);
  return KVSUCCESS;
}

// ---- Handles

uint32_t KVCompositeCreate(uint32_t document, const char* itemname, uint32_t* composite) {
  _api_session* session;
  if (uint32_t status = KVIEnter(document, &session)) return status;
  if (composite == nullptr) return KVError(KVFAIL_NULL_PARAM);
  KVIStore<uint32_t>(composite, 0);
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  const FORMAT* format = nullptr;
  if (uint32_t status = FormatOf(doc, itemname, &format)) return KVError(status);
  _COMPOSITE* comp = nullptr;
  if (uint32_t status = AddNew(session, doc, itemname, format, nullptr, &comp)) return KVError(status);
  comp->composite |= _KVISessionBits(session);
  session->hmruCOMP = comp->composite;
  KVIStore<uint32_t>(composite, comp->composite);
  return KVSUCCESS;
}

uint32_t KVCompositeOpen(uint32_t document, const char* itemname, uint32_t* composite) {
  _api_session* session;
  if (uint32_t status = KVIEnter(document, &session)) return status;
  if (composite == nullptr) return KVError(KVFAIL_NULL_PARAM);
  KVIStore<uint32_t>(composite, 0);
  if (KVIEmpty(itemname)) return KVError(KVFAIL_NULL_PARAM);
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  int32_t form_type = 0;
  FORMAT* format = nullptr;
  FIELDSPEC* fieldspec = nullptr;
  if (uint32_t status =
          GetItemTypeInfo(doc->form, itemname, nullptr, &form_type, nullptr, &format, &fieldspec))
    return KVError(status);
  if (form_type != KVTYPE_NONE && form_type != KVTYPE_COMPOSITE) return KVError(KVFAIL_BAD_COMPOSITE);
  ItemPlace place;
  if (uint32_t status =
          GetItemInfo(doc, itemname, KVIItemNameBytes(itemname), KVTYPE_COMPOSITE, fieldspec, &place))
    return KVError(status);
  KVGuard free_place([&] {
    if (place.free_value) EngMemFree(place.value.pool);
  });
  uint32_t handle = 0;
  {
    constexpr uint32_t kTypeWordBytes = 2;
    const KVLocked value(place.value.pool, place.value.block);
    if (value.bytes == nullptr || place.length < kTypeWordBytes) return KVError(KVFAIL_INTERNAL);
    // The walk over the items is part of the conversion, with the first one's value held meanwhile.
    if (uint32_t status = _DataConvert(session, nullptr, doc, KVTYPE_COMPOSITE, place.length - kTypeWordBytes,
                                       value.bytes + kTypeWordBytes, KVCONV_LINES, itemname, nullptr,
                                       KVTYPE_COMPOSITE, 0, &handle, nullptr))
      return KVError(status);
  }
  KVIStore<uint32_t>(composite, handle | _KVISessionBits(session));
  return KVSUCCESS;
}

uint32_t KVCompositeClose(uint32_t composite, uint32_t compwrite_flags) {
  _api_session* session;
  if (uint32_t status = KVIEnter(composite, &session)) return status;
  _COMPOSITE* comp = _KVIFindComposite(session, composite);
  if (comp == nullptr) return KVError(KVFAIL_BAD_COMPOSITE);
  if ((compwrite_flags & KVCOMPWRITE_DISCARD) == 0 && comp->dirty && comp->itemname != nullptr) {
    (void)KVICompSynchHotspots(comp);  // what it cannot walk is written as it is, or refused there
    if (uint32_t status = _CompStore(session, comp->doc, comp)) return KVError(status);
  }
  _CompFree(session, comp);
  return KVSUCCESS;
}

uint32_t KVCompositeGetProperty(uint32_t composite, int32_t property, void* value) {
  _api_session* session;
  if (uint32_t status = KVIEnter(composite, &session)) return status;
  if (value == nullptr) return KVError(KVFAIL_NULL_PARAM);
  const _COMPOSITE* comp = _KVIFindComposite(session, composite);
  if (comp == nullptr) return KVError(KVFAIL_BAD_COMPOSITE);
  switch (property) {
    case KVPROP_COMPOSITE_ITEMNAME:
      KVIstrnncpy(static_cast<char*>(value), comp->itemname != nullptr ? comp->itemname : "",
                  session->kvprog_version < kVersionLongNames ? kShortNameMax : kNameMax);
      return KVSUCCESS;
    case KVPROP_COMPOSITE_DIRTY:
      KVIStore<int32_t>(value, comp->dirty);
      return KVSUCCESS;
    case KVPROP_COMPOSITE_DOCUMENT:
      KVIStore<uint32_t>(value, comp->doc->document);
      return KVSUCCESS;
    case KVPROP_COMPOSITE_DATABASE:
      KVIStore<uint32_t>(value, comp->doc->dbase->database);
      return KVSUCCESS;
    default:
      return KVError(KVFAIL_BAD_PROPERTY);
  }
}

// ---- Copies

uint32_t KVCompositeCopy(uint32_t src_composite, uint32_t dest_document, const char* dest_itemname,
                         uint32_t* dest_composite) {
  _api_session* session;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  if (dest_composite == nullptr) return KVError(KVFAIL_NULL_PARAM);
  KVIStore<uint32_t>(dest_composite, 0);
  const _COMPOSITE* src = _KVIFindComposite(session, src_composite);
  if (src == nullptr) return KVError(KVFAIL_BAD_COMPOSITE);
  _DOCUMENT* doc = _KVIFindDocument(session, dest_document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  const FORMAT* format = nullptr;
  if (uint32_t status = FormatOf(doc, dest_itemname, &format)) return KVError(status);
  // Copied before anything is replaced: the source may be open on the very item that goes.
  _COMPNODE* nodes = nullptr;
  if (uint32_t status = _KVICompNodesCopy(src, &nodes)) return KVError(status);
  _COMPOSITE* comp = nullptr;
  if (uint32_t status = AddNew(session, doc, dest_itemname, format, nodes, &comp)) return KVError(status);
  KVIStore<uint32_t>(dest_composite, comp->composite);
  return KVSUCCESS;
}

namespace {

// Bytes and records of one node that a range of records takes.
struct Share {
  uint32_t offset;
  uint32_t value_len;
  uint32_t field_count;
};

// What the range takes of its first node, where the cursor stands.
uint32_t ShareOfFirst(_COMPOSITE* src, uint32_t record_index, uint32_t left_count, Share* share) {
  const COMPRECORD& cursor = src->comprec;
  share->offset = cursor.offset;
  share->value_len = cursor.node->value_len - cursor.offset;
  share->field_count = cursor.node->field_count - (cursor.node_index - 1);
  if (share->field_count <= left_count) return KVSUCCESS;
  if (const uint32_t status = CompGetRecord(src, record_index + left_count, 1)) return status;
  share->value_len = cursor.offset - share->offset;
  share->field_count = left_count;
  return KVSUCCESS;
}

// What it takes of a later one.
uint32_t ShareOfLater(_COMPOSITE* src, const _COMPNODE* node, uint32_t behind_index, uint32_t left_count,
                      Share* share) {
  *share = {0, node->value_len, node->field_count};
  if (node->field_count <= left_count) return KVSUCCESS;
  if (CompGetRecord(src, behind_index, 1) != KVSUCCESS)
    if (const uint32_t status = CompGetRecord(src, 0, 1)) return status;
  share->value_len = src->comprec.offset;
  share->field_count = src->comprec.node_index - 1;
  return KVSUCCESS;
}

// Private copies of a range of records; the cursor stands on the first one.
uint32_t CopyRange(_COMPOSITE* src, uint32_t record_index, uint32_t record_count, _COMPNODE** copies) {
  _COMPNODE* head = nullptr;
  _COMPNODE** link = &head;
  KVGuard free_copies([&] { _KVICompNodesFree(head); });
  uint32_t left_count = record_count;
  for (_COMPNODE* node = src->comprec.node; node != nullptr && left_count != 0; node = node->next) {
    if (const uint32_t status = _KVICompCount(node)) return status;
    Share share{};
    if (const uint32_t status =
            head == nullptr ? ShareOfFirst(src, record_index, left_count, &share)
                            : ShareOfLater(src, node, record_index + record_count, left_count, &share))
      return status;
    uint32_t status = KVSUCCESS;
    *link = _KVICompNodeCopy(node, share.offset, share.value_len, share.field_count, &status);
    if (status != KVSUCCESS) return status;
    link = &(*link)->next;
    left_count -= share.field_count;
  }
  free_copies.Dismiss();
  *copies = head;
  return KVSUCCESS;
}

}  // namespace

uint32_t KVCompositeCopySubset(uint32_t src_composite, uint32_t record_index, uint32_t record_count,
                               uint32_t dest_document, const char* dest_itemname, uint32_t* dest_composite) {
  _api_session* session;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  if (dest_composite == nullptr) return KVError(KVFAIL_NULL_PARAM);
  KVIStore<uint32_t>(dest_composite, 0);
  _COMPOSITE* src = _KVIFindComposite(session, src_composite);
  if (src == nullptr) return KVError(KVFAIL_BAD_COMPOSITE);
  _DOCUMENT* doc = _KVIFindDocument(session, dest_document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  const FORMAT* format = nullptr;
  if (uint32_t status = FormatOf(doc, dest_itemname, &format)) return KVError(status);
  if (uint32_t status = CompGetRecord(src, record_index, 0)) return KVError(status);
  _COMPNODE* nodes = nullptr;
  if (uint32_t status = CopyRange(src, record_index, record_count, &nodes)) return KVError(status);
  _COMPOSITE* comp = nullptr;
  if (uint32_t status = AddNew(session, doc, dest_itemname, format, nodes, &comp)) return KVError(status);
  KVIStore<uint32_t>(dest_composite, comp->composite);
  return KVSUCCESS;
}

// ---- Merging

namespace {

// Which of the inserted paragraph styles get other numbers.
struct Renumbering {
  uint32_t max_pabid;  // 0: none
  uint32_t first_index;
  uint32_t record_count;
};

uint32_t PlanRenumbering(_COMPOSITE* main_comp, uint32_t record_index, _COMPOSITE* add_comp,
                         Renumbering* plan) {
  (void)KVICompGetMaxPABID(main_comp, 1, &plan->max_pabid);
  if (plan->max_pabid == 0) return KVSUCCESS;
  plan->first_index = record_index;
  if (record_index == 0) {
    uint32_t main_count = 0;
    if (const uint32_t status = _KVICompRecordCount(main_comp, &main_count)) return status;
    plan->first_index = main_count + 1;
  }
  return _KVICompRecordCount(add_comp, &plan->record_count);
}

// The listing's number, and the cursor's, go on by the records from prevnode up to nextnode: those of
// prevnode count as well, and none do at the head. Applications rely on where a listing continues after a
// merge.
uint32_t MoveListing(_COMPOSITE* comp, uint32_t record_index, _COMPNODE* prevnode,
                     const _COMPNODE* nextnode) {
  COMPRECORD* cursor = &comp->comprec;
  const bool moves_listing =
      record_index != 0 && comp->current_index != 0 && comp->current_index >= record_index;
  const bool moves_cursor = cursor->node != nullptr && cursor->comp_index >= record_index;
  if (!moves_listing && !moves_cursor) return KVSUCCESS;
  uint32_t count = 0;
  for (_COMPNODE* node = prevnode; node != nullptr && node != nextnode; node = node->next) {
    if (const uint32_t status = _KVICompCount(node)) return status;
    count += node->field_count;
  }
  if (comp->current_index != 0 && comp->current_index >= record_index) comp->current_index += count;
  if (moves_cursor) cursor->comp_index += count;
  return KVSUCCESS;
}

// A listing that has come to its end has no number any more, but goes on behind the same record.
void KeepEndedListing(_COMPOSITE* comp, uint32_t record_index, _COMPNODE* copies) {
  if (!comp->currec_stale || comp->current_index != 0 || record_index == 0) return;
  if (comp->currec.comp_index < record_index) return;
  for (_COMPNODE* node = copies; node != nullptr; node = node->next)
    if (_KVICompCount(node) == KVSUCCESS) comp->currec.comp_index += node->field_count;
}

uint32_t InsertCopies(_COMPOSITE* main_comp, uint32_t record_index, const _COMPOSITE* add_comp) {
  if (const uint32_t status = CompGetRecord(main_comp, record_index, 1)) return status;
  _COMPNODE* copies = nullptr;
  if (const uint32_t status = _KVICompNodesCopy(add_comp, &copies)) return status;
  _COMPNODE* prevnode = nullptr;
  if (const uint32_t status = CompSplit(main_comp, &prevnode)) {
    _KVICompNodesFree(copies);
    return status;
  }
  main_comp->dirty = 1;
  main_comp->doc->dirty = 1;
  _KVICompLoosenCursor(main_comp);
  KeepEndedListing(main_comp, record_index, copies);
  main_comp->tail = nullptr;
  const _COMPNODE* nextnode = _KVICompNodeBehind(main_comp, prevnode);
  _KVICompLink(main_comp, prevnode, copies);
  const uint32_t status = MoveListing(main_comp, record_index, prevnode, nextnode);
  // A number that went on by more than the inserted records names no place: the next access starts anew.
  (void)CompGetRecord(main_comp, kCompRelease, 0);
  return status;
}

}  // namespace

uint32_t KVCompositeMerge(uint32_t main_composite, uint32_t record_index, uint32_t add_composite) {
  _api_session* session;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  _COMPOSITE* add_comp = _KVIFindComposite(session, add_composite);
  if (add_comp == nullptr) return KVError(KVFAIL_BAD_COMPOSITE);
  _COMPOSITE* main_comp = _KVIFindComposite(session, main_composite);
  if (main_comp == nullptr) return KVError(KVFAIL_BAD_COMPOSITE);
  if (main_comp == add_comp) return KVError(KVFAIL_NAME_IN_USE);
  if (add_comp->nodelist == nullptr) return KVSUCCESS;
  Renumbering plan{};
  if (uint32_t status = PlanRenumbering(main_comp, record_index, add_comp, &plan)) return KVError(status);
  if (uint32_t status = InsertCopies(main_comp, record_index, add_comp)) return KVError(status);
  if (plan.max_pabid == 0) return KVSUCCESS;
  if (uint32_t status =
          KVICompMovePABIDs(main_comp, plan.first_index, plan.record_count, plan.max_pabid, nullptr))
    return KVError(status);
  return KVSUCCESS;
}
