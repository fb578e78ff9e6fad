// Records of composites by number: told, read, inserted, replaced, deleted.
//
// (1) A record is made whole before the composite changes. (2) Each change of nodes otherwise than at the end
// loosens the listing cursor first and forgets where the last node was. (3) Records that are appended go into
// one growth block until it is full.
#include "brynd.h"
#include "kavrin.h"
#include "kvcomp.h"
#include "kvint.h"

namespace {

// A text without a character that is cut off at its end, and without one line end there.
uint32_t RevisedLength(const KVCDTEXT& text) {
  uint32_t length = text.length;
  ReviseSplitCharacter(&length, static_cast<const void*>(text.buffer));
  const auto is_line_end = [&](uint32_t back) {
    return length >= back && (text.buffer[length - back] == '\r' || text.buffer[length - back] == '\n');
  };
  if (!is_line_end(1)) return length;
  const bool is_pair = is_line_end(2) && text.buffer[length - 1] != text.buffer[length - 2];
  return length - (is_pair ? 2 : 1);
}

// Makes the stored record. The caller's text keeps its length, whatever of it is stored.
uint32_t CreateRecord(_api_session* session, _COMPOSITE* comp, int32_t cdtype, void* cdrecord,
                      _COMPNODE** compnode) {
  if (cdtype != KVCDTYPE_TEXT || cdrecord == nullptr)
    return _CompCreate(session, comp, cdtype, cdrecord, compnode);
  auto text = KVILoad<KVCDTEXT>(cdrecord);
  if (text.buffer != nullptr) text.length = RevisedLength(text);
  const uint32_t status = _CompCreate(session, comp, cdtype, &text, compnode);
  KVIStore<KVFONTSTYLE>(cdrecord, text.font);
  return status;
}

bool IsAtEnd(const COMPRECORD& cursor) {
  return cursor.node == nullptr ||
         (cursor.node->next == nullptr && cursor.node->field_count < cursor.node_index);
}

void MarkDirty(_COMPOSITE* comp) {
  comp->dirty = 1;
  comp->doc->dirty = 1;
}

// Takes bytes of whole records from the front of a node.
void CutFront(_COMPNODE* node, uint32_t bytes, uint32_t record_count) {
  node->value_len -= bytes;
  node->value_offset += bytes;
  node->field_count -= record_count;
}

void RemoveNode(_COMPOSITE* comp, _COMPNODE* prevnode, _COMPNODE* node) {
  _KVICompUnlink(comp, prevnode, node);
  _KVICompNodeFree(node);
}

// The record at a number, as the caller wants it.
uint32_t ReadRecord(uint32_t composite, uint32_t record_index, int direct, int32_t* cdtype,
                    uint32_t* buffer_length, void* cdrecord) {
  _api_session* session;
  if (uint32_t status = KVIEnter(composite, &session)) return status;
  int32_t found_type = cdtype != nullptr ? KVILoad<int32_t>(cdtype) : 0;
  KVIStoreIf<int32_t>(cdtype, 0);
  KVIStoreIf<uint32_t>(buffer_length, 0);
  _COMPOSITE* comp = _KVIFindComposite(session, composite);
  if (comp == nullptr) return KVError(KVFAIL_BAD_COMPOSITE);
  if (found_type != 0 && !_KVICDIsType(found_type)) return KVError(KVFAIL_BAD_ENUM);
  if (uint32_t status = CompGetRecord(comp, record_index, 0)) return KVError(status);
  uint32_t length = 0;
  if (uint32_t status = _CompData(session, comp->doc, &comp->comprec, direct, &found_type, &length, cdrecord))
    return KVError(status);
  KVIStoreIf<int32_t>(cdtype, found_type);
  KVIStoreIf<uint32_t>(buffer_length, length);
  return KVSUCCESS;
}

// Deletes records from the node behind prevnode on, until none of the range is left.
uint32_t DeleteRange(_COMPOSITE* comp, _COMPNODE* prevnode, uint32_t record_index, uint32_t record_count) {
  uint32_t left_count = record_count;
  while (_COMPNODE* node = left_count != 0 ? _KVICompNodeBehind(comp, prevnode) : nullptr) {
    if (const uint32_t status = _KVICompCount(node)) return status;
    if (node->field_count <= left_count) {
      left_count -= node->field_count;
      RemoveNode(comp, prevnode, node);
      continue;
    }
    if (const uint32_t status = CompGetRecord(comp, record_index + left_count, 1)) return status;
    CutFront(node, comp->comprec.offset, comp->comprec.node_index - 1);
    left_count = 0;
  }
  return KVSUCCESS;
}

}  // namespace

uint32_t KVCDRecordGetInfo(uint32_t composite, uint32_t record_index, int32_t* cdtype,
                           uint32_t* buffer_length) {
  return ReadRecord(composite, record_index, 0, cdtype, buffer_length, nullptr);
}

uint32_t KVCDRecordFetch(uint32_t composite, uint32_t record_index, int32_t* cdtype, void* cdrecord) {
  return ReadRecord(composite, record_index, 0, cdtype, nullptr, cdrecord);
}

uint32_t KVCDRecordGetPointer(uint32_t composite, uint32_t record_index, int32_t* cdtype, void* cdrecord) {
  return ReadRecord(composite, record_index, 1, cdtype, nullptr, cdrecord);
}

uint32_t KVCDRecordInsert(uint32_t composite, uint32_t record_index, int32_t cdtype, void* cdrecord) {
  _api_session* session;
  if (uint32_t status = KVIEnter(composite, &session)) return status;
  _COMPOSITE* comp = _KVIFindComposite(session, composite);
  if (comp == nullptr) return KVError(KVFAIL_BAD_COMPOSITE);
  if (uint32_t status = CompGetRecord(comp, record_index, 1)) return KVError(status);
  const bool is_at_end = IsAtEnd(comp->comprec);
  _COMPNODE* candidate = is_at_end ? comp->comprec.node : nullptr;
  _COMPNODE* compnode = candidate;
  if (uint32_t status = CreateRecord(session, comp, cdtype, cdrecord, &compnode)) return KVError(status);
  if (compnode != candidate) {
    _COMPNODE* prevnode = nullptr;
    if (uint32_t status = CompSplit(comp, &prevnode)) {
      _KVICompNodeFree(compnode);
      return KVError(status);
    }
    _KVICompLink(comp, prevnode, compnode);
  }
  MarkDirty(comp);
  // At the end too: a merge may have moved the number of a listing beyond it.
  if (record_index != 0 && comp->current_index >= record_index) ++comp->current_index;
  // The cursor stays on the place of an appended record, whose number is the cursor's own.
  if (is_at_end) return KVSUCCESS;
  _KVICompLoosenCursor(comp);
  comp->tail = nullptr;
  if (comp->currec_stale && comp->currec.comp_index >= record_index) ++comp->currec.comp_index;
  if (comp->comprec.comp_index >= record_index) ++comp->comprec.comp_index;
  return KVSUCCESS;
}

uint32_t KVCDRecordUpdate(uint32_t composite, uint32_t record_index, int32_t cdtype, void* cdrecord) {
  _api_session* session;
  if (uint32_t status = KVIEnter(composite, &session)) return status;
  _COMPOSITE* comp = _KVIFindComposite(session, composite);
  if (comp == nullptr) return KVError(KVFAIL_BAD_COMPOSITE);
  if (uint32_t status = CompGetRecord(comp, record_index, 0)) return KVError(status);
  _COMPNODE* compnode = nullptr;
  if (uint32_t status = CreateRecord(session, comp, cdtype, cdrecord, &compnode)) return KVError(status);
  const uint32_t old_bytes = comp->comprec.length + comp->comprec.align;
  _COMPNODE* prevnode = nullptr;
  if (uint32_t status = CompSplit(comp, &prevnode)) {
    _KVICompNodeFree(compnode);
    return KVError(status);
  }
  MarkDirty(comp);
  _KVICompLoosenCursor(comp);
  comp->tail = nullptr;
  (void)CompGetRecord(comp, kCompRelease, 0);
  _KVICompLink(comp, prevnode, compnode);
  _COMPNODE* old_node = compnode->next;
  if (old_node->field_count == 1)
    RemoveNode(comp, compnode, old_node);
  else
    CutFront(old_node, old_bytes, 1);
  return KVSUCCESS;
}

uint32_t KVCDRecordDelete(uint32_t composite, uint32_t record_index, uint32_t record_count) {
  _api_session* session;
  if (uint32_t status = KVIEnter(composite, &session)) return status;
  if (record_count == 0) return KVError(KVFAIL_NO_ACTION);
  _COMPOSITE* comp = _KVIFindComposite(session, composite);
  if (comp == nullptr) return KVError(KVFAIL_BAD_COMPOSITE);
  if (uint32_t status = CompGetRecord(comp, record_index, 0)) return KVError(status);
  _COMPNODE* prevnode = nullptr;
  if (uint32_t status = CompSplit(comp, &prevnode)) return KVError(status);
  MarkDirty(comp);
  _KVICompLoosenCursor(comp);
  comp->tail = nullptr;
  (void)CompGetRecord(comp, kCompRelease, 0);
  const uint32_t status = DeleteRange(comp, prevnode, record_index, record_count);
  (void)CompGetRecord(comp, kCompRelease, 0);
  if (status != KVSUCCESS) return KVError(status);
  // The count as it was given, also when fewer records were left.
  if (comp->current_index >= record_index) comp->current_index -= record_count;
  uint32_t* ended_index = &comp->currec.comp_index;
  if (comp->currec_stale && *ended_index >= record_index)
    *ended_index =
        *ended_index - record_index < record_count ? record_index - 1 : *ended_index - record_count;
  return KVSUCCESS;
}
