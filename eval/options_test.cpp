#include "options.hpp"

#include <gtest/gtest.h>

namespace tovrin::ai::eval {
namespace {

TEST(ParseOptions, ValueAfterAnEqualsSignMayBeEmpty) {
  std::string error;
  const std::optional<EvalOptions> options =
      parseOptions({"--model=m=1", "--helper=", "in.jsonl"}, error);
  ASSERT_TRUE(options) << error;
  EXPECT_EQ(options->model, "m=1");
  EXPECT_EQ(options->helperPath, "");
  EXPECT_EQ(options->input, "in.jsonl");
}

TEST(ParseOptions, RejectsBadCommandLines) {
  struct Row {
    const char* name;
    std::vector<std::string> args;
    const char* error;
  };
  const Row rows[] = {
      {"no_input", {"--replay"}, "no input file"},
      {"two_inputs", {"a.jsonl", "b.jsonl"}, "only one input file: b.jsonl"},
      {"misspelt_option", {"--modle", "m", "a"}, "unknown option: --modle"},
      {"value_missing_at_end", {"a", "--model"}, "--model needs a value"},
      {"flag_with_value", {"--replay=yes", "a"}, "--replay takes no value"},
      {"repeat_zero", {"--repeat", "0", "a"}, "bad value for --repeat: 0"},
      {"concurrency_above_limit",
       {"--concurrency=65", "a"},
       "bad value for --concurrency: 65"},
      {"timeout_with_unit",
       {"--timeout", "5s", "a"},
       "bad value for --timeout: 5s"},
      {"timeout_zero", {"--timeout", "0", "a"}, "bad value for --timeout: 0"},
      {"top_p_above_one",
       {"--top-p", "1.5", "a"},
       "bad value for --top-p: 1.5"},
      {"temperature_not_a_number",
       {"--temperature", "nan", "a"},
       "bad value for --temperature: nan"},
      {"temperature_comma",
       {"--temperature", "0,3", "a"},
       "bad value for --temperature: 0,3"},
      {"empty_endpoint", {"--endpoint=", "a"}, "--endpoint must not be empty"},
  };
  for (const Row& row : rows) {
    std::string error;
    EXPECT_FALSE(parseOptions(row.args, error)) << row.name;
    EXPECT_EQ(error, row.error) << row.name;
  }
}

TEST(ParseOptions, HelpNeedsNoInput) {
  std::string error;
  const std::optional<EvalOptions> options = parseOptions({"--help"}, error);
  ASSERT_TRUE(options);
  EXPECT_TRUE(options->help);
}

}  // namespace
}  // namespace tovrin::ai::eval
