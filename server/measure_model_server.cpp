// Measures the model-server layer with the stand-in server, each figure
// beside a baseline taken in the same run:
//
//   ready noticed   the stand-in starts answering 200 on /health -> the
//                   status reads ready          (baseline: one health GET)
//   death noticed   the stand-in exits -> the status says so
//                                    (baseline: waiting for a killed child)
//   destruction     of the layer, the server ignoring the polite stop
//                                    (baseline: the grace itself)
//
//   tovrin-ai-measure-server [--runs N] [--destruction-runs N] [--grace-ms N]
//
// The stand-in prints when it becomes ready and when it exits on the steady
// clock, which every process on the machine shares.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "server/process_platform.hpp"
#include "server/readiness_probe.hpp"
#include "tovrin/ai/model_server.hpp"

namespace {

using namespace tovrin::ai;
using Clock = std::chrono::steady_clock;
using Micros = std::vector<double>;

double microsBetween(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double, std::micro>(to - from).count();
}

// The steady-clock time the stand-in printed after marker.
Clock::time_point printedTime(const AiServerStatus& status, const std::string& marker) {
  for (const std::string& line : status.lastLogLines) {
    if (line.starts_with(marker)) return Clock::time_point(std::chrono::nanoseconds(std::stoll(line.substr(marker.size()))));
  }
  return {};
}

AiServerStatus waitFor(const AiModelServer& server, AiServerState state) {
  const Clock::time_point end = Clock::now() + std::chrono::seconds(20);
  AiServerStatus status = server.status();
  while (status.state != state && Clock::now() < end) status = server.status();
  return status;
}

AiModelServerOptions standIn(std::vector<std::string> flags) {
  AiModelServerOptions options;
  options.program = TOVRIN_AI_STAND_IN;
  options.arguments = {"--port", "{port}"};
  options.arguments.insert(options.arguments.end(), flags.begin(), flags.end());
  options.restartPause = std::chrono::seconds(10);  // no restart while measured
  return options;
}

// One health GET against a stand-in that is ready, and the two events.
// The loading time varies by run, so that the moment the stand-in gets
// ready falls anywhere between two probes.
void measureNotice(int run, Micros& ready, Micros& death, Micros& healthGet) {
  const int loadingMs = 300 + run * 37 % 100;
  AiModelServer server(standIn({"--ready-after-ms", std::to_string(loadingMs), "--exit-after-ms", "800"}));
  const AiServerStatus readyStatus = waitFor(server, AiServerState::kReady);
  ready.push_back(microsBetween(printedTime(readyStatus, "stand-in: ready at "), readyStatus.since));
  const detail::WakeSignal wake;
  const Clock::time_point start = Clock::now();
  detail::probeReadiness(server.port(), "/health", std::chrono::seconds(2), wake);
  healthGet.push_back(microsBetween(start, Clock::now()));
  const AiServerStatus restarting = waitFor(server, AiServerState::kRestarting);
  death.push_back(microsBetween(printedTime(restarting, "stand-in: exiting at "), restarting.since));
}

// A started child killed and waited for, as bare as it gets.
double measureBareReap() {
  detail::ChildProcess child;
  detail::spawnProcess({TOVRIN_AI_STAND_IN, {"--port", "0"}, {}}, child);
  char buffer[4096];
  std::string said;
  const Clock::time_point end = Clock::now() + std::chrono::seconds(10);
  while (said.find("listening") == std::string::npos && Clock::now() < end) {
    const std::ptrdiff_t n = detail::readOutput(child, buffer, sizeof buffer, 100);
    if (n < 0) break;
    said.append(buffer, static_cast<std::size_t>(n));
  }
  const Clock::time_point start = Clock::now();
  detail::killTree(child);
  detail::waitForExit(child, 5000);
  return microsBetween(start, Clock::now());
}

double measureDestruction(std::chrono::milliseconds grace) {
  AiModelServerOptions options = standIn({"--ignore-stop"});
  options.stopGrace = grace;
  auto server = std::make_unique<AiModelServer>(options);
  waitFor(*server, AiServerState::kReady);
  const Clock::time_point start = Clock::now();
  server.reset();
  return microsBetween(start, Clock::now());
}

std::string figure(Micros values) {
  if (values.empty()) return "-";
  std::sort(values.begin(), values.end());
  const auto at = [&](double share) { return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))]; };
  char text[128];
  std::snprintf(text, sizeof text, "median %.2f ms, p90 %.2f ms, max %.2f ms", at(0.5) / 1000, at(0.9) / 1000,
                values.back() / 1000);
  return text;
}

void row(const char* name, const Micros& values, const char* baselineName, const Micros& baseline, double goalMs) {
  const bool met = !values.empty() && *std::max_element(values.begin(), values.end()) <= goalMs * 1000;
  std::printf("| %s | %s | %s | %s | <= %.0f ms | %s |\n", name, figure(values).c_str(), baselineName,
              figure(baseline).c_str(), goalMs, met ? "yes" : "no");
}

}  // namespace

int main(int argc, char** argv) {
  int runs = 20, destructionRuns = 5, graceMs = 2000;
  for (int i = 1; i + 1 < argc; i += 2) {
    const int value = std::atoi(argv[i + 1]);
    if (std::strcmp(argv[i], "--runs") == 0) runs = value;
    if (std::strcmp(argv[i], "--destruction-runs") == 0) destructionRuns = value;
    if (std::strcmp(argv[i], "--grace-ms") == 0) graceMs = value;
  }
  Micros ready, death, healthGet, reap, destruction, grace;
  for (int run = 0; run < runs; ++run) {
    measureNotice(run, ready, death, healthGet);
    reap.push_back(measureBareReap());
  }
  for (int run = 0; run < destructionRuns; ++run) {
    destruction.push_back(measureDestruction(std::chrono::milliseconds(graceMs)));
    grace.push_back(graceMs * 1000.0);
  }
  std::printf("%d runs, %d destruction runs, grace %d ms\n\n", runs, destructionRuns, graceMs);
  std::printf("| Figure | Measured | Baseline | Baseline measured | Goal | Met |\n|---|---|---|---|---|---|\n");
  row("server/readyNoticed", ready, "server/healthGet", healthGet, 50);
  row("server/deathNoticed", death, "server/bareKillAndReap", reap, 100);
  row("server/destructionIgnoringStop", destruction, "server/grace", grace, graceMs + 100.0);
  return 0;
}
