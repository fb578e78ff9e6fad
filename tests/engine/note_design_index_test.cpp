#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "base/process.h"
#include "base/settings.h"
#include "base/text.h"
#include "engine/note_fixture.h"
#include "engine/test_random.h"
#include "note/design_index.h"

using namespace brynd;

namespace {

// Settings that name the user alone.
class UserSettings : public SettingsStore {
 public:
  std::optional<std::string> Get(std::string_view name) override {
    return name == "UserName" ? std::optional(user) : std::nullopt;
  }
  void Set(std::string_view, std::string_view) override {}
  std::string user;
};

class DesignIndexTest : public NoteFixture {
 protected:
  uint32_t StoreDesign(uint16_t note_class, std::string_view title, std::string_view owner = {}) {
    const EngNote note = NewNote();
    EXPECT_EQ(0, EngNoteInfoSet(note, 3, &note_class));
    EXPECT_EQ(0, AppendText(note, "$TITLE", title));
    if (!owner.empty()) {
      EXPECT_EQ(0, AppendText(note, "$Authors", owner, 0x25));
    }
    EXPECT_EQ(0, EngNoteUpdate(note, 0));
    const uint32_t id = IdOf(note);
    EXPECT_EQ(0, EngNoteClose(note));
    return id;
  }
  uint32_t Find(std::string_view name, uint16_t note_class) {
    return design_index::Find(Owner(), name, note_class);
  }
  void SetClass(uint32_t id, uint16_t note_class) {
    const EngNote note = OpenNote(id);
    EXPECT_EQ(0, EngNoteInfoSet(note, 3, &note_class));
    EXPECT_EQ(0, EngNoteUpdate(note, 0));
    EXPECT_EQ(0, EngNoteClose(note));
  }
  uint64_t RowCount() {
    uint64_t rows = 0;
    Owner().Store().ScanRecords(space::kDesign, {}, std::nullopt, [&](Bytes, Bytes) {
      ++rows;
      return true;
    });
    return rows;
  }
};

TEST_F(DesignIndexTest, Find_WholeTitleAndEachSynonym_WithoutRegardToCase) {
  const uint32_t id = StoreDesign(8, "By Date\\Down | ByDate|bd");
  EXPECT_EQ(id, Find("by date\\down | bydate|BD", 8));
  EXPECT_EQ(id, Find("BYDATE", 8));
  EXPECT_EQ(id, Find("bd", 8));
  EXPECT_EQ(id, Find("By Date\\Down", 8));
  EXPECT_EQ(0u, Find("bd", 4)) << "another class";
  EXPECT_EQ(0u, Find("b", 8));
  EXPECT_EQ(0u, Find("bd2", 8));
  EXPECT_EQ(0u, Find("", 8));
}

TEST_F(DesignIndexTest, Find_TitleList_JoinedAndEachEntry) {
  const EngNote note = NewNote();
  const uint16_t note_class = 4;
  ASSERT_EQ(0, EngNoteInfoSet(note, 3, &note_class));
  for (const char* entry : {"Memo", "m", "Letter"}) {
    ASSERT_EQ(0, EngItemTextListAppend(note, "$TITLE", entry, static_cast<uint16_t>(std::strlen(entry)), 1));
  }
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  const uint32_t id = IdOf(note);
  for (const char* name : {"MEMO", "M", "letter", "memo|M|letter"}) EXPECT_EQ(id, Find(name, 4)) << name;
  EXPECT_EQ(0u, Find("memo|m", 4));
  EXPECT_EQ(0, EngNoteClose(note));
}

TEST_F(DesignIndexTest, Find_LettersBeyondAscii_IgnoreCase) {
  const uint32_t id = StoreDesign(8, "\xc4pfel");  // one byte each in engine text
  EXPECT_EQ(id, Find("\xe4PFEL", 8));
}

TEST_F(DesignIndexTest, Update_TitleChangedDeletedOrClassChanged_OldNamesGo) {
  const uint64_t before = RowCount();
  const uint32_t id = StoreDesign(8, "One|Two");
  const EngNote note = OpenNote(id);
  ASSERT_EQ(0, EngItemTextSet(note, "$TITLE", "Three", 0xffff));
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  ASSERT_EQ(0, EngNoteClose(note));
  EXPECT_EQ(0u, Find("One", 8));
  EXPECT_EQ(0u, Find("Two", 8));
  EXPECT_EQ(id, Find("three", 8));
  SetClass(id, 4);
  EXPECT_EQ(0u, Find("three", 8));
  EXPECT_EQ(id, Find("three", 4));
  SetClass(id, 1);
  EXPECT_EQ(0u, Find("three", 4));
  EXPECT_EQ(before, RowCount());
  SetClass(id, 0x200);
  EXPECT_EQ(id, Find("three", 0x200));
  ASSERT_EQ(0, EngNoteDelete(db_, id, 0));
  EXPECT_EQ(0u, Find("three", 0x200));
  EXPECT_EQ(before, RowCount());
}

TEST_F(DesignIndexTest, Find_SeveralOfOneName_LowestIdUntilItGoes) {
  const uint32_t first = StoreDesign(8, "Same"), second = StoreDesign(0x8008, "same");
  EXPECT_EQ(first, Find("Same", 8));
  ASSERT_EQ(0, EngNoteDelete(db_, first, 0));
  EXPECT_EQ(second, Find("Same", 8));
}

TEST_F(DesignIndexTest, FindPrivate_OwnersRecordsAlone) {
  const uint32_t shared = StoreDesign(8, "Mine"), mine = StoreDesign(0x1008, "Mine", "CN=Ann/O=X"),
                 theirs = StoreDesign(0x1008, "Mine", "CN=Bob/O=X");
  EXPECT_EQ(shared, Find("mine", 8));
  EXPECT_EQ(mine, design_index::FindPrivate(Owner(), "mine", 8, "cn=ann/o=x"));
  EXPECT_EQ(theirs, design_index::FindPrivate(Owner(), "MINE", 8, "CN=Bob/O=X"));
  EXPECT_EQ(0u, design_index::FindPrivate(Owner(), "mine", 8, "CN=Cid/O=X"));
  EXPECT_EQ(0u, design_index::FindPrivate(Owner(), "mine", 4, "CN=Ann/O=X"));
}

TEST_F(DesignIndexTest, EngDesignFind_SharedRecord_NotFoundAmongPrivateOnesAndOutputsLeftAlone) {
  uint32_t id = 5;
  EXPECT_EQ(status::kNotFound, EngDesignFind(db_, "Name", 8, &id));
  EXPECT_EQ(status::kNotFound, EngDesignFindPrivate(db_, "Name", 8, &id));
  EXPECT_EQ(5u, id);
  EXPECT_EQ(status::kBadArgument, EngDesignFind(db_, nullptr, 8, &id));
  EXPECT_EQ(status::kBadArgument, EngDesignFind(db_, "Name", 8, nullptr));
  EXPECT_EQ(status::kBadHandle, EngDesignFind(db_ + 1, "Name", 8, &id));
  EXPECT_EQ(status::kBadHandle, EngDesignFindPrivate(db_ + 1, "Name", 8, &id));
  EXPECT_EQ(5u, id);
  const uint32_t shared = StoreDesign(8, "Name");
  EXPECT_EQ(0, EngDesignFind(db_, "name", 8, &id));
  EXPECT_EQ(shared, id);
  EXPECT_EQ(status::kNotFound, EngDesignFindPrivate(db_, "Name", 8, &id));
}

TEST_F(DesignIndexTest, EngDesignFindPrivate_CurrentUser_OwnRecordsAlone) {
  const std::string user = "CN=Ann/O=X";
  UserSettings settings;
  settings.user = user;
  const SeamGuard guard(Process().settings, static_cast<SettingsStore*>(&settings));
  const uint32_t mine = StoreDesign(0x1008, "Mine|Alias", user);
  StoreDesign(0x1008, "Theirs", user + "x");
  uint32_t id = 0;
  for (const char* name : {"MINE|alias", "mine", "ALIAS"}) {
    EXPECT_EQ(0, EngDesignFindPrivate(db_, name, 8, &id)) << name;
    EXPECT_EQ(mine, id);
    EXPECT_EQ(status::kNotFound, EngDesignFind(db_, name, 8, &id)) << name;
  }
  EXPECT_EQ(status::kNotFound, EngDesignFindPrivate(db_, "Theirs", 8, &id));
  settings.user = user + "x";
  EXPECT_EQ(status::kNotFound, EngDesignFindPrivate(db_, "Mine", 8, &id));
  EXPECT_EQ(0, EngDesignFindPrivate(db_, "Theirs", 8, &id));
}

TEST_F(DesignIndexTest, EngDesignFind_SharedFields_HaveAClassOfTheirOwn) {
  const uint32_t form = StoreDesign(4, "Same"), field = StoreDesign(0x400, "Same|Other");
  EXPECT_EQ(form, Find("same", 4));
  EXPECT_EQ(field, Find("same", 0x400));
  EXPECT_EQ(field, Find("other", 0x400));
  EXPECT_EQ(0u, Find("other", 4));
}

TEST_F(DesignIndexTest, EngDesignFind_CopiedRecord_FoundUnderItsNewTitle) {
  const uint32_t id = StoreDesign(0x8004, "First|Alias");
  const EngNote source = OpenNote(id);
  EngNote copy = 0;
  ASSERT_EQ(0, EngNoteCopy(source, &copy));
  const uint32_t none = 0;
  const uint16_t plain = 4;
  ORIGINATORID originator{};
  ASSERT_EQ(0, EngDbOidGenerate(db_, &originator));
  ASSERT_EQ(0, EngNoteInfoSet(copy, 2, &originator));
  ASSERT_EQ(0, EngNoteInfoSet(copy, 1, &none));
  ASSERT_EQ(0, EngNoteInfoSet(copy, 3, &plain));
  ASSERT_EQ(0, EngItemTextSet(copy, "$TITLE", "Second", 0xffff));
  ASSERT_EQ(0, EngNoteUpdate(copy, 0));
  EXPECT_NE(id, IdOf(copy));
  EXPECT_EQ(IdOf(copy), Find("second", 4));
  EXPECT_EQ(id, Find("first", 4));
  EXPECT_EQ(id, Find("alias", 4));
  EXPECT_EQ(id, Owner().SpecialId(4));
  EXPECT_EQ(0, EngNoteClose(copy));
  EXPECT_EQ(0, EngNoteClose(source));
}

TEST_F(DesignIndexTest, EngDesignFind_SecondHandle_SeesWhatTheFirstCommits) {
  EngDb other = 0;
  ASSERT_EQ(0, EngDbReopen(db_, &other));
  uint32_t id = 0;
  EXPECT_EQ(status::kNotFound, EngDesignFind(other, "One", 4, &id));
  EXPECT_EQ(status::kNotFound, EngDbSpecialIdGet(other, 0x8004, &id));
  const uint32_t form = StoreDesign(0x8004, "One");
  EXPECT_EQ(0, EngDesignFind(other, "one", 4, &id));
  EXPECT_EQ(form, id);
  EXPECT_EQ(0, EngDbSpecialIdGet(other, 0x8004, &id));
  EXPECT_EQ(form, id);
  const EngNote note = OpenNote(form);
  ASSERT_EQ(0, EngItemTextSet(note, "$TITLE", "Two", 0xffff));
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  ASSERT_EQ(0, EngNoteClose(note));
  EXPECT_EQ(status::kNotFound, EngDesignFind(other, "One", 4, &id));
  EXPECT_EQ(0, EngDesignFind(other, "Two", 4, &id));
  ASSERT_EQ(0, EngNoteDelete(db_, form, 0));
  EXPECT_EQ(status::kNotFound, EngDesignFind(other, "Two", 4, &id));
  EXPECT_EQ(status::kNotFound, EngDbSpecialIdGet(other, 0x8004, &id));
  EXPECT_EQ(0, EngDbClose(other));
}

TEST_F(DesignIndexTest, EngDbSpecialIdGet_DefaultRecordOfEachClass) {
  uint32_t id = 5;
  EXPECT_EQ(status::kNotFound, EngDbSpecialIdGet(db_, 0x8004, &id));
  EXPECT_EQ(5u, id);
  const uint32_t plain = StoreDesign(4, "Plain"), first = StoreDesign(0x8004, "First");
  EXPECT_EQ(0, EngDbSpecialIdGet(db_, 0x8004, &id));
  EXPECT_EQ(first, id);
  EXPECT_EQ(status::kNotFound, EngDbSpecialIdGet(db_, 0x8008, &id));
  // The default moves: the old one becomes plain, the new one the default.
  SetClass(first, 4);
  EXPECT_EQ(status::kNotFound, EngDbSpecialIdGet(db_, 0x8004, &id));
  SetClass(plain, 0x8004);
  EXPECT_EQ(0, EngDbSpecialIdGet(db_, 0x8004, &id));
  EXPECT_EQ(plain, id);
  const EngNote note = OpenNote(0xffff0004);
  EXPECT_EQ(plain, IdOf(note));
  EXPECT_EQ(0, EngNoteClose(note));
  ASSERT_EQ(0, EngNoteDelete(db_, plain, 0));
  EngNote none = 0;
  EXPECT_EQ(status::kNoNote, EngNoteOpen(db_, 0xffff0004, 0, &none));
}

TEST_F(DesignIndexTest, Special_TwoDefaults_TheOneThatBecameItLast) {
  const uint32_t first = StoreDesign(8, "A"), second = StoreDesign(8, "B");
  SetClass(second, 0x8008);
  EXPECT_EQ(second, Owner().SpecialId(8));
  SystemClock().SleepMilliseconds(30);
  SetClass(first, 0x8008);
  EXPECT_EQ(first, Owner().SpecialId(8));
}

TEST_F(DesignIndexTest, EngNoteOpen_IconRecord_MadeWithTheDatabase) {
  const EngNote icon = OpenNote(0xffff0010, 1);
  EXPECT_EQ("", Text(icon, "$TITLE"));
  EXPECT_EQ("", Text(icon, "$Flags"));
  uint32_t id = 0;
  EXPECT_EQ(0, EngDbSpecialIdGet(db_, 0x8010, &id));
  EXPECT_EQ(IdOf(icon), id);
  ASSERT_EQ(0, EngItemTextSet(icon, "$TITLE", "Title", 0xffff));
  ASSERT_EQ(0, EngNoteUpdate(icon, 1));
  ASSERT_EQ(0, EngNoteClose(icon));
  const EngNote again = OpenNote(0xffff0010);
  EXPECT_EQ("Title", Text(again, "$title"));
  EXPECT_EQ(0, EngNoteClose(again));
}

TEST_F(DesignIndexTest, NamesOfTitle_HostileValues_NoCrash) {
  TestRandom random(SeedOfRun());
  for (int round = 0; round < 20000; ++round) {
    std::vector<std::byte> value(random.Below(20));
    for (std::byte& byte : value) byte = static_cast<std::byte>(random.Below(8) == 0 ? '|' : random.Below(5));
    if (value.size() >= 2) StoreU16(value.data(), random.Below(2) == 0 ? 0x500 : 0x501);
    design_index::NamesOfTitle(value);
    design_index::FirstText(value);
  }
}

TEST_F(DesignIndexTest, Update_LongTitle_NoRowButNoFailure) {
  const uint32_t id = StoreDesign(8, std::string(5000, 't') + "|short");
  EXPECT_EQ(id, Find("short", 8));
  EXPECT_EQ(0u, Find(std::string(5000, 't'), 8));
}

TEST_F(DesignIndexTest, Update_RandomChanges_AgreesWithAScan) {
  TestRandom random(SeedOfRun());
  std::map<uint32_t, std::pair<uint16_t, std::string>> model;
  static constexpr uint16_t kClasses[] = {1, 4, 8, 0x200, 0x8004, 0x8008};
  for (int round = 0; round < 300; ++round) {
    const std::string title = "t" + std::to_string(random.Below(12)) + (random.Below(2) == 0 ? "|alias" : "");
    const uint16_t note_class = kClasses[random.Below(6)];
    if (model.size() < 5 || random.Below(3) == 0) {
      model[StoreDesign(note_class, title)] = {note_class, title};
    } else {
      const auto at = std::next(model.begin(), random.Below(static_cast<uint32_t>(model.size())));
      if (random.Below(4) == 0) {
        ASSERT_EQ(0, EngNoteDelete(db_, at->first, 4));
        model.erase(at);
        continue;
      }
      const EngNote note = OpenNote(at->first);
      ASSERT_EQ(0, EngNoteInfoSet(note, 3, &note_class));
      ASSERT_EQ(0, EngItemTextSet(note, "$TITLE", title.data(), static_cast<uint32_t>(title.size())));
      ASSERT_EQ(0, EngNoteUpdate(note, 4));
      ASSERT_EQ(0, EngNoteClose(note));
      at->second = {note_class, title};
    }
  }
  for (const uint16_t kind : {4, 8, 0x200}) {
    for (int number = 0; number < 12; ++number) {
      const std::string name = "T" + std::to_string(number);
      const auto found = std::ranges::find_if(model, [&](const auto& row) {
        const auto& [note_class, title] = row.second;
        return note_class != 1 && (note_class & 0xfff) == kind &&
               EqualFold(title.substr(0, title.find('|')), name);
      });
      EXPECT_EQ(found == model.end() ? 0u : found->first, Find(name, kind));
    }
  }
}

}  // namespace
