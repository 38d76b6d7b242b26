// The benchmark suite of the runtime. Every figure is measured beside a
// baseline in the same run; the closing table pairs them. Flags are Google
// Benchmark's; docs/performance.md gives the command behind its figures.
#include <benchmark/benchmark.h>

#include "bench/benchmarks.hpp"
#include "bench/ratio_reporter.hpp"

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

  using namespace tovrin::ai::bench;
  registerWatchdogBenchmarks();
  registerToolsBenchmarks();
  registerTransportBenchmarks();
  registerAskBenchmarks();
  registerLoopbackBenchmarks();

  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
