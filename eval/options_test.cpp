#include "options.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include "testing/files.hpp"

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
  EXPECT_EQ(usage(), test::readFile(std::filesystem::path(TOVRIN_AI_SOURCE_DIR) / "eval/testdata/usage.txt"));
}

}  // namespace
}  // namespace tovrin::ai::eval
