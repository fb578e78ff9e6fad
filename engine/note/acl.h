// The access control list of a database, as a block of the engine's heap and as the stored fact "acl" alike.
//
//   offset  size  meaning
//   0       2     signature, 0xac1e
//   2       2     version, 1
//   4       4     bytes of the list, this head included
//   8       4     flags; 1: enforced on local databases too
//   12      2     count of entries
//   14      2     bytes of the administration server's name, which follows
//   ...           entries: level 1, zero 1, flags 2, roles 10, name bytes 2, name
//   then          count of roles 2, for each: name bytes 2, name; then history: bytes 4, text
// (1) A list is believed after ParseAcl took it apart whole; BuildAcl then gives the same bytes.
// (2) Names are engine text without a NUL; those of entries are not empty. Entry names ignore case.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "note/database.h"

namespace brynd {

inline constexpr size_t kAclRoleBytes = 10;
inline constexpr size_t kAclRolesMax = kAclRoleBytes * 8;
inline constexpr size_t kAclEntriesMax = 4096;
inline constexpr size_t kAclNameBytesMax = 255;
inline constexpr size_t kAclHistoryBytesMax = 60000;

// Levels; stored: append, never renumber.
enum class AclLevel : uint8_t { kNone = 0, kDepositor, kReader, kAuthor, kEditor, kDesigner, kManager };

struct AclEntry {
  std::string name;
  AclLevel level = AclLevel::kNone;
  uint16_t flags = 0;
  std::array<std::byte, kAclRoleBytes> roles{};
};

struct Acl {
  uint32_t flags = 0;
  std::string admin_server;
  std::vector<AclEntry> entries;
  std::vector<std::string> roles;
  std::string history;
};

// Name of the entry that stands for everybody without one.
inline constexpr std::string_view kAclDefaultName = "-Default-";

Acl NewAcl();
std::optional<Acl> ParseAcl(Bytes stored);
std::vector<std::byte> BuildAcl(const Acl& acl);

// The list of a database; the new one when it has none yet. Fails with kBadAcl, with kDamaged when the record
// is not whole.
std::vector<std::byte> ReadAcl(Database& database);
// Fails with kBadAcl when the bytes are no list.
void StoreAcl(Database& database, Bytes list);
// What a database made from a template takes over of its list: entries in brackets, without them. Of several
// for one name the last counts.
Acl TemplateAcl(const Acl& of_template);

}  // namespace brynd
