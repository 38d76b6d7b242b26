#include <exception>
#include <string>

#include "tovrin/ai/generation.hpp"
#include "tovrin/ai/text.hpp"

namespace tovrin::ai {

namespace {

// Judges a model answer; with the watchdog switched off every answer passes.
WatchdogVerdict judgeModelAnswer(const AiRuntime& runtime,
                                 const std::string& answer,
                                 const AiRequest& request) {
  if (!runtime.config.watchdogEnabled) return WatchdogVerdict{};
  return validateAnswer(answer, request);
}

// Falls back to the deterministic answer, which must pass the watchdog even
// when model answers are not judged. Leaves response as it was otherwise.
void applyTemplateAnswer(const AiRequest& request, AiResponse& response) {
  std::string answer = buildTemplateAnswer(request);
  if (answer.empty()) return;
  WatchdogVerdict verdict = validateAnswer(answer, request);
  if (!verdict.passed) return;
  response.ok = true;
  response.answer = std::move(answer);
  response.watchdogPassed = true;
  response.watchdogReasons = std::move(verdict.reasons);
  response.model = kTemplateModelName;
  response.fallback = true;
}

}  // namespace

AiResponse generateAnswer(const AiRuntime& runtime, const AiRequest& request,
                          const std::string& endpoint,
                          const std::string& model, bool fallbackPass) {
  AiResponse response;
  response.model = model;
  response.fallback = fallbackPass;

  const std::string systemPrompt = buildSystemPrompt(runtime, request);
  const std::size_t maxAttempts = runtime.config.repairEnabled ? 2 : 1;
  std::string previousAnswer;
  WatchdogVerdict lastVerdict;

  for (std::size_t attempt = 1; attempt <= maxAttempts; ++attempt) {
    try {
      const std::string userPrompt = buildUserPrompt(
          request, previousAnswer, attempt == 1 ? nullptr : &lastVerdict);
      response.answer =
          trim(runtime.transport(runtime.config, endpoint, model, systemPrompt,
                                 userPrompt, request.maxTokens));
      response.attempts = attempt;
      WatchdogVerdict verdict =
          judgeModelAnswer(runtime, response.answer, request);
      response.watchdogPassed = verdict.passed;
      response.watchdogReasons = std::move(verdict.reasons);
      if (response.watchdogPassed) {
        response.ok = true;
        return response;
      }
      previousAnswer = response.answer;
      lastVerdict.passed = response.watchdogPassed;
      lastVerdict.reasons = response.watchdogReasons;
    } catch (const std::exception& error) {
      // A failed model call ends the attempts; no repair follows it.
      response.error = error.what();
      response.attempts = attempt;
      break;
    }
  }

  applyTemplateAnswer(request, response);
  return response;
}

}  // namespace tovrin::ai
