// Searches: what is found, in which order, with which scores; with an index and without, the same.
#include <algorithm>
#include <chrono>
#include <functional>
#include <thread>

#include "base/list.h"
#include "fulltext/search.h"
#include "fulltext_fixture.h"
#include "test_random.h"

namespace {

using namespace brynd;
using Ids = std::vector<uint32_t>;

// Runs each test without an index, with one, and with one that keeps case.
class FullTextSearchTest : public FullTextFixture, public testing::WithParamInterface<int> {
 protected:
  void Index() {
    if (GetParam() == 1) {
      ASSERT_EQ(0, Build(0x10));
    }
    if (GetParam() == 2) {
      ASSERT_EQ(0, Build(0x14));
    }
  }
};
INSTANTIATE_TEST_SUITE_P(Ways, FullTextSearchTest, testing::Values(0, 1, 2));

TEST_P(FullTextSearchTest, Run_WordsAndOperators_RightNotes) {
  const uint32_t a = Put("red apple"), b = Put("green apple pie"), c = Put("red wine"), d = Put("nothing");
  Index();
  EXPECT_EQ((Ids{a, b}), Find("apple"));
  EXPECT_EQ((Ids{a, b}), Find("APPLE"));
  EXPECT_EQ((Ids{a}), Find("red apple"));
  EXPECT_EQ((Ids{a, b, c}), Find("red or apple"));
  EXPECT_EQ((Ids{c}), Find("red not apple"));
  EXPECT_EQ((Ids{c, d}), Find("not apple"));
  EXPECT_EQ((Ids{a, d}), Find("nothing or red & !wine"));
  EXPECT_EQ((Ids{b}), Find("\"apple pie\""));
  EXPECT_EQ(Ids{}, Find("\"pie apple\""));
  EXPECT_EQ(Ids{}, Find("banana"));
  EXPECT_EQ((Ids{a, b}), Find("not not apple"));
}

TEST_P(FullTextSearchTest, Run_Wildcards_RightNotes) {
  const uint32_t a = Put("economy"), b = Put("ecology"), c = Put("cat cut"), d = Put("Ökonomie");
  Index();
  EXPECT_EQ((Ids{a, b}), Find("eco*"));
  EXPECT_EQ((Ids{a}), Find("*nomy"));
  EXPECT_EQ((Ids{a, b}), Find("ec*o?y"));
  EXPECT_EQ((Ids{c}), Find("c?t"));
  EXPECT_EQ(Ids{}, Find("c?"));
  EXPECT_EQ((Ids{a, d}), Find("?*onom*"));
  EXPECT_EQ((Ids{d}), Find("oko*"));
  EXPECT_EQ((Ids{c}), Find("c?t-cu*"));
}

TEST_P(FullTextSearchTest, Run_Near_EightWordsAndNoMore) {
  const uint32_t a = Put("start 1 2 3 4 5 6 7 stop"), b = Put("start 1 2 3 4 5 6 7 8 stop");
  const uint32_t c = Put("stop start"), d = Put("\"stop the start\" it all");
  Index();
  EXPECT_EQ((Ids{a, c, d}), Find("start near stop"));
  EXPECT_EQ((Ids{a, b}), Find("start near \"7 8\" or \"7 stop\" near start"));
  EXPECT_EQ((Ids{a}), Find("start near 7 near stop and not 8"));
  EXPECT_EQ((Ids{d}), Find("(start or begin) near all"));
}

TEST_P(FullTextSearchTest, Run_SentenceAndParagraph_Bounds) {
  const uint32_t a = Put("The cat sat. The dog ran."), b = Put("The cat saw the dog.");
  const uint32_t c = Put(std::string("The cat\0The dog", 15));
  Index();
  EXPECT_EQ((Ids{b}), Find("cat sentence dog"));
  EXPECT_EQ((Ids{a, b}), Find("cat paragraph dog"));
  EXPECT_EQ((Ids{a, b, c}), Find("cat dog"));
}

TEST_P(FullTextSearchTest, Run_ExactCase_OnlyAsWritten) {
  const uint32_t a = Put("Apple Pie"), b = Put("apple pie"), c = Put("Café");
  Index();
  EXPECT_EQ((Ids{a}), Find("exactcase Apple"));
  EXPECT_EQ((Ids{b}), Find("exactcase apple"));
  EXPECT_EQ((Ids{a, b}), Find("apple"));
  EXPECT_EQ((Ids{a}), Find("exactcase \"Apple Pie\""));
  EXPECT_EQ(Ids{}, Find("exactcase \"Apple pie\""));
  EXPECT_EQ((Ids{a}), Find("exactcase App*"));
  EXPECT_EQ((Ids{b}), Find("exactcase a?ple"));
  EXPECT_EQ((Ids{c}), Find("exactcase Caf\xe9"));
  EXPECT_EQ(Ids{}, Find("exactcase Cafe"));
}

TEST_P(FullTextSearchTest, Run_FieldContains_ThatItemAlone) {
  const uint32_t a = Put({{"Subject", "red apple"}, {"Body", "green"}});
  const uint32_t b = Put({{"Subject", "green"}, {"Body", "red apple"}});
  const uint32_t c = Put({{"subject", "red"}, {"SUBJECT", "apple"}});
  Index();
  EXPECT_EQ((Ids{a, c}), Find("field Subject contains apple"));
  EXPECT_EQ((Ids{a}), Find("field subject contains \"red apple\""));
  EXPECT_EQ((Ids{a, c}), Find("field Subject contains (red and apple)"));
  EXPECT_EQ((Ids{b}), Find("field Subject contains (not red)"));
  EXPECT_EQ((Ids{b}), Find("field Body contains apple"));
  EXPECT_EQ(Ids{}, Find("field Nowhere contains apple"));
  EXPECT_EQ((Ids{a, b}), Find("field Subject contains green or field Body contains green"));
}

TEST_P(FullTextSearchTest, Run_PhraseAcrossItems_IsNone) {
  const uint32_t a = Put({{"A", "red"}, {"B", "apple"}}), b = Put("red apple");
  Index();
  EXPECT_EQ((Ids{b}), Find("\"red apple\""));
  EXPECT_EQ((Ids{a, b}), Find("red near apple"));
}

TEST_P(FullTextSearchTest, Run_FieldComparisons_ByType) {
  const auto put = [&](double number, const char* text) {
    const EngNote note = NewNote();
    EXPECT_EQ(0, EngItemAppend(note, 4, "Size", 4, BRTYPE_NUMBER, &number, 8));
    EXPECT_EQ(0, AppendText(note, "Form", text));
    EXPECT_EQ(0, EngNoteUpdate(note, 0));
    const uint32_t id = IdOf(note);
    EXPECT_EQ(0, EngNoteClose(note));
    return id;
  };
  const uint32_t a = put(5, "Main Topic"), b = put(10, "main topic"), c = put(15, "Response");
  Index();
  EXPECT_EQ((Ids{b}), Find("field Size = 10"));
  EXPECT_EQ((Ids{a}), Find("field Size < 10"));
  EXPECT_EQ((Ids{a, b}), Find("field Size <= 10"));
  EXPECT_EQ((Ids{c}), Find("field size>10"));
  EXPECT_EQ((Ids{b, c}), Find("field Size >= 1e1"));
  EXPECT_EQ(Ids{}, Find("field Size = ten"));
  EXPECT_EQ((Ids{a, b}), Find("field Form = \"MAIN topic\""));
  EXPECT_EQ(Ids{}, Find("field Form = main"));
  EXPECT_EQ((Ids{c}), Find("field Form > \"Main Topic\""));
  EXPECT_EQ((Ids{b}), Find("topic and field Size > 7"));
  EXPECT_EQ((Ids{a, c}), Find("not field Size = 10"));
}

TEST_P(FullTextSearchTest, Run_Lists_EntriesAreParagraphsAndValues) {
  const EngNote note = NewNote();
  MemoryBlock list = MakeList(ListPrefix::kNone, 64);
  AddListEntry(list.handle(), ListPrefix::kNone, 0, "red apple");
  const size_t bytes = AddListEntry(list.handle(), ListPrefix::kNone, 1, "green pear");
  EXPECT_EQ(0,
            EngItemAppend(note, 4, "Tags", 4, BRTYPE_TEXT_LIST, list.data(), static_cast<uint32_t>(bytes)));
  EXPECT_EQ(0, EngNoteUpdate(note, 0));
  const uint32_t id = IdOf(note);
  EXPECT_EQ(0, EngNoteClose(note));
  Index();
  EXPECT_EQ(Ids{id}, Find("pear"));
  EXPECT_EQ(Ids{id}, Find("field Tags = \"Green Pear\""));
  EXPECT_EQ(Ids{}, Find("apple paragraph green"));
  EXPECT_EQ(Ids{id}, Find("apple near green"));
}

TEST_P(FullTextSearchTest, Run_RichText_RunsAndParagraphs) {
  const auto text_record = [](std::string_view text) {
    std::string record("\x85\xff\0\0\0\0\0\0", 8);
    record += text;
    StoreU16(record.data() + 2, static_cast<uint16_t>(record.size()));
    if (record.size() % 2 != 0) record += '\x55';
    return record;
  };
  const std::string body =
      text_record("ap") + text_record("ple cake ") + std::string("\x81\x02", 2) + text_record("pear");
  const EngNote note = NewNote();
  EXPECT_EQ(0, EngItemAppend(note, 0, "Body", 4, BRTYPE_COMPOSITE, body.data(),
                             static_cast<uint32_t>(body.size())));
  EXPECT_EQ(0, EngNoteUpdate(note, 0));
  const uint32_t id = IdOf(note);
  EXPECT_EQ(0, EngNoteClose(note));
  Index();
  EXPECT_EQ(Ids{id}, Find("\"apple cake\""));
  EXPECT_EQ(Ids{id}, Find("cake near pear"));
  EXPECT_EQ(Ids{}, Find("cake paragraph pear"));
}

TEST_P(FullTextSearchTest, Run_RichTextCutAnywhere_NeverBeyond) {
  const std::string whole("\x85\xff\x0c\0\0\0\0\0word\x81\x02\x85\0\x0b\0\0\0odd..\0", 25);
  for (size_t bytes = 0; bytes <= whole.size(); ++bytes) {
    const EngNote note = NewNote();
    EXPECT_EQ(
        0, EngItemAppend(note, 0, "Body", 4, BRTYPE_COMPOSITE, whole.data(), static_cast<uint32_t>(bytes)));
    EXPECT_EQ(0, EngNoteUpdate(note, 0));
    EXPECT_EQ(0, EngNoteClose(note));
  }
  Index();
  EXPECT_EQ(whole.size() - 11, Find("word").size());
}

TEST_P(FullTextSearchTest, Run_SystemItems_AreNotSearched) {
  Put({{"$Hidden", "apple"}});
  Index();
  EXPECT_EQ(Ids{}, Find("apple"));
}

TEST_P(FullTextSearchTest, Run_Stems_WordsOfOneStem) {
  const uint32_t a = Put("He was running"), b = Put("she runs"), c = Put("a runner"), d = Put("run");
  Index();
  EXPECT_EQ((Ids{a, b, d}), Find("run", 0x200));
  EXPECT_EQ((Ids{a, b, d}), Find("RUNNING", 0x200));
  EXPECT_EQ((Ids{d}), Find("run"));
  EXPECT_EQ((Ids{b}), Find("\"she running\"", 0x200));
  EXPECT_EQ((Ids{d}), Find("exactcase run", 0x200));
  EXPECT_EQ((Ids{c}), Find("runners", 0x200));
  EXPECT_EQ((Ids{a}), Find("run near he", 0x200));
}

TEST_P(FullTextSearchTest, Run_Scores_BestHasHundredAndOrderIsTheirs) {
  const uint32_t a = Put("apple pear plum cherry banana grape melon"), b = Put("apple apple apple");
  Put("pear");
  const uint32_t d = Put("apple pear");
  Index();
  const Hits hits = Run("apple", 8);
  EXPECT_EQ((Ids{b, d, a}), hits.ids);
  ASSERT_EQ(3u, hits.scores.size());
  EXPECT_EQ(100, hits.scores[0]);
  EXPECT_GT(100, hits.scores[1]);
  EXPECT_GT(hits.scores[1], hits.scores[2]);
  EXPECT_LT(0, hits.scores[2]);
  EXPECT_EQ((Ids{a, d, b}), Run("apple", 8 | 0x40).ids);
  const Hits plain = Run("apple");
  EXPECT_EQ((Ids{a, b, d}), plain.ids);
  EXPECT_EQ((std::vector<uint8_t>{0, 0, 0}), plain.scores);
  EXPECT_EQ((std::vector<uint8_t>{100}), Run("field Body = pear", 8).scores);
}

TEST_P(FullTextSearchTest, Run_TermWeights_ChangeTheOrder) {
  const uint32_t a = Put("apple"), b = Put("pear");
  Index();
  EXPECT_EQ((Ids{a, b}), Run("termweight 80 apple or termweight 20 pear", 8).ids);
  EXPECT_EQ((Ids{b, a}), Run("termweight 20 apple or termweight 80 pear", 8).ids);
  EXPECT_EQ((std::vector<uint8_t>{100, 25}), Run("termweight 20 apple or termweight 80 pear", 8).scores);
}

TEST_P(FullTextSearchTest, Run_LimitAndDates_KeepTheFirst) {
  const uint32_t a = Put("apple apple"), b = Put("apple"), c = Put("apple pear");
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  Change(a, "apple apple");
  Index();
  EXPECT_EQ((Ids{a, b}), Run("apple", 0x80, 2).ids);
  EXPECT_EQ((Ids{a}), Run("apple", 0x88, 1).ids);
  EXPECT_EQ((Ids{a, b, c}), Run("apple", 0x80, 0).ids);
  EXPECT_EQ((Ids{a, b, c}), Run("apple", 0, 1).ids);
  EXPECT_EQ((Ids{a, b, c}), Run("apple", 0x80, 65535).ids);
  EXPECT_EQ(a, Run("apple", 0x20).ids.front());
  EXPECT_EQ(a, Run("apple", 0x60).ids.back());
  const Hits dated = Run("apple", 0x28);
  EXPECT_EQ(a, dated.ids.front());
  EXPECT_EQ(100, dated.scores.front());
  EXPECT_EQ((Ids{a}), Run("apple", 0xa0, 1).ids);
}

TEST_P(FullTextSearchTest, Run_IdTables_ConfineAndAnswer) {
  const uint32_t a = Put("apple"), b = Put("apple"), c = Put("pear");
  Index();
  EngIdTable table = 0;
  ASSERT_EQ(0, EngIdTableCreate(4, &table));
  EXPECT_EQ(0xf22, Run("apple", 4, 0, table).code);  // an empty one confines to nothing
  for (const uint32_t id : {b, c, 12345u}) EngIdTableInsertId(table, id, nullptr);
  EXPECT_EQ((Ids{b}), Run("apple", 4, 0, table).ids);
  EXPECT_EQ((Ids{b}), Run("apple", 0x14, 0, table).ids);
  EXPECT_EQ((Ids{a, b}), Run("apple", 0x10, 0, table).ids);
  EXPECT_EQ((Ids{a}), Run("apple", 0x90, 1).ids);
  EXPECT_EQ((Ids{c}), Run("not apple", 4, 0, table).ids);
  EXPECT_EQ(status::kBadHandle, Run("apple", 4, 0, 0).code);
  EXPECT_EQ(0, EngIdTableDestroy(table));
  EXPECT_EQ(status::kBadHandle, Run("apple", 4, 0, table).code);
}

TEST_P(FullTextSearchTest, Search_Order_HitsAsInAViewOnceEach) {
  const uint32_t a = Put("apple"), b = Put("apple"), c = Put("apple");
  Index();
  const std::vector<uint32_t> order{c, a, c, 777};
  const fulltext::SearchRequest request{.query = "apple", .order = &order};
  EXPECT_EQ((Ids{c, a}), fulltext::Search(Owner(), request).note_ids);
  EXPECT_NE(b, fulltext::Search(Owner(), request).note_ids.back());
}

TEST_P(FullTextSearchTest, Run_RandomQueries_SameAsAModel) {
  TestRandom random(SeedOfRun());
  std::vector<std::pair<uint32_t, std::set<char>>> model;
  const auto random_text = [&](std::set<char>* letters) {
    std::string text;
    for (uint32_t count = random.Below(6); count > 0; --count) {
      const char letter = static_cast<char>('p' + random.Below(6));
      text += std::string(1, letter) + " ";
      letters->insert(letter);
    }
    return text;
  };
  for (int i = 0; i < 40; ++i) {
    std::set<char> letters;
    const std::string text = random_text(&letters);
    model.emplace_back(Put(text), letters);
  }
  Index();
  struct Made {
    std::string text;
    std::function<bool(const std::set<char>&)> holds;
  };
  const std::function<Made(int)> make = [&](int depth) -> Made {
    const uint32_t kind = depth == 0 ? 0 : random.Below(4);
    if (kind == 0) {
      const char letter = static_cast<char>('p' + random.Below(7));
      return {std::string(1, letter),
              [=](const std::set<char>& letters) { return letters.count(letter) != 0; }};
    }
    const Made left = make(depth - 1);
    if (kind == 1)
      return {"not (" + left.text + ")", [=](const auto& letters) { return !left.holds(letters); }};
    const Made right = make(depth - 1);
    if (kind == 2)
      return {"(" + left.text + ") and (" + right.text + ")",
              [=](const auto& letters) { return left.holds(letters) && right.holds(letters); }};
    return {"(" + left.text + ") or (" + right.text + ")",
            [=](const auto& letters) { return left.holds(letters) || right.holds(letters); }};
  };
  for (int round = 0; round < 150; ++round) {
    if (round % 10 == 0) {
      auto& [id, letters] = model[random.Below(static_cast<uint32_t>(model.size()))];
      letters.clear();
      Change(id, random_text(&letters), 4);
    }
    const Made query = make(4);
    Ids expected;
    for (const auto& [id, letters] : model)
      if (query.holds(letters)) expected.push_back(id);
    EXPECT_EQ(expected, Find(query.text)) << query.text;
  }
}

class FullTextArgumentsTest : public FullTextFixture {};

TEST_F(FullTextArgumentsTest, Run_BadArguments_Statuses) {
  Put("apple");
  EngSearch search = 0;
  ASSERT_EQ(0, EngFullTextSearchOpen(&search));
  uint32_t count = 0;
  EngMem block = 0;
  const auto run = [&](EngDb database, EngSearch* handle, const char* query, uint32_t options,
                       EngMem* results) {
    return EngFullTextSearchRun(database, handle, 0, query, options, 0, 0, &count, nullptr, results);
  };
  EXPECT_EQ(status::kBadHandle, run(0, &search, "apple", 0, &block));
  EXPECT_EQ(status::kBadArgument, run(db_, nullptr, "apple", 0, &block));
  EXPECT_EQ(status::kBadArgument, run(db_, &search, nullptr, 0, &block));
  EXPECT_EQ(status::kBadArgument, run(db_, &search, "apple", 0, nullptr));
  EngSearch wrong = search + 1;
  EXPECT_EQ(status::kBadHandle, run(db_, &wrong, "apple", 0, &block));
  EXPECT_EQ(status::kBadArgument, run(db_, &search, "apple", 2, &block));
  EXPECT_EQ(status::kBadArgument, run(db_, &search, "apple", 0x400, &block));
  EXPECT_EQ(status::kNotAvailable, run(db_, &search, "apple", 1, &block));
  EXPECT_EQ(status::kFullTextQuery, run(db_, &search, "apple and", 0, &block));
  EXPECT_EQ(status::kFullTextQuery, run(db_, &search, "", 0, &block));
  EXPECT_EQ(0xf22, run(db_, &search, "pear", 0, &block));
  EXPECT_EQ(0u, block);
  EXPECT_EQ(0, EngFullTextSearchRun(db_, &search, 0, "apple", 0, 0, 0, nullptr, nullptr, &block));
  EXPECT_EQ(0, EngMemFree(block));
  EXPECT_EQ(0, EngFullTextSearchClose(search));
  EXPECT_EQ(status::kBadHandle, EngFullTextSearchClose(search));
  EXPECT_EQ(status::kBadHandle, run(db_, &search, "apple", 0, &block));
  EXPECT_EQ(0, EngFullTextSearchClose(0));
  EXPECT_EQ(status::kBadArgument, EngFullTextSearchOpen(nullptr));
}

TEST_F(FullTextArgumentsTest, Run_StopWordsAlone_NoHit) {
  const uint32_t id = Put("the apple");
  EXPECT_EQ(Ids{id}, Find("the"));
  ASSERT_EQ(0, Build());
  EXPECT_EQ(Ids{}, Find("the"));
  EXPECT_EQ(Ids{id}, Find("the apple"));
}

}  // namespace
