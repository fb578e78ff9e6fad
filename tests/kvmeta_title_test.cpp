// Titles of design records: taken apart, put together, stored and read.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kvmeta_world.h"

namespace {

using kit::Fault;
using kit::Spy;
using kvdoc::ItemsOf;
using kvdoc::kEngineFailure;
using kvdoc::TextList;
using kvmeta::Title;
using kvmeta::TitleList;

struct Parsed {
  uint32_t status = 0;
  std::string name, menu, cascade;
  int32_t hidden = 0;
  bool operator==(const Parsed&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Parsed& parsed) {
  return out << std::hex << parsed.status << " name '" << parsed.name << "' menu '" << parsed.menu
             << "' cascade '" << parsed.cascade << "' hidden " << parsed.hidden;
}

// Parses a copy of exact size, so that a step past its end is seen; absent pieces have no address.
Parsed Parse(const std::string& value, uint16_t type) {
  const std::vector<char> buffer(value.begin(), value.end());
  const char* pieces[3] = {"x", "x", "x"};
  uint16_t lengths[3] = {9, 9, 9};
  int32_t hidden = 9;
  Parsed parsed;
  parsed.status = ParseTitle(buffer.data(), static_cast<uint32_t>(buffer.size()), type, &pieces[0],
                             &lengths[0], &pieces[1], &lengths[1], &pieces[2], &lengths[2], &hidden);
  std::string* texts[] = {&parsed.name, &parsed.menu, &parsed.cascade};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(pieces[i] == nullptr, lengths[i] == 0);
    if (pieces[i] == nullptr) continue;
    EXPECT_GE(pieces[i], buffer.data());
    EXPECT_LE(pieces[i] + lengths[i], buffer.data() + buffer.size());
    texts[i]->assign(pieces[i], lengths[i]);
  }
  parsed.hidden = hidden;
  return parsed;
}
Parsed ParseText(const std::string& text) { return Parse(text, BRTYPE_TEXT); }
Parsed ParseList(const std::vector<std::string>& entries) {
  return Parse(TextList(entries), BRTYPE_TEXT_LIST);
}

TEST(Title, ParseTitle_Texts_SplitAsWritten) {
  const struct {
    const char* text;
    Parsed expected;
  } rows[] = {
      {"", {0, "", "", "", 0}},
      {"Name", {0, "Name", "Name", "", 0}},
      {"Main\\Sub|Alias", {0, "Alias", "Main", "Sub", 0}},
      {"Main|Alias", {0, "Alias", "Main", "", 0}},
      {"Main\\Sub", {0, "Main\\Sub", "Main", "Sub", 0}},
      {"Main\\Sub\\Deep", {0, "Main\\Sub\\Deep", "Main", "Sub\\Deep", 0}},
      {"Main|Middle|Alias", {0, "Alias", "Main", "", 0}},
      {"Main|A\\B", {0, "A\\B", "Main", "", 0}},
      {"Main|Mid\\dle|Alias", {0, "Alias", "Main", "", 0}},
      {"(Hidden)", {0, "(Hidden)", "Hidden", "", 1}},
      {"(Main\\Sub)|Alias", {0, "Alias", "Main", "Sub", 1}},
      {"(Main)|Alias", {0, "Alias", "Main", "", 1}},
      {"(Main|Alias", {0, "Alias", "Main", "", 1}},
      {"(Main)\\Sub|Alias", {0, "Alias", "Main)", "Sub", 1}},
      {"(Main\\)|Alias", {0, "Alias", "Main", "", 1}},
      {"(", {0, "(", "", "", 1}},
      {"()", {0, "()", "", "", 1}},
      {" (Shown)", {0, "(Shown)", "(Shown)", "", 0}},
      {"Main)|Alias", {0, "Alias", "Main)", "", 0}},
      {"  Main \\ Sub  |  Alias  ", {0, "Alias", "Main", "Sub", 0}},
      {"( Main ) |Alias", {0, "Alias", "Main )", "", 1}},
      {"   ", {0, "", "", "", 0}},
      {"|Alias", {0, "Alias", "Alias", "", 0}},
      {"Main|", {0, "", "Main", "", 0}},
      {"|", {0, "", "", "", 0}},
      {"\\", {0, "\\", "\\", "", 0}},
      {"\\Sub|Alias", {0, "Alias", "Alias", "Sub", 0}},
      {"Main\\|Alias", {0, "Alias", "Main", "", 0}},
      {"Main\tx|Alias\t", {0, "Alias\t", "Main\tx", "", 0}},
  };
  for (const auto& row : rows) EXPECT_EQ(ParseText(row.text), row.expected) << row.text;
}

TEST(Title, ParseTitle_Lists_FirstEntryForMenusLastIsTheName) {
  const struct {
    std::vector<std::string> entries;
    Parsed expected;
  } rows[] = {
      {{}, {0, "", "", "", 0}},
      {{"Name"}, {0, "Name", "Name", "", 0}},
      {{"Main\\Sub"}, {0, "Main\\Sub", "Main\\Sub", "", 0}},  // a single entry is not split
      {{"Main\\Sub", "Alias"}, {0, "Alias", "Main", "Sub", 0}},
      {{"Main", "Alias"}, {0, "Alias", "Main", "", 0}},
      {{"Main\\", "Alias"}, {0, "Alias", "Main", "", 0}},
      {{"Main\\Sub", "Middle", "Alias"}, {0, "Alias", "Main", "Sub", 0}},
      {{"", "Alias"}, {0, "Alias", "Alias", "", 0}},
      {{"Main", ""}, {0, "", "Main", "", 0}},
      {{""}, {0, "", "", "", 0}},
      {{"(Main\\Sub)", "Alias"}, {0, "Alias", "Main", "Sub", 1}},
      {{"(Name)"}, {0, "(Name)", "Name", "", 1}},
      {{" Main ", " Alias "}, {0, "Alias", "Main", "", 0}},
      {{"A|B", "C|D"}, {0, "C|D", "A|B", "", 0}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ParseList(row.entries), row.expected) << testing::PrintToString(row.entries);
    const std::string with_tail = TextList(row.entries) + "tail";  // what lies behind the texts is not read
    EXPECT_EQ(Parse(with_tail, BRTYPE_TEXT_LIST), row.expected) << testing::PrintToString(row.entries);
  }
}

TEST(Title, ParseTitle_DamagedLists_BadFormatAndNothing) {
  const Parsed bad{KVFAIL_BAD_FORMAT, "", "", "", 0};
  const std::string whole = TextList({"Main\\Sub", "Middle", "Alias"});
  for (size_t bytes = 1; bytes < whole.size(); ++bytes)
    EXPECT_EQ(Parse(whole.substr(0, bytes), BRTYPE_TEXT_LIST), bad) << bytes;
  EXPECT_EQ(Parse(whole, BRTYPE_TEXT_LIST).status, KVSUCCESS);
  for (uint16_t count : {uint16_t{4}, uint16_t{40}, uint16_t{0xffff}}) {
    std::string list = TextList({"A"});
    KVIStore<uint16_t>(list.data(), count);
    EXPECT_EQ(Parse(list, BRTYPE_TEXT_LIST), bad) << count;
  }
  for (size_t entry = 0; entry < 3; ++entry) {
    std::string list = whole;
    KVIStore<uint16_t>(list.data() + 2 + 2 * entry, 0xffff);
    EXPECT_EQ(Parse(list, BRTYPE_TEXT_LIST), bad) << entry;
  }
}

TEST(Title, ParseTitle_OtherTypes_BadFormatUnlessEmpty) {
  for (uint32_t word : {0x300u, 0x400u, 0x600u, 0u, 1u, 0x502u, 0xffffu}) {
    const auto type = static_cast<uint16_t>(word);
    EXPECT_EQ(Parse("Main|Alias", type).status, KVFAIL_BAD_FORMAT) << type;
    EXPECT_EQ(Parse("", type), Parsed()) << type;
  }
}

TEST(Title, ParseTitle_LongestTexts_WholeAndThenRefused) {
  const std::string longest(0xffff, 'n');
  EXPECT_EQ(ParseText(longest).name, longest);
  EXPECT_EQ(ParseText(longest + "n"), (Parsed{KVFAIL_BAD_FORMAT, "", "", "", 0}));
}

// ---- Putting together

struct Made {
  uint32_t status = 0;
  std::string title;
};

Made Make(const char* name, const char* menu, const char* cascade) {
  std::vector<char> out(kDesignNameBytes, 'x');
  Made made;
  made.status = KVIDesignNoteMakeName(name, menu, cascade, out.data());
  EXPECT_EQ(out.back(), 0);
  made.title = out.data();
  return made;
}

TEST(Title, KVIDesignNoteMakeName_Names_MakeTitles) {
  const struct {
    const char* name;
    const char* menu;
    const char* cascade;
    const char* title;
  } rows[] = {
      {"Name", nullptr, nullptr, "Name"},
      {"Name", "", "", "Name"},
      {"Alias", "Main", "Sub", "Main\\Sub|Alias"},
      {"Alias", "Main", nullptr, "Main|Alias"},
      {"Main", "Main", nullptr, "Main"},
      {"Main\\Sub", "Main", "Sub", "Main\\Sub"},
      {"(Alias)", "Main", "Sub", "(Main\\Sub)|(Alias)"},
      {"(Main)", "Main", nullptr, "(Main)"},
      {"(Name)", nullptr, nullptr, "(Name)"},
      {"  Alias", "Main", nullptr, "Main|Alias"},
      {" \t\r\n\v\f", "Main", nullptr, "Main"},
      {"  Name", nullptr, nullptr, "  Name"},
      {"Main\\Sub|Alias", nullptr, nullptr, "Main\\Sub|Alias"},
      {"A|B", "Main", nullptr, "Main|A|B"},
      {"main", "Main", nullptr, "Main|main"},  // case counts
  };
  for (const auto& row : rows) {
    const Made made = Make(row.name, row.menu, row.cascade);
    EXPECT_EQ(made.status, KVSUCCESS) << row.title;
    EXPECT_EQ(made.title, row.title);
  }
}

TEST(Title, KVIDesignNoteMakeName_BadNames_TheirStatus) {
  const std::string long_piece(65, 'p');
  const struct {
    const char* name;
    const char* menu;
    const char* cascade;
    uint32_t status;
  } rows[] = {
      {nullptr, "Main", nullptr, KVFAIL_BAD_FORMAT},
      {"", "Main", "Sub", KVFAIL_BAD_FORMAT},
      {nullptr, nullptr, nullptr, KVFAIL_BAD_FORMAT},
      {"Alias", nullptr, "Sub", KVFAIL_BAD_FORMAT},
      {"Alias", "", "Sub", KVFAIL_BAD_FORMAT},
      {"Alias", "A(B", nullptr, KVFAIL_BAD_FORMAT},
      {"Alias", "A)B", nullptr, KVFAIL_BAD_FORMAT},
      {"Alias", "A\\B", nullptr, KVFAIL_BAD_FORMAT},
      {"Alias", "A|B", nullptr, KVFAIL_BAD_FORMAT},
      {"Alias", "Main", "A(B", KVFAIL_BAD_FORMAT},
      {"Alias", "Main", "A)B", KVFAIL_BAD_FORMAT},
      {"Alias", "Main", "A\\B", KVFAIL_BAD_FORMAT},
      {"Alias", "Main", "A|B", KVFAIL_BAD_FORMAT},
      {"Alias", long_piece.c_str(), nullptr, KVFAIL_DATA_TOO_LONG},
      {"Alias", "Main", long_piece.c_str(), KVFAIL_DATA_TOO_LONG},
      {"Alias", long_piece.c_str(), "A|B", KVFAIL_DATA_TOO_LONG},  // the menu name is looked at first
      {"(Alias", nullptr, nullptr, KVFAIL_BAD_FORMAT},
      {"(Alias", "Main", nullptr, KVFAIL_BAD_FORMAT},
      {"(", nullptr, nullptr, KVFAIL_BAD_FORMAT},
      {"A\\B", "Main", nullptr, KVFAIL_BAD_FORMAT},
  };
  for (const auto& row : rows) {
    const Made made = Make(row.name, row.menu, row.cascade);
    EXPECT_EQ(made.status, row.status) << &row - rows;
    EXPECT_EQ(made.title, "") << &row - rows;
  }
}

TEST(Title, KVIDesignNoteMakeName_Limits_OneBelowAtOneAbove) {
  for (uint32_t bytes : {128u, 129u, 130u, 300u, 70000u}) {
    const std::string name(bytes, 'n');
    EXPECT_EQ(Make(name.c_str(), nullptr, nullptr).status, bytes > 129 ? KVFAIL_DATA_TOO_LONG : KVSUCCESS)
        << bytes;
    EXPECT_EQ(Make(name.c_str(), "M", nullptr).status, bytes > 127 ? KVFAIL_DATA_TOO_LONG : KVSUCCESS)
        << bytes;
  }
  const std::string piece(64, 'p');
  EXPECT_EQ(Make("n", piece.c_str(), nullptr).title, piece + "|n");
  EXPECT_EQ(Make("n", piece.c_str(), piece.c_str()).status, KVFAIL_DATA_TOO_LONG);  // 64 + 1 + 64 + 2
  const std::string shorter(62, 'p');
  EXPECT_EQ(Make("n", piece.c_str(), shorter.c_str()).title, piece + "\\" + shorter + "|n");
}

TEST(Title, KVIDesignNoteMakeName_TitleParsedAgain_GivesTheNames) {
  const struct {
    const char* name;
    const char* menu;
    const char* cascade;
  } rows[] = {
      {"Alias", "Main", "Sub"}, {"Alias", "Main", ""}, {"(Alias)", "Main", "Sub"}, {"Main", "Main", ""}};
  for (const auto& row : rows) {
    const Parsed parsed = ParseText(Make(row.name, row.menu, row.cascade).title);
    EXPECT_EQ(parsed, (Parsed{0, row.name, row.menu, row.cascade, *row.name == '('}));
  }
}

// ---- Stored titles

class StoredTitleTest : public kvmeta::DesignTest {
 protected:
  uint32_t Set(const char* title, const char* menu, const char* cascade, int text_only, int hidden) {
    note_ = NewNote();
    return _KVIDesignNoteSetTitle(session_, note_, title, menu, cascade, text_only, hidden);
  }
  // The one title that is stored; the note is closed.
  kvdoc::NoteItem Stored() {
    const std::vector<kvdoc::NoteItem> items = ItemsOf(note_, "$TITLE");
    EXPECT_EQ(EngNoteClose(note_), 0);
    EXPECT_EQ(items.size(), 1u);
    return items.empty() ? kvdoc::NoteItem() : items[0];
  }
  void ExpectText(const std::string& text) {
    const kvdoc::NoteItem item = Stored();
    EXPECT_EQ(item.type, BRTYPE_TEXT);
    EXPECT_EQ(item.bytes, text);
    EXPECT_EQ(item.flags & 4, 4);
  }
  void ExpectList(const std::vector<std::string>& entries) {
    const kvdoc::NoteItem item = Stored();
    EXPECT_EQ(item.type, BRTYPE_TEXT_LIST);
    EXPECT_EQ(item.bytes, TextList(entries));
    EXPECT_EQ(item.flags & 4, 4);
  }
  EngNote note_ = 0;
};

TEST_F(StoredTitleTest, KVIDesignNoteSetTitle_NoSynonym_PlainText) {
  EXPECT_EQ(Set("Name", nullptr, nullptr, 0, 0), KVSUCCESS);
  ExpectText("Name");
  EXPECT_STREQ(session_->buffer, "Name");
}

TEST_F(StoredTitleTest, KVIDesignNoteSetTitle_Synonyms_ListOfThem) {
  EXPECT_EQ(Set("Alias", "Main", "Sub", 0, 0), KVSUCCESS);
  ExpectList({"Main\\Sub", "Alias"});
  EXPECT_EQ(Set("A|  B| \tC|A", nullptr, nullptr, 0, 0), KVSUCCESS);
  ExpectList({"A", "B", "C", "A"});
  EXPECT_EQ(Set("A|", nullptr, nullptr, 0, 0), KVSUCCESS);
  ExpectList({"A", ""});
}

TEST_F(StoredTitleTest, KVIDesignNoteSetTitle_TextOnly_WholeText) {
  EXPECT_EQ(Set("Alias", "Main", "Sub", 1, 0), KVSUCCESS);
  ExpectText("Main\\Sub|Alias");
}

TEST_F(StoredTitleTest, KVIDesignNoteSetTitle_ForceHidden_ParenthesesAroundThePartForMenus) {
  EXPECT_EQ(Set("Name", nullptr, nullptr, 0, 1), KVSUCCESS);
  ExpectText("(Name)");
  EXPECT_EQ(Set("Alias", "Main", "Sub", 0, 1), KVSUCCESS);
  ExpectList({"(Main\\Sub)", "Alias"});
  EXPECT_EQ(Set("Alias", "Main", "Sub", 1, 1), KVSUCCESS);
  ExpectText("(Main\\Sub)|Alias");
  EXPECT_EQ(Set("(Alias)", "Main", nullptr, 0, 1), KVSUCCESS);  // hidden by its name already
  ExpectList({"(Main)", "(Alias)"});
  for (uint32_t bytes : {126u, 127u, 128u}) {
    const std::string name(bytes, 'n');
    EXPECT_EQ(Set(name.c_str(), nullptr, nullptr, 0, 1), bytes > 127 ? KVFAIL_DATA_TOO_LONG : KVSUCCESS);
    EXPECT_EQ(EngNoteClose(note_), 0);
  }
}

TEST_F(StoredTitleTest, KVIDesignNoteSetTitle_NoRecord_ValidatesAlone) {
  Spy spy;
  EXPECT_EQ(_KVIDesignNoteSetTitle(session_, 0, "Alias", "Main", nullptr, 0, 0), KVSUCCESS);
  EXPECT_EQ(_KVIDesignNoteSetTitle(session_, 0, "Alias", "A|B", nullptr, 0, 0), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(_KVIDesignNoteSetTitle(session_, 0, nullptr, nullptr, nullptr, 0, 0), KVFAIL_BAD_FORMAT);
  EXPECT_TRUE(spy.calls().empty());
}

TEST_F(StoredTitleTest, KVIDesignNoteSetTitle_BadName_NothingStored) {
  EXPECT_EQ(Set("Alias", nullptr, "Sub", 0, 0), KVFAIL_BAD_FORMAT);
  EXPECT_TRUE(ItemsOf(note_, "$TITLE").empty());
  EXPECT_EQ(EngNoteClose(note_), 0);
}

TEST_F(StoredTitleTest, KVIDesignNoteSetTitle_EngineFails_ItsStatus) {
  for (const char* call : {"EngItemTextListAppend", "EngItemTextSet"})
    for (uint32_t nth : {1u, 2u}) {
      if (nth == 2 && strcmp(call, "EngItemTextSet") == 0) continue;
      note_ = NewNote();
      Fault fault = Fault::EngineCall(nth, kEngineFailure, call);
      const int text_only = strcmp(call, "EngItemTextSet") == 0;
      EXPECT_EQ(_KVIDesignNoteSetTitle(session_, note_, "Alias", "Main", nullptr, text_only, 0),
                kEngineFailure)
          << call << nth;
      EXPECT_TRUE(fault.Hit());
      fault.Disarm();
      EXPECT_EQ(EngNoteClose(note_), 0);
    }
}

struct Names {
  uint32_t status = 0;
  std::string name, menu, cascade;
  int32_t hidden = 0;
};

Names NamesOf(EngNote note) {
  char* texts[3] = {};
  Names names;
  names.hidden = 9;
  names.status = KVIDesignNoteGetNames(note, &texts[0], &texts[1], &texts[2], &names.hidden);
  std::string* targets[] = {&names.name, &names.menu, &names.cascade};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(texts[i] == nullptr, names.status != KVSUCCESS);
    if (texts[i] == nullptr) continue;
    *targets[i] = texts[i];
    KVIFree(texts[i]);
  }
  return names;
}

TEST_F(StoredTitleTest, KVIDesignNoteGetNames_TextAndList_Copies) {
  for (const kvdoc::NoteItem& item : {Title("(Main\\Sub)|Alias"), TitleList({"(Main\\Sub)", "Alias"})}) {
    const EngNote note = NewNote({item});
    const Names names = NamesOf(note);
    EXPECT_EQ(names.status, KVSUCCESS);
    EXPECT_EQ(names.name, "Alias");
    EXPECT_EQ(names.menu, "Main");
    EXPECT_EQ(names.cascade, "Sub");
    EXPECT_EQ(names.hidden, 1);
    EXPECT_EQ(KVIDesignNoteGetNames(note, nullptr, nullptr, nullptr, nullptr), KVSUCCESS);
    EXPECT_EQ(EngNoteClose(note), 0);
  }
}

TEST_F(StoredTitleTest, KVIDesignNoteGetNames_AbsentPieces_EmptyStrings) {
  for (const char* text : {"Name", ""}) {
    const EngNote note = NewNote({Title(text)});
    const Names names = NamesOf(note);
    EXPECT_EQ(names.status, KVSUCCESS);
    EXPECT_EQ(names.name, text);
    EXPECT_EQ(names.menu, text);
    EXPECT_EQ(names.cascade, "");
    EXPECT_EQ(names.hidden, 0);
    EXPECT_EQ(EngNoteClose(note), 0);
  }
}

TEST_F(StoredTitleTest, KVIDesignNoteGetNames_LongTitle_NotCut) {
  const std::string name(20000, 'n');
  const EngNote note = NewNote({Title("Main|" + name)});
  EXPECT_EQ(NamesOf(note).name, name);
  EXPECT_EQ(EngNoteClose(note), 0);
}

TEST_F(StoredTitleTest, KVIDesignNoteGetNames_NoTitleOrBrokenOne_StatusAndNulls) {
  EngNote note = NewNote();
  EXPECT_EQ(NamesOf(note).status, 0x222u);
  EXPECT_EQ(EngNoteClose(note), 0);
  std::string list = TextList({"A", "B"});
  list.resize(list.size() - 1);
  const kvdoc::NoteItem broken[] = {{"$TITLE", BRTYPE_NUMBER, 4, std::string(8, 'x')},
                                    {"$TITLE", BRTYPE_TEXT_LIST, 4, list},
                                    {"$TITLE", BRTYPE_TEXT_LIST, 4, "\xff\xff"},
                                    {"$TITLE", BRTYPE_TEXT_LIST, 4, "\x01"}};
  for (const kvdoc::NoteItem& item : broken) {
    note = NewNote({item});
    const Names names = NamesOf(note);
    EXPECT_EQ(names.status, KVFAIL_BAD_FORMAT);
    EXPECT_EQ(names.hidden, 0);
    EXPECT_EQ(EngNoteClose(note), 0);
  }
}

TEST_F(StoredTitleTest, KVIDesignNoteGetNames_NoMemory_NothingLeft) {
  const EngNote note = NewNote({Title("Main\\Sub|Alias")});
  for (uint32_t nth = 1;; ++nth) {
    const int64_t before = kit::HeapBlocks();
    Fault fault = Fault::Allocation(nth);
    const Names names = NamesOf(note);
    const bool hit = fault.Hit();
    fault.Disarm();
    EXPECT_EQ(kit::HeapBlocks(), before);
    if (!hit) {
      EXPECT_EQ(nth, 4u);
      break;
    }
    EXPECT_EQ(names.status, KVFAIL_NO_MEMORY);
  }
  EXPECT_EQ(EngNoteClose(note), 0);
}

struct QixName {
  uint32_t status = 0;
  std::string name;
  uint16_t length = 0;
};

QixName QixNameOf(EngNote note) {
  std::vector<char> text(kDesignNameBytes, 'x');
  QixName qix;
  qix.length = 9;
  qix.status = KVIDesignNoteGetQIXName(note, text.data(), &qix.length);
  EXPECT_EQ(text.back(), 0);
  qix.name = text.data();
  EXPECT_EQ(qix.name.size(), qix.length);
  EXPECT_EQ(KVIDesignNoteGetQIXName(note, text.data(), nullptr), qix.status);
  return qix;
}

TEST_F(StoredTitleTest, KVIDesignNoteGetQIXName_Titles_AsTheNameIndexHasThem) {
  const struct {
    std::vector<kvdoc::NoteItem> items;
    uint32_t status;
    std::string name;
  } rows[] = {{{Title("Main\\Sub|Alias")}, KVSUCCESS, "Main\\Sub|Alias"},
              {{TitleList({"Main\\Sub", "Alias"})}, KVSUCCESS, "Main\\Sub"},
              {{TitleList({})}, KVSUCCESS, ""},
              {{Title("")}, KVSUCCESS, ""},
              {{Title(std::string(255, 'n'))}, KVSUCCESS, std::string(255, 'n')},
              {{Title(std::string(256, 'n'))}, KVSUCCESS, std::string(255, 'n')},
              {{TitleList({std::string(300, 'n'), "Alias"})}, KVSUCCESS, std::string(255, 'n')},
              {{}, KVFAIL_NOT_FOUND, ""},
              {{{"$TITLE", BRTYPE_NUMBER, 4, std::string(8, 'x')}}, KVFAIL_BAD_FORMAT, ""}};
  for (const auto& row : rows) {
    const EngNote note = NewNote(row.items);
    const QixName qix = QixNameOf(note);
    EXPECT_EQ(qix.status, row.status) << &row - rows;
    EXPECT_EQ(qix.name, row.name) << &row - rows;
    EXPECT_EQ(EngNoteClose(note), 0);
  }
}

}  // namespace
