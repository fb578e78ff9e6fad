#include "formula/parser.h"

#include "base/text.h"

namespace brynd::formula {

namespace {

// How tightly operators bind.
constexpr int kPowerLogic = 1, kPowerNot = 2, kPowerCompare = 3, kPowerSum = 4, kPowerProduct = 5,
              kPowerSign = 6, kPowerList = 7;

int PowerOf(Op op) {
  switch (op) {
    case Op::kList:
      return kPowerList;
    case Op::kMultiply:
    case Op::kDivide:
    case Op::kMultiplyAll:
    case Op::kDivideAll:
      return kPowerProduct;
    case Op::kAdd:
    case Op::kSubtract:
    case Op::kAddAll:
    case Op::kSubtractAll:
      return kPowerSum;
    case Op::kAnd:
    case Op::kOr:
      return kPowerLogic;
    default:
      return kPowerCompare;
  }
}

// Counts how deep the parser is inside itself.
class Nesting {
 public:
  explicit Nesting(int* depth) : depth_(*depth) { ++depth_; }
  ~Nesting() { --depth_; }
  bool TooDeep() const { return depth_ > kNestingMax; }

 private:
  int& depth_;
};

}  // namespace

EngStatus Parser::Run() {
  if (!Advance()) return status_;
  bool any = false;
  while (token_.kind != TokenKind::kEnd) {
    if (token_.kind == TokenKind::kSemicolon) {
      if (!Advance()) return status_;
      continue;
    }
    any = true;
    if (!Statement()) return status_;
    if (!writer_.Fits())
      Refuse(status::kFormulaTooLong, {0, static_cast<uint32_t>(text_.size())});
    else if (token_.kind == TokenKind::kClose)
      Refuse(status::kFormulaParenthesis);
    else if (token_.kind != TokenKind::kSemicolon && token_.kind != TokenKind::kEnd)
      Refuse(status::kFormulaNoOperator);
    if (status_ != 0) return status_;
  }
  if (!any) Refuse(status::kFormulaNoOperand);
  return status_;
}

bool Parser::Advance() {
  if (EngStatus status = lexer_.Next(&token_)) return Refuse(status);
  return true;
}

bool Parser::Refuse(EngStatus status, Place place) {
  if (status_ == 0) {
    status_ = status;
    error_place_ = place;
  }
  return false;
}

bool Parser::IsKeyword(std::string_view word) const {
  return token_.kind == TokenKind::kName && EqualFold(token_.name, word);
}

bool Parser::Statement() {
  if (IsKeyword("REM")) return Remark();
  if (!Value()) return false;
  writer_.Emit(Op::kEnd);
  return true;
}

bool Parser::Remark() {
  const Token keyword = token_;
  if (!Advance()) return false;
  if (token_.kind != TokenKind::kText) return Refuse(status::kFormulaText, keyword.place);
  writer_.EmitText(Op::kRemark, token_.text);
  return writer_.Fits() ? Advance() : Refuse(status::kFormulaTooLong);
}

// A whole value: of a statement, of an argument, between parentheses.
bool Parser::Value() {
  Nesting nesting(&nesting_);
  if (nesting.TooDeep()) return Refuse(status::kFormulaTooDeep);
  if (token_.kind == TokenKind::kSelect) {
    if (!Advance() || !Value()) return false;
    writer_.Emit(Op::kSelect);
    writer_.AddFlags(kFlagSelection);
    return true;
  }
  if (IsKeyword("FIELD")) return KeywordAssignment(Op::kField);
  if (IsKeyword("DEFAULT")) return KeywordAssignment(Op::kDefault);
  if (IsKeyword("ENVIRONMENT")) return KeywordAssignment(Op::kEnvironment);
  return NameOrValue();
}

// Where the word behind the present one starts.
size_t Parser::NextPosition() const {
  size_t next = token_.place.offset + token_.place.length;
  while (next < text_.size() && (IsBlank(text_[next]) || text_[next] == 0)) ++next;
  return next;
}

// Only a value as a whole is an assignment: no operand of an operator is one without parentheses.
bool Parser::NameOrValue() {
  if (!writer_.Fits()) return Refuse(status::kFormulaTooLong);
  if (token_.kind != TokenKind::kName || text_.substr(NextPosition(), 2) != ":=") return Binary(0);
  const uint16_t name = writer_.Name(token_.name);
  return Advance() && Assignment(Op::kAssign, name);
}

// FIELD, DEFAULT and ENVIRONMENT are items of that name too, where no other name follows.
bool Parser::KeywordAssignment(Op op) {
  if (NameBytesAt(text_, NextPosition()) == 0) return NameOrValue();
  if (!Advance()) return false;
  if (token_.kind != TokenKind::kName) return Refuse(status::kFormulaAssignment);
  const uint16_t name = writer_.Name(token_.name);
  if (!Advance()) return false;
  if (token_.kind != TokenKind::kAssign) return Refuse(status::kFormulaAssignment);
  if (op != Op::kDefault) writer_.AddFlags(kFlagWrites);
  return Assignment(op, name);
}

// From the := on.
bool Parser::Assignment(Op op, uint16_t name) {
  if (!Advance()) return false;
  CodeWriter::Jump present;
  if (op == Op::kDefault) {
    writer_.EmitName(Op::kDefaultTest, name);
    present = writer_.EmitJump();
  }
  if (!Value()) return false;
  writer_.EmitName(op, name);
  if (op == Op::kDefault) writer_.Land(present);
  return true;
}

bool Parser::Binary(int power) {
  if (!Prefix()) return false;
  while (token_.kind == TokenKind::kOperator && PowerOf(token_.op) >= power) {
    const Op op = token_.op;
    if (!Advance() || !Binary(PowerOf(op) + 1)) return false;
    writer_.Emit(op);
    if (!writer_.Fits()) return Refuse(status::kFormulaTooLong);
  }
  return true;
}

bool Parser::Prefix() {
  Nesting nesting(&nesting_);
  if (nesting.TooDeep()) return Refuse(status::kFormulaTooDeep);
  if (token_.kind == TokenKind::kNot) return PrefixOperator(Op::kNot, kPowerNot);
  if (token_.kind == TokenKind::kOperator && token_.op == Op::kSubtract)
    return PrefixOperator(Op::kNegate, kPowerSign);
  if (token_.kind == TokenKind::kOperator && token_.op == Op::kAdd)
    return PrefixOperator(Op::kPlus, kPowerSign);
  return Primary();
}

bool Parser::PrefixOperator(Op op, int power) {
  if (!Advance() || !Binary(power)) return false;
  writer_.Emit(op);
  return true;
}

bool Parser::Primary() {
  switch (token_.kind) {
    case TokenKind::kNumber:
      writer_.EmitNumber(token_.number);
      return Advance();
    case TokenKind::kTime:
      writer_.EmitEight(Op::kTime, &token_.time);
      return Advance();
    case TokenKind::kText:
      writer_.EmitText(Op::kText, token_.text);
      return writer_.Fits() ? Advance() : Refuse(status::kFormulaTooLong);
    case TokenKind::kName:
      writer_.EmitName(Op::kName, writer_.Name(token_.name));
      return Advance() && (token_.kind != TokenKind::kAssign || Refuse(status::kFormulaAssignment));
    case TokenKind::kFunction:
      return Call();
    case TokenKind::kOpen:
      return Parentheses();
    case TokenKind::kClose:
      return Refuse(nesting_ > 2 ? status::kFormulaNoOperand : status::kFormulaParenthesis);
    case TokenKind::kAssign:
      return Refuse(status::kFormulaAssignment);
    default:
      return Refuse(status::kFormulaNoOperand);
  }
}

bool Parser::Parentheses() {
  const Place open = token_.place;
  if (!Advance() || !Value()) return false;
  if (token_.kind == TokenKind::kEnd) return Refuse(status::kFormulaParenthesis, open);
  if (token_.kind != TokenKind::kClose) return Refuse(status::kFormulaNoOperator);
  writer_.Emit(Op::kParenthesis);
  return Advance();
}

bool Parser::Call() {
  const Place place = token_.place;
  const FunctionRow* function =
      token_.function >= 0 ? FindFunction(static_cast<uint16_t>(token_.function)) : FindFunction(token_.name);
  if (function == nullptr) return Refuse(status::kFormulaNoFunction);
  if (for_column_ && (function->traits & kNotInColumns) != 0) return Refuse(status::kFormulaContext);
  if (!Advance()) return false;
  if ((function->traits & kWrites) != 0) writer_.AddFlags(kFlagWrites);
  if ((function->traits & kClock) != 0) writer_.AddFlags(kFlagTime);
  if ((function->traits & kHierarchy) != 0) writer_.AddFlags(kFlagHierarchy);
  if ((function->traits & kNamedSets) != 0) writer_.AddFlags(kFlagNamedSets);
  const bool has_list = token_.kind == TokenKind::kOpen;
  if (has_list && !Advance()) return false;
  const bool has_arguments = has_list && token_.kind != TokenKind::kClose;
  if (has_list && !has_arguments && !Advance()) return false;
  return Arguments(*function, place, has_arguments);
}

bool Parser::CountOrRefuse(const FunctionRow& function, size_t count, Place place) {
  return function.Takes(count) || Refuse(status::kFormulaArguments, place);
}

// Behind the opening parenthesis when there are arguments, else behind the name.
bool Parser::Arguments(const FunctionRow& function, Place place, bool has_arguments) {
  if (!has_arguments) {
    if (!CountOrRefuse(function, 0, place)) return false;
    writer_.EmitFunction(Op::kCall, function.number, 0);
    return true;
  }
  size_t count = 0;
  if (function.most == 0) return Refuse(status::kFormulaArguments, place);
  if (!SpecialArguments(function, &count)) {
    // A form that meets its end too early, or one argument too many, has a wrong count.
    const bool is_count = token_.kind == TokenKind::kClose || token_.kind == TokenKind::kSemicolon ||
                          count + 2 >= kArgumentsMax;
    if (status_ == 0 && is_count) Refuse(status::kFormulaArguments, place);
    if (status_ == 0) Refuse(status::kFormulaNoOperator);
    return false;
  }
  if (token_.kind == TokenKind::kEnd) return Refuse(status::kFormulaParenthesis, place);
  if (token_.kind == TokenKind::kSemicolon) return Refuse(status::kFormulaArguments, place);
  if (token_.kind != TokenKind::kClose) return Refuse(status::kFormulaNoOperator);
  return CountOrRefuse(function, count, place) && Advance();
}

// Behind a value: takes a semicolon, after which more follows.
bool Parser::Separator(bool* more) {
  *more = token_.kind == TokenKind::kSemicolon;
  return !*more || Advance();
}

bool Parser::SpecialArguments(const FunctionRow& function, size_t* count) {
  switch (function.form) {
    case Form::kIf:
      return IfArguments(count);
    case Form::kIfError:
      return IfErrorArguments(count);
    case Form::kWhile:
      return WhileArguments(function, count);
    case Form::kDoWhile:
      return DoWhileArguments(function, count);
    case Form::kFor:
      return ForArguments(function, count);
    case Form::kTransform:
      return TransformArguments(count);
    case Form::kAvailable:
      return NameArgument(function, count);
    case Form::kCall:
    case Form::kReturn:
      break;
  }
  for (bool more = true; more; ++*count) {
    if (*count == kArgumentsMax) return false;
    if (!Value() || !Separator(&more)) return false;
  }
  if (function.form == Form::kReturn)
    writer_.Emit(Op::kReturn);
  else
    writer_.EmitFunction(Op::kCall, function.number, *count);
  return true;
}

bool Parser::IfArguments(size_t* count) {
  std::vector<CodeWriter::Jump> ends;
  for (;;) {
    bool more = false;
    if (*count + 2 > kArgumentsMax || !Value() || !Separator(&more)) return false;
    ++*count;
    if (!more) break;
    CodeWriter::Jump otherwise, error;
    writer_.Emit(Op::kIfTest);
    writer_.EmitJumps(&otherwise, &error);
    if (!Value() || !Separator(&more)) return false;
    ++*count;
    writer_.Emit(Op::kIfElse);
    ends.push_back(writer_.EmitJump());
    ends.push_back(error);
    writer_.Land(otherwise);
    if (!more) return false;
  }
  writer_.EmitCount(Op::kIfEnd, *count);
  for (const CodeWriter::Jump& end : ends) writer_.Land(end);
  return true;
}

bool Parser::IfErrorArguments(size_t* count) {
  bool more = false;
  if (!Value() || !Separator(&more)) return false;
  writer_.Emit(Op::kIfErrorTest);
  const CodeWriter::Jump fine = writer_.EmitJump();
  *count = more ? 2 : 1;
  if (more && !Value()) return false;
  if (!more) writer_.EmitText(Op::kText, "");
  writer_.EmitCount(Op::kIfErrorEnd, *count);
  writer_.Land(fine);
  return true;
}

// Values whose results are dropped, up to the closing parenthesis.
bool Parser::LoopBody(size_t* count, std::vector<CodeWriter::Jump>* errors, bool* more) {
  while (*more) {
    if (*count == kArgumentsMax || !Value() || !Separator(more)) return false;
    ++*count;
    writer_.Emit(Op::kLoopDrop);
    errors->push_back(writer_.EmitJump());
  }
  return true;
}

void Parser::EndLoop(const FunctionRow& function, size_t count, const CodeWriter::Jump& end,
                     const std::vector<CodeWriter::Jump>& errors) {
  writer_.Land(end);
  writer_.EmitFunction(Op::kLoopEnd, function.number, count);
  for (const CodeWriter::Jump& error : errors) writer_.Land(error);
}

bool Parser::WhileArguments(const FunctionRow& function, size_t* count) {
  std::vector<CodeWriter::Jump> errors(1);
  CodeWriter::Jump end;
  bool more = false;
  const size_t start = writer_.Here();
  if (!Value() || !Separator(&more)) return false;
  *count = 1;
  writer_.Emit(Op::kLoopTest);
  writer_.EmitJumps(&end, &errors[0]);
  if (!LoopBody(count, &errors, &more)) return false;
  writer_.Emit(Op::kLoopBack);
  writer_.EmitBack(start);
  EndLoop(function, *count, end, errors);
  return true;
}

bool Parser::DoWhileArguments(const FunctionRow& function, size_t* count) {
  std::vector<CodeWriter::Jump> errors(1);
  CodeWriter::Jump end;
  const size_t start = writer_.Here();
  for (bool more = true; more;) {
    if (*count == kArgumentsMax || !Value() || !Separator(&more)) return false;
    ++*count;
    if (!more) break;
    writer_.Emit(Op::kLoopDrop);
    errors.push_back(writer_.EmitJump());
  }
  writer_.Emit(Op::kLoopTest);
  writer_.EmitJumps(&end, &errors[0]);
  writer_.Emit(Op::kLoopBack);
  writer_.EmitBack(start);
  EndLoop(function, *count, end, errors);
  return true;
}

// Start; condition; step; body: written in the order of the text, run in the order start, condition, body,
// step.
bool Parser::ForArguments(const FunctionRow& function, size_t* count) {
  std::vector<CodeWriter::Jump> errors(1);
  CodeWriter::Jump end;
  bool more = false;
  if (!Value() || !Separator(&more) || !more) return false;
  writer_.Emit(Op::kLoopDrop);
  errors.push_back(writer_.EmitJump());
  const size_t condition = writer_.Here();
  if (!Value() || !Separator(&more) || !more) return false;
  writer_.Emit(Op::kLoopTest);
  writer_.EmitJumps(&end, &errors[0]);
  writer_.Emit(Op::kLoopSkip);
  const CodeWriter::Jump body = writer_.EmitJump();
  const size_t step = writer_.Here();
  if (!Value() || !Separator(&more) || !more) return false;
  writer_.Emit(Op::kLoopDrop);
  errors.push_back(writer_.EmitJump());
  writer_.Emit(Op::kLoopBack);
  writer_.EmitBack(condition);
  writer_.Land(body);
  *count = 3;
  if (!LoopBody(count, &errors, &more)) return false;
  writer_.Emit(Op::kLoopBack);
  writer_.EmitBack(step);
  EndLoop(function, *count, end, errors);
  return true;
}

bool Parser::TransformArguments(size_t* count) {
  bool more = false;
  if (!Value() || !Separator(&more) || !more) return false;
  if (token_.kind != TokenKind::kText || token_.text.empty() || token_.text.size() > kNameBytesMax)
    return Refuse(status::kFormulaName);
  const uint16_t name = writer_.Name(token_.text);
  if (!Advance() || !Separator(&more) || !more) return false;
  writer_.EmitName(Op::kTransformBegin, name);
  const CodeWriter::Jump bad_list = writer_.EmitJump();
  const size_t next = writer_.Here();
  writer_.Emit(Op::kTransformNext);
  const CodeWriter::Jump end = writer_.EmitJump();
  if (!Value()) return false;
  writer_.Emit(Op::kTransformKeep);
  CodeWriter::Jump bad_value = writer_.EmitJump();
  bad_value.from += 2;
  writer_.EmitBack(next);
  writer_.Land(end);
  writer_.EmitName(Op::kTransformEnd, name);
  writer_.Land(bad_list);
  writer_.Land(bad_value);
  *count = 3;
  return true;
}

bool Parser::NameArgument(const FunctionRow& function, size_t* count) {
  const bool text = token_.kind == TokenKind::kText;
  if (!text && token_.kind != TokenKind::kName) return Refuse(status::kFormulaName);
  const std::string name = text ? token_.text : std::string(token_.name);
  if (name.empty() || name.size() > kNameBytesMax) return Refuse(status::kFormulaName);
  writer_.EmitName(function.name == "IsAvailable" ? Op::kIsAvailable : Op::kIsUnavailable,
                   writer_.Name(name));
  *count = 1;
  return Advance();
}

}  // namespace brynd::formula
