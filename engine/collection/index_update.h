// Taking changed notes into an index.
// (1) Applying a note brings the index to what the note is now, whatever it was before and how often it is
//     applied.  (2) Nothing is stored before Finish.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "collection/index.h"
#include "collection/row.h"
#include "collection/tree_edit.h"

namespace brynd::collection {

class IndexUpdate {
 public:
  IndexUpdate(Index& index, DatabaseWrite& write, const Lag& lag);
  IndexUpdate(const IndexUpdate&) = delete;
  IndexUpdate& operator=(const IndexUpdate&) = delete;

  void Apply(uint32_t note_id, const ImageView* view);  // null: the note is gone
  void Finish(WriteReport* report = nullptr);

 private:
  using Stand = NoteRecord::Stand;

  std::optional<NoteRecord> FindRecord(uint32_t note_id);
  void PutRecord(uint32_t note_id, const NoteRecord& record);
  std::string KeyOf(const Stand& stand) const { return ParentKey(stand.parent) + stand.rest; }
  bool Selects(const ImageView& view, Row* row);
  NoteRecord RecordOf(const Row& row);
  std::vector<Place> PlacesFor(const Row& row);
  Place CategoryPlace(const CategoryPath& path);
  Place MakeCategory(Place parent, uint32_t level, const CategoryPiece& piece, const std::string& key);
  std::string CategoryKeyOf(uint32_t number);

  // Walks from a place up to the top, calling visit(place, key of its entry) for each.
  template <class Visit>
  void WalkUp(Place place, Visit&& visit);
  void AddWeightUp(Place place, int64_t more);
  uint32_t LevelOf(Place place);
  bool IsBelow(Place place, uint32_t note_id);

  void RemoveStands(uint32_t note_id, const NoteRecord& old, const NoteRecord& now);
  void MoveStands(const NoteRecord& old, const NoteRecord& now, const std::string& payload,
                  std::vector<uint32_t>* fresh);
  void RemoveResponses(uint32_t note_id, uint32_t category, uint32_t depth = 0);
  void AddResponses(uint32_t note_id, const UNIVERSALNOTEID& unid, uint32_t category);
  void AddResponse(uint32_t note_id, Place parent);

  std::set<uint32_t> CategoriesOf(const std::vector<Stand>& stands);
  void Contribute(const NoteRecord& record, int sign);
  void ContributeTo(const std::string& key, const NoteRecord& record, int sign);
  void CountChild(Place parent, int more);
  void DropEmptyCategories();

  Index& index_;
  DatabaseWrite& write_;
  Head head_;
  NodeSource row_source_, finder_source_;
  TreeEdit rows_, finder_;
  Row row_;
  std::set<uint32_t> touched_;  // categories that may have become empty
};

}  // namespace brynd::collection
