// Display text of stored text with special sequences.
#include "kvdoc_world.h"

namespace {

using kvdoc::TextList;

class TranslateTest : public kit::KavrinTest {
 protected:
  // The text that a stored value, type word first, becomes.
  static std::string Translate(const std::string& value) {
    _api_session* session = KVICurrentSession();
    memset(session->buffer, '#', sizeof session->buffer);
    // A block of its own, so that a read past the value is seen.
    std::vector<char> exact(value.begin(), value.end());
    auto length = static_cast<uint32_t>(value.size());
    EXPECT_EQ(_TranslateItem(session, nullptr, nullptr, exact.data(), &length), KVSUCCESS);
    EXPECT_EQ(KVILoad<uint16_t>(session->buffer), BRTYPE_TEXT);
    EXPECT_EQ(session->buffer[length], 0);
    EXPECT_EQ(std::strlen(session->buffer + 2), length - 2);
    return std::string(session->buffer + 2, length - 2);
  }
  static std::string Word(uint16_t word) { return {reinterpret_cast<const char*>(&word), sizeof word}; }
  static std::string Text(const std::string& text) { return Word(BRTYPE_TEXT) + text; }
};

TEST_F(TranslateTest, TranslateItem_PlainText_AsItIs) {
  EXPECT_EQ(Translate(Text("plain")), "plain");
  EXPECT_EQ(Translate(Text("")), "");
  EXPECT_EQ(Translate(Text("\xff and \x7e")), "\xff and \x7e");
}

TEST_F(TranslateTest, TranslateItem_Sequences_LeftOutWithBothEnds) {
  EXPECT_EQ(Translate(Text("a\x7f"
                           "b\xff"
                           "c")),
            "ac");
  EXPECT_EQ(Translate(Text("\x7f\xff")), "");
  EXPECT_EQ(Translate(Text("\x7f"
                           "one\xff\x7f"
                           "two\xff"
                           "end")),
            "end");
  EXPECT_EQ(Translate(Text("a\x7f"
                           "b\x7f"
                           "c\xff"
                           "d\xff"
                           "e")),
            "ad\xff"
            "e");
  EXPECT_EQ(Translate(Text("open\x7f"
                           "never closed")),
            "open");
}

TEST_F(TranslateTest, TranslateItem_Nul_EndsTheText) {
  EXPECT_EQ(Translate(Text(std::string("first\0second", 12))), "first");
  EXPECT_EQ(Translate(Text(std::string("a\x7f"
                                       "b\0c\xff"
                                       "d",
                                       7))),
            "a");
}

TEST_F(TranslateTest, TranslateItem_TextList_EntriesBehindTheirLengths) {
  EXPECT_EQ(Translate(Word(BRTYPE_TEXT_LIST) + TextList({"one", "two"})), "onetwo");
  EXPECT_EQ(Translate(Word(BRTYPE_TEXT_LIST) + TextList({})), "");
}

TEST_F(TranslateTest, TranslateItem_DamagedValues_NothingIsReadPastThem) {
  EXPECT_EQ(Translate(""), "");
  EXPECT_EQ(Translate("\x01"), "");
  EXPECT_EQ(Translate(Word(BRTYPE_TEXT_LIST)), "");
  EXPECT_EQ(Translate(Word(BRTYPE_TEXT_LIST) + "\x01"), "");
  EXPECT_EQ(Translate(Word(BRTYPE_TEXT_LIST) + Word(0xffff) + "text"), "");
  EXPECT_EQ(Translate(Word(BRTYPE_TEXT_LIST) + Word(2) + "text"), "");
  EXPECT_EQ(Translate(Word(BRTYPE_TEXT_LIST) + Word(2) + "texts"), "s");
}

TEST_F(TranslateTest, TranslateItem_LongText_CutToTheSessionsBuffer) {
  for (const size_t bytes : {1021u, 1022u, 1023u, 70000u})
    EXPECT_EQ(Translate(Text(std::string(bytes, 't'))).size(), bytes < 1022 ? bytes : 1022);
  EXPECT_EQ(Translate(Text(std::string(1022, 't') + "\x7f"
                                                    "x\xff"))
                .size(),
            1022u);
}

}  // namespace
