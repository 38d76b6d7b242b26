#include <span>
#include <string>
#include <string_view>

#include "tovrin/ai/generation.hpp"
#include "tovrin/ai/text.hpp"
#include "tovrin/ai/watchdog.hpp"
#include "watchdog/watchdog_tables.hpp"

namespace tovrin::ai {

namespace {

// The labels the template gives: moderation lets the message through,
// triage asks for a look.
constexpr std::string_view kModerationTemplate = kModerationLabels[0];  // OK
constexpr std::string_view kTriageTemplate = kTriageLabels[1];         // WATCH
constexpr std::string_view kRefusalTemplate = "To ti dát nemůžu.";

// Words of the player's message that ask for a number.
constexpr std::string_view kQuestionWords[] = {
    "kolik je",
    "kolik",
};

// Stem of "mince" in all its forms.
constexpr std::string_view kCoinWords[] = {
    "minc",
};

// The requests the refusal answers.
constexpr std::span<const std::string_view> kRefusedVerbs =
    std::span(detail::kRequestVerbs).first(detail::kRefusedRequestVerbs);

std::string foldedFacts(const std::vector<std::string>& facts) {
  std::string joined;
  for (const std::string& fact : facts) {
    joined += fact;
    joined += ' ';
  }
  return toLowerAscii(std::move(joined));
}

}  // namespace

std::string buildTemplateAnswer(const AiRequest& request) {
  if (request.kind == AiRequestKind::ChatModeration) {
    return std::string(kModerationTemplate);
  }
  if (request.kind == AiRequestKind::AntiCheatTriage) {
    return std::string(kTriageTemplate);
  }

  const std::string question = toLowerAscii(request.message);
  const std::vector<std::string>& results = request.toolResults;
  if (!results.empty()) {
    if (results.size() == 1 && containsAny(question, kQuestionWords)) {
      // The single value decides even when it is empty.
      return results.front();
    }
    if (results.size() >= 2 && containsAny(question, kCoinWords)) {
      return "Výsledek je " + results[0] + " a zbývá " + results[1] + ".";
    }
  }

  if (!request.worldFacts.empty() &&
      containsAny(foldedFacts(request.worldFacts),
                  detail::kProhibitionWords) &&
      containsAny(question, kRefusedVerbs)) {
    return std::string(kRefusalTemplate);
  }
  return {};
}

}  // namespace tovrin::ai
