// Composites. This version opens none; what documents do with those that are open is here.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

// Writes a changed composite back into its document.
uint32_t _CompStore(_api_session* session, _DOCUMENT* doc, _COMPOSITE* comp) {
  if (!comp->dirty) return KVSUCCESS;
  if (comp->itemname == nullptr) return KVSUCCESS;
  return _CompConvert(session, doc, KVTYPE_COMPOSITE, 4, comp, KVTYPE_COMPOSITE, 0, nullptr, nullptr,
                      comp->itemname, KVCONV_WRITE, nullptr);
}

void _CompFree(_api_session* session, _COMPOSITE* comp) {
  for (_COMPOSITE** link = &comp->doc->complist; *link != nullptr; link = &(*link)->docnext)
    if (*link == comp) {
      *link = comp->docnext;
      break;
    }
  _KVIUnlinkComposite(session, comp);
  KVIFree(comp->itemname);
  KVIFree(comp);
}
