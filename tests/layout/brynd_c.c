/* The boundary of the engine compiles alone as C11. */
#include "brynd.h"

_Static_assert(sizeof(EngStatus) == 2, "a status has 16 bits");
_Static_assert(sizeof(EngMem) == 4 && sizeof(EngCollection) == 2, "handles have their own widths");

/* A second declaration of every call, out of the list of calls, agrees with the first. */
#define ENGINE_CALL(name, result, parameters, arguments) result name parameters;
#include "kit/engine_calls.def"
