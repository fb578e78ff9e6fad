#include "note/copy.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "base/boundary.h"
#include "base/time.h"
#include "note/note.h"
#include "note/object.h"
#include "note/search.h"

namespace brynd {

namespace {

constexpr uint16_t kSpecialClasses = BRCLASS_ICON | BRCLASS_DESIGN;
constexpr size_t kBatchNotes = 256;  // notes of one write: bounded memory, few commits

// The note as it is now, nothing when it was deleted meanwhile. All its values are in memory.
std::unique_ptr<Note> ReadWhole(const std::shared_ptr<Database>& source, uint32_t note_id) {
  std::unique_ptr<Note> note;
  source->VisitNote(note_id, [&](const ImageView& view) {
    if (!view.IsStub()) note = Note::FromImage(source, view);
  });
  if (note == nullptr) return nullptr;
  for (uint32_t index = 0; index < note->ItemCount(); ++index) note->Value(index);
  return note;
}

// One run over the notes that are to be copied.
class Copying {
 public:
  Copying(const std::shared_ptr<Database>& source, const std::shared_ptr<Database>& destination)
      : source_(source), destination_(destination) {}

  // Takes the notes in pieces, so that one write stays small.
  void Run(const std::vector<uint32_t>& note_ids) {
    for (size_t start = 0; start < note_ids.size(); start += kBatchNotes) {
      const size_t end = std::min(start + kBatchNotes, note_ids.size());
      DatabaseWrite write(*destination_);
      for (size_t i = start; i < end; ++i) CopyNote(write, note_ids[i]);
      write.Commit(end == note_ids.size() ? store::Durability::kDurable : store::Durability::kLazy);
    }
  }

  bool met_damage = false;

 private:
  void CopyNote(DatabaseWrite& write, uint32_t note_id) {
    std::unique_ptr<Note> note;
    const EngStatus outcome = AtBoundary([&] { note = ReadWhole(source_, note_id); });
    if (outcome == status::kDamaged)
      met_damage = true;
    else
      Check(outcome);
    if (note == nullptr) return;
    const uint32_t counterpart = CounterpartOf(*note);
    const uint16_t note_class = note->Header().note_class;
    if ((note_class & BRCLASS_DESIGN) != 0 && counterpart != 0) return;
    CopyObjects(write, *note);
    const TIMEDATE added = FreeObjectsOf(write, counterpart);
    if ((note_class & BRCLASS_ICON) != 0 && counterpart != 0) {
      TakeOverItems(write, *note, counterpart);
      return;
    }
    note->SetTimes(note->Header().created, added);
    note->MoveTo(destination_);
    note->SetNoteId(counterpart);
    note->SaveInto(write, {.force = true, .keep_originator = true});
  }

  // The destination's own record that this note takes the place of; 0 when it comes as a new one.
  uint32_t CounterpartOf(const Note& note) {
    const uint16_t note_class = note.Header().note_class;
    if ((note_class & kSpecialClasses) != 0) {
      const uint32_t special = destination_->SpecialId(note_class & kSpecialClasses);
      if (special != 0) return special;
    }
    return destination_->FindUnid(UnidOf(note.Header().originator), true);
  }

  // Numbers of objects are those of one file: copies of them come along, and the items name these.
  void CopyObjects(DatabaseWrite& write, Note& note) {
    for (uint32_t index = 0; index < note.ItemCount(); ++index) {
      const uint32_t object = ObjectOf(note.At(index).type, note.Value(index));
      if (object == 0) continue;
      const Bytes value = note.Value(index);
      std::vector<std::byte> data(value.begin() + kTypeWordBytes, value.end());
      const uint32_t copy = CopyObjectInto(write, *source_, object);
      StoreU32(data.data() + offsetof(OBJECT_DESCRIPTOR, RRV), copy);
      note.SetValue(index, BRTYPE_OBJECT, data);
    }
  }

  // The objects of a note that is replaced go with its items. Tells when it was added to that file; nothing
  // said, a new one is added now.
  TIMEDATE FreeObjectsOf(DatabaseWrite& write, uint32_t counterpart) {
    TIMEDATE added{};
    if (counterpart == 0) return added;
    ObjectSet objects;
    destination_->VisitNote(counterpart, [&](const ImageView& view) {
      added = view.Image().Added();
      objects = ObjectsOf(view.Image());
    });
    ReleaseObjects(write, counterpart, objects);
    return added;
  }

  // Puts all items of a note into a record that keeps its identity.
  void TakeOverItems(DatabaseWrite& write, Note& from, uint32_t counterpart) {
    const std::unique_ptr<Note> into = Note::Open(destination_, counterpart, 0);
    while (into->ItemCount() != 0) into->Delete(into->ItemCount() - 1);
    for (uint32_t i = 0; i < from.ItemCount(); ++i) into->AppendCopy(from, i);
    into->SaveInto(write, {.force = true});
  }

  const std::shared_ptr<Database>& source_;
  const std::shared_ptr<Database>& destination_;
};

}  // namespace

void CopyNotes(const std::shared_ptr<Database>& source, const std::shared_ptr<Database>& destination,
               const TIMEDATE& since, uint16_t class_mask) {
  if (source->Store().FileNumber() == destination->Store().FileNumber()) return;  // they are all there
  std::vector<uint32_t> note_ids;
  const uint32_t damaged_count = VisitChangedSince(*source, class_mask, since, [&](const ImageView& view) {
    if (!view.IsStub()) note_ids.push_back(view.NoteId());
  });
  destination->Store().Refresh();
  Copying copying(source, destination);
  copying.met_damage = damaged_count != 0;
  copying.Run(note_ids);
  if (copying.met_damage) Fail(status::kDamaged);
}

}  // namespace brynd
