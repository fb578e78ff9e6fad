// The design index: which design record bears a name, and which is the special one of its class. Kept by
// every write of a note whose class is not 1, in the same transaction, so a lookup never scans.
//
// Rows of space::kDesign (class: 2 bytes high first, without the private and default bits; id: 4 bytes high
// first; texts in lower case, each followed by a NUL):
//   'T' class title id        a shared record's whole title, or one synonym of it; no value
//   'P' class owner title id  the same of a record that belongs to one user; no value
//   'S' class id              the default record of its class, or the icon record; since when, 8 bytes
//   'R' id                    the keys of the rows above that stand for the note: length 2, key, and so on
// (1) The rows of a note are those its 'R' row names.  (2) A title or owner too long for a key has no row.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "note/database.h"

namespace brynd::design_index {

// What the index has to know of a record.
struct Entry {
  uint32_t note_id = 0;
  uint16_t note_class = 0;
  TIMEDATE modified{};
  std::vector<std::string> names;  // the whole title and each synonym, as they are written
  std::string owner;               // of a private record
};

// The names that a $TITLE value answers to: of a text the whole and, when it holds `|`, each part; of a list
// the entries joined with `|` and each of them. `value` begins with its type word; other types have no names.
std::vector<std::string> NamesOfTitle(Bytes value);

// The first text of a text or text list value that begins with its type word; empty when there is none.
std::string FirstText(Bytes value);

void Update(DatabaseWrite& write, const Entry& entry);
void Remove(DatabaseWrite& write, uint32_t note_id);

// The shared, or one user's, record of a name; 0 when there is none. The lowest id wins. Case does not count.
uint32_t Find(Database& database, std::string_view name, uint16_t note_class);
uint32_t FindPrivate(Database& database, std::string_view name, uint16_t note_class, std::string_view owner);

// The record of a class that became special last; 0 when there is none.
uint32_t Special(Database& database, uint16_t note_class);

}  // namespace brynd::design_index
