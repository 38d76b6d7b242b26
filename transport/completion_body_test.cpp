#include <gtest/gtest.h>

#include <clocale>
#include <limits>
#include <string>

#include "tovrin/ai/transport.hpp"

namespace tovrin::ai {
namespace {

using namespace std::string_literals;

TEST(CompletionBody, NumbersOfTemperatureAndTopP) {
  constexpr float kInf = std::numeric_limits<float>::infinity();
  const struct {
    float value;
    const char* text;
  } kCases[] = {
      {0.0f, "0"}, {1.0f, "1"}, {0.00001f, "1e-05"}, {0.0001f, "0.0001"}, {1234567.0f, "1.23457e+06"},
      {999999.0f, "999999"}, {1000000.0f, "1e+06"},
      // Not JSON numbers; sent as null so that the body stays valid JSON.
      {std::numeric_limits<float>::quiet_NaN(), "null"}, {kInf, "null"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(buildCompletionBody("", "", "", c.value, c.value, 7),
              R"({"model":"","messages":[{"role":"system","content":""},)"
              R"({"role":"user","content":""}],"temperature":)" + std::string(c.text) +
                  R"(,"top_p":)" + c.text + R"(,"max_tokens":7,"cache_prompt":true,"stream":false})");
  }
}

TEST(JsonEscape, Cases) {
  const struct {
    std::string input;
    std::string escaped;
  } kCases[] = {
      {"\b\t\n\f\r\"\\", R"(\b\t\n\f\r\"\\)"},
      {"a\0b"s, R"(a\u0000b)"},
      {"\x01\x02\x03\x04\x05\x06\x07\x0b\x0e\x0f\x10\x11\x12\x13\x14\x15\x16\x17\x18\x19\x1a\x1b\x1c\x1d\x1e\x1f",
       R"(\u0001\u0002\u0003\u0004\u0005\u0006\u0007\u000b\u000e\u000f\u0010\u0011\u0012\u0013\u0014)"
       R"(\u0015\u0016\u0017\u0018\u0019\u001a\u001b\u001c\u001d\u001e\u001f)"},
      {" /\x7f Řekni \xc3\x28\xff\x80", " /\x7f Řekni \xc3\x28\xff\x80"},
      {"", ""},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(jsonEscape(c.input), c.escaped);
    EXPECT_EQ(jsonEscape(c.input.data(), c.input.size()), c.escaped);
  }
  // Plain text is copied in blocks; an escape at any place of a long text,
  // on either side of a block's edge, must still be found.
  for (const auto& [byte, escaped] : {std::pair("\"", R"(\")"), std::pair("\\", R"(\\)"),
                                      std::pair("\n", R"(\n)"), std::pair("\x1f", R"(\u001f)"),
                                      std::pair("\xC5", "\xC5")}) {
    for (std::size_t at = 0; at < 40; ++at) {
      const std::string before(at, 'x'), after(39 - at, 'y');
      EXPECT_EQ(jsonEscape(before + byte + after), before + escaped + after) << escaped << " at " << at;
    }
  }
}

// A game may switch the C locale to one with a decimal comma; the body must
// not follow it.
TEST(CompletionBody, DecimalPointIgnoresTheLocale) {
  const char* chosen = nullptr;
  for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "de_DE", "cs_CZ.UTF-8", "cs_CZ.utf8",
                           "German_Germany.1252", "Czech_Czechia.1250"}) {
    if (std::setlocale(LC_ALL, name) != nullptr) {
      chosen = name;
      break;
    }
  }
  if (chosen == nullptr) GTEST_SKIP() << "no locale with a decimal comma";
  const std::string body = buildCompletionBody("", "", "", 0.03f, 0.8f, 1);
  std::setlocale(LC_ALL, "C");
  EXPECT_NE(body.find(R"("temperature":0.03,"top_p":0.8,)"), std::string::npos) << chosen << ": " << body;
}

}  // namespace
}  // namespace tovrin::ai
