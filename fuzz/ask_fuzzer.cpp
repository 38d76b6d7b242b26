// Whole requests: a runtime configured from the input, a request from the
// input and a transport that plays back replies from the input (answer
// texts, failures, or raw server bytes through parseHttpResponse). ask must
// return, never throw, make at most four model calls, and give a response
// that agrees with the watchdog and the template answer.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.hpp"
#include "tovrin/ai.hpp"

namespace tovrin::ai {
namespace {

constexpr std::size_t kMaxCalls = 4;

enum class ReplyKind { kAnswer, kFailure, kServerBytes };

struct Reply {
  ReplyKind kind = ReplyKind::kAnswer;
  std::string text;
};

struct Playback {
  std::vector<Reply> replies;
  std::size_t calls = 0;
  std::vector<std::string> returned;  // what the transport handed back
  std::vector<std::string> endpoints;
  std::vector<std::string> models;
  bool failed = false;         // some call ended in an exception
  bool silentFailure = false;  // a failure whose message reads as empty
};

AiTransport transportFor(Playback& playback) {
  return [&playback](const AiRuntimeConfig&, const std::string& endpoint,
                     const std::string& model, const std::string&,
                     const std::string&, std::size_t) -> std::string {
    FUZZ_CHECK(playback.calls < kMaxCalls);
    playback.endpoints.push_back(endpoint);
    playback.models.push_back(model);
    const Reply reply = playback.calls < playback.replies.size()
                            ? playback.replies[playback.calls]
                            : Reply{ReplyKind::kFailure, "no more replies"};
    ++playback.calls;
    // Set for the exceptions below; a call that returns puts it back.
    const bool failedBefore = playback.failed;
    playback.failed = true;
    switch (reply.kind) {
      case ReplyKind::kFailure:
        // what() ends at the first NUL byte.
        playback.silentFailure =
            playback.silentFailure || reply.text.c_str()[0] == '\0';
        throw std::runtime_error(reply.text);
      case ReplyKind::kServerBytes:
        playback.returned.push_back(parseHttpResponse(reply.text));
        playback.failed = failedBefore;
        return playback.returned.back();
      case ReplyKind::kAnswer:
        break;
    }
    playback.returned.push_back(reply.text);
    playback.failed = failedBefore;
    return reply.text;
  };
}

bool sameRequest(const AiRequest& a, const AiRequest& b) {
  return a.message == b.message && a.worldFacts == b.worldFacts &&
         a.allowedCommands == b.allowedCommands &&
         a.toolResults == b.toolResults && a.persona == b.persona &&
         a.kind == b.kind && a.maxTokens == b.maxTokens;
}

void checkResponse(const AiRuntime& runtime, const AiRequest& request,
                   const Playback& playback, const AiResponse& response) {
  const AiRuntimeConfig& config = runtime.config;
  FUZZ_CHECK(playback.calls <= kMaxCalls);
  FUZZ_CHECK(response.attempts <= 2);
  // An error text is all a caller learns of a failure, unless the transport
  // itself failed without one.
  FUZZ_CHECK(response.ok || !response.error.empty() || playback.silentFailure);
  if (response.ok) {
    FUZZ_CHECK(response.watchdogPassed && response.watchdogReasons.empty());
  }
  if (!config.enabled || request.message.empty() || config.endpoint.empty()) {
    FUZZ_CHECK(!response.ok && playback.calls == 0 && response.attempts == 0);
    return;
  }
  for (std::size_t i = 0; i < playback.calls; ++i) {
    const bool first = playback.endpoints[i] == config.endpoint &&
                       playback.models[i] == config.model;
    const bool second = playback.endpoints[i] == config.fallbackEndpoint &&
                        playback.models[i] == config.fallbackModel;
    FUZZ_CHECK(first || second);
  }

  const AiRequest enriched = applyToolFacts(request);
  if (response.ok && response.model == kTemplateModelName) {
    FUZZ_CHECK(response.fallback);
    FUZZ_CHECK(response.answer == buildTemplateAnswer(enriched));
    return;
  }
  bool returned = false;
  for (const std::string& text : playback.returned) {
    returned = returned || trim(text) == response.answer;
  }
  if (response.ok) {
    FUZZ_CHECK(response.model == config.model ||
               response.model == config.fallbackModel);
    FUZZ_CHECK(returned);
    if (config.watchdogEnabled) {
      FUZZ_CHECK(validateAnswer(response.answer, enriched).passed);
    }
    return;
  }
  // A failed request reports its first pass.
  FUZZ_CHECK(response.model == config.model && !response.fallback);
  // A transport may fail with any text, this one included.
  if (response.error == "AI answer rejected by watchdog" && !playback.failed) {
    FUZZ_CHECK(config.watchdogEnabled && !response.watchdogPassed);
    FUZZ_CHECK(returned);
    FUZZ_CHECK(!validateAnswer(response.answer, enriched).passed);
  }
}

}  // namespace
}  // namespace tovrin::ai

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  tovrin::ai::fuzz::writeWatchdogDictionaryIfAsked();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  using namespace tovrin::ai;
  FuzzedDataProvider input(data, size);

  AiRuntimeConfig config = fuzz::fuzzedConfig(input);
  const AiRequest request = fuzz::fuzzedRequest(input, 96);

  Playback playback;
  while (playback.replies.size() < kMaxCalls && input.remaining_bytes() > 0) {
    Reply reply;
    reply.kind = static_cast<ReplyKind>(input.ConsumeIntegralInRange<int>(0, 2));
    reply.text = input.ConsumeRandomLengthString(256);
    playback.replies.push_back(std::move(reply));
  }

  const AiRequest original = request;
  const AiRuntime runtime(std::move(config), transportFor(playback));
  const AiResponse response = runtime.ask(request);
  FUZZ_CHECK(sameRequest(request, original));
  checkResponse(runtime, request, playback, response);
  return 0;
}
