// Stored indexes: what they are after a killed process, with several handles writing, and when they do not
// hold.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "base/collate.h"
#include "collection/index.h"
#include "engine/collection_view_fixture.h"

namespace {

using namespace brynd;
using namespace brynd::collection;

constexpr ModelView kView{.category_count = 2, .first_descending = true, .responses = true, .total_kind = 1};

class IndexTest : public ViewFixture {
 protected:
  static ModelDocument RandomDocument(TestRandom& random) {
    ModelDocument document;
    document.first = {"c" + std::to_string(random.Below(5)) + "\\d" + std::to_string(random.Below(3))};
    document.second = {"e" + std::to_string(random.Below(4))};
    document.key = std::to_string(random.Below(1000));
    document.number = random.Below(100);
    return document;
  }
  // Adds, changes and deletes documents in this handle.
  void ChangeSome(TestRandom& random, std::vector<uint32_t>* ids, uint32_t count) {
    for (; count != 0; --count) {
      ModelDocument document = RandomDocument(random);
      const uint32_t choice = ids->empty() ? 0 : random.Below(5);
      if (choice >= 2) document.id = (*ids)[random.Below(static_cast<uint32_t>(ids->size()))];
      if (choice == 4) {
        (void)EngNoteDelete(db_, document.id, 4);
        std::erase(*ids, document.id);
        continue;
      }
      const bool is_new = document.id == 0;
      if (is_new && !ids->empty() && random.Below(2) == 0) document.parent = ids->back();
      StoreDocument(&document, random.Below(6) == 0 ? 0 : 4);
      if (is_new) ids->push_back(document.id);
    }
  }
  std::string RowsOf(EngCollection collection) {
    std::string rows;
    for (const ReadRow& row : ReadAll(collection)) rows += Fold(AsModel(row, kView).Text()) + "\n";
    return rows;
  }
  // The index as it is kept, and as it is made anew.
  void ExpectKeptLikeBuilt(uint32_t view) {
    const EngCollection kept = OpenView(view);
    const std::string rows = RowsOf(kept);
    const EngCollection built = OpenView(view, 1);
    ASSERT_EQ(RowsOf(built), rows);
    EXPECT_EQ(0, EngCollectionClose(built));
    EXPECT_EQ(0, EngCollectionClose(kept));
  }
};

TEST_F(IndexTest, BringUpToDate_ProcessKilledAnywhere_KeptLikeBuilt) {
  const uint32_t view = MakeView(ColumnsOf(kView), true);
  EXPECT_EQ(0, EngCollectionClose(OpenView(view)));
  EXPECT_EQ(0, EngDbClose(db_));
  TestRandom random(SeedOfRun());
  uint32_t rows_seen = 0;
  for (int round = 0; round < 12; ++round) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      TestRandom own(SeedOfRun() + static_cast<uint64_t>(round));
      if (EngDbOpen("test", &db_) != 0) _exit(1);
      const EngCollection collection = OpenView(view);
      std::vector<uint32_t> ids;
      for (;;) {
        ChangeSome(own, &ids, 1 + own.Below(6));
        if (EngCollectionUpdate(collection) != 0) _exit(2);
      }
    }
    usleep(20000 + random.Below(90000));
    kill(child, SIGKILL);
    int outcome = 0;
    ASSERT_EQ(child, waitpid(child, &outcome, 0));
    ASSERT_TRUE(WIFSIGNALED(outcome));
    ASSERT_EQ(0, EngDbOpen("test", &db_));
    ASSERT_NO_FATAL_FAILURE(ExpectKeptLikeBuilt(view)) << "round " << round;
    const EngCollection collection = OpenView(view, 2);
    rows_seen += static_cast<uint32_t>(ReadAll(collection).size());
    EXPECT_EQ(0, EngCollectionClose(collection));
    EXPECT_EQ(0, EngDbClose(db_));
  }
  EXPECT_GT(rows_seen, 100u);  // the children did get to work
  ASSERT_EQ(0, EngDbOpen("test", &db_));
}

TEST_F(IndexTest, BringUpToDate_TwoHandlesWriteAndUpdateInTurn_KeptLikeBuilt) {
  const uint32_t view = MakeView(ColumnsOf(kView), true);
  TestRandom random(SeedOfRun());
  EngDb handles[2] = {db_, 0};
  ASSERT_EQ(0, EngDbOpen("test", &handles[1]));
  EngCollection collections[2];
  for (int i = 0; i < 2; ++i) {
    db_ = handles[i];
    collections[i] = OpenView(view);
  }
  std::vector<uint32_t> ids[2];
  for (int round = 0; round < 60; ++round) {
    const uint32_t at = random.Below(2);
    db_ = handles[at];
    ChangeSome(random, &ids[at], 1 + random.Below(10));
    if (random.Below(3) != 0) {
      ASSERT_EQ(0, EngCollectionUpdate(collections[random.Below(2)]));
    }
  }
  for (const EngDb handle : handles) {
    db_ = handle;
    Owner().Store().Flush();  // a handle does not see at once what another wrote lazily
  }
  for (const EngCollection collection : collections) EXPECT_EQ(0, EngCollectionUpdate(collection));
  EXPECT_EQ(RowsOf(collections[0]), RowsOf(collections[1]));
  for (const EngCollection collection : collections) EXPECT_EQ(0, EngCollectionClose(collection));
  db_ = handles[0];
  EXPECT_EQ(0, EngDbClose(handles[1]));
  ExpectKeptLikeBuilt(view);
}

TEST_F(IndexTest, LagOf_HeadsThatDoNotFitTheJournal_NotKnown) {
  ModelDocument document;
  StoreDocument(&document, 0);
  const uint64_t sequence = Owner().Store().Stamp().sequence;
  EXPECT_FALSE(LagOf(Owner(), Head{.sequence = sequence + 1}).known);
  EXPECT_FALSE(LagOf(Owner(), Head{.sequence = sequence, .changes = 1}).known);
  const Lag lag = LagOf(Owner(), Head{.sequence = sequence});
  EXPECT_TRUE(lag.known);
  EXPECT_TRUE(lag.notes.empty());
  EXPECT_EQ(std::vector<uint32_t>{document.id}, LagOf(Owner(), Head{.sequence = sequence - 1}).notes);
}

// An index whose head tells another collation or design is built anew, and its former nodes go.
TEST_F(IndexTest, Look_OtherCollationVersion_BuiltAnewWithoutOldNodes) {
  ModelDocument document;
  StoreDocument(&document, 0);
  const uint32_t view = MakeView(ColumnsOf({}));
  EXPECT_EQ(0, EngCollectionClose(OpenView(view)));
  const std::string key = HeadKey(0, view);
  std::optional<Head> head = ReadHead(Owner(), key);
  ASSERT_TRUE(head);
  head->collation ^= 1;
  {
    DatabaseWrite write(Owner());
    PutHead(write.Records(), key, *head);
    write.Commit(store::Durability::kDurable);
  }
  const EngCollection collection = OpenView(view);
  EXPECT_EQ(1u, ReadAll(collection).size());
  EXPECT_EQ(CollationVersion(), ReadHead(Owner(), key)->collation);
  uint32_t nodes = 0;
  Owner().Store().ScanRecords(kNodeSpace, {}, std::nullopt, [&](Bytes, Bytes) { return ++nodes != 0; });
  EXPECT_EQ(2u, nodes);
  EXPECT_EQ(0, EngCollectionClose(collection));
}

}  // namespace
