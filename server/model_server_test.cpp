// The layer with a real server process: the stand-in model server.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "testing/files.hpp"
#include "testing/loopback_server.hpp"
#include "testing/stand_in.hpp"
#include "tovrin/ai/model_server.hpp"
#include "tovrin/ai/service.hpp"

namespace tovrin::ai {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using test::inState;
using test::statusWhen;

constexpr const char* kAnswer = "returned: Dobrý den, poutníku.";

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

TEST(ModelServer, StartsWithItsArgumentsAsGivenAndAnswers) {
  // Each must reach the server as one argument, unchanged.
  const std::vector<std::string> tricky = {"a b  c", "say \"hi\"", R"(C:\dir\" x)", R"(C:\dir with space\)",
                                           "Žluťoučký kůň úpěl ďábelské ódy", "", "a\tb"};
  const test::TempDir folder("server_start");
  AiModelServerOptions options = test::standIn({"--model", "model.gguf"});  // found in the working folder
  for (const std::string& argument : tricky) options.arguments.insert(options.arguments.end(), {"--note", argument});
  options.workingFolder = folder.path();
  folder.write("model.gguf", "GGUF");
  options.logFile = folder.path() / "server.log";
  AiModelServer server(options);
  const AiServerStatus status = statusWhen(server, inState(AiServerState::kReady, "stand-in: ready at "));
  ASSERT_EQ(status.state, AiServerState::kReady) << status.reason;
  EXPECT_NE(server.port(), 0);
  EXPECT_EQ(status.endpoint, "http://127.0.0.1:" + std::to_string(server.port()));
  EXPECT_GT(status.processId, 0);
  EXPECT_EQ(status.starts, 1u);
  EXPECT_EQ(test::exchangeOutcome(server.endpoint()), kAnswer);
  std::string log = folder.read("server.log");
  std::erase(log, '\r');  // Windows programs end their lines in CRLF
  EXPECT_TRUE(contains(log, "  [--port]\n  [" + std::to_string(server.port()) + "]\n")) << log;
  for (const std::string& argument : tricky) EXPECT_TRUE(contains(log, "  [" + argument + "]\n")) << argument;
}

TEST(ModelServer, UsesAServerAlreadyRunningOrNamesThePortTaken) {
  const struct {
    const char* name;
    bool useRunningServer;
    std::string answer;
    AiServerState state;
    std::string reason;
  } rows[] = {
      {"running server used", true, "HTTP/1.1 200 OK\r\nContent-Length: 15\r\n\r\n{\"status\":\"ok\"}", AiServerState::kReady, ""},
      {"loading server used", true, "HTTP/1.1 503 Service Unavailable\r\n\r\n", AiServerState::kLoading, ""},
      {"not asked to use it", false, "HTTP/1.1 200 OK\r\n\r\n", AiServerState::kFailed, " is taken by another program"},
      {"not a model server", true, "SSH-2.0-OpenSSH_9.2\r\n", AiServerState::kFailed, " is taken by another program"},
  };
  for (const auto& row : rows) {
    const test::LoopbackServer other({{.answer = row.answer}});
    AiModelServerOptions options = test::standIn();
    options.port = other.port();
    options.useRunningServer = row.useRunningServer;
    const AiModelServer server(options);
    const AiServerStatus status = statusWhen(server, inState(row.state));
    EXPECT_EQ(status.state, row.state) << row.name << ": " << status.reason;
    EXPECT_EQ(status.reason, row.reason.empty() ? "" : "port " + std::to_string(other.port()) + row.reason) << row.name;
    EXPECT_EQ(status.external, row.state != AiServerState::kFailed) << row.name;
    EXPECT_EQ(status.starts, 0u) << row.name;
    if (row.useRunningServer) {
      EXPECT_TRUE(other.requests().at(0).starts_with("GET /health HTTP/1.1\r\n")) << row.name;
    }
  }
}

// While the model loads a request waits for it within its own deadline.
TEST(ModelServer, RequestsWaitForTheModelWithinTheirDeadline) {
  AiModelServer server(test::standIn({"--ready-after-ms", "1000"}));
  AiServiceOptions serviceOptions{1, 8, 10s};
  serviceOptions.waitForModel = server.waitForModel();
  AiService service({.endpoint = server.endpoint(), .helperPath = {}}, serviceOptions);
  EXPECT_EQ(statusWhen(server, inState(AiServerState::kLoading)).state, AiServerState::kLoading);
  AiSubmission early{.request = {.message = "Kolik je 6*7?"}, .deadline = 100ms};
  const AiRequestId hurried = service.submit(std::move(early));
  const AiRequestId patient = service.submit({.request = {.message = "Ahoj"}});
  std::map<AiRequestId, AiCompletion> done;
  for (const Clock::time_point limit = Clock::now() + 10s; done.size() < 2 && Clock::now() < limit;) {
    for (AiCompletion& completion : service.poll()) {
      if (completion.id == hurried) {
        EXPECT_NE(server.status().state, AiServerState::kReady) << "ended late";
      }
      done[completion.id] = std::move(completion);
    }
    std::this_thread::sleep_for(2ms);
  }
  EXPECT_EQ(done[hurried].ending, AiEnding::kDeadline);
  EXPECT_EQ(done[hurried].response.answer, "42");
  EXPECT_EQ(done[patient].ending, AiEnding::kAnswered);
  EXPECT_EQ(done[patient].response.answer, "Dobrý den, poutníku.");
}

TEST(ModelServer, RestartsAfterEachFailureWithAGrowingPause) {
  const struct {
    const char* name;
    std::vector<std::string> flags;
    bool ask;  // the failure follows a chat completion
    std::vector<std::string> reasons;  // the one for POSIX, then Windows'
  } rows[] = {
      {"exit", {"--exit-after-requests", "1"}, true, {"the server exited with status 3 after it was ready"}},
      {"crash",
       {"--exit-after-requests", "1", "--crash-with-signal"},
       true,
       {"the server ended by signal 6 (Aborted) after it was ready",
        "the server exited with status 3 after it was ready"}},  // abort() on Windows
      {"no answers", {"--hang-after-ms", "400"}, false, {"the server stopped answering /health (2 probes unanswered)"}},
  };
  for (const auto& row : rows) {
    AiModelServerOptions options = test::standIn(row.flags);
    options.readyProbeInterval = 50ms;
    options.probeTimeout = 100ms;
    options.unansweredProbeLimit = 2;
    AiModelServer server(options);
    for (std::size_t failure = 1; failure <= 2; ++failure) {
      ASSERT_EQ(statusWhen(server, inState(AiServerState::kReady)).state, AiServerState::kReady) << row.name;
      if (row.ask) {
      EXPECT_EQ(test::exchangeOutcome(server.endpoint()), kAnswer) << row.name;
    }
      const AiServerStatus restarting = statusWhen(server, inState(AiServerState::kRestarting));
      EXPECT_NE(std::find(row.reasons.begin(), row.reasons.end(), restarting.reason), row.reasons.end())
          << row.name << ": " << restarting.reason;
      EXPECT_EQ(restarting.recentFailures, failure) << row.name;
      const auto pause = std::chrono::duration_cast<std::chrono::milliseconds>(restarting.nextStart - restarting.since);
      EXPECT_NEAR(static_cast<double>(pause.count()), 100.0 * static_cast<double>(failure), 10.0) << row.name;
    }
    const AiServerStatus again = statusWhen(server, inState(AiServerState::kReady));
    EXPECT_EQ(again.state, AiServerState::kReady) << row.name;
    EXPECT_EQ(again.starts, 3u) << row.name;
  }
}

}  // namespace
}  // namespace tovrin::ai
