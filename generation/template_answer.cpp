#include <string>

#include "tovrin/ai/generation.hpp"
#include "tovrin/ai/text.hpp"

namespace tovrin::ai {

namespace {

constexpr std::string_view kModerationTemplate = "OK";
constexpr std::string_view kTriageTemplate = "WATCH";
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

// A fact that forbids something, with and without the accent.
constexpr std::string_view kProhibitionWords[] = {
    "nesmí",
    "nesmi",
};

// Requests the refusal answers; "změň" and "zmen" are left to the watchdog.
constexpr std::string_view kRequestVerbs[] = {
    "dej",
    "přidej",
    "pridej",
    "ignoruj",
};

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
      containsAny(foldedFacts(request.worldFacts), kProhibitionWords) &&
      containsAny(question, kRequestVerbs)) {
    return std::string(kRefusalTemplate);
  }
  return {};
}

}  // namespace tovrin::ai
