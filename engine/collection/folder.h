// Folders: design records with an F in $Flags. Their documents are records of kHeadSpace (see index.h).
// (1) Membership and the rows of a stored index change in one transaction.  (2) A member that was deleted, or
// never was, is kept and neither shown nor counted.
#pragma once

#include <memory>
#include <string_view>

#include "base/idtable.h"
#include "collection/index.h"

namespace brynd::collection {

struct FolderSource {
  std::shared_ptr<Database> database;
  uint32_t note_id = 0;  // of a view or folder
};

// A folder with the design of another record, and with its entries too. Fails with kNameExists, kNoNote,
// kBadCollection when the source is no view or folder. Private: it belongs to the user.
uint32_t NewFolder(const std::shared_ptr<Database>& database, const FolderSource& source,
                   std::string_view name, bool is_private, bool with_entries);

// The record, its entries and its index. All below fail with kNoNote or kBadCollection when it is no folder.
void RemoveFolder(Database& database, uint32_t folder);

void ChangeMembers(const std::shared_ptr<Database>& database, uint32_t folder, const IdTable& notes,
                   bool add);
IdTable MembersOf(Database& database, uint32_t folder);
uint32_t CountMembers(Database& database, uint32_t folder);  // that are there

}  // namespace brynd::collection
