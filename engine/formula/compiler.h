// From the text of a formula to its compiled form.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "base/bytes.h"
#include "base/status.h"
#include "formula/code.h"

namespace brynd::formula {

struct CompileOptions {
  std::string_view item_name;  // the column that the formula computes; empty for none
};

// Where a formula is wrong: bytes of the text, line and column from 1.
struct CompileError {
  EngStatus status = 0;
  uint32_t offset = 0;
  uint32_t length = 0;
  uint32_t line = 1;
  uint32_t column = 1;
};

// Returns a status that says what is wrong with the text; the error then tells where. The result passes
// Program::Load.
EngStatus Compile(std::string_view text, const CompileOptions& options, std::vector<std::byte>* compiled,
                  CompileError* error);

// The sections of a formula while it is put together. Sizes are checked once, by Assemble.
class CodeWriter {
 public:
  // Instructions. A jump is written as 0 and given back, to be set once its target is known.
  void Emit(Op op) { code_.U8(static_cast<uint8_t>(op)); }
  void EmitName(Op op, uint16_t name) {
    Emit(op);
    code_.U16(name);
  }
  void EmitText(Op op, std::string_view text);
  void EmitNumber(double number);
  void EmitEight(Op op, const void* eight) {
    Emit(op);
    code_.Put(BytesAt(eight, 8));
  }
  void EmitCount(Op op, size_t count) {
    Emit(op);
    code_.U8(static_cast<uint8_t>(count));
  }
  void EmitFunction(Op op, uint16_t function, size_t count);
  struct Jump {
    size_t field = 0;  // where the distance is written
    size_t from = 0;   // the end of its instruction
  };
  Jump EmitJump();  // the operand alone, last of its instruction
  void EmitJumps(Jump* first, Jump* second);
  void EmitBack(size_t target);
  void Land(const Jump& jump);  // the target is here
  size_t Here() const { return code_.Size(); }

  uint16_t Name(std::string_view name);
  uint16_t Constant(std::string_view text);
  void AddFlags(uint16_t flags) { flags_ |= flags; }
  void SetOwnName(uint16_t name) { own_name_ = name; }
  void SetMainBytes(size_t bytes) { main_bytes_ = bytes; }
  void AddColumn(uint16_t name, size_t begin, size_t bytes) { columns_.push_back({name, begin, bytes}); }
  void AppendCode(Bytes code) { code_.Put(code); }
  std::byte* CodeAt(size_t offset) { return code_.At(offset); }

  // True while everything so far can still become a formula.
  bool Fits() const;
  // The formula; kFormulaTooLong when it is longer than one can be.
  EngStatus Assemble(std::vector<std::byte>* compiled) const;

 private:
  struct ColumnEntry {
    uint16_t name;
    size_t begin, bytes;
  };
  ByteBuilder code_;
  std::string constants_;
  std::map<std::string, uint16_t, std::less<>> constant_at_;
  std::vector<std::string> names_;
  std::map<std::string, uint16_t, std::less<>> name_number_;
  size_t name_bytes_ = 0;
  std::vector<ColumnEntry> columns_;
  size_t main_bytes_ = 0;
  uint16_t flags_ = 0;
  uint16_t own_name_ = kNoName;
};

}  // namespace brynd::formula
