// Operators on all pairs of types, plain and permuted, against a small model; selection; evaluations one
// after the other.
#include <gtest/gtest.h>

#include <new>

#include "base/memory.h"
#include "engine/formula_memory_host.h"
#include "formula/merge.h"

namespace {
size_t allocations = 0;
}

// Not inlined: the compiler would otherwise pair the malloc of one with the free of the other and complain.
[[gnu::noinline]] void* operator new(size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept { std::free(memory); }

namespace brynd::formula {
namespace {

struct Row {
  const char* source;
  const char* expected;
};

class MachineTest : public testing::Test {
 protected:
  MachineTest() {
    host_.AddText("Section", "games");
    host_.AddNumber("InstalledSize", 1234);
    host_.AddText("Word", "x");
  }
  void Expect(std::span<const Row> rows) {
    for (const Row& row : rows) EXPECT_EQ(Compute(row.source, host_), row.expected) << row.source;
  }
  Program Load(std::string_view source) {
    std::vector<std::byte> compiled;
    CompileError error;
    EXPECT_EQ(Compile(source, {}, &compiled, &error), status::kOk) << source;
    return Program::Load(compiled);
  }
  MemoryHost host_;
};

constexpr Row kOperatorRows[] = {
    {"1 + 2 * 3", "7"},
    {"(1 + 2) * 3", "9"},
    {"2 - 3 - 4", "-5"},
    {"12 / 3 / 2", "2"},
    {"-2 * -3", "6"},
    {"- -2", "2"},
    {"+5", "5"},
    {"+\"a\"", "!3"},
    {"-\"a\"", "!3"},
    {"-[10:00]", "!3"},
    {"1:2:3", "1:2:3"},
    {"-1:2", "-1:-2"},
    {"1:-2", "1:-2"},
    {"1:2 + 3:4", "4:6"},
    {"1:2 + 10:20:30", "11:22:32"},
    {"1:2:3 * 2", "2:4:6"},
    {"1 / 0", "!6"},
    {"1:2 / 1:0", "!6"},
    {"1e308 * 10", "!7"},
    {"\"a\" + \"b\"", "\"ab\""},
    {"\"a\":\"b\" + \"1\":\"2\"", "\"a1\":\"b2\""},
    {"\"a\" + 1", "!2"},
    {"\"\" + 1", "!2"},
    {"\"a\" * \"b\"", "!3"},
    {"\"a\" - \"b\"", "!3"},
    {"1 = 1", "1"},
    {"1 = 2", "0"},
    {"1 <> 2", "1"},
    {"1 != 1", "0"},
    {"1 < 2 & 2 <= 2 & 3 > 2 & 3 >= 3", "1"},
    {"1:5 = 1:6", "1"},
    {"1:5 = 2:6", "0"},
    {"1:2:3 = 9:3", "1"},
    {"\"a\" = \"A\"", "0"},
    {"\"a\" < \"b\"", "1"},
    {"\"a\" < \"B\"", "1"},
    {"\"b\" > \"A\"", "1"},
    {"\"ab\" > \"a\"", "1"},
    {"\"a\" = 1", "!2"},
    {"\"\" = 1", "0"},
    {"\"\" <> 1", "1"},
    {"1 > \"\"", "0"},
    {"\"\" < 1", "0"},
    {"\"\" >= [10:00]", "0"},
    {"[10:00] <> \"\"", "1"},
    {"[10:00] = 1", "!2"},
    {"\"\":\"\" <> 1", "1"},
    {"\"\":\"x\" <> 1", "!2"},
    {"Missing = \"\"", "1"},
    {"Missing > 1000", "0"},
    {"Missing <> 1000", "1"},
    {"1 & 1", "1"},
    {"1 & 0", "0"},
    {"0 | 2", "1"},
    {"0 | 0", "0"},
    {"1 & \"a\"", "!3"},
    {"\"\" | 1", "!3"},
    {"!0", "1"},
    {"!5", "0"},
    {"!\"a\"", "!3"},
    {"!1 = 2", "1"},
    {"!0 & 0", "0"},
    {"1 | 0 & 0", "0"},
    {"1 + 2 = 3", "1"},
    {"1 = 1 & 2 = 2", "1"},
    {"1/0 + \"a\"", "!6"},
    {"\"a\" + 1/0", "!6"},
    {"\"a\" * 1 + 1/0", "!2"},
    {"0 & 1/0", "!6"},
    {"1:\"a\"", "!2"},
    {"1:(1/0)", "!6"},
    {"1:2 *+ 10:20", "11:21:12:22"},
    {"1:2 *- 10:20", "-9:-19:-8:-18"},
    {"1:2 ** 10:20", "10:20:20:40"},
    {"10:20 */ 1:2", "10:5:20:10"},
    {"\"a\":\"b\" *+ \"1\":\"2\"", "\"a1\":\"a2\":\"b1\":\"b2\""},
    {"1:2:3 *= 3:9", "1"},
    {"1:2:3 = 3:9", "0"},
    {"1:2 *= 3:4", "0"},
    {"1 *<> 1", "0"},
    {"1:2 *<> 1", "1"},
    {"5:6 *< 1:6", "1"},
    {"5:6 *> 9:5", "1"},
    {"5:6 *<= 1:5", "1"},
    {"5:6 *>= 7:6", "1"},
    {"5:6 *>= 7:8", "0"},
    {"1:2 *+ \"a\"", "!2"},
    {"2*-3", "-1"},
    {"2 * -3", "-6"},
};

TEST_F(MachineTest, Operators) { Expect(kOperatorRows); }

// Every comparison of every pair of kinds, against what the rules say.
TEST_F(MachineTest, Comparisons_AllPairsOfKinds_AsTheRulesSay) {
  struct Operand {
    const char* text;
    char kind;  // n number, t time, s text, e empty text, x error
    int rank;   // within its kind
  };
  static constexpr Operand kOperands[] = {{"1", 'n', 1},       {"2", 'n', 2},       {"[10:00]", 't', 1},
                                          {"[11:00]", 't', 2}, {"\"a\"", 's', 1},   {"\"b\"", 's', 2},
                                          {"\"\"", 'e', 0},    {"Missing", 'e', 0}, {"(1/0)", 'x', 0}};
  static constexpr const char* kSigns[] = {"=", "<>", "<", ">", "<=", ">="};
  for (const Operand& left : kOperands) {
    for (const Operand& right : kOperands) {
      for (size_t sign = 0; sign < std::size(kSigns); ++sign) {
        const bool left_text = left.kind == 's' || left.kind == 'e',
                   right_text = right.kind == 's' || right.kind == 'e';
        const bool truths[] = {left.rank == right.rank, left.rank != right.rank,
                               left.rank<right.rank, left.rank> right.rank, left.rank <= right.rank,
                               left.rank >= right.rank};
        std::string expected = truths[sign] ? "1" : "0";
        const bool mixed = left.kind != right.kind && !(left_text && right_text);
        if (mixed) expected = left.kind == 'e' || right.kind == 'e' ? (sign == 1 ? "1" : "0") : "!2";
        if (left.kind == 'x' || right.kind == 'x') expected = "!6";
        for (const char* star : {"", "*"}) {
          const std::string source = std::string(left.text) + " " + star + kSigns[sign] + " " + right.text;
          EXPECT_EQ(Compute(source, host_), expected) << source;
        }
      }
    }
  }
}

struct Selection {
  const char* source;
  bool selected;
};
constexpr Selection kSelections[] = {
    {"SELECT @All", true},
    {"SELECT Section = \"games\" & InstalledSize > 1000", true},
    {"SELECT Section = \"games\" & InstalledSize > 2000", false},
    {"SELECT Missing > 1000", false},
    {"SELECT 1/0", false},
    {"SELECT \"yes\"", false},
    {"SELECT 1; SELECT 0", false},
    {"SELECT 0; SELECT 1; 0", true},
    {"Section = \"games\"", true},
    {"Section", false},
    {"InstalledSize", true},
    {"0", false},
    {"@Success", true},
    {"@Failure(\"no\")", false},
    {"@Return(1); SELECT 0", false},
    {"@If(Section = \"games\"; @Success; @Failure(\"not a game\"))", true},
};

TEST_F(MachineTest, Selects_AnyFormula_TrueOnlyForNumbersOtherThanZero) {
  for (const Selection& selection : kSelections) {
    Evaluator evaluator(Load(selection.source));
    EXPECT_EQ(evaluator.Selects(host_), selection.selected) << selection.source;
    EXPECT_EQ(evaluator.Evaluate(host_).selected, selection.selected) << selection.source;
  }
}

TEST_F(MachineTest, Evaluate_Effects_ReportedEachTimeAnew) {
  Evaluator evaluator(Load("@If(Section = \"games\"; @Do(FIELD Seen := 1; @DeleteDocument); 0)"));
  const Evaluation first = evaluator.Evaluate(host_);
  EXPECT_TRUE(first.modified);
  EXPECT_TRUE(first.deleted);
  MemoryHost other;
  const Evaluation second = evaluator.Evaluate(other);
  EXPECT_FALSE(second.modified);
  EXPECT_FALSE(second.deleted);
  EXPECT_FALSE(second.selected);
}

// Variables of one document are gone for the next.
TEST_F(MachineTest, Evaluate_NextDocument_VariablesForgotten) {
  Evaluator evaluator(Load("@If(InstalledSize > 1000; kept := 1; 0); kept"));
  EXPECT_EQ(Show(evaluator.Evaluate(host_).value), "1");
  MemoryHost other;
  other.AddNumber("InstalledSize", 5);
  EXPECT_EQ(Show(evaluator.Evaluate(other).value), "\"\"");
}

// Names are bound once, and again when the dictionary has learned some.
TEST_F(MachineTest, Evaluate_NameLearnedLater_FoundThen) {
  Evaluator evaluator(Load("Later"));
  EXPECT_EQ(Show(evaluator.Evaluate(host_).value), "\"\"");
  host_.AddNumber("Later", 5);
  EXPECT_EQ(Show(evaluator.Evaluate(host_).value), "5");
}

TEST_F(MachineTest, Selects_TwoFields_NoAllocation) {
  Evaluator evaluator(
      Load("SELECT Section = \"games\" & InstalledSize > 1000 & Missing <> 3 & !(Word = \"y\")"));
  EXPECT_TRUE(evaluator.Selects(host_));
  const size_t before = allocations;
  for (int round = 0; round < 100; ++round) EXPECT_TRUE(evaluator.Selects(host_));
  EXPECT_EQ(allocations, before);
  host_.finds = 0;
  evaluator.Selects(host_);
  EXPECT_LE(host_.finds, 3);  // only the items it names, and only those that exist anywhere
}

// Long loops give back what they no longer need: without that this would pass the limit of the arena.
TEST_F(MachineTest, Evaluate_LoopThatMakesTexts_MemoryGivenBack) {
  static_assert(3000 * 30000 > kArenaBytesMax);
  EXPECT_EQ(Compute("long := @Repeat(\"x\"; 30000); @For(i := 0; i < 3000; i := i + 1; t := long + "
                    "@Text(i)); @Right(t; 5)",
                    host_),
            "\"x2999\"");
}

TEST_F(MachineTest, Evaluate_ListThatGrows_KeepsItsElements) {
  EXPECT_EQ(Compute("l := \"0\"; @For(i := 1; i < 3000; i := i + 1; l := l : @Text(i)); "
                    "@Elements(l):@TextToNumber(@Nth(l; 2500))",
                    host_),
            "3000:2499");
}

TEST_F(MachineTest, Evaluate_ResultLongerThanAnItem_ErrorValue) {
  EXPECT_EQ(Compute("@Explode(@Repeat(\"y \"; 30000)) + \"text\"", host_), "!10");
  EXPECT_EQ(Compute("FIELD Long := @Explode(@Repeat(\"y \"; 30000)) + \"text\"", host_), "!10");
}

TEST_F(MachineTest, Evaluate_TooMuchMemory_FailsWithItsStatus) {
  Evaluator evaluator(
      Load("t := @Repeat(\"x\"; 1000); l := @Explode(@Repeat(\"y \"; 30000)); a := l + t; b := l + t; "
           "c := l + t; 1"));
  EngStatus failure = 0;
  try {
    evaluator.Evaluate(host_);
  } catch (const Failure& caught) {
    failure = caught.status();
  }
  EXPECT_EQ(failure, status::kFormulaResultTooLarge);
  EXPECT_THROW(evaluator.Evaluate(host_), Failure);
}

TEST_F(MachineTest, Columns_MergedFormula_ItemTable) {
  std::vector<std::byte> merged;
  Program selection = Load("SELECT Section = \"games\"");
  ASSERT_EQ(AddSummaryItem(selection, "Section", &merged), status::kOk);
  selection = Program::Load(merged);
  ASSERT_EQ(AddSummaryItem(selection, "$REF", &merged), status::kOk);
  selection = Program::Load(merged);
  std::vector<std::byte> column;
  CompileError error;
  ASSERT_EQ(Compile("InstalledSize * 2", {.item_name = "$1"}, &column, &error), status::kOk);
  ASSERT_EQ(Merge(Program::Load(column), selection, &merged), status::kOk);
  Evaluator evaluator(Program::Load(merged));
  const Evaluator::Table table = evaluator.Columns(host_, TableForm::kValues);
  ASSERT_TRUE(table.selected);
  ByteReader in(table.bytes);
  EXPECT_EQ(in.U16(), table.bytes.size());
  EXPECT_EQ(in.U16(), 3);
  EXPECT_EQ(in.U16(), 7);   // "games" with its type word
  EXPECT_EQ(in.U16(), 0);   // a missing item takes no bytes
  EXPECT_EQ(in.U16(), 10);  // a number with its type word
  EXPECT_EQ(Show(in.Take(7)), "\"games\"");
  EXPECT_EQ(Show(in.Take(10)), "2468");
  EXPECT_EQ(in.Left(), 0u);
  MemoryHost other;
  EXPECT_FALSE(evaluator.Columns(other, TableForm::kValues).selected);
  EXPECT_EQ(Show(evaluator.ColumnValue(host_, 2)), "2468");
  const Evaluator::Table named = evaluator.Columns(host_, TableForm::kNamed);
  ByteReader names(named.bytes);
  names.Skip(4 + 3 * 4);
  EXPECT_EQ(names.Text(7), "Section");
  EXPECT_EQ(Show(names.Take(7)), "\"games\"");
  EXPECT_EQ(names.Text(4), "$REF");
  EXPECT_EQ(names.Text(2), "$1");
  EXPECT_EQ(Show(names.Take(10)), "2468");
}

// Values above 15 KiB are cut; columns from the one that no longer fits stay empty.
TEST_F(MachineTest, Columns_LongValues_CutAndRightColumnsEmpty) {
  MemoryHost host;
  host.AddText("Long", std::string(40000, 'x'));
  host.AddText("Short", "s");
  const Program all = Load("SELECT @All");
  std::vector<std::byte> merged(all.Stored().begin(), all.Stored().end());
  for (int column = 0; column < 6; ++column) {
    const std::string name = "$" + std::to_string(column);
    std::vector<std::byte> part;
    CompileError error;
    ASSERT_EQ(Compile(column == 5 ? "Short" : "Long", {.item_name = name}, &part, &error), status::kOk);
    std::vector<std::byte> next;
    ASSERT_EQ(Merge(Program::Load(part), Program::Load(merged), &next), status::kOk);
    merged = next;
  }
  Evaluator evaluator(Program::Load(merged));
  ByteReader in(evaluator.Columns(host, TableForm::kValues).bytes);
  EXPECT_LE(in.U16(), 65535);
  EXPECT_EQ(in.U16(), 6);
  for (int column = 0; column < 4; ++column) EXPECT_EQ(in.U16(), kSummaryValueBytesMax) << column;
  EXPECT_EQ(in.U16(), 0);
  EXPECT_EQ(in.U16(), 0);
}

}  // namespace
}  // namespace brynd::formula
