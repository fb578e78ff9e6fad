// Folders: by name, their entries, copies, and folders made of views and folders.
#include "kvview_world.h"

namespace {

using kit::Answer;
using kit::Fault;
using kvdoc::kEngineFailure;
using kvview::ViewTest;

class FolderTest : public ViewTest {
 protected:
  void SetUp() override {
    ViewTest::SetUp();
    view_ = MadeView("Memos");
    ASSERT_EQ(KVFolderCreateFromViewFolder(database_, 0, view_, 0, "Folder", &folder_), KVSUCCESS);
    first_ = StoreDocument("first");
    second_ = StoreDocument("second");
  }
  uint32_t Add(const std::vector<uint32_t>& ids) const {
    return KVFolderAddEntries(database_, folder_, static_cast<uint32_t>(ids.size()), ids.data());
  }
  uint32_t Remove(const std::vector<uint32_t>& ids) const {
    return KVFolderRemoveEntries(database_, folder_, static_cast<uint32_t>(ids.size()), ids.data());
  }
  uint32_t Count() const { return KVFolderGetCount(database_, folder_); }
  uint32_t view_ = 0, folder_ = 0, first_ = 0, second_ = 0;
};

TEST_F(FolderTest, KVFolderLocateByName_Names_IdOrNoFolder) {
  EXPECT_EQ(KVFolderLocateByName(database_, "FOLDER"), folder_);
  ExpectError(KVSUCCESS);
  for (const char* name : {"Memos", "None", ""}) {
    EXPECT_EQ(KVFolderLocateByName(database_, name), 0u) << name;
    ExpectError(KVFAIL_NO_FOLDER);
  }
  EXPECT_EQ(KVFolderLocateByName(0, nullptr), 0u);
  ExpectError(KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVFolderLocateByName(0, "Folder"), 0u);
  ExpectError(KVFAIL_NO_DATABASE);
  const Answer answer("EngDesignFind", kEngineFailure);
  EXPECT_EQ(KVFolderLocateByName(database_, "Folder"), 0u);
  ExpectError(kEngineFailure);
}

// ---- Entries

TEST_F(FolderTest, KVFolderAddEntries_DocumentsAndRowIds_DocumentsCount) {
  EXPECT_EQ(Count(), 0u);
  EXPECT_EQ(Add({0, first_, 0xffffffff, 0xfffffffe}), KVSUCCESS);
  EXPECT_EQ(Count(), 1u);
  EXPECT_EQ(Add({first_, second_}), KVSUCCESS);
  EXPECT_EQ(Count(), 2u);
  EXPECT_EQ(Remove({0xffffffff, second_}), KVSUCCESS);
  EXPECT_EQ(Count(), 1u);
  EXPECT_EQ(Add({second_}), KVSUCCESS);
  EXPECT_EQ(KVFolderRemoveAllEntries(database_, folder_), KVSUCCESS);
  EXPECT_EQ(Count(), 0u);
  EXPECT_TRUE(IsStored(first_));
}

TEST_F(FolderTest, KVFolderAddEntries_WrongArguments_StatusInOrder) {
  const uint32_t ids[] = {first_};
  for (const auto change : {KVFolderAddEntries, KVFolderRemoveEntries}) {
    EXPECT_EQ(change(0, 0, 0, nullptr), KVFAIL_NO_DATABASE);
    EXPECT_EQ(change(database_, 0, 0, nullptr), KVFAIL_NULL_PARAM);
    EXPECT_EQ(change(database_, 0, 0, ids), KVFAIL_NO_FOLDER);
    EXPECT_EQ(change(database_, view_, 0, ids), KVFAIL_NO_ACTION);
    EXPECT_EQ(change(database_, view_, 1, ids), KVFAIL_NO_FOLDER);
  }
  EXPECT_EQ(KVFolderRemoveAllEntries(0, folder_), KVFAIL_NO_DATABASE);
  for (const uint32_t id : {0u, view_, first_})
    EXPECT_EQ(KVFolderRemoveAllEntries(database_, id), KVFAIL_NO_FOLDER);
}

TEST_F(FolderTest, KVFolderAddEntries_EngineFails_StatusAndNothingAdded) {
  const struct {
    const char* call;
    uint32_t status;
  } kRows[] = {{"EngIdTableCreate", KVFAIL_INTERNAL},
               {"EngIdTableInsertId", kEngineFailure},
               {"EngFolderEntriesAdd", kEngineFailure}};
  for (const auto& row : kRows) {
    const Fault fault = Fault::EngineCall(1, kEngineFailure, row.call);
    EXPECT_EQ(Add({first_}), row.status) << row.call;
    EXPECT_TRUE(fault.Hit());
  }
  EXPECT_EQ(Count(), 0u);
  const Answer answer("EngFolderEntriesRemove", kEngineFailure);
  EXPECT_EQ(Remove({first_}), kEngineFailure);
  const Answer all("EngFolderEntriesRemoveAll", kEngineFailure);
  EXPECT_EQ(KVFolderRemoveAllEntries(database_, folder_), kEngineFailure);
}

TEST_F(FolderTest, KVFolderGetCount_NoFolder_ZeroAndStatus) {
  for (const uint32_t id : {0u, view_, first_}) {
    EXPECT_EQ(KVFolderGetCount(database_, id), 0u);
    ExpectError(KVFAIL_NO_FOLDER);
  }
  EXPECT_EQ(KVFolderGetCount(0, folder_), 0u);
  ExpectError(KVFAIL_NO_DATABASE);
  ASSERT_EQ(Add({first_}), KVSUCCESS);
  const Answer answer("EngFolderEntriesCount", kEngineFailure);
  EXPECT_EQ(Count(), 0u);
  ExpectError(kEngineFailure);
}

// ---- Deletion

TEST_F(FolderTest, KVFolderDelete_Folder_GoneAndDocumentsStay) {
  ASSERT_EQ(Add({first_}), KVSUCCESS);
  _VIEWSPEC* spec = SpecOf(folder_);
  {
    const kvview::ShowingIndex shown(session_, Base(), spec);
    EXPECT_EQ(KVFolderDelete(database_, folder_), KVFAIL_ACTIVE_RESULT);
  }
  EXPECT_TRUE(IsStored(folder_));
  EXPECT_EQ(KVFolderDelete(database_, folder_), KVSUCCESS);
  EXPECT_FALSE(IsStored(folder_));
  EXPECT_TRUE(IsStored(first_));
  EXPECT_EQ(ListedSpecs(), 0u);
}

TEST_F(FolderTest, KVFolderDelete_WrongArguments_StatusAndKept) {
  EXPECT_EQ(KVFolderDelete(0, folder_), KVFAIL_NO_DATABASE);
  for (const uint32_t id : {0u, view_, first_}) EXPECT_EQ(KVFolderDelete(database_, id), KVFAIL_NO_FOLDER);
  EXPECT_TRUE(IsStored(view_));
  const Answer answer("EngFolderRemove", kEngineFailure);
  EXPECT_EQ(KVFolderDelete(database_, folder_), kEngineFailure);
}

// ---- Copies

TEST_F(FolderTest, KVFolderCopy_SameDatabase_EntriesToo) {
  ASSERT_EQ(Add({first_, second_}), KVSUCCESS);
  uint32_t copy = 77;
  EXPECT_EQ(KVFolderCopy(database_, folder_, database_, nullptr, &copy), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(copy, 0u);
  EXPECT_EQ(KVFolderCopy(database_, folder_, database_, "", &copy), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(KVFolderCopy(database_, folder_, database_, "Memos", &copy), KVFAIL_NAME_IN_USE);
  ASSERT_EQ(KVFolderCopy(database_, folder_, database_, "Second", &copy), KVSUCCESS);
  EXPECT_EQ(KVFolderLocateByName(database_, "Second"), copy);
  EXPECT_EQ(KVFolderGetCount(database_, copy), 2u);
  EXPECT_EQ(KVFolderCopy(database_, folder_, database_, "Third", nullptr), KVSUCCESS);
  for (const char* call : {"EngDesignFind", "EngFolderDuplicate"}) {
    const Answer answer(call, kEngineFailure);
    EXPECT_EQ(KVFolderCopy(database_, folder_, database_, "Fourth", &copy), kEngineFailure) << call;
    EXPECT_EQ(copy, 0u);
  }
}

TEST_F(FolderTest, KVFolderCopy_OtherDatabase_DesignAlone) {
  uint32_t copy = 0;
  ASSERT_EQ(KVFolderCopy(database_, folder_, other_, nullptr, &copy), KVSUCCESS);
  EXPECT_EQ(KVFolderLocateByName(other_, "Folder"), copy);
  EXPECT_EQ(KVColumnGetCount(other_, copy), 1u);
  EXPECT_EQ(KVFolderCopy(database_, folder_, other_, nullptr, &copy), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(copy, 0u);
  const Answer answer("EngNoteUpdate", kEngineFailure);
  EXPECT_EQ(KVFolderCopy(database_, folder_, other_, "New", &copy), KVFAIL_NO_FOLDER);
}

TEST_F(FolderTest, KVFolderCopy_WrongArguments_StatusInOrder) {
  uint32_t copy = 77;
  const std::string long_name(130, 'n');
  EXPECT_EQ(KVFolderCopy(0, 0, 0, nullptr, &copy), KVFAIL_NO_DATABASE);
  EXPECT_EQ(copy, 0u);
  EXPECT_EQ(KVFolderCopy(database_, 0, 0, nullptr, &copy), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVFolderCopy(database_, view_, other_, long_name.c_str(), &copy), KVFAIL_NO_FOLDER);
  EXPECT_EQ(KVFolderCopy(database_, folder_, other_, long_name.c_str(), &copy), KVFAIL_DATA_TOO_LONG);
}

// ---- New folders

TEST_F(FolderTest, KVFolderCreateFromViewFolder_ViewsAndFolders_EmptyWithTheirDesign) {
  ASSERT_EQ(Add({first_}), KVSUCCESS);
  uint32_t made = 0;
  ASSERT_EQ(KVFolderCreateFromViewFolder(database_, 0, folder_, 0, "Second", &made), KVSUCCESS);
  EXPECT_EQ(KVFolderLocateByName(database_, "Second"), made);
  EXPECT_EQ(KVFolderGetCount(database_, made), 0u);
  EXPECT_EQ(KVColumnGetCount(database_, made), 1u);
  EXPECT_EQ(KVFolderCreateFromViewFolder(database_, 0, view_, 0, "Third", nullptr), KVSUCCESS);
}

TEST_F(FolderTest, KVFolderCreateFromViewFolder_OtherDatabase_SourceLiesThere) {
  uint32_t made = 0;
  ASSERT_EQ(KVFolderCreateFromViewFolder(other_, database_, view_, 0, nullptr, &made), KVSUCCESS);
  EXPECT_EQ(KVFolderLocateByName(other_, "Memos"), made);
  made = 77;
  EXPECT_EQ(KVFolderCreateFromViewFolder(other_, database_, view_, 0, "", &made), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(made, 77u);
  const uint32_t second = OpenDatabase(path_);
  EXPECT_EQ(KVFolderCreateFromViewFolder(second, database_, view_, 0, nullptr, &made), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(KVFolderCreateFromViewFolder(database_, 0, view_, 0, nullptr, &made), KVFAIL_NAME_IN_USE);
  const std::string format = kvview::FormatBytes({}, 0, kvview::NewTable());
  const uint32_t untitled = StoreView("", format);
  EXPECT_EQ(KVFolderCreateFromViewFolder(other_, database_, untitled, 0, nullptr, &made), KVFAIL_BAD_FORMAT);
}

TEST_F(FolderTest, KVFolderCreateFromViewFolder_Private_OwnNames) {
  uint32_t made = 0;
  ASSERT_EQ(KVFolderCreateFromViewFolder(database_, 0, view_, KVFOLDCREATE_PRIVATE, "Folder", &made),
            KVSUCCESS);
  EXPECT_EQ(ClassOf(made) & BRCLASS_PRIVATE, BRCLASS_PRIVATE);
  EXPECT_EQ(KVFolderCreateFromViewFolder(database_, 0, view_, KVFOLDCREATE_PRIVATE, "Folder", &made),
            KVFAIL_NAME_IN_USE);
}

TEST_F(FolderTest, KVFolderCreateFromViewFolder_WrongArguments_StatusInOrder) {
  uint32_t made = 77;
  EXPECT_EQ(KVFolderCreateFromViewFolder(0, 99999, 0, 0, "New", &made), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVFolderCreateFromViewFolder(database_, 99999, 0, 0, "New", &made), KVFAIL_NO_DATABASE);
  for (const uint32_t id : {0u, first_})
    EXPECT_EQ(KVFolderCreateFromViewFolder(database_, 0, id, 0, "Folder", &made), KVFAIL_NO_FOLDER);
  EXPECT_EQ(KVFolderCreateFromViewFolder(database_, 0, view_, 0, "Folder", &made), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(KVFolderCreateFromViewFolder(database_, 0, view_, 0, std::string(130, 'n').c_str(), &made),
            KVFAIL_DATA_TOO_LONG);
  for (const char* call : {"EngDesignFind", "EngFolderNew"}) {
    const Answer answer(call, kEngineFailure);
    EXPECT_EQ(KVFolderCreateFromViewFolder(database_, 0, view_, 0, "New", &made), kEngineFailure) << call;
  }
  EXPECT_EQ(made, 77u);
}

}  // namespace
