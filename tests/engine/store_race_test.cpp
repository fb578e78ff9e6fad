// Two known ways in which committed data was lost, and two connections that change places at every lock and
// sync.
#include <fcntl.h>
#include <sqlite3.h>

#include <csignal>
#include <thread>
#include <vector>

#include "engine/store_fixture.h"
#include "store/sqlite/shared_file.h"

namespace store_test {

namespace store = brynd::store;

namespace {

// A connection as another program would have it, which gives up at once when it cannot write.
class PlainConnection {
 public:
  explicit PlainConnection(const std::string& path) {
    sqlite3_open_v2(path.c_str(), &database_, SQLITE_OPEN_READWRITE, vfs_shim::Name());
    Run("PRAGMA wal_autocheckpoint=0");
    Run("PRAGMA synchronous=FULL");
  }
  PlainConnection(const PlainConnection&) = delete;
  PlainConnection& operator=(const PlainConnection&) = delete;
  ~PlainConnection() { sqlite3_close(database_); }

  int Run(const char* text) { return sqlite3_exec(database_, text, nullptr, nullptr, nullptr); }

  // Adds a row of 300 bytes; says whether it is there.
  bool AddRow() {
    const std::string text = "INSERT INTO record VALUES(7,'" + std::to_string(rows_) + "',randomblob(300))";
    if (Run(text.c_str()) != SQLITE_OK) return false;
    ++rows_;
    return true;
  }

  int RowCount() {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(database_, "SELECT count(*) FROM record WHERE space=7", -1, &statement, nullptr);
    const int count = sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int(statement, 0) : -1;
    sqlite3_finalize(statement);
    return count;
  }

  void Checkpoint() {
    sqlite3_wal_checkpoint_v2(database_, nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
  }

 private:
  sqlite3* database_ = nullptr;
  int rows_ = 0;
};

// Waits for the moment in which a checkpoint has read the head of the log and has not copied yet, then runs a
// body, once.
void InTheWindow(const std::function<void()>& body) {
  auto done = std::make_shared<bool>(false);
  vfs_shim::SetHook([=](const vfs_shim::Event& event) {
    if (*done || event.operation != vfs_shim::Operation::kUnfetch || !event.null_page) return;
    *done = true;
    body();
  });
}

}  // namespace

class StoreRaceTest : public StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    Create(path_)->Close();
  }

  struct Outcome {
    bool window_reached = false, committed_in_window = false;
    int committed = 0, seen_before_close = 0, seen_after = 0;
  };

  // The schedule that loses commits when a checkpoint does not hold the writer lock. Without guard: SQLite's
  // bare checkpoint.
  Outcome RunSchedule(bool guarded) {
    Outcome outcome;
    {
      auto file = store::SharedFile::Of(path_, vfs_shim::Name());
      store::Connection guard(path_, {.vfs = vfs_shim::Name()});
      PlainConnection bare(path_), other(path_);
      const auto checkpoint = [&] {
        if (guarded)
          file->Checkpoint(guard, 0, true);
        else
          bare.Checkpoint();
      };
      PlainConnection third(path_);
      checkpoint();  // so that the connection that will do it later knows the log as it is now
      third.RowCount();
      for (int row = 0; row < 30; ++row) outcome.committed += other.AddRow() ? 1 : 0;
      third.Checkpoint();  // whole: the next commit begins the log anew
      InTheWindow([&] {
        outcome.window_reached = true;
        outcome.committed_in_window = other.AddRow();
        outcome.committed += outcome.committed_in_window ? 1 : 0;
      });
      checkpoint();
      vfs_shim::SetHook({});
      for (int row = 0; row < 60; ++row) outcome.committed += other.AddRow() ? 1 : 0;
      third.Checkpoint();
      outcome.seen_before_close = other.RowCount();
    }
    outcome.seen_after = PlainConnection(path_).RowCount();
    return outcome;
  }
};

TEST_F(StoreRaceTest, GuardedCheckpoint_CommitInTheWindow_IsRefusedAndNothingIsLost) {
  const Outcome outcome = RunSchedule(true);
  EXPECT_TRUE(outcome.window_reached);
  EXPECT_FALSE(outcome.committed_in_window);
  EXPECT_EQ(outcome.committed, 90);
  EXPECT_EQ(outcome.seen_before_close, outcome.committed);
  EXPECT_EQ(outcome.seen_after, outcome.committed);
}

TEST_F(StoreRaceTest, BareCheckpoint_CommitInTheWindow_IsLetIn) {
  const Outcome outcome = RunSchedule(false);  // so the test above does reach the window it closes
  EXPECT_TRUE(outcome.window_reached);
  EXPECT_TRUE(outcome.committed_in_window);
  std::printf("SQLite %s, bare checkpoints: %d committed, %d there after reopening\n", sqlite3_libversion(),
              outcome.committed, outcome.seen_after);
}

// One process works on a file and meanwhile does something that might open and close it; another process
// opens and closes the database; the first goes on with durable commits and dies. Says how many of its 50 are
// there.
int CommitsLeftAfter(const std::string& path, const std::function<void()>& meanwhile) {
  int to_parent[2], to_child[2];
  if (pipe(to_parent) + pipe(to_child) != 0) return -1;
  char byte = 'x';
  const pid_t first = StartChild([&] {
    auto database = Open(path);
    Put(*database, 1, "first", Durability::kDurable);
    meanwhile();
    if (write(to_parent[1], &byte, 1) != 1 || read(to_child[0], &byte, 1) != 1) _exit(1);
    for (NoteId note_id = 101; note_id <= 150; ++note_id) {
      StatusOf([&] { Put(*database, note_id, "durable", Durability::kDurable); });
    }
    kill(getpid(), SIGKILL);
  });
  EXPECT_EQ(read(to_parent[0], &byte, 1), 1);
  const pid_t second = StartChild([&] { Open(path)->Close(); });
  EXPECT_EQ(EndOf(second), 0);
  EXPECT_EQ(write(to_child[1], &byte, 1), 1);
  EXPECT_TRUE(WIFSIGNALED(EndOf(first)));
  for (const int descriptor : {to_parent[0], to_parent[1], to_child[0], to_child[1]}) close(descriptor);
  int count = 0;
  Open(path)->ScanNotes(101, [&](NoteId, Bytes) { return ++count != 0; });
  return count;
}

TEST_F(StoreRaceTest, StrayOpen_EverythingTheStoreOffersForFiles_KeepsTheLocks) {
  EXPECT_EQ(CommitsLeftAfter(path_,
                             [&] {
                               EXPECT_TRUE(store::Exists(path_));
                               EXPECT_TRUE(store::Inspect(path_).is_database);
                               Open(path_)->Close();
                               Open(path_, {.read_only = true})->Close();
                               store::Copy(path_, path_ + ".copy");
                               StatusOf([&] { Create(path_); });
                               StatusOf([&] { Create(path_, {.overwrite = true}); });
                               StatusOf([&] { store::Remove(path_); });
                               StatusOf([&] { store::Copy(path_ + ".copy", path_, {.overwrite = true}); });
                             }),
            50);
}

TEST_F(StoreRaceTest, StrayOpen_PastTheStore_LosesCommits) {
  EXPECT_LT(CommitsLeftAfter(path_, [&] { close(open(path_.c_str(), O_RDONLY)); }),
            50);  // what the rule is for
}

// --- changing places
// -------------------------------------------------------------------------------------------------

// Two records whose numbers always add up to 1000, however transactions are cut into each other.
class Accounts {
 public:
  static void Move(Database& database, int amount, Durability durability = Durability::kDurable) {
    Write write = database.BeginWrite();
    const int left = std::atoi(Record(database, 1, "left").c_str());
    write.PutRecord(1, BytesOf("left"), BytesOf(std::to_string(left - amount)));
    write.PutRecord(1, BytesOf("right"), BytesOf(std::to_string(1000 - left + amount)));
    write.Commit(durability);
  }
  static int Left(Database& database) {
    const Database::Hold hold(database);
    const int left = std::atoi(Record(database, 1, "left").c_str());
    EXPECT_EQ(left + std::atoi(Record(database, 1, "right").c_str()), 1000);
    return left;
  }
};

TEST_F(StoreRaceTest, Interleaved_SecondHandleActsAtEachLockAndSync_BothStayWhole) {
  uint64_t switches = 0, moves = 0;
  for (uint64_t nth = 1;; ++nth) {
    auto first = Open(path_, {.vfs = vfs_shim::Name()});
    auto second = Open(path_, {.busy_timeout_ms = 1, .vfs = vfs_shim::Name()});
    {
      Write write = first->BeginWrite();
      write.PutRecord(1, BytesOf("left"), BytesOf("500"));
      write.PutRecord(1, BytesOf("right"), BytesOf("500"));
      write.Commit(Durability::kDurable);
    }
    int expected = 500;
    uint64_t events = 0;
    bool acted = false;
    const auto self = std::this_thread::get_id();
    vfs_shim::SetHook([&](const vfs_shim::Event& event) {
      // Not before an unlocking: who has to wait for that lock waits for this very thread.
      if (event.operation == vfs_shim::Operation::kShmUnlock ||
          event.operation == vfs_shim::Operation::kUnlock)
        return;
      if (std::this_thread::get_id() != self || ++events != nth) return;
      acted = true;
      second->Refresh();
      Accounts::Left(*second);
      // A durable write would share the sync that this very thread is about to make.
      const bool syncing = event.operation == vfs_shim::Operation::kSync;
      const Durability durability = syncing ? Durability::kLazy : Durability::kDurable;
      if (StatusOf([&] { Accounts::Move(*second, 7, durability); }) == status::kOk) {
        expected -= 7;
        ++moves;
      }
      Accounts::Left(*second);
    });
    for (const int amount : {1, 2, 3, 4}) {
      first->Refresh();
      Accounts::Left(*first);
      Accounts::Move(*first, amount);
      expected -= amount;
    }
    StatusOf([&] { first->Compact(); });
    vfs_shim::SetHook({});
    second->Flush();
    for (Database* database : {first.get(), second.get()}) {
      database->Refresh();
      ASSERT_EQ(Accounts::Left(*database), expected) << "switch at " << nth;
    }
    if (!acted) break;
    ++switches;
  }
  std::printf("%llu switches, %llu writes made in them\n", static_cast<unsigned long long>(switches),
              static_cast<unsigned long long>(moves));
  EXPECT_GT(switches, 30u);
  EXPECT_GT(moves, 3u);
}

}  // namespace store_test
