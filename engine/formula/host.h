// What a formula may ask of the document, the database and the user it is computed for, and what it may do.
//
// Stored images and open notes both answer it, so that a search computes a formula on the stored bytes.
//
// (1) Find is the hot call: it neither throws nor allocates for a value that is already in memory.
// (2) A value that Find returned stays where it is until the next write, or the end of the evaluation.
// (3) Every question has an answer for a host that knows nothing: no item, no value, no write.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "brynd.h"

namespace brynd::formula {

// A name of the formula as the host's dictionary knows it. Names that differ in case alone have one token.
using NameToken = uint32_t;
constexpr NameToken kNoToken =
    0xffffffff;  // no document of this dictionary has the name (until the edition changes)

// Which dictionary tokens belong to. Tokens bound earlier are good while both words stay the same: a
// dictionary that has learned names raises its edition, and only then an unbound name is asked for again.
struct NameScope {
  uint64_t dictionary = 0;  // identity, unique in the process and never reused
  uint64_t edition = 0;
  bool operator==(const NameScope&) const = default;
};

// One stored value: its type word, and the bytes behind the type word.
struct ItemView {
  uint16_t type = 0;
  std::span<const std::byte> value;
};

// Header facts of the document. Times without a value are all ones, as everywhere in the engine.
struct DocumentFacts {
  uint32_t note_id = 0;  // 0 for a document never stored
  uint16_t note_class = 1;
  bool is_new = false;
  bool is_response = false;
  ORIGINATORID originator{};
  TIMEDATE created{{0xffffffff, 0xffffffff}};
  TIMEDATE modified{{0xffffffff, 0xffffffff}};  // the time of the last edit, in any replica
  TIMEDATE accessed{{0xffffffff, 0xffffffff}};
  TIMEDATE added{{0xffffffff, 0xffffffff}};  // to this file
  uint64_t length = 0;                       // bytes, attachments included
};

struct DatabaseFacts {
  std::string title;  // engine text
  std::string path;   // as the user would give it, server and file joined
  TIMEDATE replica_id{{0, 0}};
};

class Host {
 public:
  virtual ~Host() = default;

  // Names. Bind is called once per name, program and scope; a host without a dictionary keeps its own table.
  virtual NameScope Scope() const { return {}; }
  virtual NameToken Bind(std::string_view /*name: engine text, 1 to 255 bytes*/) { return kNoToken; }

  // The first item of that name; false when the document has none.
  virtual bool Find(NameToken /*token*/, ItemView* /*item*/) { return false; }

  // Item names in document order, repeated names once.
  virtual void ItemNames(std::vector<std::string>* /*names*/) {}

  // Replaces all items of that name by one summary item. False when this host takes no writes.
  virtual bool WriteItem(std::string_view /*name*/, const ItemView& /*item*/) { return false; }
  // Removes all items of that name. False when this host takes no writes; a missing item is no failure.
  virtual bool DeleteItem(std::string_view /*name*/) { return false; }

  virtual void Document(DocumentFacts* /*facts*/) {}
  virtual void Database(DatabaseFacts* /*facts*/) {}

  // The user on whose behalf the formula runs, canonical, and the settings file. They answer from the
  // process's settings.
  virtual std::string UserName();
  virtual std::optional<std::string> EnvironmentGet(std::string_view name);
  virtual bool EnvironmentSet(std::string_view name, std::string_view value);
};

}  // namespace brynd::formula
