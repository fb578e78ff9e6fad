// What a conversion costs, from the public call down: number and date to text and back, text as it stands,
// lists.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "kvint.h"

namespace {

// The library, started on a data directory of its own.
class Library {
 public:
  Library() : folder_(std::filesystem::temp_directory_path() / ("kavrin-bench-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(folder_);
    std::string ini = (folder_ / "BRYND.INI").string();
    std::ofstream(ini) << "Directory=" << folder_.string() << "\n";
    if (_KVInit(KVAPI_VERSION, KVINIT_INI_FILE, 0, reinterpret_cast<char**>(ini.data())) != KVSUCCESS)
      std::abort();
  }
  ~Library() {
    KVTerm(0);
    std::filesystem::remove_all(folder_);
  }

 private:
  std::filesystem::path folder_;
};
Library library;

void Check(benchmark::State& state, uint32_t status) {
  if (status != KVSUCCESS) state.SkipWithError("a conversion failed");
}

void NumberToText(benchmark::State& state) {
  double number = 12345.675;
  char text[40];
  uint32_t actual = 0;
  for (auto _ : state) {
    Check(state, KVConvert(KVTYPE_NUMBER, 8, &number, KVTYPE_TEXT, 39, text, &actual));
    benchmark::DoNotOptimize(text);
    number += 0.125;
  }
}
BENCHMARK(NumberToText);

void WholeNumberToText(benchmark::State& state) {
  double number = 7;
  char text[40];
  uint32_t actual = 0;
  for (auto _ : state) {
    Check(state, KVConvert(KVTYPE_NUMBER, 8, &number, KVTYPE_TEXT, 39, text, &actual));
    benchmark::DoNotOptimize(text);
    number += 1;
  }
}
BENCHMARK(WholeNumberToText);

void TextToNumber(benchmark::State& state) {
  const char text[] = "12345.675";
  double number = 0;
  for (auto _ : state) {
    Check(state, KVConvert(KVTYPE_TEXT, sizeof text - 1, text, KVTYPE_NUMBER, 8, &number, nullptr));
    benchmark::DoNotOptimize(number);
  }
}
BENCHMARK(TextToNumber);

void DatetimeToText(benchmark::State& state) {
  KVDATETIME now;
  Check(state, KVDatetimeGetCurrent(&now));
  char text[80];
  for (auto _ : state) {
    Check(state, KVConvert(KVTYPE_DATETIME, 8, &now, KVTYPE_TEXT, 79, text, nullptr));
    benchmark::DoNotOptimize(text);
  }
}
BENCHMARK(DatetimeToText);

void TextToDatetime(benchmark::State& state) {
  KVDATETIME datetime;
  for (auto _ : state)
    Check(state, KVConvert(KVTYPE_TEXT, 0, "3/4/1997 10:20:30", KVTYPE_DATETIME, 8, &datetime, nullptr));
}
BENCHMARK(TextToDatetime);

// Stored text to a caller's buffer, as item reads do it.
void StoredTextToBuffer(benchmark::State& state) {
  const std::string text(static_cast<size_t>(state.range(0)), 'x');
  std::string buffer(text.size() + 1, 0);
  _api_session* const session = KVICurrentSession();
  const auto bytes = static_cast<uint32_t>(text.size());
  uint32_t actual = 0;
  for (auto _ : state) {
    Check(state, _DataConvert(session, nullptr, nullptr, KVTYPE_TEXT, bytes, text.data(), KVCONV_LINES,
                              nullptr, nullptr, KVTYPE_TEXT, bytes, buffer.data(), &actual));
    benchmark::DoNotOptimize(buffer.data());
  }
}
BENCHMARK(StoredTextToBuffer)->Arg(12)->Arg(1000);

void TextListToText(benchmark::State& state) {
  char list[128], text[128];
  uint32_t bytes = 0;
  Check(state, KVConvert(KVTYPE_TEXT, 0, "one, two, three, four", KVTYPE_TEXTLIST, 128, list, &bytes));
  for (auto _ : state) {
    Check(state, KVConvert(KVTYPE_TEXTLIST, bytes, list, KVTYPE_TEXT, 127, text, nullptr));
    benchmark::DoNotOptimize(text);
  }
}
BENCHMARK(TextListToText);

void TextToNumberList(benchmark::State& state) {
  char list[256];
  for (auto _ : state) {
    Check(state, KVConvert(KVTYPE_TEXT, 0, "1, 2, 3-4, 5.5", KVTYPE_NUMBERLIST, 256, list, nullptr));
    benchmark::DoNotOptimize(list);
  }
}
BENCHMARK(TextToNumberList);

}  // namespace

BENCHMARK_MAIN();
