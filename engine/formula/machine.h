// The machine that runs the parts of a checked formula, and what functions get to see of the evaluation.
//
// (1) Work on single values allocates nothing; longer ones lie in an arena that the next evaluation uses
// again. (2) The clock is read once per evaluation, at the first function that asks. (3) Loops end after
// kStepsMax rounds with an error value; every other instruction moves ahead.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "base/intl.h"
#include "formula/host.h"
#include "formula/program.h"
#include "formula/value.h"

namespace brynd::formula {

class Machine {
 public:
  explicit Machine(const Program& program);
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  // Starts an evaluation for a document: forgets values, variables and effects of the last.
  void Begin(Host& host);
  // Runs one part and gives its result: the value of its last statement. Variables start anew in each part.
  Value Run(Part part);

  bool FindItem(uint16_t name, ItemView* item);  // the item, whatever variables are called

  bool Selected() const { return selected_; }  // what the last SELECT said
  bool Deleted() const { return deleted_; }
  bool Modified() const { return modified_; }

  // For functions.
  Host& Document() { return *host_; }
  Arena& Memory() { return arena_; }
  const Program& Formula() const { return program_; }
  bool ForColumn() const { return for_column_; }
  void LimitSteps(uint32_t steps) { steps_max_ = steps; }
  void SetForColumn(bool for_column) { for_column_ = for_column; }
  TIMEDATE Now();
  const INTLFORMAT& Intl();
  std::string_view Keep(std::string_view text) { return arena_.Copy(text); }
  Value KeepText(std::string_view text);  // a copy, or the error "too long"
  void SetDeleted() { deleted_ = true; }
  void SetSelected(bool selected) { selected_ = selected; }

  Value ReadName(std::string_view name);  // the variable or item, by a name that was computed
  bool HasName(std::string_view name);
  void SetVariable(std::string_view name, const Value& value);
  Value WriteField(std::string_view name, const Value& value);
  Value WriteEnvironment(std::string_view name, const Value& value);
  Value EvaluateText(std::string_view text);  // @Eval

  // Whether the formula by itself, without what it says of ancestors, selects the parent of the document, or
  // one of its ancestors up to that many generations away.
  Value SelectsAncestor(int generations);
  // An item of a stored document; the document's own when it is the one at hand.
  Value ReadStored(const UNIVERSALNOTEID& unid, std::string_view name);
  Value WriteStored(const UNIVERSALNOTEID& unid, std::string_view name, const Value& value);
  // Selections and columns are computed for every document and keep to that document.
  bool KeepsToDocument() const { return for_column_ || for_selection_ || program_.HasSelection(); }
  void SetForSelection(bool for_selection) { for_selection_ = for_selection; }

 private:
  struct Variable {
    Value value;
    bool is_set = false;
  };
  struct Transform {
    Value list;
    uint32_t next = 0;
    Variable saved;
    std::vector<Value> results;
  };

  void BindNames();
  Value ReadName(uint16_t name);
  void ReadNameInto(uint16_t name, Value* target);
  bool HasName(uint16_t name);
  void Execute(uint32_t offset, uint32_t end);
  void Change(Op op);
  const std::byte* Control(Op op, const std::byte* at, bool* stop);
  const std::byte* TransformStep(Op op, const std::byte* at);
  void Call(const std::byte* at);
  void AssignName(Op op, uint16_t name);
  void SetVariable(uint16_t canonical, const Value& value) {
    // Field by field: a copy as a whole would be read back across its pieces, which the processor waits for.
    variables_[canonical].value = value;
    variables_[canonical].is_set = true;
    any_variable_ = true;
  }
  bool Condition(Value* value, bool* truth);
  bool CountStep(size_t bytes_back);
  bool IsSame(const UNIVERSALNOTEID& unid);
  void CollectGarbage();

  Value& Top() { return stack_[depth_ - 1]; }
  void Push(const Value& value) { stack_[depth_++] = value; }

  const Program& program_;
  Host* host_ = nullptr;
  NameScope scope_;
  bool is_bound_ = false;
  std::vector<NameToken> tokens_;    // by name
  std::vector<Variable> variables_;  // by canonical name
  bool any_variable_ = false;
  Arena arena_, spare_arena_;
  Value result_;
  size_t collect_at_ = 0;
  uint32_t steps_ = 0;
  uint32_t steps_max_ = kStepsMax;
  int eval_depth_ = 0;
  bool for_column_ = false;
  bool for_selection_ = false;
  bool is_for_ancestor_ = false;       // asks whether an ancestor is selected: changes nothing
  std::unique_ptr<Machine> ancestor_;  // for that question
  bool selected_ = false, deleted_ = false, modified_ = false;
  bool has_now_ = false;
  TIMEDATE now_{};
  std::optional<INTLFORMAT> intl_;
  std::vector<Transform> transforms_;
  size_t transform_count_ = 0;
  size_t depth_ = 0;
  // Left as memory was: a value is read only behind its push, and filling all of them was half the time of a
  // short evaluation.
  union {
    std::array<Value, kStackValuesMax> stack_;
  };
};

}  // namespace brynd::formula
