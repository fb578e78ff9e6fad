#include <gtest/gtest.h>

#include <map>
#include <string>
#include <thread>

#include "base/handle_table.h"
#include "engine/test_random.h"

using namespace brynd;

namespace {

using Table = HandleTable<std::string, Handles32(HandleKind::kNote)>;
using Foreign = HandleTable<std::string, Handles32(HandleKind::kDatabase)>;
using SmallTable = HandleTable<int, Handles16()>;

TEST(HandleTableTest, Add_GivesAHandleThatFindsTheObject) {
  auto table = std::make_unique<Table>();
  const uint32_t handle = table->Add(std::make_unique<std::string>("one"));
  EXPECT_NE(0u, handle);
  ASSERT_NE(nullptr, table->Find(handle));
  EXPECT_EQ("one", *table->Find(handle));
  EXPECT_EQ("one", table->Get(handle));
  EXPECT_EQ(1u, table->Count());
}

TEST(HandleTableTest, Find_StaleForgedAndForeignHandle_Nothing) {
  auto table = std::make_unique<Table>();
  auto foreign = std::make_unique<Foreign>();
  const uint32_t handle = table->Add(std::make_unique<std::string>("one"));
  const uint32_t other = foreign->Add(std::make_unique<std::string>("two"));
  EXPECT_EQ(nullptr, table->Find(other)) << "the kind tells them apart";
  EXPECT_EQ(nullptr, foreign->Find(handle));
  for (const uint32_t bad : {0u, 1u, 0xffffffffu, handle + 1, handle ^ 0x00100000u, handle ^ 0x80000000u}) {
    EXPECT_EQ(nullptr, table->Find(bad)) << bad;
    EXPECT_EQ(nullptr, table->Remove(bad)) << bad;
  }
  const std::unique_ptr<std::string> removed = table->Remove(handle);
  ASSERT_NE(nullptr, removed);
  EXPECT_EQ("one", *removed);
  EXPECT_EQ(nullptr, table->Find(handle));
  EXPECT_EQ(nullptr, table->Remove(handle)) << "twice";
  EXPECT_EQ(0u, table->Count());
  try {
    table->Get(handle);
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(status::kBadHandle, failure.status());
  }
}

TEST(HandleTableTest, Remove_StaleHandleStaysRecognisedLong) {
  auto table = std::make_unique<Table>();
  const uint32_t stale = table->Add(std::make_unique<std::string>("x"));
  table->Remove(stale);
  for (int round = 0; round < 10000; ++round) {
    const uint32_t handle = table->Add(std::make_unique<std::string>("y"));
    ASSERT_NE(stale, handle);
    ASSERT_EQ(nullptr, table->Find(stale));
    table->Remove(handle);
  }
}

TEST(HandleTableTest, Add_SmallTableFull_TooManyOpenAndUsableAgain) {
  auto table = std::make_unique<SmallTable>();
  std::vector<uint16_t> handles;
  for (int number = 0; number < 4095; ++number) handles.push_back(table->Add(std::make_unique<int>(number)));
  try {
    table->Add(std::make_unique<int>(-1));
    FAIL() << "4095 slots only";
  } catch (const Failure& failure) {
    EXPECT_EQ(status::kTooManyOpen, failure.status());
  }
  for (int number = 0; number < 4095; ++number)
    EXPECT_EQ(number, *table->Find(handles[static_cast<size_t>(number)]));
  EXPECT_EQ(7, *table->Remove(handles[7]));
  const uint16_t again = table->Add(std::make_unique<int>(70));
  EXPECT_NE(handles[7], again);
  EXPECT_NE(0, again);
  EXPECT_EQ(70, *table->Find(again));
}

TEST(HandleTableTest, RandomOperations_AgreeWithAMap) {
  TestRandom random(SeedOfRun());
  auto table = std::make_unique<Table>();
  std::map<uint32_t, std::string> model;
  for (int step = 0; step < 20000; ++step) {
    if (model.empty() || random.Below(100) < 55) {
      const std::string text = std::to_string(step);
      const uint32_t handle = table->Add(std::make_unique<std::string>(text));
      ASSERT_TRUE(model.emplace(handle, text).second);
    } else {
      auto entry = model.lower_bound(static_cast<uint32_t>(random.U64()));
      if (entry == model.end()) entry = model.begin();
      ASSERT_EQ(entry->second, *table->Remove(entry->first));
      model.erase(entry);
    }
  }
  size_t seen = 0;
  table->ForEach([&](uint32_t handle, const std::string& text) {
    ++seen;
    EXPECT_EQ(model.at(handle), text);
  });
  EXPECT_EQ(model.size(), seen);
}

TEST(HandleTableTest, Threads_FindWhileOthersAddAndRemove) {
  auto table = std::make_unique<Table>();
  const uint32_t lasting = table->Add(std::make_unique<std::string>("lasting"));
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&] {
      for (int round = 0; round < 3000; ++round) {
        const uint32_t handle = table->Add(std::make_unique<std::string>("mine"));
        const std::string* mine = table->Find(handle);
        if (mine == nullptr || *mine != "mine") ++failures;
        if (*table->Find(lasting) != "lasting") ++failures;
        if (table->Remove(handle) == nullptr) ++failures;
        if (table->Find(handle) != nullptr) ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(0, failures.load());
  EXPECT_EQ(1u, table->Count());
}

}  // namespace
