// The benchmark suite of the runtime. Every figure is measured beside a
// baseline in the same run; the closing table pairs them. Flags are Google
// Benchmark's; docs/performance.md gives the command behind its figures.
#include <benchmark/benchmark.h>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "bench/benchmarks.hpp"
#include "bench/ratio_reporter.hpp"

namespace {

// glibc hands blocks of 128 KiB and more back to the system when they are
// freed, so every 1 MiB message would be copied into fresh pages; in a
// virtual machine a page fault costs tens of microseconds and would
// swamp the figures. A long-running game's heap keeps such memory, and so
// does the bench.
void keepFreedMemory() {
#if defined(__GLIBC__)
  constexpr int kKeepBelowBytes = 1 << 30;
  mallopt(M_MMAP_THRESHOLD, kKeepBelowBytes);
  mallopt(M_TRIM_THRESHOLD, kKeepBelowBytes);
#endif
}

}  // namespace

int main(int argc, char** argv) {
  keepFreedMemory();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

  using namespace tovrin::ai::bench;
  registerWatchdogBenchmarks();
  registerToolsBenchmarks();
  registerTransportBenchmarks();
  registerAskBenchmarks();
  registerLoopbackBenchmarks();
  registerServiceBenchmarks();

  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
