#include "store/sqlite/fulltext.h"

#include <limits>
#include <utility>

#include "base/boundary.h"
#include "store/sqlite/handle.h"
#include "store/sqlite/schema.h"

namespace brynd::store {

namespace {

constexpr char kFind[] = "SELECT 1 FROM words WHERE words MATCH ?1 AND take_hit(words)";
constexpr char kWalk[] = "SELECT take_hit(words) FROM words WHERE words MATCH ?1 LIMIT 1";
constexpr char kAdd[] = "INSERT INTO words(rowid,tokens) VALUES(?1,?2)";
constexpr char kTokens[] = "SELECT term FROM temp.word_list WHERE term>=?1 AND term<=?2";
constexpr char kMakeTokens[] =
    "CREATE VIRTUAL TABLE IF NOT EXISTS temp.word_list USING fts5vocab('main','words','row')";
// Tokens are gathered in memory up to so many bytes before they are written: fewer runs to merge.
constexpr char kSetMemory[] = "INSERT INTO words(words,rank) VALUES('hashsize',16777216)";

// The tokenizer has no state; SQLite wants an address.
int MakeTokenizer(void*, const char**, int, Fts5Tokenizer** tokenizer) noexcept {
  static char stateless = 0;
  *tokenizer = reinterpret_cast<Fts5Tokenizer*>(&stateless);
  return SQLITE_OK;
}

void DropTokenizer(Fts5Tokenizer*) noexcept {}

using TokenCallback = int (*)(void*, int, const char*, int, int, int);

int PartTokens(Fts5Tokenizer*, void* context, int, const char* text, int text_bytes,
               TokenCallback take) noexcept {
  int flags = 0;
  for (int begin = 0; begin < text_bytes;) {
    int end = begin;
    while (end < text_bytes && text[end] != kNextToken && text[end] != kSameToken) ++end;
    if (end != begin) {
      if (const int result = take(context, flags, text + begin, end - begin, begin, end)) return result;
    }
    flags = end < text_bytes && text[end] == kSameToken ? FTS5_TOKEN_COLOCATED : 0;
    begin = end + 1;
  }
  return SQLITE_OK;
}

fts5_api* ApiOf(sqlite3* database) {
  fts5_api* api = nullptr;
  sqlite3_stmt* statement = nullptr;
  const int result = sqlite3_prepare_v2(database, "SELECT fts5(?1)", -1, &statement, nullptr);
  const StatementOwner owner(statement);
  if (result == SQLITE_ERROR) Fail(status::kNotAvailable);  // an SQLite without it
  if (result != SQLITE_OK) Connection::FailWith(result);
  static char kPointerType[] = "fts5_api_ptr";
  sqlite3_bind_pointer(statement, 1, &api, kPointerType, nullptr);
  sqlite3_step(statement);
  if (api == nullptr) Fail(status::kNotAvailable);
  return api;
}

// The query as FTS5 reads it: every phrase is a quoted text, so that no byte of a token means anything.
std::string MatchText(const TokenQuery& query) {
  std::string text;
  const bool near = query.phrases.size() > 1;
  if (near) text += "NEAR(";
  for (const TokenPhrase& phrase : query.phrases) {
    text += '"';
    for (size_t i = 0; i < phrase.tokens.size(); ++i) {
      if (i != 0) text += kNextToken;
      for (const char byte : phrase.tokens[i]) {
        if (byte == '"') text += '"';
        text += byte;
      }
    }
    text += phrase.prefix ? "\"* " : "\" ";
  }
  if (near) text += ',' + std::to_string(query.gap_max) + ')';
  return text;
}

void BindText(sqlite3_stmt* statement, int position, std::string_view text) {
  const int result = sqlite3_bind_text64(statement, position, text.empty() ? "" : text.data(), text.size(),
                                         SQLITE_STATIC, SQLITE_UTF8);
  if (result != SQLITE_OK) Connection::FailWith(result);
}

struct Resetting {
  explicit Resetting(sqlite3_stmt* running) : statement(running) {}
  Resetting(const Resetting&) = delete;
  Resetting& operator=(const Resetting&) = delete;
  ~Resetting() {
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
  }
  sqlite3_stmt* statement;
};

// A failure of FTS5 to make sense of its own tables is damage.
[[noreturn]] void FailIndex(int result) {
  if ((result & 0xff) == SQLITE_ERROR) Fail(status::kDamaged);
  Connection::FailWith(result);
}

}  // namespace

// One read, as Handle's own: others are kept out, a note that was kept aside is brought in, there is a view.
class FullText::Reading {
 public:
  explicit Reading(Handle& handle) : handle_(handle) {
    handle.Enter();
    const EngStatus code = AtBoundary([&] {
      handle.CheckOpen();
      if (handle.current_.pending) handle.ApplyPending();
      if (handle.state_ == Handle::State::kNone) handle.BeginView();
      handle.view_touched_ = true;
    });
    if (code == status::kOk) return;
    handle.Leave();
    Fail(code);
  }
  Reading(const Reading&) = delete;
  Reading& operator=(const Reading&) = delete;
  ~Reading() { handle_.Leave(); }

 private:
  Handle& handle_;
};

Connection& FullText::Ready() {
  Connection& connection = *handle_.connection_;
  if (registered_) return connection;
  fts5_api* api = ApiOf(connection.Get());
  fts5_tokenizer tokenizer{MakeTokenizer, DropTokenizer, PartTokens};
  int result = api->xCreateTokenizer(api, "tokens", nullptr, &tokenizer, nullptr);
  if (result == SQLITE_OK) result = api->xCreateFunction(api, "take_hit", this, OnHit, nullptr);
  if (result != SQLITE_OK) Connection::FailWith(result);
  registered_ = true;
  return connection;
}

sqlite3_stmt* FullText::Prepared(StatementOwner* statement, const char* text) {
  Connection& connection = Ready();
  if (*statement == nullptr) *statement = connection.Prepare(text);
  return statement->get();
}

bool FullText::Exists() {
  const Reading reading(handle_);
  return handle_.connection_->Number("SELECT count(*) FROM sqlite_schema WHERE name='words'") != 0;
}

// Nothing is thrown through SQLite: a failure waits until the query has ended.
bool FullText::TakeHit(const Fts5ExtensionApi* api, Fts5Context* context) noexcept {
  const sqlite3_int64 row = api->xRowid(context);
  uint32_t count = 0;
  Fts5PhraseIter at;
  int column = 0, offset = 0;
  const int result = api->xPhraseFirst(context, 0, &at, &column, &offset);
  for (; column >= 0 && result == SQLITE_OK; api->xPhraseNext(context, &at, &column, &offset)) ++count;
  if (result != SQLITE_OK || row < 0 || row > sqlite3_int64{std::numeric_limits<uint32_t>::max()}) {
    failure_ = result != SQLITE_OK ? StatusOfResult(result) : status::kDamaged;
    return false;
  }
  if (target_->size() == target_->capacity()) {
    failure_ = AtBoundary([&] { target_->reserve(target_->size() * 2 + 256); });
    if (failure_ != status::kOk) return false;
  }
  target_->push_back({static_cast<uint32_t>(row), count});
  return true;
}

int FullText::OnPhraseHit(const Fts5ExtensionApi* api, Fts5Context* context, void* self) noexcept {
  return static_cast<FullText*>(self)->TakeHit(api, context) ? SQLITE_OK : SQLITE_ABORT;
}

// Called for each hit inside the statement's condition, which is never met: no row is handed out, and the
// whole list is gone through in one step. For a single phrase the first call has the phrase itself walked,
// which spares the statement too.
void FullText::OnHit(const Fts5ExtensionApi* api, Fts5Context* context, sqlite3_context* result, int,
                     sqlite3_value**) noexcept {
  FullText& self = *static_cast<FullText*>(api->xUserData(context));
  bool stop = false;
  if (self.all_in_one_call_) {
    const int walked = api->xQueryPhrase(context, 0, &self, OnPhraseHit);
    if (walked != SQLITE_OK && self.failure_ == status::kOk) self.failure_ = StatusOfResult(walked);
    if (walked != SQLITE_OK && self.failure_ == status::kOk) self.failure_ = status::kDamaged;
  } else {
    stop = !self.TakeHit(api, context);
  }
  sqlite3_result_int(result, stop ? 1 : 0);
}

void FullText::Find(const TokenQuery& query, std::vector<Posting>* postings) {
  const Reading reading(handle_);
  if (query.phrases.empty()) return;
  for (const TokenPhrase& phrase : query.phrases)
    if (phrase.tokens.empty()) Fail(status::kBadArgument);
  const std::string text = MatchText(query);
  all_in_one_call_ = query.phrases.size() == 1;
  const Resetting statement(all_in_one_call_ ? Prepared(&walk_, kWalk) : Prepared(&find_, kFind));
  BindText(statement.statement, 1, text);
  target_ = postings;
  failure_ = status::kOk;
  const int result = sqlite3_step(statement.statement);
  target_ = nullptr;
  Check(failure_);
  if (result != SQLITE_ROW && result != SQLITE_DONE) FailIndex(result);
}

void FullText::Tokens(std::string_view prefix, Visitor<bool(std::string_view)> visitor) {
  std::vector<std::string> tokens;  // shown when the statement is done: a visitor may call the database
  {
    const Reading reading(handle_);
    Connection& connection = Ready();
    if (tokens_ == nullptr) {
      if (const int result = connection.Run(kMakeTokens)) FailIndex(result);
    }
    const Resetting statement(Prepared(&tokens_, kTokens));
    const std::string end = std::string(prefix) + '\xff';  // no token of valid text has this byte
    BindText(statement.statement, 1, prefix);
    BindText(statement.statement, 2, end);
    int result = SQLITE_OK;
    while ((result = sqlite3_step(statement.statement)) == SQLITE_ROW) {
      const void* address = sqlite3_column_blob(statement.statement, 0);
      const auto byte_count = static_cast<size_t>(sqlite3_column_bytes(statement.statement, 0));
      tokens.emplace_back(TextOf(BytesAt(address, address == nullptr ? 0 : byte_count)));
    }
    if (result != SQLITE_DONE) FailIndex(result);
  }
  for (const std::string& token : tokens)
    if (!visitor(token)) return;
}

// --- changes
// ---------------------------------------------------------------------------------------------------------

template <class Body>
void FullText::Change(size_t byte_count, Body&& body) {
  if (!handle_.current_.open || handle_.current_.broken) Fail(status::kInternal);
  handle_.current_.broken = true;
  handle_.BeforeChange();
  ++handle_.edit_count_;
  ++handle_.batch_.edits;
  const EngStatus code = AtBoundary([&] { body(); });
  if (code != status::kOk) {
    if (code == status::kSyncFailed) handle_.file_->Stop();
    handle_.failure_ = code;
    Fail(code);
  }
  handle_.batch_.bytes += byte_count;
  handle_.current_.broken = false;
}

void FullText::Execute(const char* text) {
  if (const int result = handle_.connection_->Run(text)) FailIndex(result);
}

// Taking back a table that was made and dropped behind a savepoint leaves SQLite with a transaction that it
// cannot commit, and lazy writes with it.
void FullText::CheckAlone() const {
  if (handle_.batch_.lazy_writes != 0) Fail(status::kBusy);
}

void FullText::Make() {
  Ready();
  if (Exists()) Fail(status::kInternal);
  CheckAlone();
  Change(0, [&] {
    Execute(kWordsTable);
    Execute(kSetMemory);
  });
}

void FullText::Drop() {
  Ready();
  if (!Exists()) return;
  CheckAlone();
  Change(0, [&] { Execute("DROP TABLE words"); });
}

void FullText::Add(uint32_t document, std::string_view tokens) {
  Change(tokens.size(), [&] {
    const Resetting statement(Prepared(&add_, kAdd));
    if (const int result = sqlite3_bind_int64(statement.statement, 1, int64_t{document}))
      Connection::FailWith(result);
    BindText(statement.statement, 2, tokens);
    const int result = sqlite3_step(statement.statement);
    if (result != SQLITE_DONE) FailIndex(result);
  });
}

// --- the handle's side
// -----------------------------------------------------------------------------------------------

WordIndex& Handle::Words() {
  const std::lock_guard lock(mutex_);
  CheckOpen();
  if (words_ == nullptr) words_ = std::make_unique<FullText>(*this);
  return *words_;
}

}  // namespace brynd::store
