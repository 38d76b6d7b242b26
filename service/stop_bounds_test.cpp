// The service's promises at their extremes: deadlines from 1 ms to the
// largest a duration holds, a request larger than the socket buffers to a
// server that never reads it, and a huge answer stopped while it is judged.
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "testing/files.hpp"
#include "testing/loopback_server.hpp"
#include "testing/process_runner.hpp"
#include "tovrin/ai/service.hpp"

namespace tovrin::ai {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Each stop is promised within 50 ms; the bound leaves room for a loaded
// machine and the sanitizers, and a missed stop waits seconds.
constexpr auto kPromptly = 250ms;

AiRuntimeConfig configFor(std::string endpoint, std::int64_t timeoutMs = 10000) {
  return {.endpoint = std::move(endpoint), .helperPath = {}, .timeoutMs = timeoutMs};
}

// Polls until the completion of id arrives or limit passes.
std::optional<AiCompletion> awaitCompletion(AiService& service, AiRequestId id, Clock::time_point limit) {
  std::vector<AiCompletion> done;
  while (Clock::now() < limit) {
    service.poll(done);
    for (AiCompletion& completion : done) {
      if (completion.id == id) return std::move(completion);
    }
    std::this_thread::sleep_for(1ms);
  }
  return std::nullopt;
}

TEST(ServiceStops, DeadlinesFromOneMillisecondToTheLargest) {
  struct Row {
    const char* name;
    std::optional<std::chrono::milliseconds> deadline;  // unset: the service's
    bool expires;  // within the test; otherwise it must still run
  };
  const Row rows[] = {
      {"1 ms", 1ms, true},
      {"120 ms", 120ms, true},
      {"one day", std::chrono::hours(24), false},
      {"1000 years", std::chrono::hours(24 * 365 * 1000), false},
      {"largest", std::chrono::milliseconds::max(), false},
      {"service default, largest", std::nullopt, false},
  };
  test::LoopbackServer server({test::LoopbackStep{.delay = std::chrono::hours(24)}}, 0, test::Serving::kConcurrently);
  AiService service(configFor(server.endpoint()), {std::size(rows), 8, std::chrono::milliseconds::max()});
  std::vector<AiRequestId> ids;
  const Clock::time_point submitted = Clock::now();
  for (const Row& row : rows) ids.push_back(service.submit({.request = {.message = "Ahoj"}, .deadline = row.deadline}));
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    if (!rows[i].expires) continue;
    const auto done = awaitCompletion(service, ids[i], submitted + *rows[i].deadline + kPromptly);
    ASSERT_TRUE(done) << rows[i].name;
    EXPECT_EQ(done->ending, AiEnding::kDeadline) << rows[i].name;
    EXPECT_GE(done->trace.total, *rows[i].deadline) << rows[i].name;
  }
  std::this_thread::sleep_for(50ms);
  EXPECT_TRUE(service.poll().empty());
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    if (rows[i].expires) continue;
    EXPECT_TRUE(service.cancel(ids[i])) << rows[i].name;
    const auto done = awaitCompletion(service, ids[i], Clock::now() + kPromptly);
    ASSERT_TRUE(done) << rows[i].name;
    EXPECT_EQ(done->ending, AiEnding::kCancelled) << rows[i].name;
  }
}

enum class Cause { kCancel, kDeadline, kDestruction };

struct StopRow {
  const char* name;
  Cause cause;
  AiEnding ending;
};

const StopRow kStopRows[] = {
    {"cancel", Cause::kCancel, AiEnding::kCancelled},
    {"deadline", Cause::kDeadline, AiEnding::kDeadline},
    {"destruction", Cause::kDestruction, AiEnding::kShutdown},
};

// Submits message, brings about row's cause at `after` from submission and
// checks the request ends with row's ending, within kPromptly of the cause,
// and that the worker lets go of its connection within `released`. False
// when the request had ended before the cause could land (a slow machine).
bool stopAndCheck(const StopRow& row, const AiRuntimeConfig& config, const std::string& message,
                  Clock::duration after, Clock::duration released) {
  const long descriptors = test::openDescriptors();
  std::optional<AiService> service(std::in_place, config, AiServiceOptions{1, 4, 30s});
  AiSubmission submission{.request = {.message = message}};
  if (row.cause == Cause::kDeadline) submission.deadline = std::chrono::ceil<std::chrono::milliseconds>(after);
  const Clock::time_point submitted = Clock::now();
  const AiRequestId id = service->submit(std::move(submission));
  std::this_thread::sleep_until(submitted + after);
  const Clock::time_point cause = Clock::now();
  std::vector<AiCompletion> done;
  bool cancelled = true;
  if (row.cause == Cause::kCancel) {
    cancelled = service->cancel(id);
    cancelled = service->cancel(id) && cancelled;  // a second cancel too
  }
  if (row.cause == Cause::kDestruction) {
    service->shutdown();
    EXPECT_LT(Clock::now() - cause, kPromptly) << row.name;
    service->poll(done);
  } else if (auto completion = awaitCompletion(*service, id, cause + kPromptly)) {
    done.push_back(std::move(*completion));
  }
  service.reset();
  EXPECT_LT(Clock::now() - cause, kPromptly) << row.name;
  const Clock::time_point limit = Clock::now() + released;
  while (test::openDescriptors() != descriptors && Clock::now() < limit) std::this_thread::sleep_for(1ms);
  EXPECT_EQ(test::openDescriptors(), descriptors) << row.name;
  if (done.size() == 1 && done[0].ending == AiEnding::kAnswered && submitted + done[0].trace.total < cause) {
    return false;
  }
  EXPECT_TRUE(cancelled) << row.name;
  EXPECT_EQ(done.size(), 1u) << row.name << ": not ended within the bound";
  if (done.size() != 1) return true;
  EXPECT_EQ(done[0].ending, row.ending) << row.name;
  EXPECT_EQ(done[0].response.error, row.cause == Cause::kCancel     ? kCancelledError
                                    : row.cause == Cause::kDeadline ? kDeadlineError
                                                                    : kShutdownError)
      << row.name;
  return true;
}

// A listener that never accepts: the connection is made by the system, the
// request fills the socket buffers and no byte is ever read. The request is
// large through its helper text, so that the template answer of its short
// message costs nothing.
TEST(ServiceStops, RequestLargerThanTheSocketBuffersToAServerThatNeverReads) {
  detail::SocketLibrary library;
  detail::Socket listener;
  std::uint16_t port = 0;
  ASSERT_TRUE(detail::listenLoopback(0, listener, port));
  const test::TempDir folder("stop_bounds");
  folder.write("helper.txt", std::string(16 << 20, 'a'));
  AiRuntimeConfig config = configFor("http://127.0.0.1:" + std::to_string(port) + "/v1/chat/completions");
  config.helperPath = folder.path() / "helper.txt";
  for (const StopRow& row : kStopRows) {
    EXPECT_TRUE(stopAndCheck(row, config, "Ahoj", 300ms, kPromptly)) << row.name;
  }
}

// Judging an answer of many megabytes takes a while. A stop that lands
// after the answer arrived still ends the request as stopped, on time.
TEST(ServiceStops, HugeAnswerStoppedWhileJudged) {
  test::LoopbackServer server({test::chatCompletionStep(std::string(32 << 20, 'a'))});
  AiRuntimeConfig config = configFor(server.endpoint());
  config.repairEnabled = false;
  // An unhindered run shows when the answer has arrived and when judging
  // ends; the stops land a quarter into that window. A busy machine shifts
  // the window, so it is measured again before each try.
  const auto window = [&config](Clock::duration& arrived, Clock::duration& judged) {
    AiService service(config, {1, 4, 30s});
    const AiRequestId id = service.submit({.request = {.message = "Ahoj"}});
    const auto done = awaitCompletion(service, id, Clock::now() + 30s);
    ASSERT_TRUE(done && done->trace.calls.size() == 1);
    const AiModelCallTrace& call = done->trace.calls[0];
    arrived = call.start - done->trace.submitted + call.duration;
    judged = done->trace.total;
  };
  for (const StopRow& row : kStopRows) {
    int tries = 0;
    for (; tries < 5; ++tries) {
      Clock::duration arrived{};
      Clock::duration judged{};
      window(arrived, judged);
      // A worker still judging when the service is gone ends alone, soon.
      if (stopAndCheck(row, config, "Ahoj", arrived + (judged - arrived) / 4, judged)) break;
    }
    EXPECT_LT(tries, 5) << row.name << ": the stop never landed before the answer";
  }
}

}  // namespace
}  // namespace tovrin::ai
