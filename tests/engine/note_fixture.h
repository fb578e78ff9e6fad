// A fresh folder with one database for tests of the note layer; at the end nothing is open and no memory is
// held.
#ifndef TESTS_ENGINE_NOTE_FIXTURE_H
#define TESTS_ENGINE_NOTE_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>

#include "base/memory.h"
#include "base/process.h"
#include "brynd.h"
#include "note/database.h"
#include "note/note.h"
#include "store/store.h"

class NoteFixture : public testing::Test {
 protected:
  void SetUp() override {
    before_ = brynd::memory::Stats();
    std::string pattern = testing::TempDir() + "/kvnoteXXXXXX";
    ASSERT_NE(nullptr, mkdtemp(pattern.data()));
    folder_ = pattern;
    former_directory_ = brynd::Process().data_directory;
    brynd::Process().data_directory = folder_;
    ASSERT_EQ(0, EngDbCreate("test", 0, 0, 0, 0, 0));
    ASSERT_EQ(0, EngDbOpen("test", &db_));
  }

  void TearDown() override {
    EXPECT_EQ(0, EngDbClose(db_));
    EXPECT_EQ(0u, brynd::Notes().Count());
    EXPECT_EQ(0u, brynd::Databases().Count());
    EXPECT_EQ(0u, brynd::store::OpenHandleCount());
    const brynd::MemoryStats after = brynd::memory::Stats();
    EXPECT_EQ(before_.blocks, after.blocks);
    EXPECT_EQ(before_.locks, after.locks);
    brynd::Process().data_directory = former_directory_;
    std::filesystem::remove_all(folder_);
  }

  void Reopen() {
    ASSERT_EQ(0, EngDbClose(db_));
    ASSERT_EQ(0, EngDbOpen("test", &db_));
  }

  brynd::Database& Owner() { return *brynd::FindDatabase(db_); }

  EngNote NewNote() {
    EngNote note = 0;
    EXPECT_EQ(0, EngNoteCreate(db_, &note));
    return note;
  }
  EngNote OpenNote(uint32_t id, uint16_t word = 0) {
    EngNote note = 0;
    EXPECT_EQ(0, EngNoteOpen(db_, id, word, &note));
    return note;
  }
  static EngStatus AppendText(EngNote note, std::string_view name, std::string_view text,
                              uint16_t flags = 4) {
    return EngItemAppend(note, flags, name.data(), static_cast<uint16_t>(name.size()), BRTYPE_TEXT,
                         text.data(), static_cast<uint32_t>(text.size()));
  }
  static uint32_t IdOf(EngNote note) {
    uint32_t id = 0;
    EXPECT_EQ(0, EngNoteInfoGet(note, 1, &id));
    return id;
  }
  static ORIGINATORID OriginatorOf(EngNote note) {
    ORIGINATORID originator{};
    EXPECT_EQ(0, EngNoteInfoGet(note, 2, &originator));
    return originator;
  }
  // The text of the first item of a name, "<none>" without one.
  static std::string Text(EngNote note, std::string_view name) {
    BLOCKID value{};
    uint32_t bytes = 0;
    if (EngItemInfo(note, name.data(), static_cast<uint16_t>(name.size()), nullptr, nullptr, &value,
                    &bytes) != 0) {
      return "<none>";
    }
    const char* address = static_cast<const char*>(EngMemLock(value.pool));
    const std::string text(address + value.block + 2, bytes - 2);
    EngMemUnlock(value.pool);
    return text;
  }
  // A stored note with one text item; its id.
  uint32_t StoreText(std::string_view name, std::string_view text, uint16_t update_word = 0) {
    const EngNote note = NewNote();
    EXPECT_EQ(0, AppendText(note, name, text));
    EXPECT_EQ(0, EngNoteUpdate(note, update_word));
    const uint32_t id = IdOf(note);
    EXPECT_EQ(0, EngNoteClose(note));
    return id;
  }
  static bool SameOriginator(const ORIGINATORID& left, const ORIGINATORID& right) {
    return std::memcmp(&left, &right, sizeof left) == 0;
  }

  EngDb db_ = 0;
  std::string folder_, former_directory_;
  brynd::MemoryStats before_;
};

#endif
