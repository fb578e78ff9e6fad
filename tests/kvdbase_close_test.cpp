// Closing of database handles: what goes with them, the engine's handle, the states of the teardown.
#include <array>
#include <vector>

#include "kvdbase_fixture.h"

namespace {

using kit::Fault;
using kit::Spy;

// ---- Close

TEST_F(DatabaseTest, KVDatabaseClose_Unknown_NoDatabase) {
  EXPECT_EQ(KVDatabaseClose(0, 0), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVDatabaseClose(77, 0), KVFAIL_NO_DATABASE);
  ExpectError(KVFAIL_NO_DATABASE);
}

TEST_F(DatabaseTest, KVDatabaseClose_Closed_HandleAndCacheAreGone) {
  const uint32_t database = Open();
  Spy spy;
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngDbClose"), 1u);
  EXPECT_EQ(spy.Count("EngDbSessionClose"), 0u);
  EXPECT_EQ(KVICurrentSession()->hmruDB, 0u);
  EXPECT_EQ(KVICurrentSession()->pmruDB, nullptr);
  EXPECT_EQ(KVDatabaseClose(database, 0), KVFAIL_NO_DATABASE);
}

TEST_F(DatabaseTest, KVDatabaseClose_NotTheCachedOne_CacheStays) {
  const uint32_t one = Open();
  const uint32_t other = Open();
  EXPECT_EQ(KVDatabaseClose(one, 0), KVSUCCESS);
  EXPECT_EQ(KVDatabaseClose(other, 0), KVSUCCESS);
  EXPECT_EQ(KVICurrentSession()->hmruDB, 0u);
}

TEST_F(DatabaseTest, KVDatabaseClose_SessionFlag_ClosesThroughTheSession) {
  const uint32_t database = Open();
  Spy spy;
  EXPECT_EQ(KVDatabaseClose(database, KVDBCLOSE_SESSION), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngDbSessionClose"), 1u);
  EXPECT_EQ(spy.Count("EngDbClose"), 0u);
}

TEST_F(DatabaseTest, KVDatabaseClose_ManyInOneBucket_OthersStay) {
  std::array<uint32_t, 25> databases;
  for (uint32_t& database : databases) database = Open();
  for (size_t step : {size_t{7}, size_t{17}, size_t{0}, size_t{24}, size_t{10}}) {
    EXPECT_EQ(KVDatabaseClose(databases[step], 0), KVSUCCESS);
    databases[step] = 0;
    for (uint32_t database : databases) {
      if (database) {
        EXPECT_NE(Record(database), nullptr);
      }
    }
  }
  for (uint32_t database : databases) {
    if (database) {
      EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
    }
  }
}

TEST_F(DatabaseTest, KVDatabaseClose_OtherThread_BadHandleAndNothingChanged) {
  const uint32_t database = Open();
  kit::InSession([&] {
    uint32_t hand = kUntouched;
    EXPECT_EQ(KVDatabaseClose(database, 0), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(KVDatabaseGetBryndHandle(database, KVTOBRYND_GET_HANDLE, &hand), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(hand, kUntouched);
  });
  kit::InThread([&] { EXPECT_EQ(KVDatabaseClose(database, 0), KVFAIL_BAD_HANDLE); });
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVTerm_DatabasesLeftOpen_AreClosed) {
  Open();
  Open();
  EndLibrary();  // TearDown proves that nothing is left
}

// ---- Documents of a database that goes

TEST_F(DatabaseTest, KVDatabaseClose_OpenDocuments_DiscardedWithoutTheFlagSavedWithIt) {
  SetSessionBool(KVPROP_SESS_STRICT_BIND, 0);
  uint32_t database = Open();
  const uint32_t lost = NewDocument(database, "lost");
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
  EXPECT_EQ(_GetDocument(KVICurrentSession(), lost), nullptr);
  database = Open();
  EXPECT_EQ(CountDocuments(Record(database)->dbhand), 0u);
  NewDocument(database, "kept");
  NewDocument(database, "kept too");
  EXPECT_EQ(KVDatabaseClose(database, KVDBCLOSE_SAVE_DOCS), KVSUCCESS);
  database = Open();
  EXPECT_EQ(CountDocuments(Record(database)->dbhand), 2u);
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseClose_DocumentsOfOtherDatabases_Stay) {
  SetSessionBool(KVPROP_SESS_STRICT_BIND, 0);
  const uint32_t one = Open();
  const uint32_t other = Open();
  const uint32_t stays = NewDocument(other, "stays");
  NewDocument(one, "goes");
  EXPECT_EQ(KVDatabaseClose(one, 0), KVSUCCESS);
  EXPECT_NE(_GetDocument(KVICurrentSession(), stays), nullptr);
  EXPECT_EQ(KVDatabaseClose(other, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseClose_DocumentCannotBeSaved_CloseSucceedsAllTheSame) {
  SetSessionBool(KVPROP_SESS_STRICT_BIND, 0);
  const uint32_t database = Open();
  NewDocument(database, "refused");
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngNoteUpdate");
  EXPECT_EQ(KVDatabaseClose(database, KVDBCLOSE_SAVE_DOCS), KVSUCCESS);
  EXPECT_TRUE(fault.Hit());
}

// ---- The access control list at the close

EngMem SomeBlock() {
  EngMem block = 0;
  EXPECT_EQ(EngMemAlloc(0, 40, &block), 0);
  return block;
}

TEST_F(DatabaseTest, KVDatabaseClose_UnchangedAcl_IsFreedAndNotStored) {
  const uint32_t database = Open();
  Record(database)->aclhand = SomeBlock();
  Spy spy;
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngDbAclStore"), 0u);
  EXPECT_EQ(spy.Count("EngMemFree"), 1u);
}

TEST_F(DatabaseTest, KVDatabaseClose_AclStoreFails_HandleGoneEngineDatabaseStaysOpen) {
  SetSessionBool(KVPROP_SESS_STRICT_BIND, 0);
  const uint32_t database = Open();
  NewDocument(database, "its save fails too");
  const EngDb dbhand = Record(database)->dbhand;
  Record(database)->aclhand = SomeBlock();
  Record(database)->acl_dirty = 1;
  const EngMem acl = Record(database)->aclhand;
  {
    Spy spy;
    Fault fault = Fault::EngineCall(1, kEngineFailure, "EngDbAclStore");
    EXPECT_EQ(KVDatabaseClose(database, 0), kEngineFailure);
    EXPECT_TRUE(fault.Hit());
    const kit::EngineCall* store = spy.Find("EngDbAclStore");
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(store->words, (std::vector<uint64_t>{dbhand, acl, 0, 0}));
    EXPECT_EQ(spy.Count("EngDbClose"), 0u);
    EXPECT_EQ(spy.Find("EngMemFree")->words[0], acl);
  }
  ExpectError(kEngineFailure);
  EXPECT_EQ(KVDatabaseClose(database, 0), KVFAIL_NO_DATABASE);
  uint16_t mode = 0;
  EXPECT_EQ(EngDbModeGet(dbhand, &mode), 0);
  EXPECT_EQ(EngDbClose(dbhand), 0);
}

TEST_F(DatabaseTest, KVDatabaseClose_DocumentAndAclFail_TheAclsStatusCounts) {
  SetSessionBool(KVPROP_SESS_STRICT_BIND, 0);
  const uint32_t database = Open();
  NewDocument(database, "refused");
  const EngDb dbhand = Record(database)->dbhand;
  Record(database)->aclhand = SomeBlock();
  Record(database)->acl_dirty = 1;
  // A plain block is no access control list: the store fails of itself.
  uint32_t status;
  {
    Fault fault = Fault::EngineCall(1, 0x240, "EngNoteUpdate");
    status = KVDatabaseClose(database, KVDBCLOSE_SAVE_DOCS);
    EXPECT_TRUE(fault.Hit());
  }
  EXPECT_NE(status, KVSUCCESS);
  EXPECT_NE(status, 0x240u);
  ExpectError(status);
  EXPECT_EQ(EngDbClose(dbhand), 0);
}

TEST_F(DatabaseTest, KVDatabaseGetBryndHandle_ReleaseAndAclStoreFails_NoHandleHandedOut) {
  const uint32_t database = Open();
  const EngDb dbhand = Record(database)->dbhand;
  Record(database)->aclhand = SomeBlock();
  Record(database)->acl_dirty = 1;
  EngDb hand = kUntouched;
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngDbAclStore");
  EXPECT_EQ(KVDatabaseGetBryndHandle(database, KVTOBRYND_RELEASE, &hand), kEngineFailure);
  EXPECT_EQ(hand, 0u);
  fault.Disarm();
  EXPECT_EQ(EngDbClose(dbhand), 0);
}

// ---- The engine's handle

TEST_F(DatabaseTest, KVDatabaseGetBryndHandle_NullPointer_NullParamBeforeHandleAndFlags) {
  const uint32_t database = Open();
  EXPECT_EQ(KVDatabaseGetBryndHandle(77, 0, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVDatabaseGetBryndHandle(database, 0, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseGetBryndHandle_UnknownHandle_NoDatabaseBeforeFlags) {
  EngDb hand = kUntouched;
  EXPECT_EQ(KVDatabaseGetBryndHandle(77, 0, &hand), KVFAIL_NO_DATABASE);
  EXPECT_EQ(hand, kUntouched);
}

TEST_F(DatabaseTest, KVDatabaseGetBryndHandle_NeitherOrBothFlags_NoActionAndNothingChanged) {
  const uint32_t database = Open();
  EngDb hand = kUntouched;
  for (uint32_t flags : {0u, 3u, KVTOBRYND_GET_HANDLE | KVTOBRYND_RELEASE}) {
    EXPECT_EQ(KVDatabaseGetBryndHandle(database, flags, &hand), KVFAIL_NO_ACTION);
    EXPECT_EQ(hand, kUntouched);
  }
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseGetBryndHandle_Get_PublicHandleStays) {
  const uint32_t database = Open();
  std::array<char, 8> bytes{};
  EXPECT_EQ(KVDatabaseGetBryndHandle(database, KVTOBRYND_GET_HANDLE | 3, bytes.data() + 1), KVSUCCESS);
  EXPECT_EQ(KVILoad<EngDb>(bytes.data() + 1), Record(database)->dbhand);
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseGetBryndHandle_Release_PublicHandleGoneEngineHandleUsable) {
  SetSessionBool(KVPROP_SESS_STRICT_BIND, 0);
  const uint32_t database = Open();
  NewDocument(database, "lost");
  EngDb hand = 0;
  EXPECT_EQ(KVDatabaseGetBryndHandle(database, KVTOBRYND_RELEASE, &hand), KVSUCCESS);
  EXPECT_EQ(KVDatabaseClose(database, 0), KVFAIL_NO_DATABASE);
  EXPECT_EQ(CountDocuments(hand), 0u);
  EXPECT_EQ(EngDbClose(hand), 0);
}

TEST_F(DatabaseTest, KVDatabaseGetBryndHandle_ReleaseWithSave_DocumentsAreSaved) {
  SetSessionBool(KVPROP_SESS_STRICT_BIND, 0);
  const uint32_t database = Open();
  NewDocument(database, "kept");
  EngDb hand = 0;
  EXPECT_EQ(KVDatabaseGetBryndHandle(database, KVTOBRYND_RELEASE | KVDBCLOSE_SAVE_DOCS, &hand), KVSUCCESS);
  EXPECT_EQ(CountDocuments(hand), 1u);
  EXPECT_EQ(EngDbClose(hand), 0);
}

// ---- States

TEST_F(DatabaseTest, ClearDatabaseState_Lists_BuffersAreFreedOneByOne) {
  const uint32_t database = Open();
  _DATABASE* dbase = Record(database);
  struct {
    int state;
    KVTEXTLIST* list;
  } const lists[] = {{6, &dbase->formlist.list}, {7, &dbase->subformlist.list},
                     {8, &dbase->viewlist.list}, {9, &dbase->folderlist.list},
                     {10, &dbase->navlist.list}, {11, &dbase->agentlist.list},
                     {12, &dbase->acllist}};
  for (const auto& row : lists) row.list->buffer = KVIAllocateBytes(8);
  dbase->acllog = KVICopyText("log", 3);
  for (const auto& row : lists) {
    EXPECT_NE(row.list->buffer, nullptr);
    EXPECT_EQ(_ClearDatabaseState(KVICurrentSession(), dbase, row.state, nullptr), KVSUCCESS);
    EXPECT_EQ(row.list->buffer, nullptr);
    EXPECT_EQ(_ClearDatabaseState(KVICurrentSession(), dbase, row.state, nullptr), KVSUCCESS);
  }
  EXPECT_EQ(_ClearDatabaseState(KVICurrentSession(), dbase, 14, nullptr), KVSUCCESS);
  EXPECT_EQ(dbase->acllog, nullptr);
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseClose_FullState_EverythingIsFreed) {
  const uint32_t database = Open();
  _DATABASE* dbase = Record(database);
  for (KVTEXTLIST* list :
       {&dbase->formlist.list, &dbase->subformlist.list, &dbase->viewlist.list, &dbase->folderlist.list,
        &dbase->navlist.list, &dbase->agentlist.list, &dbase->acllist})
    list->buffer = KVIAllocateBytes(8);
  dbase->acllog = KVICopyText("log", 3);
  dbase->aclhand = SomeBlock();
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);  // TearDown proves that nothing is left
}

TEST_F(DatabaseTest, ClearDatabaseState_ExecutedFormula_EndedAndFreedOnce) {
  const uint32_t database = Open();
  _DATABASE* dbase = Record(database);
  ASSERT_EQ(_KVICompileFormula(nullptr, "SELECT @All", &dbase->last_formula_hand), 0);
  {
    KVLocked formula(dbase->last_formula_hand);
    ASSERT_EQ(EngComputeBegin(0, formula.bytes, &dbase->last_compute_hand), 0);
  }
  const uint32_t formula = dbase->last_formula_hand;
  const uint32_t compute = dbase->last_compute_hand;
  Spy spy;
  EXPECT_EQ(_ClearDatabaseState(KVICurrentSession(), dbase, 19, nullptr), KVSUCCESS);
  EXPECT_EQ(_ClearDatabaseState(KVICurrentSession(), dbase, 19, nullptr), KVSUCCESS);
  ASSERT_EQ(spy.Count("EngComputeEnd"), 1u);
  EXPECT_EQ(spy.Find("EngComputeEnd")->words[0], compute);
  ASSERT_EQ(spy.Count("EngMemFree"), 1u);
  EXPECT_EQ(spy.Find("EngMemFree")->words[0], formula);
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, ClearDatabaseState_NoInfo_InternalAndNothingClosed) {
  const uint32_t database = Open();
  Spy spy;
  EXPECT_EQ(_ClearDatabaseState(KVICurrentSession(), Record(database), 18, nullptr), KVFAIL_INTERNAL);
  EXPECT_EQ(_ClearDatabaseState(KVICurrentSession(), Record(database), 20, nullptr), KVFAIL_INTERNAL);
  EXPECT_TRUE(spy.calls().empty());
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, ClearDatabaseState_DbInfoInUse_InternalAndNothingTouched) {
  const uint32_t database = Open();
  _DATABASE* dbase = Record(database);
  EXPECT_EQ(_ClearDatabaseState(KVICurrentSession(), dbase, 15, nullptr), KVFAIL_INTERNAL);
  EXPECT_STREQ(dbase->dbinfo->db_relpath, path_.c_str());
  EXPECT_EQ(KVICurrentSession()->dbinfo_list, dbase->dbinfo);
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

// What a database has read of its design, as forms and shared fields do.
_FORMSPEC* AddForm(_DATABASE* dbase, uint32_t formid) {
  auto* form = KVIAllocate<_FORMSPEC>();
  form->pdbase = dbase;
  form->formid = formid;
  form->name = KVICopyText("Form", 4);
  form->fieldcount = 2;
  form->fieldlist = KVIAllocate<FIELDSPEC>(2);
  form->fieldlist[0].name = KVICopyText("Field", 5);
  form->next = dbase->dbinfo->forms;
  dbase->dbinfo->forms = form;
  return form;
}

void AddSharedField(_DATABASE* dbase, uint32_t noteid) {
  auto* field = KVIAllocate<_SHAREDFIELDSPEC>();
  field->noteid = noteid;
  field->fieldspec.name = KVICopyText("Shared", 6);
  field->fieldspec.dvformula = KVICopyText("formula", 7);
  field->next = dbase->dbinfo->sfields;
  dbase->dbinfo->sfields = field;
}

TEST_F(DatabaseTest, ClearDatabaseState_DbInfo_FormsAndSharedFieldsAreFreed) {
  const int64_t blocks = kit::HeapBlocks();
  const uint32_t database = Open();
  for (uint32_t id : {7u, 8u, 9u}) {
    AddForm(Record(database), id);
    AddSharedField(Record(database), id + 100);
  }
  // A slot with a shared field shows what its record owns; a slot with a subform points at another spec.
  _FORMSPEC* form = Record(database)->dbinfo->forms;
  form->fieldlist[0].flags = 0;
  form->fieldlist[1] = Record(database)->dbinfo->sfields->fieldspec;
  form->fieldlist[1].flags = KVFIELD_SHARED;
  form->next->fieldlist[1].psubform = form;
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
  EXPECT_EQ(kit::HeapBlocks(), blocks);
}

TEST_F(DatabaseTest, KVDatabaseClose_OneOfTwoHandles_SpecsStayAndBelongToTheOther) {
  const uint32_t one = Open();
  const uint32_t other = Open();
  _FORMSPEC* first = AddForm(Record(one), 7);
  _FORMSPEC* second = AddForm(Record(other), 8);
  AddSharedField(Record(one), 9);
  const _KVDBINFO* dbinfo = Record(other)->dbinfo;
  EXPECT_EQ(KVDatabaseClose(one, 0), KVSUCCESS);
  EXPECT_EQ(dbinfo->forms, second);
  EXPECT_EQ(second->next, first);
  EXPECT_NE(dbinfo->sfields, nullptr);
  EXPECT_EQ(first->pdbase, Record(other));
  EXPECT_EQ(second->pdbase, Record(other));
  EXPECT_EQ(KVDatabaseClose(other, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, ClearDatabaseState_OtherNumbers_DoNothing) {
  const uint32_t database = Open();
  Spy spy;
  for (int state : {-1, 0, 5, 21, 22, 24, 27, 28, 30, 1000})
    EXPECT_EQ(_ClearDatabaseState(KVICurrentSession(), Record(database), state, nullptr), KVSUCCESS);
  EXPECT_TRUE(spy.calls().empty());
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, ClearDatabaseState_Table_UnlinksOnceAndClearsTheCache) {
  const uint32_t database = Open();
  _DATABASE* dbase = Record(database);
  _api_session* session = KVICurrentSession();
  EXPECT_EQ(_ClearDatabaseState(session, dbase, 29, nullptr), KVSUCCESS);
  EXPECT_EQ(session->hmruDB, 0u);
  EXPECT_EQ(_GetDatabase(session, database), nullptr);
  EXPECT_EQ(_ClearDatabaseState(session, dbase, 29, nullptr), KVSUCCESS);
  _KVILinkDatabase(session, dbase);
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

}  // namespace
