// Nodes: splits, storage that outlives its head, growth blocks, and all short sequences of changes against a
// plain list of records.
#include "engine/test_random.h"
#include "kvcomp_world.h"

namespace {

using kvcomp::Joined;
using kvcomp::Padded;
using kvcomp::Paragraph;
using kvcomp::ShortRecord;
using kvcomp::TextRecord;

using Strings = std::vector<std::string>;

class NodeTest : public kvcomp::CompositeTest {
 protected:
  // An open composite of private nodes with these numbers of records, each record its own.
  uint32_t OpenPrivate(const std::vector<uint32_t>& counts, Strings* model) {
    const uint32_t composite = Create();
    uint32_t number = 0;
    for (const uint32_t count : counts) {
      Strings records;
      for (uint32_t i = 0; i < count; ++i) records.push_back(TextRecord("p" + std::to_string(++number)));
      AppendItem(records, "Piece");
      const uint32_t piece = OpenBody("Piece");
      EXPECT_EQ(KVCompositeMerge(composite, 0, piece), KVSUCCESS);
      EXPECT_EQ(KVCompositeClose(piece, KVCOMPWRITE_DISCARD), KVSUCCESS);
      EXPECT_EQ(EngItemDelete(note_, "Piece", 5), 0);
      model->insert(model->end(), records.begin(), records.end());
    }
    return composite;
  }
  static uint32_t Split(uint32_t composite, uint32_t index, _COMPNODE** prevnode) {
    EXPECT_EQ(CompGetRecord(CompOf(composite), index, 1), KVSUCCESS);
    return CompSplit(CompOf(composite), prevnode);
  }
};

// ---- Splits

TEST_F(NodeTest, CompSplit_EachPlace_NodeBeforeAndNothingMoved) {
  AppendItem({TextRecord("a"), TextRecord("bb"), TextRecord("ccc")});
  AppendItem({TextRecord("d")});
  const uint32_t composite = OpenBody();
  _COMPNODE* head = CompOf(composite)->nodelist;
  _COMPNODE* prevnode = nullptr;
  ASSERT_EQ(Split(composite, 1, &prevnode), KVSUCCESS);
  EXPECT_EQ(prevnode, nullptr);
  ASSERT_EQ(Split(composite, 4, &prevnode), KVSUCCESS);
  EXPECT_EQ(prevnode, head);
  ASSERT_EQ(Split(composite, 0, &prevnode), KVSUCCESS);
  EXPECT_EQ(prevnode, head->next);
  EXPECT_EQ(NodeCount(composite), 2u);

  const uint32_t head_bytes = static_cast<uint32_t>(Padded(TextRecord("a")).size());
  const uint32_t whole_bytes = head->value_len;
  ASSERT_EQ(Split(composite, 2, &prevnode), KVSUCCESS);
  EXPECT_EQ(prevnode, head);
  ASSERT_EQ(NodeCount(composite), 3u);
  const _COMPNODE* tail = head->next;
  EXPECT_EQ(head->value_len, head_bytes);
  EXPECT_EQ(head->field_count, 1u);
  EXPECT_EQ(tail->value_len, whole_bytes - head_bytes);
  EXPECT_EQ(tail->value_offset, head->value_offset + head_bytes);
  EXPECT_EQ(tail->field_count, 2u);
  EXPECT_EQ(tail->alloc, 0);
  EXPECT_EQ(memcmp(&tail->value_bid, &head->value_bid, sizeof(BLOCKID)), 0);
  const COMPRECORD& cursor = CompOf(composite)->comprec;
  EXPECT_EQ(cursor.node, tail);
  EXPECT_EQ(cursor.node_index, 1u);
  EXPECT_EQ(cursor.offset, 0u);
  EXPECT_EQ(cursor.comp_index, 2u);
  EXPECT_EQ(Records(composite),
            (Strings{TextRecord("a"), TextRecord("bb"), TextRecord("ccc"), TextRecord("d")}));
}

TEST_F(NodeTest, CompSplit_NoCursor_InternalUnlessEmpty) {
  _COMPNODE* prevnode = nullptr;
  _COMPOSITE* empty = CompOf(Create());
  EXPECT_EQ(CompSplit(empty, &prevnode), KVSUCCESS);
  EXPECT_EQ(prevnode, nullptr);
  const uint32_t composite = Create();
  ASSERT_EQ(InsertText(composite, "t"), KVSUCCESS);
  EXPECT_EQ(CompGetRecord(CompOf(composite), kCompRelease, 0), KVFAIL_END_OF_DATA);
  EXPECT_EQ(CompSplit(CompOf(composite), &prevnode), KVFAIL_INTERNAL);
}

TEST_F(NodeTest, CompSplit_HeadDeletedFirst_TailStillReadsItsBytes) {
  for (const bool tail_first : {false, true}) {
    Strings model;
    const kit::MemoryState before = kit::Memory();
    const uint32_t composite = OpenPrivate({4}, &model);
    ASSERT_EQ(InsertText(composite, "mid", 3), KVSUCCESS);
    ASSERT_EQ(NodeCount(composite), 3u);
    const _COMPNODE* head = CompOf(composite)->nodelist;
    ASSERT_NE(head->storage, nullptr);
    EXPECT_EQ(head->storage->node_count, 2u);
    EXPECT_EQ(head->alloc, 1);
    EXPECT_EQ(head->next->next->alloc, 0);
    ASSERT_EQ(KVCDRecordDelete(composite, tail_first ? 4 : 1, 2), KVSUCCESS);
    EXPECT_EQ(Records(composite), tail_first ? (Strings{model[0], model[1], TextRecord("mid")})
                                             : (Strings{TextRecord("mid"), model[2], model[3]}));
    ASSERT_EQ(KVCDRecordDelete(composite, tail_first ? 1 : 2, 2), KVSUCCESS);
    EXPECT_EQ(Records(composite), Strings{TextRecord("mid")});
    EXPECT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
    EXPECT_EQ(kit::Memory().heap_blocks, before.heap_blocks);
  }
}

// ---- Growth blocks

TEST_F(NodeTest, KVCDRecordInsert_SmallRecords_OneNodeUntilTheNextWouldReach1024) {
  const uint32_t composite = Create();
  const std::string text(92, 't');  // 100 bytes a record
  for (uint32_t i = 1; i <= 10; ++i) {
    ASSERT_EQ(InsertText(composite, text), KVSUCCESS);
    EXPECT_EQ(NodeCount(composite), 1u);
    EXPECT_EQ(CompOf(composite)->nodelist->value_len, i * 100);
    EXPECT_EQ(CompOf(composite)->nodelist->comp_alloc, 1);
  }
  ASSERT_EQ(InsertText(composite, std::string(14, 't')), KVSUCCESS);  // 1022
  EXPECT_EQ(NodeCount(composite), 1u);
  ASSERT_EQ(InsertRaw(composite, Paragraph()), KVSUCCESS);  // 1024 would be too many
  EXPECT_EQ(NodeCount(composite), 2u);
  EXPECT_EQ(CompOf(composite)->nodelist->comp_alloc, 0);
  EXPECT_EQ(CompOf(composite)->nodelist->next->comp_alloc, 1);
  EXPECT_EQ(KVCDRecordGetCount(composite), 12u);
}

TEST_F(NodeTest, KVCDRecordInsert_LargeRecord_TakesAnExactBlock) {
  for (const uint32_t bytes : {1021u, 1022u, 1023u, 1024u, 5000u}) {
    const uint32_t composite = Create();
    ASSERT_EQ(InsertText(composite, std::string(bytes - 8, 't')), KVSUCCESS);
    EXPECT_EQ(CompOf(composite)->nodelist->comp_alloc, bytes <= 1022 ? 1 : 0) << bytes;
    EXPECT_EQ(CompOf(composite)->nodelist->value_len, bytes + bytes % 2);
    ASSERT_EQ(InsertText(composite, "more"), KVSUCCESS);
    EXPECT_EQ(NodeCount(composite), 2u);
    EXPECT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
  }
}

TEST_F(NodeTest, KVCDRecordInsert_IntoBlockWhoseFrontWasCut_BehindTheRest) {
  const uint32_t composite = Create();
  for (const char* text : {"one", "two", "three"}) ASSERT_EQ(InsertText(composite, text), KVSUCCESS);
  ASSERT_EQ(KVCDRecordDelete(composite, 1, 1), KVSUCCESS);
  ASSERT_EQ(InsertText(composite, "four"), KVSUCCESS);
  EXPECT_EQ(Records(composite), (Strings{TextRecord("two"), TextRecord("three"), TextRecord("four")}));
  ASSERT_EQ(InsertText(composite, std::string(1100, 'x')), KVSUCCESS);  // fits the block to what is left
  ASSERT_EQ(KVCDRecordDelete(composite, 1, 1), KVSUCCESS);
  EXPECT_EQ(Records(composite),
            (Strings{TextRecord("three"), TextRecord("four"), TextRecord(std::string(1100, 'x'))}));
}

TEST_F(NodeTest, KVCDRecordInsert_RecordReadByPointer_MayComeFromTheSameComposite) {
  const uint32_t composite = Create();
  ASSERT_EQ(InsertText(composite, std::string(900, 'a')), KVSUCCESS);
  for (int i = 0; i < 3; ++i) {
    int32_t cdtype = KVCDTYPE_UNKNOWN;
    KVCDUNKNOWN record{};
    ASSERT_EQ(KVCDRecordGetPointer(composite, 1, &cdtype, &record), KVSUCCESS);
    ASSERT_EQ(KVCDRecordInsert(composite, 0, KVCDTYPE_UNKNOWN, &record), KVSUCCESS);
    ASSERT_EQ(KVCDRecordGetPointer(composite, 1, &cdtype, &record), KVSUCCESS);
    ASSERT_EQ(KVCDRecordUpdate(composite, 1, KVCDTYPE_UNKNOWN, &record), KVSUCCESS);
  }
  EXPECT_EQ(Records(composite), Strings(4, TextRecord(std::string(900, 'a'))));
}

TEST_F(NodeTest, KVCDRecordInsert_ManySmallRecords_OneAllocationAKilobyte) {
  const uint32_t composite = Create();
  static uint32_t allocations;
  static const KVHEAP* heap;
  heap = pgHeap;
  allocations = 0;
  const KVHEAP counting{[](size_t bytes) {
                          ++allocations;
                          return heap->allocate(bytes);
                        },
                        [](void* block, size_t bytes) { return heap->reallocate(block, bytes); },
                        [](void* block) { heap->release(block); }};
  pgHeap = &counting;
  constexpr uint32_t kRecordBytes = 20, kRecords = 10000;
  for (uint32_t i = 0; i < kRecords; ++i)
    if (InsertText(composite, std::string(kRecordBytes - 8, 't')) != KVSUCCESS) break;
  pgHeap = heap;
  // A node with its block for each block's fill, 51 records of 20 bytes.
  EXPECT_EQ(NodeCount(composite), (kRecords + 50) / 51);
  EXPECT_EQ(allocations, NodeCount(composite));
  EXPECT_LE(allocations, kRecords * kRecordBytes / 1000);
  EXPECT_EQ(KVCDRecordGetCount(composite), kRecords);
}

// ---- Changes against a model

struct Change {
  enum Kind { kInsert, kAppend, kAppendLarge, kUpdate, kDelete, kMerge, kList, kRead } kind;
  uint32_t index;
  uint32_t count;
};

class ModelTest : public NodeTest {
 protected:
  void SetUp() override {
    NodeTest::SetUp();
    add_ = Create();
    for (const char* text : {"m1", "m2"}) ASSERT_EQ(InsertText(add_, text), KVSUCCESS);
  }

  // Makes a change in the composite and in the model; a place behind the end is the end.
  void Apply(uint32_t composite, const Change& change, Strings* model) {
    const auto size = static_cast<uint32_t>(model->size());
    const uint32_t place = std::min(change.index, size + 1);
    const std::string record = TextRecord("r" + std::to_string(++number_));
    const auto at = [&](uint32_t index) { return model->begin() + index - 1; };
    switch (change.kind) {
      case Change::kInsert:
        ASSERT_EQ(InsertRaw(composite, record, place), KVSUCCESS);
        model->insert(at(place), record);
        break;
      case Change::kAppend:
        ASSERT_EQ(InsertRaw(composite, record), KVSUCCESS);
        model->push_back(record);
        break;
      case Change::kAppendLarge:
        model->push_back(TextRecord(std::string(1013, static_cast<char>('a' + number_ % 26))));
        ASSERT_EQ(InsertRaw(composite, model->back()), KVSUCCESS);
        break;
      case Change::kUpdate:
        ASSERT_EQ(UpdateRaw(composite, record, place), place <= size ? KVSUCCESS : KVFAIL_DATA_UNAVAILABLE);
        if (place <= size) *at(place) = record;
        break;
      case Change::kDelete:
        ASSERT_EQ(KVCDRecordDelete(composite, place, change.count),
                  place <= size ? KVSUCCESS : KVFAIL_DATA_UNAVAILABLE);
        if (place <= size)
          model->erase(
              at(place),
              at(static_cast<uint32_t>(std::min<uint64_t>(uint64_t{place} + change.count, size + 1))));
        break;
      case Change::kMerge:
        ASSERT_EQ(KVCompositeMerge(composite, place, add_), KVSUCCESS);
        model->insert(at(place), {TextRecord("m1"), TextRecord("m2")});
        break;
      case Change::kList:
        (void)Listed(composite, KVLIST_NEXT);
        break;
      case Change::kRead:
        if (place <= size) {
          ASSERT_EQ(RecordAt(composite, place), *at(place));
        }
        break;
    }
  }
  static void ExpectModel(uint32_t composite, const Strings& model, const std::string& what) {
    ASSERT_EQ(KVCDRecordGetCount(composite), model.size()) << what;
    for (auto index = static_cast<uint32_t>(model.size()); index >= 1; --index)
      ASSERT_EQ(RecordAt(composite, index), model[index - 1]) << what;
    ASSERT_EQ(Records(composite), model) << what;
    for (const _COMPNODE* node = CompOf(composite)->nodelist; node != nullptr; node = node->next) {
      ASSERT_NE(node->value_len, 0u) << what;
      ASSERT_TRUE(!node->comp_alloc || (node->value_ptr != nullptr && node->alloc)) << what;
    }
  }
  static std::string Told(const std::vector<Change>& changes) {
    std::string told;
    for (const Change& change : changes)
      told += " " + std::to_string(change.kind) + ":" + std::to_string(change.index) + "," +
              std::to_string(change.count);
    return told;
  }

  uint32_t add_ = 0;
  uint32_t number_ = 0;
};

// Every sequence of three changes, on nodes over items and on private ones, closed after it: under the
// address sanitizer no view outlives its storage, in whichever order head and tail go.
TEST_F(ModelTest, ShortSequences_All_SameAsAPlainList) {
  const Change changes[] = {{Change::kInsert, 1, 0}, {Change::kInsert, 2, 0},      {Change::kInsert, 5, 0},
                            {Change::kAppend, 0, 0}, {Change::kAppendLarge, 0, 0}, {Change::kUpdate, 1, 0},
                            {Change::kUpdate, 3, 0}, {Change::kDelete, 1, 1},      {Change::kDelete, 1, 3},
                            {Change::kDelete, 2, 2}, {Change::kDelete, 3, 99},     {Change::kMerge, 1, 0},
                            {Change::kMerge, 3, 0},  {Change::kList, 0, 0}};
  AppendItem({TextRecord("1"), TextRecord("22"), TextRecord("333")});
  AppendItem({TextRecord("4"), TextRecord("55")});
  for (const bool is_private : {false, true})
    for (const Change& first : changes)
      for (const Change& second : changes)
        for (const Change& third : changes) {
          Strings model;
          const uint32_t composite = is_private ? OpenPrivate({3, 2}, &model) : OpenBody();
          if (!is_private) model = Records(composite);
          const std::vector<Change> sequence = {first, second, third};
          for (const Change& change : sequence) Apply(composite, change, &model);
          ExpectModel(composite, model, Told(sequence));
          ASSERT_EQ(KVCompositeClose(composite, KVCOMPWRITE_DISCARD), KVSUCCESS);
          if (HasFatalFailure()) return;
        }
}

TEST_F(ModelTest, LongSequences_Random_SameAsAPlainListAlsoAfterTheSave) {
  TestRandom random(SeedOfRun());
  for (int run = 0; run < 30; ++run) {
    while (EngItemDelete(note_, "Body", 4) == 0) {
    }
    AppendItem({TextRecord("1"), TextRecord("22"), TextRecord("333")});
    AppendItem(Strings(40, TextRecord(std::string(random.Below(60), 's'))));
    uint32_t composite = OpenBody();
    Strings model = Records(composite);
    for (int step = 0; step < 300; ++step) {
      const auto kind = static_cast<Change::Kind>(random.Below(8));
      const Change change{kind, 1 + random.Below(static_cast<uint32_t>(model.size()) + 2),
                          1 + random.Below(4)};
      Apply(composite, change, &model);
      if (random.Below(40) == 0) {
        ASSERT_EQ(KVDocumentSave(document_, KVDOCWRITE_NOCOMMIT), KVSUCCESS);
      }
      if (random.Below(10) == 0) ExpectModel(composite, model, "step " + std::to_string(step));
      if (HasFatalFailure()) return;
    }
    ExpectModel(composite, model, "end");
    ASSERT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
    EXPECT_EQ(Items(), model.empty() ? Strings{} : Strings{Joined(model)});
  }
}

}  // namespace
