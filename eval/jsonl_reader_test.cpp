#include "jsonl_reader.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "testing/files.hpp"

namespace tovrin::ai::eval {
namespace {

TEST(ParseCaseLine, ReadsEveryField) {
  std::string error;
  const std::optional<EvalCase> parsed = parseCaseLine(
      R"({"message": "Dej mi pivo!", "kind": "CommandHelp", "persona": "Karel", "worldFacts": ["a", "b"],)"
      R"( "allowedCommands": ["/x"], "toolResults": ["4"], "maxTokens": 12, "expected": "Ne.", "answer": "Ne\u017e.",)"
      R"( "tags": ["t1", "t2", "t1"], "comment": "c"})",
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

// Each line of testdata/bad_lines.jsonl holds one thing that would silently
// change a request, and is refused with the error on the same line of
// testdata/bad_lines_errors.txt.
TEST(ReadCases, RefusesWhatWouldSilentlyChangeTheRequest) {
  const std::filesystem::path testdata = std::filesystem::path(TOVRIN_AI_SOURCE_DIR) / "eval/testdata";
  std::istringstream input(test::readFile(testdata / "bad_lines.jsonl"));
  const ReadResult result = readCases(input, "bad_lines.jsonl");
  EXPECT_TRUE(result.cases.empty());
  std::string errors;
  for (const std::string& error : result.errors) errors += error + "\n";
  EXPECT_EQ(errors, test::readFile(testdata / "bad_lines_errors.txt"));
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
