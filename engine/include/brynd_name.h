/** @file brynd_name.h
 *  Hierarchical names, paths that name a server, id files and registrations.
 *
 *  A name is canonical, `CN=Jo Doe/OU=Dev/O=Acme/C=US`, or abbreviated, `Jo Doe/Dev/Acme/US`; it has at
 *  most 255 bytes, at most four units, and possibly `@` and a domain at its end. A name without `/` and
 *  keys is flat and has one form only. Any thread may call anything here.
 */
#ifndef BRYND_NAME_H
#define BRYND_NAME_H

#include "brynd_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The name of the current user: the setting UserName, in canonical form.
 *  @param name [out] 256 bytes; ends with NUL
 *  @return 0, 0x1a7 not set, 0x405 not a name, 0x1f1. */
BRYND_API EngStatus EngUserNameGet(char* name);

/** The canonical form of a name.
 *  @param flags 0
 *  @param name_template null, or a name whose units, organisation and country a flat name takes on
 *  @param output [out]
 *  @param output_limit most bytes written, without the NUL
 *  @param length [out] bytes without the NUL; may be null
 *  @return 0, 0x1f1, 0x405 not a name, 0x503 it does not fit. */
BRYND_API EngStatus EngNameCanonicalize(uint32_t flags, const char* name_template, const char* name,
                                        char* output, uint16_t output_limit, uint16_t* length);

/** The abbreviated form of a name. A part whose kind would be guessed wrong keeps its key, so that
 *  EngNameCanonicalize always leads back.
 *  @param flags 0
 *  @param name_template null, or a name: what both share behind the common name is left off
 *  @param output [out]
 *  @param output_limit most bytes written, without the NUL
 *  @param length [out] bytes without the NUL; may be null
 *  @return 0, 0x1f1, 0x405, 0x503. */
BRYND_API EngStatus EngNameAbbreviate(uint32_t flags, const char* name_template, const char* name,
                                      char* output, uint16_t output_limit, uint16_t* length);

/** The parts of a name.
 *  @param flags 0 @param name_template null
 *  @param parts [out] its texts point into name
 *  @return 0, 0x1f1, 0x405. */
BRYND_API EngStatus EngNameParse(uint32_t flags, const char* name_template, const char* name,
                                 NAME_PARTS* parts);

/** Puts a path together: `[port!!!]server!!file`, or the file alone when there is no server.
 *  @param port null or empty for none @param server null or empty for none @param file null counts as
 *    empty
 *  @param path [out] 512 bytes; ends with NUL
 *  @return 0, 0x108 a part is longer than 255 bytes or holds a `!`, 0x1f1. */
BRYND_API EngStatus EngNetPathBuild(const char* port, const char* server, const char* file, char* path);

/** Takes a path apart. Each output has 256 bytes, ends with NUL and may be null.
 *  @param port [out] @param server [out] @param file [out]
 *  @return 0, 0x108 a part is longer than 255 bytes, 0x1f1. */
BRYND_API EngStatus EngNetPathParse(const char* path, char* port, char* server, char* file);

/** The hash of a password for EngCertifierContextGet. Answers 0x1ff in this build.
 *  @param hash [out] 64 bytes */
BRYND_API EngStatus EngKeyFilePasswordHash(const char* password, void* hash);

/** Opens the id file of a certifier. Answers 0x1ff in this build.
 *  @param hash of its password, or null @param log_path certification log, or null @param expiration null
 *    or a time
 *  @param name [out] 256 bytes @param certifier [out] free it with EngCertifierContextFree
 *  @param is_hierarchical [out] @param version [out] */
BRYND_API EngStatus EngCertifierContextGet(const char* path, const void* hash, const char* log_path,
                                           const TIMEDATE* expiration, char* name, EngCertifier* certifier,
                                           int32_t* is_hierarchical, uint16_t* version);

/** Closes a certifier; 0 is none and no failure. Answers 0x1ff in this build for any other. */
BRYND_API EngStatus EngCertifierContextFree(EngCertifier certifier);

/** Reads a value of an id file. Answers 0x1ff in this build.
 *  @param selector 1 to 6 words of 4 bytes, 7 text @param value [out] @param value_bytes its room @param
 *    length [out] or null */
BRYND_API EngStatus EngRegIdInfoGet(const char* path, uint16_t selector, void* value, uint16_t value_bytes,
                                    uint16_t* length);

/** Registers a certifier. Answers 0x1ff in this build.
 *  @param certifier 0 for a top one @param kind 2 top, 3 below another */
BRYND_API EngStatus EngRegCertifierNew(EngCertifier certifier, uint16_t kind,
                                       const REGISTRATION* registration, const char* country,
                                       const char* forward_address);

/** Registers a server. Answers 0x1ff in this build.
 *  @param kind 0, 1 or 4 */
BRYND_API EngStatus EngRegServerNew(EngCertifier certifier, uint16_t kind, const REGISTRATION* registration,
                                    const char* server, const char* domain, const char* network,
                                    const char* administrator, const char* title);

/** Registers a user. Answers 0x1ff in this build.
 *  @param kind 0, 1 or 4 @param mail_system 0 to 3 */
BRYND_API EngStatus EngRegWorkstationNew(EngCertifier certifier, uint16_t kind,
                                         const REGISTRATION* registration, const char* last_name,
                                         const char* first_name, const char* middle_initial,
                                         uint16_t mail_system, const char* mail_server, const char* mail_path,
                                         const char* forward_address);

#ifdef __cplusplus
}
#endif

#endif
