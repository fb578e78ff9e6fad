// Kinds of design records, whose they are, and which names are free.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kvmeta_world.h"

namespace {

using kit::Fault;
using kit::Spy;
using kvdoc::ItemsOf;
using kvdoc::kEngineFailure;
using kvmeta::Flags;
using kvmeta::kOwnName;
using kvmeta::Owner;
using kvmeta::Title;
using kvmeta::TitleList;

struct Kind {
  uint16_t note_class;
  const char* flags;  // null: none
  uint32_t design_flags;
};

constexpr Kind kKinds[] = {
    {0x0004, nullptr, KVDESIGN_FORM},
    {0x0004, "", KVDESIGN_FORM},
    {0x0004, "CD", KVDESIGN_FORM},
    {0x0004, "CU3", KVDESIGN_SUBFORM},
    {0x0004, "FG", KVDESIGN_FORM},
    {0x0008, nullptr, KVDESIGN_VIEW},
    {0x0008, "Y", KVDESIGN_VIEW},
    {0x0008, "F", KVDESIGN_FOLDER},
    {0x0008, "xxG", KVDESIGN_NAVIGATOR},
    {0x0008, "GF", KVDESIGN_FOLDER},
    {0x0008, "U", KVDESIGN_VIEW},
    {0x0008, "f", KVDESIGN_VIEW},
    {0x0200, nullptr, KVDESIGN_AGENT},
    {0x0200, "UFG", KVDESIGN_AGENT},
    {0x8004, nullptr, KVDESIGN_FORM | KVDESIGN_DEFAULT},
    {0x8004, "U", KVDESIGN_SUBFORM | KVDESIGN_DEFAULT},
    {0x8008, nullptr, KVDESIGN_VIEW | KVDESIGN_DEFAULT},
    {0x1008, nullptr, KVDESIGN_VIEW | KVDESIGN_PRIVATE},
    {0x1008, "F", KVDESIGN_FOLDER | KVDESIGN_PRIVATE},
    {0x1200, nullptr, KVDESIGN_AGENT | KVDESIGN_PRIVATE},
    {0x9200, nullptr, KVDESIGN_AGENT | KVDESIGN_PRIVATE | KVDESIGN_DEFAULT},
    {0x000c, nullptr, KVDESIGN_FORM},
    {0x0208, "F", KVDESIGN_FOLDER},
    {0x0001, nullptr, 0},
    {0x0001, "UFG", 0},
    {0x0400, "U", 0},
    {0x8001, nullptr, KVDESIGN_DEFAULT},
};

TEST(Kind, KVIDesignFlagsTranslateToKV_ClassAndLetters_TellTheKind) {
  for (const Kind& row : kKinds) {
    uint32_t design_flags = 77;
    const uint16_t bytes = row.flags == nullptr ? uint16_t{5} : static_cast<uint16_t>(strlen(row.flags));
    EXPECT_EQ(KVIDesignFlagsTranslateToKV(row.note_class, row.flags, bytes, &design_flags), KVSUCCESS);
    EXPECT_EQ(design_flags, row.design_flags) << std::hex << row.note_class << (row.flags ? row.flags : "");
  }
}

TEST(Kind, KVIDesignFlagsTranslateToKV_LetterBehindTheLength_IsNotSeen) {
  uint32_t design_flags = 0;
  KVIDesignFlagsTranslateToKV(4, "CxU", 2, &design_flags);
  EXPECT_EQ(design_flags, KVDESIGN_FORM);
  KVIDesignFlagsTranslateToKV(4, "CxU", 3, &design_flags);
  EXPECT_EQ(design_flags, KVDESIGN_SUBFORM);
}

class KindTest : public kvmeta::DesignTest {};

TEST_F(KindTest, KVIDesignNoteGetFlagsExt_Records_SameAsTheirClassAndLetters) {
  for (const Kind& row : kKinds) {
    std::vector<kvdoc::NoteItem> items = {Title("Name")};
    if (row.flags != nullptr) items.push_back(Flags(row.flags));
    const uint32_t id = StoreNote(row.note_class, items);
    uint32_t design_flags = 77;
    Spy spy;
    EXPECT_EQ(KVIDesignNoteGetFlagsExt(Base(), id, &design_flags, nullptr), KVSUCCESS);
    EXPECT_EQ(design_flags, row.design_flags) << std::hex << row.note_class << (row.flags ? row.flags : "");
    EXPECT_EQ(spy.Find("EngNoteOpen")->words[2], 11u);
    EXPECT_EQ(spy.Find("EngItemTextGet")->words[3], 31u);
    EXPECT_EQ(spy.Count("EngNoteClose"), 1u);
  }
}

TEST_F(KindTest, KVIDesignNoteGetFlagsExt_HandleWanted_RecordStaysOpen) {
  const uint32_t id = StoreNote(4, {Title("Name"), Flags("U")});
  uint32_t design_flags = 0;
  EngNote note = 77;
  Spy spy;
  EXPECT_EQ(KVIDesignNoteGetFlagsExt(Base(), id, &design_flags, &note), KVSUCCESS);
  EXPECT_EQ(design_flags, KVDESIGN_SUBFORM);
  EXPECT_EQ(spy.Find("EngNoteOpen")->words[2], 0u);
  EXPECT_EQ(spy.Count("EngNoteClose"), 0u);
  EXPECT_EQ(ItemsOf(note, "$TITLE").size(), 1u);
  EXPECT_EQ(EngNoteClose(note), 0);
}

TEST_F(KindTest, KVIDesignNoteGetFlagsExt_NoSuchRecordOrEngineFailure_StatusAndZeros) {
  uint32_t design_flags = 77;
  EngNote note = 77;
  EXPECT_EQ(KVIDesignNoteGetFlagsExt(Base(), 0x12345, &design_flags, &note), 0x227u);
  EXPECT_EQ(design_flags, 0u);
  EXPECT_EQ(note, 0u);
  const uint32_t id = StoreNote(4, {Title("Name")});
  for (const char* call : {"EngNoteOpen", "EngNoteInfoGet"})
    for (EngNote* pnh : {static_cast<EngNote*>(nullptr), &note}) {
      design_flags = 77;
      note = 77;
      Spy spy;
      Fault fault = Fault::EngineCall(1, kEngineFailure, call);
      EXPECT_EQ(KVIDesignNoteGetFlagsExt(Base(), id, &design_flags, pnh), kEngineFailure);
      EXPECT_EQ(design_flags, 0u);
      EXPECT_EQ(note, pnh == nullptr ? 77u : 0u);
      EXPECT_EQ(spy.Count("EngNoteClose"), strcmp(call, "EngNoteOpen") == 0 ? 0u : 1u);
    }
}

TEST_F(KindTest, KVIDesignNoteGetFlagsExt_HostileFlags_NoMoreThan31CharactersAndNoCrash) {
  const uint32_t late = StoreNote(4, {Flags(std::string(31, 'x') + "U")});
  const uint32_t last = StoreNote(4, {Flags(std::string(30, 'x') + "U")});
  const uint32_t number = StoreNote(8, {{"$Flags", BRTYPE_NUMBER, 4, std::string(8, '\0')}});
  const uint32_t damaged = StoreNote(8, {{"$Flags", BRTYPE_TEXT_LIST, 4, "\xff\xff"}});
  uint32_t design_flags = 0;
  EXPECT_EQ(KVIDesignNoteGetFlagsExt(Base(), late, &design_flags, nullptr), KVSUCCESS);
  EXPECT_EQ(design_flags, KVDESIGN_FORM);
  EXPECT_EQ(KVIDesignNoteGetFlagsExt(Base(), last, &design_flags, nullptr), KVSUCCESS);
  EXPECT_EQ(design_flags, KVDESIGN_SUBFORM);
  for (uint32_t id : {number, damaged}) {
    EXPECT_EQ(KVIDesignNoteGetFlagsExt(Base(), id, &design_flags, nullptr), KVSUCCESS);
    EXPECT_EQ(design_flags, KVDESIGN_VIEW);
  }
}

TEST_F(KindTest, KVINoteIsPrivate_ClassBit_AndZeroWithoutRecord) {
  const uint32_t shared = StoreNote(8, {Title("Shared")}), own = StoreNote(0x1008, {Title("Private")});
  EXPECT_EQ(KVINoteIsPrivate(Base(), shared), 0);
  Spy spy;
  EXPECT_EQ(KVINoteIsPrivate(Base(), own), 1);
  EXPECT_EQ(spy.Find("EngNoteOpen")->words[2], 1u);
  EXPECT_EQ(spy.Count("EngNoteClose"), 1u);
  EXPECT_EQ(KVINoteIsPrivate(Base(), 0x12345), 0);
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngNoteInfoGet");
  EXPECT_EQ(KVINoteIsPrivate(Base(), own), 0);
}

TEST_F(KindTest, KVIDesignNoteSetOwnership_ThreeItems_WithTheirFlags) {
  const EngNote note = NewNote();
  EXPECT_EQ(KVIDesignNoteSetOwnership(note, kOwnName), KVSUCCESS);
  const auto items = ItemsOf(note);
  ASSERT_EQ(items.size(), 3u);
  const struct {
    const char* name;
    uint16_t flags;
  } expected[] = {{"$Authors", 0x25}, {"$Readers", 0x405}, {"$UpdatedBy", 0x44}};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(items[i].name, expected[i].name);
    EXPECT_EQ(items[i].flags, expected[i].flags);
    EXPECT_EQ(items[i].type, BRTYPE_TEXT);
    EXPECT_EQ(items[i].bytes, kOwnName);
  }
  EXPECT_EQ(EngNoteClose(note), 0);
}

TEST_F(KindTest, KVIDesignNoteSetOwnership_EngineFails_StopsThere) {
  for (uint32_t nth = 1; nth <= 3; ++nth) {
    const EngNote note = NewNote();
    Fault fault = Fault::EngineCall(nth, kEngineFailure, "EngItemAppend");
    EXPECT_EQ(KVIDesignNoteSetOwnership(note, "X"), kEngineFailure);
    fault.Disarm();
    EXPECT_EQ(ItemsOf(note).size(), nth - 1);
    EXPECT_EQ(EngNoteClose(note), 0);
  }
}

TEST_F(KindTest, KVIDesignNoteSetOwnership_PrivateRecord_IsFoundForItsOwner) {
  EngNote note = NewNote({Title("Mine")});
  const uint16_t note_class = 0x1008;
  ASSERT_EQ(EngNoteInfoSet(note, 3, &note_class), 0);
  ASSERT_EQ(KVIDesignNoteSetOwnership(note, kOwnName), KVSUCCESS);
  ASSERT_EQ(EngNoteUpdate(note, 0), 0);
  ASSERT_EQ(EngNoteClose(note), 0);
  uint32_t id = 0;
  EXPECT_EQ(EngDesignFindPrivate(EngineDatabase(), "mine", 8, &id), 0);
  EXPECT_NE(id, 0u);
  EXPECT_EQ(FindShared("mine", 8), 0u);
}

// ---- Names

class UniqueTest : public kvmeta::DesignTest {
 protected:
  bool IsFree(uint32_t kind, const char* name, const char* menu = nullptr, const char* cascade = nullptr) {
    return _KVIDesignNoteIsQIXNameUnique(session_, Base(), kind, name, menu, cascade) != 0;
  }
};

TEST_F(UniqueTest, KVIDesignNoteIsQIXNameUnique_NobodyBearsIt_Free) {
  StoreNote(1, {Title("Taken")});  // a document's title is no name
  for (uint32_t kind : {KVDESIGN_FORM, KVDESIGN_SUBFORM, KVDESIGN_VIEW, KVDESIGN_FOLDER, KVDESIGN_NAVIGATOR,
                        KVDESIGN_AGENT, KVDESIGN_VIEW | KVDESIGN_PRIVATE})
    EXPECT_TRUE(IsFree(kind, "Taken")) << kind;
}

TEST_F(UniqueTest, KVIDesignNoteIsQIXNameUnique_EachPairOfKinds_TakenAsTheyShareNames) {
  const struct {
    uint32_t kind;
    uint16_t note_class;
    const char* flags;
  } kinds[] = {{KVDESIGN_FORM, 4, ""},    {KVDESIGN_SUBFORM, 4, "CU3"}, {KVDESIGN_VIEW, 8, ""},
               {KVDESIGN_FOLDER, 8, "F"}, {KVDESIGN_NAVIGATOR, 8, "G"}, {KVDESIGN_AGENT, 0x200, ""}};
  for (const auto& stored : kinds) {
    const std::string name = "Name" + std::to_string(stored.kind);
    StoreNote(stored.note_class, {Title(name), Flags(stored.flags)});
    for (const auto& wanted : kinds) {
      const bool views = (stored.kind & 0xc) != 0 && (wanted.kind & 0xc) != 0;
      EXPECT_EQ(IsFree(wanted.kind, name.c_str()), stored.kind != wanted.kind && !views)
          << stored.kind << " " << wanted.kind;
    }
  }
}

TEST_F(UniqueTest, KVIDesignNoteIsQIXNameUnique_FormByItsNameOthersByTheBuiltTitle) {
  StoreNote(4, {TitleList({"Main\\Sub", "Alias"})});
  StoreNote(8, {TitleList({"Main\\Sub", "Alias"})});
  EXPECT_FALSE(IsFree(KVDESIGN_FORM, "alias", "Other"));
  EXPECT_FALSE(IsFree(KVDESIGN_FORM, "MAIN\\SUB|ALIAS"));
  EXPECT_TRUE(IsFree(KVDESIGN_FORM, "Other", "Main", "Sub"));
  EXPECT_FALSE(IsFree(KVDESIGN_VIEW, "Alias"));
  EXPECT_TRUE(IsFree(KVDESIGN_VIEW, "Alias", "Other"));
  EXPECT_FALSE(IsFree(KVDESIGN_VIEW, "Alias", "Main", "Sub"));
  EXPECT_FALSE(IsFree(KVDESIGN_VIEW, "Alias", "", ""));
}

TEST_F(UniqueTest, KVIDesignNoteIsQIXNameUnique_Private_LooksAmongTheUsersOwn) {
  StoreNote(8, {Title("Shared")});
  StoreNote(0x1008, {Title("Mine"), Owner(kOwnName)});
  StoreNote(0x1008, {Title("Theirs"), Owner("CN=Other/O=Kavrin")});
  EXPECT_FALSE(IsFree(KVDESIGN_VIEW, "Shared"));
  EXPECT_TRUE(IsFree(KVDESIGN_VIEW, "Mine"));
  EXPECT_TRUE(IsFree(KVDESIGN_VIEW | KVDESIGN_PRIVATE, "Shared"));
  EXPECT_FALSE(IsFree(KVDESIGN_VIEW | KVDESIGN_PRIVATE, "Mine"));
  EXPECT_TRUE(IsFree(KVDESIGN_VIEW | KVDESIGN_PRIVATE, "Theirs"));
}

TEST_F(UniqueTest, KVIDesignNoteIsQIXNameUnique_EngineFails_NotFree) {
  StoreNote(8, {Title("Taken"), Flags("G")});
  EXPECT_TRUE(IsFree(KVDESIGN_VIEW, "Taken"));
  {
    Fault fault = Fault::EngineCall(1, kEngineFailure, "EngDesignFind");
    EXPECT_FALSE(IsFree(KVDESIGN_VIEW, "Free"));
  }
  {
    Fault fault = Fault::EngineCall(1, 0xc404, "EngDesignFind");  // none, with flag bits
    EXPECT_TRUE(IsFree(KVDESIGN_VIEW, "Taken"));
  }
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngNoteOpen");
  EXPECT_FALSE(IsFree(KVDESIGN_VIEW, "Taken"));
}

}  // namespace
