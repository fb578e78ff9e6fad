/** @file brynd.h
 *  The whole boundary of the engine: every call, every record that crosses it.
 *
 *  - Start with EngInit or EngInitWithIni, once per process; then EngThreadInit in each further thread.
 *  - Calls answer an EngStatus unless told otherwise: 0 is success, and EngMessageLoad has a text for every
 *    other code. A call that fails leaves its outputs alone. Codes that any call may give are not repeated at
 *    each of them: 0x107 no memory, 0x1f0 bad handle, 0x1f1 bad argument (a null pointer where none is
 *    allowed), 0x1f2 damaged data, 0x1f3 internal error, 0x1f4 busy, 0x1f7 input or output failed.
 *  - 0x1ff says that a call is not available in this build. Nothing pretends.
 *  - Memory is addressed by handles (brynd_memory.h). A handle that a call gives out belongs to the caller,
 *    who frees it with EngMemFree unless the call says that it was stored somewhere.
 *  - Text is in the engine's character set (brynd_text.h).
 *  - Handles of databases and notes are for the thread that made them; EngDbReopen gives another thread its
 *    own. Memory handles and id tables may be used by any thread, one at a time. A call without any other
 *    thread rule keeps this one.
 */
#ifndef BRYND_H
#define BRYND_H

#include "brynd_acl.h"
#include "brynd_collection.h"
#include "brynd_db.h"
#include "brynd_formula.h"
#include "brynd_init.h"
#include "brynd_item.h"
#include "brynd_memory.h"
#include "brynd_name.h"
#include "brynd_note.h"
#include "brynd_server.h"
#include "brynd_text.h"
#include "brynd_time.h"
#include "brynd_types.h"

#endif
