// Formulas of design records: their texts, and design names inside them.
#include <algorithm>

#include "kvint.h"

void KVIDesignGetFormulaFormat(char* out, const char* in, int inlen) {
  if (out == nullptr) return;
  if (in == nullptr) return;
  const size_t in_bytes = inlen > 0 ? strnlen(in, static_cast<size_t>(inlen)) : strlen(in);
  for (size_t i = 0; i < in_bytes; ++i) {
    if (in[i] == '\\') *out++ = '\\';
    *out++ = in[i];
  }
  *out = 0;
}

char* FetchDesignFormula(const char* formula, char** formula_string_ptr, int viewsel) {
  *formula_string_ptr = nullptr;
  EngMem text = 0;
  uint16_t text_bytes = 0;
  if (EngFormulaDecompile(formula, viewsel, &text, &text_bytes)) return nullptr;
  KVGuard free_text([&] { EngMemFree(text); });
  const KVLocked block(text);
  if (block.bytes != nullptr) *formula_string_ptr = KVICopyText(block.bytes, text_bytes);
  return *formula_string_ptr;
}
