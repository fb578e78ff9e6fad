// Views and columns as programs reach them: by name, their copies and deletion, lists of columns.
#include "kvview_world.h"

namespace {

using kit::Answer;
using kvdoc::kEngineFailure;
using kvview::FormatBytes;
using kvview::NewTable;
using kvview::Plain;
using kvview::Shown;
using kvview::ViewTest;

class LibraryTest : public ViewTest {
 protected:
  void SetUp() override {
    ViewTest::SetUp();
    view_ = MadeView("Memos");
    folder_ = StoreFolder("Folder");
  }
  uint32_t view_ = 0, folder_ = 0;
};

// ---- By name

TEST_F(LibraryTest, KVViewLocateByName_Names_IdOrNoView) {
  StoreView("Navigator", "", "G");
  EXPECT_EQ(KVViewLocateByName(database_, "memos"), view_);
  ExpectError(KVSUCCESS);
  for (const char* name : {"Mem", "", "Folder", "Navigator"}) {
    EXPECT_EQ(KVViewLocateByName(database_, name), 0u) << name;
    ExpectError(KVFAIL_NO_VIEW);
  }
  SetVersion(0x3ffff);
  EXPECT_EQ(KVViewLocateByName(database_, "Folder"), folder_) << "an old program knows no folders";
  EXPECT_EQ(KVViewLocateByName(database_, "Navigator"), 0u);
  SetVersion(KVAPI_VERSION);
}

TEST_F(LibraryTest, KVViewLocateByName_BadArguments_StatusesInOrder) {
  EXPECT_EQ(KVViewLocateByName(0, nullptr), 0u);
  ExpectError(KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVViewLocateByName(0, "Memos"), 0u);
  ExpectError(KVFAIL_NO_DATABASE);
}

TEST_F(LibraryTest, KVViewLocateByName_EngineFails_ThatStatusWithItsFlagBits) {
  {
    const Answer answer("EngDesignFind", kEngineFailure);
    EXPECT_EQ(KVViewLocateByName(database_, "Memos"), 0u);
    ExpectError(kEngineFailure);
  }
  {
    const Answer answer("EngDesignFind", 0xc404);
    const Answer private_answer("EngDesignFindPrivate", kEngineFailure);
    EXPECT_EQ(KVViewLocateByName(database_, "Memos"), 0u);
    ExpectError(kEngineFailure);
  }
  const Answer answer("EngNoteOpen", kEngineFailure);
  EXPECT_EQ(KVViewLocateByName(database_, "Memos"), 0u);
  ExpectError(KVFAIL_NO_VIEW);
}

// ---- Fetching

TEST_F(LibraryTest, KVViewFetch_WrongArguments_StatusInOrder) {
  KVVIEW view;
  EXPECT_EQ(KVViewFetch(0, view_, nullptr), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVViewFetch(database_, view_, nullptr), KVFAIL_NULL_PARAM);
  for (const uint32_t id : {0u, folder_, StoreDocument()}) {
    std::memset(static_cast<void*>(&view), 'x', sizeof view);
    EXPECT_EQ(KVViewFetch(database_, id, &view), KVFAIL_NO_VIEW);
    EXPECT_EQ(kvview::BytesOf(view), std::string(sizeof view, 0));
  }
}

TEST_F(LibraryTest, KVViewFetch_OldProgram_ItsBytesZeroAndUnsupported) {
  const struct {
    uint32_t version;
    size_t bytes;
  } kRows[] = {{0x20305, 0xa8 + 2 * (sizeof(char*) - 4)},
               {0x20306, 0x128 + 2 * (sizeof(char*) - 4)},
               {0x3ffff, 0x128 + 2 * (sizeof(char*) - 4)}};
  for (const auto& row : kRows) {
    std::string record(sizeof(KVVIEW), 'x');
    SetVersion(row.version);
    EXPECT_EQ(KVViewFetch(database_, view_, reinterpret_cast<KVVIEW*>(record.data())), KVFAIL_UNSUPPORTED);
    SetVersion(KVAPI_VERSION);
    EXPECT_EQ(record, std::string(row.bytes, 0) + std::string(sizeof(KVVIEW) - row.bytes, 'x'));
  }
}

// ---- Copies

TEST_F(LibraryTest, KVViewCopy_ToAnotherDatabase_WholeView) {
  uint32_t copy = 0;
  ASSERT_EQ(KVViewCopy(database_, view_, other_, nullptr, &copy), KVSUCCESS);
  EXPECT_EQ(KVViewLocateByName(other_, "Memos"), copy);
  EXPECT_EQ(KVColumnGetCount(other_, copy), 1u);
  EXPECT_EQ(KVViewCopy(database_, view_, other_, "", &copy), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(copy, 0u);
  ASSERT_EQ(KVViewCopy(database_, view_, database_, "Menu\\Cascade|Second", &copy), KVSUCCESS);
  EXPECT_EQ(Bytes(copy, "$TITLE"), "Menu\\Cascade|Second") << "one text";
  EXPECT_EQ(KVViewCopy(database_, view_, database_, "Third", nullptr), KVSUCCESS);
}

TEST_F(LibraryTest, KVViewCopy_WrongArguments_StatusAndIdZero) {
  uint32_t copy = 77;
  EXPECT_EQ(KVViewCopy(0, view_, other_, nullptr, &copy), KVFAIL_NO_DATABASE);
  EXPECT_EQ(copy, 0u);
  EXPECT_EQ(KVViewCopy(database_, view_, 0, nullptr, &copy), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVViewCopy(database_, view_, database_, nullptr, &copy), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(KVViewCopy(database_, view_, other_, std::string(130, 'n').c_str(), &copy), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(KVViewCopy(database_, view_, other_, std::string(129, 'n').c_str(), &copy), KVSUCCESS);
  copy = 77;
  EXPECT_EQ(KVViewCopy(database_, folder_, other_, nullptr, &copy), KVFAIL_NO_VIEW);
  EXPECT_EQ(copy, 0u);
  const Answer answer("EngNoteUpdate", kEngineFailure);
  EXPECT_EQ(KVViewCopy(database_, view_, other_, "New", &copy), KVFAIL_NO_VIEW);
}

// ---- Deletion

TEST_F(LibraryTest, KVViewDelete_View_GoneFromDatabaseAndCache) {
  SpecOf(view_);
  EXPECT_EQ(KVViewDelete(database_, view_), KVSUCCESS);
  EXPECT_FALSE(IsStored(view_));
  EXPECT_EQ(ListedSpecs(), 0u);
  EXPECT_EQ(SpecStatus(view_), KVFAIL_NO_VIEW);
  EXPECT_EQ(KVViewDelete(database_, view_), KVFAIL_NO_VIEW);
}

TEST_F(LibraryTest, KVViewDelete_NoView_NoViewAndKept) {
  EXPECT_EQ(KVViewDelete(0, view_), KVFAIL_NO_DATABASE);
  for (const uint32_t id : {0u, folder_, StoreDocument()}) {
    EXPECT_EQ(KVViewDelete(database_, id), KVFAIL_NO_VIEW);
    EXPECT_TRUE(id == 0 || IsStored(id));
  }
  SetVersion(0x3ffff);
  EXPECT_EQ(KVViewDelete(database_, folder_), KVSUCCESS) << "an old program knows no folders";
  SetVersion(KVAPI_VERSION);
}

TEST_F(LibraryTest, KVViewDelete_ShownByAnIndex_ActiveResultAndKept) {
  {
    const kvview::ShowingIndex shown(session_, Base(), SpecOf(view_));
    EXPECT_EQ(KVViewDelete(database_, view_), KVFAIL_ACTIVE_RESULT);
  }
  {
    const kvview::ShowingIndex shown(session_, BaseOf(other_), SpecOf(view_), Base());
    EXPECT_EQ(KVViewDelete(database_, view_), KVFAIL_ACTIVE_RESULT);
  }
  EXPECT_TRUE(IsStored(view_));
  const Answer answer("EngNoteDelete", kEngineFailure);
  EXPECT_EQ(KVViewDelete(database_, view_), kEngineFailure);
}

// ---- Columns

TEST_F(LibraryTest, KVColumnGetCount_ViewsAndOthers_CountOrZeroWithoutStatus) {
  EXPECT_EQ(KVColumnGetCount(database_, view_), 1u);
  EXPECT_EQ(KVColumnGetCount(database_, folder_), 1u);
  EXPECT_EQ(KVColumnGetCount(database_, 99999), 0u);
  ExpectError(KVSUCCESS);
  EXPECT_EQ(KVColumnGetCount(0, view_), 0u);
  ExpectError(KVFAIL_NO_DATABASE);
}

TEST_F(LibraryTest, KVColumnList_EachDirection_NumberAndColumn) {
  const uint32_t id = Made(View("Three"), {Column("1", "a"), Column("2", "b"), Column("3", "c")});
  const auto list = [&](int32_t direction) {
    KVCOLUMN column;
    uint32_t number = 0;
    EXPECT_EQ(KVColumnList(database_, id, direction, &number, &column), KVSUCCESS);
    return std::to_string(number) + column.title;
  };
  KVCOLUMN column;
  EXPECT_EQ(KVColumnList(database_, id, KVLIST_CURRENT, nullptr, &column), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(list(KVLIST_FIRST), "1a");
  EXPECT_EQ(list(KVLIST_NEXT), "2b");
  EXPECT_EQ(list(KVLIST_CURRENT), "2b");
  EXPECT_EQ(list(KVLIST_LAST), "3c");
  std::memset(static_cast<void*>(&column), 'x', sizeof column);
  uint32_t number = 77;
  EXPECT_EQ(KVColumnList(database_, id, KVLIST_NEXT, &number, &column), KVFAIL_END_OF_DATA);
  EXPECT_EQ(number, 77u);
  EXPECT_EQ(kvview::BytesOf(column), std::string(sizeof column, 'x'));
  EXPECT_EQ(list(KVLIST_PREVIOUS), "2b");
  EXPECT_EQ(list(KVLIST_REFRESH), "1a");
  EXPECT_EQ(KVColumnList(database_, id, 7, nullptr, &column), KVFAIL_BAD_ENUM);
  EXPECT_EQ(KVColumnList(database_, id, KVLIST_FIRST, nullptr, &column), KVSUCCESS);
}

TEST_F(LibraryTest, KVColumnList_WrongArguments_StatusInOrder) {
  KVCOLUMN column;
  EXPECT_EQ(KVColumnList(0, view_, KVLIST_FIRST, nullptr, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVColumnList(0, view_, KVLIST_FIRST, nullptr, &column), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVColumnList(database_, 0, KVLIST_FIRST, nullptr, &column), KVFAIL_NO_VIEW);
  const uint32_t broken = StoreView("Broken", "x");
  EXPECT_EQ(KVColumnList(database_, broken, KVLIST_FIRST, nullptr, &column), KVFAIL_NO_VIEW);
  const uint32_t none = StoreView("None", FormatBytes({}, 0, NewTable()));
  EXPECT_EQ(KVColumnList(database_, none, KVLIST_FIRST, nullptr, &column), KVFAIL_END_OF_DATA);
  SetVersion(0x3ffff);
  EXPECT_EQ(KVColumnList(database_, view_, KVLIST_FIRST, nullptr, &column), KVFAIL_UNSUPPORTED);
  EXPECT_EQ(KVColumnFetch(database_, view_, 1, &column), KVFAIL_UNSUPPORTED);
  SetVersion(KVAPI_VERSION);
}

TEST_F(LibraryTest, KVColumnFetch_WrongArguments_StatusInOrder) {
  KVCOLUMN column;
  EXPECT_EQ(KVColumnFetch(0, view_, 0, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVColumnFetch(0, view_, 0, &column), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVColumnFetch(database_, 0, 0, &column), KVFAIL_NO_VIEW);
  EXPECT_EQ(KVColumnFetch(database_, view_, 0, &column), KVFAIL_NO_COLUMN);
  EXPECT_EQ(KVColumnFetch(database_, view_, 2, &column), KVFAIL_NO_COLUMN);
  ASSERT_EQ(KVColumnFetch(database_, view_, 1, &column), KVSUCCESS);
  EXPECT_STREQ(column.title, "Subject");
  EXPECT_EQ(KVColumnFetch(database_, folder_, 1, &column), KVSUCCESS);
}

}  // namespace
