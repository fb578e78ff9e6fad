// Views and folders as collections of rows.
#include "collection/collection.h"

#include "base/boundary.h"
#include "brynd_collection.h"
#include "brynd_text.h"
#include "note/note.h"

using brynd::AtBoundary;
using brynd::Bytes;
using brynd::Database;
using brynd::Store;
using brynd::collection::Collection;
using brynd::collection::Collections;

namespace status = brynd::status;

namespace {

// What the caller's record says; only as much of it as its level has.
COLLECTIONPOSITION LoadPosition(const COLLECTIONPOSITION* source) {
  COLLECTIONPOSITION position{};
  position.Level = brynd::LoadU16(source);
  if (position.Level > brynd::collection::kLevelMax) return position;
  std::memcpy(&position, source, position.Level * sizeof(uint32_t) + 8);
  return position;
}

void StorePosition(const COLLECTIONPOSITION& position, COLLECTIONPOSITION* target) {
  std::memcpy(target, &position, position.Level * sizeof(uint32_t) + 8);
}

template <class Value>
void Give(Value* target, const Value& value) {
  if (target != nullptr) Store<Value>(target, value);
}

EngStatus Find(EngCollection collection, const std::vector<Bytes>& keys, uint16_t flags,
               COLLECTIONPOSITION* position, uint32_t* match_count) {
  const brynd::collection::FoundRows found = Collections().Get(collection).Find(keys, flags);
  if (position != nullptr) StorePosition(found.position, position);
  Give(match_count, found.match_count);
  return status::kOk;
}

}  // namespace

EngStatus EngCollectionOpen(EngDb view_database, EngDb data_database, uint32_t view, uint16_t flags,
                            EngIdTable unread, EngCollection* collection, EngNote* view_note,
                            UNIVERSALNOTEID* view_unid, EngIdTable* collapsed, EngIdTable* selected) {
  return AtBoundary([&]() -> EngStatus {
    const std::shared_ptr<Database> design = brynd::FindDatabase(view_database);
    const std::shared_ptr<Database> data = brynd::FindDatabase(data_database);
    if (collection == nullptr) return status::kBadArgument;
    std::unique_ptr<brynd::Note> note;
    const EngCollection handle = brynd::collection::OpenCollection(design, data, view, flags);
    Collection& opened = Collections().Get(handle);
    const EngStatus completed = AtBoundary([&] {
      opened.SetUnread(unread);
      const EngIdTable closed_rows = opened.Collapsed();
      if (view_note != nullptr) note = brynd::Note::Open(design, view, 0);
      if (note != nullptr) Give(view_note, brynd::AddNote(std::move(note)));
      Give(view_unid, opened.Rows().Design().unid);
      Give(collapsed, closed_rows);
      Give(selected, EngIdTable{0});
      Give(collection, handle);
    });
    if (completed != status::kOk) brynd::collection::CloseCollection(handle);
    return completed;
  });
}

EngStatus EngCollectionClose(EngCollection collection) {
  if (collection == 0) return status::kOk;
  return AtBoundary([&] { brynd::collection::CloseCollection(collection); });
}

EngStatus EngCollectionUpdate(EngCollection collection) {
  return AtBoundary([&] { brynd::collection::UpdateCollection(Collections().Get(collection)); });
}

EngStatus EngCollectionRead(EngCollection collection, COLLECTIONPOSITION* position, uint16_t skip_navigator,
                            uint32_t skip_count, uint16_t return_navigator, uint32_t return_count,
                            uint32_t return_mask, EngMem* memory, uint16_t* memory_bytes, uint32_t* skipped,
                            uint32_t* returned, uint16_t* signal) {
  return AtBoundary([&]() -> EngStatus {
    Collection& opened = Collections().Get(collection);
    if (position == nullptr) return status::kBadArgument;
    COLLECTIONPOSITION place = LoadPosition(position);
    brynd::collection::ReadAnswer answer = opened.Read({.skip_navigator = skip_navigator,
                                                        .skip_count = skip_count,
                                                        .return_navigator = return_navigator,
                                                        .return_count = return_count,
                                                        .mask = return_mask},
                                                       &place);
    if (place.Level <= brynd::collection::kLevelMax) StorePosition(place, position);
    Give(memory_bytes, answer.page_bytes);
    Give(skipped, answer.skipped);
    Give(returned, answer.returned);
    Give(signal, answer.signal);
    if (memory != nullptr) Store<EngMem>(memory, answer.page.Release());
    return status::kOk;
  });
}

EngStatus EngCollectionFindKey(EngCollection collection, const void* key, uint16_t flags,
                               COLLECTIONPOSITION* position, uint32_t* match_count) {
  return AtBoundary([&]() -> EngStatus {
    Collections().Get(collection);
    if (key == nullptr) return status::kBadArgument;
    return Find(collection, brynd::collection::KeysOfTable(key), flags, position, match_count);
  });
}

EngStatus EngCollectionFindName(EngCollection collection, const char* name, uint16_t flags,
                                COLLECTIONPOSITION* position, uint32_t* match_count) {
  return AtBoundary([&]() -> EngStatus {
    Collections().Get(collection);
    if (name == nullptr) return status::kBadArgument;
    std::string value(brynd::kTypeWordBytes, '\0');
    brynd::StoreU16(value.data(), BRTYPE_TEXT);
    value += name;
    return Find(collection, {brynd::BytesOf(value)}, flags, position, match_count);
  });
}

EngStatus EngTranslateSpecial(const char*, uint16_t, char*, uint16_t, uint32_t, const COLLECTIONPOSITION*,
                              const INDEXSPECIALINFO*, EngIdTable, EngIdTable, const char*, const char*,
                              uint16_t*) {
  return status::kNotAvailable;
}
