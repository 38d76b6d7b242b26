// Many threads asking one runtime at once through the default transport.
// The server answers each request from its own text, so an answer that
// reached the wrong thread, or a mixed-up buffer, fails the comparison; run
// under ThreadSanitizer any data race fails too.
#include <gtest/gtest.h>

#include <charconv>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "testing/loopback_server.hpp"
#include "testing/response_matchers.hpp"
#include "tovrin/ai.hpp"

namespace tovrin::ai {
namespace {

constexpr int kThreads = 8;
constexpr int kRequestsPerThread = 25;

// Answers "Kolik je A*B?" with "Výsledek je <A*B>." read from the request
// the server received; anything else with a text the watchdog rejects.
std::string answerFromRequest(const std::string& request) {
  const std::string question = "Kolik je ";
  const std::size_t at = request.find(question);
  std::int64_t a = 0;
  std::int64_t b = 0;
  if (at != std::string::npos) {
    const char* p = request.data() + at + question.size();
    const char* end = request.data() + request.size();
    p = std::from_chars(p, end, a).ptr;
    if (p != end && *p == '*') std::from_chars(p + 1, end, b);
  }
  const std::string content = "Výsledek je " + std::to_string(a * b) + ".";
  const std::string body =
      "{\"choices\":[{\"message\":{\"role\":\"assistant\",\"content\":\"" +
      content + "\"}}]}";
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

TEST(ConcurrentAsk, EveryThreadGetsItsOwnAnswer) {
  test::LoopbackStep step;
  step.respond = answerFromRequest;
  const test::LoopbackServer server({step}, 0, test::Serving::kConcurrently);

  AiRuntimeConfig config;
  config.endpoint = server.endpoint();
  config.helperPath.clear();
  config.timeoutMs = 20000;
  const AiRuntime runtime(std::move(config));

  std::vector<std::vector<AiResponse>> responses(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&runtime, &responses, t] {
      for (int i = 0; i < kRequestsPerThread; ++i) {
        AiRequest request;
        request.kind = AiRequestKind::ShortAnswer;
        request.message = "Kolik je " + std::to_string(100 + t) + "*" +
                          std::to_string(i + 1) + "?";
        responses[t].push_back(runtime.ask(request));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();

  for (int t = 0; t < kThreads; ++t) {
    ASSERT_EQ(responses[t].size(), std::size_t{kRequestsPerThread});
    for (int i = 0; i < kRequestsPerThread; ++i) {
      AiResponse expected;
      expected.ok = true;
      expected.answer =
          "Výsledek je " + std::to_string((100 + t) * (i + 1)) + ".";
      expected.model = "Qwen2.5-1.5B-Instruct-Q8";
      expected.attempts = 1;
      test::expectResponse(responses[t][i], expected,
                           "thread " + std::to_string(t) + " request " +
                               std::to_string(i));
    }
  }
  EXPECT_EQ(server.requests().size(),
            std::size_t{kThreads * kRequestsPerThread});
}

}  // namespace
}  // namespace tovrin::ai
