// Building an index in one scan of the notes.
// (1) All rows are held in memory, sorted once, and written from left to right.
#pragma once

#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include "collection/index.h"
#include "collection/row.h"
#include "collection/tree_edit.h"

namespace brynd::collection {

class IndexBuild {
 public:
  IndexBuild(Database& database, const Definition& definition, RowMaker& maker, uint32_t view_id)
      : database_(database), definition_(definition), maker_(maker), view_id_(view_id) {}

  // Writes both trees and says so in the head.
  void Run(store::Write& write, Head* head);

 private:
  struct Category {
    Place place = 0, parent = 0;
    int32_t parent_index = -1;
    std::string key;
    uint64_t weight = 1;
    uint32_t last_document = UINT32_MAX;  // counted already
    CategoryEntry entry;
  };
  struct Document {
    uint32_t note_id = 0;
    bool is_response = false;
    UNIVERSALNOTEID unid{}, parent{};
    Bytes order, payload;
    size_t numbers = 0;                // the first in numbers_
    std::vector<uint32_t> categories;  // index + 1 of the category of each row of a main document, 0: the top
    std::vector<std::pair<Place, uint32_t>> stands;  // parent, category
    std::vector<uint32_t> responses;
    bool standing = false;
  };
  struct Entry {
    Bytes key, payload;
    uint32_t weight = 1;
  };

  bool Takes(const ImageView& view) const;
  void Collect();
  void AddDocument(const Row& row);
  uint32_t CategoryFor(const CategoryPath& path);
  void LinkResponses();
  uint32_t Stand(uint32_t document, Place parent, uint32_t category, uint32_t level);
  void Count();
  void WriteRows(store::Write& write, Head* head);
  void WriteFinder(store::Write& write, Head* head);
  Bytes Keep(std::string_view text);

  Database& database_;
  const Definition& definition_;
  RowMaker& maker_;
  uint32_t view_id_;
  std::vector<Document> documents_;
  std::vector<double> numbers_;
  std::deque<Category> categories_;
  std::unordered_map<std::string, uint32_t> category_of_value_, category_of_key_;
  std::string sought_;
  CategoryEntry total_;
  std::vector<Entry> entries_;
  std::deque<std::vector<std::byte>> blocks_;
  size_t block_left_ = 0;
};

}  // namespace brynd::collection
