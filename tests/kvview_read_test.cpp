// Views read from their records: both formats byte by byte, damaged ones, and what is told of them.
#include "kvview_world.h"

namespace {

using kit::CompiledFormula;
using kvview::FormatBytes;
using kvview::NewTable;
using kvview::NoteItem;
using kvview::Plain;
using kvview::Shown;
using kvview::StoredColumn;
using kvview::ViewTest;

constexpr KVFONTSTYLE kFont1{1, 2, 3, 4}, kFont2{5, 6, 7, 8}, kFont3{9, 10, 11, 12};

bool operator==(const KVFONTSTYLE& left, const KVFONTSTYLE& right) {
  return std::memcmp(&left, &right, sizeof left) == 0;
}

class ReadTest : public ViewTest {
 protected:
  // A view of the newer format with one of everything.
  uint32_t StoreWhole() {
    StoredColumn first =
        Shown("First", CompiledFormula("Subject", "$0001"), 0x1000 | 0x2000 | 0x300 | 3 | 0x40);
    first.record.DisplayWidth = 80;
    first.record.FontID = kFont1;
    first.record.Flags2 = 1 | 3 << 2 | 2 << 6;
    first.record.NumberFormat = {3, 1, 4, 0};
    first.record.TimeFormat = {1, 1, 2, 2};
    first.record.FormatDataType = 1;
    first.record.ListSep = 0x2004;
    first.second.HeaderFontID = kFont2;
    first.second.wSecondResortColumnIndex = 2;
    StoredColumn second = Shown("", "");
    second.item_name = "Subject";
    StoredColumn third = Shown("Third", "", 0x10 | 0x800);
    third.constant = std::string("\x00\x05", 2) + "fixed\x7f";
    third.record.FormatDataType = 2;
    third.second.ResortToViewUNID = {{{1, 2}}, {{3, 4}}};
    VIEW_TABLE_FORMAT2 table = NewTable();
    table.BackgroundColor = 1;
    table.BackgroundColorExt = 200;
    table.AlternateBackgroundColor = 300;
    table.TitleFont = kFont1;
    table.UnreadFont = kFont2;
    table.TotalsFont = kFont3;
    table.AutoUpdateSeconds = 600;
    table.LineCount = 9;
    table.HeaderLineCount = 5;
    table.Spacing = 4;
    return StoreView("Menu\\Cascade|Name",
                     FormatBytes({first, second, third}, 0x20 | 0x1000 | 0x400 | 4 | 0x80, table), "pdV",
                     {{"$Formula", BRTYPE_FORMULA, 4, CompiledFormula("SELECT Form = \"Memo\"")},
                      {"$FormFormula", BRTYPE_FORMULA, 4, CompiledFormula("\"Memo\"")}});
  }
  uint32_t StoreOld() {
    VIEW_TABLE_FORMAT2 table{};
    table.BackgroundColor = 7;
    table.BackgroundColorExt = 200;
    table.AlternateBackgroundColor = 300;
    table.LineCount = 9;
    table.HeaderLineCount = 5;
    table.Spacing = 200;
    return StoreView("Old", FormatBytes({Shown("A", CompiledFormula("1", "$0001"))}, 0, table));
  }
};

// ---- What is read

TEST_F(ReadTest, KVIViewGetSpec_WholeView_EachFieldRead) {
  const uint32_t id = StoreWhole();
  const _VIEWSPEC* spec = SpecOf(id);
  EXPECT_EQ(spec->pdbase, Base());
  EXPECT_EQ(spec->viewid, id);
  EXPECT_EQ(spec->kv_design_flags, KVDESIGN_VIEW);
  EXPECT_EQ(spec->hidden, 0);
  EXPECT_STREQ(spec->name, "Name");
  EXPECT_STREQ(spec->menu_name, "Menu");
  EXPECT_STREQ(spec->cascade_name, "Cascade");
  EXPECT_EQ(spec->namelen, 4);
  EXPECT_EQ(spec->flags, 0xb0010000u | 0x8000000 | 0x14a4);
  EXPECT_EQ(spec->format, kViewFormatNew);
  EXPECT_EQ(spec->col_count, 3u);
  EXPECT_EQ(spec->col_resp_only, 3u);
  EXPECT_EQ(spec->col_summary, 2u);
  EXPECT_EQ(spec->col_leftmost_cat, 1u);
  EXPECT_EQ(spec->height_heading, 5);
  EXPECT_EQ(spec->height_rows, 9);
  EXPECT_EQ(spec->height_row_spacing, 5);
  EXPECT_TRUE(spec->font_title_border == kFont1);
  EXPECT_TRUE(spec->font_unread == kFont2);
  EXPECT_TRUE(spec->font_totals == kFont3);
  EXPECT_EQ(spec->color_bckg, 200);
  EXPECT_EQ(spec->color_alt_bckg, 300);
  EXPECT_EQ(spec->auto_refresh_seconds, 600);
  EXPECT_EQ(spec->index, 0u);
  EXPECT_EQ(spec->used_in_index, nullptr);
  const std::string selection = CompiledFormula("SELECT Form = \"Memo\"");
  EXPECT_EQ(std::string(spec->selection_formula, selection.size()), selection);
  const std::string form = CompiledFormula("\"Memo\"");
  EXPECT_EQ(std::string(spec->form_formula, form.size()), form);
}

TEST_F(ReadTest, KVIViewGetSpec_WholeView_EachColumnRead) {
  const COLSPEC* columns = SpecOf(StoreWhole())->collist;
  EXPECT_STREQ(columns[0].title, "First");
  EXPECT_EQ(columns[0].flags, 0x3343);
  EXPECT_EQ(columns[0].width, 80);
  EXPECT_TRUE(columns[0].font_data == kFont1);
  EXPECT_TRUE(columns[0].font_heading == kFont2);
  EXPECT_EQ(columns[0].col_2nd_sort, 2);
  EXPECT_EQ(columns[0].cat_level, 0);
  EXPECT_EQ(columns[0].align_data, 1);
  EXPECT_EQ(columns[0].subtotal, 3);
  EXPECT_EQ(columns[0].align_heading, 2);
  EXPECT_EQ(columns[0].type, KVTYPE_DATETIME);
  EXPECT_EQ(columns[0].format.nfmt.Digits, 3);
  EXPECT_EQ(columns[0].format.tfmt.Zone, 2);
  EXPECT_EQ(columns[0].format.listsep, 0x2004);
  const std::string code = CompiledFormula("Subject", "$0001");
  EXPECT_EQ(std::string(columns[0].formula, code.size()), code);
  EXPECT_EQ(columns[0].formula_string, nullptr);
  EXPECT_EQ(columns[0].constant, nullptr);

  EXPECT_EQ(columns[1].title, nullptr);
  EXPECT_EQ(columns[1].type, KVTYPE_NUMBER);
  EXPECT_EQ(columns[1].formula, nullptr);
  EXPECT_STREQ(columns[1].formula_string, "Subject");

  EXPECT_EQ(columns[2].type, KVTYPE_TEXT);
  EXPECT_EQ(columns[2].formula_string, nullptr);
  EXPECT_EQ(columns[2].constant_len, 8);
  EXPECT_EQ(std::string(columns[2].constant, 8), std::string("\x00\x05", 2) + "fixed\x7f");
  EXPECT_EQ(columns[2].constant_eval, 1);
  EXPECT_EQ(kvview::Plain(columns[2].view.Note.Innards[1]), 4u);
}

TEST_F(ReadTest, KVIViewGetSpec_OldFormat_OneLineAndNoAlternateColour) {
  const _VIEWSPEC* spec = SpecOf(StoreOld());
  EXPECT_EQ(spec->format, kViewFormatOld);
  EXPECT_EQ(spec->height_heading, 1);
  EXPECT_EQ(spec->height_rows, 1);
  EXPECT_EQ(spec->height_row_spacing, 1);
  EXPECT_EQ(spec->color_bckg, 7);
  EXPECT_EQ(spec->color_alt_bckg, 0);
  EXPECT_EQ(spec->flags, 0u) << "the letter Y is there";
}

TEST_F(ReadTest, KVIViewGetSpec_CategoriesAndHeaderLines_NumberedFromTheLeft) {
  const std::vector<StoredColumn> columns{Shown("a", "", 1), Shown("b", "", 3), Shown("c", "", 3 | 0x10),
                                          Shown("d", "", 0)};
  const _VIEWSPEC* spec = SpecOf(StoreView("View", FormatBytes(columns, 0, NewTable()), ""));
  EXPECT_EQ(spec->height_heading, 1) << "0 lines are read as 1";
  EXPECT_EQ(spec->height_rows, 1);
  EXPECT_EQ(spec->col_leftmost_cat, 2u);
  EXPECT_EQ(spec->col_resp_only, 3u);
  EXPECT_EQ(spec->collist[1].cat_level, 0);
  EXPECT_EQ(spec->collist[2].cat_level, 1);
  EXPECT_EQ(spec->flags, 0u) << "no text of letters sets nothing";
}

TEST_F(ReadTest, KVIViewGetSpec_Constants_SequencesAreTold) {
  const auto eval = [&](const std::string& constant) {
    StoredColumn column = Shown("", "");
    column.constant = constant;
    return SpecOf(StoreView("C", FormatBytes({column}, 0, NewTable())))->collist[0].constant_eval;
  };
  EXPECT_EQ(eval(std::string("\x00\x05", 2) + "a\x7f"), 1);
  EXPECT_EQ(eval(std::string("\x00\x05", 2) + "a"), 0);
  EXPECT_EQ(eval(std::string("\x00\x03", 2) + "1234567\x7f"), 0) << "a number";
  EXPECT_EQ(eval(std::string("\x00\x05", 2)), 0) << "an empty text";
}

TEST_F(ReadTest, KVIViewGetSpec_SecondRecords_EndAtTheFirstOtherSignature) {
  StoredColumn column = Shown("a", "");
  column.second.HeaderFontID = kFont1;
  std::string format = FormatBytes({column, column, column}, 0, NewTable());
  format[format.size() - 2 * sizeof(VIEW_COLUMN_FORMAT2)] = 0;
  const COLSPEC* columns = SpecOf(StoreView("A", format))->collist;
  EXPECT_TRUE(columns[0].font_heading == kFont1);
  EXPECT_FALSE(columns[1].font_heading == kFont1);
  EXPECT_FALSE(columns[2].font_heading == kFont1);
  VIEW_TABLE_FORMAT2 table = NewTable();
  table.Flags1 = 1;
  columns = SpecOf(StoreView("B", FormatBytes({column}, 0, table)))->collist;
  EXPECT_FALSE(columns[0].font_heading == kFont1) << "another layout";
  format = FormatBytes({column}, 0, NewTable());
  columns = SpecOf(StoreView("C", format.substr(0, format.size() - 1)))->collist;
  EXPECT_FALSE(columns[0].font_heading == kFont1) << "cut off";
}

TEST_F(ReadTest, KVIViewGetSpec_HiddenAndPrivate_FlagsTell) {
  const std::string format = FormatBytes({}, 0, NewTable());
  const _VIEWSPEC* hidden = SpecOf(StoreView("(Hidden)", format));
  EXPECT_EQ(hidden->hidden, 1);
  EXPECT_EQ(hidden->flags, KVVIEWSPEC_HIDDEN);
  EXPECT_EQ(hidden->col_count, 0u);
  const uint32_t id = StoreNote(
      0x1008, {{"$TITLE", BRTYPE_TEXT, 4, "Mine"}, {"$ViewFormat", kvview::kTypeViewFormat, 1, format}});
  EXPECT_EQ(SpecOf(id)->flags, KVVIEWSPEC_PRIVATE);
  EXPECT_EQ(SpecOf(id)->kv_design_flags, KVDESIGN_VIEW | KVDESIGN_PRIVATE);
}

TEST_F(ReadTest, KVIViewGetSpec_FormulasOfOtherTypes_LeftOut) {
  const std::string format = FormatBytes({}, 0, NewTable());
  const _VIEWSPEC* spec = SpecOf(StoreView("A", format, "Y", {{"$Formula", BRTYPE_TEXT, 4, "text"}}));
  EXPECT_EQ(spec->selection_formula, nullptr);
  EXPECT_EQ(spec->form_formula, nullptr);
}

TEST_F(ReadTest, KVIViewGetSpec_Twice_SameSpecAndNothingRead) {
  const uint32_t id = StoreOld();
  const _VIEWSPEC* spec = SpecOf(id);
  const kit::Spy spy;
  EXPECT_EQ(SpecOf(id), spec);
  EXPECT_EQ(spy.calls().size(), 0u);
  EXPECT_EQ(ListedSpecs(), 1u);
}

TEST_F(ReadTest, KVIViewGetSpec_HandleCloses_SpecStaysWithTheOther) {
  const uint32_t second = OpenDatabase(path_);
  const uint32_t id = StoreOld();
  _VIEWSPEC* spec = nullptr;
  ASSERT_EQ(KVIViewGetSpec(BaseOf(second), id, &spec), KVSUCCESS);
  EXPECT_EQ(KVDatabaseClose(second, 0), KVSUCCESS);
  EXPECT_EQ(SpecOf(id), spec);
  EXPECT_EQ(spec->pdbase, Base());
}

// ---- What is refused

TEST_F(ReadTest, KVIViewGetSpec_NoView_NoView) {
  EXPECT_EQ(SpecStatus(0), KVFAIL_NO_VIEW);
  EXPECT_EQ(SpecStatus(99999), KVFAIL_NO_VIEW);
  EXPECT_EQ(SpecStatus(StoreDocument()), KVFAIL_NO_VIEW);
  const std::string format = FormatBytes({}, 0, NewTable());
  EXPECT_EQ(SpecStatus(StoreView("Navigator", format, "G")), KVFAIL_NO_VIEW);
  EXPECT_EQ(SpecStatus(StoreView("Folder", format, "F")), KVSUCCESS);
  EXPECT_EQ(SpecStatus(StoreNote(8, {{"$TITLE", BRTYPE_TEXT, 4, "A"}})), KVFAIL_NO_VIEW) << "no columns";
  EXPECT_EQ(SpecStatus(StoreNote(8, {{"$ViewFormat", kvview::kTypeViewFormat, 1, format}})), KVFAIL_NO_VIEW)
      << "no title";
  EXPECT_EQ(SpecStatus(StoreNote(8, {{"$TITLE", BRTYPE_NUMBER, 4, kvdoc::NumberBytes(1)},
                                     {"$ViewFormat", kvview::kTypeViewFormat, 1, format}})),
            KVFAIL_NO_VIEW)
      << "a title that is none";
  EXPECT_EQ(ListedSpecs(), 1u);
}

TEST_F(ReadTest, KVIViewGetSpec_CutAtEachByte_BadFormatOrNoSecondRecords) {
  StoredColumn constant = Shown("Third", "");
  constant.constant = std::string("\x00\x05", 2) + "fixed";
  const std::string format = FormatBytes(
      {Shown("First", CompiledFormula("Subject", "$0001")), Shown("Second", ""), constant}, 0, NewTable());
  const size_t whole = format.size() - 3 * sizeof(VIEW_COLUMN_FORMAT2);
  for (size_t bytes = 0; bytes < format.size(); ++bytes) {
    const uint32_t id = StoreView("View", format.substr(0, bytes));
    EXPECT_EQ(SpecStatus(id), bytes < whole ? KVFAIL_BAD_FORMAT : KVSUCCESS) << bytes;
  }
}

TEST_F(ReadTest, KVIViewGetSpec_DamagedValues_BadFormat) {
  const std::string formula = CompiledFormula("Subject", "$0001");
  const std::string good = FormatBytes({Shown("First", formula)}, 0, NewTable());
  const auto damaged = [&](size_t place, char byte) {
    std::string format = good;
    format[place] = byte;
    return SpecStatus(StoreView("View", format));
  };
  const auto title = static_cast<size_t>(good.find("First"));
  EXPECT_EQ(damaged(0, 1), KVSUCCESS);
  EXPECT_EQ(damaged(10, 0), KVFAIL_BAD_FORMAT) << "signature";
  EXPECT_EQ(damaged(title + 5, 1), KVFAIL_BAD_FORMAT) << "the formula's length, too small";
  EXPECT_EQ(damaged(title + 6, 1), KVFAIL_BAD_FORMAT) << "the formula's length, too large";
  VIEW_TABLE_FORMAT2 table = NewTable();
  table.Spacing = 5;
  EXPECT_EQ(SpecStatus(StoreView("View", FormatBytes({}, 0, table))), KVFAIL_BAD_FORMAT);
  StoredColumn constant = Shown("", "");
  constant.constant = "x";
  EXPECT_EQ(SpecStatus(StoreView("View", FormatBytes({constant}, 0, NewTable()))), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(SpecStatus(StoreView("View", FormatBytes({Shown("", "x")}, 0, NewTable()))), KVFAIL_BAD_FORMAT);
  for (const char* name : {"$Formula", "$FormFormula"})
    for (const std::string& code : {std::string("x"), std::string("\x09\x00xx", 4), std::string()})
      EXPECT_EQ(SpecStatus(StoreView("View", FormatBytes({}, 0, NewTable()), "Y",
                                     {{name, BRTYPE_FORMULA, 4, code}})),
                KVFAIL_BAD_FORMAT)
          << name;
  EXPECT_EQ(
      SpecStatus(StoreNote(8, {{"$TITLE", BRTYPE_TEXT, 4, "A"}, {"$ViewFormat", BRTYPE_TEXT, 1, good}})),
      KVFAIL_BAD_FORMAT);
}

TEST_F(ReadTest, KVIViewGetSpec_ManyColumnsTold_BadFormat) {
  std::string format = FormatBytes({Shown("", "")}, 0, NewTable());
  format[2] = format[3] = '\xff';
  EXPECT_EQ(SpecStatus(StoreView("View", format)), KVFAIL_BAD_FORMAT);
}

TEST_F(ReadTest, KVIViewGetSpec_EachAllocationFails_NoMemoryAndNothingKept) {
  const uint32_t id = StoreWhole();
  uint32_t hits = 0;
  for (uint32_t nth = 1;; ++nth) {
    kit::Fault fault = kit::Fault::Allocation(nth);
    _VIEWSPEC* spec = nullptr;
    const uint32_t status = KVIViewGetSpec(Base(), id, &spec);
    fault.Disarm();
    if (!fault.Hit()) break;
    ++hits;
    EXPECT_TRUE(status == KVFAIL_NO_MEMORY || status == 0x107) << status;
    EXPECT_EQ(ListedSpecs(), 0u);
  }
  EXPECT_GE(hits, 10u);
  EXPECT_EQ(ListedSpecs(), 1u);
}

// ---- What is told

TEST_F(ReadTest, KVViewFetch_WholeView_EachMember) {
  const uint32_t id = StoreWhole();
  KVVIEW view;
  std::memset(static_cast<void*>(&view), 'x', sizeof view);
  ASSERT_EQ(KVViewFetch(database_, id, &view), KVSUCCESS);
  EXPECT_EQ(Plain(view.view_flags), 0xb8010080u);
  EXPECT_EQ(Plain(view.on_open), 2);
  EXPECT_EQ(Plain(view.on_refresh), 3);
  EXPECT_EQ(Plain(view.heading), 2);
  EXPECT_EQ(view.heading_lines, 5);
  EXPECT_EQ(view.row_lines, 9);
  EXPECT_EQ(Plain(view.row_spacing), 5);
  EXPECT_EQ(Plain(view.unread), 2);
  EXPECT_EQ(Plain(view.background_color), 200u);
  EXPECT_EQ(Plain(view.alt_background_color), 300u);
  EXPECT_TRUE(view.title_border_font == kFont1);
  EXPECT_TRUE(view.unread_font == kFont2);
  EXPECT_TRUE(view.totals_font == kFont3);
  EXPECT_EQ(Plain(view.auto_refresh_seconds), 600u);
  EXPECT_EQ(Plain(view.selection_formula), nullptr);
  EXPECT_EQ(Plain(view.form_formula), nullptr);
  EXPECT_STREQ(view.name, "Name");
  EXPECT_STREQ(view.menu_name, "Menu");
  EXPECT_STREQ(view.cascade_name, "Cascade");
}

TEST_F(ReadTest, KVViewFetch_WithDesignCode_TextsMadeOnce) {
  const uint32_t id = StoreWhole();
  SetDatabaseBool(database_, KVPROP_DB_FETCH_DESIGN_CODE, 1);
  KVVIEW view;
  ASSERT_EQ(KVViewFetch(database_, id, &view), KVSUCCESS);
  ASSERT_NE(Plain(view.selection_formula), nullptr);
  EXPECT_EQ(CompiledFormula(view.selection_formula), CompiledFormula("SELECT Form = \"Memo\""));
  EXPECT_EQ(CompiledFormula(view.form_formula), CompiledFormula("\"Memo\""));
  KVVIEW again;
  const kit::Spy spy;
  ASSERT_EQ(KVViewFetch(database_, id, &again), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngFormulaDecompile"), 0u);
  EXPECT_EQ(Plain(again.selection_formula), Plain(view.selection_formula));
}

TEST_F(ReadTest, KVColumnFetch_WholeView_EachMember) {
  const uint32_t id = StoreWhole();
  KVCOLUMN column;
  std::memset(static_cast<void*>(&column), 'x', sizeof column);
  ASSERT_EQ(KVColumnFetch(database_, id, 1, &column), KVSUCCESS);
  EXPECT_EQ(Plain(column.column_flags), 0x40u);
  EXPECT_EQ(Plain(column.sort), 4);
  EXPECT_EQ(Plain(column.action), 0x300);
  EXPECT_EQ(Plain(column.second_sort_col), 3u);
  EXPECT_EQ(Plain(column.second_sort), 3);
  EXPECT_EQ(Plain(column.total), 3);
  EXPECT_EQ(Plain(column.width_in_eighths), 80u);
  EXPECT_EQ(Plain(column.heading_justify), 2);
  EXPECT_TRUE(column.heading_font == kFont2);
  EXPECT_EQ(Plain(column.justify), 1);
  EXPECT_TRUE(column.font == kFont1);
  EXPECT_EQ(Plain(column.format.number.decimal_digits), 3u);
  EXPECT_EQ(Plain(column.format.datetime.zone), 2);
  EXPECT_EQ(Plain(column.type), KVTYPE_DATETIME);
  EXPECT_EQ(Plain(column.formula), nullptr);
  EXPECT_STREQ(column.title, "First");
  ASSERT_EQ(KVColumnFetch(database_, id, 3, &column), KVSUCCESS);
  EXPECT_EQ(Plain(column.action), 0x800);
  EXPECT_EQ(Plain(column.column_flags), 0x10u);
  EXPECT_EQ(Plain(column.view_unid.doc.innards[1]), 4u);
  EXPECT_EQ(Plain(column.second_sort_col), 0u);
}

TEST_F(ReadTest, KVColumnFetch_WithDesignCode_TextOrItemName) {
  const uint32_t id = StoreWhole();
  KVCOLUMN column;
  ASSERT_EQ(KVColumnFetch(database_, id, 2, &column), KVSUCCESS);
  EXPECT_EQ(Plain(column.formula), nullptr);
  SetDatabaseBool(database_, KVPROP_DB_FETCH_DESIGN_CODE, 1);
  ASSERT_EQ(KVColumnFetch(database_, id, 1, &column), KVSUCCESS);
  ASSERT_NE(Plain(column.formula), nullptr);
  EXPECT_EQ(CompiledFormula(column.formula, "$0001"), CompiledFormula("Subject", "$0001"));
  ASSERT_EQ(KVColumnFetch(database_, id, 2, &column), KVSUCCESS);
  EXPECT_STREQ(column.formula, "Subject");
  ASSERT_EQ(KVColumnFetch(database_, id, 3, &column), KVSUCCESS);
  EXPECT_EQ(Plain(column.formula), nullptr) << "a constant has no formula";
}

TEST_F(ReadTest, KVColumnFetch_LongTitle_EightyCharacters) {
  const uint32_t id = StoreView("V", FormatBytes({Shown(std::string(200, 't'), "")}, 0, NewTable()));
  KVCOLUMN column;
  ASSERT_EQ(KVColumnFetch(database_, id, 1, &column), KVSUCCESS);
  EXPECT_EQ(std::string(column.title), std::string(80, 't'));
}

// ---- The cache

TEST_F(ReadTest, KVIDbInfoClearViewFolder_Listed_OnlyThatOneGoes) {
  const uint32_t first = StoreOld(), second = StoreWhole();
  _VIEWSPEC* kept = SpecOf(second);
  SpecOf(first);
  EXPECT_EQ(KVIDbInfoClearViewFolder(Base(), first), KVSUCCESS);
  EXPECT_EQ(Base()->dbinfo->views, kept);
  EXPECT_EQ(ListedSpecs(), 1u);
  EXPECT_EQ(KVIDbInfoClearViewFolder(Base(), first), KVSUCCESS) << "none is a success";
  const kvview::ShowingIndex shown(session_, BaseOf(other_), kept, Base());
  EXPECT_EQ(KVIDbInfoClearViewFolder(Base(), second), KVFAIL_ACTIVE_RESULT);
  EXPECT_EQ(ListedSpecs(), 1u);
}

TEST_F(ReadTest, KVISessionIsViewFolderActive_IndexesOfTheDatabase_Count) {
  const uint32_t id = StoreOld();
  _VIEWSPEC* spec = SpecOf(id);
  EXPECT_FALSE(_KVISessionIsViewFolderActive(session_, Base(), id));
  const uint32_t second = OpenDatabase(path_);
  const kvview::ShowingIndex shown(session_, BaseOf(second), spec);
  EXPECT_TRUE(_KVISessionIsViewFolderActive(session_, Base(), id));
  EXPECT_FALSE(_KVISessionIsViewFolderActive(session_, Base(), id + 1));
  EXPECT_FALSE(_KVISessionIsViewFolderActive(session_, BaseOf(other_), id));
}

}  // namespace
