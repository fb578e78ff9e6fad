#include "formula/decompiler.h"

#include <charconv>
#include <vector>

#include "base/intl.h"
#include "base/text.h"
#include "formula/function_table.h"
#include "formula/lexer.h"
#include "formula/time_text.h"

namespace brynd::formula {

namespace {

constexpr size_t kTextMax =
    1u << 20;  // a formula of 64 KiB names functions by number: its text may be longer

std::string QuotedText(std::string_view text) {
  std::string quoted = "\"";
  for (const char letter : text) {
    if (letter == '"' || letter == '\\') quoted += '\\';
    quoted += letter;
  }
  return quoted + '"';
}

// The shortest digits that are read as the same number.
std::string NumberText(double number) {
  char digits[32];
  const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, number);
  return {digits, end.ptr};
}

std::string_view OperatorText(Op op) {
  switch (op) {
    case Op::kMultiply:
      return " * ";
    case Op::kDivide:
      return " / ";
    case Op::kAdd:
      return " + ";
    case Op::kSubtract:
      return " - ";
    case Op::kEqual:
      return " = ";
    case Op::kNotEqual:
      return " <> ";
    case Op::kLess:
      return " < ";
    case Op::kGreater:
      return " > ";
    case Op::kLessEqual:
      return " <= ";
    case Op::kGreaterEqual:
      return " >= ";
    case Op::kAnd:
      return " & ";
    case Op::kOr:
      return " | ";
    case Op::kMultiplyAll:
      return " ** ";
    case Op::kDivideAll:
      return " */ ";
    case Op::kAddAll:
      return " *+ ";
    case Op::kSubtractAll:
      return " *- ";
    case Op::kEqualAll:
      return " *= ";
    case Op::kNotEqualAll:
      return " *<> ";
    case Op::kLessAll:
      return " *< ";
    case Op::kGreaterAll:
      return " *> ";
    case Op::kLessEqualAll:
      return " *<= ";
    case Op::kGreaterEqualAll:
      return " *>= ";
    default:
      return ":";
  }
}

// What stands before the value that the instruction works on; empty for others.
std::string_view PrefixText(Op op) {
  switch (op) {
    case Op::kNegate:
      return "-";
    case Op::kPlus:
      return "+";
    case Op::kNot:
      return "!";
    case Op::kSelect:
      return "SELECT ";
    case Op::kField:
      return "FIELD ";
    case Op::kDefault:
      return "DEFAULT ";
    case Op::kEnvironment:
      return "ENVIRONMENT ";
    default:
      return {};
  }
}

// Walks the code in order: every value leaves its text on a stack, what works on values takes their texts.
class Walk {
 public:
  Walk(const Program& program, Part part) : program_(program), part_(part) {}

  std::string Run() {
    for (uint32_t offset = part_.begin; offset < part_.end;) {
      Instruction instruction;
      if (!ReadInstruction(program_.CodeBytes(), offset, &instruction)) Fail(status::kFormulaBad);
      Step(instruction);
      offset = instruction.next;
    }
    if (!texts_.empty()) Fail(status::kFormulaBad);
    return std::move(text_);
  }

 private:
  void Step(const Instruction& in) {
    const Op op = in.row->op;
    switch (op) {
      case Op::kNumber: {
        const double number = Load<double>(&in.eight);
        Push(NumberText(number));
        break;
      }
      case Op::kInteger:
        Push(std::to_string(static_cast<int16_t>(in.word)));
        break;
      case Op::kText:
        Push(QuotedText(program_.TextConstant(in.constant, in.length)));
        break;
      case Op::kTime:
        Push("[" + TimeConstant(Load<TIMEDATE>(&in.eight)) + "]");
        break;
      case Op::kName:
        Push(std::string(program_.Names()[in.name]));
        break;
      case Op::kRemark:
        Statement("REM " + QuotedText(program_.TextConstant(in.constant, in.length)));
        break;
      case Op::kEnd:
        Statement(Pop());
        break;
      case Op::kParenthesis:
        Push("(" + Pop() + ")");
        break;
      case Op::kNegate:
      case Op::kPlus:
      case Op::kNot:
      case Op::kSelect:
        Push(std::string(PrefixText(op)) + Pop());
        break;
      case Op::kAssign:
      case Op::kField:
      case Op::kDefault:
      case Op::kEnvironment:
        Push(std::string(PrefixText(op)) + std::string(program_.Names()[in.name]) + " := " + Pop());
        break;
      case Op::kIsAvailable:
        Push("@IsAvailable(" + NameText(in.name) + ")");
        break;
      case Op::kIsUnavailable:
        Push("@IsUnavailable(" + NameText(in.name) + ")");
        break;
      case Op::kReturn:
        Push("@Return(" + Pop() + ")");
        break;
      default:
        Group(in);
    }
  }

  // What takes several texts, or none.
  void Group(const Instruction& in) {
    switch (in.row->op) {
      case Op::kIfEnd:
        Push(CallText("If", in.arguments));
        break;
      case Op::kIfErrorEnd:
        if (in.arguments != 2) Pop();  // the empty text that stands for the value left out
        Push(CallText("IfError", in.arguments));
        break;
      case Op::kLoopEnd:
      case Op::kCall:
        Push(CallText(FindFunction(in.function)->name, in.arguments));
        break;
      case Op::kTransformEnd: {
        const std::string each = Pop();
        Push("@Transform(" + Pop() + "; " + QuotedText(program_.Names()[in.name]) + "; " + each + ")");
        break;
      }
      case Op::kDefaultTest:
      case Op::kIfTest:
      case Op::kIfElse:
      case Op::kIfErrorTest:
      case Op::kLoopTest:
      case Op::kLoopDrop:
      case Op::kLoopSkip:
      case Op::kLoopBack:
      case Op::kTransformBegin:
      case Op::kTransformNext:
      case Op::kTransformKeep:
        break;
      default: {
        const std::string right = Pop();
        Push(Pop() + std::string(OperatorText(in.row->op)) + right);
      }
    }
  }

  std::string TimeConstant(const TIMEDATE& time) {
    if (!intl_read_) intl_ = IntlFromSettings();
    intl_read_ = true;
    return TimeText(intl_, time);
  }

  // A name that could not stand there by itself is given as a text.
  std::string NameText(uint16_t number) const {
    const std::string_view name = program_.Names()[number];
    const bool is_plain = NameBytesAt(name, 0) == name.size();
    const bool is_keyword = EqualFold(name, "SELECT") || EqualFold(name, "CHOIX");
    return is_plain && !is_keyword ? std::string(name) : QuotedText(name);
  }

  std::string CallText(std::string_view function, size_t count) {
    std::string call = "@" + std::string(function);
    if (count == 0) return call;
    if (texts_.size() < count) Fail(status::kFormulaBad);
    call += '(';
    for (size_t index = texts_.size() - count; index < texts_.size(); ++index)
      call += texts_[index] + (index + 1 < texts_.size() ? "; " : ")");
    texts_.resize(texts_.size() - count);
    return call;
  }

  void Push(std::string text) {
    if (text.size() > kTextMax) Fail(status::kFormulaTooLong);
    texts_.push_back(std::move(text));
  }

  std::string Pop() {
    if (texts_.empty()) Fail(status::kFormulaBad);
    std::string text = std::move(texts_.back());
    texts_.pop_back();
    return text;
  }

  void Statement(std::string statement) {
    if (!text_.empty()) text_ += "; ";
    text_ += statement;
    if (text_.size() > kTextMax) Fail(status::kFormulaTooLong);
  }

  const Program& program_;
  const Part part_;
  std::vector<std::string> texts_;
  std::string text_;
  bool intl_read_ = false;
  INTLFORMAT intl_{};
};

}  // namespace

std::string Decompile(const Program& program, Part part) { return Walk(program, part).Run(); }

std::string Decompile(const Program& program) { return Decompile(program, program.Main()); }

}  // namespace brynd::formula
