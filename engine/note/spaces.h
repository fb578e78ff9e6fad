// The spaces of records that the note layer keeps in a database's store. Stored: append, never renumber.
#pragma once

#include "store/store.h"

namespace brynd::space {

inline constexpr store::Space kNames = 1;     // name id, 2 bytes high first -> spelling
inline constexpr store::Space kValues = 2;    // note id, number, 4 bytes each -> an external value
inline constexpr store::Space kDesign = 3;    // design index, see design_index.h
inline constexpr store::Space kDatabase = 4;  // facts about the database, by their names: see database.h
inline constexpr store::Space kObjects = 5;   // objects, see object.h
inline constexpr store::Space kObjectUses = 6;  // object, note id, 4 bytes each: a note that names it
// 0x10 to 0x1f: what else belongs to databases as a whole.
inline constexpr store::Space kFullText = 0x30;  // documents of the full-text index, see fulltext/index.h
// 0x20 to 0x2f: collections, see collection/tree.h. Others say so in their own headers.

}  // namespace brynd::space
