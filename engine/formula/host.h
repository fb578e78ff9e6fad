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
#include <memory>
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
  UNIVERSALNOTEID parent{};  // of a response: the first document that it refers to
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

// A file attached to the document.
struct AttachedFile {
  std::string name;  // engine text
  uint64_t bytes = 0;
};

// What the access list of the database says of the user, and who manages the database.
struct AccessFacts {
  uint8_t level = 0;                    // 0 none to 6 manager
  std::vector<std::string> user_names;  // names by which the list may know the user, the narrowest first
  std::vector<std::string> user_roles;  // in brackets
  std::vector<std::string> managers;
};

// A question to a view: the values of one column, for all rows or those of a key.
struct ViewQuestion {
  std::string_view database;  // path; empty for the database of the document
  std::string_view view;
  const ItemView* key = nullptr;  // none asks for all rows
  uint32_t column = 0;            // from 1; 0: what `field` names, of the documents
  std::string_view field;
  bool partial_key = false;   // rows whose key begins with the key
  bool document_ids = false;  // the universal ids of the rows' documents instead
};

// What becomes of a question or a write that a host may not be able to serve.
enum class Answer : uint8_t { kDone, kNothing, kRefused, kNotAvailable };

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

  // Files attached to the document, in its order.
  virtual void Attachments(std::vector<AttachedFile>* /*files*/) {}
  virtual void Access(AccessFacts* /*facts*/) {}

  // Other documents of the database: a stored one, which takes no writes (none when there is no such
  // document); how many refer to this one as their parent; one item of a stored one, `item` null deletes it.
  virtual std::unique_ptr<Host> Stored(const UNIVERSALNOTEID& /*unid*/) { return nullptr; }
  virtual uint64_t ResponseCount() { return 0; }
  virtual Answer WriteStored(const UNIVERSALNOTEID& /*unid*/, std::string_view /*name*/,
                             const ItemView* /*item*/) {
    return Answer::kRefused;
  }

  // Views and other databases. The values of a view come as an item's value, type word first.
  virtual Answer ReadView(const ViewQuestion& /*question*/, std::vector<std::byte>* /*value*/) {
    return Answer::kNotAvailable;
  }
  virtual bool DatabaseExists(std::string_view /*path*/) { return false; }

  // The user on whose behalf the formula runs, canonical, and the settings file. They answer from the
  // process's settings; a user without a name is the empty text.
  virtual std::string UserName();
  virtual std::optional<std::string> EnvironmentGet(std::string_view name);
  virtual bool EnvironmentSet(std::string_view name, std::string_view value);
};

}  // namespace brynd::formula
