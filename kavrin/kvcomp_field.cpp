// Field records of composites: three compiled formulas, a name, a description and choices in one record.
//
// (1) A formula is compiled on the way in and told as text on the way out, unless pointers are asked for. (2)
// The lengths inside a stored record must fit into it, or it is damaged; a formula's own length must fit too.
#include <algorithm>

#include "brynd.h"
#include "kavrin.h"
#include "kvcomp.h"
#include "kvint_form.h"

namespace {

constexpr uint32_t kFieldFlags = 0x3d3f;  // of the stored flags, those that callers see and set
constexpr uint16_t kStoredAlways = 0x80;
constexpr uint16_t kStoredKeywords = 0x200;
constexpr uint16_t kStoredKeywords3 = 0x4000;
constexpr uint32_t kKeywordsMax = 4;
constexpr size_t kFormulaCount = 3;

struct FORMULATEXTS {
  uint32_t length[kFormulaCount];
};
FORMULATEXTS TextsOf(const KVCDFIELD& field) {
  return {{field.default_formula_length, field.input_trans_formula_length, field.input_valid_formula_length}};
}

// ---- Writing

uint16_t StoredKeywords(int32_t keywords) {
  switch (keywords) {
    case 0:
      return 0;
    case 1:
      return kStoredKeywords | 0xc000;
    case 3:
      return kStoredKeywords | kStoredKeywords3;
    case 4:
      return kStoredKeywords | 0x8000;
    default:
      return kStoredKeywords;
  }
}

uint32_t CompileOne(_api_session* session, const char* text, uint32_t text_bytes, EngMem* formula,
                    uint16_t* formula_bytes) {
  constexpr uint32_t kFormulaTextMax = 0xffff;
  if (text_bytes > kFormulaTextMax) return KVFAIL_DATA_TOO_LONG;
  EngStatus error = 0;
  uint16_t line = 0, column = 0, offset = 0, error_bytes = 0;
  if (EngFormulaCompile(nullptr, 0, text, static_cast<uint16_t>(text_bytes), formula, formula_bytes, &error,
                        &line, &column, &offset, &error_bytes)) {
    const uint32_t start = std::min<uint32_t>(offset, text_bytes);
    _BryndFormulaError(session, error, text + start, std::min<uint32_t>(error_bytes, text_bytes - start));
    return KVFAIL_FORMULA;
  }
  if (uint16_t brstatus = EngFormulaSizeGet(*formula, formula_bytes)) {
    EngMemFree(*formula);
    *formula = 0;
    return brstatus;
  }
  return KVSUCCESS;
}

// Compiles the formulas and gathers them in one block.
uint32_t CompileAll(CDDRAFT* draft, const KVCDFIELD& field) {
  EngMem formulas[kFormulaCount] = {};
  KVGuard free_formulas([&] {
    for (const EngMem formula : formulas)
      if (formula != 0) EngMemFree(formula);
  });
  const FORMULATEXTS texts = TextsOf(field);
  const char* text = field.buffer;
  uint32_t compiled_bytes = 0;
  for (size_t i = 0; i < kFormulaCount; text += texts.length[i++]) {
    if (texts.length[i] == 0) continue;
    if (const uint32_t status =
            CompileOne(draft->session, text, texts.length[i], &formulas[i], &draft->formula_bytes[i]))
      return status;
    compiled_bytes += draft->formula_bytes[i];
  }
  if (compiled_bytes == 0) return KVSUCCESS;
  draft->compiled = static_cast<char*>(KVIAllocateBytes(compiled_bytes));
  if (draft->compiled == nullptr) return KVFAIL_NO_MEMORY;
  char* target = draft->compiled;
  for (size_t i = 0; i < kFormulaCount; ++i) {
    if (formulas[i] == 0) continue;
    const KVLocked compiled(formulas[i]);
    if (compiled.bytes == nullptr) return KVFAIL_INTERNAL;
    KVICopyBytes(target, compiled.bytes, draft->formula_bytes[i]);
    target += draft->formula_bytes[i];
  }
  draft->length += compiled_bytes;
  return KVSUCCESS;
}

// ---- Reading

// The head of a stored field; the older form has no choices.
CDFIELD HeadOf(const CDSOURCE& source) {
  if (source.signature == kCdField) return KVICDRead<CDFIELD>(source.stored, kOdsField);
  const auto older = KVICDRead<CDFIELD_PRE_36>(source.stored, kOdsFieldPre36);
  CDFIELD field{};
  static_assert(sizeof older + sizeof field.TextValueLength == sizeof field);
  std::memcpy(&field, &older, sizeof older);
  return field;
}

// The parts of a stored field.
struct FIELDPARTS {
  uint16_t formula_bytes[kFormulaCount];
  uint32_t rest_bytes;  // name, description, choices
};

bool PartsOf(const CDSOURCE& source, const CDFIELD& head, FIELDPARTS* parts) {
  *parts = {{head.DVLength, head.ITLength, head.IVLength}, 0};
  const uint32_t formula_bytes = uint32_t{head.DVLength} + head.ITLength + head.IVLength;
  const uint32_t named_bytes = uint32_t{head.NameLength} + head.DescLength + head.TextValueLength;
  if (formula_bytes + named_bytes > KVICDVariableBytes(source)) return false;
  parts->rest_bytes = KVICDVariableBytes(source) - formula_bytes;
  return true;
}

// The texts of a field's formulas.
struct TEXTS {
  EngMem hand[kFormulaCount];
  uint16_t bytes[kFormulaCount];
};

uint32_t Decompile(const CDSOURCE& source, const FIELDPARTS& parts, TEXTS* texts) {
  const char* formula = KVICDVariable(source);
  for (size_t i = 0; i < kFormulaCount; formula += parts.formula_bytes[i++]) {
    if (parts.formula_bytes[i] == 0) continue;
    if (parts.formula_bytes[i] < sizeof(uint16_t)) return KVFAIL_BAD_FORMAT;
    const void* at = formula;
    uint16_t own_bytes = 0;
    EngOdsRead(&at, kOdsWord, &own_bytes, 1);
    if (own_bytes > parts.formula_bytes[i]) return KVFAIL_BAD_FORMAT;
    if (uint16_t brstatus = EngFormulaDecompile(formula, 0, &texts->hand[i], &texts->bytes[i])) {
      texts->hand[i] = 0;
      return brstatus;
    }
  }
  return KVSUCCESS;
}

KVCDFIELD PublicHead(const CDFIELD& head) {
  KVCDFIELD field{};
  field.type = static_cast<int32_t>(GetKVType(head.DataType));
  field.field_flags = head.Flags & kFieldFlags;
  if ((head.Flags & kStoredKeywords) != 0) field.keywords = (head.Flags & kStoredKeywords3) != 0 ? 3 : 2;
  KVIStore<uint32_t>(&field.font, head.FontID);
  KVFORMAT format{};
  const NFMT nfmt = head.NumberFormat;
  const TFMT tfmt = head.TimeFormat;
  const uint16_t listsep = head.ListDelim;
  GetFormat(&format, &nfmt, &tfmt, &listsep);
  field.format = format;
  field.default_formula_length = head.DVLength;
  field.input_trans_formula_length = head.ITLength;
  field.input_valid_formula_length = head.IVLength;
  field.field_name_length = head.NameLength;
  field.field_desc_length = head.DescLength;
  field.field_keywords_length = head.TextValueLength;
  return field;
}

// Copies texts, name, description and choices to the caller's buffer, and tells the texts' lengths.
void CopyOut(const CDSOURCE& source, const FIELDPARTS& parts, const TEXTS& texts, char* target,
             KVCDFIELD* field) {
  const char* rest = KVICDVariable(source);
  for (size_t i = 0; i < kFormulaCount; ++i) {
    rest += parts.formula_bytes[i];
    if (texts.hand[i] == 0) continue;
    const KVLocked text(texts.hand[i]);
    KVICopyBytes(target, text.bytes, texts.bytes[i]);
    target += texts.bytes[i];
  }
  KVICopyBytes(target, rest, parts.rest_bytes);
  field->default_formula_length = texts.bytes[0];
  field->input_trans_formula_length = texts.bytes[1];
  field->input_valid_formula_length = texts.bytes[2];
}

}  // namespace

uint32_t KVICDPrepareField(CDDRAFT* draft) {
  auto field = KVILoad<KVCDFIELD>(draft->record);
  if (field.field_name_length == 0) return KVFAIL_BAD_FORMAT;
  if (field.buffer == nullptr) return KVFAIL_BAD_FORMAT;
  const uint64_t formula_bytes = uint64_t{field.default_formula_length} + field.input_trans_formula_length +
                                 field.input_valid_formula_length;
  const uint64_t named_bytes =
      uint64_t{field.field_name_length} + field.field_desc_length + field.field_keywords_length;
  if (!KVIFieldValidateName(field.buffer + formula_bytes, field.field_name_length))
    return draft->session->kvprog_version < kVersionFourth ? KVFAIL_NO_FIELD : KVFAIL_BAD_FIELD_NAME;
  if (static_cast<uint32_t>(field.keywords) > kKeywordsMax) return KVFAIL_BAD_ENUM;
  const KVFORMAT format = field.format;
  NFMT nfmt;
  TFMT tfmt;
  uint16_t listsep = 0;
  if (const uint32_t status = PutFormat(&format, &nfmt, &tfmt, &listsep)) return status;
  CheckFont(&field.font);
  KVIStore<KVCDFIELD>(draft->record, field);
  if (sizeof(CDFIELD) + named_bytes > kCdLongLengthMax) return KVFAIL_DATA_TOO_LONG;
  draft->length = static_cast<uint32_t>(sizeof(CDFIELD) + named_bytes);
  if (const uint32_t status = CompileAll(draft, field)) return status;
  // Last, as nothing but the table of stored types needs it.
  if (static_cast<uint32_t>(field.type) >= kKVTypeCount) return KVFAIL_BAD_ENUM;
  return draft->length > kCdLongLengthMax ? uint32_t{KVFAIL_DATA_TOO_LONG} : uint32_t{KVSUCCESS};
}

void KVICDWriteField(const CDDRAFT& draft, char* stored) {
  const auto field = KVILoad<KVCDFIELD>(draft.record);
  const KVFORMAT format = field.format;
  NFMT nfmt{};
  TFMT tfmt{};
  uint16_t listsep = 0;
  (void)PutFormat(&format, &nfmt, &tfmt, &listsep);  // it was checked
  const auto word = [](auto value) { return static_cast<uint16_t>(value); };
  CDFIELD head{};
  head.Signature = kCdField;
  head.Length = word(draft.length);
  head.Flags = word((field.field_flags & kFieldFlags) | kStoredAlways | StoredKeywords(field.keywords));
  head.DataType = GetBryndType(static_cast<uint32_t>(field.type));
  head.ListDelim = listsep;
  head.NumberFormat = nfmt;
  head.TimeFormat = tfmt;
  head.FontID = KVILoad<uint32_t>(&field.font);
  head.DVLength = draft.formula_bytes[0];
  head.ITLength = draft.formula_bytes[1];
  head.IVLength = draft.formula_bytes[2];
  head.NameLength = word(field.field_name_length);
  head.DescLength = word(field.field_desc_length);
  head.TextValueLength = word(field.field_keywords_length);
  KVICDWrite(stored, kOdsField, head);
  const uint32_t compiled_bytes = uint32_t{head.DVLength} + head.ITLength + head.IVLength;
  char* target = stored + sizeof head;
  KVICopyBytes(target, draft.compiled, compiled_bytes);
  const FORMULATEXTS texts = TextsOf(field);
  const char* named = field.buffer + texts.length[0] + texts.length[1] + texts.length[2];
  KVICopyBytes(target + compiled_bytes, named, draft.length - sizeof head - compiled_bytes);
}

uint32_t KVICDReadField(CDSOURCE* source) {
  const CDFIELD head = HeadOf(*source);
  FIELDPARTS parts;
  if (!PartsOf(*source, head, &parts)) return KVFAIL_BAD_FORMAT;
  source->variable_bytes = KVICDVariableBytes(*source);
  char* buffer = source->record != nullptr ? KVILoad<KVCDFIELD>(source->record).buffer : nullptr;
  const bool is_copy = source->record != nullptr && !source->is_direct && buffer != nullptr;
  TEXTS texts{};
  KVGuard free_texts([&] {
    for (const EngMem hand : texts.hand)
      if (hand != 0) EngMemFree(hand);
  });
  if (is_copy || source->record == nullptr) {  // a listing, too, fails at a formula that cannot be told
    if (const uint32_t status = Decompile(*source, parts, &texts)) return status;
    source->variable_bytes = parts.rest_bytes + texts.bytes[0] + texts.bytes[1] + texts.bytes[2];
  }
  if (source->record == nullptr) return KVSUCCESS;
  KVCDFIELD field = PublicHead(head);
  field.buffer = source->is_direct ? const_cast<char*>(KVICDVariable(*source)) : buffer;
  if (is_copy) CopyOut(*source, parts, texts, buffer, &field);
  KVIStore<KVCDFIELD>(source->record, field);
  return is_copy || source->is_direct ? uint32_t{KVSUCCESS} : uint32_t{KVFAIL_DATA_TOO_LONG};
}
