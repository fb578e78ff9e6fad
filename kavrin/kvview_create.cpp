// New views: the caller's records checked and made into a spec.
//
// (1) The caller's records are byte-packed and may lie anywhere: their words are copied before they are used
// as such. (2) A spec that was not finished is freed whole.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint32_t kHeadingLinesMax = 5;
constexpr uint32_t kRowLinesMax = 9;
constexpr uint32_t kSortBits = 7;
constexpr uint32_t kSecondSortBits = 3;
constexpr uint32_t kTotalMax = 5;
constexpr uint32_t kActionBits = 0xb00;
constexpr uint32_t kActionSorts = 0x300;  // a click on the heading sorts
constexpr uint32_t kJustifyMax = 2;
constexpr uint32_t kTypeMax = 9;

// The caller's names, with a NUL behind the last byte of each member.
struct VIEWNAMES {
  char name[sizeof(KVVIEW::name) + 1];
  char menu_name[sizeof(KVVIEW::menu_name) + 1];
  char cascade_name[sizeof(KVVIEW::cascade_name) + 1];
};

VIEWNAMES NamesOf(const KVVIEW& view) {
  VIEWNAMES names;
  KVIstrnncpy(names.name, view.name, sizeof view.name);
  KVIstrnncpy(names.menu_name, view.menu_name, sizeof view.menu_name);
  KVIstrnncpy(names.cascade_name, view.cascade_name, sizeof view.cascade_name);
  return names;
}

bool IsAbove(int32_t value, uint32_t highest) { return static_cast<uint32_t>(value) > highest; }
bool IsOutside(int32_t value, uint32_t bits) { return (static_cast<uint32_t>(value) & ~bits) != 0; }
bool IsNotFrom1To(int32_t value, uint32_t highest) { return value < 1 || IsAbove(value, highest); }

uint32_t ValidateNames(_api_session* session, _DATABASE* pdbase, const KVVIEW& view) {
  const VIEWNAMES names = NamesOf(view);
  if (KVIDesignNoteMakeName(names.name, names.menu_name, names.cascade_name, session->buffer))
    return KVFAIL_BAD_FORMAT;
  uint32_t design_flags = KVDESIGN_VIEW;
  if (view.view_flags & KVVIEW_PRIVATE) design_flags |= KVDESIGN_PRIVATE;
  if (!_KVIDesignNoteIsQIXNameUnique(session, pdbase, design_flags, names.name, names.menu_name,
                                     names.cascade_name))
    return KVFAIL_NAME_IN_USE;
  return KVSUCCESS;
}

// An empty text is none.
bool CopyString(const char* text, char** target) {
  if (KVIEmpty(text)) return true;
  *target = KVICopyText(text, strlen(text));
  return *target != nullptr;
}

bool CopyTexts(const KVVIEW& view, _VIEWSPEC* spec) {
  const VIEWNAMES names = NamesOf(view);
  spec->namelen = static_cast<uint16_t>(strlen(names.name));
  return CopyString(names.name, &spec->name) && CopyString(names.menu_name, &spec->menu_name) &&
         CopyString(names.cascade_name, &spec->cascade_name) &&
         CopyString(view.selection_formula, &spec->selection_formula_string) &&
         CopyString(view.form_formula, &spec->form_formula_string);
}

uint16_t Low(uint32_t word) { return static_cast<uint16_t>(word & 0xffff); }

uint32_t TakeFlags(const KVVIEW& view, _VIEWSPEC* spec) {
  int32_t on_open = view.on_open;
  int32_t on_refresh = view.on_refresh;
  int32_t heading = view.heading;
  int32_t unread = view.unread;
  spec->flags = view.view_flags & KVVIEW_FLAGS_MASK;
  spec->hidden = (spec->flags & KVVIEWSPEC_HIDDEN) != 0;
  if (uint32_t status = KVIViewTranslateOpen(kTranslateWrite, &on_open, &spec->flags)) return status;
  if (uint32_t status = KVIViewTranslateRefresh(kTranslateWrite, &on_refresh, &spec->flags)) return status;
  if (uint32_t status = KVIViewTranslateHeading(kTranslateWrite, &heading, &spec->flags)) return status;
  return KVIViewTranslateUnread(kTranslateWrite, &unread, &spec->flags);
}

void TakePlainFields(const KVVIEW& view, _VIEWSPEC* spec) {
  spec->format = kViewFormatNew;
  spec->height_heading = view.heading_lines;
  spec->height_rows = view.row_lines;
  spec->height_row_spacing = view.row_spacing;
  spec->font_title_border = view.title_border_font;
  spec->font_unread = view.unread_font;
  spec->font_totals = view.totals_font;
  spec->color_bckg = Low(view.background_color);
  spec->color_alt_bckg = Low(view.alt_background_color);
  spec->auto_refresh_seconds = Low(view.auto_refresh_seconds);
}

uint32_t TakeColumnFlags(const KVCOLUMN& column, COLSPEC* spec) {
  int32_t sort = column.sort;
  int32_t second_sort = column.second_sort;
  int32_t action = column.action;
  int32_t heading_justify = column.heading_justify;
  int32_t justify = column.justify;
  spec->flags = Low(column.column_flags & KVCOLUMN_FLAGS_MASK);
  if (uint32_t status = KVIColumnTranslateColSort(kTranslateWrite, &sort, &spec->flags)) return status;
  if (uint32_t status = KVIColumnTranslateSecondColSort(kTranslateWrite, &second_sort, &spec->flags))
    return status;
  if (uint32_t status = KVIColumnTranslateAction(kTranslateWrite, &action, &spec->flags)) return status;
  if (uint32_t status = KVIColumnTranslateAlignment(kTranslateWrite, &heading_justify, &spec->align_heading))
    return status;
  return KVIColumnTranslateAlignment(kTranslateWrite, &justify, &spec->align_data);
}

uint32_t TakeColumn(const KVCOLUMN& column, COLSPEC* spec) {
  char title[sizeof column.title + 1];
  KVIstrnncpy(title, column.title, sizeof column.title);
  if (!CopyString(title, &spec->title)) return KVFAIL_NO_MEMORY;
  if (!CopyString(column.formula, &spec->formula_string)) return KVFAIL_NO_MEMORY;
  if (uint32_t status = TakeColumnFlags(column, spec)) return status;
  const uint32_t second_sort_col = column.second_sort_col;
  if (second_sort_col != 0) spec->col_2nd_sort = Low(second_sort_col - 1);
  spec->width = Low(column.width_in_eighths);
  spec->font_heading = column.heading_font;
  spec->font_data = column.font;
  if (column.action == kColumnActionView) KVICopyBytes(&spec->view, &column.view_unid, sizeof spec->view);
  if (uint32_t status =
          PutFormat(&column.format, &spec->format.nfmt, &spec->format.tfmt, &spec->format.listsep))
    return status;
  spec->subtotal = static_cast<uint16_t>(column.total);
  spec->type = column.type;
  return KVSUCCESS;
}

uint32_t Fill(const KVVIEW& view, const KVCOLUMN* columns, uint32_t column_count, _VIEWSPEC* spec) {
  spec->collist = KVIAllocate<COLSPEC>(column_count);
  if (spec->collist == nullptr) return KVFAIL_NO_MEMORY;
  spec->col_count = column_count;
  if (!CopyTexts(view, spec)) return KVFAIL_NO_MEMORY;
  if (uint32_t status = TakeFlags(view, spec)) return status;
  TakePlainFields(view, spec);
  for (uint32_t i = 0; i < column_count; ++i)
    if (uint32_t status = TakeColumn(columns[i], &spec->collist[i])) return status;
  return KVSUCCESS;
}

}  // namespace

uint32_t _KVIViewValidateVIEW(_api_session* session, _DATABASE* pdbase, KVVIEW* pview, KVCOLUMN* pcolumns,
                              uint32_t colcount) {
  if (uint32_t status = ValidateNames(session, pdbase, *pview)) return status;
  if (IsNotFrom1To(pview->on_open, 3)) return KVFAIL_BAD_ENUM;
  if (IsNotFrom1To(pview->on_refresh, 4)) return KVFAIL_BAD_ENUM;
  if (IsNotFrom1To(pview->heading, 3)) return KVFAIL_BAD_ENUM;
  if (IsNotFrom1To(pview->row_spacing, 5)) return KVFAIL_BAD_ENUM;
  if (IsAbove(pview->unread, 2)) return KVFAIL_BAD_ENUM;
  if (IsNotFrom1To(pview->heading_lines, kHeadingLinesMax)) return KVFAIL_BAD_FORMAT;
  if (IsNotFrom1To(pview->row_lines, kRowLinesMax)) return KVFAIL_BAD_FORMAT;
  CheckFont(&pview->title_border_font);
  CheckFont(&pview->unread_font);
  CheckFont(&pview->totals_font);
  for (uint32_t i = 0; i < colcount; ++i)
    if (uint32_t status = KVIColumnValidateCOLUMN(pdbase, colcount, i, &pcolumns[i])) return status;
  return KVSUCCESS;
}

uint32_t KVIColumnValidateCOLUMN(_DATABASE* pdbase, uint32_t max_index, uint32_t index, KVCOLUMN* pcolumn) {
  if (KVIEmpty(pcolumn->formula)) return KVFAIL_FORMULA;
  if (IsOutside(pcolumn->sort, kSortBits)) return KVFAIL_BAD_ENUM;
  if (IsOutside(pcolumn->second_sort, kSecondSortBits)) return KVFAIL_BAD_ENUM;
  if (IsAbove(pcolumn->total, kTotalMax)) return KVFAIL_BAD_ENUM;
  if (IsOutside(pcolumn->action, kActionBits)) return KVFAIL_BAD_ENUM;
  if (IsAbove(pcolumn->heading_justify, kJustifyMax)) return KVFAIL_BAD_ENUM;
  if (IsAbove(pcolumn->justify, kJustifyMax)) return KVFAIL_BAD_ENUM;
  if (IsAbove(pcolumn->type, kTypeMax)) return KVFAIL_BAD_ENUM;
  const auto action = static_cast<uint32_t>(pcolumn->action);
  const uint32_t second_sort_col = pcolumn->second_sort_col;
  if ((action & kActionSorts) != 0 && second_sort_col != 0) {
    if (second_sort_col > max_index) return KVFAIL_NO_COLUMN;
    // A number from 1 against one from 0 refuses the column before this one instead of this one; views were
    // made under that rule, so it stays.
    if (second_sort_col == index) return KVFAIL_NO_COLUMN;
  }
  if (pcolumn->action == kColumnActionView) {
    const auto unid = KVILoad<UNIVERSALNOTEID>(&pcolumn->view_unid);
    uint32_t viewid = 0;
    ORIGINATORID originator{};
    TIMEDATE modified{};
    uint16_t note_class = 0;
    if (EngDbUnidInfoGet(pdbase->dbhand, &unid, &viewid, &originator, &modified, &note_class))
      return KVFAIL_NOT_FOUND;
    if ((note_class & BRCLASS_VIEW) == 0) return KVFAIL_NO_COLUMN;
  }
  CheckFont(&pcolumn->heading_font);
  CheckFont(&pcolumn->font);
  return KVSUCCESS;
}

uint32_t _KVIViewCreateSpec(_api_session* session, _DATABASE* pdbase, KVVIEW* pview, KVCOLUMN* pcolumns,
                            uint32_t colcount, _VIEWSPEC** ppspec) {
  *ppspec = nullptr;
  if (colcount > kViewColumnsMax) return KVFAIL_DATA_TOO_LONG;
  if (uint32_t status = _KVIViewValidateVIEW(session, pdbase, pview, pcolumns, colcount)) return status;
  auto* spec = KVIAllocate<_VIEWSPEC>();
  if (spec == nullptr) return KVFAIL_NO_MEMORY;
  spec->pdbase = pdbase;
  if (uint32_t status = Fill(*pview, pcolumns, colcount, spec)) {
    ClearView(spec);
    return status;
  }
  *ppspec = spec;
  return KVSUCCESS;
}
