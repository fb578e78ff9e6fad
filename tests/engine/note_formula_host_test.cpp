// What formulas see of notes: each question is asked of the stored image and of the open note, and both
// answer alike.
#include <memory>

#include "engine/data_fixture.h"
#include "engine/formula_memory_host.h"
#include "note/acl.h"
#include "note/file_object.h"
#include "note/formula_host.h"
#include "note/user_names.h"

using namespace brynd;

namespace {

class MapSettings : public SettingsStore {
 public:
  std::optional<std::string> Get(std::string_view name) override {
    const auto found = values_.find(std::string(name));
    return found == values_.end() ? std::nullopt : std::optional(found->second);
  }
  void Set(std::string_view name, std::string_view value) override {
    if (value.size() > 20) Fail(status::kSettingTooLong);
    values_[std::string(name)] = value;
  }

 private:
  std::map<std::string, std::string> values_;
};

class FormulaHostTest : public DataFixture {
 protected:
  FormulaHostTest() { settings_.Set("UserName", "Ann Author/Dev/Acme"); }

  static std::string Hex(const ORIGINATORID& id) {
    char digits[33];
    std::snprintf(digits, sizeof digits, "%08X%08X%08X%08X", id.File.Innards[1], id.File.Innards[0],
                  id.Note.Innards[1], id.Note.Innards[0]);
    return digits;
  }
  ORIGINATORID OriginatorOfStored(uint32_t id) {
    ORIGINATORID originator{};
    EXPECT_EQ(0, EngDbIdInfoGet(db_, id, &originator, nullptr, nullptr));
    return originator;
  }
  // A stored response to a note.
  uint32_t StoreResponse(uint32_t parent_id, std::string_view form) {
    const ORIGINATORID parent = OriginatorOfStored(parent_id);
    const EngNote note = NewNote();
    EXPECT_EQ(0, AppendText(note, "Form", form));
    std::vector<std::byte> reference(2 + sizeof(UNIVERSALNOTEID));
    StoreU16(reference.data(), 1);
    std::memcpy(reference.data() + 2, &parent, sizeof(UNIVERSALNOTEID));
    EXPECT_EQ(0, EngItemAppend(note, 4, "$REF", 4, kReferenceWord, reference.data(),
                               static_cast<uint32_t>(reference.size())));
    EXPECT_EQ(0, EngNoteUpdate(note, 4));
    const uint32_t id = IdOf(note);
    EXPECT_EQ(0, EngNoteClose(note));
    return id;
  }
  static std::vector<std::byte> FileItem(std::string_view name, uint32_t file_bytes,
                                         uint16_t object_type = 0) {
    ByteBuilder out;
    out.U16(object_type);
    out.U32(17);
    out.U16(static_cast<uint16_t>(name.size()));
    for (int word = 0; word < 4; ++word) out.U16(0);
    out.U32(file_bytes);
    for (int word = 0; word < 4; ++word) out.U32(0);
    out.Text(name);
    return out.Release();
  }
  static void AppendFile(EngNote note, const std::vector<std::byte>& file) {
    ASSERT_EQ(0, EngItemAppend(note, 4, "$FILE", 5, BRTYPE_OBJECT, file.data(),
                               static_cast<uint32_t>(file.size())));
  }

  static formula::Program Load(std::string_view source) {
    std::vector<std::byte> compiled;
    formula::CompileError error;
    EXPECT_EQ(0, formula::Compile(source, {}, &compiled, &error)) << source;
    return formula::Program::Load(compiled);
  }
  std::string OnImage(std::string_view source, uint32_t id) {
    formula::Evaluator evaluator(Load(source));
    std::string shown = "no such note";
    Owner().Store().Refresh();
    Owner().VisitNote(id, [&](const ImageView& view) {
      ImageHost host(Owner());
      host.Show(view);
      shown = formula::Show(evaluator.Evaluate(host).value);
    });
    return shown;
  }
  std::string OnNote(std::string_view source, EngNote note) {
    formula::Evaluator evaluator(Load(source));
    NoteHost host(FindNote(note));
    return formula::Show(evaluator.Evaluate(host).value);
  }
  // The answer that both give.
  std::string Ask(std::string_view source, uint32_t id) {
    const std::string on_image = OnImage(source, id);
    const EngNote note = OpenNote(id);
    EXPECT_EQ(on_image, OnNote(source, note)) << source;
    EXPECT_EQ(0, EngNoteClose(note));
    return on_image;
  }
  Found Select(std::string_view source) {
    const EngMem compiled = Compile(source);
    Found found = Search(BRCLASS_DATA, compiled);
    EXPECT_EQ(0, found.outcome);
    EXPECT_EQ(0, EngMemFree(compiled));
    return found;
  }
  void StoreList(const Acl& acl) { StoreAcl(Owner(), BuildAcl(acl)); }

  static constexpr uint16_t kReferenceWord = 4;
  using Ids = std::vector<uint32_t>;
  MapSettings settings_;
  SeamGuard<SettingsStore> settings_guard_{Process().settings, &settings_};
};

TEST_F(FormulaHostTest, Response_ParentAndOwnIdsAndCounts) {
  const uint32_t topic = StoreText("Form", "Topic");
  const uint32_t reply = StoreResponse(topic, "Reply"), second = StoreResponse(topic, "Reply");
  EXPECT_EQ("2", Ask("@Responses", topic));
  EXPECT_EQ("0", Ask("@Responses", reply));
  EXPECT_EQ("\"\"", Ask("@InheritedDocumentUniqueID", topic));
  const std::string topic_id = '"' + Hex(OriginatorOfStored(topic)) + '"';
  EXPECT_EQ(topic_id, Ask("@InheritedDocumentUniqueID", reply));
  EXPECT_EQ(topic_id, Ask("@DocumentUniqueID", topic));
  EXPECT_EQ("0", Ask("@IsResponseDoc", topic));
  EXPECT_EQ("1", Ask("@IsResponseDoc", second));
  EXPECT_EQ("\"Topic\"", Ask("@GetDocField(@InheritedDocumentUniqueID; \"form\")", reply));
  ASSERT_EQ(0, EngNoteDelete(db_, second, 0));
  EXPECT_EQ("1", Ask("@Responses", topic)) << "a deleted response does not count";
  ASSERT_EQ(0, EngNoteDelete(db_, topic, 0));
  EXPECT_EQ("!16", Ask("@GetDocField(@InheritedDocumentUniqueID; \"form\")", reply));
}

// Selections that take responses with what they answer, in a search over the stored images.
TEST_F(FormulaHostTest, Search_ChildrenAndDescendants_TakenWithTheirAncestors) {
  const uint32_t topic = StoreText("Form", "Topic"), other = StoreText("Form", "Other");
  const uint32_t reply = StoreResponse(topic, "Reply"), deep = StoreResponse(reply, "Reply");
  const uint32_t deeper = StoreResponse(deep, "Reply"), elsewhere = StoreResponse(other, "Reply");
  EXPECT_EQ((Ids{topic, reply}), Select("SELECT Form = \"Topic\" | @AllChildren").ids);
  EXPECT_EQ((Ids{topic, reply, deep, deeper}), Select("SELECT Form = \"Topic\" | @AllDescendants").ids);
  EXPECT_EQ((Ids{topic, reply, deep, deeper}), Select("Form = \"Topic\" | @AllDescendants").ids);
  EXPECT_EQ((Ids{topic, reply, deep, deeper}),
            Select("SELECT Form = \"Topic\" | (Form = \"Reply\" & @AllDescendants)").ids);
  EXPECT_EQ((Ids{}), Select("SELECT Form = \"Topic\" | Form = \"Reply\" & @AllDescendants").ids)
      << "the signs of logic go from left to right";
  EXPECT_EQ((Ids{topic}), Select("SELECT @Responses = 1 & Form = \"Topic\"").ids);
  for (const char* source :
       {"SELECT Form = \"Topic\" | @AllDescendants", "SELECT Form = \"None\" | @AllChildren"}) {
    for (const uint32_t id : {topic, other, reply, deep, deeper, elsewhere}) Ask(source, id);
  }
}

// References may lead in a circle, to the document itself, or nowhere.
TEST_F(FormulaHostTest, AllDescendants_CircleOfReferences_Ends) {
  const uint32_t first = StoreText("Form", "First");
  const uint32_t second = StoreResponse(first, "Second");
  const ORIGINATORID id = OriginatorOfStored(second);
  const EngNote note = OpenNote(first);
  std::vector<std::byte> reference(2 + sizeof(UNIVERSALNOTEID));
  StoreU16(reference.data(), 1);
  std::memcpy(reference.data() + 2, &id, sizeof(UNIVERSALNOTEID));
  ASSERT_EQ(0, EngItemAppend(note, 4, "$REF", 4, kReferenceWord, reference.data(), 18));
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  ASSERT_EQ(0, EngNoteClose(note));
  EXPECT_EQ("0", Ask("SELECT Form = \"None\" | @AllDescendants", first));
  EXPECT_EQ("1", Ask("SELECT Form = \"First\" | @AllDescendants", second));
  EXPECT_EQ("1", Ask("SELECT Form = \"Second\" | @AllDescendants", first));
}

// Deeper than answers are followed, and one less.
TEST_F(FormulaHostTest, AllDescendants_LongChain_FollowedUpToTheLimit) {
  uint32_t last = StoreText("Form", "Topic");
  for (int generation = 0; generation < 32; ++generation) last = StoreResponse(last, "Reply");
  EXPECT_EQ("1", Ask("SELECT Form = \"Topic\" | @AllDescendants", last));
  last = StoreResponse(last, "Reply");
  EXPECT_EQ("0", Ask("SELECT Form = \"Topic\" | @AllDescendants", last));
}

// The question about an ancestor changes neither documents nor settings.
TEST_F(FormulaHostTest, AllDescendants_FormulaThatWrites_AncestorUnchanged) {
  const uint32_t topic = StoreText("Form", "Topic"), reply = StoreResponse(topic, "Reply");
  const EngNote note = OpenNote(reply);
  EXPECT_EQ("1", OnNote("FIELD Mark := Form; @SetEnvironment(\"FormulaMark\"; Form); "
                        "SELECT Form = \"Topic\" | @AllDescendants",
                        note));
  EXPECT_EQ("Reply", Text(note, "Mark"));
  EXPECT_EQ("Reply", settings_.Get("FormulaMark").value_or(""));
  EXPECT_EQ(0, EngNoteClose(note));
  EXPECT_EQ("0", Ask("@IsAvailable(Mark)", topic));
}

TEST_F(FormulaHostTest, Attachments_FileItems_NamesAndLengths) {
  const EngNote note = NewNote();
  ASSERT_EQ(0, AppendText(note, "Form", "Memo"));
  EXPECT_EQ("0", OnNote("@Attachments", note));
  EXPECT_EQ("\"\":\"\"", OnNote("@AttachmentNames:@AttachmentLengths", note));
  AppendFile(note, FileItem("plan.txt", 1200));
  AppendFile(note, FileItem("an object", 5, 3));  // no file
  std::vector<std::byte> cut = FileItem("cut short.txt", 7);
  cut.pop_back();
  AppendFile(note, cut);
  ASSERT_EQ(0, AppendText(note, "$FILE", "not an object"));
  AppendFile(note, FileItem("photo.png", 0xffffffff));
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  const uint32_t id = IdOf(note);
  ASSERT_EQ(0, EngNoteClose(note));
  EXPECT_EQ("2", Ask("@Attachments", id));
  EXPECT_EQ("\"plan.txt\":\"photo.png\"", Ask("@AttachmentNames", id));
  EXPECT_EQ("1200:4294967295", Ask("@AttachmentLengths", id));
}

TEST_F(FormulaHostTest, ReadFileObject_EveryTruncation_Refused) {
  ByteBuilder value;
  value.U16(BRTYPE_OBJECT);
  value.Put(FileItem("plan.txt", 1200));
  const std::vector<std::byte> whole = value.Release();
  FileObject file;
  ASSERT_TRUE(ReadFileObject(whole, &file));
  EXPECT_EQ("plan.txt", file.name);
  EXPECT_EQ(1200u, file.file_bytes);
  for (size_t bytes = 0; bytes < whole.size(); ++bytes)
    EXPECT_FALSE(ReadFileObject(Bytes(whole).first(bytes), &file)) << bytes;
}

TEST_F(FormulaHostTest, Author_ItemsInOrder_FirstThatSaysIt) {
  const EngNote note = NewNote();
  EXPECT_EQ("\"CN=Ann Author/OU=Dev/O=Acme\"", OnNote("@Author", note)) << "a new document is the user's";
  ASSERT_EQ(0, AppendText(note, "$UpdatedBy", "CN=Bob/O=Acme"));
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  const uint32_t id = IdOf(note);
  EXPECT_EQ("\"CN=Bob/O=Acme\"", Ask("@Author", id));
  ASSERT_EQ(0, AppendText(note, "From", "Carl"));
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  ASSERT_EQ(0, EngNoteClose(note));
  EXPECT_EQ("\"Carl\"", Ask("@Author", id));
  EXPECT_EQ("\"\"", Ask("@Author", StoreText("Form", "Memo")));
}

TEST_F(FormulaHostTest, Access_StoredList_LevelRolesManagers) {
  const uint32_t id = StoreText("Form", "Memo");
  EXPECT_EQ("5", Ask("@UserAccess", id)) << "what a new list grants to everybody";
  EXPECT_EQ("\"CN=Ann Author/OU=Dev/O=Acme\":\"*/OU=Dev/O=Acme\":\"*/O=Acme\"", Ask("@UserNamesList", id));
  Acl acl = NewAcl();
  acl.roles = {"Press", "", "[Board]", "Staff"};
  acl.entries.push_back({.name = "Max/Acme", .level = AclLevel::kManager});
  acl.entries.push_back({.name = "*/Acme", .level = AclLevel::kReader});
  acl.entries.push_back({.name = "Ann Author/Dev/Acme", .level = AclLevel::kEditor});
  acl.entries.back().roles[0] = std::byte{0x0f};
  acl.entries.push_back({.name = "Servers", .level = AclLevel::kManager});
  StoreList(acl);
  EXPECT_EQ("4", Ask("@UserAccess", id));
  EXPECT_EQ("\"Editor\"", Ask("@UserAccess([LevelName])", id));
  EXPECT_EQ("\"[Press]\":\"[Board]\":\"[Staff]\"", Ask("@UserRoles", id));
  EXPECT_EQ("\"Max/Acme\":\"Servers\"", Ask("@DbManager", id));
  settings_.Set("UserName", "Bob/Sales/Acme");
  EXPECT_EQ("2", Ask("@UserAccess", id)) << "by the wildcard";
  EXPECT_EQ("\"\"", Ask("@UserRoles", id));
  settings_.Set("UserName", "Zoe/Other");
  EXPECT_EQ("5", Ask("@UserAccess", id)) << "by the default";
  acl.entries.erase(acl.entries.begin());
  StoreList(acl);
  EXPECT_EQ("0", Ask("@UserAccess", id));
  settings_.Set("UserName", "");
  EXPECT_EQ("\"\"", Ask("@UserNamesList", id));
  EXPECT_EQ("\"\"", Ask("@UserName", id));
}

TEST_F(FormulaHostTest, NamesOfUser_AnyName_WildcardsFromInside) {
  using Names = std::vector<std::string>;
  EXPECT_EQ(Names{}, NamesOfUser(""));
  EXPECT_EQ(Names{"Jo"}, NamesOfUser("Jo"));
  EXPECT_EQ((Names{"CN=Jo/OU=A/O=B/C=US", "*/OU=A/O=B/C=US", "*/O=B/C=US", "*/C=US"}),
            NamesOfUser("Jo/A/B/US"));
  EXPECT_EQ((Names{"a//b", "*//b", "*/b"}), NamesOfUser("a//b")) << "no name: compared as it stands";
}

TEST_F(FormulaHostTest, Name_ListDamaged_StatusOfTheEvaluation) {
  const uint32_t id = StoreText("Form", "Memo");
  PutFact(Owner(), "acl", BytesOf("not a list"));
  formula::Evaluator evaluator(Load("@UserAccess"));
  const EngNote note = OpenNote(id);
  NoteHost host(FindNote(note));
  EXPECT_EQ(status::kBadAcl, AtBoundary([&] { evaluator.Evaluate(host); }));
  EXPECT_EQ(0, EngNoteClose(note));
}

TEST_F(FormulaHostTest, SetDocField_OpenNote_OtherDocumentStored) {
  const uint32_t topic = StoreText("Form", "Topic"), reply = StoreResponse(topic, "Reply");
  const EngNote note = OpenNote(reply);
  EXPECT_EQ("1:2", OnNote("@SetDocField(@InheritedDocumentUniqueID; \"Votes\"; 1:2)", note));
  EXPECT_EQ("1:2", Ask("Votes", topic));
  EXPECT_EQ("\"changed\"", OnNote("@SetDocField(@InheritedDocumentUniqueID; \"form\"; \"changed\")", note));
  EXPECT_EQ("1", Ask("@Elements(@DocFields) = 2 & Form = \"changed\"", topic));
  EXPECT_EQ("nothing", OnNote("@SetDocField(@InheritedDocumentUniqueID; \"Votes\"; @DeleteField)", note));
  EXPECT_EQ("0", Ask("@IsAvailable(Votes)", topic));
  EXPECT_EQ("\"mine\"", OnNote("@SetDocField(@DocumentUniqueID; \"Form\"; \"mine\"); Form", note));
  EXPECT_EQ("mine", Text(note, "Form"));
  EXPECT_EQ("!16", OnNote("@SetDocField(@Repeat(\"0\"; 32); \"Form\"; 1)", note));
  EXPECT_EQ(0, EngNoteClose(note));
  EXPECT_EQ("\"Reply\"", Ask("Form", reply)) << "the note itself is stored by its owner";
  EXPECT_EQ("!14", OnImage("@SetDocField(@InheritedDocumentUniqueID; \"Form\"; 1)", reply));
  EXPECT_EQ("\"changed\"", Ask("Form", topic));
}

TEST_F(FormulaHostTest, Abstract_CompositeBody_ItsText) {
  const EngNote note = NewNote();
  ByteBuilder body;
  for (const std::string_view text : {"One line", "another"}) {
    body.U16(0x0281);
    body.U16(0xff85);
    body.U16(static_cast<uint16_t>(8 + text.size()));
    body.U32(0);
    body.Text(text);
    if (text.size() % 2 != 0) body.U8(0);
  }
  const std::vector<std::byte> value = body.Release();
  ASSERT_EQ(0, EngItemAppend(note, 0, "Body", 4, BRTYPE_COMPOSITE, value.data(),
                             static_cast<uint32_t>(value.size())));
  ASSERT_EQ(0, EngNoteUpdate(note, 0));
  const uint32_t id = IdOf(note);
  ASSERT_EQ(0, EngNoteClose(note));
  EXPECT_EQ("\"One line another\"", Ask("@Abstract([TrimWhite]; 99; \"\"; \"Body\")", id));
}

TEST_F(FormulaHostTest, Environment_EngineText_SettingsInUtf8) {
  const uint32_t id = StoreText("Form", "Memo");
  settings_.Set("Caf\xc3\xa9", "cr\xc3\xa8me");
  EXPECT_EQ("\"cr\xe8me\"", Ask("@Environment(\"Caf\xe9\")", id));
  EXPECT_EQ("\"\xfc\"", Ask("@SetEnvironment(\"Other\"; \"\xfc\"); @Environment(\"Other\")", id));
  EXPECT_EQ("\xc3\xbc", settings_.Get("Other").value_or(""));
  EXPECT_EQ("!14", Ask("@SetEnvironment(\"Other\"; @Repeat(\"x\"; 21))", id))
      << "longer than a setting can be";
}

TEST_F(FormulaHostTest, Database_Facts_TitlePathReplica) {
  const uint32_t id = StoreText("Form", "Memo");
  EXPECT_EQ("\"\"", Ask("@DbTitle", id));
  char info[128] = "Packages\nTools";
  ASSERT_EQ(0, EngDbInfoSet(db_, info));
  EXPECT_EQ("\"Packages\"", Ask("@DbTitle", id));
  EXPECT_EQ("\"test\"", Ask("@DbName", id));
  EXPECT_EQ("17", Ask("@Length(@ReplicaID)", id));
}

// What needs collections says that it is not there; a database is found by its path.
TEST_F(FormulaHostTest, OtherDatabases_PathsAndViews) {
  const uint32_t id = StoreText("Form", "Memo");
  EXPECT_EQ("1", Ask("@DbExists(\"test\")", id));
  EXPECT_EQ("1", Ask("@DbExists(\"\"; \"other.qdb\")", id));
  EXPECT_EQ("0", Ask("@DbExists(\"none\")", id));
  EXPECT_EQ("0", Ask("@DbExists(\"\")", id));
  EXPECT_EQ("0", Ask("@DbExists(\"no server\"; \"test\")", id));
  EXPECT_EQ("!15", Ask("@DbColumn(\"\"; \"\"; \"Rows\"; 1)", id));
  EXPECT_EQ("!15", Ask("@DbLookup(\"\"; \"\"; \"Rows\"; \"a\"; 1)", id));
  EXPECT_EQ("\"\"", Ask("@DbLookup(\"\"; \"\"; \"Rows\"; \"a\"; 1; [FailSilent])", id));
  EXPECT_EQ((Ids{}), Select("@DbExists(\"test\")").ids) << "a selection keeps to its document";
  EXPECT_EQ((Ids{id}), Select("@IsError(@DbExists(\"test\"))").ids);
}

}  // namespace
