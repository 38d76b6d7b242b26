// The console reporter plus, at the end of the run, the table of
// docs/performance.md: every figure with its baseline from the same run,
// the ratio of the two and whether the figure meets its target. With
// repetitions the medians are compared, otherwise the single runs. Times
// are processor time, except for the benchmarks measured in real time
// (those that wait on a socket).
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
    double seconds = 0;   // time per iteration
    double spread = -1;   // coefficient of variation of the repetitions
    std::map<std::string, double> counters;  // as reported, rates per second

    // The counter's value, or absent when the benchmark did not report it.
    double counter(const std::string& name, double absent) const;
  };

 private:
  // The median when there were repetitions, with their spread; otherwise
  // the single run; nullptr when the benchmark did not run.
  const Measurement* find(const std::string& name);

  std::map<std::string, Measurement> medians_;
  std::map<std::string, Measurement> singles_;
  std::map<std::string, double> spreads_;
};

}  // namespace tovrin::ai::bench

#endif  // TOVRIN_AI_BENCH_RATIO_REPORTER_HPP_
