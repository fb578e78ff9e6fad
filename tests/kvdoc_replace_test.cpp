// Replacing items: any number of old ones, with and without memory.
#include "kvdoc_world.h"

namespace {

using kit::Fault;
using kit::Spy;
using kvdoc::ItemsOf;
using kvdoc::kEngineFailure;
using kvdoc::Record;

constexpr uint32_t kCounts[] = {0, 1, 2, 31, 32, 33, 63, 64, 65, 95, 96, 97, 100, 128, 129, 500};

class ReplaceTest : public kvdoc::DocumentTest {
 protected:
  void SetUp() override {
    DocumentTest::SetUp();
    document_ = New();
    note_ = NoteOf(document_);
    doc_ = Record(document_);
  }
  void AppendMany(uint32_t count, const std::string& name = "Item") {
    for (uint32_t i = 0; i < count; ++i) {
      AppendText(note_, name, std::to_string(i));
      if (i % 7 == 0) AppendText(note_, "Other", std::to_string(i));
    }
  }
  size_t Count(const std::string& name = "Item") const { return ItemsOf(note_, name).size(); }
  bool IsInline() const { return session_->delete_bid_ptr == session_->delete_bid; }
  uint32_t Prepare() { return _DeleteItemPrep(session_, doc_, "Item", 4); }
  void Clear() {
    for (const char* name : {"Item", "Other"})
      while (EngItemDelete(note_, name, static_cast<uint16_t>(std::strlen(name))) == 0) {
      }
  }

  uint32_t document_ = 0;
  EngNote note_ = 0;
  _DOCUMENT* doc_ = nullptr;
};

TEST_F(ReplaceTest, DeleteItem_EachCount_AllOldItemsGoAndNewOnesStay) {
  const kit::MemoryState before = kit::Memory();
  for (const uint32_t count : kCounts) {
    Clear();
    AppendMany(count);
    const size_t others = Count("Other");
    ASSERT_EQ(Prepare(), KVSUCCESS);
    EXPECT_EQ(IsInline(), count <= kDeleteBidCount) << count;
    AppendText(note_, "ITEM", "new");
    Spy spy;
    _DeleteItem(session_, doc_, nullptr, 0);
    EXPECT_EQ(spy.Count("EngItemDeleteByBlock"), count);
    EXPECT_EQ(spy.calls().size(), count);
    ASSERT_EQ(Count(), 1u) << count;
    EXPECT_EQ(ItemsOf(note_, "Item")[0].bytes, "new");
    EXPECT_EQ(Count("Other"), others);
    EXPECT_TRUE(IsInline());
    EXPECT_EQ(kit::Memory().heap_blocks, before.heap_blocks);
  }
}

TEST_F(ReplaceTest, DeleteItem_ByName_OnlyListedItemsOfTheNameGo) {
  for (const uint32_t count : kCounts) {
    Clear();
    AppendMany(count);
    const size_t others = Count("Other");
    ASSERT_EQ(Prepare(), KVSUCCESS);
    AppendText(note_, "Item", "new");
    AppendText(note_, "Item", "newer");
    _DeleteItem(session_, doc_, "Item", 4);
    ASSERT_EQ(Count(), 2u) << count;
    EXPECT_EQ(ItemsOf(note_, "Item")[1].bytes, "newer");
    EXPECT_EQ(Count("Other"), others);
    EXPECT_TRUE(IsInline());
  }
}

TEST_F(ReplaceTest, DeleteItem_ByAnotherName_NothingGoes) {
  AppendMany(40);
  ASSERT_EQ(Prepare(), KVSUCCESS);
  _DeleteItem(session_, doc_, "Other", 5);
  EXPECT_EQ(Count(), 40u);
  EXPECT_EQ(Count("Other"), 6u);
  EXPECT_TRUE(IsInline());
}

TEST_F(ReplaceTest, KVItemPut_EachCount_OneItemStays) {
  for (const uint32_t count : kCounts) {
    Clear();
    AppendMany(count);
    ASSERT_EQ(KVItemPut(document_, "Item", 0, 0, KVTYPE_TEXT, "new", 0), KVSUCCESS);
    ASSERT_EQ(Count(), 1u) << count;
    EXPECT_EQ(ItemsOf(note_, "Item")[0].bytes, "new");
  }
  ASSERT_EQ(KVDocumentSave(document_, 0), KVSUCCESS);
  EXPECT_EQ(StoredItems(doc_->docid, "Item").size(), 1u);
}

TEST_F(ReplaceTest, DeleteItemPrep_PreparedTwice_TheSecondListCounts) {
  AppendMany(70);
  ASSERT_EQ(Prepare(), KVSUCCESS);
  ASSERT_EQ(_DeleteItemPrep(session_, doc_, "Other", 5), KVSUCCESS);
  EXPECT_TRUE(IsInline());
  _DeleteItem(session_, doc_, nullptr, 0);
  EXPECT_EQ(Count(), 70u);
  EXPECT_EQ(Count("Other"), 0u);
}

TEST_F(ReplaceTest, DeleteItemPrep_ShortListAfterALongOne_EndsBeforeTheOldEntries) {
  AppendMany(40);
  ASSERT_EQ(Prepare(), KVSUCCESS);
  _DeleteItem(session_, doc_, nullptr, 0);
  AppendMany(3);
  ASSERT_EQ(Prepare(), KVSUCCESS);
  const BLOCKID none{};
  EXPECT_EQ(memcmp(&session_->delete_bid[3], &none, sizeof none), 0);
  Spy spy;
  _DeleteItem(session_, doc_, nullptr, 0);
  EXPECT_EQ(spy.Count("EngItemDeleteByBlock"), 3u);
}

TEST_F(ReplaceTest, DeleteItemPrep_NoMemory_StatusAndNothingIsDeleted) {
  const kit::MemoryState before = kit::Memory();
  for (const uint32_t count : {33u, 64u, 65u, 100u, 500u}) {
    Clear();
    AppendMany(count);
    uint32_t failures = 0;
    for (uint32_t nth = 1;; ++nth) {
      Fault fault = Fault::Allocation(nth);
      const uint32_t status = Prepare();
      if (!fault.Hit()) break;
      ++failures;
      EXPECT_EQ(status, KVFAIL_NO_MEMORY);
      fault.Disarm();
      EXPECT_TRUE(IsInline());
      EXPECT_EQ(kit::Memory().heap_blocks, before.heap_blocks);
      _DeleteItem(session_, doc_, nullptr, 0);
      EXPECT_EQ(Count(), count);
    }
    // One step for each 32 items past the first 32, the closing entry counted.
    EXPECT_EQ(failures, (count - kDeleteBidCount) / 32 + 1) << count;
    _DropDeleteList(session_);
  }
}

TEST_F(ReplaceTest, KVItemPut_WalkOverOldItemsFails_StatusAndOldItemsStay) {
  AppendMany(70);
  doc_->dirty = 0;
  const std::pair<uint32_t, const char*> rows[] = {
      {1, "EngItemInfo"}, {1, "EngItemInfoNext"}, {50, "EngItemInfoNext"}};
  for (const auto& [nth, call] : rows) {
    Fault fault = Fault::EngineCall(nth, kEngineFailure, call);
    EXPECT_EQ(KVItemPut(document_, "Item", 0, 0, KVTYPE_TEXT, "new", 0), kEngineFailure);
    EXPECT_TRUE(fault.Hit());
    EXPECT_EQ(Count(), 70u);
    EXPECT_EQ(doc_->dirty, 0);
    EXPECT_TRUE(IsInline());
  }
}

TEST_F(ReplaceTest, KVItemPut_NoMemoryForTheList_OldItemsStayAndDirtyAsItWas) {
  AppendMany(100);
  doc_->dirty = 0;
  Fault fault = Fault::Allocation(1);
  EXPECT_EQ(KVItemPut(document_, "Item", 0, 0, KVTYPE_TEXT, "new", 0), KVFAIL_NO_MEMORY);
  ASSERT_TRUE(fault.Hit());
  fault.Disarm();
  ExpectError(KVFAIL_NO_MEMORY);
  EXPECT_EQ(Count(), 100u);
  EXPECT_EQ(doc_->dirty, 0);
}

TEST_F(ReplaceTest, KVItemPut_AppendFailsOverManyItems_AllOldOnesAreGone) {
  AppendMany(100);
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngItemAppend");
  EXPECT_EQ(KVItemPut(document_, "Item", 0, 0, KVTYPE_TEXT, "new", 0), kEngineFailure);
  EXPECT_EQ(Count(), 0u);
  EXPECT_TRUE(IsInline());
}

TEST_F(ReplaceTest, DropDeleteList_AfterAPreparation_NothingIsDeletedLater) {
  for (const uint32_t count : kCounts) {
    Clear();
    AppendMany(count);
    ASSERT_EQ(Prepare(), KVSUCCESS);
    _DropDeleteList(session_);
    Spy spy;
    _DeleteItem(session_, doc_, nullptr, 0);
    EXPECT_TRUE(spy.calls().empty());
    EXPECT_EQ(Count(), count);
  }
}

TEST_F(ReplaceTest, KVTerm_ListLeftInTheHeap_IsFreed) {
  AppendMany(100);
  ASSERT_EQ(Prepare(), KVSUCCESS);
  EXPECT_FALSE(IsInline());
  EndLibrary();  // the proof that nothing is left follows
}

}  // namespace
