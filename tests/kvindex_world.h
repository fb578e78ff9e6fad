// Indexes for tests: documents, a view of them made byte by byte, and what walking an index gives.
#ifndef KVINDEX_WORLD_H
#define KVINDEX_WORLD_H

#include <string>
#include <vector>

#include "kvdoc_world.h"

namespace kvindex {

constexpr uint16_t kEngineFailure = kvdoc::kEngineFailure;

struct Column {
  std::string item;
  uint16_t flags = 0;  // 1 sorted, 2 categorised
  uint8_t subtotal = 0;
};

// One row as a move tells it.
struct Row {
  uint32_t docid;
  uint32_t indent;
  bool operator==(const Row&) const = default;
};
inline void PrintTo(const Row& row, std::ostream* stream) {
  *stream << std::hex << row.docid << "/" << std::dec << row.indent;
}

class IndexTest : public kvdoc::DocumentTest {
 protected:
  void SetUp() override {
    kvdoc::DocumentTest::SetUp();
    ASSERT_EQ(KVIndexOpen(database_, &index_), KVSUCCESS);
  }
  _INDEX* Index() const { return _GetIndex(session_, index_); }

  // ---- Documents

  uint32_t Store(const std::string& category, const std::string& key, const std::string& form = "") const {
    const uint32_t document = New();
    if (!category.empty()) PutText(document, "Category", category);
    PutText(document, "Key", key);
    if (!form.empty()) PutText(document, "Form", form);
    EXPECT_EQ(KVDocumentSave(document, KVDOCWRITE_NOCOMMIT), KVSUCCESS);
    const uint32_t docid = kvdoc::Record(document)->docid;
    EXPECT_EQ(KVDocumentClose(document, 0), KVSUCCESS);
    return docid;
  }
  std::vector<uint32_t> StoreMany(uint32_t count) const {
    std::vector<uint32_t> docids;
    for (uint32_t i = 0; i < count; ++i) docids.push_back(Store("", "key " + std::to_string(1000 + i)));
    return docids;
  }
  uint32_t Search(const std::string& formula, uint32_t formid = 0) const {
    std::string text = formula;
    return KVIndexSearch(index_, text.data(), formid, nullptr);
  }

  // ---- Views

  static EngMem Compile(const std::string& text) {
    EngMem formula = 0;
    EXPECT_EQ(EngFormulaCompile(nullptr, 0, text.data(), static_cast<uint16_t>(text.size()), &formula,
                                nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              0);
    return formula;
  }
  static std::string ViewFormula(const std::string& selection, const std::vector<Column>& columns) {
    const EngMem whole = Compile(selection);
    for (const Column& column : columns)
      EXPECT_EQ(EngFormulaSummaryItem(whole, column.item.data(), static_cast<uint16_t>(column.item.size())),
                0);
    uint16_t bytes = 0;
    EXPECT_EQ(EngFormulaSizeGet(whole, &bytes), 0);
    const std::string stored(static_cast<const char*>(EngMemLock(whole)), bytes);
    EngMemUnlock(whole);
    EngMemFree(whole);
    return stored;
  }
  static void PutWord(std::string* bytes, uint16_t word) {
    bytes->append(reinterpret_cast<const char*>(&word), sizeof word);
  }
  static std::string ViewFormat(const std::vector<Column>& columns) {
    std::string bytes;
    PutWord(&bytes, 1);
    PutWord(&bytes, static_cast<uint16_t>(columns.size()));
    bytes.append(6, 0);
    for (const Column& column : columns) {
      PutWord(&bytes, 0x4356);
      PutWord(&bytes, column.flags);
      PutWord(&bytes, static_cast<uint16_t>(column.item.size()));
      bytes.append(12, 0);  // title, formula, constant, width, font
      PutWord(&bytes, static_cast<uint16_t>(column.subtotal << 2));
      bytes.append(12, 0);
    }
    for (const Column& column : columns) bytes += column.item;
    PutWord(&bytes, 38);
    bytes.append(36, 0);
    return bytes;
  }
  uint32_t MakeViewIn(EngDb database, const std::vector<Column>& columns, const std::string& flags,
                      const std::string& selection) const {
    EngNote note = 0;
    uint32_t id = 0;
    const uint16_t note_class = BRCLASS_VIEW;
    EXPECT_EQ(EngNoteCreate(database, &note), 0);
    EXPECT_EQ(EngNoteInfoSet(note, 3, &note_class), 0);
    AppendText(note, "$TITLE", "A view");
    AppendText(note, "$FormulaClass", "1");
    if (!flags.empty()) AppendText(note, "$Flags", flags);
    Append(note, {"$Formula", BRTYPE_FORMULA, 4, ViewFormula(selection, columns)});
    Append(note, {"$ViewFormat", 5, 4, ViewFormat(columns)});
    EXPECT_EQ(EngNoteUpdate(note, 0), 0);
    EXPECT_EQ(EngNoteInfoGet(note, 1, &id), 0);
    EXPECT_EQ(EngNoteClose(note), 0);
    return id;
  }
  uint32_t MakeView(const std::vector<Column>& columns, const std::string& flags = "") const {
    return MakeViewIn(EngineDatabase(), columns, flags, "SELECT @All");
  }
  static std::vector<Column> CategoryAndKey(uint8_t subtotal = 0) {
    return {{"Category", 3, 0}, {"Key", 1, subtotal}};
  }
  // Two categories: one with two documents, one with one.
  void OpenCategories(uint32_t flags = 0, uint8_t subtotal = 0) {
    docids_ = {Store("Fruit", "apple"), Store("Fruit", "pear"), Store("Tools", "saw")};
    view_ = MakeView(CategoryAndKey(subtotal));
    ASSERT_EQ(KVIndexOpenView(index_, 0, view_, flags), KVSUCCESS);
  }
  std::vector<Row> AllOfCategories() const {
    return {{KVDOCID_CATEGORY, 0}, {docids_[0], 0}, {docids_[1], 0}, {KVDOCID_CATEGORY, 0}, {docids_[2], 0}};
  }

  // ---- Moves

  uint32_t Go(int32_t direction, uint32_t nav_flags = 0) const {
    return KVIndexNavigate(index_, direction, nav_flags, nullptr, nullptr);
  }
  uint32_t IdAt(int32_t direction, uint32_t nav_flags = 0) const {
    uint32_t docid = 0;
    EXPECT_EQ(KVIndexNavigate(index_, direction, nav_flags, &docid, nullptr), KVSUCCESS);
    return docid;
  }
  std::vector<Row> Rows(int32_t direction = KVNAV_NEXT, uint32_t nav_flags = 0) const {
    std::vector<Row> rows;
    Row row{};
    uint32_t status;
    while ((status = KVIndexNavigate(index_, direction, nav_flags, &row.docid, &row.indent)) == KVSUCCESS &&
           rows.size() < 10000)
      rows.push_back(row);
    EXPECT_EQ(status, KVFAIL_END_OF_DATA);
    return rows;
  }
  // Documents alone: their indents stand for what the engine tells of categories above them.
  static std::vector<uint32_t> IdsOf(const std::vector<Row>& rows) {
    std::vector<uint32_t> ids;
    for (const Row& row : rows) ids.push_back(row.docid);
    return ids;
  }
  uint32_t Position() const { return KVIndexGetPosition(index_); }
  std::string Dotted(uint32_t length = 0) const {
    char position[400] = "unset";
    EXPECT_EQ(KVIndexGetViewPosition(index_, length, position), KVSUCCESS);
    return position;
  }

  uint32_t index_ = 0;
  uint32_t view_ = 0;
  std::vector<uint32_t> docids_;
};

}  // namespace kvindex

#endif
