// Running a formula of the caller's against a document.
//
// (1) The last formula and what evaluates it stay with the database handle, both or neither. (2) The value of
// the last run stays with the document, readable as an item, until the next run, a save or the close.
#include <cstring>

#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr size_t kFormulaTextMax = 0xffff;

void DropKept(_DATABASE* dbase) {
  if (dbase->last_compute_hand) EngComputeEnd(dbase->last_compute_hand);
  if (dbase->last_formula_hand) EngMemFree(dbase->last_formula_hand);
  dbase->last_compute_hand = 0;
  dbase->last_formula_hand = 0;
}

uint32_t Compile(_api_session* session, const char* text, EngMem* formula) {
  const size_t text_bytes = strlen(text);
  if (text_bytes > kFormulaTextMax) return KVFAIL_DATA_TOO_LONG;
  EngStatus error = 0;
  uint16_t formula_bytes = 0, line = 0, column = 0, offset = 0, error_bytes = 0;
  if (!EngFormulaCompile(nullptr, 0, text, static_cast<uint16_t>(text_bytes), formula, &formula_bytes, &error,
                         &line, &column, &offset, &error_bytes))
    return KVSUCCESS;
  const size_t start = offset < text_bytes ? offset : text_bytes;
  const size_t left_bytes = text_bytes - start;
  return _BryndFormulaError(session, error, text + start,
                            error_bytes < left_bytes ? error_bytes : static_cast<uint32_t>(left_bytes));
}

// Makes the formula the one that the database keeps.
uint32_t Keep(_api_session* session, _DATABASE* dbase, const char* text) {
  DropKept(dbase);
  EngMem formula = 0;
  if (uint32_t status = Compile(session, text, &formula)) return status;
  KVGuard free_formula([&] { EngMemFree(formula); });
  EngCompute compute = 0;
  {
    const KVLocked block(formula);  // the engine copies the formula while the block is locked
    if (uint16_t brstatus = EngComputeBegin(0, block.bytes, &compute)) return brstatus;
  }
  free_formula.Dismiss();  // owned by the database from here
  dbase->last_formula_hand = formula;
  dbase->last_compute_hand = compute;
  return KVSUCCESS;
}

struct Outcome {
  int32_t select = 0;
  int32_t delete_note = 0;
  int32_t modified = 0;
};

int32_t MatchOf(const Outcome& outcome) {
  if (outcome.delete_note) return KVEXEC_DELETE;
  if (outcome.modified) return KVEXEC_MODIFIED;
  return outcome.select ? KVEXEC_SELECT : KVEXEC_NONE;
}

}  // namespace

void _KVIFreeExecuteResult(_DOCUMENT* doc) {
  if (doc->exechand) EngMemFree(doc->exechand);
  doc->exechand = 0;
  doc->execlen = 0;
}

uint32_t KVDocumentExecute(uint32_t document, const char* formula, int32_t* match) {
  _api_session* session;
  if (uint32_t status = KVIEnter(document, &session)) return status;
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  KVIStoreIf<int32_t>(match, KVEXEC_NONE);
  _DATABASE* dbase = doc->dbase;
  if (!KVIEmpty(formula)) {
    if (uint32_t status = Keep(session, dbase, formula)) return KVError(status);
  }
  if (dbase->last_compute_hand == 0) return KVError(KVFAIL_DATA_UNAVAILABLE);
  _KVIFreeExecuteResult(doc);

  Outcome outcome;
  EngMem result = 0;
  uint16_t result_bytes = 0;
  if (uint16_t brstatus = EngComputeEvaluate(dbase->last_compute_hand, doc->notehand, &result, &result_bytes,
                                             &outcome.select, &outcome.delete_note, &outcome.modified))
    return KVError(brstatus);
  doc->exechand = result;
  doc->execlen = result_bytes;
  if (match == nullptr) return KVSUCCESS;
  // A caller who does not ask what the formula did is not told, and neither is the next save.
  const int32_t matched = MatchOf(outcome);
  if (matched == KVEXEC_MODIFIED) doc->dirty = 1;
  KVIStore<int32_t>(match, matched);
  return KVSUCCESS;
}
