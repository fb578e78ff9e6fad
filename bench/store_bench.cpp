// The store beside plain SQLite doing the same work: a table (id integer primary key, unid blob unique, doc
// text), one connection, the same page cache. Images of 750 bytes on average. Files lie in the system's
// temporary folder.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "store/store.h"

namespace {

namespace store = brynd::store;
using brynd::Bytes;
using brynd::BytesOf;
using store::Durability;

constexpr int64_t kNotes = 63440;
constexpr size_t kCacheBytes = 64u << 20;

class Folder {
 public:
  Folder() {
    std::string name = (std::filesystem::temp_directory_path() / "store_bench_XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) std::abort();
    path_ = name;
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() { std::filesystem::remove_all(path_); }
  std::string File(const char* name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::string_view ImageOf(int64_t number) {
  static const std::string text = [] {
    std::mt19937_64 random(1);
    std::string made(2000, ' ');
    for (char& character : made) character = static_cast<char>('a' + random() % 26);
    return made;
  }();
  return std::string_view(text).substr(static_cast<size_t>(number % 97),
                                       600 + static_cast<size_t>(number * 7919 % 300));
}

uint32_t Scattered(int64_t round) { return static_cast<uint32_t>(1 + round * 40503 % kNotes); }

// --- plain SQLite
// ----------------------------------------------------------------------------------------------------

class Plain {
 public:
  Plain(const std::string& path, const char* synchronous) {
    sqlite3_open_v2(path.c_str(), &database_,
                    SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    sqlite3_busy_timeout(database_, 10000);
    Run("PRAGMA journal_mode=WAL; PRAGMA secure_delete=OFF");
    Run(("PRAGMA cache_size=-" + std::to_string(kCacheBytes / 1024)).c_str());
    Run((std::string("PRAGMA synchronous=") + synchronous).c_str());
    Run("CREATE TABLE IF NOT EXISTS t(id INTEGER PRIMARY KEY, unid BLOB UNIQUE, doc TEXT)");
    insert_ = Prepare("INSERT INTO t VALUES(?1,?2,?3)");
    read_ = Prepare("SELECT doc FROM t WHERE id=?1");
    begin_ = Prepare("BEGIN IMMEDIATE");
    commit_ = Prepare("COMMIT");
  }
  Plain(const Plain&) = delete;
  Plain& operator=(const Plain&) = delete;
  ~Plain() {
    for (sqlite3_stmt* statement : {insert_, read_, begin_, commit_}) sqlite3_finalize(statement);
    sqlite3_close(database_);
  }

  void Run(const char* text) { sqlite3_exec(database_, text, nullptr, nullptr, nullptr); }
  void Begin() { Once(begin_); }
  void Commit() { Once(commit_); }

  void Insert(int64_t number) {
    std::array<uint64_t, 2> unid{static_cast<uint64_t>(number) * 0x9e3779b97f4a7c15u,
                                 static_cast<uint64_t>(number)};
    const std::string_view image = ImageOf(number);
    sqlite3_bind_int64(insert_, 1, number);
    sqlite3_bind_blob(insert_, 2, unid.data(), sizeof unid, SQLITE_STATIC);
    sqlite3_bind_text(insert_, 3, image.data(), static_cast<int>(image.size()), SQLITE_STATIC);
    Once(insert_);
  }

  size_t Read(int64_t number) {
    sqlite3_bind_int64(read_, 1, number);
    size_t bytes = 0;
    if (sqlite3_step(read_) == SQLITE_ROW && sqlite3_column_text(read_, 0) != nullptr) {
      bytes = static_cast<size_t>(sqlite3_column_bytes(read_, 0));
    }
    sqlite3_reset(read_);
    return bytes;
  }

  uint64_t Scan() {
    sqlite3_stmt* scan = Prepare("SELECT id,doc FROM t");
    uint64_t sum = 0;
    while (sqlite3_step(scan) == SQLITE_ROW) sum += sqlite3_column_text(scan, 1)[99];
    sqlite3_finalize(scan);
    return sum;
  }

 private:
  sqlite3_stmt* Prepare(const char* text) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(database_, text, -1, &statement, nullptr);
    return statement;
  }
  static void Once(sqlite3_stmt* statement) {
    if (sqlite3_step(statement) != SQLITE_DONE) std::abort();
    sqlite3_reset(statement);
  }

  sqlite3* database_ = nullptr;
  sqlite3_stmt *insert_ = nullptr, *read_ = nullptr, *begin_ = nullptr, *commit_ = nullptr;
};

// --- loading
// ---------------------------------------------------------------------------------------------------------

void StoreBulkAppend(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    const Folder folder;
    auto database =
        store::Create(folder.File("s.qdb"), {.page_bytes = static_cast<uint32_t>(state.range(0))});
    state.ResumeTiming();
    for (int64_t number = 1; number <= kNotes; ++number) {
      store::Write write = database->BeginWrite();
      write.PutNote(write.NewNoteId(), BytesOf(ImageOf(number)));
      write.Commit(Durability::kLazy);
    }
    database->Close();  // all of it is on disk and in its place
  }
  state.SetItemsProcessed(state.iterations() * kNotes);
}
BENCHMARK(StoreBulkAppend)
    ->Arg(4096)
    ->Arg(8192)
    ->Arg(16384)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MinTime(0.2);

void SqliteBulkAppend(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    const Folder folder;
    auto plain = std::make_unique<Plain>(folder.File("p.db"), "NORMAL");
    state.ResumeTiming();
    for (int64_t number = 1; number <= kNotes; ++number) {
      if (number % 4096 == 1) plain->Begin();
      plain->Insert(number);
      if (number % 4096 == 0 || number == kNotes) plain->Commit();
    }
    plain.reset();
  }
  state.SetItemsProcessed(state.iterations() * kNotes);
}
BENCHMARK(SqliteBulkAppend)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(0.2);

// --- single commits
// --------------------------------------------------------------------------------------------------

std::unique_ptr<Folder> shared_folder;

template <Durability kind>
void StoreCommit(benchmark::State& state) {
  static std::atomic<uint32_t> next{0};
  static std::string path;
  if (state.thread_index() == 0) {
    shared_folder = std::make_unique<Folder>();
    path = shared_folder->File("s.qdb");
    next = 0;
    store::Create(path)->Close();
  }
  std::unique_ptr<store::Database> database;
  for (auto _ : state) {
    if (database == nullptr) database = store::Open(path);
    const uint32_t number = ++next;
    store::Write write = database->BeginWrite();
    write.PutNote(number, BytesOf(ImageOf(number)));
    write.Commit(kind);
  }
  database.reset();
}
BENCHMARK(StoreCommit<Durability::kDurable>)->UseRealTime()->Threads(1)->Threads(4);
BENCHMARK(StoreCommit<Durability::kLazy>)->UseRealTime()->Threads(1)->Threads(4);

void SqliteCommitFull(benchmark::State& state) {
  static std::atomic<int64_t> next{0};
  static std::string path;
  if (state.thread_index() == 0) {
    shared_folder = std::make_unique<Folder>();
    path = shared_folder->File("p.db");
    next = 0;
    const Plain plain(path, "FULL");
  }
  std::unique_ptr<Plain> plain;
  for (auto _ : state) {
    if (plain == nullptr) plain = std::make_unique<Plain>(path, "FULL");
    plain->Begin();
    plain->Insert(++next);
    plain->Commit();
  }
  plain.reset();
}
BENCHMARK(SqliteCommitFull)->UseRealTime()->Threads(1)->Threads(4);

// --- reading
// ---------------------------------------------------------------------------------------------------------

struct LoadedStore {
  Folder folder;
  std::unique_ptr<store::Database> database;

  explicit LoadedStore(uint32_t page_bytes = 0) {
    const store::OpenOptions options{.cache_bytes = kCacheBytes};
    database = store::Create(folder.File("s.qdb"), {.open = options, .page_bytes = page_bytes});
    for (int64_t number = 1; number <= kNotes; ++number) {
      store::Write write = database->BeginWrite();
      write.PutNote(static_cast<store::NoteId>(number), BytesOf(ImageOf(number)));
      write.Commit(Durability::kLazy);
    }
    database->Flush();
  }
};

struct LoadedPlain {
  Folder folder;
  std::unique_ptr<Plain> plain;

  LoadedPlain() {
    plain = std::make_unique<Plain>(folder.File("p.db"), "NORMAL");
    plain->Begin();
    for (int64_t number = 1; number <= kNotes; ++number) plain->Insert(number);
    plain->Commit();
  }
};

void StoreReadNote(benchmark::State& state) {
  const LoadedStore loaded;
  int64_t round = 0;
  uint64_t sum = 0;
  for (auto _ : state) {
    loaded.database->Refresh();
    loaded.database->ReadNote(Scattered(++round), [&](Bytes image) { sum += image.size(); });
  }
  benchmark::DoNotOptimize(sum);
}
BENCHMARK(StoreReadNote)->MinTime(0.05);

void SqliteReadViewKept(benchmark::State& state) {
  const LoadedPlain loaded;
  int64_t round = 0;
  uint64_t sum = 0;
  loaded.plain->Run("BEGIN");
  for (auto _ : state) sum += loaded.plain->Read(Scattered(++round));
  loaded.plain->Run("COMMIT");
  benchmark::DoNotOptimize(sum);
}
BENCHMARK(SqliteReadViewKept)->MinTime(0.05);

void SqliteReadViewEach(benchmark::State& state) {
  const LoadedPlain loaded;
  int64_t round = 0;
  uint64_t sum = 0;
  for (auto _ : state) sum += loaded.plain->Read(Scattered(++round));
  benchmark::DoNotOptimize(sum);
}
BENCHMARK(SqliteReadViewEach)->MinTime(0.05);

void StoreRefresh(benchmark::State& state) {
  const LoadedStore loaded;
  loaded.database->ReadNote(1, [](Bytes) {});
  loaded.database->Refresh();
  loaded.database->ReadNote(1, [](Bytes) {});
  for (auto _ : state) loaded.database->Refresh();
}
BENCHMARK(StoreRefresh)->MinTime(0.03);

void StoreScanNotes(benchmark::State& state) {
  const LoadedStore loaded(static_cast<uint32_t>(state.range(0)));
  uint64_t sum = 0;
  for (auto _ : state) {
    loaded.database->ScanNotes(1, [&](store::NoteId, Bytes image) {
      sum += std::to_integer<uint64_t>(image[99]);
      return true;
    });
  }
  benchmark::DoNotOptimize(sum);
  state.SetItemsProcessed(state.iterations() * kNotes);
}
BENCHMARK(StoreScanNotes)->Arg(4096)->Arg(8192)->Arg(16384)->Unit(benchmark::kMillisecond)->MinTime(0.05);

void SqliteScan(benchmark::State& state) {
  const LoadedPlain loaded;
  uint64_t sum = 0;
  loaded.plain->Run("BEGIN");
  for (auto _ : state) sum += loaded.plain->Scan();
  loaded.plain->Run("COMMIT");
  benchmark::DoNotOptimize(sum);
  state.SetItemsProcessed(state.iterations() * kNotes);
}
BENCHMARK(SqliteScan)->Unit(benchmark::kMillisecond)->MinTime(0.05);

}  // namespace

BENCHMARK_MAIN();
