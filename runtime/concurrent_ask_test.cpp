// Many threads asking one runtime at once through the default transport.
// The server answers each request from its own text, so an answer that
// reached the wrong thread, or a mixed-up buffer, fails the comparison; run
// under ThreadSanitizer any data race fails too.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "testing/loopback_server.hpp"
#include "tovrin/ai.hpp"

namespace tovrin::ai {
namespace {

constexpr int kThreads = 8;
constexpr int kRequestsPerThread = 25;

// Answers "Kolik je <question>?" with "Řekl jsi <question>."
std::string echoQuestion(const std::string& request) {
  const std::size_t at = request.find("Kolik je ") + 9;
  const std::string content = "Řekl jsi " + request.substr(at, request.find('?', at) - at) + ".";
  const std::string body = "{\"choices\":[{\"message\":{\"content\":\"" + content + "\"}}]}";
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

TEST(ConcurrentAsk, EveryThreadGetsItsOwnAnswer) {
  const test::LoopbackServer server({{.respond = echoQuestion}}, 0, test::Serving::kConcurrently);
  const AiRuntime runtime(
      AiRuntimeConfig{.endpoint = server.endpoint(), .helperPath = {}, .timeoutMs = 20000});
  std::vector<std::vector<std::string>> answers(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&runtime, &answers, t] {
      for (int i = 0; i < kRequestsPerThread; ++i) {
        // Words, not numbers, so that the tools add no facts to bind them.
        const std::string question = "vlákno" + std::string(t + 1, 'T') + " dotaz" + std::string(i + 1, 'I');
        const AiResponse response = runtime.ask({.message = "Kolik je " + question + "?", .kind = AiRequestKind::ShortAnswer});
        answers[t].push_back(response.answer + (response.ok ? "" : " " + response.error));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kRequestsPerThread; ++i) {
      EXPECT_EQ(answers[t][i], "Řekl jsi vlákno" + std::string(t + 1, 'T') + " dotaz" + std::string(i + 1, 'I') + ".");
    }
  }
  EXPECT_EQ(server.requests().size(), std::size_t{kThreads * kRequestsPerThread});
}

}  // namespace
}  // namespace tovrin::ai
