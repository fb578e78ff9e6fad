#include "formula/compiler.h"

#include <cmath>

#include "formula/parser.h"
#include "formula/program.h"

namespace brynd::formula {

void CodeWriter::EmitText(Op op, std::string_view text) {
  const uint16_t offset = Constant(text);
  Emit(op);
  code_.U16(offset);
  code_.U16(static_cast<uint16_t>(text.size()));
}

void CodeWriter::EmitNumber(double number) {
  const double whole = std::trunc(number);
  if (whole == number && std::abs(whole) <= 32767 && !std::signbit(number)) {
    Emit(Op::kInteger);
    code_.U16(static_cast<uint16_t>(whole));
    return;
  }
  EmitEight(Op::kNumber, &number);
}

void CodeWriter::EmitFunction(Op op, uint16_t function, size_t count) {
  Emit(op);
  code_.U16(function);
  code_.U8(static_cast<uint8_t>(count));
}

CodeWriter::Jump CodeWriter::EmitJump() {
  const Jump jump{code_.Size(), code_.Size() + 2};
  code_.U16(0);
  return jump;
}

void CodeWriter::EmitJumps(Jump* first, Jump* second) {
  *first = {code_.Size(), code_.Size() + 4};
  *second = {code_.Size() + 2, code_.Size() + 4};
  code_.U32(0);
}

void CodeWriter::EmitBack(size_t target) { code_.U16(static_cast<uint16_t>(code_.Size() + 2 - target)); }

void CodeWriter::Land(const Jump& jump) {
  StoreU16(code_.At(jump.field), static_cast<uint16_t>(Here() - jump.from));
}

uint16_t CodeWriter::Name(std::string_view name) {
  const auto found = name_number_.find(name);
  if (found != name_number_.end()) return found->second;
  const uint16_t number = static_cast<uint16_t>(names_.size());
  names_.emplace_back(name);
  name_number_.emplace(name, number);
  name_bytes_ += 1 + name.size();
  return number;
}

uint16_t CodeWriter::Constant(std::string_view text) {
  const auto found = constant_at_.find(text);
  if (found != constant_at_.end()) return found->second;
  const uint16_t offset = static_cast<uint16_t>(constants_.size());
  constants_ += text;
  constant_at_.emplace(text, offset);
  return offset;
}

bool CodeWriter::Fits() const {
  return kHeaderBytes + columns_.size() * kColumnBytes + code_.Size() + constants_.size() + name_bytes_ +
             kTrailerBytes <=
         kFormulaBytesMax;
}

EngStatus CodeWriter::Assemble(std::vector<std::byte>* compiled) const {
  if (!Fits()) return status::kFormulaTooLong;
  ByteBuilder out;
  for (const size_t word : {size_t{0}, size_t{kMagic}, size_t{flags_}, columns_.size(), main_bytes_,
                            code_.Size(), constants_.size(), names_.size(), name_bytes_, size_t{own_name_}})
    out.U16(static_cast<uint16_t>(word));
  for (const ColumnEntry& column : columns_)
    for (const size_t word : {size_t{column.name}, column.begin, column.bytes})
      out.U16(static_cast<uint16_t>(word));
  out.Put(code_.View());
  out.Text(constants_);
  for (const std::string& name : names_) {
    out.U8(static_cast<uint8_t>(name.size()));
    out.Text(name);
  }
  out.U32(0);
  StoreU16(out.At(0), static_cast<uint16_t>(out.Size()));
  *compiled = out.Release();
  return status::kOk;
}

EngStatus Compile(std::string_view text, const CompileOptions& options, std::vector<std::byte>* compiled,
                  CompileError* error) {
  CodeWriter writer;
  Parser parser(text, &writer, !options.item_name.empty());
  std::vector<std::byte> bytes;
  EngStatus status = parser.Run();
  Place place = parser.ErrorPlace();
  if (status == status::kOk && options.item_name.size() > kNameBytesMax) status = status::kFormulaName;
  if (status == status::kOk) {
    if (!options.item_name.empty()) writer.SetOwnName(writer.Name(options.item_name));
    writer.SetMainBytes(writer.Here());
    status = writer.Assemble(&bytes);
    Program program;
    if (status == status::kOk)
      status = Program::TryLoad(bytes, &program);  // only the depth of its stack can be wrong
    if (status != status::kOk) place = {0, static_cast<uint32_t>(text.size())};
  }
  if (status == status::kOk) {
    *compiled = std::move(bytes);
    return status::kOk;
  }
  error->status = status;
  error->offset = place.offset;
  error->length = place.length;
  LineAndColumn(text, place.offset, &error->line, &error->column);
  return status;
}

}  // namespace brynd::formula
