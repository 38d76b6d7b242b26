#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "testing/loopback_server.hpp"
#include "transport/socket_platform.hpp"
#include "transport/wakeable_exchange.hpp"

namespace tovrin::ai {
namespace {

using namespace std::chrono_literals;
using test::LoopbackServer;
using test::LoopbackStep;

AiRuntimeConfig config(std::int64_t timeoutMs) { return {.timeoutMs = timeoutMs}; }

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

  // Unraised, the outcomes are the plain exchange's (the hostile server and
  // exchange tables run both); here the one without a server.
  wake.clear();
  const std::string closed = "http://127.0.0.1:" + std::to_string(LoopbackServer({LoopbackStep{}}).port()) + "/";
  EXPECT_EQ(test::exchangeOutcome(closed, 5000, "u", &wake), "Cannot connect to AI endpoint");
}

}  // namespace
}  // namespace tovrin::ai
