// The console reporter plus, at the end of the run, the table of
// docs/performance.md: every figure with its baseline from the same run,
// the ratio of the two and whether the figure meets its target. With
// repetitions the medians are compared, otherwise the single runs.
#ifndef TOVRIN_AI_BENCH_RATIO_REPORTER_HPP_
#define TOVRIN_AI_BENCH_RATIO_REPORTER_HPP_

#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace tovrin::ai::bench {

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  RatioReporter();

  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

  // What one benchmark measured.
  struct Measurement {
    double seconds = 0;         // real time per iteration
    double bytesPerSecond = 0;  // 0 when not reported
    double itemsPerSecond = 0;  // 0 when not reported
    double allocations = -1;    // per iteration; -1 when not counted
  };

 private:
  const Measurement* find(const std::string& name) const;

  std::map<std::string, Measurement> medians_;
  std::map<std::string, Measurement> singles_;
};

}  // namespace tovrin::ai::bench

#endif  // TOVRIN_AI_BENCH_RATIO_REPORTER_HPP_
