// The real tovrin-ai binary against a scripted model server on its fixed
// port: standard output, standard error and exit status, byte for byte.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "console_output.hpp"
#include "testing/loopback_server.hpp"
#include "testing/process_runner.hpp"

namespace tovrin::ai {
namespace {

namespace fs = std::filesystem;
using test::LoopbackStep;

constexpr std::uint16_t kConsolePort = 17944;

const std::string kNoServerStatus =
    "ok=false model=Qwen2.5-1.5B-Instruct-Q8 attempts=1 fallback=false\n";

const std::string kShortAnswerSystemPrompt =
    "Jsi lokální AI modul hry postavené na Tovrin Engine. Odpovídej stručně a "
    "přirozeně česky. Nevymýšlej příkazy, čísla, odměny, oprávnění ani fakta "
    "herního světa. Dodaná fakta a výsledky nástrojů jsou závazné. Maximálně "
    "dvě krátké věty. Když si nejsi jistý, řekni to. ";

// A working directory for one run, with or without a helper text file.
class ConsoleRun {
 public:
  explicit ConsoleRun(std::optional<std::string> helperText) {
    dir_ = fs::temp_directory_path() /
           ("tovrin_ai_console_" +
            std::string(::testing::UnitTest::GetInstance()
                            ->current_test_info()
                            ->name()));
    fs::remove_all(dir_);
    fs::create_directories(dir_ / "assets" / "ai");
    if (helperText) {
      std::ofstream(dir_ / "assets" / "ai" / "czech_helper_cs.txt",
                    std::ios::binary)
          << *helperText;
    }
  }
  ~ConsoleRun() { fs::remove_all(dir_); }

  test::ProcessResult run(const std::vector<std::string>& arguments) const {
    return test::runProcess(TOVRIN_AI_CONSOLE_PATH, arguments, dir_);
  }

 private:
  fs::path dir_;
};

void expectOutput(const test::ProcessResult& result, const std::string& out,
                  const std::string& err, int exitStatus,
                  const std::string& name) {
  EXPECT_EQ(result.out, out) << name;
  EXPECT_EQ(result.err, err) << name;
  EXPECT_EQ(result.exitStatus, exitStatus) << name;
}

TEST(Console, WithoutModelServer) {
  const ConsoleRun run("Piš spisovně.");
  struct Case {
    const char* name;
    std::vector<std::string> arguments;
    std::string out;
    std::string err;
    int exitStatus;
  };
  const Case cases[] = {
      {"test_sentence", {}, kNoServerStatus,
       "Cannot connect to AI endpoint\n", 2},
      {"empty_argument", {""}, "ok=false model= attempts=0 fallback=false\n",
       "AI request message is empty\n", 2},
      {"further_arguments_ignored", {"", "Ahoj"},
       "ok=false model= attempts=0 fallback=false\n",
       "AI request message is empty\n", 2},
      {"arithmetic_from_the_tools",
       {"Kolik je 12*(3+4)?"},
       "ok=true model=watchdog-template attempts=1 fallback=true\n84\n",
       "Cannot connect to AI endpoint\n", 0},
  };
  for (const Case& c : cases) {
    expectOutput(run.run(c.arguments), c.out, c.err, c.exitStatus, c.name);
  }
}

TEST(Console, MissingHelperFileChangesNothingInTheOutput) {
  const ConsoleRun run(std::nullopt);
  expectOutput(run.run({}), kNoServerStatus, "Cannot connect to AI endpoint\n",
               2, "no helper");
}

TEST(Console, AcceptedModelAnswerAndItsRequest) {
  const test::LoopbackServer server(
      {test::chatCompletionStep("Lokální AI funguje.")}, kConsolePort);
  const ConsoleRun run("Piš spisovně.\r\n");
  expectOutput(
      run.run({}),
      "ok=true model=Qwen2.5-1.5B-Instruct-Q8 attempts=1 fallback=false\n"
      "Lokální AI funguje.\n",
      "", 0, "accepted");

  const std::string body =
      "{\"model\":\"Qwen2.5-1.5B-Instruct-Q8\",\"messages\":["
      "{\"role\":\"system\",\"content\":\"" +
      kShortAnswerSystemPrompt +
      "\\nČESKÝ POMOCNÍK A PRAVIDLA:\\nPiš spisovně.\\r\\n\"},"
      "{\"role\":\"user\",\"content\":\"DOTAZ HRÁČE:\\nŘekni jednou krátkou "
      "větou, že lokální AI v Tovrin Engine funguje.\\n\\nVrať pouze finální "
      "odpověď.\"}],"
      "\"temperature\":0.03,\"top_p\":0.8,\"max_tokens\":80,"
      "\"cache_prompt\":true,\"stream\":false}";
  const std::vector<std::string> requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0],
            "POST /v1/chat/completions HTTP/1.1\r\n"
            "Host: 127.0.0.1:17944\r\n"
            "Content-Type: application/json\r\n"
            "Accept: application/json\r\n"
            "Connection: close\r\n"
            "Content-Length: " +
                std::to_string(body.size()) + "\r\n\r\n" + body);
}

TEST(Console, RejectedAnswersAreShownWithTheirVerdict) {
  const test::LoopbackServer server(
      {test::chatCompletionStep("Zkus /help."),
       test::chatCompletionStep("Napiš /pomoc.")},
      kConsolePort);
  const ConsoleRun run(std::nullopt);
  expectOutput(run.run({"Jak hraju?"}),
               "ok=false model=Qwen2.5-1.5B-Instruct-Q8 attempts=2 "
               "fallback=false\nNapiš /pomoc.\n",
               "AI answer rejected by watchdog\n", 2, "rejected");
  ASSERT_EQ(server.requests().size(), 2u);
}

TEST(Console, ServerErrorAfterWhichTheToolsAnswer) {
  const test::LoopbackServer server(
      {test::statusStep("HTTP/1.1 503 Service Unavailable", "{}")},
      kConsolePort);
  const ConsoleRun run(std::nullopt);
  expectOutput(run.run({"Kolik je 7/2?"}),
               "ok=true model=watchdog-template attempts=1 fallback=true\n"
               "3.5\n",
               "AI endpoint returned HTTP/1.1 503 Service Unavailable\n", 0,
               "503");
}

TEST(StatusLine, FormsEveryField) {
  AiResponse response;
  EXPECT_EQ(app::statusLine(response),
            "ok=false model= attempts=0 fallback=false\n");
  response.ok = true;
  response.model = "M x";
  response.attempts = 2;
  response.fallback = true;
  EXPECT_EQ(app::statusLine(response), "ok=true model=M x attempts=2 fallback=true\n");
}

// ASCII reads the same in every code page Windows may decode it with; other
// bytes are only left alone where paths are byte strings.
TEST(NarrowToPath, KeepsTheText) {
  EXPECT_EQ(app::narrowToPath("assets/ai/czech_helper_cs.txt").generic_string(),
            "assets/ai/czech_helper_cs.txt");
  EXPECT_EQ(app::narrowToPath("a b/.c~1").generic_string(), "a b/.c~1");
  EXPECT_TRUE(app::narrowToPath("").empty());
#ifndef _WIN32
  EXPECT_EQ(app::narrowToPath("\xC5\x98" "ekni/\xFF").native(),
            "\xC5\x98" "ekni/\xFF");
#endif
}

TEST(HelperText, ShippedFileIsNonEmptyUtf8) {
  std::ifstream file(TOVRIN_AI_SHIPPED_HELPER, std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(file)),
                         std::istreambuf_iterator<char>());
  ASSERT_FALSE(text.empty());
  // A strict UTF-8 walk: lead byte, then the right number of continuations.
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const std::size_t length = lead < 0x80   ? 1
                               : lead < 0xC2 ? 0
                               : lead < 0xE0 ? 2
                               : lead < 0xF0 ? 3
                               : lead < 0xF5 ? 4
                                             : 0;
    ASSERT_NE(length, 0u) << "bad lead byte at " << i;
    ASSERT_LE(i + length, text.size()) << "cut sequence at " << i;
    for (std::size_t k = 1; k < length; ++k) {
      ASSERT_EQ(static_cast<unsigned char>(text[i + k]) & 0xC0, 0x80)
          << "bad continuation at " << i + k;
    }
    i += length;
  }
}

}  // namespace
}  // namespace tovrin::ai
