#include "request_runner.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace tovrin::ai::eval {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kProgressTick = std::chrono::milliseconds(250);

// What the transport saw during one run. A request runs entirely on the
// thread that called ask, so a thread-local pointer finds the right log even
// when many runs share the runtime.
struct CallLog {
  std::size_t calls = 0;
  std::size_t failed = 0;
  std::vector<std::string> answers;  // raw, in call order
};

thread_local CallLog* currentLog = nullptr;

// Points currentLog at log while it lives.
class LogScope {
 public:
  explicit LogScope(CallLog& log) { currentLog = &log; }
  ~LogScope() { currentLog = nullptr; }
  LogScope(const LogScope&) = delete;
  LogScope& operator=(const LogScope&) = delete;
};

AiTransport recordingTransport(AiTransport inner) {
  return [inner = std::move(inner)](
             const AiRuntimeConfig& config, const std::string& endpoint,
             const std::string& model, const std::string& systemPrompt,
             const std::string& userPrompt, std::size_t maxTokens) {
    CallLog* log = currentLog;
    if (log != nullptr) ++log->calls;
    try {
      std::string answer =
          inner(config, endpoint, model, systemPrompt, userPrompt, maxTokens);
      if (log != nullptr) log->answers.push_back(answer);
      return answer;
    } catch (...) {
      if (log != nullptr) ++log->failed;
      throw;
    }
  };
}

double millisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start)
      .count();
}

EvalResult runOnce(const AiRuntime& runtime, const EvalCase& evalCase,
                   const AiRequest& enriched) {
  CallLog log;
  EvalResult result;
  {
    const LogScope scope(log);
    const Clock::time_point start = Clock::now();
    result.response = runtime.ask(evalCase.request);
    result.latencyMs = millisecondsSince(start);
  }
  result.transportCalls = log.calls;
  result.failedTransportCalls = log.failed;
  result.outcome = classify(result.response, log.failed);
  // The runtime keeps only the last verdict of its first pass; judging the
  // kept answers again gives the verdicts it passed over. Same answer, same
  // enriched request: same verdict.
  if (!log.answers.empty()) {
    result.firstReasons = validateAnswer(log.answers.front(), enriched).reasons;
    result.finalReasons = validateAnswer(log.answers.back(), enriched).reasons;
  }
  return result;
}

}  // namespace

AiRuntimeConfig runtimeConfig(const EvalOptions& options) {
  AiRuntimeConfig config;
  config.enabled = true;
  config.endpoint = options.endpoint;
  config.model = options.model;
  config.helperPath = options.helperPath;
  config.timeoutMs = options.timeoutMs;
  config.temperature = options.temperature;
  config.topP = options.topP;
  config.watchdogEnabled = true;
  config.repairEnabled = true;
  config.fallbackEndpoint = options.fallbackEndpoint;
  config.fallbackModel = options.fallbackModel;
  return config;
}

Outcome classify(const AiResponse& response, std::size_t failedCalls) {
  if (response.ok) {
    return response.model == kTemplateModelName ? Outcome::kTemplate
                                                : Outcome::kModel;
  }
  return failedCalls > 0 ? Outcome::kTransportFailure : Outcome::kRejected;
}

std::vector<EvalResult> runCases(AiRuntimeConfig config, AiTransport transport,
                                 const std::vector<EvalCase>& cases,
                                 std::size_t repeat, std::size_t concurrency,
                                 const ProgressCallback& progress) {
  const AiRuntime runtime(std::move(config),
                          recordingTransport(std::move(transport)));
  std::vector<AiRequest> enriched;
  for (const EvalCase& evalCase : cases) {
    enriched.push_back(applyToolFacts(evalCase.request));
  }

  const std::size_t total = cases.size() * repeat;
  std::vector<EvalResult> results(total);
  std::atomic<std::size_t> next{0};
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t done = 0;
  std::size_t running = 0;
  std::exception_ptr failure;

  auto work = [&] {
    for (;;) {
      const std::size_t job = next.fetch_add(1);
      if (job >= total) break;
      const std::size_t caseIndex = job / repeat;
      try {
        EvalResult result =
            runOnce(runtime, cases[caseIndex], enriched[caseIndex]);
        result.caseIndex = caseIndex;
        result.run = job % repeat + 1;
        results[job] = std::move(result);
      } catch (...) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!failure) failure = std::current_exception();
        next.store(total);  // no new runs; the running ones end on their own
      }
      {
        const std::lock_guard<std::mutex> lock(mutex);
        ++done;
      }
      changed.notify_one();
    }
    const std::lock_guard<std::mutex> lock(mutex);
    --running;
    changed.notify_one();
  };

  const std::size_t threads =
      std::clamp<std::size_t>(concurrency, 1, std::max<std::size_t>(total, 1));
  std::vector<std::thread> workers;
  running = threads;
  for (std::size_t i = 0; i < threads; ++i) workers.emplace_back(work);
  {
    std::unique_lock<std::mutex> lock(mutex);
    while (running > 0) {
      changed.wait_for(lock, kProgressTick);
      const std::size_t now = done;
      lock.unlock();
      if (progress) progress(now, total);
      lock.lock();
    }
  }
  for (std::thread& worker : workers) worker.join();
  if (failure) std::rethrow_exception(failure);
  return results;
}

std::vector<EvalResult> replayCases(const std::vector<EvalCase>& cases) {
  std::vector<EvalResult> results;
  for (std::size_t i = 0; i < cases.size(); ++i) {
    if (!cases[i].answer) continue;
    const AiRequest enriched = applyToolFacts(cases[i].request);
    EvalResult result;
    result.caseIndex = i;
    const Clock::time_point start = Clock::now();
    WatchdogVerdict verdict = validateAnswer(*cases[i].answer, enriched);
    result.latencyMs = millisecondsSince(start);
    result.response.ok = verdict.passed;
    result.response.answer = trim(*cases[i].answer);
    result.response.watchdogPassed = verdict.passed;
    result.response.watchdogReasons = verdict.reasons;
    result.outcome = verdict.passed ? Outcome::kModel : Outcome::kRejected;
    result.firstReasons = verdict.reasons;
    result.finalReasons = std::move(verdict.reasons);
    results.push_back(std::move(result));
  }
  return results;
}

}  // namespace tovrin::ai::eval
