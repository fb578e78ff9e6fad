#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <set>
#include <thread>
#include <vector>

#include "base/handle_table.h"
#include "base/memory.h"
#include "base/slot_pool.h"

using namespace brynd;

namespace {

using SmallTable = HandleTable<int, Handles16()>;
constexpr uint32_t kSmallSlots = 4095;

// A pool over plain words.
struct Pool {
  SlotPool slots;
  std::vector<uint32_t> next;
  uint32_t made = 0;
  Pool(uint32_t index_max, uint32_t kept) : slots(index_max, kept), next(index_max + 1) {}
  auto Next() {
    return [this](uint32_t index) -> uint32_t& { return next[index]; };
  }
  uint32_t Take() {
    SlotPool::Shard& shard = slots.Mine();
    const std::lock_guard lock(shard.lock);
    return slots.Take(shard, Next(), [this](uint32_t) { ++made; });
  }
  void Give(uint32_t index) {
    SlotPool::Shard& shard = slots.Mine();
    const std::lock_guard lock(shard.lock);
    slots.Give(shard, index, Next());
  }
  uint64_t Live() { return SlotPool::AllShards(slots).Live(); }
};

void InThread(const std::function<void()>& work) { std::thread(work).join(); }

TEST(SlotPoolTest, Take_FreedSlot_ComesBackAfterAsManyOthersAsAreKept) {
  Pool pool(1000, 8);
  const uint32_t first = pool.Take();
  pool.Give(first);
  uint32_t frees_between = 0;
  for (uint32_t index; (index = pool.Take()) != first; ++frees_between) pool.Give(index);
  EXPECT_GE(frees_between, 8u);
  EXPECT_LE(frees_between, 8u * 3);
  EXPECT_LE(pool.made, 8u * 3) << "freed slots are used again";
}

TEST(SlotPoolTest, Take_AllTaken_NothingThenWhatIsGivenBack) {
  Pool pool(20, 8);
  std::set<uint32_t> taken;
  for (int i = 0; i < 20; ++i) taken.insert(pool.Take());
  EXPECT_EQ(20u, taken.size());
  EXPECT_EQ(1u, *taken.begin());
  EXPECT_EQ(20u, *taken.rbegin());
  EXPECT_EQ(0u, pool.Take());
  EXPECT_FALSE(pool.slots.Rescue(pool.Next()));
  EXPECT_EQ(20u, pool.Live());
  pool.Give(7);
  EXPECT_EQ(7u, pool.Take());
  EXPECT_EQ(0u, pool.Take());
}

TEST(SlotPoolTest, Rescue_SlotsKeptByAnotherThread_AreFound) {
  Pool pool(20, 8);
  InThread([&] {
    std::vector<uint32_t> taken;
    for (int i = 0; i < 20; ++i) taken.push_back(pool.Take());
    for (const uint32_t index : taken) pool.Give(index);
    // A second thread at the same time has a shard of its own, where nothing is kept.
    InThread([&] {
      std::set<uint32_t> found;
      for (int i = 0; i < 20; ++i) {
        uint32_t index = pool.Take();
        if (index == 0 && pool.slots.Rescue(pool.Next())) index = pool.Take();
        EXPECT_NE(0u, index);
        EXPECT_TRUE(found.insert(index).second) << index;
      }
      EXPECT_EQ(0u, pool.Take());
    });
  });
  EXPECT_EQ(20u, pool.Live());
}

TEST(SlotPoolTest, Give_ByAnotherThreadThanTakes_SlotsGoRound) {
  Pool pool(100000, 16);
  // The inner thread frees what the outer one takes: their shards differ while both run.
  InThread([&] {
    std::atomic<uint32_t> handed{0};
    std::atomic<bool> done{false};
    std::thread freeing([&] {
      while (!done) {
        if (const uint32_t index = handed.exchange(0)) pool.Give(index);
        std::this_thread::yield();
      }
    });
    for (int round = 0; round < 5000; ++round) {
      const uint32_t index = pool.Take();
      EXPECT_NE(0u, index);
      handed = index;
      while (handed != 0) std::this_thread::yield();
    }
    done = true;
    freeing.join();
  });
  EXPECT_EQ(0u, pool.Live());
  EXPECT_LE(pool.made, 16u * 6) << "what one thread frees reaches the other";
}

TEST(SlotPoolTest, SlotShardOfThread_ThreadsAtOnce_ShardsDifferAndAreFreedAtTheEnd) {
  std::set<uint32_t> seen;
  for (int round = 0; round < 100; ++round) {
    InThread([&] { seen.insert(SlotShardOfThread()); });
  }
  EXPECT_EQ(1u, seen.size()) << "the shard of a thread that ended is the next one's";
  std::atomic<int> same{0};
  InThread([&] {
    const uint32_t outer = SlotShardOfThread();
    InThread([&] { same += SlotShardOfThread() == outer; });
    EXPECT_EQ(outer, SlotShardOfThread());
  });
  EXPECT_EQ(0, same);
}

TEST(SlotPoolTest, HandleTable_SlotsKeptByOtherThreads_EverySlotCanBeTaken) {
  auto table = std::make_unique<SmallTable>();
  std::vector<std::thread> threads;
  std::atomic<int> arrived{0};
  for (int number = 0; number < 6; ++number) {
    threads.emplace_back([&] {
      std::vector<uint16_t> handles;
      for (int i = 0; i < 500; ++i) handles.push_back(table->Add(std::make_unique<int>(i)));
      ++arrived;
      while (arrived < 6) std::this_thread::yield();
      for (const uint16_t handle : handles) table->Remove(handle);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(0u, table->Count());
  std::set<uint16_t> handles;
  for (uint32_t i = 0; i < kSmallSlots; ++i) handles.insert(table->Add(std::make_unique<int>(1)));
  EXPECT_EQ(kSmallSlots, handles.size());
  EXPECT_EQ(kSmallSlots, table->Count());
  EXPECT_THROW(table->Add(std::make_unique<int>(1)), Failure);
}

TEST(SlotPoolTest, HandleTable_TwoThreadsRemoveOneHandle_OneGetsTheObject) {
  auto table = std::make_unique<SmallTable>();
  for (int round = 0; round < 300; ++round) {
    const uint16_t handle = table->Add(std::make_unique<int>(round));
    std::atomic<int> ready{0}, removed{0};
    const auto remove = [&] {
      ++ready;
      while (ready < 2) {
      }
      if (const auto object = table->Remove(handle)) removed += *object == round;
    };
    std::thread first(remove), second(remove);
    first.join();
    second.join();
    ASSERT_EQ(1, removed);
  }
  EXPECT_EQ(0u, table->Count());
}

TEST(SlotPoolTest, Memory_TwoThreadsFreeOneBlock_OneSucceedsAndCountsAreExact) {
  const MemoryStats before = memory::Stats();
  for (int round = 0; round < 300; ++round) {
    MemHandle handle = 0;
    ASSERT_EQ(status::kOk, memory::Allocate(uint16_t{0}, 10, &handle));
    std::atomic<int> ready{0}, freed{0};
    const auto free_it = [&] {
      ++ready;
      while (ready < 2) {
      }
      freed += memory::Free(handle) == status::kOk;
    };
    std::thread first(free_it), second(free_it);
    first.join();
    second.join();
    ASSERT_EQ(1, freed);
  }
  const MemoryStats after = memory::Stats();
  EXPECT_EQ(before.blocks, after.blocks);
  EXPECT_EQ(before.bytes, after.bytes);
  EXPECT_EQ(before.locks, after.locks);
}

TEST(SlotPoolTest, Memory_StatsWhileThreadsWork_CountWholeBlocks) {
  const MemoryStats before = memory::Stats();
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  for (int number = 0; number < 3; ++number) {
    threads.emplace_back([&] {
      while (!done) {
        MemHandle handle = 0;
        if (memory::Allocate(uint16_t{0}, 64, &handle) == status::kOk) memory::Free(handle);
      }
    });
  }
  for (int round = 0; round < 200; ++round) {
    const MemoryStats now = memory::Stats();
    EXPECT_LE(now.blocks, before.blocks + 3);
    EXPECT_EQ((now.blocks - before.blocks) * 64, now.bytes - before.bytes) << "no block is seen half made";
  }
  done = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(before.blocks, memory::Stats().blocks);
}

}  // namespace
