// What composites cost: appending records one by one, walking them forwards, opening a large one, writing
// back. Ten times the records should cost ten times the time.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "kvint.h"

namespace {

constexpr char kText[] = "twenty characters...";

// The library, started on a data directory of its own, with one open document.
class Library {
 public:
  Library()
      : folder_(std::filesystem::temp_directory_path() / ("kavrin-comp-bench-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(folder_);
    std::string ini = (folder_ / "BRYND.INI").string();
    std::ofstream(ini) << "Directory=" << folder_.string() << "\n";
    Require(_KVInit(KVAPI_VERSION, KVINIT_INI_FILE, 0, reinterpret_cast<char**>(ini.data())) == KVSUCCESS);
    const std::string path = (folder_ / "bench.qdb").string();
    Require(EngDbCreate(path.c_str(), 0xff01, 0, 0, 0, 1) == 0);
    const int32_t off = 0;
    Require(KVSetProperty(KVPROP_SESS_STRICT_BIND, &off) == KVSUCCESS);
    Require(KVDatabaseOpen(nullptr, path.c_str(), 0, &database_) == KVSUCCESS);
    Require(KVDocumentCreate(database_, 0, &document_) == KVSUCCESS);
  }
  ~Library() {
    KVDocumentClose(document_, KVDOCWRITE_DISCARD);
    KVTerm(0);
    std::filesystem::remove_all(folder_);
  }
  uint32_t document() const { return document_; }
  static void Require(bool holds) {
    if (!holds) std::abort();
  }

 private:
  std::filesystem::path folder_;
  uint32_t database_ = 0, document_ = 0;
};
Library library;

void Append(uint32_t composite, int64_t record_count) {
  KVCDTEXT text{KVFONTSTYLE_DEFAULT, sizeof kText - 1, const_cast<char*>(kText)};
  for (int64_t i = 0; i < record_count; ++i)
    Library::Require(KVCDRecordInsert(composite, 0, KVCDTYPE_TEXT, &text) == KVSUCCESS);
}

uint32_t Create(const char* name) {
  uint32_t composite = 0;
  Library::Require(KVCompositeCreate(library.document(), name, &composite) == KVSUCCESS);
  return composite;
}

void Close(uint32_t composite, uint32_t flags) {
  Library::Require(KVCompositeClose(composite, flags) == KVSUCCESS);
}

// An item run with that many records, for the benchmarks that open one.
void Store(int64_t record_count) {
  const uint32_t composite = Create("Body");
  Append(composite, record_count);
  Close(composite, 0);
}

uint32_t Open() {
  uint32_t composite = 0;
  Library::Require(KVCompositeOpen(library.document(), "Body", &composite) == KVSUCCESS);
  return composite;
}

void AppendTexts(benchmark::State& state) {
  for (auto _ : state) {
    const uint32_t composite = Create(nullptr);
    Append(composite, state.range(0));
    Close(composite, KVCOMPWRITE_DISCARD);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(AppendTexts)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// Records too large for a growth block: a node each.
void AppendLargeTexts(benchmark::State& state) {
  const std::string bytes(1100, 't');
  KVCDTEXT text{KVFONTSTYLE_DEFAULT, static_cast<uint32_t>(bytes.size()), const_cast<char*>(bytes.data())};
  for (auto _ : state) {
    const uint32_t composite = Create(nullptr);
    for (int64_t i = 0; i < state.range(0); ++i)
      Library::Require(KVCDRecordInsert(composite, 0, KVCDTYPE_TEXT, &text) == KVSUCCESS);
    Close(composite, KVCOMPWRITE_DISCARD);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(AppendLargeTexts)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

void WalkForwards(benchmark::State& state) {
  Store(state.range(0));
  for (auto _ : state) {
    const uint32_t composite = Open();
    for (uint32_t index = 1; index <= static_cast<uint32_t>(state.range(0)); ++index) {
      KVCDTEXT text{};
      Library::Require(KVCDRecordGetPointer(composite, index, nullptr, &text) == KVSUCCESS);
      benchmark::DoNotOptimize(text);
    }
    Close(composite, 0);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(WalkForwards)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void ListForwards(benchmark::State& state) {
  Store(state.range(0));
  for (auto _ : state) {
    const uint32_t composite = Open();
    int32_t cdtype = 0;
    uint32_t index = 0;
    while (KVCDRecordList(composite, KVLIST_NEXT, &cdtype, &index) == KVSUCCESS) cdtype = 0;
    Close(composite, 0);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(ListForwards)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// About 10 megabytes in 180 items: only the items are looked at.
void OpenLarge(benchmark::State& state) {
  Store(360000);
  for (auto _ : state) Close(Open(), 0);
}
BENCHMARK(OpenLarge)->Unit(benchmark::kMicrosecond);

void ChangeAndWriteBack(benchmark::State& state) {
  Store(state.range(0));
  for (auto _ : state) {
    const uint32_t composite = Open();
    Library::Require(KVCDRecordDelete(composite, static_cast<uint32_t>(state.range(0) / 2), 1) == KVSUCCESS);
    Append(composite, 1);
    Close(composite, 0);
  }
}
BENCHMARK(ChangeAndWriteBack)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
