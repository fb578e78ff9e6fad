// An open view or folder: its index, and reading pages of its rows.
//
// A row is the fields that a mask selects, in the order of Field, without padding; ahead of the first row,
// with kStatistics, two words of 4 bytes: the rows at the top without the total, and 0. (1) Each read is one
// moment.  (2) A page has at most 65,535 bytes.
#pragma once

#include <memory>
#include <vector>

#include "base/handle_table.h"
#include "base/memory.h"
#include "collection/find.h"
#include "collection/walk.h"

namespace brynd::collection {

// Mask bits, in the order of the fields.
enum Field : uint32_t {
  kNoteId = 0x1,
  kUnid = 0x2,
  kClass = 0x4,
  kSiblings = 0x8,
  kChildren = 0x10,
  kDescendants = 0x20,
  kAnyUnread = 0x40,
  kIndent = 0x80,
  kScore = 0x200,
  kUnread = 0x400,
  kPosition = 0x4000,
  kSummary = 0x2000,
  kNamedSummary = 0x8000,
  kStatistics = 0x100
};
constexpr uint16_t kMoreRows = 0x20;  // of the signal
constexpr size_t kPageBytesMax = 65535;

struct ReadRequest {
  uint16_t skip_navigator = 0;
  uint32_t skip_count = 0;
  uint16_t return_navigator = 0;
  uint32_t return_count = 0;
  uint32_t mask = 0;
};

struct ReadAnswer {
  MemoryBlock page;  // empty when no bytes came
  uint16_t page_bytes = 0;
  uint32_t skipped = 0, returned = 0;
  uint16_t signal = 0;
};

class Collection {
 public:
  Collection(std::shared_ptr<Database> data, std::shared_ptr<Database> view_database, uint32_t view_id)
      : data_(data), index_(std::move(data), std::move(view_database), view_id) {}

  Index& Rows() noexcept { return index_; }
  const std::shared_ptr<Database>& DataPointer() const noexcept { return data_; }
  void SetUnread(EngIdTable unread) noexcept { unread_ = unread; }
  EngIdTable Collapsed();  // made when it is asked for first

  ReadAnswer Read(const ReadRequest& request, COLLECTIONPOSITION* position);
  FoundRows Find(const std::vector<Bytes>& keys, uint16_t flags);

 private:
  void Look();

  std::shared_ptr<Database> data_;
  Index index_;
  EngIdTable unread_ = 0;
  MemoryBlock collapsed_;
  std::vector<std::byte> page_;
};

using CollectionTable = HandleTable<Collection, Handles16()>;
CollectionTable& Collections();

enum OpenFlag : uint16_t { kOpenBuildAnew = 1, kOpenAsIs = 2, kOpenWithoutDeleted = 4 };
EngCollection OpenCollection(const std::shared_ptr<Database>& view_database,
                             const std::shared_ptr<Database>& data, uint32_t view, uint16_t flags);
void CloseCollection(EngCollection handle);
// Brings the collection, and the others open in its database handle, up to date in one scan of the changes.
void UpdateCollection(Collection& collection);

}  // namespace brynd::collection
