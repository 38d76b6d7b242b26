// The benchmark groups, registered by main in this order. Names are
// "<group>/<what>/<case>"; a baseline measured beside a figure carries the
// figure's case, so the two can be paired by name.
#ifndef TOVRIN_AI_BENCH_BENCHMARKS_HPP_
#define TOVRIN_AI_BENCH_BENCHMARKS_HPP_

#include <string>
#include <string_view>

namespace tovrin::ai::bench {

void registerWatchdogBenchmarks();   // watchdog/...
void registerToolsBenchmarks();      // tools/...
void registerTransportBenchmarks();  // prompt/..., transport/..., copy/...
void registerAskBenchmarks();        // ask/...
void registerLoopbackBenchmarks();   // loopback/...
void registerServiceBenchmarks();    // service/...

// Registers "copy/<name>": one std::string copy of text per iteration, the
// floor for any function that produces or reads that many bytes.
void registerCopyBaseline(const std::string& name, std::string text);

}  // namespace tovrin::ai::bench

#endif  // TOVRIN_AI_BENCH_BENCHMARKS_HPP_
