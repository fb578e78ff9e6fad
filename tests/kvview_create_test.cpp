// New views: what is refused, in which order, and what the _VIEWSPEC holds.
#include "kvview_world.h"

namespace {

using kvview::Plain;
using kvview::ViewTest;

class CreateTest : public ViewTest {
 protected:
  uint32_t CreateOne(const KVCOLUMN& column) {
    return Create(View("Name"), {Column("1"), column, Column("2")});
  }
  template <typename Member>
  uint32_t With(Member KVVIEW::*member, Member value) {
    KVVIEW view = View("Name");
    kvview::SetMember(&view, member, value);
    return Create(view, {Column("1")});
  }
  template <typename Member>
  uint32_t WithColumn(Member KVCOLUMN::*member, Member value) {
    KVCOLUMN column = Column("1");
    kvview::SetMember(&column, member, value);
    return CreateOne(column);
  }
};

TEST_F(CreateTest, KVViewCreate_BadArguments_StatusesInOrder) {
  KVVIEW view = View("Name");
  KVCOLUMN column = Column("1");
  uint32_t id = 77;
  EXPECT_EQ(KVViewCreate(0, nullptr, 1, nullptr, &id), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVViewCreate(0, &view, 1, nullptr, &id), KVFAIL_NULL_PARAM);
  EXPECT_EQ(id, 77u);
  EXPECT_EQ(KVViewCreate(0, &view, 1, &column, &id), KVFAIL_NO_DATABASE);
  EXPECT_EQ(id, 0u);
  id = 77;
  EXPECT_EQ(KVViewCreate(database_, &view, kViewColumnsMax + 1, &column, &id), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(id, 0u);
  EXPECT_EQ(KVViewCreate(database_, &view, 1, &column, nullptr), KVSUCCESS);
  id = 77;
  EXPECT_EQ(KVViewCreate(database_, &view, 1, &column, &id), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(id, 0u);
  ExpectError(KVFAIL_NAME_IN_USE);
}

TEST_F(CreateTest, KVViewCreate_BadNames_BadFormatAndNothingStored) {
  for (const KVVIEW& view : {View(""), View("A", "", "C"), View("A", "M(x"), View("(A"),
                             View("A", std::string(64, 'm'), std::string(64, 'c'))})
    EXPECT_EQ(Create(view, {Column("1")}), KVFAIL_BAD_FORMAT) << view.name;
  KVVIEW endless = View("A");
  std::memset(endless.name, 'n', sizeof endless.name);
  std::memset(endless.menu_name, 'n', sizeof endless.menu_name);
  std::memset(endless.cascade_name, 'n', sizeof endless.cascade_name);
  EXPECT_EQ(Create(endless, {Column("1")}), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(CountViews(), 0u);
}

TEST_F(CreateTest, KVViewCreate_NameOfAFolderOrNavigator_FoldersShareNames) {
  StoreView("Folder", "", "F");
  StoreView("Navigator", "", "G");
  EXPECT_EQ(Create(View("Folder"), {Column("1")}), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(Create(View("Navigator"), {Column("1")}), KVSUCCESS);
}

TEST_F(CreateTest, KVViewCreate_ViewEnumerations_BadEnumOutsideThem) {
  for (const int32_t wrong : {0, 4, -1}) EXPECT_EQ(With(&KVVIEW::on_open, wrong), KVFAIL_BAD_ENUM);
  for (const int32_t wrong : {0, 5, -1}) EXPECT_EQ(With(&KVVIEW::on_refresh, wrong), KVFAIL_BAD_ENUM);
  for (const int32_t wrong : {0, 4, -1}) EXPECT_EQ(With(&KVVIEW::heading, wrong), KVFAIL_BAD_ENUM);
  for (const int32_t wrong : {0, 6, -1}) EXPECT_EQ(With(&KVVIEW::row_spacing, wrong), KVFAIL_BAD_ENUM);
  for (const int32_t wrong : {3, -1}) EXPECT_EQ(With(&KVVIEW::unread, wrong), KVFAIL_BAD_ENUM);
  for (const uint8_t wrong : {uint8_t{0}, uint8_t{6}})
    EXPECT_EQ(With(&KVVIEW::heading_lines, wrong), KVFAIL_BAD_FORMAT);
  for (const uint8_t wrong : {uint8_t{0}, uint8_t{10}})
    EXPECT_EQ(With(&KVVIEW::row_lines, wrong), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(CountViews(), 0u);
  EXPECT_EQ(With(&KVVIEW::row_lines, uint8_t{9}), KVSUCCESS);
}

TEST_F(CreateTest, KVViewCreate_SeveralFaults_FirstInOrderTells) {
  KVVIEW view = View("");
  view.on_open = 4;
  view.row_lines = 10;
  KVCOLUMN column = Column("");
  column.sort = 8;
  EXPECT_EQ(Create(view, {column}), KVFAIL_BAD_FORMAT) << "names";
  Put(view.name, "Name");
  EXPECT_EQ(Create(view, {column}), KVFAIL_BAD_ENUM) << "enumerations";
  view.on_open = 1;
  EXPECT_EQ(Create(view, {column}), KVFAIL_BAD_FORMAT) << "lines";
  view.row_lines = 1;
  EXPECT_EQ(Create(view, {column}), KVFAIL_FORMULA) << "columns";
}

TEST_F(CreateTest, KVViewCreate_ColumnWithoutFormula_FormulaError) {
  EXPECT_EQ(CreateOne(Column("")), KVFAIL_FORMULA);
  EXPECT_EQ(WithColumn(&KVCOLUMN::formula, static_cast<char*>(nullptr)), KVFAIL_FORMULA);
}

TEST_F(CreateTest, KVViewCreate_ColumnEnumerations_BadEnumOutsideThem) {
  for (const int32_t wrong : {8, -1, 2, 5, 6}) EXPECT_EQ(WithColumn(&KVCOLUMN::sort, wrong), KVFAIL_BAD_ENUM);
  for (const int32_t wrong : {4, -1, 2})
    EXPECT_EQ(WithColumn(&KVCOLUMN::second_sort, wrong), KVFAIL_BAD_ENUM);
  for (const int32_t wrong : {6, -1}) EXPECT_EQ(WithColumn(&KVCOLUMN::total, wrong), KVFAIL_BAD_ENUM);
  for (const int32_t wrong : {1, 0x400, -1}) EXPECT_EQ(WithColumn(&KVCOLUMN::action, wrong), KVFAIL_BAD_ENUM);
  for (const int32_t wrong : {3, -1}) EXPECT_EQ(WithColumn(&KVCOLUMN::justify, wrong), KVFAIL_BAD_ENUM);
  for (const int32_t wrong : {3, -1})
    EXPECT_EQ(WithColumn(&KVCOLUMN::heading_justify, wrong), KVFAIL_BAD_ENUM);
  for (const int32_t wrong : {10, -1}) EXPECT_EQ(WithColumn(&KVCOLUMN::type, wrong), KVFAIL_BAD_ENUM);
  KVCOLUMN column = Column("1");
  column.format.number.number = 9;
  EXPECT_EQ(CreateOne(column), KVFAIL_BAD_ENUM);
  EXPECT_EQ(CountViews(), 0u);
  EXPECT_EQ(WithColumn(&KVCOLUMN::type, 9), KVSUCCESS);
}

TEST_F(CreateTest, KVViewCreate_SecondSortColumn_OwnNumberPassesTheOneBeforeDoesNot) {
  KVCOLUMN column = Column("1");  // the second of three
  column.action = 0x100;
  column.second_sort_col = 1;
  EXPECT_EQ(CreateOne(column), KVFAIL_NO_COLUMN);
  column.second_sort_col = 4;
  EXPECT_EQ(CreateOne(column), KVFAIL_NO_COLUMN);
  column.action = 0;
  EXPECT_EQ(KVIColumnValidateCOLUMN(Base(), 3, 1, &column), KVSUCCESS) << "nothing is sorted by it";
  column.action = 0x300;
  for (const uint32_t number : {0u, 2u, 3u}) {
    column.second_sort_col = number;
    EXPECT_EQ(KVIColumnValidateCOLUMN(Base(), 3, 1, &column), KVSUCCESS) << number;
  }
}

TEST_F(CreateTest, KVViewCreate_ViewToGoTo_MustBeAView) {
  KVCOLUMN column = Column("1");
  column.action = kColumnActionView;
  EXPECT_EQ(CreateOne(column), KVFAIL_NOT_FOUND);
  const auto unid_of = [&](uint32_t id) {
    ORIGINATORID originator{};
    EXPECT_EQ(EngDbIdInfoGet(EngineDatabase(), id, &originator, nullptr, nullptr), 0);
    KVUNID unid;
    std::memcpy(&unid, &originator, sizeof unid);
    return unid;
  };
  column.view_unid = unid_of(StoreDocument());
  EXPECT_EQ(CreateOne(column), KVFAIL_NO_COLUMN);
  column.view_unid = unid_of(MadeView("Target"));
  uint32_t id = 0;
  ASSERT_EQ(Create(View("Name"), {column}, &id), KVSUCCESS);
  KVCOLUMN back;
  ASSERT_EQ(KVColumnFetch(database_, id, 1, &back), KVSUCCESS);
  EXPECT_EQ(Plain(back.action), kColumnActionView);
  EXPECT_EQ(std::memcmp(&back.view_unid, &column.view_unid, sizeof(KVUNID)), 0);
}

TEST_F(CreateTest, KVIViewCreateSpec_Fonts_BitWithoutMeaningCleared) {
  KVVIEW view = View("Name");
  KVCOLUMN column = Column("1");
  for (KVFONTSTYLE* font :
       {&view.title_border_font, &view.unread_font, &view.totals_font, &column.heading_font, &column.font})
    font->font_flags = 0x41;
  _VIEWSPEC* spec = nullptr;
  ASSERT_EQ(_KVIViewCreateSpec(session_, Base(), &view, &column, 1, &spec), KVSUCCESS);
  for (const KVFONTSTYLE* font :
       {&view.title_border_font, &view.unread_font, &view.totals_font, &column.heading_font, &column.font,
        &spec->font_title_border, &spec->font_unread, &spec->font_totals, &spec->collist[0].font_heading,
        &spec->collist[0].font_data})
    EXPECT_EQ(font->font_flags, 1);
  ClearView(spec);
}

TEST_F(CreateTest, KVIViewCreateSpec_EachField_Taken) {
  KVVIEW view = View("Name", "Menu", "Cascade");
  view.view_flags = 0xffffffff;
  view.background_color = 0x1234567;
  view.alt_background_color = 0x18888;
  view.auto_refresh_seconds = 0x10003;
  view.selection_formula = Text("SELECT @All");
  view.form_formula = Text("\"Memo\"");
  KVCOLUMN column = Column("Subject", "Title");
  column.column_flags = 0xffffffff;
  column.second_sort_col = 5;
  column.width_in_eighths = 0x10050;
  column.total = 5;
  column.justify = 1;
  column.heading_justify = 2;
  _VIEWSPEC* spec = nullptr;
  ASSERT_EQ(_KVIViewCreateSpec(session_, Base(), &view, &column, 1, &spec), KVSUCCESS);
  EXPECT_EQ(spec->viewid, 0u);
  EXPECT_EQ(spec->flags, 0xf8014a8bu);
  EXPECT_EQ(spec->hidden, 1);
  EXPECT_EQ(spec->format, kViewFormatNew);
  EXPECT_EQ(spec->color_bckg, 0x4567);
  EXPECT_EQ(spec->color_alt_bckg, 0x8888);
  EXPECT_EQ(spec->auto_refresh_seconds, 3);
  EXPECT_STREQ(spec->name, "Name");
  EXPECT_STREQ(spec->menu_name, "Menu");
  EXPECT_STREQ(spec->cascade_name, "Cascade");
  EXPECT_STREQ(spec->selection_formula_string, "SELECT @All");
  EXPECT_STREQ(spec->form_formula_string, "\"Memo\"");
  EXPECT_EQ(spec->collist[0].flags, 0xc4f8);
  EXPECT_EQ(spec->collist[0].col_2nd_sort, 4);
  EXPECT_EQ(spec->collist[0].width, 0x50);
  EXPECT_EQ(spec->collist[0].subtotal, 5);
  EXPECT_EQ(spec->collist[0].align_data, 1);
  EXPECT_EQ(spec->collist[0].align_heading, 2);
  EXPECT_STREQ(spec->collist[0].title, "Title");
  EXPECT_STREQ(spec->collist[0].formula_string, "Subject");
  EXPECT_EQ(ListedSpecs(), 0u);
  ClearView(spec);
}

TEST_F(CreateTest, KVIViewCreateSpec_EachAllocationFails_NoMemory) {
  KVVIEW view = View("Name", "Menu", "Cascade");
  view.selection_formula = Text("SELECT @All");
  KVCOLUMN column = Column("Subject", "Title");
  uint32_t hits = 0;
  for (uint32_t nth = 1;; ++nth) {
    kit::Fault fault = kit::Fault::Allocation(nth);
    _VIEWSPEC* spec = nullptr;
    const uint32_t status = _KVIViewCreateSpec(session_, Base(), &view, &column, 1, &spec);
    fault.Disarm();
    ClearView(spec);
    if (!fault.Hit()) break;
    if (fault.hit_name() != "heap") continue;  // a name that cannot be looked up is not free
    ++hits;
    EXPECT_EQ(status, KVFAIL_NO_MEMORY);
    EXPECT_EQ(spec, nullptr);
  }
  EXPECT_EQ(hits, 8u);
}

TEST_F(CreateTest, KVViewCreate_OldProgram_Unsupported) {
  SetVersion(0x3ffff);
  EXPECT_EQ(CreateOne(Column("1")), KVFAIL_UNSUPPORTED);
  SetVersion(0x40000);
  EXPECT_EQ(CreateOne(Column("1")), KVSUCCESS);
  SetVersion(KVAPI_VERSION);
  EXPECT_EQ(CountViews(), 1u);
}

}  // namespace
