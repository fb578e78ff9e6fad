// What formulas cost, beside Lua doing the same: comparing fields, texts through ten functions, lists of a
// hundred elements. The rival's documents are tables made beforehand and its functions are compiled
// beforehand; both give the result to C, as a number or as bytes.
#include <benchmark/benchmark.h>

#include <lua.hpp>

#include "engine/formula_memory_host.h"
#include "formula/decompiler.h"

namespace brynd::formula {
namespace {

constexpr int kListElements = 100;

// A document whose items lie in one array and are found by comparing numbers, as in a stored note.
class ArrayHost final : public Host {
 public:
  static constexpr uint32_t kItems = 12;
  static constexpr NameToken kSection = 5, kNumbers = 7, kTags = 8, kSize = 9;
  explicit ArrayHost(double size) : size_(size) {
    std::vector<double> numbers;
    std::vector<std::string> tags;
    for (int index = 0; index < kListElements; ++index) {
      numbers.push_back((index * 37) % kListElements);
      tags.push_back("tag" + std::to_string((index * 37) % kListElements));
    }
    const std::vector<std::string_view> texts(tags.begin(), tags.end());
    numbers_ = AsStored(Value::Numbers(numbers));
    tags_ = AsStored(Value::Texts(texts));
  }

  NameScope Scope() const override { return {7, 1}; }
  NameToken Bind(std::string_view name) override {
    if (name == "Section") return kSection;
    if (name == "Numbers") return kNumbers;
    if (name == "Tags") return kTags;
    return name == "InstalledSize" ? kSize : kNoToken;
  }
  bool Find(NameToken token, ItemView* item) override {
    for (uint32_t index = 0; index < kItems; ++index) {
      if (names_[index] != token) continue;
      if (token == kSection) *item = {kWordText, BytesOf("games")};
      if (token == kSize) *item = {kWordNumber, BytesAt(&size_, sizeof size_)};
      if (token == kNumbers) *item = {kWordNumberList, Bytes(numbers_).subspan(2)};
      if (token == kTags) *item = {kWordTextList, Bytes(tags_).subspan(2)};
      return true;
    }
    return false;
  }

 private:
  static std::vector<std::byte> AsStored(const Value& value) {
    std::vector<std::byte> stored(StoredBytes(value));
    StoreValue(value, stored.data());
    return stored;
  }

  std::vector<std::byte> numbers_, tags_;
  uint16_t names_[kItems] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
  double size_;
};

std::vector<std::byte> Compiled(std::string_view source) {
  std::vector<std::byte> compiled;
  CompileError error;
  Check(Compile(source, {}, &compiled, &error));
  return compiled;
}

void SelectTwoFields(benchmark::State& state) {
  Evaluator evaluator(Program::Load(Compiled("SELECT Section = \"games\" & InstalledSize > 1000")));
  ArrayHost host(1234);
  for (auto round : state) {
    (void)round;
    benchmark::DoNotOptimize(evaluator.Selects(host));
  }
}
BENCHMARK(SelectTwoFields);

void SelectAll(benchmark::State& state) {
  Evaluator evaluator(Program::Load(Compiled("SELECT @All")));
  ArrayHost host(1234);
  for (auto round : state) {
    (void)round;
    benchmark::DoNotOptimize(evaluator.Selects(host));
  }
}
BENCHMARK(SelectAll);

void ComputeText(benchmark::State& state) {
  Evaluator evaluator(Program::Load(
      Compiled("@If(InstalledSize > 1000; @UpperCase(Section) + \" \" + @Text(InstalledSize); \"small\")")));
  ArrayHost host(1234);
  for (auto round : state) {
    (void)round;
    benchmark::DoNotOptimize(evaluator.Evaluate(host).value.data());
  }
}
BENCHMARK(ComputeText);

constexpr const char* kTextFormula =
    "@If(@Contains(Section; \"ame\") & @Begins(Section; \"g\"); "
    "@UpperCase(@Left(Section; 1)) + @LowerCase(@Right(Section; 4)) + \" \" + @Trim(\"  of  \") + \" \" + "
    "@Text(InstalledSize) + @Repeat(\"-\"; @Length(Section)) + @ReplaceSubstring(Section; \"a\"; \"o\"); "
    "\"none\")";
constexpr const char* kListFormula = "@Sum(@Transform(Numbers; \"n\"; @If(n > 50; n * 2; n)))";
constexpr const char* kListTextFormula = "@Implode(@Sort(@UpperCase(Tags)); \",\")";
constexpr const char* kListOperatorFormula = "@Sum(Numbers * 2 + 1)";

void ComputeFormula(benchmark::State& state, const char* source) {
  Evaluator evaluator(Program::Load(Compiled(source)));
  ArrayHost host(1234);
  const Evaluation first = evaluator.Evaluate(host);
  state.SetLabel(Show(first.value).substr(0, 60));
  for (auto round : state) {
    (void)round;
    benchmark::DoNotOptimize(evaluator.Evaluate(host).value.data());
  }
}
BENCHMARK_CAPTURE(ComputeFormula, Text, kTextFormula);
BENCHMARK_CAPTURE(ComputeFormula, List, kListFormula);
BENCHMARK_CAPTURE(ComputeFormula, ListOperators, kListOperatorFormula);
BENCHMARK_CAPTURE(ComputeFormula, ListTexts, kListTextFormula);

void LoopOfThousandRounds(benchmark::State& state) {
  Evaluator evaluator(Program::Load(Compiled("n := 0; @For(i := 0; i < 1000; i := i + 1; n := n + i); n")));
  ArrayHost host(1234);
  for (auto round : state) {
    (void)round;
    benchmark::DoNotOptimize(evaluator.Evaluate(host).value.data());
  }
}
BENCHMARK(LoopOfThousandRounds);

void CompileSelection(benchmark::State& state) {
  for (auto round : state) {
    (void)round;
    benchmark::DoNotOptimize(Compiled("SELECT Section = \"games\" & InstalledSize > 1000").data());
  }
}
BENCHMARK(CompileSelection);

// ---- The rival

constexpr const char* kLuaSelect = "return d.Section == 'games' and d.InstalledSize > 1000";
constexpr const char* kLuaText = R"(
  local s = d.Section
  if not (s:find('ame', 1, true) and s:sub(1, 1) == 'g') then return 'none' end
  return s:sub(1, 1):upper() .. s:sub(-4):lower() .. ' ' .. ('  of  '):match('^%s*(.-)%s*$') .. ' ' ..
         string.format('%.15g', d.InstalledSize) .. ('-'):rep(#s) .. s:gsub('a', 'o'))";
constexpr const char* kLuaList = R"(
  local sum = 0
  local mapped = {}
  for i, n in ipairs(d.Numbers) do mapped[i] = n > 50 and n * 2 or n end
  for _, n in ipairs(mapped) do sum = sum + n end
  return sum)";
constexpr const char* kLuaListOperators = R"(
  local doubled, added, sum = {}, {}, 0
  for i, n in ipairs(d.Numbers) do doubled[i] = n * 2 end
  for i, n in ipairs(doubled) do added[i] = n + 1 end
  for _, n in ipairs(added) do sum = sum + n end
  return sum)";
constexpr const char* kLuaListTexts = R"(
  local upper = {}
  for i, s in ipairs(d.Tags) do upper[i] = s:upper() end
  table.sort(upper)
  return table.concat(upper, ','))";
constexpr const char* kLuaLoop = R"(
  local n = 0
  for i = 0, 999 do n = n + i end
  return n)";

void FillDocument(lua_State* lua) {
  lua_newtable(lua);
  lua_pushliteral(lua, "games");
  lua_setfield(lua, -2, "Section");
  lua_pushnumber(lua, 1234);
  lua_setfield(lua, -2, "InstalledSize");
  lua_newtable(lua);
  lua_newtable(lua);
  for (int index = 0; index < kListElements; ++index) {
    const int number = (index * 37) % kListElements;
    lua_pushnumber(lua, number);
    lua_rawseti(lua, -3, index + 1);
    lua_pushfstring(lua, "tag%d", number);
    lua_rawseti(lua, -2, index + 1);
  }
  lua_setfield(lua, -3, "Tags");
  lua_setfield(lua, -2, "Numbers");
}

// The function of one document, as an application calls it.
void ComputeLua(benchmark::State& state, const char* body) {
  lua_State* const lua = luaL_newstate();
  luaL_openlibs(lua);
  const std::string source = "local d = ... " + std::string(body);
  if (luaL_loadstring(lua, source.c_str()) != LUA_OK) state.SkipWithError(lua_tostring(lua, -1));
  FillDocument(lua);
  const auto call = [&] {
    lua_pushvalue(lua, 1);
    lua_pushvalue(lua, 2);
    lua_call(lua, 1, 1);
  };
  call();
  state.SetLabel(std::string(luaL_tolstring(lua, -1, nullptr)).substr(0, 60));
  lua_settop(lua, 2);
  for (auto round : state) {
    (void)round;
    call();
    if (lua_type(lua, -1) == LUA_TSTRING)
      benchmark::DoNotOptimize(lua_tostring(lua, -1));
    else
      benchmark::DoNotOptimize(lua_toboolean(lua, -1));
    lua_settop(lua, 2);
  }
  lua_close(lua);
}
BENCHMARK_CAPTURE(ComputeLua, SelectTwoFields, kLuaSelect);
BENCHMARK_CAPTURE(ComputeLua, Text, kLuaText);
BENCHMARK_CAPTURE(ComputeLua, List, kLuaList);
BENCHMARK_CAPTURE(ComputeLua, ListOperators, kLuaListOperators);
BENCHMARK_CAPTURE(ComputeLua, ListTexts, kLuaListTexts);
BENCHMARK_CAPTURE(ComputeLua, LoopOfThousandRounds, kLuaLoop);

}  // namespace
}  // namespace brynd::formula

BENCHMARK_MAIN();
