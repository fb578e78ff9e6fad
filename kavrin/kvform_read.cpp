// Forms and subforms read from their records into specs, once for a database and session.
//
// (1) A spec stands on its database's list for as long as that lives, with its address; one that was deleted
// stays and is found no more. (2) A spec for a document stands on no list and is the document's. (3) A
// subform has no slots for subforms, so nothing here runs in circles whatever a page names. (4) A spec that
// could not be read whole is freed.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kEngineNoMemory = 0x107;
constexpr uint16_t kTypeWordBytes = 2;
constexpr uint32_t kSubformTitleMax = 130;  // bytes of the name that a page gives

// ---- The list

_FORMSPEC* FindListed(const _KVDBINFO* dbinfo, uint32_t formid, uint32_t kind) {
  _FORMSPEC* spec = dbinfo->forms;
  while (spec != nullptr && (spec->formid != formid || (kind != 0 && (spec->design_flags & kind) == 0)))
    spec = spec->next;
  return spec;
}

void List(_KVDBINFO* dbinfo, _FORMSPEC* spec) {
  spec->next = dbinfo->forms;
  dbinfo->forms = spec;
}

// ---- Records

bool IsNoMemory(uint32_t status) { return status == KVFAIL_NO_MEMORY || status == kEngineNoMemory; }

// What a record of the kind fails by that cannot be looked at: it counts as none. Want of memory is told of
// subforms, since a form that shows one would be kept without its fields.
uint32_t NoneOf(uint32_t kind, uint32_t status) {
  if (kind == KVDESIGN_FORM) return KVFAIL_NO_FORM;
  return IsNoMemory(status) ? status : uint32_t{KVFAIL_NO_SUBFORM};
}

// The record, opened, when it is of the kind.
uint32_t OpenKind(_DATABASE* dbase, uint32_t id, uint32_t kind, EngNote* note) {
  uint32_t design_flags = 0;
  *note = 0;
  if (uint32_t status = KVIDesignNoteGetFlagsExt(dbase, id, &design_flags, note)) return NoneOf(kind, status);
  if (design_flags & kind) return KVSUCCESS;
  EngNoteClose(*note);
  *note = 0;
  return NoneOf(kind, KVSUCCESS);
}

template <size_t RowCount>
uint32_t ReadLetters(EngNote note, const KVFORMLETTER (&rows)[RowCount]) {
  char letters[kDesignFlagsMax + 1] = {};
  const uint16_t count = EngItemTextGet(note, "$Flags", letters, kDesignFlagsMax);
  uint32_t kv_flags = 0;
  for (const KVFORMLETTER& row : rows)
    if (memchr(letters, row.letter, count) != nullptr) kv_flags |= row.kv_flag;
  return kv_flags;
}

int32_t ReadConflictAction(EngNote note) {
  char action[2] = {};
  return EngItemTextGet(note, "$ConflictAction", action, 1) != 0 && action[0] == '1';
}

// A spec with the names that the record has. KVFAIL_NO_MEMORY; for names that cannot be read as OpenKind.
uint32_t NewSpec(_DATABASE* dbase, uint32_t formid, uint32_t kind, EngNote note, _FORMSPEC** spec) {
  auto* made = KVIAllocate<_FORMSPEC>();
  if (made == nullptr) return KVFAIL_NO_MEMORY;
  if (uint32_t status =
          KVIDesignNoteGetNames(note, &made->name, &made->menu_name, &made->cascade_name, &made->hidden)) {
    KVIFree(made);
    return NoneOf(kind, status);
  }
  made->pdbase = dbase;
  made->formid = formid;
  made->design_flags = kind;
  made->namelen = static_cast<uint16_t>(strlen(made->name));
  *spec = made;
  return KVSUCCESS;
}

uint32_t ReadInfo(EngNote note, _FORMSPEC* spec) {
  uint16_t type = 0;
  BLOCKID value{};
  uint32_t value_bytes = 0;
  if (EngItemInfo(note, "$Info", 5, nullptr, &type, &value, &value_bytes)) return KVFAIL_NO_FORM;
  if (type != BRTYPE_COMPOSITE || value_bytes < kTypeWordBytes + sizeof(CDDOCUMENT)) return KVFAIL_NO_FORM;
  const KVLocked locked(value.pool, value.block);
  if (locked.bytes == nullptr) return KVFAIL_INTERNAL;
  const auto info = KVILoad<CDDOCUMENT>(locked.bytes + kTypeWordBytes);
  if (info.Signature != kCdDocument) return KVFAIL_NO_FORM;
  spec->flags |= info.FormFlags | static_cast<uint32_t>(info.FormFlags2) << 16;
  if (spec->flags & KVFORMSPEC_ANONYMOUS) spec->kv_flags |= KVFORM_ANONYMOUS;
  if (spec->flags & KVFORMSPEC_FLAG_0800) spec->kv_flags |= KVFORM_FLAG_0800;
  spec->color = info.PaperColor;
  return KVSUCCESS;
}

// Optional, and of no use with another type.
uint32_t ReadWindowTitle(EngNote note, _FORMSPEC* spec) {
  uint16_t type = 0;
  BLOCKID value{};
  uint32_t value_bytes = 0;
  if (EngItemInfo(note, "$WindowTitle", 12, nullptr, &type, &value, &value_bytes)) return KVSUCCESS;
  if (type != BRTYPE_FORMULA) return KVSUCCESS;
  if (value_bytes < kTypeWordBytes + sizeof(BRYND_FORMULA)) return KVFAIL_BAD_FORMAT;
  const KVLocked locked(value.pool, value.block);
  if (locked.bytes == nullptr) return KVFAIL_INTERNAL;
  const char* code = locked.bytes + kTypeWordBytes;
  const uint32_t code_bytes = value_bytes - kTypeWordBytes;
  const auto told_bytes = KVILoad<uint16_t>(code);  // later readers trust the formula's own length
  if (told_bytes < sizeof(BRYND_FORMULA) || told_bytes > code_bytes) return KVFAIL_BAD_FORMAT;
  spec->title_formula = KVICopyText(code, code_bytes);
  return spec->title_formula != nullptr ? KVSUCCESS : KVFAIL_NO_MEMORY;
}

// ---- The page

// A page being read into the slots of a spec.
struct PAGE {
  _api_session* session;
  _DATABASE* dbase;
  EngNote note;
  _FORMSPEC* spec;
  uint32_t slot_room;
  bool in_subform;      // between a subform's begin and its end
  uint32_t nest_count;  // hotspots that are open in there
};

bool MakeRoom(PAGE* page, uint32_t slot_room) {
  if (slot_room == 0) slot_room = 1;
  if (!KVIReallocate(&page->spec->fieldlist, slot_room)) return false;
  memset(static_cast<void*>(page->spec->fieldlist + page->slot_room), 0,
         (slot_room - page->slot_room) * sizeof(FIELDSPEC));
  page->slot_room = slot_room;
  return true;
}

// A page that shows a subform's fields in place has more fields than were counted: the table grows.
FIELDSPEC* NextSlot(PAGE* page) {
  if (page->spec->fieldcount == page->slot_room && !MakeRoom(page, page->slot_room * 2)) return nullptr;
  return &page->spec->fieldlist[page->spec->fieldcount];
}

uint32_t TakeField(PAGE* page, const CDITEMWALK& walk) {
  FIELDSPEC* slot = NextSlot(page);
  if (slot == nullptr) return KVFAIL_NO_MEMORY;
  if (uint32_t status = KVIFieldGetSpec(page->dbase, walk.run.header.signature, walk.run.record,
                                        walk.run.header.length, page->spec, slot))
    return status;
  ++page->spec->fieldcount;
  ++page->spec->total_fieldcount;
  return KVSUCCESS;
}

// A subform that is not there, or that is damaged, has no slot. Want of memory and failures of the engine end
// it all: the form would be kept without the subform's fields.
uint32_t TakeSubform(PAGE* page, const char* name, uint32_t name_bytes) {
  constexpr uint32_t kPublicBit = 0x80000000u;
  _FORMSPEC* subform = nullptr;
  const uint32_t status = _KVISubformGetSpecByName(page->session, page->dbase, name, name_bytes, &subform);
  if (status == KVFAIL_NO_MEMORY || (status && (status & kPublicBit) == 0)) return status;
  if (status) return KVSUCCESS;
  FIELDSPEC* slot = NextSlot(page);
  if (slot == nullptr) return KVFAIL_NO_MEMORY;
  slot->psubform = subform;
  ++page->spec->fieldcount;
  ++page->spec->subformcount;
  page->spec->total_fieldcount += subform->fieldcount;
  return KVSUCCESS;
}

uint32_t TakeHotspot(PAGE* page, const CDITEMWALK& walk) {
  const KVISUBFORMREF reference = KVIReadSubformRef(walk.run.record, walk.run.header);
  if (!reference.is_subform) return KVSUCCESS;
  page->in_subform = true;
  page->nest_count = 0;
  if (reference.is_computed || reference.name_bytes == 0) return KVSUCCESS;
  return TakeSubform(page, reference.name, reference.name_bytes);
}

// Inside a subform's hotspot only hotspots are told apart: the fields there are taken like all others.
uint32_t TakeRecord(PAGE* page, const CDITEMWALK& walk) {
  const uint16_t signature = walk.run.header.signature;
  if (page->in_subform && signature == kCdHotspotBeginLater) {
    ++page->nest_count;
    return KVSUCCESS;
  }
  if (page->in_subform && signature == kCdHotspotEndLater) {
    if (page->nest_count != 0)
      --page->nest_count;
    else
      page->in_subform = false;
    return KVSUCCESS;
  }
  if (signature == kCdField || signature == kCdFieldPre36) return TakeField(page, walk);
  const bool may_nest = (page->spec->design_flags & KVDESIGN_SUBFORM) == 0;
  return may_nest && signature == kCdHotspotBeginLater ? TakeHotspot(page, walk) : uint32_t{KVSUCCESS};
}

uint32_t ReadPage(PAGE* page, uint32_t slots_counted) {
  if (!MakeRoom(page, slots_counted)) return KVFAIL_NO_MEMORY;
  // The item under way stays locked while subforms and shared fields are read, which lie in other notes.
  CDITEMWALK walk = KVICDWalkItems(page->note, kFormBodyItem, kFormBodyItemBytes);
  KVGuard end_walk([&] { KVICDEndWalk(&walk); });
  while (KVICDNextItemRecord(&walk))
    if (uint32_t status = TakeRecord(page, walk)) return status;
  return KVIBodyStatus(walk);
}

uint32_t FillForm(PAGE* page) {
  _FORMSPEC* spec = page->spec;
  spec->kv_flags |= ReadLetters(page->note, kFormLetters);
  if (spec->kv_flags & KVFORM_HIDDEN) spec->hidden = 1;
  spec->conflict = ReadConflictAction(page->note);
  if (uint32_t status = ReadInfo(page->note, spec)) return status;
  if (uint32_t status = ReadWindowTitle(page->note, spec)) return status;
  uint32_t slots_counted = 0;
  if (uint32_t status = KVIFormNoteSizeofFieldTable(page->note, &slots_counted)) return status;
  return ReadPage(page, slots_counted);
}

uint32_t ReadForm(_api_session* session, _DATABASE* dbase, uint32_t formid, EngNote note,
                  _FORMSPEC** formspec) {
  _FORMSPEC* spec = nullptr;
  if (uint32_t status = NewSpec(dbase, formid, KVDESIGN_FORM, note, &spec)) return status;
  PAGE page{session, dbase, note, spec, 0, false, 0};
  if (uint32_t status = FillForm(&page)) {
    ClearForm(spec);
    return status;
  }
  *formspec = spec;
  return KVSUCCESS;
}

uint32_t ReadSubform(_DATABASE* dbase, uint32_t subfid, EngNote note, _FORMSPEC** formspec) {
  _FORMSPEC* spec = nullptr;
  if (uint32_t status = NewSpec(dbase, subfid, KVDESIGN_SUBFORM, note, &spec)) return status;
  spec->kv_flags = ReadLetters(note, kSubformLetters);
  PAGE page{nullptr, dbase, note, spec, 0, false, 0};
  uint32_t fields_counted = 0;
  uint32_t status = KVICompositeItemCountFields(note, kFormBodyItem, &fields_counted);
  if (!status) status = ReadPage(&page, fields_counted);
  if (status) {
    ClearForm(spec);
    return status;
  }
  *formspec = spec;
  return KVSUCCESS;
}

// The form of an open document that holds it itself; the document's id stands for it.
_FORMSPEC* FindInDocument(_api_session* session, const _DATABASE* dbase, uint32_t docid) {
  _DOCUMENT* doc = nullptr;
  if (_KVIDbFindDocByID(session, dbase, docid, &doc)) return nullptr;
  return doc->embedded_form ? doc->form : nullptr;
}

// A document with the properties of a form is the form's record too.
uint32_t ReadForDocument(_api_session* session, _DATABASE* dbase, uint32_t formid, _DOCUMENT* doc,
                         _FORMSPEC** formspec) {
  uint32_t status = KVSUCCESS;
  if (EngItemInfo(doc->notehand, "$Info", 5, nullptr, nullptr, nullptr, nullptr) == 0) {
    status = ReadForm(session, dbase, formid, doc->notehand, formspec);
  } else {
    EngNote note = 0;
    if (uint16_t brstatus = EngNoteOpen(dbase->dbhand, formid, 0, &note)) return brstatus;
    status = ReadForm(session, dbase, formid, note, formspec);
    EngNoteClose(note);
  }
  if (status == KVSUCCESS) (*formspec)->pdoc = doc;
  return status;
}

}  // namespace

uint32_t _KVIFormGetSpec(_api_session* session, _DATABASE* pdbase, uint32_t formid, _DOCUMENT* pDoc,
                         _FORMSPEC** ppformspec) {
  *ppformspec = nullptr;
  // The id alone counts: a subform that was read answers here too.
  if (_FORMSPEC* listed = FindListed(pdbase->dbinfo, formid, 0)) {
    if (listed->deleted) return KVFAIL_NO_FORM;
    *ppformspec = listed;
    return KVSUCCESS;
  }
  if (pDoc != nullptr) return ReadForDocument(session, pdbase, formid, pDoc, ppformspec);
  EngNote note = 0;
  if (uint32_t status = OpenKind(pdbase, formid, KVDESIGN_FORM, &note)) {
    *ppformspec = FindInDocument(session, pdbase, formid);
    return *ppformspec != nullptr ? uint32_t{KVSUCCESS} : status;
  }
  const uint32_t status = ReadForm(session, pdbase, formid, note, ppformspec);
  EngNoteClose(note);
  if (status == KVSUCCESS) List(pdbase->dbinfo, *ppformspec);
  return status;
}

uint32_t KVISubformGetSpec(_DATABASE* pdbase, uint32_t subfid, _FORMSPEC** ppformspec) {
  *ppformspec = nullptr;
  if (_FORMSPEC* listed = FindListed(pdbase->dbinfo, subfid, KVDESIGN_SUBFORM)) {
    if (listed->deleted) return KVFAIL_NO_SUBFORM;
    *ppformspec = listed;
    return KVSUCCESS;
  }
  EngNote note = 0;
  if (uint32_t status = OpenKind(pdbase, subfid, KVDESIGN_SUBFORM, &note)) return status;
  const uint32_t status = ReadSubform(pdbase, subfid, note, ppformspec);
  EngNoteClose(note);
  if (status == KVSUCCESS) List(pdbase->dbinfo, *ppformspec);
  return status;
}

uint32_t _KVISubformGetSpecByName(_api_session* session, _DATABASE* pdbase, const char* pName,
                                  uint32_t NameLen, _FORMSPEC** ppformspec) {
  *ppformspec = nullptr;
  const size_t name_bytes = NameLen != 0 ? NameLen : strlen(pName);
  if (name_bytes > kSubformTitleMax) return KVFAIL_DATA_TOO_LONG;
  char* title = session->buffer;
  KVICopyBytes(title, pName, name_bytes);
  title[name_bytes] = 0;
  if (strchr(title, '|') != nullptr) {
    const char *alias, *menu_name, *cascade_name;
    uint16_t alias_bytes, menu_bytes, cascade_bytes;
    int32_t hidden;
    if (uint32_t status =
            ParseTitle(title, static_cast<uint32_t>(strlen(title)), BRTYPE_TEXT, &alias, &alias_bytes,
                       &menu_name, &menu_bytes, &cascade_name, &cascade_bytes, &hidden))
      return status;
    if (alias_bytes != 0) memmove(title, alias, alias_bytes);  // nothing behind the last bar has no address
    title[alias_bytes] = 0;
  }
  uint32_t subfid = 0;
  if (uint16_t brstatus = EngDesignFind(pdbase->dbhand, title, BRCLASS_FORM, &subfid))
    return IsNoMemory(brstatus) ? brstatus : KVFAIL_NOT_FOUND;  // a form would be kept without the subform
  return KVISubformGetSpec(pdbase, subfid, ppformspec);
}

void ClearForm(_FORMSPEC* formspec) {
  if (formspec == nullptr) return;
  KVIFree(formspec->name);
  KVIFree(formspec->menu_name);
  KVIFree(formspec->cascade_name);
  KVIFree(formspec->title_formula);
  KVIFree(formspec->title_formula_string);
  for (uint32_t slot = 0; slot < formspec->fieldcount; ++slot) {
    FIELDSPEC* fieldspec = &formspec->fieldlist[slot];
    if (fieldspec->psubform == nullptr && (fieldspec->flags & KVFIELD_SHARED) == 0) ClearField(fieldspec);
  }
  KVIFree(formspec->fieldlist);
  KVIFree(formspec);
}

void KVIFormMarkDeleted(_KVDBINFO* dbinfo, uint32_t formid, uint32_t kind) {
  if (_FORMSPEC* listed = FindListed(dbinfo, formid, kind)) listed->deleted = 1;
}
