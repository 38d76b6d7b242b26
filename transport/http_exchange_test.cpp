#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <limits>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "testing/loopback_server.hpp"
#include "testing/row_name.hpp"
#include "tovrin/ai/transport.hpp"
#include "transport/socket_platform.hpp"
#include "transport/testdata_files.hpp"

namespace tovrin::ai {
namespace {

using std::chrono::milliseconds;
using test::LoopbackServer;
using test::LoopbackStep;

constexpr const char* kModel = "Qwen2.5-1.5B-Instruct-Q8";

AiRuntimeConfig configWithTimeout(std::int64_t timeoutMs) {
  AiRuntimeConfig config;
  config.timeoutMs = timeoutMs;
  return config;
}

// The answer as "returned: <text>", or the message of the exception.
std::string outcome(const AiRuntimeConfig& config, const std::string& url,
                    const std::string& userPrompt = "Ahoj") {
  try {
    return "returned: " +
           httpChatCompletion(config, url, kModel, "system", userPrompt, 80);
  } catch (const std::runtime_error& e) {
    return e.what();
  }
}

std::string outcome(const std::string& url) {
  return outcome(configWithTimeout(5000), url);
}

// A port on 127.0.0.1 where nobody listens: one a server just gave up.
std::uint16_t closedPort() {
  const LoopbackServer server({test::closeWithoutAnswerStep()});
  return server.port();
}

TEST(HttpExchangeTest, TalksToARecordedServer) {
  std::string recorded = test::readTestdata("stories-normal.response");
  const LoopbackServer server({test::rawStep(recorded)});
  const std::string answer = httpChatCompletion(
      configWithTimeout(5000), server.endpoint(), kModel,
      "Jsi lokální AI modul hry. Odpovídej stručně a přirozeně česky.",
      "DOTAZ HRÁČE:\nKolik je 2+2?\n\nVrať pouze finální odpověď.", 80);
  EXPECT_EQ(
      answer,
      "\"Mommy,\" said Johnny.\nThen, a little girl named Lily came to "
      "the park. She saw a big, scary and wanted to play with it. She "
      "asked her mommy, \"Mommy, can you want to play with me?\" Her mom");

  // The recording was made against port 17944.
  std::string expected = test::readTestdata("stories-normal.request");
  const std::string recordedHost = "Host: 127.0.0.1:17944\r\n";
  const std::size_t host = expected.find(recordedHost);
  ASSERT_NE(host, std::string::npos);
  expected.replace(host, recordedHost.size(),
                   "Host: 127.0.0.1:" + std::to_string(server.port()) + "\r\n");
  ASSERT_EQ(server.requests().size(), 1u);
  EXPECT_EQ(server.requests()[0], expected);
}

struct ReplayCase {
  const char* name;
  const char* file;
  const char* outcome;
};

void PrintTo(const ReplayCase& row, std::ostream* out) { *out << row.name; }

constexpr ReplayCase kReplayCases[] = {
    {"Short", "stories-short.response", "returned: \"Mommy,\""},
    {"ZeroTokens", "stories-zero.response", "returned: \""},
    {"NotFound", "stories-wrongpath.response",
     "AI endpoint returned HTTP/1.1 404 Not Found"},
    {"ServerError", "stories-bad.response",
     "AI endpoint returned HTTP/1.1 500 Internal Server Error"},
};

class RecordedReplayTest : public ::testing::TestWithParam<ReplayCase> {};

TEST_P(RecordedReplayTest, HandlesTheServersBytes) {
  const ReplayCase& c = GetParam();
  const LoopbackServer server({test::rawStep(test::readTestdata(c.file))});
  EXPECT_EQ(outcome(server.endpoint()), c.outcome);
}

INSTANTIATE_TEST_SUITE_P(Recorded, RecordedReplayTest,
                         ::testing::ValuesIn(kReplayCases), test::RowName());

struct AnswerCase {
  const char* name;
  LoopbackStep step;
  std::string outcome;
};

void PrintTo(const AnswerCase& row, std::ostream* out) { *out << row.name; }

const AnswerCase kAnswerCases[] = {
    {"ClosesWithoutSending", test::closeWithoutAnswerStep(),
     "Malformed AI HTTP response"},
    {"ShorterThanHeadEnd", test::rawStep("\r\n\r"),
     "Malformed AI HTTP response"},
    {"HeadEndsInLineFeedsOnly",
     test::rawStep(
         "HTTP/1.1 200 OK\nContent-Length: 15\n\n{\"content\":\"x\"}"),
     "Malformed AI HTTP response"},
    {"ErrorStatusWithoutEmptyLine",
     test::rawStep(
         "HTTP/1.1 500 Internal Server Error\r\nContent-Length: 0\r\n"),
     "Malformed AI HTTP response"},
    {"OkWithoutContent", test::statusStep("HTTP/1.1 200 OK", R"({"id":"x"})"),
     "AI response does not contain message.content"},
    {"OkWithEmptyBody", test::rawStep("HTTP/1.1 200 OK\r\n\r\n"),
     "AI response does not contain message.content"},
    {"CodeWithoutTrailingSpace",
     test::rawStep("HTTP/1.1 200\r\n\r\n{\"content\":\"x\"}"),
     "AI endpoint returned HTTP/1.1 200"},
    {"Http10Accepted",
     test::statusStep("HTTP/1.0 200 OK", R"({"content":"x"})"), "returned: x"},
    {"NotFound",
     test::statusStep("HTTP/1.1 404 Not Found", R"({"content":"x"})"),
     "AI endpoint returned HTTP/1.1 404 Not Found"},
    {"OnlyTheFirstLineIsStatus",
     test::rawStep(
         "HTTP/1.1 503 Busy\r\nX-Note: 200 OK\r\n\r\n{\"content\":\"x\"}"),
     "AI endpoint returned HTTP/1.1 503 Busy"},
    {"ChunkedBodyStillSearched",
     test::rawStep("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                   "f\r\n{\"content\":\"x\"}\r\n0\r\n\r\n"),
     "returned: x"},
    {"AnswerLongerThanOneReceive",
     test::chatCompletionStep(std::string(100000, 'a')),
     "returned: " + std::string(100000, 'a')},
};

class ServerAnswerTest : public ::testing::TestWithParam<AnswerCase> {};

TEST_P(ServerAnswerTest, EndsInItsOutcome) {
  const AnswerCase& c = GetParam();
  const LoopbackServer server({c.step});
  EXPECT_EQ(outcome(server.endpoint()), c.outcome);
}

INSTANTIATE_TEST_SUITE_P(Answers, ServerAnswerTest,
                         ::testing::ValuesIn(kAnswerCases), test::RowName());

TEST(HttpExchangeTest, FailuresBeforeAnyConnection) {
  const std::string closed = std::to_string(closedPort());
  struct Row {
    const char* name;
    std::string url;
    const char* message;
  };
  const Row rows[] = {
      {"WrongScheme", "https://127.0.0.1:443/", "AI endpoint must use http://"},
      {"EmptyHost", "http://:80/", "Invalid AI endpoint URL"},
      {"NonNumericPort", "http://127.0.0.1:abc/v1/chat/completions",
       "Cannot resolve AI endpoint host"},
      {"NobodyListens", "http://127.0.0.1:" + closed + "/",
       "Cannot connect to AI endpoint"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(outcome(row.url), row.message) << row.name;
  }
}

// Each receive waits at most the time-out; 0 and below must not reach the
// socket as "wait forever".
TEST(HttpExchangeTest, SlowServerFailsTheReceive) {
  const LoopbackServer server({test::delayedStep(
      milliseconds(5000), test::chatCompletionStep("late"))});
  for (const std::int64_t timeoutMs :
       {std::int64_t{200}, std::int64_t{0}, std::int64_t{-1},
        std::numeric_limits<std::int64_t>::min()}) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(outcome(configWithTimeout(timeoutMs), server.endpoint()),
              "Failed to receive AI response")
        << timeoutMs;
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(2500))
        << timeoutMs;
  }
}

// The time-out bounds each receive call, not the exchange: an answer that
// trickles in keeps the exchange alive past it.
TEST(HttpExchangeTest, TimeoutAppliesPerReceive) {
  const LoopbackServer server({test::drippedStep(
      test::chatCompletionStep("po kapkách"), 4, milliseconds(5))});
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(outcome(configWithTimeout(300), server.endpoint()),
            "returned: po kapkách");
  EXPECT_GT(std::chrono::steady_clock::now() - start, milliseconds(300));
}

TEST(HttpExchangeTest, PeerClosingDuringSendIsAnError) {
  const LoopbackServer server({test::closeBeforeReadingStep()});
  // Far more than the socket buffers of both ends can take in.
  const std::string prompt(24 * 1024 * 1024, 'x');
  EXPECT_EQ(outcome(configWithTimeout(5000), server.endpoint(), prompt),
            "Failed to send AI request");
}

TEST(SocketTimeoutTest, ClampsIntoThirtyTwoBits) {
  struct Row {
    std::int64_t configured;
    std::uint32_t used;
  };
  const Row rows[] = {
      {std::numeric_limits<std::int64_t>::min(), 1},
      {-1, 1},
      {0, 1},
      {1, 1},
      {25000, 25000},
      {4294967295, 4294967295u},
      {4294967296, 4294967295u},
      {std::numeric_limits<std::int64_t>::max(), 4294967295u},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(detail::socketTimeoutMs(row.configured), row.used)
        << row.configured;
  }
}

#ifdef _WIN32
// True while sockets can be opened. Under Winsock that needs a started
// socket library, so this tells whether any start is still outstanding.
bool socketsUsable() {
  detail::Socket listener;
  std::uint16_t port = 0;
  return detail::listenLoopback(0, listener, port);
}
#endif

// Each call starts the socket library for itself and releases it exactly
// once, however it ends. One start held by the test keeps the count above
// zero meanwhile, so a second release shows as a library that is gone while
// the test still holds it, and a missing release as one that stays after.
TEST(HttpExchangeTest, EveryWayOutReleasesTheSocketLibraryOnce) {
#ifndef _WIN32
  GTEST_SKIP() << "only Winsock is started and released";
#else
  ASSERT_FALSE(socketsUsable()) << "an earlier start was never released";
  const std::string closed = std::to_string(closedPort());
  struct Row {
    const char* name;
    std::optional<LoopbackStep> step;  // a server, reached by its port
    std::string url;                   // or this URL
    std::int64_t timeoutMs;
    std::size_t promptBytes;
    const char* outcome;
  };
  const Row rows[] = {
      {"WrongScheme", std::nullopt, "https://127.0.0.1/", 5000, 4,
       "AI endpoint must use http://"},
      {"EmptyHost", std::nullopt, "http://:80/", 5000, 4,
       "Invalid AI endpoint URL"},
      {"Unresolved", std::nullopt, "http://127.0.0.1:abc/", 5000, 4,
       "Cannot resolve AI endpoint host"},
      {"NotAccepted", std::nullopt, "http://127.0.0.1:" + closed + "/", 5000,
       4, "Cannot connect to AI endpoint"},
      {"SendFails", test::closeBeforeReadingStep(), "", 5000,
       24 * 1024 * 1024, "Failed to send AI request"},
      {"ReceiveTimesOut",
       test::delayedStep(milliseconds(5000), test::chatCompletionStep("x")),
       "", 100, 4, "Failed to receive AI response"},
      {"Malformed", test::closeWithoutAnswerStep(), "", 5000, 4,
       "Malformed AI HTTP response"},
      {"Refused", test::statusStep("HTTP/1.1 404 Not Found", "{}"), "", 5000,
       4, "AI endpoint returned HTTP/1.1 404 Not Found"},
      {"NoContent", test::statusStep("HTTP/1.1 200 OK", "{}"), "", 5000, 4,
       "AI response does not contain message.content"},
      {"Answered", test::chatCompletionStep("ok"), "", 5000, 4,
       "returned: ok"},
  };
  for (const Row& row : rows) {
    {
      const detail::SocketLibrary held;
      ASSERT_TRUE(held.started()) << row.name;
      {
        std::optional<LoopbackServer> server;
        if (row.step) server.emplace(std::vector<LoopbackStep>{*row.step});
        EXPECT_EQ(outcome(configWithTimeout(row.timeoutMs),
                          server ? server->endpoint() : row.url,
                          std::string(row.promptBytes, 'x')),
                  row.outcome)
            << row.name;
      }
      EXPECT_TRUE(socketsUsable()) << row.name << ": released twice";
    }
    EXPECT_FALSE(socketsUsable()) << row.name << ": never released";
  }
#endif
}

#ifdef __linux__
std::size_t openDescriptors() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry :
       std::filesystem::directory_iterator("/proc/self/fd")) {
    ++count;
  }
  return count;
}
#endif

TEST(HttpExchangeTest, ExchangesLeaveNoDescriptorOpen) {
#ifndef __linux__
  GTEST_SKIP() << "counts descriptors through /proc/self/fd";
#else
  const std::string closed = std::to_string(closedPort());
  const LoopbackServer answering({test::chatCompletionStep("ok")});
  const LoopbackServer refusing(
      {test::statusStep("HTTP/1.1 404 Not Found", "{}")});
  const LoopbackServer silent({test::closeWithoutAnswerStep()});
  const LoopbackServer slow(
      {test::delayedStep(milliseconds(20), test::chatCompletionStep("slow"))});
  const std::size_t before = openDescriptors();

  struct Call {
    std::string url;
    const char* outcome;
  };
  const Call calls[] = {
      {answering.endpoint(), "returned: ok"},
      {refusing.endpoint(), "AI endpoint returned HTTP/1.1 404 Not Found"},
      {silent.endpoint(), "Malformed AI HTTP response"},
      {"http://127.0.0.1:" + closed + "/", "Cannot connect to AI endpoint"},
      {"http://127.0.0.1:abc/", "Cannot resolve AI endpoint host"},
      {"http://:1/", "Invalid AI endpoint URL"},
  };
  const AiRuntimeConfig config = configWithTimeout(5000);
  for (std::size_t i = 0; i < 2000; ++i) {
    const Call& call = calls[i % std::size(calls)];
    ASSERT_EQ(outcome(config, call.url), call.outcome) << i;
  }
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(outcome(configWithTimeout(1), slow.endpoint()),
              "Failed to receive AI response");
  }
  // The slow server answers its backlog in turn; once it has answered this
  // last call, every connection it held is closed.
  EXPECT_EQ(outcome(config, slow.endpoint()), "returned: slow");
  EXPECT_EQ(openDescriptors(), before);
#endif
}

}  // namespace
}  // namespace tovrin::ai
