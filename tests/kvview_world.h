// Views for tests: records made byte by byte, public records to make views from, and what is stored of them.
#ifndef KVVIEW_WORLD_H
#define KVVIEW_WORLD_H

#include <gtest/gtest.h>

#include <cstring>
#include <list>
#include <string>
#include <vector>

#include "kit/form_builder.h"
#include "kit/kit.h"
#include "kvdoc_world.h"
#include "kvint.h"

namespace kvview {

using kvdoc::NoteItem;

constexpr uint16_t kTypeViewFormat = 5;

// A member of a packed record, copied from where it lies.
template <typename Member>
Member Plain(Member member) {
  return member;
}

// Sets a member of a packed record, wherever it lies.
template <typename Record, typename Member>
void SetMember(Record* record, Member Record::*member, Member value) {
  std::memcpy(&(record->*member), &value, sizeof value);
}

template <typename Record>
std::string BytesOf(const Record& record) {
  return {reinterpret_cast<const char*>(&record), sizeof record};
}

// A column as it is stored.
struct StoredColumn {
  std::string item_name = "$0001", title = {}, formula = {}, constant = {};
  VIEW_COLUMN_FORMAT record = {};
  VIEW_COLUMN_FORMAT2 second = {};
};

inline StoredColumn Shown(const std::string& title, const std::string& formula, uint16_t flags = 0) {
  StoredColumn column;
  column.title = title;
  column.formula = formula;
  column.record.Flags1 = flags;
  return column;
}

// A value of $ViewFormat. With a signature in the table it is of the newer format.
inline std::string FormatBytes(std::vector<StoredColumn> columns, uint16_t flags, VIEW_TABLE_FORMAT2 table) {
  VIEW_TABLE_FORMAT head{};
  head.Version = 1;
  head.Columns = static_cast<uint16_t>(columns.size());
  head.Flags = flags;
  std::string bytes = BytesOf(head);
  std::string parts;
  for (StoredColumn& column : columns) {
    column.record.Signature = kViewColumnSignature;
    column.record.ItemNameSize = static_cast<uint16_t>(column.item_name.size());
    column.record.TitleSize = static_cast<uint16_t>(column.title.size());
    column.record.FormulaSize = static_cast<uint16_t>(column.formula.size());
    column.record.ConstantValueSize = static_cast<uint16_t>(column.constant.size());
    bytes += BytesOf(column.record);
    parts += column.item_name + column.title + column.formula + column.constant;
  }
  table.Length = sizeof table;
  bytes += parts + BytesOf(table);
  for (StoredColumn& column : columns) {
    column.second.Signature = kViewColumnSignature2;
    if (table.wSig == kViewTableSignature2) bytes += BytesOf(column.second);
  }
  return bytes;
}

inline VIEW_TABLE_FORMAT2 NewTable() {
  VIEW_TABLE_FORMAT2 table{};
  table.wSig = kViewTableSignature2;
  table.LineCount = 1;
  return table;
}

class ViewTest : public kvdoc::DocumentTest {
 protected:
  void SetUp() override {
    DocumentTest::SetUp();
    other_ = OpenDatabase(MakeDatabase("other.qdb"));
  }

  // Text that lives as long as the test, for public records.
  char* Text(const std::string& text) {
    texts_.push_back(text);
    return texts_.back().data();
  }
  static void Put(char* target, const std::string& text) {
    std::memcpy(target, text.c_str(), text.size() + 1);
  }
  static KVVIEW View(const std::string& name, const std::string& menu = "", const std::string& cascade = "") {
    KVVIEW view{};
    view.on_open = view.on_refresh = view.heading = view.row_spacing = 1;
    view.heading_lines = view.row_lines = 1;
    Put(view.name, name);
    Put(view.menu_name, menu);
    Put(view.cascade_name, cascade);
    return view;
  }
  KVCOLUMN Column(const std::string& formula, const std::string& title = "") {
    KVCOLUMN column{};
    column.formula = Text(formula);
    column.type = KVTYPE_TEXT;
    Put(column.title, title);
    return column;
  }
  uint32_t Create(KVVIEW view, std::vector<KVCOLUMN> columns, uint32_t* viewid = nullptr) const {
    columns.reserve(1);
    return KVViewCreate(database_, &view, static_cast<uint32_t>(columns.size()), columns.data(), viewid);
  }
  uint32_t Made(const KVVIEW& view, const std::vector<KVCOLUMN>& columns) const {
    uint32_t viewid = 0;
    EXPECT_EQ(Create(view, columns, &viewid), KVSUCCESS);
    EXPECT_NE(viewid, 0u);
    return viewid;
  }
  uint32_t MadeView(const std::string& name) { return Made(View(name), {Column("Subject", "Subject")}); }

  // A record of the view class whose columns are the bytes.
  uint32_t StoreView(const std::string& title, const std::string& format, const std::string& flags = "Y",
                     std::vector<NoteItem> more = {}) const {
    std::vector<NoteItem> items{{"$TITLE", BRTYPE_TEXT, 4, title},
                                {"$Flags", BRTYPE_TEXT, 4, flags},
                                {"$ViewFormat", kTypeViewFormat, 1, format}};
    items.insert(items.end(), more.begin(), more.end());
    return StoreNote(BRCLASS_VIEW, items);
  }
  uint32_t StoreFolder(const std::string& title) const {
    return StoreView(
        title, FormatBytes({Shown("Subject", kit::CompiledFormula("Subject", "$0001"))}, 0, NewTable()), "F",
        {{"$Formula", BRTYPE_FORMULA, 4, SelectionOf("Subject")}, {"$FormulaClass", BRTYPE_TEXT, 4, "1"}});
  }
  // A selection of all documents that computes one column.
  static std::string SelectionOf(const std::string& column) {
    EngMem selection = 0, formula = 0;
    uint16_t bytes = 0;
    EXPECT_EQ(_KVICompileFormula(nullptr, "SELECT @All", &selection), 0);
    EXPECT_EQ(_KVICompileFormula("$0001", column.c_str(), &formula), 0);
    EXPECT_EQ(EngFormulaSummaryItem(selection, "$0001", 5), 0);
    EXPECT_EQ(EngFormulaMerge(formula, selection), 0);
    EXPECT_EQ(EngFormulaSizeGet(selection, &bytes), 0);
    std::string code;
    {
      const KVLocked block(selection);
      code.assign(block.bytes, bytes);
    }
    EngMemFree(selection);
    EngMemFree(formula);
    return code;
  }

  _VIEWSPEC* SpecOf(uint32_t viewid) const {
    _VIEWSPEC* spec = nullptr;
    EXPECT_EQ(KVIViewGetSpec(Base(), viewid, &spec), KVSUCCESS);
    return spec;
  }
  uint32_t SpecStatus(uint32_t viewid) const {
    _VIEWSPEC* spec = nullptr;
    const uint32_t status = KVIViewGetSpec(Base(), viewid, &spec);
    EXPECT_EQ(spec != nullptr, status == KVSUCCESS);
    return status;
  }
  size_t ListedSpecs() const {
    size_t count = 0;
    for (const _VIEWSPEC* spec = Base()->dbinfo->views; spec != nullptr; spec = spec->next) ++count;
    return count;
  }
  std::string Bytes(uint32_t id, const std::string& name) const {
    const std::vector<NoteItem> items = StoredItems(id, name);
    EXPECT_EQ(items.size(), 1u) << name;
    return items.empty() ? "" : items[0].bytes;
  }
  size_t CountViews() const {
    size_t count = 0;
    const auto callback = [](void* parameter, const SEARCH_MATCH* match, const ITEM_TABLE*) -> EngStatus {
      if (match->SERetFlags & 1) ++*static_cast<size_t*>(parameter);
      return 0;
    };
    EXPECT_EQ(EngDbSearch(EngineDatabase(), 0, nullptr, 0, BRCLASS_PRIVATE | BRCLASS_VIEW, nullptr, callback,
                          &count, nullptr),
              0);
    return count;
  }
  uint16_t ClassOf(uint32_t id) const {
    uint16_t note_class = 0;
    EXPECT_EQ(EngDbIdInfoGet(EngineDatabase(), id, nullptr, nullptr, &note_class), 0);
    return note_class;
  }
  static void SetVersion(uint32_t version) { KVICurrentSession()->kvprog_version = version; }

  uint32_t other_ = 0;

 private:
  std::list<std::string> texts_;
};

// An index that shows a view, as far as views ask for it.
class ShowingIndex {
 public:
  ShowingIndex(_api_session* session, _DATABASE* dbase, _VIEWSPEC* view, _DATABASE* view_dbase = nullptr)
      : session_(session), idx_(KVIAllocate<_INDEX>()) {
    EXPECT_EQ(_KVINewHandle(session, &idx_->index), KVSUCCESS);
    idx_->dbase = dbase;
    idx_->active_view = view;
    idx_->active_view_dbase = view_dbase;
    if (view_dbase != nullptr) view->used_in_index = idx_;
    _KVILinkIndex(session, idx_);
  }
  ~ShowingIndex() {
    if (idx_->active_view_dbase != nullptr) idx_->active_view->used_in_index = nullptr;
    _KVIUnlinkIndex(session_, idx_);
    KVIFree(idx_);
  }
  ShowingIndex(const ShowingIndex&) = delete;
  ShowingIndex& operator=(const ShowingIndex&) = delete;

 private:
  _api_session* session_;
  _INDEX* idx_;
};

}  // namespace kvview

#endif
