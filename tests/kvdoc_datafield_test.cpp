// Values by pointer: how long they stay, and which question drops which.
#include "kvdoc_world.h"

namespace {

using kit::Spy;
using kvdoc::kUntouched;
using kvdoc::NumberBytes;
using kvdoc::Record;

class DatafieldTest : public kvdoc::DocumentTest {
 protected:
  void SetUp() override {
    DocumentTest::SetUp();
    document_ = New();
    AppendText(NoteOf(document_), "Subject", "a subject");
    Append(NoteOf(document_), {"Number", BRTYPE_NUMBER, 4, NumberBytes(42.5)});
  }
  const char* Pointer(const char* name, int32_t buffer_type = 0, int32_t item_type = 0) {
    void* pointer = nullptr;
    EXPECT_EQ(KVItemGetPointer(document_, name, &item_type, nullptr, &buffer_type, &pointer), KVSUCCESS);
    return static_cast<const char*>(pointer);
  }
  // The buffers that the document holds, newest first.
  std::vector<const void*> Held() {
    std::vector<const void*> buffers;
    for (const _DATAFIELD* field = Record(document_)->fieldlist; field != nullptr; field = field->next)
      buffers.push_back(field->buffer);
    return buffers;
  }

  uint32_t document_ = 0;
};

TEST_F(DatafieldTest, KVItemGetPointer_OtherItemsAndTypes_EachKeepsItsValue) {
  const char* text = Pointer("Subject", KVTYPE_TEXT);
  const char* list = Pointer("Subject", KVTYPE_TEXTLIST);
  const char* number = Pointer("Number", KVTYPE_NUMBER);
  const char* number_text = Pointer("Number", KVTYPE_TEXT);
  EXPECT_EQ(Held(), (std::vector<const void*>{number_text, number, list, text}));
  EXPECT_STREQ(text, "a subject");
  EXPECT_EQ(KVILoad<uint16_t>(list), 1);
  EXPECT_EQ(KVILoad<double>(number), 42.5);
  EXPECT_STREQ(number_text, "42.5");
}

TEST_F(DatafieldTest, KVItemGetPointer_SameItemAndTypes_OldValueIsDroppedForAFreshOne) {
  const char* other = Pointer("Number", KVTYPE_TEXT);
  Pointer("Subject", KVTYPE_TEXT);
  PutText(document_, "Subject", "changed");
  const char* fresh = Pointer("Subject", KVTYPE_TEXT);
  EXPECT_STREQ(fresh, "changed");
  EXPECT_EQ(Held(), (std::vector<const void*>{fresh, other}));
  const char* own = Pointer("Subject");
  EXPECT_EQ(Held(), (std::vector<const void*>{own, other}));
}

TEST_F(DatafieldTest, KVItemGetPointer_NoTypeAsked_ConvertedValuesStay) {
  const char* converted = Pointer("Number", KVTYPE_TEXT);
  const char* own = Pointer("Number");
  EXPECT_EQ(Held(), (std::vector<const void*>{own, converted}));
  const char* again = Pointer("Number");
  EXPECT_EQ(Held(), (std::vector<const void*>{again, converted}));
}

TEST_F(DatafieldTest, KVItemGetPointer_FittingItemType_IsPassedOver) {
  const char* first = Pointer("Subject", KVTYPE_TEXT);
  const char* second = Pointer("Subject", KVTYPE_TEXT, KVTYPE_TEXT);
  EXPECT_EQ(Held(), (std::vector<const void*>{second, first}));
  EXPECT_STREQ(first, "a subject");
}

TEST_F(DatafieldTest, KVItemGetPointer_NameInAnotherCase_IsAnotherValue) {
  const char* first = Pointer("Subject", KVTYPE_TEXT);
  const char* second = Pointer("SUBJECT", KVTYPE_TEXT);
  EXPECT_EQ(Held(), (std::vector<const void*>{second, first}));
}

TEST_F(DatafieldTest, KVItemGetPointer_ItemGoneOrChanged_ValueStays) {
  const char* text = Pointer("Subject", KVTYPE_TEXT);
  ASSERT_EQ(KVItemDelete(document_, "Subject"), KVSUCCESS);
  ASSERT_EQ(KVDocumentSave(document_, 0), KVSUCCESS);
  EXPECT_STREQ(text, "a subject");
  void* pointer = this;
  int32_t type = KVTYPE_TEXT;
  EXPECT_EQ(KVItemGetPointer(document_, "Subject", nullptr, nullptr, &type, &pointer), KVFAIL_NO_ITEM);
  EXPECT_EQ(pointer, nullptr);
  EXPECT_TRUE(Held().empty());  // the question alone has dropped it
}

TEST_F(DatafieldTest, KVItemGetLength_SameTypes_DropsTheValueToo) {
  Pointer("Subject", KVTYPE_TEXT);
  int32_t type = KVTYPE_TEXT;
  uint32_t length = 0;
  EXPECT_EQ(KVItemGetLength(document_, "Subject", nullptr, &type, &length), KVSUCCESS);
  EXPECT_EQ(length, 9u);
  EXPECT_TRUE(Held().empty());
}

TEST_F(DatafieldTest, EachOtherRead_NoValueIsDropped) {
  const char* text = Pointer("Subject", KVTYPE_TEXT);
  uint32_t length = 0;
  EXPECT_EQ(FetchText(document_, "Subject"), "a subject");
  EXPECT_EQ(KVItemGetInfo(document_, "Subject", nullptr, nullptr, &length), KVSUCCESS);
  KVITEM item;
  EXPECT_EQ(KVItemList(document_, KVLIST_FIRST, 0, &item), KVSUCCESS);
  EXPECT_EQ(Held(), std::vector<const void*>{text});
}

TEST_F(DatafieldTest, KVItemList_PointerOfAHeldItem_TypeFitsSoBothStay) {
  const char* text = Pointer("Subject", KVTYPE_TEXT);
  KVITEM item;
  EXPECT_EQ(KVItemList(document_, KVLIST_FIRST, 1, &item), KVSUCCESS);
  const void* listed = KVILoad<void*>(&item.value);
  EXPECT_EQ(Held(), (std::vector<const void*>{listed, text}));
  EXPECT_EQ(KVItemList(document_, KVLIST_FIRST, 1, &item), KVSUCCESS);
  EXPECT_EQ(Held().size(), 3u);
  EXPECT_EQ(Held()[1], listed);
}

TEST_F(DatafieldTest, GetDatafield_EachQuestion_FindsNothingAndDropsAtMostOne) {
  const int32_t text = KVTYPE_TEXT;
  const int32_t number = KVTYPE_NUMBER;
  const int32_t none = 0;
  const int32_t bad = 77;
  const struct {
    const char* name;
    const int32_t *type, *itemtype;
    bool drops;
  } rows[] = {{"Subject", &text, nullptr, true},   {"Subject", nullptr, nullptr, true},
              {"Subject", &none, &none, true},     {"Subject", &number, nullptr, false},
              {"Subject", &text, &number, true},   {"Subject", &text, &text, false},
              {"Subject", &text, &bad, true},      {"Subjec", &text, nullptr, false},
              {"Subject2", &text, nullptr, false}, {"subject", &text, nullptr, false}};
  for (const auto& row : rows) {
    Record(document_);
    while (_DATAFIELD* field = Record(document_)->fieldlist) {
      Record(document_)->fieldlist = field->next;
      KVIDatafieldFree(field);
    }
    Pointer("Number");
    Pointer("Subject", KVTYPE_TEXT, KVTYPE_TEXT);
    ASSERT_EQ(Held().size(), 2u);
    Spy spy;
    EXPECT_EQ(GetDatafield(Record(document_), row.name, row.type, row.itemtype), nullptr);
    EXPECT_EQ(Held().size(), row.drops ? 1u : 2u) << row.name;
    EXPECT_EQ(spy.Count("EngItemInfo"), row.drops ? 1u : 0u);  // its item is looked for in the note
  }
}

TEST_F(DatafieldTest, GetDatafield_ItemOfTheNode_FoundAndKept) {
  // No call makes such a node; the walk over the note's items works all the same.
  Append(NoteOf(document_), {"Subject", BRTYPE_TEXT, 4, "second"});
  const char* text = Pointer("Subject", KVTYPE_TEXT);
  _DATAFIELD* field = Record(document_)->fieldlist;
  ASSERT_EQ(field->buffer, text);
  const EngNote note = NoteOf(document_);
  BLOCKID item;
  ASSERT_EQ(EngItemInfo(note, "Subject", 7, &item, nullptr, nullptr, nullptr), 0);
  ASSERT_EQ(EngItemInfoNext(note, item, "Subject", 7, &field->blockid, nullptr, nullptr, nullptr), 0);
  uint32_t length = kUntouched;
  int32_t item_type = 0;
  void* pointer = nullptr;
  EXPECT_EQ(KVItemGetPointer(document_, "Subject", &item_type, &length, nullptr, &pointer), KVSUCCESS);
  EXPECT_EQ(pointer, text);
  EXPECT_EQ(length, 9u);
  EXPECT_EQ(item_type, KVTYPE_TEXT);
  length = kUntouched;
  EXPECT_EQ(KVItemGetLength(document_, "Subject", nullptr, nullptr, &length), KVSUCCESS);
  EXPECT_EQ(length, 9u);
  KVITEM listed;
  const int32_t type = KVTYPE_TEXT;
  EXPECT_EQ(GetDatafield(Record(document_), "Subject", &type, nullptr), field);
  EXPECT_EQ(KVItemList(document_, KVLIST_FIRST, 0, &listed), KVSUCCESS);
  EXPECT_EQ(Held(), std::vector<const void*>{text});
}

TEST_F(DatafieldTest, KVDocumentClose_ValuesHeld_AllFreed) {
  const kit::MemoryState before = kit::Memory();
  for (int i = 0; i < 50; ++i) Pointer("Subject", i % 2 == 0 ? KVTYPE_TEXT : KVTYPE_TEXTLIST, KVTYPE_TEXT);
  EXPECT_EQ(Held().size(), 50u);
  EXPECT_EQ(KVDocumentClose(document_, KVDOCWRITE_DISCARD), KVSUCCESS);
  EXPECT_LT(kit::Memory().heap_blocks, before.heap_blocks);
}

TEST_F(DatafieldTest, KVIDatafieldAdd_NoMemory_NullAndListAsItWas) {
  EXPECT_NE(Pointer("Subject"), nullptr);
  const auto* head = Record(document_)->fieldlist;
  for (const uint32_t nth : {1u, 2u}) {
    kit::Fault fault = kit::Fault::Allocation(nth);
    EXPECT_EQ(KVIDatafieldAdd(Record(document_), "Name", 4), nullptr);
    EXPECT_TRUE(fault.Hit());
    EXPECT_EQ(Record(document_)->fieldlist, head);
  }
}

}  // namespace
