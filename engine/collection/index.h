// The stored index of a view or folder: its head, building it, bringing it up to date.
//
// Head, space kHeadSpace, key 'H', instance of the view's database 8 (0: this one), note id of the view 4:
//   checksum 8 over the rest, version 1, zero 3, collection 4, fingerprint 8, collation 4, sequence 8,
//   changes 4, last category 4, next node 4, documents 4, then for the rows and the finder: node 4, level 4,
//   checksum 8, entries 8, weight 8
// Key 'N': the number the next collection gets, 4.   Key 'M', folder 4, note 4: a member of a folder; empty.
//
// (1) The index is that of the database after transaction `sequence` and the first `changes` changes of the
//     next one, and is stored in the transaction that it belongs to.
// (2) An index of another fingerprint, collation or version is no index: it is built anew.
// (3) Handles and processes share the stored index; the nodes in memory are shared by the handles of a
// process.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/idtable.h"
#include "collection/row.h"
#include "collection/tree.h"

namespace brynd::collection {

constexpr uint8_t kRowTree = 1, kFinderTree = 2;

struct Head {
  uint32_t collection = 0;
  uint64_t fingerprint = 0;
  uint32_t collation = 0;
  uint64_t sequence = 0;
  uint32_t changes = 0;
  uint32_t last_category = 0;
  uint32_t next_node = 1;
  uint32_t documents = 0;
  NodeReference rows{}, finder{};
};

std::string HeadKey(uint64_t view_instance, uint32_t view_id);
std::string MemberKey(uint32_t folder, uint32_t note_id);
// None: no index; a damaged head counts as none.
std::optional<Head> ReadHead(Database& database, const std::string& key);
void PutHead(store::Write& write, const std::string& key, const Head& head);

// Nodes in memory of one collection, shared by all who ask while anyone holds it.
std::shared_ptr<NodeCache> SharedCache(uint64_t file_number, uint32_t collection);

// One handle's way to an index.
class Index {
 public:
  Index(std::shared_ptr<Database> data, std::shared_ptr<Database> view_database, uint32_t view_id);

  const Definition& Design() const noexcept { return definition_; }
  Database& Data() const noexcept { return *data_; }
  uint32_t ViewId() const noexcept { return view_id_; }
  bool IsHere() const noexcept { return view_database_ == data_; }  // the view lies among its documents

  // Reads the head as the database is now. False when there is no usable index.
  bool Look();
  const Head& Now() const noexcept { return *head_; }
  NodeSource Rows() { return {data_->Store(), *cache_, {head_->collection, kRowTree}, shelf_.get()}; }
  NodeSource Finder() { return {data_->Store(), *cache_, {head_->collection, kFinderTree}, shelf_.get()}; }
  uint64_t RowCount();  // of all levels
  RowMaker& Maker();

  // Learns a changed design of the view. Fails with the statuses of ReadDefinition.
  void CheckDesign();
  // Makes the index anew, in one transaction.
  void Build();
  // Takes these notes in as they are now, as part of a larger write; without an index there is nothing to do.
  void TakeIn(DatabaseWrite& write, const IdTable& notes);
  // Takes in all changes, or builds. Several indexes of one database read each changed note once.
  static void BringUpToDate(std::span<Index* const> indexes);
  void BringUpToDate() {
    Index* const self = this;
    BringUpToDate({&self, 1});
  }

 private:
  static constexpr store::ViewStamp kNoStamp{~uint64_t{0}, ~uint64_t{0}};
  friend class IndexUpdate;
  void BuildInto(DatabaseWrite& write);
  void SetHead(const Head& head);

  std::shared_ptr<Database> data_, view_database_;
  uint32_t view_id_;
  std::string key_;
  Definition definition_;
  uint32_t design_checksum_ = 0;
  bool design_read_ = false;
  std::optional<Head> head_;
  store::ViewStamp stamp_ = kNoStamp;
  std::shared_ptr<NodeCache> cache_;
  std::unique_ptr<NodeShelf> shelf_ = std::make_unique<NodeShelf>();
  std::unique_ptr<RowMaker> maker_;
  NodeReference counted_root_;  // of row_count_
  uint64_t row_count_ = 0;
};

// How far an index is behind.
struct Lag {
  bool known = false;  // false: the journal does not reach back
  std::vector<uint32_t> notes;
  uint64_t sequence = 0;  // the head's, once the notes are taken in
  uint32_t changes = 0;
};
Lag LagOf(Database& database, const Head& head);

}  // namespace brynd::collection
