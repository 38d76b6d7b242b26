#include "bench/alloc_counter.hpp"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

// Constant-initialised, so counting works from the first allocation of a
// thread on.
thread_local std::uint64_t allocations = 0;

}  // namespace

// The replaceable forms that std::allocator and new-expressions reach; the
// nothrow and array forms of the standard library forward to these.
void* operator new(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

void* operator new[](std::size_t size) { return ::operator new(size); }

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete[](void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace tovrin::ai::bench {

std::uint64_t allocationsOnThisThread() { return allocations; }

void reportAllocations(benchmark::State& state, std::uint64_t before) {
  state.counters["allocs"] = benchmark::Counter(
      static_cast<double>(allocations - before),
      benchmark::Counter::kAvgIterations);
}

}  // namespace tovrin::ai::bench
