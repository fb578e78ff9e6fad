// Records of the design that every database has: the design collection, its formula and its order.
#include "kvint.h"

namespace {

constexpr uint16_t kMemberNoteId = 1;
constexpr uint16_t kMemberClass = 3;
constexpr uint16_t kTypeCollation = 2;
constexpr uint16_t kUpdateDesign = 0x11;
constexpr uint16_t kDesignCollectionClass = BRCLASS_DEFAULT | BRCLASS_DESIGN;
constexpr uint32_t kDesignCollectionId = BRNOTE_SPECIAL | BRCLASS_DESIGN;
constexpr uint16_t kOpenToLook = 9;

constexpr uint16_t kFormulaBlock = 0xC22E;
constexpr uint16_t kCollationBlock = 0x3001;
constexpr uint16_t kOdsBytes = 3;
constexpr uint16_t kOdsFormula = 21;
constexpr uint16_t kOdsCollation = 59;
constexpr uint16_t kOdsCollateDescriptor = 60;
constexpr uint8_t kCollationSignature = 0x44;
constexpr uint8_t kCollateDescriptorSignature = 0x66;

constexpr uint16_t kDesignFormulaMessage = 7108;
constexpr uint16_t kMessageMax = 255;
constexpr uint16_t kDesignFormulaClass = 3724;

// What the design collection shows of each design record, in its order.
constexpr const char* kDesignColumns[] = {"$TITLE", "$FormPrivs", "$FormUsers", "$Body",
                                          "$Flags", "$Class",     "$Modified",  "$Comment"};

uint16_t TextBytes(const char* text) { return static_cast<uint16_t>(strlen(text)); }

uint16_t PutText(EngNote note, const char* name, const char* text) {
  return EngItemAppend(note, kItemSummary, name, TextBytes(name), BRTYPE_TEXT, text, TextBytes(text));
}

// The columns, computed from the items of their names.
uint16_t DesignColumns(EngMem* columns) {
  EngMem formula = 0;
  if (uint16_t brstatus = _KV_QDBFormulaCreate(&formula)) return brstatus;
  KVGuard free_formula([&] { EngMemFree(formula); });
  for (const char* name : kDesignColumns)
    if (uint16_t brstatus = EngFormulaSummaryItem(formula, name, TextBytes(name))) return brstatus;
  free_formula.Dismiss();
  *columns = formula;
  return 0;
}

// Which records the collection takes is the engine's to say: it keeps the formula among its messages.
uint16_t DesignSelection(EngMem* selection) {
  char text[kMessageMax + 1] = {};
  EngMessageLoad(0, kDesignFormulaMessage, text, kMessageMax);
  return _KVICompileFormula(nullptr, text, selection);
}

uint16_t PutDesignFormula(EngNote note) {
  EngMem selection = 0;
  if (uint16_t brstatus = DesignSelection(&selection)) return brstatus;
  KVGuard free_selection([&] { EngMemFree(selection); });
  EngMem columns = 0;
  if (uint16_t brstatus = DesignColumns(&columns)) return brstatus;
  KVGuard free_columns([&] { EngMemFree(columns); });
  if (uint16_t brstatus = EngFormulaMerge(columns, selection)) return brstatus;
  return _KVIPutFormula(note, selection);
}

uint16_t FillDesignNote(EngNote note) {
  if (uint16_t brstatus = PutText(note, "$DesignVersion", "4")) return brstatus;
  if (uint16_t brstatus = PutText(note, "$Version", "9")) return brstatus;
  if (uint16_t brstatus = PutDesignFormula(note)) return brstatus;
  char digits[6];
  KVIwtoa(kDesignFormulaClass, digits);
  if (uint16_t brstatus = PutText(note, "$FormulaClass", digits)) return brstatus;
  if (uint16_t brstatus = _KV_SetDesignCollation(note)) return brstatus;
  const uint16_t note_class = kDesignCollectionClass;
  if (uint16_t brstatus = EngNoteInfoSet(note, kMemberClass, &note_class)) return brstatus;
  return EngNoteUpdate(note, kUpdateDesign);
}

}  // namespace

char* KVIwtoa(uint16_t n, char* ptr) {
  char digits[5];
  int digit_count = 0;
  do {
    digits[digit_count++] = static_cast<char>('0' + n % 10);
    n = static_cast<uint16_t>(n / 10);
  } while (n != 0);
  while (digit_count > 0) *ptr++ = digits[--digit_count];
  *ptr = 0;
  return ptr;
}

uint16_t _KV_QDBFormulaCreate(EngMem* rethFormula) {
  *rethFormula = 0;
  EngMem formula = 0;
  if (uint16_t brstatus = EngMemAlloc(kFormulaBlock, sizeof(BRYND_FORMULA), &formula)) return brstatus;
  {
    KVLocked block(formula);
    void* target = block.bytes;
    const BRYND_FORMULA empty{.Length = sizeof(BRYND_FORMULA)};
    EngOdsWrite(&target, kOdsFormula, &empty, 1);
  }
  *rethFormula = formula;
  return 0;
}

uint16_t _KVICompileFormula(const char* item_name, const char* text, EngMem* formula) {
  uint16_t formula_bytes = 0;
  EngStatus error = 0;
  uint16_t line = 0;
  uint16_t column = 0;
  uint16_t offset = 0;
  uint16_t error_bytes = 0;
  return EngFormulaCompile(item_name, item_name == nullptr ? uint16_t{0} : TextBytes(item_name), text,
                           TextBytes(text), formula, &formula_bytes, &error, &line, &column, &offset,
                           &error_bytes);
}

uint16_t _KVIPutFormula(EngNote note, EngMem formula) {
  uint16_t formula_bytes = 0;
  if (uint16_t brstatus = EngFormulaSizeGet(formula, &formula_bytes)) return brstatus;
  KVLocked block(formula);  // the engine copies the value while the block is locked
  return EngItemAppend(note, kItemSummary, "$Formula", 8, BRTYPE_FORMULA, block.bytes, formula_bytes);
}

uint16_t _KV_SetDesignCollation(EngNote hNote) {
  constexpr char kTitle[] = "$TITLE";
  constexpr uint16_t kTitleBytes = sizeof kTitle - 1;
  constexpr uint16_t kCollationBytes = sizeof(COLLATION) + sizeof(COLLATE_DESCRIPTOR) + kTitleBytes;
  static_assert(kCollationBytes == 19);
  const COLLATION collation{
      .BufferSize = kCollationBytes, .Items = 1, .Flags = 0, .signature = kCollationSignature};
  const COLLATE_DESCRIPTOR descriptor{.Flags = 0,
                                      .signature = kCollateDescriptorSignature,
                                      .keytype = 0,
                                      .NameOffset = 0,
                                      .NameLength = kTitleBytes};
  EngMem memory = 0;
  if (uint16_t brstatus = EngMemAlloc(kCollationBlock, kCollationBytes, &memory)) return brstatus;
  KVGuard free_memory([&] { EngMemFree(memory); });
  KVLocked block(memory);  // the engine copies the value while the block is locked
  void* target = block.bytes;
  EngOdsWrite(&target, kOdsCollation, &collation, 1);
  EngOdsWrite(&target, kOdsCollateDescriptor, &descriptor, 1);
  EngOdsWrite(&target, kOdsBytes, kTitle, kTitleBytes);
  return EngItemAppend(hNote, kItemSummary, "$Collation", 10, kTypeCollation, block.bytes, kCollationBytes);
}

uint16_t _KV_DesignNoteCreate(EngDb hFile, uint32_t* NewNoteID) {
  EngNote note = 0;
  if (uint16_t brstatus = EngNoteCreate(hFile, &note)) return brstatus;
  KVGuard close_note([&] { EngNoteClose(note); });
  if (uint16_t brstatus = FillDesignNote(note)) return brstatus;
  if (NewNoteID == nullptr) return 0;
  return EngNoteInfoGet(note, kMemberNoteId, NewNoteID);
}

uint16_t KVIBryndDesignCollCreate(EngDb dbh) {
  EngNote note = 0;
  if (EngNoteOpen(dbh, kDesignCollectionId, kOpenToLook, &note) == 0) {
    EngNoteClose(note);
    return 0;
  }
  uint32_t noteid = 0;
  if (uint16_t brstatus = _KV_DesignNoteCreate(dbh, &noteid)) return brstatus;
  EngCollection collection = 0;
  const uint16_t brstatus =
      EngCollectionOpen(dbh, dbh, noteid, 1, 0, &collection, nullptr, nullptr, nullptr, nullptr);
  if (brstatus) return brstatus;
  EngCollectionClose(collection);
  return 0;
}
