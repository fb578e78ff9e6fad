// Numbered properties of a database handle: one row each, with the function that reads it and the one that
// writes it.
//
// (1) Settings live in the handle's record alone.  (2) Stored facts are read from the engine at each call,
// but for the title, whose text is that of the time of opening.
#include <iterator>

#include "kvint.h"

namespace {

constexpr uint32_t kSummaryLimitMax = 0x3c00;
constexpr size_t kNameLimit = 255;
constexpr size_t kTitleLimit = 129;
constexpr size_t kOldTitleLimit = 65;
constexpr uint16_t kInfoFieldCount = 4;
constexpr uint32_t kReplicaDbFlags = 0xc60;
constexpr uint32_t kReplicaFlags = 0x294;
constexpr uint32_t kPriorityShift = 14;
constexpr uint16_t kNoFullTextIndex = 0xf02;

constexpr uint16_t kMemberClass = 3;
constexpr uint16_t kOpenSummary = 1;
constexpr uint16_t kUpdateForce = 1;
constexpr uint32_t kNulEnded = 0xffff;  // length word of a text that ends with its NUL

constexpr uint16_t kFlagsTextMax = 31;
constexpr char kNoStoredForm = 'f';

// The database a property belongs to. The functions give a status that the frame reports.
struct PROPERTYCALL {
  const _api_session* session;
  _DATABASE* dbase;
};
using ReadProperty = uint32_t (*)(const PROPERTYCALL& call, void* value);
using WriteProperty = uint32_t (*)(const PROPERTYCALL& call, const void* value);

// ---- Settings of the handle

template <auto Field>
uint32_t ReadSetting(const PROPERTYCALL& call, void* value) {
  KVIStore<std::remove_reference_t<decltype(call.dbase->*Field)>>(value, call.dbase->*Field);
  return KVSUCCESS;
}

template <int32_t _DATABASE::*Field>
uint32_t WriteBool(const PROPERTYCALL& call, const void* value) {
  call.dbase->*Field = KVILoad<int32_t>(value) != 0;
  return KVSUCCESS;
}

uint32_t WriteSummaryLimit(const PROPERTYCALL& call, const void* value) {
  const auto limit = KVILoad<uint32_t>(value);
  if (limit > kSummaryLimitMax) return KVFAIL_DATA_TOO_LONG;
  call.dbase->summary_limit = limit;
  return KVSUCCESS;
}

uint32_t WriteVcacheRows(const PROPERTYCALL& call, const void* value) {
  const auto rows = KVILoad<uint32_t>(value);
  call.dbase->vcache_rows = rows == 0 ? 1 : rows;
  return KVSUCCESS;
}

uint32_t ReadBuild(const PROPERTYCALL& call, void* value) {
  KVIStore<uint32_t>(value, call.dbase->br_build);
  return KVSUCCESS;
}

// ---- Names and information fields

void StoreText(void* value, const char* text, size_t limit) {
  KVIstrnncpy(static_cast<char*>(value), text == nullptr ? "" : text, limit);
}

uint32_t ReadServer(const PROPERTYCALL& call, void* value) {
  StoreText(value, call.dbase->dbinfo->server_name, kNameLimit);
  return KVSUCCESS;
}

uint32_t ReadFilepath(const PROPERTYCALL& call, void* value) {
  StoreText(value, call.dbase->dbinfo->db_relpath, kNameLimit);
  return KVSUCCESS;
}

uint32_t ReadTitle(const PROPERTYCALL& call, void* value) {
  const bool has_short_titles = call.session->kvprog_version < kVersionLongNames;
  StoreText(value, call.dbase->dbinfo->db_title, has_short_titles ? kOldTitleLimit : kTitleLimit);
  return KVSUCCESS;
}

template <uint16_t Field>
uint32_t ReadInfo(const PROPERTYCALL& call, void* value) {
  char info[kDbInfoBytes] = {};
  char text[kDbInfoBytes + 1];
  EngDbInfoGet(call.dbase->dbhand, info);
  KVIDbInfoField(info, Field, text, kDbInfoTextMax);
  StoreText(value, text, kDbInfoTextMax);
  return KVSUCCESS;
}

template <uint16_t Field>
uint32_t WriteInfo(const PROPERTYCALL& call, const void* value) {
  const auto* new_text = static_cast<const char*>(value);
  char info[kDbInfoBytes] = {};
  if (uint16_t brstatus = EngDbInfoGet(call.dbase->dbhand, info)) return brstatus;
  size_t text_bytes = strlen(new_text);
  for (uint16_t field = 0; field < kInfoFieldCount; ++field) {
    char text[kDbInfoBytes + 1];
    if (field == Field) continue;
    KVIDbInfoField(info, field, text, kDbInfoTextMax);
    text_bytes += strlen(text);
  }
  if (text_bytes > kDbInfoTextMax) return KVFAIL_DATA_TOO_LONG;
  if (uint16_t brstatus = EngDbInfoFieldSet(info, Field, new_text)) return brstatus;
  if (uint16_t brstatus = EngDbInfoSet(call.dbase->dbhand, info)) return brstatus;
  return KVIDbRefreshIconInfo(call.dbase->dbhand, info);
}

// ---- Replication

uint32_t DbFlags(const DBREPLICAINFO& info) { return info.Flags & kReplicaDbFlags; }
uint32_t Flags(const DBREPLICAINFO& info) { return info.Flags & kReplicaFlags; }
uint32_t Cutoff(const DBREPLICAINFO& info) { return info.CutoffInterval; }
int32_t Priority(const DBREPLICAINFO& info) { return ((info.Flags >> kPriorityShift) + 1) & 3; }
TIMEDATE ReplicaId(const DBREPLICAINFO& info) { return info.ID; }

// A failure leaves the value that a zeroed record has, and is reported then.
template <auto Value>
uint32_t ReadReplica(const PROPERTYCALL& call, void* value) {
  DBREPLICAINFO info{};
  const uint16_t brstatus = EngDbReplicaInfoGet(call.dbase->dbhand, &info);
  if (brstatus) info = {};
  KVIStore<decltype(Value(info))>(value, Value(info));
  return brstatus;
}

void ReplaceFlags(DBREPLICAINFO* info, uint32_t mask, uint32_t flags) {
  info->Flags = static_cast<uint16_t>((info->Flags & ~mask) | (flags & mask));
}
void SetDbFlags(DBREPLICAINFO* info, const void* value) {
  ReplaceFlags(info, kReplicaDbFlags, KVILoad<uint32_t>(value));
}
void SetFlags(DBREPLICAINFO* info, const void* value) {
  ReplaceFlags(info, kReplicaFlags, KVILoad<uint32_t>(value));
}
void SetCutoff(DBREPLICAINFO* info, const void* value) {
  info->CutoffInterval = static_cast<uint16_t>(KVILoad<uint32_t>(value));
}
void SetPriority(DBREPLICAINFO* info, const void* value) {
  const uint32_t priority = (KVILoad<uint32_t>(value) - 1) & 3;
  ReplaceFlags(info, 3u << kPriorityShift, priority << kPriorityShift);
}
void SetReplicaId(DBREPLICAINFO* info, const void* value) { info->ID = KVILoad<TIMEDATE>(value); }

template <auto Set>
uint32_t WriteReplica(const PROPERTYCALL& call, const void* value) {
  DBREPLICAINFO info{};
  if (uint16_t brstatus = EngDbReplicaInfoGet(call.dbase->dbhand, &info)) return brstatus;
  Set(&info, value);
  return EngDbReplicaInfoSet(call.dbase->dbhand, &info);
}

// ---- Facts that the engine tells

uint32_t ReadClass(const PROPERTYCALL& call, void* value) {
  uint16_t db_class = 0;
  const uint16_t brstatus = EngDbClassGet(call.dbase->dbhand, &db_class);
  KVIStore<int32_t>(value, brstatus ? 0 : (db_class + 1) & 0xff);
  return brstatus;
}

uint32_t ReadId(const PROPERTYCALL& call, void* value) {
  KVIStore<TIMEDATE>(value, call.dbase->dbinfo->dbid);
  return KVSUCCESS;
}

struct CHANGETIMES {
  TIMEDATE data;
  TIMEDATE other;
};

template <TIMEDATE CHANGETIMES::*Time>
uint32_t ReadModified(const PROPERTYCALL& call, void* value) {
  CHANGETIMES times{};
  const uint16_t brstatus = EngDbModifiedTimeGet(call.dbase->dbhand, &times.data, &times.other);
  KVIStore<TIMEDATE>(value, brstatus ? TIMEDATE{} : times.*Time);
  return brstatus;
}

struct SPACEUSAGE {
  uint32_t used;
  uint32_t unused;
};

template <uint32_t SPACEUSAGE::*Space>
uint32_t ReadSpace(const PROPERTYCALL& call, void* value) {
  SPACEUSAGE usage{};
  const uint16_t brstatus = EngDbSpaceUsageGet(call.dbase->dbhand, &usage.used, &usage.unused);
  KVIStore<uint32_t>(value, brstatus ? 0 : usage.*Space);
  return brstatus;
}

// Any other failure than a missing index says nothing about it: the index counts as there.
uint32_t ReadHasFullText(const PROPERTYCALL& call, void* value) {
  TIMEDATE time;
  KVIStore<int32_t>(value, EngFullTextIndexTimeGet(call.dbase->dbhand, &time) != kNoFullTextIndex);
  return KVSUCCESS;
}

uint32_t ReadFullTextTime(const PROPERTYCALL& call, void* value) {
  TIMEDATE time{};
  const uint16_t brstatus = EngFullTextIndexTimeGet(call.dbase->dbhand, &time);
  KVIStore<TIMEDATE>(value, brstatus ? TIMEDATE{} : time);
  return brstatus;
}

// ---- Default form and view

uint32_t DefaultId(EngDb dbhand, uint16_t class_bit) {
  uint32_t id = 0;
  const auto special = static_cast<uint16_t>(BRCLASS_DEFAULT | class_bit);
  return EngDbSpecialIdGet(dbhand, special, &id) ? 0 : id;
}

template <uint16_t ClassBit>
uint32_t ReadDefault(const PROPERTYCALL& call, void* value) {
  KVIStore<uint32_t>(value, DefaultId(call.dbase->dbhand, ClassBit));
  return KVSUCCESS;
}

// A design record that is opened to change its class; closes itself.
struct CLASSCHANGE {
  CLASSCHANGE() = default;
  ~CLASSCHANGE() { Close(); }
  CLASSCHANGE(const CLASSCHANGE&) = delete;
  CLASSCHANGE& operator=(const CLASSCHANGE&) = delete;

  uint16_t Open(EngDb dbhand, uint32_t id) { return EngNoteOpen(dbhand, id, 0, &note); }
  uint16_t Class() const {
    uint16_t note_class = 0;
    return EngNoteInfoGet(note, kMemberClass, &note_class) ? 0 : note_class;
  }
  uint16_t SetClass(uint32_t note_class) {
    const auto word = static_cast<uint16_t>(note_class);
    return EngNoteInfoSet(note, kMemberClass, &word);
  }
  // Stores the record if it is open, and closes it.
  uint16_t Store() {
    const uint16_t brstatus = note == 0 ? uint16_t{0} : EngNoteUpdate(note, 0);
    Close();
    return brstatus;
  }
  void Close() {
    if (note) EngNoteClose(note);
    note = 0;
  }

  EngNote note = 0;
};

// The record with this id becomes the default of its class instead of the one that is; id 0 leaves the class
// without a default.
uint32_t ReplaceDefault(EngDb dbhand, uint16_t class_bit, uint32_t id, uint32_t no_such_record) {
  const uint32_t old_id = DefaultId(dbhand, class_bit);
  if (old_id == id) return KVSUCCESS;
  CLASSCHANGE old_default;
  CLASSCHANGE new_default;
  if (old_id != 0) {
    if (uint16_t brstatus = old_default.Open(dbhand, old_id)) return brstatus;
    if (uint16_t brstatus = old_default.SetClass(class_bit)) return brstatus;
  }
  if (id != 0) {
    if (new_default.Open(dbhand, id)) return no_such_record;
    if ((new_default.Class() & class_bit) == 0) return no_such_record;
    if (uint16_t brstatus = new_default.SetClass(BRCLASS_DEFAULT | class_bit)) return brstatus;
  }
  if (uint16_t brstatus = old_default.Store()) return brstatus;
  return new_default.Store();
}

template <uint16_t ClassBit, uint32_t NoSuchRecord>
uint32_t WriteDefault(const PROPERTYCALL& call, const void* value) {
  return ReplaceDefault(call.dbase->dbhand, ClassBit, KVILoad<uint32_t>(value), NoSuchRecord);
}

// ---- The stored-form flag

uint32_t ReadStoredForm(const PROPERTYCALL& call, void* value) {
  int32_t on = 0;
  if (uint32_t status = KVIDbTranslateStoredForm(kTranslateRead, &on, call.dbase->dbhand)) return status;
  KVIStore<int32_t>(value, on);
  return KVSUCCESS;
}

uint32_t WriteStoredForm(const PROPERTYCALL& call, const void* value) {
  auto on = KVILoad<int32_t>(value);
  return KVIDbTranslateStoredForm(kTranslateWrite, &on, call.dbase->dbhand);
}

// ---- The table

struct DBPROPERTY {
  int32_t property;
  ReadProperty read;
  WriteProperty write;  // null: read only
};

constexpr DBPROPERTY kProperties[] = {
    {KVPROP_DB_SUMMARY_LIMIT, ReadSetting<&_DATABASE::summary_limit>, WriteSummaryLimit},
    {KVPROP_DB_DELAY_COMMIT, ReadSetting<&_DATABASE::delay_commit>, WriteBool<&_DATABASE::delay_commit>},
    {KVPROP_DB_STRICT_BIND, ReadSetting<&_DATABASE::strict_bind>, WriteBool<&_DATABASE::strict_bind>},
    {KVPROP_DB_FETCH_DESIGN_CODE, ReadSetting<&_DATABASE::fetch_design_code>,
     WriteBool<&_DATABASE::fetch_design_code>},
    {KVPROP_DB_DOCOPEN_DESIGN, ReadSetting<&_DATABASE::docopen_design>,
     WriteBool<&_DATABASE::docopen_design>},
    {KVPROP_DB_SERVER, ReadServer, nullptr},
    {KVPROP_DB_FILEPATH, ReadFilepath, nullptr},
    {KVPROP_DB_TITLE, ReadTitle, WriteInfo<0>},
    {KVPROP_DB_INFO_1, ReadInfo<1>, WriteInfo<1>},
    {KVPROP_DB_INFO_2, ReadInfo<2>, WriteInfo<2>},
    {KVPROP_DB_INFO_3, ReadInfo<3>, WriteInfo<3>},
    {KVPROP_DB_DEFAULT_FORM, ReadDefault<BRCLASS_FORM>, WriteDefault<BRCLASS_FORM, KVFAIL_NO_FORM>},
    {KVPROP_DB_DEFAULT_VIEW, ReadDefault<BRCLASS_VIEW>, WriteDefault<BRCLASS_VIEW, KVFAIL_NO_VIEW>},
    {KVPROP_DB_REPLICA_DB_FLAGS, ReadReplica<DbFlags>, WriteReplica<SetDbFlags>},
    {KVPROP_DB_REPLICA_ID, ReadReplica<ReplicaId>, WriteReplica<SetReplicaId>},
    {KVPROP_DB_CUTOFF_INTERVAL, ReadReplica<Cutoff>, WriteReplica<SetCutoff>},
    {KVPROP_DB_REPLICA_PRIORITY, ReadReplica<Priority>, WriteReplica<SetPriority>},
    {KVPROP_DB_REPLICA_FLAGS, ReadReplica<Flags>, WriteReplica<SetFlags>},
    {KVPROP_DB_CLASS, ReadClass, nullptr},
    {KVPROP_DB_ID, ReadId, nullptr},
    {KVPROP_DB_DATA_MODIFIED, ReadModified<&CHANGETIMES::data>, nullptr},
    {KVPROP_DB_DESIGN_MODIFIED, ReadModified<&CHANGETIMES::other>, nullptr},
    {KVPROP_DB_INSTANCE_ID, ReadId, nullptr},
    {KVPROP_DB_SPACE_1, ReadSpace<&SPACEUSAGE::used>, nullptr},
    {KVPROP_DB_SPACE_2, ReadSpace<&SPACEUSAGE::unused>, nullptr},
    {KVPROP_DB_HAS_FULLTEXT, ReadHasFullText, nullptr},
    {KVPROP_DB_FULLTEXT_TIME, ReadFullTextTime, nullptr},
    {KVPROP_DB_VCACHE_ROWS, ReadSetting<&_DATABASE::vcache_rows>, WriteVcacheRows},
    {KVPROP_DB_READ_SUBF_FIELDS, ReadSetting<&_DATABASE::read_subf_fields>,
     WriteBool<&_DATABASE::read_subf_fields>},
    {KVPROP_DB_STORED_FORM, ReadStoredForm, WriteStoredForm},
    {KVPROP_DB_BUILD, ReadBuild, nullptr},
    {KVPROP_DB_STRICT_BIND_COMPUTE, ReadSetting<&_DATABASE::strict_bind_compute>,
     WriteBool<&_DATABASE::strict_bind_compute>},
};

consteval bool IsNumberedFromOne() {
  for (int32_t row = 0; row < static_cast<int32_t>(std::size(kProperties)); ++row)
    if (kProperties[row].property != row + 1) return false;
  return true;
}
static_assert(IsNumberedFromOne(), "row n is property n + 1");

// Callers see the properties of their day. The last property of each version:
constexpr int32_t kThirdPropertyMax = KVPROP_DB_VCACHE_ROWS;
constexpr int32_t kFourthPropertyMax = KVPROP_DB_BUILD;

// The row of a property that the caller may know, null for any other.
const DBPROPERTY* FindProperty(const _api_session* session, int32_t property) {
  if (session->kvprog_version < kVersionFourth && property > kThirdPropertyMax) return nullptr;
  if (session->kvprog_version < kVersionNewest && property > kFourthPropertyMax) return nullptr;
  if (property < 1 || property > static_cast<int32_t>(std::size(kProperties))) return nullptr;
  return &kProperties[property - 1];
}

}  // namespace

uint32_t KVDatabaseGetProperty(uint32_t database, int32_t property, void* value) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  if (value == nullptr) return KVError(KVFAIL_NULL_PARAM);
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  const DBPROPERTY* row = FindProperty(session, property);
  if (row == nullptr) return KVError(KVFAIL_BAD_PROPERTY);
  if (uint32_t status = row->read({.session = session, .dbase = dbase}, value)) return KVError(status);
  return KVSUCCESS;
}

uint32_t KVDatabaseSetProperty(uint32_t database, int32_t property, const void* value) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  if (value == nullptr) return KVError(KVFAIL_NULL_PARAM);
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  const DBPROPERTY* row = FindProperty(session, property);
  if (row == nullptr) return KVError(KVFAIL_BAD_PROPERTY);
  if (row->write == nullptr) return KVError(KVFAIL_READ_ONLY_PROPERTY);
  if (uint32_t status = row->write({.session = session, .dbase = dbase}, value)) return KVError(status);
  return KVSUCCESS;
}

// ---- The information string and the icon record

void KVIDbInfoField(const char* info, uint16_t field, char* text, uint16_t text_bytes) {
  memset(text, 0, kDbInfoBytes + 1);
  EngDbInfoFieldGet(info, field, text, text_bytes);
}

uint16_t KVIDbRefreshIconInfo(EngDb dbh, const char* szInfo) {
  EngNote icon = 0;
  if (uint16_t brstatus = EngNoteOpen(dbh, kIconRecord, kOpenSummary, &icon)) return brstatus;
  KVGuard close_icon([&] { EngNoteClose(icon); });
  if (uint16_t brstatus = EngItemTextSet(icon, "$TITLE", szInfo, kNulEnded)) return brstatus;
  return EngNoteUpdate(icon, kUpdateForce);
}

namespace {

void CutLetter(char* text, char letter) {
  char* place = strchr(text, letter);
  if (place != nullptr) memmove(place, place + 1, strlen(place));
}

void AddLetter(char* text, char letter) {
  char* end = text + strlen(text);
  end[0] = letter;
  end[1] = 0;
}

// The letter stands for documents without their form; a record without flags has none.
void PutStoredForm(char* text, bool on) {
  const bool is_on = strchr(text, kNoStoredForm) == nullptr;
  if (on)
    CutLetter(text, kNoStoredForm);
  else if (is_on)
    AddLetter(text, kNoStoredForm);
}

}  // namespace

uint32_t KVIDbTranslateStoredForm(int Translate, int32_t* pHTProp, EngDb hLNDb) {
  EngNote icon = 0;
  if (EngNoteOpen(hLNDb, kIconRecord, 0, &icon)) return KVFAIL_INTERNAL;
  KVGuard close_icon([&] { EngNoteClose(icon); });
  char text[kFlagsTextMax + 2] = {};
  EngItemTextGet(icon, "$Flags", text, kFlagsTextMax);
  if (Translate == kTranslateRead) *pHTProp = strchr(text, kNoStoredForm) == nullptr;
  if (Translate != kTranslateWrite) return KVSUCCESS;
  PutStoredForm(text, *pHTProp != 0);
  // The answer is success whatever becomes of the update: reading the property again tells.
  EngItemTextSet(icon, "$Flags", text, kNulEnded);
  EngNoteUpdate(icon, 0);
  return KVSUCCESS;
}
