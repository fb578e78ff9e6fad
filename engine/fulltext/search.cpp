#include "fulltext/search.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <optional>
#include <utility>

#include "base/boundary.h"
#include "base/process.h"
#include "base/time.h"
#include "fulltext/lists.h"

namespace brynd::fulltext {

namespace {

constexpr double kSaturation = 1.2, kLengthShare = 0.75;  // k1 and b of BM25
constexpr double kBestScore = 100;

struct Hit {
  uint32_t document = 0;
  uint32_t note_id = 0;
  double score = 0;
  uint64_t rank = 0;  // of the order asked for: lower comes first
};

bool AsksForSentences(const Node& node) {
  return node.kind == NodeKind::kSentence || std::ranges::any_of(node.children, AsksForSentences);
}

class Evaluation {
 public:
  explicit Evaluation(Lists& lists) : lists_(lists) {}

  // The documents that meet a node, of `within` when that is given.
  Documents Evaluate(const Node& node, const Documents* within, bool scored) {
    switch (node.kind) {
      case NodeKind::kAnd:
        return EvaluateAnd(node, within, scored);
      case NodeKind::kOr: {
        Documents any;
        for (const Node& child : node.children) any = Union(any, Evaluate(child, within, scored));
        return any;
      }
      case NodeKind::kNot: {
        const Documents& base = within != nullptr ? *within : lists_.All();
        return Difference(base, Evaluate(node.children[0], &base, false));
      }
      default:
        break;
    }
    Postings postings = lists_.Find(node, within);
    Documents documents = DocumentsOf(postings);
    if (within != nullptr) documents = Intersection(documents, *within);
    if (scored && node.kind != NodeKind::kCompare) found_.push_back({WeightOf(node), std::move(postings)});
    return documents;
  }

  // Adds what each leaf says for the hits, which are in the order of their documents.
  void Score(std::vector<Hit>* hits) const {
    const double live_count = lists_.LiveCount();
    const double mean_words =
        std::max(1.0, static_cast<double>(lists_.WordTotal()) / std::max(1.0, live_count));
    for (const Found& leaf : found_) {
      const auto met_count = static_cast<double>(leaf.postings.size());
      const double rarity =
          std::log(1 + (std::max(live_count, met_count) - met_count + 0.5) / (met_count + 0.5));
      auto at = leaf.postings.begin();
      for (Hit& hit : *hits) {
        while (at != leaf.postings.end() && at->document < hit.document) ++at;
        if (at == leaf.postings.end()) break;
        if (at->document != hit.document) continue;
        const double count = at->count;
        const double length = 1 - kLengthShare + kLengthShare * lists_.WordCount(hit.document) / mean_words;
        hit.score += leaf.weight * rarity * count * (kSaturation + 1) / (count + kSaturation * length);
      }
    }
  }

 private:
  struct Found {
    double weight;
    Postings postings;
  };

  static double WeightOf(const Node& node) {
    if (node.children.empty()) return static_cast<double>(node.weight) / kPlainWeight;
    double weight = 0;
    for (const Node& child : node.children) weight = std::max(weight, WeightOf(child));
    return weight;
  }

  // What costs little goes first; what is left is all that the others look at.
  Documents EvaluateAnd(const Node& node, const Documents* within, bool scored) {
    std::vector<const Node*> children;
    for (const Node& child : node.children) children.push_back(&child);
    std::ranges::stable_sort(children, {}, [&](const Node* child) {
      if (child->kind == NodeKind::kNot) return 2;
      return !IsLeaf(*child) || lists_.IsCheap(*child) ? 0 : 1;
    });
    Documents common;
    const Documents* base = within;
    for (const Node* child : children) {
      common = Evaluate(*child, base, scored);
      base = &common;
    }
    return common;
  }

  Lists& lists_;
  std::vector<Found> found_;
};

class Ordering {
 public:
  Ordering(Database& database, const SearchRequest& request) : database_(database), request_(request) {}

  void Sort(std::vector<Hit>* hits) const {
    const bool by_date = (request_.options & kByDate) != 0;
    const bool by_score = !by_date && (request_.options & kScores) != 0;
    if (by_date) RankByDate(hits);
    if (!by_date && !by_score && request_.order != nullptr) RankByOrder(hits);
    const bool ascending = (request_.options & kAscending) != 0;
    const auto before = [&](const Hit& left, const Hit& right) {
      if (by_score && left.score != right.score)
        return ascending ? left.score < right.score : left.score > right.score;
      if (left.rank != right.rank)
        return by_date && !ascending ? left.rank > right.rank : left.rank < right.rank;
      return left.note_id < right.note_id;
    };
    const bool limited = (request_.options & kLimited) != 0 && request_.limit != 0;
    const size_t kept = limited ? std::min<size_t>(request_.limit, hits->size()) : hits->size();
    std::partial_sort(hits->begin(), hits->begin() + static_cast<ptrdiff_t>(kept), hits->end(), before);
    hits->resize(kept);
  }

 private:
  void RankByDate(std::vector<Hit>* hits) const {
    for (Hit& hit : *hits) {
      database_.VisitNote(hit.note_id,
                          [&](const ImageView& view) { hit.rank = InstantOrder(view.Image().Modified()); });
    }
  }

  void RankByOrder(std::vector<Hit>* hits) const {
    std::vector<std::pair<uint32_t, uint64_t>> places;
    for (const uint32_t note_id : *request_.order) places.emplace_back(note_id, places.size());
    std::ranges::sort(places);  // a note that stands there twice has its first place
    for (Hit& hit : *hits) {
      const auto place = std::ranges::lower_bound(places, std::pair(hit.note_id, uint64_t{0}));
      hit.rank = place == places.end() ? ~uint64_t{0} : place->second;
    }
  }

  static uint64_t InstantOrder(const TIMEDATE& time) noexcept {
    return uint64_t{DayOf(time)} << 32 | TicksOf(time);
  }

  Database& database_;
  const SearchRequest& request_;
};

// The notes a hit may be of, when not all: of the id table, and of the view.
class Confinement {
 public:
  explicit Confinement(const SearchRequest& request)
      : confine_(request.confine), ordered_(request.order != nullptr) {
    if (ordered_) in_order_ = *request.order;
    std::ranges::sort(in_order_);
  }
  bool Takes(uint32_t note_id) const {
    if (confine_ != nullptr && !confine_->Contains(note_id)) return false;
    return !ordered_ || std::ranges::binary_search(in_order_, note_id);
  }
  // The documents of the id table; nothing without one.
  std::optional<Documents> DocumentsIn(const IndexState& state) const {
    if (confine_ == nullptr) return std::nullopt;
    Documents documents;
    confine_->ForEach([&](uint32_t note_id) {
      if (const uint32_t document = state.DocumentOf(note_id)) documents.push_back(document);
      return true;
    });
    std::ranges::sort(documents);
    return documents;
  }

 private:
  const IdTable* confine_;
  bool ordered_;
  std::vector<uint32_t> in_order_;
};

SearchResult ResultOf(const std::vector<Hit>& hits, double best, bool scored) {
  SearchResult result;
  result.note_ids.reserve(hits.size());
  result.scores.reserve(hits.size());
  for (const Hit& hit : hits) {
    result.note_ids.push_back(hit.note_id);
    const double score = best > 0 ? hit.score / best * kBestScore : kBestScore;
    result.scores.push_back(scored ? static_cast<uint8_t>(std::lround(score)) : uint8_t{0});
  }
  return result;
}

}  // namespace

SearchResult Search(Database& database, const SearchRequest& request) {
  ParsedQuery query = ParseQuery(request.query);
  if (!query.refusal.empty()) Fail(status::kFullTextQuery);
  const bool indexed = FreshState(database) != nullptr;
  const store::Database::Hold hold(database.Store());
  database.RefreshNames();
  // The view may have moved on since: what it has now is searched.
  const std::shared_ptr<const IndexState> state = indexed ? LoadState(database) : nullptr;
  if (state != nullptr) DropStopWords(&query.root, state->stop_words);
  if (query.root.kind == NodeKind::kNothing) Fail(status::kFullTextNoHit);
  const bool scored = (request.options & kScores) != 0;
  const ListSettings settings{.stems = (request.options & kStems) != 0,
                              .with_scores = scored,
                              .with_sentences = AsksForSentences(query.root)};
  const std::unique_ptr<Lists> lists = state != nullptr
                                           ? MakeIndexLists(database, state, settings)
                                           : MakeScanLists(database, query.root, request.confine, settings);
  Evaluation evaluation(*lists);
  const Confinement confinement(request);
  // Scores compare a note with all others. Without them a few notes need not be found among all.
  const std::optional<Documents> within =
      scored || state == nullptr ? std::nullopt : confinement.DocumentsIn(*state);
  std::vector<Hit> hits;
  for (const uint32_t document : evaluation.Evaluate(query.root, within ? &*within : nullptr, scored)) {
    const uint32_t note_id = lists->NoteOf(document);
    if (confinement.Takes(note_id)) hits.push_back({.document = document, .note_id = note_id});
  }
  if (hits.empty()) Fail(status::kFullTextNoHit);
  if (scored) evaluation.Score(&hits);
  const double best = std::ranges::max_element(hits, {}, &Hit::score)->score;
  Ordering(database, request).Sort(&hits);
  return ResultOf(hits, best, scored);
}

SearchTable& Searches() {
  static SearchTable searches;
  return searches;
}

namespace {

std::atomic<bool> closing_registered{false};

void CloseSearches() {
  closing_registered.store(false);
  std::vector<uint32_t> handles;
  Searches().ForEach([&](EngSearch handle, const SearchEntry&) { handles.push_back(handle); });
  for (const EngSearch handle : handles) Searches().Remove(handle);
}

}  // namespace

EngSearch AddSearch() {
  if (!closing_registered.exchange(true)) Process().AtStop(CloseSearches);
  return Searches().Add(std::make_unique<SearchEntry>());
}

}  // namespace brynd::fulltext
