// The words of a formula's text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/status.h"
#include "brynd.h"
#include "formula/code.h"

namespace brynd::formula {

enum class TokenKind : uint8_t {
  kEnd,
  kNumber,
  kText,
  kTime,
  kName,      // items, variables and keywords
  kFunction,  // @name, @@number@@
  kOperator,  // binary operators; - + stand before a value too
  kNot,
  kOpen,
  kClose,
  kSemicolon,
  kAssign,
  kSelect,  // SELECT, CHOIX, @@SELECT@@
};

// Where a word stands. Offsets and lengths are in bytes.
struct Place {
  uint32_t offset = 0;
  uint32_t length = 0;
};

struct Token {
  TokenKind kind = TokenKind::kEnd;
  Place place;
  Op op = Op::kEnd;       // kOperator
  double number = 0;      // kNumber
  TIMEDATE time{};        // kTime
  std::string text;       // kText: what it stands for
  std::string_view name;  // kName, kFunction with a name
  int32_t function = -1;  // kFunction given by number
};

class Lexer {
 public:
  explicit Lexer(std::string_view source) : source_(source) {}

  // The next word. A word that is not written correctly gives a status, and token->place is where it stands.
  EngStatus Next(Token* token);

 private:
  bool Skip();
  EngStatus Number(Token* token);
  EngStatus QuotedText(Token* token);
  EngStatus BracedText(Token* token);
  EngStatus Time(Token* token);
  EngStatus Function(Token* token);
  EngStatus Symbol(Token* token);
  EngStatus Finish(Token* token, TokenKind kind, size_t end);
  EngStatus Refuse(Token* token, EngStatus status, size_t end);

  std::string_view source_;
  size_t at_ = 0;
};

// Bytes of the name that starts at a position, 0 when none does.
size_t NameBytesAt(std::string_view source, size_t position);

// Line and column of a position, both from 1; columns count characters.
void LineAndColumn(std::string_view source, size_t offset, uint32_t* line, uint32_t* column);

}  // namespace brynd::formula
