// Texts of compiled formulas, and design names inside formulas.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kvmeta_world.h"

namespace {

using kit::Fault;
using kit::Spy;
using kvdoc::kEngineFailure;

std::string Format(const std::string& name, int inlen) {
  std::vector<char> out(2 * name.size() + 1, 'x');
  KVIDesignGetFormulaFormat(out.data(), name.c_str(), inlen);
  return out.data();
}

TEST(FormulaFormat, KVIDesignGetFormulaFormat_Names_BackslashesDoubled) {
  EXPECT_EQ(Format("Name", 0), "Name");
  EXPECT_EQ(Format("", 0), "");
  EXPECT_EQ(Format("Main\\Sub", 0), "Main\\\\Sub");
  EXPECT_EQ(Format("\\\\", 0), "\\\\\\\\");
  EXPECT_EQ(Format("Main\\Sub", 5), "Main\\\\");
  EXPECT_EQ(Format("Main\\Sub", 4), "Main");
  EXPECT_EQ(Format("Name", 3), "Nam");
  EXPECT_EQ(Format("Name", 4), "Name");
}

TEST(FormulaFormat, KVIDesignGetFormulaFormat_LengthPastTheEnd_StopsAtTheNul) {
  std::vector<char> out(32, 'x');
  KVIDesignGetFormulaFormat(out.data(), "A\\B", 30);
  EXPECT_STREQ(out.data(), "A\\\\B");
}

TEST(FormulaFormat, KVIDesignGetFormulaFormat_NullArguments_Nothing) {
  char out[] = "untouched";
  KVIDesignGetFormulaFormat(out, nullptr, 0);
  KVIDesignGetFormulaFormat(nullptr, "Name", 0);
  EXPECT_STREQ(out, "untouched");
}

class FormulaTextTest : public kvmeta::DesignTest {
 protected:
  void SetUp() override {
    DesignTest::SetUp();
    EngMem formula = 0;
    ASSERT_EQ(_KVICompileFormula(nullptr, "SELECT Form = \"Memo\"", &formula), 0);
    uint16_t formula_bytes = 0;
    ASSERT_EQ(EngFormulaSizeGet(formula, &formula_bytes), 0);
    {
      KVLocked block(formula);
      formula_.assign(block.bytes, block.bytes + formula_bytes);
    }
    ASSERT_EQ(EngMemFree(formula), 0);
  }
  std::vector<char> formula_;
};

TEST_F(FormulaTextTest, FetchDesignFormula_Formula_TextKeptAndReturned) {
  for (int viewsel : {0, 1}) {
    char* text = nullptr;
    Spy spy;
    EXPECT_EQ(FetchDesignFormula(formula_.data(), &text, viewsel), text);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(spy.Find("EngFormulaDecompile")->words[1], static_cast<uint64_t>(viewsel));
    EXPECT_EQ(spy.Count("EngMemFree"), 1u);
    EXPECT_NE(std::string(text).find("Form = \"Memo\""), std::string::npos) << text;
    KVIFree(text);
  }
}

TEST_F(FormulaTextTest, FetchDesignFormula_EngineOrMemoryFails_Null) {
  char* text = session_->buffer;
  {
    Fault fault = Fault::EngineCall(1, kEngineFailure, "EngFormulaDecompile");
    EXPECT_EQ(FetchDesignFormula(formula_.data(), &text, 0), nullptr);
    EXPECT_EQ(text, nullptr);
  }
  bool hit = true;
  for (uint32_t nth = 1; hit; ++nth) {
    text = session_->buffer;
    Fault fault = Fault::Allocation(nth);
    EXPECT_EQ(FetchDesignFormula(formula_.data(), &text, 0), text);
    hit = fault.Hit();
    fault.Disarm();
    EXPECT_EQ(text == nullptr, hit) << nth;
    KVIFree(text);
  }
}

}  // namespace
