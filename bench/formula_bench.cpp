// What formulas cost: selecting by two fields, longer formulas, compiling.
#include <benchmark/benchmark.h>

#include "engine/formula_memory_host.h"
#include "formula/decompiler.h"

namespace brynd::formula {
namespace {

// A document whose items lie in one array and are found by comparing numbers, as in a stored note.
class ArrayHost final : public Host {
 public:
  static constexpr uint32_t kItems = 12;
  explicit ArrayHost(double size) : size_(size) {}

  NameScope Scope() const override { return {7, 1}; }
  NameToken Bind(std::string_view name) override {
    if (name == "Section") return 5;
    return name == "InstalledSize" ? 9 : kNoToken;
  }
  bool Find(NameToken token, ItemView* item) override {
    for (uint32_t index = 0; index < kItems; ++index) {
      if (names_[index] != token) continue;
      if (token == 5) *item = {kWordText, BytesOf("games")};
      if (token == 9) *item = {kWordNumber, BytesAt(&size_, sizeof size_)};
      return true;
    }
    return false;
  }

 private:
  uint16_t names_[kItems] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
  double size_;
};

std::vector<std::byte> Compiled(std::string_view source) {
  std::vector<std::byte> compiled;
  CompileError error;
  Check(Compile(source, {}, &compiled, &error));
  return compiled;
}

void SelectTwoFields(benchmark::State& state) {
  Evaluator evaluator(Program::Load(Compiled("SELECT Section = \"games\" & InstalledSize > 1000")));
  ArrayHost host(1234);
  for (auto round : state) {
    (void)round;
    benchmark::DoNotOptimize(evaluator.Selects(host));
  }
}
BENCHMARK(SelectTwoFields);

void SelectAll(benchmark::State& state) {
  Evaluator evaluator(Program::Load(Compiled("SELECT @All")));
  ArrayHost host(1234);
  for (auto round : state) {
    (void)round;
    benchmark::DoNotOptimize(evaluator.Selects(host));
  }
}
BENCHMARK(SelectAll);

void ComputeText(benchmark::State& state) {
  Evaluator evaluator(Program::Load(
      Compiled("@If(InstalledSize > 1000; @UpperCase(Section) + \" \" + @Text(InstalledSize); \"small\")")));
  ArrayHost host(1234);
  for (auto round : state) {
    (void)round;
    benchmark::DoNotOptimize(evaluator.Evaluate(host).value.data());
  }
}
BENCHMARK(ComputeText);

void LoopOfThousandRounds(benchmark::State& state) {
  Evaluator evaluator(Program::Load(Compiled("n := 0; @For(i := 0; i < 1000; i := i + 1; n := n + i); n")));
  ArrayHost host(1234);
  for (auto round : state) {
    (void)round;
    benchmark::DoNotOptimize(evaluator.Evaluate(host).value.data());
  }
}
BENCHMARK(LoopOfThousandRounds);

void CompileSelection(benchmark::State& state) {
  for (auto round : state) {
    (void)round;
    benchmark::DoNotOptimize(Compiled("SELECT Section = \"games\" & InstalledSize > 1000").data());
  }
}
BENCHMARK(CompileSelection);

}  // namespace
}  // namespace brynd::formula

BENCHMARK_MAIN();
