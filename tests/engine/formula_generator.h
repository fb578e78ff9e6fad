// Formulas made at random, for tests that hold for any formula.
#pragma once

#include <string>

#include "engine/test_random.h"
#include "formula/function_table.h"

namespace brynd::formula {

class FormulaGenerator {
 public:
  explicit FormulaGenerator(uint64_t seed) : random_(seed) {}

  std::string Formula() {
    std::string text;
    const uint32_t statements = 1 + random_.Below(4);
    for (uint32_t index = 0; index < statements; ++index)
      text += (index == 0 ? "" : Pick({";", "; ", ";\n"})) + Statement();
    return text;
  }

 private:
  std::string Pick(std::initializer_list<const char*> choices) {
    return *(choices.begin() + random_.Below(static_cast<uint32_t>(choices.size())));
  }

  std::string Statement() {
    switch (random_.Below(12)) {
      case 0:
        return "REM " + Text();
      case 1:
        return Pick({"SELECT ", "select ", "CHOIX ", "@@SELECT@@ "}) + Value(3);
      case 2:
        return "FIELD " + Name() + " := " + Value(3);
      case 3:
        return "DEFAULT " + Name() + ":=" + Value(3);
      case 4:
        return "ENVIRONMENT " + Name() + " := " + Value(3);
      case 5:
        return Name() + " := " + Value(3);
      default:
        return Value(4);
    }
  }

  std::string Name() {
    return Pick({"a", "B", "Subject", "subject", "$1", "_x.y", "caf\xe9", "Field", "Default", "rem1"});
  }

  std::string Text() {
    return Pick(
        {"\"\"", "\"abc\"", "\"a\\\"b\\\\c\"", "{brace \" \\ text}", "{}", "\"{}\"", "\"\xe9\"", "\"a b\""});
  }

  std::string Number() {
    return Pick({"0", "1", "32767", "32768", "1.5", "0.1", "1e10", "1E-7", "1e300", "123456789.123", ".5"});
  }

  std::string Value(int depth) {
    if (depth == 0) return Leaf();
    switch (random_.Below(10)) {
      case 0:
        return "(" + Value(depth - 1) + ")";
      case 1:
        return Pick({"-", "+", "!", "- ", "!!"}) + Operand(depth - 1);
      case 2:
      case 3:
      case 4:
        return Operand(depth - 1) + Sign() + Operand(depth - 1);
      case 5:
      case 6:
      case 7:
        return Call(depth - 1);
      case 8:
        return "(" + Name() + " := " + Value(depth - 1) + ")";
      default:
        return Leaf();
    }
  }

  std::string Operand(int depth) { return Value(depth); }

  std::string Sign() {
    return Pick({":",    " : ",  " * ",  "*",     "/",    " + ",  "+",     " - ",  "-",    "=",
                 "<>",   "!=",   "<",    ">",     "<=",   ">=",   "&",     "|",    " *+ ", " *- ",
                 " ** ", " */ ", " *= ", " *<> ", " *< ", " *> ", " *<= ", " *>= "});
  }

  std::string Leaf() {
    switch (random_.Below(6)) {
      case 0:
        return Text();
      case 1:
        return Number();
      case 2:
        return Pick({"[2024-02-29]", "[10:15:30]", "[2024-02-29 10:15]", "[01/02/99]"});
      case 3:
        return Pick({"[CN]", "[trimwhite]", "@AllDescendants", "@Responses", "@All", "@Now", "@@102@@",
                     "@DocNumber", "@TOUT", "@Nothing()", "@pi"});
      default:
        return Name();
    }
  }

  std::string Arguments(uint32_t count, int depth) {
    std::string text = "(";
    for (uint32_t index = 0; index < count; ++index) text += (index == 0 ? "" : "; ") + Value(depth);
    return text + ")";
  }

  std::string Call(int depth) {
    const FunctionRow& row = Functions()[random_.Below(static_cast<uint32_t>(Functions().size()))];
    const std::string name =
        random_.Below(4) == 0 ? "@@" + std::to_string(row.number) + "@@" : "@" + std::string(row.name);
    if (row.form == Form::kAvailable)
      return name + "(" + (random_.Below(2) == 0 ? Name() : Pick({"\"odd name\"", "\"a\"", "\"Select\""})) +
             ")";
    if (row.form == Form::kTransform)
      return name + "(" + Value(depth) + "; \"" + Pick({"x", "a", "odd name"}) + "\"; " + Value(depth) + ")";
    uint32_t count = row.least + random_.Below(std::min<uint32_t>(row.most - row.least, 3) + 1u);
    if ((row.traits & kOddCount) != 0) count |= 1;
    return count == 0 ? name : name + Arguments(count, depth);
  }

  TestRandom random_;
};

}  // namespace brynd::formula
