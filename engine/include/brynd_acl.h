/** @file brynd_acl.h
 *  Access control lists.
 *
 *  A list is a block of the caller's; EngMemFree frees it. Entries have a level: 0 no access, 1 depositor,
 *  2 reader, 3 author, 4 editor, 5 designer, 6 manager; flags within 0x81ff; and roles, 10 bytes, role n
 *  (from 0) being bit n & 7 of byte n >> 3.
 */
#ifndef BRYND_ACL_H
#define BRYND_ACL_H

#include "brynd_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Makes an access control list with one entry, for everybody.
 *  @param acl [out] a block owned by the caller
 *  @return 0, 0x107, 0x1f1. */
BRYND_API EngStatus EngAclNew(EngMem* acl);

/** Reads the access control list of a database; that of EngAclNew when none was ever stored.
 *  @param acl [out] a block owned by the caller
 *  @return 0, 0x107, 0x10c a directory, 0x1f0, 0x1f1, 0x1f2 or 0x426 damaged. */
BRYND_API EngStatus EngDbAclRead(EngDb database, EngMem* acl);

/** Writes an access control list to a database; the block stays the caller's.
 *  @param reserved 0
 *  @param method 0, or 1 for the first list of a fresh database
 *  @return 0, 0x10c a directory, 0x1f0, 0x1f8, 0x426 the block holds no list. */
BRYND_API EngStatus EngDbAclStore(EngDb database, EngMem acl, uint32_t reserved, uint16_t method);

/** Copies the access control list of a database to another.
 *  @return 0, 0x10c a directory, 0x1f0, 0x1f2 or 0x426 damaged, 0x1f8. */
BRYND_API EngStatus EngDbCopyAcl(EngDb source, EngDb destination);

/** Copies the access control list of a template to a database made from it.
 *  @param mode 3: entries in brackets stand for the entries of the fresh list, all others stay behind
 *  @return 0, 0x10c a directory, 0x1f0, 0x1f1, 0x1f2 or 0x426 damaged, 0x1f8. */
BRYND_API EngStatus EngDbCopyTemplateAcl(EngDb source, EngDb destination, uint16_t mode);

/** The access that the current user has to a database. Each output may be null. Answers 0x1ff in this
 *  build.
 *  @param level [out] 0 to 6 @param flags [out] within 0x81ff */
BRYND_API EngStatus EngDbAccessGet(EngDb database, uint16_t* level, uint16_t* flags);

/** Calls back for each entry of a list. Answers 0x1ff in this build, as all further calls of this header. */
BRYND_API EngStatus EngAclEntriesEnum(EngMem acl, EngAclCallback callback, void* parameter);

/** Adds an entry.
 *  @return 0, 0x1ff; later 0x423 when it exists. */
BRYND_API EngStatus EngAclEntryAdd(EngMem acl, const char* name, uint16_t level, const uint8_t* roles,
                                   uint16_t flags);

/** Deletes an entry.
 *  @return 0, 0x1ff; later 0x424 when it is missing. */
BRYND_API EngStatus EngAclEntryDelete(EngMem acl, const char* name);

/** Changes an entry.
 *  @param update_flags 1 name, 2 level, 4 roles, 8 flags
 *  @return 0, 0x1ff; later 0x424 when it is missing. */
BRYND_API EngStatus EngAclEntryUpdate(EngMem acl, const char* name, uint16_t update_flags,
                                      const char* new_name, uint16_t new_level, const uint8_t* new_roles,
                                      uint16_t new_flags);

/** The access that a list gives to a user of several names.
 *  @param roles [out] 10 bytes
 *  @param role_names [out] a block owned by the caller, or 0
 *  @return 0, 0x1ff. */
BRYND_API EngStatus EngAclAccessLookup(EngMem acl, const NAMES_LIST* names, uint16_t* level, uint8_t* roles,
                                       uint16_t* flags, EngMem* role_names);

/** @param role from 0 to 79 @param name [out] 256 bytes
 *  @return 0, 0x1ff. */
BRYND_API EngStatus EngAclRoleNameGet(EngMem acl, uint16_t role, char* name);

/** @param role from 0 to 79
 *  @return 0, 0x1ff. */
BRYND_API EngStatus EngAclRoleNameSet(EngMem acl, uint16_t role, const char* name);

/** @param server [out] 256 bytes
 *  @return 0, 0x1ff. */
BRYND_API EngStatus EngAclAdminServerGet(EngMem acl, char* server);

/** @param server empty for none
 *  @return 0, 0x1ff. */
BRYND_API EngStatus EngAclAdminServerSet(EngMem acl, const char* server);

/** @param flags [out] the list's own flags, 1 uniform access
 *  @return 0, 0x1ff. */
BRYND_API EngStatus EngAclFlagsGet(EngMem acl, uint32_t* flags);

/** Sets the list's own flags.
 *  @return 0, 0x1ff. */
BRYND_API EngStatus EngAclFlagsSet(EngMem acl, uint32_t flags);

/** The log of changes to a list.
 *  @param history [out] block of lines, each with two NULs, owned by the caller; 0 when there is none
 *  @param line_count [out]
 *  @return 0, 0x1ff. */
BRYND_API EngStatus EngAclHistoryGet(EngMem acl, EngMem* history, uint16_t* line_count);

#ifdef __cplusplus
}
#endif

#endif
