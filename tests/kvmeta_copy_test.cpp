// Copies of design records.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "kvmeta_world.h"

namespace {

using kit::Fault;
using kit::Spy;
using kvdoc::kEngineFailure;
using kvdoc::kUntouched;
using kvdoc::TextList;
using kvmeta::Flags;
using kvmeta::kOwnName;
using kvmeta::Owner;
using kvmeta::Title;
using kvmeta::TitleList;

class CopyTest : public kvmeta::DesignTest {
 protected:
  void SetUp() override {
    DesignTest::SetUp();
    other_ = OpenDatabase(MakeDatabase("other.qdb"));
  }
  _DATABASE* Other() const { return BaseOf(other_); }
  uint32_t Copy(uint32_t expected, uint32_t id, _DATABASE* target, const char* title = nullptr,
                int text_only = 0) {
    copy_ = kUntouched;
    return _KVIDesignNoteCopy(session_, expected, Base(), id, target, title, &copy_, text_only);
  }
  static std::vector<kvdoc::NoteItem> StoredIn(_DATABASE* dbase, uint32_t id, const std::string& name = "") {
    EngNote note = 0;
    EXPECT_EQ(EngNoteOpen(dbase->dbhand, id, 0, &note), 0);
    std::vector<kvdoc::NoteItem> items = kvdoc::ItemsOf(note, name);
    EXPECT_EQ(EngNoteClose(note), 0);
    return items;
  }
  static size_t CountDesigns(_DATABASE* dbase) {
    size_t count = 0;
    const auto callback = [](void* parameter, const SEARCH_MATCH*, const ITEM_TABLE*) -> EngStatus {
      ++*static_cast<size_t*>(parameter);
      return 0;
    };
    EXPECT_EQ(EngDbSearch(dbase->dbhand, 0, nullptr, 0, 0x120c, nullptr, callback, &count, nullptr), 0);
    return count;
  }
  uint32_t other_ = 0;
  uint32_t copy_ = 0;
};

TEST_F(CopyTest, KVIDesignNoteCopy_OtherDatabase_FreshRecordWithAllItems) {
  const uint32_t id = StoreNote(4, {TitleList({"Main\\Sub", "Alias"}), {"$Body", 1, 0, "body"}, Flags("D")});
  ASSERT_EQ(Copy(KVDESIGN_FORM, id, Other()), KVSUCCESS);
  ASSERT_NE(copy_, 0u);
  const auto items = StoredIn(Other(), copy_);
  const auto source = StoredItems(id);
  ASSERT_EQ(items.size(), source.size());
  for (size_t i = 0; i < items.size(); ++i) {
    EXPECT_EQ(items[i].name, source[i].name);
    EXPECT_EQ(items[i].bytes, source[i].bytes);
    EXPECT_EQ(items[i].flags, source[i].flags);
  }
  EXPECT_EQ(ClassIn(Other()->dbhand, copy_), 4u);
  ORIGINATORID from{};
  ORIGINATORID to{};
  EXPECT_EQ(EngDbIdInfoGet(EngineDatabase(), id, &from, nullptr, nullptr), 0);
  EXPECT_EQ(EngDbIdInfoGet(Other()->dbhand, copy_, &to, nullptr, nullptr), 0);
  EXPECT_NE(memcmp(&from, &to, 16), 0);
  uint32_t found = 0;
  EXPECT_EQ(EngDesignFind(Other()->dbhand, "alias", 4, &found), 0);
  EXPECT_EQ(found, copy_);
}

TEST_F(CopyTest, KVIDesignNoteCopy_Source_ClosedAsSoonAsItIsCopied) {
  const uint32_t id = StoreNote(4, {Title("Name")});
  Spy spy;
  ASSERT_EQ(Copy(KVDESIGN_FORM, id, Other()), KVSUCCESS);
  const std::vector<std::string> names = spy.Names();
  const auto copied = std::find(names.begin(), names.end(), "EngNoteCopy");
  ASSERT_LT(copied + 1, names.end());
  EXPECT_EQ(copied[1], "EngNoteClose");
  EXPECT_EQ(spy.Find("EngNoteClose")->words[0], spy.Find("EngNoteCopy")->words[0]);
  EXPECT_EQ(spy.Count("EngNoteClose"), 2u);
}

TEST_F(CopyTest, KVIDesignNoteCopy_SameDatabaseNoTitle_NameInUse) {
  const uint32_t id = StoreNote(4, {Title("Name")});
  EXPECT_EQ(Copy(KVDESIGN_FORM, id, Base()), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(Copy(KVDESIGN_FORM, id, Base(), ""), KVFAIL_NAME_IN_USE);
  // A second handle on the database is the same database.
  const uint32_t again = OpenDatabase(path_);
  EXPECT_EQ(Copy(KVDESIGN_FORM, id, BaseOf(again)), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(copy_, kUntouched);
}

TEST_F(CopyTest, KVIDesignNoteCopy_NewTitle_StoredAsTold) {
  const uint32_t id = StoreNote(4, {TitleList({"Main\\Sub", "Alias"}), {"$Body", 1, 0, "body"}});
  ASSERT_EQ(Copy(KVDESIGN_FORM, id, Base(), "New\\One|Fresh"), KVSUCCESS);
  auto title = StoredItems(copy_, "$TITLE");
  ASSERT_EQ(title.size(), 1u);
  EXPECT_EQ(title[0].type, BRTYPE_TEXT_LIST);
  EXPECT_EQ(title[0].bytes, TextList({"New\\One", "Fresh"}));
  EXPECT_EQ(StoredItems(copy_, "$Body").size(), 1u);
  EXPECT_EQ(FindShared("fresh", 4), copy_);
  EXPECT_EQ(FindShared("alias", 4), id);

  const uint32_t view = StoreNote(8, {Title("A View")});
  ASSERT_EQ(Copy(KVDESIGN_VIEW, view, Base(), "New\\One|Fresh", 1), KVSUCCESS);
  title = StoredItems(copy_, "$TITLE");
  ASSERT_EQ(title.size(), 1u);
  EXPECT_EQ(title[0].type, BRTYPE_TEXT);
  EXPECT_EQ(title[0].bytes, "New\\One|Fresh");
}

TEST_F(CopyTest, KVIDesignNoteCopy_NewTitleInUse_FormsByTheLastSynonymOthersByTheWhole) {
  const uint32_t form = StoreNote(4, {Title("Form")}), view = StoreNote(8, {Title("View")});
  StoreNote(4, {Title("Taken")});
  StoreNote(8, {Title("Taken")});
  EXPECT_EQ(Copy(KVDESIGN_FORM, form, Base(), "Menu|TAKEN"), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(Copy(KVDESIGN_VIEW, view, Base(), "taken", 1), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(copy_, kUntouched);
  EXPECT_EQ(Copy(KVDESIGN_VIEW, view, Base(), "Menu|Taken", 1), KVSUCCESS);
  EXPECT_EQ(Copy(KVDESIGN_FORM, form, Base(), "Taken|Other"), KVSUCCESS);
}

TEST_F(CopyTest, KVIDesignNoteCopy_NameInUseThere_OfAnyKindOfTheClass) {
  const uint32_t form = StoreNote(4, {Title("Name")});
  ASSERT_EQ(Copy(KVDESIGN_FORM, form, Other()), KVSUCCESS);
  EXPECT_EQ(Copy(KVDESIGN_FORM, form, Other()), KVFAIL_NAME_IN_USE);
  const uint32_t subform = StoreNote(4, {Title("name"), Flags("CU3")});
  EXPECT_EQ(Copy(KVDESIGN_SUBFORM, subform, Other()), KVFAIL_NAME_IN_USE);
  const uint32_t view = StoreNote(8, {Title("Name")});
  EXPECT_EQ(Copy(KVDESIGN_VIEW, view, Other()), KVSUCCESS);
}

TEST_F(CopyTest, KVIDesignNoteCopy_Default_CopyIsNoDefault) {
  const uint32_t id = StoreNote(0x8004, {Title("Standard")});
  ASSERT_EQ(Copy(KVDESIGN_FORM, id, Other()), KVSUCCESS);
  EXPECT_EQ(ClassIn(Other()->dbhand, copy_), 4u);
  uint32_t special = 0;
  EXPECT_NE(EngDbSpecialIdGet(Other()->dbhand, 0x8004, &special), 0);
  ASSERT_EQ(Copy(KVDESIGN_FORM, id, Base(), "Second"), KVSUCCESS);
  EXPECT_EQ(ClassOf(copy_), 4u);
  EXPECT_EQ(EngDbSpecialIdGet(EngineDatabase(), 0x8004, &special), 0);
  EXPECT_EQ(special, id);
}

TEST_F(CopyTest, KVIDesignNoteCopy_Private_LookedUpAmongTheUsersOwnAndStaysPrivate) {
  const uint32_t mine = StoreNote(0x1008, {Title("Name"), Owner(kOwnName)});
  const uint32_t shared = StoreNote(8, {Title("Name")});
  ASSERT_EQ(Copy(KVDESIGN_VIEW, shared, Other()), KVSUCCESS);
  Spy spy;
  ASSERT_EQ(Copy(KVDESIGN_VIEW, mine, Other()), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngDesignFindPrivate"), 1u);
  EXPECT_EQ(spy.Count("EngDesignFind"), 0u);
  EXPECT_EQ(ClassIn(Other()->dbhand, copy_), 0x1008u);
  EXPECT_EQ(Copy(KVDESIGN_VIEW, mine, Other()), KVFAIL_NAME_IN_USE);
}

TEST_F(CopyTest, KVIDesignNoteCopy_WrongRecord_ItsStatus) {
  const uint32_t view = StoreNote(8, {Title("View")});
  EXPECT_EQ(Copy(KVDESIGN_VIEW, 0x12345, Other()), KVFAIL_NOT_FOUND);
  EXPECT_EQ(Copy(KVDESIGN_FORM, view, Other()), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(Copy(KVDESIGN_FOLDER, view, Other()), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(Copy(KVDESIGN_FORM, StoreDocument(), Other()), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(Copy(KVDESIGN_FORM, StoreNote(4), Other()), KVFAIL_NOT_FOUND);  // no title to look up
  EXPECT_EQ(Copy(KVDESIGN_FORM, StoreNote(4, {{"$TITLE", BRTYPE_NUMBER, 4, std::string(8, 'x')}}), Other()),
            KVFAIL_NOT_FOUND);
  EXPECT_EQ(copy_, kUntouched);
  EXPECT_EQ(CountDesigns(Other()), 0u);
  // A new title makes up for a missing one.
  EXPECT_EQ(Copy(KVDESIGN_FORM, StoreNote(4), Other(), "Name"), KVSUCCESS);
}

TEST_F(CopyTest, KVIDesignNoteCopy_BadNewTitle_ItsStatusAndNoRecord) {
  const uint32_t id = StoreNote(4, {Title("Name")});
  EXPECT_EQ(Copy(KVDESIGN_FORM, id, Other(), "(Open"), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(Copy(KVDESIGN_FORM, id, Other(), std::string(130, 'n').c_str()), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(CountDesigns(Other()), 0u);
}

TEST_F(CopyTest, KVIDesignNoteCopy_NoIdWanted_Works) {
  const uint32_t id = StoreNote(4, {Title("Name")});
  EXPECT_EQ(_KVIDesignNoteCopy(session_, KVDESIGN_FORM, Base(), id, Other(), nullptr, nullptr, 0), KVSUCCESS);
  EXPECT_EQ(CountDesigns(Other()), 1u);
}

TEST_F(CopyTest, KVIDesignNoteCopy_AnyEngineCallFails_StatusRecordsClosedNothingStored) {
  const uint32_t id = StoreNote(0x8004, {Title("Name")});
  bool hit = true;
  for (uint32_t nth = 1; hit; ++nth) {
    const size_t before = CountDesigns(Other());
    const std::string title = "Copy" + std::to_string(nth);
    Spy spy;
    Fault fault = Fault::EngineCall(nth, kEngineFailure);
    const uint32_t status = Copy(KVDESIGN_FORM, id, Other(), title.c_str());
    hit = fault.Hit();
    const std::string name = fault.hit_name();
    fault.Disarm();
    size_t opened = 0;
    for (const char* call : {"EngNoteOpen", "EngNoteCopy"})
      for (size_t i = 0; spy.Find(call, i) != nullptr; ++i) opened += spy.Find(call, i)->result == 0;
    EXPECT_GE(spy.Count("EngNoteClose"), opened) << name;
    const bool tolerated = name == "EngItemTextGet" || name == "EngItemDelete" || name == "EngNoteClose";
    if (status == KVSUCCESS) {
      EXPECT_TRUE(!hit || tolerated) << name;
      continue;
    }
    EXPECT_EQ(status, nth <= 2 ? KVFAIL_NOT_FOUND : kEngineFailure) << name;
    const bool was_stored = name == "EngNoteInfoGet" && nth > 5;  // the last step, for the id alone
    EXPECT_EQ(CountDesigns(Other()), before + was_stored) << name;
  }
}

}  // namespace
