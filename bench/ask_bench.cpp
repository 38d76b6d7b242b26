// A whole ask with the model replaced by an in-process scripted transport:
// everything the runtime does on its own, from the refusal tests to the
// verdict, once with the first answer accepted and once through the repair.
#include <string>
#include <string_view>

#include <benchmark/benchmark.h>

#include "bench/alloc_counter.hpp"
#include "bench/bench_inputs.hpp"
#include "bench/benchmarks.hpp"
#include "tovrin/ai.hpp"

namespace tovrin::ai::bench {

namespace {

// Answers from fixed texts; with repair it rejects until it sees the repair
// prompt. Keeps no state, so it costs only the copy of the answer.
AiTransport scriptedModel(bool repair) {
  return [repair](const AiRuntimeConfig&, const std::string&,
                  const std::string&, const std::string&,
                  const std::string& userPrompt, std::size_t) {
    if (repair && !std::string_view(userPrompt).ends_with(kRepairPromptEnding)) {
      return std::string(kRejectedAnswer);
    }
    return std::string(kAcceptedAnswer);
  };
}

void askScripted(benchmark::State& state, bool repair) {
  AiRuntimeConfig config;
  config.helperPath.clear();
  AiRuntime runtime(std::move(config), scriptedModel(repair));
  runtime.helperText = helperText4KiB();
  const AiRequest request = typicalRequest();

  const AiResponse check = runtime.ask(request);
  if (!check.ok || check.answer != kAcceptedAnswer ||
      check.attempts != (repair ? 2u : 1u)) {
    state.SkipWithError("the scripted ask did not take the intended path");
    return;
  }
  const std::uint64_t before = allocationsOnThisThread();
  for (auto _ : state) benchmark::DoNotOptimize(runtime.ask(request));
  reportAllocations(state, before);
}

}  // namespace

void registerAskBenchmarks() {
  // Processor time, as the loopback exchange it is compared with
  // (loopback/bareClientCpu).
  benchmark::RegisterBenchmark(
      "ask/scripted/accepted",
      [](benchmark::State& state) { askScripted(state, false); });
  benchmark::RegisterBenchmark(
      "ask/scripted/repair",
      [](benchmark::State& state) { askScripted(state, true); });
}

}  // namespace tovrin::ai::bench
