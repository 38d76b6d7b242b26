// Submit plus poll through the C interface beside the same calls in C++,
// in one run: iterations of the two ways alternate one by one, each timed.
// Prints the median and the 99th percentile of each way and the ratio of
// the medians. bench/CapiMeasure.cs does the same with C# beside them.
//
//   tovrin_ai_capi_measure [iterations per way, default 200000]
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench/capi_measure.h"

namespace {

double percentile(std::vector<double> samples, double fraction) {
  std::sort(samples.begin(), samples.end());
  const auto at = static_cast<std::size_t>(fraction * static_cast<double>(samples.size()));
  return samples[std::min(at, samples.size() - 1)];
}

}  // namespace

int main(int argc, char** argv) {
  const int iterations = argc > 1 ? std::atoi(argv[1]) : 200000;
  if (iterations < 1 || tovrin_measure_start() != 0) return 1;
  std::vector<double> cpp, c;
  for (int i = 0; i < iterations; ++i) {
    // Each way first in turn, so that neither always meets a warm cache.
    for (const int way : {i % 2, 1 - i % 2}) {
      (way == TOVRIN_MEASURE_C ? c : cpp).push_back(tovrin_measure_once(way));
    }
  }
  tovrin_measure_stop();
  const double cppMedian = percentile(cpp, 0.5);
  std::printf("%-4s %10s %8s %10s\n", "way", "median_us", "p99_us", "per_c++");
  std::printf("%-4s %10.3f %8.3f %10.2f\n", "C++", cppMedian, percentile(cpp, 0.99), 1.0);
  std::printf("%-4s %10.3f %8.3f %10.2f\n", "C", percentile(c, 0.5), percentile(c, 0.99),
              percentile(c, 0.5) / cppMedian);
  return 0;
}
