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

TEST(ParseOptions, HelpNeedsNoInput) {
  for (const char* flag : {"--help", "-h"}) {
    std::string error;
    const std::optional<EvalOptions> options = parseOptions({flag}, error);
    ASSERT_TRUE(options) << flag;
    EXPECT_TRUE(options->help) << flag;
  }
}

// The defaults are the library's, written as they would be typed.
TEST(Usage, ShowsTheLibraryDefaultsReadably) {
  const std::string text = usage();
  for (const char* part : {"(default 25000)", "(default 0.03)",
                           "(default Qwen2.5-1.5B-Instruct-Q8)"}) {
    EXPECT_NE(text.find(part), std::string::npos) << part;
  }
}

}  // namespace
}  // namespace tovrin::ai::eval
