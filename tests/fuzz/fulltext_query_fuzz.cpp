// Any bytes as a query: a tree or a refusal inside the text; stop words can be taken out of it, and the words
// of any text be told.
#include <cstdlib>
#include <string_view>

#include "fulltext/query.h"
#include "fulltext/words.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
  using namespace brynd::fulltext;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  ParsedQuery query = ParseQuery(text);
  if (query.place > size) std::abort();
  if (query.refusal.empty()) {
    if (query.root.kind == NodeKind::kNothing) std::abort();
    DropStopWords(&query.root, StopWords::English());
    Explain(query.root);
  }
  WordBreaker breaker;
  breaker.Break(text, [&](const FoundWord& word) {
    if (word.folded.empty() || word.end > size || word.begin >= word.end) std::abort();
    for (const char byte : word.folded)
      if (static_cast<unsigned char>(byte) < 0x21) std::abort();
  });
  return 0;
}
