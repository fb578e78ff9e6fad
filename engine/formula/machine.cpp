#include "formula/machine.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "base/process.h"
#include "base/text.h"
#include "formula/compiler.h"
#include "formula/function_table.h"
#include "formula/operators.h"

namespace brynd::formula {

namespace {

// Loops make texts that nobody needs any more; above this what is alive is copied and the rest given back.
constexpr size_t kCollectBytes = 1u << 20;

uint16_t U16(const std::byte* at) { return LoadU16(at); }

void SetBool(Value* value, bool truth) {
  value->kind = Kind::kNumber;
  value->number = truth ? 1 : 0;
}

// The operations that selections are made of, on single values of one type; false for all others.
inline bool OperateQuickly(Op op, Value* left, const Value& right) {
  if (left->kind != right.kind || left->list || right.list) return false;
  if (left->kind == Kind::kText) {
    if (op != Op::kEqual && op != Op::kNotEqual) return false;
    const bool is_same =
        left->text_bytes == right.text_bytes &&
        (left->text_bytes == 0 || std::memcmp(left->text, right.text, left->text_bytes) == 0);
    SetBool(left, is_same == (op == Op::kEqual));
    return true;
  }
  if (left->kind != Kind::kNumber) return false;
  const double a = left->number, b = right.number;
  if (op == Op::kAdd || op == Op::kSubtract) {
    const double result = op == Op::kAdd ? a + b : a - b;
    if (!std::isfinite(result)) return false;
    left->number = result;
    return true;
  }
  switch (op) {
    case Op::kEqual:
      left->number = a == b;
      return true;
    case Op::kNotEqual:
      left->number = a != b;
      return true;
    case Op::kLess:
      left->number = a < b;
      return true;
    case Op::kGreater:
      left->number = a > b;
      return true;
    case Op::kLessEqual:
      left->number = a <= b;
      return true;
    case Op::kGreaterEqual:
      left->number = a >= b;
      return true;
    case Op::kAnd:
      left->number = a != 0 && b != 0;
      return true;
    case Op::kOr:
      left->number = a != 0 || b != 0;
      return true;
    default:
      return false;
  }
}

}  // namespace

Machine::Machine(const Program& program)
    : program_(program), tokens_(program.Names().size(), kNoToken), variables_(program.Names().size()) {}

Machine::~Machine() = default;

void Machine::Begin(Host& host) {
  host_ = &host;
  const NameScope scope = host.Scope();
  if (!is_bound_ || scope != scope_) {
    scope_ = scope;
    BindNames();
  }
  arena_.Reset();
  collect_at_ = kCollectBytes;
  steps_ = 0;
  selected_ = deleted_ = modified_ = has_now_ = false;
}

void Machine::BindNames() {
  for (size_t name = 0; name < tokens_.size(); ++name) tokens_[name] = host_->Bind(program_.Names()[name]);
  is_bound_ = true;
}

Value Machine::Run(Part part) {
  if (any_variable_) {
    for (Variable& variable : variables_) variable.is_set = false;
    any_variable_ = false;
  }
  depth_ = 0;
  transform_count_ = 0;
  result_ = Value();
  Execute(part.begin, part.end);
  return result_;
}

bool Machine::FindItem(uint16_t name, ItemView* item) {
  return tokens_[name] != kNoToken && host_->Find(tokens_[name], item);
}

// Reading single values of items is most of what selections do.
inline void Machine::ReadNameInto(uint16_t name, Value* target) {
  if (any_variable_ && variables_[program_.CanonicalName(name)].is_set) {
    *target = variables_[program_.CanonicalName(name)].value;
    return;
  }
  ItemView item;
  if (!FindItem(name, &item))
    *target = Value();
  else if (item.type == kWordText)
    *target = Value::Text(TextOf(item.value));
  else if (item.type == kWordNumber && item.value.size() >= sizeof(double))
    *target = Value::Number(LoadF64(item.value.data()));
  else
    *target = ReadItem(item, arena_);
}

Value Machine::ReadName(uint16_t name) {
  Value value;
  ReadNameInto(name, &value);
  return value;
}

bool Machine::HasName(uint16_t name) {
  const Variable& variable = variables_[program_.CanonicalName(name)];
  ItemView item;
  return variable.is_set ? variable.value.kind != Kind::kUnavailable : FindItem(name, &item);
}

// The loop of the machine. What is rare or only moves around is in Control, so that this stays small and
// quick.
void Machine::Execute(uint32_t offset, uint32_t end) {
  const std::byte* at = program_.Code() + offset;
  const std::byte* const stop_at = program_.Code() + end;
  bool stop = false;
  while (at != stop_at && !stop) {
    const Op op = static_cast<Op>(*at++);
    switch (op) {
      case Op::kName:
        ReadNameInto(U16(at), &stack_[depth_++]);
        at += 2;
        break;
      case Op::kText:
        Push(Value::Text(program_.TextConstant(U16(at), U16(at + 2))));
        at += 4;
        break;
      case Op::kInteger:
        Push(Value::Number(static_cast<int16_t>(U16(at))));
        at += 2;
        break;
      case Op::kNumber:
        Push(Value::Number(LoadF64(at)));
        at += 8;
        break;
      case Op::kTime:
        Push(Value::Time(Load<TIMEDATE>(at)));
        at += 8;
        break;
      case Op::kAssign:
        SetVariable(program_.CanonicalName(U16(at)), Top());
        at += 2;
        break;
      case Op::kLoopDrop:
        if (Top().IsError())
          at += U16(at);
        else
          --depth_;
        at += 2;
        break;
      case Op::kIfElse:
      case Op::kLoopSkip:
        at += 2 + U16(at);
        break;
      case Op::kParenthesis:
        break;
      case Op::kEnd:
        result_ = stack_[--depth_];
        break;
      case Op::kRemark:
        at += 4;
        break;
      case Op::kCall:
        Call(at);
        at += 3;
        break;
      case Op::kTransformBegin:
      case Op::kTransformNext:
      case Op::kTransformKeep:
      case Op::kTransformEnd:
        at = TransformStep(op, at);
        break;
      default:
        if (op < Op::kList || op >= Op::kIfTest) {
          at = Control(op, at, &stop);
          break;
        }
        --depth_;
        if (!OperateQuickly(op, &Top(), stack_[depth_])) Top() = Operate(op, Top(), stack_[depth_], arena_);
    }
  }
}

// False for an error and for what is no truth; then value is the error.
bool Machine::Condition(Value* value, bool* truth) {
  if (value->IsNumber()) {
    *truth = value->NumberAt(0) != 0;
    return true;
  }
  if (!value->IsError()) *value = Value::Error(ErrorCode::kWantsNumber);
  return false;
}

void Machine::Change(Op op) {
  if (op == Op::kSelect) {
    selected_ = Top().IsNumber() && Top().NumberAt(0) != 0;
  } else if (op == Op::kNot) {
    bool truth = false;
    if (Condition(&Top(), &truth)) Top() = Value::Bool(!truth);
  } else if (!Top().IsNumber() && !Top().IsError()) {
    Top() = Value::Error(ErrorCode::kWantsNumber);
  }
}

const std::byte* Machine::Control(Op op, const std::byte* at, bool* stop) {
  bool truth = false;
  switch (op) {
    case Op::kNegate:
      Top() = Negate(Top(), arena_);
      return at;
    case Op::kPlus:
    case Op::kNot:
    case Op::kSelect:
      Change(op);
      return at;
    case Op::kIsAvailable:
    case Op::kIsUnavailable:
      Push(Value::Bool(HasName(U16(at)) == (op == Op::kIsAvailable)));
      return at + 2;
    case Op::kField:
    case Op::kDefault:
    case Op::kEnvironment:
      AssignName(op, U16(at));
      return at + 2;
    case Op::kIfTest:
    case Op::kLoopTest: {
      const bool fine = Condition(&Top(), &truth);
      const uint16_t jump = fine ? U16(at) : U16(at + 2);
      if (fine) --depth_;
      return at + 4 + (fine && truth ? 0 : jump);
    }
    case Op::kDefaultTest:
      if (!HasName(U16(at))) return at + 4;
      Push(ReadName(U16(at)));
      return at + 4 + U16(at + 2);
    case Op::kIfErrorTest:
      if (!Top().IsError()) return at + 2 + U16(at);
      --depth_;
      return at + 2;
    case Op::kLoopBack:
      if (!CountStep(U16(at))) {
        result_ = Value::Error(ErrorCode::kTooManySteps);
        *stop = true;
        return at;
      }
      return at + 2 - U16(at);
    case Op::kLoopEnd:
      Push(Value::Bool(true));
      return at + 3;
    case Op::kReturn:
      result_ = stack_[--depth_];
      *stop = true;
      return at;
    default:
      return at + 1;  // kIfEnd, kIfErrorEnd
  }
}

// A long body counts as several rounds, so that the limit bounds the work and not the rounds alone.
bool Machine::CountStep(size_t bytes_back) {
  steps_ += static_cast<uint32_t>(1 + bytes_back / 256);
  if (arena_.Taken() > collect_at_) CollectGarbage();
  return steps_ <= steps_max_;
}

// Copies what is alive into the other arena. Alive are the stack, the variables, the lists of @Transform.
void Machine::CollectGarbage() {
  spare_arena_.Reset();
  for (size_t index = 0; index < depth_; ++index) stack_[index] = CopyValue(stack_[index], spare_arena_);
  for (Variable& variable : variables_)
    if (variable.is_set) variable.value = CopyValue(variable.value, spare_arena_);
  for (size_t index = 0; index < transform_count_; ++index) {
    Transform& transform = transforms_[index];
    transform.list = CopyValue(transform.list, spare_arena_);
    if (transform.saved.is_set) transform.saved.value = CopyValue(transform.saved.value, spare_arena_);
    for (Value& value : transform.results) value = CopyValue(value, spare_arena_);
  }
  result_ = CopyValue(result_, spare_arena_);
  arena_.Swap(spare_arena_);
  // Much that stays alive is not copied at every round.
  collect_at_ = std::max(kCollectBytes, 2 * arena_.Taken());
}

const std::byte* Machine::TransformStep(Op op, const std::byte* at) {
  if (op == Op::kTransformBegin) {
    if (Top().IsError()) return at + 4 + U16(at + 2);
    Variable& variable = variables_[program_.CanonicalName(U16(at))];
    if (transform_count_ == kNestingMax) Fail(status::kFormulaBad);  // compiled code is never nested deeper
    if (transform_count_ == transforms_.size()) transforms_.emplace_back();
    Transform& transform = transforms_[transform_count_++];
    transform.list = stack_[--depth_];
    transform.next = 0;
    transform.saved = variable;
    transform.results.clear();
    return at + 4;
  }
  // Only damaged code comes here without a list: the jumps of compiled code never leave one behind.
  if (transform_count_ == 0) Fail(status::kFormulaBad);
  Transform& transform = transforms_[transform_count_ - 1];
  if (op == Op::kTransformNext) {
    if (transform.next == transform.list.Count()) return at + 2 + U16(at);
    // The variable is that of the end of the loop, which follows the target of the jump.
    const std::byte* end = at + 2 + U16(at);
    if (static_cast<Op>(*end) != Op::kTransformEnd) Fail(status::kFormulaBad);
    Variable& variable = variables_[program_.CanonicalName(U16(end + 1))];
    variable.value = ElementOf(transform.list, transform.next++);
    variable.is_set = true;
    any_variable_ = true;
    return at + 2;
  }
  if (op == Op::kTransformKeep) {
    if (!Top().IsError() && CountStep(U16(at + 2))) {
      const Value result = stack_[--depth_];
      if (result.kind != Kind::kUnavailable)
        transform.results.push_back(result);  // @Nothing leaves the element out
      return at + 4 - U16(at + 2);
    }
    if (!Top().IsError()) Top() = Value::Error(ErrorCode::kTooManySteps);
    --transform_count_;
    return at + 4 + U16(at);
  }
  Variable& variable = variables_[program_.CanonicalName(U16(at))];
  variable = transform.saved;
  --transform_count_;
  Push(JoinAll(transform.results, arena_));
  return at + 2;
}

void Machine::Call(const std::byte* at) {
  const FunctionRow& function = *FindFunction(U16(at));
  const size_t count = std::to_integer<size_t>(at[2]);
  Value* const arguments = stack_.data() + depth_ - count;
  depth_ -= count;
  if ((function.traits & kTakesErrors) == 0) {
    for (size_t index = 0; index < count; ++index) {
      if (arguments[index].IsError()) {
        Push(Value(arguments[index]));
        return;
      }
      if (arguments[index].kind == Kind::kUnavailable && (function.traits & kTakesNothing) == 0)
        arguments[index] = Value();
    }
  }
  const Value value = function.call(*this, {arguments, count});
  Push(value);
}

void Machine::AssignName(Op op, uint16_t name) {
  const std::string_view spelling = program_.Names()[name];
  if (op == Op::kField) {
    Top() = WriteField(spelling, Top());
    return;
  }
  if (op == Op::kEnvironment) {
    Top() = WriteEnvironment(spelling, Top());
    return;
  }
  SetVariable(program_.CanonicalName(name), Top());
}

Value Machine::KeepText(std::string_view text) {
  if (text.size() > kTextBytesMax) return Value::Error(ErrorCode::kTooLong);
  return Value::Text(Keep(text));
}

TIMEDATE Machine::Now() {
  if (!has_now_) now_ = Process().clock->Now();
  has_now_ = true;
  return now_;
}

const INTLFORMAT& Machine::Intl() {
  if (!intl_.has_value()) intl_ = IntlFromSettings();
  return *intl_;
}

Value Machine::ReadName(std::string_view name) {
  const uint16_t number = program_.FindName(name);
  if (number != kNoName) return ReadName(number);
  if (name.empty() || name.size() > kNameBytesMax) return {};
  const NameToken token = host_->Bind(name);
  ItemView item;
  return token != kNoToken && host_->Find(token, &item) ? ReadItem(item, arena_) : Value();
}

bool Machine::HasName(std::string_view name) {
  const uint16_t number = program_.FindName(name);
  if (number != kNoName) return HasName(number);
  ItemView item;
  const NameToken token = host_->Bind(name);
  return token != kNoToken && host_->Find(token, &item);
}

// A name that the formula nowhere reads needs no place.
void Machine::SetVariable(std::string_view name, const Value& value) {
  const uint16_t number = program_.FindName(name);
  if (number != kNoName) SetVariable(number, value);
}

// A host that takes no writes still shows the formula what it wrote.
Value Machine::WriteField(std::string_view name, const Value& value) {
  if (value.IsError()) return value;
  if (name.empty() || name.size() > kNameBytesMax) return Value::Error(ErrorCode::kBadArgument);
  const size_t bytes = StoredBytes(value);
  if (bytes == 0) return Value::Error(ErrorCode::kTooLong);
  // The write may move the items that values still point to.
  CollectGarbage();
  const Value kept = CopyValue(value, arena_);
  bool written = false;
  if (kept.kind == Kind::kUnavailable) {
    written = host_->DeleteItem(name);
  } else {
    std::byte* const stored = static_cast<std::byte*>(arena_.Take(bytes));
    StoreValue(kept, stored);
    written = host_->WriteItem(name, {LoadU16(stored), {stored + 2, bytes - 2}});
  }
  modified_ = true;
  const NameScope scope = host_->Scope();
  if (scope != scope_) {
    scope_ = scope;
    BindNames();
  }
  if (!written) SetVariable(name, kept);
  return kept;
}

Value Machine::WriteEnvironment(std::string_view name, const Value& value) {
  if (value.IsError()) return value;
  if (!value.IsText()) return Value::Error(ErrorCode::kWantsText);
  if (is_for_ancestor_) return value;
  if (!host_->EnvironmentSet(name, value.TextAt(0))) return Value::Error(ErrorCode::kRefused);
  return value;
}

// A formula within the formula has variables of its own and what is left of the steps.
Value Machine::EvaluateText(std::string_view text) {
  if (eval_depth_ == kEvalDepthMax) return Value::Error(ErrorCode::kTooManySteps);
  std::vector<std::byte> compiled;
  CompileError error;
  if (Compile(text, {}, &compiled, &error) != status::kOk) return Value::Error(ErrorCode::kBadArgument);
  const Program program = Program::Load(compiled);
  const auto inner = std::make_unique<Machine>(program);
  inner->eval_depth_ = eval_depth_ + 1;
  inner->for_column_ = for_column_;
  inner->for_selection_ = KeepsToDocument();
  inner->is_for_ancestor_ = is_for_ancestor_;
  inner->steps_max_ = steps_max_;
  inner->Begin(*host_);
  inner->steps_ = steps_ + 1;
  if (program.Flags() & kFlagWrites) CollectGarbage();  // what the formula writes may move items
  const Value result = CopyValue(inner->Run(program.Main()), arena_);
  steps_ = inner->steps_;
  deleted_ |= inner->deleted_;
  modified_ |= inner->modified_;
  return result;
}

// The question runs the whole formula for the ancestor, in a machine that answers it with no. It shares what
// is left of the steps, so no chain of documents makes an evaluation longer than it may be.
Value Machine::SelectsAncestor(int generations) {
  if (is_for_ancestor_) return Value::Bool(false);
  if (ancestor_ == nullptr) {
    ancestor_ = std::make_unique<Machine>(program_);
    ancestor_->is_for_ancestor_ = true;
  }
  ancestor_->for_selection_ = for_selection_;
  ancestor_->steps_max_ = steps_max_;
  DocumentFacts facts;
  host_->Document(&facts);
  while (facts.is_response && generations-- > 0) {
    const std::unique_ptr<Host> document = host_->Stored(facts.parent);
    if (document == nullptr) break;
    ancestor_->Begin(*document);
    ancestor_->steps_ = steps_;
    const Value result = ancestor_->Run(program_.Main());
    steps_ = ancestor_->steps_;
    const bool is_selected =
        program_.HasSelection() ? ancestor_->selected_ : result.IsNumber() && result.NumberAt(0) != 0;
    if (is_selected) return Value::Bool(true);
    facts = {};
    document->Document(&facts);
  }
  return Value::Bool(false);
}

bool Machine::IsSame(const UNIVERSALNOTEID& unid) {
  DocumentFacts facts;
  host_->Document(&facts);
  return !facts.is_new && std::memcmp(&facts.originator, &unid, sizeof unid) == 0;
}

Value Machine::ReadStored(const UNIVERSALNOTEID& unid, std::string_view name) {
  if (IsSame(unid)) return ReadName(name);
  const std::unique_ptr<Host> document = host_->Stored(unid);
  if (document == nullptr) return Value::Error(ErrorCode::kNoDocument);
  const NameToken token = document->Bind(name);
  ItemView item;
  if (token == kNoToken || !document->Find(token, &item)) return {};
  return CopyValue(ReadItem(item, arena_), arena_);
}

Value Machine::WriteStored(const UNIVERSALNOTEID& unid, std::string_view name, const Value& value) {
  if (IsSame(unid)) return WriteField(name, value);
  const size_t bytes = StoredBytes(value);
  if (bytes == 0) return Value::Error(ErrorCode::kTooLong);
  std::byte* const stored = static_cast<std::byte*>(arena_.Take(bytes));
  StoreValue(value, stored);
  const ItemView item{LoadU16(stored), {stored + 2, bytes - 2}};
  switch (host_->WriteStored(unid, name, value.kind == Kind::kUnavailable ? nullptr : &item)) {
    case Answer::kDone:
      return value;
    case Answer::kNothing:
      return Value::Error(ErrorCode::kNoDocument);
    case Answer::kRefused:
      return Value::Error(ErrorCode::kRefused);
    case Answer::kNotAvailable:
      return Value::Error(ErrorCode::kNotBuilt);
  }
  return Value::Error(ErrorCode::kRefused);
}

}  // namespace brynd::formula
