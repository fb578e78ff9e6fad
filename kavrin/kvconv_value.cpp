// Conversions to a single number or date-time, and to a formula.
#include <algorithm>

#include "kvconv.h"

namespace {

void StoreNumber(CONVERSION* conversion, double number) {
  KVIStore<double>(conversion->buffer, number);
  conversion->length = sizeof number;
}

// Text that is no number is 0. Characters beyond the workspace of earlier versions never counted, and do not.
uint32_t ReadNumberText(CONVERSION* conversion, const char* text, uint32_t text_bytes) {
  double number;
  bool in_range;
  KVIReadNumber(text, text + std::min(text_bytes, kScanTextMax), &number, &in_range);
  if (!in_range) return KVFAIL_DATA_TOO_LONG;
  StoreNumber(conversion, number);
  return KVSUCCESS;
}

uint32_t ReadDateText(CONVERSION* conversion, const char* text, uint32_t text_bytes) {
  TIMEDATE date;
  const char* stop;
  const char* const text_end = text + std::min(text_bytes, kScanTextMax);
  if (KVIReadDate(text, text_end, conversion->api_format, &date, &stop) != KVSUCCESS)
    return KVFAIL_BAD_FORMAT;
  KVIStore<TIMEDATE>(conversion->buffer, date);
  conversion->length = sizeof date;
  return KVSUCCESS;
}

}  // namespace

uint32_t KVICopyScalar(CONVERSION* conversion) {
  KVIPassSource(conversion, kListValueBytes);
  return KVSUCCESS;
}

uint32_t KVITextToNumber(CONVERSION* conversion) {
  return ReadNumberText(conversion, conversion->src, conversion->src_bytes);
}

uint32_t KVITextListToNumber(CONVERSION* conversion) {
  if (conversion->count == 0) return KVFAIL_BAD_FORMAT;
  const TEXTLISTWALK walk = KVIWalkTextList(conversion->src, conversion->count);
  return ReadNumberText(conversion, walk.text, KVIEntryBytes(walk));
}

uint32_t KVITextToDatetime(CONVERSION* conversion) {
  return ReadDateText(conversion, conversion->src, conversion->src_bytes);
}

uint32_t KVITextListToDatetime(CONVERSION* conversion) {
  if (conversion->count == 0) return KVFAIL_BAD_FORMAT;
  const TEXTLISTWALK walk = KVIWalkTextList(conversion->src, conversion->count);
  return ReadDateText(conversion, walk.text, KVIEntryBytes(walk));
}

uint32_t KVIRangeToScalar(CONVERSION* conversion) {
  if (conversion->count + conversion->range == 0) return KVFAIL_BAD_FORMAT;
  std::memcpy(conversion->buffer, KVIRangeListValues(conversion->src), kListValueBytes);
  conversion->length = kListValueBytes;
  return KVSUCCESS;
}

// Formulas

uint32_t KVICompile(CONVERSION* conversion, EngMem* formula, uint16_t* formula_bytes) {
  constexpr uint32_t kFormulaTextMax = 0xffff;
  const uint32_t text_bytes = conversion->src_bytes;
  if (text_bytes > kFormulaTextMax) return KVFAIL_DATA_TOO_LONG;
  EngStatus error = 0;
  uint16_t line = 0, column = 0, offset = 0, error_bytes = 0;
  const EngStatus brstatus =
      EngFormulaCompile(nullptr, 0, conversion->src, static_cast<uint16_t>(text_bytes), formula,
                        formula_bytes, &error, &line, &column, &offset, &error_bytes);
  if (brstatus == 0) return KVSUCCESS;
  const uint32_t start = std::min<uint32_t>(offset, text_bytes);
  _BryndFormulaError(conversion->session, error, conversion->src + start,
                     std::min<uint32_t>(error_bytes, text_bytes - start));
  return KVFAIL_FORMULA;
}

uint32_t KVICopyFormula(CONVERSION* conversion) {
  if (!KVIIsWrite(*conversion))
    if (const uint32_t status = KVITakeRoom(conversion, conversion->src_bytes); status != KVSUCCESS)
      return status;
  KVIPassSource(conversion, conversion->src_bytes);
  return KVSUCCESS;
}

uint32_t KVITextToFormula(CONVERSION* conversion) {
  EngMem hand = 0;
  uint16_t formula_bytes = 0;
  uint32_t status = KVICompile(conversion, &hand, &formula_bytes);
  if (status != KVSUCCESS) {
    conversion->untouched = conversion->limit != kNoLimit;
    return status;
  }
  KVGuard free_hand([&] { EngMemFree(hand); });
  status = KVITakeRoom(conversion, formula_bytes);
  if (status != KVSUCCESS) return status;
  const KVLocked formula(hand);
  KVICopyBytes(conversion->buffer, formula.bytes, formula_bytes);
  conversion->length = formula_bytes;
  return KVSUCCESS;
}
