#include <gtest/gtest.h>

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
using std::chrono::steady_clock;
using test::LoopbackServer;
using test::LoopbackStep;

// A raise ends the exchange wherever it waits, at once and not after the
// 5 s time-out; raised before the call, before a byte of the request.
TEST(WakeableWait, RaisingEndsTheExchangeAtOnce) {
  const struct {
    const char* name;
    LoopbackStep step;
    std::size_t promptBytes;
    bool raisedBefore;  // else raised by another thread 100 ms in
  } kCases[] = {
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
    for (const auto limit = ended + 2s; server.requests().empty() && steady_clock::now() < limit;) {
      std::this_thread::sleep_for(5ms);
    }
    EXPECT_EQ(server.requests(), std::vector<std::string>{""}) << c.name;
  }
}

}  // namespace
}  // namespace tovrin::ai
