// Access control lists as stored records: made, read, stored, copied.
#include "note/acl.h"

#include "base/boundary.h"
#include "base/memory.h"
#include "brynd_acl.h"

using brynd::AtBoundary;
using brynd::Database;
using brynd::FindDatabase;
using brynd::Store;

namespace status = brynd::status;

namespace {

constexpr uint16_t kTemplateMode = 3;  // of EngDbCopyTemplateAcl

}  // namespace

EngStatus EngAclNew(EngMem* acl) {
  return AtBoundary([&]() -> EngStatus {
    if (acl == nullptr) return status::kBadArgument;
    Store<EngMem>(acl, brynd::MemoryCopy(brynd::BuildAcl(brynd::NewAcl())).Release());
    return status::kOk;
  });
}

EngStatus EngDbAclRead(EngDb database, EngMem* acl) {
  return AtBoundary([&]() -> EngStatus {
    Database& found = *FindDatabase(database);
    if (acl == nullptr) return status::kBadArgument;
    found.Store().Refresh();
    Store<EngMem>(acl, brynd::MemoryCopy(brynd::ReadAcl(found)).Release());
    return status::kOk;
  });
}

EngStatus EngDbAclStore(EngDb database, EngMem acl, uint32_t, uint16_t) {
  return AtBoundary([&] {
    Database& found = *FindDatabase(database);
    const brynd::MemoryLock list(acl);
    brynd::StoreAcl(found, list.bytes());
  });
}

EngStatus EngDbCopyAcl(EngDb source, EngDb destination) {
  return AtBoundary([&] {
    Database &from = *FindDatabase(source), &to = *FindDatabase(destination);
    from.Store().Refresh();
    brynd::StoreAcl(to, brynd::ReadAcl(from));
  });
}

EngStatus EngDbCopyTemplateAcl(EngDb source, EngDb destination, uint16_t mode) {
  return AtBoundary([&]() -> EngStatus {
    Database &from = *FindDatabase(source), &to = *FindDatabase(destination);
    if (mode != kTemplateMode) return status::kBadArgument;
    from.Store().Refresh();
    const std::vector<std::byte> list = brynd::ReadAcl(from);
    const std::optional<brynd::Acl> parsed = brynd::ParseAcl(list);
    if (!parsed) return status::kBadAcl;
    brynd::StoreAcl(to, brynd::BuildAcl(brynd::TemplateAcl(*parsed)));
    return status::kOk;
  });
}
