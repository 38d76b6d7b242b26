#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "testing/loopback_server.hpp"
#include "tovrin/ai/service.hpp"

namespace tovrin::ai {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// An interruption takes a few milliseconds; the bound leaves room for a
// loaded machine, a missed one waits for the 5 s time-out or forever.
constexpr auto kPromptly = 250ms;

AiRuntimeConfig configFor(std::string endpoint) {
  return {.endpoint = std::move(endpoint), .helperPath = {}, .timeoutMs = 5000};
}

AiSubmission submission(std::string message, std::string conversation = {}) {
  return {.request = {.message = std::move(message)}, .conversation = std::move(conversation)};
}

// Polls as a frame loop would until count completions arrived, by id.
std::map<AiRequestId, AiCompletion> collect(AiService& service, std::size_t count) {
  std::map<AiRequestId, AiCompletion> byId;
  const Clock::time_point limit = Clock::now() + 10s;
  while (byId.size() < count && Clock::now() < limit) {
    for (AiCompletion& done : service.poll()) EXPECT_TRUE(byId.emplace(done.id, std::move(done)).second);
    std::this_thread::sleep_for(1ms);
  }
  return byId;
}

// Each model call as "pass.attempt endpoint answer|error 'text' reasons".
std::vector<std::string> described(const AiRequestTrace& trace) {
  std::vector<std::string> lines;
  for (const AiModelCallTrace& c : trace.calls) {
    std::string line = std::to_string(c.pass) + "." + std::to_string(c.attempt) + " " + c.endpoint;
    line += c.answered ? " answer '" + c.answer + "'" : " error '" + c.error + "'";
    for (const std::string& reason : c.verdict.reasons) line += " " + reason;
    lines.push_back(line);
  }
  return lines;
}

// A game transport that holds every call until opened, answering with the
// player's message found in the user prompt.
struct Gate {
  std::mutex mutex;
  std::condition_variable changed;
  bool open = false;
  std::vector<std::string> order;  // messages in the order calls began
  int running = 0;
  int mostRunning = 0;

  void waitStarted(std::size_t calls) {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return order.size() >= calls; });
  }
  void release() {
    const std::lock_guard<std::mutex> lock(mutex);
    open = true;
    changed.notify_all();
  }
  AiTransport transport(std::chrono::milliseconds hold = 0ms) {
    return [this, hold](const AiRuntimeConfig&, const std::string&, const std::string&, const std::string&,
                        const std::string& user, std::size_t) {
      std::unique_lock<std::mutex> lock(mutex);
      order.push_back(user.substr(user.find("Ahoj"), 6));
      mostRunning = std::max(mostRunning, ++running);
      changed.notify_all();
      changed.wait(lock, [this] { return open; });
      lock.unlock();
      std::this_thread::sleep_for(hold);
      lock.lock();
      --running;
      return std::string("Dobrý den.");
    };
  }
};

TEST(Service, RefusesBadArguments) {
  const std::pair<AiServiceOptions, const char*> rows[] = {
      {{0, 1, 1ms}, "AiService needs at least one worker"},
      {{1, 0, 1ms}, "AiService queue limit must be at least 1"},
      {{1, 1, 0ms}, "AiService deadline must be positive"},
      {{1, 1, -5ms}, "AiService deadline must be positive"},
  };
  for (const auto& [options, message] : rows) {
    try {
      AiService service(configFor("http://127.0.0.1:1/"), options);
      ADD_FAILURE() << message << ": accepted";
    } catch (const std::invalid_argument& error) {
      EXPECT_STREQ(error.what(), message);
    }
  }
  AiService service(configFor("http://127.0.0.1:1/"), AiServiceOptions{});
  EXPECT_THROW(service.submit({.request = {.message = "Ahoj"}, .deadline = 0ms}), std::invalid_argument);
}

TEST(Service, QueueFullSupersedeCancelAndOrder) {
  Gate gate;
  AiService service(configFor("http://unused/"), {1, 3, 10s}, gate.transport());
  const AiRequestId running = service.submit(submission("Ahoj 1", "k"));
  gate.waitStarted(1);
  const AiRequestId superseded = service.submit(submission("Ahoj 2", "k"));
  const AiRequestId alsoSuperseded = service.submit(submission("Ahoj 5", "k"));
  AiSubmission newer = submission("Ahoj 3", "k");
  newer.supersede = true;
  const AiRequestId replacing = service.submit(std::move(newer));
  auto done = collect(service, 2);  // superseded within a tick
  const AiRequestId cancelled = service.submit(submission("Ahoj 4"));
  const AiRequestId empty = service.submit(submission(""));
  const AiRequestId full = service.submit(submission("Ahoj 6"));
  EXPECT_EQ(service.pending(), 4u);
  EXPECT_TRUE(service.cancel(cancelled));
  EXPECT_FALSE(service.cancel(cancelled));
  gate.release();

  struct Row {
    AiRequestId id;
    AiEnding ending;
    const char* error;
  };
  const Row rows[] = {
      {running, AiEnding::kAnswered, ""},
      {superseded, AiEnding::kSuperseded, kSupersededError},
      {alsoSuperseded, AiEnding::kSuperseded, kSupersededError},
      {replacing, AiEnding::kAnswered, ""},
      {cancelled, AiEnding::kCancelled, kCancelledError},
      {empty, AiEnding::kAnswered, "AI request message is empty"},
      {full, AiEnding::kQueueFull, kQueueFullError},
  };
  done.merge(collect(service, std::size(rows) - 2));
  for (const Row& row : rows) {
    ASSERT_EQ(done.count(row.id), 1u) << row.id;
    EXPECT_EQ(done[row.id].ending, row.ending) << row.id;
    EXPECT_EQ(done[row.id].response.error, row.error) << row.id;
    EXPECT_NE(done[row.id].trace.submitted, Clock::time_point{}) << row.id;  // refusals too
  }
  EXPECT_EQ(gate.order, (std::vector<std::string>{"Ahoj 1", "Ahoj 3"}));
  EXPECT_EQ(service.pending(), 0u);
}

TEST(Service, ConversationsKeepOrderAndRunSideBySide) {
  Gate gate;
  gate.release();
  AiService service(configFor("http://unused/"), {3, 64, 10s}, gate.transport(3ms));
  for (int i = 0; i < 4; ++i) {
    for (const char* key : {"a", "b", "c"}) service.submit(submission("Ahoj" + std::string(key) + std::to_string(i), key));
  }
  EXPECT_EQ(collect(service, 12).size(), 12u);
  for (const char key : {'a', 'b', 'c'}) {
    std::string seen;
    for (const std::string& m : gate.order) seen += m[4] == key ? m.substr(5) : "";
    EXPECT_EQ(seen, "0123") << key;
  }
  EXPECT_GE(gate.mostRunning, 2);
}

TEST(Service, TraceHoldsEveryModelCall) {
  std::atomic<int> calls{0};
  AiRuntimeConfig config = configFor("http://first/");
  config.fallbackEndpoint = "http://second/";
  config.fallbackModel = "druhy";
  AiService service(config, {1, 4, 10s}, [&calls](auto&&...) -> std::string {
    switch (calls++) {
      case 0: return " ";
      case 1: throw std::runtime_error("down");
      default: return "Dobrý den.";
    }
  });
  const AiRequestId id = service.submit(submission("Ahoj"));
  AiCompletion done = collect(service, 1)[id];
  EXPECT_EQ(done.ending, AiEnding::kAnswered);
  EXPECT_TRUE(done.response.ok);
  EXPECT_EQ(described(done.trace), (std::vector<std::string>{"1.1 http://first/ answer ' ' empty_answer",
                                                               "1.2 http://first/ error 'down'",
                                                               "2.1 http://second/ answer 'Dobrý den.'"}));
  EXPECT_GE(done.trace.calls[0].start, done.trace.submitted);
}

// A server that accepts and never answers: only the interruption ends the
// request, within a poll; the template answer survives it.
TEST(Service, StopsInterruptTheModelCall) {
  struct Row {
    const char* name;
    const char* message;
    AiEnding ending;  // kDeadline: 80 ms; otherwise cancel or shutdown
    bool ok;
    const char* text;  // answer when ok, error otherwise
    const char* callError;
  };
  const Row rows[] = {
      {"deadline", "Ahoj", AiEnding::kDeadline, false, kDeadlineError, kDeadlineError},
      {"deadline keeps template", "Kolik je 2+3?", AiEnding::kDeadline, true, "5", kDeadlineError},
      {"cancel", "Ahoj", AiEnding::kCancelled, false, kCancelledError, kCancelledError},
      {"shutdown", "Ahoj", AiEnding::kShutdown, false, kShutdownError, kShutdownError},
  };
  for (const Row& row : rows) {
    test::LoopbackServer server({test::LoopbackStep{.delay = std::chrono::hours(24)}}, 0, test::Serving::kConcurrently);
    AiService service(configFor(server.endpoint()), {2, 4, 10s});
    AiSubmission s = submission(row.message);
    if (row.ending == AiEnding::kDeadline) s.deadline = 80ms;
    const AiRequestId id = service.submit(std::move(s));
    service.submit(submission("Ahoj"));  // also blocked, also ended
    while (server.requests().size() < 2) std::this_thread::sleep_for(1ms);
    const Clock::time_point stop = Clock::now();
    if (row.ending == AiEnding::kCancelled) service.cancel(id);
    if (row.ending == AiEnding::kShutdown) {
      service.shutdown();
      EXPECT_LT(Clock::now() - stop, kPromptly) << row.name;
    }
    AiCompletion done = collect(service, 1)[id];
    if (row.ending != AiEnding::kDeadline) {
      EXPECT_LT(Clock::now() - stop, kPromptly) << row.name;
    }
    EXPECT_EQ(done.ending, row.ending) << row.name;
    EXPECT_EQ(done.response.ok, row.ok) << row.name;
    EXPECT_EQ(row.ok ? done.response.answer : done.response.error, row.text) << row.name;
    EXPECT_EQ(described(done.trace), std::vector<std::string>{"1.1 " + server.endpoint() + " error '" + row.callError + "'"})
        << row.name;
  }
}

// A model that is not ready holds each call until it is, or until the
// request's own stop: the deadline still ends the request on time.
TEST(Service, WaitForModelHoldsCallsWithinTheirDeadline) {
  std::mutex mutex;
  std::condition_variable_any readyChanged;
  bool ready = false;
  AiServiceOptions options{1, 4, 10s};
  options.waitForModel = [&](std::stop_token token) {
    std::unique_lock<std::mutex> lock(mutex);
    readyChanged.wait(lock, token, [&] { return ready; });
  };
  AiService service(configFor("http://unused/"), options, [](auto&&...) { return std::string("Dobrý den."); });
  AiSubmission early = submission("Kolik je 6*7?");
  early.deadline = 60ms;
  const Clock::time_point start = Clock::now();
  const AiRequestId timedOut = service.submit(std::move(early));
  AiCompletion done = collect(service, 1)[timedOut];
  EXPECT_LT(Clock::now() - start, 60ms + kPromptly);
  EXPECT_EQ(done.ending, AiEnding::kDeadline);
  EXPECT_EQ(done.response.answer, "42");
  const AiRequestId held = service.submit(submission("Ahoj"));
  std::this_thread::sleep_for(20ms);
  EXPECT_TRUE(service.poll().empty());
  {
    const std::lock_guard<std::mutex> lock(mutex);
    ready = true;
  }
  readyChanged.notify_all();
  done = collect(service, 1)[held];
  EXPECT_EQ(done.ending, AiEnding::kAnswered);
  EXPECT_EQ(done.response.answer, "Dobrý den.");
}

TEST(Service, GameTransportSeesItsStopAndIsNotWaitedFor) {
  std::atomic<bool> sawStop{false};
  AiService service(configFor("http://unused/"), {1, 4, 50ms}, [&sawStop](auto&&...) {
    while (!currentStopToken().stop_requested()) std::this_thread::sleep_for(1ms);
    sawStop = true;
    std::this_thread::sleep_for(2 * kPromptly);  // late
    return std::string("Dobrý den.");
  });
  const Clock::time_point start = Clock::now();
  const AiRequestId id = service.submit(submission("Kolik je 6*7?"));
  AiCompletion done = collect(service, 1)[id];
  EXPECT_LT(Clock::now() - start, 50ms + kPromptly);
  EXPECT_EQ(done.ending, AiEnding::kDeadline);
  EXPECT_EQ(done.response.answer, "42");  // the template, not the late answer
  service.shutdown();  // waits for the late return, which is dropped
  EXPECT_TRUE(sawStop);
  EXPECT_TRUE(service.poll().empty());
  EXPECT_FALSE(currentStopToken().stop_possible());
}

}  // namespace
}  // namespace tovrin::ai
