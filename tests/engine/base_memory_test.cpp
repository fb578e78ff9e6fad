#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "base/memory.h"
#include "base/process.h"
#include "brynd_memory.h"
#include "engine/test_random.h"

using namespace brynd;

namespace {

class MemoryTest : public testing::Test {
 protected:
  void SetUp() override { before_ = memory::Stats(); }
  void TearDown() override {
    const MemoryStats after = memory::Stats();
    EXPECT_EQ(before_.blocks, after.blocks);
    EXPECT_EQ(before_.bytes, after.bytes);
    EXPECT_EQ(before_.locks, after.locks);
  }
  MemoryStats before_;
};

TEST_F(MemoryTest, EngMemAlloc_GivesLockableBlockOfTheSize) {
  EngMem block = 0;
  ASSERT_EQ(0, EngMemAlloc(0, 100, &block));
  ASSERT_NE(0u, block);
  void* address = EngMemLock(block);
  ASSERT_NE(nullptr, address);
  std::memset(address, 7, 100);
  uint32_t bytes = 0;
  EXPECT_EQ(0, EngMemSizeGet(block, &bytes));
  EXPECT_EQ(100u, bytes);
  uint64_t blocks = 0, sum = 0, locks = 0;
  EngMemStats(&blocks, &sum, &locks);
  EXPECT_EQ(before_.blocks + 1, blocks);
  EXPECT_EQ(before_.bytes + 100, sum);
  EXPECT_EQ(before_.locks + 1, locks);
  EXPECT_EQ(0, EngMemUnlock(block));
  EXPECT_EQ(status::kBadHandle, EngMemUnlock(block)) << "no lock left to give back";
  EXPECT_EQ(0, EngMemFree(block));
}

TEST_F(MemoryTest, EngMemAlloc_NullOutput_BadArgumentAndNothingLeaks) {
  EXPECT_EQ(status::kBadArgument, EngMemAlloc(0, 10, nullptr));
  EXPECT_EQ(status::kBadArgument, EngMemSizeGet(1, nullptr));
}

TEST_F(MemoryTest, EngMemAlloc_NoBytes_IsABlockAllTheSame) {
  EngMem block = 0;
  ASSERT_EQ(0, EngMemAlloc(0, 0, &block));
  EXPECT_NE(nullptr, EngMemLock(block));
  uint32_t bytes = 1;
  EXPECT_EQ(0, EngMemSizeGet(block, &bytes));
  EXPECT_EQ(0u, bytes);
  EXPECT_EQ(0, EngMemFree(block)) << "a locked block may be freed";
}

TEST_F(MemoryTest, EngMemAlloc_TooLarge_StatusAndOutputAlone) {
  EngMem block = 77;
  EXPECT_EQ(status::kMemoryTooLarge, EngMemAlloc(0, kMemoryBlockBytesMax + 1u, &block));
  EXPECT_EQ(77u, block);
}

TEST_F(MemoryTest, StaleForgedAndForeignHandles_AreRefusedEverywhere) {
  EngMem block = 0;
  ASSERT_EQ(0, EngMemAlloc(0, 8, &block));
  const EngMem live = block;
  ASSERT_EQ(0, EngMemFree(block));
  const EngMem bad[] = {0,           live,       1, 0xffffffffu, live ^ 0x80000000u, live ^ 0x00100000u,
                        live + 1000, 0x100fffffu};
  for (const EngMem handle : bad) {
    uint32_t bytes = 5;
    EXPECT_EQ(nullptr, EngMemLock(handle)) << handle;
    EXPECT_EQ(status::kBadHandle, EngMemUnlock(handle)) << handle;
    EXPECT_EQ(status::kBadHandle, EngMemFree(handle)) << handle;
    EXPECT_EQ(status::kBadHandle, EngMemRealloc(handle, 3)) << handle;
    EXPECT_EQ(status::kBadHandle, EngMemSizeGet(handle, &bytes)) << handle;
    EXPECT_EQ(5u, bytes);
    EXPECT_EQ(nullptr, memory::Find(handle));
    EXPECT_EQ(0u, memory::CodeOf(handle));
    EXPECT_EQ(nullptr, memory::TypeOf(handle));
  }
}

TEST_F(MemoryTest, FreedHandle_StaysRecognisedThroughManyAllocations) {
  EngMem stale = 0;
  ASSERT_EQ(0, EngMemAlloc(0, 8, &stale));
  ASSERT_EQ(0, EngMemFree(stale));
  for (int round = 0; round < 100000; ++round) {
    EngMem block = 0;
    ASSERT_EQ(0, EngMemAlloc(0, 8, &block));
    ASSERT_NE(stale, block) << round;
    ASSERT_EQ(0, EngMemFree(block));
  }
  EXPECT_EQ(nullptr, EngMemLock(stale));
}

TEST_F(MemoryTest, EngMemRealloc_KeepsBytesAndHandle) {
  EngMem block = 0;
  ASSERT_EQ(0, EngMemAlloc(0x3001, 4, &block));
  std::memcpy(memory::Find(block), "abcd", 4);
  for (const uint32_t size : {4000u, 2u, 1000000u}) {
    ASSERT_EQ(0, EngMemRealloc(block, size));
    EXPECT_EQ(0, std::memcmp(memory::Find(block), "abcd", size < 4 ? size : 2));
    uint32_t bytes = 0;
    EXPECT_EQ(0, EngMemSizeGet(block, &bytes));
    EXPECT_EQ(size, bytes);
  }
  EXPECT_EQ(status::kMemoryTooLarge, EngMemRealloc(block, 0xffffffffu));
  EXPECT_EQ(0, std::memcmp(memory::Find(block), "ab", 2));
  EXPECT_EQ(0x3001, memory::CodeOf(block));
  EXPECT_EQ(0, EngMemFree(block));
}

TEST_F(MemoryTest, Block_KeepsItsAddressWhileOthersComeAndGo) {
  MemoryBlock block = MemoryAllocate(64);
  const std::byte* address = block.data();
  for (int round = 0; round < 2000; ++round) MemoryAllocate(static_cast<uint32_t>(round));
  EXPECT_EQ(address, block.data());
  {
    MemoryLock lock(block.handle());
    EXPECT_EQ(address, lock.data());
  }
  EXPECT_EQ(address, block.data());
}

TEST_F(MemoryTest, MemoryBlock_MovesReleasesAndFrees) {
  MemoryBlock first = MemoryAllocate(10);
  const MemHandle handle = first.handle();
  MemoryBlock second(std::move(first));
  EXPECT_EQ(handle, second.handle());
  second = MemoryAllocate(20);
  EXPECT_EQ(nullptr, memory::Find(handle)) << "assignment freed the former block";
  EXPECT_EQ(20u, second.size());
  second.Resize(30);
  EXPECT_EQ(30u, second.bytes().size());
  const MemHandle released = second.Release();
  EXPECT_FALSE(second);
  EXPECT_EQ(0, memory::Free(released));
}

TEST_F(MemoryTest, MemoryLock_BadHandle_FailsOrIsEmpty) {
  EXPECT_THROW(MemoryLock(12345), Failure);
  const MemoryLock empty(12345, std::nothrow);
  EXPECT_FALSE(empty);
  EXPECT_EQ(0u, empty.size());
}

TEST_F(MemoryTest, MemoryCopy_HoldsTheBytes) {
  const MemoryBlock block = MemoryCopy(BytesOf("hello"));
  EXPECT_EQ("hello", TextOf(block.bytes()));
}

struct Counted {
  static const MemoryType kMemoryType;
  static inline int alive = 0;
  explicit Counted(int number) : value(number) { ++alive; }
  Counted(Counted&& other) noexcept : value(other.value), extra(std::move(other.extra)) { ++alive; }
  ~Counted() { --alive; }
  int value;
  std::vector<int> extra = std::vector<int>(100, 1);
};
const MemoryType Counted::kMemoryType{0x8001, "counted", MemoryDestroy<Counted>};

struct Other {
  static const MemoryType kMemoryType;
  int value = 3;
};
const MemoryType Other::kMemoryType{0x8002, "other", MemoryDestroy<Other>};

TEST_F(MemoryTest, MemoryMake_FreeDestroysTheObjectOnce) {
  MemoryBlock block = MemoryMake<Counted>(42);
  EXPECT_EQ(1, Counted::alive);
  ASSERT_NE(nullptr, MemoryObject<Counted>(block.handle()));
  EXPECT_EQ(42, MemoryObject<Counted>(block.handle())->value);
  EXPECT_EQ(nullptr, MemoryObject<Other>(block.handle())) << "an object of another type";
  EXPECT_EQ(status::kBadArgument, memory::Reallocate(block.handle(), 5))
      << "objects cannot be moved byte by byte";
  const MemHandle handle = block.Release();
  EXPECT_EQ(0, EngMemFree(handle));
  EXPECT_EQ(0, Counted::alive);
  EXPECT_EQ(status::kBadHandle, EngMemFree(handle));
  EXPECT_EQ(0, Counted::alive);
  EXPECT_EQ(nullptr, MemoryObject<Counted>(handle));
  const MemoryBlock plain = MemoryAllocate(sizeof(Counted));
  EXPECT_EQ(nullptr, MemoryObject<Counted>(plain.handle()));
}

TEST_F(MemoryTest, Allocate_MoreBlocksThanAChunkOfSlots_AllDistinct) {
  std::vector<MemoryBlock> blocks;
  for (uint32_t index = 0; index < 5000; ++index) {
    blocks.push_back(MemoryAllocate(4));
    StoreU32(blocks.back().data(), index);
  }
  for (uint32_t index = 0; index < 5000; ++index) EXPECT_EQ(index, LoadU32(blocks[index].data()));
}

TEST_F(MemoryTest, RandomOperations_AgreeWithAModel) {
  TestRandom random(SeedOfRun());
  struct Held {
    MemHandle handle;
    std::vector<std::byte> bytes;
  };
  std::vector<Held> held;
  std::vector<MemHandle> freed;
  for (int step = 0; step < 20000; ++step) {
    const uint32_t choice = random.Below(10);
    if (choice < 4 || held.empty()) {
      Held fresh{0, std::vector<std::byte>(random.Below(200), std::byte(step))};
      ASSERT_EQ(0, memory::Allocate(0, static_cast<uint32_t>(fresh.bytes.size()), &fresh.handle));
      CopyBytes(memory::Find(fresh.handle), fresh.bytes.data(), fresh.bytes.size());
      held.push_back(std::move(fresh));
      continue;
    }
    Held& one = held[random.Below(static_cast<uint32_t>(held.size()))];
    ASSERT_TRUE(SameBytes(one.bytes, memory::FindBytes(one.handle))) << step;
    if (choice < 7) {
      ASSERT_EQ(0, memory::Free(one.handle));
      freed.push_back(one.handle);
      std::swap(one, held.back());
      held.pop_back();
    } else {
      const uint32_t size = random.Below(300);
      ASSERT_EQ(0, memory::Reallocate(one.handle, size));
      const size_t kept = std::min<size_t>(size, one.bytes.size());
      one.bytes.resize(size, std::byte{9});
      CopyBytes(memory::Find(one.handle) + kept, one.bytes.data() + kept, size - kept);
    }
    if (freed.size() > 50) freed.erase(freed.begin());
    for (const MemHandle handle : freed) ASSERT_EQ(nullptr, memory::Find(handle));
  }
  for (const Held& one : held) EXPECT_EQ(0, memory::Free(one.handle));
}

TEST_F(MemoryTest, Threads_AllocateLockAndFreeAtOnce) {
  const MemoryBlock shared = MemoryAllocate(8);
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&, number] {
      for (int round = 0; round < 3000; ++round) {
        MemHandle handle = 0;
        if (memory::Allocate(0, 16, &handle) != 0) ++failures;
        std::byte* address = memory::Lock(handle);
        std::memset(address, number, 16);
        if (memory::Lock(shared.handle()) == nullptr) ++failures;
        if (!memory::Unlock(shared.handle())) ++failures;
        if (address[15] != std::byte(number)) ++failures;
        if (!memory::Unlock(handle)) ++failures;
        if (memory::Free(handle) != 0) ++failures;
        if (memory::Find(handle) != nullptr) ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(0, failures.load());
}

#ifndef NDEBUG
TEST_F(MemoryTest, DebugBuild_FillsFreshBlocks) {
  const MemoryBlock block = MemoryAllocate(16);
  for (const std::byte byte : block.bytes()) EXPECT_EQ(std::byte{0xcd}, byte);
}
#endif

class LinesLog : public LogSink {
 public:
  void Line(std::string_view text) override { lines.emplace_back(text); }
  std::vector<std::string> lines;
};

TEST_F(MemoryTest, ProcessStop_BlockLeftLocked_IsReportedAndLogged) {
  LinesLog log;
  const SeamGuard guard(Process().log, static_cast<LogSink*>(&log));
  Process().Start({});
  MemoryBlock block = MemoryAllocate(123, 0x3001);
  memory::Lock(block.handle());
  const LeakReport report = Process().Stop();
  EXPECT_EQ(before_.blocks + 1, report.blocks);
  EXPECT_EQ(before_.bytes + 123, report.bytes);
  EXPECT_EQ(before_.locks + 1, report.locks);
  ASSERT_EQ(before_.blocks + 2, log.lines.size()) << "one line in all and one for each block";
  EXPECT_NE(std::string::npos, log.lines.back().find("123 bytes, 1 locks"));
}

TEST_F(MemoryTest, ProcessStart_CountsAndRunsHooksLatestFirst) {
  std::string order;
  Process().Start([&] { order += "start "; });
  Process().Start([&] { order += "again "; });
  Process().AtStop([&] { order += "first "; });
  Process().AtStop([&] { order += "second "; });
  EXPECT_TRUE(Process().Started());
  Process().Stop();
  EXPECT_EQ("start ", order);
  Process().Stop();
  EXPECT_EQ("start second first ", order);
  EXPECT_FALSE(Process().Started());
  EXPECT_EQ(0u, Process().Stop().locks);
  EXPECT_THROW(Process().Start([] { Fail(status::kNoSettingsFile); }), Failure);
  EXPECT_FALSE(Process().Started()) << "a start that failed does not count";
}

}  // namespace
