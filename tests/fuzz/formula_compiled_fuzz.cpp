// Any bytes as a compiled formula: refused, or computed, decompiled and merged without harm.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "engine/formula_memory_host.h"
#include "formula/decompiler.h"
#include "formula/merge.h"

using brynd::formula::Evaluator;
using brynd::formula::MemoryHost;
using brynd::formula::Program;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The length word is set right, so that the fuzzer gets past it.
  std::vector<std::byte> bytes(reinterpret_cast<const std::byte*>(data),
                               reinterpret_cast<const std::byte*>(data) + size);
  if (size >= 2 && size <= 65535) brynd::StoreU16(bytes.data(), static_cast<uint16_t>(size));
  Program program, same;
  if (Program::TryLoad(bytes, &program) != 0) return 0;
  if (Program::TryLoad(program.Stored(), &same) != 0) std::abort();
  std::vector<std::byte> merged;
  Program loaded;
  if (brynd::formula::Merge(same, program, &merged) == 0 && Program::TryLoad(merged, &loaded) != 0)
    std::abort();
  MemoryHost parent, host;
  host.AddText("a", "text");
  host.AddNumber("Size", 5);
  host.document.is_response = true;
  host.others = {&parent};
  host.files = {{"a.txt", 3}};
  host.has_views = true;
  Evaluator evaluator(std::move(program));
  evaluator.LimitSteps(100);
  try {
    evaluator.Evaluate(host);
    evaluator.Columns(host, brynd::formula::TableForm::kNamed);
    brynd::formula::Decompile(same);
    for (const brynd::formula::Column& column : same.Columns()) brynd::formula::Decompile(same, column.part);
  } catch (const brynd::Failure& failure) {
    if (failure.status() < 0x300 || failure.status() > 0x3ff) std::abort();
  }
  return 0;
}
