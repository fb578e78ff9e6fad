/** @file brynd_server.h
 *  Mail, agents, servers, server tasks.
 *
 *  All calls of this header answer 0x1ff (not available in this build), except that closing handle 0
 *  succeeds and what is told at single calls.
 */
#ifndef BRYND_SERVER_H
#define BRYND_SERVER_H

#include "brynd_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Opens a mail box.
 *  @param database [out] close it with EngMailBoxClose */
BRYND_API EngStatus EngMailBoxOpen(const char* path, EngDb* database);

/** Closes a mail box. */
BRYND_API EngStatus EngMailBoxClose(EngDb database);

/** Makes an empty message.
 *  @param note [out] close it with EngMailMessageClose */
BRYND_API EngStatus EngMailMessageCreate(EngDb database, EngNote* note);

/** Closes a message. */
BRYND_API EngStatus EngMailMessageClose(EngNote note);

/** A header item of a message as text.
 *  @param number which @param text [out] @param text_bytes its room @param length [out] @return 0x222
 *    when it is absent */
BRYND_API EngStatus EngMailItemGet(EngNote note, uint16_t number, char* text, uint16_t text_bytes,
                                   uint16_t* length);

/** A header item of a message as a value.
 *  @param value [out] @param type [out] @param value_bytes [out] */
BRYND_API EngStatus EngMailItemGetHandle(EngNote note, uint16_t number, BLOCKID* value, uint16_t* type,
                                         uint32_t* value_bytes);

/** Adds a header item to a message. */
BRYND_API EngStatus EngMailHeaderItemAdd(EngNote note, uint16_t number, const void* value,
                                         uint16_t value_bytes);

/** As EngMailHeaderItemAdd, taking over a block on success. */
BRYND_API EngStatus EngMailHeaderItemAddByHandle(EngNote note, uint16_t number, EngMem value,
                                                 uint32_t value_bytes, uint16_t flags);

/** Replaces a header item of a message. */
BRYND_API EngStatus EngMailHeaderItemReplace(EngNote note, uint16_t number, const void* value,
                                             uint16_t value_bytes);

/** Hands a message over for delivery. */
BRYND_API EngStatus EngMailTransferLocal(EngNote note);

/** Opens an agent.
 *  @param id note id @param agent [out] close it with EngAgentHandleClose */
BRYND_API EngStatus EngAgentHandleOpen(EngDb database, uint32_t id, EngAgent* agent);

/** Closes an agent. */
BRYND_API EngStatus EngAgentHandleClose(EngAgent agent);

/** Makes the surroundings that an agent runs in.
 *  @param reserved 0 @param flags 0 @param context [out] end it with EngAgentContextDestroy */
BRYND_API EngStatus EngAgentContextCreate(EngAgent agent, uint32_t reserved, uint32_t flags,
                                          EngAgentContext* context);

/** Ends the surroundings of an agent. */
BRYND_API EngStatus EngAgentContextDestroy(EngAgentContext context);

/** Runs an agent.
 *  @param selection the documents it runs on @param flags 0 */
BRYND_API EngStatus EngAgentExecute(EngAgent agent, EngAgentContext context, EngIdTable selection,
                                    uint32_t flags);

/** The servers that a port reaches.
 *  @param port null for the default @param list [out] text list without prefix, owned by the caller */
BRYND_API EngStatus EngServerListGet(const char* port, EngMem* list);

/** Sends a command to a server's console.
 *  @param response [out] block with the answer, owned by the caller */
BRYND_API EngStatus EngServerConsoleCommand(const char* server, const char* command, EngMem* response);

/** Replicates with a server.
 *  @param port null @param file_list file_count texts, one behind the other, each with its NUL @param
 *    stats [out] */
BRYND_API EngStatus EngReplicate(const char* port, const char* server, uint32_t flags, uint16_t file_count,
                                 const char* file_list, REPLICATION_STATS* stats);

/** Makes a status line for this task.
 *  @return its handle, 0 when there is none: always in this build. */
BRYND_API EngTaskLine EngTaskStatusLineCreate(const char* name);

/** Deletes a status line. */
BRYND_API EngStatus EngTaskStatusLineDelete(EngTaskLine line);

/** Sets the text of the default status line. */
BRYND_API EngStatus EngTaskStatusTextSet(const char* text);

/** The default module and status line. @param module [out] @param line [out] */
BRYND_API EngStatus EngTaskDefaultsQuery(uint32_t* module, EngTaskLine* line);

/** Sets the default module and status line. */
BRYND_API EngStatus EngTaskDefaultsSet(uint32_t module, EngTaskLine line);

/** Writes a line to the server's log. @param reserved1 0 @param reserved2 0 */
BRYND_API EngStatus EngTaskLogText(const char* text, uint32_t reserved1, uint32_t reserved2);

/** @return non-zero when this task has been told to stop: never in this build. */
BRYND_API int32_t EngTaskShouldStop(void);

#ifdef __cplusplus
}
#endif

#endif
