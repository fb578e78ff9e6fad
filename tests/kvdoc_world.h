// Documents for tests: a database, documents in it, and what their notes hold, read past the library.
#ifndef KVDOC_WORLD_H
#define KVDOC_WORLD_H

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kit/kit.h"
#include "kvint.h"

namespace kvdoc {

constexpr uint16_t kEngineFailure = 0x1f7;
constexpr uint16_t kEngineFailureWithFlagBits = 0xc1f7;
constexpr uint32_t kUntouched = 0xdeadbeef;

// One item of a note as the engine holds it; bytes without the type word.
struct NoteItem {
  std::string name;
  uint16_t type = 0;
  uint16_t flags = 0;
  std::string bytes;
};

inline EngStatus CollectItem(uint16_t, uint16_t flags, const char* name, uint16_t name_bytes,
                             const void* value, uint32_t value_bytes, void* parameter) {
  const auto* bytes = static_cast<const char*>(value);
  static_cast<std::vector<NoteItem>*>(parameter)->push_back({std::string(name, name_bytes),
                                                             KVILoad<uint16_t>(bytes), flags,
                                                             std::string(bytes + 2, value_bytes - 2)});
  return 0;
}

// All items of an open note, in order; with a name only those.
inline std::vector<NoteItem> ItemsOf(EngNote note, const std::string& name = "") {
  kit::Spy unseen;
  std::vector<NoteItem> items;
  EXPECT_EQ(EngItemScan(note, CollectItem, &items), 0);
  if (name.empty()) return items;
  std::erase_if(items,
                [&](const NoteItem& item) { return strcasecmp(item.name.c_str(), name.c_str()) != 0; });
  return items;
}

inline std::string TextList(const std::vector<std::string>& entries) {
  std::string list(2 + 2 * entries.size(), 0);
  KVIStore<uint16_t>(list.data(), static_cast<uint16_t>(entries.size()));
  for (size_t i = 0; i < entries.size(); ++i) {
    KVIStore<uint16_t>(list.data() + 2 + 2 * i, static_cast<uint16_t>(entries[i].size()));
    list += entries[i];
  }
  return list;
}

inline std::string NumberBytes(double number) {
  return {reinterpret_cast<const char*>(&number), sizeof number};
}

inline _DOCUMENT* Record(uint32_t document) { return _GetDocument(KVICurrentSession(), document); }

class DocumentTest : public kit::KavrinTest {
 protected:
  void SetUp() override {
    kit::KavrinTest::SetUp();
    path_ = MakeDatabase("documents.qdb");
    database_ = OpenDatabase(path_);
    session_ = KVICurrentSession();
  }

  static uint32_t OpenDatabase(const std::string& path) {
    uint32_t database = 0;
    const int32_t off = 0;
    EXPECT_EQ(KVDatabaseOpen(nullptr, path.c_str(), 0, &database), KVSUCCESS);
    EXPECT_EQ(KVDatabaseSetProperty(database, KVPROP_DB_STRICT_BIND, &off), KVSUCCESS);
    return database;
  }
  static _DATABASE* BaseOf(uint32_t database) { return _GetDatabase(KVICurrentSession(), database); }
  _DATABASE* Base() const { return BaseOf(database_); }
  EngDb EngineDatabase() const { return Base()->dbhand; }
  static EngNote NoteOf(uint32_t document) { return Record(document)->notehand; }
  static void ExpectError(uint32_t status) { EXPECT_EQ(kit::LastError().status, status); }
  static void SetDatabaseBool(uint32_t database, int32_t property, int32_t value) {
    ASSERT_EQ(KVDatabaseSetProperty(database, property, &value), KVSUCCESS);
  }

  // A document that was never saved.
  uint32_t New() const {
    uint32_t document = 0;
    EXPECT_EQ(KVDocumentCreate(database_, 0, &document), KVSUCCESS);
    return document;
  }
  uint32_t OpenIn(uint32_t database, uint32_t docid, uint32_t docopen_flags = 0) const {
    uint32_t document = 0;
    EXPECT_EQ(KVDocumentOpen(database, docid, docopen_flags, &document), KVSUCCESS);
    return document;
  }
  uint32_t Open(uint32_t docid, uint32_t docopen_flags = 0) const {
    return OpenIn(database_, docid, docopen_flags);
  }
  // Stores a new document with one text item and returns its id.
  uint32_t StoreDocument(const std::string& subject = "a subject") const {
    const uint32_t document = New();
    PutText(document, "Subject", subject);
    EXPECT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
    const uint32_t docid = Record(document)->docid;
    EXPECT_EQ(KVDocumentClose(document, 0), KVSUCCESS);
    EXPECT_NE(docid, 0u);
    return docid;
  }
  // Stores a note of a class, with items that the engine alone can make.
  uint32_t StoreNote(uint16_t note_class, const std::vector<NoteItem>& items = {}) const {
    EngNote note = 0;
    uint32_t id = 0;
    EXPECT_EQ(EngNoteCreate(EngineDatabase(), &note), 0);
    EXPECT_EQ(EngNoteInfoSet(note, 3, &note_class), 0);
    for (const NoteItem& item : items) Append(note, item);
    EXPECT_EQ(EngNoteUpdate(note, 0), 0);
    EXPECT_EQ(EngNoteInfoGet(note, 1, &id), 0);
    EXPECT_EQ(EngNoteClose(note), 0);
    return id;
  }
  static void Append(EngNote note, const NoteItem& item) {
    EXPECT_EQ(EngItemAppend(note, item.flags, item.name.c_str(), static_cast<uint16_t>(item.name.size()),
                            item.type, item.bytes.data(), static_cast<uint32_t>(item.bytes.size())),
              0);
  }
  static void AppendText(EngNote note, const std::string& name, const std::string& text) {
    Append(note, {name, BRTYPE_TEXT, 4, text});
  }
  // What the database holds under an id.
  std::vector<NoteItem> StoredItems(uint32_t docid, const std::string& name = "") const {
    EngNote note = 0;
    EXPECT_EQ(EngNoteOpen(EngineDatabase(), docid, 0, &note), 0);
    std::vector<NoteItem> items = ItemsOf(note, name);
    EXPECT_EQ(EngNoteClose(note), 0);
    return items;
  }
  bool IsStored(uint32_t docid) const {
    return EngDbIdInfoGet(EngineDatabase(), docid, nullptr, nullptr, nullptr) == 0;
  }

  static void PutText(uint32_t document, const std::string& name, const std::string& text) {
    ASSERT_EQ(KVItemPut(document, name.c_str(), 0, 0, KVTYPE_TEXT, text.c_str(), 0), KVSUCCESS);
  }
  static std::string FetchText(uint32_t document, const std::string& name) {
    char text[1001];
    uint32_t length = 1000;
    int32_t type = KVTYPE_TEXT;
    EXPECT_EQ(KVItemFetch(document, name.c_str(), nullptr, &length, &type, text), KVSUCCESS);
    return std::string(text, length);
  }

  std::string path_;
  uint32_t database_ = 0;
  _api_session* session_ = nullptr;
};

// The document that an index has loaded: its handle has bit 31, its record lies in the index.
class IndexDocument {
 public:
  IndexDocument(_api_session* session, _DATABASE* dbase, EngNote note, uint32_t docid)
      : session_(session), idx_(KVIAllocate<_INDEX>()) {
    EXPECT_EQ(_KVINewHandle(session, &idx_->index), KVSUCCESS);
    idx_->dbase = dbase;
    idx_->last_load.document = handle();
    idx_->last_load.docid = docid;
    idx_->last_load.dbase = dbase;
    idx_->last_load.class_ = 1;
    idx_->last_load.notehand = note;
    _KVILinkIndex(session, idx_);
  }
  ~IndexDocument() {
    if (idx_->last_load.notehand != 0) {
      EXPECT_EQ(KVDocumentClose(handle(), KVDOCWRITE_DISCARD), KVSUCCESS);
    }
    _KVIUnlinkIndex(session_, idx_);
    KVIFree(idx_);
  }
  IndexDocument(const IndexDocument&) = delete;
  IndexDocument& operator=(const IndexDocument&) = delete;

  uint32_t handle() const { return idx_->index | kIndexDocumentBit; }
  uint32_t index() const { return idx_->index; }
  _DOCUMENT& record() { return idx_->last_load; }

 private:
  _api_session* session_;
  _INDEX* idx_;
};

// A composite that is open on a document's item.
inline _COMPOSITE* AddComposite(_api_session* session, uint32_t document, const char* itemname, bool dirty) {
  auto* comp = KVIAllocate<_COMPOSITE>();
  uint32_t number = 0;
  comp->doc = Record(document);
  comp->dirty = dirty;
  comp->itemname = itemname != nullptr ? KVICopyText(itemname, std::strlen(itemname)) : nullptr;
  EXPECT_EQ(_AddComposite(session, comp, &number), KVSUCCESS);
  return comp;
}

// What a save or a close tells the engine.
struct WordRow {
  int32_t delay_commit;
  uint32_t flags;
  uint32_t word;  // without the bit of a first update
};
inline constexpr WordRow kUpdateWords[] = {
    {0, 0, 0},
    {0, KVDOCWRITE_FORCE, 0x1},
    {0, 0x100, 0x100},
    {0, KVDOCWRITE_NOCOMMIT, 0x4},
    {0, KVDOCWRITE_COMMIT, 0},
    {0, KVDOCWRITE_NOCOMMIT | KVDOCWRITE_COMMIT, 0},
    {0, 0xfffcfffb, 0x101},
    {0, 0xfffcffff, 0x105},
    {0, 0xfffdffff, 0x101},
    {1, 0, 0x4},
    {1, KVDOCWRITE_FORCE, 0x5},
    {1, KVDOCWRITE_NOCOMMIT, 0x4},
    {1, KVDOCWRITE_COMMIT, 0},
    {1, KVDOCWRITE_COMMIT | KVDOCWRITE_FORCE, 0x1},
    {1, KVDOCWRITE_NOCOMMIT | KVDOCWRITE_COMMIT, 0},
};

// The word of the one update that was made.
inline uint64_t UpdateWordOf(const kit::Spy& spy) {
  EXPECT_EQ(spy.Count("EngNoteUpdate"), 1u);
  return spy.Count("EngNoteUpdate") == 1 ? spy.Find("EngNoteUpdate")->words[1] : ~uint64_t{0};
}

// The number of allocations that the work makes, counted by failing them one after the other.
template <typename Work>
uint32_t AllocationsOf(Work work) {
  for (uint32_t nth = 1; nth < 1000; ++nth) {
    kit::Fault fault = kit::Fault::Allocation(nth);
    work();
    if (!fault.Hit()) return nth - 1;
  }
  ADD_FAILURE() << "no end of allocations";
  return 0;
}

inline void PrintAllocations(const char* what, uint32_t count) {
  std::printf("allocations of %s: %u\n", what, count);
}

}  // namespace kvdoc

#endif
