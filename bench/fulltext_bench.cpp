// Full text beside FTS5 alone, on the descriptions of the package index: building, one and two words, the 50
// best hits.
//
// Data: every record of the system's package index becomes a note with its description (and its name); the
// rival is `fts5(description)` with its own tokenizer and rank, filled from memory in one transaction. Words
// are those of the descriptions, drawn as often as they occur: mean and median are told, since few common
// words take most of the time.
//
//   fulltext_bench [record limit]
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "../examples/pkgdb/package_index.h"
#include "base/process.h"
#include "brynd.h"
#include "fulltext/index.h"
#include "fulltext/search.h"
#include "fulltext/words.h"

namespace {

namespace fs = std::filesystem;

constexpr int kQueries = 400;
constexpr uint16_t kBest = 50;

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double Timed(const std::function<void()>& work) {
  const double start = Now();
  work();
  return Now() - start;
}

std::vector<std::string> LoadTexts(size_t limit) {
  static IndexText index = ReadSystemIndex(PKGDB_SHIPPED_INDEX);
  std::string_view rest = index.text;
  std::vector<std::string> texts;
  Record record;
  while (texts.size() < limit && NextRecord(&rest, &record)) {
    texts.emplace_back(record.Get("Package"));
    texts.back().append(" ").append(record.Get("Description"));
  }
  return texts;
}

// The rival.
class PlainFts {
 public:
  explicit PlainFts(const fs::path& path) {
    sqlite3_open(path.c_str(), &db_);
    Run("PRAGMA journal_mode=WAL");
    Run("PRAGMA synchronous=NORMAL");
    Run("CREATE VIRTUAL TABLE doc USING fts5(description)");
  }
  PlainFts(const PlainFts&) = delete;
  PlainFts& operator=(const PlainFts&) = delete;
  ~PlainFts() {
    sqlite3_finalize(find_);
    sqlite3_close(db_);
  }
  void Run(const char* sql) {
    if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) != SQLITE_OK)
      std::fprintf(stderr, "%s\n", sqlite3_errmsg(db_));
  }
  void Fill(const std::vector<std::string>& texts) {
    sqlite3_stmt* add = nullptr;
    Run("BEGIN");
    sqlite3_prepare_v2(db_, "INSERT INTO doc(description) VALUES(?)", -1, &add, nullptr);
    for (const std::string& text : texts) {
      sqlite3_bind_text(add, 1, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
      sqlite3_step(add);
      sqlite3_reset(add);
    }
    sqlite3_finalize(add);
    Run("COMMIT");
    sqlite3_prepare_v2(db_, "SELECT rowid FROM doc WHERE doc MATCH ? ORDER BY rank LIMIT 50", -1, &find_,
                       nullptr);
  }
  size_t Find(const std::string& query) {
    sqlite3_bind_text(find_, 1, query.data(), static_cast<int>(query.size()), SQLITE_STATIC);
    size_t count = 0;
    while (sqlite3_step(find_) == SQLITE_ROW) ++count;
    sqlite3_reset(find_);
    return count;
  }

 private:
  sqlite3* db_ = nullptr;
  sqlite3_stmt* find_ = nullptr;
};

void Check(EngStatus code, const char* what) {
  if (code == 0) return;
  std::fprintf(stderr, "%s: 0x%x\n", what, code);
  std::exit(1);
}

struct Spread {
  double mean = 0, median = 0;
};

Spread Measure(const std::vector<std::string>& queries, const std::function<size_t(const std::string&)>& find,
               size_t* hit_count) {
  std::vector<double> times;
  *hit_count = 0;
  for (const std::string& query : queries) times.push_back(Timed([&] { *hit_count += find(query); }));
  Spread spread;
  for (const double time : times) spread.mean += time * 1e6 / static_cast<double>(times.size());
  std::ranges::sort(times);
  spread.median = times[times.size() / 2] * 1e6;
  return spread;
}

class Bench {
 public:
  explicit Bench(size_t limit) : texts_(LoadTexts(limit)) {
    std::string pattern = fs::temp_directory_path() / "kvfulltextXXXXXX";
    folder_ = mkdtemp(pattern.data());
    brynd::Process().data_directory = folder_;
    Check(EngDbCreate("bench", 0, 0, 0, 0, 0), "create");
    Check(EngDbOpen("bench", &db_), "open");
    for (const std::string& text : texts_) {
      EngNote note = 0;
      Check(EngNoteCreate(db_, &note), "note");
      EngItemAppend(note, 4, "Description", 11, BRTYPE_TEXT, text.data(), static_cast<uint32_t>(text.size()));
      Check(EngNoteUpdate(note, 4), "update");
      EngNoteClose(note);
    }
    EngDbClose(db_);
    Check(EngDbOpen("bench", &db_), "open");
  }
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;
  ~Bench() {
    EngDbClose(db_);
    fs::remove_all(folder_);
  }

  void Run() {
    size_t byte_count = 0;
    for (const std::string& text : texts_) byte_count += text.size();
    std::printf("%zu texts, %.1f MB\n", texts_.size(), static_cast<double>(byte_count) / 1e6);
    Build();
    Queries();
    Compare("one word", one_, one_);
    Compare("two words", two_, two_);
    Compare("two words, either", either_, either_rival_);
    Compare("phrase", phrase_, phrase_);
    Changes();
  }

 private:
  void Build() {
    std::vector<double> own, rival;
    for (int round = 0; round < 3; ++round) {
      rival_ = std::make_unique<PlainFts>(fs::path(folder_) / ("rival" + std::to_string(round)));
      rival.push_back(Timed([&] { rival_->Fill(texts_); }));
      own.push_back(Timed([&] { Check(EngFullTextIndexBuild(db_, 0x50, nullptr, nullptr), "build"); }));
    }
    std::ranges::sort(own);
    std::ranges::sort(rival);
    std::printf("build: %.3f s, FTS5 %.3f s, ratio %.2f\n", own[1], rival[1], own[1] / rival[1]);
  }

  void Queries() {
    std::mt19937_64 random(1);
    brynd::fulltext::WordBreaker breaker;
    const auto words_of = [&](const std::string& text) {
      std::vector<std::string> words;
      breaker.Break(text, [&](const brynd::fulltext::FoundWord& word) {
        const bool letters = std::ranges::all_of(word.folded, [](char c) { return c >= 'a' && c <= 'z'; });
        constexpr std::string_view kOperators[] = {"and",   "or",       "not",      "near",
                                                   "field", "sentence", "paragraph"};
        if (letters && std::ranges::find(kOperators, word.folded) == std::end(kOperators))
          words.emplace_back(word.folded);
      });
      return words;
    };
    while (one_.size() < kQueries) {
      const std::vector<std::string> words = words_of(texts_[random() % texts_.size()]);
      if (words.size() < 2) continue;
      const size_t at = random() % (words.size() - 1);
      const std::string& other = words[random() % words.size()];
      one_.push_back(words[at]);
      two_.push_back(words[at] + " " + other);
      either_.push_back(words[at] + " or " + other);
      either_rival_.push_back(words[at] + " OR " + other);
      phrase_.push_back('"' + words[at] + " " + words[at + 1] + '"');
    }
  }

  // A note changes, then somebody searches for a rare word: what the first search costs.
  void Changes() {
    constexpr uint32_t kRounds = 200;
    double changing = 0, searching = 0;
    for (uint32_t round = 0; round < kRounds; ++round) {
      changing += Timed([&] { Change(1000 + round * 7, "changed " + std::to_string(round)); });
      searching += Timed([&] { Find("changed"); });
    }
    std::printf("a changed note: lazy update %.0f us, the search behind it %.0f us\n",
                changing * 1e6 / kRounds, searching * 1e6 / kRounds);
  }

  void Change(uint32_t note_id, const std::string& text) const {
    EngNote note = 0;
    Check(EngNoteOpen(db_, note_id, 0, &note), "open note");
    EngItemDelete(note, "Description", 11);
    EngItemAppend(note, 4, "Description", 11, BRTYPE_TEXT, text.data(), static_cast<uint32_t>(text.size()));
    Check(EngNoteUpdate(note, 4), "update");
    EngNoteClose(note);
  }

  size_t Find(const std::string& query) {
    EngSearch search = 0;
    EngFullTextSearchOpen(&search);
    uint32_t count = 0;
    EngMem block = 0;
    const EngStatus code =
        EngFullTextSearchRun(db_, &search, 0, query.c_str(), 0x88, kBest, 0, &count, nullptr, &block);
    EngFullTextSearchClose(search);
    if (code == 0xf22) return 0;
    Check(code, query.c_str());
    EngMemFree(block);
    return count;
  }

  void Compare(const char* what, const std::vector<std::string>& own, const std::vector<std::string>& rival) {
    size_t own_hits = 0, rival_hits = 0;
    Measure(
        own, [&](const std::string& query) { return Find(query); }, &own_hits);  // what is cached is cached
    Measure(
        rival, [&](const std::string& query) { return rival_->Find(query); }, &rival_hits);
    const Spread ours = Measure(
        own, [&](const std::string& query) { return Find(query); }, &own_hits);
    const Spread theirs = Measure(
        rival, [&](const std::string& query) { return rival_->Find(query); }, &rival_hits);
    std::printf("%s: mean %.0f us, median %.0f us; FTS5 %.0f, %.0f; ratio %.2f, %.2f; hits %zu, %zu\n", what,
                ours.mean, ours.median, theirs.mean, theirs.median, ours.mean / theirs.mean,
                ours.median / theirs.median, own_hits, rival_hits);
  }

  std::vector<std::string> texts_;
  std::vector<std::string> one_, two_, either_, either_rival_, phrase_;
  std::string folder_;
  EngDb db_ = 0;
  std::unique_ptr<PlainFts> rival_;
};

}  // namespace

int main(int argc, char** argv) {
  Bench(argc > 1 ? static_cast<size_t>(std::atoll(argv[1])) : ~size_t{0}).Run();
  return 0;
}
