// Heap allocations made on the calling thread, counted by the bench
// binary's own operator new, so that a benchmark can show how many
// allocations one call of a hot path costs.
#ifndef TOVRIN_AI_BENCH_ALLOC_COUNTER_HPP_
#define TOVRIN_AI_BENCH_ALLOC_COUNTER_HPP_

#include <cstdint>

#include <benchmark/benchmark.h>

namespace tovrin::ai::bench {

// Allocations made so far on this thread.
std::uint64_t allocationsOnThisThread();

// Sets the counter "allocs" to the allocations per iteration made on this
// thread since before (a value of allocationsOnThisThread()).
void reportAllocations(benchmark::State& state, std::uint64_t before);

}  // namespace tovrin::ai::bench

#endif  // TOVRIN_AI_BENCH_ALLOC_COUNTER_HPP_
