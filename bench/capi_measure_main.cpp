// Submit plus poll through the C interface beside the same calls in C++,
// in one run: iterations of the two ways alternate one by one, each timed,
// once for the submit and the poll alone and once with the building of the
// request. Prints the 25th, 50th and 99th percentile of each and the ratio
// of its median to C++'s. bench/CapiMeasure.cs does the same with C# beside them.
//
//   tovrin_ai_capi_measure [iterations per way, default 100000]
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
  const int iterations = argc > 1 ? std::atoi(argv[1]) : 100000;
  if (iterations < 1 || tovrin_measure_start() != 0) return 1;
  // Per way: submit and poll alone, and with the request's building.
  std::vector<double> samples[2][2];
  for (int i = 0; i < iterations; ++i) {
    // Each way first in turn, so that neither always meets a warm cache.
    for (const int way : {i % 2, 1 - i % 2}) {
      double built = 0;
      samples[way][0].push_back(tovrin_measure_once(way, &built));
      samples[way][1].push_back(built);
    }
  }
  tovrin_measure_stop();
  std::printf("%-4s %-26s %8s %10s %8s %10s\n", "way", "timed", "p25_us", "median_us", "p99_us", "per_c++");
  for (const int part : {0, 1}) {
    const double cppMedian = percentile(samples[TOVRIN_MEASURE_CPP][part], 0.5);
    for (const int way : {TOVRIN_MEASURE_CPP, TOVRIN_MEASURE_C}) {
      const std::vector<double>& s = samples[way][part];
      std::printf("%-4s %-26s %8.3f %10.3f %8.3f %10.2f\n", way == TOVRIN_MEASURE_C ? "C" : "C++",
                  part == 0 ? "submit+poll" : "build+submit+poll", percentile(s, 0.25),
                  percentile(s, 0.5), percentile(s, 0.99), percentile(s, 0.5) / cppMedian);
    }
  }
  return 0;
}
