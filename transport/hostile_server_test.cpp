// Servers that misbehave on purpose: every one of them must end the exchange
// in an answer or one of the fixed messages, within the time-out, without a
// crash or a signal.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

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

// The request exchangeOutcome sends with promptBytes of 'x', written out.
std::string expectedRequest(std::uint16_t port, std::size_t promptBytes) {
  const std::string body = "{\"model\":\"Qwen2.5-1.5B-Instruct-Q8\",\"messages\":[{\"role\":\"system\",\"content\":"
                           "\"system\"},{\"role\":\"user\",\"content\":\"" + std::string(promptBytes, 'x') +
                           "\"}],\"temperature\":0.03,\"top_p\":0.8,\"max_tokens\":80,\"cache_prompt\":true,\"stream\":false}";
  return "POST /v1/chat/completions HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\nContent-Type: application/"
         "json\r\nAccept: application/json\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

TEST(HostileServer, EndsInItsOutcomeWithinTheTimeout) {
  const std::string kAnswer = test::chatCompletionStep("ok").answer;
  const struct {
    const char* name;
    LoopbackStep step;
    std::string outcome;
    std::int64_t timeoutMs = 1000;
    std::size_t promptBytes = 300000;  // more than one receive of the server's
  } kCases[] = {
      {"drips_one_byte_at_a_time", {.answer = test::chatCompletionStep("Ahoj, poutníku.").answer, .dripBytes = 1,
                                     .dripPause = milliseconds(1)}, "returned: Ahoj, poutníku."},
      // Each pause is longer than the time-out: the first one ends it.
      {"drip_stalls_longer_than_the_timeout", {.answer = kAnswer, .dripBytes = 40, .dripPause = milliseconds(1500)},
       "Failed to receive AI response"},
      {"resets_mid_body", {.answer = kCutBody, .resetAtEnd = true}, "Failed to receive AI response"},
      // An orderly close at the same point is no error: the cut string is the answer.
      {"closes_mid_body", {.answer = kCutBody}, "returned: Ahoj"},
      {"resets_before_answering", {.resetAtEnd = true}, "Failed to receive AI response"},
      {"head_without_end_then_close", {.answer = "HTTP/1.1 200 OK\r\nX-Pad: ", .fillBytes = kMebibyte}, "Malformed AI HTTP response"},
      // No chunk decoding: the framing of a chunk that splits the string stays.
      {"chunk_splits_the_content",
       {.answer = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n19\r\n{\"message\":{\"content\":\"Ah\r\n5\r\noj\"}}\r\n0\r\n\r\n"},
       "returned: Ah\r\n5\r\noj"},
      // More than the socket buffers take, read after a pause and again after
      // 2 MiB. Each pause is within the time-out and both exceed it, so a
      // blocking send returns part way too.
      {"reads_in_two_goes_after_pauses",
       {.answer = kAnswer, .readPause = milliseconds(250), .readPart = 2 * kMebibyte},
       "returned: ok", 400, 8 * kMebibyte},
  };
  const detail::WakeSignal unraised;
  const bool onLinux = std::filesystem::exists("/proc/sys/net/core/somaxconn") && !test::runningUnderWine();
  for (const auto& c : kCases) {
    // Wine turns the server's abortive close into an orderly one, sooner or
    // later, so the two exchanges may see either. Winsock fails a blocking
    // send that outlasts the time-out, where Linux returns the part sent.
    if ((c.step.resetAtEnd && test::runningUnderWine()) || (c.step.readPart > 0 && !onLinux)) continue;
    // Both exchanges, the wakeable one unraised, end the same way, and each
    // request arrives whole (compared without printing megabytes).
    const test::LoopbackServer server({c.step}, 0, test::Serving::kConcurrently);
    const std::string expected = expectedRequest(server.port(), c.promptBytes);
    for (const detail::WakeSignal* wake : {static_cast<const detail::WakeSignal*>(nullptr), &unraised}) {
      const auto start = steady_clock::now();
      EXPECT_EQ(test::exchangeOutcome(server.endpoint(), c.timeoutMs, std::string(c.promptBytes, 'x'), wake),
                c.outcome) << c.name << (wake ? ", wakeable" : "");
      EXPECT_LT(steady_clock::now() - start, milliseconds(5000)) << c.name;
    }
    const std::vector<std::string> requests = server.requests();  // plain, then wakeable
    ASSERT_EQ(requests.size(), 2u) << c.name;
    for (const std::string& request : requests) {
      EXPECT_TRUE(request == expected) << c.name << ": " << request.size() << " bytes arrived";
    }
  }
}

}  // namespace
}  // namespace tovrin::ai
