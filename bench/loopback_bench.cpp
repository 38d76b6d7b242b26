// The default transport against a server on 127.0.0.1: a whole ask beside a
// bare client that does only the same connect, send, receive and close
// (apart, and in turns within one benchmark), and asks from 1, 2, 4 and 8
// threads at once: against a server that answers at once, beside bare
// clients from as many threads (a lock in ask would show there), and against
// one that holds each answer 20 ms.
#include <array>
#include <chrono>
#include <cstddef>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/alloc_counter.hpp"
#include "bench/bench_inputs.hpp"
#include "bench/bench_server.hpp"
#include "bench/benchmarks.hpp"
#include "tovrin/ai.hpp"
#include "transport/socket_platform.hpp"

namespace tovrin::ai::bench {

namespace {

constexpr std::chrono::milliseconds kHold{20};
constexpr int kMaxThreads = 8;
constexpr std::int64_t kTimeoutMs = 5000;

std::string acceptedResponse() {
  return httpResponse(completionBody(kAcceptedAnswer));
}

// Both servers live until the program ends, so that every repetition of a
// figure and its baseline talk to the same one.
BenchServer& immediateServer() {
  static BenchServer server(acceptedResponse(), std::chrono::milliseconds(0),
                            0);
  return server;
}

BenchServer& immediateParallelServer() {
  static BenchServer server(acceptedResponse(), std::chrono::milliseconds(0),
                            kMaxThreads);
  return server;
}

BenchServer& holdingServer() {
  static BenchServer server(acceptedResponse(), kHold, kMaxThreads);
  return server;
}

AiRuntime httpRuntime(const std::string& endpoint) {
  AiRuntimeConfig config;
  config.endpoint = endpoint;
  config.helperPath.clear();
  config.timeoutMs = kTimeoutMs;
  AiRuntime runtime(std::move(config));
  runtime.helperText = helperText4KiB();
  return runtime;
}

// The bytes the transport sends for the typical request.
std::string typicalRequestBytes(const AiRuntime& runtime) {
  const AiRequest request = applyToolFacts(typicalRequest());
  return buildHttpRequest(
      parseEndpoint(runtime.config.endpoint),
      buildCompletionBody(runtime.config.model,
                          buildSystemPrompt(runtime, request),
                          buildUserPrompt(request), runtime.config.temperature,
                          runtime.config.topP, request.maxTokens));
}

// The least one exchange takes: resolve and connect as the transport does,
// send the request, read into a reused buffer until the server closes, and
// close. Returns the bytes received, 0 on any failure.
std::size_t bareExchange(const std::string& port, const std::string& request,
                         std::string& response) {
  detail::Socket socket;
  if (detail::connectTcp("127.0.0.1", port,
                         static_cast<std::uint32_t>(kTimeoutMs),
                         socket) != detail::ConnectResult::kConnected) {
    return 0;
  }
  std::size_t sent = 0;
  while (sent < request.size()) {
    const std::ptrdiff_t n = detail::sendSome(socket, request.data() + sent,
                                              request.size() - sent);
    if (n < 1) return 0;
    sent += static_cast<std::size_t>(n);
  }
  std::array<char, 8192> buffer;
  response.clear();
  for (;;) {
    const std::ptrdiff_t n =
        detail::receiveSome(socket, buffer.data(), buffer.size());
    if (n < 0) return 0;
    if (n == 0) break;
    response.append(buffer.data(), static_cast<std::size_t>(n));
  }
  socket.close();
  return response.size();
}

// Bare exchanges with server for as long as the benchmark runs.
void bareExchanges(benchmark::State& state, BenchServer& server) {
  const std::string request =
      typicalRequestBytes(httpRuntime(server.endpoint()));
  std::string response;
  response.reserve(8192);
  for (auto _ : state) {
    if (bareExchange(server.port(), request, response) == 0) {
      state.SkipWithError("a bare exchange failed");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
}

void bareClient(benchmark::State& state) {
  bareExchanges(state, immediateServer());
}

void askOverHttp(benchmark::State& state) {
  const AiRuntime runtime = httpRuntime(immediateServer().endpoint());
  const AiRequest request = typicalRequest();
  const std::uint64_t before = allocationsOnThisThread();
  for (auto _ : state) {
    const AiResponse response = runtime.ask(request);
    if (!response.ok) {
      state.SkipWithError(response.error.c_str());
      break;
    }
  }
  reportAllocations(state, before);
}

// The bare exchange and the ask in turns, each timed on its own, so that
// both see the same moments of a busy machine; the order alternates. The
// counter "ask_per_bare" is the ratio of their summed times.
void pairedExchanges(benchmark::State& state) {
  using Clock = std::chrono::steady_clock;
  BenchServer& server = immediateServer();
  const AiRuntime runtime = httpRuntime(server.endpoint());
  const AiRequest request = typicalRequest();
  const std::string bytes = typicalRequestBytes(runtime);
  std::string response;
  response.reserve(8192);
  Clock::duration askTime{};
  Clock::duration bareTime{};
  bool askFirst = false;
  for (auto _ : state) {
    askFirst = !askFirst;
    bool ok = true;
    for (int turn = 0; turn < 2; ++turn) {
      const Clock::time_point start = Clock::now();
      if ((turn == 0) == askFirst) {
        ok = runtime.ask(request).ok && ok;
        askTime += Clock::now() - start;
      } else {
        ok = bareExchange(server.port(), bytes, response) > 0 && ok;
        bareTime += Clock::now() - start;
      }
    }
    if (!ok) {
      state.SkipWithError("a paired exchange failed");
      break;
    }
  }
  const auto micros = [](Clock::duration d) {
    return std::chrono::duration<double, std::micro>(d).count();
  };
  state.counters["ask_us"] = benchmark::Counter(
      micros(askTime), benchmark::Counter::kAvgIterations);
  state.counters["bare_us"] = benchmark::Counter(
      micros(bareTime), benchmark::Counter::kAvgIterations);
  state.counters["ask_per_bare"] =
      bareTime.count() > 0 ? micros(askTime) / micros(bareTime) : 0;
}

// One runtime shared by every thread, as a game would share it.
void askFromThreads(benchmark::State& state) {
  static const AiRuntime runtime = httpRuntime(holdingServer().endpoint());
  const AiRequest request = typicalRequest();
  for (auto _ : state) {
    const AiResponse response = runtime.ask(request);
    if (!response.ok) {
      state.SkipWithError("an ask from several threads failed");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
}

void askFromThreadsAtOnce(benchmark::State& state) {
  static const AiRuntime runtime =
      httpRuntime(immediateParallelServer().endpoint());
  const AiRequest request = typicalRequest();
  for (auto _ : state) {
    if (!runtime.ask(request).ok) {
      state.SkipWithError("an ask from several threads failed");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
}

void bareClientsFromThreads(benchmark::State& state) {
  bareExchanges(state, immediateParallelServer());
}

}  // namespace

void registerLoopbackBenchmarks() {
  benchmark::RegisterBenchmark("loopback/bareClient", bareClient)
      ->UseRealTime();
  // The same exchange in the calling thread's processor time, the baseline
  // of figures measured that way.
  benchmark::RegisterBenchmark("loopback/bareClientCpu", bareClient);
  benchmark::RegisterBenchmark("loopback/ask", askOverHttp)->UseRealTime();
  benchmark::RegisterBenchmark("loopback/paired", pairedExchanges)
      ->UseRealTime();
  auto* threads =
      benchmark::RegisterBenchmark("loopback/askHeld20ms", askFromThreads);
  auto* atOnce =
      benchmark::RegisterBenchmark("loopback/askAtOnce", askFromThreadsAtOnce);
  auto* bare = benchmark::RegisterBenchmark("loopback/bareAtOnce",
                                            bareClientsFromThreads);
  for (int n = 1; n <= kMaxThreads; n *= 2) {
    threads->Threads(n);
    atOnce->Threads(n);
    bare->Threads(n);
  }
  threads->UseRealTime();
  atOnce->UseRealTime();
  bare->UseRealTime();
}

}  // namespace tovrin::ai::bench
