#include "store/sqlite/schema.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <vector>

#include "base/status.h"

namespace brynd::store {

namespace {

struct TableRow {
  const char* name;
  const char* text;
};

// Compared with what a file holds: a change here is a new kFormat.
constexpr TableRow kSchema[] = {
    {"note", "CREATE TABLE note(id INTEGER PRIMARY KEY,made INTEGER,image BLOB NOT NULL)"},
    {"unid", "CREATE TABLE unid(unid BLOB PRIMARY KEY,id INTEGER NOT NULL)WITHOUT ROWID"},
    {"record",
     "CREATE TABLE record(space INTEGER,key BLOB,value BLOB NOT NULL,PRIMARY KEY(space,key))WITHOUT ROWID"},
    {"journal", "CREATE TABLE journal(sequence INTEGER PRIMARY KEY,changes BLOB NOT NULL)"},
};

// What a word index adds, always all of it; SQLite makes the tables behind the first.
constexpr TableRow kWordIndex[] = {
    {"words", kWordsTable},
    {"words_data", "CREATE TABLE 'words_data'(id INTEGER PRIMARY KEY, block BLOB)"},
    {"words_idx", "CREATE TABLE 'words_idx'(segid, term, pgno, PRIMARY KEY(segid, term)) WITHOUT ROWID"},
    {"words_config", "CREATE TABLE 'words_config'(k PRIMARY KEY, v) WITHOUT ROWID"},
};

constexpr char kInstanceKey[] = "instance";

// Offsets in the header of an SQLite file; its numbers are big-endian.
constexpr size_t kHeaderBytes = 100;
constexpr char kMagic[] = "SQLite format 3";
constexpr size_t kPageSizeAt = 16, kWriteVersionAt = 18, kReadVersionAt = 19, kUserVersionAt = 60,
                 kApplicationAt = 68;
constexpr std::byte kJournalVersion{1}, kLogVersion{2};  // the first is seen when a removal was interrupted

using Header = std::array<std::byte, kHeaderBytes>;

uint32_t BigEndian(const Header& header, size_t offset, size_t byte_count) noexcept {
  uint32_t value = 0;
  for (size_t at = offset; at < offset + byte_count; ++at)
    value = value << 8 | std::to_integer<uint32_t>(header[at]);
  return value;
}

FileInfo Explain(const Header& header) noexcept {
  FileInfo info;
  const uint32_t page = BigEndian(header, kPageSizeAt, 2);
  info.page_bytes = page == 1 ? 65536 : page;
  info.format = static_cast<uint16_t>(BigEndian(header, kUserVersionAt, 4));
  info.file_class = static_cast<uint16_t>(BigEndian(header, kUserVersionAt, 4) >> 16);
  info.is_database = std::memcmp(header.data(), kMagic, sizeof kMagic) == 0 &&
                     BigEndian(header, kApplicationAt, 4) == kApplicationId && info.format != 0 &&
                     header[kWriteVersionAt] >= kJournalVersion && header[kWriteVersionAt] <= kLogVersion &&
                     header[kReadVersionAt] == header[kWriteVersionAt] && info.page_bytes >= 512 &&
                     std::has_single_bit(info.page_bytes);
  return info;
}

// A file opened through SQLite's file system alone.
class RawFile {
 public:
  RawFile(const std::string& path, const char* vfs_name) {
    sqlite3_vfs* vfs = sqlite3_vfs_find(vfs_name);
    if (vfs == nullptr) Fail(status::kInternal);
    storage_.resize((static_cast<size_t>(vfs->szOsFile) + sizeof(std::max_align_t) - 1) /
                    sizeof(std::max_align_t));
    name_ = sqlite3_create_filename(path.c_str(), "", "", 0, nullptr);
    if (name_ == nullptr) Fail(status::kNoMemory);
    const int flags = SQLITE_OPEN_READONLY | SQLITE_OPEN_MAIN_DB;
    const int result = vfs->xOpen(vfs, name_, File(), flags, nullptr);
    if (result != SQLITE_OK) {
      Close();
      Connection::FailWith(result);
    }
  }
  RawFile(const RawFile&) = delete;
  RawFile& operator=(const RawFile&) = delete;
  ~RawFile() { Close(); }

  sqlite3_file* File() noexcept { return reinterpret_cast<sqlite3_file*>(storage_.data()); }

 private:
  void Close() noexcept {
    if (File()->pMethods != nullptr) File()->pMethods->xClose(File());
    sqlite3_free_filename(name_);
  }

  std::vector<std::max_align_t> storage_;
  const char* name_ = nullptr;
};

}  // namespace

FileInfo ReadHeader(const std::string& path, const char* vfs) {
  RawFile raw(path, vfs);
  sqlite3_file* file = raw.File();
  sqlite3_int64 file_bytes = 0;
  if (const int result = file->pMethods->xFileSize(file, &file_bytes)) Connection::FailWith(result);
  FileInfo info;
  if (file_bytes >= static_cast<sqlite3_int64>(kHeaderBytes)) {
    Header header{};
    if (const int result = file->pMethods->xRead(file, header.data(), kHeaderBytes, 0))
      Connection::FailWith(result);
    info = Explain(header);
  }
  info.file_bytes = static_cast<uint64_t>(file_bytes);
  struct stat beside;
  if (stat((path + "-wal").c_str(), &beside) == 0) info.log_bytes = static_cast<uint64_t>(beside.st_size);
  return info;
}

void CheckHeader(const FileInfo& info) {
  if (!info.is_database) Fail(status::kNotDatabase);
  if (info.format > kFormat) Fail(status::kNewerFormat);
}

void MakeSchema(Connection& connection, uint16_t file_class, uint32_t page_bytes) {
  const uint32_t page = page_bytes == 0 ? kPageBytes : page_bytes;
  if (page < 1024 || page > 65536 || !std::has_single_bit(page)) Fail(status::kBadArgument);
  const uint32_t version = uint32_t{file_class} << 16 | kFormat;
  connection.Execute(("PRAGMA page_size=" + std::to_string(page)).c_str());
  connection.Execute("PRAGMA auto_vacuum=NONE; PRAGMA encoding='UTF-8'; PRAGMA journal_mode=MEMORY; BEGIN");
  connection.Execute(("PRAGMA application_id=" + std::to_string(kApplicationId)).c_str());
  connection.Execute(("PRAGMA user_version=" + std::to_string(static_cast<int32_t>(version))).c_str());
  for (const TableRow& table : kSchema) connection.Execute(table.text);
  connection.Execute(
      "INSERT INTO journal VALUES(1,x''); COMMIT");  // so that every file has a last transaction
}

void VerifySchema(Connection& connection) {
  const StatementOwner rows =
      connection.Prepare("SELECT type,name,tbl_name,sql FROM sqlite_schema ORDER BY rowid");
  const auto column = [&](int index) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(rows.get(), index));
    return std::string_view(text == nullptr ? "" : text);
  };
  // Compaction puts the tables of a word index in another order.
  std::array<uint32_t, 2> seen{};
  int result = SQLITE_OK;
  while ((result = sqlite3_step(rows.get())) == SQLITE_ROW) {
    const auto is_this = [&](const TableRow& row) { return column(1) == row.name; };
    const auto* const own = std::ranges::find_if(kSchema, is_this);
    const auto* const words = std::ranges::find_if(kWordIndex, is_this);
    const bool is_own = own != std::end(kSchema);
    if (!is_own && words == std::end(kWordIndex)) Fail(status::kDamaged);
    const TableRow& expected = is_own ? *own : *words;
    const auto bit = uint32_t{1} << (is_own ? own - std::begin(kSchema) : words - std::begin(kWordIndex));
    if (column(0) != "table" || column(2) != expected.name || column(3) != expected.text)
      Fail(status::kDamaged);
    if ((seen[is_own] & bit) != 0) Fail(status::kDamaged);
    seen[is_own] |= bit;
  }
  if (result != SQLITE_DONE) Connection::FailWith(result);
  constexpr uint32_t kAllOwn = (1u << std::size(kSchema)) - 1, kAllWords = (1u << std::size(kWordIndex)) - 1;
  if (seen[true] != kAllOwn || (seen[false] != 0 && seen[false] != kAllWords)) Fail(status::kDamaged);
}

FileMark MarkOf(const std::string& path) {
  struct statx facts;
  if (statx(AT_FDCWD, path.c_str(), 0, STATX_INO | STATX_BTIME, &facts) != 0) Fail(status::kNoFile);
  FileMark mark{.inode = facts.stx_ino, .made = uint64_t{facts.stx_dev_major} << 32 | facts.stx_dev_minor};
  if ((facts.stx_mask & STATX_BTIME) != 0) {
    mark.made = static_cast<uint64_t>(facts.stx_btime.tv_sec) * 1000000000u + facts.stx_btime.tv_nsec;
  }
  return mark;
}

InstanceRecord ReadInstance(Connection& connection) {
  const StatementOwner row = connection.Prepare("SELECT value FROM record WHERE space=?1 AND key=?2");
  sqlite3_bind_int64(row.get(), 1, kOwnSpace);
  sqlite3_bind_blob(row.get(), 2, kInstanceKey, sizeof kInstanceKey - 1, SQLITE_STATIC);
  const int result = sqlite3_step(row.get());
  if (result == SQLITE_DONE) return {};
  if (result != SQLITE_ROW) Connection::FailWith(result);
  const void* address = sqlite3_column_blob(row.get(), 0);
  if (sqlite3_column_bytes(row.get(), 0) != static_cast<int>(kInstanceBytes)) Fail(status::kDamaged);
  ByteReader in(address, kInstanceBytes);
  InstanceRecord record;
  record.instance_id = in.U64();
  record.mark.inode = in.U64();
  record.mark.made = in.U64();
  return record;
}

void WriteInstance(Connection& connection, const InstanceRecord& record) {
  std::array<std::byte, kInstanceBytes> value;
  ByteWriter out(value);
  out.U64(record.instance_id);
  out.U64(record.mark.inode);
  out.U64(record.mark.made);
  const StatementOwner row = connection.Prepare("REPLACE INTO record(space,key,value) VALUES(?1,?2,?3)");
  sqlite3_bind_int64(row.get(), 1, kOwnSpace);
  sqlite3_bind_blob(row.get(), 2, kInstanceKey, sizeof kInstanceKey - 1, SQLITE_STATIC);
  sqlite3_bind_blob(row.get(), 3, value.data(), static_cast<int>(value.size()), SQLITE_STATIC);
  const int result = sqlite3_step(row.get());
  if (result != SQLITE_DONE) Connection::FailWith(result);
}

}  // namespace brynd::store
