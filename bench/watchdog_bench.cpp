// validateAnswer beside the same checks written with std::regex, compiled
// once (the kindest baseline) and on every call; and the tool-value check on
// a 1 MiB answer against thousands of tool results.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

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

// The answer of a chatty model: 1 MiB of one sentence with two numbers.
const std::string& mebibyteAnswer() {
  static const std::string answer = [] {
    const std::string sentence = "Mam 10000 minci a 99999 jablek. ";
    std::string text;
    while (text.size() < (1u << 20)) text += sentence;
    return text;
  }();
  return answer;
}

// count tool results: numbers the answer lacks but that begin like its
// 10000, so a search for each keeps finding partial matches; from three
// results on, the answer's own two numbers come last. A single result is
// absent, so that search too reads the whole answer.
AiRequest requestWithToolResults(std::size_t count) {
  AiRequest request;
  request.message = "m";
  for (std::size_t i = 0; i < count; ++i) {
    request.toolResults.push_back(std::to_string(100000 + 7 * i));
  }
  if (count > 2) {
    request.toolResults[count - 2] = "10000";
    request.toolResults[count - 1] = "99999";
  }
  return request;
}

void checkToolValuesOnMebibyte(benchmark::State& state) {
  const AiRequest request =
      requestWithToolResults(static_cast<std::size_t>(state.range(0)));
  const std::string& answer = mebibyteAnswer();
  for (auto _ : state) {
    WatchdogVerdict verdict;
    checkToolValues(answer, request, verdict);
    benchmark::DoNotOptimize(verdict);
  }
  state.SetBytesProcessed(state.iterations() *
                          static_cast<std::int64_t>(answer.size()));
}

// The check as it was before the one-pass search: a search per result.
void searchEachToolValueOnMebibyte(benchmark::State& state) {
  const AiRequest request =
      requestWithToolResults(static_cast<std::size_t>(state.range(0)));
  const std::string& answer = mebibyteAnswer();
  for (auto _ : state) {
    std::size_t missing = 0;
    for (const std::string& value : request.toolResults) {
      missing += containsText(answer, value) ? 0 : 1;
    }
    benchmark::DoNotOptimize(missing);
  }
}

}  // namespace

void registerWatchdogBenchmarks() {
  benchmark::RegisterBenchmark("watchdog/toolValuesOneByOne/1MiB",
                               searchEachToolValueOnMebibyte)
      ->Arg(100)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("watchdog/toolValues/1MiB",
                               checkToolValuesOnMebibyte)
      ->Arg(1)
      ->Arg(400)
      ->Arg(4000)
      ->Unit(benchmark::kMillisecond);
  for (AnswerCase& each : answerCases()) {
    const Case answer = std::make_shared<const AnswerCase>(std::move(each));
    benchmark::RegisterBenchmark(
        ("watchdog/validateAnswer/" + answer->name).c_str(),
        [answer](benchmark::State& state) { validate(state, answer); });
    benchmark::RegisterBenchmark(("watchdog/regexOnce/" + answer->name).c_str(),
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
