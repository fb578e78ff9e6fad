// Folders through the boundary: entries kept with the rows, copies, counts, removal.
#include "collection/folder.h"
#include "engine/collection_view_fixture.h"

namespace {

using namespace brynd;

class FolderTest : public ViewFixture {
 protected:
  void SetUp() override {
    ViewFixture::SetUp();
    for (const char* key : {"d", "b", "a", "c"}) {
      ModelDocument document;
      document.key = key;
      StoreDocument(&document);
      ids_.push_back(document.id);
    }
    source_ = MakeView(ColumnsOf({}), false, "SELECT Form = \"None\"");
  }
  uint32_t MakeFolder(const char* name = "Folder", uint16_t is_private = 0) {
    uint32_t folder = 0;
    EXPECT_EQ(0, EngFolderNew(db_, 0, source_, 0, name, static_cast<uint16_t>(std::string_view(name).size()),
                              is_private, 0, &folder));
    return folder;
  }
  static EngIdTable Table(const std::vector<uint32_t>& ids) {
    EngIdTable table = 0;
    EXPECT_EQ(0, EngIdTableCreate(4, &table));
    for (const uint32_t id : ids) EXPECT_EQ(0, EngIdTableInsertId(table, id, nullptr));
    return table;
  }
  EngStatus Add(uint32_t folder, const std::vector<uint32_t>& ids) {
    const EngIdTable table = Table(ids);
    const EngStatus outcome = EngFolderEntriesAdd(db_, 0, folder, table, 0);
    EXPECT_EQ(0, EngIdTableDestroy(table));
    return outcome;
  }
  EngStatus Take(uint32_t folder, const std::vector<uint32_t>& ids) {
    const EngIdTable table = Table(ids);
    const EngStatus outcome = EngFolderEntriesRemove(db_, 0, folder, table, 0);
    EXPECT_EQ(0, EngIdTableDestroy(table));
    return outcome;
  }
  uint32_t Count(uint32_t folder) {
    uint32_t count = 99;
    EXPECT_EQ(0, EngFolderEntriesCount(db_, 0, folder, 0, &count));
    return count;
  }
  static std::string Keys(EngCollection collection) {
    std::string keys;
    for (const ReadRow& row : ReadAll(collection)) keys += row.values[0].substr(2);
    return keys;
  }

  std::vector<uint32_t> ids_;
  uint32_t source_ = 0;
};

TEST_F(FolderTest, EngFolderEntriesAdd_OpenFolder_RowsAreThereAtOnce) {
  const uint32_t folder = MakeFolder();
  const EngCollection collection = OpenView(folder);
  EXPECT_EQ("", Keys(collection));
  EXPECT_EQ(0, Add(folder, {ids_[0], ids_[1]}));
  EXPECT_EQ("bd", Keys(collection));
  EXPECT_EQ(0, Add(folder, {ids_[1], ids_[2], ids_[3]}));
  EXPECT_EQ("abcd", Keys(collection));
  EXPECT_EQ(4u, Count(folder));
  EXPECT_EQ(0, Take(folder, {ids_[2], ids_[0], 12345}));
  EXPECT_EQ("bc", Keys(collection));
  EXPECT_EQ(0, EngFolderEntriesRemoveAll(db_, 0, folder, 0));
  EXPECT_EQ("", Keys(collection));
  EXPECT_EQ(0u, Count(folder));
  EXPECT_EQ(0, EngCollectionClose(collection));
}

TEST_F(FolderTest, EngFolderEntriesCount_DeletedAndUnknownMembers_LeftOut) {
  const uint32_t folder = MakeFolder();
  EXPECT_EQ(0, Add(folder, {ids_[0], ids_[1], ids_[2], 0x3fffffff, 0x80000001}));
  EXPECT_EQ(3u, Count(folder));
  const EngCollection collection = OpenView(folder);
  EXPECT_EQ("abd", Keys(collection));
  EXPECT_EQ(0, EngNoteDelete(db_, ids_[1], 4));
  EXPECT_EQ(2u, Count(folder));
  EXPECT_EQ(0, EngCollectionUpdate(collection));
  EXPECT_EQ("ad", Keys(collection));
  EXPECT_EQ(0, EngCollectionClose(collection));
}

TEST_F(FolderTest, EngCollectionUpdate_MemberChanged_RowFollows) {
  const uint32_t folder = MakeFolder();
  EXPECT_EQ(0, Add(folder, {ids_[0], ids_[1]}));
  const EngCollection collection = OpenView(folder);
  ModelDocument changed{.id = ids_[1], .first = {}, .second = {}, .key = "z", .number = {}, .parent = 0};
  StoreDocument(&changed);
  ModelDocument other{.id = ids_[2], .first = {}, .second = {}, .key = "y", .number = {}, .parent = 0};
  StoreDocument(&other);
  EXPECT_EQ(0, EngCollectionUpdate(collection));
  EXPECT_EQ("dz", Keys(collection));
  EXPECT_EQ(0, EngCollectionClose(collection));
}

TEST_F(FolderTest, EngFolderDuplicate_Entries_CopiedAndTheirOwn) {
  const uint32_t folder = MakeFolder();
  EXPECT_EQ(0, Add(folder, {ids_[0], ids_[3]}));
  uint32_t copy = 0;
  EXPECT_EQ(0, EngFolderDuplicate(db_, 0, folder, "Copy", 4, 0, &copy));
  EXPECT_EQ(2u, Count(copy));
  EXPECT_EQ(0, EngFolderEntriesRemoveAll(db_, 0, folder, 0));
  EXPECT_EQ(2u, Count(copy));
  uint32_t found = 0;
  EXPECT_EQ(0, EngDesignFind(db_, "copy", BRCLASS_VIEW, &found));
  EXPECT_EQ(copy, found);
  const uint32_t empty = MakeFolder("Third");
  EXPECT_EQ(0u, Count(empty));
  EXPECT_EQ(status::kNameExists, EngFolderDuplicate(db_, 0, folder, "Third", 5, 0, &copy));
  EXPECT_EQ(status::kBadCollection, EngFolderDuplicate(db_, 0, source_, "Fourth", 6, 0, &copy));
}

TEST_F(FolderTest, EngFolderRemove_Folder_RecordEntriesAndIndexGoDocumentsStay) {
  const uint32_t folder = MakeFolder();
  EXPECT_EQ(0, Add(folder, {ids_[0]}));
  EXPECT_EQ(0, EngCollectionClose(OpenView(folder)));
  EXPECT_EQ(0, EngFolderRemove(db_, 0, folder, 0));
  uint32_t records = 0;
  for (const store::Space space : {collection::kHeadSpace, collection::kNodeSpace}) {
    Owner().Store().ScanRecords(space, {}, std::nullopt, [&](Bytes key, Bytes) {
      records += TextOf(key) != "N";
      return true;
    });
  }
  EXPECT_EQ(0u, records);
  EngCollection collection = 77;
  EXPECT_EQ(status::kNoNote,
            EngCollectionOpen(db_, db_, folder, 0, 0, &collection, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(77, collection);
  EXPECT_EQ(0, EngNoteClose(OpenNote(ids_[0])));
}

TEST_F(FolderTest, EngFolderNew_PrivateOrFromAnotherDatabase_OwnRecord) {
  const uint32_t folder = MakeFolder("Mine", 1);
  const EngNote note = OpenNote(folder);
  uint16_t note_class = 0;
  EXPECT_EQ(0, EngNoteInfoGet(note, 3, &note_class));
  EXPECT_EQ(BRCLASS_VIEW | BRCLASS_PRIVATE, note_class);
  EXPECT_EQ("F", Text(note, "$Flags"));
  EXPECT_EQ("Mine", Text(note, "$TITLE"));
  EXPECT_EQ(0, EngNoteClose(note));
  ASSERT_EQ(0, EngDbCreate("other", 0, 0, 0, 0, 0));
  EngDb other = 0;
  ASSERT_EQ(0, EngDbOpen("other", &other));
  uint32_t copied = 0;
  EXPECT_EQ(0, EngFolderNew(other, 0, source_, db_, "Far", 3, 0, 0, &copied));
  uint32_t count = 7;
  EXPECT_EQ(0, EngFolderEntriesCount(other, 0, copied, 0, &count));
  EXPECT_EQ(0u, count);
  EXPECT_EQ(0, EngDbClose(other));
}

TEST_F(FolderTest, AllCalls_NoFolderOrBadArguments_StatusAndOutputsAlone) {
  uint32_t out = 77;
  const EngIdTable table = Table({1});
  EXPECT_EQ(status::kBadCollection, EngFolderEntriesAdd(db_, 0, source_, table, 0));
  EXPECT_EQ(status::kBadCollection, EngFolderEntriesRemove(db_, 0, ids_[0], table, 0));
  EXPECT_EQ(status::kNoNote, EngFolderEntriesRemoveAll(db_, 0, 999, 0));
  EXPECT_EQ(status::kNoNote, EngFolderEntriesCount(db_, 0, 999, 0, &out));
  EXPECT_EQ(status::kBadCollection, EngFolderRemove(db_, 0, source_, 0));
  EXPECT_EQ(status::kBadHandle, EngFolderEntriesAdd(db_, 0, MakeFolder("x"), 0, 0));
  EXPECT_EQ(status::kBadHandle, EngFolderRemove(0, 0, 1, 0));
  EXPECT_EQ(status::kBadArgument, EngFolderEntriesCount(db_, 0, source_, 0, nullptr));
  EXPECT_EQ(status::kBadArgument, EngFolderNew(db_, 0, source_, 0, nullptr, 1, 0, 0, &out));
  EXPECT_EQ(status::kBadArgument, EngFolderNew(db_, 0, source_, 0, "a", 1, 2, 0, &out));
  EXPECT_EQ(status::kBadArgument, EngFolderNew(db_, 999, source_, 0, "a", 1, 0, 0, &out));
  EXPECT_EQ(status::kNoNote, EngFolderNew(db_, 0, 999, 0, "a", 1, 0, 0, &out));
  EXPECT_EQ(77u, out);
  EXPECT_EQ(0, EngIdTableDestroy(table));
}

}  // namespace
