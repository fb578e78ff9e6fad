// The full-text index: building, keeping it up to date, taking it away; what is left when it is damaged.
#include "base/boundary.h"
#include "fulltext/index.h"
#include "fulltext_fixture.h"
#include "note/spaces.h"
#include "store/fulltext.h"

namespace {

using namespace brynd;
using Ids = std::vector<uint32_t>;

class FullTextIndexTest : public FullTextFixture {
 protected:
  std::shared_ptr<const fulltext::IndexState> State() { return fulltext::LoadState(Owner()); }
  void PutRecord(store::Space space, std::string_view key, Bytes value) {
    DatabaseWrite write(Owner());
    write.Records().PutRecord(space, BytesOf(key), value);
    write.Commit(store::Durability::kDurable);
  }
};

TEST_F(FullTextIndexTest, EngFullTextIndexBuild_Notes_Counted) {
  Put("red apple");
  Put("green pear");
  FT_INDEX_STATS stats{};
  ASSERT_EQ(0, Build(0, &stats));
  EXPECT_EQ(2u, stats.DocsAdded);
  EXPECT_EQ(0u, stats.DocsUpdated);
  EXPECT_EQ(0u, stats.DocsDeleted);
  EXPECT_EQ(19u, stats.BytesIndexed);
  EXPECT_EQ(2u, State()->live_count);
  EXPECT_EQ(4u, State()->word_total);
}

TEST_F(FullTextIndexTest, EngFullTextIndexBuild_Again_TakesChangesAlone) {
  const uint32_t first = Put("red apple"), second = Put("green pear");
  Put("blue plum");
  ASSERT_EQ(0, Build());
  Change(first, "yellow banana");
  ASSERT_EQ(0, EngNoteDelete(db_, second, 0));
  Put("black cherry");
  FT_INDEX_STATS stats{};
  ASSERT_EQ(0, Build(0, &stats));
  EXPECT_EQ(1u, stats.DocsAdded);
  EXPECT_EQ(1u, stats.DocsUpdated);
  EXPECT_EQ(1u, stats.DocsDeleted);
  EXPECT_EQ(12u + 13u, stats.BytesIndexed);
  EXPECT_EQ(3u, State()->live_count);
  ASSERT_EQ(0, Build(0x40, &stats));
  EXPECT_EQ(3u, stats.DocsAdded);
  EXPECT_EQ(0u, stats.DocsUpdated);
  EXPECT_EQ(4u, State()->rows.size());
}

TEST_F(FullTextIndexTest, EngFullTextIndexBuild_BadArguments_Statuses) {
  EXPECT_EQ(status::kBadHandle, EngFullTextIndexBuild(0, 0, nullptr, nullptr));
  EXPECT_EQ(status::kBadArgument, Build(1));
  EXPECT_EQ(status::kBadArgument, Build(0x200));
  EXPECT_EQ(status::kNotAvailable, Build(2));
  EXPECT_EQ(status::kNoFile, EngFullTextIndexBuild(db_, 0, "no such file", nullptr));
  TIMEDATE time;
  EXPECT_EQ(status::kFullTextNoIndex, EngFullTextIndexTimeGet(db_, &time));
}

TEST_F(FullTextIndexTest, EngFullTextIndexTimeGet_WithAndWithout_TimeOrStatus) {
  TIMEDATE time{};
  EXPECT_EQ(0xf02, EngFullTextIndexTimeGet(db_, &time));
  EXPECT_EQ(status::kBadHandle, EngFullTextIndexTimeGet(0, &time));
  EXPECT_EQ(status::kBadArgument, EngFullTextIndexTimeGet(db_, nullptr));
  const TIMEDATE before = Process().clock->Now();
  ASSERT_EQ(0, Build());
  ASSERT_EQ(0, EngFullTextIndexTimeGet(db_, &time));
  EXPECT_LE(before.Innards[0], time.Innards[0]);
  EXPECT_EQ(before.Innards[1], time.Innards[1]);
}

TEST_F(FullTextIndexTest, EngFullTextIndexDelete_Index_GoneAndSearchesScan) {
  EXPECT_EQ(0xf02, EngFullTextIndexDelete(db_));
  EXPECT_EQ(status::kBadHandle, EngFullTextIndexDelete(0));
  const uint32_t id = Put("red apple");
  ASSERT_EQ(0, Build());
  ASSERT_EQ(0, EngFullTextIndexDelete(db_));
  TIMEDATE time;
  EXPECT_EQ(0xf02, EngFullTextIndexTimeGet(db_, &time));
  EXPECT_EQ(Ids{id}, Find("apple"));
  ASSERT_EQ(0, Build());
  EXPECT_EQ(Ids{id}, Find("apple"));
}

// Every change is found by the very next search, made durably or not.
TEST_F(FullTextIndexTest, Search_AfterChanges_SeesThem) {
  const uint32_t id = Put("red apple");
  ASSERT_EQ(0, Build());
  for (const uint16_t word : {uint16_t{0}, uint16_t{4}}) {
    Change(id, "green pear", word);
    EXPECT_EQ(Ids{}, Find("apple"));
    EXPECT_EQ(Ids{id}, Find("pear"));
    Change(id, "red apple", word);
    EXPECT_EQ(Ids{}, Find("pear"));
    EXPECT_EQ(Ids{id}, Find("apple"));
  }
  const uint32_t other = Put({{"Body", "apple"}}, 4);
  EXPECT_EQ((Ids{id, other}), Find("apple"));
  ASSERT_EQ(0, EngNoteDelete(db_, id, 4));
  EXPECT_EQ(Ids{other}, Find("apple"));
}

TEST_F(FullTextIndexTest, Search_LazyChangesAndSearchesInTurn_IndexedOnce) {
  Put("word");
  ASSERT_EQ(0, Build());
  for (int i = 0; i < 20; ++i) {
    Put({{"Body", "word"}}, 4);
    EXPECT_EQ(static_cast<size_t>(i) + 2, Find("word").size());
  }
  EXPECT_EQ(22u, State()->rows.size());
}

TEST_F(FullTextIndexTest, Search_OtherHandleChanged_SeesIt) {
  const uint32_t id = Put("red apple");
  ASSERT_EQ(0, Build());
  EngDb other = 0;
  ASSERT_EQ(0, EngDbOpen("test", &other));
  EXPECT_EQ(Ids{id}, RunIn(other, "apple").ids);
  Change(id, "green pear");
  EXPECT_EQ(Ids{id}, RunIn(other, "pear").ids);
  EXPECT_EQ(Ids{id}, Find("pear"));
  ASSERT_EQ(0, EngFullTextIndexDelete(other));
  EXPECT_EQ(Ids{id}, Find("pear"));
  ASSERT_EQ(0, EngDbClose(other));
}

// Who cannot write cannot bring the index up to date, and searches the notes themselves.
TEST_F(FullTextIndexTest, Search_ReadOnlyAndBehind_SameHits) {
  const uint32_t first = Put("red apple");
  ASSERT_EQ(0, Build());
  const auto reader = Database::OpenFile(Owner().FilePath(), "test", {.read_only = true});
  const auto found = [&] { return fulltext::Search(*reader, {.query = "apple"}).note_ids; };
  EXPECT_EQ(Ids{first}, found());
  EXPECT_NE(nullptr, fulltext::FreshState(*reader));
  const uint32_t second = Put("green apple");
  EXPECT_EQ((Ids{first, second}), found());
  EXPECT_EQ(nullptr, fulltext::FreshState(*reader));
  EXPECT_EQ((Ids{first, second}), Find("apple"));
  Owner().Store().Flush();
  EXPECT_EQ((Ids{first, second}), found());
  EXPECT_NE(nullptr, fulltext::FreshState(*reader));
  reader->Close();
}

TEST_F(FullTextIndexTest, Search_DesignNotes_AreNoHits) {
  const EngNote note = NewNote();
  uint16_t note_class = 4;
  ASSERT_EQ(0, EngNoteInfoSet(note, 3, &note_class));
  ASSERT_EQ(0, AppendText(note, "Body", "apple"));
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  ASSERT_EQ(0, EngNoteClose(note));
  EXPECT_EQ(Ids{}, Find("apple"));
  ASSERT_EQ(0, Build());
  EXPECT_EQ(Ids{}, Find("apple"));
}

TEST_F(FullTextIndexTest, Search_MoreDeadThanAliveAndKept_BuiltAnew) {
  const uint32_t id = Put("word");
  ASSERT_EQ(0, Build());
  const size_t rows_before = State()->rows.size();
  for (uint32_t i = 0; i <= fulltext::kDeadDocumentsKept; ++i) {
    Change(id, "word " + std::to_string(i), 4);
    ASSERT_NE(nullptr, fulltext::FreshState(Owner()));
  }
  EXPECT_EQ(rows_before + fulltext::kDeadDocumentsKept + 1, State()->rows.size());
  Change(id, "word at last", 4);
  EXPECT_EQ(Ids{id}, Find("last"));
  EXPECT_EQ(rows_before + fulltext::kDeadDocumentsKept + 2, State()->rows.size());
  EXPECT_EQ(Ids{id}, Find("last"));
  EXPECT_EQ(2u, State()->rows.size());
  EXPECT_EQ(1u, State()->live_count);
}

TEST_F(FullTextIndexTest, Build_StopWords_FromFileOrUsualOrNone) {
  const uint32_t id = Put("the apple pie");
  const std::string path = folder_ + "/stop.txt";
  Process().files->Replace(path, "apple\n; pie\n");
  ASSERT_EQ(0, EngFullTextIndexBuild(db_, 0, path.c_str(), nullptr));
  EXPECT_EQ(Ids{}, Find("apple"));
  EXPECT_EQ(Ids{id}, Find("the"));
  EXPECT_EQ(Ids{id}, Find("pie"));
  EXPECT_EQ(Ids{id}, Find("\"the pie\""));
  ASSERT_EQ(0, EngFullTextIndexBuild(db_, 0x80, nullptr, nullptr));  // as it is
  EXPECT_EQ(Ids{}, Find("apple"));
  ASSERT_EQ(0, Build());
  EXPECT_EQ(Ids{id}, Find("apple"));
  EXPECT_EQ(Ids{}, Find("the"));
  ASSERT_EQ(0, Build(0x10));
  EXPECT_EQ(Ids{id}, Find("the"));
}

TEST_F(FullTextIndexTest, Build_LongValuesAndLists_AreFound) {
  std::string text;
  for (int i = 0; i < 5000; ++i) text += "filler" + std::to_string(i) + " ";
  const uint32_t id = Put(text + "needle");
  ASSERT_EQ(0, Build());
  EXPECT_EQ(Ids{id}, Find("needle"));
  EXPECT_EQ(Ids{id}, Find("filler4999"));
  EXPECT_EQ(Ids{id}, Find("\"filler4999 needle\""));
}

TEST_F(FullTextIndexTest, Open_Again_IndexAnswersAndCompactKeepsIt) {
  const uint32_t id = Put("red apple");
  ASSERT_EQ(0, Build());
  Reopen();
  EXPECT_EQ(Ids{id}, Find("apple"));
  ASSERT_EQ(0, EngDbClose(db_));
  DBCOMPACTSIZES sizes;
  ASSERT_EQ(0, EngDbCompact("test", 0, &sizes));
  ASSERT_EQ(0, EngDbOpen("test", &db_));
  EXPECT_EQ(Ids{id}, Find("apple"));
  EXPECT_EQ(2u, State()->rows.size());
}

// --- damage

TEST_F(FullTextIndexTest, LoadState_RecordsThatDoNotFit_DamagedUntilBuiltAnew) {
  const uint32_t id = Put("red apple");
  const std::string chunk_key(4, '\0');
  for (int damage = 0; damage < 5; ++damage) {
    ASSERT_EQ(0, Build(0x40)) << damage;
    ASSERT_EQ(Ids{id}, Find("apple"));
    std::vector<std::byte> chunk;
    Owner().Store().ReadRecord(space::kFullText, BytesOf(chunk_key),
                               [&](Bytes value) { chunk.assign(value.begin(), value.end()); });
    ASSERT_EQ(8u + 2 * 12, chunk.size());
    DatabaseWrite write(Owner());
    if (damage == 0) chunk[21] ^= std::byte{1};
    if (damage == 1) chunk.resize(20);
    if (damage == 2) chunk.clear();
    if (damage <= 2) write.Records().PutRecord(space::kFullText, BytesOf(chunk_key), chunk);
    if (damage == 3) write.Records().RemoveRange(space::kFullText, {}, std::nullopt);
    if (damage == 4) Owner().Store().Words().Drop();
    write.Commit(store::Durability::kDurable);
    Owner().KeptFullText().Set(nullptr);
    EXPECT_EQ(status::kDamaged, Run("apple").code) << damage;
    EXPECT_EQ(status::kDamaged, Build()) << damage;
  }
  ASSERT_EQ(0, Build(0x40));
  EXPECT_EQ(Ids{id}, Find("apple"));
}

TEST_F(FullTextIndexTest, LoadState_AnyFact_StateOrDamaged) {
  const uint32_t id = Put("red apple");
  constexpr size_t kHeadBytes = 48;
  uint32_t damaged_count = 0;
  for (size_t at = 0; at < kHeadBytes; ++at) {
    for (const std::byte change : {std::byte{0xff}, std::byte{1}}) {
      ASSERT_EQ(0, Build(0x40));
      std::vector<std::byte> fact = State()->fact;
      fact[at] ^= change;
      DatabaseWrite write(Owner());
      Database::PutFact(write, "fulltext", fact);
      write.Commit(store::Durability::kLazy);
      const EngStatus code = Run("apple").code;
      EXPECT_TRUE(code == 0 || code == status::kDamaged || code == 0xf22) << at << ": " << code;
      if (code == status::kDamaged) ++damaged_count;
    }
  }
  EXPECT_LE(2u * (4 + 4 + 8), damaged_count);  // documents, living ones, words
  ASSERT_EQ(0, Build(0x40));
  const std::vector<std::byte> fact = State()->fact;
  for (size_t bytes = 0; bytes < kHeadBytes; ++bytes) {
    DatabaseWrite write(Owner());
    Database::PutFact(write, "fulltext", Bytes(fact).first(bytes));
    write.Commit(store::Durability::kLazy);
    EXPECT_EQ(status::kDamaged, Run("apple").code) << bytes;
    TIMEDATE time;
    EXPECT_EQ(status::kDamaged, EngFullTextIndexTimeGet(db_, &time));
  }
  ASSERT_EQ(0, Build(0x40));
  EXPECT_EQ(Ids{id}, Find("apple"));
}

// Words that point at documents the rows do not have.
TEST_F(FullTextIndexTest, Search_WordsBeyondTheRows_Damaged) {
  Put("red apple");
  ASSERT_EQ(0, Build());
  for (const uint32_t document : {2u, 0xffffffffu}) {
    DatabaseWrite write(Owner());
    Owner().Store().Words().Add(document, "strange");
    write.Commit(store::Durability::kDurable);
    EXPECT_EQ(status::kDamaged, Run("strange").code);
  }
}

}  // namespace
