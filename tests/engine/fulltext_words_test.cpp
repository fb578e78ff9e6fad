// Words: where they are, their folded and exact forms, stop words, stems, patterns.
#include <gtest/gtest.h>

#include "base/charset.h"
#include "fulltext/words.h"
#include "test_random.h"

namespace {

using namespace brynd;
using namespace brynd::fulltext;

std::string Folded(std::string_view utf8) {
  std::string all;
  WordBreaker breaker;
  breaker.Break(EngineFromUtf8(utf8),
                [&](const FoundWord& word) { all.append(all.empty() ? "" : "|").append(word.folded); });
  return all;
}

std::string Exact(std::string_view utf8) {
  std::string all;
  WordBreaker breaker;
  breaker.Break(EngineFromUtf8(utf8),
                [&](const FoundWord& word) { all.append(all.empty() ? "" : "|").append(word.exact); });
  return all;
}

TEST(WordBreakerTest, Break_Ascii_RunsOfLettersAndDigits) {
  EXPECT_EQ("the|cat|sat|on|2|mats", Folded("The cat, sat-on (2) mats!"));
  EXPECT_EQ("The|cat", Exact("The cat"));
  EXPECT_EQ("", Folded(""));
  EXPECT_EQ("", Folded(" ,.-'"));
}

TEST(WordBreakerTest, Break_PointsAndApostrophes_JoinOnlyWhatTheyShould) {
  EXPECT_EQ("it's|3.14|1,000|1.2.3", Folded("it's 3.14 1,000 1.2.3"));
  EXPECT_EQ("foo|bar|x|5|a|1|e|g", Folded("foo.bar x.5 a'1 e.g. '"));
  EXPECT_EQ("a|b|c", Folded("a_b:c"));
  EXPECT_EQ("end|3", Folded("end. 3."));
}

TEST(WordBreakerTest, Break_Accents_FoldedAwayExactKept) {
  EXPECT_EQ("cafe|uber|strasse|oeuvre", Folded("Café ÜBER Straße Oeuvre"));
  EXPECT_EQ("Café|ÜBER|Straße", Exact("Café ÜBER Straße"));
  EXPECT_EQ("Café", Exact("Cafe\xcc\x81"));  // composed
  EXPECT_EQ("αθηνα", Folded("Αθήνα"));
}

TEST(WordBreakerTest, Break_OtherScripts_HaveWords) {
  EXPECT_EQ("привет|мир", Folded("Привет, мир"));
  EXPECT_EQ("नमस्ते|दुनिया", Folded("नमस्ते दुनिया"));
  EXPECT_EQ("한국어", Folded("한국어"));
  EXPECT_NE(std::string::npos, Folded("我喜欢猫").find("|"));
  EXPECT_NE(std::string::npos, Folded("ภาษาไทย").find("|"));
  EXPECT_EQ("😀", Folded("😀"));
  EXPECT_EQ("it's", Folded("it’s"));
}

TEST(WordBreakerTest, Break_LatinOneAndUtf8Bytes_SameWord) {
  std::string latin, utf8;
  WordBreaker breaker;
  breaker.Break("caf\xe9", [&](const FoundWord& word) { latin = word.folded; });
  breaker.Break("caf\xc3\xa9", [&](const FoundWord& word) { utf8 = word.folded; });
  EXPECT_EQ("cafe", latin);
  EXPECT_EQ("cafe", utf8);
}

TEST(WordBreakerTest, Break_Places_BytesOfTheText) {
  WordBreaker breaker;
  const std::string text = "a \xc3\xa9t\xc3\xa9 b";
  std::vector<std::string> parts;
  breaker.Break(
      text, [&](const FoundWord& word) { parts.push_back(text.substr(word.begin, word.end - word.begin)); });
  EXPECT_EQ((std::vector<std::string>{"a", "\xc3\xa9t\xc3\xa9", "b"}), parts);
}

TEST(WordBreakerTest, Break_LongWords_CutAtTheLimitBetweenCharacters) {
  for (const size_t bytes : {kWordBytesMax - 1, kWordBytesMax, kWordBytesMax + 1, size_t{100000}})
    EXPECT_EQ(std::min(bytes, kWordBytesMax), Folded(std::string(bytes, 'x')).size());
  std::string cyrillic = "x";
  for (int i = 0; i < 100; ++i) cyrillic += "д";
  EXPECT_EQ(kWordBytesMax - 1, Folded(cyrillic).size());
}

// The quick way and ICU's give the same words: a character in front that is no ASCII takes the second.
TEST(WordBreakerTest, Break_RandomAscii_SameAsAmongOtherCharacters) {
  TestRandom random(SeedOfRun());
  constexpr std::string_view kAlphabet = "aB1.,'_:- \n9zZ\"@";
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    for (uint64_t length = random.Below(24); length > 0; --length)
      text += kAlphabet[random.Below(static_cast<uint32_t>(kAlphabet.size()))];
    const std::string other = Folded("\xc3\xa9 " + text);
    EXPECT_EQ(Folded(text), other.size() > 1 ? other.substr(2) : std::string()) << text;
  }
}

TEST(WordBreakerTest, Break_LettersThatFoldToSeveralWords_StayOne) {
  EXPECT_EQ("صلىاللهعليهوسلم|a", Folded("ﷺ a"));
  EXPECT_EQ("ι", Folded("ͺ"));
}

// No byte below 0x21 may get into a word: the index parts its tokens by them.
TEST(WordBreakerTest, Break_RandomBytes_FormsHoldNoControls) {
  TestRandom random(SeedOfRun());
  WordBreaker breaker;
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    for (uint64_t length = random.Below(30); length > 0; --length)
      text += static_cast<char>(random.Below(256));
    size_t last = 0;
    breaker.Break(text, [&](const FoundWord& word) {
      EXPECT_LE(last, word.begin);
      EXPECT_LT(word.begin, word.end);
      EXPECT_LE(word.end, text.size());
      last = word.end;
      for (const std::string_view form : {word.folded, word.exact}) {
        EXPECT_FALSE(form.empty());
        for (const char byte : form) EXPECT_LT(0x20, static_cast<unsigned char>(byte));
      }
    });
  }
}

TEST(WordBreakerTest, BreakSentences_EndsBehindEach) {
  WordBreaker breaker;
  std::vector<size_t> ends;
  breaker.BreakSentences("One is. Two are? Three", [&](size_t end) { ends.push_back(end); });
  EXPECT_EQ((std::vector<size_t>{8, 17, 22}), ends);
}

TEST(StopWordsTest, Of_LinesAndComments_FoldedAndGivenBack) {
  const StopWords stop = StopWords::Of("The and\n; no comment\nDER");
  EXPECT_TRUE(stop.Contains("the"));
  EXPECT_TRUE(stop.Contains("der"));
  EXPECT_FALSE(stop.Contains("comment"));
  EXPECT_EQ("and\nder\nthe\n", stop.Text());
  EXPECT_EQ(stop, StopWords::Of(stop.Text()));
  EXPECT_TRUE(StopWords().IsEmpty());
  EXPECT_TRUE(StopWords::English().Contains("with"));
}

TEST(StemmerTest, Stem_English_AndOthersAsTheyAre) {
  Stemmer stemmer;
  EXPECT_EQ("run", stemmer.Stem("running"));
  EXPECT_EQ("librari", stemmer.Stem("libraries"));
  EXPECT_EQ("müller", stemmer.Stem("müller"));
}

TEST(StemmerTest, SharedWithStem_WordsOfAStem_BeginSo) {
  Stemmer stemmer;
  for (const std::string& word : std::initializer_list<std::string>{
           "running", "sky", "skies", "dying", "die", "happy", "happiness", "libraries", "news", "universal",
           "universities", "be", "a", "idly", "gently", "singly", "crying"}) {
    const std::string stem(stemmer.Stem(word));
    const size_t shared = SharedWithStem(stem);
    EXPECT_EQ(stem.substr(0, shared), std::string(word).substr(0, shared)) << word << " " << stem;
    EXPECT_LT(0u, shared);
  }
}

TEST(PatternTest, MatchesPattern_StarsAndMarks) {
  EXPECT_TRUE(MatchesPattern("economy", "eco*"));
  EXPECT_TRUE(MatchesPattern("eco", "eco*"));
  EXPECT_TRUE(MatchesPattern("economy", "*nom*"));
  EXPECT_TRUE(MatchesPattern("economy", "e*o*y"));
  EXPECT_FALSE(MatchesPattern("economy", "e*o*x"));
  EXPECT_TRUE(MatchesPattern("cat", "c?t"));
  EXPECT_FALSE(MatchesPattern("ct", "c?t"));
  EXPECT_TRUE(MatchesPattern("été", "?t?"));
  EXPECT_FALSE(MatchesPattern("cats", "cat"));
  EXPECT_TRUE(MatchesPattern("", "*"));
  EXPECT_FALSE(MatchesPattern(std::string(5000, 'a'), "*a*a*a*a*a*a*a*a*a*b"));
}

}  // namespace
