#include "request_runner.hpp"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>

#include "display_text.hpp"
#include "tovrin/ai/service.hpp"

namespace tovrin::ai::eval {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kProgressTick = std::chrono::milliseconds(250);
constexpr auto kPollPause = std::chrono::milliseconds(2);
// The error bodies are a help to read the report, not worth a long wait.
// How the runtime's error for a refused status begins.

double millisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start)
      .count();
}

// One run as the service traced it: the calls it made, the ones that failed
// and the watchdog's verdicts on the first and last answers received. Only
// a bounded part of what the model and the servers sent is kept.
EvalResult resultOf(AiCompletion completion, const EvalCase& evalCase,
                    std::int64_t timeoutMs) {
  EvalResult result;
  const AiRequestTrace& trace = completion.trace;
  result.latencyMs =
      std::chrono::duration<double, std::milli>(trace.total - trace.queueWait)
          .count();
  result.transportCalls = trace.calls.size();
  result.timedOut = completion.ending == AiEnding::kDeadline;
  const AiModelCallTrace* first = nullptr;
  const AiModelCallTrace* last = nullptr;
  for (const AiModelCallTrace& call : trace.calls) {
    if (!call.answered) {
      ++result.failedTransportCalls;
      if (call.duration >= std::chrono::milliseconds(timeoutMs)) {
        result.timedOut = true;
      }
      if (!call.errorBody.empty()) {
        result.errorBody = cutText(call.errorBody, kKeptErrorBodyBytes);
      }
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
  if (last != nullptr && result.outcome != Outcome::kModel) {
    result.modelAnswer = cutText(trim(last->answer), kKeptTextBytes);
  }
  // Kept whole when it is the expected answer, which the input holds anyway.
  if (result.response.answer != evalCase.expected) {
    result.response.answer = cutText(result.response.answer, kKeptTextBytes);
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

RunRecord runCases(AiRuntimeConfig config, const std::vector<EvalCase>& cases,
                   std::size_t repeat, const RunLimits& limits,
                   const std::atomic<bool>& interrupted,
                   const ProgressCallback& progress) {
  RunRecord record;
  const std::size_t total = cases.size() * repeat;
  record.status.planned = total;
  if (total == 0) return record;
  const std::int64_t timeoutMs = config.timeoutMs;
  AiServiceOptions options;
  options.workers = std::clamp<std::size_t>(limits.concurrency, 1, total);
  options.queueLimit = options.workers;
  options.deadline = limits.deadline;
  options.waitForModel = limits.waitForModel;
  AiService service(std::move(config), options);

  std::unordered_map<AiRequestId, std::size_t> jobOf;  // in flight
  std::size_t next = 0;
  std::size_t timedOutInARow = 0;
  RunEnd& end = record.status.end;
  auto keep = [&](AiCompletion& completion) {
    const std::size_t job = jobOf.at(completion.id);
    jobOf.erase(completion.id);
    const EvalCase& evalCase = cases[job / repeat];
    EvalResult result = resultOf(std::move(completion), evalCase, timeoutMs);
    result.caseIndex = job / repeat;
    result.run = job % repeat + 1;
    timedOutInARow = result.timedOut ? timedOutInARow + 1 : 0;
    record.results.push_back(std::move(result));
  };

  std::vector<AiCompletion> done;
  Clock::time_point lastReport = Clock::now();
  while (next < total || !jobOf.empty()) {
    // Only as many submitted as run at once: a request's deadline counts
    // from its submission, and each holds a copy of its case.
    for (; next < total && jobOf.size() < options.workers; ++next) {
      AiSubmission submission;
      submission.request = cases[next / repeat].request;
      jobOf.emplace(service.submit(std::move(submission)), next);
    }
    std::this_thread::sleep_for(kPollPause);
    if (interrupted.load()) {
      end = RunEnd::kInterrupted;
      break;
    }
    service.poll(done);
    for (AiCompletion& completion : done) {
      if (completion.ending == AiEnding::kFailed) {
        service.shutdown();  // no new runs
        throw std::runtime_error(completion.response.error);
      }
      keep(completion);
    }
    if (limits.stopAfter > 0 && timedOutInARow >= limits.stopAfter) {
      end = RunEnd::kTimeouts;
      break;
    }
    if (progress &&
        (!done.empty() || Clock::now() - lastReport >= kProgressTick)) {
      progress(record.results.size(), total);
      lastReport = Clock::now();
    }
  }
  if (end != RunEnd::kComplete) {
    // The requests in flight end at once; those that finished first count.
    service.shutdown();
    service.poll(done);
    for (AiCompletion& completion : done) {
      if (completion.ending != AiEnding::kShutdown &&
          completion.ending != AiEnding::kFailed) {
        keep(completion);
      }
    }
  }
  std::sort(record.results.begin(), record.results.end(),
            [](const EvalResult& a, const EvalResult& b) {
              return std::pair(a.caseIndex, a.run) <
                     std::pair(b.caseIndex, b.run);
            });
  return record;
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
