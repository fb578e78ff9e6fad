// Full-text queries: the text a user writes, taken apart into a tree.
//
//   query   = either { ("or" | "|") either }
//   either  = close { ["and" | "&"] close }                 words side by side: both
//   close   = plain { ("near" | "sentence" | "paragraph") plain }
//   plain   = ("not" | "!") plain | "exactcase" plain | "termweight" n plain
//           | "field" name "contains" plain | "field" name ("=" | "<" | ">" | "<=" | ">=") value
//           | "(" query ")" | "phrase" | word
//
// Operators in any case; between quotation marks a word is only a word. In words `*` is any run of characters
// and `?` any one.
// (1) Any bytes are a query or a refusal with its place; there are at most kQueryNodesMax nodes, nested at
// most
//     kQueryDepthMax deep.
// (2) A word that folds to several (with a hyphen, say) is a phrase. What holds no word at all means nothing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "brynd_types.h"
#include "fulltext/words.h"

namespace brynd::fulltext {

inline constexpr size_t kQueryBytesMax = 64 * 1024;
inline constexpr uint32_t kQueryNodesMax = 1024;
inline constexpr uint32_t kQueryDepthMax = 64;
inline constexpr uint32_t kWeightMax = 65535, kPlainWeight = 100;
inline constexpr uint32_t kNearWords = 8;  // `near`: the second is at most the eighth word from the first

enum class NodeKind : uint8_t {
  kNothing,    // matches neither all nor none: its neighbours decide
  kPhrase,     // terms
  kAnd,        // children
  kOr,         // children
  kNot,        // one child
  kNear,       // two children
  kSentence,   // two children
  kParagraph,  // two children
  kContains,   // field, one child
  kCompare     // field, comparison, value
};

enum class Comparison : uint8_t { kEqual, kLess, kGreater, kLessOrEqual, kGreaterOrEqual };

struct Term {
  std::string text;  // folded, or exact in a phrase that is
  bool pattern = false;
};

struct Node {
  NodeKind kind = NodeKind::kNothing;
  size_t place = 0;  // byte of the query
  std::vector<Term> terms = {};
  bool exact = false;
  uint32_t weight = kPlainWeight;  // of phrases and comparisons
  std::vector<Node> children = {};
  std::string field = {};  // engine text
  Comparison comparison = Comparison::kEqual;
  std::string value = {};             // engine text
  std::optional<double> number = {};  // the value, when it is one
  std::optional<TIMEDATE> time = {};  // likewise
};

struct ParsedQuery {
  Node root;
  std::string_view refusal;  // why the text is no query; empty when it is one
  size_t place = 0;          // where
};

ParsedQuery ParseQuery(std::string_view text);

// Takes stop words out of all phrases, and what is left empty by that.
void DropStopWords(Node* node, const StopWords& stop_words);

// The tree in brackets, for tests and diagnosis: (and cat (not "old dog")).
std::string Explain(const Node& node);

}  // namespace brynd::fulltext
