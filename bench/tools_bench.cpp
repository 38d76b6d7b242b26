// applyToolFacts on typical messages and on long ones, each beside a plain
// copy of the same request (applyToolFacts takes its request by value, so
// the copy that ask makes is inside both figures).
#include <cstddef>
#include <cstdint>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/alloc_counter.hpp"
#include "bench/bench_inputs.hpp"
#include "bench/benchmarks.hpp"
#include "tovrin/ai.hpp"

namespace tovrin::ai::bench {

namespace {

constexpr std::int64_t kLongMessageBytes[] = {1 << 10, 1 << 16, 1 << 20};

AiRequest requestWith(std::string message) {
  AiRequest request = typicalRequest();
  request.message = std::move(message);
  return request;
}

void applyFacts(benchmark::State& state, const AiRequest& request) {
  const std::uint64_t before = allocationsOnThisThread();
  for (auto _ : state) {
    AiRequest enriched = applyToolFacts(request);
    benchmark::DoNotOptimize(enriched);
  }
  reportAllocations(state, before);
  state.SetBytesProcessed(state.iterations() *
                          static_cast<std::int64_t>(request.message.size()));
}

void copyRequest(benchmark::State& state, const AiRequest& request) {
  const std::uint64_t before = allocationsOnThisThread();
  for (auto _ : state) {
    AiRequest copy = request;
    benchmark::DoNotOptimize(copy);
  }
  reportAllocations(state, before);
  state.SetBytesProcessed(state.iterations() *
                          static_cast<std::int64_t>(request.message.size()));
}

void applyFactsLong(benchmark::State& state) {
  applyFacts(state, requestWith(longMessage(
                        static_cast<std::size_t>(state.range(0)))));
}

void copyRequestLong(benchmark::State& state) {
  copyRequest(state, requestWith(longMessage(
                         static_cast<std::size_t>(state.range(0)))));
}

}  // namespace

void registerToolsBenchmarks() {
  for (const MessageCase& each : typicalMessages()) {
    const AiRequest request = requestWith(each.message);
    benchmark::RegisterBenchmark(
        ("tools/applyToolFacts/" + each.name).c_str(),
        [request](benchmark::State& state) { applyFacts(state, request); });
    benchmark::RegisterBenchmark(
        ("tools/copyRequest/" + each.name).c_str(),
        [request](benchmark::State& state) { copyRequest(state, request); });
  }
  auto* facts =
      benchmark::RegisterBenchmark("tools/applyToolFacts/long", applyFactsLong);
  auto* copy =
      benchmark::RegisterBenchmark("tools/copyRequest/long", copyRequestLong);
  for (const std::int64_t bytes : kLongMessageBytes) {
    facts->Arg(bytes);
    copy->Arg(bytes);
  }
}

}  // namespace tovrin::ai::bench
