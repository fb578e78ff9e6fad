#include "formula/merge.h"

#include "base/text.h"
#include "formula/compiler.h"

namespace brynd::formula {

namespace {

// A column of the formula being made, and where its code comes from.
struct Source {
  std::string_view name;
  const Program* program = nullptr;  // null: the item of that name
  Part part;
};

Source* FindColumn(std::vector<Source>& columns, std::string_view name) {
  for (Source& column : columns)
    if (EqualFold(column.name, name)) return &column;
  return nullptr;
}

Source* FindOrAdd(std::vector<Source>& columns, std::string_view name) {
  if (Source* column = FindColumn(columns, name)) return column;
  columns.push_back({name, nullptr, {}});
  return &columns.back();
}

std::vector<Source> ColumnsOf(const Program& program) {
  std::vector<Source> columns;
  for (const Column& column : program.Columns()) {
    const bool is_item = column.part.begin == column.part.end;
    columns.push_back({program.Names()[column.name], is_item ? nullptr : &program, column.part});
  }
  return columns;
}

// Copies instructions, giving names and constants the places they have in the new formula.
void CopyPart(const Program& program, Part part, CodeWriter* writer) {
  for (uint32_t offset = part.begin; offset < part.end;) {
    Instruction instruction;
    if (!ReadInstruction(program.CodeBytes(), offset, &instruction)) Fail(status::kFormulaBad);
    const size_t start = writer->Here();
    writer->AppendCode(program.CodeBytes().subspan(offset, instruction.next - offset));
    size_t operand = start + 1;
    for (const char* letter = instruction.row->operands; *letter != 0; ++letter) {
      if (*letter == 'n') StoreU16(writer->CodeAt(operand), writer->Name(program.Names()[instruction.name]));
      if (*letter == 'c') {
        const std::string_view text = program.TextConstant(instruction.constant, instruction.length);
        StoreU16(writer->CodeAt(operand), writer->Constant(text));
      }
      operand += OperandBytes(*letter);
    }
    offset = instruction.next;
  }
}

EngStatus Build(const Program& main, uint16_t more_flags, const std::vector<Source>& columns,
                std::vector<std::byte>* merged) {
  CodeWriter writer;
  writer.AddFlags(static_cast<uint16_t>(main.Flags() | more_flags));
  CopyPart(main, main.Main(), &writer);
  writer.SetMainBytes(writer.Here());
  if (main.OwnName() != kNoName) writer.SetOwnName(writer.Name(main.Names()[main.OwnName()]));
  for (const Source& column : columns) {
    const size_t begin = writer.Here();
    if (column.program != nullptr) CopyPart(*column.program, column.part, &writer);
    writer.AddColumn(writer.Name(column.name), begin, writer.Here() - begin);
    if (!writer.Fits()) return status::kFormulaTooLong;
  }
  return writer.Assemble(merged);
}

}  // namespace

EngStatus AddSummaryItem(const Program& formula, std::string_view name, std::vector<std::byte>* merged) {
  if (name.empty() || name.size() > kNameBytesMax) return status::kBadItemName;
  std::vector<Source> columns = ColumnsOf(formula);
  FindOrAdd(columns, name);
  return Build(formula, 0, columns, merged);
}

EngStatus Merge(const Program& source, const Program& selection, std::vector<std::byte>* merged) {
  std::vector<Source> columns = ColumnsOf(selection);
  const bool has_code = source.Main().begin != source.Main().end && !source.HasSelection();
  const bool is_named = source.OwnName() != kNoName;
  if (has_code && is_named)
    *FindOrAdd(columns, source.Names()[source.OwnName()]) = {source.Names()[source.OwnName()], &source,
                                                             source.Main()};
  bool is_first = has_code && !is_named;
  for (const Source& column : ColumnsOf(source)) {
    Source* target = FindOrAdd(columns, column.name);
    if (is_first)
      *target = {column.name, &source, source.Main()};
    else if (column.program != nullptr)
      *target = column;
    is_first = false;
  }
  return Build(selection, source.Flags() & ~kFlagSelection, columns, merged);
}

}  // namespace brynd::formula
