// Properties of indexes.
//
// The window title is computed once for a loaded document; asking for it loads the current one.
#include <cstring>

#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint32_t kFormNameMax = 0x82;
constexpr uint32_t kOldFormNameMax = 0x42;
constexpr uint32_t kTypeWordBytes = 2;
constexpr char kSequenceStart = 0x7f;

struct PROPERTYCALL {
  _api_session* session;
  _INDEX* idx;
};

// ---- Numbers

uint32_t ReadFormId(const PROPERTYCALL& call, void* value) {
  const _FORMSPEC* form = call.idx->active_form;
  KVIStore<uint32_t>(value, form != nullptr ? form->formid : 0);
  return KVSUCCESS;
}

uint32_t ReadViewId(const PROPERTYCALL& call, void* value) {
  const _VIEWSPEC* view = call.idx->active_view;
  KVIStore<uint32_t>(value, view != nullptr ? view->viewid : 0);
  return KVSUCCESS;
}

uint32_t ReadIsView(const PROPERTYCALL& call, void* value) {
  KVIStore<int32_t>(value, call.idx->collhand != 0 ? 1 : 0);
  return KVSUCCESS;
}

uint32_t ReadIsFullText(const PROPERTYCALL& call, void* value) {
  KVIStore<int32_t>(value, call.idx->ftsearch != nullptr ? 1 : 0);
  return KVSUCCESS;
}

uint32_t ReadLevel(const PROPERTYCALL& call, void* value) {
  KVIStore<uint32_t>(value, call.idx->collhand != 0 ? call.idx->collpos.Level : 0);
  return KVSUCCESS;
}

uint32_t ReadScore(const PROPERTYCALL& call, void* value) {
  const FTSEARCH* search = call.idx->ftsearch;
  KVIStore<uint32_t>(value, search != nullptr && search->use_scores ? search->score : 0);
  return KVSUCCESS;
}

uint32_t ReadDatabase(const PROPERTYCALL& call, void* value) {
  KVIStore<uint32_t>(value, call.idx->dbase->database);
  return KVSUCCESS;
}

uint32_t ReadSearchClass(const PROPERTYCALL& call, void* value) {
  KVIStore<uint32_t>(value, call.idx->search_class);
  return KVSUCCESS;
}

uint32_t ReadDatetime(const PROPERTYCALL& call, void* value) {
  KVICopyBytes(value, &call.idx->index_datetime, sizeof call.idx->index_datetime);
  return KVSUCCESS;
}

// Rows are read one by one.
uint32_t ReadCacheRows(const PROPERTYCALL&, void* value) {
  KVIStore<uint32_t>(value, 1);
  return KVSUCCESS;
}

uint32_t ReadCacheStats(const PROPERTYCALL&, void* value) {
  memset(value, 0, sizeof(KVVIEWCACHESTATS));
  return KVSUCCESS;
}

uint32_t ReadFormName(const PROPERTYCALL& call, void* value) {
  const _FORMSPEC* form = call.idx->active_form;
  const char* name = form != nullptr && form->formid == 0 ? form->name : "";
  const uint32_t limit = call.session->kvprog_version < kVersionLongNames ? kOldFormNameMax : kFormNameMax;
  KVIstrnncpy(static_cast<char*>(value), name, limit);
  return KVSUCCESS;
}

// ---- The title

uint32_t LoadCurrent(const PROPERTYCALL& call) {
  _INDEX* idx = call.idx;
  if (idx->last_load.notehand != 0) return KVSUCCESS;
  uint32_t docid = 0;
  const IndexMove stay{.direction = KVNAV_CURRENT, .nav_flags = 0, .docid = &docid, .indent = nullptr};
  if (uint32_t status = _KVIIndexNavigate(call.session, idx, stay)) return status;
  if ((docid & kRowNotDocument) != 0) return KVFAIL_BAD_DOCUMENT;
  return _LoadCurrentDoc(call.session, idx->dbase, idx, docid, 0);
}

bool HasSequences(const char* value, uint32_t value_bytes) {
  const uint16_t type_word = KVI_BRDataTypeRead(value, 0);
  return (type_word == BRTYPE_TEXT || type_word == BRTYPE_TEXT_LIST) &&
         memchr(value + kTypeWordBytes, kSequenceStart, value_bytes - kTypeWordBytes) != nullptr;
}

uint32_t TitleFromValue(const PROPERTYCALL& call, EngMem result, uint16_t result_bytes) {
  const KVLocked value(result);  // converted where it lies
  if (value.bytes == nullptr || result_bytes < kTypeWordBytes) return KVFAIL_DATA_UNAVAILABLE;
  _DOCUMENT* doc = &call.idx->last_load;
  const char* source = value.bytes;
  uint32_t source_bytes = result_bytes;
  if (HasSequences(source, source_bytes)) {
    if (uint32_t status = _TranslateItem(call.session, call.idx, doc, value.bytes, &source_bytes))
      return status;
    source = call.session->buffer;
  }
  void* title = nullptr;
  if (uint32_t status =
          _DataConvert(call.session, nullptr, nullptr, GetKVType(KVI_BRDataTypeRead(source, 0)),
                       source_bytes - kTypeWordBytes, source + kTypeWordBytes, KVCONV_ALLOC | KVCONV_LINES,
                       nullptr, nullptr, KVTYPE_TEXT, 0, &title, nullptr))
    return status;
  doc->title = static_cast<char*>(title);
  return KVSUCCESS;
}

uint32_t ComputeTitle(const PROPERTYCALL& call) {
  const _DOCUMENT* doc = &call.idx->last_load;
  if (doc->title != nullptr || doc->form == nullptr || doc->form->title_formula == nullptr) return KVSUCCESS;
  EngCompute compute = 0;
  if (uint16_t brstatus = EngComputeBegin(0, doc->form->title_formula, &compute)) return brstatus;
  KVGuard end_compute([&] { EngComputeEnd(compute); });
  EngMem result = 0;
  uint16_t result_bytes = 0;
  if (uint16_t brstatus =
          EngComputeEvaluate(compute, doc->notehand, &result, &result_bytes, nullptr, nullptr, nullptr))
    return brstatus;
  KVGuard free_result([&] {
    if (result) EngMemFree(result);
  });
  return TitleFromValue(call, result, result_bytes);
}

// The title of the current document, empty when there is none.
uint32_t FindTitle(const PROPERTYCALL& call, const char** title) {
  if (uint32_t status = LoadCurrent(call)) return status;
  if (uint32_t status = ComputeTitle(call)) return status;
  *title = call.idx->last_load.title != nullptr ? call.idx->last_load.title : "";
  return KVSUCCESS;
}

uint32_t ReadTitleLength(const PROPERTYCALL& call, void* value) {
  KVIStore<uint32_t>(value, 0);
  const char* title = nullptr;
  if (uint32_t status = FindTitle(call, &title)) return status;
  KVIStore<uint32_t>(value, static_cast<uint32_t>(strlen(title)));
  return KVSUCCESS;
}

uint32_t ReadTitle(const PROPERTYCALL& call, void* value) {
  *static_cast<char*>(value) = 0;
  const char* title = nullptr;
  if (uint32_t status = FindTitle(call, &title)) return status;
  memcpy(value, title, strlen(title) + 1);
  return KVSUCCESS;
}

// ---- Writing

uint32_t WriteFormId(const PROPERTYCALL& call, const void* value) {
  _INDEX* idx = call.idx;
  const auto formid = KVILoad<uint32_t>(value);
  if (idx->doc_idlist != nullptr || idx->active_form != nullptr || idx->bindlist != nullptr)
    (void)ClearIndexState(idx, kStateIndexAll);
  if (formid == 0) return KVSUCCESS;
  return _KVIFormGetSpec(call.session, idx->dbase, formid, nullptr, &idx->active_form);
}

uint32_t WriteFormName(const PROPERTYCALL& call, const void* value) {
  _INDEX* idx = call.idx;
  const auto* name = static_cast<const char*>(value);
  (void)ClearIndexState(idx, kStateIndexAll);
  if (*name == 0) return KVFAIL_NO_FORM;
  uint32_t formid = 0;
  if (!EngDesignFind(idx->dbase->dbhand, name, BRCLASS_FORM, &formid)) return KVFAIL_NAME_IN_USE;
  if (_KVIDesignNoteSetTitle(call.session, 0, name, nullptr, nullptr, 0, 0)) return KVFAIL_NO_FORM;
  auto* form = KVIAllocate<_FORMSPEC>();
  if (form == nullptr) return KVFAIL_NO_MEMORY;
  form->name = KVICopyText(name, strlen(name));
  form->namelen = static_cast<uint16_t>(strlen(name));  // a title that passed the test is short
  if (form->name == nullptr) {
    KVIFree(form);
    return KVFAIL_NO_MEMORY;
  }
  idx->active_form = form;
  return KVSUCCESS;
}

uint32_t WriteSearchClass(const PROPERTYCALL& call, const void* value) {
  call.idx->search_class = static_cast<uint16_t>(KVILoad<uint32_t>(value));
  return KVSUCCESS;
}

uint32_t WriteCacheRows(const PROPERTYCALL&, const void* value) {
  return KVILoad<uint32_t>(value) <= 1 ? KVSUCCESS : KVFAIL_UNSUPPORTED;
}

uint32_t WriteReadOnly(const PROPERTYCALL&, const void*) { return KVFAIL_READ_ONLY_PROPERTY; }

// ---- The table

struct INDEXPROPERTY {
  int32_t property;
  uint32_t (*read)(const PROPERTYCALL& call, void* value);
  uint32_t (*write)(const PROPERTYCALL& call, const void* value);
};

constexpr INDEXPROPERTY kProperties[] = {
    {KVPROP_INDEX_FORM_ID, ReadFormId, WriteFormId},
    {KVPROP_INDEX_VIEW_ID, ReadViewId, WriteReadOnly},
    {KVPROP_INDEX_IS_VIEW, ReadIsView, WriteReadOnly},
    {KVPROP_INDEX_IS_FTSEARCH, ReadIsFullText, WriteReadOnly},
    {KVPROP_INDEX_LEVEL, ReadLevel, WriteReadOnly},
    {KVPROP_INDEX_SCORE, ReadScore, WriteReadOnly},
    {KVPROP_INDEX_TITLE_LENGTH, ReadTitleLength, WriteReadOnly},
    {KVPROP_INDEX_TITLE, ReadTitle, WriteReadOnly},
    {KVPROP_INDEX_DATABASE, ReadDatabase, WriteReadOnly},
    {KVPROP_INDEX_SEARCH_CLASS, ReadSearchClass, WriteSearchClass},
    {KVPROP_INDEX_FORM_NAME, ReadFormName, WriteFormName},
    {KVPROP_INDEX_DATETIME, ReadDatetime, WriteReadOnly},
    {KVPROP_INDEX_VCACHE_ROWS, ReadCacheRows, WriteCacheRows},
    {KVPROP_INDEX_VCACHE_STATS, ReadCacheStats, WriteReadOnly},
};

constexpr bool IsInOrder() {
  for (size_t i = 0; i < std::size(kProperties); ++i)
    if (kProperties[i].property != static_cast<int32_t>(i) + KVPROP_INDEX_FORM_ID) return false;
  return true;
}
static_assert(IsInOrder(), "a property is found by its number");

const INDEXPROPERTY* FindProperty(int32_t property) {
  if (property < KVPROP_INDEX_FORM_ID || property > KVPROP_INDEX_VCACHE_STATS) return nullptr;
  return &kProperties[property - KVPROP_INDEX_FORM_ID];
}

}  // namespace

uint32_t KVIndexGetProperty(uint32_t index, int32_t property, void* value) {
  _api_session* session;
  if (uint32_t status = KVIEnter(index, &session)) return status;
  if (value == nullptr) return KVError(KVFAIL_NULL_PARAM);
  _INDEX* idx = _KVIFindIndex(session, index);
  if (idx == nullptr) return KVError(KVFAIL_BAD_INDEX);
  const INDEXPROPERTY* row = FindProperty(property);
  if (row == nullptr) return KVError(KVFAIL_BAD_PROPERTY);
  if (uint32_t status = row->read({.session = session, .idx = idx}, value)) return KVError(status);
  return KVSUCCESS;
}

uint32_t KVIndexSetProperty(uint32_t index, int32_t property, const void* value) {
  _api_session* session;
  if (uint32_t status = KVIEnter(index, &session)) return status;
  if (value == nullptr) return KVError(KVFAIL_NULL_PARAM);
  _INDEX* idx = _KVIFindIndex(session, index);
  if (idx == nullptr) return KVError(KVFAIL_BAD_INDEX);
  const INDEXPROPERTY* row = FindProperty(property);
  if (row == nullptr) return KVError(KVFAIL_BAD_PROPERTY);
  // Not recorded: programs set it on every index that they open, of whatever kind.
  if (property == KVPROP_INDEX_VCACHE_ROWS && (idx->collhand == 0 || idx->flat_view))
    return KVFAIL_NOT_HIERARCHICAL;
  if (uint32_t status = row->write({.session = session, .idx = idx}, value)) return KVError(status);
  return KVSUCCESS;
}
