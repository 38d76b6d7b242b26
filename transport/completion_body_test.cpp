#include <gtest/gtest.h>

#include <clocale>
#include <limits>
#include <ostream>
#include <string>

#include "testing/row_name.hpp"
#include "tovrin/ai/transport.hpp"

namespace tovrin::ai {
namespace {

using namespace std::string_literals;

TEST(CompletionBodyTest, WorkedExampleIsExact) {
  const std::string body = buildCompletionBody(
      "Qwen2.5-1.5B-Instruct-Q8", "Jsi pomocník.\nOdpovídej česky.",
      "DOTAZ HRÁČE:\nKolik je 2+2?", 0.03f, 0.8f, 80);
  EXPECT_EQ(body,
            R"({"model":"Qwen2.5-1.5B-Instruct-Q8","messages":[)"
            R"({"role":"system","content":"Jsi pomocník.\nOdpovídej česky."},)"
            R"({"role":"user","content":"DOTAZ HRÁČE:\nKolik je 2+2?"}],)"
            R"("temperature":0.03,"top_p":0.8,"max_tokens":80,)"
            R"("cache_prompt":true,"stream":false})");
  EXPECT_EQ(body.size(), 254u);
}

TEST(CompletionBodyTest, EmptyTextsKeepEveryMember) {
  EXPECT_EQ(buildCompletionBody("", "", "", 0.0f, 1.0f, 0),
            R"({"model":"","messages":[{"role":"system","content":""},)"
            R"({"role":"user","content":""}],"temperature":0,"top_p":1,)"
            R"("max_tokens":0,"cache_prompt":true,"stream":false})");
}

struct EscapeCase {
  const char* name;
  std::string input;
  std::string escaped;
};

void PrintTo(const EscapeCase& row, std::ostream* out) { *out << row.name; }

const EscapeCase kEscapeCases[] = {
    {"Backspace", "\b", R"(\b)"},
    {"Tab", "\t", R"(\t)"},
    {"LineFeed", "\n", R"(\n)"},
    {"FormFeed", "\f", R"(\f)"},
    {"CarriageReturn", "\r", R"(\r)"},
    {"CrLfPair", "a\r\nb", R"(a\r\nb)"},
    {"Quote", "\"", R"(\")"},
    {"Backslash", "\\", R"(\\)"},
    {"NulThenRest", "a\0b"s, R"(a\u0000b)"},
    {"OtherControlsLowerHex",
     "\x01\x02\x03\x04\x05\x06\x07\x0b\x0e\x0f\x10\x11\x12\x13\x14\x15\x16"
     "\x17\x18\x19\x1a\x1b\x1c\x1d\x1e\x1f",
     R"(\u0001\u0002\u0003\u0004\u0005\u0006\u0007\u000b\u000e\u000f)"
     R"(\u0010\u0011\u0012\u0013\u0014\u0015\u0016\u0017\u0018\u0019)"
     R"(\u001a\u001b\u001c\u001d\u001e\u001f)"},
    {"SpaceSlashAndDelUnchanged", " /\x7f", " /\x7f"},
    {"Utf8AndInvalidUtf8Unchanged", "Řekni \xc3\x28\xff\x80",
     "Řekni \xc3\x28\xff\x80"},
    {"Empty", "", ""},
};

class JsonEscapeTest : public ::testing::TestWithParam<EscapeCase> {};

TEST_P(JsonEscapeTest, WritesStringContents) {
  const EscapeCase& c = GetParam();
  EXPECT_EQ(jsonEscape(c.input), c.escaped);
  EXPECT_EQ(jsonEscape(c.input.data(), c.input.size()), c.escaped);
}

INSTANTIATE_TEST_SUITE_P(Bytes, JsonEscapeTest,
                         ::testing::ValuesIn(kEscapeCases), test::RowName());

// Plain text is copied in blocks; an escape at any place of a long text,
// on either side of a block's edge, must still be found.
TEST(JsonEscapeTest, EscapesAtEveryPlaceOfALongText) {
  struct Special {
    const char* name;
    std::string byte;
    std::string escaped;
  };
  const Special specials[] = {{"quote", "\"", R"(\")"},
                              {"backslash", "\\", R"(\\)"},
                              {"line_feed", "\n", R"(\n)"},
                              {"unit_separator", "\x1f", R"(\u001f)"},
                              {"high_byte_unchanged", "\xC5", "\xC5"}};
  constexpr std::size_t kLength = 40;
  for (const Special& special : specials) {
    for (std::size_t at = 0; at < kLength; ++at) {
      const std::string before(at, 'x');
      const std::string after(kLength - at - 1, 'y');
      EXPECT_EQ(jsonEscape(before + special.byte + after),
                before + special.escaped + after)
          << special.name << " at " << at;
    }
  }
}

struct NumberCase {
  const char* name;
  float value;
  const char* text;
};

void PrintTo(const NumberCase& row, std::ostream* out) { *out << row.name; }

constexpr NumberCase kNumberCases[] = {
    {"DefaultTemperature", 0.03f, "0.03"},
    {"DefaultTopP", 0.8f, "0.8"},
    {"One", 1.0f, "1"},
    {"Zero", 0.0f, "0"},
    {"SmallGoesExponent", 0.00001f, "1e-05"},
    {"SmallestPlain", 0.0001f, "0.0001"},
    {"LargeRoundsToSixDigits", 1234567.0f, "1.23457e+06"},
    {"LargestPlain", 999999.0f, "999999"},
    {"Million", 1000000.0f, "1e+06"},
    // Not JSON numbers; sent as null so that the body stays valid JSON.
    {"NaN", std::numeric_limits<float>::quiet_NaN(), "null"},
    {"Infinity", std::numeric_limits<float>::infinity(), "null"},
};

class BodyNumberTest : public ::testing::TestWithParam<NumberCase> {};

TEST_P(BodyNumberTest, WritesTemperatureAndTopP) {
  const NumberCase& c = GetParam();
  EXPECT_EQ(buildCompletionBody("", "", "", c.value, c.value, 7),
            R"({"model":"","messages":[{"role":"system","content":""},)"
            R"({"role":"user","content":""}],"temperature":)" +
                std::string(c.text) + R"(,"top_p":)" + c.text +
                R"(,"max_tokens":7,"cache_prompt":true,"stream":false})");
}

INSTANTIATE_TEST_SUITE_P(Floats, BodyNumberTest,
                         ::testing::ValuesIn(kNumberCases), test::RowName());

// A game may switch the C locale to one with a decimal comma; the body must
// not follow it.
TEST(CompletionBodyTest, DecimalPointIgnoresTheLocale) {
  const char* const kCommaLocales[] = {
      "de_DE.UTF-8",       "de_DE.utf8", "de_DE",
      "cs_CZ.UTF-8",       "cs_CZ.utf8", "German_Germany.1252",
      "Czech_Czechia.1250"};
  const char* chosen = nullptr;
  for (const char* name : kCommaLocales) {
    if (std::setlocale(LC_ALL, name) != nullptr) {
      chosen = name;
      break;
    }
  }
  if (chosen == nullptr) GTEST_SKIP() << "no locale with a decimal comma";
  const std::string body = buildCompletionBody("", "", "", 0.03f, 0.8f, 1);
  std::setlocale(LC_ALL, "C");
  EXPECT_NE(body.find(R"("temperature":0.03,"top_p":0.8,)"), std::string::npos)
      << chosen << ": " << body;
}

}  // namespace
}  // namespace tovrin::ai
