// The real tovrin-ai binary against a scripted model server on its fixed
// port: standard output, standard error and exit status, byte for byte.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "testing/files.hpp"
#include "testing/loopback_server.hpp"
#include "testing/process_runner.hpp"

namespace tovrin::ai {
namespace {

namespace fs = std::filesystem;
using test::LoopbackServer;

constexpr std::uint16_t kConsolePort = 17944;

std::string portProblem;  // why the console tests cannot run here

bool consolePortFree() {
  const detail::SocketLibrary library;
  detail::Socket listener;
  std::uint16_t port = 0;
  return detail::listenLoopback(kConsolePort, listener, port);
}

// The console program talks to port 17944, where a developer may run a real
// model server: then the tests move to a private network namespace, or skip.
void claimConsolePort() {
  if (consolePortFree()) return;
  if (test::isolateNetwork() && consolePortFree()) return;
  portProblem = "port 17944 on 127.0.0.1 is taken (a model server?) and no "
                "private network namespace could be made for the console tests";
}

const std::string kNoServerStatus = "ok=false model=Qwen2.5-1.5B-Instruct-Q8 attempts=1 fallback=false\n";
const std::string kNoConnect = "Cannot connect to AI endpoint\n";

struct ConsoleCase {
  const char* name;
  std::vector<std::string> arguments;
  std::string out;
  std::string err;
  int exitStatus;
};

class Console : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!portProblem.empty()) GTEST_SKIP() << portProblem;
    fs::create_directories(dir_.path() / "assets" / "ai");
  }
  void expectRun(const ConsoleCase& c) {
    const test::ProcessResult result = test::runProcess(TOVRIN_AI_CONSOLE_PATH, c.arguments, dir_.path());
    EXPECT_EQ(result.out, c.out) << c.name;
    EXPECT_EQ(result.err, c.err) << c.name;
    EXPECT_EQ(result.exitStatus, c.exitStatus) << c.name;
  }
  test::TempDir dir_{"console"};
};

TEST_F(Console, WithoutModelServer) {
  const ConsoleCase cases[] = {
      {"missing_helper_file", {}, kNoServerStatus, kNoConnect, 2},
      {"empty_argument_others_ignored", {"", "Ahoj"}, "ok=false model= attempts=0 fallback=false\n",
       "AI request message is empty\n", 2},
      {"arithmetic_from_the_tools", {"Kolik je 12*(3+4)?"},
       "ok=true model=watchdog-template attempts=1 fallback=true\n84\n", kNoConnect, 0},
  };
  for (const ConsoleCase& c : cases) expectRun(c);
}

TEST_F(Console, AnswersOfAModelServer) {
  const struct {
    std::vector<test::LoopbackStep> script;
    ConsoleCase run;
  } kCases[] = {
      {{test::chatCompletionStep("Zkus /help."), test::chatCompletionStep("Napiš /pomoc.")},
       {"rejected", {"Jak hraju?"}, "ok=false model=Qwen2.5-1.5B-Instruct-Q8 attempts=2 fallback=false\nNapiš /pomoc.\n",
        "AI answer rejected by watchdog\n", 2}},
      {{test::statusStep("HTTP/1.1 503 Service Unavailable", "{}")},
       {"server_error_then_the_tools", {"Kolik je 7/2?"}, "ok=true model=watchdog-template attempts=1 fallback=true\n3.5\n",
        "AI endpoint returned HTTP/1.1 503 Service Unavailable\n", 0}},
  };
  for (const auto& c : kCases) {
    const LoopbackServer server(c.script, kConsolePort);
    expectRun(c.run);
  }
}

TEST_F(Console, AcceptedModelAnswerAndItsRequest) {
  dir_.write("assets/ai/czech_helper_cs.txt", "Piš spisovně.\r\n");
  const LoopbackServer server({test::chatCompletionStep("Lokální AI funguje.")}, kConsolePort);
  expectRun({"accepted", {}, "ok=true model=Qwen2.5-1.5B-Instruct-Q8 attempts=1 fallback=false\nLokální AI funguje.\n", "", 0});
  // The request the program sent, as a real server would have received it.
  EXPECT_EQ(server.requests(), std::vector<std::string>{test::readFile(TOVRIN_AI_TESTDATA "/accepted.request")});
}

}  // namespace
}  // namespace tovrin::ai

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  tovrin::ai::claimConsolePort();
  return RUN_ALL_TESTS();
}
