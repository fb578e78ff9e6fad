// What the rows of a view are, computed the plain way: a tree of nodes built anew from all documents each
// time.
#ifndef TESTS_ENGINE_COLLECTION_MODEL_H
#define TESTS_ENGINE_COLLECTION_MODEL_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "base/collate.h"

struct ModelDocument {
  uint32_t id = 0;
  std::vector<std::string> first, second;  // values of the category items
  std::string key;
  std::optional<double> number;
  uint32_t parent = 0;  // of a response
  bool unread = false;
};

struct ModelView {
  int category_count = 0;  // 0 to 2
  bool first_descending = false, key_descending = false;
  bool responses = false;
  uint8_t total_kind = 0;  // of the number column
};

struct ModelRow {
  std::string kind;  // "document", "category", "total"
  uint32_t id = 0;
  std::string label;
  uint32_t level = 0, siblings = 0, children = 0, descendants = 0, indent = 0;
  std::vector<uint32_t> tumbler;
  std::optional<double> total;
  bool is_main = false;
  bool any_unread = false;

  std::string Text() const {
    std::ostringstream out;
    for (const uint32_t ordinal : tumbler) out << ordinal << '.';
    out << ' ' << kind << ' ' << id << " [" << label << "] siblings " << siblings << " children " << children
        << " descendants " << descendants << " indent " << indent;
    if (total) out << " total " << std::llround(*total * 1000);
    return out.str();
  }
};

class Model {
 public:
  explicit Model(const ModelView& view) : view_(view) {}

  std::map<uint32_t, ModelDocument> documents;

  std::vector<ModelRow> Rows() const {
    Node top;
    std::set<uint32_t> everywhere;
    for (const auto& [id, document] : documents) {
      if (view_.responses && document.parent != 0) continue;
      for (Node* node : NodesFor(&top, document)) AddDocument(node, document, 0);
    }
    Count(&top);
    std::vector<ModelRow> rows;
    Emit(top, top, {}, &rows);
    if (view_.total_kind != 0) {
      ModelRow row;
      row.kind = "total";
      row.id = 0xc0000000;
      row.tumbler = {static_cast<uint32_t>(top.children.size() + 1)};
      row.total = TotalOf(top, nullptr, top);
      rows.push_back(row);
      for (ModelRow& each : rows) each.siblings += each.level == 0 && each.kind != "total";
      rows.back().siblings = rows.back().tumbler[0];
    }
    return rows;
  }

 private:
  struct Node {
    bool is_category = false;
    std::string label;  // as it was spelt first: tests use spellings that are compared folded
    int kind = 2;       // 1 document, 2 category, 3 subcategory
    uint32_t depth = 0;
    bool descending = false;
    const ModelDocument* document = nullptr;
    uint32_t response_depth = 0;
    std::vector<std::unique_ptr<Node>> children;
    std::set<uint32_t> below;  // documents
    double sum = 0;
    uint32_t child_categories = 0;
    uint32_t descendants = 0;
    bool any_unread = false;
  };

  static std::vector<std::string> Pieces(const std::string& text) {
    std::vector<std::string> pieces;
    std::stringstream in(text);
    for (std::string piece; std::getline(in, piece, '\\');)
      if (!piece.empty()) pieces.push_back(piece);
    if (pieces.empty()) pieces.emplace_back();
    return pieces;
  }

  static Node* Child(Node* node, const std::string& label, int kind, uint32_t depth, bool descending) {
    for (const auto& child : node->children) {
      if (child->is_category && child->kind == kind &&
          brynd::CollateText(child->label, label, {.ignore_case = true, .ignore_accents = false}) == 0)
        return child.get();
    }
    auto made = std::make_unique<Node>();
    made->is_category = true;
    made->label = label;
    made->kind = kind;
    made->depth = depth;
    made->descending = descending;
    node->children.push_back(std::move(made));
    return node->children.back().get();
  }

  std::vector<Node*> NodesFor(Node* top, const ModelDocument& document) const {
    std::vector<Node*> nodes{top};
    for (int column = 0; column < view_.category_count; ++column) {
      std::vector<std::string> values = column == 0 ? document.first : document.second;
      if (values.empty()) values.emplace_back();
      std::vector<Node*> next;
      for (Node* node : nodes) {
        for (const std::string& value : values) {
          Node* at = node;
          uint32_t depth = 0;
          for (const std::string& piece : Pieces(value)) {
            at = Child(at, piece, depth == 0 ? 2 : 3, depth, column == 0 && view_.first_descending);
            ++depth;
          }
          if (std::find(next.begin(), next.end(), at) == next.end()) next.push_back(at);
        }
      }
      nodes = next;
    }
    return nodes;
  }

  void AddDocument(Node* node, const ModelDocument& document, uint32_t response_depth) const {
    auto made = std::make_unique<Node>();
    made->kind = 1;
    made->document = &document;
    made->response_depth = response_depth;
    for (const auto& [id, other] : documents) {
      if (view_.responses && other.parent == document.id) AddDocument(made.get(), other, response_depth + 1);
    }
    node->children.push_back(std::move(made));
  }

  bool Before(const Node& left, const Node& right) const {
    if (left.kind != right.kind) return left.kind < right.kind;
    if (left.is_category) {
      if (left.label.empty() || right.label.empty()) return left.label.empty();
      const int order =
          brynd::CollateText(left.label, right.label, {.ignore_case = true, .ignore_accents = false});
      return left.descending ? order > 0 : order < 0;
    }
    const int order = brynd::CollateText(left.document->key, right.document->key);
    if (order != 0) return view_.key_descending ? order > 0 : order < 0;
    return left.document->id < right.document->id;
  }

  void Count(Node* node) const {
    std::sort(node->children.begin(), node->children.end(),
              [this](const auto& left, const auto& right) { return Before(*left, *right); });
    if (node->document != nullptr) node->below.insert(node->document->id);
    for (const auto& child : node->children) {
      Count(child.get());
      node->descendants += 1 + child->descendants;
      node->below.insert(child->below.begin(), child->below.end());
      node->child_categories += child->is_category;
      node->any_unread |= child->any_unread || (child->document != nullptr && child->document->unread);
    }
    for (const uint32_t id : node->below) node->sum += documents.at(id).number.value_or(0);
  }

  double TotalOf(const Node& node, const Node* parent, const Node& top) const {
    const double documents_below = static_cast<double>(node.below.size());
    const auto share = [&](double whole) {
      return parent == nullptr ? 100 : whole == 0 ? 0 : node.sum / whole * 100;
    };
    switch (view_.total_kind) {
      case 2:
        return documents_below == 0 ? 0 : node.sum / documents_below;
      case 3:
        if (node.child_categories != 0) return node.sum / node.child_categories;
        return documents_below == 0 ? 0 : node.sum / documents_below;
      case 4:
        return share(parent == nullptr ? 0 : parent->sum);
      case 5:
        return share(top.sum);
      default:
        return node.sum;
    }
  }

  void Emit(const Node& node, const Node& top, const std::vector<uint32_t>& place,
            std::vector<ModelRow>* rows) const {
    uint32_t ordinal = 0;
    for (const auto& child : node.children) {
      ModelRow row;
      row.tumbler = place;
      row.tumbler.push_back(++ordinal);
      row.level = static_cast<uint32_t>(place.size());
      row.siblings = static_cast<uint32_t>(node.children.size());
      row.children = static_cast<uint32_t>(child->children.size());
      row.descendants = child->descendants;
      if (child->is_category) {
        row.kind = "category";
        row.label = child->label;
        row.indent = child->depth;
        if (view_.total_kind != 0) row.total = TotalOf(*child, &node, top);
        row.any_unread = child->any_unread;
      } else {
        row.kind = "document";
        row.id = child->document->id;
        row.label = child->document->key;
        row.indent = child->response_depth;
        row.is_main = child->response_depth == 0;
        if (view_.total_kind != 0) row.total = child->document->number;
        row.any_unread = child->any_unread || child->document->unread;
      }
      rows->push_back(row);
      Emit(*child, top, row.tumbler, rows);
    }
  }

  ModelView view_;
};

// Steps over rows as the navigators make them; -1 stands before the first row.
class ModelWalk {
 public:
  explicit ModelWalk(const std::vector<ModelRow>& rows) : rows_(rows) {}

  // The row that one step leads to; none when it is not possible.
  std::optional<int> Step(int at, uint16_t navigator) const {
    const int count = static_cast<int>(rows_.size());
    const int level = at < 0 ? -1 : static_cast<int>(Row(at).level);
    switch (navigator) {
      case 0:
        return at < 0 ? std::nullopt : std::optional(at);
      case 1:
        return at + 1 < count ? std::optional(at + 1) : std::nullopt;
      case 9:
        return at > 0 ? std::optional(at - 1) : std::nullopt;
      case 4:
        if (at + 1 < count && static_cast<int>(Row(at + 1).level) == level + 1) return at + 1;
        return std::nullopt;
      case 5:
        return Find(
            at + 1, 1, [&](const ModelRow& row) { return static_cast<int>(row.level) == std::max(level, 0); },
            std::max(level, 0));
      case 6:
        if (at < 0) return std::nullopt;
        return Find(
            at - 1, -1, [&](const ModelRow& row) { return static_cast<int>(row.level) == level; }, level);
      case 12:
        return Find(
            at + 1, 1, [](const ModelRow& row) { return row.is_main; }, -1);
      case 13:
        return Find(
            at - 1, -1, [](const ModelRow& row) { return row.is_main; }, -1);
      case 19:
        if (level < 1) return std::nullopt;
        return Find(
            at + 1, 1, [&](const ModelRow& row) { return static_cast<int>(row.level) < level; }, -1);
      case 43:
        return Find(
            at + 1, 1, [](const ModelRow& row) { return row.kind != "category"; }, -1);
      case 44:
        return Find(
            at - 1, -1, [](const ModelRow& row) { return row.kind != "category"; }, -1);
      default:
        return std::nullopt;
    }
  }

 private:
  const ModelRow& Row(int at) const { return rows_[static_cast<size_t>(at)]; }
  // The first row that is wanted, before one that is above the level.
  std::optional<int> Find(int at, int step, const std::function<bool(const ModelRow&)>& wanted,
                          int level) const {
    for (; at >= 0 && at < static_cast<int>(rows_.size()); at += step) {
      if (static_cast<int>(Row(at).level) < level) return std::nullopt;
      if (wanted(Row(at))) return at;
    }
    return std::nullopt;
  }

  const std::vector<ModelRow>& rows_;
};

#endif
