// The grammar. Parsing writes the code of what it reads, in order; nothing is kept in between.
//
// (1) The first word that fits nowhere ends the parsing, and its place is the place of the error.
// (2) Recursion is bounded by kNestingMax.
// (3) Code has the order of the text, parentheses and remarks included: a walk over it writes the text again.
#pragma once

#include <vector>

#include "formula/compiler.h"
#include "formula/function_table.h"
#include "formula/lexer.h"

namespace brynd::formula {

class Parser {
 public:
  Parser(std::string_view text, CodeWriter* writer, bool for_column)
      : text_(text), lexer_(text), writer_(*writer), for_column_(for_column) {}

  EngStatus Run();
  Place ErrorPlace() const { return error_place_; }

 private:
  // All of these return false once an error is noted.
  bool Advance();
  bool Refuse(EngStatus status, Place place);
  bool Refuse(EngStatus status) { return Refuse(status, token_.place); }
  bool Statement();
  bool Remark();
  bool IsKeyword(std::string_view word) const;
  bool KeywordAssignment(Op op);
  bool Assignment(Op op, uint16_t name);
  bool Value();
  bool Binary(int power);
  bool Prefix();
  bool PrefixOperator(Op op, int power);
  bool Primary();
  bool NameOrValue();
  size_t NextPosition() const;
  bool Parentheses();
  bool Call();
  bool Arguments(const FunctionRow& function, Place place, bool has_list);
  bool CountOrRefuse(const FunctionRow& function, size_t count, Place place);
  bool Separator(bool* more);

  bool IfArguments(size_t* count);
  bool IfErrorArguments(size_t* count);
  bool LoopBody(size_t* count, std::vector<CodeWriter::Jump>* errors, bool* more);
  bool WhileArguments(const FunctionRow& function, size_t* count);
  bool DoWhileArguments(const FunctionRow& function, size_t* count);
  bool ForArguments(const FunctionRow& function, size_t* count);
  bool TransformArguments(size_t* count);
  bool NameArgument(const FunctionRow& function, size_t* count);
  void EndLoop(const FunctionRow& function, size_t count, const CodeWriter::Jump& end,
               const std::vector<CodeWriter::Jump>& errors);
  bool SpecialArguments(const FunctionRow& function, size_t* count);

  std::string_view text_;
  Lexer lexer_;
  CodeWriter& writer_;
  const bool for_column_;
  Token token_;
  EngStatus status_ = 0;
  Place error_place_;
  int nesting_ = 0;
};

}  // namespace brynd::formula
