// The functions of the formula language, row by row: a formula, and what it gives for one fixed document.
#include <gtest/gtest.h>

#include <cstdlib>
#include <set>

#include "base/process.h"
#include "base/time.h"
#include "engine/formula_memory_host.h"
#include "formula/function_table.h"

namespace brynd::formula {
namespace {

// Local time is GMT, and the clock stands at 2024-03-15 14:30:45.50, a Friday.
class FixedClock : public Clock {
 public:
  int64_t UnixNanoseconds() override {
    ++reads;
    return int64_t{1710513045} * 1000000000 + 500000000;
  }
  uint64_t MonotonicNanoseconds() override { return 0; }
  void SleepMilliseconds(uint32_t) override {}
  int reads = 0;
};

class CountingRandom : public RandomSource {
 public:
  void Fill(MutableBytes target) override {
    for (std::byte& byte : target) byte = static_cast<std::byte>(++counter_);
  }

 private:
  uint8_t counter_ = 0;
};

const bool kZoneIsSet = setenv("TZ", "UTC", 1) == 0;

TIMEDATE At(int32_t year, int32_t month, int32_t day, uint32_t ticks) {
  return {{ticks, static_cast<uint32_t>(JulianDay(year, month, day))}};
}

struct Row {
  const char* source;
  const char* expected;
};

class FunctionTest : public testing::Test {
 protected:
  FunctionTest() {
    host_.AddText("Form", "Memo");
    host_.AddText("Subject", "Hello World");
    host_.AddNumber("Size", 12.5);
    host_.AddTexts("Tags", {"red", "green", "blue"});
    host_.AddNumbers("Numbers", {3, 1, 2});
    host_.AddNumbers("Ranged", {5, 1, 3}, 1);
    host_.AddValue("When", Value::Time(At(2024, 2, 29, 36000u * 100)));
    host_.AddText("Empty", "");
    host_.Add("Body", 1, {std::byte{1}, std::byte{2}});
    host_.AddText("Accented", "\xe9t\xe9");              // Latin-1 in engine text
    host_.AddText("Wide", "\x10\x84\xb1\x10\x84\xb2z");  // two characters of three bytes and one of one
    host_.document.note_id = 0x8f6;
    host_.document.is_response = true;
    host_.document.created = At(2020, 1, 2, 0);
    host_.document.length = 4096;
    host_.document.originator.File = {{0x11111111, 0x22222222}};
    host_.document.originator.Note = {{0x33333333, 0xabcdef01}};
    host_.database.title = "Packages";
    host_.database.path = "data/packages.qdb";
    host_.database.replica_id = {{0x00112233, 0x852572a0}};
    host_.settings["Color"] = "blue";
  }

  void Expect(std::span<const Row> rows) {
    for (const Row& row : rows) {
      MemoryHost host = host_;
      EXPECT_EQ(Compute(row.source, host), row.expected) << row.source;
    }
  }

  MemoryHost host_;
  FixedClock clock_;
  CountingRandom random_;
  SeamGuard<Clock> clock_guard_{Process().clock, &clock_};
  SeamGuard<RandomSource> random_guard_{Process().random, &random_};
};

constexpr Row kFlowRows[] = {
    {"@If(1; 2; 3)", "2"},
    {"@If(0; 2; 3)", "3"},
    {"@If(0; 1; 0; 2; 1; 3; 4)", "3"},
    {"@If(0; 1; 0; 2; 0; 3; 4)", "4"},
    {"@If(1; 2; 1/0)", "2"},
    {"@If(0; 1/0; 3)", "3"},
    {"@If(1/0; 2; 3)", "!6"},
    {"@If(\"x\"; 2; 3)", "!3"},
    {"@If(Missing; 2; 3)", "!3"},
    {"@If([10:00]; 2; 3)", "!3"},
    {"@If(Numbers; \"first is 3\"; \"no\")", "\"first is 3\""},
    {"@If(1; @If(0; 1; \"inner\"); \"outer\")", "\"inner\""},
    {"@Do(1; 2; \"last\")", "\"last\""},
    {"@Do(x := 1; y := x + 1; x:y)", "1:2"},
    {"@Do(1/0; 2)", "!6"},
    {"@Return(5); 6", "5"},
    {"1 + @If(1; @Return(7); 2)", "7"},
    {"@Do(@Return(\"out\"); 2); 3", "\"out\""},
    {"x := 1; @If(x = 1; @Return(\"early\"); \"\"); \"late\"", "\"early\""},
    {"@Select(2; \"a\"; \"b\"; \"c\")", "\"b\""},
    {"@Select(9; \"a\"; \"b\"; \"c\")", "\"c\""},
    {"@Select(0; \"a\")", "!12"},
    {"@Select(\"x\"; \"a\")", "!3"},
    {"@Set(\"v\"; 5); v", "5"},
    {"v := 1; @Set(\"V\"; 2); v", "2"},
    {"@Set(1; 2)", "!4"},
    {"@SetField(\"New\"; 7); New", "7"},
    {"@SetField(\"Size\"; @DeleteField); @IsAvailable(Size)", "0"},
    {"@SetField(\"\"; 1)", "!12"},
    {"@GetField(\"Subject\")", "\"Hello World\""},
    {"@GetField(\"SUB\" + \"ject\")", "\"Hello World\""},
    {"@GetField(\"None\")", "\"\""},
    {"@GetField(5)", "!4"},
    {"@DeleteField", "nothing"},
    {"@Unavailable", "nothing"},
    {"@Nothing", "nothing"},
    {"@Nothing + \"x\"", "\"x\""},
    {"@For(i := 1; i <= 3; i := i + 1; s := @If(i = 1; 0; s) + i); s", "6"},
    {"@For(i := 1; i <= 0; i := i + 1; s := 1); i:@Elements(s)", "1:0"},
    {"@For(i := 1; i <= 3; i := i + 1)", "formula"},
    {"i := 0; @While(i < 5; i := i + 1); i", "5"},
    {"i := 0; @While(i < 5; i := i + 1)", "1"},
    {"i := 0; @While(0; i := i + 1); i", "0"},
    {"i := 0; @DoWhile(i := i + 1; i < 5); i", "5"},
    {"i := 9; @DoWhile(i := i + 1; i < 5); i", "10"},
    {"@While(1/0; 1)", "!6"},
    {"@While(1; 1/0)", "!6"},
    {"@DoWhile(1/0; 1)", "!6"},
    {"@DoWhile(1; 1/0)", "!6"},
    {"@For(1/0; 1; 1; 1)", "!6"},
    {"@For(1; 1/0; 1; 1)", "!6"},
    {"@For(1; 1; 1/0; 1)", "!6"},
    {"@For(1; 1; 1; 1/0)", "!6"},
    {"@While(1; 1)", "!11"},
    {"@For(i := 0; i < 2; i := i + 1; @For(j := 0; j < 3; j := j + 1; n := @If(@IsNull(n); 0; n) + 1)); n",
     "6"},
    {"i := 0; @While(1; @Do(i := i + 1; @If(i = 4; @Return(i); 0))); 9", "4"},
    {"@IfError(1/0; \"none\")", "\"none\""},
    {"@IfError(1/0)", "\"\""},
    {"@IfError(5; 1/0)", "5"},
    {"@IfError(5)", "5"},
    {"@IsError(1/0)", "1"},
    {"@IsError(1)", "0"},
    {"@IsError(@Error)", "1"},
    {"@Error", "!1"},
    {"@Error + 1", "!1"},
    {"@Success", "1"},
    {"@Failure(\"too big\")", "\"too big\""},
    {"@Failure(1)", "!4"},
    {"@True:@False:@Yes:@No", "1:0:1:0"},
    {"@Eval(\"1 + 2\")", "3"},
    {"@Eval(\"Size * 2\")", "25"},
    {"@Eval(\"1 +\")", "!12"},
    {"@Eval(\"@Eval(\\\"@Eval(\\\\\\\"4\\\\\\\")\\\")\")", "4"},
    {"@Eval(1)", "!4"},
    {"v := 1; @Eval(\"v := 5\"); v", "1"},
};

TEST_F(FunctionTest, Flow) {
  for (const Row& row : kFlowRows) {
    MemoryHost host = host_;
    if (std::string_view(row.expected) == "formula") {
      EXPECT_TRUE(Compute(row.source, host).starts_with("kFormulaArguments")) << row.source;
      continue;
    }
    EXPECT_EQ(Compute(row.source, host), row.expected) << row.source;
  }
}

constexpr Row kListsRows[] = {
    {"@Elements(Tags)", "3"},
    {"@Elements(Subject)", "1"},
    {"@Elements(Missing)", "0"},
    {"@Elements(Ranged)", "3"},
    {"@Count(Missing)", "1"},
    {"@Count(1:2:3)", "3"},
    {"@Subset(Tags; 2)", "\"red\":\"green\""},
    {"@Subset(Tags; -2)", "\"green\":\"blue\""},
    {"@Subset(Tags; 9)", "\"red\":\"green\":\"blue\""},
    {"@Subset(Tags; -9)", "\"red\":\"green\":\"blue\""},
    {"@Subset(Tags; 0)", "\"\""},
    {"@Subset(Numbers; 1)", "3"},
    {"@Subset(Tags; \"x\")", "!3"},
    {"@Nth(Tags; 1)", "\"red\""},
    {"@Nth(Tags; 3)", "\"blue\""},
    {"@Nth(Tags; 4)", "\"\""},
    {"@Nth(Tags; 0)", "\"\""},
    {"@Nth(Numbers; 2)", "1"},
    {"@Member(\"green\"; Tags)", "2"},
    {"@Member(\"Green\"; Tags)", "0"},
    {"@Member(2; Numbers)", "3"},
    {"@Member(\"2\"; Numbers)", "0"},
    {"@IsMember(\"blue\"; Tags)", "1"},
    {"@IsMember(\"b\"; Tags)", "0"},
    {"@IsMember(\"blue\":\"red\"; Tags)", "1"},
    {"@IsMember(\"blue\":\"pink\"; Tags)", "0"},
    {"@IsMember(1/0; Tags)", "!6"},
    {"@IsNotMember(\"pink\"; Tags)", "1"},
    {"@IsNotMember(\"blue\":\"pink\"; Tags)", "0"},
    {"@Unique(\"a\":\"b\":\"a\":\"A\":\"b\")", "\"a\":\"b\":\"A\""},
    {"@Unique(3:1:3:3:2)", "3:1:2"},
    {"@Unique(7)", "7"},
    {"@Unique = @Unique", "0"},
    {"@Sort(\"b\":\"C\":\"a\":\"B\")", "\"a\":\"b\":\"B\":\"C\""},
    {"@Sort(Numbers)", "1:2:3"},
    {"@Sort(Numbers; \"descending\")", "3:2:1"},
    {"@Sort(Numbers; \"[DESCENDING]\")", "3:2:1"},
    {"@Sort(Numbers; \"ascending\")", "1:2:3"},
    {"@Sort([2024-03-01]:[2023-01-01])", "2459946/4294967295:2460371/4294967295"},
    {"@Transform(Tags; \"t\"; @UpperCase(t))", "\"RED\":\"GREEN\":\"BLUE\""},
    {"@Transform(1:2:3; \"n\"; n * n)", "1:4:9"},
    {"@Transform(1:2:3; \"n\"; @If(n = 2; @Nothing; n))", "1:3"},
    {"@Transform(1:2:3; \"n\"; @Nothing)", "\"\""},
    {"@Transform(1:2; \"n\"; n:(n * 10))", "1:10:2:20"},
    {"@Transform(1:2; \"n\"; @If(n = 2; \"x\"; n))", "!2"},
    {"@Transform(1:0; \"n\"; 1 / n)", "!6"},
    {"@Transform(1/0; \"n\"; n)", "!6"},
    {"n := 5; @Do(@Transform(1:2; \"n\"; n); n)", "5"},
    {"@Transform(\"a\":\"b\"; \"x\"; @Implode(@Transform(\"1\":\"2\"; \"y\"; x + y)))",
     "\"a1 a2\":\"b1 b2\""},
    {"@Transform(Missing; \"x\"; x + \"!\")", "\"!\""},
    {"@Keywords(\"the red, fox\"; Tags)", "\"red\""},
    {"@Keywords(\"blue\":\"a red\"; Tags)", "\"red\":\"blue\""},
    {"@Keywords(\"reddish\"; Tags)", "\"\""},
    {"@Keywords(\"a-red-b\"; Tags; \"-\")", "\"red\""},
    {"@Keywords(1; Tags)", "!4"},
    {"@IsNull(Missing)", "1"},
    {"@IsNull(\"\":\"\")", "1"},
    {"@IsNull(\"\":\"x\")", "0"},
    {"@IsNull(0)", "0"},
    {"@IsText(Subject):@IsText(Size):@IsText(Missing)", "1:0:1"},
    {"@List(1; 2:3; 4)", "1:2:3:4"},
    {"@List(1; \"a\")", "!2"},
    {"@Intersection(Tags; \"blue\":\"pink\":\"red\")", "\"red\":\"blue\""},
    {"@Intersection(Tags; \"pink\")", "\"\""},
    {"@Difference(Tags; \"blue\":\"pink\":\"red\")", "\"green\""},
    {"@Difference(1:2:3; 2)", "1:3"},
    {"@Difference(1:2; 1:2)", "\"\""},
    {"Ranged", "5:1..3"},
    {"Ranged:9", "5:9:1..3"},
    {"-Ranged", "-5:-3..-1"},
};

TEST_F(FunctionTest, Lists) { Expect(kListsRows); }

constexpr Row kTextPartsRows[] = {
    {"@Length(Subject)", "11"},
    {"@Length(Tags)", "3:5:4"},
    {"@Length(Accented):@Length(Wide)", "3:3"},
    {"@Length(5)", "!4"},
    {"@Left(Subject; 5)", "\"Hello\""},
    {"@Left(Subject; \" \")", "\"Hello\""},
    {"@Left(Subject; \"zz\")", "\"\""},
    {"@Left(Subject; 99)", "\"Hello World\""},
    {"@Left(Subject; 0)", "\"\""},
    {"@Left(Subject; -1)", "\"\""},
    {"@Left(Wide; 1) = @Middle(Wide; 0; 1)", "1"},
    {"@Length(@Left(Wide; 2))", "2"},
    {"@Left(Tags; 1)", "\"r\":\"g\":\"b\""},
    {"@Left(5; 1)", "!4"},
    {"@LeftBack(Subject; 6)", "\"Hello\""},
    {"@LeftBack(Subject; \"o\")", "\"Hello W\""},
    {"@LeftBack(Subject; 99)", "\"\""},
    {"@Right(Subject; 5)", "\"World\""},
    {"@Right(Subject; \"o\")", "\" World\""},
    {"@Right(Subject; \"zz\")", "\"\""},
    {"@Right(Wide; 1)", "\"z\""},
    {"@RightBack(Subject; 6)", "\"World\""},
    {"@RightBack(Subject; \"o\")", "\"rld\""},
    {"@Middle(Subject; 0; 5)", "\"Hello\""},
    {"@Middle(Subject; 6; 5)", "\"World\""},
    {"@Middle(Subject; 6; 99)", "\"World\""},
    {"@Middle(Subject; 99; 5)", "\"\""},
    {"@Middle(Subject; \"H\"; \"o\")", "\"ell\""},
    {"@Middle(Subject; \" \"; 3)", "\"Wor\""},
    {"@Middle(Subject; \" \"; \"x\")", "\"World\""},
    {"@Middle(Subject; \"x\"; 3)", "\"\""},
    {"@MiddleBack(\"abcdef\"; 1; 2)", "\"de\""},
    {"@MiddleBack(\"a/b/c\"; \"/\"; \"/\")", "\"b\""},
    {"@MiddleBack(\"a/b/c\"; \"/\"; 99)", "\"a/b\""},
    {"@Word(\"a,b,c\"; \",\"; 2)", "\"b\""},
    {"@Word(\"a,b,c\"; \",\"; -1)", "\"c\""},
    {"@Word(\"a,b,c\"; \",\"; 4)", "\"\""},
    {"@Word(\"a,b,c\"; \",\"; 0)", "\"\""},
    {"@Word(\"a,,c\"; \",\"; 2)", "\"\""},
    {"@Word(\"abc\"; \"\"; 1)", "\"abc\""},
    {"@Word(\"a~b\":\"c~d\"; \"~\"; 2)", "\"b\":\"d\""},
    {"@Trim(\"  a   b  \")", "\"a b\""},
    {"@Trim(\"\":\" a \":\"  \":\"b\")", "\"a\":\"b\""},
    {"@Trim(\"   \")", "\"\""},
    {"@Contains(Subject; \"World\")", "1"},
    {"@Contains(Subject; \"world\")", "0"},
    {"@Contains(Subject; \"xx\":\"lo\")", "1"},
    {"@Contains(Tags; \"ee\")", "1"},
    {"@Contains(Subject; \"\")", "1"},
    {"@Contains(Size; \"1\")", "!4"},
    {"@Contains(Missing; \"x\")", "0"},
    {"@Begins(Subject; \"Hell\")", "1"},
    {"@Begins(Tags; \"gr\")", "1"},
    {"@Begins(Subject; \"ello\")", "0"},
    {"@Ends(Subject; \"ld\")", "1"},
    {"@Ends(Subject; \"lD\")", "0"},
    {"@ReplaceSubstring(Subject; \"o\"; \"0\")", "\"Hell0 W0rld\""},
    {"@ReplaceSubstring(Subject; \"Hello\":\"World\"; \"Bye\":\"Moon\")", "\"Bye Moon\""},
    {"@ReplaceSubstring(Subject; \"l\":\"o\"; \"\")", "\"He Wrd\""},
    {"@ReplaceSubstring(Subject; \"\"; \"x\")", "\"Hello World\""},
    {"@Replace(Tags; \"red\":\"blue\"; \"RED\":\"BLUE\")", "\"RED\":\"green\":\"BLUE\""},
    {"@Replace(Tags; \"red\":\"blue\"; \"RED\")", "\"RED\":\"green\":\"\""},
    {"@Repeat(\"ab\"; 3)", "\"ababab\""},
    {"@Repeat(\"ab\"; 3; 5)", "\"ababa\""},
    {"@Repeat(\"ab\"; 0)", "\"\""},
    {"@Repeat(\"ab\"; -1)", "\"\""},
    {"@Repeat(\"ab\"; 40000)", "!10"},
    {"@Length(@Repeat(\"ab\"; 40000; 100))", "100"},
    {"@Length(@Repeat(\"a\"; 60000))", "60000"},
    {"@Explode(\"a b,c;d\")", "\"a\":\"b\":\"c\":\"d\""},
    {"@Explode(\"a-b-c\"; \"-\")", "\"a\":\"b\":\"c\""},
    {"@Explode(\"a--c\"; \"-\")", "\"a\":\"c\""},
    {"@Explode(\"a--c\"; \"-\"; @True)", "\"a\":\"\":\"c\""},
    {"@Explode(\"a\" + @NewLine + \"b\"; \"-\")", "\"a\":\"b\""},
    {"@Length(@Explode(\"a\" + @NewLine + \"b\"; \"-\"; 0; 0))", "3"},
    {"@Implode(Tags)", "\"red green blue\""},
    {"@Implode(Tags; \", \")", "\"red, green, blue\""},
    {"@Implode(Numbers)", "!4"},
    {"@Code(@NewLine)", "0"},
};

TEST_F(FunctionTest, TextParts) { Expect(kTextPartsRows); }

constexpr Row kTextCharactersRows[] = {
    {"@UpperCase(Subject)", "\"HELLO WORLD\""},
    {"@UpperCase(Tags)", "\"RED\":\"GREEN\":\"BLUE\""},
    {"@UpperCase(Accented)", "\"\xc9T\xc9\""},
    {"@LowerCase(Subject)", "\"hello world\""},
    {"@ProperCase(\"the QUICK bROWN fox's den\")", "\"The Quick Brown Fox's Den\""},
    {"@ProperCase(Accented)", "\"\xc9t\xe9\""},
    {"@UpperCase(1)", "!4"},
    {"@Matches(\"abc\"; \"a?c\")", "1"},
    {"@Matches(\"abc\"; \"a*\")", "1"},
    {"@Matches(\"abc\"; \"b*\")", "0"},
    {"@Matches(\"abc\"; \"abc\")", "1"},
    {"@Matches(\"abc\"; \"ab\")", "0"},
    {"@Matches(\"abc\"; \"{a-c}{b}{!x}\")", "1"},
    {"@Matches(\"abc\"; \"{!a}*\")", "0"},
    {"@Matches(\"aaab\"; \"+ab\")", "1"},
    {"@Matches(\"b\"; \"+ab\")", "1"},
    {"@Matches(\"123\"; \"+{0-9}\")", "1"},
    {"@Matches(\"12x\"; \"+{0-9}\")", "0"},
    {"@Matches(\"a*c\"; \"a\\\\*c\")", "1"},
    {"@Matches(\"abc\"; \"a\\\\*c\")", "0"},
    {"@Matches(\"abc\"; \"!x*\")", "1"},
    {"@Matches(\"abc\"; \"!a*\")", "0"},
    {"@Matches(\"abc\"; \"a*&*c\")", "1"},
    {"@Matches(\"abc\"; \"a*&*d\")", "0"},
    {"@Matches(\"abc\"; \"x*|*c\")", "1"},
    {"@Matches(\"abc\"; \"{a\")", "!12"},
    {"@Matches(\"abc\"; \"+\")", "!12"},
    {"@Matches(\"\"; \"\")", "1"},
    {"@Matches(\"\"; \"*\")", "1"},
    {"@Matches(\"\"; \"?\")", "0"},
    {"@Matches(Tags; \"g*\")", "1"},
    {"@Matches(Wide; \"???\")", "1"},
    {"@Matches(@Repeat(\"a\"; 5000); \"*a*a*a*a*b\")", "0"},
    {"@Like(\"abc\"; \"a_c\")", "1"},
    {"@Like(\"abc\"; \"a%\")", "1"},
    {"@Like(\"abc\"; \"b%\")", "0"},
    {"@Like(\"50%\"; \"50!%\"; \"!\")", "1"},
    {"@Like(\"50x\"; \"50!%\"; \"!\")", "0"},
    {"@Compare(\"a\"; \"b\")", "-1"},
    {"@Compare(\"b\"; \"a\")", "1"},
    {"@Compare(\"a\"; \"a\")", "0"},
    {"@Compare(\"a\"; \"A\") = 0", "0"},
    {"@Compare(\"a\"; \"A\"; \"ignorecase\")", "0"},
    {"@Compare(Accented; \"ete\"; \"IgnoreAccents\")", "0"},
    {"@Compare(\"a\":\"b\"; \"b\")", "-1:0"},
    {"@Char(65)", "\"A\""},
    {"@Char(65:66)", "\"A\":\"B\""},
    {"@Length(@Char(8364))", "1"},
    {"@Code(@Char(8364))", "8364"},
    {"@Code(@Char(128512))", "128512"},
    {"@Char(-1)", "!12"},
    {"@Char(55296)", "!12"},
    {"@Char(1114112)", "!12"},
    {"@Code(\"A\")", "65"},
    {"@Code(Accented)", "233"},
    {"@Code(\"\")", "0"},
    {"@Ascii(Accented)", "\"ete\""},
    {"@Ascii(@Char(8364))", "\"?\""},
    {"@Soundex(\"Robert\")", "\"R163\""},
    {"@Soundex(\"Rupert\")", "\"R163\""},
    {"@Soundex(\"Tymczak\")", "\"T522\""},
    {"@Soundex(\"Pfister\")", "\"P236\""},
    {"@Soundex(\"Honeyman\")", "\"H555\""},
    {"@Soundex(\"\")", "\"\""},
    {"@URLEncode(\"a b&c\")", "\"a%20b%26c\""},
    {"@URLEncode(Accented)", "\"%C3%A9t%C3%A9\""},
    {"@URLDecode(\"a%20b+c\")", "\"a b c\""},
    {"@URLDecode(@URLEncode(Accented)) = Accented", "1"},
    {"@URLDecode(\"100%\")", "\"100%\""},
    {"@Base64Encode(\"Hello\")", "\"SGVsbG8=\""},
    {"@Base64Decode(\"SGVsbG8=\")", "\"Hello\""},
    {"@Base64Decode(\"***\")", "!12"},
    {"@Base64Encode(\"\")", "\"\""},
    {"@Hash(\"abc\")", "\"BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD\""},
    {"@FileName(\"/a/b/c.txt\")", "\"c.txt\""},
    {"@FileName(\"C:\\\\data\\\\a.txt\")", "\"a.txt\""},
    {"@FileExtension(\"/a.b/c.txt\")", "\"txt\""},
    {"@FileExtension(\"/a.b/c\")", "\"\""},
    {"@FileFolder(\"/a/b/c.txt\")", "\"/a/b\""},
    {"@FileFolder(\"c.txt\")", "\"\""},
};

TEST_F(FunctionTest, TextCharacters) { Expect(kTextCharactersRows); }

constexpr Row kTextConversionsRows[] = {
    {"@Text(12.5)", "\"12.5\""},
    {"@Text(Numbers)", "\"3\":\"1\":\"2\""},
    {"@Text(1/3)", "\"0.333333333333333\""},
    {"@Text(-0.5)", "\"-0.5\""},
    {"@Text(1234567)", "\"1234567\""},
    {"@Text(12.5; \"F2\")", "\"12.50\""},
    {"@Text(1234.5; \"F2,\")", "\"1,234.50\""},
    {"@Text(1234.6; \",F0\")", "\"1,235\""},
    {"@Text(0.25; \"%F1\")", "\"25.0%\""},
    {"@Text(-5; \"F1()\")", "\"(5.0)\""},
    {"@Text(12.5; \"C\")", "\"$12.50\""},
    {"@Text(12.5; \"S2\")", "\"1.25E+01\""},
    {"@Text(12.5; \"Q\")", "!12"},
    {"@Text(12.5; 2)", "!4"},
    {"@Text(\"abc\")", "\"abc\""},
    {"@Text(\"AB\"; \"*\")", "\"4142\""},
    {"@Text(1; \"*\")", "\"3FF0000000000000\""},
    {"@Text(When; \"*\")", "\"00258AD2:0036EE80\""},
    {"@Text(When)", "\"02/29/2024 10:00:00\""},
    {"@Text(When; \"S0\")", "\"02/29/2024\""},
    {"@Text(When; \"S1\")", "\"10:00:00\""},
    {"@Text(When; \"S1T1\")", "\"10:00\""},
    {"@Text(When; \"D2S0\")", "\"02/29\""},
    {"@Text(When; \"D3S0\")", "\"02/2024\""},
    {"@Text(When; \"X\")", "!12"},
    {"@Text(When; \"D9\")", "!12"},
    {"@Text(1/0)", "!6"},
    {"@Text([10:00])", "\"10:00:00\""},
    {"@ToText(5)", "\"5\""},
    {"@TextToNumber(\"12.5\")", "12.5"},
    {"@TextToNumber(\" 1,234.5 \")", "1234.5"},
    {"@TextToNumber(\"abc\")", "!8"},
    {"@TextToNumber(\"\")", "!8"},
    {"@TextToNumber(\"12x\")", "!8"},
    {"@TextToNumber(\"(5)\")", "-5"},
    {"@TextToNumber(\"50%\")", "0.5"},
    {"@TextToNumber(\"$3\")", "3"},
    {"@TextToNumber(\"1\":\"2\")", "1:2"},
    {"@TextToNumber(\"1\":\"b\")", "!8"},
    {"@ToNumber(5)", "5"},
    {"@ToNumber(\"1e3\")", "1000"},
    {"@ToNumber([10:00])", "!4"},
    {"@TextToTime(\"02/29/2024\") = @Date(When)", "1"},
    {"@TextToTime(\"02/29/2024 10:00\") = When", "1"},
    {"@TextToTime(\"2024-02-29 10:00:00\") = When", "1"},
    {"@TextToTime(\"02/30/2024\")", "!9"},
    {"@TextToTime(\"noon\")", "!9"},
    {"@ToTime(When) = When", "1"},
    {"@ToTime(\"10:15 PM\") = [22:15]", "1"},
    {"@ToTime(5)", "!4"},
};

TEST_F(FunctionTest, TextConversions) { Expect(kTextConversionsRows); }

constexpr Row kNumbersRows[] = {
    {"@Abs(-3:2:-1)", "3:2:1"},
    {"-1:2", "-1:-2"},
    {"@Sign((-3):0:9)", "-1:0:1"},
    {"@Integer(3.9:-3.9)", "3:-3"},
    {"@Round(2.5:(-2.5):2.4)", "3:-3:2"},
    {"@Round(2.675; 0.01)", "2.68"},
    {"@Round(0.5:1.5)", "1:2"},
    {"@Round(123.456; 0.01)", "123.46"},
    {"@Round(123; 5)", "125"},
    {"@Round(122.5; 5)", "125"},
    {"@Round(-122.5; 5)", "-125"},
    {"@Round(1; 0)", "!6"},
    {"@Round(0.145; 0.01)", "0.15"},
    {"@Modulo(7; 3)", "1"},
    {"@Modulo(-7; 3)", "-1"},
    {"@Modulo(7; -3)", "1"},
    {"@Modulo(7; 0)", "!6"},
    {"@Modulo(7:8:9; 4)", "3:0:1"},
    {"@Power(2; 10)", "1024"},
    {"@Power(2; 0.5) = @Sqrt(2)", "1"},
    {"@Power(-1; 0.5)", "!7"},
    {"@Power(10; 400)", "!7"},
    {"@Sqrt(16)", "4"},
    {"@Sqrt(-1)", "!7"},
    {"@Exp(0)", "1"},
    {"@Exp(1000)", "!7"},
    {"@Ln(1)", "0"},
    {"@Ln(0)", "!7"},
    {"@Ln(-1)", "!7"},
    {"@Log(1000)", "3"},
    {"@Log(0)", "!7"},
    {"@Pi", "3.14159265358979"},
    {"@Sin(0):@Cos(0):@Tan(0)", "0:1:0"},
    {"@ASin(1) * 2 = @Pi", "1"},
    {"@ACos(1)", "0"},
    {"@ACos(2)", "!7"},
    {"@ATan(0)", "0"},
    {"@ATan2(0; 1) * 2 = @Pi", "1"},
    {"@Max(Numbers)", "3"},
    {"@Min(Numbers)", "1"},
    {"@Max(1:5:2; 3)", "3:5:3"},
    {"@Min(1:5:2; 3)", "1:3:2"},
    {"@Max(\"a\")", "!3"},
    {"@Sum(Numbers)", "6"},
    {"@Sum(1; 2:3; Numbers)", "12"},
    {"@Sum(\"a\")", "!3"},
    {"@Sum(Missing)", "!3"},
    {"@Average(Numbers)", "2"},
    {"@Average(1; 2:3:6)", "3"},
    {"@Random >= 0 & @Random < 1", "1"},
    {"@FloatEq(1; 1.00001)", "1"},
    {"@FloatEq(1; 1.1)", "0"},
    {"@FloatEq(1; 1.1; 0.2)", "1"},
    {"@IsNumber(Size):@IsNumber(Subject):@IsNumber(Missing)", "1:0:0"},
    {"@Abs(\"x\")", "!3"},
    {"@Abs(Missing)", "!3"},
    {"@Text(9007199254740992)", "\"9.00719925474099E+15\""},
    {"9007199254740992 - 9007199254740991", "1"},
};

TEST_F(FunctionTest, Numbers) { Expect(kNumbersRows); }

constexpr Row kTimesRows[] = {
    {"@Text(@Now)", "\"03/15/2024 14:30:45\""},
    {"@Text(@Today)", "\"03/15/2024\""},
    {"@Text(@Yesterday)", "\"03/14/2024\""},
    {"@Text(@Tomorrow)", "\"03/16/2024\""},
    {"@Text(@Date(2024; 2; 29))", "\"02/29/2024\""},
    {"@Date(2023; 2; 29)", "!12"},
    {"@Text(@Date(2024; 2; 29; 10; 5; 6))", "\"02/29/2024 10:05:06\""},
    {"@Date(2024; 2)", "!12"},
    {"@Text(@Date(When))", "\"02/29/2024\""},
    {"@Text(@Time(When))", "\"10:00:00\""},
    {"@Text(@Time(1; 2; 3))", "\"01:02:03\""},
    {"@Time(24; 0; 0)", "!12"},
    {"@TimeMerge([2024-02-29]; [10:00]) = When", "1"},
    {"@TimeMerge([10:00]; [10:00])", "!12"},
    {"@Year(When):@Month(When):@Day(When)", "2024:2:29"},
    {"@Hour(When):@Minute(When):@Second(When)", "10:0:0"},
    {"@Year([10:00]):@Hour([2024-02-29])", "-1:-1"},
    {"@Weekday([2024-03-17]):@Weekday([2024-03-16])", "1:7"},
    {"@Weekday(@Now)", "6"},
    {"@Year(\"x\")", "!5"},
    {"@Text(@Adjust(When; 1; 0; 0; 0; 0; 0))", "\"02/28/2025 10:00:00\""},
    {"@Text(@Adjust(When; 0; 1; 1; 1; 1; 1))", "\"03/30/2024 11:01:01\""},
    {"@Text(@Adjust([2024-01-31]; 0; 1; 0; 0; 0; 0))", "\"02/29/2024\""},
    {"@Adjust(When; 99999; 0; 0; 0; 0; 0)", "!7"},
    {"@Adjust(When; \"x\"; 0; 0; 0; 0; 0)", "!3"},
    {"@TimeZone", "0"},
    {"@TimeToTextInZone(When; 0)", "\"02/29/2024 10:00:00 GMT\""},
    {"@TimeToTextInZone(When; 5)", "\"02/29/2024 05:00:00 GMT-05:00\""},
    {"@TimeToTextInZone(When; -1; \"S1T1Z2\")", "\"11:00 GMT+01:00\""},
    {"@BusinessDays([2024-03-11]; [2024-03-17])", "5"},
    {"@BusinessDays([2024-03-11]; [2024-03-17]; \"\")", "7"},
    {"@BusinessDays([2024-03-11]; [2024-03-17]; 2)", "6"},
    {"@BusinessDays([2024-03-11]; [2024-03-17]; 1:7; [2024-03-12]:[2024-03-12]:[2024-03-16])", "4"},
    {"@BusinessDays([2024-03-17]; [2024-03-11])", "0"},
    {"@BusinessDays([2024-01-01]; [2024-12-31])", "262"},
    {"@IsTime(When):@IsTime(Size)", "1:0"},
    {"@WeekNumber([2024-01-01]):@WeekNumber([2023-01-01]):@WeekNumber([2020-12-31])", "1:52:53"},
    {"@TimeDiff(@Now; @Adjust(@Now; 0; 0; 0; 0; -1; 0))", "60"},
    {"When - [2024-02-29 09:00]", "3600"},
    {"@Text(When + 60)", "\"02/29/2024 10:01:00\""},
    {"@Text(60 + When)", "\"02/29/2024 10:01:00\""},
    {"@Text(When - 86400)", "\"02/28/2024 10:00:00\""},
    {"@Text([2024-02-28] + 86400 * 2)", "\"03/01/2024\""},
    {"[2024-03-10] > [2024-03-09]", "1"},
    {"When + When", "!3"},
    {"When * 2", "!2"},
    {"When + \"x\"", "!2"},
    {"When + 1e30", "!7"},
};

TEST_F(FunctionTest, Times) { Expect(kTimesRows); }

constexpr Row kDocumentRows[] = {
    {"@All", "1"},
    {"@TOUT", "1"},
    {"@@102@@", "1"},
    {"@IsResponseDoc", "1"},
    {"@IsNewDoc", "0"},
    {"@IsAvailable(Subject)", "1"},
    {"@IsAvailable(\"subject\")", "1"},
    {"@IsAvailable(None)", "0"},
    {"@IsAvailable(Body)", "1"},
    {"@IsUnavailable(None):@IsUnavailable(Subject)", "1:0"},
    {"v := 1; @IsAvailable(v)", "1"},
    {"Body", "!13"},
    {"@NoteID", "\"NT000008F6\""},
    {"@DocumentUniqueID", "\"2222222211111111ABCDEF0133333333\""},
    {"@Text(@Created)", "\"01/02/2020 00:00:00\""},
    {"@Modified", "\"\""},
    {"@Accessed", "\"\""},
    {"@AddedToThisFile", "\"\""},
    {"@DocLength", "4096"},
    {"@Elements(@DocFields)", "11"},
    {"@Subset(@DocFields; 2)", "\"Form\":\"Subject\""},
    {"@Form", "\"Memo\""},
    {"@IsText(@Version)", "1"},
    {"@IsText(@Platform):@IsText(@ClientType)", "1:1"},
    {"@DbName", "\"data/packages.qdb\""},
    {"@DbTitle", "\"Packages\""},
    {"@ReplicaID", "\"852572A0:00112233\""},
    {"@UserName", "\"CN=Ann Author/O=Acme\""},
    {"@Environment(\"Color\")", "\"blue\""},
    {"@Environment(\"None\")", "\"\""},
    {"@SetEnvironment(\"Shape\"; \"round\"); @Environment(\"Shape\")", "\"round\""},
    {"ENVIRONMENT Shape := \"flat\"; @Environment(\"Shape\")", "\"flat\""},
    {"ENVIRONMENT Shape := 5", "!4"},
    {"@DeleteDocument", "1"},
    {"@DocNumber", "\"\""},
    {"@DocLevel:@DocSiblings:@DocChildren", "0:0:0"},
    {"@DocDescendants(\"none\"; \"none\"; \"%\")", "\"none\""},
    {"@IsCategory(\"c\"; \"d\")", "\"d\""},
    {"@IsExpandable", "\"\""},
};

TEST_F(FunctionTest, Document) { Expect(kDocumentRows); }

constexpr Row kStatementsRows[] = {
    {"FIELD Size := 99; Size", "99"},
    {"FIELD size := \"x\"; SIZE", "\"x\""},
    {"FIELD Size := @DeleteField; Size", "\"\""},
    {"FIELD Tags := Tags:\"pink\"; @Elements(Tags)", "4"},
    {"FIELD Size := 1/0", "!6"},
    {"DEFAULT Size := 1; Size", "12.5"},
    {"DEFAULT None := 1; None", "1"},
    {"DEFAULT None := 1/0; @IsError(None)", "1"},
    {"DEFAULT Size := 1/0; Size", "12.5"},
    {"Size := 7; Size", "7"},
    {"Size := 7; FIELD Size := 8; Size", "7"},
    {"x := 1; X", "1"},
    {"x := y := 2; x + y", "4"},
    {"REM \"first\"; 1; REM {last}", "1"},
    {"REM \"only\"", "\"\""},
    {"1; 2; 3", "3"},
    {"1/0; 3", "3"},
    {";;1;;", "1"},
    {"SELECT Form = \"Memo\"", "1"},
    {"CHOIX @All", "1"},
    {"@@SELECT@@ @@102@@", "1"},
    {"select form = \"Memo\" & size > 10", "1"},
    {"(x := 3) + x", "6"},
    {"Field := 3; Field + 1", "4"},
};

TEST_F(FunctionTest, Statements) { Expect(kStatementsRows); }

// A document as a search sees it takes no writes; the formula still sees its own.
TEST_F(FunctionTest, FieldStatement_HostWithoutWrites_FormulaSeesItsOwnValue) {
  host_.is_read_only = true;
  EXPECT_EQ(Compute("FIELD Size := 99; Size", host_), "99");
  EXPECT_EQ(Compute("FIELD Subject := @DeleteField; @IsAvailable(Subject)", host_), "0");
  EXPECT_EQ(host_.items.size(), 11u);
}

TEST_F(FunctionTest, Now_CalledTwice_ClockReadOnce) {
  clock_.reads = 0;
  EXPECT_EQ(Compute("@Now = @Now", host_), "1");
  EXPECT_EQ(clock_.reads, 1);
  EXPECT_EQ(Compute("1 + 1", host_), "2");
  EXPECT_EQ(clock_.reads, 1);
}

// In a column, what only the view knows is a marker that is replaced when the row is read.
TEST_F(FunctionTest, DocNumber_InColumn_Marker) {
  const CompileOptions column{.item_name = "$1"};
  EXPECT_EQ(Compute("@DocNumber", host_, column),
            "\"\x7f"
            "146\xff\"");
  EXPECT_EQ(Compute("@DocNumber(\". ;\")", host_, column),
            "\"\x7f"
            "146;.%20%3B\xff\"");
  EXPECT_EQ(Compute("\"(\" + @DocChildren(\"0\"; \"1\") + \")\"", host_, column),
            "\"(\x7f"
            "122;0;1\xff)\"");
}

// Every function that is built is called at its least count by some row above or here, and a wrong count is
// refused.
TEST_F(FunctionTest, EveryFunction_WrongCount_RefusedWithPlace) {
  for (const FunctionRow& row : Functions()) {
    if (!row.IsBuilt() || row.form == Form::kTransform) continue;
    const std::string name = "@" + std::string(row.name);
    std::string few = "1 + " + name;
    for (int count = 0; count + 1 < row.least; ++count) few += count == 0 ? "(x" : "; x";
    if (row.least > 1) few += ")";
    const std::string place = "@4+" + std::to_string(name.size());
    if (row.least > 0) {
      EXPECT_EQ(Compute(few, host_), "kFormulaArguments" + place) << few;
    }
    if (row.most == 255) continue;
    std::string many = "1 + " + name + "(x";
    for (int count = 0; count < row.most; ++count) many += "; x";
    EXPECT_EQ(Compute(many + ")", host_), "kFormulaArguments" + place) << many;
  }
}

// Any argument of any type gives a value or an error value, never a failure.
TEST_F(FunctionTest, EveryFunction_ArgumentsOfEveryType_SomeValue) {
  static constexpr const char* kValues[] = {"1",       "-2.5",    "\"a\"",    "\"\"",    "[2024-02-29]",
                                            "[10:00]", "When",    "Tags",     "Numbers", "Ranged",
                                            "1/0",     "Missing", "@Nothing", "1e300",   "Body"};
  size_t calls = 0;
  for (const FunctionRow& row : Functions()) {
    if (!row.IsBuilt() || row.form != Form::kCall) continue;
    const int most = std::min<int>(row.most, row.least + 2);
    for (int count = row.least; count <= most; ++count) {
      for (size_t shift = 0; shift < std::size(kValues) * (count > 1 ? std::size(kValues) : 1); ++shift) {
        std::string source = "@" + std::string(row.name);
        for (int index = 0; index < count; ++index) {
          const size_t place = index == 0 ? shift : shift / std::size(kValues) + static_cast<size_t>(index);
          source += (index == 0 ? "(" : "; ") + std::string(kValues[place % std::size(kValues)]);
        }
        MemoryHost host = host_;
        const std::string result = Compute(source + (count > 0 ? ")" : ""), host);
        EXPECT_FALSE(result.starts_with("kFormula")) << source << " gives " << result;
        ++calls;
      }
    }
  }
  EXPECT_GT(calls, 10000u);
}

}  // namespace
}  // namespace brynd::formula
