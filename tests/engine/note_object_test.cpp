#include <map>
#include <string>

#include "engine/data_fixture.h"
#include "engine/test_random.h"
#include "note/object.h"

using namespace brynd;

namespace {

constexpr uint32_t kChunk = 64 * 1024;

class ObjectTest : public DataFixture {
 protected:
  std::string Content(uint32_t object, uint32_t offset = 0, uint32_t byte_count = kAllBytes) {
    return std::string(TextOf(ReadObject(Owner(), object, offset, byte_count).bytes()));
  }
  std::map<Record, Record> Records() {
    std::map<Record, Record> records;
    Owner().Store().ScanRecords(space::kObjects, {}, std::nullopt, [&](Bytes key, Bytes value) {
      records[Record(key.begin(), key.end())] = Record(value.begin(), value.end());
      return true;
    });
    return records;
  }
  size_t StoredBytes() {
    size_t bytes = 0;
    for (const auto& [key, value] : Records()) bytes += value.size();
    return bytes;
  }
};

TEST_F(ObjectTest, AllocateObject_ZerosUnderRisingNumbers) {
  const uint32_t first = AllocateObject(Owner(), 5, 0x200), second = AllocateObject(Owner(), 0, 1);
  EXPECT_EQ(first + 1, second);
  EXPECT_EQ(std::string(5, '\0'), Content(first));
  EXPECT_EQ("", Content(second));
  FreeObject(Owner(), second);
  EXPECT_EQ(second + 1, AllocateObject(Owner(), 1, 1)) << "a number is not used again";
}

TEST_F(ObjectTest, Objects_ModelOfRandomCalls) {
  TestRandom random(SeedOfRun());
  std::map<uint32_t, std::string> model;
  const auto any = [&] {
    return std::next(model.begin(), random.Below(static_cast<uint32_t>(model.size())));
  };
  const auto size = [&] {
    constexpr uint32_t kSizes[] = {0, 1, 100, kChunk - 1, kChunk, kChunk + 1, 3 * kChunk};
    return random.Below(2) == 0 ? kSizes[random.Below(std::size(kSizes))] : random.Below(3 * kChunk);
  };
  for (int step = 0; step < 300; ++step) {
    const uint32_t what = random.Below(10);
    if (model.empty() || what == 0) {
      const uint32_t bytes = size();
      model[AllocateObject(Owner(), bytes, 1)] = std::string(bytes, '\0');
    } else if (what == 1) {
      const auto at = any();
      FreeObject(Owner(), at->first);
      EXPECT_EQ(status::kNoObject, AtBoundary([&] { Content(at->first); }));
      model.erase(at);
    } else if (what < 5) {
      const auto at = any();
      const uint32_t bytes = size();
      ResizeObject(Owner(), at->first, bytes);
      at->second.resize(bytes, '\0');
    } else {
      const auto at = any();
      const auto total = static_cast<uint32_t>(at->second.size());
      const uint32_t offset = random.Below(total + 1), bytes = random.Below(total - offset + 1);
      const std::string content(bytes, static_cast<char>('a' + random.Below(26)));
      WriteObject(Owner(), at->first, offset, BytesOf(content));
      at->second.replace(offset, bytes, content);
      ASSERT_EQ(at->second.substr(offset), Content(at->first, offset));
    }
    if (step % 50 == 0) {
      Reopen();
    }
    for (const auto& [object, content] : model) ASSERT_EQ(content, Content(object)) << "step " << step;
  }
  for (const auto& [object, content] : model) FreeObject(Owner(), object);
  EXPECT_TRUE(Records().empty());
}

TEST_F(ObjectTest, WriteObject_StoresNoMoreThanTheObjectHolds) {
  const uint32_t object = AllocateObject(Owner(), 16, 1);
  const size_t empty = StoredBytes();
  WriteObject(Owner(), object, 4, BytesOf("abcd"));
  EXPECT_LE(StoredBytes(), empty + 4 + 16);
  ResizeObject(Owner(), object, 5 * kChunk);
  EXPECT_LE(StoredBytes(), empty + 4 + 16) << "zeros are not stored";
  EXPECT_EQ(std::string("\0\0\0\0abcd", 8) + std::string(5 * kChunk - 8, '\0'), Content(object));
}

TEST_F(ObjectTest, Ranges_AtTheEdges) {
  const uint32_t object = AllocateObject(Owner(), 10, 1);
  WriteObject(Owner(), object, 0, BytesOf("0123456789"));
  EXPECT_EQ("", Content(object, 10));
  EXPECT_EQ("", Content(object, 10, 0));
  EXPECT_EQ("9", Content(object, 9, 1));
  EXPECT_EQ("0123456789", Content(object, 0, 10));
  struct Range {
    uint32_t offset, byte_count;
  };
  for (const Range& range : std::initializer_list<Range>{
           {10, 1}, {11, 0}, {11, kAllBytes}, {0, 11}, {0xffffffff, 1}, {1, 0xfffffffe}, {5, 0x80000000}})
    EXPECT_EQ(status::kBadArgument, AtBoundary([&] { Content(object, range.offset, range.byte_count); }))
        << range.offset << " " << range.byte_count;
  EXPECT_EQ(status::kBadArgument, AtBoundary([&] { WriteObject(Owner(), object, 10, BytesOf("x")); }));
  EXPECT_EQ(status::kBadArgument,
            AtBoundary([&] { WriteObject(Owner(), object, 0xffffffff, BytesOf("x")); }));
  WriteObject(Owner(), object, 10, {});
  EXPECT_EQ(status::kBadArgument, AtBoundary([&] { AllocateObject(Owner(), kObjectBytesMax + 1, 1); }));
  EXPECT_EQ(status::kBadArgument, AtBoundary([&] { ResizeObject(Owner(), object, kObjectBytesMax + 1); }));
  ResizeObject(Owner(), object, kObjectBytesMax);
  EXPECT_EQ(std::string(1, '\0'), Content(object, kObjectBytesMax - 1, 1))
      << "the largest object takes no room";
  WriteObject(Owner(), object, kObjectBytesMax - 1, BytesOf("z"));
  EXPECT_EQ("z", Content(object, kObjectBytesMax - 1));
  ResizeObject(Owner(), object, 3);
  EXPECT_EQ("012", Content(object));
}

TEST_F(ObjectTest, NoSuchObject_Status) {
  for (const uint32_t object : {0u, 1u, 77u, 0xfffffffeu, 0xffffffffu}) {
    EXPECT_EQ(status::kNoObject, AtBoundary([&] { Content(object); })) << object;
    EXPECT_EQ(status::kNoObject, AtBoundary([&] { WriteObject(Owner(), object, 0, {}); }));
    EXPECT_EQ(status::kNoObject, AtBoundary([&] { ResizeObject(Owner(), object, 1); }));
    EXPECT_EQ(status::kNoObject, AtBoundary([&] { FreeObject(Owner(), object); }));
  }
}

TEST_F(ObjectTest, HarmedRecords_StatusOrTheContent) {
  const uint32_t object = AllocateObject(Owner(), 40, 1);
  WriteObject(Owner(), object, 0, BytesOf(std::string(40, 'c')));
  for (const auto& record : Records()) {
    const Record &key = record.first, &whole = record.second;
    int damaged = 0;
    ForEachHarm(whole, [&](const Record& harmed) {
      PutRaw(Owner(), space::kObjects, key, harmed);
      const EngStatus outcome = AtBoundary([&] { EXPECT_EQ(std::string(40, 'c'), Content(object)); });
      if (outcome != 0) {
        EXPECT_EQ(status::kDamaged, outcome);
        ++damaged;
      }
    });
    EXPECT_EQ(static_cast<int>(4 * whole.size()), damaged);
    PutRaw(Owner(), space::kObjects, key, whole);
  }
  EXPECT_EQ(std::string(40, 'c'), Content(object));
}

TEST_F(ObjectTest, HarmedCountOfNumbers_NoObjectIsLost) {
  const uint32_t object = AllocateObject(Owner(), 4, 1);
  WriteObject(Owner(), object, 0, BytesOf("kept"));
  const auto allocate_with = [&](Bytes fact) {
    PutFact(Owner(), "next object", fact);
    return AtBoundary([&] { AllocateObject(Owner(), 1, 1); });
  };
  const auto number = [&](uint32_t next) { return allocate_with(BytesAt(&next, sizeof next)); };
  EXPECT_EQ(status::kDamaged, allocate_with({}));
  EXPECT_EQ(status::kDamaged, allocate_with(BytesOf("seven77")));
  EXPECT_EQ(status::kDamaged, number(0));
  EXPECT_EQ(status::kDamaged, number(object));
  EXPECT_EQ(status::kOk, number(0xfffffffe)) << "the last number there is";
  EXPECT_EQ(status::kTooManyNotes, AtBoundary([&] { AllocateObject(Owner(), 1, 1); }));
  EXPECT_EQ("kept", Content(object));
  FreeObject(Owner(), 0xfffffffe);
  EXPECT_EQ("kept", Content(object));
}

TEST_F(ObjectTest, CopyObjectInto_ContentAndClassUnderANewNumber) {
  const std::string content = std::string(kChunk, '\0') + std::string(kChunk, 'x') + "end";
  const uint32_t object = AllocateObject(Owner(), static_cast<uint32_t>(content.size()) + 5, 0x200);
  WriteObject(Owner(), object, kChunk, BytesOf(content).subspan(kChunk));
  DatabaseWrite write(Other());
  EXPECT_EQ(0u, CopyObjectInto(write, Owner(), 0));
  EXPECT_EQ(0u, CopyObjectInto(write, Owner(), object + 1));
  EXPECT_EQ(0u, CopyObjectInto(write, Owner(), 0xffffffff));
  const uint32_t first = CopyObjectInto(write, Owner(), object),
                 second = CopyObjectInto(write, Owner(), object);
  EXPECT_NE(first, second);
  write.Commit(store::Durability::kDurable);
  for (const uint32_t copy : {first, second})
    EXPECT_EQ(content + std::string(5, '\0'), TextOf(ReadObject(Other(), copy, 0, kAllBytes).bytes()));
}

// --- notes that name objects

class ObjectUseTest : public ObjectTest {
 protected:
  uint32_t Make() {
    const uint32_t object = AllocateObject(Owner(), 100000, 1);
    WriteObject(Owner(), object, 0, BytesOf(std::string(100000, 'o')));
    return object;
  }
  static void Name(EngNote note, uint32_t object) {
    const OBJECT_DESCRIPTOR descriptor{.ObjectType = 0, .RRV = object};
    EXPECT_EQ(0, EngItemAppend(note, 4, "$FILE", 5, BRTYPE_OBJECT, &descriptor, sizeof descriptor));
  }
  uint32_t NoteNaming(std::initializer_list<uint32_t> objects, uint16_t update_word = 0) {
    const EngNote note = NewNote();
    for (const uint32_t object : objects) Name(note, object);
    EXPECT_EQ(0, EngNoteUpdate(note, update_word));
    const uint32_t note_id = IdOf(note);
    EXPECT_EQ(0, EngNoteClose(note));
    return note_id;
  }
  bool Exists(uint32_t object) {
    try {
      ReadObject(Owner(), object, 0, 1);
      return true;
    } catch (const Failure& failure) {
      EXPECT_EQ(status::kNoObject, failure.status());
      return false;
    }
  }
  size_t Uses() {
    size_t count = 0;
    Owner().Store().ScanRecords(space::kObjectUses, {}, std::nullopt,
                                [&](Bytes, Bytes) { return ++count != 0; });
    return count;
  }
};

TEST_F(ObjectUseTest, DeleteNote_ObjectsThatOnlyItNames_GoWithIt) {
  for (const uint16_t word : {uint16_t{0}, kUpdateNoCommit}) {
    const uint32_t first = Make(), second = Make(), other = Make();
    const uint32_t note_id = NoteNaming({first, second, first}, word);
    EXPECT_EQ(2u, Uses());
    ASSERT_EQ(0, EngNoteDelete(db_, note_id, word));
    EXPECT_FALSE(Exists(first));
    EXPECT_FALSE(Exists(second));
    EXPECT_TRUE(Exists(other)) << "nobody has named it yet";
    EXPECT_EQ(0u, Uses());
    Reopen();
    EXPECT_FALSE(Exists(first));
    FreeObject(Owner(), other);
    EXPECT_TRUE(Records().empty());
  }
}

TEST_F(ObjectUseTest, DeleteNote_AnotherNamesTheObjectToo_GoesWithTheLast) {
  const uint32_t object = Make();
  const uint32_t first = NoteNaming({object}), second = NoteNaming({object});
  ASSERT_EQ(0, EngNoteDelete(db_, first, 0));
  EXPECT_EQ(std::string(100000, 'o'), Content(object));
  ASSERT_EQ(0, EngNoteDelete(db_, second, 0));
  EXPECT_FALSE(Exists(object));
}

TEST_F(ObjectUseTest, Update_NamesOtherObjects_OldOneStaysUntilFreedOrItsLastNoteGoes) {
  const uint32_t object = Make(), later = Make();
  const uint32_t first = NoteNaming({object}), second = NoteNaming({object});
  const EngNote note = OpenNote(first);
  ASSERT_EQ(0, EngItemDelete(note, "$FILE", 5));
  Name(note, later);
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  ASSERT_EQ(0, EngNoteClose(note));
  EXPECT_EQ(2u, Uses());
  ASSERT_EQ(0, EngNoteDelete(db_, second, 0));
  EXPECT_FALSE(Exists(object));
  EXPECT_TRUE(Exists(later));
  FreeObject(Owner(), later);
  EXPECT_EQ(0u, Uses());
  EXPECT_EQ(0, EngNoteDelete(db_, first, 0)) << "that it is gone already is no failure";
}

TEST_F(ObjectUseTest, DeleteNote_TakenBack_ObjectStays) {
  const uint32_t object = Make();
  const uint32_t note_id = NoteNaming({object});
  {
    DatabaseWrite write(Owner());
    EXPECT_TRUE(DeleteNoteInto(write, note_id));
  }
  EXPECT_EQ(std::string(100000, 'o'), Content(object));
  EXPECT_EQ(1u, Uses());
}

TEST_F(ObjectUseTest, DeleteNote_ItemsThatNameNoObject_NothingHappens) {
  const uint32_t object = Make();
  const uint32_t note_id = NoteNaming({0, 0xffffffff, object + 5});
  ASSERT_EQ(0, EngNoteDelete(db_, note_id, 0));
  EXPECT_TRUE(Exists(object));
  EXPECT_EQ(0u, Uses());
}

}  // namespace
