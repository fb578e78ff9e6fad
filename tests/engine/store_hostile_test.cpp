// Files that nobody made for us: cut short, altered, of other programs, with code in them. Each gives a
// status.
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <set>
#include <vector>

#include "engine/store_fixture.h"

namespace store_test {

namespace store = brynd::store;

namespace {

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void Spill(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(content.data(), static_cast<std::streamsize>(content.size()));
}

}  // namespace

class StoreHostileTest : public StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    {
      auto database = Create(path_, {.page_bytes = 1024});
      for (NoteId note_id = 1; note_id <= 60; ++note_id) {
        Write write = database->BeginWrite();
        write.PutNote(note_id, BytesOf(std::string(note_id * 53, 'n')));
        write.PutRecord(note_id % 3 + 1, BytesOf("key" + std::to_string(note_id)),
                        BytesOf(std::string(note_id * 11, 'r')));
        write.PutUnid(UnidOf(note_id), note_id);
        write.Commit(Durability::kLazy);
      }
    }
    good_ = Slurp(path_);
  }

  // Changes the good file by statements of SQL, as another program might.
  void Alter(const std::string& text) {
    RemoveLog();
    Spill(path_, good_);
    sqlite3* raw = nullptr;
    ASSERT_EQ(sqlite3_open(path_.c_str(), &raw), SQLITE_OK);
    char* message = nullptr;
    EXPECT_EQ(sqlite3_exec(raw, text.c_str(), nullptr, nullptr, &message), SQLITE_OK) << message;
    sqlite3_close(raw);
  }

  void RemoveLog() {
    for (const char* beside : {"-wal", "-shm"}) std::filesystem::remove(path_ + beside);
  }

  // Does everything with a file; the first status that is not 0.
  EngStatus Exercise() {
    return StatusOf([&] {
      auto database = Open(path_);
      EngStatus first = 0;
      const auto attempt = [&](auto&& body) {
        const EngStatus code = StatusOf(body);
        if (first == 0) first = code;
      };
      attempt([&] { Contents(*database); });
      attempt([&] { database->LastNoteId(); });
      attempt([&] { database->CountNotes(); });
      attempt([&] { database->ChangesSince(0, [](const store::NoteChange&) {}); });
      for (NoteId note_id = 1; note_id <= 60; ++note_id) {
        attempt([&] { Note(*database, note_id); });
        attempt([&] { database->FindUnid(UnidOf(note_id)); });
      }
      attempt([&] {
        Write write = database->BeginWrite();
        const NoteId note_id = write.NewNoteId();
        write.PutNote(note_id, BytesOf(std::string(3000, 'x')));
        write.PutUnid(UnidOf(9999), note_id);
        write.PutRecord(2, BytesOf("more"), BytesOf("more"));
        write.RemoveRange(3, {}, std::nullopt);
        write.DeleteRow(30);
        write.Commit(Durability::kLazy);
      });
      attempt([&] { database->Compact(); });
      attempt([&] { database->Close(); });
      brynd::Check(first);
    });
  }

  void ExpectHarmless(const std::string& content, const std::string& what) {
    RemoveLog();
    Spill(path_, content);
    const EngStatus code = Exercise();
    static const std::set<EngStatus> kAllowed = {0,
                                                 status::kDamaged,
                                                 status::kNotDatabase,
                                                 status::kNewerFormat,
                                                 status::kTooManyNotes,
                                                 status::kWriteStopped,
                                                 status::kIoError};
    EXPECT_TRUE(kAllowed.contains(code)) << what << " gave " << std::hex << code;
    (code == 0 ? harmless_ : refused_) += 1;
  }

  // Does everything with files of which some bits are wrong.
  void ExpectFlippedBitsHarmless(uint64_t seed) {
    std::mt19937_64 random(seed);
    for (int round = 0; round < 700; ++round) {
      std::string content = good_;
      const size_t flips = 1 + random() % 3;
      for (size_t flip = 0; flip < flips; ++flip) {
        // Half of them where the structure is: in the file's head and the heads of pages.
        const size_t page = random() % (content.size() / 1024) * 1024;
        const size_t at =
            random() % 2 == 0 ? random() % content.size() : page + random() % (page == 0 ? 700 : 24);
        content[at] = static_cast<char>(content[at] ^ (1 << random() % 8));
      }
      ExpectHarmless(content, "round " + std::to_string(round));
    }
    std::printf("%u refused, %u harmless\n", refused_, harmless_);
    EXPECT_GT(refused_, 50u);
  }

  std::string good_;
  uint32_t harmless_ = 0, refused_ = 0;
};

TEST_F(StoreHostileTest, Open_FileCutShort_Status) {
  for (size_t bytes = 0; bytes < good_.size(); bytes += bytes < 1100 ? 61 : 1024 - 7) {
    ExpectHarmless(good_.substr(0, bytes), "cut to " + std::to_string(bytes));
  }
  std::printf("%u refused, %u harmless\n", refused_, harmless_);
  EXPECT_GT(refused_, 50u);
}

TEST_F(StoreHostileTest, Open_BitsFlipped_Status) { ExpectFlippedBitsHarmless(SeedOfRun()); }

// Among these a page names one beyond the last that a file may have, which SQLite calls a full file.
TEST_F(StoreHostileTest, Compact_PageBeyondTheLast_DamagedNotFull) { ExpectFlippedBitsHarmless(13); }

TEST_F(StoreHostileTest, Open_PagesOfNoiseOrSwapped_Status) {
  std::mt19937_64 random(SeedOfRun());
  for (int round = 0; round < 250; ++round) {
    std::string content = good_;
    const size_t pages = content.size() / 1024;
    const size_t first = 1 + random() % (pages - 1), second = random() % pages;
    for (size_t at = 0; at < 1024; ++at) {
      char& byte = content[first * 1024 + at];
      byte = round % 2 == 0 ? static_cast<char>(random()) : good_[second * 1024 + at];
    }
    ExpectHarmless(content, "round " + std::to_string(round));
  }
  std::printf("%u refused, %u harmless\n", refused_, harmless_);
  EXPECT_GT(refused_, 50u);
}

TEST_F(StoreHostileTest, Open_NoiseInTheLogBesideIt_IgnoredOrStatus) {
  std::mt19937_64 random(SeedOfRun());
  for (int round = 0; round < 40; ++round) {
    RemoveLog();
    Spill(path_, good_);
    std::string log(random() % 9000, '\0');
    for (char& byte : log) byte = static_cast<char>(random());
    if (round % 2 == 0 && log.size() > 12)
      log.replace(0, 12, std::string("\x37\x7f\x06\x82\x00\x2d\xe2\x18\x00\x00\x04\x00", 12));
    Spill(path_ + "-wal", log);
    Spill(path_ + "-shm", log);
    EXPECT_EQ(StatusOf([&] { EXPECT_EQ(Open(path_)->CountNotes(), 60u); }), 0) << round;
  }
}

TEST_F(StoreHostileTest, Open_AnotherProgramsFile_NotDatabaseAndUntouched) {
  std::filesystem::remove(path_);
  sqlite3* raw = nullptr;
  ASSERT_EQ(sqlite3_open(path_.c_str(), &raw), SQLITE_OK);
  sqlite3_exec(raw, "PRAGMA journal_mode=WAL; CREATE TABLE theirs(x); INSERT INTO theirs VALUES(1)", nullptr,
               nullptr, nullptr);
  sqlite3_close(raw);
  const std::string before = Slurp(path_);
  EXPECT_FALSE(store::Inspect(path_).is_database);
  EXPECT_EQ(StatusOf([&] { Open(path_); }), status::kNotDatabase);
  EXPECT_EQ(StatusOf([&] { store::Remove(path_); }), status::kNotDatabase);
  EXPECT_EQ(StatusOf([&] { Create(path_, {.overwrite = true}); }), status::kNotDatabase);
  EXPECT_EQ(StatusOf([&] { store::Copy(path_, path_ + "2"); }), status::kNotDatabase);
  EXPECT_EQ(Slurp(path_), before);
  EXPECT_EQ(folder_.FileCount(), 1u);
}

TEST_F(StoreHostileTest, Open_CodeOrTablesAdded_DamagedAndNeverRun) {
  for (const char* addition : {
           "CREATE TRIGGER t AFTER INSERT ON note BEGIN DELETE FROM record; END",
           "CREATE VIEW v AS SELECT * FROM note",
           "CREATE TABLE more(x)",
           "CREATE INDEX i ON unid(id)",
           "CREATE INDEX i ON note(length(image))",
           "DROP TABLE unid",
           "DROP TABLE journal; CREATE TABLE journal(sequence INTEGER PRIMARY KEY,changes BLOB NOT NULL "
           "DEFAULT (randomblob(9)))",
           "ALTER TABLE record ADD COLUMN more",
           "CREATE VIRTUAL TABLE f USING fts5(x)",
           "PRAGMA writable_schema=ON; UPDATE sqlite_schema SET sql='CREATE VIEW note AS SELECT "
           "1',type='view' WHERE name='note'",
           "PRAGMA writable_schema=ON; UPDATE sqlite_schema SET sql='nonsense' WHERE name='note'",
           "PRAGMA writable_schema=ON; UPDATE sqlite_schema SET rootpage=2 WHERE name='record'",
           "PRAGMA writable_schema=ON; DELETE FROM sqlite_schema",
       }) {
    Alter(addition);
    const EngStatus code = Exercise();
    EXPECT_EQ(code, status::kDamaged) << addition;
  }
}

TEST_F(StoreHostileTest, Open_OtherMarks_StatusTellsWhy) {
  Alter("PRAGMA user_version=3");
  EXPECT_EQ(StatusOf([&] { Open(path_); }), status::kNewerFormat);
  Alter("PRAGMA user_version=0");
  EXPECT_EQ(StatusOf([&] { Open(path_); }), status::kNotDatabase);
  Alter("PRAGMA application_id=1");
  EXPECT_EQ(StatusOf([&] { Open(path_); }), status::kNotDatabase);
}

TEST_F(StoreHostileTest, Read_RowsOfWrongKinds_Damaged) {
  const auto expect_damaged = [&](const char* text, auto&& body) {
    Alter(text);
    auto database = Open(path_);
    EXPECT_EQ(StatusOf([&] { body(*database); }), status::kDamaged) << text;
  };
  const auto scan = [](Database& database) { Contents(database); };
  const auto changes = [](Database& database) { database.ChangesSince(0, [](const store::NoteChange&) {}); };
  expect_damaged("UPDATE note SET image='text' WHERE id=5", scan);
  expect_damaged("UPDATE note SET image='text' WHERE id=5", [](Database& database) { Note(database, 5); });
  expect_damaged("INSERT INTO note VALUES(-1,NULL,x'00')", scan);
  expect_damaged("INSERT INTO note VALUES(0x40000000,NULL,x'00')", scan);
  expect_damaged("INSERT INTO note VALUES(0x7fffffffffffffff,NULL,x'00')",
                 [](Database& database) { database.LastNoteId(); });
  expect_damaged("INSERT INTO note VALUES(0x40000000,NULL,x'00')",
                 [](Database& database) { database.BeginWrite().NewNoteId(); });
  expect_damaged("INSERT INTO record VALUES(1,x'00',7)", scan);
  expect_damaged("UPDATE unid SET id=0", [](Database& database) { database.FindUnid(UnidOf(7)); });
  expect_damaged("UPDATE unid SET id=1073741824", [](Database& database) { database.FindUnid(UnidOf(7)); });
  expect_damaged("DELETE FROM journal", [](Database& database) { database.Stamp(); });
  for (const char* made : {"'text'", "-5", "1", "1.5", "0x7fffffffffffffff"}) {
    const std::string text =
        std::string("UPDATE note SET made=") + made + " WHERE id=(SELECT max(id) FROM note)";
    expect_damaged(text.c_str(), [](Database& database) { database.Stamp(); });
  }
  expect_damaged("UPDATE note SET made=500", changes);  // they rise with the ids
  expect_damaged("INSERT INTO journal VALUES(0x7fffffffffffffff,x'')", changes);
  expect_damaged("UPDATE journal SET sequence=-5 WHERE sequence=(SELECT min(sequence) FROM journal)",
                 changes);
  expect_damaged("UPDATE journal SET changes=x'80'", changes);
  const auto backward = [](Database& database) {
    database.ChangesBackward([](const store::NoteChange&) { return true; });
  };
  expect_damaged("UPDATE journal SET changes=x'80'", backward);
  expect_damaged("UPDATE journal SET changes=x'04'", changes);
  expect_damaged("UPDATE journal SET changes=x'ffffffffffffffffff01'", changes);
  expect_damaged("UPDATE journal SET changes=x'ffffffffffffffffff7f'", changes);
  Alter("UPDATE record SET value=x'00' WHERE space=-1");
  EXPECT_EQ(StatusOf([&] { Open(path_); }), status::kDamaged);
  Alter("DELETE FROM record WHERE space=-1");
  EXPECT_EQ(Exercise(), 0);  // a new instance id is given
}

TEST_F(StoreHostileTest, Read_FileCutShortWhileOpen_StatusOrContent) {
  auto database = Open(path_);
  Note(*database, 1);
  ASSERT_EQ(truncate(path_.c_str(), 2048), 0);
  EXPECT_NE(StatusOf([&] {
              Contents(*database);
              for (NoteId note_id = 1; note_id <= 60; ++note_id) Note(*database, note_id);
            }),
            0);
}

TEST_F(StoreHostileTest, Open_NoRegularFile_StatusAtOnce) {
  const std::string pipe_path = folder_.File("pipe");
  ASSERT_EQ(mkfifo(pipe_path.c_str(), 0600), 0);
  EXPECT_EQ(StatusOf([&] { Open(pipe_path); }), status::kNotDatabase);
  EXPECT_EQ(StatusOf([&] { store::Inspect("/dev/zero"); }), status::kNotDatabase);
  EXPECT_FALSE(store::Exists(pipe_path));
  EXPECT_EQ(StatusOf([&] { Open(std::string("a\0b", 3)); }), status::kBadPath);
}

}  // namespace store_test
