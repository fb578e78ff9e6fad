// Formulas through the boundary: blocks, error words, notes, handles.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "base/memory.h"
#include "base/status.h"
#include "engine/note_fixture.h"

namespace brynd {
namespace {

struct CompileErrors {
  EngStatus error = 7;
  uint16_t line = 7, column = 7, offset = 7, bytes = 7;
};

class ApiFormulaTest : public NoteFixture {
 protected:
  EngStatus Compile(std::string_view text, EngMem* formula, CompileErrors* errors,
                    std::string_view item = {}) {
    return EngFormulaCompile(item.data(), static_cast<uint16_t>(item.size()), text.data(),
                             static_cast<uint16_t>(text.size()), formula, &formula_bytes_, &errors->error,
                             &errors->line, &errors->column, &errors->offset, &errors->bytes);
  }
  MemoryBlock Formula(std::string_view text, std::string_view item = {}) {
    EngMem formula = 0;
    CompileErrors errors;
    EXPECT_EQ(Compile(text, &formula, &errors, item), 0) << text;
    EXPECT_EQ(errors.error, 0);
    return MemoryBlock(formula);
  }
  static std::string TextOfBlock(EngMem memory, uint16_t bytes) {
    const MemoryBlock block(memory);
    EXPECT_EQ(block.size(), bytes);
    return std::string(TextOf(block.bytes()));
  }
  std::string Decompile(const MemoryBlock& formula, int32_t selection = 0) {
    EngMem text = 0;
    uint16_t bytes = 0;
    EXPECT_EQ(EngFormulaDecompile(formula.data(), selection, &text, &bytes), 0);
    return TextOfBlock(text, bytes);
  }
  struct Result {
    EngStatus status = 0;
    std::string value;  // type word first
    int32_t select = 7, delete_note = 7, modified = 7;
  };
  Result Evaluate(std::string_view source, EngNote note) {
    const MemoryBlock formula = Formula(source);
    EngCompute compute = 0;
    EXPECT_EQ(EngComputeBegin(0, formula.data(), &compute), 0);
    Result result;
    EngMem value = 0;
    uint16_t bytes = 0;
    result.status = EngComputeEvaluate(compute, note, &value, &bytes, &result.select, &result.delete_note,
                                       &result.modified);
    if (result.status == 0) result.value = TextOfBlock(value, bytes);
    EXPECT_EQ(EngComputeEnd(compute), 0);
    EXPECT_EQ(EngComputeEnd(compute), status::kBadHandle);
    return result;
  }
  uint16_t formula_bytes_ = 0;
};

TEST_F(ApiFormulaTest, EngFormulaCompile_GoodText_BlockWithLengthFirst) {
  const MemoryBlock formula = Formula("SELECT Form = \"Memo\"");
  EXPECT_EQ(formula.size(), formula_bytes_);
  EXPECT_EQ(LoadU16(formula.data()), formula_bytes_);
  uint16_t bytes = 0;
  EXPECT_EQ(EngFormulaSizeGet(formula.handle(), &bytes), 0);
  EXPECT_EQ(bytes, formula_bytes_);
}

TEST_F(ApiFormulaTest, EngFormulaCompile_BadText_ErrorWordsAndNoBlock) {
  EngMem formula = 1234;
  formula_bytes_ = 1234;
  CompileErrors errors;
  EXPECT_EQ(Compile("SELECT Form =\n @Nothere(1)", &formula, &errors), status::kFormulaNoFunction);
  EXPECT_EQ(errors.error, status::kFormulaNoFunction);
  EXPECT_EQ(errors.line, 2);
  EXPECT_EQ(errors.column, 2);
  EXPECT_EQ(errors.offset, 15);
  EXPECT_EQ(errors.bytes, 8);
  EXPECT_EQ(formula, 1234u);
  EXPECT_EQ(formula_bytes_, 1234);
}

TEST_F(ApiFormulaTest, EngFormulaCompile_NullArguments_Statuses) {
  EngMem formula = 0;
  EXPECT_EQ(
      EngFormulaCompile(nullptr, 0, "1", 1, &formula, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
      0);
  EXPECT_EQ(EngMemFree(formula), 0);
  EXPECT_EQ(
      EngFormulaCompile(nullptr, 0, "1", 1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
      status::kBadArgument);
  EXPECT_EQ(EngFormulaCompile(nullptr, 0, nullptr, 1, &formula, nullptr, nullptr, nullptr, nullptr, nullptr,
                              nullptr),
            status::kBadArgument);
  EXPECT_EQ(EngFormulaCompile(nullptr, 0, nullptr, 0, &formula, nullptr, nullptr, nullptr, nullptr, nullptr,
                              nullptr),
            status::kFormulaNoOperand);
}

TEST_F(ApiFormulaTest, EngFormulaDecompile_AnyForm_Text) {
  EXPECT_EQ(Decompile(Formula("select  @all")), "SELECT @All");
  EXPECT_EQ(Decompile(Formula("select  @all"), 1), "SELECT @All");
  const std::byte damaged[] = {std::byte{4}, std::byte{0}, std::byte{9}, std::byte{9}};
  EngMem text = 1234;
  uint16_t bytes = 1234;
  EXPECT_EQ(EngFormulaDecompile(damaged, 0, &text, &bytes), status::kFormulaBad);
  EXPECT_EQ(EngFormulaDecompile(nullptr, 0, &text, &bytes), status::kBadArgument);
  EXPECT_EQ(text, 1234u);
  EXPECT_EQ(bytes, 1234);
}

// The default view's formula, step by step.
TEST_F(ApiFormulaTest, EngFormulaMerge_SelectionAndColumn_OneFormulaThatDecompiles) {
  const MemoryBlock selection = Formula("SELECT @All"), column = Formula("@DocNumber");
  EXPECT_EQ(EngFormulaSummaryItem(column.handle(), "#", 1), 0);
  EXPECT_EQ(EngFormulaMerge(column.handle(), selection.handle()), 0);
  uint16_t bytes = 0;
  EXPECT_EQ(EngFormulaSizeGet(selection.handle(), &bytes), 0);
  EXPECT_EQ(bytes, selection.size());
  EXPECT_NE(std::to_integer<int>(selection.data()[bytes - 4]), 146);
  EXPECT_EQ(Decompile(selection, 1), "SELECT @All");
}

// The design collection's formula starts as a block of two bytes.
TEST_F(ApiFormulaTest, EngFormulaSummaryItem_EmptyFormula_TakesItems) {
  EngMem empty = 0;
  ASSERT_EQ(EngMemAlloc(0xc22e, 2, &empty), 0);
  const MemoryBlock owner(empty);
  StoreU16(owner.data(), 2);
  EXPECT_EQ(EngFormulaSummaryItem(empty, "$TITLE", 6), 0);
  EXPECT_EQ(EngFormulaSummaryItem(empty, "$Flags", 6), 0);
  const MemoryBlock selection = Formula("SELECT @All");
  EXPECT_EQ(EngFormulaMerge(empty, selection.handle()), 0);
  EXPECT_EQ(EngFormulaSummaryItem(empty, nullptr, 0), status::kBadArgument);
  EXPECT_EQ(EngFormulaSummaryItem(empty, "", 0), status::kBadItemName);
  EXPECT_EQ(EngFormulaSummaryItem(0, "a", 1), status::kBadHandle);
  EXPECT_EQ(EngFormulaMerge(0, empty), status::kBadHandle);
  EXPECT_EQ(EngFormulaMerge(empty, 0), status::kBadHandle);
  uint16_t bytes = 0;
  EXPECT_EQ(EngFormulaSizeGet(0, &bytes), status::kBadHandle);
  EXPECT_EQ(EngFormulaSizeGet(empty, nullptr), status::kBadArgument);
}

TEST_F(ApiFormulaTest, EngComputeEvaluate_Note_ValueAndEffects) {
  const EngNote note = NewNote();
  ASSERT_EQ(AppendText(note, "Form", "Memo"), 0);
  const Result text = Evaluate("@UpperCase(form) + \"!\"", note);
  EXPECT_EQ(text.value, std::string("\x00\x05MEMO!", 7));
  EXPECT_EQ(text.select, 0);
  EXPECT_EQ(text.delete_note, 0);
  EXPECT_EQ(text.modified, 0);
  const Result selected = Evaluate("SELECT Form = \"Memo\"", note);
  EXPECT_EQ(selected.select, 1);
  const Result written = Evaluate("FIELD Form := \"Reply\"; FIELD New := 1:2; SELECT @All", note);
  EXPECT_EQ(written.modified, 1);
  EXPECT_EQ(written.select, 1);
  EXPECT_EQ(Text(note, "Form"), "Reply");
  EXPECT_EQ(Evaluate("@Sum(New)", note).value.substr(0, 2), std::string("\x00\x03", 2));
  EXPECT_EQ(Evaluate("FIELD New := @DeleteField", note).modified, 1);
  EXPECT_EQ(Evaluate("@IsAvailable(New)", note).select, 0);
  EXPECT_EQ(Evaluate("@DeleteDocument", note).delete_note, 1);
  EXPECT_EQ(Evaluate("@IsNewDoc", note).select, 1);
  EXPECT_EQ(Evaluate("1/0", note).value, std::string("\x00\x01\x06\x00", 4));
  EXPECT_EQ(EngNoteClose(note), 0);
}

TEST_F(ApiFormulaTest, EngComputeEvaluate_NoNote_ComputesWithoutItems) {
  EXPECT_EQ(Evaluate("\"a\" + Form", 0).value, std::string("\x00\x05"
                                                           "a",
                                                           3));
  const EngNote note = NewNote();
  EXPECT_EQ(EngNoteClose(note), 0);
  EXPECT_EQ(Evaluate("1", note).status, status::kBadHandle);
}

// One compute serves notes of several databases, and keeps its own copy of the formula.
TEST_F(ApiFormulaTest, EngComputeEvaluate_FormulaFreedAndNotesChange_StillComputes) {
  EngCompute compute = 0;
  {
    const MemoryBlock formula = Formula("Subject");
    ASSERT_EQ(EngComputeBegin(0, formula.data(), &compute), 0);
  }
  for (const char* subject : {"one", "two"}) {
    const EngNote note = NewNote();
    ASSERT_EQ(AppendText(note, "Subject", subject), 0);
    EngMem value = 0;
    uint16_t bytes = 0;
    EXPECT_EQ(EngComputeEvaluate(compute, note, &value, &bytes, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(TextOfBlock(value, bytes), std::string("\x00\x05", 2) + subject);
    EXPECT_EQ(EngComputeEvaluate(compute, note, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(EngNoteClose(note), 0);
  }
  EXPECT_EQ(EngComputeEnd(compute), 0);
}

TEST_F(ApiFormulaTest, EngComputeBegin_BadFormulas_Statuses) {
  EngCompute compute = 1234;
  const std::byte damaged[] = {std::byte{3}, std::byte{0}, std::byte{9}};
  const std::byte zero[] = {std::byte{0}, std::byte{0}};
  EXPECT_EQ(EngComputeBegin(0, damaged, &compute), status::kFormulaBad);
  EXPECT_EQ(EngComputeBegin(0, zero, &compute), status::kFormulaBad);
  EXPECT_EQ(EngComputeBegin(0, nullptr, &compute), status::kBadArgument);
  EXPECT_EQ(EngComputeBegin(0, Formula("1").data(), nullptr), status::kBadArgument);
  EXPECT_EQ(compute, 1234u);
  EXPECT_EQ(EngComputeEvaluate(0, 0, nullptr, nullptr, nullptr, nullptr, nullptr), status::kBadHandle);
  EXPECT_EQ(EngComputeEnd(0), 0);
  EXPECT_EQ(EngComputeEnd(1234), status::kBadHandle);
}

}  // namespace
}  // namespace brynd
