// Copies of notes from one database into another: universal ids stay, a note that is already there is
// replaced.
#pragma once

#include <memory>

#include "note/database.h"

namespace brynd {

// Copies the notes of some classes that were changed at or after a time, with the objects that belong to
// them. The icon record keeps its place in the destination and takes over the items; a design collection that
// is there already stays. Copying a database into itself changes nothing. Damaged notes do not keep the
// others from being copied; the call then fails with kDamaged.
void CopyNotes(const std::shared_ptr<Database>& source, const std::shared_ptr<Database>& destination,
               const TIMEDATE& since, uint16_t class_mask);

}  // namespace brynd
