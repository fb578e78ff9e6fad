// What the compiler refuses and where, what it takes, and the shape of what it writes.
#include <gtest/gtest.h>

#include <set>

#include "base/message.h"
#include "engine/formula_generator.h"
#include "engine/formula_memory_host.h"
#include "formula/function_table.h"
#include "formula/lexer.h"
#include "formula/program.h"

namespace brynd::formula {
namespace {

struct Fault {
  const char* source;
  EngStatus status;
  uint32_t offset, length, line, column;
};

constexpr Fault kFaults[] = {
    {"", status::kFormulaNoOperand, 0, 0, 1, 1},
    {"  \n ", status::kFormulaNoOperand, 4, 0, 2, 2},
    {";;", status::kFormulaNoOperand, 2, 0, 1, 3},
    {"1 +", status::kFormulaNoOperand, 3, 0, 1, 4},
    {"1 + ;", status::kFormulaNoOperand, 4, 1, 1, 5},
    {"1 2", status::kFormulaNoOperator, 2, 1, 1, 3},
    {"a b", status::kFormulaNoOperator, 2, 1, 1, 3},
    {"a\n  bb", status::kFormulaNoOperator, 4, 2, 2, 3},
    {"a\r\n bb cc", status::kFormulaNoOperator, 4, 2, 2, 2},
    {"\xe9\xe9 b", status::kFormulaNoOperator, 3, 1, 1, 4},
    {"\"\x10\x84\xb1\" b", status::kFormulaNoOperator, 6, 1, 1, 5},
    {"(1", status::kFormulaParenthesis, 0, 1, 1, 1},
    {"1)", status::kFormulaParenthesis, 1, 1, 1, 2},
    {"(1 2)", status::kFormulaNoOperator, 3, 1, 1, 4},
    {"()", status::kFormulaNoOperand, 1, 1, 1, 2},
    {"@If(1; 2; 3", status::kFormulaParenthesis, 0, 3, 1, 1},
    {"@Left(x; 1", status::kFormulaParenthesis, 0, 5, 1, 1},
    {"\"abc", status::kFormulaText, 0, 4, 1, 1},
    {"x = \"abc\\\"", status::kFormulaText, 4, 6, 1, 5},
    {"{abc", status::kFormulaText, 0, 4, 1, 1},
    {"1e999", status::kFormulaNumber, 0, 5, 1, 1},
    {"[2024-02-30]", status::kFormulaTime, 0, 12, 1, 1},
    {"[noon]", status::kFormulaTime, 0, 6, 1, 1},
    {"[10:00", status::kFormulaTime, 0, 6, 1, 1},
    {"1 + @NoSuch(2)", status::kFormulaNoFunction, 4, 7, 1, 5},
    {"@", status::kFormulaNoFunction, 0, 1, 1, 1},
    {"@@", status::kFormulaNoFunction, 0, 2, 1, 1},
    {"@@9999@@", status::kFormulaNoFunction, 0, 8, 1, 1},
    {"@@12", status::kFormulaNoFunction, 0, 2, 1, 1},
    {"@@x@@", status::kFormulaNoFunction, 0, 3, 1, 1},
    {"@Left(x)", status::kFormulaArguments, 0, 5, 1, 1},
    {"@Left(x; 1; 2)", status::kFormulaArguments, 0, 5, 1, 1},
    {"@All(1)", status::kFormulaArguments, 0, 4, 1, 1},
    {"@If(1; 2)", status::kFormulaArguments, 0, 3, 1, 1},
    {"@If(1; 2; 3; 4)", status::kFormulaArguments, 0, 3, 1, 1},
    {"@If(1; 2; )", status::kFormulaNoOperand, 10, 1, 1, 11},
    {"@IfError(1; 2; 3)", status::kFormulaArguments, 0, 8, 1, 1},
    {"@For(1; 2; 3)", status::kFormulaArguments, 0, 4, 1, 1},
    {"@For(1; 2)", status::kFormulaArguments, 0, 4, 1, 1},
    {"@While(1)", status::kFormulaArguments, 0, 6, 1, 1},
    {"@IsAvailable(1)", status::kFormulaName, 13, 1, 1, 14},
    {"@IsAvailable(a + b)", status::kFormulaNoOperator, 15, 1, 1, 16},
    {"@Transform(x; y; z)", status::kFormulaName, 14, 1, 1, 15},
    {"@Transform(x; \"y\")", status::kFormulaArguments, 0, 10, 1, 1},
    {"1 := 2", status::kFormulaNoOperator, 2, 2, 1, 3},
    {"a + b := 2", status::kFormulaAssignment, 6, 2, 1, 7},
    {":= 2", status::kFormulaAssignment, 0, 2, 1, 1},
    {"FIELD x", status::kFormulaAssignment, 7, 0, 1, 8},
    {"FIELD x = 1", status::kFormulaAssignment, 8, 1, 1, 9},
    {"DEFAULT x", status::kFormulaAssignment, 9, 0, 1, 10},
    {"SELECT", status::kFormulaNoOperand, 6, 0, 1, 7},
    {"REM x", status::kFormulaText, 0, 3, 1, 1},
    {"a ? b", status::kFormulaSyntax, 2, 1, 1, 3},
    {"a \\ b", status::kFormulaSyntax, 2, 1, 1, 3},
    {"* 2", status::kFormulaNoOperand, 0, 1, 1, 1},
    {"a = = b", status::kFormulaNoOperand, 4, 1, 1, 5},
    {"a; b c", status::kFormulaNoOperator, 5, 1, 1, 6},
    {"a;\n\n  1e400 + 2", status::kFormulaNumber, 6, 5, 3, 3},
    {"x :=\n [1/2/3/4]", status::kFormulaTime, 6, 9, 2, 2},
    {"@Name([XX]; a)", status::kFormulaTime, 6, 4, 1, 7},
    {"@Name([CN] a)", status::kFormulaNoOperator, 11, 1, 1, 12},
    {"x\n= {abc", status::kFormulaText, 4, 4, 2, 3},
    {"1 +\n@Nope", status::kFormulaNoFunction, 4, 5, 2, 1},
    {"1 +\n@Left(\nx)", status::kFormulaArguments, 4, 5, 2, 1},
    {"1 +\n(2 * (3)", status::kFormulaParenthesis, 4, 1, 2, 1},
    {"1 +\n2)", status::kFormulaParenthesis, 5, 1, 2, 2},
    {"1;\n#", status::kFormulaSyntax, 3, 1, 2, 1},
    {"1;\n\x10\x84\xb1\x05", status::kFormulaSyntax, 6, 1, 2, 2},
    {"DEFAULT\nx = 1", status::kFormulaAssignment, 10, 1, 2, 3},
    {"ENVIRONMENT x", status::kFormulaAssignment, 13, 0, 1, 14},
    {"@IsUnavailable(\n\"\")", status::kFormulaName, 16, 2, 2, 1},
    {"SELECT\n", status::kFormulaNoOperand, 7, 0, 2, 1},
    {"@DeleteDocument", status::kFormulaContext, 0, 15, 1, 1},
    {"1;\n1 + @SetField(\"a\"; 1)", status::kFormulaContext, 7, 9, 2, 5},
    {"SetEnvironment + @SetEnvironment(1; 2)", status::kFormulaContext, 17, 15, 1, 18},
};

// Texts that are too long or too deep to be written out: what they are made of, and how often.
struct LongFault {
  const char *begin, *again, *end;
  size_t times;
  EngStatus status;
  uint32_t offset, length;
};

constexpr LongFault kLongFaults[] = {
    {"1 + ", "(", "", 30000, status::kFormulaTooDeep, 54, 1},
    {"", "-", "1", 30000, status::kFormulaTooDeep, 99, 1},
    {"", "n", "", 256, status::kFormulaName, 0, 256},
    {"a; ", "n", " b", 300, status::kFormulaName, 3, 300},
    {"1", "+1", "", 40000, status::kFormulaTooLong, 32757, 1},
    {"1; \"", "x", "\"", 70000, status::kFormulaTooLong, 3, 70002},
    {"@List(1", ";1", ")", 255, status::kFormulaArguments, 0, 5},
};

TEST(FormulaCompileTest, Compile_FaultyText_StatusAndPlace) {
  for (const Fault& fault : kFaults) {
    std::vector<std::byte> compiled;
    CompileError error;
    const CompileOptions options{.item_name = fault.status == status::kFormulaContext ? "$1" : ""};
    EXPECT_EQ(StatusName(Compile(fault.source, options, &compiled, &error)), StatusName(fault.status))
        << fault.source;
    EXPECT_EQ(error.status, fault.status) << fault.source;
    EXPECT_EQ(error.offset, fault.offset) << fault.source;
    EXPECT_EQ(error.length, fault.length) << fault.source;
    EXPECT_EQ(error.line, fault.line) << fault.source;
    EXPECT_EQ(error.column, fault.column) << fault.source;
    EXPECT_TRUE(compiled.empty()) << fault.source;
  }
}

TEST(FormulaCompileTest, Compile_FaultyLongText_StatusAndPlace) {
  for (const LongFault& fault : kLongFaults) {
    std::string source = fault.begin;
    for (size_t time = 0; time < fault.times; ++time) source += fault.again;
    source += fault.end;
    std::vector<std::byte> compiled;
    CompileError error;
    EXPECT_EQ(StatusName(Compile(source, {}, &compiled, &error)), StatusName(fault.status)) << fault.begin;
    EXPECT_EQ(error.offset, fault.offset) << fault.begin << fault.again;
    EXPECT_EQ(error.length, fault.length) << fault.begin << fault.again;
    EXPECT_EQ(error.line, 1u);
    EXPECT_EQ(error.column, fault.offset + 1) << fault.begin << fault.again;
  }
}

// Each thing that can be wrong with a text stands in one of the tables.
TEST(FormulaCompileTest, Faults_AllStatuses_Shown) {
  std::set<EngStatus> shown;
  for (const Fault& fault : kFaults) shown.insert(fault.status);
  for (const LongFault& fault : kLongFaults) shown.insert(fault.status);
  const std::set<EngStatus> all = {
      status::kFormulaSyntax,     status::kFormulaNoOperator, status::kFormulaNoOperand,
      status::kFormulaNoFunction, status::kFormulaArguments,  status::kFormulaParenthesis,
      status::kFormulaText,       status::kFormulaNumber,     status::kFormulaTime,
      status::kFormulaTooLong,    status::kFormulaTooDeep,    status::kFormulaAssignment,
      status::kFormulaContext,    status::kFormulaName};
  EXPECT_EQ(shown, all);
}

// Wherever a text breaks off and whatever stands in it: the place lies inside it, at the line and column that
// the offset says.
TEST(FormulaCompileTest, Compile_RandomFaults_PlaceInsideTheText) {
  FormulaGenerator generator(SeedOfRun());
  TestRandom random(SeedOfRun() + 1);
  constexpr std::string_view kLetters = " \n();:=@[]{}\"\\*+-/!&|<>$_.a1x\x10\x05\xe9";
  size_t refused = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string source = generator.Formula();
    if (random.Below(2) == 0) source.resize(random.Below(static_cast<uint32_t>(source.size()) + 1));
    for (uint32_t changes = random.Below(3); changes != 0 && !source.empty(); --changes)
      source[random.Below(static_cast<uint32_t>(source.size()))] =
          kLetters[random.Below(static_cast<uint32_t>(kLetters.size()))];
    std::vector<std::byte> compiled;
    CompileError error;
    const EngStatus outcome = Compile(source, {}, &compiled, &error);
    if (outcome == status::kOk) continue;
    ++refused;
    ASSERT_TRUE(outcome >= status::kFormulaSyntax && outcome <= status::kFormulaName) << source;
    ASSERT_LE(error.offset + size_t{error.length}, source.size()) << source;
    uint32_t line = 0, column = 0;
    LineAndColumn(source, error.offset, &line, &column);
    ASSERT_EQ(error.line, line) << source;
    ASSERT_EQ(error.column, column) << source;
  }
  EXPECT_GT(refused, 5000u);
}

std::vector<std::byte> Compiled(std::string_view source, CompileOptions options = {}) {
  std::vector<std::byte> compiled;
  CompileError error;
  EXPECT_EQ(Compile(source, options, &compiled, &error), status::kOk) << source;
  return compiled;
}

EngStatus StatusOf(std::string_view source) {
  std::vector<std::byte> compiled;
  CompileError error;
  return Compile(source, {}, &compiled, &error);
}

TEST(FormulaCompileTest, Compile_SpellingAndBlanks_SameBytes) {
  static constexpr const char* kPairs[][2] = {
      {"SELECT @All", "select   @all;"},
      {"SELECT @All", "CHOIX @TOUT"},
      {"SELECT @All", "@@SELECT@@ @@102@@"},
      {"@DocNumber", "@@146@@"},
      {"@All", "@ALL()"},
      {"a <> b", "a != b"},
      {"{text}", "\"text\""},
      {"1.50", "1.5"},
      {"1000", "1E3"},
      {"a\n+\tb", "a + b"},
  };
  for (const auto& pair : kPairs) EXPECT_EQ(Compiled(pair[0]), Compiled(pair[1])) << pair[1];
}

TEST(FormulaCompileTest, Compile_FirstWord_TotalLength) {
  for (const char* source : {"1", "Form", "SELECT Form = \"Memo\" & Size > 1000"}) {
    const std::vector<std::byte> compiled = Compiled(source);
    EXPECT_EQ(LoadU16(compiled.data()), compiled.size()) << source;
    EXPECT_EQ(std::to_integer<int>(compiled[compiled.size() - 4]), 0) << "the byte that a caller may patch";
  }
}

TEST(FormulaCompileTest, Compile_Flags_TellWhatTheFormulaDoes) {
  EXPECT_EQ(Program::Load(Compiled("Form")).Flags(), 0);
  EXPECT_EQ(Program::Load(Compiled("SELECT Form")).Flags(), kFlagSelection);
  EXPECT_EQ(Program::Load(Compiled("FIELD x := 1")).Flags(), kFlagWrites);
  EXPECT_EQ(Program::Load(Compiled("@DeleteDocument")).Flags(), kFlagWrites);
  EXPECT_EQ(Program::Load(Compiled("@If(0; @Now; 1)")).Flags(), kFlagTime);
  for (const char* source : {"@DocNumber", "@AllChildren", "@AllDescendants", "@Responses"})
    EXPECT_EQ(Program::Load(Compiled(source)).Flags(), kFlagHierarchy) << source;
  EXPECT_EQ(Program::Load(Compiled("SELECT a | @AllDescendants")).Flags(), kFlagSelection | kFlagHierarchy);
  EXPECT_EQ(Program::Load(Compiled("@SetDocField(a; \"b\"; 1)")).Flags(), kFlagWrites);
  EXPECT_EQ(Program::Load(Compiled("@Set(\"a\"; 1)")).Flags(), kFlagNamedSets);
}

TEST(FormulaCompileTest, Compile_WritingFunctionInColumn_Refused) {
  std::vector<std::byte> compiled;
  CompileError error;
  const CompileOptions column{.item_name = "$1"};
  EXPECT_EQ(Compile("1 + @DeleteDocument", column, &compiled, &error), status::kFormulaContext);
  EXPECT_EQ(error.offset, 4u);
  EXPECT_EQ(error.length, 15u);
  EXPECT_EQ(Compile("Subject", column, &compiled, &error), status::kOk);
  EXPECT_EQ(Program::Load(compiled).Names()[Program::Load(compiled).OwnName()], "$1");
}

// Every limit at its value and one beyond.
TEST(FormulaCompileTest, Compile_Nesting_BoundedAtTheLimit) {
  const auto nested = [](int depth) { return std::string(depth, '(') + "1" + std::string(depth, ')'); };
  int deepest = 0;
  while (deepest < 1000 && StatusOf(nested(deepest + 1)) == status::kOk) ++deepest;
  EXPECT_GE(deepest, kNestingMax / 2 - 1);
  EXPECT_EQ(StatusOf(nested(deepest)), status::kOk);
  EXPECT_EQ(StatusOf(nested(deepest + 1)), status::kFormulaTooDeep);
  EXPECT_EQ(StatusOf(nested(30000)), status::kFormulaTooDeep);
  EXPECT_EQ(StatusOf(std::string(30000, '-') + "1"), status::kFormulaTooDeep);
  EXPECT_EQ(StatusOf(std::string(30000, '!') + "1"), status::kFormulaTooDeep);
}

TEST(FormulaCompileTest, Compile_Length_BoundedAtTheLimit) {
  const auto with_text = [](size_t bytes) { return "\"" + std::string(bytes, 'x') + "\""; };
  const size_t fixed = Compiled(with_text(1)).size() - 1;
  EXPECT_EQ(Compiled(with_text(kFormulaBytesMax - fixed)).size(), kFormulaBytesMax);
  EXPECT_EQ(StatusOf(with_text(kFormulaBytesMax - fixed + 1)), status::kFormulaTooLong);
  std::string sum = "1";
  for (int terms = 0; terms < 40000; ++terms) sum += "+1";
  EXPECT_EQ(StatusOf(sum), status::kFormulaTooLong);
  std::string names = "a";
  for (int name = 0; name < 20000; ++name) names += ":a" + std::to_string(name);
  EXPECT_EQ(StatusOf(names), status::kFormulaTooLong);
}

TEST(FormulaCompileTest, Compile_ArgumentCount_BoundedAtTheLimit) {
  const auto list = [](int count) {
    std::string source = "@List(1";
    for (int index = 1; index < count; ++index) source += ";1";
    return source + ")";
  };
  EXPECT_EQ(StatusOf(list(kArgumentsMax)), status::kOk);
  EXPECT_EQ(StatusOf(list(kArgumentsMax + 1)), status::kFormulaArguments);
  // 255 values wait for the outer call and 255 for each inner one.
  std::string nested = "@List(";
  for (int index = 0; index < 254; ++index) nested += "1;";
  std::string deeper = nested + nested + nested + "1)))";
  EXPECT_EQ(StatusOf(deeper), status::kFormulaTooDeep);
}

TEST(FormulaCompileTest, Compile_NameLength_BoundedAtTheLimit) {
  EXPECT_EQ(StatusOf(std::string(255, 'n')), status::kOk);
  EXPECT_EQ(StatusOf(std::string(256, 'n')), status::kFormulaName);
  EXPECT_EQ(StatusOf("@IsAvailable(\"" + std::string(256, 'n') + "\")"), status::kFormulaName);
  EXPECT_EQ(StatusOf("@IsAvailable(\"\")"), status::kFormulaName);
}

// The engine's own formula, in its messages.
TEST(FormulaCompileTest, Compile_SelectionOfDesignCollection_Compiles) {
  EXPECT_TRUE(Program::Load(Compiled(MessageText(kDesignSelectionMessage))).HasSelection());
}

TEST(FormulaCompileTest, FunctionTable_FixedNumbers_Found) {
  EXPECT_EQ(FindFunction(uint16_t{102})->name, "All");
  EXPECT_EQ(FindFunction(uint16_t{146})->name, "DocNumber");
  EXPECT_EQ(FindFunction("tout")->number, 102);
  EXPECT_EQ(FindFunction("dOcNuMbEr")->number, 146);
  EXPECT_EQ(FindFunction(uint16_t{0}), nullptr);
  EXPECT_EQ(FindFunction(uint16_t{65535}), nullptr);
}

}  // namespace
}  // namespace brynd::formula
