// A database to open and close, for the tests of database handles.
#ifndef KVDBASE_FIXTURE_H
#define KVDBASE_FIXTURE_H

#include <gtest/gtest.h>

#include <string>

#include "kit/kit.h"
#include "kvint.h"

constexpr uint16_t kEngineFailure = 0x1f7;
constexpr uint32_t kUntouched = 0xdeadbeef;

inline _DATABASE* Record(uint32_t database) { return _GetDatabase(KVICurrentSession(), database); }

class DatabaseTest : public kit::KavrinTest {
 protected:
  void SetUp() override {
    KavrinTest::SetUp();
    path_ = MakeDatabase("plain.qdb");
  }
  uint32_t Open(uint32_t dbopen_flags = 0) {
    uint32_t database = 0;
    EXPECT_EQ(KVDatabaseOpen(nullptr, path_.c_str(), dbopen_flags, &database), KVSUCCESS);
    EXPECT_NE(database, 0u);
    return database;
  }
  static void SetSessionBool(int32_t property, int32_t value) {
    ASSERT_EQ(KVSetProperty(property, &value), KVSUCCESS);
  }
  static void ExpectError(uint32_t status) { EXPECT_EQ(kit::LastError().status, status); }

  std::string path_;
};

inline uint32_t NewDocument(uint32_t database, const char* text) {
  uint32_t document = 0;
  EXPECT_EQ(KVDocumentCreate(database, 0, &document), KVSUCCESS);
  EXPECT_EQ(EngItemTextSet(_GetDocument(KVICurrentSession(), document)->notehand, "Subject", text, 0xffff),
            0);
  return document;
}

inline size_t CountDocuments(EngDb dbhand) {
  size_t count = 0;
  const auto callback = [](void* parameter, const SEARCH_MATCH* match, const ITEM_TABLE*) -> EngStatus {
    if (match->SERetFlags & 1) ++*static_cast<size_t*>(parameter);
    return 0;
  };
  EXPECT_EQ(EngDbSearch(dbhand, 0, nullptr, 0, 1, nullptr, callback, &count, nullptr), 0);
  return count;
}

#endif
