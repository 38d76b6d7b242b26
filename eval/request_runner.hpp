// Runs the cases: through a runtime against a model server, or replayed
// against the watchdog alone.
#ifndef TOVRIN_AI_EVAL_REQUEST_RUNNER_HPP_
#define TOVRIN_AI_EVAL_REQUEST_RUNNER_HPP_

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <stop_token>
#include <vector>

#include "eval_records.hpp"
#include "options.hpp"

namespace tovrin::ai::eval {

// The runtime configuration the options ask for (watchdog and repair on).
AiRuntimeConfig runtimeConfig(const EvalOptions& options);

// Told how many runs have ended out of how many; called on the thread that
// called runCases, after every run and a few times a second in between.
using ProgressCallback =
    std::function<void(std::size_t done, std::size_t total)>;

// What bounds a model run.
struct RunLimits {
  std::size_t concurrency = 1;          // requests at once
  std::chrono::milliseconds deadline{}; // per request, all its calls
  std::size_t stopAfter = 0;  // stop once this many in a row timed out; 0 never
  // Set: the service waits before each call for a model server the tool
  // started (AiServiceOptions::waitForModel).
  std::function<void(std::stop_token)> waitForModel;
};

struct RunRecord {
  std::vector<EvalResult> results;  // the runs that finished
  RunStatus status;
};

// Sends every case repeat times through an AiService built from config,
// with the service's own HTTP transport, whose waits its deadline
// interrupts. Runs stream through it: at most limits.concurrency are
// submitted at a time, so memory follows the concurrency, not the number
// of runs. Each run's calls, failures and verdicts come from the service's
// trace. Once interrupted becomes true, or limits.stopAfter requests in a
// row have timed out, the requests in flight are ended and left out, and
// the record says why. A server's error body comes from the trace too.
// Results come in case order, runs of one case
// together, whatever finished first. An exception that escapes the runtime
// stops the runs and is rethrown as std::runtime_error with its message.
RunRecord runCases(AiRuntimeConfig config, const std::vector<EvalCase>& cases,
                   std::size_t repeat, const RunLimits& limits,
                   const std::atomic<bool>& interrupted,
                   const ProgressCallback& progress);

// Judges the stored answer of every case that has one, as the runtime judges
// a model answer: validateAnswer on the request after applyToolFacts. A
// passing answer counts as accepted from the model. Cases without an answer
// are left out.
std::vector<EvalResult> replayCases(const std::vector<EvalCase>& cases);

// How a response ended for the game; failedCalls decides between a
// rejection and a transport failure when nothing was accepted.
Outcome classify(const AiResponse& response, std::size_t failedCalls);

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_REQUEST_RUNNER_HPP_
