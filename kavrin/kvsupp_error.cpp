// Failures: the table of messages, the one routine that records them, and what a program asks about them.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "kvint_session.h"
#include "kvint_system.h"

struct MESSAGEROW {
  uint16_t key;  // low 16 bits of the status
  int16_t severity;
  const char* text;
};

static constexpr MESSAGEROW kMessages[] = {
    {0, KVSEV_NONE, "No Error"},
#define KVSTATUS(name, code, severity, message) {code, severity, message},
#include "kavrin_statuses.def"
#undef KVSTATUS
};

static_assert(std::ranges::is_sorted(kMessages, {}, &MESSAGEROW::key), "keys rise");
static_assert(std::ranges::adjacent_find(kMessages, {}, &MESSAGEROW::key) == std::end(kMessages),
              "no key twice");

static const MESSAGEROW* FindMessage(uint32_t code) {
  const auto key = static_cast<uint16_t>(code);
  const MESSAGEROW* row = std::ranges::lower_bound(kMessages, key, {}, &MESSAGEROW::key);
  return row != std::end(kMessages) && row->key == key ? row : nullptr;
}

uint32_t BryndLoadString(uint32_t code, char* buffer, uint32_t length) {
  *buffer = 0;
  const MESSAGEROW* row = FindMessage(code);
  if (row == nullptr) return 0;
  KVIstrnncpy(buffer, row->text, length);
  return static_cast<uint32_t>(std::strlen(buffer));
}

static constexpr uint32_t kPublicBit = 0x80000000u;
static constexpr uint32_t kErrorTextMax = kErrorTextBytes - 1;

static void LoadPublicMessage(_api_session* session, uint32_t code) {
  // Key 0 is the text of success: no failure has it.
  if (static_cast<uint16_t>(code) == 0)
    session->errstring[0] = 0;
  else if (code != KVFAIL_FORMULA)
    BryndLoadString(code, session->errstring, kErrorTextMax);
  if (session->errstring[0] == 0 || code == KVFAIL_MESSAGE_COUNT) return;
  const MESSAGEROW* row = FindMessage(code);
  if (row != nullptr) session->errsev = row->severity;
}

static void LoadEngineMessage(_api_session* session, uint32_t code) {
  session->errstring[0] = 0;
  EngMessageLoad(session->error_module, static_cast<uint16_t>(code), session->errstring, kErrorTextMax);
  session->errstring[kErrorTextMax] = 0;
  if (session->errstring[0] != 0) session->errsev = KVSEV_ENGINE;
}

uint32_t KVError(uint32_t code) {
  _api_session* session = KVICurrentSession();
  if (session == nullptr) return code;
  if (session->errcode != 0) return session->errcode;  // the first failure of a call wins
  if ((code & kPublicBit) == 0) code &= 0x3fff;
  if (code == 0) return KVSUCCESS;
  session->errcode = code;
  if ((code & kPublicBit) != 0)
    LoadPublicMessage(session, code);
  else
    LoadEngineMessage(session, code);
  if (session->errbuf != nullptr) KVIstrnncpy(session->errbuf, session->errstring, kErrorTextMax);
  KVIStoreIf(session->errstat, code);
  KVIStoreIf(session->errsev_ptr, session->errsev);
  // The procedure may call the library, which clears errcode; the failing call returns its own code all the
  // same.
  if (session->errproc != nullptr)
    session->errproc(session->errcode, session->errsev, session->errstring, session->errparam);
  return code;
}

uint32_t _BryndFormulaError(_api_session* session, uint32_t, const char* error, uint32_t errlen) {
  const uint32_t start = BryndLoadString(KVFAIL_FORMULA, session->errstring, kErrorTextMax);
  const uint32_t maxlen = kErrorTextBytes - start - 3;  // two quotes and a NUL
  errlen = static_cast<uint32_t>(strnlen(error, errlen < maxlen ? errlen : maxlen));
  char* place = session->errstring + start;
  *place++ = '\'';
  KVICopyBytes(place, error, errlen);
  place[errlen] = '\'';
  place[errlen + 1] = 0;
  return KVError(KVFAIL_FORMULA);
}

// ---- What a program asks

static void ClearOutputs(uint32_t* status, int32_t* severity, char* message) {
  KVIStoreIf(status, 0);
  KVIStoreIf(severity, 0);
  if (message != nullptr) *message = 0;
}

uint32_t KVErrorFetch(uint32_t* status, int32_t* severity, char* message) {
  const _api_session* session = KVICurrentSession();
  if (session == nullptr) {
    KVIStoreIf(status, KVFAIL_NOT_INITIALIZED);
    return 0;
  }
  ClearOutputs(status, severity, message);
  if (session->errcode == 0) return 0;
  KVIStoreIf(status, session->errcode);
  KVIStoreIf(severity, session->errsev);
  if (message == nullptr) return 0;
  KVIstrnncpy(message, session->errstring, kErrorTextMax);
  return static_cast<uint32_t>(std::strlen(message));
}

// The part of the error state that a translation of a status must not disturb.
struct ERRORSTATE {
  uint32_t errcode;
  int32_t errsev;
  char errstring[kErrorTextBytes];
  char* errbuf;
  uint32_t* errstat;
  int32_t* errsev_ptr;
  KVERRORPROC errproc;
  void* errparam;
};

static void SetErrorState(_api_session* session, const ERRORSTATE& state) {
  session->errcode = state.errcode;
  session->errsev = state.errsev;
  KVICopyBytes(session->errstring, state.errstring, kErrorTextBytes);
  session->errbuf = state.errbuf;
  session->errstat = state.errstat;
  session->errsev_ptr = state.errsev_ptr;
  session->errproc = state.errproc;
  session->errparam = state.errparam;
}

static ERRORSTATE GetErrorState(const _api_session* session) {
  ERRORSTATE state{session->errcode, session->errsev,  {},
                   session->errbuf,  session->errstat, session->errsev_ptr,
                   session->errproc, session->errparam};
  KVICopyBytes(state.errstring, session->errstring, kErrorTextBytes);
  return state;
}

uint32_t KVErrorGetInfo(uint32_t status, int32_t* severity, char* message) {
  _api_session* session = KVICurrentSession();
  if (session == nullptr) return 0;
  ClearOutputs(nullptr, severity, message);
  if (status == 0) return 0;
  const ERRORSTATE saved = GetErrorState(session);
  SetErrorState(session, ERRORSTATE{});
  KVError(status);
  const bool found = session->errstring[0] != 0;
  KVIStoreIf(severity, session->errsev);
  if (message != nullptr) KVIstrnncpy(message, session->errstring, kErrorTextMax);
  SetErrorState(session, saved);
  return found && message != nullptr ? static_cast<uint32_t>(std::strlen(message)) : 0;
}

void KVErrorSetBuffer(uint32_t* status, int32_t* severity, char* message) {
  _api_session* session = KVICurrentSession();
  if (session == nullptr) return;
  session->errstat = status;
  session->errsev_ptr = severity;
  session->errbuf = message;
  ClearOutputs(status, severity, message);
}

KVERRORPROC KVErrorSetProcedure(KVERRORPROC error_proc, void* error_param) {
  _api_session* session = KVICurrentSession();
  if (session == nullptr) return nullptr;
  const KVERRORPROC earlier = session->errproc;
  session->errproc = error_proc;
  session->errparam = error_param;
  return earlier;
}
