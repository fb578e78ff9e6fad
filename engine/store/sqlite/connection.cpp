#include "store/sqlite/connection.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <mutex>
#include <thread>

#include "store/sqlite/schema.h"
#include "store/store.h"

namespace brynd::store {

namespace {

struct ResultRow {
  int result;
  EngStatus status;
};

// Extended codes first by value, then the primary codes; what stands nowhere is kInternal.
constexpr ResultRow kResults[] = {
    {SQLITE_IOERR_NOMEM, status::kNoMemory},
    {SQLITE_IOERR_FSYNC, status::kSyncFailed},
    {SQLITE_IOERR_DIR_FSYNC, status::kSyncFailed},
    {SQLITE_IOERR_CORRUPTFS, status::kDamaged},
    {SQLITE_IOERR_DATA, status::kDamaged},
    {SQLITE_CANTOPEN_ISDIR, status::kIsDirectory},
    {SQLITE_PERM, status::kNoAccess},
    {SQLITE_BUSY, status::kBusy},
    {SQLITE_LOCKED, status::kBusy},
    {SQLITE_NOMEM, status::kNoMemory},
    {SQLITE_READONLY, status::kReadOnly},
    {SQLITE_INTERRUPT, status::kStopped},
    {SQLITE_IOERR, status::kIoError},
    {SQLITE_CORRUPT, status::kDamaged},
    {SQLITE_FULL, status::kDiskFull},
    {SQLITE_CANTOPEN, status::kNoAccess},
    {SQLITE_PROTOCOL, status::kBusy},
    {SQLITE_SCHEMA, status::kDamaged},
    {SQLITE_TOOBIG, status::kBadArgument},
    {SQLITE_CONSTRAINT, status::kDamaged},
    {SQLITE_MISMATCH, status::kDamaged},
    {SQLITE_NOLFS, status::kDatabaseTooLarge},
    {SQLITE_AUTH, status::kNoAccess},
    {SQLITE_FORMAT, status::kDamaged},
    {SQLITE_NOTADB, status::kDamaged},
};

struct LimitRow {
  int limit;
  int value;
};

// What the store's own statements need, and a margin. A file's schema is parsed under these limits too.
constexpr LimitRow kLimits[] = {
    {SQLITE_LIMIT_LENGTH, 768 << 20},   {SQLITE_LIMIT_SQL_LENGTH, 4096},
    {SQLITE_LIMIT_COLUMN, 16},          {SQLITE_LIMIT_EXPR_DEPTH, 20},
    {SQLITE_LIMIT_COMPOUND_SELECT, 4},  {SQLITE_LIMIT_VDBE_OP, 4096},
    {SQLITE_LIMIT_FUNCTION_ARG, 8},     {SQLITE_LIMIT_LIKE_PATTERN_LENGTH, 64},
    {SQLITE_LIMIT_VARIABLE_NUMBER, 16}, {SQLITE_LIMIT_TRIGGER_DEPTH, 1},
    {SQLITE_LIMIT_WORKER_THREADS, 0},
};

struct SettingRow {
  int setting;
  int value;
};

constexpr SettingRow kSettings[] = {
    {SQLITE_DBCONFIG_DEFENSIVE, 1},
    {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
    {SQLITE_DBCONFIG_ENABLE_TRIGGER, 0},
    {SQLITE_DBCONFIG_ENABLE_VIEW, 0},
    {SQLITE_DBCONFIG_WRITABLE_SCHEMA, 0},
    {SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0},
    {SQLITE_DBCONFIG_ENABLE_FTS3_TOKENIZER, 0},
    {SQLITE_DBCONFIG_DQS_DDL, 0},
    {SQLITE_DBCONFIG_DQS_DML, 0},
};

// Commits are not synced by SQLite but by the store (sqlite/shared_file.h), checkpoints run under the writer
// lock alone, nothing is mapped (a file cut short by others must not crash us), and deleted content is not
// overwritten.
constexpr char kPragmas[] =
    "PRAGMA synchronous=NORMAL; PRAGMA wal_autocheckpoint=0; PRAGMA mmap_size=0; PRAGMA cell_size_check=ON;"
    "PRAGMA secure_delete=OFF; PRAGMA journal_size_limit=67108864;";

struct QueryRow {
  Query query;
  const char* text;
};

constexpr QueryRow kQueries[] = {
    {Query::kBegin, "BEGIN"},
    {Query::kBeginWrite, "BEGIN IMMEDIATE"},
    {Query::kCommit, "COMMIT"},
    {Query::kRollback, "ROLLBACK"},
    {Query::kSavepoint, "SAVEPOINT w"},
    {Query::kRollbackTo, "ROLLBACK TO w"},
    {Query::kRelease, "RELEASE w"},
    {Query::kReadNote, "SELECT image FROM note WHERE id=?1"},
    {Query::kScanNotes, "SELECT 1 FROM note WHERE id>=?1 AND show_note(id,image)"},
    {Query::kLastNote, "SELECT max(id) FROM note"},
    {Query::kCountNotes, "SELECT count(*) FROM note"},
    {Query::kPutNote,
     "INSERT INTO note(id,image) VALUES(?1,?2) ON CONFLICT(id) DO UPDATE SET image=excluded.image"},
    {Query::kAppendNote, "INSERT INTO note(id,image) VALUES(?1,?2)"},
    {Query::kAppendTelling, "INSERT INTO note(id,made,image) VALUES(?1,?3,?2)"},
    {Query::kNewestNotes, "SELECT id,made FROM note ORDER BY id DESC"},
    {Query::kDeleteNote, "DELETE FROM note WHERE id=?1"},
    {Query::kFindUnid, "SELECT id FROM unid WHERE unid=?1"},
    {Query::kPutUnid, "REPLACE INTO unid(unid,id) VALUES(?1,?2)"},
    {Query::kRemoveUnid, "DELETE FROM unid WHERE unid=?1"},
    {Query::kReadRecord, "SELECT value FROM record WHERE space=?1 AND key=?2"},
    {Query::kScanUp, "SELECT key,value FROM record WHERE space=?1 AND key>=?2 AND key<?3 ORDER BY key"},
    {Query::kScanUpOpen, "SELECT key,value FROM record WHERE space=?1 AND key>=?2 ORDER BY key"},
    {Query::kScanDown,
     "SELECT key,value FROM record WHERE space=?1 AND key>=?2 AND key<?3 ORDER BY key DESC"},
    {Query::kScanDownOpen, "SELECT key,value FROM record WHERE space=?1 AND key>=?2 ORDER BY key DESC"},
    {Query::kPutRecord, "REPLACE INTO record(space,key,value) VALUES(?1,?2,?3)"},
    {Query::kRemoveRecord, "DELETE FROM record WHERE space=?1 AND key=?2"},
    {Query::kRemoveRange, "DELETE FROM record WHERE space=?1 AND key>=?2 AND key<?3"},
    {Query::kRemoveRangeOpen, "DELETE FROM record WHERE space=?1 AND key>=?2"},
    {Query::kLastSequence, "SELECT max(sequence) FROM journal"},
    {Query::kFirstSequence, "SELECT min(sequence) FROM journal"},
    {Query::kCountChanges, "SELECT count(*) FROM journal WHERE sequence>?1"},
    {Query::kChanges, "SELECT sequence,changes FROM journal WHERE sequence>?1 ORDER BY sequence"},
    {Query::kChangesDown, "SELECT sequence,changes FROM journal ORDER BY sequence DESC"},
    {Query::kAddChanges, "INSERT INTO journal(sequence,changes) VALUES(?1,?2)"},
    {Query::kTrimChanges,
     "DELETE FROM journal WHERE sequence<(SELECT max(sequence) FROM journal WHERE sequence<=?1)"},
};

static_assert(std::size(kQueries) == static_cast<size_t>(Query::kCount), "one text for every query");
static_assert(std::ranges::is_sorted(kQueries, {}, &QueryRow::query));

// Memory statistics cost a process-wide lock at each allocation. Too late, and without harm, when SQLite runs
// already.
void ConfigureOnce() noexcept {
  static std::once_flag once;
  std::call_once(once, [] {
    sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    sqlite3_initialize();
  });
}

int OpenFlags(Access access) noexcept {
  constexpr int kCommon = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  switch (access) {
    case Access::kReadOnly:
      return kCommon | SQLITE_OPEN_READONLY;
    case Access::kReadWrite:
      return kCommon | SQLITE_OPEN_READWRITE;
    case Access::kMake:
      return kCommon | SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  }
  return kCommon | SQLITE_OPEN_READONLY;
}

}  // namespace

EngStatus StatusOfResult(int result) noexcept {
  if (result == SQLITE_OK || result == SQLITE_ROW || result == SQLITE_DONE) return status::kOk;
  for (const int code : {result, result & 0xff}) {
    const auto* row = std::ranges::find(kResults, code, &ResultRow::result);
    if (row != std::end(kResults)) return row->status;
  }
  return status::kInternal;
}

bool IsSyncFailure(int result) noexcept { return StatusOfResult(result) == status::kSyncFailed; }

Connection::Connection(const std::string& path, const ConnectionOptions& options)
    : timeout_(options.busy_timeout_ms) {
  ConfigureOnce();
  sqlite3* opened = nullptr;
  const int result = sqlite3_open_v2(path.c_str(), &opened, OpenFlags(options.access), options.vfs);
  database_.reset(opened);
  if (result != SQLITE_OK) FailWith(result);
  Harden(options);
}

void Connection::Harden(const ConnectionOptions& options) {
  for (const SettingRow& row : kSettings) sqlite3_db_config(Get(), row.setting, row.value, nullptr);
  for (const LimitRow& row : kLimits) sqlite3_limit(Get(), row.limit, row.value);
  sqlite3_limit(Get(), SQLITE_LIMIT_ATTACHED, options.may_attach ? 1 : 0);
  sqlite3_busy_handler(Get(), WaitForOthers, this);
  Execute(kPragmas);
  if (const int result = SetCache(options.cache_bytes)) FailWith(result);
}

int Connection::SetCache(size_t cache_bytes) noexcept {
  char text[48];
  std::snprintf(text, sizeof text, "PRAGMA cache_size=-%zu", std::max<size_t>(cache_bytes / 1024, 64));
  return Run(text);
}

// Other processes are waited for by asking again, soon at first, then every half millisecond.
int Connection::WaitForOthers(void* self, int attempt) noexcept {
  auto& connection = *static_cast<Connection*>(self);
  const auto now = std::chrono::steady_clock::now();
  if (attempt == 0) connection.wait_end_ = now + connection.timeout_;
  const auto none = std::chrono::steady_clock::time_point{};
  const auto end = connection.wait_limit_ != none ? connection.wait_limit_ : connection.wait_end_;
  if (now >= end) return 0;
  std::this_thread::sleep_for(std::chrono::microseconds(attempt < 4 ? 50 << attempt : 500));
  return 1;
}

int Connection::Run(const char* text) noexcept {
  return sqlite3_exec(Get(), text, nullptr, nullptr, nullptr);
}

void Connection::Execute(const char* text) {
  if (const int result = Run(text)) FailWith(result);
}

StatementOwner Connection::Prepare(const char* text) {
  sqlite3_stmt* statement = nullptr;
  const int result = sqlite3_prepare_v3(Get(), text, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  StatementOwner owner(statement);
  if (result == SQLITE_ERROR) Fail(status::kDamaged);  // our own text always compiles against our own schema
  if (result != SQLITE_OK) FailWith(result);
  return owner;
}

int64_t Connection::Number(const char* query) {
  const StatementOwner statement = Prepare(query);
  const int result = sqlite3_step(statement.get());
  if (result == SQLITE_ROW) return sqlite3_column_int64(statement.get(), 0);
  if (result != SQLITE_DONE) FailWith(result);
  return 0;
}

std::string Connection::Text(const char* query) {
  const StatementOwner statement = Prepare(query);
  const int result = sqlite3_step(statement.get());
  if (result != SQLITE_ROW && result != SQLITE_DONE) FailWith(result);
  if (result == SQLITE_DONE) return {};
  const void* text = sqlite3_column_blob(statement.get(), 0);
  return std::string(TextOf(BytesAt(text, static_cast<size_t>(sqlite3_column_bytes(statement.get(), 0)))));
}

sqlite3_file* Connection::MainFile() const noexcept {
  sqlite3_file* file = nullptr;
  sqlite3_file_control(Get(), "main", SQLITE_FCNTL_FILE_POINTER, &file);
  return file != nullptr && file->pMethods != nullptr ? file : nullptr;
}

sqlite3_file* Connection::LogFile() const noexcept {
  sqlite3_file* file = nullptr;
  sqlite3_file_control(Get(), "main", SQLITE_FCNTL_JOURNAL_POINTER, &file);
  return file != nullptr && file->pMethods != nullptr ? file : nullptr;
}

void Connection::FailWith(int result) {
  const EngStatus code = StatusOfResult(result);
  Fail(code != status::kOk ? code : status::kInternal);
}

Lease::Lease(StatementSet& set, Query query) : set_(set), query_(query), statement_(set.Take(query)) {}

Lease::~Lease() { set_.GiveBack(query_, statement_); }

Lease& Lease::Bind(int position, int64_t value) {
  if (const int result = sqlite3_bind_int64(statement_, position, value)) Connection::FailWith(result);
  return *this;
}

Lease& Lease::Bind(int position, Bytes value) {
  // A null address would bind NULL instead of an empty value.
  const void* address = value.empty() ? static_cast<const void*>("") : value.data();
  const int result = sqlite3_bind_blob64(statement_, position, address, value.size(), SQLITE_STATIC);
  if (result != SQLITE_OK) Connection::FailWith(result);
  return *this;
}

bool Lease::Step() {
  const int result = sqlite3_step(statement_);
  if (result == SQLITE_ROW) return true;
  if (result != SQLITE_DONE) Connection::FailWith(result);
  return false;
}

Bytes Lease::Blob(int column) const {
  if (sqlite3_column_type(statement_, column) != SQLITE_BLOB) Fail(status::kDamaged);
  const void* address = sqlite3_column_blob(statement_, column);
  const auto byte_count = static_cast<size_t>(sqlite3_column_bytes(statement_, column));
  if (address == nullptr && sqlite3_errcode(sqlite3_db_handle(statement_)) == SQLITE_NOMEM) {
    Fail(status::kNoMemory);
  }
  return BytesAt(address, address == nullptr ? 0 : byte_count);
}

sqlite3_stmt* StatementSet::Take(Query query) {
  std::vector<StatementOwner>& idle = idle_[static_cast<size_t>(query)];
  if (idle.empty()) {
    idle.reserve(4);  // so that giving one back never has to allocate
    return connection_.Prepare(kQueries[static_cast<size_t>(query)].text).release();
  }
  sqlite3_stmt* statement = idle.back().release();
  idle.pop_back();
  return statement;
}

void StatementSet::GiveBack(Query query, sqlite3_stmt* statement) noexcept {
  sqlite3_reset(statement);
  StatementOwner owner(statement);
  std::vector<StatementOwner>& idle = idle_[static_cast<size_t>(query)];
  if (idle.size() < idle.capacity()) idle.push_back(std::move(owner));
}

}  // namespace brynd::store
