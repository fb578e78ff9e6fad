// Collections through the boundary: opening, masks, pages, what others change, damage.
#include "collection/collection.h"

#include "base/checksum.h"
#include "collection/index.h"
#include "engine/collection_view_fixture.h"

namespace {

using namespace brynd;

class CollectionTest : public ViewFixture {
 protected:
  void Fill(int count, size_t key_bytes = 3) {
    for (int i = 0; i < count; ++i) {
      ModelDocument document;
      document.key = std::to_string(100000 + i) + std::string(key_bytes, 'x');
      document.first = {i % 2 == 0 ? "even" : "odd"};
      StoreDocument(&document);
      ids_.push_back(document.id);
    }
  }
  static std::string Keys(EngCollection collection, size_t item = 0) {
    std::string keys;
    for (const ReadRow& row : ReadAll(collection)) keys += row.values[item].substr(2) + " ";
    return keys;
  }
  static std::vector<std::byte> ReadMask(EngCollection collection, uint32_t mask, uint32_t count = 1,
                                         std::vector<uint32_t> from = {0}) {
    COLLECTIONPOSITION position = At(from);
    EngMem memory = 0;
    uint16_t bytes = 0;
    EXPECT_EQ(0, EngCollectionRead(collection, &position, 1, 1, 1, count, mask, &memory, &bytes, nullptr,
                                   nullptr, nullptr));
    std::vector<std::byte> content;
    if (memory == 0) return content;
    const auto* start = static_cast<const std::byte*>(EngMemLock(memory));
    content.assign(start, start + bytes);
    uint32_t size = 0;
    EXPECT_EQ(0, EngMemSizeGet(memory, &size));
    EXPECT_EQ(bytes, size);
    EngMemFree(memory);
    return content;
  }
  std::vector<uint32_t> ids_;
};

TEST_F(CollectionTest, EngCollectionRead_EachMaskBitAlone_FieldOfItsWidth) {
  Fill(3);
  const EngCollection collection = OpenView(MakeView(ColumnsOf({})));
  struct Width {
    uint32_t bit;
    size_t bytes;
  };
  for (const auto& [bit, bytes] : {Width{0x1, 4},
                                   {0x2, 16},
                                   {0x4, 2},
                                   {0x8, 4},
                                   {0x10, 4},
                                   {0x20, 4},
                                   {0x40, 2},
                                   {0x80, 2},
                                   {0x200, 2},
                                   {0x400, 2},
                                   {0x4000, 8},
                                   {0x100, 8}}) {
    EXPECT_EQ(bytes, ReadMask(collection, bit).size()) << std::hex << bit;
    EXPECT_EQ(ReadMask(collection, bit).size() + 16,
              ReadMask(collection, bit | 0x2).size() + (bit == 2 ? 16 : 0));
  }
  const std::vector<std::byte> statistics = ReadMask(collection, 0x100);
  EXPECT_EQ(3u, LoadU32(statistics.data()));
  EXPECT_EQ(0u, LoadU32(statistics.data() + 4));
  const std::vector<std::byte> unid = ReadMask(collection, 0x2);
  EXPECT_EQ(0, std::memcmp(&unids_[ids_[0]], unid.data(), 16));
  EXPECT_TRUE(ReadMask(collection, 0).empty());
  const std::vector<std::byte> named = ReadMask(collection, 0x8000);
  char* value = nullptr;
  uint16_t bytes = 0, type = 0;
  EXPECT_EQ(0, EngSummaryValueLocate(named.data(), "$0003", &value, &bytes, &type));
  EXPECT_EQ("100000xxx", std::string(value, bytes));
  EXPECT_EQ(0, EngCollectionClose(collection));
}

TEST_F(CollectionTest, EngCollectionRead_StatisticsWithTotalAndNoRows_CountWithoutTotal) {
  Fill(4);
  const EngCollection collection = OpenView(MakeView(ColumnsOf({.category_count = 1, .total_kind = 1})));
  COLLECTIONPOSITION position = At({1});
  EngMem memory = 0;
  uint16_t bytes = 0, signal = 9;
  uint32_t returned = 9;
  EXPECT_EQ(0, EngCollectionRead(collection, &position, 0, 0, 0, 0, 0x100, &memory, &bytes, nullptr,
                                 &returned, &signal));
  EXPECT_EQ(8, bytes);
  EXPECT_EQ(2u, LoadU32(EngMemLock(memory)));
  EXPECT_EQ(0u, returned);
  EXPECT_EQ(0, signal);
  EngMemFree(memory);
  EXPECT_EQ(0, EngCollectionClose(collection));
}

TEST_F(CollectionTest, EngCollectionRead_MoreThanAPage_PagesOfWholeRowsAndSignal) {
  Fill(60, 3000);
  const EngCollection collection = OpenView(MakeView(ColumnsOf({})));
  Page page = Read(collection, {0}, 1, 1, 1, 1000);
  EXPECT_EQ(0x20, page.signal);
  EXPECT_GT(page.bytes, 60000);
  EXPECT_EQ(page.returned, page.position.Tumbler[0]);
  EXPECT_EQ(60u, ReadAll(collection).size());
  page = Read(collection, {60}, 9, 0, 9, 1000);
  EXPECT_EQ(0x20, page.signal);
  EXPECT_EQ(61 - page.returned, page.position.Tumbler[0]);
  // Without fields there is nothing to fill a page with.
  COLLECTIONPOSITION position = At({0});
  uint32_t returned = 0;
  EXPECT_EQ(0, EngCollectionRead(collection, &position, 1, 1, 1, 0xffffffff, 0, nullptr, nullptr, nullptr,
                                 &returned, nullptr));
  EXPECT_EQ(60u, returned);
  EXPECT_EQ(60u, position.Tumbler[0]);
  EXPECT_EQ(0, EngCollectionClose(collection));
}

TEST_F(CollectionTest, EngCollectionRead_RowLongerThanAPage_ColumnsFromTheRightEmpty) {
  std::vector<ViewColumn> columns = {{"$0001", "Key", 1, 0}};
  for (int i = 2; i < 9; ++i) columns.push_back({"$000" + std::to_string(i), "@Repeat(Key; 2000)", 0, 0});
  Fill(2, 1);
  const EngCollection collection = OpenView(MakeView(columns));
  const Page page = Read(collection, {0}, 1, 1, 1, 5);
  ASSERT_EQ(1u, page.rows.size());
  EXPECT_EQ(0x20, page.signal);
  EXPECT_FALSE(page.rows[0].values[1].empty());
  EXPECT_TRUE(page.rows[0].values[7].empty());
  EXPECT_EQ(0, EngCollectionClose(collection));
}

TEST_F(CollectionTest, EngCollectionRead_Unread_MarksOfRowsAndOfWhatIsBelow) {
  Fill(4);
  EngIdTable unread = 0;
  ASSERT_EQ(0, EngIdTableCreate(4, &unread));
  ASSERT_EQ(0, EngIdTableInsertId(unread, ids_[1], nullptr));
  const EngCollection collection = OpenView(MakeView(ColumnsOf({.category_count = 1})), 0, unread);
  std::string marks;
  for (const ReadRow& row : ReadAll(collection)) marks += row.any_unread != 0 ? '1' : '0';
  EXPECT_EQ("000110", marks);
  EXPECT_EQ(0, EngIdTableDestroy(unread));
  marks.clear();
  for (const ReadRow& row : ReadAll(collection)) marks += row.any_unread != 0 ? '1' : '0';
  EXPECT_EQ("000000", marks);
  EXPECT_EQ(0, EngCollectionClose(collection));
}

TEST_F(CollectionTest, EngCollectionOpen_AllOutputs_GivenAndOwnedAsTold) {
  Fill(1);
  const uint32_t view = MakeView(ColumnsOf({}));
  EngCollection collection = 0;
  EngNote note = 0;
  UNIVERSALNOTEID unid{};
  EngIdTable collapsed = 0, selected = 7;
  ASSERT_EQ(0, EngCollectionOpen(db_, db_, view, 0, 0, &collection, &note, &unid, &collapsed, &selected));
  EXPECT_EQ("A view", Text(note, "$TITLE"));
  EXPECT_TRUE(SameUnid(unid, UnidOf(OriginatorOf(note))));
  EXPECT_EQ(0, EngNoteClose(note));
  EXPECT_NE(nullptr, FindIdTable(collapsed));
  EXPECT_EQ(0, EngCollectionClose(collection));
  EXPECT_EQ(nullptr, FindIdTable(collapsed));
  EXPECT_EQ(status::kBadHandle, EngCollectionClose(collection));
  EXPECT_EQ(0, EngCollectionClose(0));
}

TEST_F(CollectionTest, EngCollectionOpen_NoViews_StatusAndOutputsAlone) {
  Fill(1);
  EngCollection collection = 77;
  const auto open = [&](uint32_t view) {
    return EngCollectionOpen(db_, db_, view, 0, 0, &collection, nullptr, nullptr, nullptr, nullptr);
  };
  EXPECT_EQ(status::kNoNote, open(9999));
  EXPECT_EQ(status::kBadCollection, open(ids_[0]));
  EXPECT_EQ(status::kBadHandle,
            EngCollectionOpen(0, db_, 1, 0, 0, &collection, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(status::kBadArgument,
            EngCollectionOpen(db_, db_, 1, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(77, collection);
}

TEST_F(CollectionTest, EngCollectionRead_BadArguments_Status) {
  const EngCollection collection = OpenView(MakeView(ColumnsOf({})));
  COLLECTIONPOSITION position{};
  const auto read = [&](uint16_t skip, uint16_t back) {
    return EngCollectionRead(collection, &position, skip, 1, back, 1, 1, nullptr, nullptr, nullptr, nullptr,
                             nullptr);
  };
  EXPECT_EQ(0, read(1, 1));
  EXPECT_EQ(status::kBadArgument, read(2, 1));
  EXPECT_EQ(status::kBadArgument, read(1, 99));
  EXPECT_EQ(status::kNotAvailable, read(29, 1));
  EXPECT_EQ(status::kNotAvailable, read(1, 31));
  EXPECT_EQ(status::kBadArgument, EngCollectionRead(collection, nullptr, 1, 1, 1, 1, 1, nullptr, nullptr,
                                                    nullptr, nullptr, nullptr));
  EXPECT_EQ(0, EngCollectionClose(collection));
  EXPECT_EQ(status::kBadHandle, read(1, 1));
  EXPECT_EQ(status::kBadHandle, EngCollectionUpdate(collection));
}

TEST_F(CollectionTest, EngCollectionUpdate_ChangesOfAnotherHandle_SeenByBoth) {
  Fill(2);
  const uint32_t view = MakeView(ColumnsOf({}));
  const EngCollection collection = OpenView(view);
  EngDb second = 0;
  ASSERT_EQ(0, EngDbOpen("test", &second));
  EngCollection other = 0;
  ASSERT_EQ(0, EngCollectionOpen(second, second, view, 0, 0, &other, nullptr, nullptr, nullptr, nullptr));
  std::swap(db_, second);
  ModelDocument document;
  document.key = "new";
  StoreDocument(&document, 0);
  std::swap(db_, second);
  EXPECT_EQ("100000xxx 100001xxx ", Keys(collection));
  EXPECT_EQ(0, EngCollectionUpdate(collection));
  EXPECT_EQ("100000xxx 100001xxx new ", Keys(collection));
  EXPECT_EQ(0, EngDbClose(db_));  // with it, what was stored lazily is on the disk and seen by all
  std::swap(db_, second);
  EXPECT_EQ("100000xxx 100001xxx new ", Keys(other));
  EXPECT_EQ(status::kBadHandle, EngCollectionUpdate(collection));
  EXPECT_EQ(0, EngCollectionClose(collection));
  EXPECT_EQ(0, EngCollectionClose(other));
}

TEST_F(CollectionTest, EngCollectionOpen_AsIs_OldRowsUntilUpdated) {
  Fill(1);
  const uint32_t view = MakeView(ColumnsOf({}));
  EXPECT_EQ(0, EngCollectionClose(OpenView(view)));
  Fill(1);
  const EngCollection collection = OpenView(view, 2);
  EXPECT_EQ("100000xxx ", Keys(collection));
  EXPECT_EQ(0, EngCollectionUpdate(collection));
  EXPECT_EQ("100000xxx 100000xxx ", Keys(collection));
  EXPECT_EQ(0, EngCollectionClose(collection));
}

TEST_F(CollectionTest, EngCollectionUpdate_DesignChanged_BuiltAnew) {
  Fill(3);
  const uint32_t view = MakeView(ColumnsOf({}));
  const EngCollection collection = OpenView(view);
  const EngNote note = OpenNote(view);
  EXPECT_EQ(0, EngItemDelete(note, "$ViewFormat", 11));
  AppendRaw(note, "$ViewFormat", 5, ViewFormat(ColumnsOf({.key_descending = true})));
  EXPECT_EQ(0, EngNoteUpdate(note, 4));
  EXPECT_EQ(0, EngNoteClose(note));
  EXPECT_EQ(0, EngCollectionUpdate(collection));
  EXPECT_EQ("100002xxx 100001xxx 100000xxx ", Keys(collection));
  EXPECT_EQ(0, EngCollectionClose(collection));
}

TEST_F(CollectionTest, EngCollectionOpen_ViewOfAnotherDatabase_RowsOfTheData) {
  Fill(2);
  ASSERT_EQ(0, EngDbCreate("other", 0, 0, 0, 0, 0));
  EngDb other = 0;
  ASSERT_EQ(0, EngDbOpen("other", &other));
  std::swap(db_, other);
  const uint32_t view = MakeView(ColumnsOf({}));
  std::swap(db_, other);
  EngCollection collection = 0;
  ASSERT_EQ(0, EngCollectionOpen(other, db_, view, 0, 0, &collection, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ("100000xxx 100001xxx ", Keys(collection));
  EXPECT_EQ(0, EngCollectionClose(collection));
  EXPECT_EQ(0, EngDbClose(other));
}

TEST_F(CollectionTest, EngCollectionOpen_DesignCollection_TitlesOfDesignRecords) {
  const EngNote note = NewNote();
  const uint16_t note_class = BRCLASS_DESIGN | BRCLASS_DEFAULT;
  EXPECT_EQ(0, EngNoteInfoSet(note, 3, &note_class));
  AppendRaw(note, "$Formula", BRTYPE_FORMULA, FormulaOf("SELECT @All", {{"$TITLE", "", 0, 0}}, false));
  EXPECT_EQ(0, AppendText(note, "$FormulaClass", "3724"));
  const char collation[] = "\x13\0\1\0\0\x44\0\x66\0\0\0\6\0$TITLE";
  AppendRaw(note, "$Collation", 2, {collation, sizeof collation - 1});
  EXPECT_EQ(0, EngNoteUpdate(note, 4));
  EXPECT_EQ(0, EngNoteClose(note));
  MakeView(ColumnsOf({}));
  const EngCollection collection = OpenView(0xffff0020);
  EXPECT_NE(std::string::npos, Keys(collection).find("A view"));
  EXPECT_EQ(0, EngCollectionClose(collection));
}

// A damaged head counts as none; a damaged node is told.
TEST_F(CollectionTest, EngCollectionRead_DamagedRecords_BuiltAnewOrDamaged) {
  Fill(100);
  const uint32_t view = MakeView(ColumnsOf({}));
  EXPECT_EQ(0, EngCollectionClose(OpenView(view)));
  for (const store::Space space : {collection::kHeadSpace, collection::kNodeSpace}) {
    std::vector<std::pair<std::string, std::vector<std::byte>>> records;
    Owner().Store().ScanRecords(space, {}, std::nullopt, [&](Bytes key, Bytes value) {
      if (key.size() > 1)
        records.emplace_back(TextOf(key), std::vector<std::byte>(value.begin(), value.end()));
      return true;
    });
    for (const auto& [key, value] : records) {
      for (size_t at = 0; at < value.size(); at += space == collection::kHeadSpace ? 1 : 97) {
        std::vector<std::byte> harmed = value;
        harmed[at] ^= std::byte{0x10};
        DatabaseWrite write(Owner());
        write.Records().PutRecord(space, BytesOf(key), harmed);
        write.Commit(store::Durability::kLazy);
        EngCollection collection = 0;
        const EngStatus opened =
            EngCollectionOpen(db_, db_, view, 0, 0, &collection, nullptr, nullptr, nullptr, nullptr);
        ASSERT_TRUE(opened == 0 || opened == status::kDamaged) << opened;
        if (opened == 0) {
          const Page page = Read(collection, {0}, 1, 1, 1, 1000);
          ASSERT_TRUE(page.status == status::kDamaged || page.rows.size() == 100u) << page.status;
          ASSERT_EQ(0, EngCollectionClose(collection));
        }
        DatabaseWrite mend(Owner());
        mend.Records().PutRecord(space, BytesOf(key), value);
        mend.Commit(store::Durability::kLazy);
      }
      break;
    }
  }
  const EngCollection collection = OpenView(view, 1);
  EXPECT_EQ(100u, ReadAll(collection).size());
  EXPECT_EQ(0, EngCollectionClose(collection));
}

// One transaction: after a crash the index is that of the documents that are there.
TEST_F(CollectionTest, EngCollectionUpdate_ManyCollectionsLag_AllTakenInTogether) {
  const uint32_t flat = MakeView(ColumnsOf({})), categorised = MakeView(ColumnsOf({.category_count = 1}));
  const EngCollection first = OpenView(flat), second = OpenView(categorised);
  Fill(5);
  EXPECT_EQ(0, EngCollectionUpdate(first));
  EXPECT_EQ(5u, ReadAll(first).size());
  EXPECT_EQ(7u, ReadAll(second).size());
  EXPECT_EQ(0, EngCollectionClose(first));
  EXPECT_EQ(0, EngCollectionClose(second));
}

}  // namespace
