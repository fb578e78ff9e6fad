// Write-back: how a run is cut into items, blocks that are handed over, failures, and the conversions.
#include "kvcomp_world.h"

namespace {

using kit::Fault;
using kit::Spy;
using kvcomp::Joined;
using kvcomp::LongRecord;
using kvcomp::Padded;
using kvcomp::Paragraph;
using kvcomp::TextRecord;
using kvdoc::kEngineFailure;
using kvdoc::Record;

using Strings = std::vector<std::string>;

class StoreTest : public kvcomp::CompositeTest {
 protected:
  static std::string Together(const Strings& items) {
    std::string all;
    for (const std::string& item : items) all += item;
    return all;
  }
  std::vector<size_t> Sizes() const {
    std::vector<size_t> sizes;
    for (const std::string& item : Items()) sizes.push_back(item.size());
    return sizes;
  }
  // A composite of engine blocks that it owns, as a conversion of text makes them.
  uint32_t CreateOfBlocks(const std::vector<std::string>& runs, const char* name = "Body") {
    const uint32_t composite = Create(name);
    _COMPNODE* last = nullptr;
    for (const std::string& run : runs) {
      _COMPNODE* node = _KVICompNodeNew();
      EngMem block = 0;
      EXPECT_EQ(EngMemAlloc(0, static_cast<uint32_t>(run.size() + 2), &block), 0);
      auto* bytes = static_cast<char*>(EngMemLock(block));
      KVIStore<uint16_t>(bytes, BRTYPE_COMPOSITE);
      KVICopyBytes(bytes + 2, run.data(), run.size());
      EngMemUnlock(block);
      node->value_bid = {.pool = block, .block = 0};
      node->value_offset = 2;
      node->value_len = static_cast<uint32_t>(run.size());
      node->field_count = kCompNotCounted;
      node->alloc = 1;
      _KVICompLink(CompOf(composite), last, node);
      last = node;
    }
    return composite;
  }
};

TEST_F(StoreTest, KVCompositeClose_RunsAtTheLimit_CutOnRecordBorders) {
  struct Case {
    uint32_t records;
    std::vector<size_t> sizes;
  };
  for (const Case& each : {Case{29999, {59998}}, Case{30000, {60000}}, Case{30001, {60000, 2}},
                           Case{60001, {60000, 60000, 2}}}) {
    const uint32_t composite = Create("Body");
    for (uint32_t i = 0; i < each.records; ++i)
      ASSERT_EQ(KVCDRecordInsert(composite, 0, KVCDTYPE_PARAGRAPH, nullptr), KVSUCCESS);
    ASSERT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
    EXPECT_EQ(Sizes(), each.sizes);
  }
}

TEST_F(StoreTest, KVCompositeClose_RecordsAroundTheLimit_WholeOrRefused) {
  for (const uint32_t bytes : {59998u, 59999u, 60000u}) {
    const uint32_t composite = Create("Body");
    const std::string large = TextRecord(std::string(bytes - 8, 'x'));
    for (const std::string& record : {TextRecord("a"), large, TextRecord("b")})
      ASSERT_EQ(InsertRaw(composite, record), KVSUCCESS);
    ASSERT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
    EXPECT_EQ(Items(), (Strings{Padded(TextRecord("a")), Padded(large), Padded(TextRecord("b"))}));
  }
  const Strings before = Items();
  for (const uint32_t bytes : {60001u, 60002u, 65535u, 200000u}) {
    const uint32_t composite = OpenBody();
    const std::string large =
        bytes <= 65535 ? TextRecord(std::string(bytes - 8, 'x')) : LongRecord(1, std::string(bytes - 6, 'x'));
    ASSERT_EQ(InsertRaw(composite, large, 2), KVSUCCESS);
    EXPECT_EQ(KVCompositeClose(composite, 0), KVFAIL_INTERNAL) << bytes;
    EXPECT_EQ(Items(), before);
    EXPECT_EQ(KVDocumentSave(document_, KVDOCWRITE_NOCOMMIT), KVFAIL_INTERNAL);
    EXPECT_EQ(CompOf(composite)->dirty, 1);
    ASSERT_EQ(KVCDRecordDelete(composite, 2, 1), KVSUCCESS);
    EXPECT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
    EXPECT_EQ(Together(Items()), Together(before));
  }
}

TEST_F(StoreTest, KVCompositeClose_ManySmallNodes_PackedAndPadded) {
  Strings records;
  for (uint32_t i = 0; i < 9000; ++i) records.push_back(TextRecord(std::string(i % 23, 't')));
  const uint32_t composite = Create("Body");
  for (const std::string& record : records) ASSERT_EQ(InsertRaw(composite, record), KVSUCCESS);
  ASSERT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
  EXPECT_EQ(Together(Items()), Joined(records));
  const std::vector<size_t> sizes = Sizes();
  for (size_t i = 0; i + 1 < sizes.size(); ++i) EXPECT_GT(sizes[i] + 32, 60000u);
  for (const size_t size : sizes) EXPECT_LE(size, 60000u);
  EXPECT_EQ(Records(OpenBody()), records);
}

TEST_F(StoreTest, KVCompositeClose_OwnedBlocks_HandedOverWithoutCopy) {
  const uint32_t composite =
      CreateOfBlocks({Joined({TextRecord("one"), Paragraph()}), Joined({TextRecord("two")})});
  AppendItem({TextRecord("old")});
  {
    Spy spy;
    ASSERT_EQ(KVDocumentSave(document_, KVDOCWRITE_NOCOMMIT), KVSUCCESS);
    EXPECT_EQ(spy.Count("EngItemAppendByBlock"), 2u);
    EXPECT_EQ(spy.Count("EngItemAppend"), 0u);
    EXPECT_EQ(spy.Count("EngMemAlloc"), 0u);
  }
  EXPECT_EQ(Items(), (Strings{Joined({TextRecord("one"), Paragraph()}), Joined({TextRecord("two")})}));
  EXPECT_EQ(CompOf(composite)->nodelist->alloc, 0);
  ASSERT_EQ(InsertText(composite, "more", 2), KVSUCCESS);
  ASSERT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);  // not whole blocks any more: cut anew
  EXPECT_EQ(Items(),
            Strings{Joined({TextRecord("one"), TextRecord("more"), Paragraph(), TextRecord("two")})});
}

TEST_F(StoreTest, KVCompositeClose_OwnedBlockSplit_FreedOnceWithItsLastNode) {
  const kit::MemoryState before = kit::Memory();
  const uint32_t composite = CreateOfBlocks({Joined({TextRecord("1"), TextRecord("2"), TextRecord("3")})});
  ASSERT_EQ(InsertText(composite, "new", 2), KVSUCCESS);
  ASSERT_EQ(KVCDRecordDelete(composite, 1, 1), KVSUCCESS);  // the head, which owns the block
  EXPECT_EQ(Records(composite), (Strings{TextRecord("new"), TextRecord("2"), TextRecord("3")}));
  EXPECT_EQ(kit::Memory().blocks, before.blocks + 1);
  ASSERT_EQ(KVCDRecordDelete(composite, 2, 2), KVSUCCESS);
  EXPECT_EQ(kit::Memory().blocks, before.blocks);
  EXPECT_EQ(KVCompositeClose(composite, KVCOMPWRITE_DISCARD), KVSUCCESS);
}

TEST_F(StoreTest, KVCompositeClose_EachEngineFault_OldItemsOrNewOnes) {
  for (const bool is_blocks : {false, true}) {
    const Strings records = {TextRecord(std::string(40000, 'a')), TextRecord(std::string(40000, 'b'))};
    for (uint32_t nth = 1;; ++nth) {
      ASSERT_LT(nth, 100u);
      const uint32_t composite =
          is_blocks ? CreateOfBlocks({Joined({records[0]}), Joined({records[1]})}) : Create("Body");
      for (size_t i = 0; i < records.size() && !is_blocks; ++i)
        ASSERT_EQ(InsertRaw(composite, records[i]), KVSUCCESS);
      AppendItem({TextRecord("old")});
      Fault fault = Fault::EngineCall(nth, kEngineFailure);
      const uint32_t status = KVCompositeClose(composite, 0);
      const std::string hit = fault.hit_name();
      fault.Disarm();
      if (status == KVSUCCESS) {
        if (hit != "EngItemDeleteByBlock") {
          EXPECT_EQ(Items(), (Strings{Joined({records[0]}), Joined({records[1]})})) << hit;
        }
      } else {
        EXPECT_EQ(status, hit == "EngMemAlloc" ? KVFAIL_NO_MEMORY : uint32_t{kEngineFailure}) << hit;
        EXPECT_EQ(Items(), Strings{Joined({TextRecord("old")})}) << hit;
        EXPECT_EQ(CompOf(composite)->dirty, 1);
        EXPECT_EQ(Records(composite), records) << hit;
        EXPECT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
        EXPECT_EQ(Items(), (Strings{Joined({records[0]}), Joined({records[1]})})) << hit;
      }
      while (EngItemDelete(note_, "Body", 4) == 0) {
      }
      if (!fault.Hit()) break;
    }
  }
}

TEST_F(StoreTest, KVDocumentSave_OpenComposite_LooksAtTheNewItems) {
  AppendItem(Strings(2000, TextRecord("0123456789")));
  const uint32_t composite = OpenBody();
  ASSERT_EQ(InsertText(composite, "first", 1), KVSUCCESS);
  ASSERT_EQ(Listed(composite, KVLIST_FIRST), 1u);
  ASSERT_EQ(Listed(composite, KVLIST_NEXT), 2u);
  const Strings records = Records(composite);
  for (int i = 0; i < 20; ++i) {  // old values are freed after some saves
    ASSERT_EQ(KVDocumentSave(document_, KVDOCWRITE_NOCOMMIT), KVSUCCESS);
    EXPECT_EQ(Records(composite), records);
    EXPECT_EQ(Listed(composite, KVLIST_CURRENT), 2u);
    ASSERT_EQ(UpdateRaw(composite, TextRecord("first"), 1), KVSUCCESS);
    PutText(document_, "Filler", std::string(60000, 'f'));
  }
  EXPECT_EQ(Listed(composite, KVLIST_NEXT), 3u);
}

TEST_F(StoreTest, CompStoreItem_DamagedNodeThatMustBeCut_BadFormat) {
  AppendRun(Joined(Strings(5000, TextRecord("0123"))) + std::string(100, '\0'));
  const Strings before = Items();
  const uint32_t composite = OpenBody();
  CompOf(composite)->dirty = 1;
  EXPECT_EQ(KVCompositeClose(composite, 0), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(Items(), before);
}

// ---- CompSplitBuffer

TEST_F(StoreTest, CompSplitBuffer_Runs_LongestPrefixOfWholeRecords) {
  const std::string run = Joined({TextRecord("one"), Paragraph(), TextRecord("three!")});  // 12, 2, 14
  const std::pair<uint32_t, uint32_t> cases[] = {{0, 0},   {11, 11}, {12, 12}, {13, 12},
                                                 {14, 14}, {27, 14}, {28, 28}};
  for (const auto& [max_len, expected] : cases) {
    const std::string cut(run.data(), max_len);
    EXPECT_EQ(CompSplitBuffer(cut.data(), max_len), expected) << max_len;
  }
  const std::string large = Joined(Strings(30001, Paragraph()));
  EXPECT_EQ(CompSplitBuffer(large.data(), 60002), 60000u);
  const std::string too_large = LongRecord(1, std::string(60000, 'x'));
  EXPECT_EQ(CompSplitBuffer(too_large.data(), static_cast<uint32_t>(too_large.size())), 0u);
  const std::string damaged = Padded(TextRecord("one")) + std::string(8, '\0');
  EXPECT_EQ(CompSplitBuffer(damaged.data(), 20), 12u);
}

// ---- Conversions

TEST_F(StoreTest, KVItemPut_CompositeHandle_WritesItemsOfAnotherDocument) {
  const uint32_t composite = Create("Body");
  ASSERT_EQ(InsertText(composite, "text"), KVSUCCESS);
  const uint32_t other = New();
  AppendText(NoteOf(other), "Target", "old");
  ASSERT_EQ(KVItemPut(other, "Target", 0, 4, KVTYPE_COMPOSITE, &composite, 0), KVSUCCESS);
  auto items = kvdoc::ItemsOf(NoteOf(other), "Target");
  ASSERT_EQ(items.size(), 1u);
  EXPECT_EQ(items[0].bytes, Joined({TextRecord("text")}));
  EXPECT_EQ(items[0].type, BRTYPE_COMPOSITE);
  EXPECT_EQ(items[0].flags, 0);
  EXPECT_EQ(Items(), Strings{});
  CompOf(composite)->dirty = 1;
  ASSERT_EQ(KVItemPut(other, "Target", 0, 4, KVTYPE_COMPOSITE, &composite,
                      KVITEMFLAG_SIGN | KVITEMFLAG_SEAL | KVITEMFLAG_SUMMARY),
            KVSUCCESS);
  items = kvdoc::ItemsOf(NoteOf(other), "Target");
  ASSERT_EQ(items.size(), 1u);
  EXPECT_EQ(items[0].flags, 3);
  const uint32_t missing = document_;
  EXPECT_EQ(KVItemPut(other, "Target", 0, 4, KVTYPE_COMPOSITE, &missing, 0), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(KVItemPut(other, "Target", KVTYPE_TEXT, 4, KVTYPE_COMPOSITE, &composite, 0), 0x1ffu);
}

TEST_F(StoreTest, CompConvert_NotDirtySameDocument_NothingWritten) {
  AppendItem({TextRecord("t")});
  const uint32_t composite = OpenBody();
  Spy spy;
  EXPECT_EQ(_CompConvert(session_, Record(document_), KVTYPE_COMPOSITE, 4, &composite, KVTYPE_COMPOSITE, 0,
                         nullptr, nullptr, "Body", KVCONV_WRITE, nullptr),
            KVSUCCESS);
  EXPECT_EQ(spy.calls().size(), 0u);
  const uint32_t other = New();  // both documents have no id yet
  EXPECT_EQ(_CompConvert(session_, Record(other), KVTYPE_COMPOSITE, 4, &composite, KVTYPE_COMPOSITE, 0,
                         nullptr, nullptr, "Body", KVCONV_WRITE, nullptr),
            KVSUCCESS);
  EXPECT_EQ(kvdoc::ItemsOf(NoteOf(other), "Body").size(), 1u);
}

TEST_F(StoreTest, CompConvert_Format_ItsFlagsBecomeTheItems) {
  const uint32_t composite = Create("Body");
  ASSERT_EQ(InsertText(composite, "t"), KVSUCCESS);
  FORMAT format{};
  format.item_flags = 0x200;
  CompOf(composite)->format = &format;
  ASSERT_EQ(KVDocumentSave(document_, KVDOCWRITE_NOCOMMIT), KVSUCCESS);
  EXPECT_EQ(kvdoc::ItemsOf(note_, "Body")[0].flags, 0x200);
  FORMAT given{};
  given.item_flags = 0x1;
  CompOf(composite)->dirty = 1;
  ASSERT_EQ(_CompConvert(session_, Record(document_), KVTYPE_COMPOSITE, 4, &composite, KVTYPE_COMPOSITE, 0,
                         nullptr, nullptr, "Body", KVCONV_WRITE, &given),
            KVSUCCESS);
  EXPECT_EQ(kvdoc::ItemsOf(note_, "Body")[0].flags, 0x1);
  CompOf(composite)->format = nullptr;
}

TEST_F(StoreTest, CompConvert_RowsWithoutADocumentOrAName_AsTold) {
  const uint32_t composite = Create("Body");
  uint32_t result = 0;
  const auto convert = [&](_DOCUMENT* doc, uint32_t src_type, uint32_t dest_type, const char* name,
                           uint32_t flags) {
    return _CompConvert(session_, doc, src_type, 4, &composite, dest_type, 4, &result, nullptr, name, flags,
                        nullptr);
  };
  _DOCUMENT* doc = Record(document_);
  for (const uint32_t src_type : {KVTYPE_TEXT, KVTYPE_COMPOSITE})
    EXPECT_EQ(convert(doc, src_type, KVTYPE_COMPOSITE, nullptr, KVCONV_WRITE), KVSUCCESS);
  EXPECT_EQ(convert(nullptr, KVTYPE_COMPOSITE, KVTYPE_COMPOSITE, nullptr, 0), KVFAIL_ILLEGAL_CONVERSION);
  EXPECT_EQ(convert(nullptr, KVTYPE_TEXT, KVTYPE_COMPOSITE, nullptr, 0), KVFAIL_ILLEGAL_CONVERSION);
  EXPECT_EQ(convert(nullptr, KVTYPE_COMPOSITE, KVTYPE_TEXT, nullptr, KVCONV_ALLOC),
            KVFAIL_ILLEGAL_CONVERSION);
  EXPECT_EQ(convert(nullptr, KVTYPE_COMPOSITE, KVTYPE_TEXT, nullptr, 0), 0x1ffu);
  EXPECT_EQ(convert(doc, KVTYPE_TEXT, KVTYPE_COMPOSITE, "Body", KVCONV_WRITE), 0x1ffu);
  EXPECT_EQ(convert(doc, KVTYPE_COMPOSITE, KVTYPE_TEXT, "Body", KVCONV_WRITE), 0x1ffu);
}

TEST_F(StoreTest, CompConvert_WalkFails_HandleAndLengthZero) {
  AppendItem({TextRecord("t")});
  uint32_t handle = 9, length = 9;
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngItemInfoNext");
  EXPECT_EQ(_CompConvert(session_, Record(document_), KVTYPE_COMPOSITE, 0, nullptr, KVTYPE_COMPOSITE, 0,
                         &handle, &length, "Body", 0, nullptr),
            kEngineFailure);
  EXPECT_EQ(handle, 0u);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(Record(document_)->complist, nullptr);
}

TEST_F(StoreTest, DataLength_CompositeSource_NoTextIsLookedFor) {
  // Four bytes without a NUL anywhere: the source is a handle.
  const auto handle = std::make_unique<char[]>(4);
  std::memset(handle.get(), 'x', 4);
  uint32_t length = 9;
  EXPECT_EQ(_DataLength(session_, KVTYPE_COMPOSITE, 0, handle.get(), KVTYPE_TEXT, KVCONV_SRC_TERMINATED,
                        nullptr, nullptr, &length),
            KVSUCCESS);
  EXPECT_EQ(length, 0u);
}

}  // namespace
