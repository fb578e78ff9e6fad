// What the note layer costs: images, names, items, and whole notes over the store.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "base/process.h"
#include "brynd.h"
#include "note/database.h"
#include "note/note.h"

namespace {

using namespace brynd;

constexpr int kItems = 20, kTextBytes = 30;

std::vector<std::string> MakeNames() {
  std::vector<std::string> names;
  for (int i = 0; i < kItems; ++i) names.push_back("ItemName" + std::to_string(i));
  return names;
}
const std::vector<std::string> kNames = MakeNames();
const std::string kText(kTextBytes, 't');

// One database for a benchmark.
class Scratch {
 public:
  Scratch() {
    std::string pattern = std::filesystem::temp_directory_path() / "kvbenchXXXXXX";
    folder_ = mkdtemp(pattern.data());
    Process().data_directory = folder_;
    if (EngDbCreate("bench", 0, 0, 0, 0, 0) != 0 || EngDbOpen("bench", &db) != 0) std::abort();
  }
  ~Scratch() {
    EngDbClose(db);
    std::filesystem::remove_all(folder_);
  }
  EngNote Build() const {
    EngNote note = 0;
    EngNoteCreate(db, &note);
    for (const std::string& name : kNames) Append(note, name);
    return note;
  }
  static void Append(EngNote note, const std::string& name) {
    EngItemAppend(note, 4, name.data(), static_cast<uint16_t>(name.size()), BRTYPE_TEXT, kText.data(),
                  kTextBytes);
  }
  EngDb db = 0;

 private:
  std::string folder_;
};

std::vector<std::byte> StoredImage(const Scratch& scratch, uint32_t* id) {
  const EngNote note = scratch.Build();
  EngNoteUpdate(note, 0);
  EngNoteInfoGet(note, 1, id);
  EngNoteClose(note);
  std::vector<std::byte> image;
  FindDatabase(scratch.db)->Store().ReadNote(*id, [&](Bytes stored) {
    image.assign(stored.begin(), stored.end());
  });
  return image;
}

void ImageCheck(benchmark::State& state) {
  const Scratch scratch;
  uint32_t id = 0;
  const std::vector<std::byte> image = StoredImage(scratch, &id);
  for (auto _ : state) benchmark::DoNotOptimize(NoteImage::Check(image));
  state.counters["bytes"] = static_cast<double>(image.size());
}
BENCHMARK(ImageCheck);

void ImageFindByToken(benchmark::State& state) {
  const Scratch scratch;
  uint32_t id = 0;
  const std::vector<std::byte> image = StoredImage(scratch, &id);
  const ImageView view = FindDatabase(scratch.db)->View(image);
  const NameToken token = view.Names().Lookup("itemname13");
  ImageItem item;
  for (auto _ : state) {
    benchmark::DoNotOptimize(view.Find(token, &item));
    benchmark::DoNotOptimize(item);
  }
}
BENCHMARK(ImageFindByToken);

void NameLookup(benchmark::State& state) {
  const Scratch scratch;
  uint32_t id = 0;
  StoredImage(scratch, &id);
  const NameDictionary& names = FindDatabase(scratch.db)->Names();
  for (auto _ : state) benchmark::DoNotOptimize(names.Lookup("itemname13"));
}
BENCHMARK(NameLookup);

void ItemInfo(benchmark::State& state) {
  const Scratch scratch;
  const EngNote note = scratch.Build();
  BLOCKID item, value;
  uint16_t type;
  uint32_t bytes;
  for (auto _ : state) {
    benchmark::DoNotOptimize(EngItemInfo(note, "itemname13", 10, &item, &type, &value, &bytes));
  }
  EngNoteClose(note);
}
BENCHMARK(ItemInfo);

void ItemAppend(benchmark::State& state) {
  const Scratch scratch;
  for (auto _ : state) {
    EngNote note = 0;
    EngNoteCreate(scratch.db, &note);
    for (int i = 0; i < 1000; ++i) Scratch::Append(note, kNames[static_cast<size_t>(i % kItems)]);
    EngNoteClose(note);
  }
  state.counters["per_item"] =
      benchmark::Counter(1000, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(ItemAppend);

void NoteBuildAndClose(benchmark::State& state) {
  const Scratch scratch;
  for (auto _ : state) EngNoteClose(scratch.Build());
}
BENCHMARK(NoteBuildAndClose);

void NoteBuildAndUpdateLazy(benchmark::State& state) {
  const Scratch scratch;
  for (auto _ : state) {
    const EngNote note = scratch.Build();
    EngNoteUpdate(note, 4);
    EngNoteClose(note);
  }
}
BENCHMARK(NoteBuildAndUpdateLazy);

void StorePutLazy(benchmark::State& state) {
  const Scratch scratch;
  uint32_t id = 0;
  const std::vector<std::byte> image = StoredImage(scratch, &id);
  store::Database& store = FindDatabase(scratch.db)->Store();
  for (auto _ : state) {
    store::Write write = store.BeginWrite();
    write.PutNote(write.NewNoteId(), image);
    write.Commit(store::Durability::kLazy);
  }
}
BENCHMARK(StorePutLazy);

void NoteOpenAndClose(benchmark::State& state) {
  const Scratch scratch;
  uint32_t id = 0;
  StoredImage(scratch, &id);
  for (auto _ : state) {
    EngNote note = 0;
    EngNoteOpen(scratch.db, id, 0, &note);
    EngNoteClose(note);
  }
}
BENCHMARK(NoteOpenAndClose);

void StoreRead(benchmark::State& state) {
  const Scratch scratch;
  uint32_t id = 0;
  StoredImage(scratch, &id);
  store::Database& store = FindDatabase(scratch.db)->Store();
  for (auto _ : state) {
    store.Refresh();
    store.ReadNote(id, [](Bytes image) { benchmark::DoNotOptimize(image.data()); });
  }
}
BENCHMARK(StoreRead);

}  // namespace

BENCHMARK_MAIN();
