// What tests of whole databases share: a clock that is set, a second database, stored records as raw bytes,
// compiled formulas, searches as lists of ids.
#ifndef TESTS_ENGINE_DATA_FIXTURE_H
#define TESTS_ENGINE_DATA_FIXTURE_H

#include <functional>
#include <optional>
#include <vector>

#include "base/boundary.h"
#include "base/time.h"
#include "engine/note_fixture.h"

class SetClock : public brynd::Clock {
 public:
  int64_t UnixNanoseconds() override { return now; }
  uint64_t MonotonicNanoseconds() override { return brynd::SystemClock().MonotonicNanoseconds(); }
  void SleepMilliseconds(uint32_t milliseconds) override {
    brynd::SystemClock().SleepMilliseconds(milliseconds);
  }
  // Ahead by hundredths of a second; the time then.
  TIMEDATE Pass(int64_t hundredths) {
    now += hundredths * 10'000'000;
    return Now();
  }
  int64_t now = 1'000'000'000'000'000'000;
};

class DataFixture : public NoteFixture {
 protected:
  using Record = std::vector<std::byte>;

  void SetUp() override {
    NoteFixture::SetUp();
    ASSERT_EQ(0, EngDbCreate("other", 0, 0, 0, 0, 0));
    ASSERT_EQ(0, EngDbOpen("other", &other_));
    ASSERT_EQ(0, EngDbOpen("", &directory_));
  }
  void TearDown() override {
    EXPECT_EQ(0, EngDbClose(directory_));
    EXPECT_EQ(0, EngDbClose(other_));
    NoteFixture::TearDown();
  }

  brynd::Database& Other() { return *brynd::FindDatabase(other_); }
  static const std::shared_ptr<brynd::Database>& Shared(EngDb db) { return brynd::FindDatabase(db); }

  static EngMem Compile(std::string_view text) {
    EngMem formula = 0;
    EXPECT_EQ(0, EngFormulaCompile(nullptr, 0, text.data(), static_cast<uint16_t>(text.size()), &formula,
                                   nullptr, nullptr, nullptr, nullptr, nullptr, nullptr))
        << text;
    return formula;
  }

  // Stored records as they lie in the store.
  static Record RawOf(brynd::Database& database, brynd::store::Space space, brynd::Bytes key) {
    Record record;
    EXPECT_TRUE(database.Store().ReadRecord(
        space, key, [&](brynd::Bytes stored) { record.assign(stored.begin(), stored.end()); }));
    return record;
  }
  static void PutRaw(brynd::Database& database, brynd::store::Space space, brynd::Bytes key,
                     brynd::Bytes record) {
    brynd::DatabaseWrite write(database);
    write.Records().PutRecord(space, key, record);
    write.Commit(brynd::store::Durability::kLazy);
  }
  static void PutFact(brynd::Database& database, std::string_view key, brynd::Bytes content) {
    brynd::DatabaseWrite write(database);
    brynd::Database::PutFact(write, key, content);
    write.Commit(brynd::store::Durability::kLazy);
  }
  static Record RawNote(brynd::Database& database, uint32_t id) {
    Record image;
    EXPECT_TRUE(database.Store().ReadNote(
        id, [&](brynd::Bytes stored) { image.assign(stored.begin(), stored.end()); }));
    return image;
  }
  static void PutRawNote(brynd::Database& database, uint32_t id, brynd::Bytes image) {
    brynd::DatabaseWrite write(database);
    write.Records().PutNote(id, image);
    write.Commit(brynd::store::Durability::kLazy);
  }

  // Calls `with` for every start of a record, and for it with each of its bytes changed.
  static void ForEachHarm(const Record& whole, const std::function<void(const Record& harmed)>& with) {
    for (size_t bytes = 0; bytes < whole.size(); ++bytes)
      with(Record(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(bytes)));
    for (size_t at = 0; at < whole.size(); ++at) {
      for (const unsigned change : {0x01u, 0x80u, 0xffu}) {
        Record harmed = whole;
        harmed[at] ^= static_cast<std::byte>(change);
        with(harmed);
      }
    }
  }

  // A search through the boundary that collects the ids of its matches.
  struct Found {
    EngStatus outcome = 0;
    std::vector<uint32_t> ids;
    TIMEDATE until{};
  };
  static EngStatus KeepId(void* parameter, const SEARCH_MATCH* match, const ITEM_TABLE*) {
    SEARCH_MATCH copy;
    std::memcpy(&copy, match, sizeof copy);
    EXPECT_EQ(1, copy.SERetFlags);
    static_cast<Found*>(parameter)->ids.push_back(copy.ID.NoteID);
    return 0;
  }
  Found Search(uint16_t class_mask, EngMem formula = 0, const TIMEDATE* since = nullptr) {
    Found found;
    found.outcome = EngDbSearch(db_, formula, nullptr, 0, class_mask, since, KeepId, &found, &found.until);
    return found;
  }
  uint32_t StoreClass(uint16_t note_class, std::string_view name = "Title", std::string_view text = "x") {
    const EngNote note = NewNote();
    EXPECT_EQ(0, EngNoteInfoSet(note, 3, &note_class));
    EXPECT_EQ(0, AppendText(note, name, text));
    EXPECT_EQ(0, EngNoteUpdate(note, 4));
    const uint32_t id = IdOf(note);
    EXPECT_EQ(0, EngNoteClose(note));
    return id;
  }

  EngDb other_ = 0, directory_ = 0;
};

#endif
