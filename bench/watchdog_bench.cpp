// validateAnswer beside the same checks written with std::regex, compiled
// once (the kindest baseline) and on every call.
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/alloc_counter.hpp"
#include "bench/bench_inputs.hpp"
#include "bench/benchmarks.hpp"
#include "bench/regex_validator.hpp"
#include "tovrin/ai.hpp"

namespace tovrin::ai::bench {

namespace {

using Case = std::shared_ptr<const AnswerCase>;

// Both implementations must give the expected verdict, or the comparison
// means nothing.
bool verdictsAgree(benchmark::State& state, const AnswerCase& answer) {
  const WatchdogVerdict own = validateAnswer(answer.answer, answer.request);
  const WatchdogVerdict regex = validateAnswerWithRegex(
      answer.answer, answer.request, compileWatchdogPatterns());
  if (own.reasons != answer.expectedReasons ||
      regex.reasons != answer.expectedReasons) {
    state.SkipWithError("verdict differs from the expected one");
    return false;
  }
  return true;
}

void validate(benchmark::State& state, const Case& answer) {
  if (!verdictsAgree(state, *answer)) return;
  const std::uint64_t before = allocationsOnThisThread();
  for (auto _ : state) {
    benchmark::DoNotOptimize(validateAnswer(answer->answer, answer->request));
  }
  reportAllocations(state, before);
  state.SetBytesProcessed(state.iterations() *
                          static_cast<std::int64_t>(answer->answer.size()));
}

void validateWithRegexOnce(benchmark::State& state, const Case& answer) {
  if (!verdictsAgree(state, *answer)) return;
  const WatchdogPatterns patterns = compileWatchdogPatterns();
  const std::uint64_t before = allocationsOnThisThread();
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        validateAnswerWithRegex(answer->answer, answer->request, patterns));
  }
  reportAllocations(state, before);
}

void validateWithRegexPerCall(benchmark::State& state, const Case& answer) {
  if (!verdictsAgree(state, *answer)) return;
  const std::uint64_t before = allocationsOnThisThread();
  for (auto _ : state) {
    benchmark::DoNotOptimize(validateAnswerWithRegex(
        answer->answer, answer->request, compileWatchdogPatterns()));
  }
  reportAllocations(state, before);
}

}  // namespace

void registerWatchdogBenchmarks() {
  for (AnswerCase& each : answerCases()) {
    const Case answer = std::make_shared<const AnswerCase>(std::move(each));
    benchmark::RegisterBenchmark(
        ("watchdog/validateAnswer/" + answer->name).c_str(),
        [answer](benchmark::State& state) { validate(state, answer); });
    benchmark::RegisterBenchmark(
        ("watchdog/regexOnce/" + answer->name).c_str(),
        [answer](benchmark::State& state) {
          validateWithRegexOnce(state, answer);
        });
    benchmark::RegisterBenchmark(
        ("watchdog/regexPerCall/" + answer->name).c_str(),
        [answer](benchmark::State& state) {
          validateWithRegexPerCall(state, answer);
        });
  }
}

}  // namespace tovrin::ai::bench
