// Storing and deleting notes: what one write of a note comprises.
#include <algorithm>
#include <array>
#include <optional>

#include "base/process.h"
#include "base/time.h"
#include "note/design_index.h"
#include "note/note.h"
#include "note/object.h"

namespace brynd {

namespace {

// What lies in the store under the note's id, as far as the write needs it.
struct StoredNote {
  NoteHeader header;
  uint32_t checksum = 0;
  std::vector<uint32_t> externals;  // numbers of its external values, rising or not
  ObjectSet objects;
};

std::optional<StoredNote> ReadStored(Database& database, uint32_t note_id) {
  std::optional<StoredNote> stored;
  database.VisitNote(note_id, [&](const ImageView& view) {
    stored.emplace();
    stored->header = view.Image().Header();
    stored->checksum = view.Image().Checksum();
    stored->objects = ObjectsOf(view.Image());
    if (view.Image().ExternalCount() == 0) return;
    NoteImage::Cursor cursor = view.Image().Items();
    for (ImageItem item; cursor.Next(&item);) {
      if (item.external != 0) stored->externals.push_back(item.external);
    }
  });
  return stored;
}

bool IsUnset(const TIMEDATE& time) noexcept { return time.Innards[0] == 0 && time.Innards[1] == 0; }
bool IsData(uint16_t note_class) noexcept { return (note_class & BRCLASS_ALL) == BRCLASS_DATA; }

ImageBuilder& Builder() {
  thread_local ImageBuilder builder;
  return builder;
}

}  // namespace

// The steps of one save. Nothing of the note changes before Saved.
class NoteSaver {
 public:
  NoteSaver(Note& note, DatabaseWrite& write, const Note::SaveOptions& options)
      : note_(note), write_(write), options_(options), pending_(note.pending_) {}

  void Run() {
    pending_.header = note_.header_;
    pending_.externals.clear();
    if (note_.IsNew()) {
      pending_.header.note_id = write_.Records().NewNoteId();
    } else {
      stored_ = ReadStored(note_.Owner(), note_.header_.note_id);
      CheckStored();
    }
    SettleHeader();
    const Bytes image = BuildImage();
    pending_.checksum = LoadU32(image.data());
    write_.Records().PutNote(pending_.header.note_id, image);
    if (stored_) RemoveLostExternals();
    CountObjects();
    IndexUnid();
    IndexDesign();
    if (!CountsAsData(pending_.header.note_class)) Database::StampOther(write_, pending_.header.modified);
  }

 private:
  void CheckStored() const {
    const bool gone = !stored_ || stored_->header.form == NoteForm::kStub;
    if (gone && (!stored_ || !options_.force)) Fail(status::kNoteDeleted);
    if (options_.force) return;
    if (stored_->checksum != note_.stored_checksum_) Fail(status::kConflict);
    if (stored_->header.originator.Sequence != note_.stored_sequence_) Fail(status::kConflict);
  }

  void SettleHeader() {
    NoteHeader& header = pending_.header;
    const TIMEDATE now = Process().clock->Now();
    header.form = NoteForm::kNote;
    ORIGINATORID& originator = header.originator;
    if (!note_.has_originator_) {
      const UNIVERSALNOTEID unid = note_.Owner().MintUnid(header.note_id);
      originator.File = unid.File;
      originator.Note = unid.Note;
    }
    if (!options_.keep_originator) {
      const uint32_t stored_sequence = stored_ ? stored_->header.originator.Sequence : 0;
      const uint32_t least =
          stored_ ? std::max(originator.Sequence, stored_sequence) + 1 : originator.Sequence;
      originator.Sequence = std::max<uint32_t>(least, 1);
      originator.SequenceTime = now;
    }
    if (IsUnset(header.created)) header.created = now;
    if (IsUnset(header.added)) header.added = now;
    header.modified = header.accessed = now;
    if (stored_) header.next_external = std::max(header.next_external, stored_->header.next_external);
  }

  // Whether the value's record in the store can go on serving the item.
  bool KeepsExternal(const Note::Item& item) const {
    if (item.external == 0 || note_.source_id_ != pending_.header.note_id || !stored_) return false;
    return std::ranges::find(stored_->externals, item.external) != stored_->externals.end();
  }

  uint32_t ExternalNumber(uint32_t index) {
    const Note::Item& item = note_.items_[index];
    if (KeepsExternal(item)) return item.external;
    const uint32_t number = pending_.header.next_external++;
    if (number == 0xffffffff) Fail(status::kNoteTooLarge);
    note_.Owner().StoreExternal(write_, pending_.header.note_id, number, note_.Value(index));
    return number;
  }

  Bytes BuildImage() {
    ImageBuilder::Sizes sizes;
    sizes.item_count = note_.ItemCount();
    for (const Note::Item& item : note_.items_) {
      if (item.length > kInlineValueBytesMax)
        ++sizes.external_count;
      else
        sizes.inline_bytes += item.length;
    }
    ImageBuilder& builder = Builder();
    if (!builder.Begin(sizes)) Fail(status::kNoteTooLarge);
    const uint32_t count = sizes.item_count;
    for (uint32_t index = 0; index < count;) {
      const Note::Item& item = note_.items_[index];
      if (item.length > kInlineValueBytesMax) {
        const uint32_t number = ExternalNumber(index);
        pending_.externals.emplace_back(index, number);
        builder.SetItem(index, write_.NameId(item.name), item.flags, kExternalLengthWord);
        builder.AddExternal(index, item.type, item.length, number);
        ++index;
      } else {
        index = AddRun(builder, index);
      }
    }
    return builder.Finish(pending_.header);
  }

  // Adds the items from `index` on whose values lie one behind the other in memory; returns the first one
  // that does not.
  uint32_t AddRun(ImageBuilder& builder, uint32_t index) {
    note_.Load(index);
    const uint32_t count = note_.ItemCount();
    const Note::Item& first = note_.items_[index];
    uint32_t end = first.offset;
    for (; index < count; ++index) {
      const Note::Item& item = note_.items_[index];
      if (item.block != first.block || item.offset != end || item.length > kInlineValueBytesMax) break;
      builder.SetItem(index, write_.NameId(item.name), item.flags, static_cast<uint16_t>(item.length));
      end += item.length;
    }
    const MutableBytes block = memory::FindBytes(note_.blocks_[first.block].handle);
    if (end > block.size()) Fail(status::kBadHandle);
    const size_t run_bytes = end - first.offset;
    CopyBytes(builder.AddValues(run_bytes), block.data() + first.offset, run_bytes);
    return index;
  }

  void CountObjects() {
    ObjectSet objects;
    for (uint32_t index = 0; index < note_.ItemCount(); ++index)
      if (note_.items_[index].type == BRTYPE_OBJECT)
        AddObject(&objects, ObjectOf(BRTYPE_OBJECT, note_.Value(index)));
    ChangeObjectUses(write_, pending_.header.note_id, stored_ ? stored_->objects : ObjectSet(), objects);
  }

  void RemoveLostExternals() {
    for (const uint32_t number : stored_->externals) {
      const bool kept =
          std::ranges::any_of(pending_.externals, [&](const auto& pair) { return pair.second == number; });
      if (!kept) Database::RemoveExternal(write_, pending_.header.note_id, number);
    }
  }

  // Only universal ids that do not lead to the note by themselves have a row.
  void IndexUnid() {
    const UNIVERSALNOTEID unid = UnidOf(pending_.header.originator);
    const uint32_t note_id = pending_.header.note_id;
    if (stored_) {
      const UNIVERSALNOTEID former = UnidOf(stored_->header.originator);
      if (SameUnid(unid, former)) return;
      if (Database::DerivedNoteId(former) != note_id) write_.Records().RemoveUnid(UnidKey(former));
    }
    if (Database::DerivedNoteId(unid) != note_id) write_.Records().PutUnid(UnidKey(unid), note_id);
  }

  uint32_t FindAny(std::string_view name) const {
    const NameToken canonical = note_.Owner().Names().Lookup(name);
    for (uint32_t index = 0; index < note_.ItemCount(); ++index) {
      if (note_.Canonical(index) == canonical) return index;
    }
    return Note::kNone;
  }

  void IndexDesign() {
    const uint16_t note_class = pending_.header.note_class;
    if (IsData(note_class)) {
      if (stored_ && !IsData(stored_->header.note_class))
        design_index::Remove(write_, pending_.header.note_id);
      return;
    }
    design_index::Entry entry{pending_.header.note_id, note_class, pending_.header.modified, {}, {}};
    const uint32_t title = FindAny("$TITLE");
    if (title != Note::kNone) entry.names = design_index::NamesOfTitle(note_.Value(title));
    if ((note_class & BRCLASS_PRIVATE) != 0) {
      for (const std::string_view name : {"$Authors", "$Readers", "$UpdatedBy"}) {
        const uint32_t owner = FindAny(name);
        if (entry.owner.empty() && owner != Note::kNone)
          entry.owner = design_index::FirstText(note_.Value(owner));
      }
    }
    design_index::Update(write_, entry);
  }

  Note& note_;
  DatabaseWrite& write_;
  const Note::SaveOptions options_;
  Note::Pending& pending_;
  std::optional<StoredNote> stored_;
};

void Note::SaveInto(DatabaseWrite& write, const SaveOptions& options) {
  NoteSaver(*this, write, options).Run();
}

void Note::Saved() noexcept {
  header_ = pending_.header;
  has_originator_ = true;
  stored_checksum_ = pending_.checksum;
  stored_sequence_ = header_.originator.Sequence;
  source_id_ = header_.note_id;
  for (const auto& [index, number] : pending_.externals) items_[index].external = number;
  modified_ = false;
}

void Note::Save(const SaveOptions& options) {
  DatabaseWrite write(*database_);
  SaveInto(write, options);
  write.Commit(options.durability);
  Saved();
}

// --- deletion

bool DeleteNoteInto(DatabaseWrite& write, uint32_t note_id) {
  bool has_externals = false;
  ObjectSet objects;
  std::optional<NoteHeader> header;
  write.Owner().VisitNote(note_id, [&](const ImageView& view) {
    if (view.IsStub()) return;
    header = view.Image().Header();
    has_externals = view.Image().ExternalCount() != 0;
    objects = ObjectsOf(view.Image());
  });
  if (!header) return false;
  const bool data = IsData(header->note_class);
  const TIMEDATE now = Process().clock->Now();
  header->form = NoteForm::kStub;
  ++header->originator.Sequence;
  header->originator.SequenceTime = now;
  header->modified = header->accessed = now;
  std::array<std::byte, kImageHeaderBytes> image;
  write.Records().PutNote(note_id, BuildStub(*header, image), store::ChangeKind::kDeleted);
  if (has_externals) Database::RemoveAllExternals(write, note_id);
  ReleaseObjects(write, note_id, objects);
  if (!data) design_index::Remove(write, note_id);
  if (!CountsAsData(header->note_class)) Database::StampOther(write, now);
  return true;
}

void DeleteNote(Database& database, uint32_t note_id, store::Durability durability) {
  DatabaseWrite write(database);
  if (!DeleteNoteInto(write, database.PlainNoteId(note_id))) Fail(status::kNoNote);
  write.Commit(durability);
}

}  // namespace brynd
