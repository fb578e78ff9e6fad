// The document that an index has loaded: a record inside the index, whose handle is the index's with bit 31.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kOpenBase = 2;
constexpr uint32_t kOpenMask = 0x20d;
constexpr uint16_t kMemberClass = 3;

}  // namespace

uint32_t _LoadCurrentDoc(_api_session* session, _DATABASE* dbase, _INDEX* idx, uint32_t noteid,
                         uint32_t docopen_flags) {
  EngNote note = 0;
  const auto words = static_cast<uint16_t>(kOpenBase | (docopen_flags & kOpenMask));
  if (uint16_t brstatus = EngNoteOpen(dbase->dbhand, noteid, words, &note)) return brstatus;
  _DOCUMENT* doc = &idx->last_load;
  *doc = _DOCUMENT{};
  int32_t is_signed = 0;
  int32_t sealed = 0;
  // A note that cannot be unsealed stays as it is: its open items are still of use.
  if (EngNoteSignStateGet(note, &is_signed, &sealed) && sealed && !EngNoteDecrypt(note, 0, 0))
    doc->encrypted = 1;
  doc->document = idx->index | kIndexDocumentBit;
  doc->docid = noteid;
  doc->dbase = dbase;
  doc->notehand = note;
  doc->class_ = BRCLASS_DATA;
  if (idx->search_class != BRCLASS_DATA) EngNoteInfoGet(note, kMemberClass, &doc->class_);
  if (doc->class_ == BRCLASS_DATA) _LoadDocumentForm(session, dbase, doc);
  return KVSUCCESS;
}
