// Records of design elements, and what creating a database needs of them.
#ifndef KVINT_DESIGN_H
#define KVINT_DESIGN_H

#include "kvint_session.h"

// Iteration state of one family of design elements.
struct KVDESIGNLIST {
  _DATABASE* pdbase;
  KVTEXTLIST list;
  uint32_t design_flags;
};

// Flags of design elements; the low 12 bits tell the kind.
constexpr uint32_t KVDESIGN_FORM = 0x0001;
constexpr uint32_t KVDESIGN_SUBFORM = 0x0002;
constexpr uint32_t KVDESIGN_VIEW = 0x0004;
constexpr uint32_t KVDESIGN_FOLDER = 0x0008;
constexpr uint32_t KVDESIGN_NAVIGATOR = 0x0010;
constexpr uint32_t KVDESIGN_AGENT = 0x0020;
constexpr uint32_t KVDESIGN_DEFAULT = 0x2000;
constexpr uint32_t KVDESIGN_PRIVATE = 0x4000;
constexpr uint32_t KVDESIGN_HIDDEN = 0x8000;

#pragma pack(push, 1)

// Head of a compiled formula.
struct BRYND_FORMULA {
  uint16_t Length;  // bytes of the whole formula, this word included
};

// Head of a collation record; its descriptors follow, then the names of the items they sort by.
struct COLLATION {
  uint16_t BufferSize;  // bytes of the whole record
  uint16_t Items;
  uint8_t Flags;
  uint8_t signature;
};

struct COLLATE_DESCRIPTOR {
  uint8_t Flags;
  uint8_t signature;
  uint8_t keytype;
  uint16_t NameOffset;  // in the names behind the last descriptor
  uint16_t NameLength;
};

#pragma pack(pop)

static_assert(sizeof(BRYND_FORMULA) == 2);
static_assert(sizeof(COLLATION) == 2 + 2 + 1 + 1);
static_assert(sizeof(COLLATE_DESCRIPTOR) == 1 + 1 + 1 + 2 + 2);

// Decimal digits of n and a NUL; ptr has 6 bytes. Returns the address of the NUL.
char* KVIwtoa(uint16_t n, char* ptr);

// An engine block that the caller frees.
uint16_t _KV_QDBFormulaCreate(EngMem* rethFormula);  // an empty compiled formula
uint16_t _KVICompileFormula(const char* item_name, const char* text, EngMem* formula);

// Appends $Formula, a summary item that holds the compiled formula.
uint16_t _KVIPutFormula(EngNote note, EngMem formula);
// Appends $Collation, which sorts by $TITLE.
uint16_t _KV_SetDesignCollation(EngNote hNote);

// Creates the record of the design collection: a hidden view of all design records. NewNoteID may be null.
uint16_t _KV_DesignNoteCreate(EngDb hFile, uint32_t* NewNoteID);
// Creates the design collection unless the database has one.
uint16_t KVIBryndDesignCollCreate(EngDb dbh);

#endif
