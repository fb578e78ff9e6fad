// Searches: the selection formula of a search, made of the caller's and of the form's name, and the run.
#include <cstring>

#include "brynd.h"
#include "kavrin.h"
#include "kvconv.h"
#include "kvint.h"

namespace {

constexpr size_t kFormulaTextMax = 0xffff;
constexpr char kHead[] = "@@SELECT@@ (Form=\"";
constexpr char kMiddle[] = "\" | $TITLE=\"";
constexpr char kTail[] = "\")";
constexpr char kAnd[] = "& (";
constexpr char kEnd[] = ")";
// Words that begin a selection. Each is left out once, in this order.
constexpr const char* kSelectionWords[] = {"SELECT", "CHOIX", "@@SELECT@@"};
// A formula that begins so selects every document.
constexpr const char* kAllWords[] = {"@ALL", "@TOUT"};

bool IsSpaceAt(const char* text) { return KVICharacterBytes(*text) == 1 && KVIIsSpace(*text); }

// Overwrites a `;` that nothing but white space follows. Characters of several bytes are only known from the
// front.
void CutFinalSemicolon(char* text) {
  char* last = nullptr;
  for (char* place = text; *place != 0;) {
    if (!IsSpaceAt(place)) last = place;
    for (uint32_t left = KVICharacterBytes(*place); left != 0 && *place != 0; --left) ++place;
  }
  if (last != nullptr && *last == ';') *last = 0;
}

bool StartsWith(const char* text, const char* word) { return strncasecmp(text, word, strlen(word)) == 0; }

const char* SkipSpace(const char* text) {
  while (IsSpaceAt(text) && *text != 0) ++text;
  return text;
}

// What the formula adds to the form's test, null when that is nothing.
const char* OwnCondition(char* formula) {
  CutFinalSemicolon(formula);
  const char* condition = SkipSpace(formula);
  for (const char* word : kSelectionWords)
    if (StartsWith(condition, word)) condition += strlen(word);
  condition = SkipSpace(condition);
  for (const char* word : kAllWords)
    if (StartsWith(condition, word)) return nullptr;
  return condition;
}

char* Put(char* place, const char* text) {
  const size_t text_bytes = strlen(text);
  KVICopyBytes(place, text, text_bytes);
  return place + text_bytes;
}

// The name as a string constant holds it; returns the end.
char* PutName(char* place, const char* name) {
  KVIDesignGetFormulaFormat(place, name, 0);
  return place + strlen(place);
}

uint32_t Compile(_api_session* session, const char* text, EngMem* formula) {
  const size_t text_bytes = text == nullptr ? 0 : strlen(text);
  if (text_bytes > kFormulaTextMax) return KVFAIL_DATA_TOO_LONG;
  EngStatus error = 0;
  uint16_t formula_bytes = 0, line = 0, column = 0, offset = 0, error_bytes = 0;
  if (!EngFormulaCompile(nullptr, 0, text, static_cast<uint16_t>(text_bytes), formula, &formula_bytes, &error,
                         &line, &column, &offset, &error_bytes))
    return KVSUCCESS;
  if (text == nullptr) return _BryndFormulaError(session, error, "", 0);
  const size_t start = offset < text_bytes ? offset : text_bytes;
  const size_t left_bytes = text_bytes - start;
  return _BryndFormulaError(session, error, text + start,
                            error_bytes < left_bytes ? error_bytes : static_cast<uint32_t>(left_bytes));
}

uint32_t CompileSearch(_api_session* session, const _INDEX* idx, char* formula, EngMem* compiled) {
  if (idx->active_form == nullptr) return Compile(session, formula, compiled);
  char* text = _KVIComposeSearch(idx->active_form->name, formula);
  if (text == nullptr) return KVFAIL_NO_MEMORY;
  KVGuard free_text([&] { KVIFree(text); });
  return Compile(session, text, compiled);
}

uint32_t Run(_INDEX* idx, EngMem formula, const KVDATETIME* begin_datetime) {
  TIMEDATE since{}, until{};
  if (begin_datetime != nullptr) since = KVILoad<TIMEDATE>(begin_datetime);
  if (uint16_t brstatus =
          EngDbSearch(idx->dbase->dbhand, formula, nullptr, 0, idx->search_class,
                      begin_datetime == nullptr ? nullptr : &since, SearchNoteID, idx, &until))
    return brstatus;
  if (!KVIIdListTrim(idx)) return KVFAIL_NO_MEMORY;
  idx->doc_index = 0;
  KVICopyBytes(&idx->index_datetime, &until, sizeof until);
  return KVSUCCESS;
}

}  // namespace

char* _KVIComposeSearch(const char* form_name, char* formula) {
  const size_t fixed_bytes =
      strlen(kHead) + strlen(kMiddle) + strlen(kTail) + strlen(kAnd) + strlen(kEnd) + 1;
  const size_t formula_bytes = formula == nullptr ? 0 : strlen(formula);
  auto* text = KVIAllocate<char>(formula_bytes + 4 * strlen(form_name) + fixed_bytes);
  if (text == nullptr) return nullptr;
  char* place = PutName(Put(text, kHead), form_name);
  place = Put(PutName(Put(place, kMiddle), form_name), kTail);
  const char* condition = formula == nullptr ? nullptr : OwnCondition(formula);
  if (condition != nullptr) place = Put(Put(Put(place, kAnd), condition), kEnd);
  *place = 0;
  return text;
}

uint32_t KVIndexSearch(uint32_t index, char* formula, uint32_t formid, const KVDATETIME* begin_datetime) {
  _api_session* session;
  if (uint32_t status = KVIEnter(index, &session)) return status;
  _INDEX* idx = _KVIFindIndex(session, index);
  if (idx == nullptr) return KVError(KVFAIL_BAD_INDEX);
  (void)ClearIndexState(idx, kStateIndexAll);
  if (KVIEmpty(formula)) formula = nullptr;
  if (formid != 0) {
    if (idx->search_class != BRCLASS_DATA) return KVError(KVFAIL_NO_ACTION);
    if (uint32_t status = _KVIFormGetSpec(session, idx->dbase, formid, nullptr, &idx->active_form))
      return KVError(status);
  }
  EngMem compiled = 0;
  if (uint32_t status = CompileSearch(session, idx, formula, &compiled)) return KVError(status);
  KVGuard free_formula([&] { EngMemFree(compiled); });
  if (uint32_t status = Run(idx, compiled, begin_datetime)) {
    (void)ClearIndexState(idx, kStateIndexAll);
    return KVError(status);
  }
  return KVSUCCESS;
}
