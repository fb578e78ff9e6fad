// Whole databases: create, delete, copy, compact, and the view that a new database starts with.
//
// (1) These functions work on paths and leave nothing in the session.  (2) What fails after it has created a
// file deletes that file, once every handle on it is closed; a file that was there before is never deleted.
#include "kvint.h"

namespace {

constexpr STATUSROW kNoDatabase[] = {{0x103, KVFAIL_NO_DATABASE}};
constexpr STATUSROW kNoTemplate[] = {{0x103, KVFAIL_NOT_FOUND}};
constexpr STATUSROW kFileExists[] = {{0x104, KVFAIL_NAME_IN_USE}};
constexpr uint16_t kNoSuchFile = 0x103;

constexpr uint32_t kDbClassMax = 13;
constexpr uint16_t kDefaultEngineClass = 0xFF01;
constexpr uint16_t kEngineClassBase = 0xFF00;
constexpr uint32_t kEngineFlagEncrypted = 1;
constexpr uint32_t kEngineFlag4 = 4;
constexpr uint32_t kEncryptShift = 24;

constexpr uint16_t kFieldTitle = 0;
constexpr uint16_t kFieldCategories = 1;
constexpr uint16_t kFieldTemplate = 2;
constexpr uint16_t kFieldInherited = 3;

constexpr uint16_t kSinceAll = 2;  // the special time that takes everything
constexpr uint16_t kTemplateAclMode = 3;
constexpr uint16_t kAclStoreNew = 1;

constexpr uint16_t kMemberClass = 3;
constexpr uint16_t kDefaultViewClass = BRCLASS_DEFAULT | BRCLASS_VIEW;
constexpr uint32_t kNulEnded = 0xffff;  // length word of a text that ends with its NUL
constexpr uint16_t kPatchDistance = 4;
constexpr char kPatchedByte = static_cast<char>(146);
constexpr char kPatch = 'f';

uint16_t FieldBytes(const char* info, uint16_t field) {
  char text[kDbInfoBytes + 1];
  KVIDbInfoField(info, field, text, kDbInfoBytes);
  return static_cast<uint16_t>(strlen(text));
}

// A new database gets an empty access control list. One without a list would be open to everybody, so a
// failure counts.
uint16_t PutEmptyAcl(EngDb dbhand) {
  EngMem acl = 0;
  if (uint16_t brstatus = EngAclNew(&acl)) return brstatus;
  const uint16_t brstatus = EngDbAclStore(dbhand, acl, 0, kAclStoreNew);
  EngMemFree(acl);
  return brstatus;
}

// ---- Create

struct CREATION {
  const char* title;       // null: the template's
  const char* categories;  // null: the template's
  uint32_t dbcreate_flags;
  EngDb template_db;  // 0: none
  char template_info[kDbInfoBytes];
};

const char* NullIfEmpty(const char* text) { return KVIEmpty(text) ? nullptr : text; }

uint32_t OpenTemplate(const _api_session* session, const char* server, const char* filepath,
                      CREATION* creation) {
  // As for KVDatabaseOpen, a network path that cannot be built is empty, and then names no database.
  char netpath[kNetPathBytes];
  const char* path;
  (void)_KVIDbPath(session, server, filepath, netpath, &path);
  if (uint16_t brstatus = EngDbOpen(path, &creation->template_db)) return KVIMapStatus(brstatus, kNoTemplate);
  return EngDbInfoGet(creation->template_db, creation->template_info);
}

// Title, categories and template name stand in one string of the engine.
bool TextsFit(const CREATION& creation) {
  size_t text_bytes = 0;
  if (creation.dbcreate_flags & KVDBCREATE_INHERIT_TEMPLATE)
    text_bytes += FieldBytes(creation.template_info, kFieldTemplate);
  text_bytes += creation.title ? strlen(creation.title) : FieldBytes(creation.template_info, kFieldTitle);
  text_bytes += creation.categories ? strlen(creation.categories)
                                    : FieldBytes(creation.template_info, kFieldCategories);
  return text_bytes <= kDbInfoTextMax;
}

uint16_t CreateFile(const _api_session* session, const char* path, uint32_t db_class,
                    uint32_t dbcreate_flags) {
  auto engine_class =
      db_class == 0 ? kDefaultEngineClass : static_cast<uint16_t>((db_class - 1) | kEngineClassBase);
  uint32_t engine_flags = 0;
  if (dbcreate_flags & KVDBCREATE_ENGINE_FLAG_4) {
    engine_class = 0;
    engine_flags |= kEngineFlag4;
  }
  const auto encryption = static_cast<uint16_t>((dbcreate_flags & KVDBCREATE_ENCRYPT_MASK) >> kEncryptShift);
  if (encryption != 0) engine_flags |= kEngineFlagEncrypted;
  const int32_t overwrite = (dbcreate_flags & KVDBCREATE_OVERWRITE) != 0;
  return EngDbCreate(path, engine_class, overwrite, engine_flags, encryption, session->max_db_size_default);
}

// Null leaves the field as it is.
uint16_t PutField(char* info, uint16_t field, const char* text) {
  return text == nullptr ? uint16_t{0} : EngDbInfoFieldSet(info, field, text);
}

// A database made from a template is none itself: its template name is gone, or names what it inherits from.
uint16_t TakeTemplateInfo(EngDb dbhand, const CREATION& creation) {
  char info[kDbInfoBytes];
  memcpy(info, creation.template_info, sizeof info);
  char template_name[kDbInfoBytes + 1];
  KVIDbInfoField(info, kFieldTemplate, template_name, kDbInfoBytes);
  if (uint16_t brstatus = EngDbInfoFieldSet(info, kFieldTemplate, "")) return brstatus;
  if (creation.dbcreate_flags & KVDBCREATE_INHERIT_TEMPLATE)
    if (uint16_t brstatus = EngDbInfoFieldSet(info, kFieldInherited, template_name)) return brstatus;
  if (uint16_t brstatus = PutField(info, kFieldTitle, creation.title)) return brstatus;
  return EngDbInfoSet(dbhand, info);
}

uint16_t CopyTemplate(EngDb dbhand, const CREATION& creation) {
  TIMEDATE since;
  if (uint16_t brstatus = EngTimeSpecial(kSinceAll, &since)) return brstatus;
  if (uint16_t brstatus = EngDbCopy(creation.template_db, dbhand, &since, BRCLASS_ALL)) return brstatus;
  if (uint16_t brstatus = EngDbCopyTemplateAcl(creation.template_db, dbhand, kTemplateAclMode))
    return brstatus;
  return TakeTemplateInfo(dbhand, creation);
}

uint16_t PutEmptyDesign(EngDb dbhand) {
  if (uint16_t brstatus = PutEmptyAcl(dbhand)) return brstatus;
  return KVIDbCreateDefaultView(dbhand);
}

uint16_t PutTexts(EngDb dbhand, const CREATION& creation) {
  char info[kDbInfoBytes] = {};
  if (uint16_t brstatus = EngDbInfoGet(dbhand, info)) return brstatus;
  if (uint16_t brstatus = PutField(info, kFieldTitle, creation.title)) return brstatus;
  if (uint16_t brstatus = PutField(info, kFieldCategories, creation.categories)) return brstatus;
  if (uint16_t brstatus = EngDbInfoSet(dbhand, info)) return brstatus;
  return KVIDbRefreshIconInfo(dbhand, info);
}

uint16_t FillNewDatabase(const char* path, const CREATION& creation) {
  EngDb dbhand = 0;
  if (uint16_t brstatus = EngDbOpen(path, &dbhand)) return brstatus;
  KVGuard close_engine([&] { EngDbClose(dbhand); });
  if (uint16_t brstatus = creation.template_db ? CopyTemplate(dbhand, creation) : PutEmptyDesign(dbhand))
    return brstatus;
  if (uint16_t brstatus = PutTexts(dbhand, creation)) return brstatus;
  return KVIBryndDesignCollCreate(dbhand);
}

// ---- Copy

struct COPY {
  EngDb source;
  uint32_t dbcopy_flags;
  uint16_t doc_class;           // 0: all classes
  const KVDATETIME* doc_begin;  // null: from the beginning
  char info[kDbInfoBytes];      // of the copy, with KVDBCOPY_KEEP_INFO
};

// The information of the copy: the source's, field by field, under the new title if there is one.
uint32_t TakeSourceInfo(const char* dest_title, COPY* copy) {
  char source_info[kDbInfoBytes] = {};
  if (uint16_t brstatus = EngDbInfoGet(copy->source, source_info)) return brstatus;
  if (dest_title != nullptr && strlen(dest_title) > kDbInfoTextMax) return KVFAIL_DATA_TOO_LONG;
  for (uint16_t field : {kFieldTitle, kFieldCategories, kFieldInherited, kFieldTemplate}) {
    char text[kDbInfoBytes + 1];
    KVIDbInfoField(source_info, field, text, kDbInfoBytes);
    const bool is_new_title = field == kFieldTitle && dest_title != nullptr;
    if (uint16_t brstatus = PutField(copy->info, field, is_new_title ? dest_title : text)) return brstatus;
  }
  return KVSUCCESS;
}

uint16_t PutNewDesign(EngDb dbhand, const COPY& copy) {
  if ((copy.doc_class & BRCLASS_VIEW) == 0)
    if (uint16_t brstatus = KVIDbCreateDefaultView(dbhand)) return brstatus;
  return copy.dbcopy_flags & KVDBCOPY_ACL ? uint16_t{0} : PutEmptyAcl(dbhand);
}

uint16_t CopyReplicaInfo(EngDb source, EngDb destination) {
  DBREPLICAINFO info{};
  if (uint16_t brstatus = EngDbReplicaInfoGet(source, &info)) return brstatus;
  return EngDbReplicaInfoSet(destination, &info);
}

uint16_t CopyContents(const COPY& copy, EngDb dbhand) {
  TIMEDATE since;
  if (copy.doc_begin != nullptr)
    since = KVILoad<TIMEDATE>(copy.doc_begin);
  else if (uint16_t brstatus = EngTimeSpecial(kSinceAll, &since))
    return brstatus;
  const uint16_t class_mask = copy.doc_class == 0 ? uint16_t{BRCLASS_ALL} : copy.doc_class;
  if (uint16_t brstatus = EngDbCopy(copy.source, dbhand, &since, class_mask)) return brstatus;
  if (copy.dbcopy_flags & KVDBCOPY_KEEP_INFO) {
    if (uint16_t brstatus = EngDbInfoSet(dbhand, copy.info)) return brstatus;
    if (uint16_t brstatus = KVIDbRefreshIconInfo(dbhand, copy.info)) return brstatus;
  }
  if (copy.dbcopy_flags & KVDBCOPY_ACL)
    if (uint16_t brstatus = EngDbCopyAcl(copy.source, dbhand)) return brstatus;
  return copy.dbcopy_flags & KVDBCOPY_REPLICA ? CopyReplicaInfo(copy.source, dbhand) : uint16_t{0};
}

uint16_t CopyInto(const COPY& copy, EngDb dbhand) {
  KVGuard close_engine([&] { EngDbClose(dbhand); });
  return CopyContents(copy, dbhand);
}

uint16_t CopyIntoNew(const COPY& copy, const char* path) {
  EngDb dbhand = 0;
  if (uint16_t brstatus = EngDbOpen(path, &dbhand)) return brstatus;
  KVGuard close_engine([&] { EngDbClose(dbhand); });
  if (uint16_t brstatus = PutNewDesign(dbhand, copy)) return brstatus;
  return CopyContents(copy, dbhand);
}

// Copies into the database at the path, which is created if there is none.
uint16_t CopyToPath(const _api_session* session, const COPY& copy, const char* path) {
  EngDb dbhand = 0;
  const uint16_t opened = EngDbOpen(path, &dbhand);
  if (opened == 0) return CopyInto(copy, dbhand);
  if ((opened & 0x3fff) != kNoSuchFile) return opened;
  if (uint16_t brstatus = EngDbCreate(path, kDefaultEngineClass, 1, 0, 0, session->max_db_size_default))
    return brstatus;
  const uint16_t brstatus = CopyIntoNew(copy, path);
  if (brstatus) EngDbDelete(path);
  return brstatus;
}

}  // namespace

uint32_t KVDatabaseCreate(const char* server, const char* filepath, const char* title, const char* categories,
                          const char* template_server, const char* template_filepath, uint32_t db_class,
                          uint32_t dbcreate_flags) {
  _api_session* session;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  if (KVIEmpty(filepath)) return KVError(KVFAIL_NULL_PARAM);
  if (db_class > kDbClassMax) return KVError(KVFAIL_BAD_ENUM);

  CREATION creation{.title = NullIfEmpty(title),
                    .categories = NullIfEmpty(categories),
                    .dbcreate_flags = dbcreate_flags,
                    .template_db = 0,
                    .template_info = {}};
  KVGuard close_template([&] {
    if (creation.template_db) EngDbClose(creation.template_db);
  });
  if (!KVIEmpty(template_filepath))
    if (uint32_t status = OpenTemplate(session, template_server, template_filepath, &creation))
      return KVError(status);
  if (!TextsFit(creation)) return KVError(KVFAIL_DATA_TOO_LONG);

  char netpath[kNetPathBytes];
  const char* path;
  if (uint16_t brstatus = _KVIDbPath(session, server, filepath, netpath, &path)) return KVError(brstatus);
  if (uint16_t brstatus = CreateFile(session, path, db_class, dbcreate_flags))
    return KVError(KVIMapStatus(brstatus, kFileExists));
  const uint16_t brstatus = FillNewDatabase(path, creation);
  if (brstatus == 0) return KVSUCCESS;
  EngDbDelete(path);
  return KVError(brstatus);
}

uint32_t KVDatabaseDelete(const char* server, const char* filepath) {
  _api_session* session;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  if (KVIEmpty(filepath)) return KVError(KVFAIL_NULL_PARAM);
  char netpath[kNetPathBytes];
  const char* path;
  if (uint16_t brstatus = _KVIDbPath(session, server, filepath, netpath, &path)) return KVError(brstatus);
  if (uint16_t brstatus = EngDbDelete(path)) return KVError(KVIMapStatus(brstatus, kNoDatabase));
  return KVSUCCESS;
}

uint32_t KVDatabaseCopy(const char* src_server, const char* src_filepath, const char* dest_server,
                        const char* dest_filepath, const char* dest_title, uint32_t dbcopy_flags,
                        uint32_t doc_class, const KVDATETIME* doc_begin) {
  _api_session* session;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  if (KVIEmpty(src_filepath)) return KVError(KVFAIL_NULL_PARAM);
  if (KVIEmpty(dest_filepath)) return KVError(KVFAIL_NULL_PARAM);

  COPY copy{.source = 0,
            .dbcopy_flags = dbcopy_flags,
            .doc_class = static_cast<uint16_t>(doc_class),
            .doc_begin = doc_begin,
            .info = {}};
  char netpath[kNetPathBytes];
  const char* path;
  if (uint16_t brstatus = _KVIDbPath(session, src_server, src_filepath, netpath, &path))
    return KVError(brstatus);
  if (uint16_t brstatus = EngDbOpen(path, &copy.source)) return KVError(KVIMapStatus(brstatus, kNoDatabase));
  KVGuard close_source([&] { EngDbClose(copy.source); });
  if (dbcopy_flags & KVDBCOPY_KEEP_INFO)
    if (uint32_t status = TakeSourceInfo(NullIfEmpty(dest_title), &copy)) return KVError(status);
  if (uint16_t brstatus = _KVIDbPath(session, dest_server, dest_filepath, netpath, &path))
    return KVError(brstatus);
  if (uint16_t brstatus = CopyToPath(session, copy, path)) return KVError(brstatus);
  return KVSUCCESS;
}

uint32_t KVDatabaseCompact(const char* server, const char* filepath, uint32_t* size_before,
                           uint32_t* size_after) {
  _api_session* session;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  if (KVIEmpty(filepath)) return KVError(KVFAIL_NULL_PARAM);
  KVIStoreIf<uint32_t>(size_before, 0);
  KVIStoreIf<uint32_t>(size_after, 0);
  if (!KVIEmpty(server) && !_KVIIsLocalServer(session, server)) return KVError(KVFAIL_LOCAL_ONLY);
  DBCOMPACTSIZES sizes{};
  if (uint16_t brstatus = EngDbCompact(filepath, 0, &sizes))
    return KVError(KVIMapStatus(brstatus, kNoDatabase));
  KVIStoreIf<uint32_t>(size_before, sizes.Before);
  KVIStoreIf<uint32_t>(size_after, sizes.After);
  return KVSUCCESS;
}

// ---- The default view

namespace {

// Formulas of earlier engines needed this byte; in a formula of this one the place never holds it.
void PatchMerged(EngMem formula) {
  uint16_t formula_bytes = 0;
  if (EngFormulaSizeGet(formula, &formula_bytes) || formula_bytes < kPatchDistance) return;
  KVLocked block(formula);
  char* place = block.bytes + formula_bytes - kPatchDistance;
  if (*place == kPatchedByte) *place = kPatch;
}

uint16_t PutDefaultViewFormula(EngNote view) {
  EngMem selection = 0;
  if (uint16_t brstatus = _KVICompileFormula(nullptr, "SELECT @All", &selection)) return brstatus;
  KVGuard free_selection([&] { EngMemFree(selection); });
  EngMem column = 0;
  if (uint16_t brstatus = _KVICompileFormula("#", "@DocNumber", &column)) return brstatus;
  KVGuard free_column([&] { EngMemFree(column); });
  if (uint16_t brstatus = EngFormulaSummaryItem(selection, "#", 1)) return brstatus;
  if (uint16_t brstatus = EngFormulaMerge(column, selection)) return brstatus;
  PatchMerged(selection);
  return _KVIPutFormula(view, selection);
}

}  // namespace

uint16_t KVIDbCreateDefaultView(EngDb dbhand) {
  EngNote view = 0;
  if (uint16_t brstatus = EngNoteCreate(dbhand, &view)) return brstatus;
  KVGuard close_view([&] { EngNoteClose(view); });
  const uint16_t note_class = kDefaultViewClass;
  if (uint16_t brstatus = EngNoteInfoSet(view, kMemberClass, &note_class)) return brstatus;
  if (uint16_t brstatus = EngItemTextSet(view, "$TITLE", "", kNulEnded)) return brstatus;
  if (uint16_t brstatus = EngItemTextSet(view, "$FormulaClass", "1", kNulEnded)) return brstatus;
  if (uint16_t brstatus = PutDefaultViewFormula(view)) return brstatus;
  return EngNoteUpdate(view, 0);
}
