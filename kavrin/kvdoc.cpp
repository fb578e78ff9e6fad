// Documents: an open note of the engine with a public handle, in a database of the same session.
//
// (1) Edits go to the open note; what is stored changes only through EngNoteUpdate, at a save or at a close
// that saves. (2) `dirty` tells whether the open note holds changes; any save that reaches EngNoteUpdate
// clears it, even a failing one. (3) A record of `doctab` is owned by the session; the current document of an
// index lies inside its index, in no table.
#include <cstring>

#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kNoSuchNote = 0x227;
constexpr uint16_t kUpdateNoCommit = 0x4;
constexpr uint16_t kUpdateFirst = 0x100;
constexpr uint16_t kDeleteEngineWord = 0x200;
// Of the flags of KVDocumentGetBryndHandle, those that a close knows.
constexpr uint32_t kReleaseFlagsMask =
    KVDOCWRITE_ENGINE_MASK | KVDOCWRITE_NOCOMMIT | KVDOCWRITE_COMMIT | KVDOCWRITE_DISCARD;
static_assert(kReleaseFlagsMask == 0x30105);

// The two families of commit bits have other values on purpose: they belong to two public interfaces.
bool DelaysCommit(const _DATABASE* dbase, uint32_t flags, uint32_t no_commit, uint32_t commit) {
  if (flags & commit) return false;
  return dbase->delay_commit != 0 || (flags & no_commit) != 0;
}

uint16_t UpdateWord(const _DOCUMENT* doc, uint32_t docwrite_flags) {
  uint16_t word = static_cast<uint16_t>(docwrite_flags & KVDOCWRITE_ENGINE_MASK);
  if (DelaysCommit(doc->dbase, docwrite_flags, KVDOCWRITE_NOCOMMIT, KVDOCWRITE_COMMIT))
    word |= kUpdateNoCommit;
  if (doc->new_) word |= kUpdateFirst;
  return word;
}

// The document again behind a step that may have run the program's error procedure. Null when that closed it,
// made its index load another one, or ended the session.
_DOCUMENT* FindAgain(_api_session* session, uint32_t document, uint32_t docid) {
  if (KVICurrentSession() != session) return nullptr;
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr || (document & kIndexDocumentBit) == 0) return doc;
  return doc->docid == docid ? doc : nullptr;
}

uint32_t NumberOf(const _COMPOSITE* comp) { return comp->composite & kHandleNumberMax; }

// The document's first composite whose number is at most that one: the later one was opened, the further in
// front it stands.
_COMPOSITE* CompositeFrom(const _DOCUMENT* doc, uint32_t number) {
  _COMPOSITE* comp = doc->complist;
  while (comp != nullptr && NumberOf(comp) > number) comp = comp->docnext;
  return comp;
}

// Composites with changes go into the note before it is stored; the walk goes on behind a failure, which is
// the result. A failure runs the program's error procedure, which may close composites and the document
// itself: *doc is null then.
uint32_t StoreComposites(_api_session* session, _DOCUMENT** doc) {
  const uint32_t document = (*doc)->document;
  const uint32_t docid = (*doc)->docid;
  uint32_t first = KVSUCCESS;
  _COMPOSITE* comp = (*doc)->complist;
  while (comp != nullptr) {
    const uint32_t number = NumberOf(comp);  // never 0
    KVIKeepFirst(&first, _CompStore(session, *doc, comp));
    *doc = FindAgain(session, document, docid);
    if (*doc == nullptr) break;
    comp = CompositeFrom(*doc, number - 1);
  }
  return first;
}

// Every composite goes, stored before when it is saved. *doc is null when the document went as well.
uint32_t FreeComposites(_api_session* session, _DOCUMENT** doc, bool saving) {
  const uint32_t document = (*doc)->document;
  const uint32_t docid = (*doc)->docid;
  uint32_t first = KVSUCCESS;
  while (_COMPOSITE* comp = (*doc)->complist) {
    const uint32_t number = NumberOf(comp);
    if (saving) {
      KVIKeepFirst(&first, _CompStore(session, *doc, comp));
      *doc = FindAgain(session, document, docid);
      if (*doc == nullptr) break;
      comp = CompositeFrom(*doc, number);
      if (comp == nullptr || NumberOf(comp) != number) continue;
    }
    _CompFree(session, comp);
  }
  return first;
}

// The outcome of a save: what failed before the engine's update comes first. Success is not reported, since a
// failure that was passed over may stand in the session.
uint32_t Report(uint32_t kept, uint16_t brstatus) {
  if (kept) return KVError(kept);
  if (brstatus) return KVError(brstatus);
  return KVSUCCESS;
}

// A record with its handle, in no table yet; null when there is no memory or no handle left.
_DOCUMENT* NewDocument(_api_session* session, _DATABASE* dbase, EngNote note) {
  auto* doc = KVIAllocate<_DOCUMENT>();
  if (doc == nullptr) return nullptr;
  if (_KVINewHandle(session, &doc->document)) {
    KVIFree(doc);
    return nullptr;
  }
  doc->dbase = dbase;
  doc->notehand = note;
  doc->sb_compute = dbase->strict_bind_compute;
  return doc;
}

// An opened data document: unsealed when the keys are there, and bound to its form when the database binds
// strictly.
uint32_t PrepareDataDocument(_api_session* session, _DOCUMENT* doc) {
  int32_t is_signed = 0;
  int32_t sealed = 0;
  // A note that cannot be unsealed stays as it is: its open items are still of use.
  if (EngNoteSignStateGet(doc->notehand, &is_signed, &sealed) && sealed &&
      !EngNoteDecrypt(doc->notehand, 0, 0))
    doc->encrypted = 1;
  if (!doc->dbase->strict_bind) return KVSUCCESS;
  _LoadDocumentForm(session, doc->dbase, doc);
  if (doc->form == nullptr) return KVFAIL_STRICT_NO_FORM;
  (void)_DocCompute(session, doc, KVCOMPUTE_OPEN);
  return KVSUCCESS;
}

uint32_t PrepareOpened(_api_session* session, _DOCUMENT* doc) {
  EngNoteInfoGet(doc->notehand, 3, &doc->class_);
  if (doc->class_ == 1) return PrepareDataDocument(session, doc);
  return doc->dbase->docopen_design ? KVSUCCESS : KVFAIL_NON_DATA_DOCUMENT;
}

// The record joins the session: from here its handle works, and it is the document asked for last.
void PublishDocument(_api_session* session, _DOCUMENT* doc, uint32_t* document) {
  _KVILinkDocument(session, doc);
  KVIStore<uint32_t>(document, doc->document);
}

uint32_t FindForm(_api_session* session, _DATABASE* dbase, uint32_t formid, _FORMSPEC** formspec) {
  if (formid == 0) return KVSUCCESS;
  (void)_KVIFormGetSpec(session, dbase, formid, nullptr, formspec);
  if (*formspec == nullptr) return KVFAIL_NO_FORM;
  if ((*formspec)->design_flags & KVDESIGN_SUBFORM) return KVFAIL_NO_FORM;
  return KVSUCCESS;
}

// A new document names its form, or carries a copy of it when the form asks for that.
uint32_t PutForm(_DATABASE* dbase, EngNote note, const _FORMSPEC* formspec) {
  if (formspec == nullptr) return KVSUCCESS;
  if (formspec->flags & KVFORMSPEC_IN_DOCUMENT) return EmbedForm(dbase, note, formspec->name);
  return EngItemTextSet(note, "Form", formspec->name, formspec->namelen);
}

}  // namespace

uint32_t KVDocumentOpen(uint32_t database, uint32_t docid, uint32_t docopen_flags, uint32_t* document) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  if (document == nullptr) return KVError(KVFAIL_NULL_PARAM);
  KVIStore<uint32_t>(document, 0);
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);

  const uint16_t word = static_cast<uint16_t>((docopen_flags & KVDOCOPEN_ENGINE_MASK) | KVDOCOPEN_BASE);
  EngNote note = 0;
  if (uint16_t brstatus = EngNoteOpen(dbase->dbhand, docid, word, &note))
    return KVError((brstatus & 0x3fff) == kNoSuchNote ? KVFAIL_BAD_DOCUMENT : brstatus);
  KVGuard close_note([&] { EngNoteClose(note); });
  _DOCUMENT* doc = NewDocument(session, dbase, note);
  if (doc == nullptr) return KVError(KVFAIL_NO_MEMORY);
  KVGuard free_doc([&] { KVIFree(doc); });
  doc->docid = docid;
  if (uint32_t status = PrepareOpened(session, doc)) return KVError(status);
  PublishDocument(session, doc, document);
  free_doc.Dismiss();
  close_note.Dismiss();  // owned by the record from here
  return KVSUCCESS;
}

uint32_t KVDocumentCreate(uint32_t database, uint32_t formid, uint32_t* document) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  if (document == nullptr) return KVError(KVFAIL_NULL_PARAM);
  KVIStore<uint32_t>(document, 0);
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  _FORMSPEC* formspec = nullptr;
  if (uint32_t status = FindForm(session, dbase, formid, &formspec)) return KVError(status);

  EngNote note = 0;
  if (uint16_t brstatus = EngNoteCreate(dbase->dbhand, &note)) return KVError(brstatus);
  KVGuard close_note([&] { EngNoteClose(note); });
  if (uint32_t status = PutForm(dbase, note, formspec)) return KVError(status);
  _DOCUMENT* doc = NewDocument(session, dbase, note);
  if (doc == nullptr) return KVError(KVFAIL_NO_MEMORY);
  KVGuard free_doc([&] { KVIFree(doc); });
  doc->class_ = 1;
  (dbase->strict_bind ? doc->form : doc->form_save) = formspec;
  doc->new_ = 1;
  doc->dirty = 1;
  if (uint32_t status = _DocCompute(session, doc, KVCOMPUTE_CREATE)) return KVError(status);
  PublishDocument(session, doc, document);
  free_doc.Dismiss();
  close_note.Dismiss();  // owned by the record from here
  return KVSUCCESS;
}

uint32_t KVDocumentSave(uint32_t document, uint32_t docwrite_flags) {
  _api_session* session;
  if (uint32_t status = KVIEnter(document, &session)) return status;
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  if (docwrite_flags & KVDOCWRITE_DISCARD) {
    doc->dirty = 0;  // the open note keeps its edits: a later change saves them all
    return KVSUCCESS;
  }
  uint32_t kept = StoreComposites(session, &doc);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  _KVIFreeExecuteResult(doc);
  uint16_t brstatus = 0;
  if (doc->dirty) {
    const uint16_t word = UpdateWord(doc, docwrite_flags);
    if (doc->form != nullptr) {
      doc->new_ = 0;
      kept = _DocCompute(session, doc, KVCOMPUTE_SAVE);
      if (kept) return KVError(kept);
    }
    brstatus = EngNoteUpdate(doc->notehand, word);
    doc->dirty = 0;
    if (doc->docid == 0) EngNoteInfoGet(doc->notehand, 1, &doc->docid);
    if (doc->form != nullptr) (void)_DocCompute(session, doc, KVCOMPUTE_AFTER_SAVE);
  }
  return Report(kept, brstatus);
}

uint32_t KVDocumentClose(uint32_t document, uint32_t docwrite_flags) {
  _api_session* session;
  if (uint32_t status = KVIEnter(document, &session)) return status;
  return _CloseDOCUMENT(session, document, docwrite_flags, nullptr);
}

uint32_t KVDocumentDelete(uint32_t database, uint32_t docid, uint32_t docdelete_flags) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  if (docid == 0) return KVError(KVFAIL_BAD_DOCUMENT);

  ORIGINATORID originator;
  TIMEDATE modified;
  uint16_t note_class = 0;
  const uint16_t found = EngDbIdInfoGet(dbase->dbhand, docid, &originator, &modified, &note_class);
  if ((found & 0x3fff) == kNoSuchNote) return KVError(KVFAIL_BAD_DOCUMENT);
  if (!found && note_class != 1 && !dbase->docopen_design) return KVError(KVFAIL_NON_DATA_DOCUMENT);
  if (found) return KVError(found);

  uint16_t word = (docdelete_flags & KVDOCDELETE_ENGINE_BIT) ? kDeleteEngineWord : 0;
  if (DelaysCommit(dbase, docdelete_flags, KVDOCDELETE_NOCOMMIT, KVDOCDELETE_COMMIT)) word |= kUpdateNoCommit;
  if (uint16_t brstatus = EngNoteDelete(dbase->dbhand, docid, word)) return KVError(brstatus);
  return KVSUCCESS;
}

uint32_t KVDocumentCopy(uint32_t src_database, uint32_t src_docid, uint32_t dest_database,
                        uint32_t* dest_docid) {
  _api_session* session;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  KVIStoreIf<uint32_t>(dest_docid, 0);
  _DATABASE* src_dbase = _KVIFindDatabase(session, src_database);
  if (src_dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  _DATABASE* dest_dbase = _KVIFindDatabase(session, dest_database);
  if (dest_dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  const COPYINFO copyinfo{.src_dbhand = src_dbase->dbhand, .dest_dbhand = dest_dbase->dbhand, .collhand = 0};
  uint32_t noteid = 0;
  UNIVERSALNOTEID unid;
  if (uint32_t status = CopyDocument(&copyinfo, src_docid, &noteid, &unid, nullptr)) return KVError(status);
  KVIStoreIf<uint32_t>(dest_docid, noteid);
  return KVSUCCESS;
}

uint32_t KVDocumentGetBryndHandle(uint32_t document, uint32_t tobrynd_flags, void* brynd_dochandle) {
  _api_session* session;
  if (uint32_t status = KVIEnter(document, &session)) return status;
  if (brynd_dochandle == nullptr) return KVError(KVFAIL_NULL_PARAM);
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  const uint32_t wanted = tobrynd_flags & (KVTOBRYND_GET_HANDLE | KVTOBRYND_RELEASE);
  if (wanted == KVTOBRYND_GET_HANDLE) {
    KVIStore<EngNote>(brynd_dochandle, doc->notehand);
    return KVSUCCESS;
  }
  if (wanted == KVTOBRYND_RELEASE) {
    EngNote note = 0;
    const uint32_t status = _CloseDOCUMENT(session, document, tobrynd_flags & kReleaseFlagsMask, &note);
    KVIStore<EngNote>(brynd_dochandle, note);
    return status;
  }
  return KVFAIL_NO_ACTION;  // not recorded: the session's last status stays clear here
}

uint32_t KVDocumentLocateByUnid(uint32_t database, const KVUNID* unid) {
  _api_session* session;
  if (KVIEnter(database, &session)) return 0;
  _DATABASE* dbase = _GetDatabase(session, database);
  if (dbase == nullptr) {
    KVError(KVFAIL_NO_DATABASE);
    return 0;
  }
  if (unid == nullptr) return 0;
  const auto wanted = KVILoad<UNIVERSALNOTEID>(unid);
  uint32_t docid = 0;
  ORIGINATORID originator;
  TIMEDATE modified;
  uint16_t note_class = 0;
  if (EngDbUnidInfoGet(dbase->dbhand, &wanted, &docid, &originator, &modified, &note_class)) return 0;
  return note_class == 1 || dbase->docopen_design ? docid : 0;
}

uint32_t _KVIDbFindDocByID(_api_session* session, const _DATABASE* pdbase, uint32_t docid,
                           _DOCUMENT** ppDoc) {
  *ppDoc = nullptr;
  _DOCUMENT* recent = session->pmruDOC;
  if (recent != nullptr && recent->docid == docid && recent->dbase == pdbase) {
    *ppDoc = recent;
    return KVSUCCESS;
  }
  for (_DOCUMENT* head : session->doctab)
    for (_DOCUMENT* doc = head; doc != nullptr; doc = doc->next)
      if (doc->docid == docid && doc->dbase == pdbase) {
        *ppDoc = doc;
        return KVSUCCESS;
      }
  return KVFAIL_NOT_FOUND;  // not recorded: the caller asks in passing
}

// Composites and changes are stored unless the flags say otherwise, then the item table goes. A failure is
// reported: whoever goes on finds the document again.
static uint32_t ClearEdits(_api_session* session, _DOCUMENT* doc, uint32_t docwrite_flags) {
  const bool saving = (docwrite_flags & KVDOCWRITE_DISCARD) == 0;
  uint32_t kept = FreeComposites(session, &doc, saving);
  if (doc == nullptr) return kept;
  uint16_t brstatus = 0;
  if (saving && doc->dirty) {
    const uint16_t word = UpdateWord(doc, docwrite_flags);
    if (doc->form != nullptr) {
      doc->new_ = 0;
      KVIKeepFirst(&kept, _DocCompute(session, doc, KVCOMPUTE_CLOSE));
    }
    if (!kept) brstatus = EngNoteUpdate(doc->notehand, word);
  }
  KVIItemListDestroy(&doc->itemlist);
  return Report(kept, brstatus);
}

// What the document handed out or kept for the caller.
static uint32_t ClearValues(_api_session* session, _DOCUMENT* doc) {
  while (_DATAFIELD* field = doc->fieldlist) {
    doc->fieldlist = field->next;
    KVIDatafieldFree(field);
  }
  KVIFree(doc->title);
  doc->title = nullptr;
  _KVIFreeExecuteResult(doc);
  _KVIReleaseOwnForm(session, doc);
  return KVSUCCESS;
}

uint32_t _ClearDocState(_api_session* session, _DOCUMENT* doc, int state, const uint32_t* info) {
  switch (state) {
    case kStateDocumentEdits:
      return ClearEdits(session, doc, *info);
    case kStateDocumentValues:
      return ClearValues(session, doc);
    case kStateTable:
      _KVIUnlinkDocument(session, doc);
      return KVSUCCESS;
    default:
      return KVSUCCESS;
  }
}

uint32_t _CloseDOCUMENT(_api_session* session, uint32_t document, uint32_t docwrite_flags,
                        EngNote* pbrynd_handle) {
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  const uint32_t docid = doc->docid;
  uint32_t first = _ClearDocState(session, doc, kStateDocumentEdits, &docwrite_flags);
  // What failed was told to the program's error procedure, which may have closed the document itself.
  doc = FindAgain(session, document, docid);
  if (doc == nullptr) return first;
  KVIKeepFirst(&first, _ClearDocState(session, doc, kStateDocumentValues, nullptr));
  if (doc->precrypt_notehand) EngNoteClose(doc->precrypt_notehand);
  doc->precrypt_notehand = 0;
  if (pbrynd_handle != nullptr)
    *pbrynd_handle = doc->notehand;
  else
    EngNoteClose(doc->notehand);
  if (document & kIndexDocumentBit) {
    doc->notehand = 0;  // the record is its index's, which uses it again
    _KVIForgetDocument(session, doc);
    return first;
  }
  _ClearDocState(session, doc, kStateTable, nullptr);
  KVIFree(doc);
  return first;
}
