// Data conversion: the types and the matrix of their conversions, the frame that every conversion runs in,
// and the public calls.
//
// (1) A pair of types has a cell exactly where convert_length says that it converts; the compiler proves it.
// (2) The frame alone takes and frees buffers, clears the caller's after a failure, and appends items.
#include "kvconv.h"

#include <iterator>

#include "kvint_document.h"

constexpr uint16_t brynd_type[kKVTypeCount] = {0,
                                               BRTYPE_NUMBER,
                                               BRTYPE_TEXT,
                                               BRTYPE_TIME,
                                               BRTYPE_TEXT_LIST,
                                               BRTYPE_NUMBER_RANGE,
                                               BRTYPE_TIME_RANGE,
                                               BRTYPE_COMPOSITE,
                                               BRTYPE_FORMULA};
constexpr uint8_t fixed_length[kKVTypeCount] = {0, 1, 0, 1, 0, 0, 0, 1, 0};
constexpr uint16_t min_length[kKVTypeCount] = {8, 8, 1, 8, 2, 4, 4, 4, 2};
// A positive number is the longest result of a source of fixed size; -1 as long as the source, -2 computed,
// -3 composite.
constexpr int16_t convert_length[kKVTypeCount][kKVTypeCount] = {
    {0, 0, 0, 0, 0, 0, 0, 0, 0},     {0, 8, 8, 0, 8, 8, 0, 0, 0},       {0, 39, -1, 79, -2, -2, -2, -3, -2},
    {0, 0, 8, 8, 8, 0, 8, 0, 0},     {0, 41, -2, 81, -1, -2, -2, 0, 0}, {0, 12, -2, 0, -2, -1, 0, 0, 0},
    {0, 0, -2, 12, -2, 0, -1, 0, 0}, {0, 0, -3, 0, 0, 0, 0, 4, 0},      {0, 0, -2, 0, 0, 0, 0, 0, -1}};
constexpr uint8_t implicit_convert[kKVTypeCount][kKVTypeCount] = {
    {0, 0, 0, 0, 0, 0, 0, 0, 0}, {0, 1, 0, 0, 0, 1, 0, 0, 0}, {0, 0, 1, 0, 1, 0, 0, 0, 0},
    {0, 0, 0, 1, 0, 0, 1, 0, 0}, {0, 0, 1, 0, 1, 0, 0, 0, 0}, {0, 1, 0, 0, 0, 1, 0, 0, 0},
    {0, 0, 0, 1, 0, 0, 1, 0, 0}, {0, 0, 0, 0, 0, 0, 0, 1, 0}, {0, 0, 0, 0, 0, 0, 0, 0, 1}};

namespace {

struct CELL {
  uint32_t dest_type;
  uint32_t src_type;
  CONVERT convert;
  MEASURE measure;
  bool takes_room;  // convert calls KVITakeRoom itself
};

// Composites go through _CompConvert and have no function here.
constexpr CELL kCells[] = {
    {KVTYPE_NUMBER, KVTYPE_NUMBER, KVICopyScalar, KVIMeasureSource, false},
    {KVTYPE_NUMBER, KVTYPE_TEXT, KVITextToNumber, KVIMeasureSource, false},
    {KVTYPE_NUMBER, KVTYPE_TEXTLIST, KVITextListToNumber, KVIMeasureSource, false},
    {KVTYPE_NUMBER, KVTYPE_NUMBERLIST, KVIRangeToScalar, KVIMeasureSource, false},
    {KVTYPE_TEXT, KVTYPE_NUMBER, KVIScalarToText, KVIMeasureScalarText, true},
    {KVTYPE_TEXT, KVTYPE_TEXT, KVITextToText, KVIMeasureText, false},
    {KVTYPE_TEXT, KVTYPE_DATETIME, KVIScalarToText, KVIMeasureScalarText, true},
    {KVTYPE_TEXT, KVTYPE_TEXTLIST, KVITextListToText, KVIMeasureTextListText, false},
    {KVTYPE_TEXT, KVTYPE_NUMBERLIST, KVIRangeToText, KVIMeasureRangeText, false},
    {KVTYPE_TEXT, KVTYPE_DATETIMELIST, KVIRangeToText, KVIMeasureRangeText, false},
    {KVTYPE_TEXT, KVTYPE_COMPOSITE, nullptr, KVIMeasureCompositeText, false},
    {KVTYPE_TEXT, KVTYPE_FORMULA, KVIFormulaToText, KVIMeasureFormulaText, true},
    {KVTYPE_DATETIME, KVTYPE_TEXT, KVITextToDatetime, KVIMeasureSource, false},
    {KVTYPE_DATETIME, KVTYPE_DATETIME, KVICopyScalar, KVIMeasureSource, false},
    {KVTYPE_DATETIME, KVTYPE_TEXTLIST, KVITextListToDatetime, KVIMeasureSource, false},
    {KVTYPE_DATETIME, KVTYPE_DATETIMELIST, KVIRangeToScalar, KVIMeasureSource, false},
    {KVTYPE_TEXTLIST, KVTYPE_NUMBER, KVIScalarToTextList, KVIMeasureScalarText, true},
    {KVTYPE_TEXTLIST, KVTYPE_TEXT, KVITextToTextList, KVIMeasureTextToTextList, false},
    {KVTYPE_TEXTLIST, KVTYPE_DATETIME, KVIScalarToTextList, KVIMeasureScalarText, true},
    {KVTYPE_TEXTLIST, KVTYPE_TEXTLIST, KVICopyTextList, KVIMeasureSource, false},
    {KVTYPE_TEXTLIST, KVTYPE_NUMBERLIST, KVIRangeToTextList, KVIMeasureRangeText, false},
    {KVTYPE_TEXTLIST, KVTYPE_DATETIMELIST, KVIRangeToTextList, KVIMeasureRangeText, false},
    {KVTYPE_NUMBERLIST, KVTYPE_NUMBER, KVIScalarToRange, KVIMeasureScalarRange, false},
    {KVTYPE_NUMBERLIST, KVTYPE_TEXT, KVITextToRange, KVIMeasureTextToRange, false},
    {KVTYPE_NUMBERLIST, KVTYPE_TEXTLIST, KVITextListToRange, KVIMeasureTextListToRange, false},
    {KVTYPE_NUMBERLIST, KVTYPE_NUMBERLIST, KVICopyRange, KVIMeasureRange, false},
    {KVTYPE_DATETIMELIST, KVTYPE_TEXT, KVITextToRange, KVIMeasureTextToRange, false},
    {KVTYPE_DATETIMELIST, KVTYPE_DATETIME, KVIScalarToRange, KVIMeasureScalarRange, false},
    {KVTYPE_DATETIMELIST, KVTYPE_TEXTLIST, KVITextListToRange, KVIMeasureTextListToRange, false},
    {KVTYPE_DATETIMELIST, KVTYPE_DATETIMELIST, KVICopyRange, KVIMeasureRange, false},
    {KVTYPE_COMPOSITE, KVTYPE_TEXT, nullptr, KVIMeasureSource, false},
    {KVTYPE_COMPOSITE, KVTYPE_COMPOSITE, nullptr, KVIMeasureSource, false},
    {KVTYPE_FORMULA, KVTYPE_TEXT, KVITextToFormula, KVIMeasureTextFormula, true},
    {KVTYPE_FORMULA, KVTYPE_FORMULA, KVICopyFormula, KVIMeasureSource, true},
};

struct MATRIX {
  uint8_t row[kKVTypeCount][kKVTypeCount];  // row of kCells plus 1, 0 where nothing converts
};
constexpr MATRIX MakeMatrix() {
  MATRIX matrix{};
  for (uint8_t i = 0; i < std::size(kCells); ++i) {
    const CELL& cell = kCells[i];
    matrix.row[cell.dest_type][cell.src_type] = static_cast<uint8_t>(i + 1);
  }
  return matrix;
}
constexpr MATRIX kMatrix = MakeMatrix();

constexpr bool AgreesWithLengths(const MATRIX& matrix) {
  uint32_t cells = 0;
  for (uint32_t dest_type = 0; dest_type < kKVTypeCount; ++dest_type)
    for (uint32_t src_type = 0; src_type < kKVTypeCount; ++src_type) {
      const bool has_cell = matrix.row[dest_type][src_type] != 0;
      if (has_cell != (convert_length[dest_type][src_type] != 0)) return false;
      if (has_cell) ++cells;
    }
  return cells == std::size(kCells);
}
static_assert(AgreesWithLengths(kMatrix), "one cell for every pair of types that converts, none for another");

const CELL* FindCell(uint32_t dest_type, uint32_t src_type) {
  if (dest_type >= kKVTypeCount || src_type >= kKVTypeCount) return nullptr;
  const uint8_t row = kMatrix.row[dest_type][src_type];
  return row == 0 ? nullptr : &kCells[row - 1];
}

// Bytes that a result in the library's own buffer may need.
uint32_t BufferBytes(CONVERSION* conversion, const CELL& cell, uint32_t* bytes) {
  const bool from_text = conversion->src_type == KVTYPE_TEXT || conversion->src_type == KVTYPE_TEXTLIST;
  const bool to_range =
      conversion->dest_type == KVTYPE_NUMBERLIST || conversion->dest_type == KVTYPE_DATETIMELIST;
  uint64_t needed_bytes = 0;
  // What text holds must be counted for the list anyway; an estimate would scan it once more, and can be too
  // small.
  const uint32_t status = cell.measure(conversion, !(from_text && to_range), &needed_bytes);
  if (status != KVSUCCESS) return status;
  if (fixed_length[conversion->dest_type] != 0) needed_bytes = min_length[conversion->dest_type];
  // The estimate leaves out the separators between ranges.
  if (conversion->dest_type == KVTYPE_TEXT) needed_bytes += uint64_t{conversion->range} * kDispDelimBytes;
  if (needed_bytes >= kNoLimit) return KVFAIL_DATA_TOO_LONG;
  *bytes = static_cast<uint32_t>(needed_bytes);
  return KVSUCCESS;
}

// Aims the conversion at the caller's buffer: checks its size as far as that can be done before.
uint32_t AimAtCaller(CONVERSION* conversion, const CELL& cell, const void* src_buf, uint32_t src_len,
                     uint32_t dest_len) {
  if (dest_len != 0) {
    if (dest_len < min_length[conversion->dest_type]) {
      conversion->untouched = true;
      return KVFAIL_DATA_TOO_LONG;
    }
    conversion->limit = dest_len;
    conversion->truncate = conversion->dest_type == KVTYPE_TEXT && conversion->session->truncate_text != 0;
  }
  if (const uint32_t status = KVIOpenSource(conversion, src_buf, src_len); status != KVSUCCESS) return status;
  if (dest_len == 0 || conversion->truncate || cell.takes_room) return KVSUCCESS;
  if (fixed_length[conversion->dest_type] != 0) return KVSUCCESS;
  uint64_t bytes = 0;
  uint32_t status = cell.measure(conversion, false, &bytes);
  if (status == KVSUCCESS && bytes > dest_len) status = KVFAIL_DATA_TOO_LONG;
  conversion->untouched = status != KVSUCCESS;
  return status;
}

// Aims the conversion at a buffer of the library, unless the cell finds its own or the source itself is
// written.
uint32_t AimAtBuffer(CONVERSION* conversion, const CELL& cell, const void* src_buf, uint32_t src_len) {
  if (const uint32_t status = KVIOpenSource(conversion, src_buf, src_len); status != KVSUCCESS) return status;
  if (KVIIsWrite(*conversion) && conversion->src_type == conversion->dest_type) return KVSUCCESS;
  if (cell.takes_room) return KVSUCCESS;
  uint32_t bytes = 0;
  if (const uint32_t status = BufferBytes(conversion, cell, &bytes); status != KVSUCCESS) return status;
  return KVITakeRoom(conversion, bytes);
}

// Flags of the item that a write makes.
uint16_t ItemFlags(const CONVERSION& conversion, const _DATABASE* dbase, const FORMAT* given_format) {
  const bool is_long = dbase != nullptr && dbase->summary_limit < conversion.length;
  uint16_t item_flags = is_long || conversion.dest_type == KVTYPE_FORMULA ? 0 : kItemSummary;
  if (given_format != nullptr) item_flags |= given_format->item_flags;
  if ((conversion.flags & KVCONV_ITEM_FLAGS) != 0) {
    item_flags = static_cast<uint16_t>(conversion.flags);
  } else if ((conversion.flags & KVCONV_SUMMARY) != 0) {
    item_flags &= static_cast<uint16_t>(~kItemSummary);
    item_flags |= conversion.flags & kItemSummary;
  }
  return item_flags;
}

// Appends the result. With KVCONV_REPLACE the old items go after the new one stands, also when it could not
// be appended.
uint32_t AppendItem(const CONVERSION& conversion, const _DATABASE* dbase, _DOCUMENT* doc,
                    const char* itemname, const FORMAT* given_format) {
  constexpr size_t kNameBytesMax = 0xffff;  // more than the engine takes, which refuses it
  const size_t name_length = std::strlen(itemname);
  const auto name_bytes = static_cast<uint16_t>(name_length < kNameBytesMax ? name_length : kNameBytesMax);
  const bool is_replace = (conversion.flags & KVCONV_REPLACE) != 0;
  const uint16_t item_flags = ItemFlags(conversion, dbase, given_format);
  if (is_replace)
    if (const uint32_t status = _DeleteItemPrep(conversion.session, doc, itemname, name_bytes);
        status != KVSUCCESS)
      return status;
  const uint16_t brstatus =
      EngItemAppend(doc->notehand, item_flags, itemname, name_bytes, brynd_type[conversion.dest_type],
                    conversion.result, conversion.length);
  if (is_replace) _DeleteItem(conversion.session, doc, nullptr, 0);
  return brstatus;
}

// Hands the result over. A block loses what it has too much, as far as the heap will have it.
void HandOver(CONVERSION* conversion, void* dest_buf, uint32_t* actual_len) {
  KVIStoreIf<uint32_t>(actual_len, conversion->length);
  if (KVIIsToCaller(*conversion)) return;
  void* fitted = KVIReallocateBytes(conversion->buffer, size_t{conversion->length} + 1);
  if (fitted != nullptr) conversion->buffer = static_cast<char*>(fitted);
  KVIStore<void*>(dest_buf, conversion->buffer);
  conversion->owned = false;
}

}  // namespace

uint16_t GetBryndType(uint32_t kvtype) { return brynd_type[kvtype]; }

uint32_t GetKVType(uint16_t wBRType) {
  constexpr uint16_t kFamily = 0xff00;
  if ((wBRType & kFamily) == BRTYPE_USER) return KVTYPE_TEXT;
  if ((wBRType & kFamily) == BRTYPE_FORMULA) return KVTYPE_FORMULA;
  for (uint32_t type = KVTYPE_NONE; type < kKVTypeCount; ++type)
    if (brynd_type[type] == wBRType) return type;
  return KVTYPE_NONE;
}

uint16_t KVI_BRDataTypeRead(const void* data, int IsCanon) {
  if (IsCanon == 0) return KVILoad<uint16_t>(data);
  uint16_t type = 0;
  EngOdsRead(&data, 0, &type, 1);
  return type;
}

uint32_t KVITakeRoom(CONVERSION* conversion, uint32_t bytes) {
  if (KVIIsToCaller(*conversion)) {
    if (bytes <= conversion->limit || conversion->truncate) return KVSUCCESS;
    conversion->untouched = true;
    return KVFAIL_DATA_TOO_LONG;
  }
  const bool is_small = bytes <= kSessionTextBytes;
  if (is_small && (conversion->flags & KVCONV_ALLOC) == 0) {
    conversion->buffer = conversion->session->buffer;
    return KVSUCCESS;
  }
  conversion->buffer = static_cast<char*>(KVIAllocateBytes(size_t{bytes} + 1));
  if (conversion->buffer == nullptr) return KVFAIL_NO_MEMORY;
  conversion->owned = true;
  return KVSUCCESS;
}

void KVIPassSource(CONVERSION* conversion, uint32_t bytes) {
  conversion->length = bytes;
  if (KVIIsWrite(*conversion))
    conversion->result = conversion->src;
  else
    KVICopyBytes(conversion->buffer, conversion->src, bytes);
}

uint32_t KVIFormatFailure(CONVERSION* conversion, uint16_t brstatus) {
  conversion->untouched = conversion->limit != kNoLimit && !conversion->truncate;
  return conversion->untouched ? KVFAIL_BAD_FORMAT : KVError(brstatus);
}

uint32_t _DataLength(_api_session* session, uint32_t src_type, uint32_t src_len, const void* src_buf,
                     uint32_t dest_type, uint32_t flags, const FORMAT* format, uint32_t* nonrange_count,
                     uint32_t* dest_len) {
  constexpr uint32_t kOneValueList = kListHeadBytes + kListValueBytes;
  KVIStore<uint32_t>(dest_len, 0);
  KVIStoreIf<uint32_t>(nonrange_count, 0);
  if (src_type > kKVTypeMax) return KVFAIL_BAD_ENUM;
  if (dest_type > kKVTypeMax) return KVFAIL_BAD_ENUM;
  const CELL* cell = FindCell(dest_type, src_type);
  if (cell == nullptr) return KVFAIL_ILLEGAL_CONVERSION;
  if (fixed_length[dest_type] != 0) {
    KVIStore<uint32_t>(dest_len, min_length[dest_type]);
    return KVSUCCESS;
  }
  if (cell->convert == KVIScalarToRange) {
    KVIStore<uint32_t>(dest_len, kOneValueList);
    return KVSUCCESS;
  }
  CONVERSION conversion{};
  conversion.session = session;
  conversion.src_type = src_type;
  conversion.dest_type = dest_type;
  conversion.flags = flags;
  conversion.api_format = &session->format;
  conversion.format = format != nullptr ? format : &session->format.format;
  conversion.limit = kNoLimit;
  if (const uint32_t status = KVIOpenSource(&conversion, src_buf, src_len); status != KVSUCCESS)
    return status;
  uint64_t bytes = 0;
  if (const uint32_t status = cell->measure(&conversion, (flags & KVCONV_ESTIMATE) != 0, &bytes);
      status != KVSUCCESS)
    return status;
  if (bytes > UINT32_MAX) return KVFAIL_DATA_TOO_LONG;
  KVIStore<uint32_t>(dest_len, static_cast<uint32_t>(bytes));
  if (dest_type != KVTYPE_TEXTLIST && conversion.counted)
    KVIStoreIf<uint32_t>(nonrange_count, conversion.entry_count);
  return KVSUCCESS;
}

uint32_t _DataConvert(_api_session* session, _DATABASE* dbase, _DOCUMENT* doc, uint32_t src_type,
                      uint32_t src_len, const void* src_buf, uint32_t flags, const char* itemname,
                      const FORMAT* format, uint32_t dest_type, uint32_t dest_len, void* dest_buf,
                      uint32_t* actual_len) {
  if (src_type > kKVTypeMax) return KVFAIL_BAD_ENUM;
  if (dest_type > kKVTypeMax) return KVFAIL_BAD_ENUM;
  const CELL* cell = FindCell(dest_type, src_type);
  if (cell == nullptr) return KVFAIL_ILLEGAL_CONVERSION;
  if (src_type == KVTYPE_COMPOSITE || dest_type == KVTYPE_COMPOSITE)
    return _CompConvert(session, doc, src_type, src_len, src_buf, dest_type, dest_len, dest_buf, actual_len,
                        itemname, flags, format);
  CONVERSION conversion{};
  conversion.session = session;
  conversion.src_type = src_type;
  conversion.dest_type = dest_type;
  conversion.flags = flags;
  conversion.api_format = &session->format;
  conversion.format = format != nullptr ? format : &session->format.format;
  conversion.limit = kNoLimit;
  const bool to_caller = KVIIsToCaller(conversion);
  conversion.buffer = to_caller ? static_cast<char*>(dest_buf) : nullptr;
  KVGuard free_buffer([&] {
    if (conversion.owned) KVIFree(conversion.buffer);
  });

  uint32_t status = to_caller ? AimAtCaller(&conversion, *cell, src_buf, src_len, dest_len)
                              : AimAtBuffer(&conversion, *cell, src_buf, src_len);
  if (status == KVSUCCESS) status = cell->convert(&conversion);
  if (status != KVSUCCESS) {
    if (to_caller && !conversion.untouched) std::memset(dest_buf, 0, min_length[dest_type]);
    return status;
  }
  if (KVIIsWrite(conversion)) {
    if (conversion.result == nullptr) conversion.result = conversion.buffer;
    return AppendItem(conversion, dbase, doc, itemname, format);
  }
  HandOver(&conversion, dest_buf, actual_len);
  return KVSUCCESS;
}

uint32_t KVConvert(uint16_t src_type, uint32_t src_length, const void* src_buffer, uint16_t dest_type,
                   uint32_t dest_length, void* dest_buffer, uint32_t* actual_length) {
  constexpr uint32_t kConvertFlags = KVCONV_SRC_TERMINATED | KVCONV_LINES;
  _api_session* session;
  if (const uint32_t status = KVIEnterThread(&session)) return status;
  KVIStoreIf<uint32_t>(actual_length, 0);
  if (src_buffer == nullptr) return KVError(KVFAIL_NULL_PARAM);
  if (dest_buffer == nullptr) return KVError(KVFAIL_NULL_PARAM);
  if (src_type == KVTYPE_TEXT && src_length != 0) {
    ReviseSplitCharacter(&src_length, src_buffer);
    if (src_length == 0) return KVError(KVFAIL_DATA_UNAVAILABLE);
  }
  uint32_t result_bytes = 0;
  const uint32_t status =
      _DataConvert(session, nullptr, nullptr, src_type, src_length, src_buffer, kConvertFlags, nullptr,
                   nullptr, dest_type, dest_length, dest_buffer, &result_bytes);
  if (status != KVSUCCESS) return KVError(status);
  // Only a text that fills the buffer may have been cut; behind a shorter one nothing was written.
  if (dest_type == KVTYPE_TEXT && dest_length != 0 && result_bytes == dest_length)
    ReviseSplitCharacter(&result_bytes, static_cast<char*>(dest_buffer), 1);
  KVIStoreIf<uint32_t>(actual_length, result_bytes);
  return KVSUCCESS;
}

uint32_t KVConvertGetLength(uint16_t src_type, uint32_t src_length, const void* src_buffer,
                            uint16_t dest_type) {
  constexpr uint32_t kConvertFlags = KVCONV_SRC_TERMINATED | KVCONV_LINES;
  _api_session* session;
  if (KVIEnterThread(&session) != KVSUCCESS) return 0;
  if (src_buffer == nullptr) {
    KVError(KVFAIL_NULL_PARAM);
    return 0;
  }
  uint32_t length = 0;
  const uint32_t status = _DataLength(session, src_type, src_length, src_buffer, dest_type, kConvertFlags,
                                      nullptr, nullptr, &length);
  return status == KVSUCCESS ? length : 0;
}
