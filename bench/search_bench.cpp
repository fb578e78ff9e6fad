// What a search over a whole database costs for each note.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "base/memory.h"
#include "base/process.h"
#include "base/time.h"
#include "brynd.h"
#include "formula/evaluator.h"
#include "note/formula_host.h"
#include "note/search.h"

namespace {

using namespace brynd;

constexpr int kNotes = 60000, kOtherItems = 14;

// 60,000 notes of 16 items, of which the formula looks at two.
class Scene {
 public:
  static Scene& Get() {
    static Scene scene;
    return scene;
  }
  ~Scene() {
    EngMemFree(formula);
    EngDbClose(db);
    std::filesystem::remove_all(folder_);
  }
  EngDb db = 0;
  EngMem formula = 0;

 private:
  Scene() {
    std::string pattern = std::filesystem::temp_directory_path() / "kvsearchXXXXXX";
    folder_ = mkdtemp(pattern.data());
    Process().data_directory = folder_;
    if (EngDbCreate("bench", 0, 0, 0, 0, 0) != 0 || EngDbOpen("bench", &db) != 0) std::abort();
    for (int i = 0; i < kNotes; ++i) Store(i);
    EngDbClose(db);
    if (EngDbOpen("bench", &db) != 0) std::abort();
    const std::string text = "Section = \"games\" & InstalledSize > 1000";
    EngFormulaCompile(nullptr, 0, text.data(), static_cast<uint16_t>(text.size()), &formula, nullptr, nullptr,
                      nullptr, nullptr, nullptr, nullptr);
  }
  void Store(int number) const {
    EngNote note = 0;
    EngNoteCreate(db, &note);
    for (int i = 0; i < kOtherItems; ++i) {
      if (i == kOtherItems / 2) {
        const double size = number % 3000;
        Append(note, "Section", number % 10 == 0 ? "games" : "libdevel");
        EngItemAppend(note, 4, "InstalledSize", 13, BRTYPE_NUMBER, &size, sizeof size);
      }
      Append(note, "ItemName" + std::to_string(i), "some text of an item");
    }
    EngNoteUpdate(note, 4);
    EngNoteClose(note);
  }
  static void Append(EngNote note, const std::string& name, std::string_view text) {
    EngItemAppend(note, 4, name.data(), static_cast<uint16_t>(name.size()), BRTYPE_TEXT, text.data(),
                  static_cast<uint32_t>(text.size()));
  }
  std::string folder_;
};

void PerNote(benchmark::State& state) {
  state.counters["per_note"] =
      benchmark::Counter(kNotes, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

EngStatus Count(void* parameter, const SEARCH_MATCH*, const ITEM_TABLE*) {
  ++*static_cast<int*>(parameter);
  return 0;
}

void SearchWith(benchmark::State& state, EngMem formula, uint16_t flags) {
  int found = 0;
  for (auto _ : state)
    EngDbSearch(Scene::Get().db, formula, nullptr, flags, 1, nullptr, Count, &found, nullptr);
  PerNote(state);
}
void SearchFormula(benchmark::State& state) { SearchWith(state, Scene::Get().formula, 0); }
void SearchAll(benchmark::State& state) { SearchWith(state, 0, 0); }
void SearchAllSummaries(benchmark::State& state) { SearchWith(state, 0, 2); }
BENCHMARK(SearchFormula)->Unit(benchmark::kMillisecond);
BENCHMARK(SearchAll)->Unit(benchmark::kMillisecond);
BENCHMARK(SearchAllSummaries)->Unit(benchmark::kMillisecond);

// The parts of it: rows of the store alone, and with the check of each image.
void ScanStore(benchmark::State& state) {
  uint64_t bytes = 0;
  for (auto _ : state) {
    FindDatabase(Scene::Get().db)->Store().ScanNotes(1, [&](store::NoteId, Bytes stored) {
      bytes += stored.size();
      return true;
    });
  }
  benchmark::DoNotOptimize(bytes);
  PerNote(state);
}
void ScanChecked(benchmark::State& state) {
  uint64_t items = 0;
  Database& database = *FindDatabase(Scene::Get().db);
  for (auto _ : state) {
    database.Store().ScanNotes(1, [&](store::NoteId, Bytes stored) {
      const std::optional<ImageView> view = database.TryView(stored);
      items += view ? view->Image().ItemCount() : 0;
      return true;
    });
  }
  benchmark::DoNotOptimize(items);
  PerNote(state);
}
BENCHMARK(ScanStore)->Unit(benchmark::kMillisecond);
BENCHMARK(ScanChecked)->Unit(benchmark::kMillisecond);

// One image that stays in the cache.
class OneImage {
 public:
  OneImage() : database(*FindDatabase(Scene::Get().db)) {
    database.Store().ReadNote(1000, [&](Bytes stored) { image.assign(stored.begin(), stored.end()); });
  }
  Database& database;
  std::vector<std::byte> image;
};
void CheckImage(benchmark::State& state) {
  OneImage one;
  for (auto _ : state) benchmark::DoNotOptimize(one.database.TryView(one.image));
  state.counters["bytes"] = static_cast<double>(one.image.size());
}
void ComputeFormula(benchmark::State& state) {
  OneImage one;
  ImageHost host(one.database);
  formula::Evaluator evaluator(formula::Program::Load(memory::FindBytes(Scene::Get().formula)));
  const ImageView view = one.database.View(one.image);
  for (auto _ : state) {
    host.Show(view);
    benchmark::DoNotOptimize(evaluator.Selects(host));
  }
}
BENCHMARK(CheckImage);
BENCHMARK(ComputeFormula);

}  // namespace

BENCHMARK_MAIN();
