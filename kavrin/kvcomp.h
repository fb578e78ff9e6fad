// What the sources of composite records share: how a public record becomes a stored one, and back.
//
// A type is a row with a preparation, which checks the public record and settles the stored size; a writing,
// which cannot fail; and a reading, which finds a record that has at least its fixed part.
#ifndef KVCOMP_H
#define KVCOMP_H

#include "kvint_composite.h"
#include "kvint_convert.h"
#include "kvint_system.h"

// A record to be stored.
struct CDDRAFT {
  _api_session* session;
  void* record;     // the caller's, at any address
  uint32_t length;  // bytes of the stored record
  // Of a field
  char* compiled;  // its compiled formulas one behind the other, or null
  uint16_t formula_bytes[3];
};

// A stored record to be told.
struct CDSOURCE {
  _api_session* session;
  _DOCUMENT* document;
  const char* stored;
  uint16_t signature;
  uint32_t length;          // whole
  uint32_t fixed_bytes;     // of its fixed part
  bool is_direct;           // pointers instead of copies
  void* record;             // where to tell it; null for nowhere
  uint32_t variable_bytes;  // [out] of the variable part in its public form
};

inline uint32_t KVICDVariableBytes(const CDSOURCE& source) { return source.length - source.fixed_bytes; }
inline const char* KVICDVariable(const CDSOURCE& source) { return source.stored + source.fixed_bytes; }

// Moves a record of a fixed layout out of and into stored bytes.
template <typename Record>
Record KVICDRead(const char* stored, uint16_t ods_type) {
  static_assert(alignof(Record) == 1);
  Record record;
  const void* at = stored;
  EngOdsRead(&at, ods_type, &record, 1);
  return record;
}
template <typename Record>
void KVICDWrite(char* stored, uint16_t ods_type, const Record& record) {
  static_assert(alignof(Record) == 1);
  void* at = stored;
  EngOdsWrite(&at, ods_type, &record, 1);
}

// Gives the variable part as it is stored: at the buffer, with a NUL where that is wanted, or by its address.
// KVFAIL_DATA_TOO_LONG without either.
uint32_t KVICDTellBytes(const CDSOURCE& source, const char* bytes, uint32_t byte_count, bool has_nul,
                        char** buffer);

// Field records.
uint32_t KVICDPrepareField(CDDRAFT* draft);
void KVICDWriteField(const CDDRAFT& draft, char* stored);
uint32_t KVICDReadField(CDSOURCE* source);

#endif
