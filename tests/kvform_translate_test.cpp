// Flags of forms between stored words and public values, both ways.
#include "kvform_world.h"

namespace {

using kvform::FormTest;
using kvform::Named;
using kvform::Plain;

using Translation = uint32_t (*)(int, int32_t*, uint32_t*);

uint32_t Written(Translation translate, int32_t value, uint32_t* status, uint32_t before = 0) {
  uint32_t flags = before;
  *status = translate(kTranslateWrite, &value, &flags);
  return flags;
}
int32_t Read(Translation translate, uint32_t flags) {
  int32_t value = -7;
  EXPECT_EQ(translate(kTranslateRead, &value, &flags), KVSUCCESS);
  return value;
}

struct ValueRow {
  Translation translate;
  int32_t value;
  uint32_t bits;
};

TEST(KVIFormTranslate, EachValue_BitsAndBack) {
  const ValueRow rows[] = {
      {KVIFormTranslateType, 0, 0},
      {KVIFormTranslateType, 1, 0x8},
      {KVIFormTranslateType, 2, 0x4},
      {KVIFormTranslateUpdate, 0, 0},
      {KVIFormTranslateUpdate, 1, 0x4000},
      {KVIFormTranslateUpdate, 2, 0x8000},
      {KVIFormTranslateUpdate, 3, 0x800000},
      {KVIFormTranslateUpdateTrigger, 1, 0},
      {KVIFormTranslateUpdateTrigger, 2, 0x400000},
  };
  for (const ValueRow& row : rows) {
    uint32_t status = 1;
    EXPECT_EQ(Written(row.translate, row.value, &status), row.bits) << row.value;
    EXPECT_EQ(status, KVSUCCESS);
    EXPECT_EQ(Read(row.translate, row.bits), row.value) << row.bits;
    // Other bits stay, and do not matter for reading.
    EXPECT_EQ(Written(row.translate, row.value, &status, 0x13), row.bits | 0x13);
    EXPECT_EQ(Read(row.translate, row.bits | 0x13), row.value);
  }
}

TEST(KVIFormTranslate, ValueOutOfRange_BadEnumAndNothingSet) {
  const std::pair<Translation, int32_t> past[] = {
      {KVIFormTranslateType, 3}, {KVIFormTranslateUpdate, 4}, {KVIFormTranslateUpdateTrigger, 3}};
  for (const auto& [translate, value] : past)
    for (const int32_t wrong : {value, -1}) {
      uint32_t status = 0;
      EXPECT_EQ(Written(translate, wrong, &status), 0u);
      EXPECT_EQ(status, KVFAIL_BAD_ENUM);
    }
}

TEST(KVIFormTranslate, SeveralBits_FirstOfTheOrderWins) {
  EXPECT_EQ(Read(KVIFormTranslateType, 0xc), 2);
  EXPECT_EQ(Read(KVIFormTranslateUpdate, 0x80c000), 1);
  EXPECT_EQ(Read(KVIFormTranslateUpdate, 0x808000), 2);
}

TEST(KVIFormTranslateUpdateTrigger, WriteZero_AsOne) {
  uint32_t status = 1;
  EXPECT_EQ(Written(KVIFormTranslateUpdateTrigger, 0, &status), 0u);
  EXPECT_EQ(status, KVSUCCESS);
}

TEST(KVIFormTranslateOpen, EachValue_BitsAndBack) {
  struct OpenRow {
    uint32_t value, bits, back;
  };
  const OpenRow rows[] = {{0, 0, 0},        {1, 0x080000, 1}, {2, 0x100000, 2}, {6, 0x300000, 6},
                          {7, 0x380000, 7}, {4, 0, 0},        {3, 0x180000, 3}};
  for (const OpenRow& row : rows) {
    uint32_t value = row.value, flags = 0x80;
    EXPECT_EQ(KVIFormTranslateOpen(kTranslateWrite, &value, &flags), KVSUCCESS);
    EXPECT_EQ(flags, row.bits | 0x80) << row.value;
    uint32_t back = 77;
    EXPECT_EQ(KVIFormTranslateOpen(kTranslateRead, &back, &flags), KVSUCCESS);
    EXPECT_EQ(back, row.back);
  }
  uint32_t back = 77, alone = 0x200000;  // 32 without 16
  EXPECT_EQ(KVIFormTranslateOpen(kTranslateRead, &back, &alone), KVSUCCESS);
  EXPECT_EQ(back, 0u);
}

TEST_F(FormTest, KVFormFetch_AllFlagsSet_MaskedAndTranslated) {
  const uint32_t id = Form("All").Flags("DC").Info(0xffff, 0xffff, 0x1234).ConflictAction("1").Store();
  KVFORM form;
  ASSERT_EQ(KVFormFetch(database_, id, &form), KVSUCCESS);
  EXPECT_EQ(form.form_flags, 0x3f73u | KVFORM_HIDDEN | KVFORM_FLAG_D | KVFORM_FLAG_0800 | KVFORM_ANONYMOUS);
  EXPECT_EQ(form.type, 2);
  EXPECT_EQ(form.update, 1);
  EXPECT_EQ(form.update_trigger, 2);
  EXPECT_EQ(form.on_conflict, 1);
  EXPECT_EQ(form.formopen_flags, 7u);
  EXPECT_EQ(form.background_color, 0x1234u);
}

TEST_F(FormTest, KVFormFetch_NoFlags_AllZeroAndTriggerZero) {
  const uint32_t id = Form("None").Info(0, 0x40, 0).Store();
  KVFORM form;
  ASSERT_EQ(KVFormFetch(database_, id, &form), KVSUCCESS);
  EXPECT_EQ(form.form_flags, 0u);
  EXPECT_EQ(form.type, 0);
  EXPECT_EQ(form.update, 0);
  EXPECT_EQ(form.update_trigger, 0) << "without an update there is no trigger";
  EXPECT_EQ(form.formopen_flags, 0u);
  EXPECT_EQ(form.on_conflict, 0);
}

TEST_F(FormTest, KVFormFetch_UpdateWithoutTriggerBit_TriggerOne) {
  const uint32_t id = Form("One").Info(0x8000).Store();
  KVFORM form;
  ASSERT_EQ(KVFormFetch(database_, id, &form), KVSUCCESS);
  EXPECT_EQ(form.update, 2);
  EXPECT_EQ(form.update_trigger, 1);
}

TEST_F(FormTest, KVFormFetch_WindowTitle_TextOnlyWithDesignCode) {
  const uint32_t id = Form("Titled").WindowTitle("\"Form of \" + Subject").Store();
  KVFORM form;
  Set(KVPROP_DB_FETCH_DESIGN_CODE, 0);
  ASSERT_EQ(KVFormFetch(database_, id, &form), KVSUCCESS);
  EXPECT_EQ(Plain(form.window_title_formula), nullptr);
  Set(KVPROP_DB_FETCH_DESIGN_CODE, 1);
  ASSERT_EQ(KVFormFetch(database_, id, &form), KVSUCCESS);
  ASSERT_NE(Plain(form.window_title_formula), nullptr);
  EXPECT_EQ(kit::CompiledFormula(form.window_title_formula), kit::CompiledFormula("\"Form of \" + Subject"));
  const char* first = form.window_title_formula;
  kit::Spy spy;
  ASSERT_EQ(KVFormFetch(database_, id, &form), KVSUCCESS);
  EXPECT_EQ(Plain(form.window_title_formula), first) << "made into text once";
  EXPECT_TRUE(spy.calls().empty());
}

TEST_F(FormTest, KVFormFetch_Names_AllThreeAndHidden) {
  const uint32_t id = Form("(Main\\Sub)|Alias").Store();
  KVFORM form;
  ASSERT_EQ(KVFormFetch(database_, id, &form), KVSUCCESS);
  EXPECT_STREQ(form.name, "Alias");
  EXPECT_STREQ(form.menu_name, "Main");
  EXPECT_STREQ(form.cascade_name, "Sub");
  EXPECT_EQ(SpecOf(id)->hidden, 1);
  EXPECT_EQ(SpecOf(id)->namelen, 5u);
}

TEST_F(FormTest, KVFormFetch_NamesLongerThanTheRecord_Cut) {
  const std::string name(250, 'n'), menu(100, 'm'), cascade(90, 'c');
  const uint32_t id = Form(menu + "\\" + cascade + "|" + name).Store();
  KVFORM form;
  ASSERT_EQ(KVFormFetch(database_, id, &form), KVSUCCESS);
  EXPECT_EQ(std::string(form.name), std::string(129, 'n'));
  EXPECT_EQ(std::string(form.menu_name), std::string(64, 'm'));
  EXPECT_EQ(std::string(form.cascade_name), std::string(64, 'c'));
}

TEST_F(FormTest, KVSubformFetch_EachLetter_ItsFlag) {
  struct LetterRow {
    const char* letters;
    uint32_t flags;
  };
  const LetterRow rows[] = {{"CU3", 0},    {"CU3A", 1}, {"CU3N", 2}, {"CU3x", 4},
                            {"CU3ANx", 7}, {"CU3X", 0}, {"U", 0}};
  int number = 0;
  for (const LetterRow& row : rows) {
    const std::string title = "Menu|Part" + std::to_string(++number);
    const uint32_t id = Form(title).NoInfo().Flags(row.letters).Store();
    KVSUBFORM subform;
    ASSERT_EQ(KVSubformFetch(database_, id, &subform), KVSUCCESS) << row.letters;
    EXPECT_EQ(subform.subform_flags, row.flags) << row.letters;
    EXPECT_EQ(std::string(subform.name), "Part" + std::to_string(number));
    EXPECT_STREQ(subform.menu_name, "Menu");
  }
}

}  // namespace
