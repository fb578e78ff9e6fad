// One connection to SQLite, set up so that no file can make it run code or wait for ever, and the statements
// on it.
// (1) Every result of SQLite becomes a status through one table (StatusOfResult).
// (2) A connection is used by one thread at a time; its owner's mutex sees to that.
// (3) A leased statement is reset when its lease ends, so a statement that stays open is one somebody is
//     reading.
#ifndef BRYND_STORE_SQLITE_CONNECTION_H
#define BRYND_STORE_SQLITE_CONNECTION_H

#include <sqlite3.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "base/status.h"

namespace brynd::store {

// The status of a result of SQLite (extended codes too); 0 for the three that are no failure.
EngStatus StatusOfResult(int result) noexcept;

// True when the result says that data may not have reached the disk.
bool IsSyncFailure(int result) noexcept;

enum class Access : uint8_t { kReadOnly, kReadWrite, kMake };

struct ConnectionOptions {
  Access access = Access::kReadWrite;
  const char* vfs = nullptr;
  uint32_t busy_timeout_ms = 0;
  size_t cache_bytes = 2u << 20;
  bool may_attach = false;  // for VACUUM, which works on an attached file of its own
};

struct StatementCloser {
  void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};
using StatementOwner = std::unique_ptr<sqlite3_stmt, StatementCloser>;

class Connection {
 public:
  Connection(const std::string& path, const ConnectionOptions& options);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  sqlite3* Get() const noexcept { return database_.get(); }

  // Runs statements of our own text; Run gives the result of SQLite, Execute fails on all but success.
  int Run(const char* text) noexcept;
  void Execute(const char* text);

  StatementOwner Prepare(const char* text);
  int64_t Number(const char* query);  // first column of the first row; 0 without rows
  std::string Text(const char* query);

  int SetCache(size_t cache_bytes) noexcept;  // how much of the file is kept in memory at most

  // Waits for other processes end at this moment, whatever the time-out; zero takes the limit away.
  void LimitWaits(std::chrono::steady_clock::time_point moment) noexcept { wait_limit_ = moment; }

  sqlite3_file* MainFile() const noexcept;  // null when there is none
  sqlite3_file* LogFile() const noexcept;   // the write-ahead log; null while it is not open

  bool InTransaction() const noexcept { return sqlite3_get_autocommit(Get()) == 0; }
  int LastResult() const noexcept { return sqlite3_extended_errcode(Get()); }

  // Fails with the status of the result.
  [[noreturn]] static void FailWith(int result);

 private:
  struct Closer {
    void operator()(sqlite3* database) const noexcept { sqlite3_close_v2(database); }
  };
  static int WaitForOthers(void* self, int attempt) noexcept;
  void Harden(const ConnectionOptions& options);

  std::unique_ptr<sqlite3, Closer> database_;
  std::chrono::milliseconds timeout_;
  std::chrono::steady_clock::time_point wait_limit_{}, wait_end_{};
};

// The statements a handle keeps ready, one row each in connection.cpp.
enum class Query : uint8_t {
  kBegin,
  kBeginWrite,
  kCommit,
  kRollback,
  kSavepoint,
  kRollbackTo,
  kRelease,
  kReadNote,
  kScanNotes,
  kLastNote,
  kCountNotes,
  kPutNote,
  kAppendNote,
  kAppendTelling,
  kNewestNotes,
  kDeleteNote,
  kFindUnid,
  kPutUnid,
  kRemoveUnid,
  kReadRecord,
  kScanUp,
  kScanUpOpen,
  kScanDown,
  kScanDownOpen,
  kPutRecord,
  kRemoveRecord,
  kRemoveRange,
  kRemoveRangeOpen,
  kLastSequence,
  kFirstSequence,
  kCountChanges,
  kChanges,
  kChangesDown,
  kAddChanges,
  kTrimChanges,
  kCount
};

class StatementSet;

// A prepared statement for one use.
class Lease {
 public:
  Lease(StatementSet& set, Query query);
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;
  ~Lease();

  Lease& Bind(int position, int64_t value);
  Lease& Bind(int position, Bytes value);  // not copied: the bytes outlive the lease

  bool Step();  // true: a row; false: done; else fails
  int StepResult() noexcept { return sqlite3_step(statement_); }
  int64_t Number(int column) const noexcept { return sqlite3_column_int64(statement_, column); }
  bool IsNumber(int column) const noexcept {
    return sqlite3_column_type(statement_, column) == SQLITE_INTEGER;
  }
  bool IsNull(int column) const noexcept { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
  Bytes Blob(int column) const;  // fails with kDamaged when the column holds anything else
  sqlite3_stmt* Get() const noexcept { return statement_; }

 private:
  StatementSet& set_;
  const Query query_;
  sqlite3_stmt* statement_;
};

// Statements of a connection that are not in use, prepared when first needed. A visitor that reads again gets
// a second one.
class StatementSet {
 public:
  explicit StatementSet(Connection& connection) : connection_(connection) {}
  Connection& Of() const noexcept { return connection_; }

 private:
  friend class Lease;
  sqlite3_stmt* Take(Query query);
  void GiveBack(Query query, sqlite3_stmt* statement) noexcept;

  Connection& connection_;
  std::array<std::vector<StatementOwner>, static_cast<size_t>(Query::kCount)> idle_;
};

}  // namespace brynd::store

#endif  // BRYND_STORE_SQLITE_CONNECTION_H
