// Compiled formulas from anywhere: whatever the bytes are, loading gives a status, or what was loaded
// computes and decompiles without harm.
#include <gtest/gtest.h>

#include "engine/formula_generator.h"
#include "engine/formula_memory_host.h"
#include "formula/decompiler.h"
#include "formula/merge.h"

namespace brynd::formula {
namespace {

constexpr const char* kSources[] = {
    "SELECT Form = \"Memo\" & Size > 1000",
    "@If(a; \"x\":\"y\"; b = 1; @Return(2); c)",
    "i := 0; @While(i < 3; i := i + 1); @For(j := 0; j < 2; j := j + 1; k := j); @DoWhile(1; 0)",
    "@Transform(1:2; \"n\"; @IfError(n / 0; n))",
    "REM \"r\"; DEFAULT d := @Now; FIELD f := [10:00]; ENVIRONMENT e := \"v\"; @IsAvailable(f)",
    "@Text(1.5; \"F2\") *+ @Explode(\"a,b\"; \",\")",
};

std::vector<std::byte> Compiled(std::string_view source) {
  std::vector<std::byte> compiled;
  CompileError error;
  EXPECT_EQ(Compile(source, {}, &compiled, &error), status::kOk) << source;
  return compiled;
}

// Loads, computes and decompiles; true when it could be loaded.
bool Use(Bytes bytes) {
  Program program;
  if (Program::TryLoad(bytes, &program) != status::kOk) return false;
  Program again;
  EXPECT_EQ(Program::TryLoad(program.Stored(), &again), status::kOk);
  MemoryHost parent, host;
  host.AddText("Form", "Memo");
  host.AddNumber("a", 1);
  host.document.is_response = true;
  host.others = {&parent};
  host.files = {{"a.txt", 3}};
  host.has_views = true;
  Evaluator evaluator(std::move(program));
  evaluator.LimitSteps(1000);
  try {
    evaluator.Evaluate(host);
    evaluator.Columns(host, TableForm::kNamed);
  } catch (const Failure& failure) {
    EXPECT_GE(failure.status(), 0x300);
  }
  try {
    Decompile(again);
  } catch (const Failure& failure) {
    EXPECT_GE(failure.status(), 0x300);
  }
  std::vector<std::byte> merged;
  if (AddSummaryItem(again, "$X", &merged) == status::kOk) {
    Program with_item;
    EXPECT_EQ(Program::TryLoad(merged, &with_item), status::kOk);
  }
  return true;
}

std::vector<std::byte> MergedFormula() {
  std::vector<std::byte> column, merged;
  CompileError error;
  EXPECT_EQ(Compile("@If(a; \"x\"; @DocNumber)", {.item_name = "$1"}, &column, &error), status::kOk);
  EXPECT_EQ(Merge(Program::Load(column), Program::Load(Compiled(kSources[0])), &merged), status::kOk);
  return merged;
}

std::vector<std::vector<std::byte>> Formulas() {
  std::vector<std::vector<std::byte>> formulas;
  for (const char* source : kSources) formulas.push_back(Compiled(source));
  formulas.push_back(MergedFormula());
  return formulas;
}

TEST(FormulaHostileTest, Load_EveryTruncation_Refused) {
  for (const std::vector<std::byte>& formula : Formulas()) {
    for (size_t length = 0; length < formula.size(); ++length) {
      std::vector<std::byte> cut(formula.begin(), formula.begin() + static_cast<ptrdiff_t>(length));
      EXPECT_FALSE(Use(cut)) << "as it is, " << length;
      if (length <= kEmptyBytes) continue;
      StoreU16(cut.data(), static_cast<uint16_t>(length));
      EXPECT_FALSE(Use(cut)) << "with its length set, " << length;
    }
  }
}

TEST(FormulaHostileTest, Load_EveryByteReplaced_NoHarm) {
  size_t loaded = 0, refused = 0;
  for (const std::vector<std::byte>& formula : Formulas()) {
    for (size_t place = 0; place < formula.size(); ++place) {
      std::vector<std::byte> changed = formula;
      const unsigned original = std::to_integer<unsigned>(formula[place]);
      for (const unsigned value : {0u, 1u, 2u, 3u, 5u, 60u, 69u, 73u, 75u, 80u, 127u, 128u, 255u,
                                   original ^ 1, original + 1, original - 1, original ^ 0x80}) {
        changed[place] = static_cast<std::byte>(value);
        (Use(changed) ? loaded : refused) += 1;
      }
    }
  }
  EXPECT_GT(loaded, 1000u);
  EXPECT_GT(refused, 1000u);
}

TEST(FormulaHostileTest, Load_RandomBytesInRandomFormulas_NoHarm) {
  FormulaGenerator generator(SeedOfRun());
  TestRandom random(SeedOfRun() + 7);
  for (int round = 0; round < 3000; ++round) {
    const std::string source = generator.Formula();
    std::vector<std::byte> formula = Compiled(source);
    for (uint32_t changes = 1 + random.Below(4); changes > 0; --changes)
      formula[random.Below(static_cast<uint32_t>(formula.size()))] =
          static_cast<std::byte>(random.Below(256));
    Use(formula);
  }
}

// Pieces of two formulas put together anywhere, doubled, left out; the length at the front is set right.
TEST(FormulaHostileTest, Load_PiecesOfRandomFormulas_NoHarm) {
  FormulaGenerator generator(SeedOfRun() + 11);
  TestRandom random(SeedOfRun() + 12);
  size_t loaded = 0;
  for (int round = 0; round < 3000; ++round) {
    std::vector<std::byte> formula = Compiled(generator.Formula());
    const std::vector<std::byte> other = round % 3 == 0 ? MergedFormula() : Compiled(generator.Formula());
    if (round % 2 == 0) Merge(Program::Load(formula), Program::Load(other), &formula);
    const auto some = [&](const std::vector<std::byte>& bytes) {
      return static_cast<ptrdiff_t>(random.Below(static_cast<uint32_t>(bytes.size())));
    };
    const ptrdiff_t at = some(formula), first = some(other);
    const ptrdiff_t piece =
        std::min<ptrdiff_t>(random.Below(12), static_cast<ptrdiff_t>(other.size()) - first);
    switch (random.Below(3)) {
      case 0:
        formula.insert(formula.begin() + at, other.begin() + first, other.begin() + first + piece);
        break;
      case 1:
        formula.erase(
            formula.begin() + at,
            formula.begin() + std::min<ptrdiff_t>(at + piece, static_cast<ptrdiff_t>(formula.size())));
        break;
      default:
        std::copy_n(other.begin() + first,
                    std::min<ptrdiff_t>(piece, static_cast<ptrdiff_t>(formula.size()) - at),
                    formula.begin() + at);
    }
    if (formula.size() >= 2) StoreU16(formula.data(), static_cast<uint16_t>(formula.size()));
    loaded += Use(formula);
  }
  EXPECT_GT(loaded, 0u);
}

// A formula written by hand, of one part.
std::vector<std::byte> Handmade(std::initializer_list<unsigned> code, uint16_t names = 0) {
  ByteBuilder out;
  for (const size_t word : {size_t{0}, size_t{kMagic}, size_t{0}, size_t{0}, code.size(), code.size(),
                            size_t{0}, size_t{names}, size_t{names} * 2, size_t{kNoName}})
    out.U16(static_cast<uint16_t>(word));
  for (const unsigned byte : code) out.U8(static_cast<uint8_t>(byte));
  for (uint16_t name = 0; name < names; ++name) {
    out.U8(1);
    out.U8(static_cast<uint8_t>('a' + name));
  }
  out.U32(0);
  StoreU16(out.At(0), static_cast<uint16_t>(out.Size()));
  return out.Release();
}

constexpr unsigned kInteger = 2, kEnd = 13, kAdd = 23, kIfElse = 61, kSkip = 68, kBack = 69, kCall = 80;

TEST(FormulaHostileTest, Load_CodeThatNoCompilerWrites_Judged) {
  EXPECT_TRUE(Use(Handmade({kInteger, 1, 0, kEnd})));
  EXPECT_FALSE(Use(Handmade({kEnd})));                        // nothing to end
  EXPECT_FALSE(Use(Handmade({kInteger, 1, 0})));              // a value left behind
  EXPECT_FALSE(Use(Handmade({kInteger, 1, 0, kAdd, kEnd})));  // one operand
  EXPECT_FALSE(Use(Handmade({kInteger, 1})));                 // half an instruction
  EXPECT_FALSE(Use(Handmade({0})));                           // none
  EXPECT_FALSE(Use(Handmade({5, 0, 0, kEnd})));               // a name that is not there
  EXPECT_TRUE(Use(Handmade({5, 0, 0, kEnd}, 1)));
  EXPECT_FALSE(Use(Handmade({3, 0, 0, 1, 0, kEnd})));     // a constant that is not there
  EXPECT_FALSE(Use(Handmade({kCall, 0, 0, 0, kEnd})));    // no function
  EXPECT_FALSE(Use(Handmade({kCall, 102, 0, 1, kEnd})));  // a count that it does not take
  EXPECT_FALSE(Use(Handmade({kCall, 1, 0, 3, kEnd})));    // a function that is no call
  EXPECT_TRUE(Use(Handmade({kCall, 102, 0, 0, kEnd})));
  EXPECT_FALSE(Use(Handmade({kSkip, 0, 0})));                        // to the end
  EXPECT_FALSE(Use(Handmade({kSkip, 1, 0, kInteger, 1, 0, kEnd})));  // into an instruction
  EXPECT_FALSE(Use(Handmade({kInteger, 1, 0, kEnd, kBack, 9, 0})));  // in front of the code
  EXPECT_FALSE(Use(Handmade({kInteger, 1, 0, kEnd, kBack, 6, 0})));  // back into an instruction
  EXPECT_FALSE(Use(Handmade({kInteger, 1, 0, kBack, 6, 0})));        // a stack that grows with each round
  EXPECT_FALSE(Use(Handmade({kInteger, 1, 0, kIfElse, 1, 0, kEnd, kEnd})));  // two depths at one place
}

TEST(FormulaHostileTest, Evaluate_LoopForEver_EndsWithErrorValue) {
  Program program = Program::Load(Handmade({kInteger, 1, 0, kEnd, kBack, 7, 0}));
  MemoryHost host;
  Evaluator evaluator(std::move(program));
  EXPECT_EQ(Show(evaluator.Evaluate(host).value), "!11");
}

// The deepest stack that loads, and one more value.
TEST(FormulaHostileTest, Load_StackDepth_BoundedAtTheLimit) {
  const auto deep = [](int values) {
    ByteBuilder out;
    const size_t code_bytes = static_cast<size_t>(values) * 3 + static_cast<size_t>(values - 1) + 1;
    for (const size_t word : {size_t{0}, size_t{kMagic}, size_t{0}, size_t{0}, code_bytes, code_bytes,
                              size_t{0}, size_t{0}, size_t{0}, size_t{kNoName}})
      out.U16(static_cast<uint16_t>(word));
    for (int value = 0; value < values; ++value) {
      out.U8(kInteger);
      out.U16(1);
    }
    for (int value = 1; value < values; ++value) out.U8(kAdd);
    out.U8(kEnd);
    out.U32(0);
    StoreU16(out.At(0), static_cast<uint16_t>(out.Size()));
    return out.Release();
  };
  Program program;
  EXPECT_EQ(Program::TryLoad(deep(kStackValuesMax - 1), &program), status::kOk);
  EXPECT_TRUE(Use(deep(kStackValuesMax - 1)));
  EXPECT_EQ(Program::TryLoad(deep(kStackValuesMax), &program), status::kFormulaTooDeep);
  EXPECT_EQ(Program::TryLoad(deep(kStackValuesMax + 1), &program), status::kFormulaTooDeep);
}

// Items whose bytes lie about themselves.
TEST(FormulaHostileTest, ReadItem_DamagedValues_ErrorValues) {
  Arena arena;
  const auto read = [&](uint16_t type, std::initializer_list<unsigned> bytes) {
    static std::vector<std::byte> value;
    value.clear();
    for (const unsigned byte : bytes) value.push_back(static_cast<std::byte>(byte));
    return ReadItem({type, value}, arena);
  };
  EXPECT_TRUE(read(kWordNumber, {1, 2, 3, 4, 5, 6, 7}).IsError());
  EXPECT_TRUE(read(kWordNumber, {1, 2, 3, 4, 5, 6, 7, 8}).IsNumber());
  EXPECT_TRUE(read(kWordTime, {1, 2, 3}).IsError());
  EXPECT_TRUE(read(kWordTextList, {1}).IsError());
  EXPECT_TRUE(read(kWordTextList, {1, 0}).IsError());
  EXPECT_TRUE(read(kWordTextList, {1, 0, 1, 0}).IsError());
  EXPECT_TRUE(read(kWordTextList, {1, 0, 1, 0, 'x'}).IsText());
  EXPECT_TRUE(read(kWordTextList, {255, 255, 1, 0, 'x'}).IsError());
  EXPECT_TRUE(read(kWordTextList, {0, 0}).IsEmptyText());
  EXPECT_TRUE(read(kWordNumberList, {0, 0, 0}).IsError());
  EXPECT_TRUE(read(kWordNumberList, {0, 0, 0, 0}).IsEmptyText());
  EXPECT_TRUE(read(kWordNumberList, {1, 0, 0, 0, 1}).IsError());
  EXPECT_TRUE(read(kWordNumberList, {255, 255, 255, 255, 1}).IsError());
  EXPECT_TRUE(read(kWordTimeList, {0, 0, 1, 0, 1, 2, 3, 4, 5, 6, 7, 8}).IsError());
  EXPECT_TRUE(read(0x1234, {1}).IsError());
}

}  // namespace
}  // namespace brynd::formula
