// The word index of the store: tokens in, documents out; its place among writes, compaction and damage.
#include <sqlite3.h>

#include <optional>

#include "base/boundary.h"
#include "store/fulltext.h"
#include "store_fixture.h"

namespace {

using namespace brynd;
using store::Posting;
using store::TokenPhrase;
using store::TokenQuery;

class WordIndexTest : public testing::Test {
 protected:
  void SetUp() override { database_ = store::Create(Path("words.db")); }
  std::string Path(std::string_view name) const { return folder_.File(name); }
  void Make() {
    store::Write write = database_->BeginWrite();
    database_->Words().Make();
    write.Commit(store::Durability::kDurable);
  }
  void Add(std::initializer_list<std::pair<uint32_t, const char*>> documents) {
    store::Write write = database_->BeginWrite();
    for (const auto& [document, tokens] : documents) database_->Words().Add(document, tokens);
    write.Commit(store::Durability::kDurable);
  }
  std::vector<std::pair<uint32_t, uint32_t>> Find(const TokenQuery& query) {
    std::vector<Posting> postings;
    database_->Words().Find(query, &postings);
    std::vector<std::pair<uint32_t, uint32_t>> found;
    for (const Posting& posting : postings) found.emplace_back(posting.document, posting.count);
    return found;
  }
  std::vector<std::pair<uint32_t, uint32_t>> Word(const char* token) { return Find({{{{token}, false}}, 0}); }
  store_test::Folder folder_;
  std::unique_ptr<store::Database> database_;
};

using Hits = std::vector<std::pair<uint32_t, uint32_t>>;

TEST_F(WordIndexTest, Find_Word_EachDocumentWithItsCount) {
  Make();
  Add({{1, "red green red"}, {2, "blue"}, {7, "green\tGreen red"}});
  EXPECT_EQ((Hits{{1, 2}, {7, 1}}), Word("red"));
  EXPECT_EQ((Hits{{7, 1}}), Word("Green"));
  EXPECT_EQ(Hits{}, Word("black"));
}

TEST_F(WordIndexTest, Find_Phrase_TokensOfOnePositionStandForOneAnother) {
  Make();
  Add({{1, "a b\tB c"}, {2, "a c b"}});
  EXPECT_EQ((Hits{{1, 1}}), Find({{{{"a", "B", "c"}, false}}, 0}));
  EXPECT_EQ((Hits{{1, 1}}), Find({{{{"b", "c"}, false}}, 0}));
  EXPECT_EQ(Hits{}, Find({{{{"b", "B"}, false}}, 0}));
}

TEST_F(WordIndexTest, Find_Prefix_AllTokensThatBeginSo) {
  Make();
  Add({{1, "econ economy"}, {2, "ecology"}, {3, "ec"}});
  EXPECT_EQ((Hits{{1, 2}, {2, 1}}), Find({{{{"eco"}, true}}, 0}));
}

TEST_F(WordIndexTest, Find_Near_GapAtTheLimitAndAbove) {
  Make();
  Add({{1, "a x x b"}, {2, "b x x x a"}, {3, "b x x a"}});
  EXPECT_EQ(2u, Find({{{{"a"}, false}, {{"b"}, false}}, 2}).size());
  EXPECT_EQ(3u, Find({{{{"a"}, false}, {{"b"}, false}}, 3}).size());
}

TEST_F(WordIndexTest, Find_TokensThatLookLikeQueries_AreTokens) {
  Make();
  Add({{1, "a\"b OR NEAR( words:x ^a -"}});
  for (const char* token : {"a\"b", "OR", "NEAR(", "words:x", "^a", "-"})
    EXPECT_EQ((Hits{{1, 1}}), Word(token)) << token;
  EXPECT_EQ(Hits{}, Word("a"));
}

TEST_F(WordIndexTest, Find_NoPhrase_NothingAndEmptyPhraseBadArgument) {
  Make();
  EXPECT_EQ(Hits{}, Find({}));
  EXPECT_EQ(status::kBadArgument, AtBoundary([&] { Find({{{}}, 0}); }));
}

TEST_F(WordIndexTest, Tokens_Prefix_InOrderUntilStopped) {
  Make();
  Add({{1, "b abc ab"}, {2, "ab ac a"}});
  std::vector<std::string> seen;
  database_->Words().Tokens("ab", [&](std::string_view token) {
    seen.emplace_back(token);
    return true;
  });
  EXPECT_EQ((std::vector<std::string>{"ab", "abc"}), seen);
  seen.clear();
  database_->Words().Tokens("", [&](std::string_view token) {
    seen.emplace_back(token);
    return seen.size() < 2;
  });
  EXPECT_EQ((std::vector<std::string>{"a", "ab"}), seen);
}

TEST_F(WordIndexTest, Make_Abandoned_NoIndex) {
  {
    store::Write write = database_->BeginWrite();
    database_->Words().Make();
    database_->Words().Add(1, "red");
    EXPECT_TRUE(database_->Words().Exists());
  }
  EXPECT_FALSE(database_->Words().Exists());
  EXPECT_EQ(status::kDamaged, AtBoundary([&] { Word("red"); }));
}

TEST_F(WordIndexTest, Add_AbandonedBehindALazyWrite_OnlyThatIsGone) {
  Make();
  {
    store::Write write = database_->BeginWrite();
    write.PutNote(1, BytesOf("note"));
    write.Commit(store::Durability::kLazy);
  }
  {
    store::Write write = database_->BeginWrite();
    database_->Words().Add(1, "kept");
    write.Commit(store::Durability::kLazy);
  }
  {
    store::Write write = database_->BeginWrite();
    database_->Words().Add(2, "gone kept");
    EXPECT_EQ(1u, Word("gone").size());
  }
  EXPECT_EQ(Hits{}, Word("gone"));
  EXPECT_EQ((Hits{{1, 1}}), Word("kept"));
  database_->Flush();
  const auto other = store::Open(Path("words.db"));
  std::vector<Posting> postings;
  other->Words().Find({{{{"kept"}, false}}, 0}, &postings);
  EXPECT_EQ(1u, postings.size());
}

TEST_F(WordIndexTest, Make_AfterDropAbandoned_FormerIndexStands) {
  Make();
  Add({{1, "red"}});
  {
    store::Write write = database_->BeginWrite();
    database_->Words().Add(2, "red");
    database_->Words().Drop();
    database_->Words().Make();
    database_->Words().Add(1, "blue");
    write.PutNote(1, BytesOf("note"));
  }
  EXPECT_EQ((Hits{{1, 1}}), Word("red"));
  Add({{2, "red"}});
  EXPECT_EQ((Hits{{1, 1}, {2, 1}}), Word("red"));
  EXPECT_EQ(0u, database_->CountNotes());
}

TEST_F(WordIndexTest, Make_LazyWritesWait_BusyAndTheyStay) {
  store::Write lazy = database_->BeginWrite();
  lazy.PutNote(1, BytesOf("note"));
  lazy.Commit(store::Durability::kLazy);
  EXPECT_EQ(status::kBusy, AtBoundary([&] { Make(); }));
  database_->Flush();
  Make();
  EXPECT_EQ(1u, database_->CountNotes());
}

TEST_F(WordIndexTest, Change_OutsideAWrite_Internal) {
  EXPECT_EQ(status::kInternal, AtBoundary([&] { database_->Words().Make(); }));
  Make();
  EXPECT_EQ(status::kInternal, AtBoundary([&] { database_->Words().Add(1, "a"); }));
  EXPECT_EQ(status::kInternal, AtBoundary([&] { database_->Words().Drop(); }));
}

TEST_F(WordIndexTest, Make_Twice_Internal) {
  Make();
  EXPECT_EQ(status::kInternal, AtBoundary([&] { Make(); }));
}

TEST_F(WordIndexTest, Drop_FileOpensAgainWithout) {
  Make();
  Add({{1, "red"}});
  {
    store::Write write = database_->BeginWrite();
    database_->Words().Drop();
    database_->Words().Drop();
    write.Commit(store::Durability::kDurable);
  }
  EXPECT_FALSE(database_->Words().Exists());
  database_->Close();
  database_ = store::Open(Path("words.db"));
  EXPECT_FALSE(database_->Words().Exists());
  Make();
  EXPECT_EQ(Hits{}, Word("red"));
}

TEST_F(WordIndexTest, Open_AfterCompactAndCopy_IndexAnswers) {
  Make();
  Add({{1, "red"}, {2, "red blue"}});
  database_->Compact();
  EXPECT_EQ(2u, Word("red").size());
  database_->Close();
  database_ = store::Open(Path("words.db"));
  EXPECT_EQ((Hits{{2, 1}}), Word("blue"));
  store::Copy(Path("words.db"), Path("copy.db"));
  const auto copy = store::Open(Path("copy.db"));
  std::vector<Posting> postings;
  copy->Words().Find({{{{"red"}, false}}, 0}, &postings);
  EXPECT_EQ(2u, postings.size());
}

class DamagedWordsTest : public WordIndexTest {
 protected:
  // What an enemy does to the closed file with a tool of his own.
  void Tamper(const std::string& statements) {
    if (database_ != nullptr) database_->Close();
    database_.reset();
    sqlite3* raw = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(Path("words.db").c_str(), &raw));
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(raw, statements.c_str(), nullptr, nullptr, nullptr))
        << sqlite3_errmsg(raw);
    sqlite3_close(raw);
  }
  EngStatus OpenStatus() {
    return AtBoundary([&] { database_ = store::Open(Path("words.db")); });
  }
};

TEST_F(DamagedWordsTest, Open_TablesOfAnIndexMissingOrOther_Damaged) {
  Make();
  Tamper("PRAGMA writable_schema=ON; DELETE FROM sqlite_schema WHERE name='words_config'");
  EXPECT_EQ(status::kDamaged, OpenStatus());
}

TEST_F(DamagedWordsTest, Open_IndexWithAnotherTokenizer_Damaged) {
  Make();
  Tamper(
      "PRAGMA writable_schema=ON; UPDATE sqlite_schema SET sql=replace(sql,'''tokens''','porter') WHERE "
      "name='words'");
  EXPECT_EQ(status::kDamaged, OpenStatus());
}

// Every block of the index in turn: missing, empty, cut in half, filled with one byte.
TEST_F(DamagedWordsTest, Find_DamagedBlocks_StatusOrLessFound) {
  Make();
  std::string long_text = "red";
  for (int i = 0; i < 3000; ++i) long_text += " w" + std::to_string(i);
  Add({{1, long_text.c_str()}, {2, "red blue"}});
  const std::string file = Path("words.db"), whole = Path("whole.db");
  database_->Close();
  database_.reset();
  std::filesystem::copy_file(file, whole);
  uint32_t refused_count = 0;
  for (int block = 0; block < 8; ++block) {
    const std::string where =
        " WHERE id=(SELECT id FROM words_data ORDER BY id LIMIT 1 OFFSET " + std::to_string(block) + ")";
    for (const std::string& change : std::initializer_list<std::string>{
             "DELETE FROM words_data" + where, "UPDATE words_data SET block=x''" + where,
             "UPDATE words_data SET block=substr(block,1,length(block)/2)" + where,
             "UPDATE words_data SET block=replace(hex(zeroblob(length(block)/2)),'0',x'ff')" + where,
             "UPDATE words_data SET block=7" + where}) {
      std::filesystem::copy_file(whole, file, std::filesystem::copy_options::overwrite_existing);
      Tamper(change);
      ASSERT_EQ(status::kOk, OpenStatus());
      const EngStatus code = AtBoundary([&] {
        Word("red");
        Find({{{{"w1"}, true}}, 0});
        Find({{{{"red"}, false}, {{"w1"}, false}}, 5});
        database_->Words().Tokens("", [](std::string_view) { return true; });
      });
      EXPECT_TRUE(code == status::kOk || code == status::kDamaged) << code << " " << change;
      if (code != status::kOk) ++refused_count;
    }
  }
  EXPECT_LT(3u, refused_count);
}

}  // namespace
