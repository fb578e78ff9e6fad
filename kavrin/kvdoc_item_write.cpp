// Writing items: put, append to a list, copy between documents, delete.
//
// A failing write leaves `dirty` alone; once something has changed in the open note it is set.
#include <strings.h>

#include <cstring>

#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kNoSuchItem = 0x222;
constexpr uint16_t kTypeComposite = 1;
constexpr uint16_t kTypeObject = 3;
constexpr uint32_t kAppendedTextBytesMax = 65500;  // of text that goes into a list item
constexpr char kAttachmentName[] = "$FILE";
constexpr uint16_t kAttachmentNameBytes = 5;
constexpr uint32_t kPutMode = KVCONV_WRITE | KVCONV_SRC_TERMINATED | KVCONV_REPLACE;
static_assert(kPutMode == 0x15000000);

bool Fits(uint16_t type_word, int32_t form_type) {
  return form_type == 0 || implicit_convert[GetKVType(type_word)][form_type] != 0;
}

// Length of the first item's value; 0 without one.
uint16_t ValueBytesOf(const _DOCUMENT* doc, const char* itemname, uint32_t* value_bytes) {
  *value_bytes = 0;
  return EngItemInfo(doc->notehand, itemname, KVIItemNameBytes(itemname), nullptr, nullptr, nullptr,
                     value_bytes);
}

// What both documents of a copy demand of an item.
struct CopyTypes {
  int32_t form_type;
  int32_t dest_type;
};

uint32_t FormTypeOf(_DOCUMENT* doc, const char* itemname, int32_t* form_type) {
  *form_type = 0;
  if (doc->form == nullptr) return KVSUCCESS;
  FORMAT* format;
  FIELDSPEC* fieldspec;
  return GetItemTypeInfo(doc->form, itemname, nullptr, form_type, nullptr, &format, &fieldspec);
}

uint32_t CountItems(const _DOCUMENT* doc, const char* itemname, uint16_t namelen) {
  uint32_t item_count = 0;
  BLOCKID item;
  uint16_t brstatus = EngItemInfo(doc->notehand, itemname, namelen, &item, nullptr, nullptr, nullptr);
  for (; !brstatus; ++item_count)
    brstatus = EngItemInfoNext(doc->notehand, item, itemname, namelen, &item, nullptr, nullptr, nullptr);
  return item_count;
}

// Copies the first item that fits, or all items of a composite. *end_status holds the engine's word that
// ended the walk.
uint32_t CopyFitting(_DOCUMENT* src_doc, _DOCUMENT* dest_doc, const char* itemname, const CopyTypes& types,
                     uint32_t* copied_count, uint16_t* end_status) {
  const uint16_t namelen = KVIItemNameBytes(itemname);
  // Within one note the copies stand behind their sources: a walk without an end would copy them again.
  uint32_t left_count =
      src_doc->notehand == dest_doc->notehand ? CountItems(src_doc, itemname, namelen) : UINT32_MAX;
  BLOCKID item;
  uint16_t type_word = 0;
  *copied_count = 0;
  *end_status = EngItemInfo(src_doc->notehand, itemname, namelen, &item, &type_word, nullptr, nullptr);
  while (!*end_status && left_count-- != 0) {
    if (Fits(type_word, types.form_type) && Fits(type_word, types.dest_type)) {
      if (uint16_t brstatus = EngItemCopy(dest_doc->notehand, item)) return brstatus;
      dest_doc->dirty = 1;
      ++*copied_count;
      if (type_word != kTypeComposite) return KVSUCCESS;
    }
    *end_status =
        EngItemInfoNext(src_doc->notehand, item, itemname, namelen, &item, &type_word, nullptr, nullptr);
  }
  return KVSUCCESS;
}

bool IsAttachment(const _DOCUMENT* doc, const char* itemname) {
  if (strncmp(itemname, kAttachmentName, kAttachmentNameBytes) != 0) return false;
  uint16_t type_word = 0;
  return EngItemInfo(doc->notehand, kAttachmentName, kAttachmentNameBytes, nullptr, &type_word, nullptr,
                     nullptr) == 0 &&
         type_word == kTypeObject;
}

// An open composite on an item that goes away goes with it.
void ReleaseComposite(_api_session* session, _DOCUMENT* doc, const char* itemname) {
  for (_COMPOSITE* comp = doc->complist; comp != nullptr; comp = comp->docnext) {
    if (comp->itemname == nullptr || strcasecmp(comp->itemname, itemname) != 0) continue;
    _CompFree(session, comp);
    return;
  }
}

}  // namespace

uint32_t KVItemPut(uint32_t document, const char* itemname, int32_t item_type, uint32_t buffer_length,
                   int32_t buffer_type, const void* buffer, uint32_t item_flags) {
  _api_session* session;
  if (uint32_t status = KVIEnter(document, &session)) return status;
  if (KVIEmpty(itemname)) return KVError(KVFAIL_NULL_PARAM);
  if (buffer == nullptr) return KVError(KVFAIL_NULL_PARAM);
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  if (buffer_type == KVTYPE_TEXT && buffer_length != 0) {
    ReviseSplitCharacter(&buffer_length, buffer);
    if (buffer_length == 0) return KVError(KVFAIL_DATA_UNAVAILABLE);
  }
  int32_t form_type;
  FORMAT* format;
  FIELDSPEC* fieldspec;
  if (uint32_t status =
          GetItemTypeInfo(doc->form, itemname, &item_type, &form_type, nullptr, &format, &fieldspec))
    return KVError(status);
  if (form_type == 0 && buffer_type != 0) form_type = buffer_type;
  item_flags &= KVITEMFLAG_MASK;
  // On an item that no form rules the caller's flags are the item's flags.
  if (fieldspec == nullptr && item_flags != 0) item_flags |= KVITEMFLAG_REPLACE_ALL;
  if (fieldspec != nullptr && (fieldspec->flags & KVFIELD_KIND_MASK) == KVFIELD_KIND_DISPLAY)
    return KVSUCCESS;
  if (uint32_t status = _DataConvert(session, doc->dbase, doc, static_cast<uint32_t>(buffer_type),
                                     buffer_length, buffer, item_flags | kPutMode, itemname, format,
                                     static_cast<uint32_t>(form_type), 0, nullptr, nullptr))
    return KVError(status);
  doc->dirty = 1;
  return KVSUCCESS;
}

uint32_t KVItemAppendTextList(uint32_t document, const char* itemname, const char* text, uint32_t length,
                              int32_t allow_duplicate) {
  _api_session* session;
  if (uint32_t status = KVIEnter(document, &session)) return status;
  if (KVIEmpty(itemname)) return KVError(KVFAIL_NULL_PARAM);
  if (KVIEmpty(text)) return KVError(KVFAIL_NULL_PARAM);
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  if (length != 0) {
    ReviseSplitCharacter(&length, text);
    if (length == 0) return KVError(KVFAIL_DATA_UNAVAILABLE);
  }
  int32_t form_type;
  FORMAT* format;
  FIELDSPEC* fieldspec;
  if (uint32_t status =
          GetItemTypeInfo(doc->form, itemname, nullptr, &form_type, nullptr, &format, &fieldspec))
    return KVError(status);
  if (form_type != 0 && form_type != KVTYPE_TEXT && form_type != KVTYPE_TEXTLIST)
    return KVError(KVFAIL_NO_ITEM);
  const size_t text_bytes = length != 0 ? length : strlen(text);
  if (text_bytes > kAppendedTextBytesMax) return KVError(KVFAIL_DATA_TOO_LONG);

  uint32_t before_bytes = 0;
  if (!allow_duplicate) (void)ValueBytesOf(doc, itemname, &before_bytes);
  // The engine tells a duplicate by no status, and its status is not looked at: the value's length tells.
  (void)EngItemTextListAppend(doc->notehand, itemname, text, static_cast<uint16_t>(text_bytes),
                              allow_duplicate ? 1 : 0);
  if (!allow_duplicate) {
    uint32_t after_bytes;
    if (uint16_t brstatus = ValueBytesOf(doc, itemname, &after_bytes)) return KVError(brstatus);
    if (after_bytes == before_bytes) return KVError(KVFAIL_NAME_IN_USE);
  }
  doc->dirty = 1;
  return KVSUCCESS;
}

uint32_t KVItemCopy(uint32_t src_document, const char* itemname, uint32_t dest_document) {
  _api_session* session;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  if (KVIEmpty(itemname)) return KVError(KVFAIL_NULL_PARAM);
  _DOCUMENT* dest_doc = _KVIFindDocument(session, dest_document);
  if (dest_doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  _DOCUMENT* src_doc = _KVIFindDocument(session, src_document);
  if (src_doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  CopyTypes types;
  if (uint32_t status = FormTypeOf(src_doc, itemname, &types.form_type)) return KVError(status);
  if (uint32_t status = FormTypeOf(dest_doc, itemname, &types.dest_type)) return KVError(status);
  if (uint32_t status = _DeleteItemPrep(session, dest_doc, itemname, KVIItemNameBytes(itemname)))
    return KVError(status);
  KVGuard drop_list([&] { _DropDeleteList(session); });

  uint32_t copied_count;
  uint16_t end_status;
  if (uint32_t status = CopyFitting(src_doc, dest_doc, itemname, types, &copied_count, &end_status))
    return KVError(status);
  if (copied_count == 0) return KVError(KVFAIL_NO_ITEM);
  _DeleteItem(session, dest_doc, nullptr, 0);
  if (end_status && (end_status & 0x3fff) != kNoSuchItem) return KVError(end_status);
  return KVSUCCESS;
}

uint32_t KVItemDelete(uint32_t document, const char* itemname) {
  _api_session* session;
  if (uint32_t status = KVIEnter(document, &session)) return status;
  if (KVIEmpty(itemname)) return KVError(KVFAIL_NULL_PARAM);
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  if (doc->form != nullptr && GetFieldspec(doc->form, itemname) == nullptr) return KVError(KVFAIL_NO_FIELD);
  if (IsAttachment(doc, itemname)) return KVError(KVFAIL_NO_ITEM);
  ReleaseComposite(session, doc, itemname);

  const uint16_t namelen = KVIItemNameBytes(itemname);
  uint32_t deleted_count = 0;
  uint16_t brstatus;
  while ((brstatus = EngItemDelete(doc->notehand, itemname, namelen)) == 0) ++deleted_count;
  if (brstatus != kNoSuchItem) return KVError(brstatus);
  if (deleted_count == 0) return KVError(KVFAIL_NO_ITEM);
  doc->dirty = 1;
  return KVSUCCESS;
}
