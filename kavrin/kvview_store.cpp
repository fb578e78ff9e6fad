// New views: a spec written into a record.
//
// (1) Nothing is stored before everything has been written into the note: a failure leaves no record. (2) The
// selection formula computes the values of all columns as summary items, `$0001` and on, by which the rows of
// the view are made. (3) The sizes in the column records are those of the parts behind them.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kNoteIdMember = 1;
constexpr uint16_t kNoteClassMember = 3;
constexpr uint16_t kItemSign = 1;
constexpr uint16_t kSignedSummary = kItemSign | kItemSummary;
constexpr uint16_t kTypeCollation = 2;
constexpr uint16_t kTypeViewFormat = 5;
constexpr uint16_t kViewClass = BRCLASS_VIEW;
constexpr uint16_t kPrivateViewClass = BRCLASS_PRIVATE | BRCLASS_VIEW;
constexpr uint32_t kFormulaTextMax = 0xffff;
constexpr size_t kUserNameBytes = 256;
// How a compiled formula that selects all documents tells its text.
constexpr char kSelectAll[] = "@@SELECT@@ @@102@@";

constexpr uint16_t kOdsCollation = 59;
constexpr uint16_t kOdsCollateDescriptor = 60;
constexpr uint8_t kCollationSignature = 0x44;
constexpr uint8_t kDescriptorSignature = 0x66;
constexpr uint8_t kDescriptorDescending = 1;
constexpr uint8_t kDescriptorCategory = 7;
constexpr uint32_t kBytesPerSort = sizeof(COLLATE_DESCRIPTOR) + kColumnItemNameBytes;
static_assert(sizeof(COLLATION) + kViewColumnsMax * kBytesPerSort <= UINT16_MAX, "its length is a word");

constexpr uint8_t kTableVersion = 1;

// ---- Formulas

// Compiled formulas of a view under way, one for each column.
struct FORMULAS {
  EngMem selection;
  EngMem* columns;
  uint32_t column_count;
};

void FreeFormulas(FORMULAS* formulas) {
  if (formulas->selection != 0) EngMemFree(formulas->selection);
  for (uint32_t i = 0; formulas->columns != nullptr && i < formulas->column_count; ++i)
    if (formulas->columns[i] != 0) EngMemFree(formulas->columns[i]);
  KVIFree(formulas->columns);
}

uint32_t Compile(_api_session* session, const char* item_name, uint16_t name_bytes, const char* text,
                 EngMem* formula) {
  const size_t text_bytes = strlen(text);
  if (text_bytes > kFormulaTextMax) return KVFAIL_DATA_TOO_LONG;
  EngStatus error = 0;
  uint16_t formula_bytes = 0, line = 0, column = 0, offset = 0, error_bytes = 0;
  if (EngFormulaCompile(item_name, name_bytes, text, static_cast<uint16_t>(text_bytes), formula,
                        &formula_bytes, &error, &line, &column, &offset, &error_bytes) == 0)
    return KVSUCCESS;
  *formula = 0;
  // The fragment is looked at no further than the text goes.
  const size_t start = offset < text_bytes ? offset : text_bytes;
  const size_t left = text_bytes - start;
  _BryndFormulaError(session, error, text + start,
                     static_cast<uint32_t>(error_bytes < left ? error_bytes : left));
  return KVFAIL_FORMULA;
}

uint32_t AddColumn(_api_session* session, const COLSPEC& column, uint32_t number, EngMem selection,
                   EngMem* formula) {
  char item_name[kColumnItemNameBytes];
  KVIColumnCreateItemName(item_name, number);
  const char* text = column.formula_string == nullptr ? "" : column.formula_string;
  if (uint32_t status = Compile(session, item_name, kColumnItemNameBytes, text, formula)) return status;
  if (uint16_t brstatus = EngFormulaSummaryItem(selection, item_name, kColumnItemNameBytes)) return brstatus;
  return EngFormulaMerge(*formula, selection);
}

// The formulas are the caller's to free, after a failure too.
uint32_t CompileFormulas(_api_session* session, const _VIEWSPEC& spec, FORMULAS* formulas) {
  formulas->columns = KVIAllocate<EngMem>(spec.col_count);
  if (formulas->columns == nullptr) return KVFAIL_NO_MEMORY;
  formulas->column_count = spec.col_count;
  const char* text = KVIEmpty(spec.selection_formula_string) ? kSelectAll : spec.selection_formula_string;
  if (uint32_t status = Compile(session, nullptr, 0, text, &formulas->selection)) return status;
  for (uint32_t i = 0; i < spec.col_count; ++i)
    if (uint32_t status =
            AddColumn(session, spec.collist[i], i + 1, formulas->selection, &formulas->columns[i]))
      return status;
  if (spec.flags & KVVIEWSPEC_CONFLICTS)
    if (uint16_t brstatus = EngFormulaSummaryItem(formulas->selection, "$Conflict", 9)) return brstatus;
  if (spec.flags & KVVIEWSPEC_RESPONSES)
    if (uint16_t brstatus = EngFormulaSummaryItem(formulas->selection, "$REF", 4)) return brstatus;
  return KVSUCCESS;
}

uint32_t PutFormula(EngNote nh, const char* name, EngMem formula) {
  uint16_t formula_bytes = 0;
  if (uint16_t brstatus = EngFormulaSizeGet(formula, &formula_bytes)) return brstatus;
  const KVLocked code(formula);  // the note copies out of it
  if (code.bytes == nullptr) return KVFAIL_INTERNAL;
  return EngItemAppend(nh, kSignedSummary, name, KVIItemNameBytes(name), BRTYPE_FORMULA, code.bytes,
                       formula_bytes);
}

uint32_t PutFormFormula(_api_session* session, EngNote nh, const char* text) {
  if (KVIEmpty(text)) return KVSUCCESS;
  EngMem formula = 0;
  if (uint32_t status = Compile(session, nullptr, 0, text, &formula)) return status;
  KVGuard free_formula([&] { EngMemFree(formula); });
  return PutFormula(nh, "$FormFormula", formula);
}

// ---- $ViewFormat

size_t TitleBytes(const COLSPEC& column) { return column.title == nullptr ? 0 : strlen(column.title); }

uint16_t DataTypeOf(int32_t type) {
  switch (type) {
    case KVTYPE_NUMBER:
    case KVTYPE_NUMBERLIST:
      return 0;
    case KVTYPE_DATETIME:
    case KVTYPE_DATETIMELIST:
      return 1;
    default:
      return 2;
  }
}

VIEW_COLUMN_FORMAT RecordOf(const _VIEWSPEC& spec, const COLSPEC& column, uint16_t formula_bytes) {
  VIEW_COLUMN_FORMAT record{};
  record.Signature = kViewColumnSignature;
  record.Flags1 = column.flags;
  record.ItemNameSize = kColumnItemNameBytes;
  record.TitleSize = static_cast<uint16_t>(TitleBytes(column));
  record.FormulaSize = formula_bytes;
  record.DisplayWidth = column.width;
  record.FontID = column.font_data;
  uint32_t flags = column.align_data | uint32_t{column.subtotal} << kSubtotalShift;
  if (spec.format == kViewFormatNew) flags |= uint32_t{column.align_heading} << kAlignHeadingShift;
  record.Flags2 = static_cast<uint16_t>(flags);
  record.NumberFormat = column.format.nfmt;
  record.TimeFormat = column.format.tfmt;
  record.ListSep = column.format.listsep;
  record.FormatDataType = DataTypeOf(column.type);
  return record;
}

uint32_t SecondTableOf(const _VIEWSPEC& spec, VIEW_TABLE_FORMAT2* table) {
  *table = {};
  table->Length = sizeof *table;
  table->BackgroundColor = spec.color_bckg;
  table->TitleFont = spec.font_title_border;
  table->UnreadFont = spec.font_unread;
  table->TotalsFont = spec.font_totals;
  table->AutoUpdateSeconds = spec.auto_refresh_seconds;
  if (spec.format != kViewFormatNew) return KVSUCCESS;
  table->BackgroundColor = static_cast<uint16_t>(EngColorMapToV3(spec.color_bckg));
  table->wSig = kViewTableSignature2;
  table->AlternateBackgroundColor = spec.color_alt_bckg;
  table->LineCount = spec.height_rows;
  table->BackgroundColorExt = spec.color_bckg;
  table->HeaderLineCount = spec.height_heading;
  int32_t spacing = spec.height_row_spacing;
  return KVIViewTranslateSpacing(kTranslateWrite, &spacing, &table->Spacing);
}

VIEW_COLUMN_FORMAT2 SecondRecordOf(const COLSPEC& column) {
  VIEW_COLUMN_FORMAT2 record{};
  record.Signature = kViewColumnSignature2;
  record.HeaderFontID = column.font_heading;
  record.ResortToViewUNID = column.view;
  record.wSecondResortColumnIndex = column.col_2nd_sort;
  return record;
}

// What is being written; records go to one place and the parts of columns to another behind them.
struct WRITER {
  void* place;
};

template <typename Record>
void Put(WRITER* writer, uint16_t ods_type, const Record& record) {
  EngOdsWrite(&writer->place, ods_type, &record, 1);
}

void PutBytes(WRITER* writer, const void* bytes, size_t byte_count) {
  KVICopyBytes(writer->place, bytes, byte_count);
  writer->place = static_cast<char*>(writer->place) + byte_count;
}

// Bytes of all titles and formulas.
uint32_t SumParts(const _VIEWSPEC& spec, const EngMem* formulas, uint32_t* bytes) {
  *bytes = 0;
  for (uint32_t i = 0; i < spec.col_count; ++i) {
    uint16_t formula_bytes = 0;
    if (uint16_t brstatus = EngFormulaSizeGet(formulas[i], &formula_bytes)) return brstatus;
    *bytes += formula_bytes + static_cast<uint32_t>(TitleBytes(spec.collist[i]));
  }
  return KVSUCCESS;
}

uint32_t PutColumn(const _VIEWSPEC& spec, uint32_t place, EngMem formula, WRITER* records, WRITER* parts) {
  const COLSPEC& column = spec.collist[place];
  uint16_t formula_bytes = 0;
  if (uint16_t brstatus = EngFormulaSizeGet(formula, &formula_bytes)) return brstatus;
  Put(records, kOdsViewColumnFormat, RecordOf(spec, column, formula_bytes));
  char item_name[kColumnItemNameBytes];
  KVIColumnCreateItemName(item_name, place + 1);
  PutBytes(parts, item_name, sizeof item_name);
  PutBytes(parts, column.title, TitleBytes(column));
  const KVLocked code(formula);
  if (code.bytes == nullptr) return KVFAIL_INTERNAL;
  PutBytes(parts, code.bytes, formula_bytes);
  return KVSUCCESS;
}

uint32_t FillFormat(const _VIEWSPEC& spec, const EngMem* formulas, char* buffer) {
  WRITER records{.place = buffer};
  VIEW_TABLE_FORMAT head{};
  head.Version = kTableVersion;
  head.Columns = static_cast<uint16_t>(spec.col_count);
  head.Flags = static_cast<uint16_t>(spec.flags & 0xffff);
  Put(&records, kOdsViewTableFormat, head);
  WRITER parts{.place = static_cast<char*>(records.place) + spec.col_count * sizeof(VIEW_COLUMN_FORMAT)};
  for (uint32_t i = 0; i < spec.col_count; ++i)
    if (uint32_t status = PutColumn(spec, i, formulas[i], &records, &parts)) return status;
  VIEW_TABLE_FORMAT2 table;
  if (uint32_t status = SecondTableOf(spec, &table)) return status;
  Put(&parts, kOdsViewTableFormat2, table);
  for (uint32_t i = 0; spec.format == kViewFormatNew && i < spec.col_count; ++i)
    Put(&parts, kOdsViewColumnFormat2, SecondRecordOf(spec.collist[i]));
  return KVSUCCESS;
}

// A value that a summary would be too large for lies outside it.
uint16_t SummaryFlag(const _DATABASE& dbase, uint32_t value_bytes) {
  return dbase.summary_limit > value_bytes ? kItemSummary : uint16_t{0};
}

uint32_t PutViewFormat(const _DATABASE& dbase, EngNote nh, const _VIEWSPEC& spec, const EngMem* formulas) {
  char* buffer = nullptr;
  uint32_t bytes = 0;
  if (uint32_t status = KVIViewBuildFormat(spec, formulas, &buffer, &bytes)) return status;
  KVGuard free_buffer([&] { KVIFree(buffer); });
  const auto item_flags = static_cast<uint16_t>(kItemSign | SummaryFlag(dbase, bytes));
  return EngItemAppend(nh, item_flags, "$ViewFormat", 11, kTypeViewFormat, buffer, bytes);
}

// ---- Other items

uint32_t PutCollation(const _DATABASE& dbase, EngNote nh, const _VIEWSPEC& spec) {
  char* buffer = nullptr;
  uint32_t bytes = 0;
  if (uint32_t status = KVIViewBuildCollation(spec, &buffer, &bytes)) return status;
  if (buffer == nullptr) return KVSUCCESS;
  KVGuard free_buffer([&] { KVIFree(buffer); });
  return EngItemAppend(nh, SummaryFlag(dbase, bytes), "$Collation", 10, kTypeCollation, buffer, bytes);
}

// A digit for each column, as a list of texts.
uint32_t PutTotals(EngNote nh, const _VIEWSPEC& spec) {
  bool is_totaled = false;
  for (uint32_t i = 0; i < spec.col_count; ++i) is_totaled |= spec.collist[i].subtotal != 0;
  if (!is_totaled) return KVSUCCESS;
  constexpr uint32_t kWord = sizeof(uint16_t);
  const uint32_t bytes = kWord + spec.col_count * (kWord + 1);
  auto* list = static_cast<char*>(KVIAllocateBytes(bytes));
  if (list == nullptr) return KVFAIL_NO_MEMORY;
  KVGuard free_list([&] { KVIFree(list); });
  KVIStore<uint16_t>(list, static_cast<uint16_t>(spec.col_count));
  for (uint32_t i = 0; i < spec.col_count; ++i) {
    KVIStore<uint16_t>(list + kWord + i * kWord, 1);
    list[kWord + spec.col_count * kWord + i] = static_cast<char>('0' + spec.collist[i].subtotal);
  }
  return EngItemAppend(nh, kItemSummary, "$Totals", 7, BRTYPE_TEXT_LIST, list, bytes);
}

uint32_t PutClass(EngNote nh, const _VIEWSPEC& spec) {
  const bool is_private = (spec.flags & KVVIEWSPEC_PRIVATE) != 0;
  const uint16_t note_class = is_private ? kPrivateViewClass : kViewClass;
  if (is_private) {
    char owner[kUserNameBytes] = {};
    if (uint16_t brstatus = EngUserNameGet(owner)) return brstatus;
    if (uint32_t status = KVIDesignNoteSetOwnership(nh, owner)) return status;
  }
  return EngNoteInfoSet(nh, kNoteClassMember, &note_class);
}

uint32_t FillNote(_api_session* session, const _DATABASE& dbase, EngNote nh, const _VIEWSPEC& spec,
                  FORMULAS* formulas) {
  if (uint32_t status =
          _KVIDesignNoteSetTitle(session, nh, spec.name, spec.menu_name, spec.cascade_name, 1, 0))
    return status;
  if (uint32_t status = KVIViewSetDesignFlags(nh, &spec)) return status;
  if (uint16_t brstatus = EngItemAppend(nh, kSignedSummary, "$FormulaClass", 13, BRTYPE_TEXT, "1", 1))
    return brstatus;
  if (uint32_t status = CompileFormulas(session, spec, formulas)) return status;
  if (uint32_t status = PutFormula(nh, "$Formula", formulas->selection)) return status;
  if (uint32_t status = PutFormFormula(session, nh, spec.form_formula_string)) return status;
  if (uint32_t status = PutViewFormat(dbase, nh, spec, formulas->columns)) return status;
  if (uint32_t status = PutCollation(dbase, nh, spec)) return status;
  if (uint32_t status = PutTotals(nh, spec)) return status;
  return PutClass(nh, spec);
}

// An engine that cannot sign stores the view unsigned.
uint16_t Sign(EngNote nh) {
  const uint16_t brstatus = EngNoteSign(nh);
  return (brstatus & 0x3fff) == kEngNotAvailable ? uint16_t{0} : brstatus;
}

}  // namespace

void KVIColumnCreateItemName(char* buffer, uint32_t number) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  *buffer++ = '$';
  for (int shift = 12; shift >= 0; shift -= 4) *buffer++ = kDigits[(number >> shift) & 15];
}

uint32_t KVIViewSetDesignFlags(EngNote nh, const _VIEWSPEC* pviewspec) {
  static constexpr struct {
    uint32_t flag;
    char letter;
  } kLetters[] = {{KVVIEWSPEC_LETTER_D, 'd'}, {KVVIEWSPEC_LETTER_P, 'p'}, {KVVIEWSPEC_PRIVATE, 'V'}};
  char letters[std::size(kLetters) + 1] = {};
  uint32_t letter_count = 0;
  for (const auto& row : kLetters)
    if (pviewspec->flags & row.flag) letters[letter_count++] = row.letter;
  if ((pviewspec->flags & KVVIEWSPEC_NOT_Y) == 0) letters[letter_count++] = 'Y';
  return EngItemTextSet(nh, "$Flags", letters, letter_count != 0 ? letter_count : 1);  // none: one NUL
}

uint32_t KVIViewBuildFormat(const _VIEWSPEC& spec, const EngMem* formulas, char** buffer, uint32_t* bytes) {
  uint32_t value_bytes = 0;
  if (uint32_t status = SumParts(spec, formulas, &value_bytes)) return status;
  value_bytes += sizeof(VIEW_TABLE_FORMAT) + sizeof(VIEW_TABLE_FORMAT2) +
                 spec.col_count * static_cast<uint32_t>(sizeof(VIEW_COLUMN_FORMAT) + kColumnItemNameBytes);
  if (spec.format == kViewFormatNew)
    value_bytes += spec.col_count * static_cast<uint32_t>(sizeof(VIEW_COLUMN_FORMAT2));
  auto* value = static_cast<char*>(KVIAllocateBytes(value_bytes + 1));
  if (value == nullptr) return KVFAIL_NO_MEMORY;
  if (uint32_t status = FillFormat(spec, formulas, value)) {
    KVIFree(value);
    return status;
  }
  *buffer = value;
  *bytes = value_bytes;
  return KVSUCCESS;
}

uint32_t KVIViewBuildCollation(const _VIEWSPEC& spec, char** buffer, uint32_t* bytes) {
  *buffer = nullptr;
  uint32_t sort_count = 0;
  for (uint32_t i = 0; i < spec.col_count; ++i) sort_count += (spec.collist[i].flags & KVCOLSPEC_SORTED) != 0;
  if (sort_count == 0) return KVSUCCESS;
  const auto value_bytes = static_cast<uint32_t>(sizeof(COLLATION)) + sort_count * kBytesPerSort;
  auto* value = static_cast<char*>(KVIAllocateBytes(value_bytes));
  if (value == nullptr) return KVFAIL_NO_MEMORY;
  WRITER writer{.place = value};
  const COLLATION head{.BufferSize = static_cast<uint16_t>(value_bytes),
                       .Items = static_cast<uint16_t>(sort_count),
                       .Flags = 0,
                       .signature = kCollationSignature};
  Put(&writer, kOdsCollation, head);
  char* names = value + sizeof(COLLATION) + sort_count * sizeof(COLLATE_DESCRIPTOR);
  // Only as many columns as are sorted are looked at, from the left: the engine sorts by the columns' own
  // flags, and the value keeps the form that all such records have.
  for (uint32_t i = 0; i < sort_count; ++i) {
    const uint16_t flags = spec.collist[i].flags;
    if ((flags & KVCOLSPEC_SORTED) == 0) continue;
    const auto offset = static_cast<uint16_t>(i * kColumnItemNameBytes);
    const COLLATE_DESCRIPTOR descriptor{
        .Flags = flags & KVCOLSPEC_DESCENDING ? kDescriptorDescending : uint8_t{0},
        .signature = kDescriptorSignature,
        .keytype = flags & KVCOLSPEC_CATEGORY ? kDescriptorCategory : uint8_t{0},
        .NameOffset = offset,
        .NameLength = kColumnItemNameBytes};
    Put(&writer, kOdsCollateDescriptor, descriptor);
    KVIColumnCreateItemName(names + offset, i + 1);
  }
  *buffer = value;
  *bytes = value_bytes;
  return KVSUCCESS;
}

uint32_t _KVIViewCreateFromSpec(_api_session* session, _DATABASE* pdbase, const _VIEWSPEC* pspec,
                                uint32_t* pviewid) {
  EngNote nh = 0;
  if (uint16_t brstatus = EngNoteCreate(pdbase->dbhand, &nh)) return brstatus;
  KVGuard close_note([&] { EngNoteClose(nh); });
  FORMULAS formulas{};
  KVGuard free_formulas([&] { FreeFormulas(&formulas); });
  if (uint32_t status = FillNote(session, *pdbase, nh, *pspec, &formulas)) return status;
  if (uint16_t brstatus = Sign(nh)) return brstatus;
  if (uint16_t brstatus = EngNoteUpdate(nh, 0)) return brstatus;
  uint32_t viewid = 0;
  if (uint16_t brstatus = EngNoteInfoGet(nh, kNoteIdMember, &viewid)) return brstatus;
  KVIStoreIf<uint32_t>(pviewid, viewid);
  return KVSUCCESS;
}
