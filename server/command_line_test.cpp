#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "server/command_line.hpp"
#include "tovrin/ai/model_server.hpp"

namespace tovrin::ai {
namespace {

using Words = std::vector<std::string>;

TEST(CommandLine, SplitsWordsAndQuotes) {
  const struct {
    const char* name;
    const char* line;
    Words words;
  } rows[] = {
      {"spaces and tabs", " llama-server \t-m  a.gguf ", {"llama-server", "-m", "a.gguf"}},
      {"single quotes keep all", R"(x 'a "b" \c')", {"x", R"(a "b" \c)"}},
      {"double quotes escape", R"(x "say \"hi\" \\ \n")", {"x", R"(say "hi" \ \n)"}},
      {"empty words", R"(x "" '')", {"x", "", ""}},
      {"quotes inside a word", R"(--name="Karel Novák"x)", {"--name=Karel Novákx"}},
      {"windows path", R"(C:\ai\llama-server.exe --port {port})", {R"(C:\ai\llama-server.exe)", "--port", "{port}"}},
  };
  for (const auto& row : rows) EXPECT_EQ(splitCommandLine(row.line), row.words) << row.name;
  EXPECT_THROW(splitCommandLine("x \"open"), std::invalid_argument);
  EXPECT_THROW(splitCommandLine("x 'open"), std::invalid_argument);
  EXPECT_THROW(serverOptionsFromCommand("  "), std::invalid_argument);
  const AiModelServerOptions options = serverOptionsFromCommand("srv -m 'my model.gguf'");
  EXPECT_EQ(options.program, "srv");
  EXPECT_EQ(options.arguments, (Words{"-m", "my model.gguf"}));
}

TEST(CommandLine, PutsThePortIntoEveryPlaceholder) {
  EXPECT_EQ(detail::withPort({"--port", "{port}", "http://h:{port}/{port}", "{po"}, 8080),
            (Words{"--port", "8080", "http://h:8080/8080", "{po"}));
}

// The rules CommandLineToArgvW reads arguments back by; the Windows build's
// process tests check the same arguments arrive in a real program.
TEST(CommandLine, QuotesForWindows) {
  const struct {
    const char* name;
    const char* argument;
    const char* quoted;
  } rows[] = {
      {"plain", "-np", "-np"},
      {"empty", "", R"("")"},
      {"space", "a b", R"("a b")"},
      {"tab", "a\tb", "\"a\tb\""},
      {"quote", R"(say "hi")", R"("say \"hi\"")"},
      {"backslashes not before a quote", R"(C:\a b\c)", R"("C:\a b\c")"},
      {"backslashes before a quote", R"(a\"b)", R"("a\\\"b")"},
      {"trailing backslashes", R"(C:\dir with space\\)", R"("C:\dir with space\\\\")"},
      {"trailing backslash, no quoting needed", R"(C:\dir\)", R"(C:\dir\)"},
      {"Czech letters", "Žluťoučký kůň", R"("Žluťoučký kůň")"},
  };
  for (const auto& row : rows) EXPECT_EQ(detail::quoteWindowsArgument(row.argument), row.quoted) << row.name;
  EXPECT_EQ(detail::windowsCommandLine({R"(C:\Program Files\srv.exe)", "-m", ""}), R"("C:\Program Files\srv.exe" -m "")");
}

}  // namespace
}  // namespace tovrin::ai
