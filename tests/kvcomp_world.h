// Composites for tests: stored records made by hand, items that hold them, and what a composite holds, read
// record by record.
#ifndef KVCOMP_WORLD_H
#define KVCOMP_WORLD_H

#include "kvdoc_world.h"

namespace kvcomp {

using kvdoc::NoteItem;

// ---- Stored records, with the pad byte of odd ones

inline std::string Padded(std::string record) {
  if (record.size() % 2 != 0) record += '\0';
  return record;
}
inline std::string Word(uint32_t value) {
  return {static_cast<char>(value & 0xff), static_cast<char>(value >> 8 & 0xff)};
}
inline std::string Long(uint32_t value) { return Word(value & 0xffff) + Word(value >> 16); }

// A record with a head of each form and any bytes behind it.
inline std::string ShortRecord(uint8_t signature, const std::string& rest) {
  return std::string{static_cast<char>(signature), static_cast<char>(2 + rest.size())} + rest;
}
inline std::string WordRecord(uint16_t signature, const std::string& rest) {
  return Word(signature) + Word(static_cast<uint32_t>(4 + rest.size())) + rest;
}
inline std::string LongRecord(uint16_t signature, const std::string& rest) {
  return Word(signature) + Long(static_cast<uint32_t>(6 + rest.size())) + rest;
}
inline std::string TextRecord(const std::string& text, uint32_t font = 0x0a000001) {
  return WordRecord(kCdText, Long(font) + text);
}
inline std::string Paragraph() { return ShortRecord(kCdParagraph, ""); }
inline std::string PabRef(uint32_t pabid) { return ShortRecord(kCdPabReference, Word(pabid)); }

inline std::string Joined(const std::vector<std::string>& records) {
  std::string run;
  for (const std::string& record : records) run += Padded(record);
  return run;
}

class CompositeTest : public kvdoc::DocumentTest {
 protected:
  void SetUp() override {
    DocumentTest::SetUp();
    document_ = New();
    note_ = NoteOf(document_);
  }

  // Adds an item of records to the open note, past the library.
  void AppendRun(const std::string& run, const std::string& name = "Body") {
    Append(note_, {name, BRTYPE_COMPOSITE, 0, run});
  }
  void AppendItem(const std::vector<std::string>& records, const std::string& name = "Body") {
    AppendRun(Joined(records), name);
  }
  uint32_t OpenBody(const char* name = "Body") const {
    uint32_t composite = 0;
    EXPECT_EQ(KVCompositeOpen(document_, name, &composite), KVSUCCESS);
    return composite;
  }
  uint32_t Create(const char* name = nullptr) const {
    uint32_t composite = 0;
    EXPECT_EQ(KVCompositeCreate(document_, name, &composite), KVSUCCESS);
    return composite;
  }
  static _COMPOSITE* CompOf(uint32_t composite) { return _GetComposite(KVICurrentSession(), composite); }
  static uint32_t NodeCount(uint32_t composite) {
    uint32_t count = 0;
    for (const _COMPNODE* node = CompOf(composite)->nodelist; node != nullptr; node = node->next) ++count;
    return count;
  }

  static std::string RecordAt(uint32_t composite, uint32_t index) {
    int32_t cdtype = KVCDTYPE_UNKNOWN;
    KVCDUNKNOWN record{};
    const uint32_t status = KVCDRecordGetPointer(composite, index, &cdtype, &record);
    EXPECT_EQ(status, KVSUCCESS) << "record " << index;
    return status == KVSUCCESS ? std::string(record.buffer, record.length) : std::string();
  }
  static std::vector<std::string> Records(uint32_t composite) {
    std::vector<std::string> records;
    const uint32_t count = KVCDRecordGetCount(composite);
    for (uint32_t index = 1; index <= count; ++index) records.push_back(RecordAt(composite, index));
    return records;
  }
  static uint32_t InsertText(uint32_t composite, const std::string& text, uint32_t index = 0) {
    KVCDTEXT record{KVFONTSTYLE_DEFAULT, static_cast<uint32_t>(text.size()), const_cast<char*>(text.data())};
    return KVCDRecordInsert(composite, index, KVCDTYPE_TEXT, &record);
  }
  static uint32_t InsertRaw(uint32_t composite, const std::string& bytes, uint32_t index = 0) {
    KVCDUNKNOWN record{static_cast<uint32_t>(bytes.size()), 0, const_cast<char*>(bytes.data())};
    return KVCDRecordInsert(composite, index, KVCDTYPE_UNKNOWN, &record);
  }
  static uint32_t UpdateRaw(uint32_t composite, const std::string& bytes, uint32_t index) {
    KVCDUNKNOWN record{static_cast<uint32_t>(bytes.size()), 0, const_cast<char*>(bytes.data())};
    return KVCDRecordUpdate(composite, index, KVCDTYPE_UNKNOWN, &record);
  }
  static uint32_t List(uint32_t composite, int32_t list, uint32_t* index, int32_t* cdtype = nullptr) {
    int32_t any = 0;
    return KVCDRecordList(composite, list, cdtype != nullptr ? cdtype : &any, index);
  }
  // The number that a listing gives, 0 for none.
  static uint32_t Listed(uint32_t composite, int32_t list) {
    uint32_t index = 0;
    (void)List(composite, list, &index);
    return index;
  }
  // The items of a name in the open note, without their type words.
  std::vector<std::string> Items(const std::string& name = "Body") const {
    std::vector<std::string> items;
    for (const NoteItem& item : kvdoc::ItemsOf(note_, name)) items.push_back(item.bytes);
    return items;
  }

  uint32_t document_ = 0;
  EngNote note_ = 0;
};

}  // namespace kvcomp

#endif
