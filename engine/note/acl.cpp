#include "note/acl.h"

#include <algorithm>

#include "base/text.h"

namespace brynd {

namespace {

constexpr std::string_view kAclFact = "acl";
constexpr uint16_t kAclSignature = 0xac1e, kAclVersion = 1;
constexpr size_t kAclLengthOffset = 4;

void PutName(ByteBuilder& out, std::string_view name) {
  out.U16(static_cast<uint16_t>(name.size()));
  out.Text(name);
}

bool ReadName(ByteReader& in, std::string* name) {
  const uint16_t name_bytes = in.U16();
  if (name_bytes > kAclNameBytesMax) return false;
  *name = in.Text(name_bytes);
  return !in.Failed() && name->find('\0') == std::string::npos;
}

bool ReadEntry(ByteReader& in, AclEntry* entry) {
  const uint8_t level = in.U8(), zero = in.U8();
  entry->flags = in.U16();
  const Bytes roles = in.Take(kAclRoleBytes);
  if (in.Failed() || zero != 0 || level > static_cast<uint8_t>(AclLevel::kManager)) return false;
  entry->level = static_cast<AclLevel>(level);
  std::copy(roles.begin(), roles.end(), entry->roles.begin());
  return ReadName(in, &entry->name) && !entry->name.empty();
}

bool ReadHead(ByteReader& in, size_t stored_bytes, Acl* acl, uint16_t* entry_count) {
  if (in.U16() != kAclSignature || in.U16() != kAclVersion) return false;
  if (in.U32() != stored_bytes) return false;
  acl->flags = in.U32();
  *entry_count = in.U16();
  return *entry_count <= kAclEntriesMax && ReadName(in, &acl->admin_server);
}

}  // namespace

Acl NewAcl() {
  Acl acl;
  acl.entries.push_back({.name = std::string(kAclDefaultName), .level = AclLevel::kDesigner});
  return acl;
}

std::optional<Acl> ParseAcl(Bytes stored) {
  ByteReader in(stored);
  Acl acl;
  uint16_t entry_count = 0;
  if (!ReadHead(in, stored.size(), &acl, &entry_count)) return std::nullopt;
  for (; entry_count != 0; --entry_count) {
    if (!ReadEntry(in, &acl.entries.emplace_back())) return std::nullopt;
  }
  const uint16_t role_count = in.U16();
  if (role_count > kAclRolesMax) return std::nullopt;
  for (uint16_t i = 0; i < role_count; ++i) {
    if (!ReadName(in, &acl.roles.emplace_back())) return std::nullopt;
  }
  const uint32_t history_bytes = in.U32();
  if (history_bytes > kAclHistoryBytesMax) return std::nullopt;
  acl.history = in.Text(history_bytes);
  if (in.Failed() || in.Left() != 0) return std::nullopt;
  return acl;
}

std::vector<std::byte> BuildAcl(const Acl& acl) {
  ByteBuilder out;
  out.U16(kAclSignature);
  out.U16(kAclVersion);
  out.U32(0);
  out.U32(acl.flags);
  out.U16(static_cast<uint16_t>(acl.entries.size()));
  PutName(out, acl.admin_server);
  for (const AclEntry& entry : acl.entries) {
    out.U8(static_cast<uint8_t>(entry.level));
    out.U8(0);
    out.U16(entry.flags);
    out.Put(entry.roles);
    PutName(out, entry.name);
  }
  out.U16(static_cast<uint16_t>(acl.roles.size()));
  for (const std::string& role : acl.roles) PutName(out, role);
  out.U32(static_cast<uint32_t>(acl.history.size()));
  out.Text(acl.history);
  StoreU32(out.At(kAclLengthOffset), static_cast<uint32_t>(out.Size()));
  return out.Release();
}

std::vector<std::byte> ReadAcl(Database& database) {
  std::optional<std::vector<std::byte>> fact = database.ReadFact(kAclFact);
  if (!fact) return BuildAcl(NewAcl());
  if (!ParseAcl(*fact)) Fail(status::kBadAcl);
  return std::move(*fact);
}

void StoreAcl(Database& database, Bytes list) {
  if (!ParseAcl(list)) Fail(status::kBadAcl);
  DatabaseWrite write(database);
  Database::PutFact(write, kAclFact, list);
  write.Commit(store::Durability::kDurable);
}

Acl TemplateAcl(const Acl& of_template) {
  Acl acl = NewAcl();
  acl.flags = of_template.flags;
  acl.roles = of_template.roles;
  for (const AclEntry& entry : of_template.entries) {
    if (!entry.name.starts_with('[') || !entry.name.ends_with(']') || entry.name.size() < 3) continue;
    AclEntry taken = entry;
    taken.name = entry.name.substr(1, entry.name.size() - 2);
    const auto same = std::ranges::find_if(
        acl.entries, [&](const AclEntry& other) { return EqualFold(other.name, taken.name); });
    if (same != acl.entries.end())
      *same = std::move(taken);
    else
      acl.entries.push_back(std::move(taken));
  }
  return acl;
}

}  // namespace brynd
