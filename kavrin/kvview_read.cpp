// Views and folders read from their records into specs, once for a database and session, and told to
// programs.
//
// (1) A spec stands on its database's list with its address until its view is deleted. (2) A value of
// $ViewFormat is hostile: the records of all columns come first, then their names, titles and formulas, whose
// sizes the records tell; nothing is read past the value's end. (3) A spec that could not be read whole is
// freed.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kEngineNoMemory = 0x107;
constexpr uint16_t kTypeWordBytes = 2;
constexpr uint16_t kTypeViewFormat = 5;
constexpr char kSequenceMark = 0x7f;  // starts a special sequence in a text

// ---- The list

_VIEWSPEC** FindListed(_KVDBINFO* dbinfo, uint32_t viewid) {
  _VIEWSPEC** place = &dbinfo->views;
  while (*place != nullptr && (*place)->viewid != viewid) place = &(*place)->next;
  return place;
}

// ---- Bytes

// A stored value that is read from its start; a read that goes past the end leaves everything alone.
struct VALUE {
  const char* bytes;
  uint32_t bytes_left;
};

const char* Take(VALUE* value, uint32_t bytes) {
  if (bytes > value->bytes_left) return nullptr;
  const char* taken = value->bytes;
  value->bytes += bytes;
  value->bytes_left -= bytes;
  return taken;
}

template <typename Record>
bool TakeRecord(VALUE* value, uint16_t ods_type, Record* record) {
  const void* source = Take(value, sizeof(Record));
  if (source == nullptr) return false;
  EngOdsRead(&source, ods_type, record, 1);
  return true;
}

// ---- Columns

constexpr struct {
  uint16_t stored;
  int32_t type;
} kDataTypes[] = {{0, KVTYPE_NUMBER}, {1, KVTYPE_DATETIME}, {2, KVTYPE_TEXT}};

int32_t TypeOf(uint16_t stored) {
  for (const auto& row : kDataTypes)
    if (row.stored == stored) return row.type;
  return KVTYPE_TEXT;
}

bool IsWholeFormula(const char* code, uint32_t code_bytes) {
  if (code_bytes < sizeof(BRYND_FORMULA)) return false;
  const auto told_bytes = KVILoad<uint16_t>(code);
  return told_bytes >= sizeof(BRYND_FORMULA) && told_bytes <= code_bytes;
}

uint32_t CopyPart(const char* part, uint32_t part_bytes, char** target) {
  *target = KVICopyText(part, part_bytes);
  return *target != nullptr ? KVSUCCESS : KVFAIL_NO_MEMORY;
}

void TakeNumbers(const VIEW_COLUMN_FORMAT& record, COLSPEC* column) {
  column->type = TypeOf(record.FormatDataType);
  column->flags = record.Flags1;
  column->font_data = record.FontID;
  column->format = {
      .nfmt = record.NumberFormat, .tfmt = record.TimeFormat, .listsep = record.ListSep, .item_flags = 0};
  column->align_data = (record.Flags2 >> kAlignDataShift) & kAlignMask;
  column->subtotal = (record.Flags2 >> kSubtotalShift) & kSubtotalMask;
  column->align_heading = (record.Flags2 >> kAlignHeadingShift) & kAlignMask;
  column->width = record.DisplayWidth;
}

// What a view knows of all its columns; number counts from 1.
void TellView(uint32_t number, COLSPEC* column, uint16_t* categories, _VIEWSPEC* spec) {
  if (column->flags & KVCOLSPEC_RESPONSES_ONLY) spec->col_resp_only = number;
  if (column->flags & KVCOLSPEC_CATEGORY) {
    column->cat_level = (*categories)++;
    if (spec->col_leftmost_cat == 0) spec->col_leftmost_cat = number;
  }
  if (column->subtotal != 0) spec->flags |= KVVIEWSPEC_TOTALED;
}

uint32_t TakeParts(const VIEW_COLUMN_FORMAT& record, VALUE* parts, COLSPEC* column) {
  const char* item_name = Take(parts, record.ItemNameSize);
  const char* title = Take(parts, record.TitleSize);
  const char* formula = Take(parts, record.FormulaSize);
  const char* constant = Take(parts, record.ConstantValueSize);
  if (item_name == nullptr || title == nullptr || formula == nullptr || constant == nullptr)
    return KVFAIL_BAD_FORMAT;
  if (record.FormulaSize == 0 && record.ConstantValueSize == 0)
    if (uint32_t status = CopyPart(item_name, record.ItemNameSize, &column->formula_string)) return status;
  if (record.TitleSize != 0)
    if (uint32_t status = CopyPart(title, record.TitleSize, &column->title)) return status;
  if (record.FormulaSize != 0) {
    if (!IsWholeFormula(formula, record.FormulaSize)) return KVFAIL_BAD_FORMAT;
    if (uint32_t status = CopyPart(formula, record.FormulaSize, &column->formula)) return status;
  }
  if (record.ConstantValueSize == 0) return KVSUCCESS;
  if (record.ConstantValueSize < kTypeWordBytes) return KVFAIL_BAD_FORMAT;
  column->constant_len = record.ConstantValueSize;
  return KVIColumnSetConstant(column, constant);
}

// The second records, in views of the newer format; they end at the first that is none.
void TakeSecondRecords(VALUE behind, _VIEWSPEC* spec) {
  VIEW_TABLE_FORMAT2 table;
  if (!TakeRecord(&behind, kOdsViewTableFormat2, &table)) return;
  if (table.wSig != kViewTableSignature2 || table.Flags1 != 0) return;
  for (uint32_t i = 0; i < spec->col_count; ++i) {
    VIEW_COLUMN_FORMAT2 record;
    if (!TakeRecord(&behind, kOdsViewColumnFormat2, &record)) return;
    if (record.Signature != kViewColumnSignature2) return;
    COLSPEC* column = &spec->collist[i];
    column->font_heading = record.HeaderFontID;
    column->view = record.ResortToViewUNID;
    column->col_2nd_sort = record.wSecondResortColumnIndex;
  }
}

// ---- The whole value

uint32_t TakeTable(VALUE* value, _VIEWSPEC* spec) {
  VIEW_TABLE_FORMAT2 table;
  if (!TakeRecord(value, kOdsViewTableFormat2, &table)) return KVFAIL_BAD_FORMAT;
  spec->color_bckg = table.BackgroundColor;
  spec->font_title_border = table.TitleFont;
  spec->font_unread = table.UnreadFont;
  spec->font_totals = table.TotalsFont;
  spec->auto_refresh_seconds = table.AutoUpdateSeconds;
  if (table.wSig != kViewTableSignature2) {
    spec->format = kViewFormatOld;
    spec->color_alt_bckg = 0;
    spec->height_heading = 1;
    spec->height_rows = 1;
    spec->height_row_spacing = 1;
    return KVSUCCESS;
  }
  spec->format = kViewFormatNew;
  spec->color_bckg = table.BackgroundColorExt;
  spec->color_alt_bckg = table.AlternateBackgroundColor;
  spec->height_heading = table.HeaderLineCount == 0 ? uint8_t{1} : table.HeaderLineCount;
  spec->height_rows = table.LineCount;
  return KVIViewTranslateSpacing(kTranslateRead, &spec->height_row_spacing, &table.Spacing);
}

// The item stays locked while parts of it are copied to the heap.
uint32_t ReadFormat(EngNote note, _VIEWSPEC* spec) {
  uint16_t type = 0;
  BLOCKID item{};
  uint32_t item_bytes = 0;
  if (EngItemInfo(note, "$ViewFormat", 11, nullptr, &type, &item, &item_bytes)) return KVFAIL_NO_VIEW;
  if (type != kTypeViewFormat || item_bytes < kTypeWordBytes) return KVFAIL_BAD_FORMAT;
  const KVLocked locked(item.pool, item.block);
  if (locked.bytes == nullptr) return KVFAIL_INTERNAL;
  VALUE value{.bytes = locked.bytes + kTypeWordBytes, .bytes_left = item_bytes - kTypeWordBytes};
  VIEW_TABLE_FORMAT head;
  if (!TakeRecord(&value, kOdsViewTableFormat, &head)) return KVFAIL_BAD_FORMAT;
  spec->col_count = head.Columns;
  spec->flags |= head.Flags;
  uint32_t columns_bytes = value.bytes_left;
  if (uint32_t status = KVIViewLoadColumns(spec, value.bytes, &columns_bytes)) return status;
  (void)Take(&value, columns_bytes);  // the columns were read, so the bytes are there
  return TakeTable(&value, spec);
}

uint32_t ReadFormula(EngNote note, const char* name, uint16_t name_bytes, char** formula) {
  uint16_t type = 0;
  BLOCKID item{};
  uint32_t item_bytes = 0;
  if (EngItemInfo(note, name, name_bytes, nullptr, &type, &item, &item_bytes)) return KVSUCCESS;
  if (type != BRTYPE_FORMULA) return KVSUCCESS;
  if (item_bytes < kTypeWordBytes) return KVFAIL_BAD_FORMAT;
  const KVLocked locked(item.pool, item.block);
  if (locked.bytes == nullptr) return KVFAIL_INTERNAL;
  const char* code = locked.bytes + kTypeWordBytes;
  const uint32_t code_bytes = item_bytes - kTypeWordBytes;
  if (!IsWholeFormula(code, code_bytes)) return KVFAIL_BAD_FORMAT;
  return CopyPart(code, code_bytes, formula);
}

bool IsNoMemory(uint32_t status) { return status == KVFAIL_NO_MEMORY || status == kEngineNoMemory; }

// Want of memory as it is, since the view may well be there.
uint32_t NoView(uint32_t status) { return IsNoMemory(status) ? status : KVFAIL_NO_VIEW; }

uint32_t FillSpec(EngNote note, _VIEWSPEC* spec) {
  if (spec->kv_design_flags & KVDESIGN_PRIVATE) spec->flags |= KVVIEWSPEC_PRIVATE;
  if (uint32_t status =
          KVIDesignNoteGetNames(note, &spec->name, &spec->menu_name, &spec->cascade_name, &spec->hidden))
    return NoView(status);
  spec->namelen = static_cast<uint16_t>(strlen(spec->name));
  if (spec->hidden) spec->flags |= KVVIEWSPEC_HIDDEN;
  KVIViewGetDesignFlags(note, spec);
  if (uint32_t status = ReadFormat(note, spec)) return status;
  return KVIViewLoadFormulas(note, spec);
}

// ---- Telling

void TakeName(char* target, const char* name, uint32_t name_bytes_max) {
  if (name != nullptr) KVIstrnncpy(target, name, name_bytes_max);
}

char* FormulaText(const char* formula, char** text, int viewsel) {
  if (*text == nullptr && formula != nullptr) FetchDesignFormula(formula, text, viewsel);
  return *text;
}

void FreeColumn(COLSPEC* column) {
  KVIFree(column->title);
  KVIFree(column->constant);
  KVIFree(column->formula);
  KVIFree(column->formula_string);
}

}  // namespace

uint32_t KVIColumnSetConstant(COLSPEC* pcolspec, const char* pConstData) {
  pcolspec->constant_eval =
      KVILoad<uint16_t>(pConstData) == BRTYPE_TEXT &&
      memchr(pConstData + kTypeWordBytes, kSequenceMark, pcolspec->constant_len - kTypeWordBytes) != nullptr;
  return CopyPart(pConstData, pcolspec->constant_len, &pcolspec->constant);
}

uint32_t KVIViewLoadColumns(_VIEWSPEC* pviewspec, const void* pColData, uint32_t* dwSize) {
  VALUE records{.bytes = static_cast<const char*>(pColData), .bytes_left = *dwSize};
  VALUE parts = records;
  if (Take(&parts, pviewspec->col_count * static_cast<uint32_t>(sizeof(VIEW_COLUMN_FORMAT))) == nullptr)
    return KVFAIL_BAD_FORMAT;
  pviewspec->collist = KVIAllocate<COLSPEC>(pviewspec->col_count);
  if (pviewspec->collist == nullptr) return KVFAIL_NO_MEMORY;
  uint16_t categories = 0;
  for (uint32_t i = 0; i < pviewspec->col_count; ++i) {
    VIEW_COLUMN_FORMAT record;
    if (!TakeRecord(&records, kOdsViewColumnFormat, &record)) return KVFAIL_BAD_FORMAT;
    if (record.Signature != kViewColumnSignature) return KVFAIL_BAD_FORMAT;
    COLSPEC* column = &pviewspec->collist[i];
    TakeNumbers(record, column);
    TellView(i + 1, column, &categories, pviewspec);
    if (uint32_t status = TakeParts(record, &parts, column)) return status;
    if (column->constant == nullptr) ++pviewspec->col_summary;
  }
  TakeSecondRecords(parts, pviewspec);
  *dwSize -= parts.bytes_left;
  return KVSUCCESS;
}

uint32_t KVIViewLoadFormulas(EngNote nh, _VIEWSPEC* pviewspec) {
  if (uint32_t status = ReadFormula(nh, "$Formula", 8, &pviewspec->selection_formula)) return status;
  return ReadFormula(nh, "$FormFormula", 12, &pviewspec->form_formula);
}

uint32_t KVIViewGetDesignFlags(EngNote nh, _VIEWSPEC* pviewspec) {
  char letters[kDesignFlagsMax + 1] = {};
  const uint16_t letter_count = EngItemTextGet(nh, "$Flags", letters, kDesignFlagsMax);
  if (letter_count == 0) return KVSUCCESS;
  const auto has = [&](char letter) { return memchr(letters, letter, letter_count) != nullptr; };
  if (has('d')) pviewspec->flags |= KVVIEWSPEC_LETTER_D;
  if (!has('Y')) pviewspec->flags |= KVVIEWSPEC_NOT_Y;
  if (has('p')) pviewspec->flags |= KVVIEWSPEC_LETTER_P;
  if (has('V')) pviewspec->flags |= KVVIEWSPEC_PRIVATE;
  return KVSUCCESS;
}

uint32_t KVIViewGetSpec(_DATABASE* pdbase, uint32_t vid, _VIEWSPEC** ppspec) {
  *ppspec = *FindListed(pdbase->dbinfo, vid);
  if (*ppspec != nullptr) return KVSUCCESS;
  uint32_t design_flags = 0;
  EngNote note = 0;
  if (uint32_t status = KVIDesignNoteGetFlagsExt(pdbase, vid, &design_flags, &note)) return NoView(status);
  KVGuard close_note([&] { EngNoteClose(note); });
  if ((design_flags & kDesignViewOrFolder) == 0) return KVFAIL_NO_VIEW;
  auto* spec = KVIAllocate<_VIEWSPEC>();
  if (spec == nullptr) return KVFAIL_NO_MEMORY;
  spec->pdbase = pdbase;
  spec->viewid = vid;
  spec->kv_design_flags = design_flags;
  if (uint32_t status = FillSpec(note, spec)) {
    ClearView(spec);
    return status;
  }
  spec->next = pdbase->dbinfo->views;
  pdbase->dbinfo->views = spec;
  *ppspec = spec;
  return KVSUCCESS;
}

void ClearView(_VIEWSPEC* viewspec) {
  if (viewspec == nullptr) return;
  KVIFree(viewspec->name);
  KVIFree(viewspec->menu_name);
  KVIFree(viewspec->cascade_name);
  KVIFree(viewspec->selection_formula);
  KVIFree(viewspec->form_formula);
  KVIFree(viewspec->selection_formula_string);
  KVIFree(viewspec->form_formula_string);
  if (viewspec->collist != nullptr)
    for (uint32_t i = 0; i < viewspec->col_count; ++i) FreeColumn(&viewspec->collist[i]);
  KVIFree(viewspec->collist);
  KVIFree(viewspec);
}

uint32_t KVIDbInfoClearViewFolder(_DATABASE* pdbase, uint32_t vfid) {
  _VIEWSPEC** place = FindListed(pdbase->dbinfo, vfid);
  _VIEWSPEC* spec = *place;
  if (spec == nullptr) return KVSUCCESS;
  if (spec->used_in_index != nullptr) return KVFAIL_ACTIVE_RESULT;
  *place = spec->next;
  ClearView(spec);
  return KVSUCCESS;
}

bool _KVISessionIsViewFolderActive(const _api_session* session, const _DATABASE* pdbase, uint32_t vfid) {
  for (const _INDEX* idx : session->idxtab)
    for (; idx != nullptr; idx = idx->next) {
      if (idx->active_view == nullptr || idx->active_view->viewid != vfid) continue;
      const _DATABASE* owner = idx->active_view_dbase != nullptr ? idx->active_view_dbase : idx->dbase;
      if (owner->dbinfo == pdbase->dbinfo) return true;
    }
  return false;
}

bool _KVIIsView(const _api_session* session, uint32_t design_flags) {
  const uint32_t kinds = session->kvprog_version < kVersionFourth ? kDesignViewOrFolder : KVDESIGN_VIEW;
  return (design_flags & kinds) != 0;
}

void KVIViewGetVIEWFromSpec(_VIEWSPEC* pviewspec, KVVIEW* pview) {
  pview->view_flags = pviewspec->flags & KVVIEW_FLAGS_MASK;
  int32_t on_open = 0;
  int32_t on_refresh = 0;
  int32_t heading = 0;
  int32_t unread = 0;
  (void)KVIViewTranslateOpen(kTranslateRead, &on_open, &pviewspec->flags);  // reading knows every word
  (void)KVIViewTranslateRefresh(kTranslateRead, &on_refresh, &pviewspec->flags);
  (void)KVIViewTranslateHeading(kTranslateRead, &heading, &pviewspec->flags);
  (void)KVIViewTranslateUnread(kTranslateRead, &unread, &pviewspec->flags);
  pview->on_open = on_open;
  pview->on_refresh = on_refresh;
  pview->heading = heading;
  pview->unread = unread;
  pview->heading_lines = pviewspec->height_heading;
  pview->row_lines = pviewspec->height_rows;
  pview->row_spacing = pviewspec->height_row_spacing;
  pview->background_color = pviewspec->color_bckg;
  pview->alt_background_color = pviewspec->color_alt_bckg;
  pview->title_border_font = pviewspec->font_title_border;
  pview->unread_font = pviewspec->font_unread;
  pview->totals_font = pviewspec->font_totals;
  pview->auto_refresh_seconds = pviewspec->auto_refresh_seconds;
  if (pviewspec->pdbase->fetch_design_code) {
    pview->selection_formula =
        FormulaText(pviewspec->selection_formula, &pviewspec->selection_formula_string, 1);
    pview->form_formula = FormulaText(pviewspec->form_formula, &pviewspec->form_formula_string, 0);
  }
  TakeName(pview->name, pviewspec->name, kDesignTitleMax);
  TakeName(pview->menu_name, pviewspec->menu_name, kDesignPieceMax);
  TakeName(pview->cascade_name, pviewspec->cascade_name, kDesignPieceMax);
}

void KVIColumnGetCOLUMNFromSpec(const _DATABASE* pdbase, COLSPEC* pcolspec, KVCOLUMN* pcol) {
  pcol->column_flags = pcolspec->flags & uint32_t{KVCOLUMN_FLAGS_MASK};
  int32_t sort = 0;
  int32_t second_sort = 0;
  int32_t action = 0;
  int32_t heading_justify = 0;
  int32_t justify = 0;
  (void)KVIColumnTranslateColSort(kTranslateRead, &sort, &pcolspec->flags);  // reading knows every word
  if (pcolspec->flags & KVCOLSPEC_SECOND_SORT) {
    pcol->second_sort_col = uint32_t{pcolspec->col_2nd_sort} + 1;
    (void)KVIColumnTranslateSecondColSort(kTranslateRead, &second_sort, &pcolspec->flags);
  }
  (void)KVIColumnTranslateAction(kTranslateRead, &action, &pcolspec->flags);
  if (action == kColumnActionView) KVICopyBytes(&pcol->view_unid, &pcolspec->view, sizeof pcol->view_unid);
  (void)KVIColumnTranslateAlignment(kTranslateRead, &heading_justify, &pcolspec->align_heading);
  (void)KVIColumnTranslateAlignment(kTranslateRead, &justify, &pcolspec->align_data);
  pcol->sort = sort;
  pcol->action = action;
  pcol->second_sort = second_sort;
  pcol->total = pcolspec->subtotal;
  pcol->width_in_eighths = pcolspec->width;
  pcol->heading_justify = heading_justify;
  pcol->heading_font = pcolspec->font_heading;
  pcol->justify = justify;
  pcol->font = pcolspec->font_data;
  GetFormat(&pcol->format, &pcolspec->format.nfmt, &pcolspec->format.tfmt, &pcolspec->format.listsep);
  pcol->type = pcolspec->type;
  if (pdbase->fetch_design_code) pcol->formula = FormulaText(pcolspec->formula, &pcolspec->formula_string, 0);
  TakeName(pcol->title, pcolspec->title, kViewTitleMax);
}
