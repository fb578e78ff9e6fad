// The contract of the store, call by call, and a random walk beside a model.
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/file.h>

#include <algorithm>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "engine/store_fixture.h"

namespace store_test {

namespace store = brynd::store;
using StoreTest = StoreFixture;

TEST_F(StoreTest, Create_NewFile_EmptyDatabaseOfOurs) {
  auto database = Create(path_, {.file_class = 0xff0f});
  EXPECT_EQ(database->LastNoteId(), 0u);
  EXPECT_EQ(database->CountNotes(), 0u);
  EXPECT_EQ(database->FileClass(), 0xff0f);
  EXPECT_NE(database->InstanceId(), 0u);
  EXPECT_TRUE(Contents(*database).empty());
  database->Close();
  EXPECT_EQ(folder_.FileCount(), 1u);
  const store::FileInfo info = store::Inspect(path_);
  EXPECT_TRUE(info.is_database);
  EXPECT_EQ(info.file_class, 0xff0f);
  EXPECT_EQ(info.format, 2);
  EXPECT_EQ(info.file_bytes, std::filesystem::file_size(path_));
}

TEST_F(StoreTest, Create_FileExists_RefusedUnlessToReplace) {
  {
    auto database = Create(path_);
    Put(*database, 1, "old", Durability::kDurable);
  }
  EXPECT_EQ(StatusOf([&] { Create(path_); }), status::kFileExists);
  EXPECT_EQ(Note(*Open(path_), 1), "old");
  {
    auto database = Create(path_, {.overwrite = true});
    EXPECT_EQ(Note(*database, 1), "(none)");
    EXPECT_EQ(StatusOf([&] { Create(path_, {.overwrite = true}); }), status::kFileInUse);
    Put(*database, 1, "new", Durability::kDurable);
  }
  EXPECT_EQ(Note(*Open(path_), 1), "new");
  EXPECT_EQ(folder_.FileCount(), 1u);
}

TEST_F(StoreTest, Create_BadArguments_StatusAndNothingLeft) {
  EXPECT_EQ(StatusOf([&] { Create(""); }), status::kBadPath);
  EXPECT_EQ(StatusOf([&] { Create(path_ + "/"); }), status::kBadPath);
  EXPECT_EQ(StatusOf([&] { Create(std::string(5000, 'x')); }), status::kBadPath);
  EXPECT_EQ(StatusOf([&] { Create(folder_.File("no/such/folder.qdb")); }), status::kNoFile);
  for (const uint32_t bytes : {1u, 512u, 1023u, 3000u, 131072u}) {
    EXPECT_EQ(StatusOf([&] { Create(path_, {.page_bytes = bytes}); }), status::kBadArgument) << bytes;
  }
  EXPECT_EQ(folder_.FileCount(), 0u);
  for (const uint32_t bytes : {1024u, 4096u, 65536u}) {
    Create(path_, {.overwrite = true, .page_bytes = bytes})->Close();
    EXPECT_EQ(store::Inspect(path_).page_bytes, bytes);
  }
}

TEST_F(StoreTest, Open_NoDatabase_StatusTellsWhy) {
  EXPECT_EQ(StatusOf([&] { Open(path_); }), status::kNoFile);
  EXPECT_EQ(StatusOf([&] { Open(folder_.Path()); }), status::kIsDirectory);
  std::ofstream(path_) << "not a database at all, but longer than the header of one: "
                       << std::string(200, '.');
  EXPECT_EQ(StatusOf([&] { Open(path_); }), status::kNotDatabase);
  std::ofstream(path_, std::ios::trunc).close();
  EXPECT_EQ(StatusOf([&] { Open(path_); }), status::kNotDatabase);
  EXPECT_FALSE(store::Inspect(path_).is_database);
}

TEST_F(StoreTest, Open_NameThatLooksLikeAUri_IsAFileName) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.Path());
  Create("file:x.qdb?mode=memory")->Close();
  EXPECT_TRUE(store::Exists(folder_.File("file:x.qdb?mode=memory")));
  Open("file:x.qdb?mode=memory")->Close();
  std::filesystem::current_path(before);
}

TEST_F(StoreTest, Open_ReadOnly_ReadsAndRefusesToWrite) {
  Put(*Create(path_), 7, "seven", Durability::kDurable);
  auto database = Open(path_, {.read_only = true});
  EXPECT_EQ(Note(*database, 7), "seven");
  EXPECT_EQ(StatusOf([&] { database->BeginWrite(); }), status::kReadOnly);
  EXPECT_EQ(StatusOf([&] { database->Compact(); }), status::kReadOnly);
}

TEST_F(StoreTest, Remove_OpenOrForeign_Stays) {
  EXPECT_EQ(StatusOf([&] { store::Remove(path_); }), status::kNoFile);
  {
    auto database = Create(path_);
    EXPECT_EQ(StatusOf([&] { store::Remove(path_); }), status::kFileInUse);
  }
  store::Remove(path_);
  EXPECT_EQ(folder_.FileCount(), 0u);
  std::ofstream(path_) << "some text";
  EXPECT_EQ(StatusOf([&] { store::Remove(path_); }), status::kNotDatabase);
  EXPECT_TRUE(store::Exists(path_));
}

TEST_F(StoreTest, Remove_OpenInAnotherProcess_FileInUse) {
  Create(path_)->Close();
  int ready[2], go[2];
  ASSERT_EQ(pipe(ready) + pipe(go), 0);
  const pid_t child = StartChild([&] {
    auto database = Open(path_);
    char byte = 'x';
    if (write(ready[1], &byte, 1) != 1 || read(go[0], &byte, 1) != 1) _exit(1);
  });
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  EXPECT_EQ(StatusOf([&] { store::Remove(path_); }), status::kFileInUse);
  EXPECT_EQ(StatusOf([&] { Create(path_, {.overwrite = true}); }), status::kFileInUse);
  ASSERT_EQ(write(go[1], &byte, 1), 1);
  EXPECT_EQ(EndOf(child), 0);
  store::Remove(path_);
  for (const int descriptor : {ready[0], ready[1], go[0], go[1]}) close(descriptor);
}

TEST_F(StoreTest, Notes_PutReadDelete_AsTold) {
  auto database = Create(path_);
  {
    Write write = database->BeginWrite();
    EXPECT_EQ(write.NewNoteId(), 1u);
    EXPECT_EQ(write.NewNoteId(), 2u);
    write.PutNote(2, BytesOf("two"));
    write.PutNote(store::kNoteIdMax - 1, BytesOf("last but one"));
    EXPECT_EQ(Note(*database, 2), "two");  // a write sees itself
    EXPECT_EQ(write.NewNoteId(), store::kNoteIdMax);
    EXPECT_EQ(StatusOf([&] { write.NewNoteId(); }), status::kTooManyNotes);
  }
  EXPECT_EQ(Note(*database, 2), "(none)");  // it was not committed
  Put(*database, 5, "", Durability::kLazy);
  EXPECT_EQ(Note(*database, 5), "");
  Put(*database, 5, "five", Durability::kDurable);
  EXPECT_EQ(database->LastNoteId(), 5u);
  Write write = database->BeginWrite();
  EXPECT_TRUE(write.DeleteRow(5));
  EXPECT_FALSE(write.DeleteRow(5));
  write.Commit(Durability::kLazy);
  EXPECT_EQ(database->CountNotes(), 0u);
}

TEST_F(StoreTest, PutNote_BadIdOrKind_RefusedAndWriteGoesOn) {
  auto database = Create(path_);
  Write write = database->BeginWrite();
  EXPECT_EQ(StatusOf([&] { write.PutNote(0, {}); }), status::kBadArgument);
  EXPECT_EQ(StatusOf([&] { write.PutNote(store::kNoteIdMax + 1, {}); }), status::kBadArgument);
  EXPECT_EQ(StatusOf([&] { write.PutNote(1, {}, static_cast<ChangeKind>(4)); }), status::kBadArgument);
  EXPECT_EQ(StatusOf([&] { write.PutUnid(UnidOf(1), 0); }), status::kBadArgument);
  const std::string key(store::kKeyBytesMax + 1, 'k');
  EXPECT_EQ(StatusOf([&] { write.PutRecord(1, BytesOf(key), {}); }), status::kBadArgument);
  write.PutRecord(1, BytesOf(key).first(store::kKeyBytesMax), {});
  write.PutNote(1, BytesOf("one"));
  write.Commit(Durability::kLazy);
  EXPECT_EQ(Note(*database, 1), "one");
  EXPECT_EQ(StatusOf([&] { write.Commit(Durability::kLazy); }), status::kInternal);  // ended
}

TEST_F(StoreTest, BeginWrite_SecondBeforeTheFirstEnded_Refused) {
  auto database = Create(path_);
  Write write = database->BeginWrite();
  EXPECT_EQ(StatusOf([&] { database->BeginWrite(); }), status::kInternal);
  EXPECT_EQ(StatusOf([&] { database->Flush(); }), status::kInternal);
  EXPECT_EQ(StatusOf([&] { database->Close(); }), status::kInternal);
  write.PutNote(1, BytesOf("one"));
  write.Commit(Durability::kDurable);
  EXPECT_EQ(Note(*database, 1), "one");
}

TEST_F(StoreTest, Write_AbandonedInABatch_TakesBackItselfAlone) {
  auto database = Create(path_);
  for (const uint32_t changes : {1u, 2u, 5u}) {
    Put(*database, 10, "kept " + std::to_string(changes), Durability::kLazy);
    Write next = database->BeginWrite();
    next.PutRecord(1, BytesOf("kept"), BytesOf(std::to_string(changes)));
    next.Commit(Durability::kLazy);
    const Model before = Contents(*database);
    {
      Write write = database->BeginWrite();
      for (uint32_t at = 0; at < changes; ++at) write.PutNote(10 + at, BytesOf("lost"));
      if (changes == 5) write.RemoveRecord(1, BytesOf("kept"));
      if (changes != 1) {
        EXPECT_NE(Contents(*database), before);
      }
    }
    EXPECT_EQ(Contents(*database), before) << changes;
  }
  database->Close();
  EXPECT_EQ(Note(*Open(path_), 10), "kept 5");
}

TEST_F(StoreTest, NewNoteId_WriteAbandoned_ComesAgainAndNeverBelowTheStored) {
  auto database = Create(path_);
  {
    Write write = database->BeginWrite();
    EXPECT_EQ(write.NewNoteId(), 1u);
  }
  Put(*database, 41, "x", Durability::kLazy);
  {
    Write write = database->BeginWrite();
    EXPECT_EQ(write.NewNoteId(), 42u);
    write.PutNote(42, BytesOf("y"));
  }
  Write write = database->BeginWrite();
  EXPECT_EQ(write.NewNoteId(), 42u);
}

TEST_F(StoreTest, Unids_EnterMoveRemove_AsTold) {
  auto database = Create(path_);
  EXPECT_EQ(database->FindUnid(UnidOf(1)), 0u);
  Write write = database->BeginWrite();
  write.PutUnid(UnidOf(1), 11);
  write.PutUnid(UnidOf(2), 22);
  EXPECT_EQ(database->FindUnid(UnidOf(1)), 11u);
  write.PutUnid(UnidOf(1), 12);
  EXPECT_TRUE(write.RemoveUnid(UnidOf(2)));
  EXPECT_FALSE(write.RemoveUnid(UnidOf(2)));
  write.Commit(Durability::kDurable);
  EXPECT_EQ(database->FindUnid(UnidOf(1)), 12u);
  EXPECT_EQ(database->FindUnid(UnidOf(2)), 0u);
}

TEST_F(StoreTest, ScanRecords_RangesBothWays_InOrderOfTheBytes) {
  auto database = Create(path_);
  Write write = database->BeginWrite();
  for (const char* key : {"a", "ab", "b", "b\xff", "c"}) write.PutRecord(2, BytesOf(key), BytesOf(key));
  write.PutRecord(2, {}, BytesOf("(empty)"));
  write.PutRecord(1, BytesOf("b"), BytesOf("other space"));
  write.PutRecord(0xffffffff, BytesOf("b"), BytesOf("last space"));
  write.Commit(Durability::kLazy);
  const auto keys = [&](std::string_view from, std::optional<Bytes> to, store::Order order, size_t limit) {
    std::string all;
    database->ScanRecords(
        2, BytesOf(from), to,
        [&](Bytes key, Bytes) {
          all += std::string(TextOf(key)) + "|";
          return --limit != 0;
        },
        order);
    return all;
  };
  const auto up = store::Order::kAscending, down = store::Order::kDescending;
  EXPECT_EQ(keys("", std::nullopt, up, 99), "|a|ab|b|b\xff|c|");
  EXPECT_EQ(keys("", std::nullopt, down, 99), "c|b\xff|b|ab|a||");
  EXPECT_EQ(keys("ab", BytesOf("b\xff"), up, 99), "ab|b|");
  EXPECT_EQ(keys("ab", BytesOf("b\xff"), down, 99), "b|ab|");
  EXPECT_EQ(keys("b", std::nullopt, up, 2), "b|b\xff|");
  EXPECT_EQ(keys("x", std::nullopt, up, 99), "");
  EXPECT_EQ(Record(*database, 0xffffffff, "b"), "last space");
  Write removal = database->BeginWrite();
  EXPECT_EQ(removal.RemoveRange(2, BytesOf("ab"), BytesOf("c")), 3u);
  EXPECT_EQ(removal.RemoveRange(2, BytesOf("b"), std::nullopt), 1u);
  EXPECT_TRUE(removal.RemoveRecord(2, {}));
  EXPECT_FALSE(removal.RemoveRecord(2, {}));
  removal.Commit(Durability::kLazy);
  EXPECT_EQ(keys("", std::nullopt, up, 99), "a|");
  EXPECT_EQ(Record(*database, 1, "b"), "other space");
}

TEST_F(StoreTest, ScanNotes_FromStopAndFailure_AsTold) {
  auto database = Create(path_);
  Write write = database->BeginWrite();
  for (NoteId note_id = 10; note_id <= 50; note_id += 10)
    write.PutNote(note_id, BytesOf(std::to_string(note_id)));
  write.Commit(Durability::kLazy);
  std::vector<NoteId> seen;
  database->ScanNotes(11, [&](NoteId note_id, Bytes image) {
    EXPECT_EQ(TextOf(image), std::to_string(note_id));
    seen.push_back(note_id);
    return note_id != 40;
  });
  EXPECT_EQ(seen, (std::vector<NoteId>{20, 30, 40}));
  int calls = 0;
  EXPECT_EQ(StatusOf([&] {
              database->ScanNotes(0, [&](NoteId, Bytes) -> bool {
                ++calls;
                brynd::Fail(status::kStopped);
              });
            }),
            status::kStopped);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(database->CountNotes(), 5u);  // the handle is as before
}

TEST_F(StoreTest, Visitors_ReadAndWriteAgain_EachSeesItsOwnRows) {
  auto database = Create(path_);
  for (NoteId note_id = 1; note_id <= 20; ++note_id)
    Put(*database, note_id, std::to_string(note_id), Durability::kLazy);
  uint32_t inner = 0, outer = 0;
  database->ScanNotes(1, [&](NoteId note_id, Bytes image) {
    if (note_id > 20) return false;
    ++outer;
    database->ScanNotes(note_id, [&](NoteId, Bytes) { return ++inner != 0; });
    database->ReadNote(note_id, [&](Bytes first) {
      database->ReadNote(21 - note_id, [&](Bytes second) {
        EXPECT_EQ(TextOf(first), TextOf(image));
        EXPECT_EQ(TextOf(second), std::to_string(21 - note_id));
      });
    });
    Put(*database, 1000 + note_id, "made meanwhile",
        note_id % 2 == 0 ? Durability::kLazy : Durability::kDurable);
    EXPECT_EQ(TextOf(image), std::to_string(note_id));
    return true;
  });
  EXPECT_EQ(outer, 20u);
  EXPECT_GE(inner, 210u);
  EXPECT_EQ(database->CountNotes(), 40u);
}

TEST_F(StoreTest, Stamp_EveryChange_DiffersAndIsSharedWhenCommitted) {
  auto first = Create(path_);
  auto second = Open(path_);
  std::vector<std::pair<uint64_t, uint64_t>> seen;
  const auto note = [&] {
    const store::ViewStamp stamp = first->Stamp();
    seen.emplace_back(stamp.sequence, stamp.pending);
  };
  note();
  Put(*first, 1, "a", Durability::kLazy);
  note();
  Put(*first, 1, "b", Durability::kLazy);
  note();
  {
    Write write = first->BeginWrite();
    write.PutNote(1, BytesOf("c"));
    note();
  }
  note();
  first->Flush();
  note();
  EXPECT_EQ(std::set(seen.begin(), seen.end()).size(), seen.size());
  second->Refresh();
  EXPECT_EQ(first->Stamp().pending, 0u);
  EXPECT_EQ(first->Stamp(), second->Stamp());
  Put(*second, 2, "x", Durability::kDurable);
  EXPECT_NE(first->Stamp(), second->Stamp());  // the first has not looked yet
  first->Refresh();
  EXPECT_EQ(first->Stamp(), second->Stamp());
}

TEST_F(StoreTest, ChangesSince_TransactionsOfSeveralHandles_InOrderWithoutGaps) {
  auto first = Create(path_);
  auto second = Open(path_);
  const uint64_t start = first->Stamp().sequence;
  Put(*first, 9, "a", Durability::kDurable);
  {
    Write write = second->BeginWrite();
    write.PutNote(3, BytesOf("stub"), ChangeKind::kDeleted);
    write.PutNote(store::kNoteIdMax, BytesOf("far"));
    write.DeleteRow(9);
    write.Commit(Durability::kDurable);
  }
  first->Refresh();
  {
    Write write = first->BeginWrite();
    write.PutRecord(1, BytesOf("k"), BytesOf("a record is no note"));
    write.Commit(Durability::kDurable);
  }
  Put(*first, 4, "waits", Durability::kLazy);
  std::vector<std::tuple<uint64_t, NoteId, ChangeKind>> seen;
  ASSERT_TRUE(first->ChangesSince(start, [&](const store::NoteChange& change) {
    seen.emplace_back(change.sequence - start, change.note_id, change.kind);
  }));
  const std::vector<std::tuple<uint64_t, NoteId, ChangeKind>> expected = {
      {1, 9, ChangeKind::kStored},  {2, 3, ChangeKind::kDeleted}, {2, store::kNoteIdMax, ChangeKind::kStored},
      {2, 9, ChangeKind::kRemoved}, {4, 4, ChangeKind::kStored},
  };
  EXPECT_EQ(seen, expected);
  EXPECT_FALSE(first->ChangesSince(start + 100, [](const store::NoteChange&) { FAIL(); }));
}

TEST_F(StoreTest, Create_NewFilesLeftByACrash_AreRemovedWhenNobodyMakesOne) {
  const auto spill = [&](const std::string& name) { std::ofstream(folder_.File(name)) << "left"; };
  const std::string left = "base.qdb~0123456789abcdef";
  const std::vector<std::string> others = {"base.qdb~0123456789abcde", "base.qdb~0123456789abcdeg",
                                           "base.qdb~0123456789abcdef-old", "other.qdb~0123456789abcdef",
                                           "base.qdb-0123456789abcdef"};
  for (const char* beside : {"", "-wal", "-shm", "-journal"}) spill(left + beside);
  for (const std::string& name : others) spill(name);

  // Somebody makes a file in this folder: what lies there may be his.
  const int folder = open(folder_.Path().c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(0, flock(folder, LOCK_SH));
  Create(path_)->Close();
  EXPECT_EQ(4 + others.size() + 1, folder_.FileCount());
  close(folder);

  store::Copy(path_, path_ + "2");
  EXPECT_EQ(4 + others.size() + 2, folder_.FileCount()) << "those of another target";
  Create(path_, {.overwrite = true})->Close();
  EXPECT_EQ(others.size() + 2, folder_.FileCount());
  for (const std::string& name : others) EXPECT_TRUE(std::filesystem::exists(folder_.File(name))) << name;
}

TEST_F(StoreTest, Create_KilledAtEachChange_NextOneLeavesNothingBehind) {
  int left_behind = 0;
  for (uint64_t nth = 1;; ++nth) {
    const int outcome = EndOf(StartChild([&] {
      vfs_shim::KillAtChange(nth);
      Create(path_, {.open = {.vfs = vfs_shim::Name()}})->Close();
    }));
    left_behind += folder_.FileCount() > (std::filesystem::exists(path_) ? 1u : 0u);
    const auto database = Create(path_, {.overwrite = true});
    database->Close();
    ASSERT_EQ(1u, folder_.FileCount()) << nth;
    std::filesystem::remove(path_);
    if (WIFEXITED(outcome)) break;
  }
  EXPECT_GT(left_behind, 3) << "the kills hit";
}

using Seen = std::vector<std::tuple<uint64_t, NoteId, ChangeKind>>;

// What the handle tells of the past, forward from each of some transactions and backward, against a model of
// it.
void ExpectHistory(Database& database, const Seen& model, const std::vector<uint64_t>& since_values) {
  for (const uint64_t since : since_values) {
    Seen seen, expected;
    ASSERT_TRUE(database.ChangesSince(since, [&](const store::NoteChange& change) {
      seen.emplace_back(change.sequence, change.note_id, change.kind);
    }));
    for (const auto& change : model)
      if (std::get<0>(change) > since) expected.push_back(change);
    ASSERT_EQ(expected, seen) << since;
  }
  Seen backward;
  ASSERT_TRUE(database.ChangesBackward([&](const store::NoteChange& change) {
    backward.emplace_back(change.sequence, change.note_id, change.kind);
    return true;
  }));
  ASSERT_EQ(Seen(model.rbegin(), model.rend()), backward);
  size_t shown = 0;
  ASSERT_TRUE(database.ChangesBackward([&](const store::NoteChange&) { return ++shown < 7; }));
  ASSERT_EQ(7u, shown);
}

// A transaction that only appends a note has no row in the journal: its note tells it. Against a model, with
// every kind of transaction between them.
TEST_F(StoreTest, ChangesSince_NotesThatTellTheirTransactions_AsAModelRemembers) {
  std::mt19937_64 random(SeedOfRun());
  std::vector<std::unique_ptr<Database>> handles;
  handles.push_back(Create(path_));
  handles.push_back(Open(path_));
  const uint64_t start = handles[0]->Stamp().sequence;
  Seen model;
  uint64_t sequence = start;
  NoteId newest = 0;
  for (int step = 0; step < 300; ++step) {
    Database& database = *handles[random() % 2];
    Write write = database.BeginWrite();
    ++sequence;
    const auto put = [&](NoteId note_id, ChangeKind kind) {
      write.PutNote(note_id, BytesOf("image"), kind);
      model.emplace_back(sequence, note_id, kind);
    };
    const auto append = [&] { put(newest = write.NewNoteId(), ChangeKind::kStored); };
    switch (newest < 3 ? 0 : random() % 9) {
      case 0:
      case 1:
      case 2:
        append();
        break;
      case 3:
        append();
        append();
        break;
      case 4:
        put(static_cast<NoteId>(1 + random() % newest), ChangeKind::kDeleted);
        break;
      case 5:
        append();
        write.PutRecord(1, BytesOf("k"), BytesOf("v"));
        put(newest, ChangeKind::kStored);
        break;
      case 6:
        write.PutRecord(1, BytesOf("k"), BytesOf("v"));
        break;
      case 7:
        put(static_cast<NoteId>(1 + random() % newest), ChangeKind::kStored);
        append();
        break;
      case 8: {
        append();
        Write abandoned = std::move(write);  // what it did is undone, its number is free again
        std::erase_if(model, [&](const auto& change) { return std::get<0>(change) == sequence; });
        --sequence;
        --newest;
        continue;
      }
    }
    write.Commit(Durability::kDurable);
  }
  handles.push_back(Open(path_));
  for (const auto& database : handles) {
    database->Refresh();
    ASSERT_EQ(sequence, database->Stamp().sequence);
    ExpectHistory(*database, model, {start, start + 1, start + 100, sequence - 1, sequence});
  }
}

TEST_F(StoreTest, ChangesSince_ToldByANoteWhoseRowIsGone_OthersAreShown) {
  const auto database = Create(path_);
  const uint64_t start = database->Stamp().sequence;
  for (int i = 0; i < 3; ++i) {
    Write write = database->BeginWrite();
    write.PutNote(write.NewNoteId(), BytesOf("image"));
    write.Commit(Durability::kDurable);
  }
  Write write = database->BeginWrite();
  write.DeleteRow(3);
  write.DeleteRow(1);
  write.Commit(Durability::kDurable);
  EXPECT_EQ(start + 4, database->Stamp().sequence);
  std::vector<std::pair<uint64_t, NoteId>> seen;
  ASSERT_TRUE(database->ChangesSince(start, [&](const store::NoteChange& change) {
    seen.emplace_back(change.sequence - start, change.note_id);
  }));
  EXPECT_EQ((std::vector<std::pair<uint64_t, NoteId>>{{2, 2}, {4, 3}, {4, 1}}), seen);
  std::vector<std::pair<uint64_t, NoteId>> backward;
  Put(*database, 2, "waits", Durability::kLazy);
  ASSERT_TRUE(database->ChangesBackward([&](const store::NoteChange& change) {
    backward.emplace_back(change.sequence - start, change.note_id);
    return true;
  }));
  EXPECT_EQ((std::vector<std::pair<uint64_t, NoteId>>{{5, 2}, {4, 1}, {4, 3}, {2, 2}}), backward);
}

// The number of a transaction is that behind the last one, whatever the transaction itself does to the newest
// note.
TEST_F(StoreTest, Stamp_AppendToldByOneHandleThenChangesOfAnother_EachHasItsNumber) {
  const auto first = Create(path_);
  const auto second = Open(path_);
  const auto append = [](Write& write) { write.PutNote(write.NewNoteId(), BytesOf("image")); };
  const auto commit = [](Database& database, auto&& change) {
    Write write = database.BeginWrite();
    change(write);
    write.Commit(Durability::kDurable);
  };
  const uint64_t start = first->Stamp().sequence;
  commit(*first, append);              // 1, told by note 1
  commit(*second, [&](Write& write) {  // 2
    write.PutNote(1, BytesOf("changed"));
    append(write);
  });
  commit(*first, append);                                     // 3, told by note 3
  commit(*second, [](Write& write) { write.DeleteRow(3); });  // 4
  std::vector<std::pair<uint64_t, NoteId>> seen;
  ASSERT_TRUE(second->ChangesSince(start, [&](const store::NoteChange& change) {
    seen.emplace_back(change.sequence - start, change.note_id);
  }));
  EXPECT_EQ((std::vector<std::pair<uint64_t, NoteId>>{{1, 1}, {2, 1}, {2, 2}, {4, 3}}), seen);
  first->Refresh();
  EXPECT_EQ(start + 4, first->Stamp().sequence);
}

// The journal keeps a row at or before the oldest transaction it must reach back to, whatever stands in it.
TEST_F(StoreTest, ChangesSince_JournalTrimmedBetweenNotesThatTell_ReachesBackAsFarAsPromised) {
  Create(path_)->Close();
  sqlite3* raw = nullptr;
  ASSERT_EQ(sqlite3_open(path_.c_str(), &raw), SQLITE_OK);
  const std::string rows = "WITH RECURSIVE n(i) AS (VALUES(2) UNION ALL SELECT i+1 FROM n WHERE i<" +
                           std::to_string(store::kJournalRowsKept + 999) +
                           ") INSERT INTO note SELECT i-1,i,x'00' FROM n";
  ASSERT_EQ(sqlite3_exec(raw, rows.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(raw);
  const auto database = Open(path_);
  const uint64_t last = database->Stamp().sequence;
  ASSERT_EQ(store::kJournalRowsKept + 999, last);
  Put(*database, 1, "changed", Durability::kDurable);
  uint64_t count = 0;
  ASSERT_TRUE(
      database->ChangesSince(last + 1 - store::kJournalRowsKept, [&](const store::NoteChange&) { ++count; }));
  EXPECT_EQ(store::kJournalRowsKept, count);
}

TEST_F(StoreTest, ChangesSince_JournalTrimmed_SaysThatItDoesNotReachBack) {
  Create(path_)->Close();
  sqlite3* raw = nullptr;
  ASSERT_EQ(sqlite3_open(path_.c_str(), &raw), SQLITE_OK);
  const std::string rows = "WITH RECURSIVE n(i) AS (VALUES(2) UNION ALL SELECT i+1 FROM n WHERE i<" +
                           std::to_string(store::kJournalRowsKept + 500) +
                           ") INSERT INTO journal SELECT i,x'' FROM n";
  ASSERT_EQ(sqlite3_exec(raw, rows.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(raw);
  auto database = Open(path_);
  const auto ignore = [](const store::NoteChange&) {};
  EXPECT_TRUE(database->ChangesSince(1, ignore));
  auto other = Open(path_);
  for (NoteId note_id = 1; note_id <= 256; ++note_id) {
    Put(*database, note_id, "x", Durability::kLazy);
    Put(*other, note_id, "y", Durability::kLazy);  // ends the batch of the first
  }
  database->Flush();
  other->Flush();
  database->Refresh();
  EXPECT_FALSE(database->ChangesSince(1, ignore));
  EXPECT_FALSE(database->ChangesBackward([](const store::NoteChange&) { return true; }));
  uint64_t count = 0;
  const uint64_t newest = database->Stamp().sequence;
  ASSERT_TRUE(database->ChangesSince(newest - store::kJournalRowsKept + 1,
                                     [&](const store::NoteChange&) { ++count; }));
  EXPECT_GE(count, 512u);
}

TEST_F(StoreTest, InstanceId_FileCopiedByTheSystem_GetsItsOwn) {
  uint64_t original = 0;
  {
    auto database = Create(path_);
    original = database->InstanceId();
    Put(*database, 1, "one", Durability::kDurable);
  }
  EXPECT_EQ(Open(path_)->InstanceId(), original);
  std::filesystem::rename(path_, folder_.File("renamed.qdb"));
  EXPECT_EQ(Open(folder_.File("renamed.qdb"))->InstanceId(), original);
  std::filesystem::copy_file(folder_.File("renamed.qdb"), path_);
  const uint64_t copied = Open(path_)->InstanceId();
  EXPECT_NE(copied, original);
  EXPECT_EQ(Open(path_)->InstanceId(), copied);
  EXPECT_EQ(Note(*Open(path_), 1), "one");
}

TEST_F(StoreTest, Copy_OpenSourceWithLazyWrites_AllOfIt) {
  auto database = Create(path_, {.file_class = 3});
  Put(*database, 1, "durable", Durability::kDurable);
  Put(*database, 2, "lazy", Durability::kLazy);
  const std::string target = folder_.File("copy.qdb");
  store::Copy(path_, target);
  auto copy = Open(target);
  EXPECT_EQ(Contents(*copy), Contents(*database));
  EXPECT_EQ(copy->FileClass(), 3);
  EXPECT_NE(copy->InstanceId(), database->InstanceId());
  EXPECT_EQ(StatusOf([&] { store::Copy(path_, target); }), status::kFileExists);
  EXPECT_EQ(StatusOf([&] { store::Copy(path_, target, {.overwrite = true}); }), status::kFileInUse);
  copy->Close();
  Put(*database, 2, "newer", Durability::kLazy);
  store::Copy(path_, target, {.overwrite = true});
  EXPECT_EQ(Note(*Open(target), 2), "newer");
  EXPECT_EQ(StatusOf([&] { store::Copy(path_, path_, {.overwrite = true}); }), status::kFileInUse);
}

TEST_F(StoreTest, Compact_OthersHaveItOpen_SmallerAndAllStillThere) {
  auto database = Create(path_);
  auto other = Open(path_);
  const std::string image(4000, 'x');
  Write write = database->BeginWrite();
  for (NoteId note_id = 1; note_id <= 500; ++note_id) write.PutNote(note_id, BytesOf(image));
  write.Commit(Durability::kDurable);
  Write removal = database->BeginWrite();
  for (NoteId note_id = 2; note_id <= 500; ++note_id) removal.DeleteRow(note_id);
  removal.Commit(Durability::kLazy);
  EXPECT_EQ(Note(*other, 1), image);
  EXPECT_GT(database->Sizes().free_bytes, 1000000u);
  const store::CompactReport report = database->Compact();
  EXPECT_GT(report.bytes_before, 2000000u);
  EXPECT_LT(report.bytes_after, 200000u);
  EXPECT_EQ(database->Sizes().free_bytes, 0u);
  EXPECT_LT(std::filesystem::file_size(path_), 200000u);
  EXPECT_EQ(Note(*database, 1), image);
  Put(*other, 2, "again", Durability::kDurable);
  database->Refresh();
  EXPECT_EQ(Note(*database, 2), "again");
  {
    const Database::Hold hold(*database);
    EXPECT_EQ(StatusOf([&] { database->Compact(); }), status::kBusy);
  }
}

TEST_F(StoreTest, Close_Twice_SecondDoesNothingAndCallsAreRefused) {
  auto database = Create(path_);
  Put(*database, 1, "one", Durability::kLazy);
  database->Close();
  database->Close();
  EXPECT_EQ(StatusOf([&] { Note(*database, 1); }), status::kBadHandle);
  EXPECT_EQ(StatusOf([&] { database->BeginWrite(); }), status::kBadHandle);
  EXPECT_EQ(StatusOf([&] { database->Refresh(); }), status::kBadHandle);
  EXPECT_EQ(folder_.FileCount(), 1u);
}

TEST_F(StoreTest, LargeValues_AcrossManyPages_ComeBackWhole) {
  auto database = Create(path_);
  for (const size_t bytes : {100u, 8000u, 8191u, 8192u, 70000u, 5000000u}) {
    std::string value(bytes, 'v');
    for (size_t at = 0; at < bytes; at += 97) value[at] = static_cast<char>(at);
    Put(*database, 1, value, Durability::kLazy);
    Write write = database->BeginWrite();
    write.PutRecord(3, BytesOf("k"), BytesOf(value));
    write.Commit(Durability::kLazy);
    EXPECT_EQ(Note(*database, 1), value);
    EXPECT_EQ(Record(*database, 3, "k"), value);
    EXPECT_EQ(Contents(*database), (Model{{"n1", value}, {"r3/k", value}}));
  }
}

// --- a random walk
// ---------------------------------------------------------------------------------------------------

// Several handles of one file, each with its write; the model is what all must see once they have looked.
class Walk {
 public:
  Walk(const std::string& path, uint64_t seed) : path_(path), random_(seed) {
    handles_.push_back(Create(path_));
    handles_.push_back(Open(path_));
    handles_.push_back(Open(path_));
  }

  void Step() {
    const uint64_t kind = random_() % 100;
    std::unique_ptr<Database>& handle = handles_[random_() % handles_.size()];
    if (kind < 70)
      WriteSome(*handle);
    else if (kind < 90)
      Compare();
    else if (kind < 96)
      handle = (handle.reset(), Open(path_));
    else if (kind < 98)
      handle->Compact();
    else
      handle->Flush();
  }

  void Compare() {
    for (auto& handle : handles_) handle->Flush();
    for (auto& handle : handles_) {
      handle->Refresh();
      ASSERT_EQ(Contents(*handle), model_);
      for (uint32_t number = 0; number < 30; ++number) {
        const auto found = model_unids_.find(number);
        ASSERT_EQ(handle->FindUnid(UnidOf(number)), found == model_unids_.end() ? 0 : found->second);
      }
    }
  }

 private:
  std::string Value() {
    const size_t bytes = random_() % 20 == 0 ? random_() % 30000 : random_() % 900;
    return std::string(bytes, static_cast<char>('a' + random_() % 26));
  }

  void WriteSome(Database& database) {
    Model model = model_;
    std::map<uint32_t, NoteId> unids = model_unids_;
    Write write = database.BeginWrite();
    const uint64_t changes = random_() % 4 == 0 ? random_() % 40 : 1;
    for (uint64_t at = 0; at < changes; ++at) ChangeOne(write, &model, &unids);
    if (random_() % 8 == 0) return;  // abandoned
    write.Commit(random_() % 10 == 0 ? Durability::kDurable : Durability::kLazy);
    model_ = model;
    model_unids_ = unids;
  }

  void ChangeOne(Write& write, Model* model, std::map<uint32_t, NoteId>* unids) {
    const auto note_id = static_cast<NoteId>(1 + random_() % 60);
    const auto space = static_cast<Space>(1 + random_() % 3);
    const std::string key = std::to_string(random_() % 40), value = Value();
    const auto number = static_cast<uint32_t>(random_() % 30);
    switch (random_() % 8) {
      case 0:
      case 1:
        write.PutNote(note_id, BytesOf(value));
        (*model)[NoteKey(note_id)] = value;
        break;
      case 2:
        ASSERT_EQ(write.DeleteRow(note_id), model->erase(NoteKey(note_id)) != 0);
        break;
      case 3:
        write.PutRecord(space, BytesOf(key), BytesOf(value));
        (*model)[RecordKey(space, key)] = value;
        break;
      case 4:
        ASSERT_EQ(write.RemoveRecord(space, BytesOf(key)), model->erase(RecordKey(space, key)) != 0);
        break;
      case 5:
        write.PutUnid(UnidOf(number), note_id);
        (*unids)[number] = note_id;
        break;
      case 6:
        ASSERT_EQ(write.RemoveUnid(UnidOf(number)), unids->erase(number) != 0);
        break;
      case 7: {
        const std::string to = key + "5";
        const auto first = model->lower_bound(RecordKey(space, key)),
                   last = model->lower_bound(RecordKey(space, to));
        ASSERT_EQ(write.RemoveRange(space, BytesOf(key), BytesOf(to)),
                  static_cast<uint64_t>(std::distance(first, last)));
        model->erase(first, last);
        break;
      }
    }
  }

  const std::string path_;
  std::mt19937_64 random_;
  std::vector<std::unique_ptr<Database>> handles_;
  Model model_;
  std::map<uint32_t, NoteId> model_unids_;
};

TEST_F(StoreTest, RandomWalk_ThreeHandles_AlwaysEqualsTheModel) {
  Walk walk(path_, SeedOfRun());
  for (int step = 0; step < 600 && !HasFatalFailure(); ++step) walk.Step();
  walk.Compare();
}

// What a handle has read stays in memory, within its share of the process's: afterwards no read of the file
// is needed.
TEST_F(StoreTest, Reading_MoreThanTheFirstCacheHolds_CacheGrowsAndKeepsItAll) {
  const auto database = Create(path_, {.open = {.vfs = vfs_shim::Name()}});
  const std::string text(4000, 'x');
  constexpr NoteId kNotes = 4000;  // 16 MB, the cache begins with 4
  for (NoteId note_id = 1; note_id <= kNotes; ++note_id) Put(*database, note_id, text, Durability::kLazy);
  database->Flush();
  std::vector<NoteId> order(kNotes);
  for (NoteId note_id = 1; note_id <= kNotes; ++note_id) order[note_id - 1] = note_id;
  std::shuffle(order.begin(), order.end(), std::mt19937_64(7));

  const auto reads_of_file = [&](const auto& work) {
    vfs_shim::SetFault({.operations = vfs_shim::Bit(vfs_shim::Operation::kRead), .nth = 1});
    const EngStatus code = StatusOf(work);
    const uint64_t hits = vfs_shim::FaultsHit();
    vfs_shim::SetFault({});
    return hits + code;
  };
  const auto scan = [&] {
    NoteId count = 0;
    database->ScanNotes(0, [&](NoteId, Bytes image) {
      count += image.size() == text.size();
      return true;
    });
    EXPECT_EQ(kNotes, count);
  };
  const auto read_all = [&] {
    for (const NoteId note_id : order) ASSERT_EQ(text.size(), Note(*database, note_id).size());
  };
  EXPECT_NE(0u, reads_of_file([&] { Note(*database, 1); })) << "what a load wrote first is in memory no more";
  read_all();
  EXPECT_EQ(0u, reads_of_file(read_all));

  const auto second = Open(path_, {.vfs = vfs_shim::Name()});
  NoteId seen = 0;
  for (int pass = 0; pass < 2; ++pass) {
    const auto count = [&] {
      seen = 0;
      second->ScanNotes(0, [&](NoteId, Bytes) { return ++seen, true; });
    };
    if (pass == 0)
      count();
    else
      EXPECT_EQ(0u, reads_of_file(count)) << "a scan makes the cache grow as well";
    EXPECT_EQ(kNotes, seen);
  }
  scan();
}

}  // namespace store_test
