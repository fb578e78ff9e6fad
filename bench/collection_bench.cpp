// What views cost: building, opening, reading pages, any row, keys, taking in one change. Beside it, what
// SQLite takes to load the same documents into a table and a covering index.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "base/bytes.h"
#include "base/process.h"
#include "brynd.h"

namespace {

using namespace brynd;

constexpr uint32_t kNotes = 63000;
constexpr int kSections = 60;

struct Column {
  const char* item;
  uint16_t flags;
};

std::string SectionOf(uint32_t i) { return "section " + std::to_string(i * 7919 % kSections); }
std::string PriorityOf(uint32_t i) { return "priority " + std::to_string(i * 31 % 5); }
std::string NameOf(uint32_t i) { return "package-" + std::to_string(i * 2654435761u % 1000003); }

void Append(EngNote note, std::string_view name, std::string_view text) {
  EngItemAppend(note, 4, name.data(), static_cast<uint16_t>(name.size()), BRTYPE_TEXT, text.data(),
                static_cast<uint32_t>(text.size()));
}

std::string FormulaOf(const std::vector<Column>& columns) {
  EngMem whole = 0;
  const std::string text = "SELECT Form = \"Package\"";
  EngFormulaCompile(nullptr, 0, text.data(), static_cast<uint16_t>(text.size()), &whole, nullptr, nullptr,
                    nullptr, nullptr, nullptr, nullptr);
  for (const Column& column : columns)
    EngFormulaSummaryItem(whole, column.item, static_cast<uint16_t>(std::string_view(column.item).size()));
  uint16_t bytes = 0;
  EngFormulaSizeGet(whole, &bytes);
  const std::string stored(static_cast<const char*>(EngMemLock(whole)), bytes);
  EngMemFree(whole);
  return stored;
}

std::string ViewFormat(const std::vector<Column>& columns) {
  ByteBuilder out;
  out.U16(1);
  out.U16(static_cast<uint16_t>(columns.size()));
  for (int i = 0; i < 3; ++i) out.U16(0);
  for (const Column& column : columns) {
    out.U16(0x4356);
    out.U16(column.flags);
    out.U16(static_cast<uint16_t>(std::string_view(column.item).size()));
    for (int i = 0; i < 13; ++i) out.U16(0);
  }
  for (const Column& column : columns) out.Text(column.item);
  for (int i = 0; i < 19; ++i) out.U16(0);
  return std::string(TextOf(out.View()));
}

class Scene {
 public:
  static Scene& Get() {
    static Scene scene;
    return scene;
  }
  ~Scene() {
    EngCollectionClose(flat);
    EngCollectionClose(categorised);
    EngDbClose(db);
    std::filesystem::remove_all(folder);
  }
  uint32_t MakeView(const std::vector<Column>& columns) const {
    EngNote note = 0;
    EngNoteCreate(db, &note);
    const uint16_t view_class = BRCLASS_VIEW;
    EngNoteInfoSet(note, 3, &view_class);
    const std::string formula = FormulaOf(columns), format = ViewFormat(columns);
    EngItemAppend(note, 4, "$Formula", 8, BRTYPE_FORMULA, formula.data(),
                  static_cast<uint32_t>(formula.size()));
    EngItemAppend(note, 4, "$ViewFormat", 11, 5, format.data(), static_cast<uint32_t>(format.size()));
    EngNoteUpdate(note, 4);
    uint32_t id = 0;
    EngNoteInfoGet(note, 1, &id);
    EngNoteClose(note);
    return id;
  }
  EngCollection Open(uint32_t view, uint16_t flags = 0) const {
    EngCollection collection = 0;
    if (EngCollectionOpen(db, db, view, flags, 0, &collection, nullptr, nullptr, nullptr, nullptr) != 0)
      std::abort();
    return collection;
  }
  std::string folder;
  EngDb db = 0;
  uint32_t flat_view = 0, categorised_view = 0;
  EngCollection flat = 0, categorised = 0;

 private:
  Scene() {
    std::string pattern = std::filesystem::temp_directory_path() / "kvcollectionXXXXXX";
    folder = mkdtemp(pattern.data());
    Process().data_directory = folder;
    if (EngDbCreate("bench", 0, 0, 0, 0, 0) != 0 || EngDbOpen("bench", &db) != 0) std::abort();
    for (uint32_t i = 0; i < kNotes; ++i) {
      EngNote note = 0;
      EngNoteCreate(db, &note);
      Append(note, "Form", "Package");
      Append(note, "Section", SectionOf(i));
      Append(note, "Priority", PriorityOf(i));
      Append(note, "Name", NameOf(i));
      const double size = i % 5000;
      EngItemAppend(note, 4, "Size", 4, BRTYPE_NUMBER, &size, sizeof size);
      for (int more = 0; more < 8; ++more)
        Append(note, "Other" + std::to_string(more), "some text of an item");
      EngNoteUpdate(note, 4);
      EngNoteClose(note);
    }
    flat_view = MakeView({{"Name", 1}, {"Section", 0}, {"Priority", 0}, {"Size", 0}});
    categorised_view = MakeView({{"Section", 3}, {"Priority", 3}, {"Name", 1}, {"Size", 0}});
    flat = Open(flat_view);
    categorised = Open(categorised_view);
  }
};

benchmark::Counter Each(double count) {
  return benchmark::Counter(count,
                            benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BuildTwoCategoriesFourColumns(benchmark::State& state) {
  Scene& scene = Scene::Get();
  for (auto _ : state) EngCollectionClose(scene.Open(scene.categorised_view, 1));
  state.counters["per_document"] = Each(kNotes);
}
BENCHMARK(BuildTwoCategoriesFourColumns)->Unit(benchmark::kMillisecond)->MinTime(2);

void BuildFlat(benchmark::State& state) {
  Scene& scene = Scene::Get();
  for (auto _ : state) EngCollectionClose(scene.Open(scene.flat_view, 1));
  state.counters["per_document"] = Each(kNotes);
}
BENCHMARK(BuildFlat)->Unit(benchmark::kMillisecond);

// The yardstick of building: one table of the same documents and an index that covers the view's columns.
void SqliteTableAndCoveringIndex(benchmark::State& state) {
  Scene& scene = Scene::Get();
  const std::string path = scene.folder + "/peer.sqlite";
  for (auto _ : state) {
    std::filesystem::remove(path);
    sqlite3* peer = nullptr;
    sqlite3_open(path.c_str(), &peer);
    sqlite3_exec(
        peer,
        "PRAGMA journal_mode=WAL; PRAGMA synchronous=OFF; CREATE TABLE p(id INTEGER PRIMARY KEY, section, "
        "priority, name, size, more); BEGIN",
        nullptr, nullptr, nullptr);
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(peer, "INSERT INTO p VALUES(?,?,?,?,?,?)", -1, &insert, nullptr);
    const std::string more(8 * 30, 'm');
    for (uint32_t i = 0; i < kNotes; ++i) {
      const std::string section = SectionOf(i), priority = PriorityOf(i), name = NameOf(i);
      sqlite3_bind_int64(insert, 1, i + 1);
      sqlite3_bind_text(insert, 2, section.data(), static_cast<int>(section.size()), SQLITE_STATIC);
      sqlite3_bind_text(insert, 3, priority.data(), static_cast<int>(priority.size()), SQLITE_STATIC);
      sqlite3_bind_text(insert, 4, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
      sqlite3_bind_double(insert, 5, i % 5000);
      sqlite3_bind_text(insert, 6, more.data(), static_cast<int>(more.size()), SQLITE_STATIC);
      sqlite3_step(insert);
      sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    sqlite3_exec(peer, "CREATE INDEX pi ON p(section, priority, name, size); COMMIT", nullptr, nullptr,
                 nullptr);
    sqlite3_close(peer);
  }
  state.counters["per_document"] = Each(kNotes);
}
BENCHMARK(SqliteTableAndCoveringIndex)->Unit(benchmark::kMillisecond);

uint32_t ReadOnce(EngCollection collection, COLLECTIONPOSITION* position, uint16_t skip, uint32_t skip_count,
                  uint32_t rows, uint32_t mask, uint16_t* signal = nullptr) {
  EngMem memory = 0;
  uint32_t returned = 0;
  if (EngCollectionRead(collection, position, skip, skip_count, 1, rows, mask, &memory, nullptr, nullptr,
                        &returned, signal) != 0)
    std::abort();
  if (memory != 0) EngMemFree(memory);
  return returned;
}

void OpenBuiltViewAndFirstRow(benchmark::State& state) {
  Scene& scene = Scene::Get();
  EngCollectionClose(scene.flat);
  for (auto _ : state) {
    const EngCollection collection = scene.Open(scene.flat_view);
    COLLECTIONPOSITION position{};
    ReadOnce(collection, &position, 1, 1, 1, 0x6085);
    EngCollectionClose(collection);
  }
  scene.flat = scene.Open(scene.flat_view);
}
BENCHMARK(OpenBuiltViewAndFirstRow)->Unit(benchmark::kMicrosecond);

void Pages(benchmark::State& state, EngCollection collection, uint32_t mask) {
  uint64_t rows = 0;
  for (auto _ : state) {
    COLLECTIONPOSITION position{};
    for (uint16_t signal = 0x20; (signal & 0x20) != 0;)
      rows += ReadOnce(collection, &position, 1, 1, 0xffffffff, mask, &signal);
  }
  state.counters["rows"] = benchmark::Counter(static_cast<double>(rows), benchmark::Counter::kIsRate);
}
void PagesFlat(benchmark::State& state) { Pages(state, Scene::Get().flat, 0x6085); }
BENCHMARK(PagesFlat)->Unit(benchmark::kMillisecond);
void PagesCategorised(benchmark::State& state) { Pages(state, Scene::Get().categorised, 0x6085); }
BENCHMARK(PagesCategorised)->Unit(benchmark::kMillisecond);
void PagesFlatIdsAlone(benchmark::State& state) { Pages(state, Scene::Get().flat, 0x1); }
BENCHMARK(PagesFlatIdsAlone)->Unit(benchmark::kMillisecond);

void NthRow(benchmark::State& state, EngCollection collection) {
  uint32_t n = 0;
  for (auto _ : state) {
    COLLECTIONPOSITION position{};
    n = (n * 1664525 + 1013904223) % kNotes;
    ReadOnce(collection, &position, 1, n + 1, 1, 0x6085);
  }
}
void NthRowFlat(benchmark::State& state) { NthRow(state, Scene::Get().flat); }
BENCHMARK(NthRowFlat);
void NthRowCategorised(benchmark::State& state) { NthRow(state, Scene::Get().categorised); }
BENCHMARK(NthRowCategorised);

void KeyFlat(benchmark::State& state) {
  Scene& scene = Scene::Get();
  uint32_t n = 0;
  for (auto _ : state) {
    n = (n * 1664525 + 1013904223) % kNotes;
    COLLECTIONPOSITION position{};
    uint32_t matches = 0;
    if (EngCollectionFindName(scene.flat, NameOf(n).c_str(), 2, &position, &matches) != 0) std::abort();
  }
}
BENCHMARK(KeyFlat);

void ChangeOneField(benchmark::State& state, const char* item) {
  Scene& scene = Scene::Get();
  uint32_t n = 0;
  EngCollectionUpdate(scene.flat);
  // The view alone, as the goal has it; the other one stays closed, so that its rebuilding is not measured
  // here.
  EngCollectionClose(scene.categorised);
  scene.categorised = 0;
  for (auto _ : state) {
    n = (n * 1664525 + 1013904223) % kNotes;
    EngNote note = 0;
    if (EngNoteOpen(scene.db, 2 + n, 0, &note) != 0) std::abort();
    EngItemDelete(note, item, static_cast<uint16_t>(std::string_view(item).size()));
    Append(note, item, NameOf(n + 17));
    EngNoteUpdate(note, 4);
    EngNoteClose(note);
    if (EngCollectionUpdate(scene.flat) != 0) std::abort();
  }
}
void ChangeShownField(benchmark::State& state) { ChangeOneField(state, "Priority"); }
BENCHMARK(ChangeShownField)->Unit(benchmark::kMicrosecond);
void ChangeSortedField(benchmark::State& state) { ChangeOneField(state, "Name"); }
BENCHMARK(ChangeSortedField)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
