#include "bench/ratio_reporter.hpp"

#include <cstdio>
#include <ostream>
#include <string_view>
#include <utility>

namespace tovrin::ai::bench {

namespace {

enum class Goal {
  kNone,           // the ratio is shown, no target
  kAtMostSeconds,  // the figure's time is at most limit
  kAtLeastBytes,   // the figure's bytes per second are at least limit
  kAtMostRatio,    // figure time / baseline time is at most limit
  kPerByteRatio,   // (figure time / baseline time) / scale is at most limit
  kAtLeastItems,   // figure items/s / baseline items/s is at least limit
  kPairedRatio,    // the figure's own "ask_per_bare" counter is at most limit
};

struct Comparison {
  std::string_view figure;
  std::string_view baseline;
  Goal goal;
  double limit;
  double scale;
  std::string_view target;  // as the page states it
};

constexpr std::string_view kBare = "loopback/bareClient/real_time";
constexpr std::string_view kBareCpu = "loopback/bareClientCpu";
constexpr std::string_view kHeld = "loopback/askHeld20ms/real_time/threads:";

// The rows of docs/performance.md, in its order.
constexpr Comparison kComparisons[] = {
    {"watchdog/validateAnswer/50B", "watchdog/regexOnce/50B",
     Goal::kAtMostSeconds, 1e-6, 1, "<= 1 us"},
    {"watchdog/validateAnswer/300B", "watchdog/regexOnce/300B",
     Goal::kAtMostSeconds, 1e-6, 1, "<= 1 us"},
    {"watchdog/validateAnswer/420B", "watchdog/regexOnce/420B",
     Goal::kAtMostSeconds, 1e-6, 1, "<= 1 us"},
    {"watchdog/validateAnswer/dense300B", "watchdog/regexOnce/dense300B",
     Goal::kAtMostSeconds, 1e-6, 1, "<= 1 us"},
    {"watchdog/validateAnswer/dense300B", "watchdog/regexOnce/dense300B",
     Goal::kAtMostRatio, 0.1, 1, "<= 0.1x regex"},
    {"watchdog/validateAnswer/50B", "watchdog/regexPerCall/50B", Goal::kNone,
     0, 1, ""},
    {"watchdog/validateAnswer/300B", "watchdog/regexPerCall/300B",
     Goal::kNone, 0, 1, ""},
    {"watchdog/validateAnswer/420B", "watchdog/regexPerCall/420B",
     Goal::kNone, 0, 1, ""},
    {"watchdog/toolValues/1MiB/4000", "watchdog/toolValues/1MiB/400",
     Goal::kAtMostRatio, 2, 1, "linear: <= 2x 400 results"},
    {"watchdog/toolValues/1MiB/4000", "watchdog/toolValues/1MiB/1",
     Goal::kNone, 0, 1, ""},
    {"watchdog/toolValuesOneByOne/1MiB/100", "watchdog/toolValues/1MiB/1",
     Goal::kNone, 0, 1, ""},
    {"tools/applyToolFacts/arithmetic", "tools/copyRequest/arithmetic",
     Goal::kAtMostSeconds, 1e-6, 1, "<= 1 us"},
    {"tools/applyToolFacts/bread", "tools/copyRequest/bread",
     Goal::kAtMostSeconds, 1e-6, 1, "<= 1 us"},
    {"tools/applyToolFacts/apples", "tools/copyRequest/apples",
     Goal::kAtMostSeconds, 1e-6, 1, "<= 1 us"},
    {"tools/applyToolFacts/none", "tools/copyRequest/none",
     Goal::kAtMostSeconds, 1e-6, 1, "<= 1 us"},
    {"tools/applyToolFacts/long/1024", "tools/copyRequest/long/1024",
     Goal::kNone, 0, 1, ""},
    {"tools/applyToolFacts/long/65536", "tools/copyRequest/long/65536",
     Goal::kNone, 0, 1, ""},
    {"tools/applyToolFacts/long/1048576", "tools/copyRequest/long/1048576",
     Goal::kNone, 0, 1, ""},
    {"tools/applyToolFacts/long/65536", "tools/applyToolFacts/long/1024",
     Goal::kPerByteRatio, 2, 64, "linear: per byte <= 2x 1 KiB"},
    {"tools/applyToolFacts/long/1048576", "tools/applyToolFacts/long/1024",
     Goal::kPerByteRatio, 2, 1024, "linear: per byte <= 2x 1 KiB"},
    {"prompt/buildSystemPrompt/4KiB", "copy/buildSystemPrompt/4KiB",
     Goal::kNone, 0, 1, ""},
    {"prompt/buildUserPrompt/first", "copy/buildUserPrompt/first",
     Goal::kNone, 0, 1, ""},
    {"prompt/buildUserPrompt/repair", "copy/buildUserPrompt/repair",
     Goal::kNone, 0, 1, ""},
    {"transport/buildCompletionBody/4KiB", "copy/buildCompletionBody/4KiB",
     Goal::kNone, 0, 1, ""},
    {"transport/buildHttpRequest/4KiB", "copy/buildHttpRequest/4KiB",
     Goal::kNone, 0, 1, ""},
    {"transport/jsonEscape/4KiB", "copy/jsonEscape/4KiB",
     Goal::kAtLeastBytes, 1e9, 1, ">= 1 GB/s"},
    {"transport/extractMessageContent/typical",
     "copy/extractMessageContent/typical", Goal::kAtLeastBytes, 1e9, 1,
     ">= 1 GB/s"},
    {"transport/extractMessageContent/4KiB",
     "copy/extractMessageContent/4KiB", Goal::kAtLeastBytes, 1e9, 1,
     ">= 1 GB/s"},
    {"ask/scripted/accepted", kBareCpu, Goal::kAtMostSeconds, 5e-6, 1,
     "<= 5 us"},
    {"ask/scripted/repair", kBareCpu, Goal::kAtMostSeconds, 5e-6, 1,
     "<= 5 us"},
    {"loopback/paired/real_time", "loopback/paired/real_time",
     Goal::kPairedRatio, 1.25, 1, "<= 1.25x bare client"},
    {"loopback/ask/real_time", kBare, Goal::kNone, 0, 1, ""},
    {"loopback/askAtOnce/real_time/threads:1",
     "loopback/bareAtOnce/real_time/threads:1", Goal::kNone, 0, 1, ""},
    {"loopback/askAtOnce/real_time/threads:2",
     "loopback/bareAtOnce/real_time/threads:2", Goal::kNone, 0, 1, ""},
    {"loopback/askAtOnce/real_time/threads:4",
     "loopback/bareAtOnce/real_time/threads:4", Goal::kNone, 0, 1, ""},
    {"loopback/askAtOnce/real_time/threads:8",
     "loopback/bareAtOnce/real_time/threads:8", Goal::kNone, 0, 1, ""},
    {"loopback/askHeld20ms/real_time/threads:2",
     "loopback/askHeld20ms/real_time/threads:1", Goal::kAtLeastItems, 1.5, 1,
     ">= 1.5x 1 thread"},
    {"loopback/askHeld20ms/real_time/threads:4",
     "loopback/askHeld20ms/real_time/threads:1", Goal::kAtLeastItems, 3, 1,
     ">= 3x 1 thread"},
    {"loopback/askHeld20ms/real_time/threads:8",
     "loopback/askHeld20ms/real_time/threads:1", Goal::kAtLeastItems, 6, 1,
     ">= 6x 1 thread"},
};

std::string format(const char* pattern, double value) {
  char text[64];
  std::snprintf(text, sizeof text, pattern, value);
  return text;
}

std::string describeTime(double seconds) {
  if (seconds < 1e-6) return format("%.0f ns", seconds * 1e9);
  if (seconds < 1e-3) return format("%.2f us", seconds * 1e6);
  return format("%.2f ms", seconds * 1e3);
}

// Time, and the rates and counts that were reported.
std::string describe(const RatioReporter::Measurement& m) {
  std::string text = describeTime(m.seconds);
  if (m.spread >= 0) text += format(" (cv %.0f%%)", m.spread * 100);
  if (const double bytes = m.counter("bytes_per_second", 0); bytes > 0) {
    text += format(", %.2f GB/s", bytes / 1e9);
  }
  if (const double items = m.counter("items_per_second", 0); items > 0) {
    text += format(", %.1f asks/s", items);
  }
  if (const double ask = m.counter("ask_us", 0); ask > 0) {
    text += format(", ask %.2f us", ask);
  }
  if (const double bare = m.counter("bare_us", 0); bare > 0) {
    text += format(", bare %.2f us", bare);
  }
  if (const double allocs = m.counter("allocs", -1); allocs >= 0) {
    text += format(", %.1f allocs", allocs);
  }
  return text;
}

double ratioOf(const Comparison& row, const RatioReporter::Measurement& figure,
               const RatioReporter::Measurement& baseline) {
  switch (row.goal) {
    case Goal::kAtLeastItems:
      return figure.counter("items_per_second", 0) /
             baseline.counter("items_per_second", 1);
    case Goal::kPairedRatio:
      return figure.counter("ask_per_bare", 0);
    default:
      return figure.seconds / baseline.seconds / row.scale;
  }
}

bool met(const Comparison& row, const RatioReporter::Measurement& figure,
         double ratio) {
  switch (row.goal) {
    case Goal::kNone:
      return true;
    case Goal::kAtMostSeconds:
      return figure.seconds <= row.limit;
    case Goal::kAtLeastBytes:
      return figure.counter("bytes_per_second", 0) >= row.limit;
    case Goal::kAtMostRatio:
    case Goal::kPerByteRatio:
    case Goal::kPairedRatio:
      return ratio <= row.limit;
    case Goal::kAtLeastItems:
      return ratio >= row.limit;
  }
  return false;
}

}  // namespace

RatioReporter::RatioReporter() : ConsoleReporter(OO_Tabular) {}

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
  ConsoleReporter::ReportRuns(runs);
  for (const Run& run : runs) {
    if (run.error_occurred) continue;
    // Wall time where the figure waits on a socket, processor time where
    // it computes: on a shared machine that is the runtime's own cost.
    const bool wall = run.run_name.time_type == "real_time";
    const bool aggregate = run.run_type == Run::RT_Aggregate;
    if (aggregate && run.aggregate_name == "cv") {
      spreads_[run.run_name.str()] =
          wall ? run.real_accumulated_time : run.cpu_accumulated_time;
      continue;
    }
    const bool median = aggregate && run.aggregate_name == "median";
    if (aggregate && !median) continue;
    Measurement m;
    m.seconds = (wall ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime()) /
                benchmark::GetTimeUnitMultiplier(run.time_unit);
    for (const auto& [name, value] : run.counters) {
      m.counters[name] = value.value;
    }
    (median ? medians_ : singles_)[run.run_name.str()] = std::move(m);
  }
}

double RatioReporter::Measurement::counter(const std::string& name,
                                           double absent) const {
  const auto found = counters.find(name);
  return found == counters.end() ? absent : found->second;
}

const RatioReporter::Measurement* RatioReporter::find(
    const std::string& name) {
  if (auto it = medians_.find(name); it != medians_.end()) {
    if (auto spread = spreads_.find(name); spread != spreads_.end()) {
      it->second.spread = spread->second;
    }
    return &it->second;
  }
  if (auto it = singles_.find(name); it != singles_.end()) return &it->second;
  return nullptr;
}

void RatioReporter::Finalize() {
  ConsoleReporter::Finalize();
  std::ostream& out = GetOutputStream();
  out << "\n| Figure | Measured | Baseline | Baseline measured | Ratio | "
         "Target | Met |\n|---|---|---|---|---|---|---|\n";
  for (const Comparison& row : kComparisons) {
    const Measurement* figure = find(std::string(row.figure));
    const Measurement* baseline = find(std::string(row.baseline));
    if (figure == nullptr || baseline == nullptr) continue;
    const double ratio = ratioOf(row, *figure, *baseline);
    out << "| " << row.figure << " | " << describe(*figure) << " | "
        << row.baseline << " | " << describe(*baseline) << " | "
        << format("%.3g", ratio) << " | "
        << (row.target.empty() ? "-" : row.target) << " | "
        << (row.goal == Goal::kNone ? "-" : met(row, *figure, ratio) ? "yes"
                                                                     : "NO")
        << " |\n";
  }
  out.flush();
}

}  // namespace tovrin::ai::bench
