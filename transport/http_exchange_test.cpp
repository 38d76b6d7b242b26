#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "testing/loopback_server.hpp"
#include "testing/process_runner.hpp"
#include "tovrin/ai/transport.hpp"
#include "transport/socket_platform.hpp"
#include "testing/files.hpp"

namespace tovrin::ai {
namespace {

using std::chrono::milliseconds;
using test::exchangeOutcome;
using test::LoopbackServer;
using test::LoopbackStep;
using test::statusStep;

// A URL on 127.0.0.1 where nobody listens: a port a server just gave up.
std::string closedUrl() {
  return "http://127.0.0.1:" + std::to_string(LoopbackServer(std::vector<LoopbackStep>(1)).port()) + "/";
}

TEST(HttpExchange, EndsInItsOutcome) {
  const struct {
    const char* name;
    LoopbackStep step;
    std::string outcome;
  } kCases[] = {
      {"recorded_not_found", {.answer = test::readTestdata("stories-wrongpath.response")},
       "AI endpoint returned HTTP/1.1 404 Not Found"},
      {"closes_without_sending", {}, "Malformed AI HTTP response"},
      {"head_ends_in_line_feeds_only", {.answer = "HTTP/1.1 200 OK\nContent-Length: 15\n\n{\"content\":\"x\"}"},
       "Malformed AI HTTP response"},
      {"error_status_without_empty_line", {.answer = "HTTP/1.1 500 Internal Server Error\r\nContent-Length: 0\r\n"},
       "Malformed AI HTTP response"},
      {"ok_with_empty_body", {.answer = "HTTP/1.1 200 OK\r\n\r\n"}, "AI response does not contain message.content"},
      {"code_without_trailing_space", {.answer = "HTTP/1.1 200\r\n\r\n{\"content\":\"x\"}"},
       "AI endpoint returned HTTP/1.1 200"},
      {"only_the_first_line_is_status", {.answer = "HTTP/1.1 503 Busy\r\nX-Note: 200 OK\r\n\r\n{\"content\":\"x\"}"},
       "AI endpoint returned HTTP/1.1 503 Busy"},
      // No size bound: all of it is collected before it is examined, and a
      // string that never ends is the whole answer.
      {"sixty_four_mebibytes_then_close",
       {.answer = "HTTP/1.1 200 OK\r\n\r\n{\"choices\":[{\"message\":{\"content\":\"", .fillBytes = 64 << 20},
       "returned: " + std::string(64 << 20, 'a')},
  };
  // The wakeable exchange, unraised, ends each the same way.
  const detail::WakeSignal unraised;
  for (const auto& c : kCases) {
    const LoopbackServer server({c.step});
    for (const detail::WakeSignal* wake : {static_cast<const detail::WakeSignal*>(nullptr), &unraised}) {
      EXPECT_EQ(exchangeOutcome(server.endpoint(), 5000, "Ahoj", wake), c.outcome) << c.name << (wake ? ", wakeable" : "");
    }
  }
}

// Each receive waits at most the time-out, which bounds each receive call,
// not the exchange; 0 and below must not reach the socket as "forever".
TEST(HttpExchange, TimeoutAppliesPerReceive) {
  const LoopbackServer slow({{.answer = "HTTP/1.1 200 OK\r\n\r\n{\"content\":\"late\"}", .delay = milliseconds(5000)}});
  for (const std::int64_t timeoutMs : {std::int64_t{300}, std::int64_t{0}, std::int64_t{-1},
                                       std::numeric_limits<std::int64_t>::min()}) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(exchangeOutcome(slow.endpoint(), timeoutMs), "Failed to receive AI response") << timeoutMs;
    const auto elapsed = std::chrono::steady_clock::now() - start;
    // Socket time-outs are rounded to the system's clock ticks.
    EXPECT_GE(elapsed, milliseconds(timeoutMs == 300 ? 250 : 0)) << timeoutMs;
    EXPECT_LT(elapsed, milliseconds(2500)) << timeoutMs;
  }
  LoopbackStep dripping = test::chatCompletionStep("po kapkách");
  dripping.dripBytes = 4;
  dripping.dripPause = milliseconds(5);
  const LoopbackServer trickle({dripping});
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(exchangeOutcome(trickle.endpoint(), 300), "returned: po kapkách");
  EXPECT_GT(std::chrono::steady_clock::now() - start, milliseconds(300));
}

TEST(HttpExchange, SocketTimeoutClampsIntoThirtyTwoBits) {
  constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
  constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
  const std::pair<std::int64_t, std::uint32_t> kCases[] = {
      {kMin, 1}, {-1, 1}, {0, 1}, {1, 1}, {25000, 25000}, {4294967295, 4294967295u},
      {4294967296, 4294967295u}, {kMax, 4294967295u}};
  for (const auto& [configured, used] : kCases) {
    EXPECT_EQ(detail::socketTimeoutMs(configured), used) << configured;
  }
}

// Every way an exchange can end, for the release tests below.
std::vector<std::pair<std::optional<LoopbackStep>, std::string>> everyEnding() {
  return {{LoopbackStep{}, "Malformed AI HTTP response"},
          {statusStep("HTTP/1.1 404 Not Found", "{}"), "AI endpoint returned HTTP/1.1 404 Not Found"},
          {statusStep("HTTP/1.1 200 OK", "{}"), "AI response does not contain message.content"},
          {test::chatCompletionStep("ok"), "returned: ok"},
          {LoopbackStep{.answer = "x", .delay = milliseconds(5000)}, "Failed to receive AI response"},
          // The server closes unread, so the connection is reset mid-send.
          {LoopbackStep{.readRequest = false}, "Failed to send AI request"},
          {std::nullopt, "Cannot connect to AI endpoint"},
          {std::nullopt, "Cannot resolve AI endpoint host"},
          {std::nullopt, "Invalid AI endpoint URL"},
          {std::nullopt, "AI endpoint must use http://"}};
}

std::string endingOutcome(const std::optional<LoopbackStep>& step, const std::string& expected) {
  const std::string url = expected == "Cannot connect to AI endpoint"     ? closedUrl()
                          : expected == "Cannot resolve AI endpoint host" ? "http://127.0.0.1:abc/"
                          : expected == "Invalid AI endpoint URL"         ? "http://:1/"
                                                                          : "https://h/";
  std::optional<LoopbackServer> server;
  if (step) server.emplace(std::vector<LoopbackStep>{*step});
  const bool sendFails = step && !step->readRequest;
  // Far more than the socket buffers of both ends can take in.
  return exchangeOutcome(server ? server->endpoint() : url, step && step->delay.count() > 0 ? 100 : 5000,
                         std::string(sendFails ? 24 * 1024 * 1024 : 4, 'x'));
}

// Each call starts the socket library for itself and releases it exactly
// once, however it ends. A start held by the test keeps the count above
// zero meanwhile, so a second release shows as a library that is gone while
// the test still holds it, and a missing one as a library left after.
TEST(HttpExchange, EveryWayOutReleasesTheSocketLibraryOnce) {
  const auto socketsUsable = [] {
    detail::Socket listener;
    std::uint16_t port = 0;
    return detail::listenLoopback(0, listener, port);
  };
  if (socketsUsable()) GTEST_SKIP() << "only Winsock is started and released";
  for (const auto& [step, expected] : everyEnding()) {
    {
      const detail::SocketLibrary held;
      ASSERT_TRUE(held.started()) << expected;
      EXPECT_EQ(endingOutcome(step, expected), expected);
      EXPECT_TRUE(socketsUsable()) << expected << ": released twice";
    }
    EXPECT_FALSE(socketsUsable()) << expected << ": never released";
  }
}

TEST(HttpExchange, ExchangesLeaveNoDescriptorOpen) {
  const long before = test::openDescriptors();
  if (before < 0) GTEST_SKIP() << "this system does not list a process's descriptors";
  const auto endings = everyEnding();
  for (int round = 0; round < 3; ++round) {
    for (const auto& [step, expected] : endings) ASSERT_EQ(endingOutcome(step, expected), expected);
  }
  EXPECT_EQ(test::openDescriptors(), before);
}

// On Linux the send time-out, set before connect, bounds connecting too: a
// listener whose backlog is full drops the SYN, and the call gives up after
// the time-out instead of the system's own minutes of retries.
TEST(HttpExchange, FullBacklogEndsInCannotConnectAfterTheTimeout) {
  if (!std::filesystem::exists("/proc/sys/net/core/somaxconn") || test::runningUnderWine()) {
    GTEST_SKIP() << "Linux only: elsewhere connect ignores the socket time-outs";
  }
  detail::Socket listener;
  std::uint16_t port = 0;
  ASSERT_TRUE(detail::listenLoopback(0, listener, port, 0));
  // Connections the listener never accepts, until one finds the queue full.
  std::vector<detail::Socket> queued;
  for (int i = 0; i < 8; ++i) {
    detail::Socket client;
    if (detail::connectTcp("127.0.0.1", std::to_string(port), 200, client) !=
        detail::ConnectResult::kConnected) {
      break;
    }
    queued.push_back(std::move(client));
  }
  ASSERT_LT(queued.size(), 8u) << "the backlog never filled";
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(exchangeOutcome("http://127.0.0.1:" + std::to_string(port) + "/", 300),
            "Cannot connect to AI endpoint");
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_GE(elapsed, milliseconds(250));
  EXPECT_LT(elapsed, milliseconds(2000));  // not the system's own retries
}

}  // namespace
}  // namespace tovrin::ai
