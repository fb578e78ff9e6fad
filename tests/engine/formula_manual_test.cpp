// The manual of the formula language against the engine: its examples give what it says they give, and it has
// all functions and no others.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

#include "engine/formula_document.h"
#include "formula/function_table.h"

namespace brynd::formula {
namespace {

constexpr std::string_view kArrow = " \xe2\x86\x92 ";

std::vector<std::string> Lines() {
  std::ifstream file(FORMULA_MANUAL);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

// What stands between the backticks: the bars of tables have lost their backslash.
std::string CodeOf(std::string_view span) {
  const size_t fence = span.starts_with("`` ") ? 3 : 1;
  span = span.substr(fence, span.size() - 2 * fence);
  std::string code;
  for (size_t at = 0; at < span.size(); ++at)
    if (span.substr(at, 2) != "\\|") code += span[at];
  return code;
}

struct Example {
  std::string source, result;
};

// The pairs of code with an arrow between them.
std::vector<Example> ExamplesOf(std::string_view line) {
  std::vector<Example> examples;
  for (size_t arrow = line.find(kArrow); arrow != line.npos; arrow = line.find(kArrow, arrow + 1)) {
    const std::string_view left = line.substr(0, arrow), right = line.substr(arrow + kArrow.size());
    const std::string_view open = left.ends_with(" ``") ? "`` " : "`",
                           close = left.ends_with(" ``") ? " ``" : "`";
    const size_t begin = left.rfind(open, left.size() - close.size() - 1);
    const size_t end = right.find('`', 1);
    if (begin == left.npos || !right.starts_with('`') || end == right.npos) continue;
    examples.push_back({CodeOf(left.substr(begin)), CodeOf(right.substr(0, end + 1))});
  }
  return examples;
}

// The function that a row of a table is about; empty for other lines.
std::string FunctionOf(std::string_view line) {
  if (!line.starts_with("| `@")) return {};
  size_t end = 4;
  while (end < line.size() && std::isalnum(static_cast<unsigned char>(line[end])) != 0) ++end;
  return std::string(line.substr(4, end - 4));
}

// Checks the arguments of a signature that names each of them, `?` behind those that may be left out.
void ExpectArguments(const FunctionRow& function, std::string_view signature) {
  if (signature.find("...") != signature.npos || signature.find(") or (") != signature.npos) return;
  const std::string_view arguments = signature.substr(std::min(signature.find('('), signature.size()));
  const auto count = [&](char sign) { return std::count(arguments.begin(), arguments.end(), sign); };
  const auto total = arguments.empty() ? 0 : 1 + count(';');
  EXPECT_EQ(total, function.most) << signature;
  EXPECT_EQ(total - count('?'), function.least) << signature;
}

class ManualTest : public testing::Test, protected FormulaDocument {};

TEST_F(ManualTest, EveryExample_Computed_GivesWhatThePageSays) {
  size_t count = 0;
  for (const std::string& line : Lines()) {
    for (const Example& example : ExamplesOf(line)) {
      MemoryHost host = Fresh();
      EXPECT_EQ(ComputeReadable(EngineFromUtf8(example.source), host), example.result) << example.source;
      ++count;
    }
    size_t arrows = 0;
    for (size_t arrow = line.find(kArrow); arrow != line.npos; arrow = line.find(kArrow, arrow + 1)) ++arrows;
    EXPECT_EQ(arrows, ExamplesOf(line).size()) << "an arrow without its example: " << line;
  }
  EXPECT_GT(count, 250u);
}

TEST_F(ManualTest, EveryFunction_OfTheTable_HasItsRowAndAnExampleThatCallsIt) {
  std::set<std::string> described;
  for (const std::string& line : Lines()) {
    const std::string name = FunctionOf(line);
    if (name.empty()) continue;
    EXPECT_TRUE(described.insert(name).second) << name << " stands twice";
    const FunctionRow* function = FindFunction(std::string_view(name));
    ASSERT_NE(function, nullptr) << name << " is no function";
    EXPECT_EQ(function->name, name) << "as it is written";
    bool is_called = false;
    for (const Example& example : ExamplesOf(line))
      is_called |= example.source.find("@" + name) != std::string::npos;
    EXPECT_TRUE(is_called) << name;
    const bool has_parenthesis = line.substr(4 + name.size(), 1) == "(";
    EXPECT_EQ(has_parenthesis, function->most > 0) << name;
    ExpectArguments(*function, std::string_view(line).substr(3, line.find('`', 3) - 3));
  }
  for (const FunctionRow& function : Functions())
    EXPECT_TRUE(described.contains(std::string(function.name))) << function.name;
}

TEST_F(ManualTest, EveryError_HasItsRow) {
  std::set<std::string> rows;
  for (const std::string& line : Lines())
    if (line.starts_with("| ") && line.size() > 3 && std::isdigit(static_cast<unsigned char>(line[2])) != 0)
      rows.insert(line.substr(2, line.find(' ', 2) - 2));
  EXPECT_EQ(rows.size(), static_cast<size_t>(ErrorCode::kNoDocument));
  for (uint16_t code = 1; code <= static_cast<uint16_t>(ErrorCode::kNoDocument); ++code)
    EXPECT_TRUE(rows.contains(std::to_string(code))) << code;
}

}  // namespace
}  // namespace brynd::formula
