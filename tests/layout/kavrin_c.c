/* The public headers compile alone as C11, and what they declare is usable there. */
#include "kavrin.h"

_Static_assert(sizeof(KVDATETIME) == 8 && sizeof(KVUNID) == 16, "records are packed in C too");
_Static_assert(sizeof(KVINTERNATIONAL) == 147, "records are packed in C too");
_Static_assert(sizeof(KVITEM) == 77 + sizeof(void*), "records are packed in C too");
_Static_assert(KVFAIL_NO_ITEM == 0x80000f01u, "statuses are constants");

uint32_t UseKavrin(void);
uint32_t UseKavrin(void) {
  const KVFORMAT format = KVFORMAT_DEFAULT;
  char path[] = "BRYND.INI";
  switch (KVInit(KVINIT_INI_FILE, 0, (char**)(void*)path)) {
    case KVSUCCESS:
      return KVSetFormat(&format);
    case KVFAIL_NO_INI_FILE:
      return KVInitThread(KVINIT_ENGINE_RUNNING);
    default:
      return KVTerm(KVTERM_THREAD | KVTERM_WAIT_THREADS);
  }
}
