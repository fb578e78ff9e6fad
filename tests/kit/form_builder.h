// Design records for tests: forms, subforms and shared fields as the engine stores them, byte by byte and
// without the library.
#ifndef KIT_FORM_BUILDER_H
#define KIT_FORM_BUILDER_H

#include <cstdint>
#include <string>
#include <vector>

#include "brynd.h"

namespace kit {

constexpr uint16_t kFieldRecord = 0xff8a;
constexpr uint16_t kOldFieldRecord = 0xff84;  // without keywords
constexpr uint16_t kHotspotRecord = 0xffad;
constexpr uint16_t kOldHotspotRecord = 0xffa9;
constexpr uint16_t kHotspotSubform = 14;
constexpr uint16_t kFieldFlagEditable = 0x2;
constexpr uint16_t kFieldFlagDisplay = 0x100;   // computed for display
constexpr uint16_t kFieldFlagComputed = 0x108;  // computed and stored
constexpr uint16_t kFieldFlagShared = 0x800;
constexpr uint16_t kFieldFlagKeywords = 0x200;

// A field of a page. Formulas are texts; they are compiled into the record.
struct FormField {
  std::string name;
  uint16_t type = BRTYPE_TEXT;  // the engine's type word
  uint16_t flags = kFieldFlagEditable;
  std::string default_formula = {};
  std::string translation_formula = {};
  std::string validation_formula = {};
  std::string description = {};
  std::vector<std::string> keywords = {};  // with kFieldFlagKeywords in the flags
  uint16_t list_delimiters = 0x3006;
  NFMT number_format = {};
  TFMT time_format = {};
  uint32_t font = 0x0a000001;
  uint16_t signature = kFieldRecord;
};

// The bytes of one stored record, without a pad byte.
std::string FieldBytes(const FormField& field);
std::string HotspotBytes(uint16_t signature, uint16_t hotspot_type, uint32_t flags, const std::string& data);
std::string HotspotEndBytes(uint8_t signature = 0xae);
std::string TextBytes(const std::string& text);
// Compiled; empty for an empty text, and a test failure for one that does not compile.
std::string CompiledFormula(const std::string& text, const std::string& item_name = "");
std::string TextListBytes(const std::vector<std::string>& entries);

// Gathers a record and stores it. Calls can be chained.
class FormBuilder {
 public:
  FormBuilder(EngDb database, std::string title) : database_(database), title_(std::move(title)) {}

  FormBuilder& Class(uint16_t note_class);
  FormBuilder& Flags(const std::string& letters);  // "$Flags"; none when this is not called
  FormBuilder& Subform() { return Flags("CU3"); }
  FormBuilder& Info(uint16_t form_flags, uint16_t form_flags2 = 0, uint16_t color = 1);
  FormBuilder& NoInfo();
  FormBuilder& NoTitle();
  FormBuilder& WindowTitle(const std::string& formula);
  FormBuilder& ConflictAction(const std::string& text);
  // The page, record after record.
  FormBuilder& Field(const FormField& field) { return Record(FieldBytes(field)); }
  FormBuilder& Text(const std::string& text) { return Record(TextBytes(text)); }
  // A subform in its place: begin, and the end behind the records that come before the next call of End.
  FormBuilder& SubformBegin(const std::string& name, uint32_t flags = 0);
  FormBuilder& End(uint8_t signature = 0xae) { return Record(HotspotEndBytes(signature)); }
  FormBuilder& UseSubform(const std::string& name) { return SubformBegin(name).End(); }
  FormBuilder& Record(const std::string& bytes);   // a pad byte follows an odd length
  FormBuilder& RawBody(const std::string& bytes);  // as they are
  FormBuilder& NextItem();                         // what follows goes into a further "$Body" item
  FormBuilder& NoBody();
  FormBuilder& Item(const std::string& name, uint16_t type, const std::string& bytes, uint16_t flags = 0);

  // Stores the record and gives its id, 0 after a test failure.
  uint32_t Store(uint16_t update_word = 0) const;
  // Appends its items to an open note.
  void AppendTo(EngNote note) const;

 private:
  struct MoreItem {
    std::string name;
    uint16_t type;
    std::string bytes;
    uint16_t flags;
  };
  EngDb database_;
  std::string title_;
  uint16_t class_ = BRCLASS_FORM;
  bool has_flags_ = false, has_info_ = true, has_title_ = true, has_body_ = true;
  std::string flags_;
  uint16_t form_flags_ = 0x80, form_flags2_ = 0, color_ = 1;
  std::string window_title_, conflict_;
  std::vector<std::string> bodies_{""};
  std::vector<MoreItem> items_;
};

// A record that defines a field for all forms of a database.
uint32_t StoreSharedField(EngDb database, const FormField& field, uint16_t update_word = 0);

}  // namespace kit

#endif
