// Queries: what tree a text becomes, and where it is refused.
#include <gtest/gtest.h>

#include <utility>

#include "fulltext/query.h"
#include "test_random.h"

namespace {

using namespace brynd::fulltext;

std::string Tree(std::string_view text) {
  const ParsedQuery query = ParseQuery(text);
  if (query.refusal.empty()) return Explain(query.root);
  return std::string(query.refusal) + " at " + std::to_string(query.place);
}

TEST(QueryTest, ParseQuery_WordsAndPhrases_Folded) {
  EXPECT_EQ("cat", Tree("Cat"));
  EXPECT_EQ("old_dog", Tree("\"Old dog\""));
  EXPECT_EQ("foo_bar", Tree("foo-bar"));
  EXPECT_EQ("and", Tree("\"and\""));
}

TEST(QueryTest, ParseQuery_Operators_BindAsTheyShould) {
  EXPECT_EQ("(and cat dog)", Tree("cat dog"));
  EXPECT_EQ("(and cat dog cow)", Tree("cat and dog & cow"));
  EXPECT_EQ("(or (and a b) (and c d))", Tree("a and b or c d"));
  EXPECT_EQ("(and (near a b) c)", Tree("a near b and c"));
  EXPECT_EQ("(and a (near (not b) c))", Tree("a and not b near c"));
  EXPECT_EQ("(and a (not b))", Tree("a ! b"));
  EXPECT_EQ("(or a b c)", Tree("a | b OR c"));
  EXPECT_EQ("(and a (or b c))", Tree("a (b or c)"));
  EXPECT_EQ("(not (not a))", Tree("not not a"));
  EXPECT_EQ("(paragraph (sentence (near a b) c) d)", Tree("a near b sentence c paragraph d"));
}

TEST(QueryTest, ParseQuery_Wildcards_StayInTheirTerm) {
  EXPECT_EQ("eco*~", Tree("Eco*"));
  EXPECT_EQ("?a*t~", Tree("?a*T"));
  EXPECT_EQ("foo_ba*~", Tree("foo-ba*"));
  EXPECT_EQ("ba*~_foo", Tree("ba*-foo"));
  EXPECT_EQ("eco_x", Tree("\"eco* x\""));
}

TEST(QueryTest, ParseQuery_ExactCaseAndWeight_ReachTheirWords) {
  EXPECT_EQ("(and exact_Apple pie)", Tree("exactcase Apple Pie"));
  EXPECT_EQ("(or exact_A exact_B)", Tree("exactcase (A or B)"));
  EXPECT_EQ("(or ^25_photo ^75_audio)", Tree("termweight 25 photo or termweight 75 audio"));
  EXPECT_EQ("^0_a", Tree("termweight 0 a"));
  EXPECT_EQ("^65535_a", Tree("termweight 65535 a"));
  EXPECT_EQ("no weight from 0 to 65535 at 11", Tree("termweight 65536 a"));
}

TEST(QueryTest, ParseQuery_Fields_NameOperatorValue) {
  EXPECT_EQ("(contains Subject cat)", Tree("field Subject contains cat"));
  EXPECT_EQ("(and (contains Subject (or cat dog)) cow)", Tree("FIELD Subject CONTAINS (cat or dog) cow"));
  EXPECT_EQ("(compare Size >= 100)", Tree("field Size>=100"));
  EXPECT_EQ("(compare Form = Main Topic)", Tree("field Form = \"Main Topic\""));
  EXPECT_EQ("(compare My Field < 1)", Tree("field \"My Field\" < 1"));
  EXPECT_EQ("(or (compare A = 1) (compare B = 2))", Tree("(field A = 1) or field B = 2"));
  const ParsedQuery query = ParseQuery("field A = -1.5");
  ASSERT_TRUE(query.root.number.has_value());
  EXPECT_EQ(-1.5, *query.root.number);
  EXPECT_TRUE(ParseQuery("field A > 2024/05/01").root.time.has_value());
  EXPECT_FALSE(ParseQuery("field A = abc").root.time.has_value());
}

TEST(QueryTest, ParseQuery_NoQuery_RefusedAtItsPlace) {
  EXPECT_EQ("the end, where a word should be at 0", Tree(""));
  EXPECT_EQ("the end, where a word should be at 5", Tree("a and"));
  EXPECT_EQ("an operator, where a word should be at 0", Tree("or a"));
  EXPECT_EQ("an operator, where a word should be at 6", Tree("a and or b"));
  EXPECT_EQ("a parenthesis that is not closed at 2", Tree("a (b"));
  EXPECT_EQ("an operator, where a word should be at 3", Tree("a ()"));
  EXPECT_EQ("a closing parenthesis without an opening one at 1", Tree("a)"));
  EXPECT_EQ("a quotation mark that is not closed at 2", Tree("a \"b c"));
  EXPECT_EQ("wildcards alone at 2", Tree("a **"));
  EXPECT_EQ("no word to look for at 0", Tree("..."));
  EXPECT_EQ("no name of a field at 6", Tree("field = 3"));
  EXPECT_EQ("neither 'contains' nor a comparison at 8", Tree("field A holds b"));
  EXPECT_EQ("no value to compare with at 9", Tree("field A ="));
  EXPECT_EQ("a field within a field at 17", Tree("field A contains field B = 1"));
  EXPECT_EQ("the end, where a word should be at 16", Tree("field A contains"));
}

TEST(QueryTest, ParseQuery_WhatHoldsNoWord_MeansNothing) {
  EXPECT_EQ("(and cat dog)", Tree("cat - dog"));
  EXPECT_EQ("cat", Tree("cat or ..."));
  EXPECT_EQ("cat", Tree("not . cat"));
}

TEST(QueryTest, ParseQuery_Limits_AtAndAbove) {
  const auto nested = [](size_t depth) {
    return Tree(std::string(depth, '(') + "a" + std::string(depth, ')'));
  };
  EXPECT_EQ("a", nested(31));
  EXPECT_EQ("nested too deep", nested(32).substr(0, 15));
  const auto words = [](size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i) text += "a ";
    return Tree(text);
  };
  EXPECT_EQ("(and a", words(kQueryNodesMax - 1).substr(0, 6));
  EXPECT_EQ("too long", words(kQueryNodesMax).substr(0, 8));
  EXPECT_EQ("too long", Tree(std::string(kQueryBytesMax + 1, 'a')).substr(0, 8));
  EXPECT_EQ(kWordBytesMax, Tree(std::string(kQueryBytesMax, 'a')).size());
  std::string chain = "a";
  for (int i = 0; i < 2000; ++i) chain += " near a";
  EXPECT_EQ("nested too deep", Tree(chain).substr(0, 15));
}

TEST(QueryTest, DropStopWords_LeavesTheNeighbours) {
  const StopWords stop = StopWords::Of("the of");
  const auto without = [&](std::string_view text) {
    Node root = ParseQuery(text).root;
    DropStopWords(&root, stop);
    return Explain(root);
  };
  EXPECT_EQ("cat", without("the cat"));
  EXPECT_EQ("cat", without("the or cat"));
  EXPECT_EQ("state_art", without("\"state of the art\""));
  EXPECT_EQ("(nothing)", without("the of"));
  EXPECT_EQ("cat", without("cat and not the"));
  EXPECT_EQ("cat", without("cat near the"));
  EXPECT_EQ("(nothing)", without("field A contains the"));
  EXPECT_EQ("(not cat)", without("not cat"));
  EXPECT_EQ("th*~", without("th*"));
  EXPECT_EQ("exact_Cat", without("exactcase (The Cat)"));
}

TEST(QueryTest, ParseQuery_RandomText_TreeOrRefusalInside) {
  TestRandom random(SeedOfRun());
  constexpr std::string_view kPieces[] = {
      "a",     "b*",         " ",           "(", ")",      "and ",      "or ",       "not ",
      "near ", "\"",         "|",           "!", "field ", "contains ", "sentence ", "=",
      "<=",    "exactcase ", "termweight ", "7", "é",      "\x11",      "\xff",      "?"};
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    for (uint64_t count = random.Below(14); count > 0; --count)
      text += kPieces[random.Below(static_cast<uint32_t>(std::size(kPieces)))];
    const ParsedQuery query = ParseQuery(text);
    EXPECT_LE(query.place, text.size()) << text;
    if (query.refusal.empty()) {
      EXPECT_NE(NodeKind::kNothing, query.root.kind) << text;
    }
  }
}

}  // namespace
