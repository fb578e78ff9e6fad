// Copies of design records.
#include "kvint.h"

namespace {

constexpr uint16_t kMemberDatabase = 0;
constexpr uint16_t kMemberNoteId = 1;
constexpr uint16_t kMemberOriginator = 2;
constexpr uint16_t kMemberClass = 3;
constexpr char kTitleItem[] = "$TITLE";
constexpr uint16_t kTitleItemBytes = sizeof kTitleItem - 1;

// The part behind the last bar, or the whole.
const char* LastSynonym(const char* title) {
  const char* bar = strrchr(title, '|');
  return bar == nullptr ? title : bar + 1;
}

// The name that must be free where the copy goes; *name is the caller's, or lies in the session's buffer.
uint32_t NameOfCopy(_api_session* session, EngNote source, uint32_t design_flags, const char* new_title,
                    bool is_same_database, const char** name) {
  if (new_title != nullptr) {
    const bool is_form = (design_flags & (KVDESIGN_FORM | KVDESIGN_SUBFORM)) != 0;
    *name = is_form ? LastSynonym(new_title) : new_title;
    return KVSUCCESS;
  }
  if (is_same_database) return KVFAIL_NAME_IN_USE;
  if (KVIDesignNoteGetQIXName(source, session->buffer, nullptr)) return KVFAIL_NOT_FOUND;
  *name = session->buffer;
  return KVSUCCESS;
}

// Makes the copy a fresh record of its database, and no default one: there is only one default.
uint16_t GiveIdentity(EngNote copy, EngDb dbhand, uint16_t note_class) {
  ORIGINATORID originator{};
  if (uint16_t brstatus = EngDbOidGenerate(dbhand, &originator)) return brstatus;
  if (uint16_t brstatus = EngNoteInfoSet(copy, kMemberOriginator, &originator)) return brstatus;
  const uint32_t noteid = 0;
  if (uint16_t brstatus = EngNoteInfoSet(copy, kMemberNoteId, &noteid)) return brstatus;
  if (uint16_t brstatus = EngNoteInfoSet(copy, kMemberDatabase, &dbhand)) return brstatus;
  if (!(note_class & BRCLASS_DEFAULT)) return 0;
  const auto plain_class = static_cast<uint16_t>(note_class & ~BRCLASS_DEFAULT);
  return EngNoteInfoSet(copy, kMemberClass, &plain_class);
}

}  // namespace

uint32_t _KVIDesignNoteCopy(_api_session* session, uint32_t expected, _DATABASE* src_dbase,
                            uint32_t src_noteid, _DATABASE* dest_dbase, const char* new_title,
                            uint32_t* dest_noteid, int text_only) {
  if (KVIEmpty(new_title)) new_title = nullptr;
  uint32_t design_flags = 0;
  EngNote source = 0;
  if (KVIDesignNoteGetFlagsExt(src_dbase, src_noteid, &design_flags, &source)) return KVFAIL_NOT_FOUND;
  KVGuard close_source([&] { EngNoteClose(source); });
  if ((design_flags ^ expected) & kDesignKindMask) return KVFAIL_BAD_FORMAT;
  uint16_t note_class = 0;
  if (uint16_t brstatus = EngNoteInfoGet(source, kMemberClass, &note_class)) return brstatus;

  const char* name = nullptr;
  const bool is_same_database = src_dbase->dbinfo == dest_dbase->dbinfo;
  if (uint32_t status = NameOfCopy(session, source, design_flags, new_title, is_same_database, &name))
    return status;
  uint32_t bearer = 0;
  const auto lookup_class = static_cast<uint16_t>(note_class & ~BRCLASS_DEFAULT);
  if (uint16_t brstatus = _KVIDesignFind(dest_dbase, design_flags, name, lookup_class, &bearer))
    return brstatus;
  if (bearer != 0) return KVFAIL_NAME_IN_USE;

  EngNote copy = 0;
  if (uint16_t brstatus = EngNoteCopy(source, &copy)) return brstatus;
  KVGuard close_copy([&] { EngNoteClose(copy); });
  close_source.Dismiss();  // not held open while the copy is stored
  EngNoteClose(source);
  if (uint16_t brstatus = GiveIdentity(copy, dest_dbase->dbhand, note_class)) return brstatus;
  if (new_title != nullptr) {
    EngItemDelete(copy, kTitleItem, kTitleItemBytes);  // a record without a title gets one all the same
    if (uint32_t status = _KVIDesignNoteSetTitle(session, copy, new_title, nullptr, nullptr, text_only, 0))
      return status;
  }
  if (uint16_t brstatus = EngNoteUpdate(copy, 0)) return brstatus;
  return dest_noteid == nullptr ? uint16_t{0} : EngNoteInfoGet(copy, kMemberNoteId, dest_noteid);
}
