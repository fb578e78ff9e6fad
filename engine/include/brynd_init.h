/** @file brynd_init.h
 *  Start and end of the engine, its settings, its messages, libraries loaded at run time.
 *
 *  Texts that a call writes with a limit: at most so many bytes, and a NUL behind them, so that the buffer
 *  has one byte more than the limit. This holds for all headers of the boundary; where no NUL is written,
 *  the call says so.
 */
#ifndef BRYND_INIT_H
#define BRYND_INIT_H

#include "brynd_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Starts the engine for this process. Starts are counted: each one but the first only counts. The
 *  settings file is the one of an argument `=path`, the one that the variable BRYND_INI names, or
 *  BRYND.INI in the current directory, in $XDG_CONFIG_HOME/brynd, in ~/.config/brynd or in /etc/brynd;
 *  the first two are decisive.
 *  @param argc number of arguments
 *  @param argv the program's arguments, may be null
 *  @return 0, 0x1a5 no settings file, 0x1a6 it cannot be read as one. Any thread; the first start not in
 *    two at once. */
BRYND_API EngStatus EngInit(int32_t argc, char* const* argv);

/** As EngInit, with the settings file told.
 *  @param path the file, in the system's form
 *  @return 0, 0x1a5, 0x1a6. Any thread. */
BRYND_API EngStatus EngInitWithIni(const char* path);

/** Makes the calling thread known; to be called once in each thread but the one that started the engine.
 *  @return 0, 0x112 the engine is not started. Any thread. */
BRYND_API EngStatus EngThreadInit(void);

/** The end of what EngThreadInit began. Any thread. */
BRYND_API void EngThreadTerm(void);

/** The end of what EngInit began. The last one closes what is open, brings lazy updates to disk, and logs
 *  memory that was not freed. To be called when no other thread is inside the engine. */
BRYND_API void EngTerm(void);

/** The data directory: the setting Directory, relative to the settings file's folder; without it, that
 *  folder.
 *  @param directory [out] 256 bytes; ends with NUL
 *  @return 0, 0x112 the engine is not started, 0x503 the path does not fit. Any thread. */
BRYND_API EngStatus EngDataDirectoryGet(char* directory);

/** A value of the settings file. Names ignore case.
 *  @param value [out] may be null: then nothing but the result tells
 *  @param value_limit most bytes written, without the NUL; a longer value is cut between characters
 *  @return 1 when the setting exists, 0 otherwise (value is then left alone). A change made by another
 *    process is seen within a second. Any thread. */
BRYND_API int32_t EngEnvironmentGet(const char* name, char* value, uint16_t value_limit);

/** Changes a value of the settings file, or adds it. The file is rewritten whole under a lock and
 *  replaced at once; comments, order and all other lines stay.
 *  @param name 1 to 255 bytes without `=`, not starting with `;` or `[`
 *  @param value at most 4096 bytes without line ends
 *  @return 0, 0x112 the engine is not started, 0x1a5 the file is gone, 0x1a8 name or value is not such a
 *    one. Any thread. */
BRYND_API EngStatus EngEnvironmentSet(const char* name, const char* value);

/** The text of an engine status, or a text of the engine's own: 1 is its version, 7108 the selection
 *  formula of the design collection.
 *  @param module 0, the engine itself
 *  @param code status or message number
 *  @param text [out] the text and a NUL; empty when there is none
 *  @param text_bytes room in bytes, the NUL included; a longer text is cut between characters
 *  @return the bytes of the text, without the NUL. Any thread. */
BRYND_API uint16_t EngMessageLoad(uint32_t module, uint16_t code, char* text, uint16_t text_bytes);

/** Loads a library of procedures from the folder of the engine itself, `lib<name>.so`. Its entry is the
 *  function BryndLibraryMain.
 *  @param name 1 to 64 bytes without separators
 *  @param flags 0
 *  @param library [out] the system loader's handle; give it back with EngLibraryFree
 *  @param procedure [out] address of the entry; may be null
 *  @return 0, 0x108 bad name, 0x114 it cannot be loaded, or the entry is asked for and missing. Any
 *    thread. */
BRYND_API EngStatus EngLibraryLoad(const char* name, uint32_t flags, void** library, void** procedure);

/** Gives a library back that EngLibraryLoad gave out. 0 is no library and no failure.
 *  @return 0, 0x1f0. Any thread. */
BRYND_API EngStatus EngLibraryFree(void* library);

#ifdef __cplusplus
}
#endif

#endif
