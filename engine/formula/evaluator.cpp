#include "formula/evaluator.h"

#include <algorithm>

#include "formula/machine.h"

namespace brynd::formula {

namespace {

constexpr size_t kDoesNotFit = ~size_t{0};

// A formula without SELECT selects by its value.
bool IsSelected(const Machine& machine, const Value& result) {
  if (machine.Formula().HasSelection()) return machine.Selected();
  return result.IsNumber() && result.NumberAt(0) != 0;
}

Bytes WriteValue(const Value& value, std::vector<std::byte>* output) {
  const size_t bytes = StoredBytes(value);
  const Value stored = bytes == 0 ? Value::Error(ErrorCode::kTooLong) : value;
  output->resize(StoredBytes(stored));
  StoreValue(stored, output->data());
  return *output;
}

size_t AppendValue(Machine& machine, const Value& value, size_t bytes_max, std::vector<std::byte>* output) {
  const Value cut = CutValue(value, kSummaryValueBytesMax, machine.Memory());
  const size_t bytes = StoredBytes(cut), at = output->size();
  if (bytes > bytes_max) return kDoesNotFit;
  output->resize(at + bytes);
  StoreValue(cut, output->data() + at);
  return bytes;
}

bool IsComputable(uint16_t type) { return type >= kWordNumber && type <= (kWordTextList | 0xff); }

// The stored form of an item in a table: cut when it is long, nothing when it is rich text, an object or
// damaged.
size_t AppendItem(Machine& machine, const ItemView& item, size_t bytes_max, std::vector<std::byte>* output) {
  if (!IsComputable(item.type)) {
    const bool is_shown = item.type != BRTYPE_COMPOSITE && item.type != BRTYPE_OBJECT;
    if (!is_shown || item.value.size() + 2 > kSummaryValueBytesMax) return 0;
    if (item.value.size() + 2 > bytes_max) return kDoesNotFit;
    const std::byte word[] = {static_cast<std::byte>(item.type & 0xff),
                              static_cast<std::byte>(item.type >> 8)};
    output->insert(output->end(), word, word + 2);
    output->insert(output->end(), item.value.begin(), item.value.end());
    return item.value.size() + 2;
  }
  const Value value = ReadItem(item, machine.Memory());
  return value.IsError() ? 0 : AppendValue(machine, value, bytes_max, output);
}

// Appends what the column shows: a computed value, or the item of its name; nothing when that is missing or
// too long.
size_t AppendColumn(Machine& machine, const Column& column, size_t bytes_max,
                    std::vector<std::byte>* output) {
  if (column.part.begin != column.part.end)
    return AppendValue(machine, machine.Run(column.part), bytes_max, output);
  ItemView item;
  return machine.FindItem(column.name, &item) ? AppendItem(machine, item, bytes_max, output) : 0;
}

size_t NameBytes(const Program& program) {
  size_t bytes = 0;
  for (const Column& column : program.Columns()) bytes += program.Names()[column.name].size();
  return bytes;
}

// Columns are computed as columns whatever the formula itself is for.
class ColumnMode {
 public:
  explicit ColumnMode(Machine& machine) : machine_(machine), former_(machine.ForColumn()) {
    machine.SetForColumn(true);
  }
  ~ColumnMode() { machine_.SetForColumn(former_); }

 private:
  Machine& machine_;
  const bool former_;
};

}  // namespace

Evaluator::Evaluator(Program program)
    : program_(std::make_unique<const Program>(std::move(program))),
      machine_(std::make_unique<Machine>(*program_)) {
  machine_->SetForColumn(program_->OwnName() != kNoName);
}

Evaluator::~Evaluator() = default;
Evaluator::Evaluator(Evaluator&&) noexcept = default;
Evaluator& Evaluator::operator=(Evaluator&&) noexcept = default;

void Evaluator::LimitSteps(uint32_t steps) { machine_->LimitSteps(steps); }

Evaluation Evaluator::Evaluate(Host& host) {
  machine_->Begin(host);
  machine_->SetForSelection(false);
  const Value result = machine_->Run(program_->Main());
  Evaluation evaluation;
  evaluation.value = WriteValue(result, &output_);
  evaluation.selected = IsSelected(*machine_, result);
  evaluation.deleted = machine_->Deleted();
  evaluation.modified = machine_->Modified();
  return evaluation;
}

bool Evaluator::Selects(Host& host) {
  machine_->Begin(host);
  machine_->SetForSelection(true);
  return IsSelected(*machine_, machine_->Run(program_->Main()));
}

Bytes Evaluator::ColumnValue(Host& host, size_t column) {
  machine_->Begin(host);
  const ColumnMode mode(*machine_);
  output_.clear();
  AppendColumn(*machine_, program_->Columns()[column], kSummaryValueBytesMax, &output_);
  return output_;
}

Evaluator::Table Evaluator::Columns(Host& host, TableForm form) {
  machine_->Begin(host);
  machine_->SetForSelection(true);
  if (!IsSelected(*machine_, machine_->Run(program_->Main()))) return {};
  const std::span<const Column> columns = program_->Columns();
  const bool is_named = form == TableForm::kNamed;
  const size_t record_bytes = is_named ? sizeof(ITEM) : sizeof(uint16_t);
  const size_t head_bytes = sizeof(ITEM_TABLE) + columns.size() * record_bytes;
  const size_t fixed_bytes = head_bytes + (is_named ? NameBytes(*program_) : 0);
  if (fixed_bytes > kTextBytesMax) Fail(status::kFormulaResultTooLarge);
  const ColumnMode mode(*machine_);
  size_t left = kTextBytesMax - fixed_bytes;
  output_.assign(head_bytes, std::byte{0});
  for (size_t index = 0; index < columns.size(); ++index) {
    const std::string_view name = program_->Names()[columns[index].name];
    if (is_named) output_.insert(output_.end(), BytesOf(name).begin(), BytesOf(name).end());
    size_t value_bytes = AppendColumn(*machine_, columns[index], left, &output_);
    if (value_bytes == kDoesNotFit) left = value_bytes = 0;  // all columns to the right stay empty too
    left -= value_bytes;
    std::byte* const record = output_.data() + sizeof(ITEM_TABLE) + index * record_bytes;
    if (is_named) StoreU16(record, static_cast<uint16_t>(name.size()));
    StoreU16(record + record_bytes - sizeof(uint16_t), static_cast<uint16_t>(value_bytes));
  }
  StoreU16(output_.data(), static_cast<uint16_t>(output_.size()));
  StoreU16(output_.data() + sizeof(uint16_t), static_cast<uint16_t>(columns.size()));
  return {true, output_};
}

}  // namespace brynd::formula
