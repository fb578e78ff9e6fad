// Every exported function with the 1st, 2nd, 3rd ... engine call or allocation failing.
#include <cstdio>

#include "kit/child.h"
#include "kit/contract.h"
#include "kit/kit.h"
#include "kvint_session.h"

namespace {

constexpr char kCountMark[] = "#counts";

// Findings, and behind the mark how many faults hit.
std::string SweepInChild(const kit::Row& row, kit::FaultCounts* counts) {
  std::string text = kit::InChild([&]() -> std::string {
    kit::DataDirectory directory;
    kit::FaultCounts hits;
    if (kit::StartLibrary(directory.ini()) != KVSUCCESS) return "the library does not start\n";
    std::string found = kit::MakeSceneFiles(directory.path()) ? kit::RunFaults(row, directory.path(), &hits)
                                                              : "no databases\n";
    if (KVTerm(0) != KVSUCCESS) found += "the library does not end\n";
    if (kit::Memory().blocks != 0) found += "engine blocks left\n";
    if (kit::HeapBlocks() != 0) found += "heap blocks left\n";
    if (!directory.StrayFiles().empty()) found += "files left: " + directory.StrayFiles() + "\n";
    return found + kCountMark + " " + std::to_string(hits.engine_calls) + " " +
           std::to_string(hits.allocations);
  });
  const size_t mark = text.rfind(kCountMark);
  if (mark == std::string::npos) return text;
  std::sscanf(text.c_str() + mark + sizeof kCountMark, "%u %u", &counts->engine_calls, &counts->allocations);
  return text.substr(0, mark);
}

class FaultTest : public testing::TestWithParam<kit::Row> {
 protected:
  static void TearDownTestSuite() {
    std::printf("%u engine faults and %u allocation faults hit\n", total_.engine_calls, total_.allocations);
  }
  static kit::FaultCounts total_;
};
kit::FaultCounts FaultTest::total_;

std::string TestName(const testing::TestParamInfo<kit::Row>& info) {
  std::string name = kit::NameOf(info.param);
  for (char& character : name)
    if (!isalnum(static_cast<unsigned char>(character))) character = '_';
  return name + "_" + std::to_string(info.index);
}

// Canaries: each takes two blocks and breaks a rule when the second is refused.
uint32_t TakeTwo(uint32_t (*on_refusal)(uint32_t brstatus, EngMem first)) {
  _api_session* session = nullptr;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  EngMem first = 0, second = 0;
  if (uint16_t brstatus = EngMemAlloc(0, 10, &first)) return KVError(brstatus);
  if (uint16_t brstatus = EngMemAlloc(0, 10, &second)) return on_refusal(brstatus, first);
  EngMemFree(second);
  EngMemFree(first);
  return KVSUCCESS;
}
uint32_t Sound() {
  return TakeTwo([](uint32_t brstatus, EngMem first) {
    EngMemFree(first);
    return KVError(brstatus);
  });
}
uint32_t Leaker() {
  return TakeTwo([](uint32_t brstatus, EngMem) { return KVError(brstatus); });
}
uint32_t Locker() {
  return TakeTwo([](uint32_t brstatus, EngMem first) {
    EngMemLock(first);
    return KVError(brstatus);
  });
}
uint32_t Swapper() {
  return TakeTwo([](uint32_t, EngMem first) {
    EngMemFree(first);
    return KVError(KVFAIL_BAD_FORMAT);
  });
}
uint32_t Swallower() {
  return TakeTwo([](uint32_t, EngMem first) -> uint32_t {
    EngMemFree(first);
    return KVSUCCESS;
  });
}
uint32_t Crasher() {
  return TakeTwo([](uint32_t, EngMem) -> uint32_t { std::abort(); });
}

std::string SweepCanary(uint32_t (*function)()) {
  kit::FaultCounts counts;
  return SweepInChild({"Canary",
                       "",
                       kit::ByWords(function),
                       kit::Result::kStatus,
                       kit::SessionBy::kThread,
                       kit::Needs::kNothing,
                       {}},
                      &counts);
}

bool Tells(const std::string& text, const char* what) { return text.find(what) != std::string::npos; }

}  // namespace

TEST_P(FaultTest, EachFaultInTurn_StatusNoLeakSessionWorks) {
  kit::FaultCounts counts;
  EXPECT_EQ(SweepInChild(GetParam(), &counts), "");
  total_.engine_calls += counts.engine_calls;
  total_.allocations += counts.allocations;
}

INSTANTIATE_TEST_SUITE_P(All, FaultTest, testing::ValuesIn(kit::AllRows()), TestName);

TEST(FaultCanary, BrokenFunctions_AreFoundAndTheSoundOneIsNot) {
  EXPECT_EQ(SweepCanary(Sound), "");
  EXPECT_TRUE(Tells(SweepCanary(Leaker), "engine blocks"));
  EXPECT_TRUE(Tells(SweepCanary(Locker), "locks"));
  EXPECT_TRUE(Tells(SweepCanary(Swapper), "status 0x80000106 when EngMemAlloc fails"));
  EXPECT_TRUE(Tells(SweepCanary(Swallower), "status 0x0 when EngMemAlloc fails"));
  EXPECT_TRUE(Tells(SweepCanary(Crasher), "crashed"));
}
