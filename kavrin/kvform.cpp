// Forms and subforms as programs reach them: by a database and an id. The lists of both are with the other
// families of design elements.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kNoSuchNote = 0x227;
constexpr STATUSROW kNoForm[] = {{0x404, KVFAIL_NO_FORM}};
constexpr STATUSROW kNoSubform[] = {{0x404, KVFAIL_NO_SUBFORM}};

// Bytes of the form record of a program's version. Those before the current one end with the three names.
size_t FormBytes(const _api_session* session) {
  constexpr size_t kOldHeadBytes = 3 * sizeof(int32_t) + sizeof(uint32_t) + sizeof(char*);
  if (session->kvprog_version >= kVersionFourth) return sizeof(KVFORM);
  return kOldHeadBytes + (session->kvprog_version >= kVersionLongNames ? 130 + 65 + 65 : 66 + 33 + 33);
}

// 0 after a failure, which is recorded.
template <size_t RowCount>
uint32_t Locate(uint32_t database, const char* name, uint32_t kind, const STATUSROW (&statuses)[RowCount]) {
  _api_session* session;
  if (KVIEnter(database, &session)) return 0;
  const auto fail = [](uint32_t status) {
    KVError(status);
    return uint32_t{0};
  };
  if (name == nullptr) return fail(KVFAIL_NULL_PARAM);
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return fail(KVFAIL_NO_DATABASE);
  uint32_t id = 0;
  if (uint16_t brstatus = EngDesignFind(dbase->dbhand, name, BRCLASS_FORM, &id))
    return fail(KVIMapStatus(brstatus, statuses));
  uint32_t design_flags = 0;
  (void)KVIDesignNoteGetFlagsExt(dbase, id, &design_flags, nullptr);  // no flags then: of no kind
  return (design_flags & kind) != 0 ? id : fail(statuses[0].status);
}

struct COPYCALL {
  uint32_t src_database, src_id, dest_database;
  const char* dest_name;
  uint32_t* dest_id;
};

uint32_t Copy(const COPYCALL& call, uint32_t kind, uint32_t none_status) {
  _api_session* session;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  KVIStoreIf<uint32_t>(call.dest_id, 0);
  _DATABASE* src_dbase = _KVIFindDatabase(session, call.src_database);
  if (src_dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  _DATABASE* dest_dbase = _KVIFindDatabase(session, call.dest_database);
  if (dest_dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  const char* name = KVIEmpty(call.dest_name) ? nullptr : call.dest_name;
  if (name != nullptr && strlen(name) > kFormNameBytesMax) return KVError(KVFAIL_DATA_TOO_LONG);
  uint32_t id = 0;
  const uint32_t status = _KVIDesignNoteCopy(session, kind, src_dbase, call.src_id, dest_dbase, name, &id, 0);
  if (status) return KVError(status == KVFAIL_NAME_IN_USE ? status : none_status);
  KVIStoreIf<uint32_t>(call.dest_id, id);
  return KVSUCCESS;
}

bool IsBoundTo(const _DOCUMENT& doc, const _KVDBINFO* dbinfo, uint32_t formid) {
  return doc.form != nullptr && doc.form->formid == formid && doc.dbase->dbinfo == dbinfo;
}

// Any handle of the session on the same database counts, and the documents that indexes have loaded.
bool IsFormInUse(const _api_session* session, const _KVDBINFO* dbinfo, uint32_t formid) {
  for (const _DOCUMENT* doc : session->doctab)
    for (; doc != nullptr; doc = doc->next)
      if (IsBoundTo(*doc, dbinfo, formid)) return true;
  for (const _INDEX* idx : session->idxtab)
    for (; idx != nullptr; idx = idx->next)
      if (idx->last_load.notehand != 0 && IsBoundTo(idx->last_load, dbinfo, formid)) return true;
  return false;
}

}  // namespace

// ---- Forms

uint32_t KVFormLocateByName(uint32_t database, const char* formname) {
  return Locate(database, formname, KVDESIGN_FORM, kNoForm);
}

uint32_t KVFormFetch(uint32_t database, uint32_t formid, KVFORM* form) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  if (form == nullptr) return KVError(KVFAIL_NULL_PARAM);
  memset(static_cast<void*>(form), 0, FormBytes(session));
  _FORMSPEC* spec = nullptr;
  if (uint32_t status = _KVIFormGetSpec(session, dbase, formid, nullptr, &spec)) return KVError(status);
  if (session->kvprog_version < kVersionFourth) return KVError(KVFAIL_UNSUPPORTED);
  KVIFormGetFORMFromSpec(dbase, spec, form);
  return KVSUCCESS;
}

uint32_t KVFormCopy(uint32_t src_database, uint32_t src_formid, uint32_t dest_database,
                    const char* dest_formname, uint32_t* dest_formid) {
  return Copy({src_database, src_formid, dest_database, dest_formname, dest_formid}, KVDESIGN_FORM,
              KVFAIL_NO_FORM);
}

uint32_t KVFormDelete(uint32_t database, uint32_t formid) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  if (formid == 0) return KVError(KVFAIL_NO_FORM);

  ORIGINATORID originator;
  TIMEDATE modified;
  uint16_t note_class = 0;
  const uint16_t found = EngDbIdInfoGet(dbase->dbhand, formid, &originator, &modified, &note_class);
  if ((found & 0x3fff) == kNoSuchNote) return KVError(KVFAIL_NO_FORM);
  if (found) return KVError(found);
  if ((note_class & BRCLASS_FORM) == 0) return KVError(KVFAIL_NO_FORM);
  if (IsFormInUse(session, dbase->dbinfo, formid)) return KVError(KVFAIL_ACTIVE_RESULT);
  if (uint16_t brstatus = EngNoteDelete(dbase->dbhand, formid, 0)) return KVError(brstatus);
  KVIFormMarkDeleted(dbase->dbinfo, formid, 0);
  return KVSUCCESS;
}

uint32_t KVFormCreate(uint32_t database, const KVFORM* form, uint32_t body, uint32_t* formid) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  if (form == nullptr) return KVError(KVFAIL_NULL_PARAM);
  KVIStoreIf<uint32_t>(formid, 0);
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  if (session->kvprog_version < kVersionFourth) return KVError(KVFAIL_UNSUPPORTED);
  _FORMSPEC* spec = nullptr;
  if (uint32_t status = _KVIFormCreateSpec(session, dbase, form, &spec)) return KVError(status);
  const uint32_t status = _KVIFormCreateFromSpec(session, dbase, spec, body, formid);
  ClearForm(spec);
  return status ? KVError(status) : KVSUCCESS;
}

// ---- Subforms

uint32_t KVSubformLocateByName(uint32_t database, const char* subformname) {
  return Locate(database, subformname, KVDESIGN_SUBFORM, kNoSubform);
}

uint32_t KVSubformFetch(uint32_t database, uint32_t subfid, KVSUBFORM* subform) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  if (subform == nullptr) return KVError(KVFAIL_NULL_PARAM);
  memset(static_cast<void*>(subform), 0, sizeof *subform);
  _FORMSPEC* spec = nullptr;
  if (uint32_t status = KVISubformGetSpec(dbase, subfid, &spec)) return KVError(status);
  KVISubformGetSUBFORMFromSpec(spec, subform);
  return KVSUCCESS;
}

uint32_t KVSubformCopy(uint32_t src_database, uint32_t src_subfid, uint32_t dest_database,
                       const char* dest_subformname, uint32_t* dest_subfid) {
  return Copy({src_database, src_subfid, dest_database, dest_subformname, dest_subfid}, KVDESIGN_SUBFORM,
              KVFAIL_NO_SUBFORM);
}

uint32_t KVSubformDelete(uint32_t database, uint32_t subfid) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  if (subfid == 0) return KVError(KVFAIL_NO_SUBFORM);
  uint32_t design_flags = 0;
  (void)KVIDesignNoteGetFlagsExt(dbase, subfid, &design_flags, nullptr);  // no flags then: no subform
  if ((design_flags & KVDESIGN_SUBFORM) == 0) return KVError(KVFAIL_NO_SUBFORM);
  if (uint16_t brstatus = EngNoteDelete(dbase->dbhand, subfid, 0)) return KVError(brstatus);
  KVIFormMarkDeleted(dbase->dbinfo, subfid, KVDESIGN_SUBFORM);
  return KVSUCCESS;
}

uint32_t KVSubformCreate(uint32_t database, const KVSUBFORM* subform, uint32_t body, uint32_t* subformid) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  if (subform == nullptr) return KVError(KVFAIL_NULL_PARAM);
  KVIStoreIf<uint32_t>(subformid, 0);
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  _FORMSPEC* spec = nullptr;
  if (uint32_t status = _KVISubformCreateSpec(session, dbase, subform, &spec)) return KVError(status);
  const uint32_t status = _KVISubformCreateFromSpec(session, dbase, spec, body, subformid);
  ClearForm(spec);
  return status ? KVError(status) : KVSUCCESS;
}
