#include <string>
#include <utility>

#include "base/text.h"
#include "engine/data_fixture.h"
#include "engine/test_random.h"
#include "note/summary.h"

using namespace brynd;

namespace {

class SummaryTest : public DataFixture {
 protected:
  static Record TextValue(std::string_view text) {
    ByteBuilder value;
    value.U16(BRTYPE_TEXT);
    value.Text(text);
    return value.Release();
  }
  static std::string TextOfItem(Bytes table, std::string_view name) {
    const std::optional<Bytes> value = FindInSummary(table, name);
    if (!value) return "<damaged>";
    if (value->empty()) return "<none>";
    return std::string(TextOf(value->subspan(kTypeWordBytes)));
  }
  // The summary that a search gives of a note.
  Record SummaryOf(uint32_t id) {
    struct Wanted {
      uint32_t id;
      Record table;
    } wanted{id, {}};
    const auto keep = [](void* parameter, const SEARCH_MATCH* match, const ITEM_TABLE* summary) -> EngStatus {
      auto* into = static_cast<Wanted*>(parameter);
      if (match->ID.NoteID != into->id) return 0;
      const Bytes bytes = BytesAt(summary, match->SummaryLength);
      EXPECT_EQ(bytes.size(), LoadU16(bytes.data()));
      into->table.assign(bytes.begin(), bytes.end());
      return 0;
    };
    EXPECT_EQ(0, EngDbSearch(db_, 0, nullptr, 2, 1, nullptr, keep, &wanted, nullptr));
    return wanted.table;
  }
};

TEST_F(SummaryTest, Finish_LayoutByteByByte) {
  SummaryBuilder builder;
  const Bytes empty = builder.Finish();
  EXPECT_EQ(Record({std::byte{4}, std::byte{0}, std::byte{0}, std::byte{0}}),
            Record(empty.begin(), empty.end()));
  ASSERT_TRUE(builder.AddText("Ab", "xyz"));
  ASSERT_TRUE(builder.Add("N", Bytes()));
  ByteBuilder expected;
  expected.U16(4 + 2 * 4 + 2 + 5 + 1);
  expected.U16(2);
  for (const uint16_t word : {2, 5, 1, 0}) expected.U16(word);
  expected.Text("Ab");
  expected.U16(BRTYPE_TEXT);
  expected.Text("xyzN");
  const Bytes table = builder.Finish();
  EXPECT_EQ(expected.Release(), Record(table.begin(), table.end()));
  builder.Clear();
  EXPECT_EQ(4u, builder.Finish().size());
}

TEST_F(SummaryTest, FindInSummary_ModelOfRandomTables) {
  TestRandom random(SeedOfRun());
  SummaryBuilder builder;
  for (int round = 0; round < 300; ++round) {
    builder.Clear();
    std::vector<std::pair<std::string, std::string>> model;
    for (uint32_t count = random.Below(20); count != 0; --count) {
      const std::string name(1 + random.Below(6), static_cast<char>('a' + random.Below(26)));
      const std::string text(random.Below(300), static_cast<char>('0' + random.Below(10)));
      ASSERT_TRUE(builder.AddText(name, text));
      model.emplace_back(name, text);
    }
    const Bytes table = builder.Finish();
    for (const auto& [name, text] : model) {
      std::string first = text;
      for (auto at = model.rbegin(); at != model.rend(); ++at)
        if (EqualFold(at->first, name)) first = at->second;
      std::string upper = name;
      for (char& byte : upper) byte = UpperByte(byte);
      ASSERT_EQ(first, TextOfItem(table, upper));
    }
    ASSERT_EQ("<none>", TextOfItem(table, "no such name"));
    ASSERT_EQ("<none>", TextOfItem(table, ""));
  }
}

TEST_F(SummaryTest, FindInSummary_HarmedTable_NothingBeyondTheTable) {
  SummaryBuilder builder;
  builder.AddText("First", "one");
  builder.AddNumber("Second", 2.5);
  builder.AddTime("Third", kWildcardTime);
  const Bytes table = builder.Finish();
  int damaged = 0;
  ForEachHarm(Record(table.begin(), table.end()), [&](const Record& harmed) {
    for (const std::string_view name : {"First", "Second", "Third", "none"}) {
      const std::optional<Bytes> value = FindInSummary(harmed, name);
      damaged += value ? 0 : 1;
      if (!value || value->empty()) continue;
      EXPECT_GE(value->data(), harmed.data());
      EXPECT_LE(value->data() + value->size(), harmed.data() + harmed.size());
    }
  });
  EXPECT_GE(damaged, static_cast<int>(4 * table.size()))
      << "every start of the table is damaged for every name";
}

TEST_F(SummaryTest, Add_TableLimit_ItemThatWouldPassItStaysOut) {
  for (const size_t last_bytes : {100u, 99u}) {
    SummaryBuilder builder;
    const Record value = TextValue(std::string(13000 - 2, 'v'));
    size_t bytes = 4;
    for (int i = 0; i < 5; ++i) {
      ASSERT_TRUE(builder.Add("n", value));
      bytes += 4 + 1 + value.size();
    }
    const size_t left = kSummaryBytesMax - bytes;
    ASSERT_GT(left, last_bytes + 4 + 1);
    EXPECT_FALSE(builder.Add("m", TextValue(std::string(left - 4 - 1 - 2 + 1, 'l'))));
    EXPECT_EQ(bytes, builder.Finish().size()) << "a refused item leaves the table as it is";
    EXPECT_TRUE(builder.Add("m", TextValue(std::string(left - 4 - 1 - 2, 'l'))));
    EXPECT_EQ(kSummaryBytesMax, builder.Finish().size());
    EXPECT_FALSE(builder.Add("", Bytes()));
  }
}

TEST_F(SummaryTest, Add_LongValues_CutWhereTheyMayBe) {
  SummaryBuilder builder;
  for (const size_t bytes : {kSummaryValueBytesMax - 1, kSummaryValueBytesMax, kSummaryValueBytesMax + 1}) {
    builder.Clear();
    ASSERT_TRUE(builder.Add("t", TextValue(std::string(bytes - 2, 't'))));
    EXPECT_EQ(std::min<size_t>(bytes, kSummaryValueBytesMax) - 2, TextOfItem(builder.Finish(), "t").size());
  }
  // A character of three bytes is not cut through.
  builder.Clear();
  ASSERT_TRUE(
      builder.Add("t", TextValue(std::string(kSummaryValueBytesMax - 2 - 1, 't') + "\x12\x95\x90 more")));
  EXPECT_EQ(std::string(kSummaryValueBytesMax - 2 - 1, 't'), TextOfItem(builder.Finish(), "t"));
  // A list keeps whole entries.
  ByteBuilder list;
  list.U16(BRTYPE_TEXT_LIST);
  list.U16(100);
  for (int i = 0; i < 100; ++i) list.U16(1000);
  for (int i = 0; i < 100; ++i) list.Text(std::string(1000, static_cast<char>('a' + i % 26)));
  builder.Clear();
  ASSERT_TRUE(builder.Add("l", list.View()));
  const Bytes cut = *FindInSummary(builder.Finish(), "L");
  ASSERT_LE(cut.size(), kSummaryValueBytesMax);
  ASSERT_EQ(BRTYPE_TEXT_LIST, LoadU16(cut.data()));
  const uint16_t entries = LoadU16(cut.data() + 2);
  EXPECT_EQ((kSummaryValueBytesMax - 4) / 1002, entries);
  EXPECT_EQ(4u + entries * 1002u, cut.size());
  // Other types cannot be cut: the item stays out, and the table goes on.
  builder.Clear();
  ByteBuilder rich;
  rich.U16(BRTYPE_COMPOSITE);
  rich.Text(std::string(kSummaryValueBytesMax, 'r'));
  EXPECT_TRUE(builder.Add("r", rich.View()));
  EXPECT_TRUE(builder.AddText("t", "x"));
  EXPECT_EQ("<none>", TextOfItem(builder.Finish(), "r"));
  EXPECT_EQ("x", TextOfItem(builder.Finish(), "t"));
}

TEST_F(SummaryTest, AddSummaryItems_FlaggedItemsInOrder_LongOnesToo) {
  const EngNote note = NewNote();
  ASSERT_EQ(0, AppendText(note, "First", "1"));
  ASSERT_EQ(0, AppendText(note, "Body", "not in it", 0));
  ASSERT_EQ(0, AppendText(note, "Long", std::string(30000, 'x')));
  ASSERT_EQ(0, AppendText(note, "first", "2"));
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  const uint32_t id = IdOf(note);
  ASSERT_EQ(0, EngNoteClose(note));
  const Record table = SummaryOf(id);
  EXPECT_EQ(3, LoadU16(table.data() + 2));
  EXPECT_EQ("1", TextOfItem(table, "FIRST"));
  EXPECT_EQ("<none>", TextOfItem(table, "Body"));
  EXPECT_EQ(std::string(kSummaryValueBytesMax - 2, 'x'), TextOfItem(table, "Long"));
  // The long value lies by itself; damaged, it stays out and hides nothing else.
  std::vector<Record> keys;
  Owner().Store().ScanRecords(space::kValues, {}, std::nullopt, [&](Bytes key, Bytes) {
    keys.emplace_back(key.begin(), key.end());
    return true;
  });
  ASSERT_EQ(1u, keys.size());
  PutRaw(Owner(), space::kValues, keys[0], BytesOf("damaged"));
  const Record without = SummaryOf(id);
  EXPECT_EQ(2, LoadU16(without.data() + 2));
  EXPECT_EQ("<none>", TextOfItem(without, "Long"));
  EXPECT_EQ("1", TextOfItem(without, "First"));
}

}  // namespace
