// Formulas: compiling, decompiling, columns of selection formulas, and computing them for notes.
#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "base/boundary.h"
#include "base/handle_table.h"
#include "base/memory.h"
#include "base/process.h"
#include "brynd_formula.h"
#include "formula/compiler.h"
#include "formula/decompiler.h"
#include "formula/evaluator.h"
#include "formula/merge.h"
#include "note/formula_host.h"

using brynd::AtBoundary;
using brynd::Bytes;
using brynd::BytesAt;
using brynd::MemoryBlock;
using brynd::MemoryLock;
using brynd::formula::CompileError;
using brynd::formula::Evaluation;
using brynd::formula::Evaluator;
using brynd::formula::Program;

namespace formula = brynd::formula;
namespace status = brynd::status;

namespace {

using ComputeTable = brynd::HandleTable<Evaluator, brynd::Handles32(brynd::HandleKind::kCompute)>;

ComputeTable& Computes() {
  static ComputeTable table;
  return table;
}

std::atomic<bool> ending_registered{false};

// What was not ended before the engine stops.
void EndEverything() {
  ending_registered.store(false);
  std::vector<EngCompute> handles;
  Computes().ForEach([&](EngCompute handle, const Evaluator&) { handles.push_back(handle); });
  for (const EngCompute handle : handles) Computes().Remove(handle);
}

// Writes an output that the caller may have left out; its address need not be aligned.
template <class Word>
void Put(Word* target, uint64_t word) {
  if (target != nullptr) brynd::Store<Word>(target, static_cast<Word>(word));
}

// A compiled formula by its address alone: its first word says how long it is.
Bytes FormulaAt(const void* address) {
  if (address == nullptr) brynd::Fail(status::kBadArgument);
  return BytesAt(address, brynd::LoadU16(address));
}

Program FormulaIn(EngMem memory) {
  const MemoryLock lock(memory);
  return Program::Load(lock.bytes());
}

// The changed formula takes the place of the old one in its block.
void ReplaceFormula(EngMem memory, Bytes changed) {
  brynd::Check(brynd::memory::Reallocate(memory, static_cast<uint32_t>(changed.size())));
  const MemoryLock lock(memory);
  brynd::CopyBytes(lock.data(), changed.data(), changed.size());
}

}  // namespace

EngStatus EngFormulaCompile(const char* item_name, uint16_t name_bytes, const char* text, uint16_t text_bytes,
                            EngMem* formula, uint16_t* formula_bytes, EngStatus* error, uint16_t* error_line,
                            uint16_t* error_column, uint16_t* error_offset, uint16_t* error_bytes) {
  return AtBoundary([&]() -> EngStatus {
    if (formula == nullptr || (text == nullptr && text_bytes != 0)) return status::kBadArgument;
    const std::string_view source(text == nullptr ? "" : text, text_bytes);
    const std::string_view name(item_name == nullptr ? "" : item_name, item_name == nullptr ? 0 : name_bytes);
    std::vector<std::byte> compiled;
    CompileError fault;
    if (EngStatus compile_status = formula::Compile(source, {name}, &compiled, &fault)) {
      Put(error, fault.status);
      Put(error_line, std::min<uint32_t>(fault.line, UINT16_MAX));
      Put(error_column, std::min<uint32_t>(fault.column, UINT16_MAX));
      Put(error_offset, fault.offset);
      Put(error_bytes, fault.length);
      return compile_status;
    }
    MemoryBlock block = brynd::MemoryCopy(compiled);
    Put(error, status::kOk);
    Put(formula_bytes, compiled.size());
    Put(formula, block.Release());
    return status::kOk;
  });
}

EngStatus EngFormulaDecompile(const void* compiled, int32_t /*view_selection*/, EngMem* text,
                              uint16_t* text_bytes) {
  return AtBoundary([&]() -> EngStatus {
    if (text == nullptr || text_bytes == nullptr) return status::kBadArgument;
    // The main part of a merged formula is the selection, so both answers are that part.
    const std::string source = formula::Decompile(Program::Load(FormulaAt(compiled)));
    if (source.size() > UINT16_MAX) return status::kFormulaTooLong;
    MemoryBlock block = brynd::MemoryCopy(brynd::BytesOf(source));
    Put(text_bytes, source.size());
    Put(text, block.Release());
    return status::kOk;
  });
}

EngStatus EngFormulaMerge(EngMem source, EngMem destination) {
  return AtBoundary([&]() -> EngStatus {
    const Program column = FormulaIn(source), selection = FormulaIn(destination);
    std::vector<std::byte> merged;
    if (EngStatus merge_status = formula::Merge(column, selection, &merged)) return merge_status;
    ReplaceFormula(destination, merged);
    return status::kOk;
  });
}

EngStatus EngFormulaSummaryItem(EngMem memory, const char* name, uint16_t name_bytes) {
  return AtBoundary([&]() -> EngStatus {
    if (name == nullptr) return status::kBadArgument;
    std::vector<std::byte> merged;
    if (EngStatus add_status = formula::AddSummaryItem(FormulaIn(memory), {name, name_bytes}, &merged))
      return add_status;
    ReplaceFormula(memory, merged);
    return status::kOk;
  });
}

EngStatus EngFormulaSizeGet(EngMem memory, uint16_t* formula_bytes) {
  return AtBoundary([&]() -> EngStatus {
    if (formula_bytes == nullptr) return status::kBadArgument;
    Put(formula_bytes, FormulaIn(memory).Stored().size());
    return status::kOk;
  });
}

EngStatus EngComputeBegin(uint16_t /*flags*/, const void* compiled, EngCompute* compute) {
  return AtBoundary([&]() -> EngStatus {
    if (compute == nullptr) return status::kBadArgument;
    auto evaluator = std::make_unique<Evaluator>(Program::Load(FormulaAt(compiled)));
    if (!ending_registered.load()) brynd::Process().AtStop(EndEverything);  // twice does no harm
    ending_registered.store(true);
    Put(compute, Computes().Add(std::move(evaluator)));
    return status::kOk;
  });
}

EngStatus EngComputeEvaluate(EngCompute compute, EngNote note, EngMem* result, uint16_t* result_bytes,
                             int32_t* select, int32_t* delete_note, int32_t* modified) {
  return AtBoundary([&] {
    Evaluator& evaluator = Computes().Get(compute);
    formula::Host nothing;
    std::unique_ptr<brynd::NoteHost> document;
    if (note != 0) document = std::make_unique<brynd::NoteHost>(brynd::FindNote(note));
    const Evaluation evaluation = evaluator.Evaluate(document != nullptr ? *document : nothing);
    if (result != nullptr) {
      MemoryBlock block = brynd::MemoryCopy(evaluation.value);
      Put(result, block.Release());
    }
    Put(result_bytes, evaluation.value.size());
    Put(select, evaluation.selected);
    Put(delete_note, evaluation.deleted);
    Put(modified, evaluation.modified);
  });
}

EngStatus EngComputeEnd(EngCompute compute) {
  return AtBoundary([&]() -> EngStatus {
    if (compute == 0) return status::kOk;
    return Computes().Remove(compute) != nullptr ? status::kOk : status::kBadHandle;
  });
}
