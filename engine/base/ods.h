// Canonical records: how the records of compiled formulas, composites and designs lie in stored values.
// One table names the fields of every type code; sizes, reading and writing are derived from it.
// (1) In memory a record has the same packed fields in the same order.  (2) An unknown code has no fields:
//     nothing moves.
#ifndef BRYND_BASE_ODS_H
#define BRYND_BASE_ODS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace brynd {

// Fields in order: b 1 byte, w 2, d 4, q 8; a count before a letter repeats it; blanks part them for the
// reader.
struct OdsRow {
  uint16_t type;
  std::string_view fields;
};

// Every known type code, sorted.
std::span<const OdsRow> OdsRows() noexcept;

// Bytes of one record; 0 for an unknown code.
size_t OdsLength(uint16_t type) noexcept;

// Moves count records and returns the bytes moved. Neither side needs alignment.
size_t OdsRead(const void* stored, uint16_t type, void* record, size_t count) noexcept;
size_t OdsWrite(void* stored, uint16_t type, const void* record, size_t count) noexcept;

}  // namespace brynd

#endif
