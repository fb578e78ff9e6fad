// The design collection's record: its formula, its order, its place in a database.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "kit/kit.h"
#include "kvint.h"

namespace {

using kit::Fault;
using kit::Spy;

constexpr uint16_t kEngineFailure = 0x1f7;
constexpr uint32_t kDesignCollection = 0xffff0020;

class DesignCollectionTest : public kit::KavrinTest {
 protected:
  void SetUp() override {
    KavrinTest::SetUp();
    ASSERT_EQ(EngDbOpen(MakeDatabase("bare.qdb").c_str(), &dbhand_), 0);
  }
  void TearDown() override {
    EXPECT_EQ(EngDbClose(dbhand_), 0);
    KavrinTest::TearDown();
  }
  bool HasDesignCollection() {
    EngNote note = 0;
    if (EngNoteOpen(dbhand_, kDesignCollection, 0, &note)) return false;
    EXPECT_EQ(EngNoteClose(note), 0);
    return true;
  }

  size_t CountDesignCollections() {
    size_t count = 0;
    const auto callback = [](void* parameter, const SEARCH_MATCH* match, const ITEM_TABLE*) -> EngStatus {
      if (match->SERetFlags & 1) ++*static_cast<size_t*>(parameter);
      return 0;
    };
    EXPECT_EQ(EngDbSearch(dbhand_, 0, nullptr, 0, 0x20, nullptr, callback, &count, nullptr), 0);
    return count;
  }

  EngDb dbhand_ = 0;
};

struct StoredItem {
  uint16_t type = 0;
  uint16_t flags = 0;
  std::string bytes;
};

StoredItem Item(EngNote note, const char* name) {
  StoredItem stored;
  BLOCKID item;
  BLOCKID value;
  uint32_t value_bytes = 0;
  EXPECT_EQ(
      EngItemInfo(note, name, static_cast<uint16_t>(strlen(name)), &item, &stored.type, &value, &value_bytes),
      0)
      << name;
  char item_name[64];
  uint16_t name_bytes = 0;
  EXPECT_EQ(
      EngItemQuery(note, item, item_name, 63, &name_bytes, &stored.flags, &stored.type, &value, &value_bytes),
      0);
  KVLocked block(value.pool, value.block);
  stored.bytes.assign(block.bytes + 2, value_bytes - 2);
  return stored;
}

TEST(Digits, KVIwtoa_AllLengths_WritesDigitsAndReturnsTheEnd) {
  for (uint32_t number = 0; number <= 0xffff; ++number) {
    char text[8] = "xxxxxxx";
    char* end = KVIwtoa(static_cast<uint16_t>(number), text);
    ASSERT_EQ(std::string(text), std::to_string(number));
    ASSERT_EQ(end, text + strlen(text));
  }
}

TEST_F(DesignCollectionTest, KVQDBFormulaCreate_EmptyFormula_IsItsLengthAlone) {
  EngMem formula = 0;
  Spy spy;
  ASSERT_EQ(_KV_QDBFormulaCreate(&formula), 0);
  EXPECT_EQ(spy.Find("EngMemAlloc")->words[0], 0xc22eu);
  EXPECT_EQ(spy.Find("EngMemAlloc")->words[1], 2u);
  EXPECT_EQ(spy.Find("EngOdsWrite")->words[1], 21u);
  {
    KVLocked block(formula);
    EXPECT_EQ(KVILoad<uint16_t>(block.bytes), 2);
  }
  uint16_t formula_bytes = 0;
  EXPECT_EQ(EngFormulaSizeGet(formula, &formula_bytes), 0);
  EXPECT_EQ(formula_bytes, 2);
  EXPECT_EQ(EngMemFree(formula), 0);
}

TEST_F(DesignCollectionTest, KVQDBFormulaCreate_NoMemory_HandleZero) {
  EngMem formula = 77;
  Fault fault = Fault::EngineCall(1, 0x107, "EngMemAlloc");
  EXPECT_EQ(_KV_QDBFormulaCreate(&formula), 0x107);
  EXPECT_EQ(formula, 0u);
}

TEST_F(DesignCollectionTest, KVSetDesignCollation_Record_HasItsNineteenBytes) {
  static constexpr char kRecord[] = "\x13\x00\x01\x00\x00\x44\x00\x66\x00\x00\x00\x06\x00$TITLE";
  EngNote note = 0;
  ASSERT_EQ(EngNoteCreate(dbhand_, &note), 0);
  Spy spy;
  ASSERT_EQ(_KV_SetDesignCollation(note), 0);
  EXPECT_EQ(spy.Find("EngMemAlloc")->words[0], 0x3001u);
  EXPECT_EQ(spy.Find("EngMemAlloc")->words[1], 19u);
  const StoredItem item = Item(note, "$Collation");
  EXPECT_EQ(item.type, 2);
  EXPECT_EQ(item.flags & 4, 4);
  EXPECT_EQ(item.bytes, std::string(kRecord, 19));
  EXPECT_EQ(EngNoteClose(note), 0);
}

TEST_F(DesignCollectionTest, KVDesignNoteCreate_Record_HasItsItems) {
  uint32_t id = 0;
  Spy spy;
  ASSERT_EQ(_KV_DesignNoteCreate(dbhand_, &id), 0);
  EXPECT_NE(id, 0u);
  const kit::EngineCall* message = spy.Find("EngMessageLoad");
  ASSERT_NE(message, nullptr);
  EXPECT_EQ(message->words[1], 7108u);
  EXPECT_EQ(message->words[3], 255u);
  EXPECT_EQ(spy.Find("EngNoteUpdate")->words[1], 0x11u);
  const char* columns[] = {"$TITLE", "$FormPrivs", "$FormUsers", "$Body",
                           "$Flags", "$Class",     "$Modified",  "$Comment"};
  ASSERT_EQ(spy.Count("EngFormulaSummaryItem"), std::size(columns));
  for (size_t column = 0; column < std::size(columns); ++column)
    EXPECT_EQ(spy.Find("EngFormulaSummaryItem", column)->texts[1], columns[column]);

  EngNote note = 0;
  ASSERT_EQ(EngNoteOpen(dbhand_, id, 0, &note), 0);
  uint16_t note_class = 0;
  EXPECT_EQ(EngNoteInfoGet(note, 3, &note_class), 0);
  EXPECT_EQ(note_class, 0x8020);
  const struct {
    const char* name;
    const char* text;
  } texts[] = {{"$DesignVersion", "4"}, {"$Version", "9"}, {"$FormulaClass", "3724"}};
  for (const auto& row : texts) {
    const StoredItem item = Item(note, row.name);
    EXPECT_EQ(item.type, BRTYPE_TEXT);
    EXPECT_EQ(item.flags & 4, 4);
    EXPECT_EQ(item.bytes, row.text);
  }
  EXPECT_EQ(Item(note, "$Collation").bytes.size(), 19u);
  const StoredItem formula = Item(note, "$Formula");
  EXPECT_EQ(formula.type, BRTYPE_FORMULA);
  EXPECT_EQ(formula.flags & 4, 4);
  EXPECT_EQ(KVILoad<uint16_t>(formula.bytes.data()), formula.bytes.size());
  EXPECT_EQ(EngNoteClose(note), 0);
}

TEST_F(DesignCollectionTest, KVDesignNoteCreate_Formula_IsTheEnginesMessageMerged) {
  uint32_t id = 0;
  ASSERT_EQ(_KV_DesignNoteCreate(dbhand_, &id), 0);
  EngNote note = 0;
  ASSERT_EQ(EngNoteOpen(dbhand_, id, 0, &note), 0);
  const StoredItem formula = Item(note, "$Formula");
  EngMem source = 0;
  uint16_t source_bytes = 0;
  ASSERT_EQ(EngFormulaDecompile(formula.bytes.data(), 1, &source, &source_bytes), 0);
  char message[256] = {};
  EXPECT_GT(EngMessageLoad(0, 7108, message, 255), 0);
  EngMem compiled = 0;
  ASSERT_EQ(_KVICompileFormula(nullptr, message, &compiled), 0);
  EngMem expected = 0;
  uint16_t expected_bytes = 0;
  {
    KVLocked block(compiled);
    ASSERT_EQ(EngFormulaDecompile(block.bytes, 1, &expected, &expected_bytes), 0);
  }
  {
    KVLocked one(source);
    KVLocked other(expected);
    EXPECT_EQ(std::string(one.bytes, source_bytes), std::string(other.bytes, expected_bytes));
  }
  for (EngMem memory : {source, compiled, expected}) EXPECT_EQ(EngMemFree(memory), 0);
  EXPECT_EQ(EngNoteClose(note), 0);
}

TEST_F(DesignCollectionTest, KVDesignNoteCreate_NoIdWanted_Works) {
  EXPECT_EQ(_KV_DesignNoteCreate(dbhand_, nullptr), 0);
  EXPECT_TRUE(HasDesignCollection());
}

TEST_F(DesignCollectionTest, KVDesignNoteCreate_AnyEngineCallFails_ItsStatusAndNoRecord) {
  bool hit = true;
  for (uint32_t nth = 1; hit; ++nth) {
    uint32_t id = 0;
    const size_t records_before = CountDesignCollections();
    Fault fault = Fault::EngineCall(nth, kEngineFailure);
    const uint16_t brstatus = _KV_DesignNoteCreate(dbhand_, &id);
    hit = fault.Hit();
    const std::string name = fault.hit_name();
    fault.Disarm();
    if (brstatus == 0) continue;
    EXPECT_EQ(brstatus, kEngineFailure) << name;
    const bool is_stored = name == "EngNoteInfoGet";  // the last step, for the id alone
    EXPECT_EQ(CountDesignCollections(), records_before + is_stored) << name;
  }
}

TEST_F(DesignCollectionTest, KVIBryndDesignCollCreate_None_MakesTheRecordAndBuildsTheCollection) {
  Spy spy;
  EXPECT_EQ(KVIBryndDesignCollCreate(dbhand_), 0);
  EXPECT_EQ(spy.Find("EngNoteOpen")->words[1], kDesignCollection);
  EXPECT_EQ(spy.Find("EngNoteOpen")->words[2], 9u);
  const kit::EngineCall* open = spy.Find("EngCollectionOpen");
  ASSERT_NE(open, nullptr);
  EXPECT_EQ(open->words[0], dbhand_);
  EXPECT_EQ(open->words[1], dbhand_);
  EXPECT_EQ(open->words[3], 1u);
  EXPECT_EQ(open->words[4], 0u);
  EXPECT_NE(open->words[5], 0u);
  for (size_t word = 6; word < 10; ++word) EXPECT_EQ(open->words[word], 0u);
  EXPECT_EQ(spy.Count("EngCollectionClose"), open->result == 0 ? 1u : 0u);
  EXPECT_TRUE(HasDesignCollection());
}

TEST_F(DesignCollectionTest, KVIBryndDesignCollCreate_Exists_DoesNothing) {
  ASSERT_EQ(KVIBryndDesignCollCreate(dbhand_), 0);
  Spy spy;
  EXPECT_EQ(KVIBryndDesignCollCreate(dbhand_), 0);
  EXPECT_EQ(spy.Names(), (std::vector<std::string>{"EngNoteOpen", "EngNoteClose"}));
}

TEST_F(DesignCollectionTest, KVIBryndDesignCollCreate_CollectionOpenFails_ItsStatus) {
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngCollectionOpen");
  EXPECT_EQ(KVIBryndDesignCollCreate(dbhand_), kEngineFailure);
  EXPECT_TRUE(fault.Hit());
}

TEST_F(DesignCollectionTest, KVIBryndDesignCollCreate_New_CollectionBuiltAndClosed) {
  Spy spy;
  EXPECT_EQ(KVIBryndDesignCollCreate(dbhand_), 0);
  const std::vector<std::string> names = spy.Names();
  ASSERT_GE(names.size(), 2u);
  EXPECT_EQ(names[names.size() - 2], "EngCollectionOpen");
  EXPECT_EQ(names.back(), "EngCollectionClose");
}

}  // namespace
