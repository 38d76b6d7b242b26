// What the game's thread pays for the service: one submit plus one poll,
// timed one by one for the median and the 99.9th percentile, beside the
// least a hand-over between threads costs (a mutex-protected std::deque
// push and pop of a std::function) timed in the same loop. Once with idle
// workers and requests the runtime refuses at once, once while 8 workers
// run requests against a loopback server.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/bench_inputs.hpp"
#include "bench/bench_server.hpp"
#include "bench/benchmarks.hpp"
#include "tovrin/ai/service.hpp"

namespace tovrin::ai::bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kWorkers = 8;
constexpr std::chrono::milliseconds kServerHold{2};

double micros(Clock::duration d) {
  return std::chrono::duration<double, std::micro>(d).count();
}

double percentile(std::vector<double>& samples, double fraction) {
  std::sort(samples.begin(), samples.end());
  const auto at = static_cast<std::size_t>(fraction * samples.size());
  return samples[std::min(at, samples.size() - 1)];
}

// The baseline's hand-over: what any queue between two threads does.
struct HandOver {
  std::mutex mutex;
  std::deque<std::function<void()>> queue;

  void once(int& sink) {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      queue.emplace_back([&sink] { ++sink; });
    }
    std::function<void()> task;
    {
      const std::lock_guard<std::mutex> lock(mutex);
      task = std::move(queue.front());
      queue.pop_front();
    }
    task();
  }
};

void submitAndPoll(benchmark::State& state, bool loaded) {
  AiRuntimeConfig config;
  config.helperPath.clear();
  AiRequest request;  // empty: refused by ask at once
  std::unique_ptr<BenchServer> server;
  if (loaded) {
    server = std::make_unique<BenchServer>(
        httpResponse(completionBody(kAcceptedAnswer)), kServerHold, kWorkers);
    config.endpoint = server->endpoint();
    request = typicalRequest();
  }
  AiServiceOptions options;
  options.workers = kWorkers;
  options.queueLimit = 4 * kWorkers;
  AiService service(config, options);
  HandOver handOver;
  int sink = 0;
  std::vector<AiCompletion> done;
  std::vector<double> figure;
  std::vector<double> baseline;
  std::size_t refused = 0;
  for (auto _ : state) {
    // Kept below the queue limit, so every submit is a real hand-over.
    while (service.pending() >= 2 * kWorkers) std::this_thread::yield();
    AiSubmission submission;
    submission.request = request;
    const Clock::time_point start = Clock::now();
    service.submit(std::move(submission));
    service.poll(done);
    const Clock::time_point middle = Clock::now();
    handOver.once(sink);
    const Clock::time_point end = Clock::now();
    figure.push_back(micros(middle - start));
    baseline.push_back(micros(end - middle));
    state.SetIterationTime(std::chrono::duration<double>(middle - start).count());
    for (const AiCompletion& c : done) refused += c.ending != AiEnding::kAnswered;
  }
  benchmark::DoNotOptimize(sink);
  if (refused > 0) state.SkipWithError("the queue refused a request");
  const double median = percentile(figure, 0.5);
  const double baseMedian = percentile(baseline, 0.5);
  state.counters["median_us"] = median;
  state.counters["p999_us"] = percentile(figure, 0.999);
  state.counters["base_median_us"] = baseMedian;
  state.counters["base_p999_us"] = percentile(baseline, 0.999);
  state.counters["median_per_base"] = baseMedian > 0 ? median / baseMedian : 0;
}

// How long a request waits for a sleeping worker: the game's thread wakes
// none itself, the timer does. Beside it, in the same loop, how long a
// sleeping thread takes to wake when notified directly, which is what a
// wake-up from submit would cost at the least.
void startLatency(benchmark::State& state) {
  AiRuntimeConfig config;
  config.helperPath.clear();
  AiServiceOptions options;
  options.workers = 2;
  AiService service(config, options);
  std::mutex mutex;
  std::condition_variable wake;
  Clock::time_point notified;
  Clock::time_point woke;
  bool go = false;
  bool stop = false;
  std::thread sleeper([&] {
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
      wake.wait(lock, [&] { return go || stop; });
      if (stop) return;
      woke = Clock::now();
      go = false;
    }
  });
  std::vector<double> figure;
  std::vector<double> baseline;
  std::vector<AiCompletion> done;
  for (auto _ : state) {
    std::this_thread::sleep_for(std::chrono::microseconds(7000 + figure.size() * 37 % 3000));
    service.submit(AiSubmission{});  // an empty message: ask returns at once
    do {
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    } while (service.poll(done) == 0);
    figure.push_back(micros(done[0].trace.queueWait));
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    {
      const std::lock_guard<std::mutex> lock(mutex);
      go = true;
      notified = Clock::now();
    }
    wake.notify_one();
    while (true) {
      std::this_thread::sleep_for(std::chrono::microseconds(100));
      const std::lock_guard<std::mutex> lock(mutex);
      if (!go) break;
    }
    baseline.push_back(micros(woke - notified));
    state.SetIterationTime(figure.back() / 1e6);
  }
  {
    const std::lock_guard<std::mutex> lock(mutex);
    stop = true;
  }
  wake.notify_one();
  sleeper.join();
  state.counters["median_us"] = percentile(figure, 0.5);
  state.counters["p99_us"] = percentile(figure, 0.99);
  state.counters["max_us"] = figure.back();  // sorted by percentile()
  state.counters["base_median_us"] = percentile(baseline, 0.5);
  state.counters["base_p99_us"] = percentile(baseline, 0.99);
}

}  // namespace

void registerServiceBenchmarks() {
  benchmark::RegisterBenchmark("service/startLatency/sleepingWorkers", startLatency)
      ->UseManualTime()
      ->Iterations(600);
  benchmark::RegisterBenchmark(
      "service/submitPoll/idle",
      [](benchmark::State& state) { submitAndPoll(state, false); })
      ->UseManualTime()
      ->Iterations(100000);
  benchmark::RegisterBenchmark(
      "service/submitPoll/8workersLoopback",
      [](benchmark::State& state) { submitAndPoll(state, true); })
      ->UseManualTime()
      ->Iterations(20000);
}

}  // namespace tovrin::ai::bench
