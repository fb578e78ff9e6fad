// Converted values that callers hold by pointer, owned by their document.
//
// A pointer stays valid until the same item is asked for again with the same types, or until the document
// closes.
#include <cstring>

#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

// True when the note still has the item that the value was made of.
bool StandsInNote(const _DOCUMENT* doc, const _DATAFIELD* field) {
  BLOCKID item;
  uint16_t brstatus =
      EngItemInfo(doc->notehand, field->name, field->namelen, &item, nullptr, nullptr, nullptr);
  while (!brstatus) {
    if (memcmp(&item, &field->blockid, sizeof item) == 0) return true;
    brstatus =
        EngItemInfoNext(doc->notehand, item, field->name, field->namelen, &item, nullptr, nullptr, nullptr);
  }
  return false;
}

bool Matches(const _DATAFIELD* field, int32_t type, int32_t itemtype) {
  if (type != 0 ? field->type != type : field->form_type != field->type) return false;
  // The fitting case is passed over, and the node stays: pointers already handed out outlive such a question.
  const bool in_table = static_cast<uint32_t>(itemtype) < kKVTypeCount;
  return itemtype == 0 || !in_table || !implicit_convert[itemtype][field->form_type];
}

}  // namespace

_DATAFIELD* GetDatafield(_DOCUMENT* doc, const char* fieldname, const int32_t* type,
                         const int32_t* itemtype) {
  const size_t namelen = strlen(fieldname);
  for (_DATAFIELD** link = &doc->fieldlist; *link != nullptr; link = &(*link)->next) {
    _DATAFIELD* field = *link;
    if (field->namelen != namelen || memcmp(field->name, fieldname, namelen) != 0) continue;
    if (!Matches(field, type != nullptr ? *type : 0, itemtype != nullptr ? *itemtype : 0)) continue;
    if (StandsInNote(doc, field)) return field;
    *link = field->next;
    KVIDatafieldFree(field);
    return nullptr;
  }
  return nullptr;
}

_DATAFIELD* KVIDatafieldAdd(_DOCUMENT* doc, const char* name, uint16_t namelen) {
  auto* field = KVIAllocate<_DATAFIELD>();
  if (field == nullptr) return nullptr;
  field->name = KVICopyText(name, namelen);
  if (field->name == nullptr) {
    KVIFree(field);
    return nullptr;
  }
  field->namelen = namelen;
  field->next = doc->fieldlist;
  doc->fieldlist = field;
  return field;
}

void KVIDatafieldFree(_DATAFIELD* field) {
  KVIFree(field->name);
  KVIFree(field->buffer);
  KVIFree(field);
}
