// Documents that are bound to forms, for tests: forms as the engine stores them, and documents made on them.
#ifndef KVDOC_FORMS_H
#define KVDOC_FORMS_H

#include "kit/form_builder.h"
#include "kvdoc_world.h"

namespace kvdoc {

using kit::FormBuilder;
using kit::FormField;

constexpr uint16_t kInDocument = 0x20;       // of a form's first flag word
constexpr uint16_t kAnonymousForm = 0x0100;  // of its second

// Fields by what they are for.
inline FormField Editable(const std::string& name, uint16_t type = BRTYPE_TEXT) {
  return {.name = name, .type = type};
}
inline FormField Defaulted(const std::string& name, const std::string& formula, uint16_t type = BRTYPE_TEXT) {
  return {.name = name, .type = type, .default_formula = formula};
}
inline FormField Translated(const std::string& name, const std::string& formula,
                            uint16_t type = BRTYPE_TEXT) {
  return {.name = name, .type = type, .translation_formula = formula};
}
inline FormField Validated(const std::string& name, const std::string& formula, uint16_t type = BRTYPE_TEXT) {
  return {.name = name, .type = type, .validation_formula = formula};
}
inline FormField Computed(const std::string& name, const std::string& formula, uint16_t type = BRTYPE_TEXT) {
  return {.name = name, .type = type, .flags = kit::kFieldFlagComputed, .default_formula = formula};
}
inline FormField Display(const std::string& name, const std::string& formula, uint16_t type = BRTYPE_TEXT) {
  return {.name = name, .type = type, .flags = kit::kFieldFlagDisplay, .default_formula = formula};
}

class BoundTest : public DocumentTest {
 protected:
  void SetUp() override {
    DocumentTest::SetUp();
    SetDatabaseBool(database_, KVPROP_DB_STRICT_BIND, 1);
    SetDatabaseBool(database_, KVPROP_DB_READ_SUBF_FIELDS, 1);
  }

  FormBuilder Form(const std::string& title) const { return FormBuilder(EngineDatabase(), title); }
  // A form with two editable fields: a text and a number.
  uint32_t StoreMemo(const std::string& title = "Memo") const {
    return Form(title).Field(Editable("Subject")).Field(Editable("Count", BRTYPE_NUMBER)).Store();
  }

  uint32_t CreateOn(uint32_t formid) const {
    uint32_t document = 0;
    EXPECT_EQ(KVDocumentCreate(database_, formid, &document), KVSUCCESS);
    return document;
  }
  // Saves and closes a document; its id.
  static uint32_t Keep(uint32_t document) {
    EXPECT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
    const uint32_t docid = Record(document)->docid;
    EXPECT_EQ(KVDocumentClose(document, 0), KVSUCCESS);
    return docid;
  }
  static uint32_t Bind(uint32_t document, int32_t on) {
    return KVDocumentSetProperty(document, KVPROP_DOC_STRICT_BIND, &on);
  }
  static uint32_t SetCompute(uint32_t document, int32_t on) {
    return KVDocumentSetProperty(document, KVPROP_DOC_STRICT_BIND_COMPUTE, &on);
  }
  template <typename Value = int32_t>
  static Value Get(uint32_t document, int32_t property) {
    Value value{};
    EXPECT_EQ(KVDocumentGetProperty(document, property, &value), KVSUCCESS) << property;
    return value;
  }
  // The names in an open note, in order.
  static std::vector<std::string> NamesIn(EngNote note) {
    std::vector<std::string> names;
    for (const NoteItem& item : ItemsOf(note)) names.push_back(item.name);
    return names;
  }
  // Text of the only item of a name in an open note; "(none)" without one.
  static std::string TextIn(EngNote note, const std::string& name) {
    const std::vector<NoteItem> items = ItemsOf(note, name);
    if (items.empty()) return "(none)";
    EXPECT_EQ(items.size(), 1u) << name;
    EXPECT_EQ(items.front().type, BRTYPE_TEXT) << name;
    return items.front().bytes;
  }
  std::string StoredText(uint32_t docid, const std::string& name) const {
    EngNote note = 0;
    EXPECT_EQ(EngNoteOpen(EngineDatabase(), docid, 0, &note), 0);
    const std::string text = TextIn(note, name);
    EXPECT_EQ(EngNoteClose(note), 0);
    return text;
  }
  // Closes and opens the database, so that nothing is cached.
  void Reopen() {
    ASSERT_EQ(KVDatabaseClose(database_, 0), KVSUCCESS);
    database_ = OpenDatabase(path_);
    SetDatabaseBool(database_, KVPROP_DB_STRICT_BIND, 1);
    SetDatabaseBool(database_, KVPROP_DB_READ_SUBF_FIELDS, 1);
  }
};

}  // namespace kvdoc

#endif
