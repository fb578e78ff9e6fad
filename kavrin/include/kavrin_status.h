/* Status words of Kavrin and how a program learns about failures.
 *
 * A status word is 32 bits. 0 is success. With bit 31 set it is one of the statuses below. With bit 31 clear
 * it is a status of the engine, of which the low 14 bits are given. The constants are derived from
 * kavrin_statuses.def, the only list.
 *
 * The error state (status, severity, message, registered buffers, error procedure) belongs to the calling
 * thread's session. Every exported function, apart from the four error functions here, clears the status
 * first; severity and message keep their last values. The first failure of a call is the one that is recorded
 * and returned. */
#ifndef KAVRIN_STATUS_H
#define KAVRIN_STATUS_H

#include "kavrin_types.h"

/* C++ gets typed constants; C gets an enumeration, usable in a switch, whose values need the range of
 * unsigned int. */
#ifdef __cplusplus
inline constexpr uint32_t KVSUCCESS = 0;
#define KVSTATUS(name, code, severity, message) inline constexpr uint32_t name = 0x80000000u + code;
#include "kavrin_statuses.def"
#undef KVSTATUS
#else
enum { KVSUCCESS = 0 };
__extension__ enum {
#define KVSTATUS(name, code, severity, message) name = 0x80000000u + code,
#include "kavrin_statuses.def"
#undef KVSTATUS
  KVFAIL_LAST_ = 0xffffffffu
};
#endif

/** Severities of failures. */
enum {
  KVSEV_NONE = 0,    /**< success, KVFAIL_NO_CERTIFIER and KVFAIL_LOCAL_ONLY */
  KVSEV_INFO = 2,    /**< ends a normal loop or reports a stale object */
  KVSEV_WARNING = 4, /**< something asked for does not exist */
  KVSEV_ENGINE = 5,  /**< every status of the engine that has a message */
  KVSEV_ERROR = 6,   /**< bad arguments, objects or operations */
  KVSEV_SEVERE = 8,  /**< the session cannot go on */
  KVSEV_FATAL = 10   /**< internal software error */
};

/** Bytes that a message buffer must have: 255 characters and a NUL. */
enum { KVMESSAGE_BYTES = 256 };

#ifdef __cplusplus
extern "C" {
#endif

/** An error procedure. It runs on the failing thread, inside the failing function, before that function
 * returns.
 *  @param status the status word that the function is about to return.
 *  @param severity its severity, one of KVSEV_*.
 *  @param message its text, NUL-terminated, owned by the session; valid during the call.
 *  @param error_param the pointer given to KVErrorSetProcedure.
 *  @return any value; it is ignored. */
typedef uint32_t (*KVERRORPROC)(uint32_t status, int32_t severity, char* message, void* error_param);

/** Tells the failure of the last call of this thread. It can be asked for repeatedly, until the next call of
 * another function.
 *  @param status [out, optional] the status word, 0 when the last call did not fail; KVFAIL_NOT_INITIALIZED
 * when the thread has no session.
 *  @param severity [out, optional] its severity, 0 when there is no failure.
 *  @param message [out, optional] its text; room for KVMESSAGE_BYTES bytes, owned by the caller.
 *  @return length of the message in bytes; 0 when message is null, when there was no failure and without a
 * session. Any thread; tells the calling thread's failure. */
KVAPI uint32_t KVErrorFetch(uint32_t* status, int32_t* severity, char* message);

/** Tells severity and text of any status word; neither the error state nor registered buffers or procedures
 * notice.
 *  @param status a status word; a status of the engine is reduced to its low 14 bits.
 *  @param severity [out, optional] its severity, 0 for an unknown status.
 *  @param message [out, optional] its text, empty for an unknown status and for KVFAIL_FORMULA, whose text is
 * made when it happens; room for KVMESSAGE_BYTES bytes, owned by the caller.
 *  @return length of the message in bytes; 0 when there is none, when message is null, and, with the outputs
 * untouched, when the thread has no session. Any thread. */
KVAPI uint32_t KVErrorGetInfo(uint32_t status, int32_t* severity, char* message);

/** Registers variables that every failure of this thread fills. They are cleared at once, and written again
 * at each failure only; they must stay valid until they are replaced or the session ends. Without a session
 * nothing happens.
 *  @param status [optional] receives the status word; null ends an earlier registration.
 *  @param severity [optional] receives the severity; null ends an earlier registration.
 *  @param message [optional] receives the text; room for KVMESSAGE_BYTES bytes; null ends an earlier
 * registration. Any thread; holds for failures of the calling thread only. */
KVAPI void KVErrorSetBuffer(uint32_t* status, int32_t* severity, char* message);

/** Installs the procedure that is called at every failure of this thread.
 *  @param error_proc the procedure; null removes it.
 *  @param error_param passed to it unchanged.
 *  @return the procedure installed before, null if none or without a session.
 *  Any thread; holds for failures of the calling thread only. */
KVAPI KVERRORPROC KVErrorSetProcedure(KVERRORPROC error_proc, void* error_param);

#ifdef __cplusplus
}
#endif

#endif
