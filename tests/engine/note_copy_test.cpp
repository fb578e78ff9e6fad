#include <map>
#include <string>

#include "engine/data_fixture.h"
#include "engine/test_random.h"
#include "note/copy.h"
#include "note/object.h"

using namespace brynd;

namespace {

class CopyTest : public DataFixture {
 protected:
  EngStatus Copy(uint16_t class_mask = 0x7fff, const TIMEDATE& since = kWildcardTime) {
    return AtBoundary([&] { CopyNotes(Shared(db_), Shared(other_), since, class_mask); });
  }
  ORIGINATORID OriginatorIn(EngDb db, uint32_t id) {
    ORIGINATORID originator{};
    EXPECT_EQ(0, EngDbIdInfoGet(db, id, &originator, nullptr, nullptr));
    return originator;
  }
  // The note of the other database with that universal id, 0 without one.
  uint32_t Counterpart(uint32_t id) {
    const UNIVERSALNOTEID unid = UnidOf(OriginatorIn(db_, id));
    uint32_t found = 0;
    return EngDbUnidInfoGet(other_, &unid, &found, nullptr, nullptr, nullptr) == 0 ? found : 0;
  }
  std::string TextIn(EngDb db, uint32_t id, std::string_view name) {
    EngNote note = 0;
    EXPECT_EQ(0, EngNoteOpen(db, id, 0, &note));
    const std::string text = Text(note, name);
    EXPECT_EQ(0, EngNoteClose(note));
    return text;
  }
  void Change(EngDb db, uint32_t id, std::string_view name, std::string_view text) {
    EngNote note = 0;
    ASSERT_EQ(0, EngNoteOpen(db, id, 0, &note));
    EngItemDelete(note, name.data(), static_cast<uint16_t>(name.size()));  // there may be none
    ASSERT_EQ(0, AppendText(note, name, text));
    ASSERT_EQ(0, EngNoteUpdate(note, 0));
    ASSERT_EQ(0, EngNoteClose(note));
  }
  static size_t CountNotes(EngDb db) {
    size_t count = 0;
    const auto add = [](void* parameter, const SEARCH_MATCH*, const ITEM_TABLE*) -> EngStatus {
      ++*static_cast<size_t*>(parameter);
      return 0;
    };
    EXPECT_EQ(0, EngDbSearch(db, 0, nullptr, 0, 1, nullptr, add, &count, nullptr));
    return count;
  }
  uint64_t ObjectRecords(Database& database) {
    uint64_t count = 0;
    database.Store().ScanRecords(space::kObjects, {}, std::nullopt,
                                 [&](Bytes, Bytes) { return ++count, true; });
    return count;
  }
  // A note with an object of that content; the note's id.
  uint32_t StoreWithObject(std::string_view content) {
    const uint32_t object = AllocateObject(Owner(), static_cast<uint32_t>(content.size()), 1);
    WriteObject(Owner(), object, 0, BytesOf(content));
    const OBJECT_DESCRIPTOR descriptor{3, object};
    const EngNote note = NewNote();
    EXPECT_EQ(0, EngItemAppend(note, 0, "$LeftToDo", 9, BRTYPE_OBJECT, &descriptor, sizeof descriptor));
    EXPECT_EQ(0, EngNoteUpdate(note, 0));
    const uint32_t id = IdOf(note);
    EXPECT_EQ(0, EngNoteClose(note));
    return id;
  }
  static uint32_t ObjectNamedBy(EngDb db, uint32_t id) {
    EngNote note = 0;
    EXPECT_EQ(0, EngNoteOpen(db, id, 0, &note));
    const std::string value = Text(note, "$LeftToDo");
    EXPECT_EQ(0, EngNoteClose(note));
    EXPECT_EQ(sizeof(OBJECT_DESCRIPTOR), value.size());
    return LoadU32(value.data() + 2);
  }
  static std::string ObjectText(Database& database, uint32_t object) {
    return std::string(TextOf(ReadObject(database, object, 0, kAllBytes).bytes()));
  }
};

TEST_F(CopyTest, CopyNotes_NewNotes_KeepUniversalIdAndSequence) {
  const uint32_t id = StoreText("Title", "one");
  Change(db_, id, "Title", "two");
  const ORIGINATORID original = OriginatorIn(db_, id);
  EXPECT_EQ(2u, original.Sequence);
  ASSERT_EQ(0, Copy());
  const uint32_t copy = Counterpart(id);
  ASSERT_NE(0u, copy);
  EXPECT_TRUE(SameOriginator(original, OriginatorIn(other_, copy)));
  EXPECT_EQ("two", TextIn(other_, copy, "Title"));
  EXPECT_EQ(1u, CountNotes(other_));
  EXPECT_EQ(0, EngDbClose(other_));
  ASSERT_EQ(0, EngDbOpen("other", &other_));
  EXPECT_EQ("two", TextIn(other_, Counterpart(id), "Title"));
}

TEST_F(CopyTest, CopyNotes_NoteThatIsThere_IsReplacedInItsPlace) {
  const uint32_t id = StoreText("Title", "one");
  ASSERT_EQ(0, Copy());
  const uint32_t copy = Counterpart(id);
  Change(other_, copy, "Title", "changed there");
  Change(other_, copy, "Title", "changed again");
  Change(db_, id, "Title", "changed here");
  ASSERT_EQ(0, Copy());
  EXPECT_EQ(copy, Counterpart(id));
  EXPECT_EQ("changed here", TextIn(other_, copy, "Title"));
  EXPECT_TRUE(SameOriginator(OriginatorIn(db_, id), OriginatorIn(other_, copy)));
  ASSERT_EQ(0, EngNoteDelete(other_, copy, 0));
  ASSERT_EQ(0, Copy());
  EXPECT_EQ(copy, Counterpart(id)) << "a deleted one comes back in its place";
  EXPECT_EQ(1u, CountNotes(other_));
}

TEST_F(CopyTest, CopyNotes_RandomDatabase_SameNotesAfterEveryRun) {
  TestRandom random(SeedOfRun());
  std::map<uint32_t, std::string> model;
  for (int round = 0; round < 4; ++round) {
    for (int step = 0; step < 120; ++step) {
      const uint32_t what = random.Below(5);
      if (what < 3 || model.empty()) {
        const std::string text(1 + random.Below(what == 0 ? 40000 : 40),
                               static_cast<char>('a' + random.Below(26)));
        model[StoreText("Title", text, 4)] = text;
      } else {
        const auto at = std::next(model.begin(), random.Below(static_cast<uint32_t>(model.size())));
        Change(db_, at->first, "Title", at->second = "changed " + std::to_string(step));
      }
    }
    ASSERT_EQ(0, Copy(1));
    ASSERT_EQ(model.size(), CountNotes(other_));
    for (const auto& [id, text] : model) ASSERT_EQ(text, TextIn(other_, Counterpart(id), "Title"));
  }
}

TEST_F(CopyTest, CopyNotes_MaskAndSince) {
  SetClock clock;
  const SeamGuard guard(Process().clock, static_cast<Clock*>(&clock));
  const uint32_t early = StoreText("Title", "early"), form = StoreClass(4), priv = StoreClass(0x1008);
  const TIMEDATE since = clock.Pass(10);
  const uint32_t late = StoreText("Title", "late");
  ASSERT_EQ(0, Copy(1, since));
  EXPECT_EQ(0u, Counterpart(early));
  EXPECT_NE(0u, Counterpart(late)) << "changed at that time";
  ASSERT_EQ(0, Copy(0));
  ASSERT_EQ(0, Copy(8));
  EXPECT_EQ(0u, Counterpart(form));
  EXPECT_EQ(0u, Counterpart(priv)) << "private ones only when they are asked for";
  ASSERT_EQ(0, Copy(0x7fff));
  for (const uint32_t id : {early, form, priv, late}) EXPECT_NE(0u, Counterpart(id));
}

TEST_F(CopyTest, CopyNotes_IconTakesOverItems_DesignCollectionStays) {
  const uint32_t icon = Owner().SpecialId(BRCLASS_ICON), other_icon = Other().SpecialId(BRCLASS_ICON);
  Change(db_, icon, "$TITLE", "Title of the source");
  const ORIGINATORID before = OriginatorIn(other_, other_icon);
  const uint32_t design = StoreClass(BRCLASS_DEFAULT | BRCLASS_DESIGN, "$TITLE", "of the source");
  ASSERT_EQ(0, Copy());
  EXPECT_EQ(other_icon, Other().SpecialId(BRCLASS_ICON));
  EXPECT_EQ("Title of the source", TextIn(other_, other_icon, "$TITLE"));
  EXPECT_TRUE(SameUnid(UnidOf(before), UnidOf(OriginatorIn(other_, other_icon))));
  const uint32_t there = Other().SpecialId(BRCLASS_DESIGN);
  EXPECT_EQ(there, Counterpart(design));
  Change(db_, design, "$TITLE", "changed");
  ASSERT_EQ(0, Copy());
  EXPECT_EQ("of the source", TextIn(other_, there, "$TITLE"));
}

TEST_F(CopyTest, CopyNotes_IntoItself_ChangesNothing) {
  const uint32_t id = StoreText("Title", "one");
  const Record before = RawNote(Owner(), id);
  EngDb again = 0;
  ASSERT_EQ(0, EngDbReopen(db_, &again));
  EXPECT_EQ(0, EngDbCopy(db_, db_, nullptr, 0x7fff));
  EXPECT_EQ(0, EngDbCopy(db_, again, nullptr, 0x7fff));
  EXPECT_EQ(0, EngDbClose(again));
  EXPECT_EQ(before, RawNote(Owner(), id));
  EXPECT_EQ(1u, CountNotes(db_));
}

TEST_F(CopyTest, CopyNotes_DamagedNotes_OthersAreCopiedThenDamaged) {
  const uint32_t good = StoreText("Title", "good"), bad = StoreText("Title", "bad");
  const uint32_t hollow = StoreText("Title", std::string(30000, 'x')), last = StoreText("Title", "last");
  PutRawNote(Owner(), bad, BytesOf("damaged"));
  Owner().Store().ScanRecords(space::kValues, {}, std::nullopt, [&](Bytes key, Bytes) {
    PutRaw(Owner(), space::kValues, Record(key.begin(), key.end()), BytesOf("damaged"));
    return false;
  });
  EXPECT_EQ(status::kDamaged, Copy());
  EXPECT_NE(0u, Counterpart(good));
  EXPECT_EQ(0u, Counterpart(hollow));
  EXPECT_EQ("last", TextIn(other_, Counterpart(last), "Title"));
  EXPECT_EQ(2u, CountNotes(other_));
}

TEST_F(CopyTest, CopyNotes_MoreThanOneBatch) {
  for (int i = 0; i < 600; ++i) StoreText("Title", std::to_string(i), 4);
  ASSERT_EQ(0, Copy());
  EXPECT_EQ(600u, CountNotes(other_));
}

TEST_F(CopyTest, CopyNotes_ObjectsComeAlong) {
  AllocateObject(Other(), 10, 1);  // numbers of the two databases differ
  const std::string content(100000, 'o');
  const uint32_t id = StoreWithObject(content);
  ASSERT_EQ(0, Copy());
  const uint32_t copy = Counterpart(id);
  const uint32_t object = ObjectNamedBy(other_, copy);
  EXPECT_NE(ObjectNamedBy(db_, id), object);
  EXPECT_EQ(content, ObjectText(Other(), object));
  const uint64_t records = ObjectRecords(Other());
  WriteObject(Owner(), ObjectNamedBy(db_, id), 0, BytesOf("changed"));
  Change(db_, id, "Title", "changed");
  ASSERT_EQ(0, Copy());
  EXPECT_EQ(records, ObjectRecords(Other())) << "the object of the note that was replaced went with it";
  const std::string changed = ObjectText(Other(), ObjectNamedBy(other_, copy));
  EXPECT_EQ("changed" + content.substr(7), changed);
}

TEST_F(CopyTest, CopyNotes_ObjectThatIsMissing_ItemNamesNone) {
  const uint32_t id = StoreWithObject("content");
  FreeObject(Owner(), ObjectNamedBy(db_, id));
  const uint32_t foreign = AllocateObject(Other(), 10, 1);
  EXPECT_EQ(foreign, ObjectNamedBy(db_, id)) << "a number that means another object there";
  ASSERT_EQ(0, Copy());
  EXPECT_EQ(0u, ObjectNamedBy(other_, Counterpart(id)));
  EXPECT_EQ(10u, ReadObject(Other(), foreign, 0, kAllBytes).size());
}

}  // namespace
