// Any text as a formula: it is refused with a place inside the text, or it compiles, its decompiled text
// compiles to the same bytes, and it computes.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "engine/formula_memory_host.h"
#include "formula/decompiler.h"

using brynd::formula::Compile;
using brynd::formula::CompileError;
using brynd::formula::Evaluator;
using brynd::formula::MemoryHost;
using brynd::formula::Program;

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::vector<std::byte> compiled, again;
  CompileError error;
  if (Compile(text, {}, &compiled, &error) != 0) {
    Require(error.offset + size_t{error.length} <= size && error.line >= 1 && error.column >= 1);
    return 0;
  }
  const std::string decompiled = brynd::formula::Decompile(Program::Load(compiled));
  Require(Compile(decompiled, {}, &again, &error) == 0 && again == compiled);
  MemoryHost parent, host;
  host.document.is_response = true;
  host.others = {&parent};
  host.files = {{"a.txt", 3}};
  host.has_views = true;
  host.AddText("a", "text");
  host.AddNumbers("b", {1, 2, 3}, 1);
  Evaluator evaluator(Program::Load(compiled));
  evaluator.LimitSteps(100);
  try {
    evaluator.Evaluate(host);
  } catch (const brynd::Failure& failure) {
    Require(failure.status() == brynd::status::kFormulaResultTooLarge);
  }
  return 0;
}
