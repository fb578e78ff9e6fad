// New views as they are stored, item by item, and that the engine makes rows of them.
#include "kvview_world.h"

namespace {

using kit::Answer;
using kit::CompiledFormula;
using kvdoc::kEngineFailure;
using kvview::BytesOf;
using kvview::Plain;
using kvview::ViewTest;

class StoreTest : public ViewTest {
 protected:
  static KVCOLUMN Sorted(KVCOLUMN column, int32_t sort) {
    column.sort = sort;
    return column;
  }
  // One with a value in each member that is stored.
  uint32_t MadeWhole() {
    KVVIEW view = View("Name");
    view.view_flags = KVVIEW_RESPONSES | 0x80;
    view.on_open = 2;
    view.on_refresh = 4;
    view.heading = 3;
    view.unread = 1;
    view.heading_lines = 2;
    view.row_lines = 3;
    view.row_spacing = 4;
    view.background_color = 5;
    view.alt_background_color = 300;
    view.auto_refresh_seconds = 600;
    view.title_border_font = {1, 2, 3, 4};
    view.unread_font = {5, 6, 7, 8};
    view.totals_font = {9, 10, 11, 12};
    KVCOLUMN first = Column("Subject", "A title");
    first.sort = 7;
    first.action = 0x200;
    first.second_sort = 3;
    first.second_sort_col = 2;
    first.width_in_eighths = 80;
    first.font = {13, 14, 15, 16};
    first.heading_font = {17, 18, 19, 20};
    first.justify = 1;
    first.heading_justify = 2;
    first.total = 3;
    first.type = KVTYPE_NUMBERLIST;
    first.format.number.decimal_digits = 2;
    first.format.number.number = 1;
    KVCOLUMN second = Column("@Now");
    second.type = KVTYPE_DATETIME;
    return Made(view, {first, second});
  }
  uint16_t ItemFlags(uint32_t id, const std::string& name) const {
    const auto items = StoredItems(id, name);
    EXPECT_EQ(items.size(), 1u) << name;
    return items.empty() ? uint16_t{0xffff} : items[0].flags;
  }
};

TEST_F(StoreTest, KVIColumnCreateItemName_Numbers_FourUpperCaseDigits) {
  char name[6] = "?????";
  KVIColumnCreateItemName(name, 1);
  EXPECT_STREQ(name, "$0001");
  KVIColumnCreateItemName(name, 0xabcd);
  EXPECT_STREQ(name, "$ABCD");
  KVIColumnCreateItemName(name, 26);
  EXPECT_STREQ(name, "$001A");
}

TEST_F(StoreTest, KVViewCreate_WholeView_ViewFormatByteByByte) {
  const uint32_t id = MadeWhole();
  const std::string code1 = CompiledFormula("Subject", "$0001"), code2 = CompiledFormula("@Now", "$0002");
  VIEW_TABLE_FORMAT head{1, 0, 2, 0, 0x20 | 0x2000 | 0x100 | 0x10 | 2 | 0x80, 0};
  VIEW_COLUMN_FORMAT record1{};
  record1.Signature = 0x4356;
  record1.Flags1 = 7 | 0x200 | 0x3000;
  record1.ItemNameSize = 5;
  record1.TitleSize = 7;
  record1.FormulaSize = static_cast<uint16_t>(code1.size());
  record1.DisplayWidth = 80;
  record1.FontID = {13, 14, 15, 16};
  record1.Flags2 = 1 | 3 << 2 | 2 << 6;
  VIEW_COLUMN_FORMAT record2{};
  record2.Signature = 0x4356;
  record2.ItemNameSize = 5;
  record2.FormulaSize = static_cast<uint16_t>(code2.size());
  record2.FormatDataType = 1;
  const _VIEWSPEC* spec = SpecOf(id);
  record1.NumberFormat = {2, 1, 0, 0};
  record1.TimeFormat = spec->collist[0].format.tfmt;
  record1.ListSep = spec->collist[0].format.listsep;
  record2.NumberFormat = spec->collist[1].format.nfmt;
  record2.TimeFormat = spec->collist[1].format.tfmt;
  record2.ListSep = spec->collist[1].format.listsep;
  VIEW_TABLE_FORMAT2 table{};
  table.Length = 38;
  table.BackgroundColor = static_cast<uint16_t>(EngColorMapToV3(5));
  table.TitleFont = {1, 2, 3, 4};
  table.UnreadFont = {5, 6, 7, 8};
  table.TotalsFont = {9, 10, 11, 12};
  table.AutoUpdateSeconds = 600;
  table.AlternateBackgroundColor = 300;
  table.wSig = 0x2bad;
  table.LineCount = 3;
  table.Spacing = 3;
  table.BackgroundColorExt = 5;
  table.HeaderLineCount = 2;
  VIEW_COLUMN_FORMAT2 more1{};
  more1.Signature = 0x4357;
  more1.HeaderFontID = {17, 18, 19, 20};
  more1.wSecondResortColumnIndex = 1;
  VIEW_COLUMN_FORMAT2 more2{};
  more2.Signature = 0x4357;
  EXPECT_EQ(Bytes(id, "$ViewFormat"), BytesOf(head) + BytesOf(record1) + BytesOf(record2) + "$0001A title" +
                                          code1 + "$0002" + code2 + BytesOf(table) + BytesOf(more1) +
                                          BytesOf(more2));
  EXPECT_EQ(StoredItems(id, "$ViewFormat")[0].type, 5);
  EXPECT_EQ(ItemFlags(id, "$ViewFormat"), 5);
}

TEST_F(StoreTest, KVViewCreate_WholeView_OtherItems) {
  KVVIEW view = View("Name", "Menu", "Cascade");
  view.form_formula = Text("\"Memo\"");
  view.selection_formula = Text("SELECT Form = \"Memo\"");
  view.view_flags = KVVIEW_FLAG_P | KVVIEW_FLAG_D;
  const uint32_t id = Made(view, {Column("Subject")});
  EXPECT_EQ(Bytes(id, "$TITLE"), "Menu\\Cascade|Name");
  EXPECT_EQ(StoredItems(id, "$TITLE")[0].type, BRTYPE_TEXT);
  EXPECT_EQ(Bytes(id, "$Flags"), "dpY");
  EXPECT_EQ(Bytes(id, "$FormulaClass"), "1");
  EXPECT_EQ(ItemFlags(id, "$FormulaClass"), 5);
  EXPECT_EQ(ItemFlags(id, "$Formula"), 5);
  EXPECT_EQ(StoredItems(id, "$Formula")[0].type, BRTYPE_FORMULA);
  EXPECT_EQ(Bytes(id, "$FormFormula"), CompiledFormula("\"Memo\""));
  EXPECT_EQ(ItemFlags(id, "$FormFormula"), 5);
  EXPECT_TRUE(StoredItems(id, "$Collation").empty());
  EXPECT_TRUE(StoredItems(id, "$Totals").empty());
  EXPECT_EQ(ClassOf(id), BRCLASS_VIEW);
  EXPECT_EQ(ListedSpecs(), 0u) << "it is read when it is asked for";
}

TEST_F(StoreTest, KVViewCreate_Letters_ByFlags) {
  KVVIEW view = View("Name");
  view.view_flags = KVVIEW_FLAG_NOT_Y;
  EXPECT_EQ(Bytes(Made(view, {Column("1")}), "$Flags"), std::string(1, 0));
  view = View("Other");
  EXPECT_EQ(Bytes(Made(view, {Column("1")}), "$Flags"), "Y");
}

TEST_F(StoreTest, KVViewCreate_SortedColumns_CollationByteByByte) {
  const uint32_t id = Made(View("Name"), {Sorted(Column("A"), 4), Sorted(Column("B"), 3), Column("C")});
  std::string expected("\x1e\x00\x02\x00\x00\x44", 6);
  expected += std::string("\x00\x66\x07\x00\x00\x05\x00", 7) + std::string("\x01\x66\x00\x05\x00\x05\x00", 7);
  expected += "$0001$0002";
  EXPECT_EQ(Bytes(id, "$Collation"), expected);
  EXPECT_EQ(StoredItems(id, "$Collation")[0].type, 2);
  EXPECT_EQ(ItemFlags(id, "$Collation"), 4);
}

TEST_F(StoreTest, KVViewCreate_SortedColumnsNotLeftmost_RoomStaysZero) {
  const uint32_t id = Made(View("Name"), {Column("A"), Sorted(Column("B"), 1), Sorted(Column("C"), 1)});
  std::string expected("\x1e\x00\x02\x00\x00\x44", 6);
  expected += std::string("\x00\x66\x00\x05\x00\x05\x00", 7) + std::string(7, 0);
  expected += std::string(5, 0) + "$0002";
  EXPECT_EQ(Bytes(id, "$Collation"), expected);
}

TEST_F(StoreTest, KVViewCreate_Totals_DigitForEachColumn) {
  KVCOLUMN column = Column("Number");
  column.total = 5;
  const uint32_t id = Made(View("Name"), {Column("A"), column});
  EXPECT_EQ(Bytes(id, "$Totals"), kvdoc::TextList({"0", "5"}));
  EXPECT_EQ(ItemFlags(id, "$Totals"), 4);
  KVVIEW view;
  ASSERT_EQ(KVViewFetch(database_, id, &view), KVSUCCESS);
  EXPECT_EQ(Plain(view.view_flags) & KVVIEW_TOTALS, uint32_t{KVVIEW_TOTALS});
}

TEST_F(StoreTest, KVViewCreate_SmallSummaryLimit_LargeValuesOutsideIt) {
  Base()->summary_limit = 30;
  const uint32_t id = Made(View("Name"), {Sorted(Column("A"), 1), Sorted(Column("B"), 1)});
  EXPECT_EQ(ItemFlags(id, "$ViewFormat"), 1);
  EXPECT_EQ(ItemFlags(id, "$Collation"), 0) << "30 bytes are not below 30";
  Base()->summary_limit = 31;
  EXPECT_EQ(ItemFlags(Made(View("Other"), {Sorted(Column("A"), 1), Sorted(Column("B"), 1)}), "$Collation"),
            4);
}

TEST_F(StoreTest, KVViewCreate_Formulas_SelectAllColumnsAndMore) {
  KVVIEW view = View("Name");
  view.view_flags = KVVIEW_RESPONSES | KVVIEW_CONFLICTS;
  const uint32_t id = Made(view, {Column("Subject"), Column("1 + 1")});
  SetDatabaseBool(database_, KVPROP_DB_FETCH_DESIGN_CODE, 1);
  ASSERT_EQ(KVViewFetch(database_, id, &view), KVSUCCESS);
  EXPECT_EQ(CompiledFormula(view.selection_formula), CompiledFormula("SELECT @All"));
  KVCOLUMN column;
  ASSERT_EQ(KVColumnFetch(database_, id, 2, &column), KVSUCCESS);
  EXPECT_EQ(CompiledFormula(column.formula, "$0002"), CompiledFormula("1 + 1", "$0002"));
  const std::string formula = Bytes(id, "$Formula");
  for (const char* name : {"$0001", "$0002", "$Conflict", "$REF"})
    EXPECT_NE(formula.find(name), std::string::npos) << name;
}

TEST_F(StoreTest, KVViewCreate_BadFormulas_FormulaErrorNearTheFault) {
  uint32_t id = 77;
  EXPECT_EQ(Create(View("Name"), {Column("Subject + + )")}, &id), KVFAIL_FORMULA);
  EXPECT_EQ(id, 0u);
  EXPECT_EQ(kit::LastError().message.substr(0, 20), "Formula error near '");
  for (char* KVVIEW::*member : {&KVVIEW::selection_formula, &KVVIEW::form_formula}) {
    KVVIEW view = View("Name");
    kvview::SetMember(&view, member, Text(")"));
    EXPECT_EQ(Create(view, {Column("1")}), KVFAIL_FORMULA);
    kvview::SetMember(&view, member, Text(std::string(70000, ' ') + "1"));
    EXPECT_EQ(Create(view, {Column("1")}), KVFAIL_DATA_TOO_LONG);
  }
  EXPECT_EQ(CountViews(), 0u);
}

TEST_F(StoreTest, KVViewCreate_Private_OwnedByTheUser) {
  KVVIEW view = View("Mine");
  view.view_flags = KVVIEW_PRIVATE;
  const uint32_t id = Made(view, {Column("1")});
  EXPECT_EQ(ClassOf(id), BRCLASS_PRIVATE | BRCLASS_VIEW);
  EXPECT_EQ(Bytes(id, "$Flags"), "VY");
  EXPECT_EQ(Bytes(id, "$Authors"), "CN=Test User/O=Kavrin");
  EXPECT_EQ(KVViewLocateByName(database_, "Mine"), id);
  EXPECT_EQ(Create(view, {Column("1")}), KVFAIL_NAME_IN_USE);
  view.view_flags = 0;
  EXPECT_EQ(Create(view, {Column("1")}), KVSUCCESS) << "another name space";
}

TEST_F(StoreTest, KVViewCreate_PrivateWithAccessList_RightNeeded) {
  KVVIEW view = View("Mine");
  view.view_flags = KVVIEW_PRIVATE;
  for (const uint16_t access : {uint16_t{0}, uint16_t{0xffef}}) {
    const Answer answer("EngDbAccessGet", [&](const std::vector<uint64_t>& words) {
      std::memcpy(reinterpret_cast<void*>(words[2]), &access, sizeof access);
      return uint64_t{0};
    });
    EXPECT_EQ(Create(view, {Column("1")}), 0x246u);
  }
  {
    const Answer answer("EngDbAccessGet", kEngineFailure);
    EXPECT_EQ(Create(view, {Column("1")}), kEngineFailure);
  }
  EXPECT_EQ(CountViews(), 0u);
  const Answer answer("EngDbAccessGet", [&](const std::vector<uint64_t>& words) {
    const uint16_t access = 0x10;
    std::memcpy(reinterpret_cast<void*>(words[2]), &access, sizeof access);
    return uint64_t{0};
  });
  EXPECT_EQ(Create(view, {Column("1")}), KVSUCCESS);
}

TEST_F(StoreTest, KVViewCreate_EachEngineCallFails_StatusAndNothingStored) {
  KVVIEW view = View("Name");
  view.view_flags = KVVIEW_PRIVATE | KVVIEW_CONFLICTS | KVVIEW_RESPONSES;
  view.form_formula = Text("1");
  KVCOLUMN column = Sorted(Column("Subject", "T"), 1);
  column.total = 1;
  for (const char* call :
       {"EngNoteCreate", "EngItemTextSet", "EngFormulaSummaryItem", "EngFormulaMerge", "EngFormulaSizeGet",
        "EngItemAppend", "EngUserNameGet", "EngNoteInfoSet", "EngNoteSign", "EngNoteUpdate"})
    for (uint32_t nth = 1;; ++nth) {
      kit::Fault fault = kit::Fault::EngineCall(nth, kEngineFailure, call);
      uint32_t id = 77;
      const uint32_t status = Create(view, {column}, &id);
      fault.Disarm();
      if (!fault.Hit()) {
        EXPECT_EQ(status, KVSUCCESS);
        EXPECT_EQ(EngNoteDelete(EngineDatabase(), id, 0), 0);
        EXPECT_GT(nth, 1u) << call;
        break;
      }
      EXPECT_EQ(status, kEngineFailure) << call << nth;
      EXPECT_EQ(id, 0u);
      EXPECT_EQ(CountViews(), 0u) << call;
    }
}

TEST_F(StoreTest, KVViewCreate_DocumentsInIt_RowsOfTheEngine) {
  StoreDocument("banana");
  StoreDocument("apple");
  const uint32_t id = Made(View("Name"), {Column("1"), Sorted(Column("Subject"), 1)});
  EngCollection collection = 0;
  ASSERT_EQ(EngCollectionOpen(EngineDatabase(), EngineDatabase(), id, 0, 0, &collection, nullptr, nullptr,
                              nullptr, nullptr),
            0);
  COLLECTIONPOSITION position{};
  position.Tumbler[0] = 1;
  EngMem memory = 0;
  uint16_t bytes = 0, signal = 0;
  uint32_t returned = 0;
  ASSERT_EQ(EngCollectionRead(collection, &position, 0, 0, 1, 10, 0x2000, &memory, &bytes, nullptr, &returned,
                              &signal),
            0);
  EXPECT_EQ(returned, 2u);
  std::string rows;
  {
    const KVLocked block(memory);
    rows.assign(block.bytes, bytes);
  }
  EngMemFree(memory);
  EXPECT_LT(rows.find("apple"), rows.find("banana")) << "sorted by the second column";
  EXPECT_EQ(EngCollectionFindName(collection, "banana", 0, &position, &returned), 0);
  EXPECT_EQ(returned, 1u);
  EXPECT_EQ(EngCollectionClose(collection), 0);
}

TEST_F(StoreTest, KVViewCreate_MostColumns_StoredAndReadBack) {
  std::vector<KVCOLUMN> columns(289, Column("Subject"));
  const uint32_t id = Made(View("Wide"), columns);
  EXPECT_EQ(KVColumnGetCount(database_, id), 289u);
}

}  // namespace
