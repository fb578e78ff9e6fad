#include "note/note.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "base/time.h"
#include "engine/note_fixture.h"
#include "engine/test_random.h"

using namespace brynd;

namespace {

class FixedClock : public Clock {
 public:
  int64_t UnixNanoseconds() override { return nanoseconds; }
  uint64_t MonotonicNanoseconds() override { return SystemClock().MonotonicNanoseconds(); }
  void SleepMilliseconds(uint32_t milliseconds) override { SystemClock().SleepMilliseconds(milliseconds); }
  int64_t nanoseconds = 1'700'000'000'000'000'000;
};

class NoteTest : public NoteFixture {};

TEST_F(NoteTest, EngNoteUpdate_NewNote_LearnsIdSequenceAndTimes) {
  FixedClock clock;
  SeamGuard seam(Process().clock, &clock);
  const EngNote note = NewNote();
  EXPECT_EQ(0u, IdOf(note));
  ASSERT_EQ(0, AppendText(note, "Subject", "hello"));
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  const uint32_t id = IdOf(note);
  EXPECT_NE(0u, id);
  EXPECT_LT(id, 0x40000000u);
  const ORIGINATORID first = OriginatorOf(note);
  EXPECT_EQ(1u, first.Sequence);
  const TIMEDATE now = clock.Now();
  EXPECT_EQ(0, InstantCompare(now, first.SequenceTime));
  for (const uint16_t member : {4, 8, 13}) {
    TIMEDATE time{};
    EXPECT_EQ(0, EngNoteInfoGet(note, member, &time));
    EXPECT_EQ(0, InstantCompare(now, time)) << member;
  }
  clock.nanoseconds += 5'000'000'000;
  ASSERT_EQ(0, AppendText(note, "More", "x"));
  ASSERT_EQ(0, EngNoteUpdate(note, 0x100)) << "a hint that is wrong is no more than that";
  const ORIGINATORID second = OriginatorOf(note);
  EXPECT_EQ(2u, second.Sequence);
  EXPECT_EQ(0, InstantCompare(clock.Now(), second.SequenceTime));
  EXPECT_TRUE(SameUnid(UnidOf(first), UnidOf(second)));
  TIMEDATE added{};
  EXPECT_EQ(0, EngNoteInfoGet(note, 13, &added));
  EXPECT_EQ(0, InstantCompare(now, added)) << "added once";
  EXPECT_EQ(id, IdOf(note));
  EXPECT_EQ(0, EngNoteClose(note));
}

TEST_F(NoteTest, EngNoteOpen_StoredNote_SameItemsAndHeader) {
  const EngNote note = NewNote();
  ASSERT_EQ(0, AppendText(note, "Subject", "hello"));
  ASSERT_EQ(0, AppendText(note, "subject", "again", 0));
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  const uint32_t id = IdOf(note);
  const ORIGINATORID originator = OriginatorOf(note);
  ASSERT_EQ(0, EngNoteClose(note));
  Reopen();
  const EngNote opened = OpenNote(id);
  EXPECT_EQ("hello", Text(opened, "SUBJECT"));
  EXPECT_TRUE(SameOriginator(originator, OriginatorOf(opened)));
  uint16_t note_class = 0;
  EXPECT_EQ(0, EngNoteInfoGet(opened, 3, &note_class));
  EXPECT_EQ(1, note_class);
  EngDb owner = 0;
  EXPECT_EQ(0, EngNoteInfoGet(opened, 0, &owner));
  EXPECT_EQ(db_, owner);
  EXPECT_EQ(0, EngNoteClose(opened));
}

TEST_F(NoteTest, EngNoteUpdate_LazyMany_OwnHandleSeesThemAndCloseBringsThemToDisk) {
  std::vector<uint32_t> ids;
  for (int i = 0; i < 300; ++i) ids.push_back(StoreText("N" + std::to_string(i % 7), std::to_string(i), 4));
  for (size_t i = 1; i < ids.size(); ++i) EXPECT_GT(ids[i], ids[i - 1]);
  const EngNote first = OpenNote(ids[0]);
  EXPECT_EQ("0", Text(first, "n0"));
  ASSERT_EQ(0, EngNoteClose(first));
  Reopen();
  for (size_t i = 0; i < ids.size(); ++i) {
    const EngNote note = OpenNote(ids[i]);
    EXPECT_EQ(std::to_string(i), Text(note, "N" + std::to_string(i % 7)));
    ASSERT_EQ(0, EngNoteClose(note));
  }
}

TEST_F(NoteTest, EngNoteUpdate_ChangedMeanwhile_ConflictUnlessForced) {
  const uint32_t id = StoreText("A", "1");
  const EngNote mine = OpenNote(id), theirs = OpenNote(id);
  ASSERT_EQ(0, AppendText(theirs, "B", "theirs"));
  ASSERT_EQ(0, EngNoteUpdate(theirs, 0));
  ASSERT_EQ(0, AppendText(mine, "C", "mine"));
  const ORIGINATORID before = OriginatorOf(mine);
  EXPECT_EQ(status::kConflict, EngNoteUpdate(mine, 0));
  EXPECT_TRUE(SameOriginator(before, OriginatorOf(mine))) << "a failed update changes nothing";
  EXPECT_EQ(status::kConflict, EngNoteUpdate(mine, 0x100));
  EXPECT_EQ(0, EngNoteUpdate(mine, 0x11));
  EXPECT_EQ(3u, OriginatorOf(mine).Sequence);
  const EngNote result = OpenNote(id);
  EXPECT_EQ("mine", Text(result, "C"));
  EXPECT_EQ("<none>", Text(result, "B"));
  for (const EngNote note : {mine, theirs, result}) EXPECT_EQ(0, EngNoteClose(note));
}

TEST_F(NoteTest, EngNoteUpdate_TwiceByOneHandle_NoConflictWithItself) {
  const EngNote note = NewNote();
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(0, AppendText(note, "A", std::to_string(i)));
    ASSERT_EQ(0, EngNoteUpdate(note, i == 1 ? 4 : 0));
  }
  EXPECT_EQ(3u, OriginatorOf(note).Sequence);
  EXPECT_EQ(0, EngNoteClose(note));
}

TEST_F(NoteTest, EngNoteDelete_StoredNote_StubStaysAndIdIsGone) {
  const uint32_t id = StoreText("A", "1");
  ORIGINATORID originator{};
  ASSERT_EQ(0, EngDbIdInfoGet(db_, id, &originator, nullptr, nullptr));
  const EngNote open = OpenNote(id);
  ASSERT_EQ(0, EngNoteDelete(db_, id, 0x200));
  EngNote note = 77;
  EXPECT_EQ(status::kNoNote, EngNoteOpen(db_, id, 0, &note));
  EXPECT_EQ(77u, note) << "outputs are left alone";
  EXPECT_EQ(status::kNoNote, EngNoteDelete(db_, id, 0));
  EXPECT_EQ(status::kNoNote, EngDbIdInfoGet(db_, id, nullptr, nullptr, nullptr));
  uint32_t found = 0;
  const UNIVERSALNOTEID unid = UnidOf(originator);
  EXPECT_EQ(status::kNoNote, EngDbUnidInfoGet(db_, &unid, &found, nullptr, nullptr, nullptr));
  bool stub = false;
  EXPECT_TRUE(Owner().VisitNote(id, [&](const ImageView& view) {
    stub = view.IsStub();
    EXPECT_EQ(originator.Sequence + 1, view.Image().Sequence());
    EXPECT_TRUE(SameUnid(unid, view.Image().Unid()));
  }));
  EXPECT_TRUE(stub);
  EXPECT_EQ(id, Owner().FindUnid(unid, true));
  EXPECT_EQ(status::kNoteDeleted, EngNoteUpdate(open, 0));
  EXPECT_EQ(0, EngNoteClose(open));
  EXPECT_GT(StoreText("B", "2"), id) << "ids are never used again";
}

TEST_F(NoteTest, EngNoteUpdate_ForcedOnDeletedNote_StoredAboveTheStub) {
  const uint32_t id = StoreText("A", "1");
  const EngNote open = OpenNote(id);
  ASSERT_EQ(0, EngNoteDelete(db_, id, 4));
  EXPECT_EQ(0, EngNoteUpdate(open, 1));
  EXPECT_EQ(3u, OriginatorOf(open).Sequence);
  EXPECT_EQ(0, EngNoteClose(open));
  const EngNote again = OpenNote(id);
  EXPECT_EQ("1", Text(again, "A"));
  EXPECT_EQ(0, EngNoteClose(again));
}

TEST_F(NoteTest, EngNoteOpen_SummaryOnly_OthersHiddenAndKeptByUpdate) {
  const EngNote note = NewNote();
  ASSERT_EQ(0, AppendText(note, "Summary", "s", 4));
  ASSERT_EQ(0, AppendText(note, "Body", "b", 0));
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  const uint32_t id = IdOf(note);
  ASSERT_EQ(0, EngNoteClose(note));
  const EngNote summary = OpenNote(id, 0xb);
  EXPECT_EQ("s", Text(summary, "Summary"));
  EXPECT_EQ("<none>", Text(summary, "Body"));
  ASSERT_EQ(0, EngItemTextSet(summary, "Summary", "t", 0xffff));
  ASSERT_EQ(0, EngNoteUpdate(summary, 1));
  ASSERT_EQ(0, EngNoteClose(summary));
  const EngNote whole = OpenNote(id);
  EXPECT_EQ("t", Text(whole, "Summary"));
  EXPECT_EQ("b", Text(whole, "Body"));
  ASSERT_EQ(0, EngNoteClose(whole));
}

TEST_F(NoteTest, EngNoteUpdate_LargeValues_LieOutsideAndAreLoadedWhenAskedFor) {
  for (const uint32_t bytes : {16382u, 16383u, 60000u, 65535u, 300000u}) {
    std::string large(bytes, 'x');
    for (size_t i = 0; i < large.size(); ++i) large[i] = static_cast<char>('a' + (i * i) % 26);
    const uint32_t id = StoreText("Large", large);
    bool external = false;
    Owner().VisitNote(id, [&](const ImageView& view) { external = view.Image().ExternalCount() != 0; });
    EXPECT_EQ(bytes + 2 > kInlineValueBytesMax, external) << bytes;
    const EngNote note = OpenNote(id);
    EXPECT_EQ(large, Text(note, "Large")) << bytes;
    ASSERT_EQ(0, EngNoteClose(note));
  }
}

uint32_t CountValueRecords(Database& database) {
  uint32_t count = 0;
  database.Store().ScanRecords(space::kValues, {}, std::nullopt, [&](Bytes, Bytes) {
    ++count;
    return true;
  });
  return count;
}

TEST_F(NoteTest, EngNoteUpdate_LargeValueUnchanged_RecordStaysReplacedGoes) {
  const std::string large(40000, 'x'), other(40000, 'y');
  const EngNote note = NewNote();
  ASSERT_EQ(0, AppendText(note, "Large", large, 0));
  ASSERT_EQ(0, AppendText(note, "Second", other, 0));
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  EXPECT_EQ(2u, CountValueRecords(Owner()));
  const uint32_t id = IdOf(note);
  ASSERT_EQ(0, EngNoteClose(note));

  const EngNote again = OpenNote(id);  // values are not loaded and stay where they are
  ASSERT_EQ(0, AppendText(again, "Small", "s"));
  ASSERT_EQ(0, EngNoteUpdate(again, 0));
  EXPECT_EQ(2u, CountValueRecords(Owner()));
  ASSERT_EQ(0, EngItemDelete(again, "Large", 5));
  ASSERT_EQ(0, AppendText(again, "Large", "short"));
  ASSERT_EQ(0, EngNoteUpdate(again, 0));
  EXPECT_EQ(1u, CountValueRecords(Owner()));
  ASSERT_EQ(0, EngNoteClose(again));
  const EngNote result = OpenNote(id);
  EXPECT_EQ("short", Text(result, "Large"));
  EXPECT_EQ(other, Text(result, "Second"));
  ASSERT_EQ(0, EngNoteClose(result));
  ASSERT_EQ(0, EngNoteDelete(db_, id, 0));
  EXPECT_EQ(0u, CountValueRecords(Owner()));
}

TEST_F(NoteTest, EngItemInfo_LargeValueReplacedMeanwhile_Conflict) {
  const uint32_t id = StoreText("Large", std::string(40000, 'x'));
  const EngNote mine = OpenNote(id), theirs = OpenNote(id);
  ASSERT_EQ(0, EngItemTextSet(theirs, "Large", std::string(40000, 'y').c_str(), 40000));
  ASSERT_EQ(0, EngNoteUpdate(theirs, 0));
  BLOCKID value{};
  EXPECT_EQ(status::kConflict, EngItemInfo(mine, "Large", 5, nullptr, nullptr, &value, nullptr));
  EXPECT_EQ(status::kConflict, EngNoteUpdate(mine, 1)) << "what is lost cannot be stored";
  EXPECT_EQ(0, EngNoteClose(mine));
  EXPECT_EQ(0, EngNoteClose(theirs));
  const EngNote result = OpenNote(id);
  EXPECT_EQ(std::string(40000, 'y'), Text(result, "Large"));
  EXPECT_EQ(0, EngNoteClose(result));
}

TEST_F(NoteTest, EngNoteOpen_ImageBeyond64K_AllValuesAddressable) {
  const EngNote note = NewNote();
  for (int i = 0; i < 40; ++i)
    ASSERT_EQ(0, AppendText(note, "I" + std::to_string(i), std::string(9000, char('a' + i % 26))));
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  const uint32_t id = IdOf(note);
  ASSERT_EQ(0, EngNoteClose(note));
  const EngNote opened = OpenNote(id);
  for (int i = 0; i < 40; ++i)
    EXPECT_EQ(std::string(9000, char('a' + i % 26)), Text(opened, "i" + std::to_string(i)));
  ASSERT_EQ(0, AppendText(opened, "New", "n"));
  ASSERT_EQ(0, EngNoteUpdate(opened, 0));
  ASSERT_EQ(0, EngNoteClose(opened));
  const EngNote again = OpenNote(id);
  EXPECT_EQ("n", Text(again, "new"));
  EXPECT_EQ(std::string(9000, 'b'), Text(again, "i27"));
  ASSERT_EQ(0, EngNoteClose(again));
}

TEST_F(NoteTest, EngNoteCopy_ToAnotherDatabase_IsANewDocumentThere) {
  ASSERT_EQ(0, EngDbCreate("other", 0, 0, 0, 0, 0));
  EngDb other = 0;
  ASSERT_EQ(0, EngDbOpen("other", &other));
  // The other database knows other names under the same numbers.
  EngNote filler = 0;
  ASSERT_EQ(0, EngNoteCreate(other, &filler));
  for (const char* name : {"X", "Y", "Z"}) ASSERT_EQ(0, AppendText(filler, name, "f"));
  ASSERT_EQ(0, EngNoteUpdate(filler, 0));
  ASSERT_EQ(0, EngNoteClose(filler));

  const std::string large(30000, 'q');
  const EngNote source = NewNote();
  ASSERT_EQ(0, AppendText(source, "Subject", "s"));
  ASSERT_EQ(0, AppendText(source, "Large", large, 0));
  ASSERT_EQ(0, EngNoteUpdate(source, 0));
  const uint32_t source_id = IdOf(source);
  ASSERT_EQ(0, EngNoteClose(source));

  const EngNote opened = OpenNote(source_id);
  EngNote copy = 0;
  ASSERT_EQ(0, EngNoteCopy(opened, &copy));
  EXPECT_EQ(source_id, IdOf(copy));
  EXPECT_TRUE(SameOriginator(OriginatorOf(opened), OriginatorOf(copy)));
  ASSERT_EQ(0, EngNoteClose(opened));
  ORIGINATORID fresh{};
  ASSERT_EQ(0, EngDbOidGenerate(other, &fresh));
  const uint32_t none = 0;
  ASSERT_EQ(0, EngNoteInfoSet(copy, 2, &fresh));
  ASSERT_EQ(0, EngNoteInfoSet(copy, 1, &none));
  ASSERT_EQ(0, EngNoteInfoSet(copy, 0, &other));
  ASSERT_EQ(0, EngNoteUpdate(copy, 0));
  const ORIGINATORID stored = OriginatorOf(copy);
  EXPECT_TRUE(SameUnid(UnidOf(fresh), UnidOf(stored)));
  EXPECT_EQ(1u, stored.Sequence);
  const uint32_t copy_id = IdOf(copy);
  ASSERT_EQ(0, EngNoteClose(copy));

  uint32_t found = 0;
  const UNIVERSALNOTEID unid = UnidOf(fresh);
  EXPECT_EQ(0, EngDbUnidInfoGet(other, &unid, &found, nullptr, nullptr, nullptr));
  EXPECT_EQ(copy_id, found);
  EXPECT_EQ(status::kNoNote, EngDbUnidInfoGet(db_, &unid, &found, nullptr, nullptr, nullptr));
  ASSERT_EQ(0, EngDbClose(other));
  ASSERT_EQ(0, EngDbOpen("other", &other));
  EngNote result = 0;
  ASSERT_EQ(0, EngNoteOpen(other, copy_id, 0, &result));
  EXPECT_EQ("s", Text(result, "subject"));
  EXPECT_EQ(large, Text(result, "large"));
  EXPECT_EQ("<none>", Text(result, "X"));
  ASSERT_EQ(0, EngNoteClose(result));
  ASSERT_EQ(0, EngDbClose(other));
}

TEST_F(NoteTest, EngDbUnidInfoGet_MintedHere_NoRowInTheIndex) {
  const uint32_t id = StoreText("A", "1");
  ORIGINATORID originator{};
  TIMEDATE modified{};
  uint16_t note_class = 0;
  ASSERT_EQ(0, EngDbIdInfoGet(db_, id, &originator, &modified, &note_class));
  const UNIVERSALNOTEID unid = UnidOf(originator);
  EXPECT_EQ(id, Database::DerivedNoteId(unid));
  EXPECT_EQ(0u, Owner().Store().FindUnid(UnidKey(unid)));
  uint32_t found = 0;
  ORIGINATORID again{};
  EXPECT_EQ(0, EngDbUnidInfoGet(db_, &unid, &found, &again, nullptr, &note_class));
  EXPECT_EQ(id, found);
  EXPECT_TRUE(SameOriginator(originator, again));
  EXPECT_EQ(1, note_class);
  UNIVERSALNOTEID near = unid;
  near.Note.Innards[1] ^= 1;
  EXPECT_EQ(status::kNoNote, EngDbUnidInfoGet(db_, &near, &found, nullptr, nullptr, nullptr));
}

TEST_F(NoteTest, EngNoteInfoGet_OriginatorAskedForBeforeTheFirstUpdate_Kept) {
  const EngNote note = NewNote();
  const ORIGINATORID early = OriginatorOf(note);
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  EXPECT_TRUE(SameUnid(UnidOf(early), UnidOf(OriginatorOf(note))));
  const UNIVERSALNOTEID unid = UnidOf(early);
  uint32_t found = 0;
  EXPECT_EQ(0, EngDbUnidInfoGet(db_, &unid, &found, nullptr, nullptr, nullptr));
  EXPECT_EQ(IdOf(note), found);
  // Another universal id: the former row goes.
  ORIGINATORID other{};
  ASSERT_EQ(0, EngDbOidGenerate(db_, &other));
  ASSERT_EQ(0, EngNoteInfoSet(note, 2, &other));
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  EXPECT_EQ(status::kNoNote, EngDbUnidInfoGet(db_, &unid, &found, nullptr, nullptr, nullptr));
  const UNIVERSALNOTEID other_unid = UnidOf(other);
  EXPECT_EQ(0, EngDbUnidInfoGet(db_, &other_unid, &found, nullptr, nullptr, nullptr));
  EXPECT_EQ(2u, OriginatorOf(note).Sequence);
  EXPECT_EQ(0, EngNoteClose(note));
}

TEST_F(NoteTest, EngNoteInfoSet_Members_StoredWithTheNextUpdate) {
  const EngNote note = NewNote();
  const uint16_t note_class = 4, flags = 3;
  ASSERT_EQ(0, EngNoteInfoSet(note, 3, &note_class));
  ASSERT_EQ(0, EngNoteInfoSet(note, 7, &flags));
  EXPECT_EQ(status::kBadMember, EngNoteInfoSet(note, 4, &flags));
  EXPECT_EQ(status::kBadMember, EngNoteInfoGet(note, 14, &const_cast<uint16_t&>(flags)));
  EXPECT_EQ(status::kBadArgument, EngNoteInfoGet(note, 1, nullptr));
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  const EngNote opened = OpenNote(IdOf(note));
  uint16_t read = 0;
  EXPECT_EQ(0, EngNoteInfoGet(opened, 3, &read));
  EXPECT_EQ(4, read);
  EXPECT_EQ(0, EngNoteInfoGet(opened, 7, &read));
  EXPECT_EQ(3, read);
  EXPECT_EQ(0, EngNoteClose(opened));
  EXPECT_EQ(0, EngNoteClose(note));
}

TEST_F(NoteTest, EngNoteInfoGet_ParentAndResponses_FromTheReference) {
  const uint32_t parent_id = StoreText("A", "parent");
  ORIGINATORID parent{};
  ASSERT_EQ(0, EngDbIdInfoGet(db_, parent_id, &parent, nullptr, nullptr));
  const EngNote child = NewNote();
  std::vector<std::byte> reference(18);
  StoreU16(reference.data(), 1);
  std::memcpy(reference.data() + 2, &parent, 16);
  ASSERT_EQ(0, EngItemAppend(child, 4, "$REF", 4, 4, reference.data(), 18));
  ASSERT_EQ(0, EngNoteUpdate(child, 0));
  uint32_t value = 0;
  EXPECT_EQ(0, EngNoteInfoGet(child, 10, &value));
  EXPECT_EQ(parent_id, value);
  const EngNote opened = OpenNote(parent_id);
  EXPECT_EQ(0, EngNoteInfoGet(opened, 11, &value));
  EXPECT_EQ(1u, value);
  EXPECT_EQ(0, EngNoteInfoGet(opened, 10, &value));
  EXPECT_EQ(0u, value);
  EXPECT_EQ(0, EngNoteClose(opened));
  EXPECT_EQ(0, EngNoteClose(child));
}

TEST_F(NoteTest, EngNoteSignStateGet_TellsByItems) {
  const EngNote note = NewNote();
  int32_t is_signed = 7, is_sealed = 7;
  EXPECT_EQ(0, EngNoteSignStateGet(note, &is_signed, &is_sealed));
  EXPECT_EQ(0, is_signed);
  EXPECT_EQ(0, is_sealed);
  ASSERT_EQ(0, AppendText(note, "$Seal", "x"));
  EXPECT_NE(0, EngNoteSignStateGet(note, &is_signed, &is_sealed));
  EXPECT_EQ(0, is_signed);
  EXPECT_EQ(1, is_sealed);
  EXPECT_EQ(0, EngNoteClose(note));
  EXPECT_EQ(0, EngNoteSignStateGet(note, &is_signed, &is_sealed));
}

TEST_F(NoteTest, EveryCall_BadHandle_StatusAndNoCrash) {
  const EngNote closed = NewNote();
  ASSERT_EQ(0, EngNoteClose(closed));
  uint32_t id = 0;
  for (const EngNote bad : {closed, EngNote{1}, EngNote{db_}, EngNote{0xffffffff}}) {
    EXPECT_EQ(status::kBadHandle, EngNoteClose(bad));
    EXPECT_EQ(status::kBadHandle, EngNoteUpdate(bad, 0));
    EXPECT_EQ(status::kBadHandle, EngNoteInfoGet(bad, 1, &id));
    EXPECT_EQ(status::kBadHandle, EngNoteInfoSet(bad, 1, &id));
    EXPECT_EQ(status::kBadHandle, EngNoteCopy(bad, &id));
    EXPECT_EQ(status::kBadHandle, AppendText(bad, "A", "x"));
    EXPECT_EQ(status::kBadHandle, EngItemDelete(bad, "A", 1));
  }
  EngNote note = 0;
  EXPECT_EQ(status::kBadHandle, EngNoteOpen(closed, 1, 0, &note));
  EXPECT_EQ(status::kBadHandle, EngNoteCreate(0, &note));
  EXPECT_EQ(status::kBadHandle, EngNoteDelete(0, 1, 0));
  EXPECT_EQ(status::kBadArgument, EngNoteOpen(db_, 1, 0, nullptr));
  EXPECT_EQ(status::kBadArgument, EngNoteCreate(db_, nullptr));
  EXPECT_EQ(0, EngNoteClose(0));
  for (const uint32_t missing : {0u, 999u, 0x40000000u, 0xffff0004u, 0xffffffffu}) {
    EXPECT_EQ(status::kNoNote, EngNoteOpen(db_, missing, 0, &note)) << missing;
    EXPECT_EQ(status::kNoNote, EngNoteDelete(db_, missing, 0)) << missing;
  }
}

TEST_F(NoteTest, EngDbClose_WithOpenNotes_TheirHandlesGoBad) {
  const uint32_t id = StoreText("A", "1");
  const EngNote note = OpenNote(id), fresh = NewNote();
  ASSERT_EQ(0, AppendText(fresh, "B", "2"));
  Reopen();
  EXPECT_EQ(status::kBadHandle, EngNoteUpdate(note, 0));
  EXPECT_EQ(status::kBadHandle, EngNoteClose(fresh));
}

TEST_F(NoteTest, Open_DatabaseClosedWhileANoteLives_BadHandleNotACrash) {
  ASSERT_EQ(0, EngDbCreate("closing", 0, 0, 0, 0, 0));
  EngDb handle = 0;
  ASSERT_EQ(0, EngDbOpen("closing", &handle));
  const std::shared_ptr<Database> database = FindDatabase(handle);
  const std::unique_ptr<Note> note = Note::Create(database);
  ASSERT_EQ(0, EngDbClose(handle));
  note->Append("A", 0, BRTYPE_TEXT, BytesOf("still here"));
  EXPECT_EQ(0u, note->Find("a"));
  EXPECT_THROW(note->Save({}), Failure);
}

TEST_F(NoteTest, EngNoteUpdate_TwoHandlesBringNames_BothReadBoth) {
  EngDb second = 0;
  ASSERT_EQ(0, EngDbReopen(db_, &second));
  std::vector<uint32_t> ids;
  for (int i = 0; i < 20; ++i) {
    EngNote note = 0;
    ASSERT_EQ(0, EngNoteCreate(i % 2 == 0 ? db_ : second, &note));
    ASSERT_EQ(0, AppendText(note, (i % 2 == 0 ? "even" : "odd") + std::to_string(i), std::to_string(i)));
    ASSERT_EQ(0, AppendText(note, i % 2 == 0 ? "Shared" : "SHARED", "s"));
    ASSERT_EQ(0, EngNoteUpdate(note, 0));
    ids.push_back(IdOf(note));
    ASSERT_EQ(0, EngNoteClose(note));
  }
  for (const EngDb reader : {db_, second}) {
    for (int i = 0; i < 20; ++i) {
      EngNote note = 0;
      ASSERT_EQ(0, EngNoteOpen(reader, ids[static_cast<size_t>(i)], 0, &note));
      EXPECT_EQ(std::to_string(i), Text(note, (i % 2 == 0 ? "Even" : "Odd") + std::to_string(i)));
      EXPECT_EQ("s", Text(note, "shared"));
      ASSERT_EQ(0, EngNoteClose(note));
    }
  }
  ASSERT_EQ(0, EngDbClose(second));
}

TEST_F(NoteTest, EngNoteOpen_DamagedImage_DamagedAndNothingElseHurt) {
  const uint32_t id = StoreText("A", "1"), good = StoreText("B", "2");
  std::vector<std::byte> image;
  Owner().Store().ReadNote(id, [&](Bytes stored) { image.assign(stored.begin(), stored.end()); });
  for (size_t at = 0; at < image.size(); at += 3) {
    std::vector<std::byte> broken = image;
    broken[at] ^= std::byte{0x40};
    {
      store::Write write = Owner().Store().BeginWrite();
      write.PutNote(id, broken);
      write.Commit(store::Durability::kLazy);
    }
    EngNote note = 0;
    EXPECT_EQ(status::kDamaged, EngNoteOpen(db_, id, 0, &note)) << at;
    EXPECT_EQ(status::kDamaged, EngNoteDelete(db_, id, 0)) << at;
  }
  const EngNote note = OpenNote(good);
  EXPECT_EQ("2", Text(note, "B"));
  EXPECT_EQ(0, EngNoteClose(note));
}

TEST_F(NoteTest, Save_AgainstAModel_RandomEdits) {
  TestRandom random(SeedOfRun());
  using Items = std::vector<std::pair<std::string, std::string>>;
  std::map<uint32_t, Items> model;
  std::vector<uint32_t> ids;
  for (int round = 0; round < 400; ++round) {
    const bool fresh = ids.empty() || random.Below(4) == 0;
    const uint32_t id = fresh ? 0 : ids[random.Below(static_cast<uint32_t>(ids.size()))];
    const EngNote note = fresh ? NewNote() : OpenNote(id);
    Items items = fresh ? Items() : model[id];
    for (uint32_t edit = random.Below(6); edit > 0; --edit) {
      const std::string name = "Item" + std::to_string(random.Below(10));
      if (random.Below(3) == 0) {
        const auto first = std::ranges::find(items, name, &Items::value_type::first);
        EXPECT_EQ(first == items.end() ? status::kNoItem : 0, EngItemDelete(note, name.data(), 5));
        if (first != items.end()) items.erase(first);
      } else {
        const std::string text(random.Below(random.Below(10) == 0 ? 50000 : 100),
                               static_cast<char>('a' + random.Below(26)));
        ASSERT_EQ(0, AppendText(note, name, text));
        items.emplace_back(name, text);
      }
    }
    ASSERT_EQ(0, EngNoteUpdate(note, random.Below(2) == 0 ? 4 : 0));
    if (fresh) ids.push_back(IdOf(note));
    model[IdOf(note)] = items;
    ASSERT_EQ(0, EngNoteClose(note));
    if (random.Below(60) == 0) Reopen();
  }
  for (const auto& [id, items] : model) {
    const EngNote note = OpenNote(id);
    Note& opened = FindNote(note);
    ASSERT_EQ(items.size(), opened.ItemCount());
    for (uint32_t i = 0; i < items.size(); ++i) {
      EXPECT_EQ(items[i].first, opened.NameOf(i));
      EXPECT_EQ(items[i].second, TextOf(opened.Value(i).subspan(2)));
    }
    ASSERT_EQ(0, EngNoteClose(note));
  }
}

}  // namespace
