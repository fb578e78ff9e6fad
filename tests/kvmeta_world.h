// Design records for tests: stored by the engine alone, and what is stored of them.
#ifndef KVMETA_WORLD_H
#define KVMETA_WORLD_H

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kvdoc_world.h"

namespace kvmeta {

using kvdoc::NoteItem;

constexpr char kOwnName[] = "CN=Test User/O=Kavrin";  // as the settings of tests name the user

inline NoteItem Title(const std::string& text) { return {"$TITLE", BRTYPE_TEXT, 4, text}; }
inline NoteItem TitleList(const std::vector<std::string>& synonyms) {
  return {"$TITLE", BRTYPE_TEXT_LIST, 4, kvdoc::TextList(synonyms)};
}
inline NoteItem Flags(const std::string& letters) { return {"$Flags", BRTYPE_TEXT, 4, letters}; }
inline NoteItem Owner(const std::string& name) { return {"$Authors", BRTYPE_TEXT, 0x25, name}; }

class DesignTest : public kvdoc::DocumentTest {
 protected:
  uint32_t ClassOf(uint32_t id) const { return ClassIn(EngineDatabase(), id); }
  static uint32_t ClassIn(EngDb dbhand, uint32_t id) {
    uint16_t note_class = 0;
    EXPECT_EQ(EngDbIdInfoGet(dbhand, id, nullptr, nullptr, &note_class), 0);
    return note_class;
  }
  uint32_t FindShared(const std::string& name, uint16_t note_class) const {
    uint32_t id = 0;
    EngDesignFind(EngineDatabase(), name.c_str(), note_class, &id);
    return id;
  }
  // A fresh note with the items, not stored.
  EngNote NewNote(const std::vector<NoteItem>& items = {}) const {
    EngNote note = 0;
    EXPECT_EQ(EngNoteCreate(EngineDatabase(), &note), 0);
    for (const NoteItem& item : items) Append(note, item);
    return note;
  }
};

}  // namespace kvmeta

#endif
