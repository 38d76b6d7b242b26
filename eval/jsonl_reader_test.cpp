#include "jsonl_reader.hpp"

#include <gtest/gtest.h>

#include <sstream>

namespace tovrin::ai::eval {
namespace {

TEST(ParseCaseLine, ReadsEveryField) {
  std::string error;
  const std::optional<EvalCase> parsed = parseCaseLine(
      R"({"message": "Dej mi pivo!", "kind": "CommandHelp", "persona": "Karel", "worldFacts": ["a", "b"],)"
      R"( "allowedCommands": ["/x"], "toolResults": ["4"], "maxTokens": 12, "expected": "Ne.", "answer": "Ne\u017e.",)"
      R"( "tags": ["t1", "t2"], "comment": "c"})",
      7, error);
  ASSERT_TRUE(parsed) << error;
  EXPECT_EQ(parsed->line, 7u);
  EXPECT_EQ(parsed->request.message, "Dej mi pivo!");
  EXPECT_EQ(parsed->request.kind, AiRequestKind::CommandHelp);
  EXPECT_EQ(parsed->request.persona, "Karel");
  EXPECT_EQ(parsed->request.worldFacts, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(parsed->request.allowedCommands, std::vector<std::string>{"/x"});
  EXPECT_EQ(parsed->request.toolResults, std::vector<std::string>{"4"});
  EXPECT_EQ(parsed->request.maxTokens, 12u);
  EXPECT_EQ(parsed->expected, "Ne.");
  EXPECT_EQ(parsed->answer, "Ne\xC5\xBE.");
  EXPECT_EQ(parsed->tags, (std::vector<std::string>{"t1", "t2"}));
}

TEST(ParseCaseLine, RejectsWhatWouldSilentlyChangeTheRequest) {
  const std::string kindError =
      "kind must be NpcDialogue, CommandHelp, GeneralChat, ShortAnswer, ChatModeration, AntiCheatTriage or a number "
      "from 0 to 5";
  const struct {
    const char* name;
    std::string line;
    std::string error;
  } rows[] = {
      {"trailing_comma", R"({"message": "a",})", "parse error at line 1, column 17: syntax error while parsing object key - unexpected '}'; expected string literal"},
      {"invalid_utf8", "{\"message\": \"\xC3\"}", "parse error at line 1, column 15: syntax error while parsing value - invalid string: ill-formed UTF-8 byte; last read: '\"\xC3\"'"},
      {"array_line", R"(["a"])", "not a JSON object"},
      {"message_missing", R"({"kind": "ShortAnswer"})", "message is missing"},
      {"message_empty", R"({"message": ""})", "message is empty"},
      {"message_not_text", R"({"message": 5})", "message must be a string"},
      {"misspelt_field", R"({"message": "a", "worldfacts": ["x"]})", "unknown field \"worldfacts\""},
      {"kind_misspelt", R"({"message": "a", "kind": "NPCDialogue"})", kindError},
      {"kind_out_of_range", R"({"message": "a", "kind": 6})", kindError},
      {"kind_negative", R"({"message": "a", "kind": -1})", kindError},
      {"kind_fraction", R"({"message": "a", "kind": 1.0})", kindError},
      {"facts_not_a_list", R"({"message": "a", "worldFacts": "x"})", "worldFacts must be an array of strings"},
      {"tags_with_number", R"({"message": "a", "tags": ["x", 1]})", "tags must be an array of strings"},
      {"tokens_negative", R"({"message": "a", "maxTokens": -5})", "maxTokens must be a whole number, 0 or more"},
      {"tokens_fraction", R"({"message": "a", "maxTokens": 1.5})", "maxTokens must be a whole number, 0 or more"},
      {"label_in_lower_case", R"({"message": "a", "kind": "ChatModeration", "expected": "ok"})", "expected must be a label of ChatModeration"},
      {"label_of_the_other_kind", R"({"message": "a", "kind": "AntiCheatTriage", "expected": "WARN"})", "expected must be a label of AntiCheatTriage"},
  };
  for (const auto& row : rows) {
    std::string error;
    EXPECT_FALSE(parseCaseLine(row.line, 1, error)) << row.name;
    EXPECT_EQ(error, row.error) << row.name;
  }
}

TEST(ReadCases, LineNumbersSurviveBlankLinesBomAndCarriageReturns) {
  std::istringstream input(
      "\xEF\xBB\xBF{\"message\": \"a\"}\r\n"
      "\r\n"
      "   \n"
      "{\"message\": \"b\", \"kind\": 9}\n"
      "{\"message\": \"c\"}");
  const ReadResult result = readCases(input, "in.jsonl");
  ASSERT_EQ(result.cases.size(), 2u);
  EXPECT_EQ(result.cases[0].line, 1u);
  EXPECT_EQ(result.cases[0].request.message, "a");
  EXPECT_EQ(result.cases[1].line, 5u);
  EXPECT_EQ(result.cases[1].request.message, "c");
  ASSERT_EQ(result.errors.size(), 1u);
  EXPECT_EQ(result.errors[0].substr(0, 22), "in.jsonl:4: kind must ");
}

TEST(ReadCases, DeeplyNestedLineIsAnErrorNotACrash) {
  std::istringstream input("{\"message\": \"a\", \"tags\": " + std::string(100000, '[') + std::string(100000, ']') + "}\n");
  const ReadResult result = readCases(input, "deep");
  EXPECT_TRUE(result.cases.empty());
  EXPECT_EQ(result.errors, std::vector<std::string>{"deep:1: tags must be an array of strings"});
}

}  // namespace
}  // namespace tovrin::ai::eval
