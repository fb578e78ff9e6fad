// What the tests of the store share: a folder of their own, short ways to write and read, a model to compare
// with.
#ifndef KAVRIN_TESTS_ENGINE_STORE_FIXTURE_H
#define KAVRIN_TESTS_ENGINE_STORE_FIXTURE_H

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <utility>

#include "base/boundary.h"
#include "kit/vfs_shim.h"
#include "store/store.h"

namespace store_test {

using brynd::Bytes;
using brynd::BytesOf;
using brynd::TextOf;
using brynd::store::ChangeKind;
using brynd::store::Create;
using brynd::store::Database;
using brynd::store::Durability;
using brynd::store::NoteId;
using brynd::store::Open;
using brynd::store::OpenOptions;
using brynd::store::Space;
using brynd::store::Unid;
using brynd::store::Write;
namespace status = brynd::status;

// The status a body ends with; 0 when it ends well.
template <class Body>
EngStatus StatusOf(Body&& body) {
  return brynd::AtBoundary(std::forward<Body>(body));
}

// A folder that is gone with the record; in memory where the system has such a place, since no test needs a
// real disk.
class Folder {
 public:
  Folder() {
    const std::filesystem::path memory = "/dev/shm";
    const bool usable = access(memory.c_str(), W_OK) == 0;
    std::string name =
        ((usable ? memory : std::filesystem::temp_directory_path()) / "store_test_XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) std::abort();
    path_ = name;
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  std::string File(std::string_view name) const { return path_ + "/" + std::string(name); }
  const std::string& Path() const { return path_; }
  size_t FileCount() const {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(path_), {}));
  }

 private:
  std::string path_;
};

inline uint64_t SeedOfRun() {
  const char* given = std::getenv("KV_SEED");
  const uint64_t seed = given != nullptr ? std::strtoull(given, nullptr, 0) : std::random_device{}();
  std::printf("KV_SEED=%llu\n", static_cast<unsigned long long>(seed));
  return seed;
}

// All that a database holds, as a plain map: "n<id>", "u<unid>", "r<space>/<key>" -> value.
using Model = std::map<std::string, std::string>;

inline std::string NoteKey(NoteId note_id) { return "n" + std::to_string(note_id); }
inline std::string RecordKey(Space space, std::string_view key) {
  return "r" + std::to_string(space) + "/" + std::string(key);
}

inline Unid UnidOf(uint32_t number) {
  Unid unid{};
  for (size_t at = 0; at < unid.size(); ++at)
    unid[at] = static_cast<std::byte>(number * 2654435761u >> (at % 4 * 8));
  return unid;
}

inline std::string Note(Database& database, NoteId note_id) {
  std::string text = "(none)";
  database.ReadNote(note_id, [&](Bytes image) { text = TextOf(image); });
  return text;
}

inline std::string Record(Database& database, Space space, std::string_view key) {
  std::string text = "(none)";
  database.ReadRecord(space, BytesOf(key), [&](Bytes value) { text = TextOf(value); });
  return text;
}

inline void Put(Database& database, NoteId note_id, std::string_view text, Durability durability) {
  Write write = database.BeginWrite();
  write.PutNote(note_id, BytesOf(text));
  write.Commit(durability);
}

// Notes and the records of spaces 1 to 3.
inline Model Contents(Database& database) {
  Model model;
  database.ScanNotes(0, [&](NoteId note_id, Bytes image) {
    model[NoteKey(note_id)] = TextOf(image);
    return true;
  });
  for (const Space space : {1u, 2u, 3u}) {
    database.ScanRecords(space, {}, std::nullopt, [&](Bytes key, Bytes value) {
      model[RecordKey(space, TextOf(key))] = TextOf(value);
      return true;
    });
  }
  return model;
}

// Runs a body in a child process; says how that ended (as waitpid does). Output buffers must not be written
// twice.
template <class Body>
pid_t StartChild(Body&& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    const EngStatus code = StatusOf(body);
    _exit(code == 0 ? 0 : 100);
  }
  return child;
}

inline int EndOf(pid_t child) {
  int outcome = 0;
  waitpid(child, &outcome, 0);
  return outcome;
}

class StoreFixture : public testing::Test {
 protected:
  void SetUp() override {
    vfs_shim::Reset();
    path_ = folder_.File("base.qdb");
  }
  void TearDown() override {
    vfs_shim::Reset();
    EXPECT_EQ(brynd::store::OpenHandleCount(), 0u);
  }

  Folder folder_;
  std::string path_;
};

}  // namespace store_test

#endif  // KAVRIN_TESTS_ENGINE_STORE_FIXTURE_H
