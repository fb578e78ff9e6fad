// The functions of the formula language, row by row: a formula, and what it gives for one fixed document. The
// rows stand in the headers; here they are computed, and it is checked that each function has rows of each
// kind.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "engine/formula_document.h"
#include "engine/formula_rows_count.h"
#include "engine/formula_rows_document.h"
#include "engine/formula_rows_flow.h"
#include "engine/formula_rows_text.h"
#include "engine/formula_rows_value.h"
#include "formula/function_table.h"

namespace brynd::formula {
namespace {

constexpr std::span<const FormulaRow> kTables[] = {
    kFlowRows,    kListsRows, kStatementsRows, kTextPartsRows,      kTextCharactersRows, kTextConversionsRows,
    kNumbersRows, kTimesRows, kDocumentRows,   kOtherDocumentsRows, kAccessRows,         kCountRows,
};

class FunctionTest : public testing::Test, protected FormulaDocument {
 protected:
  void Expect(std::span<const FormulaRow> rows) {
    for (const FormulaRow& row : rows) {
      MemoryHost host = Fresh();
      EXPECT_EQ(Compute(row.source, host), row.expected) << row.source;
    }
  }
};

TEST_F(FunctionTest, EveryRow_Computed_AsExpected) {
  size_t count = 0;
  for (const std::span<const FormulaRow> table : kTables) {
    Expect(table);
    count += table.size();
  }
  EXPECT_GE(count, 600u);
}

// What a row shows of a function.
enum class RowKind : uint8_t { kValue, kList, kError, kCount };

std::string WithoutTexts(std::string_view formula) {
  std::string bare;
  bool inside = false;
  for (size_t at = 0; at < formula.size(); ++at) {
    if (inside && formula[at] == '\\') {
      ++at;
    } else if (formula[at] == '"') {
      inside = !inside;
    } else if (!inside) {
      bare += formula[at];
    }
  }
  return bare;
}

bool HasList(std::string_view text) {
  const std::string bare = WithoutTexts(text);
  for (size_t sign = bare.find(':'); sign != bare.npos; sign = bare.find(':', sign + 1)) {
    const bool in_time = bare.rfind('[', sign) != bare.npos && bare.find(']', sign) != bare.npos &&
                         bare.rfind(']', sign) + 1 <= bare.rfind('[', sign);
    if (bare.substr(sign, 2) != ":=" && !in_time) return true;
  }
  for (const std::string_view list : {"Tags", "Numbers", "Ranged", "Votes"})
    if (bare.find(list) != bare.npos) return true;
  return false;
}

RowKind KindOf(const FormulaRow& row) {
  const std::string_view expected = row.expected;
  if (expected.starts_with('!')) return RowKind::kError;
  if (expected.starts_with("kFormulaArguments")) return RowKind::kCount;
  return HasList(row.source) || HasList(expected) ? RowKind::kList : RowKind::kValue;
}

// The function that a row is about: the first that it names.
const FunctionRow* FunctionOf(const FormulaRow& row) {
  const std::string bare = WithoutTexts(row.source);
  const size_t sign = bare.find('@');
  if (sign == bare.npos) return nullptr;
  size_t end = sign + 1;
  while (end < bare.size() && std::isalnum(static_cast<unsigned char>(bare[end])) != 0) ++end;
  return FindFunction(std::string_view(bare).substr(sign + 1, end - sign - 1));
}

TEST_F(FunctionTest, EveryFunction_InTheTable_HasItsCode) {
  for (const FunctionRow& function : Functions())
    EXPECT_EQ(function.form == Form::kCall, function.call != nullptr) << function.name;
}

// A function without arguments has no lists and no errors to show; one that takes names, or errors as they
// are, has no error to pass on.
TEST_F(FunctionTest, EveryFunction_InTheTable_HasRowsOfEachKind) {
  std::map<uint16_t, std::set<RowKind>> kinds;
  for (const std::span<const FormulaRow> table : kTables)
    for (const FormulaRow& row : table)
      if (const FunctionRow* function = FunctionOf(row)) kinds[function->number].insert(KindOf(row));
  for (const FunctionRow& function : Functions()) {
    const std::set<RowKind>& has = kinds[function.number];
    const bool has_arguments = function.most > 0 && function.form != Form::kAvailable;
    const bool has_errors = has_arguments && (function.traits & kTakesErrors) == 0;
    const bool is_refused = function.number == FindFunction("Failure")->number;
    const bool has_result =
        has.contains(RowKind::kValue) || (!has_arguments && !has.empty() && *has.begin() != RowKind::kCount);
    EXPECT_TRUE(has_result) << function.name << ": value";
    EXPECT_TRUE(!has_arguments || has.contains(RowKind::kList)) << function.name << ": list";
    EXPECT_TRUE(!has_errors || is_refused || has.contains(RowKind::kError)) << function.name << ": error";
    EXPECT_TRUE((function.least == 0 && function.most == 255) || has.contains(RowKind::kCount))
        << function.name << ": count";
  }
}

// A document as a search sees it takes no writes; the formula still sees its own.
TEST_F(FunctionTest, FieldStatement_HostWithoutWrites_FormulaSeesItsOwnValue) {
  host_.is_read_only = true;
  EXPECT_EQ(Compute("FIELD Size := 99; Size", host_), "99");
  EXPECT_EQ(Compute("FIELD Subject := @DeleteField; @IsAvailable(Subject)", host_), "0");
  EXPECT_EQ(host_.items.size(), 12u);
}

TEST_F(FunctionTest, Now_CalledTwice_ClockReadOnce) {
  clock_.reads = 0;
  EXPECT_EQ(Compute("@Now = @Now", host_), "1");
  EXPECT_EQ(clock_.reads, 1);
  EXPECT_EQ(Compute("1 + 1", host_), "2");
  EXPECT_EQ(clock_.reads, 1);
}

// In a column, what only the view knows is a marker that is replaced when the row is read.
TEST_F(FunctionTest, DocNumber_InColumn_Marker) {
  const CompileOptions column{.item_name = "$1"};
  EXPECT_EQ(Compute("@DocNumber", host_, column),
            "\"\x7f"
            "146\xff\"");
  EXPECT_EQ(Compute("@DocNumber(\". ;\")", host_, column),
            "\"\x7f"
            "146;.%20%3B\xff\"");
  EXPECT_EQ(Compute("\"(\" + @DocChildren(\"0\"; \"1\") + \")\"", host_, column),
            "\"(\x7f"
            "122;0;1\xff)\"");
}

// Every function that is built is called at its least count by some row above or here, and a wrong count is
// refused.
TEST_F(FunctionTest, EveryFunction_WrongCount_RefusedWithPlace) {
  for (const FunctionRow& row : Functions()) {
    if (row.form == Form::kTransform) continue;
    const std::string name = "@" + std::string(row.name);
    std::string few = "1 + " + name;
    for (int count = 0; count + 1 < row.least; ++count) few += count == 0 ? "(x" : "; x";
    if (row.least > 1) few += ")";
    const std::string place = "@4+" + std::to_string(name.size());
    if (row.least > 0) {
      EXPECT_EQ(Compute(few, host_), "kFormulaArguments" + place) << few;
    }
    if (row.most == 255) continue;
    std::string many = "1 + " + name + "(x";
    for (int count = 0; count < row.most; ++count) many += "; x";
    EXPECT_EQ(Compute(many + ")", host_), "kFormulaArguments" + place) << many;
  }
}

// Any argument of any type gives a value or an error value, never a failure.
TEST_F(FunctionTest, EveryFunction_ArgumentsOfEveryType_SomeValue) {
  static constexpr const char* kValues[] = {"1",       "-2.5",    "\"a\"",    "\"\"",    "[2024-02-29]",
                                            "[10:00]", "When",    "Tags",     "Numbers", "Ranged",
                                            "1/0",     "Missing", "@Nothing", "1e300",   "Body"};
  size_t calls = 0;
  for (const FunctionRow& row : Functions()) {
    if (row.form != Form::kCall) continue;
    const int most = std::min<int>(row.most, row.least + 2);
    for (int count = row.least; count <= most; ++count) {
      for (size_t shift = 0; shift < std::size(kValues) * (count > 1 ? std::size(kValues) : 1); ++shift) {
        std::string source = "@" + std::string(row.name);
        for (int index = 0; index < count; ++index) {
          const size_t place = index == 0 ? shift : shift / std::size(kValues) + static_cast<size_t>(index);
          source += (index == 0 ? "(" : "; ") + std::string(kValues[place % std::size(kValues)]);
        }
        MemoryHost host = host_;
        const std::string result = Compute(source + (count > 0 ? ")" : ""), host);
        EXPECT_FALSE(result.starts_with("kFormula")) << source << " gives " << result;
        ++calls;
      }
    }
  }
  EXPECT_GT(calls, 10000u);
}

}  // namespace
}  // namespace brynd::formula
