#include "fulltext/lists.h"

#include <algorithm>
#include <iterator>

namespace brynd::fulltext {

namespace {

// A pattern or a stem stands for at most so many words of the index; beyond that the notes are asked.
constexpr size_t kExpansionsMax = 2048;

class IndexLists final : public Lists {
 public:
  IndexLists(Database& database, std::shared_ptr<const IndexState> state, const ListSettings& settings)
      : database_(database),
        words_(database.Store().Words()),
        state_(std::move(state)),
        settings_(settings),
        matcher_(database, state_->stop_words, settings.stems, settings.with_sentences) {}

  const Documents& All() override {
    if (!all_) {
      all_.emplace();
      for (uint32_t document = 1; document < state_->rows.size(); ++document)
        if (state_->rows[document].note_id != 0) all_->push_back(document);
    }
    return *all_;
  }

  Postings Find(const Node& leaf, const Documents* within) override {
    if (std::optional<Postings> found = Direct(leaf)) return std::move(*found);
    std::optional<Documents> candidates = Candidates(leaf);
    if (candidates && within != nullptr) candidates = Intersection(*candidates, *within);
    return Verify(leaf, candidates ? *candidates : within != nullptr ? *within : All());
  }

  bool IsCheap(const Node& leaf) override { return leaf.kind == NodeKind::kPhrase; }
  uint32_t NoteOf(uint32_t document) const override { return state_->rows[document].note_id; }
  uint32_t WordCount(uint32_t document) const override { return state_->rows[document].word_count; }
  uint32_t LiveCount() const override { return state_->live_count; }
  uint64_t WordTotal() const override { return state_->word_total; }

 private:
  bool ExactIsIndexed() const noexcept { return (state_->flags & kCaseKept) != 0; }

  // A phrase whose terms are tokens of the index as they stand.
  bool IsPlain(const Node& node) const {
    if (node.kind != NodeKind::kPhrase || (node.exact && !ExactIsIndexed())) return false;
    if (settings_.stems && !node.exact) return false;
    return std::ranges::none_of(node.terms, &Term::pattern);
  }

  static store::TokenPhrase PhraseOf(const Node& node) {
    store::TokenPhrase phrase;
    for (const Term& term : node.terms)
      phrase.tokens.push_back(node.exact ? kExactMark + term.text : term.text);
    return phrase;
  }

  Postings Ask(const store::TokenQuery& query) {
    Postings postings;
    words_.Find(query, &postings);
    // Nothing that is stored is believed: numbers rise, and belong to documents.
    uint32_t last = 0;
    for (const store::Posting& posting : postings) {
      if (posting.document <= last || posting.document >= state_->rows.size()) Fail(status::kDamaged);
      last = posting.document;
    }
    if (state_->live_count + 1 != state_->rows.size())
      std::erase_if(postings,
                    [&](const store::Posting& one) { return state_->rows[one.document].note_id == 0; });
    return postings;
  }

  // The words of the index that a term of a query stands for; nothing when they are too many.
  std::optional<std::vector<std::string>> Expand(const Term& term, bool exact) {
    const bool by_stem = !term.pattern;
    std::string prefix(exact ? std::string(1, kExactMark) : std::string());
    std::string stem;
    if (by_stem) {
      stem = stemmer_.Stem(term.text);
      prefix += stem.substr(0, SharedWithStem(stem));
    } else {
      prefix += term.text.substr(0, term.text.find_first_of("*?"));
    }
    std::vector<std::string> found;
    bool too_many = false;
    const size_t mark_bytes = exact ? 1 : 0;
    words_.Tokens(prefix, [&](std::string_view token) {
      if (!exact && !token.empty() && (token[0] == kExactMark || token[0] == kItemBreak)) return true;
      const std::string_view word = token.substr(mark_bytes);
      if (by_stem ? stemmer_.Stem(word) != stem : !MatchesPattern(word, term.text)) return true;
      too_many = found.size() == kExpansionsMax;
      if (!too_many) found.emplace_back(token);
      return !too_many;
    });
    if (too_many) return std::nullopt;
    if (by_stem && !term.pattern && std::ranges::find(found, term.text) == found.end())
      found.push_back(term.text);
    return found;
  }

  std::optional<Postings> FindTerm(const Term& term, bool exact) {
    const bool is_prefix =
        term.pattern && term.text.find_first_of("*?") + 1 == term.text.size() && term.text.back() == '*';
    if (is_prefix) {
      std::string token = term.text.substr(0, term.text.size() - 1);
      if (exact) token.insert(0, 1, kExactMark);
      return Ask({.phrases = {{.tokens = {token}, .prefix = true}}});
    }
    if (!term.pattern && (exact || !settings_.stems))
      return Ask({.phrases = {{.tokens = {exact ? kExactMark + term.text : term.text}}}});
    const std::optional<std::vector<std::string>> tokens = Expand(term, exact);
    if (!tokens) return std::nullopt;
    Postings all;
    for (const std::string& token : *tokens) {
      const Postings one = Ask({.phrases = {{.tokens = {token}}}});
      all.insert(all.end(), one.begin(), one.end());
    }
    std::ranges::sort(all, {}, &store::Posting::document);
    Postings merged;
    for (const store::Posting& posting : all) {
      if (!merged.empty() && merged.back().document == posting.document)
        merged.back().count += posting.count;
      else
        merged.push_back(posting);
    }
    return merged;
  }

  // What the index decides alone.
  std::optional<Postings> Direct(const Node& leaf) {
    if (IsPlain(leaf)) return Ask({.phrases = {PhraseOf(leaf)}});
    if (leaf.kind == NodeKind::kPhrase && leaf.terms.size() == 1 && (!leaf.exact || ExactIsIndexed()))
      return FindTerm(leaf.terms[0], leaf.exact);
    if (leaf.kind == NodeKind::kNear && IsPlain(leaf.children[0]) && IsPlain(leaf.children[1])) {
      return Ask(
          {.phrases = {PhraseOf(leaf.children[0]), PhraseOf(leaf.children[1])}, .gap_max = kNearWords - 1});
    }
    return std::nullopt;
  }

  // Documents that may meet a node; nothing when that is all of them.
  std::optional<Documents> Candidates(const Node& node) {
    switch (node.kind) {
      case NodeKind::kNot:
      case NodeKind::kCompare:
      case NodeKind::kNothing:
        return std::nullopt;
      case NodeKind::kContains:
        return Candidates(node.children[0]);
      case NodeKind::kPhrase:
        return CandidatesOfTerms(node);
      case NodeKind::kOr: {
        Documents all;
        for (const Node& child : node.children) {
          const std::optional<Documents> one = Candidates(child);
          if (!one) return std::nullopt;
          all = Union(all, *one);
        }
        return all;
      }
      case NodeKind::kAnd:
      case NodeKind::kNear:
      case NodeKind::kSentence:
      case NodeKind::kParagraph:
        break;
    }
    std::optional<Documents> common;
    for (const Node& child : node.children) {
      const std::optional<Documents> one = Candidates(child);
      if (one) common = common ? Intersection(*common, *one) : *one;
    }
    return common;
  }

  std::optional<Documents> CandidatesOfTerms(const Node& phrase) {
    if (IsPlain(phrase)) return DocumentsOf(Ask({.phrases = {PhraseOf(phrase)}}));
    std::optional<Documents> common;
    for (const Term& term : phrase.terms) {
      const bool exact = phrase.exact && ExactIsIndexed();
      Term looked_for = term;
      if (phrase.exact && !exact) looked_for.text = FoldUtf8(term.text);
      const std::optional<Postings> one = FindTerm(looked_for, exact);
      if (!one) continue;
      common = common ? Intersection(*common, DocumentsOf(*one)) : DocumentsOf(*one);
    }
    return common;
  }

  Postings Verify(const Node& leaf, const Documents& candidates) {
    Postings postings;
    for (const uint32_t document : candidates) {
      database_.VisitNote(state_->rows[document].note_id, [&](const ImageView& view) {
        matcher_.Show(view);
        if (const uint32_t count = matcher_.Count(leaf)) postings.push_back({document, count});
      });
    }
    return postings;
  }

  Database& database_;
  store::WordIndex& words_;
  const std::shared_ptr<const IndexState> state_;
  const ListSettings settings_;
  Matcher matcher_;
  Stemmer stemmer_;
  std::optional<Documents> all_;
};

class ScanLists final : public Lists {
 public:
  ScanLists(Database& database, const Node& query, const IdTable* confine, const ListSettings& settings)
      : database_(database), matcher_(database, no_stop_words_, settings.stems, settings.with_sentences) {
    Gather(query);
    // Scores compare a note with all others: then all are looked at.
    Scan(settings.with_scores ? nullptr : confine, settings.with_scores);
  }

  const Documents& All() override { return all_; }
  Postings Find(const Node& leaf, const Documents*) override { return found_[&leaf]; }
  bool IsCheap(const Node&) override { return true; }
  uint32_t NoteOf(uint32_t document) const override { return rows_[document].note_id; }
  uint32_t WordCount(uint32_t document) const override { return rows_[document].word_count; }
  uint32_t LiveCount() const override { return static_cast<uint32_t>(rows_.size()); }
  uint64_t WordTotal() const override { return word_total_; }

 private:
  void Gather(const Node& node) {
    if (IsLeaf(node)) {
      leaves_.push_back(&node);
      return;
    }
    for (const Node& child : node.children) Gather(child);
  }

  void Scan(const IdTable* confine, bool with_lengths) {
    database_.Store().ScanNotes(1, [&](store::NoteId note_id, Bytes stored) {
      if (confine != nullptr && !confine->Contains(note_id)) return true;
      const std::optional<ImageView> view = database_.TryView(stored);
      if (!view || view->NoteId() != note_id || !IsSearchedNote(*view)) return true;
      const auto document = static_cast<uint32_t>(rows_.size());
      all_.push_back(document);
      matcher_.Show(*view);
      for (const Node* leaf : leaves_)
        if (const uint32_t count = matcher_.Count(*leaf)) found_[leaf].push_back({document, count});
      rows_.push_back({.note_id = note_id, .word_count = with_lengths ? matcher_.WordCount() : 0});
      word_total_ += rows_.back().word_count;
      return true;
    });
  }

  Database& database_;
  const StopWords no_stop_words_;
  Matcher matcher_;
  std::vector<const Node*> leaves_;
  std::unordered_map<const Node*, Postings> found_;
  std::vector<DocumentRow> rows_;
  Documents all_;
  uint64_t word_total_ = 0;
};

}  // namespace

Documents Intersection(const Documents& left, const Documents& right) {
  Documents both;
  std::ranges::set_intersection(left, right, std::back_inserter(both));
  return both;
}

Documents Union(const Documents& left, const Documents& right) {
  Documents any;
  any.reserve(left.size() + right.size());
  std::ranges::set_union(left, right, std::back_inserter(any));
  return any;
}

Documents Difference(const Documents& left, const Documents& right) {
  Documents rest;
  std::ranges::set_difference(left, right, std::back_inserter(rest));
  return rest;
}

Documents DocumentsOf(const Postings& postings) {
  Documents documents;
  documents.reserve(postings.size());
  for (const store::Posting& posting : postings) documents.push_back(posting.document);
  return documents;
}

std::unique_ptr<Lists> MakeIndexLists(Database& database, std::shared_ptr<const IndexState> state,
                                      const ListSettings& settings) {
  return std::make_unique<IndexLists>(database, std::move(state), settings);
}

std::unique_ptr<Lists> MakeScanLists(Database& database, const Node& query, const IdTable* confine,
                                     const ListSettings& settings) {
  return std::make_unique<ScanLists>(database, query, confine, settings);
}

}  // namespace brynd::fulltext
