#include "request_runner.hpp"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <unordered_map>

#include "tovrin/ai/service.hpp"

namespace tovrin::ai::eval {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kProgressTick = std::chrono::milliseconds(250);
constexpr auto kPollPause = std::chrono::milliseconds(2);
// The tool bounds each send and receive, not whole requests.
constexpr auto kNoDeadline = std::chrono::hours(24 * 365);

double millisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start)
      .count();
}

// One run as the service traced it: the calls it made, the ones that failed
// and the watchdog's verdicts on the first and last answers received.
EvalResult resultOf(AiCompletion completion) {
  EvalResult result;
  const AiRequestTrace& trace = completion.trace;
  result.latencyMs =
      std::chrono::duration<double, std::milli>(trace.total - trace.queueWait)
          .count();
  result.transportCalls = trace.calls.size();
  const AiModelCallTrace* first = nullptr;
  const AiModelCallTrace* last = nullptr;
  for (const AiModelCallTrace& call : trace.calls) {
    if (!call.answered) {
      ++result.failedTransportCalls;
      continue;
    }
    if (first == nullptr) first = &call;
    last = &call;
  }
  if (first != nullptr) {
    result.firstReasons = first->verdict.reasons;
    result.finalReasons = last->verdict.reasons;
  }
  result.response = std::move(completion.response);
  result.outcome = classify(result.response, result.failedTransportCalls);
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
  const std::size_t total = cases.size() * repeat;
  std::vector<EvalResult> results(total);
  if (total == 0) return results;
  AiServiceOptions options;
  options.workers = std::clamp<std::size_t>(concurrency, 1, total);
  options.queueLimit = total;
  options.deadline = kNoDeadline;
  AiService service(std::move(config), options, std::move(transport));

  std::unordered_map<AiRequestId, std::size_t> jobOf;
  for (std::size_t job = 0; job < total; ++job) {
    AiSubmission submission;
    submission.request = cases[job / repeat].request;
    jobOf.emplace(service.submit(std::move(submission)), job);
  }

  std::vector<AiCompletion> done;
  std::size_t finished = 0;
  Clock::time_point lastReport = Clock::now();
  while (finished < total) {
    std::this_thread::sleep_for(kPollPause);
    service.poll(done);
    for (AiCompletion& completion : done) {
      if (completion.ending == AiEnding::kFailed) {
        service.shutdown();  // no new runs
        throw std::runtime_error(completion.response.error);
      }
      const std::size_t job = jobOf.at(completion.id);
      EvalResult result = resultOf(std::move(completion));
      result.caseIndex = job / repeat;
      result.run = job % repeat + 1;
      results[job] = std::move(result);
    }
    finished += done.size();
    if (progress &&
        (!done.empty() || Clock::now() - lastReport >= kProgressTick)) {
      progress(finished, total);
      lastReport = Clock::now();
    }
  }
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
