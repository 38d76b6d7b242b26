#include "testing/process_runner.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace tovrin::ai::test {
namespace {

namespace fs = std::filesystem;

ProcessResult runProbe(const std::vector<std::string>& arguments,
                       std::chrono::milliseconds limit =
                           std::chrono::milliseconds(60000)) {
  return runProcess(TOVRIN_AI_PROCESS_PROBE_PATH, arguments,
                    fs::temp_directory_path(), limit);
}

// Each argument must reach the program's argv exactly, whatever the
// platform does with command lines.
TEST(ProcessRunner, PassesArgumentsUnchanged) {
  struct Row {
    const char* name;
    std::string argument;
  };
  const Row rows[] = {
      {"plain", "Ahoj"},
      {"empty", ""},
      {"spaces", "Kolik je 12*(3+4)?"},
      {"tab", "a\tb"},
      {"quotes", "say \"hi\""},
      {"lone_quote", "\""},
      {"backslash_inside", "C:\\dir\\file"},
      {"backslash_before_quote", "a\\\"b"},
      {"trailing_backslash_with_space", "a b\\"},
      {"trailing_backslashes", "x\\\\"},
      {"shell_characters", "a&b|c>d<e^f%PATH%$HOME;*"},
  };
  for (const Row& row : rows) {
    const ProcessResult result = runProbe({row.argument});
    EXPECT_EQ(result.out, "[" + row.argument + "]") << row.name;
    EXPECT_EQ(result.exitStatus, 1) << row.name;
  }
}

TEST(ProcessRunner, CollectsBothStreamsAndTheExitStatus) {
  const ProcessResult result = runProbe({"a", "", "c d"});
  EXPECT_EQ(result.out, "[a][][c d]");
  EXPECT_EQ(result.err, "err");
  EXPECT_EQ(result.exitStatus, 3);
}

TEST(ProcessRunner, KillsAProgramPastTheLimit) {
  const auto start = std::chrono::steady_clock::now();
  const ProcessResult result =
      runProbe({"--hang"}, std::chrono::milliseconds(300));
  EXPECT_EQ(result.exitStatus, -1);
  EXPECT_EQ(result.out, "");
  EXPECT_LT(std::chrono::steady_clock::now() - start,
            std::chrono::seconds(30));
}

}  // namespace
}  // namespace tovrin::ai::test
