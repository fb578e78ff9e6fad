// The word index over FTS5: a table without content of its own, filled and asked with ready-made tokens.
// (1) The tokenizer does nothing but part the tokens it is given: no rule about words lies in a file or here.
// (2) Statements on the index exist only while their handle is open; the table's text, and those of the
//     tables behind it, are compared byte for byte when a file is opened (schema.h).
#ifndef BRYND_STORE_SQLITE_FULLTEXT_H
#define BRYND_STORE_SQLITE_FULLTEXT_H

#include <sqlite3.h>

#include "store/fulltext.h"
#include "store/sqlite/connection.h"

namespace brynd::store {

class Handle;

class FullText final : public WordIndex {
 public:
  explicit FullText(Handle& handle) : handle_(handle) {}

  bool Exists() override;
  void Find(const TokenQuery& query, std::vector<Posting>* postings) override;
  void Tokens(std::string_view prefix, Visitor<bool(std::string_view)> visitor) override;
  void Make() override;
  void Drop() override;
  void Add(uint32_t document, std::string_view tokens) override;

 private:
  class Reading;

  Connection& Ready();
  sqlite3_stmt* Prepared(StatementOwner* statement, const char* text);
  template <class Body>
  void Change(size_t byte_count, Body&& body);
  void Execute(const char* text);
  void CheckAlone() const;
  bool TakeHit(const Fts5ExtensionApi* api, Fts5Context* context) noexcept;
  static void OnHit(const Fts5ExtensionApi* api, Fts5Context* context, sqlite3_context* result, int,
                    sqlite3_value**) noexcept;
  static int OnPhraseHit(const Fts5ExtensionApi* api, Fts5Context* context, void* self) noexcept;

  Handle& handle_;
  bool registered_ = false;
  bool all_in_one_call_ = false;  // the query under way is one phrase, walked by its first hit
  StatementOwner add_, find_, walk_, tokens_;
  std::vector<Posting>* target_ = nullptr;  // of the query under way
  EngStatus failure_ = status::kOk;
};

}  // namespace brynd::store

#endif  // BRYND_STORE_SQLITE_FULLTEXT_H
