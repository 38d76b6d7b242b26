#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "testing/loopback_server.hpp"
#include "testing/process_runner.hpp"
#include "tovrin/ai/transport.hpp"
#include "transport/socket_platform.hpp"
#include "transport/wakeable_exchange.hpp"

namespace tovrin::ai {
namespace {

using namespace std::chrono_literals;
using test::LoopbackServer;
using test::LoopbackStep;

// The answer as "returned: <text>", or the message of the exception.
template <typename Call>
std::string outcome(Call call) {
  try {
    return "returned: " + call();
  } catch (const std::runtime_error& e) {
    return e.what();
  }
}

AiRuntimeConfig config(std::int64_t timeoutMs) { return {.timeoutMs = timeoutMs}; }

// Unraised, the wakeable exchange must send the same bytes and end the same
// way as the default one, whatever the server does.
TEST(WakeableWait, UnraisedBehavesAsTheDefaultExchange) {
  struct Row {
    const char* name;
    LoopbackStep step;
    std::int64_t timeoutMs;
  };
  const std::string big(300000, 'x');
  LoopbackStep dripped = test::chatCompletionStep("Ahoj");
  dripped.dripBytes = 7;
  dripped.dripPause = 1ms;
  const Row rows[] = {
      {"answer", test::chatCompletionStep("Dobrý den."), 5000},
      {"refused status", test::statusStep("HTTP/1.1 503 Busy", "{}"), 5000},
      {"silent close", test::LoopbackStep{}, 5000},
      {"dripped", dripped, 5000},
      {"reset", {.answer = "HTTP/1.1 200 OK\r\n", .resetAtEnd = true}, 5000},
      {"too slow", test::delayedStep(300ms, test::chatCompletionStep("x")), 100},
  };
  const detail::WakeSignal wake;
  for (const Row& row : rows) {
    // Wine turns the server's abortive close into an orderly one, sooner or
    // later, so the two exchanges may see either.
    if (row.step.resetAtEnd && test::runningUnderWine()) continue;
    const LoopbackServer server({row.step}, 0, test::Serving::kConcurrently);
    const AiRuntimeConfig c = config(row.timeoutMs);
    const std::string plain = outcome([&] { return httpChatCompletion(c, server.endpoint(), "m", "s", big, 80); });
    const std::string wakeable =
        outcome([&] { return detail::wakeableChatCompletion(c, server.endpoint(), "m", "s", big, 80, wake); });
    EXPECT_EQ(wakeable, plain) << row.name;
    const std::vector<std::string> requests = server.requests();
    ASSERT_EQ(requests.size(), 2u) << row.name;
    EXPECT_EQ(requests[1], requests[0]) << row.name;
  }
  const std::string closed = "http://127.0.0.1:" + std::to_string(LoopbackServer({LoopbackStep{}}).port()) + "/";
  EXPECT_EQ(outcome([&] { return detail::wakeableChatCompletion(config(5000), closed, "m", "s", "u", 80, wake); }),
            "Cannot connect to AI endpoint");
}

TEST(WakeableWait, RaisingEndsTheExchangeAtOnce) {
  const LoopbackServer server({test::LoopbackStep{.delay = std::chrono::hours(24)}}, 0, test::Serving::kConcurrently);
  const detail::WakeSignal wake;
  ASSERT_TRUE(wake.isOpen());
  wake.raise();
  const auto exchange = [&] {
    return detail::wakeableChatCompletion(config(5000), server.endpoint(), "m", "s", "u", 80, wake);
  };
  EXPECT_THROW(exchange(), detail::ExchangeInterrupted);
  wake.clear();

  std::thread raiser([&wake] {
    std::this_thread::sleep_for(50ms);
    wake.raise();
  });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THROW(exchange(), detail::ExchangeInterrupted);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 300ms);  // not 5 s
  raiser.join();
  // The first exchange never sent its request; the second did.
  const std::vector<std::string> requests = server.requests();
  ASSERT_EQ(requests.size(), 2u);  // served side by side, in either order
  EXPECT_EQ(std::count(requests.begin(), requests.end(), ""), 1);
}

}  // namespace
}  // namespace tovrin::ai
