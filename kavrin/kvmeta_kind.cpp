// Kinds of design records, whose they are, and whether a name is free for one.
#include "kvint.h"

namespace {

constexpr uint16_t kMemberClass = 3;
constexpr uint16_t kOpenToLook = 11;
constexpr uint16_t kOpenWhole = 0;
constexpr uint16_t kOpenSummary = 1;
constexpr uint16_t kStatusBits = 0x3fff;
constexpr uint16_t kDesignNotFound = 0x404;

bool Holds(const char* text, uint16_t text_bytes, char letter) {
  return text_bytes != 0 && memchr(text, letter, text_bytes) != nullptr;
}

// Kinds of the view class by the letter of $Flags that tells them; without one of them it is a view.
constexpr struct {
  char letter;
  uint32_t kind;
} kViewKinds[] = {{'F', KVDESIGN_FOLDER}, {'G', KVDESIGN_NAVIGATOR}};

uint32_t KindOf(uint16_t note_class, const char* flags, uint16_t flags_bytes) {
  if (note_class & BRCLASS_FORM) return Holds(flags, flags_bytes, 'U') ? KVDESIGN_SUBFORM : KVDESIGN_FORM;
  if (note_class & BRCLASS_VIEW) {
    for (const auto& row : kViewKinds)
      if (Holds(flags, flags_bytes, row.letter)) return row.kind;
    return KVDESIGN_VIEW;
  }
  return note_class & BRCLASS_AGENT ? KVDESIGN_AGENT : 0;
}

// Class by which the engine finds elements of the kinds.
constexpr struct {
  uint32_t kinds;
  uint16_t note_class;
} kLookups[] = {{KVDESIGN_VIEW | KVDESIGN_FOLDER | KVDESIGN_NAVIGATOR, BRCLASS_VIEW},
                {KVDESIGN_FORM | KVDESIGN_SUBFORM, BRCLASS_FORM},
                {KVDESIGN_AGENT, BRCLASS_AGENT}};

uint16_t LookupClass(uint32_t design_flags) {
  for (const auto& row : kLookups)
    if (design_flags & row.kinds) return row.note_class;
  return 0;
}

}  // namespace

uint32_t KVIDesignFlagsTranslateToKV(uint16_t wNoteClass, const char* szFlags, uint16_t wLen,
                                     uint32_t* pKVDesignFlags) {
  uint32_t design_flags = KindOf(wNoteClass, szFlags, szFlags == nullptr ? uint16_t{0} : wLen);
  if (wNoteClass & BRCLASS_DEFAULT) design_flags |= KVDESIGN_DEFAULT;
  if (wNoteClass & BRCLASS_PRIVATE) design_flags |= KVDESIGN_PRIVATE;
  *pKVDesignFlags = design_flags;
  return KVSUCCESS;
}

uint32_t KVIDesignNoteGetFlagsExt(_DATABASE* pdbase, uint32_t nid, uint32_t* pKVDesignFlags, EngNote* pnh) {
  *pKVDesignFlags = 0;
  if (pnh != nullptr) *pnh = 0;
  EngNote note = 0;
  if (uint16_t brstatus = EngNoteOpen(pdbase->dbhand, nid, pnh == nullptr ? kOpenToLook : kOpenWhole, &note))
    return brstatus;
  KVGuard close_note([&] { EngNoteClose(note); });
  uint16_t note_class = 0;
  if (uint16_t brstatus = EngNoteInfoGet(note, kMemberClass, &note_class)) return brstatus;
  char flags[kDesignFlagsMax + 1] = {};
  const uint16_t flags_bytes = EngItemTextGet(note, "$Flags", flags, kDesignFlagsMax);
  KVIDesignFlagsTranslateToKV(note_class, flags, flags_bytes, pKVDesignFlags);
  if (pnh == nullptr) return KVSUCCESS;
  close_note.Dismiss();  // the caller's from here
  *pnh = note;
  return KVSUCCESS;
}

int KVINoteIsPrivate(_DATABASE* dbase, uint32_t noteid) {
  EngNote note = 0;
  if (EngNoteOpen(dbase->dbhand, noteid, kOpenSummary, &note)) return 0;
  KVGuard close_note([&] { EngNoteClose(note); });
  uint16_t note_class = 0;
  if (EngNoteInfoGet(note, kMemberClass, &note_class)) return 0;
  return (note_class & BRCLASS_PRIVATE) != 0;
}

uint32_t KVIDesignNoteSetOwnership(EngNote nh, const char* szOwner) {
  static constexpr struct {
    const char* name;
    uint16_t item_flags;
  } kOwnerItems[] = {{"$Authors", 0x25}, {"$Readers", 0x405}, {"$UpdatedBy", 0x44}};
  for (const auto& row : kOwnerItems)
    if (uint16_t brstatus = EngItemAppend(nh, row.item_flags, row.name, KVIItemNameBytes(row.name),
                                          BRTYPE_TEXT, szOwner, static_cast<uint32_t>(strlen(szOwner))))
      return brstatus;
  return KVSUCCESS;
}

uint16_t _KVIDesignFind(_DATABASE* pdbase, uint32_t design_flags, const char* name, uint16_t note_class,
                        uint32_t* noteid) {
  *noteid = 0;
  const uint16_t brstatus = design_flags & KVDESIGN_PRIVATE
                                ? EngDesignFindPrivate(pdbase->dbhand, name, note_class, noteid)
                                : EngDesignFind(pdbase->dbhand, name, note_class, noteid);
  if ((brstatus & kStatusBits) == kDesignNotFound) {
    *noteid = 0;
    return 0;
  }
  return brstatus;
}

int _KVIDesignNoteIsQIXNameUnique(_api_session* session, _DATABASE* pdbase, uint32_t KVDesignFlags,
                                  const char* szName, const char* szMenuName, const char* szCascName) {
  const char* name = KVIEmpty(szName) ? "" : szName;
  if (!(KVDesignFlags & (KVDESIGN_FORM | KVDESIGN_SUBFORM))) {
    // A name that cannot be built is an empty one here: refusing it is the caller's business.
    (void)KVIDesignNoteMakeName(szName, szMenuName, szCascName, session->buffer);
    name = session->buffer;
  }
  uint32_t noteid = 0;
  // What a failing engine knows of the name is unknown, so the name is not free.
  if (_KVIDesignFind(pdbase, KVDesignFlags, name, LookupClass(KVDesignFlags), &noteid)) return 0;
  if (noteid == 0) return 1;
  if (KVDesignFlags & KVDESIGN_AGENT) return 0;
  uint32_t found = 0;
  if (KVIDesignNoteGetFlagsExt(pdbase, noteid, &found, nullptr)) return 0;
  if (((found ^ KVDesignFlags) & kDesignKindMask) == 0) return 0;
  return !((found & kDesignViewOrFolder) && (KVDesignFlags & kDesignViewOrFolder));
}
