// Summary items and merged formulas: what belongs to which column, and that the parts keep their meaning.
#include <gtest/gtest.h>

#include "engine/formula_memory_host.h"
#include "formula/decompiler.h"
#include "formula/merge.h"

namespace brynd::formula {
namespace {

Program Load(std::string_view source, std::string_view item_name = {}) {
  std::vector<std::byte> compiled;
  CompileError error;
  EXPECT_EQ(Compile(source, {.item_name = item_name}, &compiled, &error), status::kOk) << source;
  return Program::Load(compiled);
}

Program WithItem(const Program& formula, std::string_view name) {
  std::vector<std::byte> merged;
  EXPECT_EQ(AddSummaryItem(formula, name, &merged), status::kOk);
  return Program::Load(merged);
}

Program Merged(const Program& source, const Program& selection) {
  std::vector<std::byte> merged;
  EXPECT_EQ(Merge(source, selection, &merged), status::kOk);
  return Program::Load(merged);
}

// Columns as "name=text" or "name" for the item itself.
std::string Shape(const Program& program) {
  std::string shape = Decompile(program);
  for (const Column& column : program.Columns()) {
    shape += " | " + std::string(program.Names()[column.name]);
    const std::string text = Decompile(program, column.part);
    if (!text.empty()) shape += "=" + text;
  }
  return shape;
}

const std::byte kEmptyFormula[] = {std::byte{2}, std::byte{0}};

// As the design collection is made: items named on an empty formula, then merged.
TEST(FormulaMergeTest, Merge_EmptyFormulaWithItems_ItemsAdded) {
  Program items = Program::Load(kEmptyFormula);
  for (const char* name : {"$TITLE", "$Flags", "$Class"}) items = WithItem(items, name);
  EXPECT_EQ(Shape(Merged(items, Load("SELECT @All"))), "SELECT @All | $TITLE | $Flags | $Class");
}

// As views are made: the item is named on the selection, then the column that computes it is merged.
TEST(FormulaMergeTest, Merge_ColumnWithItemName_ComputesItsItem) {
  Program view = Load("SELECT Form = \"Memo\"");
  view = Merged(Load("Subject", "$1"), WithItem(view, "$1"));
  view = Merged(Load("@UpperCase(Subject) + \"x\"", "$2"), WithItem(view, "$2"));
  view = WithItem(view, "$REF");
  EXPECT_EQ(Shape(view), "SELECT Form = \"Memo\" | $1=Subject | $2=@UpperCase(Subject) + \"x\" | $REF");
}

// As the default view is made: the column formula has no name of its own, but a summary item.
TEST(FormulaMergeTest, Merge_UnnamedColumnWithItem_ComputesThatItem) {
  const Program view = Merged(WithItem(Load("@DocNumber"), "#"), Load("SELECT @All"));
  EXPECT_EQ(Shape(view), "SELECT @All | #=@DocNumber");
  EXPECT_NE(std::to_integer<int>(view.Stored()[view.Stored().size() - 4]), 146);
}

// Whoever overwrites the byte four from the end does no harm.
TEST(FormulaMergeTest, Merge_ByteNearTheEndPatched_StillComplete) {
  const Program view = Merged(WithItem(Load("@DocNumber"), "#"), Load("SELECT @All"));
  std::vector<std::byte> patched(view.Stored().begin(), view.Stored().end());
  patched[patched.size() - 4] = std::byte{'f'};
  EXPECT_EQ(Shape(Program::Load(patched)), "SELECT @All | #=@DocNumber");
}

TEST(FormulaMergeTest, Merge_ColumnThere_Replaced) {
  Program view = Merged(Load("1", "$1"), Load("SELECT @All"));
  view = Merged(Load("2", "$1"), view);
  EXPECT_EQ(Shape(view), "SELECT @All | $1=2");
  EXPECT_EQ(Shape(WithItem(view, "$1")), "SELECT @All | $1=2");
}

TEST(FormulaMergeTest, Merge_SelectionAsSource_ColumnsAlone) {
  const Program first = Merged(Load("1", "$1"), Load("SELECT Form = \"A\""));
  EXPECT_EQ(Shape(Merged(first, Load("SELECT Form = \"B\""))), "SELECT Form = \"B\" | $1=1");
}

TEST(FormulaMergeTest, Merge_SelectionWithoutKeyword_StaysTheSelection) {
  EXPECT_EQ(Shape(Merged(Load("1", "$1"), WithItem(Load("Size > 5"), "$1"))), "Size > 5 | $1=1");
}

// Constants, names and variables of the parts do not meet.
TEST(FormulaMergeTest, Merge_PartsShareNamesAndTexts_KeepTheirMeaning) {
  MemoryHost host;
  host.AddText("a", "item a");
  host.AddText("b", "item b");
  Program view = Load("REM \"r\"; x := \"shared\"; SELECT x = \"shared\" & a = \"item a\"");
  view = Merged(Load("x := b; x + \"shared\"", "$1"), view);
  view = Merged(Load("x + a + \"other\"", "$2"), view);
  view = Merged(Load("@Transform(\"1\":\"2\"; \"x\"; x + a)", "$3"), view);
  Evaluator evaluator(Program::Load(view.Stored()));
  EXPECT_TRUE(evaluator.Selects(host));
  EXPECT_EQ(Show(evaluator.ColumnValue(host, 0)), "\"item bshared\"");
  EXPECT_EQ(Show(evaluator.ColumnValue(host, 1)), "\"item aother\"");
  EXPECT_EQ(Show(evaluator.ColumnValue(host, 2)), "\"1item a\":\"2item a\"");
  EXPECT_TRUE(evaluator.Columns(host, TableForm::kValues).selected);
}

// A part of a merged formula decompiles to what its own formula compiles to.
TEST(FormulaMergeTest, Merge_ThenDecompileParts_SameFormulasAgain) {
  const Program selection = Load("SELECT Form = \"Memo\""), column = Load("@If(a; \"x\"; \"y\")", "$1");
  const Program view = Merged(column, selection);
  EXPECT_TRUE(SameBytes(Load(Decompile(view)).Stored(), selection.Stored()));
  EXPECT_TRUE(SameBytes(Load(Decompile(view, view.Columns()[0].part), "$1").Stored(), column.Stored()));
}

TEST(FormulaMergeTest, AddSummaryItem_NameLength_BoundedAtTheLimit) {
  std::vector<std::byte> merged;
  const Program formula = Load("1");
  EXPECT_EQ(AddSummaryItem(formula, "", &merged), status::kBadItemName);
  EXPECT_EQ(AddSummaryItem(formula, std::string(255, 'n'), &merged), status::kOk);
  EXPECT_EQ(AddSummaryItem(formula, std::string(256, 'n'), &merged), status::kBadItemName);
}

TEST(FormulaMergeTest, Merge_ResultTooLong_StatusAndNothingWritten) {
  const Program half = Load("\"" + std::string(40000, 'a') + "\"", "$1"),
                other = Load("\"" + std::string(40000, 'b') + "\"");
  std::vector<std::byte> merged;
  EXPECT_EQ(Merge(half, other, &merged), status::kFormulaTooLong);
  EXPECT_TRUE(merged.empty());
}

}  // namespace
}  // namespace brynd::formula
