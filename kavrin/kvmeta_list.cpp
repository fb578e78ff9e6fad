// Listings of design records: one engine for all families, driven by a table.
//
// (1) A record is four entries of a family's list: name, menu name, cascade name, id with flags. A record
// that does not fit is not added at all. (2) The list is kept with the database's handle until it is made
// anew.
#include <algorithm>
#include <string_view>

#include "kvint.h"

namespace {

constexpr uint16_t kSearchSummary = 2;
constexpr uint16_t kListFull = 0x230;
constexpr uint16_t kNoMemory = 0x107;
constexpr uint32_t kRecordEntries = 4;
constexpr uint32_t kOldNameMax = 65;   // characters of a name in the summaries of callers before long names
constexpr uint32_t kOldPieceMax = 32;  // and of menu and cascade names

// ---- Families

// Which members a family's summary record has besides id, name and menu name, and since which version.
constexpr uint32_t kNever = UINT32_MAX;
struct SUMMARYSHAPE {
  bool has_hidden;
  uint32_t personal_since;
  bool has_cascade;
  uint32_t long_names_since;
};

struct FAMILY {
  uint16_t class_mask;
  uint32_t design_flags;
  uint32_t old_design_flags;  // for callers that know no folders
  KVDESIGNLIST _DATABASE::*list;
  int state;
  SUMMARYSHAPE shape;
};

constexpr uint16_t kFormMask = BRCLASS_FORM;
constexpr uint16_t kViewMask = BRCLASS_PRIVATE | BRCLASS_VIEW;
constexpr uint16_t kAgentMask = BRCLASS_PRIVATE | BRCLASS_AGENT;

// By DesignFamily.
constexpr FAMILY kFamilies[] = {
    {kFormMask,
     KVDESIGN_FORM,
     KVDESIGN_FORM,
     &_DATABASE::formlist,
     kStateFormList,
     {true, kNever, true, kVersionLongNames}},
    {kFormMask,
     KVDESIGN_SUBFORM,
     KVDESIGN_SUBFORM,
     &_DATABASE::subformlist,
     kStateSubformList,
     {false, kNever, false, 0}},
    {kViewMask,
     KVDESIGN_VIEW,
     kDesignViewOrFolder,
     &_DATABASE::viewlist,
     kStateViewList,
     {true, kVersionFourth, true, kVersionLongNames}},
    {kViewMask,
     KVDESIGN_FOLDER,
     KVDESIGN_FOLDER,
     &_DATABASE::folderlist,
     kStateFolderList,
     {true, 0, true, 0}},
    {kViewMask,
     KVDESIGN_NAVIGATOR,
     KVDESIGN_NAVIGATOR,
     &_DATABASE::navlist,
     kStateNavigatorList,
     {false, kNever, false, 0}},
    {kAgentMask,
     KVDESIGN_AGENT,
     KVDESIGN_AGENT,
     &_DATABASE::agentlist,
     kStateAgentList,
     {true, kVersionFourth, true, kVersionLongNames}},
};
static_assert(std::size(kFamilies) == static_cast<size_t>(DesignFamily::kAgent) + 1);
static_assert(kFamilies[static_cast<size_t>(DesignFamily::kAgent)].state == kStateAgentList);

// ---- Summaries

// A record of a list as it was read.
struct ENTRY {
  char name[kDesignTitleMax + 1];
  char menu_name[kDesignPieceMax + 1];
  char cascade_name[kDesignPieceMax + 1];
  char ids[sizeof(uint32_t) * 2 + 1];
};

// Where the members of a summary lie for a caller's version; the id is at its start. A member at 0 is none.
struct LAYOUT {
  uint32_t hidden, personal, name, menu_name, cascade_name;
  uint32_t name_max, piece_max;
  uint32_t summ_bytes;
};

constexpr LAYOUT LayoutOf(const SUMMARYSHAPE& shape, uint32_t version) {
  const bool has_long_names = version >= shape.long_names_since;
  LAYOUT layout{};
  layout.name_max = has_long_names ? kDesignTitleMax : kOldNameMax;
  layout.piece_max = has_long_names ? kDesignPieceMax : kOldPieceMax;
  uint32_t end = sizeof(uint32_t);
  const auto take = [&](uint32_t* member, uint32_t bytes) {
    *member = end;
    end += bytes;
  };
  if (shape.has_hidden) take(&layout.hidden, sizeof(int32_t));
  if (version >= shape.personal_since) take(&layout.personal, sizeof(int32_t));
  take(&layout.name, layout.name_max + 1);
  take(&layout.menu_name, layout.piece_max + 1);
  if (shape.has_cascade) take(&layout.cascade_name, layout.piece_max + 1);
  layout.summ_bytes = end;
  return layout;
}

constexpr uint32_t SummaryBytes(DesignFamily family, uint32_t version) {
  return LayoutOf(kFamilies[static_cast<size_t>(family)].shape, version).summ_bytes;
}
static_assert(SummaryBytes(DesignFamily::kForm, kVersionNewest) == sizeof(KVFORMSUMM));
static_assert(SummaryBytes(DesignFamily::kForm, kVersionLongNames - 1) == 140);
static_assert(SummaryBytes(DesignFamily::kSubform, kVersionNewest) == sizeof(KVSUBFORMSUMM));
static_assert(SummaryBytes(DesignFamily::kView, kVersionNewest) == sizeof(KVVIEWSUMM));
static_assert(SummaryBytes(DesignFamily::kView, kVersionLongNames - 1) == 140);
static_assert(SummaryBytes(DesignFamily::kFolder, kVersionNewest) == sizeof(KVFOLDERSUMM));
static_assert(SummaryBytes(DesignFamily::kNavigator, kVersionNewest) == sizeof(KVNAVIGATORSUMM));

void PutName(char* summ, uint32_t member, const char* text, uint32_t text_max) {
  if (member != 0) KVICopyBytes(summ + member, text, std::min<size_t>(strlen(text), text_max));
}

// The summary is all zero.
void PutSummary(const LAYOUT& layout, const ENTRY& entry, char* summ) {
  const auto design_flags = KVILoad<uint32_t>(entry.ids + sizeof(uint32_t));
  KVIStore<uint32_t>(summ, KVILoad<uint32_t>(entry.ids));
  if (layout.hidden != 0) KVIStore<int32_t>(summ + layout.hidden, (design_flags & KVDESIGN_HIDDEN) != 0);
  if (layout.personal != 0) KVIStore<int32_t>(summ + layout.personal, (design_flags & KVDESIGN_PRIVATE) != 0);
  PutName(summ, layout.name, entry.name, layout.name_max);
  PutName(summ, layout.menu_name, entry.menu_name, layout.piece_max);
  PutName(summ, layout.cascade_name, entry.cascade_name, layout.piece_max);
}

// ---- Building a list

// A value of a summary; null when there is none.
struct SUMMVALUE {
  char* text;
  uint16_t text_bytes;
  uint16_t type;
};

SUMMVALUE Locate(const ITEM_TABLE* summary, const char* name) {
  SUMMVALUE value{};
  return EngSummaryValueLocate(summary, name, &value.text, &value.text_bytes, &value.type) ? SUMMVALUE{}
                                                                                           : value;
}

uint32_t FlagsOf(const KVDESIGNLIST* list, const SEARCH_MATCH& match, const SUMMVALUE& flags_text) {
  uint32_t design_flags = 0;
  if (flags_text.text != nullptr)
    KVIDesignFlagsTranslateToKV(match.NoteClass, flags_text.text, flags_text.text_bytes, &design_flags);
  else if (KVIDesignNoteGetFlagsExt(list->pdbase, match.ID.NoteID, &design_flags, nullptr))
    return KVDESIGN_VIEW;
  return design_flags;
}

// True for a record that its title does not hide, but its class and items do.
bool IsHiddenByItems(const SEARCH_MATCH& match, const SUMMVALUE& flags_text, const ITEM_TABLE* summary) {
  if (match.NoteClass & BRCLASS_FORM)
    return flags_text.text != nullptr &&
           std::string_view(flags_text.text, flags_text.text_bytes).find('C') != std::string_view::npos;
  if (match.NoteClass != BRCLASS_AGENT) return false;
  const SUMMVALUE agent_type = Locate(summary, "$Type");
  return agent_type.type == BRTYPE_TEXT && agent_type.text_bytes != 0 && *agent_type.text != '0';
}

struct PIECE {
  const char* text;
  uint16_t text_bytes;
  uint32_t text_max;
};

// Adds a whole record, or nothing.
uint16_t AddRecord(KVTEXTLIST* list, const PIECE (&pieces)[kRecordEntries]) {
  const uint16_t first = list->count;
  for (const PIECE& piece : pieces) {
    const auto piece_bytes = static_cast<uint16_t>(std::min<uint32_t>(piece.text_bytes, piece.text_max));
    const uint16_t brstatus = EngListEntryAdd(list->listhand, 0, nullptr, list->count,
                                              piece_bytes == 0 ? "" : piece.text, piece_bytes);
    if (brstatus == 0) {
      ++list->count;
      continue;
    }
    while (list->count > first) EngListEntryRemove(list->listhand, 0, nullptr, --list->count);
    return brstatus;
  }
  return 0;
}

// Fills a list that is empty. A failure leaves it empty.
uint32_t BuildList(const FAMILY& family, KVDESIGNLIST* designlist) {
  EngMem listhand = 0;
  if (uint16_t brstatus = EngListCreate(0, 0, 0, &listhand, nullptr, nullptr)) return brstatus;
  designlist->list = {};
  designlist->list.listhand = listhand;
  KVGuard forget_list([&] { designlist->list = {}; });
  KVGuard free_list([&] { EngMemFree(listhand); });
  const uint16_t brstatus = EngDbSearch(designlist->pdbase->dbhand, 0, nullptr, kSearchSummary,
                                        family.class_mask, nullptr, SearchTitle, designlist, nullptr);
  // A full list is shown as far as it goes: the records behind it would hide all the others otherwise.
  if (brstatus != 0 && brstatus != kListFull) return brstatus;
  free_list.Dismiss();  // the copy takes it
  TextListCopy(listhand, &designlist->list);
  if (designlist->list.buffer == nullptr) return KVFAIL_NO_MEMORY;
  forget_list.Dismiss();
  return KVSUCCESS;
}

uint32_t ReadEntry(KVTEXTLIST* textlist, int32_t list, ENTRY* entry) {
  if (uint32_t status = TextListIterate(textlist, list, kRecordEntries, entry->name, kDesignTitleMax))
    return status;
  const struct {
    char* buffer;
    uint32_t length;
  } rest[] = {{entry->menu_name, kDesignPieceMax},
              {entry->cascade_name, kDesignPieceMax},
              {entry->ids, sizeof entry->ids - 1}};
  for (const auto& part : rest)
    if (TextListIterate(textlist, KVLIST_NEXT, kRecordEntries, part.buffer, part.length))
      return KVFAIL_INTERNAL;
  return KVSUCCESS;
}

}  // namespace

EngStatus SearchTitle(void* list_ptr, const SEARCH_MATCH* search_match, const ITEM_TABLE* summary_buffer) {
  auto* designlist = static_cast<KVDESIGNLIST*>(list_ptr);
  const auto match = KVILoad<SEARCH_MATCH>(search_match);
  SUMMVALUE flags_text = Locate(summary_buffer, "$Flags");
  if (flags_text.type != BRTYPE_TEXT) flags_text = {};  // bytes of other types are no letters
  uint32_t design_flags = FlagsOf(designlist, match, flags_text);
  if (!(design_flags & designlist->design_flags & kDesignKindMask)) return 0;
  const SUMMVALUE title = Locate(summary_buffer, "$TITLE");
  if (title.text == nullptr) return 0;
  char* copy = nullptr;
  KVGuard free_copy([&] { KVIFree(copy); });
  if (title.text_bytes != 0) {
    copy = KVICopyText(title.text, title.text_bytes);
    if (copy == nullptr) return kNoMemory;
  }

  PIECE name{.text = nullptr, .text_bytes = 0, .text_max = kDesignTitleMax};
  PIECE menu_name{.text = nullptr, .text_bytes = 0, .text_max = kDesignPieceMax};
  PIECE cascade_name{.text = nullptr, .text_bytes = 0, .text_max = kDesignPieceMax};
  int32_t hidden = 0;
  if (ParseTitle(copy, title.text_bytes, title.type, &name.text, &name.text_bytes, &menu_name.text,
                 &menu_name.text_bytes, &cascade_name.text, &cascade_name.text_bytes, &hidden))
    return 0;  // a broken title does not stop a listing
  if (hidden || IsHiddenByItems(match, flags_text, summary_buffer)) design_flags |= KVDESIGN_HIDDEN;
  if (match.NoteClass & BRCLASS_PRIVATE) design_flags |= KVDESIGN_PRIVATE;
  char ids[sizeof(uint32_t) * 2];
  KVIStore<uint32_t>(ids, match.ID.NoteID);
  KVIStore<uint32_t>(ids + sizeof(uint32_t), design_flags);
  return AddRecord(
      &designlist->list,
      {name, menu_name, cascade_name, {.text = ids, .text_bytes = sizeof ids, .text_max = sizeof ids}});
}

uint32_t _KVIDesignList(_api_session* session, DesignFamily family_index, uint32_t database, int32_t list,
                        void* summ) {
  const FAMILY& family = kFamilies[static_cast<size_t>(family_index)];
  if (summ == nullptr) return KVError(KVFAIL_NULL_PARAM);
  const LAYOUT layout = LayoutOf(family.shape, session->kvprog_version);
  memset(summ, 0, layout.summ_bytes);
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);

  KVDESIGNLIST* designlist = &(dbase->*family.list);
  designlist->pdbase = dbase;
  designlist->design_flags =
      session->kvprog_version < kVersionFourth ? family.old_design_flags : family.design_flags;
  if (designlist->list.buffer == nullptr || list == KVLIST_REFRESH) {
    _ClearDatabaseState(session, dbase, family.state, nullptr);
    if (list == KVLIST_CURRENT) return KVError(KVFAIL_DATA_UNAVAILABLE);
    if (uint32_t status = BuildList(family, designlist)) return KVError(status);
  }
  ENTRY entry;
  if (uint32_t status = ReadEntry(&designlist->list, list, &entry)) return KVError(status);
  PutSummary(layout, entry, static_cast<char*>(summ));
  return KVSUCCESS;
}

// ---- The families' own functions

uint32_t KVFormList(uint32_t database, int32_t list, KVFORMSUMM* formsumm) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  return _KVIDesignList(session, DesignFamily::kForm, database, list, formsumm);
}

uint32_t KVSubformList(uint32_t database, int32_t list, KVSUBFORMSUMM* subformsumm) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  return _KVIDesignList(session, DesignFamily::kSubform, database, list, subformsumm);
}

uint32_t KVViewList(uint32_t database, int32_t list, KVVIEWSUMM* viewsumm) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  return _KVIDesignList(session, DesignFamily::kView, database, list, viewsumm);
}

uint32_t KVFolderList(uint32_t database, int32_t list, KVFOLDERSUMM* foldersumm) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  return _KVIDesignList(session, DesignFamily::kFolder, database, list, foldersumm);
}

uint32_t KVNavigatorList(uint32_t database, int32_t list, KVNAVIGATORSUMM* navsumm) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  return _KVIDesignList(session, DesignFamily::kNavigator, database, list, navsumm);
}
