#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "testing/loopback_server.hpp"
#include "transport/socket_platform.hpp"
#include "transport/wakeable_exchange.hpp"

namespace tovrin::ai {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using test::LoopbackServer;
using test::LoopbackStep;

// A raise ends the exchange wherever it waits, at once and not after the
// 5 s time-out; raised before the call, before a byte of the request.
TEST(WakeableWait, RaisingEndsTheExchangeAtOnce) {
  // Raised before the call, or by another thread 100 ms in.
  const struct { const char* name; LoopbackStep step; std::size_t promptBytes; bool raisedBefore; } kCases[] = {
      {"raised_before_the_call", {.delay = 24h}, 4, true},
      {"waiting_for_the_answer", {.delay = 24h}, 4, false},
      // More than the socket buffers of both ends take in.
      {"sending_to_a_server_that_never_reads", {.readRequest = false, .delay = 24h}, 8 << 20, false},
  };
  for (const auto& c : kCases) {
    const LoopbackServer server({c.step});
    const detail::WakeSignal wake;
    ASSERT_TRUE(wake.isOpen());
    if (c.raisedBefore) wake.raise();
    steady_clock::time_point raisedAt = steady_clock::now();
    std::thread raiser([&] {
      if (c.raisedBefore) return;
      std::this_thread::sleep_for(100ms);
      raisedAt = steady_clock::now();
      wake.raise();
    });
    EXPECT_EQ(test::exchangeOutcome(server.endpoint(), 5000, std::string(c.promptBytes, 'x'), &wake),
              "AI exchange interrupted") << c.name;
    const auto ended = steady_clock::now();
    raiser.join();
    EXPECT_LT(ended - raisedAt, 1s) << c.name;
    if (!c.raisedBefore) continue;
    // The server records the connection once it sees it closed.
    while (server.requests().empty() && steady_clock::now() < ended + 2s) std::this_thread::sleep_for(5ms);
    EXPECT_EQ(server.requests(), std::vector<std::string>{""}) << c.name;
  }
}

// Raised, the signal ends every wait until clear(), which consumes every
// raise so far.
TEST(WakeableWait, SignalStaysRaisedUntilCleared) {
  const detail::WakeSignal wake;  // first: it starts the socket library
  detail::Socket listener;         // nothing connects: only the signal ends a wait
  std::uint16_t port = 0;
  ASSERT_TRUE(detail::listenLoopback(0, listener, port));
  using enum detail::WaitResult;
  const struct { const char* name; int raises; bool clear; detail::WaitResult wait; } kSteps[] = {
      {"new", 0, false, kTimedOut},
      {"raised", 1, false, kWoken},
      {"still_raised", 0, false, kWoken},
      {"raised_often_then_cleared", 200, true, kTimedOut},
      {"cleared_unraised", 0, true, kTimedOut},
      {"raised_after_clearing", 1, false, kWoken},
  };
  for (const auto& s : kSteps) {
    for (int i = 0; i < s.raises; ++i) wake.raise();
    if (s.clear) wake.clear();
    EXPECT_EQ(detail::waitReady(listener, false, 50, wake), s.wait) << s.name;
  }

  // Cleared, the outcomes are the plain exchange's (the server tables run
  // both); here the one without a server.
  wake.clear();
  const std::string closed = "http://127.0.0.1:" + std::to_string(LoopbackServer({LoopbackStep{}}).port()) + "/";
  EXPECT_EQ(test::exchangeOutcome(closed, 5000, "u", &wake), "Cannot connect to AI endpoint");
}

}  // namespace
}  // namespace tovrin::ai
