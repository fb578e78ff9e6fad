// Public records made into stored ones and back: all types but fields, and where a new record finds its room.
//
// (1) One row per type; what has no row is read as its stored bytes. (2) A stored record of a type has at
// least its fixed part, or it is damaged. (3) Bytes that no member settles are zero: pads, spare fields. (4)
// After a failure nothing has changed but the flag that CheckFont clears.
#include "brynd.h"
#include "kavrin.h"
#include "kvcomp.h"

namespace {

constexpr uint32_t kRecordTypeMax = 19;
constexpr int32_t kNoRecordType = 11;
constexpr uint32_t kUnknownBytesMax = 0x7ffffff0;  // keeps sums of lengths within 32 bits

// ---- Any record

uint32_t PrepareUnknown(CDDRAFT* draft) {
  const auto unknown = KVILoad<KVCDUNKNOWN>(draft->record);
  if (unknown.buffer == nullptr) return KVFAIL_NULL_PARAM;
  if (unknown.length > kUnknownBytesMax) return KVFAIL_DATA_TOO_LONG;
  CDHEADER header;
  if (!KVICDReadHeader(unknown.buffer, unknown.length, &header)) return KVFAIL_BAD_FORMAT;
  if (header.length != unknown.length) return KVFAIL_BAD_FORMAT;
  if (unknown.signature != 0 && unknown.signature != header.signature) return KVFAIL_BAD_FORMAT;
  draft->length = unknown.length;
  return KVSUCCESS;
}

void WriteUnknown(const CDDRAFT& draft, char* stored) {
  KVICopyBytes(stored, KVILoad<KVCDUNKNOWN>(draft.record).buffer, draft.length);
}

uint32_t ReadUnknown(CDSOURCE* source) {
  source->variable_bytes = source->length;
  if (source->record == nullptr) return KVSUCCESS;
  auto unknown = KVILoad<KVCDUNKNOWN>(source->record);
  unknown.length = source->length;
  unknown.signature = source->signature;
  char* buffer = unknown.buffer;
  const uint32_t status = KVICDTellBytes(*source, source->stored, source->length, false, &buffer);
  unknown.buffer = buffer;
  KVIStore<KVCDUNKNOWN>(source->record, unknown);
  return status;
}

// ---- Paragraph styles

uint32_t PreparePabDef(CDDRAFT* draft) {
  constexpr uint32_t kJustifyMax = 4, kTabsMax = 20, kListFormatMax = 2;
  KVCDPABDEF pabdef = KVCDPABDEF_DEFAULT;
  if (draft->session->kvprog_version < kVersionFourth)
    (void)BCKWCDRecordConvertOldToNew(draft->session->kvprog_version, KVCDTYPE_PABDEF, draft->record,
                                      &pabdef);
  else
    pabdef = KVILoad<KVCDPABDEF>(draft->record);
  if (static_cast<uint32_t>(pabdef.justify) > kJustifyMax) return KVFAIL_BAD_ENUM;
  if (pabdef.tab_count > kTabsMax) return KVFAIL_BAD_FORMAT;
  if (static_cast<uint32_t>(pabdef.list_format) > kListFormatMax) return KVFAIL_BAD_FORMAT;
  draft->length = sizeof(CDPABDEFINITION);
  return KVSUCCESS;
}

void WritePabDef(const CDDRAFT& draft, char* stored) {
  constexpr uint32_t kPublicFlags = 0x6aff;
  constexpr uint32_t kPublicHideFlag = 0x800;
  constexpr uint16_t kStoredHideFlag = 0x100;
  KVCDPABDEF pabdef = KVCDPABDEF_DEFAULT;
  if (draft.session->kvprog_version < kVersionFourth)
    (void)BCKWCDRecordConvertOldToNew(draft.session->kvprog_version, KVCDTYPE_PABDEF, draft.record, &pabdef);
  else
    pabdef = KVILoad<KVCDPABDEF>(draft.record);
  const auto word = [](auto value) { return static_cast<uint16_t>(value); };
  auto flags = word(pabdef.pab_flags & kPublicFlags);
  int32_t list_format = pabdef.list_format;
  (void)KVIPABTranlateList(kPabListWrite, &list_format, &flags);  // it was checked
  if ((pabdef.pab_flags & kPublicHideFlag) != 0) flags |= kStoredHideFlag;
  CDPABDEFINITION record{};
  record.Signature = kCdPabDefinition;
  record.Length = sizeof record;
  record.PABID = word(pabdef.pabid);
  record.JustifyMode = word(pabdef.justify);
  record.LineSpacing = word(pabdef.line_spacing);
  record.ParagraphSpacingBefore = word(pabdef.lines_before_para);
  record.ParagraphSpacingAfter = word(pabdef.lines_after_para);
  record.LeftMargin = word(pabdef.left_margin_twips);
  record.RightMargin = word(pabdef.right_margin_twips);
  record.FirstLineLeftMargin = word(pabdef.first_left_margin_twips);
  record.Tabs = word(pabdef.tab_count);
  for (size_t i = 0; i < std::size(record.Tab); ++i)
    record.Tab[i] = static_cast<int16_t>(pabdef.tab_twips[i]);
  record.Flags = flags;
  KVICDWrite(stored, kOdsPabDefinition, record);
}

uint32_t ReadPabDef(CDSOURCE* source) {
  source->variable_bytes = 0;
  if (source->record == nullptr) return KVSUCCESS;
  const auto record = KVICDRead<CDPABDEFINITION>(source->stored, kOdsPabDefinition);
  KVCDPABDEF pabdef{};
  pabdef.pabid = record.PABID;
  pabdef.pab_flags = record.Flags;
  pabdef.justify = record.JustifyMode;
  int32_t list_format = 0;
  uint16_t flags = record.Flags;
  (void)KVIPABTranlateList(kPabListRead, &list_format, &flags);
  pabdef.list_format = list_format;
  pabdef.line_spacing = record.LineSpacing;
  pabdef.lines_before_para = record.ParagraphSpacingBefore;
  pabdef.lines_after_para = record.ParagraphSpacingAfter;
  pabdef.left_margin_twips = record.LeftMargin;
  pabdef.right_margin_twips = record.RightMargin;
  pabdef.first_left_margin_twips = record.FirstLineLeftMargin;
  pabdef.tab_count = record.Tabs;
  for (size_t i = 0; i < std::size(record.Tab); ++i) pabdef.tab_twips[i] = record.Tab[i];
  if (source->session->kvprog_version < kVersionFourth)
    return BCKWCDRecordConvertNewToOld(source->session->kvprog_version, KVCDTYPE_PABDEF, &pabdef,
                                       source->record);
  KVIStore<KVCDPABDEF>(source->record, pabdef);
  return KVSUCCESS;
}

uint32_t PreparePabRef(CDDRAFT* draft) {
  draft->length = sizeof(CDPABREFERENCE);
  return KVSUCCESS;
}

void WritePabRef(const CDDRAFT& draft, char* stored) {
  const auto pabid = static_cast<uint16_t>(KVILoad<KVCDPABREF>(draft.record).pabid);
  KVICDWrite(stored, kOdsPabReference, CDPABREFERENCE{kCdPabReference, sizeof(CDPABREFERENCE), pabid});
}

uint32_t ReadPabRef(CDSOURCE* source) {
  source->variable_bytes = 0;
  if (source->record == nullptr) return KVSUCCESS;
  const auto record = KVICDRead<CDPABREFERENCE>(source->stored, kOdsPabReference);
  KVIStore<KVCDPABREF>(source->record, KVCDPABREF{record.PABID});
  return KVSUCCESS;
}

// ---- Paragraphs and text

uint32_t PrepareParagraph(CDDRAFT* draft) {
  draft->length = sizeof(CDPARAGRAPH);
  return KVSUCCESS;
}

void WriteParagraph(const CDDRAFT&, char* stored) {
  KVICDWrite(stored, kOdsParagraph, CDPARAGRAPH{kCdParagraph, sizeof(CDPARAGRAPH)});
}

uint32_t ReadParagraph(CDSOURCE* source) {
  source->variable_bytes = 0;
  return KVSUCCESS;
}

uint32_t PrepareText(CDDRAFT* draft) {
  auto text = KVILoad<KVCDTEXT>(draft->record);
  if (text.buffer == nullptr && text.length != 0) return KVFAIL_NULL_PARAM;
  CheckFont(&text.font);
  KVIStore<KVCDTEXT>(draft->record, text);
  if (text.length > kCdLongLengthMax - sizeof(CDTEXT)) return KVFAIL_DATA_TOO_LONG;
  draft->length = static_cast<uint32_t>(sizeof(CDTEXT)) + text.length;
  return KVSUCCESS;
}

void WriteText(const CDDRAFT& draft, char* stored) {
  const auto text = KVILoad<KVCDTEXT>(draft.record);
  KVICDWrite(stored, kOdsText,
             CDTEXT{kCdText, static_cast<uint16_t>(draft.length), KVILoad<uint32_t>(&text.font)});
  KVICopyBytes(stored + sizeof(CDTEXT), text.buffer, text.length);
}

uint32_t ReadText(CDSOURCE* source) {
  source->variable_bytes = KVICDVariableBytes(*source);
  if (source->record == nullptr) return KVSUCCESS;
  const auto record = KVICDRead<CDTEXT>(source->stored, kOdsText);
  auto text = KVILoad<KVCDTEXT>(source->record);
  KVIStore<uint32_t>(&text.font, record.FontID);
  text.length = source->variable_bytes;
  char* buffer = text.buffer;
  const uint32_t status = KVICDTellBytes(*source, KVICDVariable(*source), text.length, true, &buffer);
  text.buffer = buffer;
  KVIStore<KVCDTEXT>(source->record, text);
  return status;
}

// ---- The types

struct CDWRITER {
  int32_t cdtype;
  bool needs_record;
  uint32_t (*prepare)(CDDRAFT* draft);
  void (*write)(const CDDRAFT& draft, char* stored);
};
constexpr CDWRITER kWriters[] = {
    {KVCDTYPE_UNKNOWN, true, PrepareUnknown, WriteUnknown},
    {KVCDTYPE_PABDEF, true, PreparePabDef, WritePabDef},
    {KVCDTYPE_PABREF, true, PreparePabRef, WritePabRef},
    {KVCDTYPE_PARAGRAPH, false, PrepareParagraph, WriteParagraph},
    {KVCDTYPE_TEXT, true, PrepareText, WriteText},
    {KVCDTYPE_FIELD, true, KVICDPrepareField, KVICDWriteField},
};

// Types that this version does not write yet, and the version from which a caller may know them.
struct CDLATER {
  int32_t cdtype;
  uint32_t from_version;
};
constexpr CDLATER kLater[] = {
    {6, 0},
    {7, 0},
    {8, 0},
    {9, 0},
    {10, 0},
    {13, 0},
    {14, kVersionLongNames},
    {15, 0},
    {16, kVersionLongNames},
    {17, kVersionFourth},
    {18, kVersionFourth},
    {19, kVersionNewest},
};

struct CDREADER {
  uint16_t signature;
  int32_t cdtype;
  uint32_t fixed_bytes;
  uint32_t (*read)(CDSOURCE* source);
};
constexpr CDREADER kReaders[] = {
    {kCdParagraph, KVCDTYPE_PARAGRAPH, sizeof(CDPARAGRAPH), ReadParagraph},
    {kCdPabReference, KVCDTYPE_PABREF, sizeof(CDPABREFERENCE), ReadPabRef},
    {kCdPabDefinition, KVCDTYPE_PABDEF, sizeof(CDPABDEFINITION), ReadPabDef},
    {kCdFieldPre36, KVCDTYPE_FIELD, sizeof(CDFIELD_PRE_36), KVICDReadField},
    {kCdText, KVCDTYPE_TEXT, sizeof(CDTEXT), ReadText},
    {kCdField, KVCDTYPE_FIELD, sizeof(CDFIELD), KVICDReadField},
};
constexpr CDREADER kUnknownReader = {0, KVCDTYPE_UNKNOWN, 0, ReadUnknown};

const CDREADER& ReaderOf(uint16_t signature, int32_t wanted) {
  if (wanted == KVCDTYPE_UNKNOWN) return kUnknownReader;
  for (const CDREADER& reader : kReaders)
    if (reader.signature == signature) return reader;
  return kUnknownReader;
}

uint32_t WriterOf(const _api_session* session, int32_t cdtype, const CDWRITER** found) {
  for (const CDWRITER& writer : kWriters)
    if (writer.cdtype == cdtype) {
      *found = &writer;
      return KVSUCCESS;
    }
  for (const CDLATER& later : kLater)
    if (later.cdtype == cdtype && session->kvprog_version >= later.from_version) return KVFAIL_UNSUPPORTED;
  return KVFAIL_BAD_ENUM;
}

// ---- Room for a new record

struct ROOM {
  _COMPNODE* node;
  char* stored;
};

bool FitsGrowthBlock(uint64_t bytes) { return bytes < kCompGrowthBytes; }

// Finds room for a record with its pad: in the growth block at the end, in a new one there, or exactly. What
// was deleted at the front of a growth block still takes its room. Where a composite is built at its end, a
// node and its block are one allocation; elsewhere the block can be fitted.
uint32_t FindRoom(const _COMPOSITE* comp, _COMPNODE* candidate, uint32_t bytes, ROOM* room) {
  bool is_growth = false;
  if (candidate != nullptr || comp->nodelist == nullptr) {
    if (candidate != nullptr && candidate->comp_alloc && candidate->value_ptr != nullptr &&
        FitsGrowthBlock(uint64_t{candidate->value_offset} + candidate->value_len + bytes)) {
      *room = {candidate, candidate->value_ptr + candidate->value_offset + candidate->value_len};
      return KVSUCCESS;
    }
    is_growth = FitsGrowthBlock(bytes);
  }
  const bool is_append = candidate == nullptr || candidate->next == nullptr;
  _COMPNODE* node = is_growth && is_append ? _KVICompNodeNewGrowth() : _KVICompNodeNew();
  if (node == nullptr) return KVFAIL_NO_MEMORY;
  if (!node->holds_bytes)
    node->value_ptr = static_cast<char*>(KVIAllocateBytes(is_growth ? kCompGrowthBytes : bytes));
  if (node->value_ptr == nullptr) {
    KVIFree(node);
    return KVFAIL_NO_MEMORY;
  }
  node->alloc = 1;
  node->comp_alloc = is_growth;
  *room = {node, node->value_ptr};
  return KVSUCCESS;
}

}  // namespace

uint32_t KVICDTellBytes(const CDSOURCE& source, const char* bytes, uint32_t byte_count, bool has_nul,
                        char** buffer) {
  if (source.is_direct) {
    *buffer = const_cast<char*>(bytes);
    return KVSUCCESS;
  }
  if (*buffer == nullptr) return KVFAIL_DATA_TOO_LONG;
  KVICopyBytes(*buffer, bytes, byte_count);
  if (has_nul) (*buffer)[byte_count] = 0;
  return KVSUCCESS;
}

bool _KVICDIsType(int32_t cdtype) {
  return cdtype >= KVCDTYPE_UNKNOWN && static_cast<uint32_t>(cdtype) <= kRecordTypeMax &&
         cdtype != kNoRecordType;
}

void CheckFont(KVFONTSTYLE* font) {
  constexpr uint8_t kUnusedFlag = 0x40;
  font->font_flags &= static_cast<uint8_t>(~kUnusedFlag);
}

uint32_t _CompCreate(_api_session* session, _COMPOSITE* comp, int32_t cdtype, void* compbuf,
                     _COMPNODE** compnode) {
  const CDWRITER* writer = nullptr;
  if (const uint32_t status = WriterOf(session, cdtype, &writer)) return status;
  if (writer->needs_record && compbuf == nullptr) return KVFAIL_NULL_PARAM;
  CDDRAFT draft{.session = session, .record = compbuf, .length = 0, .compiled = nullptr, .formula_bytes = {}};
  KVGuard free_compiled([&] { KVIFree(draft.compiled); });
  if (const uint32_t status = writer->prepare(&draft)) return status;
  const uint32_t bytes = draft.length + (draft.length & 1);
  ROOM room;
  if (const uint32_t status = FindRoom(comp, *compnode, bytes, &room)) return status;
  writer->write(draft, room.stored);
  if (bytes != draft.length) room.stored[draft.length] = 0;
  room.node->value_len += bytes;
  ++room.node->field_count;
  // Not before the record is written: the caller's buffer may be a pointer into the block that is fitted.
  if (*compnode != nullptr && *compnode != room.node) _KVICompNodeFit(*compnode);
  *compnode = room.node;
  return KVSUCCESS;
}

uint32_t _CompData(_api_session* session, _DOCUMENT* document, const COMPRECORD* comprec, int direct,
                   int32_t* cdtype, uint32_t* complen, void* compbuf) {
  const CDREADER& reader = ReaderOf(comprec->signature, *cdtype);
  if (*cdtype != 0 && *cdtype != reader.cdtype) return KVFAIL_ILLEGAL_CONVERSION;
  if (comprec->length < reader.fixed_bytes) return KVFAIL_BAD_FORMAT;
  CDSOURCE source{.session = session,
                  .document = document,
                  .stored = comprec->buffer,
                  .signature = comprec->signature,
                  .length = comprec->length,
                  .fixed_bytes = reader.fixed_bytes,
                  .is_direct = direct != 0,
                  .record = compbuf,
                  .variable_bytes = 0};
  if (const uint32_t status = reader.read(&source)) return status;
  *cdtype = reader.cdtype;
  KVIStoreIf<uint32_t>(complen, source.variable_bytes);
  return KVSUCCESS;
}

// ---- Records of older callers

namespace {

#pragma pack(push, 1)
struct KV2x_KVCDPABDEF {
  uint32_t pabid, pab_flags;
  int32_t justify;
  uint32_t line_spacing, lines_before_para, lines_after_para;
  uint32_t left_margin_twips, right_margin_twips, first_left_margin_twips, tab_count;
  int32_t tab_twips[20];
};
#pragma pack(pop)
static_assert(sizeof(KV2x_KVCDPABDEF) == 120 && sizeof(KVCDPABDEF) == 124);

constexpr size_t kPabDefHead = offsetof(KVCDPABDEF, list_format);
constexpr size_t kPabDefRest = sizeof(KV2x_KVCDPABDEF) - kPabDefHead;
static_assert(kPabDefHead == offsetof(KV2x_KVCDPABDEF, line_spacing));

}  // namespace

uint32_t BCKWCDRecordConvertOldToNew(uint32_t, int32_t cdtype, const void* pCDOld, void* pCDNew) {
  if (cdtype != KVCDTYPE_PABDEF) return KVFAIL_NO_ACTION;
  const auto old_record = KVILoad<KV2x_KVCDPABDEF>(pCDOld);
  auto* target = static_cast<char*>(pCDNew);
  std::memset(target, 0, sizeof(KVCDPABDEF));
  const char* bytes = reinterpret_cast<const char*>(&old_record);
  KVICopyBytes(target, bytes, kPabDefHead);
  KVICopyBytes(target + offsetof(KVCDPABDEF, line_spacing), bytes + kPabDefHead, kPabDefRest);
  return KVSUCCESS;
}

uint32_t BCKWCDRecordConvertNewToOld(uint32_t, int32_t cdtype, const void* pCDNew, void* pCDOld) {
  if (cdtype != KVCDTYPE_PABDEF) return KVFAIL_NO_ACTION;
  const auto new_record = KVILoad<KVCDPABDEF>(pCDNew);
  auto* target = static_cast<char*>(pCDOld);
  const char* bytes = reinterpret_cast<const char*>(&new_record);
  KVICopyBytes(target, bytes, kPabDefHead);
  KVICopyBytes(target + kPabDefHead, bytes + offsetof(KVCDPABDEF, line_spacing), kPabDefRest);
  return KVSUCCESS;
}
