// Prompt and body building and response extraction for the typical request
// with a 4 KiB helper text, each beside one copy of the bytes it produces
// or reads.
#include <cstdint>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/alloc_counter.hpp"
#include "bench/bench_inputs.hpp"
#include "bench/benchmarks.hpp"
#include "tovrin/ai.hpp"

namespace tovrin::ai::bench {

namespace {

// Everything the figures here work on, built once.
struct PromptInputs {
  AiRuntime runtime;
  AiRequest request;
  WatchdogVerdict rejection;
  std::string systemPrompt;
  std::string userPrompt;
  std::string body;
  AiEndpoint endpoint;
  std::string typicalResponse;  // a 300-byte answer
  std::string largeResponse;    // the helper text as the answer
};

AiRuntime runtimeWithHelper() {
  AiRuntimeConfig config;
  config.helperPath.clear();
  AiRuntime runtime(std::move(config),
                    [](const AiRuntimeConfig&, const std::string&,
                       const std::string&, const std::string&,
                       const std::string&, std::size_t) { return std::string(); });
  runtime.helperText = helperText4KiB();
  return runtime;
}

const PromptInputs& inputs() {
  static const PromptInputs shared = [] {
    PromptInputs in{runtimeWithHelper(), applyToolFacts(typicalRequest()), {},
                    {}, {}, {}, {}, {}, {}};
    in.rejection = validateAnswer(std::string(kRejectedAnswer), in.request);
    in.systemPrompt = buildSystemPrompt(in.runtime, in.request);
    in.userPrompt = buildUserPrompt(in.request);
    in.body = buildCompletionBody(in.runtime.config.model, in.systemPrompt,
                                  in.userPrompt, in.runtime.config.temperature,
                                  in.runtime.config.topP, in.request.maxTokens);
    in.endpoint = parseEndpoint(in.runtime.config.endpoint);
    in.typicalResponse =
        completionBody(jsonEscape(answerCases().at(1).answer));
    in.largeResponse = completionBody(jsonEscape(helperText4KiB()));
    return in;
  }();
  return shared;
}

// Runs make() once per iteration and reports its allocations and the bytes
// it handled.
template <typename Make>
void measure(benchmark::State& state, std::size_t bytes, Make make) {
  const std::uint64_t before = allocationsOnThisThread();
  for (auto _ : state) benchmark::DoNotOptimize(make());
  reportAllocations(state, before);
  state.SetBytesProcessed(state.iterations() *
                          static_cast<std::int64_t>(bytes));
}

void systemPrompt(benchmark::State& state) {
  const PromptInputs& in = inputs();
  measure(state, in.systemPrompt.size(),
          [&] { return buildSystemPrompt(in.runtime, in.request); });
}

void userPromptFirst(benchmark::State& state) {
  const PromptInputs& in = inputs();
  measure(state, in.userPrompt.size(),
          [&] { return buildUserPrompt(in.request); });
}

void userPromptRepair(benchmark::State& state) {
  const PromptInputs& in = inputs();
  const std::string previous(kRejectedAnswer);
  const std::size_t bytes =
      buildUserPrompt(in.request, previous, &in.rejection).size();
  measure(state, bytes, [&] {
    return buildUserPrompt(in.request, previous, &in.rejection);
  });
}

void completionBodyBuild(benchmark::State& state) {
  const PromptInputs& in = inputs();
  const AiRuntimeConfig& config = in.runtime.config;
  measure(state, in.body.size(), [&] {
    return buildCompletionBody(config.model, in.systemPrompt, in.userPrompt,
                               config.temperature, config.topP,
                               in.request.maxTokens);
  });
}

void httpRequestBuild(benchmark::State& state) {
  const PromptInputs& in = inputs();
  measure(state, in.body.size(),
          [&] { return buildHttpRequest(in.endpoint, in.body); });
}

void escapeSystemPrompt(benchmark::State& state) {
  const PromptInputs& in = inputs();
  measure(state, in.systemPrompt.size(),
          [&] { return jsonEscape(in.systemPrompt); });
}

void extractTypical(benchmark::State& state) {
  const PromptInputs& in = inputs();
  measure(state, in.typicalResponse.size(),
          [&] { return extractMessageContent(in.typicalResponse); });
}

void extractLarge(benchmark::State& state) {
  const PromptInputs& in = inputs();
  measure(state, in.largeResponse.size(),
          [&] { return extractMessageContent(in.largeResponse); });
}

}  // namespace

void registerCopyBaseline(const std::string& name, std::string text) {
  benchmark::RegisterBenchmark(
      ("copy/" + name).c_str(), [text](benchmark::State& state) {
        measure(state, text.size(), [&] { return std::string(text); });
      });
}

void registerTransportBenchmarks() {
  const PromptInputs& in = inputs();
  const std::string previous(kRejectedAnswer);

  benchmark::RegisterBenchmark("prompt/buildSystemPrompt/4KiB", systemPrompt);
  registerCopyBaseline("buildSystemPrompt/4KiB", in.systemPrompt);
  benchmark::RegisterBenchmark("prompt/buildUserPrompt/first",
                               userPromptFirst);
  registerCopyBaseline("buildUserPrompt/first", in.userPrompt);
  benchmark::RegisterBenchmark("prompt/buildUserPrompt/repair",
                               userPromptRepair);
  registerCopyBaseline("buildUserPrompt/repair",
                       buildUserPrompt(in.request, previous, &in.rejection));
  benchmark::RegisterBenchmark("transport/buildCompletionBody/4KiB",
                               completionBodyBuild);
  registerCopyBaseline("buildCompletionBody/4KiB", in.body);
  benchmark::RegisterBenchmark("transport/buildHttpRequest/4KiB",
                               httpRequestBuild);
  registerCopyBaseline("buildHttpRequest/4KiB",
                       buildHttpRequest(in.endpoint, in.body));
  benchmark::RegisterBenchmark("transport/jsonEscape/4KiB",
                               escapeSystemPrompt);
  registerCopyBaseline("jsonEscape/4KiB", in.systemPrompt);
  benchmark::RegisterBenchmark("transport/extractMessageContent/typical",
                               extractTypical);
  registerCopyBaseline("extractMessageContent/typical", in.typicalResponse);
  benchmark::RegisterBenchmark("transport/extractMessageContent/4KiB",
                               extractLarge);
  registerCopyBaseline("extractMessageContent/4KiB", in.largeResponse);
}

}  // namespace tovrin::ai::bench
