// Answer generation: the two prompts sent to the model, the generation pass
// with its attempts, and the deterministic template answer.
#ifndef TOVRIN_AI_GENERATION_HPP_
#define TOVRIN_AI_GENERATION_HPP_

#include <optional>
#include <string>

#include "tovrin/ai/records.hpp"
#include "tovrin/ai/runtime.hpp"
#include "tovrin/ai/watchdog.hpp"

namespace tovrin::ai {

// Model name reported for a response that carries the template answer.
inline constexpr const char* kTemplateModelName = "watchdog-template";

// The system prompt for request.kind: a fixed label prompt for moderation
// and triage; otherwise the base rules, the kind's own line, the persona and
// runtime.helperText. Pure; copies every text byte for byte.
std::string buildSystemPrompt(const AiRuntime& runtime,
                              const AiRequest& request);

// The user prompt: facts, tool results, allowed commands, the player's
// question, then either the repair block (a verdict is given and
// previousAnswer is not empty) or the plain closing line. Pure.
std::string buildUserPrompt(const AiRequest& request,
                            const std::string& previousAnswer = {},
                            const WatchdogVerdict* lastVerdict = nullptr);
std::string buildUserPrompt(const AiRequest& request,
                            const std::string& previousAnswer,
                            const std::optional<WatchdogVerdict>& lastVerdict);

// The deterministic answer for request, or "" when no template applies:
// "OK" for moderation, "WATCH" for triage, the single tool result of an
// arithmetic question, the coin-purchase sentence, or the refusal when a
// fact forbids what the player asks for. Raises nothing of its own.
std::string buildTemplateAnswer(const AiRequest& request);

// One generation pass against endpoint and model: up to two model attempts
// (the second with the repair block when runtime.config.repairEnabled),
// each judged by the watchdog when runtime.config.watchdogEnabled, then the
// template answer when no model answer was accepted. Exceptions derived from
// std::exception raised during the attempts end up in error; those raised
// while building the system prompt or the template answer propagate.
AiResponse generateAnswer(const AiRuntime& runtime, const AiRequest& request,
                          const std::string& endpoint,
                          const std::string& model, bool fallbackPass);

}  // namespace tovrin::ai

#endif  // TOVRIN_AI_GENERATION_HPP_
