// Writing rows of a walk into a page.
#pragma once

#include <optional>
#include <vector>

#include "base/idtable.h"
#include "collection/collection.h"
#include "note/summary.h"

namespace brynd::collection {

class PageWriter {
 public:
  PageWriter(Index& index, Walk& walk, uint32_t mask, const IdTable* unread, std::vector<std::byte>* page)
      : index_(index), walk_(walk), mask_(mask), unread_(unread), page_(page) {
    page_->clear();
  }

  void AddStatistics();
  // False when the row does not fit any more; a first row is cut so that it does.
  bool AddRow();

 private:
  bool AddDocument(const DocumentEntry& entry);
  bool AddCategory();
  void AddFields(uint32_t id, const DocumentEntry* document);
  bool AddTable(Bytes table);
  bool AddNamedTable(Bytes table);
  uint32_t Indent(const CategoryEntry* category) const;
  bool AnyUnread();
  Bytes CategoryTable(const CategoryEntry& entry);
  double TotalOf(const CategoryEntry& entry, size_t total);
  const CategoryEntry& GrandTotal();
  template <class Number>
  void Put(Number number) {
    const size_t at = page_->size();
    page_->resize(at + sizeof number);
    Store<Number>(page_->data() + at, number);
  }

  Index& index_;
  Walk& walk_;
  uint32_t mask_;
  const IdTable* unread_;
  std::vector<std::byte>* page_;
  uint32_t row_count_ = 0;
  CategoryEntry category_;
  std::optional<CategoryEntry> grand_total_;
  std::vector<std::byte> table_;
  SummaryBuilder named_;
};

}  // namespace brynd::collection
