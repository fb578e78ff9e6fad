// Decompiling: the text of a formula compiles to the same bytes.
#include <gtest/gtest.h>

#include <map>

#include "engine/formula_generator.h"
#include "engine/formula_memory_host.h"
#include "formula/decompiler.h"
#include "formula/merge.h"

namespace brynd::formula {
namespace {

std::vector<std::byte> Compiled(std::string_view source) {
  std::vector<std::byte> compiled;
  CompileError error;
  const EngStatus status = Compile(source, {}, &compiled, &error);
  EXPECT_EQ(StatusName(status), "") << source << " at " << error.offset;
  return compiled;
}

struct Row {
  const char* source;
  const char* text;
};

constexpr Row kRows[] = {
    {"select  @all", "SELECT @All"},
    {"@@SELECT@@ @@102@@", "SELECT @All"},
    {"Subject", "Subject"},
    {"a:b:c", "a:b:c"},
    {"1+2*3", "1 + 2 * 3"},
    {"(1+2)*3", "(1 + 2) * 3"},
    {"((a))", "((a))"},
    {"a!=b", "a <> b"},
    {"1E+300", "1e+300"},
    {"0.1", "0.1"},
    {"40000", "40000"},
    {"-5", "-5"},
    {"2 * -3", "2 * -3"},
    {"!a&b", "!a & b"},
    {"{a\"b\\c}", "\"a\\\"b\\\\c\""},
    {"rem {note};x:=1;field y:=x", "REM \"note\"; x := 1; FIELD y := x"},
    {"default a:=1;environment b:=\"x\"", "DEFAULT a := 1; ENVIRONMENT b := \"x\""},
    {"@if(a;b;c;d;e)", "@If(a; b; c; d; e)"},
    {"@iferror(a)", "@IfError(a)"},
    {"@iferror(a;\"\")", "@IfError(a; \"\")"},
    {"@for(i:=1;i<3;i:=i+1;x;y)", "@For(i := 1; i < 3; i := i + 1; x; y)"},
    {"@while(a;b;c)", "@While(a; b; c)"},
    {"@dowhile(a;b;c)", "@DoWhile(a; b; c)"},
    {"@transform(a;\"v\";v*2)", "@Transform(a; \"v\"; v * 2)"},
    {"@isavailable(\"a\")", "@IsAvailable(a)"},
    {"@isunavailable(\"a b\")", "@IsUnavailable(\"a b\")"},
    {"@isunavailable(\"select\")", "@IsUnavailable(\"select\")"},
    {"@return(1)", "@Return(1)"},
    {"[2024-02-29 10:15:30]", "[02/29/2024 10:15:30]"},
    {"[2024-02-29]", "[02/29/2024]"},
    {"[10:15]", "[10:15:00]"},
};

TEST(FormulaDecompileTest, Decompile_Formula_ItsText) {
  for (const Row& row : kRows) {
    const std::vector<std::byte> compiled = Compiled(row.source);
    EXPECT_EQ(Decompile(Program::Load(compiled)), row.text);
    EXPECT_EQ(Compiled(row.text), compiled) << row.text;
  }
}

TEST(FormulaDecompileTest, Decompile_EmptyFormula_EmptyText) { EXPECT_EQ(Decompile(Program()), ""); }

TEST(FormulaDecompileTest, Decompile_GeneratedFormulas_CompileToTheSameBytes) {
  FormulaGenerator generator(SeedOfRun());
  int compiled_count = 0;
  for (int round = 0; round < 5000; ++round) {
    const std::string source = generator.Formula();
    std::vector<std::byte> compiled, again;
    CompileError error;
    ASSERT_EQ(StatusName(Compile(source, {}, &compiled, &error)), "") << source << "\nat " << error.offset;
    const std::string text = Decompile(Program::Load(compiled));
    ASSERT_EQ(StatusName(Compile(text, {}, &again, &error)), "") << source << "\nbecame\n" << text;
    ASSERT_EQ(again, compiled) << source << "\nbecame\n" << text;
    ASSERT_EQ(Decompile(Program::Load(again)), text);
    ++compiled_count;
  }
  EXPECT_EQ(compiled_count, 5000);
}

// A formula at random that can be the code of a column.
std::vector<std::byte> RandomColumn(FormulaGenerator& generator, std::string_view item_name,
                                    std::string* source) {
  for (;;) {
    *source = generator.Formula();
    std::vector<std::byte> compiled;
    CompileError error;
    if (Compile(*source, {.item_name = item_name}, &compiled, &error) == status::kFormulaContext) continue;
    EXPECT_EQ(StatusName(error.status), "") << *source;
    if (!Program::Load(compiled).HasSelection()) return compiled;
  }
}

// Whatever is merged in whatever order: each part decompiles to a text that compiles to what it was made of.
TEST(FormulaDecompileTest, Decompile_GeneratedMergedFormulas_PartsCompileToTheSameBytes) {
  FormulaGenerator generator(SeedOfRun() + 2);
  TestRandom random(SeedOfRun() + 3);
  constexpr std::string_view kItems[] = {"$1", "$2", "Subject", "caf\xe9"};
  for (int round = 0; round < 1500; ++round) {
    const std::string selection_source = generator.Formula();
    const std::vector<std::byte> selection = Compiled(selection_source);
    std::vector<std::byte> merged = selection;
    std::map<std::string_view, std::vector<std::byte>> columns;
    std::string source;
    for (uint32_t count = 1 + random.Below(4); count != 0; --count) {
      const std::string_view item = kItems[random.Below(std::size(kItems))];
      columns[item] = RandomColumn(generator, item, &source);
      std::vector<std::byte> next;
      ASSERT_EQ(StatusName(Merge(Program::Load(columns[item]), Program::Load(merged), &next)), "") << source;
      merged = next;
    }
    const Program program = Program::Load(merged);
    ASSERT_EQ(Compiled(Decompile(program)), selection) << selection_source;
    ASSERT_EQ(program.Columns().size(), columns.size());
    for (const Column& column : program.Columns()) {
      const std::string_view name = program.Names()[column.name];
      std::vector<std::byte> again;
      CompileError error;
      const std::string text = Decompile(program, column.part);
      ASSERT_EQ(StatusName(Compile(text, {.item_name = name}, &again, &error)), "") << text;
      ASSERT_EQ(again, columns[name]) << text;
    }
  }
}

// What the same text computes does not depend on the way it went.
TEST(FormulaDecompileTest, Decompile_GeneratedFormulas_ComputeTheSame) {
  FormulaGenerator generator(SeedOfRun() + 1);
  for (int round = 0; round < 300; ++round) {
    const std::string source = generator.Formula();
    if (source.find("Random") != source.npos || source.find("222") != source.npos ||
        source.find("nique") != source.npos || source.find("@35@") != source.npos ||
        source.find("hile") != source.npos || source.find("@For") != source.npos ||
        source.find("@1") != source.npos)
      continue;  // what differs from call to call, and what may take its full count of steps
    MemoryHost first, second;
    first.AddNumber("a", 3);
    second.AddNumber("a", 3);
    EXPECT_EQ(Compute(source, first).substr(0, 9),
              Compute(Decompile(Program::Load(Compiled(source))), second).substr(0, 9))
        << source;
  }
}

}  // namespace
}  // namespace brynd::formula
