#include <string>

#include "tovrin/ai/generation.hpp"
#include "tovrin/ai/runtime.hpp"
#include "tovrin/ai/tools.hpp"

namespace tovrin::ai {

namespace {

AiResponse refusal(const char* error) {
  AiResponse response;
  response.error = error;
  return response;
}

}  // namespace

AiResponse AiRuntime::ask(const AiRequest& request) const {
  if (!config.enabled) return refusal("AI runtime disabled");
  if (request.message.empty()) return refusal("AI request message is empty");
  if (config.endpoint.empty()) return refusal("AI endpoint is empty");

  const AiRequest enriched = applyToolFacts(request);
  AiResponse first =
      generateAnswer(*this, enriched, config.endpoint, config.model, false);
  if (first.ok) return first;

  if (!config.fallbackEndpoint.empty() && !config.fallbackModel.empty()) {
    AiResponse second = generateAnswer(*this, enriched,
                                       config.fallbackEndpoint,
                                       config.fallbackModel, true);
    if (second.ok) return second;
    if (!second.error.empty()) {
      if (!first.error.empty()) first.error += "; ";
      first.error += second.error;
    }
  }

  if (first.error.empty() && !first.watchdogPassed) {
    first.error = "AI answer rejected by watchdog";
  }
  return first;
}

}  // namespace tovrin::ai
