#include "formula/program.h"

#include "base/text.h"
#include "formula/function_table.h"

namespace brynd::formula {

namespace {

constexpr int16_t kUnseen = -1;

// How deep the stack is behind a jump, counted from before the instruction: the value tested is popped or
// kept.
int JumpDepth(Op op, uint32_t jump_index) {
  switch (op) {
    case Op::kDefaultTest:
      return 1;
    case Op::kIfTest:
    case Op::kLoopTest:
      return jump_index == 0 ? -1 : 0;
    case Op::kTransformKeep:
      return jump_index == 0 ? 0 : -1;
    default:
      return 0;
  }
}

// Walks one part once, in order. Every edge must arrive with the depth that is noted for its target; behind
// an instruction that always jumps, the depth is the noted one, or what it would be if nobody could get
// there.
class PartCheck {
 public:
  PartCheck(const Program& program, Part part)
      : program_(program), part_(part), depth_at_(part.end - part.begin, kUnseen) {}

  EngStatus Run() {
    uint32_t offset = part_.begin;
    int depth = 0;
    while (offset < part_.end) {
      Instruction instruction;
      if (!ReadInstruction(program_.CodeBytes().first(part_.end), offset, &instruction))
        return status::kFormulaBad;
      int16_t& noted = depth_at_[offset - part_.begin];
      if (noted != kUnseen && AlwaysJumped()) depth = noted;
      if (noted != kUnseen && noted != depth) return status::kFormulaBad;
      if (noted != kUnseen) --pending_;
      noted = static_cast<int16_t>(depth);
      if (!CheckOperands(instruction) || !CheckJumps(instruction, depth)) return status::kFormulaBad;
      const int pops = instruction.row->op == Op::kCall ? instruction.arguments : instruction.row->pops;
      if (depth < pops) return status::kFormulaBad;
      depth += instruction.row->pushes - pops;
      if (depth >= kStackValuesMax) return status::kFormulaTooDeep;
      last_ = instruction.row->op;
      offset = instruction.next;
    }
    return depth == 0 && pending_ == 0 ? status::kOk : status::kFormulaBad;
  }

 private:
  bool AlwaysJumped() const {
    return last_ == Op::kIfElse || last_ == Op::kLoopSkip || last_ == Op::kLoopBack ||
           last_ == Op::kTransformKeep;
  }

  bool CheckOperands(const Instruction& instruction) const {
    for (const char* letter = instruction.row->operands; *letter != 0; ++letter) {
      if (*letter == 'n' && instruction.name >= program_.Names().size()) return false;
      if (*letter == 'c' && size_t{instruction.constant} + instruction.length > program_.Constants().size())
        return false;
      if (*letter != 'f') continue;
      const FunctionRow* function = FindFunction(instruction.function);
      if (function == nullptr || !function->Takes(instruction.arguments)) return false;
      if (instruction.row->op == Op::kCall && function->call == nullptr) return false;
    }
    return true;
  }

  bool CheckJumps(const Instruction& instruction, int depth) {
    for (uint32_t index = 0; index < instruction.jump_count; ++index) {
      const uint32_t target = instruction.jumps[index];
      const int at_target = depth + JumpDepth(instruction.row->op, index);
      if (target < part_.begin || target >= part_.end || at_target < 0) return false;
      int16_t& noted = depth_at_[target - part_.begin];
      if (noted != kUnseen && noted != at_target) return false;
      if (target <= instruction.offset && noted == kUnseen)
        return false;  // back into the middle of an instruction
      if (noted == kUnseen) ++pending_;
      noted = static_cast<int16_t>(at_target);
    }
    return true;
  }

  const Program& program_;
  const Part part_;
  std::vector<int16_t> depth_at_;
  uint32_t pending_ = 0;  // targets ahead; one in the middle of an instruction is never reached
  Op last_ = Op::kEnd;
};

}  // namespace

const OpRow* FindOp(uint8_t number) {
  static constexpr auto kRowOf = [] {
    struct {
      uint8_t row[256] = {};
    } table;
    for (size_t index = 0; index < std::size(kOps); ++index)
      table.row[static_cast<uint8_t>(kOps[index].op)] = static_cast<uint8_t>(index + 1);
    return table;
  }();
  const uint8_t row = kRowOf.row[number];
  return row == 0 ? nullptr : &kOps[row - 1];
}

size_t OpBytes(const OpRow& row) {
  size_t bytes = 1;
  for (const char* letter = row.operands; *letter != 0; ++letter) bytes += OperandBytes(*letter);
  return bytes;
}

bool ReadInstruction(Bytes code, uint32_t offset, Instruction* instruction) {
  ByteReader in(code);
  in.Seek(offset);
  instruction->row = FindOp(in.U8());
  if (in.Failed() || instruction->row == nullptr) return false;
  instruction->offset = offset;
  instruction->next = static_cast<uint32_t>(offset + OpBytes(*instruction->row));
  instruction->jump_count = 0;
  for (const char* letter = instruction->row->operands; *letter != 0; ++letter) {
    switch (*letter) {
      case 'b':
        instruction->arguments = in.U8();
        break;
      case 'd':
        instruction->eight = in.U64();
        break;
      case 'n':
        instruction->name = in.U16();
        break;
      case 'f':
        instruction->function = in.U16();
        break;
      case 'w':
        instruction->word = in.U16();
        break;
      case 'j':
        instruction->jumps[instruction->jump_count++] = instruction->next + in.U16();
        break;
      case 'r': {
        const uint32_t back = in.U16();
        instruction->jumps[instruction->jump_count++] =
            back > instruction->next ? ~0u : instruction->next - back;
        break;
      }
      case 'c':
        instruction->constant = in.U16();
        instruction->length = in.U16();
        break;
      default:
        return false;
    }
  }
  return !in.Failed();
}

Program Program::Load(Bytes compiled) {
  Program program;
  Check(TryLoad(compiled, &program));
  return program;
}

EngStatus Program::TryLoad(Bytes compiled, Program* program) {
  if (compiled.size() < kEmptyBytes) return status::kFormulaBad;
  const size_t length = LoadU16(compiled.data());
  if (length > compiled.size()) return status::kFormulaBad;
  Program loaded;
  loaded.stored_.assign(compiled.begin(), compiled.begin() + static_cast<ptrdiff_t>(length));
  if (EngStatus status = loaded.Parse()) return status;
  *program = std::move(loaded);
  return status::kOk;
}

EngStatus Program::Parse() {
  if (stored_.size() == kEmptyBytes) return status::kOk;
  ByteReader in(stored_);
  in.Skip(2);
  if (in.U16() != kMagic) return status::kFormulaBad;
  flags_ = in.U16();
  const uint16_t column_count = in.U16();
  main_ = {0, in.U16()};
  code_bytes_ = in.U16();
  constant_bytes_ = in.U16();
  const uint16_t name_count = in.U16(), name_bytes = in.U16();
  own_name_ = in.U16();
  if (in.Failed() || (flags_ & ~kFlagsAll) != 0 || main_.end > code_bytes_) return status::kFormulaBad;
  if (own_name_ != kNoName && own_name_ >= name_count) return status::kFormulaBad;
  if (!ParseSections(in, column_count, name_count, name_bytes)) return status::kFormulaBad;
  return CheckParts();
}

bool Program::ParseSections(ByteReader& in, uint16_t column_count, uint16_t name_count, uint16_t name_bytes) {
  if (column_count * kColumnBytes > in.Left()) return false;
  columns_.reserve(column_count);
  for (uint16_t index = 0; index < column_count; ++index) {
    Column column;
    column.name = in.U16();
    column.part.begin = in.U16();
    column.part.end = column.part.begin + in.U16();
    if (column.name >= name_count || column.part.end > code_bytes_) return false;
    columns_.push_back(column);
  }
  code_ = in.Take(code_bytes_).data();
  constants_ = in.Take(constant_bytes_).data();
  const Bytes names = in.Take(name_bytes);
  return !in.Failed() && in.Left() == kTrailerBytes && ParseNames(ByteReader(names), name_count);
}

bool Program::ParseNames(ByteReader in, uint16_t name_count) {
  if (name_count > in.Left()) return false;
  names_.reserve(name_count);
  canonical_.reserve(name_count);
  for (uint16_t index = 0; index < name_count; ++index) {
    const std::string_view name = in.Text(in.U8());
    if (in.Failed() || name.empty()) return false;
    const uint16_t first = FindName(name);
    names_.push_back(name);
    canonical_.push_back(first == kNoName ? index : first);
  }
  return in.Left() == 0;
}

EngStatus Program::CheckParts() const {
  if (EngStatus status = PartCheck(*this, main_).Run()) return status;
  for (const Column& column : columns_)
    if (EngStatus status = PartCheck(*this, column.part).Run()) return status;
  return status::kOk;
}

uint16_t Program::FindName(std::string_view name) const {
  for (size_t index = 0; index < names_.size(); ++index)
    if (EqualFold(names_[index], name)) return canonical_[index];
  return kNoName;
}

}  // namespace brynd::formula
