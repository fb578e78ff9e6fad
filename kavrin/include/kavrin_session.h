/* Sessions of Kavrin: start and end of the library, settings, environment strings, formats, character sets.
 *
 * Each thread that calls the library has a session of its own. The first thread calls KVInit, further threads
 * KVInitThread; every successful start needs its KVTerm. Handles work in the thread that made them alone. */
#ifndef KAVRIN_SESSION_H
#define KAVRIN_SESSION_H

#include "kavrin_status.h"

/** Interface version of this header; KVInit passes it to the library. */
enum { KVAPI_VERSION = 0x45005 };

/** Flags of _KVInit. */
enum {
  KVINIT_ENGINE_RUNNING = 1, /**< the caller has started the engine, or this thread in the engine */
  KVINIT_INI_FILE = 2,       /**< argv is the path of the initialisation file, cast to char** */
  KVINIT_THREAD = 4          /**< starts the session of a further thread; KVInitThread sets it */
};

/** Flags of KVTerm. */
enum {
  KVTERM_SAVE_DOCUMENTS = 1, /**< documents still open are written when their databases close */
  KVTERM_ENGINE_RUNNING = 2, /**< the engine is not stopped */
  KVTERM_THREAD = 4,         /**< ends the session of a further thread */
  KVTERM_WAIT_THREADS = 8    /**< waits until the sessions of all further threads have ended */
};

/** Starts the library in its first thread. */
#define KVInit(init_flags, argc, argv) _KVInit(KVAPI_VERSION, (init_flags), (argc), (argv))
/** Starts the library in a further thread. */
#define KVInitThread(init_flags) _KVInit(KVAPI_VERSION, (init_flags) | KVINIT_THREAD, 0, NULL)

/** Properties of a session. A bool is an int32_t that reads as 1 or 0; any non-zero word sets it. */
enum {
  KVPROP_SESS_LOCAL_SERVER =
      1, /**< text, 255 characters: name that counts as this machine; longer text is cut */
  KVPROP_SESS_TRUNCATE_TEXT = 2,    /**< bool: conversions to text cut instead of failing */
  KVPROP_SESS_KEEP_MAILDB_OPEN = 3, /**< bool: mail databases stay open between sends; false closes them */
  KVPROP_SESS_ABBREVIATE_NAMES = 4, /**< bool: user names are told without their labels */
  KVPROP_SESS_SUMMARY_LIMIT = 5, /**< uint32_t, bytes, at most 15360: longest item that goes to summaries */
  KVPROP_SESS_DELAY_COMMIT = 6,  /**< bool: updates need not be on disk when they return */
  KVPROP_SESS_STRICT_BIND = 7,   /**< bool: items must match the form */
  KVPROP_SESS_FETCH_DESIGN_CODE = 8, /**< bool: formulas of design elements are fetched */
  KVPROP_SESS_DOCOPEN_DESIGN = 9,    /**< bool: documents that hold no data may be opened */
  KVPROP_SESS_USER_NAME = 10,        /**< text, 255 characters, read only: the user of the engine */
  KVPROP_SESS_TIME_ZONE = 11,        /**< int32_t, read only: zone, hours west of GMT */
  KVPROP_SESS_DST = 12,              /**< bool, read only: daylight saving time is observed */
  KVPROP_SESS_ON_SERVER = 13,        /**< bool, read only: the session runs on a server */
  KVPROP_SESS_NEWLINE = 14,     /**< text, 5 characters: line break of text output; empty changes nothing */
  KVPROP_SESS_BR_VERSION = 15,  /**< text, 80 characters, read only: version of the engine */
  KVPROP_SESS_TASK_NAME = 16,   /**< text, 256 characters: name of server tasks; empty changes nothing */
  KVPROP_SESS_VCACHE_ROWS = 17, /**< uint32_t: rows of the view cache; 0 is stored as 1 */
  KVPROP_SESS_READ_SUBF_FIELDS = 18, /**< bool: reading a form descends into its subforms */
  KVPROP_SESS_MAX_DB_SIZE = 19, /**< uint32_t, 1 to 4: largest size of new databases; limited, not refused */
  KVPROP_SESS_BR_BUILD = 20,    /**< uint32_t, read only: build number of the engine */
  KVPROP_SESS_STRICT_BIND_COMPUTE = 21 /**< bool: strict binding also while computing */
};

/** Orders of day, month and year in KVINTERNATIONAL. */
enum {
  KVDATEORDER_0 = 0, /**< month, day, year */
  KVDATEORDER_1 = 1, /**< day, month, year */
  KVDATEORDER_2 = 2  /**< year, month, day */
};

/** Directions of KVTranslate. */
enum {
  KVTRANSLATE_TO_ENGINE = 0,  /**< from the platform's character set to the engine's */
  KVTRANSLATE_FROM_ENGINE = 1 /**< from the engine's character set to the platform's */
};

/** Flag of KVSetEnvironmentString: a missing variable is made. */
enum { KVSETENV_CREATE = 1 };

/** Bytes of the text from KVGetAPILibraryVersion: 81 characters and a NUL. */
enum { KVVERSION_BYTES = 82 };

#pragma pack(push, 1)

/** International settings. Strings end with a NUL. */
typedef struct KVINTERNATIONAL {
  uint32_t intl_flags; /**< 1 currency behind, 2 blank between, 4 leading zero, 8 24-hour clock, 0x10 daylight
                          saving */
  int32_t date_order;  /**< one of KVDATEORDER_* */
  uint32_t currency_digits; /**< digits after the decimal point in currency, at most 255 */
  int32_t time_zone;        /**< -11 to 11 */
  char am_string[5];
  char pm_string[5];
  char currency_symbol[5];
  char thousand_sep[5];
  char decimal_sep[5];
  char date_sep[5];
  char time_sep[5];
  char yesterday_string[32];
  char today_string[32];
  char tomorrow_string[32];
} KVINTERNATIONAL;

#pragma pack(pop)

#ifdef __cplusplus
extern "C" {
#endif

struct KVFORMAT;

/** Starts the library in the calling thread; use KVInit or KVInitThread. Starts nest in each thread. Without
 * KVINIT_THREAD the first call of the process starts the engine; it must not race with another first call.
 * While the library runs, any further thread may call it.
 *  @param version interface version that the caller was compiled against: 0x20000 to 0x45100.
 *  @param init_flags KVINIT_*.
 *  @param argc, argv arguments of the program, passed to the engine; see KVINIT_INI_FILE. May be 0 and null.
 *  @return KVSUCCESS; KVFAIL_BAD_VERSION; KVFAIL_NO_MEMORY; KVFAIL_NOT_INITIALIZED for a thread start before
 * the main start; KVFAIL_NO_INI_FILE; any other status of the engine, all 16 bits, as it stands. */
KVAPI uint32_t _KVInit(uint32_t version, uint32_t init_flags, int argc, char** argv);

/** Undoes one start of the calling thread. The last one closes everything that the thread left open; in the
 * main thread it stops the engine and ends the library. With KVTERM_WAIT_THREADS every such call waits for
 * the other threads first.
 *  @param term_flags KVTERM_*. KVTERM_THREAD ends a further thread's session and never writes its open
 * documents.
 *  @return KVSUCCESS; KVFAIL_NOT_INITIALIZED or KVFAIL_THREAD_NOT_INITIALIZED without a session;
 * KVFAIL_TERM_FAILED when the main session would end in another thread, or the main session as a thread's;
 * nothing has ended then. */
KVAPI uint32_t KVTerm(uint32_t term_flags);

/** Tells the version of this library. Needs no session; any thread.
 *  @param string [out, optional] the version as text; room for KVVERSION_BYTES bytes.
 *  @return KVAPI_VERSION of the library. */
KVAPI uint32_t KVGetAPILibraryVersion(char* string);

/** Reads a property of the calling thread's session.
 *  @param property KVPROP_SESS_*. Callers of versions below 0x40000 see 1 to 17, below 0x40106 1 to 20.
 *  @param value [out] variable of the property's type; room for the property's characters and a NUL for text.
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM, KVFAIL_BAD_PROPERTY, a status of the engine for
 * KVPROP_SESS_USER_NAME and KVPROP_SESS_ON_SERVER, or the statuses of a missing session. Calling thread's
 * session. */
KVAPI uint32_t KVGetProperty(int32_t property, void* value);

/** Changes a property of the calling thread's session. Databases already open keep what they took when they
 * were opened.
 *  @param property KVPROP_SESS_*.
 *  @param value variable of the property's type, or the text itself; null is allowed for text alone.
 *  @return KVSUCCESS, KVFAIL_BAD_PROPERTY, KVFAIL_NULL_PARAM, KVFAIL_READ_ONLY_PROPERTY, KVFAIL_DATA_TOO_LONG
 * (the old value stays), KVFAIL_NO_MEMORY, or the statuses of a missing session. Calling thread's session. */
KVAPI uint32_t KVSetProperty(int32_t property, const void* value);

/** Reads an environment string of the engine's initialisation file.
 *  @param name its name.
 *  @param length most characters to read; 0 and more than 150 count as 150.
 *  @param value [out] the string; room for length + 1 bytes, 151 by default; empty on failure.
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM (also for an empty name), KVFAIL_NOT_FOUND, or the statuses of a
 * missing session. Any thread with a session. */
KVAPI uint32_t KVGetEnvironmentString(const char* name, uint32_t length, char* value);

/** Writes an environment string of the engine's initialisation file.
 *  @param name its name.
 *  @param value the string, at most 150 characters.
 *  @param setenv_flags KVSETENV_CREATE makes a missing variable; with any other word it must exist.
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM (also for an empty name), KVFAIL_DATA_TOO_LONG, KVFAIL_NOT_FOUND, or
 * the statuses of a missing session. Any thread with a session. */
KVAPI uint32_t KVSetEnvironmentString(const char* name, const char* value, uint32_t setenv_flags);

/** Reads the format that the session's conversions use by default.
 *  @param format [out] the format.
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM, or the statuses of a missing session. Calling thread's session. */
KVAPI uint32_t KVGetFormat(struct KVFORMAT* format);

/** Changes the format that the session's conversions use by default.
 *  @param format the format.
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM, KVFAIL_BAD_ENUM for a member out of range (nothing has changed), or
 * the statuses of a missing session. Calling thread's session. */
KVAPI uint32_t KVSetFormat(const struct KVFORMAT* format);

/** Reads the international settings of the session.
 *  @param intl [out] the settings.
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM, or the statuses of a missing session. Calling thread's session. */
KVAPI uint32_t KVGetInternational(KVINTERNATIONAL* intl);

/** Changes the international settings of the session.
 *  @param intl the settings. A time zone or digits out of range are found after the date order and flags have
 * been set.
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM, KVFAIL_DATA_TOO_LONG for a string without room for its NUL, a time
 * zone outside -11 to 11 or more than 255 digits, KVFAIL_BAD_ENUM for a date order above 2, or the statuses
 * of a missing session. Calling thread's session. */
KVAPI uint32_t KVSetInternational(const KVINTERNATIONAL* intl);

/** Translates text between the platform's character set and the engine's.
 *  @param translate KVTRANSLATE_*.
 *  @param src_length bytes of src_buffer, 1 to 65535.
 *  @param src_buffer the text.
 *  @param dest_length bytes of dest_buffer; more than 65535 count as 65535.
 *  @param dest_buffer [out] the translated text, without a NUL; a character that does not fit whole is left
 * out.
 *  @param actual_length [out, optional] bytes written; 0 on failure.
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM, KVFAIL_BAD_ENUM, KVFAIL_DATA_TOO_LONG, KVFAIL_NO_ACTION for an empty
 * text, or the statuses of a missing session. Any thread with a session. */
KVAPI uint32_t KVTranslate(int32_t translate, uint32_t src_length, const char* src_buffer,
                           uint32_t dest_length, char* dest_buffer, uint32_t* actual_length);

#ifdef __cplusplus
}
#endif

#endif
