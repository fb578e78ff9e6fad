// The marks and the schema of a database file, its making and its verification.
//
// The SQLite header carries: application id kApplicationId; user version = kFormat in the low 16 bits, the
// file class of Create in the high 16. Tables (kSchema, compared byte for byte at each opening):
//   note     id -> image; made: the transaction that did nothing but append this note, which then has no
//            row in the journal; else NULL. It rises with the ids.
//   unid     foreign universal id (16 bytes) -> note id
//   record   (space, key) -> value; space -1 is the store's own, key "instance" holds the record below
//   words    the word index, if one was made (fulltext.h), with the tables words_data, words_idx and
//            words_config behind it
//   journal  sequence -> changes of a transaction that no note tells: per change a varint
//            (zigzag(id - previous id) << 2 | kind)
// Instance record: offset 0 instance id u64; 8 and 16 the FileMark of the file it was made for, inode u64 and
// made u64.
#ifndef BRYND_STORE_SQLITE_SCHEMA_H
#define BRYND_STORE_SQLITE_SCHEMA_H

#include <array>
#include <cstdint>
#include <string>

#include "base/bytes.h"
#include "store/sqlite/connection.h"
#include "store/store.h"

namespace brynd::store {

inline constexpr uint32_t kApplicationId = 0x4272796e;  // "Bryn"
inline constexpr uint16_t kFormat = 2;
inline constexpr uint32_t kPageBytes = 8192;  // scans are a fifth faster than with 4096
inline constexpr int64_t kOwnSpace = -1;

// The word index. It keeps no texts, nor their lengths.
inline constexpr char kWordsTable[] =
    "CREATE VIRTUAL TABLE words USING fts5(tokens,content='',columnsize=0,tokenize='tokens')";

// What the raw first bytes of a file say, read through the file system of SQLite without opening a database:
// no rollback is started, nothing is written, and locks of this process on the file stay.
FileInfo ReadHeader(const std::string& path, const char* vfs);

// Fails unless the header is one of ours and of a format we know.
void CheckHeader(const FileInfo& info);

// Makes tables and marks in an empty file.
void MakeSchema(Connection& connection, uint16_t file_class, uint32_t page_bytes);

// Fails with kDamaged when the file holds anything but exactly our tables.
void VerifySchema(Connection& connection);

// What tells a file from a copy of it: the inode number and the time the inode was made (or its device).
struct FileMark {
  uint64_t inode = 0, made = 0;
  friend bool operator==(const FileMark&, const FileMark&) = default;
};
FileMark MarkOf(const std::string& path);

struct InstanceRecord {
  uint64_t instance_id = 0;
  FileMark mark;
  friend bool operator==(const InstanceRecord&, const InstanceRecord&) = default;
};
inline constexpr size_t kInstanceBytes = 24;

InstanceRecord ReadInstance(Connection& connection);
void WriteInstance(Connection& connection, const InstanceRecord& record);

}  // namespace brynd::store

#endif  // BRYND_STORE_SQLITE_SCHEMA_H
