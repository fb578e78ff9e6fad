// Every exported function with everything that can be wrong about a call.
#include "kit/contract.h"

#include <cstdio>
#include <set>

#include "kit/child.h"
#include "kit/kit.h"
#include "kvint_session.h"

namespace {

std::string InLibrary(const std::function<std::string(const std::string& folder)>& work) {
  kit::DataDirectory directory;
  if (kit::StartLibrary(directory.ini()) != KVSUCCESS) return "the library does not start\n";
  std::string found = kit::MakeSceneFiles(directory.path()) ? work(directory.path()) : "no databases\n";
  if (KVTerm(0) != KVSUCCESS) found += "the library does not end\n";
  if (kit::Memory().blocks != 0) found += "engine blocks left\n";
  if (kit::HeapBlocks() != 0) found += "heap blocks left\n";
  if (!directory.StrayFiles().empty()) found += "files left: " + directory.StrayFiles() + "\n";
  return found;
}

class ContractTest : public testing::TestWithParam<kit::Row> {};

std::string TestName(const testing::TestParamInfo<kit::Row>& info) {
  std::string name = kit::NameOf(info.param);
  for (char& character : name)
    if (!isalnum(static_cast<unsigned char>(character))) character = '_';
  return name + "_" + std::to_string(info.index);
}

// Names that the shared library exports.
std::set<std::string> ExportedNames() {
  std::set<std::string> names;
  FILE* listing = popen("nm -D --defined-only '" KAVRIN_LIBRARY "'", "r");
  char line[512];
  while (listing != nullptr && std::fgets(line, sizeof line, listing) != nullptr) {
    char name[256] = "";
    if (std::sscanf(line, "%*s %*s %255s", name) == 1) names.insert(name);
  }
  if (listing != nullptr) pclose(listing);
  return names;
}

// Canaries: functions that break a rule, which the runs must notice.
uint32_t Breaker(uint32_t* output) {
  _api_session* session = nullptr;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  if (output == nullptr) return KVError(KVFAIL_NO_ACTION);  // should be KVFAIL_NULL_PARAM
  return KVSUCCESS;
}
uint32_t Leaker(uint32_t*) {
  _api_session* session = nullptr;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  KVIAllocateBytes(10);
  return KVSUCCESS;
}
uint32_t Forgetter(uint32_t* output) {
  _api_session* session = nullptr;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  return output == nullptr ? KVFAIL_NULL_PARAM : KVSUCCESS;  // not through KVError
}

kit::Row CanaryRow(uint32_t (*function)(uint32_t*)) {
  return {"Canary",
          "",
          kit::ByWords(function),
          kit::Result::kStatus,
          kit::SessionBy::kThread,
          kit::Needs::kNothing,
          {kit::Out(4, KVFAIL_NULL_PARAM)}};
}

}  // namespace

TEST_P(ContractTest, Call_WithEachThingWrong_DocumentedStatus) {
  EXPECT_EQ(
      kit::InChild([] {
        return InLibrary([](const std::string& folder) { return kit::RunContract(GetParam(), folder); });
      }),
      "");
}

TEST_P(ContractTest, Call_LibraryNotStarted_NotInitialized) {
  kit::DataDirectory directory;
  EXPECT_EQ(kit::InChild([&] { return kit::RunWithoutLibrary(GetParam(), directory.path()); }), "");
}

INSTANTIATE_TEST_SUITE_P(All, ContractTest, testing::ValuesIn(kit::AllRows()), TestName);

TEST(ContractTable, EveryExportedFunction_HasARow) {
  std::set<std::string> rows;
  for (const kit::Row& row : kit::AllRows()) rows.insert(row.function);
  const std::set<std::string> exported = ExportedNames();
  ASSERT_FALSE(exported.empty());
  EXPECT_EQ(exported.count("_KVInit"), 1u);
  for (const std::string& name : exported) EXPECT_EQ(rows.count(name), 1u) << name << " has no row";
  for (const std::string& name : rows) EXPECT_EQ(exported.count(name), 1u) << name << " is not exported";
}

TEST(ContractTable, EveryEngineCall_IsInTheEngine) {
  std::vector<std::string> missing;
  kit::EngineIsComplete(&missing);
  EXPECT_EQ(missing, std::vector<std::string>{});
}

TEST(ContractCanary, WrongStatusLeakAndUnrecordedStatus_AreFound) {
  const auto run = [](uint32_t (*function)(uint32_t*)) {
    return kit::InChild([function] {
      return InLibrary(
          [function](const std::string& folder) { return kit::RunContract(CanaryRow(function), folder); });
    });
  };
  EXPECT_NE(run(Breaker).find("status 0x8000010c, expected 0x80000103"), std::string::npos);
  EXPECT_NE(run(Leaker).find("heap blocks"), std::string::npos);
  EXPECT_NE(run(Forgetter).find("KVErrorFetch tells 0x0"), std::string::npos);
}

TEST(ContractCanary, Crash_IsAResult) {
  EXPECT_EQ(kit::InChild([]() -> std::string { std::abort(); }).substr(0, 7), "crashed");
}
