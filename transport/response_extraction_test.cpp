#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <stdexcept>
#include <string>

#include "tovrin/ai/transport.hpp"
#include "testing/files.hpp"

namespace tovrin::ai {
namespace {

constexpr const char* kNoContent = "AI response does not contain message.content";

std::string outcome(const std::string& body) {
  try {
    return "returned: " + extractMessageContent(body);
  } catch (const std::runtime_error& e) {
    return e.what();
  }
}

TEST(ExtractMessageContent, Cases) {
  const std::string a50(50, 'a'), b50(50, 'b'), c50(50, 'c');
  const struct {
    const char* name;
    std::string body;
    std::string outcome;
  } kCases[] = {
      {"usual_form", R"({"choices":[{"index":0,"message":{"role":"assistant","content":"Ahoj\nsvěte"}}]})", "returned: Ahoj\nsvěte"},
      {"spaces_around_colon", R"({"content" : "a"})", "returned: a"},
      {"every_c_space_after_colon", "\"content\"\t\n: \t\n\v\f\r\"c\"", "returned: c"},
      {"unicode_escape_kept_as_written", R"({"content":"Cena je \u00e9"})", R"(returned: Cena je \u00e9)"},
      {"cut_unicode_escape_keeps_digits", R"({"content":"x\u00"})", "returned: x00"},
      {"unknown_escape_keeps_letter", R"({"content":"a\xb"})", "returned: axb"},
      {"every_short_escape", R"({"content":"\"\\\/\b\f\n\r\t"})", "returned: \"\\/\b\f\n\r\t"},
      {"escaped_quotes_and_backslash", R"({"content":"say \"hi\" \\ ok"})", R"(returned: say "hi" \ ok)"},
      {"key_text_inside_value_is_data", R"({"content":"the \"content\": \"G\" x"})", R"(returned: the "content": "G" x)"},
      {"last_string_wins", R"({"content":"A","x":{"content":"B"}})", "returned: B"},
      {"null_after_string_keeps_it", R"({"content":"A"},{"content":null})", "returned: A"},
      {"non_strings_skipped", R"({"content":5,"content":{"content":[1]},"content":"C","n":1})", "returned: C"},
      {"reasoning_content_is_not_the_key", R"({"content":"D","reasoning_content":"think"})", "returned: D"},
      {"string_value_content_acts_as_key", R"({"type":"content","text":"E"})", "returned: E"},
      {"closing_quote_can_open_next_key", R"({"content":"A"content":"F"})", "returned: F"},
      {"backslash_pair_before_closing_quote", R"({"content":"a\\","n":"q"})", R"(returned: a\)"},
      {"escaped_quote_right_before_closing_one", R"({"content":"a\"","n":1})", R"(returned: a")"},
      {"long_value_with_escapes_far_apart", R"({"content":")" + a50 + R"(\")" + b50 + R"(\n)" + c50 + R"("})",
       "returned: " + a50 + "\"" + b50 + "\n" + c50},
      {"unterminated_ending_in_backslash", R"({"content":"abc\)", "returned: abc"},
      {"empty_body", "", kNoContent},
      {"no_key", R"({"choices":[{"message":{"role":"assistant"}}]})", kNoContent},
      {"server_error_document", R"({"error":{"code":503,"message":"Loading model","type":"unavailable_error"}})", kNoContent},
      {"null_alone", R"({"content":null})", kNoContent},
      {"later_empty_string_clears", R"({"content":"A","content":""})", kNoContent},
      {"key_at_end", R"({"x":1,"content")", kNoContent},
      {"key_without_colon", R"({"content"})", kNoContent},
      {"colon_at_end", "{\"content\": \t", kNoContent},
      {"only_cut_unicode_escape", R"({"content":"\u"})", kNoContent},
      {"only_backslash", R"({"content":"\)", kNoContent},
  };
  for (const auto& c : kCases) EXPECT_EQ(outcome(c.body), c.outcome) << c.name;
}

// Bodies as a real server sent them: testdata/recorded_contents.txt names
// each recorded response after "== ", then what is made of its body.
TEST(ExtractMessageContent, RecordedBodies) {
  const std::string expected = test::readTestdata("recorded_contents.txt");
  std::istringstream lines(expected);
  std::string outcomes;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("== ")) outcomes += line + "\n" + outcome(test::recordedBody(line.substr(3))) + "\n";
  }
  EXPECT_EQ(outcomes, expected);
}

// Shapes that make a search restarted at every key quadratic. The bound is
// far above what one linear pass needs, even under sanitizers.
TEST(ExtractMessageContent, LongAdversarialBodiesStayLinear) {
  std::string keysThenValue, manyNulls;
  for (int i = 0; i < 200000; ++i) keysThenValue += "\"content\"";
  for (int i = 0; i < 200000; ++i) manyNulls += "\"content\":null,";
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(extractMessageContent(keysThenValue + ":\"x\""), "x");
  EXPECT_EQ(extractMessageContent(manyNulls + "\"content\":\"y\""), "y");
  EXPECT_EQ(extractMessageContent("{\"content\":\"" + std::string(4000000, 'z') + "\\\"" + std::string(4000000, '\\')),
            std::string(4000000, 'z') + "\"" + std::string(2000000, '\\'));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

}  // namespace
}  // namespace tovrin::ai
