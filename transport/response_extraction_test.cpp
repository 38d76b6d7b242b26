#include <gtest/gtest.h>

#include <chrono>
#include <ostream>
#include <stdexcept>
#include <string>

#include "testing/row_name.hpp"
#include "tovrin/ai/transport.hpp"
#include "transport/testdata_files.hpp"

namespace tovrin::ai {
namespace {

constexpr const char* kNoContent =
    "AI response does not contain message.content";

std::string failureOf(const std::string& body) {
  try {
    return "returned: " + extractMessageContent(body);
  } catch (const std::runtime_error& e) {
    return e.what();
  }
}

struct ContentCase {
  const char* name;
  std::string body;
  std::string content;
};

void PrintTo(const ContentCase& row, std::ostream* out) { *out << row.name; }

const ContentCase kContentCases[] = {
    {"UsualForm",
     R"({"choices":[{"index":0,"message":{"role":"assistant","content":"Ahoj\nsvěte"}}]})",
     "Ahoj\nsvěte"},
    {"SpacesAroundColon", R"({"content" : "a"})", "a"},
    {"TabAndLineFeedAroundColon", "{\"content\"\t:\n\t\"b\"}", "b"},
    {"EveryCSpaceAfterColon", "\"content\": \t\n\v\f\r\"c\"", "c"},
    {"UnicodeEscapeKeptAsWritten", R"({"content":"Cena je \u00e9"})",
     R"(Cena je \u00e9)"},
    {"CutUnicodeEscapeKeepsDigits", R"({"content":"x\u00"})", "x00"},
    {"UnknownEscapeKeepsLetter", R"({"content":"a\xb"})", "axb"},
    {"EscapedQuotesAndBackslash", R"({"content":"say \"hi\" \\ ok"})",
     R"(say "hi" \ ok)"},
    {"KeyTextInsideValueIsData", R"({"content":"the \"content\": \"G\" x"})",
     R"(the "content": "G" x)"},
    {"LastStringWins", R"({"content":"A","x":{"content":"B"}})", "B"},
    {"NullAfterStringKeepsIt", R"({"content":"A"},{"content":null})", "A"},
    {"NonStringsSkipped",
     R"({"content":5,"content":{"content":[1]},"content":"C","n":1})", "C"},
    {"ReasoningContentIsNotTheKey",
     R"({"content":"D","reasoning_content":"think"})", "D"},
    {"StringValueContentActsAsKey", R"({"type":"content","text":"E"})", "E"},
    {"ClosingQuoteCanOpenNextKey", R"({"content":"A"content":"F"})", "F"},
    {"BackslashPairBeforeClosingQuote", R"({"content":"a\\","n":"q"})",
     R"(a\)"},
    {"EscapedQuoteRightBeforeClosingOne", R"({"content":"a\"","n":1})",
     R"(a")"},
    {"LongValueWithEscapesFarApart",
     R"({"content":")" + std::string(50, 'a') + R"(\")" +
         std::string(50, 'b') + R"(\n)" + std::string(50, 'c') + R"("})",
     std::string(50, 'a') + "\"" + std::string(50, 'b') + "\n" +
         std::string(50, 'c')},
    {"UnterminatedRunsToEnd", R"({"content":"abc)", "abc"},
    {"UnterminatedEndingInBackslash", R"({"content":"abc\)", "abc"},
};

class ExtractContentTest : public ::testing::TestWithParam<ContentCase> {};

TEST_P(ExtractContentTest, ReturnsTheDecidingValue) {
  const ContentCase& c = GetParam();
  EXPECT_EQ(failureOf(c.body), "returned: " + c.content);
}

INSTANTIATE_TEST_SUITE_P(Bodies, ExtractContentTest,
                         ::testing::ValuesIn(kContentCases), test::RowName());

struct MissingCase {
  const char* name;
  const char* body;
};

void PrintTo(const MissingCase& row, std::ostream* out) { *out << row.name; }

constexpr MissingCase kMissingCases[] = {
    {"EmptyBody", ""},
    {"NoKey", R"({"choices":[{"message":{"role":"assistant"}}]})"},
    {"ServerErrorDocument",
     R"({"error":{"code":500,"message":"x","type":"server_error"}})"},
    {"NullAlone", R"({"content":null})"},
    {"EmptyStringAlone", R"({"content":""})"},
    {"LaterEmptyStringClears", R"({"content":"A","content":""})"},
    {"KeyAtEnd", R"({"x":1,"content")"},
    {"KeyWithoutColon", R"({"content"})"},
    {"ColonAtEnd", "{\"content\": \t"},
    {"OnlyCutUnicodeEscape", R"({"content":"\u"})"},
    {"OnlyBackslash", R"({"content":"\)"},
};

class MissingContentTest : public ::testing::TestWithParam<MissingCase> {};

TEST_P(MissingContentTest, Throws) {
  EXPECT_EQ(failureOf(GetParam().body), kNoContent);
}

INSTANTIATE_TEST_SUITE_P(Bodies, MissingContentTest,
                         ::testing::ValuesIn(kMissingCases), test::RowName());

struct UnescapeCase {
  const char* name;
  std::string raw;
  std::string text;
};

void PrintTo(const UnescapeCase& row, std::ostream* out) { *out << row.name; }

const UnescapeCase kUnescapeCases[] = {
    {"Quote", R"(\")", "\""},
    {"Backslash", R"(\\)", "\\"},
    {"Slash", R"(\/)", "/"},
    {"Backspace", R"(\b)", "\b"},
    {"FormFeed", R"(\f)", "\f"},
    {"LineFeed", R"(\n)", "\n"},
    {"CarriageReturn", R"(\r)", "\r"},
    {"Tab", R"(\t)", "\t"},
    {"UnicodeWithFourBytesKept", R"(\u0041)", R"(\u0041)"},
    {"UnicodeKeepsAnyFourBytes", R"(\uZZ"\x)",
     R"(\uZZ"\)"
     "x"},
    {"UnicodeThreeBytesDropsEscape", R"(\u123)", "123"},
    {"UnicodeAtEndDropped", R"(ab\u)", "ab"},
    {"CutUnicodeThenEscape", R"(\u\n)", "\n"},
    {"OtherLetterLosesBackslash", R"(\q\x\0)", "qx0"},
    {"TrailingBackslashDropped", R"(end\)", "end"},
    {"DoubleBackslashThenN", R"(\\n)", R"(\n)"},
    {"Empty", "", ""},
};

class JsonUnescapeTest : public ::testing::TestWithParam<UnescapeCase> {};

TEST_P(JsonUnescapeTest, ResolvesEscapes) {
  const UnescapeCase& c = GetParam();
  EXPECT_EQ(jsonUnescape(c.raw), c.text);
  EXPECT_EQ(jsonUnescape(c.raw.data(), c.raw.size()), c.text);
}

INSTANTIATE_TEST_SUITE_P(Escapes, JsonUnescapeTest,
                         ::testing::ValuesIn(kUnescapeCases), test::RowName());

// Bodies as a real server sent them.
struct RecordedCase {
  const char* name;
  const char* file;
  const char* content;
};

void PrintTo(const RecordedCase& row, std::ostream* out) { *out << row.name; }

constexpr RecordedCase kRecordedCases[] = {
    {"Normal", "stories-normal.response",
     "\"Mommy,\" said Johnny.\nThen, a little girl named Lily came to the "
     "park. She saw a big, scary and wanted to play with it. She asked her "
     "mommy, \"Mommy, can you want to play with me?\" Her mom"},
    {"Short", "stories-short.response", "\"Mommy,\""},
    {"ZeroTokens", "stories-zero.response", "\""},
    {"Random1", "random-rand1.response",
     "\netoabc Dec multiple technicalMANMANMAN old oldек trained "
     "singleGeneratedvie sugg\"]ября обра nobles CE Designacci gel району Lib "
     "executuper semborld não Dec läng eines lovedmaven grootKS国olareŋeground "
     "não(\"<³ eer deläß definitionetheFunak seinen permanelle \xc2\xa0 "
     "pidasures"},
};

class RecordedBodyTest : public ::testing::TestWithParam<RecordedCase> {};

TEST_P(RecordedBodyTest, ExtractsTheMessage) {
  const RecordedCase& c = GetParam();
  EXPECT_EQ(extractMessageContent(test::recordedBody(c.file)), c.content);
}

INSTANTIATE_TEST_SUITE_P(Recorded, RecordedBodyTest,
                         ::testing::ValuesIn(kRecordedCases), test::RowName());

TEST(RecordedBodyTest, ErrorDocumentsHaveNoContent) {
  EXPECT_EQ(failureOf(test::recordedBody("stories-bad.response")), kNoContent);
  EXPECT_EQ(failureOf(test::recordedBody("stories-wrongpath.response")),
            kNoContent);
}

// Shapes that make a search restarted at every key quadratic. The bound is
// far above what one linear pass needs, even under sanitizers.
TEST(ExtractContentTest, LongAdversarialBodiesStayLinear) {
  std::string keysThenValue;
  for (int i = 0; i < 200000; ++i) keysThenValue += "\"content\"";
  keysThenValue += ":\"x\"";
  std::string manyNulls;
  for (int i = 0; i < 200000; ++i) manyNulls += "\"content\":null,";
  manyNulls += "\"content\":\"y\"";
  const std::string longValue = "{\"content\":\"" + std::string(4000000, 'z') +
                                "\\\"" + std::string(4000000, '\\');

  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(extractMessageContent(keysThenValue), "x");
  EXPECT_EQ(extractMessageContent(manyNulls), "y");
  EXPECT_EQ(extractMessageContent(longValue).size(), 4000000u + 1 + 2000000u);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

}  // namespace
}  // namespace tovrin::ai
