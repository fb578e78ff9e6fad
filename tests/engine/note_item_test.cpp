#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "engine/note_fixture.h"
#include "engine/test_random.h"
#include "note/formula_host.h"
#include "note/item_text.h"

using namespace brynd;

namespace {

class ItemTest : public NoteFixture {
 protected:
  void SetUp() override {
    NoteFixture::SetUp();
    note_ = NewNote();
  }
  void TearDown() override {
    EXPECT_EQ(0, EngNoteClose(note_));
    NoteFixture::TearDown();
  }
  std::vector<std::string> TextsOf(std::string_view name) {
    std::vector<std::string> texts;
    BLOCKID item{}, value{};
    uint32_t bytes = 0;
    const auto length = static_cast<uint16_t>(name.size());
    for (EngStatus outcome = EngItemInfo(note_, name.data(), length, &item, nullptr, &value, &bytes);
         outcome == 0;
         outcome = EngItemInfoNext(note_, item, name.data(), length, &item, nullptr, &value, &bytes)) {
      const char* address = static_cast<const char*>(EngMemLock(value.pool));
      texts.emplace_back(address + value.block + 2, bytes - 2);
      EngMemUnlock(value.pool);
    }
    return texts;
  }
  EngNote note_ = 0;
};

TEST_F(ItemTest, EngItemInfo_Item_TypeValueAndLength) {
  const double number = 4.5;
  ASSERT_EQ(0, EngItemAppend(note_, 4, "Price", 5, BRTYPE_NUMBER, &number, 8));
  BLOCKID item{}, value{};
  uint16_t type = 0;
  uint32_t bytes = 0;
  ASSERT_EQ(0, EngItemInfo(note_, "PRICE", 5, &item, &type, &value, &bytes));
  EXPECT_EQ(note_, item.pool);
  EXPECT_NE(0, item.block);
  EXPECT_EQ(BRTYPE_NUMBER, type);
  EXPECT_EQ(10u, bytes);
  const std::byte* address = static_cast<const std::byte*>(EngMemLock(value.pool)) + value.block;
  EXPECT_EQ(BRTYPE_NUMBER, LoadU16(address));
  EXPECT_EQ(4.5, LoadF64(address + 2));
  EXPECT_EQ(0, EngMemUnlock(value.pool));
  EXPECT_EQ(status::kNoItem, EngItemInfo(note_, "Pric", 4, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(status::kNoItem, EngItemInfo(note_, "", 0, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(status::kBadArgument, EngItemInfo(note_, nullptr, 1, nullptr, nullptr, nullptr, nullptr));
}

TEST_F(ItemTest, EngItemAppend_Limits) {
  const std::string name(256, 'n');
  EXPECT_EQ(status::kBadItemName, EngItemAppend(note_, 0, "", 0, BRTYPE_TEXT, "x", 1));
  EXPECT_EQ(0, EngItemAppend(note_, 0, name.data(), 255, BRTYPE_TEXT, "x", 1));
  EXPECT_EQ(status::kBadItemName, EngItemAppend(note_, 0, name.data(), 256, BRTYPE_TEXT, "x", 1));
  EXPECT_EQ(status::kBadArgument, EngItemAppend(note_, 0, "a", 1, BRTYPE_TEXT, nullptr, 1));
  EXPECT_EQ(status::kBadArgument, EngItemAppend(note_, 0, nullptr, 1, BRTYPE_TEXT, "x", 1));
  EXPECT_EQ(0, EngItemAppend(note_, 0x100, "placeholder", 11, 0, nullptr, 0));
  const std::vector<char> large(kValueBytesMax);
  EXPECT_EQ(0, EngItemAppend(note_, 0, "b", 1, BRTYPE_TEXT, large.data(), kValueBytesMax - 2));
  EXPECT_EQ(status::kItemTooLarge,
            EngItemAppend(note_, 0, "b", 1, BRTYPE_TEXT, large.data(), kValueBytesMax - 1));
  uint32_t bytes = 0;
  EXPECT_EQ(0, EngItemInfo(note_, "placeholder", 11, nullptr, nullptr, nullptr, &bytes));
  EXPECT_EQ(2u, bytes);
}

TEST_F(ItemTest, EngItemAppend_UntilTheNoteIsFull_TooManyItems) {
  for (uint32_t i = 0; i < kItemCountMax; ++i)
    ASSERT_EQ(0, EngItemAppend(note_, 0, "a", 1, BRTYPE_TEXT, "x", 1));
  EXPECT_EQ(status::kTooManyItems, EngItemAppend(note_, 0, "a", 1, BRTYPE_TEXT, "x", 1));
  ASSERT_EQ(0, EngItemDelete(note_, "a", 1));
  EXPECT_EQ(0, EngItemAppend(note_, 0, "a", 1, BRTYPE_TEXT, "x", 1));
  ASSERT_EQ(0, EngNoteUpdate(note_, 4));
  const EngNote again = OpenNote(IdOf(note_));
  EXPECT_EQ(kItemCountMax, FindNote(again).ItemCount());
  EXPECT_EQ(0, EngNoteClose(again));
}

TEST_F(ItemTest, EngItemInfoNext_WalksNamesInOrderAndPastDeletedItems) {
  for (const char* text : {"1", "2", "3", "4"}) {
    ASSERT_EQ(0, AppendText(note_, "A", text));
    ASSERT_EQ(0, AppendText(note_, "B", "x"));
  }
  EXPECT_EQ((std::vector<std::string>{"1", "2", "3", "4"}), TextsOf("a"));
  BLOCKID item{}, value{};
  uint32_t bytes = 0;
  ASSERT_EQ(0, EngItemInfo(note_, "A", 1, &item, nullptr, nullptr, nullptr));
  ASSERT_EQ(0, EngItemInfoNext(note_, item, "A", 1, &item, nullptr, nullptr, nullptr));
  ASSERT_EQ(0, EngItemDeleteByBlock(note_, item));
  EXPECT_EQ(status::kNoItem, EngItemDeleteByBlock(note_, item));
  ASSERT_EQ(0, EngItemInfoNext(note_, item, "A", 1, &item, nullptr, &value, &bytes));
  EXPECT_EQ((std::vector<std::string>{"1", "3", "4"}), TextsOf("A"));
  EXPECT_EQ(status::kBadHandle,
            EngItemInfoNext(note_, BLOCKID{0, 1}, "A", 1, &item, nullptr, nullptr, nullptr));
}

TEST_F(ItemTest, EngItemInfo_ListThenAppendThenDeleteByBlock_OldOnesGoNewOneStays) {
  for (int round = 0; round < 50; ++round) {
    std::vector<BLOCKID> old_items;
    BLOCKID item{};
    for (EngStatus outcome = EngItemInfo(note_, "A", 1, &item, nullptr, nullptr, nullptr); outcome == 0;
         outcome = EngItemInfoNext(note_, item, "A", 1, &item, nullptr, nullptr, nullptr)) {
      old_items.push_back(item);
    }
    ASSERT_EQ(0, AppendText(note_, "A", std::to_string(round)));
    for (const BLOCKID& old_item : old_items) ASSERT_EQ(0, EngItemDeleteByBlock(note_, old_item));
    EXPECT_EQ(std::vector<std::string>{std::to_string(round)}, TextsOf("A"));
  }
}

TEST_F(ItemTest, EngItemInfo_ValueBlock_StaysValidWhileOtherItemsComeAndGo) {
  ASSERT_EQ(0, AppendText(note_, "Kept", "kept value"));
  BLOCKID value{};
  ASSERT_EQ(0, EngItemInfo(note_, "Kept", 4, nullptr, nullptr, &value, nullptr));
  const std::string other(3000, 'o');
  for (int i = 0; i < 3000; ++i) {
    ASSERT_EQ(0, AppendText(note_, "Other", other));
    ASSERT_EQ(0, EngItemDelete(note_, "Other", 5));
  }
  const char* address = static_cast<const char*>(EngMemLock(value.pool));
  ASSERT_NE(nullptr, address);
  EXPECT_EQ("kept value", std::string(address + value.block + 2, 10));
  EXPECT_EQ(0, EngMemUnlock(value.pool));
  EXPECT_LT(memory::Stats().bytes, 8u << 20) << "what was replaced does not pile up";
}

TEST_F(ItemTest, EngItemDeleteByBlock_SerialsUsedUp_EveryItemStillFoundByItsBlock) {
  for (uint32_t i = 0; i < 0xffff + 10; ++i) {
    ASSERT_EQ(0, AppendText(note_, "A", "x"));
    ASSERT_EQ(0, EngItemDelete(note_, "A", 1));
  }
  std::vector<BLOCKID> items;
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(0, AppendText(note_, "I" + std::to_string(i), std::to_string(i)));
    BLOCKID item{};
    const std::string name = "I" + std::to_string(i);
    ASSERT_EQ(0, EngItemInfo(note_, name.data(), static_cast<uint16_t>(name.size()), &item, nullptr, nullptr,
                             nullptr));
    items.push_back(item);
  }
  for (int i = 0; i < 20; i += 2) ASSERT_EQ(0, EngItemDeleteByBlock(note_, items[static_cast<size_t>(i)]));
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(i % 2 == 0 ? "<none>" : std::to_string(i), Text(note_, "I" + std::to_string(i)));
}

TEST_F(ItemTest, EngItemQuery_NameCutAtItsRoom) {
  ASSERT_EQ(0, AppendText(note_, "LongName", "v", 0x44));
  BLOCKID item{};
  ASSERT_EQ(0, EngItemInfo(note_, "longname", 8, &item, nullptr, nullptr, nullptr));
  char name[5] = "####";
  uint16_t name_bytes = 0, flags = 0, type = 0;
  uint32_t value_bytes = 0;
  ASSERT_EQ(0, EngItemQuery(note_, item, name, 4, &name_bytes, &flags, &type, nullptr, &value_bytes));
  EXPECT_STREQ("Long", name);
  EXPECT_EQ(4, name_bytes);
  EXPECT_EQ(0x44, flags);
  EXPECT_EQ(BRTYPE_TEXT, type);
  EXPECT_EQ(3u, value_bytes);
  EXPECT_EQ(0, EngItemQuery(note_, item, nullptr, 0, &name_bytes, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(8, name_bytes);
  item.block = 999;
  EXPECT_EQ(status::kNoItem, EngItemQuery(note_, item, name, 4, nullptr, nullptr, nullptr, nullptr, nullptr));
}

struct ScanState {
  std::vector<std::string> seen;
  size_t stop_at = 1000;
  EngNote close = 0;
};

EngStatus ScanItem(uint16_t, uint16_t, const char* name, uint16_t name_bytes, const void* value,
                   uint32_t value_bytes, void* parameter) {
  auto* state = static_cast<ScanState*>(parameter);
  state->seen.push_back(std::string(name, name_bytes) + "=" +
                        std::string(static_cast<const char*>(value) + 2, value_bytes - 2));
  if (state->close != 0) EngNoteClose(state->close);
  return state->seen.size() == state->stop_at ? 0x321 : 0;
}

TEST_F(ItemTest, EngItemScan_StoredOrder_StopsAtTheCallbacksResult) {
  for (const char* name : {"C", "A", "B"}) ASSERT_EQ(0, AppendText(note_, name, "v"));
  ScanState state;
  EXPECT_EQ(0, EngItemScan(note_, ScanItem, &state));
  EXPECT_EQ((std::vector<std::string>{"C=v", "A=v", "B=v"}), state.seen);
  ScanState stopped;
  stopped.stop_at = 2;
  EXPECT_EQ(0x321, EngItemScan(note_, ScanItem, &stopped));
  EXPECT_EQ(2u, stopped.seen.size());
  EXPECT_EQ(status::kBadArgument, EngItemScan(note_, nullptr, nullptr));
  const EngNote closing = NewNote();
  ASSERT_EQ(0, AppendText(closing, "A", "v"));
  ASSERT_EQ(0, AppendText(closing, "B", "v"));
  ScanState closed;
  closed.close = closing;
  EXPECT_EQ(status::kBadHandle, EngItemScan(closing, ScanItem, &closed));
}

TEST_F(ItemTest, EngItemAppendByBlock_NoteOwnsTheBlockAsItLies) {
  EngMem block = 0;
  ASSERT_EQ(0, EngMemAlloc(0, 20, &block));
  char* address = static_cast<char*>(EngMemLock(block));
  std::memcpy(address, "....\x00\x05taken over..", 19);
  EngMemUnlock(block);
  EXPECT_EQ(status::kBadArgument, EngItemAppendByBlock(note_, 0, "A", 1, BLOCKID{block, 4}, 17, 0));
  EXPECT_EQ(status::kBadArgument, EngItemAppendByBlock(note_, 0, "A", 1, BLOCKID{block, 4}, 1, 0));
  EXPECT_EQ(status::kBadHandle, EngItemAppendByBlock(note_, 0, "A", 1, BLOCKID{12345, 4}, 12, 0));
  ASSERT_EQ(0, EngItemAppendByBlock(note_, 4, "A", 1, BLOCKID{block, 4}, 12, 0));
  BLOCKID value{};
  ASSERT_EQ(0, EngItemInfo(note_, "A", 1, nullptr, nullptr, &value, nullptr));
  EXPECT_EQ(block, value.pool);
  EXPECT_EQ("taken over", Text(note_, "A"));
  ASSERT_EQ(0, EngItemAppendByBlock(note_, 4, "B", 1, BLOCKID{block, 4}, 7, 0))
      << "another piece of the same block";
  EXPECT_EQ("taken", Text(note_, "B"));
  ASSERT_EQ(0, EngNoteUpdate(note_, 0));
  const EngNote stored = OpenNote(IdOf(note_));
  EXPECT_EQ("taken over", Text(stored, "A"));
  EXPECT_EQ("taken", Text(stored, "B"));
  EXPECT_EQ(0, EngNoteClose(stored));
}

TEST_F(ItemTest, EngItemInfo_BlockFreedOrShrunkByACaller_StatusNotACrash) {
  ASSERT_EQ(0, AppendText(note_, "A", "value"));
  BLOCKID value{};
  ASSERT_EQ(0, EngItemInfo(note_, "A", 1, nullptr, nullptr, &value, nullptr));
  ASSERT_EQ(0, EngMemRealloc(value.pool, 1));
  char text[10];
  EXPECT_EQ(0, EngItemTextGet(note_, "A", text, 9));
  EXPECT_EQ(status::kBadHandle, EngNoteUpdate(note_, 0));
  ASSERT_EQ(0, EngMemFree(value.pool));
  EXPECT_EQ(0, EngItemTextGet(note_, "A", text, 9));
  EXPECT_EQ(status::kBadHandle, EngNoteUpdate(note_, 0));
  EXPECT_EQ(0, AppendText(note_, "B", "new block"));
  EXPECT_EQ("new block", Text(note_, "B"));
}

TEST_F(ItemTest, EngItemCopy_WithinANoteAndBetweenNotes) {
  ASSERT_EQ(0, AppendText(note_, "A", "value", 0x44));
  BLOCKID item{};
  ASSERT_EQ(0, EngItemInfo(note_, "A", 1, &item, nullptr, nullptr, nullptr));
  ASSERT_EQ(0, EngItemCopy(note_, item));
  EXPECT_EQ((std::vector<std::string>{"value", "value"}), TextsOf("A"));
  const EngNote other = NewNote();
  ASSERT_EQ(0, EngItemCopy(other, item));
  EXPECT_EQ("value", Text(other, "A"));
  uint16_t flags = 0;
  BLOCKID copied{};
  ASSERT_EQ(0, EngItemInfo(other, "A", 1, &copied, nullptr, nullptr, nullptr));
  ASSERT_EQ(0, EngItemQuery(other, copied, nullptr, 0, nullptr, &flags, nullptr, nullptr, nullptr));
  EXPECT_EQ(0x44, flags);
  item.block = 77;
  EXPECT_EQ(status::kNoItem, EngItemCopy(other, item));
  EXPECT_EQ(0, EngNoteClose(other));
}

TEST_F(ItemTest, EngItemTextSet_ReplacesAllOfTheName) {
  ASSERT_EQ(0, AppendText(note_, "A", "1"));
  ASSERT_EQ(0, AppendText(note_, "B", "b"));
  ASSERT_EQ(0, AppendText(note_, "a", "2"));
  ASSERT_EQ(0, EngItemTextSet(note_, "A", "new", 3));
  EXPECT_EQ(std::vector<std::string>{"new"}, TextsOf("A"));
  EXPECT_EQ("b", Text(note_, "B"));
  ASSERT_EQ(0, EngItemTextSet(note_, "A", "to the end", 0xffff));
  EXPECT_EQ("to the end", Text(note_, "A"));
  ASSERT_EQ(0, EngItemTextSet(note_, "A", "to the end too", 0xffffffff));
  EXPECT_EQ("to the end too", Text(note_, "A"));
  ASSERT_EQ(0, EngItemTextSet(note_, "A", nullptr, 0));
  EXPECT_EQ("", Text(note_, "A"));
  EXPECT_EQ(status::kBadArgument, EngItemTextSet(note_, "A", nullptr, 2));
}

TEST_F(ItemTest, EngItemTextGet_CutBetweenCharacters) {
  ASSERT_EQ(0, AppendText(note_, "A", "ab\x10\x80\x81z"));
  char text[20];
  std::memset(text, '#', sizeof text);
  EXPECT_EQ(6, EngItemTextGet(note_, "A", text, 19));
  EXPECT_STREQ("ab\x10\x80\x81z", text);
  EXPECT_EQ(2, EngItemTextGet(note_, "A", text, 4));
  EXPECT_STREQ("ab", text);
  EXPECT_EQ('#', text[7]);
  EXPECT_EQ(0, EngItemTextGet(note_, "None", text, 19));
  EXPECT_STREQ("", text);
  const double number = 2.5;
  ASSERT_EQ(0, EngItemAppend(note_, 4, "N", 1, BRTYPE_NUMBER, &number, 8));
  EXPECT_EQ(3, EngItemTextGet(note_, "N", text, 19));
  EXPECT_STREQ("2.5", text);
}

TEST_F(ItemTest, EngItemTextListAppend_GrowsAndRefusesDuplicates) {
  ASSERT_EQ(0, EngItemTextListAppend(note_, "L", "one", 3, 0));
  ASSERT_EQ(0, EngItemTextListAppend(note_, "L", "two", 3, 0));
  ASSERT_EQ(0, EngItemTextListAppend(note_, "l", "ONE", 3, 0));
  EXPECT_EQ(2, EngItemTextListCount(note_, "L"));
  ASSERT_EQ(0, EngItemTextListAppend(note_, "L", "ONE", 3, 1));
  EXPECT_EQ(3, EngItemTextListCount(note_, "L"));
  char text[10];
  EXPECT_EQ(3, EngItemTextListEntry(note_, "L", 2, text, 10));
  EXPECT_EQ("ONE", std::string(text, 3));
  EXPECT_EQ(2, EngItemTextListEntry(note_, "L", 1, text, 2));
  EXPECT_EQ(0, EngItemTextListEntry(note_, "L", 3, text, 10));
  ASSERT_EQ(0, AppendText(note_, "T", "text"));
  EXPECT_EQ(1, EngItemTextListCount(note_, "T"));
  EXPECT_EQ(4, EngItemTextListEntry(note_, "T", 0, text, 10));
  ASSERT_EQ(0, EngItemTextListAppend(note_, "T", "more", 4, 0));
  EXPECT_EQ(2, EngItemTextListCount(note_, "T"));
  const double number = 1;
  ASSERT_EQ(0, EngItemAppend(note_, 4, "N", 1, BRTYPE_NUMBER, &number, 8));
  EXPECT_EQ(status::kWrongItemType, EngItemTextListAppend(note_, "N", "x", 1, 0));
  EXPECT_EQ(0, EngItemTextListCount(note_, "N"));
  EXPECT_EQ(0, EngItemTextListCount(note_, "None"));
}

TEST_F(ItemTest, EngItemTextListAppend_ManyEntries_AgainstAModelUpToTheLimit) {
  TestRandom random(SeedOfRun());
  std::vector<std::string> model;
  EngStatus outcome = 0;
  while (outcome == 0) {
    const std::string entry(random.Below(60), static_cast<char>('a' + random.Below(26)));
    outcome = EngItemTextListAppend(note_, "L", entry.data(), static_cast<uint16_t>(entry.size()), 1);
    if (outcome == 0) model.push_back(entry);
    if (random.Below(50) == 0) {
      ASSERT_EQ(0, AppendText(note_, "Between", "x"));
    }
  }
  EXPECT_EQ(status::kListFull, outcome);
  ASSERT_EQ(model.size(), EngItemTextListCount(note_, "L"));
  for (size_t i = 0; i < model.size(); ++i) {
    char text[100];
    const uint16_t bytes = EngItemTextListEntry(note_, "L", static_cast<uint16_t>(i), text, 100);
    EXPECT_EQ(model[i], std::string(text, bytes));
  }
  ASSERT_EQ(0, EngNoteUpdate(note_, 0));
  const EngNote stored = OpenNote(IdOf(note_));
  EXPECT_EQ(model.size(), EngItemTextListCount(stored, "L"));
  EXPECT_EQ(0, EngNoteClose(stored));
}

TEST_F(ItemTest, EngItemNumberGet_NumberListAndOthers) {
  double number = 7.25;
  ASSERT_EQ(0, EngItemAppend(note_, 4, "N", 1, BRTYPE_NUMBER, &number, 8));
  std::byte range[4 + 16] = {};
  StoreU16(range, 2);
  StoreF64(range + 4, 1.5);
  ASSERT_EQ(0, EngItemAppend(note_, 4, "R", 1, BRTYPE_NUMBER_RANGE, range, sizeof range));
  ASSERT_EQ(0, EngItemAppend(note_, 4, "Short", 5, BRTYPE_NUMBER, &number, 3));
  number = -1;
  EXPECT_EQ(1, EngItemNumberGet(note_, "n", &number));
  EXPECT_EQ(7.25, number);
  EXPECT_EQ(1, EngItemNumberGet(note_, "R", &number));
  EXPECT_EQ(1.5, number);
  EXPECT_EQ(0, EngItemNumberGet(note_, "Short", &number));
  EXPECT_EQ(0, EngItemNumberGet(note_, "None", &number));
  EXPECT_EQ(1.5, number);
}

TEST_F(ItemTest, TextOfValue_HostileValues_NoCrash) {
  TestRandom random(SeedOfRun());
  for (int round = 0; round < 20000; ++round) {
    std::vector<std::byte> value(random.Below(24));
    for (std::byte& byte : value) byte = static_cast<std::byte>(random.Below(6));
    if (value.size() >= 2) {
      static constexpr uint16_t kTypes[] = {0x300, 0x301, 0x400, 0x401, 0x500, 0x501, 0, 4};
      StoreU16(value.data(), kTypes[random.Below(8)]);
    }
    TextOfValue(value);
    const uint16_t count = TextEntryCount(value);
    for (uint16_t entry = 0; entry <= count && entry < 20; ++entry) TextEntry(value, entry);
  }
}

TEST_F(ItemTest, FormulaHosts_ImageAndOpenNote_GiveTheSame) {
  const std::string large(30000, 'z');
  ASSERT_EQ(0, AppendText(note_, "Subject", "s"));
  ASSERT_EQ(0, AppendText(note_, "SUBJECT", "second"));
  ASSERT_EQ(0, AppendText(note_, "Large", large, 0));
  ASSERT_EQ(0, EngNoteUpdate(note_, 0));
  NoteHost open_host(FindNote(note_));
  ImageHost image_host(Owner());
  Owner().VisitNote(IdOf(note_), [&](const ImageView& view) {
    image_host.Show(view);
    EXPECT_TRUE(open_host.Scope() == image_host.Scope());
    for (formula::Host* host :
         {static_cast<formula::Host*>(&open_host), static_cast<formula::Host*>(&image_host)}) {
      formula::ItemView item;
      ASSERT_TRUE(host->Find(host->Bind("sUbJeCt"), &item));
      EXPECT_EQ(BRTYPE_TEXT, item.type);
      EXPECT_EQ("s", TextOf(item.value));
      ASSERT_TRUE(host->Find(host->Bind("large"), &item));
      EXPECT_EQ(large, TextOf(item.value));
      EXPECT_FALSE(host->Find(host->Bind("unknown"), &item));
      EXPECT_FALSE(host->Find(host->Bind("$TITLE"), &item));
      std::vector<std::string> names;
      host->ItemNames(&names);
      EXPECT_EQ((std::vector<std::string>{"Subject", "Large"}), names);
      formula::DocumentFacts facts;
      host->Document(&facts);
      EXPECT_EQ(IdOf(note_), facts.note_id);
      EXPECT_GT(facts.length, large.size());
      EXPECT_FALSE(facts.is_response);
      formula::DatabaseFacts database;
      host->Database(&database);
      EXPECT_EQ("test", database.path);
    }
    EXPECT_FALSE(image_host.WriteItem("X", {BRTYPE_TEXT, BytesOf("y")}));
  });
  formula::ItemView own;
  ASSERT_TRUE(open_host.Find(open_host.Bind("Subject"), &own));
  EXPECT_TRUE(open_host.WriteItem("Subject", own)) << "a value of the note itself";
  EXPECT_EQ(std::vector<std::string>{"s"}, TextsOf("Subject"));
  EXPECT_TRUE(open_host.DeleteItem("Large"));
  EXPECT_TRUE(open_host.DeleteItem("Large"));
  EXPECT_EQ("<none>", Text(note_, "Large"));
}

}  // namespace
