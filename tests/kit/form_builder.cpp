#include "kit/form_builder.h"

#include <gtest/gtest.h>

#include <cstring>

namespace kit {

namespace {

void PutWord(std::string* bytes, uint16_t word) {
  bytes->push_back(static_cast<char>(word & 0xff));
  bytes->push_back(static_cast<char>(word >> 8));
}
void PutLong(std::string* bytes, uint32_t word) {
  PutWord(bytes, static_cast<uint16_t>(word & 0xffff));
  PutWord(bytes, static_cast<uint16_t>(word >> 16));
}
template <typename Record>
void PutRecord(std::string* bytes, const Record& record) {
  bytes->append(reinterpret_cast<const char*>(&record), sizeof record);
}
uint16_t Bytes(const std::string& text) { return static_cast<uint16_t>(text.size()); }

// A record with the long header; its length is filled in.
std::string LongRecord(uint16_t signature, const std::string& rest) {
  std::string bytes;
  PutWord(&bytes, signature);
  PutWord(&bytes, static_cast<uint16_t>(rest.size() + 4));
  return bytes + rest;
}

}  // namespace

std::string CompiledFormula(const std::string& text, const std::string& item_name) {
  if (text.empty()) return "";
  EngMem memory = 0;
  uint16_t bytes = 0;
  const EngStatus status =
      EngFormulaCompile(item_name.empty() ? nullptr : item_name.c_str(), Bytes(item_name), text.c_str(),
                        Bytes(text), &memory, &bytes, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(status, 0) << text;
  if (status != 0) return "";
  std::string compiled(static_cast<const char*>(EngMemLock(memory)), bytes);
  EngMemUnlock(memory);
  EngMemFree(memory);
  return compiled;
}

std::string TextListBytes(const std::vector<std::string>& entries) {
  std::string bytes;
  PutWord(&bytes, static_cast<uint16_t>(entries.size()));
  for (const std::string& entry : entries) PutWord(&bytes, Bytes(entry));
  for (const std::string& entry : entries) bytes += entry;
  return bytes;
}

std::string FieldBytes(const FormField& field) {
  const std::string default_code = CompiledFormula(field.default_formula);
  const std::string translation_code = CompiledFormula(field.translation_formula);
  const std::string validation_code = CompiledFormula(field.validation_formula);
  const bool has_keywords = field.signature == kFieldRecord && !field.keywords.empty();
  const std::string keywords = has_keywords ? TextListBytes(field.keywords) : "";
  std::string rest;
  PutWord(&rest, field.flags);
  PutWord(&rest, field.type);
  PutWord(&rest, field.list_delimiters);
  PutRecord(&rest, field.number_format);
  PutRecord(&rest, field.time_format);
  PutLong(&rest, field.font);
  PutWord(&rest, Bytes(default_code));
  PutWord(&rest, Bytes(translation_code));
  PutWord(&rest, 0);
  PutWord(&rest, Bytes(validation_code));
  PutWord(&rest, Bytes(field.name));
  PutWord(&rest, Bytes(field.description));
  if (field.signature == kFieldRecord) PutWord(&rest, Bytes(keywords));
  rest += default_code + translation_code + validation_code + field.name + field.description + keywords;
  return LongRecord(field.signature, rest);
}

std::string HotspotBytes(uint16_t signature, uint16_t hotspot_type, uint32_t flags, const std::string& data) {
  std::string rest;
  PutWord(&rest, hotspot_type);
  PutLong(&rest, flags);
  PutWord(&rest, Bytes(data));
  return LongRecord(signature, rest + data);
}

std::string HotspotEndBytes(uint8_t signature) { return {static_cast<char>(signature), 2}; }

std::string TextBytes(const std::string& text) {
  std::string rest;
  PutLong(&rest, 0x0a000001);
  return LongRecord(0xff85, rest + text);
}

FormBuilder& FormBuilder::Class(uint16_t note_class) {
  class_ = note_class;
  return *this;
}
FormBuilder& FormBuilder::Flags(const std::string& letters) {
  has_flags_ = true;
  flags_ = letters;
  return *this;
}
FormBuilder& FormBuilder::Info(uint16_t form_flags, uint16_t form_flags2, uint16_t color) {
  form_flags_ = form_flags;
  form_flags2_ = form_flags2;
  color_ = color;
  return *this;
}
FormBuilder& FormBuilder::NoInfo() {
  has_info_ = false;
  return *this;
}
FormBuilder& FormBuilder::NoTitle() {
  has_title_ = false;
  return *this;
}
FormBuilder& FormBuilder::WindowTitle(const std::string& formula) {
  window_title_ = formula;
  return *this;
}
FormBuilder& FormBuilder::ConflictAction(const std::string& text) {
  conflict_ = text;
  return *this;
}
FormBuilder& FormBuilder::SubformBegin(const std::string& name, uint32_t flags) {
  return Record(HotspotBytes(kHotspotRecord, kHotspotSubform, flags, name));
}
FormBuilder& FormBuilder::Record(const std::string& bytes) {
  bodies_.back() += bytes;
  if (bytes.size() % 2 != 0) bodies_.back().push_back('\0');
  return *this;
}
FormBuilder& FormBuilder::RawBody(const std::string& bytes) {
  bodies_.back() += bytes;
  return *this;
}
FormBuilder& FormBuilder::NextItem() {
  bodies_.emplace_back();
  return *this;
}
FormBuilder& FormBuilder::NoBody() {
  has_body_ = false;
  return *this;
}
FormBuilder& FormBuilder::Item(const std::string& name, uint16_t type, const std::string& bytes,
                               uint16_t flags) {
  items_.push_back({name, type, bytes, flags});
  return *this;
}

static void Append(EngNote note, const std::string& name, uint16_t type, const std::string& bytes,
                   uint16_t flags = 0) {
  EXPECT_EQ(EngItemAppend(note, flags, name.c_str(), Bytes(name), type, bytes.data(),
                          static_cast<uint32_t>(bytes.size())),
            0)
      << name;
}

void FormBuilder::AppendTo(EngNote note) const {
  if (has_title_) Append(note, "$TITLE", BRTYPE_TEXT, title_, 4);
  if (has_flags_) Append(note, "$Flags", BRTYPE_TEXT, flags_, 4);
  if (has_info_) {
    std::string info{static_cast<char>(0x86), 24};
    for (const uint16_t word : {color_, form_flags_, uint16_t{0}, form_flags2_}) PutWord(&info, word);
    Append(note, "$Info", BRTYPE_COMPOSITE, info + std::string(14, '\0'));
  }
  if (!window_title_.empty()) Append(note, "$WindowTitle", BRTYPE_FORMULA, CompiledFormula(window_title_));
  if (!conflict_.empty()) Append(note, "$ConflictAction", BRTYPE_TEXT, conflict_);
  if (has_body_)
    for (const std::string& body : bodies_) Append(note, "$Body", BRTYPE_COMPOSITE, body);
  for (const MoreItem& item : items_) Append(note, item.name, item.type, item.bytes, item.flags);
}

uint32_t FormBuilder::Store(uint16_t update_word) const {
  EngNote note = 0;
  uint32_t id = 0;
  EXPECT_EQ(EngNoteCreate(database_, &note), 0);
  EXPECT_EQ(EngNoteInfoSet(note, 3, &class_), 0);
  AppendTo(note);
  EXPECT_EQ(EngNoteUpdate(note, update_word), 0);
  EXPECT_EQ(EngNoteInfoGet(note, 1, &id), 0);
  EXPECT_EQ(EngNoteClose(note), 0);
  return id;
}

uint32_t StoreSharedField(EngDb database, const FormField& field, uint16_t update_word) {
  return FormBuilder(database, field.name).Class(BRCLASS_FIELD).NoInfo().Field(field).Store(update_word);
}

}  // namespace kit
