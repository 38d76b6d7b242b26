// Servers that misbehave on purpose: every one of them must end the exchange
// in an answer or one of the fixed messages, within the time-out, without a
// crash or a signal.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <string_view>

#include "testing/loopback_server.hpp"
#include "testing/process_runner.hpp"
#include "transport/socket_platform.hpp"

namespace tovrin::ai {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using test::LoopbackStep;

constexpr std::size_t kMebibyte = 1024 * 1024;
const std::string kCutBody =
    "HTTP/1.1 200 OK\r\nContent-Length: 200\r\n\r\n{\"choices\":[{\"message\":{\"content\":\"Ahoj";

LoopbackStep dripped(std::string_view content, std::size_t bytes, milliseconds pause) {
  LoopbackStep step = test::chatCompletionStep(content);
  step.dripBytes = bytes;
  step.dripPause = pause;
  return step;
}

TEST(HostileServer, EndsInItsOutcomeWithinTheTimeout) {
  const struct {
    const char* name;
    LoopbackStep step;
    std::string outcome;
  } kCases[] = {
      {"drips_one_byte_at_a_time", dripped("Ahoj, poutníku.", 1, milliseconds(1)), "returned: Ahoj, poutníku."},
      // Each pause is longer than the time-out: the first one ends it.
      {"drip_stalls_longer_than_the_timeout", dripped("pomalu", 40, milliseconds(1500)), "Failed to receive AI response"},
      {"resets_mid_body", {.answer = kCutBody, .resetAtEnd = true}, "Failed to receive AI response"},
      // An orderly close at the same point is no error: the cut string is the answer.
      {"closes_mid_body", {.answer = kCutBody}, "returned: Ahoj"},
      {"resets_before_answering", {.resetAtEnd = true}, "Failed to receive AI response"},
      {"head_without_end_then_close", {.answer = "HTTP/1.1 200 OK\r\nX-Pad: ", .fillBytes = kMebibyte}, "Malformed AI HTTP response"},
      // No chunk decoding: the framing of a chunk that splits the string stays.
      {"chunk_splits_the_content",
       {.answer = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n19\r\n{\"message\":{\"content\":\"Ah\r\n5\r\noj\"}}\r\n0\r\n\r\n"},
       "returned: Ah\r\n5\r\noj"},
  };
  const detail::WakeSignal unraised;
  const std::string kLongPrompt(300000, 'x');
  for (const auto& c : kCases) {
    // Wine turns the server's abortive close into an orderly one, sooner or
    // later, so the two exchanges may see either.
    if (c.step.resetAtEnd && test::runningUnderWine()) continue;
    // Both exchanges, the wakeable one unraised, send the same bytes and
    // end the same way; a request large enough to need several sends.
    const test::LoopbackServer server({c.step}, 0, test::Serving::kConcurrently);
    for (const detail::WakeSignal* wake : {static_cast<const detail::WakeSignal*>(nullptr), &unraised}) {
      const auto start = steady_clock::now();
      EXPECT_EQ(test::exchangeOutcome(server.endpoint(), 1000, kLongPrompt, wake), c.outcome) << c.name << (wake ? ", wakeable" : "");
      EXPECT_LT(steady_clock::now() - start, milliseconds(5000)) << c.name;
    }
    ASSERT_EQ(server.requests().size(), 2u) << c.name;
    EXPECT_EQ(server.requests()[1], server.requests()[0]) << c.name;
  }
}

}  // namespace
}  // namespace tovrin::ai
