// Binding of documents to forms, as far as this version goes: no form has a field.
#include "kvdoc_world.h"

namespace {

using kvdoc::kUntouched;
using kvdoc::Record;

struct Answer {
  uint32_t status;
  int32_t form_type;
  FORMAT* format;
  FIELDSPEC* fieldspec;
};

Answer Ask(_FORMSPEC* form, const char* itemname, const int32_t* itemtype,
           const _DATAFIELD* datafield = nullptr) {
  static FORMAT no_format;
  static FIELDSPEC no_field;
  Answer answer{0, 99, &no_format, &no_field};
  answer.status = GetItemTypeInfo(form, itemname, itemtype, &answer.form_type, datafield, &answer.format,
                                  &answer.fieldspec);
  return answer;
}

TEST(BindTest, GetItemTypeInfo_NoForm_TypePassesThrough) {
  for (int32_t type = KVTYPE_NONE; type <= KVTYPE_FORMULA; ++type) {
    const Answer answer = Ask(nullptr, "Any", &type);
    EXPECT_EQ(answer.status, KVSUCCESS);
    EXPECT_EQ(answer.form_type, type);
    EXPECT_EQ(answer.format, nullptr);
    EXPECT_EQ(answer.fieldspec, nullptr);
  }
  EXPECT_EQ(Ask(nullptr, "Any", nullptr).form_type, 0);
  EXPECT_EQ(Ask(nullptr, "Any", nullptr).status, KVSUCCESS);
}

TEST(BindTest, GetItemTypeInfo_NoFormAndTypeOutOfRange_BadEnumAndZero) {
  for (const int32_t type : {9, 10, 1000, -1, INT32_MIN, INT32_MAX}) {
    const Answer answer = Ask(nullptr, "Any", &type);
    EXPECT_EQ(answer.status, KVFAIL_BAD_ENUM);
    EXPECT_EQ(answer.form_type, 0);
  }
}

TEST(BindTest, GetItemTypeInfo_NoField_Refused) {
  _FORMSPEC form{};
  const int32_t type = KVTYPE_TEXT;
  for (const char* name : {"Any", "$$KVDocExecute", "$$KVDocExecute!!", ""}) {
    for (const int32_t* itemtype : {static_cast<const int32_t*>(nullptr), &type}) {
      const Answer answer = Ask(&form, name, itemtype);
      EXPECT_EQ(answer.status, KVFAIL_NO_FIELD);
      EXPECT_EQ(answer.form_type, 0);
      EXPECT_EQ(answer.format, nullptr);
      EXPECT_EQ(answer.fieldspec, nullptr);
    }
  }
}

TEST(BindTest, GetItemTypeInfo_ExecuteResult_NeedsNoFieldInAnyCase) {
  _FORMSPEC form{};
  for (const char* name : {"$$KVDocExecute!", "$$kvdocexecute!", "$$KVDOCEXECUTE!"}) {
    for (int32_t type = KVTYPE_NONE; type <= KVTYPE_FORMULA; ++type) {
      EXPECT_EQ(Ask(&form, name, &type).status, KVSUCCESS);
      EXPECT_EQ(Ask(&form, name, &type).form_type, type);
    }
    EXPECT_EQ(Ask(&form, name, nullptr).status, KVSUCCESS);
    EXPECT_EQ(Ask(&form, name, nullptr).form_type, 0);
    for (const int32_t type : {9, -1, INT32_MAX}) {
      EXPECT_EQ(Ask(&form, name, &type).status, KVFAIL_BAD_ENUM);
      EXPECT_EQ(Ask(&form, name, &type).form_type, 0);
    }
  }
}

TEST(BindTest, GetItemTypeInfo_ValueHeldInAForm_GivesItsFieldAndChecksTheType) {
  _FORMSPEC form{};
  FIELDSPEC field{};
  const _DATAFIELD held{.name = nullptr,
                        .namelen = 0,
                        .form_type = KVTYPE_TEXT,
                        .in_form = 1,
                        .fieldspec = &field,
                        .type = KVTYPE_TEXT,
                        .length = 0,
                        .buffer = nullptr,
                        .blockid = {},
                        .next = nullptr};
  EXPECT_EQ(Ask(&form, "Any", nullptr, &held).status, KVSUCCESS);
  EXPECT_EQ(Ask(&form, "Any", nullptr, &held).form_type, KVTYPE_TEXT);
  EXPECT_EQ(Ask(&form, "Any", nullptr, &held).fieldspec, &field);
  EXPECT_EQ(Ask(&form, "Any", nullptr, &held).format, nullptr);
  for (int32_t type = -1; type <= 10; ++type) {
    const bool fits = type == KVTYPE_NONE || type == KVTYPE_TEXT || type == KVTYPE_TEXTLIST;
    EXPECT_EQ(Ask(&form, "Any", &type, &held).status, fits ? KVSUCCESS : KVFAIL_NO_FIELD) << type;
    EXPECT_EQ(Ask(&form, "Any", &type, &held).form_type, fits ? KVTYPE_TEXT : 0);
  }
  _DATAFIELD unbound = held;
  unbound.in_form = 0;
  EXPECT_EQ(Ask(&form, "Any", nullptr, &unbound).status, KVFAIL_NO_FIELD);
  EXPECT_EQ(Ask(nullptr, "Any", nullptr, &held).form_type, 0);
}

class DocumentBindTest : public kvdoc::DocumentTest {};

TEST_F(DocumentBindTest, DocCompute_EachSetting_OnlyAFormThatAsksComputes) {
  _FORMSPEC form{};
  _DOCUMENT doc{};
  const struct {
    int32_t sb_compute, has_form, compute, compute_new, is_new, event;
    bool computes;
  } rows[] = {{1, 0, 0, 0, 1, KVCOMPUTE_CREATE, false}, {0, 1, 1, 1, 1, KVCOMPUTE_CREATE, false},
              {1, 1, 0, 1, 0, KVCOMPUTE_CREATE, true},  {1, 1, 1, 0, 0, KVCOMPUTE_CREATE, false},
              {1, 1, 1, 0, 0, KVCOMPUTE_OPEN, true},    {1, 1, 0, 1, 0, KVCOMPUTE_OPEN, false},
              {1, 1, 0, 1, 1, KVCOMPUTE_SAVE, true},    {1, 1, 1, 0, 1, KVCOMPUTE_SAVE, false}};
  for (const auto& row : rows) {
    doc.sb_compute = row.sb_compute;
    doc.form = row.has_form ? &form : nullptr;
    form.compute = row.compute;
    form.compute_new = row.compute_new;
    doc.new_ = row.is_new;
    EXPECT_EQ(_DocCompute(session_, &doc, row.event), row.computes ? KVFAIL_UNSUPPORTED : KVSUCCESS);
  }
}

TEST_F(DocumentBindTest, KVItemFetch_BoundDocument_ExecuteResultIsReadAllTheSame) {
  _FORMSPEC form{};
  const uint32_t document = New();
  PutText(document, "Subject", "text");
  _DOCUMENT* doc = Record(document);
  ASSERT_EQ(EngMemAlloc(0, 10, &doc->exechand), 0);
  {
    const KVLocked value(doc->exechand);
    KVIStore<uint16_t>(value.bytes, BRTYPE_TEXT);
    memcpy(value.bytes + 2, "result", 6);
  }
  doc->execlen = 8;
  doc->form = &form;
  EXPECT_EQ(FetchText(document, "$$KVDocExecute!"), "result");
  uint32_t length = kUntouched;
  char buffer[20];
  EXPECT_EQ(KVItemFetch(document, "Subject", nullptr, &length, nullptr, buffer), KVFAIL_NO_FIELD);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(KVItemFetch(document, "$$kvdocexecute!", nullptr, nullptr, nullptr, buffer), KVFAIL_NO_ITEM);
  void* pointer = this;
  EXPECT_EQ(KVItemGetPointer(document, "Subject", nullptr, nullptr, nullptr, &pointer), KVFAIL_NO_FIELD);
  EXPECT_EQ(pointer, nullptr);
  EXPECT_EQ(KVItemGetLength(document, "Subject", nullptr, nullptr, &length), KVFAIL_NO_FIELD);
  EXPECT_EQ(KVItemGetInfo(document, "Subject", nullptr, nullptr, &length), KVFAIL_NO_FIELD);
  EXPECT_EQ(KVItemGetPointer(document, "$$KVDocExecute!", nullptr, nullptr, nullptr, &pointer), KVSUCCESS);
  EXPECT_EQ(doc->fieldlist->in_form, 1);
  doc->form = nullptr;
}

TEST_F(DocumentBindTest, KVDocumentOpen_StrictDatabase_EveryDataDocumentIsRefused) {
  const uint32_t docid = StoreDocument();
  uint32_t document = New();
  PutText(document, "Form", "Memo");
  ASSERT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  const uint32_t with_form = Record(document)->docid;
  SetDatabaseBool(database_, KVPROP_DB_STRICT_BIND, 1);
  for (const uint32_t id : {docid, with_form}) {
    EXPECT_EQ(KVDocumentOpen(database_, id, 0, &document), KVFAIL_STRICT_NO_FORM);
    EXPECT_EQ(document, 0u);
  }
}

}  // namespace
