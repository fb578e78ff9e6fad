// A compiled formula that was checked: every offset, number, jump and stack depth in it may be trusted.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "base/bytes.h"
#include "base/status.h"
#include "formula/code.h"

namespace brynd::formula {

// One run of instructions: the main part, or what computes a column.
struct Part {
  uint32_t begin = 0;  // offset in the code
  uint32_t end = 0;
};

struct Column {
  uint16_t name = 0;
  Part part;  // empty: the column is the item of that name
};

class Program {
 public:
  // An empty formula; its value is the empty text and it selects nothing.
  Program() = default;

  // Copies the formula and checks it whole. The source may be longer than the formula says it is. Fails with
  // kFormulaBad, or kFormulaTooDeep when only its stack is too deep.
  static Program Load(Bytes compiled);
  // The same as a status, for a caller that goes on.
  static EngStatus TryLoad(Bytes compiled, Program* program);

  Bytes Stored() const { return stored_; }  // the formula as it was compiled
  uint16_t Flags() const { return flags_; }
  bool HasSelection() const { return (flags_ & kFlagSelection) != 0; }
  const std::byte* Code() const { return code_; }
  Bytes CodeBytes() const { return {code_, code_bytes_}; }
  Bytes Constants() const { return {constants_, constant_bytes_}; }
  Part Main() const { return main_; }
  std::span<const Column> Columns() const { return columns_; }
  std::span<const std::string_view> Names() const { return names_; }
  // The first name that differs in case alone; variables and items are found by it.
  uint16_t CanonicalName(uint16_t name) const { return canonical_[name]; }
  uint16_t OwnName() const { return own_name_; }  // kNoName for none
  uint16_t FindName(
      std::string_view name) const;  // canonical number without regard to case, kNoName for none

  std::string_view TextConstant(uint16_t offset, uint16_t length) const {
    return {reinterpret_cast<const char*>(constants_) + offset, length};
  }

  Program(Program&&) = default;
  Program& operator=(Program&&) = default;
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

 private:
  EngStatus Parse();
  bool ParseSections(ByteReader& in, uint16_t column_count, uint16_t name_count, uint16_t name_bytes);
  bool ParseNames(ByteReader in, uint16_t name_count);
  EngStatus CheckParts() const;

  std::vector<std::byte> stored_;
  uint16_t flags_ = 0;
  uint16_t own_name_ = kNoName;
  const std::byte* code_ = nullptr;
  size_t code_bytes_ = 0;
  const std::byte* constants_ = nullptr;
  size_t constant_bytes_ = 0;
  Part main_;
  std::vector<Column> columns_;
  std::vector<std::string_view> names_;
  std::vector<uint16_t> canonical_;
};

// One instruction of checked code, taken apart. Jumps are given as offsets in the code.
struct Instruction {
  const OpRow* row = nullptr;
  uint32_t offset = 0;
  uint32_t next = 0;
  uint16_t name = 0;           // n
  uint16_t constant = 0;       // c
  uint16_t length = 0;         // c
  uint16_t function = 0;       // f
  uint8_t arguments = 0;       // b
  uint16_t word = 0;           // w
  uint64_t eight = 0;          // d
  uint32_t jumps[2] = {0, 0};  // j, r
  uint32_t jump_count = 0;
};

// False when there is no whole instruction at that offset.
bool ReadInstruction(Bytes code, uint32_t offset, Instruction* instruction);

}  // namespace brynd::formula
