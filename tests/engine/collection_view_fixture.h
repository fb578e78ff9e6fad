// Views made and read through the boundary, beside a plain model of their rows.
#ifndef TESTS_ENGINE_COLLECTION_VIEW_FIXTURE_H
#define TESTS_ENGINE_COLLECTION_VIEW_FIXTURE_H

#include <string>
#include <vector>

#include "collection/collection.h"
#include "engine/collection_model.h"
#include "engine/note_fixture.h"
#include "engine/test_random.h"

struct ViewColumn {
  std::string item;     // its name in the summary
  std::string formula;  // empty: the item itself
  uint16_t flags = 0;   // 1 sorted, 2 categorised, 4 descending
  uint8_t subtotal = 0;
};

struct ReadRow {
  uint32_t id = 0;
  uint16_t note_class = 0;
  uint32_t siblings = 0, children = 0, descendants = 0;
  uint16_t any_unread = 0, indent = 0;
  std::vector<uint32_t> tumbler;
  std::vector<std::string> values;  // type word first
};

class ViewFixture : public NoteFixture {
 protected:
  static constexpr uint32_t kAllFields = 0x4 | 0x1 | 0x8 | 0x10 | 0x20 | 0x40 | 0x80 | 0x4000 | 0x2000;

  static EngMem CompileFor(const std::string& item, const std::string& text) {
    EngMem formula = 0;
    EXPECT_EQ(0, EngFormulaCompile(item.empty() ? nullptr : item.data(), static_cast<uint16_t>(item.size()),
                                   text.data(), static_cast<uint16_t>(text.size()), &formula, nullptr,
                                   nullptr, nullptr, nullptr, nullptr, nullptr))
        << text;
    return formula;
  }

  // The merged formula of a view.
  static std::string FormulaOf(const std::string& selection, const std::vector<ViewColumn>& columns,
                               bool responses) {
    const EngMem whole = CompileFor("", selection);
    for (const ViewColumn& column : columns) {
      EXPECT_EQ(0,
                EngFormulaSummaryItem(whole, column.item.data(), static_cast<uint16_t>(column.item.size())));
      if (column.formula.empty()) continue;
      const EngMem part = CompileFor(column.item, column.formula);
      EXPECT_EQ(0, EngFormulaMerge(part, whole));
      EngMemFree(part);
    }
    if (responses) {
      EXPECT_EQ(0, EngFormulaSummaryItem(whole, "$Conflict", 9));
      EXPECT_EQ(0, EngFormulaSummaryItem(whole, "$REF", 4));
    }
    uint16_t bytes = 0;
    EXPECT_EQ(0, EngFormulaSizeGet(whole, &bytes));
    const std::string stored(static_cast<const char*>(EngMemLock(whole)), bytes);
    EngMemFree(whole);
    return stored;
  }

  static std::string ViewFormat(const std::vector<ViewColumn>& columns) {
    brynd::ByteBuilder out;
    out.U16(1);
    out.U16(static_cast<uint16_t>(columns.size()));
    for (int i = 0; i < 3; ++i) out.U16(0);
    for (const ViewColumn& column : columns) {
      out.U16(0x4356);
      out.U16(column.flags);
      out.U16(static_cast<uint16_t>(column.item.size()));
      for (int i = 0; i < 4; ++i) out.U16(0);  // title, formula, constant, width
      out.U32(0);
      out.U16(static_cast<uint16_t>(column.subtotal << 2));
      for (int i = 0; i < 6; ++i) out.U16(0);
    }
    for (const ViewColumn& column : columns) out.Text(column.item);
    out.U16(38);
    for (int i = 0; i < 18; ++i) out.U16(0);
    return std::string(brynd::TextOf(out.View()));
  }

  static void AppendRaw(EngNote note, std::string_view name, uint16_t type, std::string_view value) {
    EXPECT_EQ(0, EngItemAppend(note, 4, name.data(), static_cast<uint16_t>(name.size()), type, value.data(),
                               static_cast<uint32_t>(value.size())));
  }

  uint32_t MakeView(const std::vector<ViewColumn>& columns, bool responses = false,
                    const std::string& selection = "SELECT Form = \"Doc\"", const std::string& flags = "") {
    const EngNote note = NewNote();
    const uint16_t view_class = BRCLASS_VIEW;
    EXPECT_EQ(0, EngNoteInfoSet(note, 3, &view_class));
    EXPECT_EQ(0, AppendText(note, "$TITLE", "A view"));
    EXPECT_EQ(0, AppendText(note, "$FormulaClass", "1"));
    if (!flags.empty()) {
      EXPECT_EQ(0, AppendText(note, "$Flags", flags));
    }
    AppendRaw(note, "$Formula", BRTYPE_FORMULA, FormulaOf(selection, columns, responses));
    AppendRaw(note, "$ViewFormat", 5, ViewFormat(columns));
    EXPECT_EQ(0, EngNoteUpdate(note, 0));
    const uint32_t id = IdOf(note);
    EXPECT_EQ(0, EngNoteClose(note));
    return id;
  }

  static std::vector<ViewColumn> ColumnsOf(const ModelView& view) {
    std::vector<ViewColumn> columns;
    if (view.category_count > 0)
      columns.push_back({"$0001", "First", static_cast<uint16_t>(3 | (view.first_descending ? 4 : 0)), 0});
    if (view.category_count > 1) columns.push_back({"Second", "", 3, 0});
    columns.push_back({"$0003", "Key", static_cast<uint16_t>(1 | (view.key_descending ? 4 : 0)), 0});
    columns.push_back({"Number", "", 0, view.total_kind});
    return columns;
  }

  static void SetList(EngNote note, std::string_view name, const std::vector<std::string>& values) {
    if (values.empty()) return;
    brynd::ByteBuilder out;
    out.U16(static_cast<uint16_t>(values.size()));
    for (const std::string& value : values) out.U16(static_cast<uint16_t>(value.size()));
    for (const std::string& value : values) out.Text(value);
    AppendRaw(note, name, BRTYPE_TEXT_LIST, brynd::TextOf(out.View()));
  }

  // Stores a document, a new one when its id is 0.
  void StoreDocument(ModelDocument* document, uint16_t update_word = 4) {
    const EngNote note = document->id == 0 ? NewNote() : OpenNote(document->id);
    for (const char* name : {"Form", "First", "Second", "Key", "Number", "$REF"})
      (void)EngItemDelete(note, name, static_cast<uint16_t>(std::string_view(name).size()));
    EXPECT_EQ(0, AppendText(note, "Form", "Doc"));
    SetList(note, "First", document->first);
    SetList(note, "Second", document->second);
    EXPECT_EQ(0, AppendText(note, "Key", document->key));
    if (document->number)
      AppendRaw(note, "Number", BRTYPE_NUMBER, {reinterpret_cast<const char*>(&*document->number), 8});
    if (document->parent != 0) {
      const UNIVERSALNOTEID parent = unids_[document->parent];
      std::string reference("\x01\0", 2);
      reference.append(reinterpret_cast<const char*>(&parent), sizeof parent);
      AppendRaw(note, "$REF", 4, reference);
    }
    EXPECT_EQ(0, EngNoteUpdate(note, update_word));
    document->id = IdOf(note);
    unids_[document->id] = brynd::UnidOf(OriginatorOf(note));
    EXPECT_EQ(0, EngNoteClose(note));
  }
  std::map<uint32_t, UNIVERSALNOTEID> unids_;  // of documents, deleted ones too

  EngCollection OpenView(uint32_t view, uint16_t flags = 0, EngIdTable unread = 0) {
    EngCollection collection = 0;
    EXPECT_EQ(
        0, EngCollectionOpen(db_, db_, view, flags, unread, &collection, nullptr, nullptr, nullptr, nullptr));
    return collection;
  }

  static COLLECTIONPOSITION At(const std::vector<uint32_t>& tumbler) {
    COLLECTIONPOSITION position{};
    position.Level = static_cast<uint16_t>(tumbler.empty() ? 0 : tumbler.size() - 1);
    for (size_t i = 0; i < tumbler.size(); ++i) position.Tumbler[i] = tumbler[i];
    return position;
  }
  static std::vector<uint32_t> TumblerOf(const COLLECTIONPOSITION& position) {
    std::vector<uint32_t> tumbler;
    for (uint32_t i = 0; i <= position.Level; ++i) {
      uint32_t ordinal;
      std::memcpy(&ordinal, reinterpret_cast<const char*>(&position) + 4 + 4 * i, 4);
      tumbler.push_back(ordinal);
    }
    return tumbler;
  }

  static ReadRow TakeRow(brynd::ByteReader& in) {
    ReadRow row;
    row.id = in.U32();
    row.note_class = in.U16();
    row.siblings = in.U32();
    row.children = in.U32();
    row.descendants = in.U32();
    row.any_unread = in.U16();
    row.indent = in.U16();
    const uint16_t level = in.U16();
    EXPECT_EQ(0, in.U16());
    for (uint16_t i = 0; i <= level; ++i) row.tumbler.push_back(in.U32());
    brynd::ByteReader table(in.Take(brynd::LoadU16(in.Address())));
    table.Skip(2);
    std::vector<uint16_t> lengths(table.U16());
    for (uint16_t& length : lengths) length = table.U16();
    for (const uint16_t length : lengths) row.values.emplace_back(table.Text(length));
    EXPECT_FALSE(table.Failed());
    EXPECT_EQ(0u, table.Left());
    return row;
  }

  struct Page {
    EngStatus status = 0;
    std::vector<ReadRow> rows;
    uint32_t skipped = 0;
    uint32_t returned = 0;
    uint16_t signal = 0, bytes = 0;
    COLLECTIONPOSITION position{};
  };
  static Page Read(EngCollection collection, const std::vector<uint32_t>& from, uint16_t skip_navigator,
                   uint32_t skip_count, uint16_t return_navigator, uint32_t return_count) {
    Page page;
    page.position = At(from);
    EngMem memory = 0;
    page.status = EngCollectionRead(collection, &page.position, skip_navigator, skip_count, return_navigator,
                                    return_count, kAllFields, &memory, &page.bytes, &page.skipped,
                                    &page.returned, &page.signal);
    if (memory == 0) return page;
    brynd::ByteReader in(EngMemLock(memory), page.bytes);
    while (in.Left() != 0 && !in.Failed()) page.rows.push_back(TakeRow(in));
    EXPECT_FALSE(in.Failed());
    EXPECT_EQ(page.returned, page.rows.size());
    EngMemFree(memory);
    return page;
  }

  static std::vector<ReadRow> ReadAll(EngCollection collection) {
    std::vector<ReadRow> rows;
    std::vector<uint32_t> from{0};
    for (;;) {
      Page page = Read(collection, from, 1, 1, 1, 0xffffffff);
      EXPECT_EQ(0, page.status);
      rows.insert(rows.end(), page.rows.begin(), page.rows.end());
      if ((page.signal & 0x20) == 0) return rows;
      from = TumblerOf(page.position);
    }
  }

  static ModelRow AsModel(const ReadRow& row, const ModelView& view) {
    ModelRow shown;
    shown.kind = row.id == 0xc0000000 ? "total" : (row.id >> 30) == 2 ? "category" : "document";
    shown.tumbler = row.tumbler;
    shown.siblings = row.siblings;
    shown.children = row.children;
    shown.descendants = row.descendants;
    shown.indent = row.indent;
    const auto key_item = static_cast<size_t>(view.category_count);
    if (shown.kind == "category") {
      EXPECT_EQ(row.tumbler.size() - 1, row.id >> 24 & 0x3f);
      for (size_t i = 0; i < key_item; ++i) {
        if (row.values[i].size() > 2) shown.label = row.values[i].substr(2);
      }
      EXPECT_EQ("", row.values[key_item]);
    } else {
      shown.id = row.id;
      if (shown.kind == "document") shown.label = row.values[key_item].substr(2);
      EXPECT_EQ(shown.kind == "document" ? 1 : 0, row.note_class);
    }
    const std::string& number = row.values[key_item + 1];
    if (view.total_kind != 0 && number.size() == 10) shown.total = brynd::LoadF64(number.data() + 2);
    return shown;
  }

  static std::string Fold(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
  }

  // All rows of a collection are the model's.
  void ExpectRows(EngCollection collection, const Model& model, const ModelView& view) {
    const std::vector<ModelRow> expected = model.Rows();
    const std::vector<ReadRow> rows = ReadAll(collection);
    std::string left, right;
    for (const ModelRow& row : expected) left += Fold(row.Text()) + "\n";
    for (const ReadRow& row : rows) right += Fold(AsModel(row, view).Text()) + "\n";
    ASSERT_EQ(left, right);
  }
};

#endif
