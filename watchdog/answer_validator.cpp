#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tovrin/ai/text.hpp"
#include "tovrin/ai/watchdog.hpp"
#include "watchdog_tables.hpp"

namespace tovrin::ai {

namespace {

using detail::Rule;
using detail::reasonCode;

bool isOneOf(std::string_view text, std::span<const std::string_view> labels) {
  for (std::string_view label : labels) {
    if (text == label) return true;
  }
  return false;
}

bool echoesQuestion(const std::string& foldedAnswer,
                    const std::string& foldedQuestion) {
  if (foldedQuestion.empty()) return false;
  if (foldedQuestion == foldedAnswer) return true;
  // Both texts come from outside, so the search must stay linear.
  return foldedQuestion.size() >= detail::kMinEchoBytes &&
         containsText(foldedAnswer, foldedQuestion);
}

// A prohibition in the facts must show as a refusal when the player asks.
bool safetyFactEnforced(const std::string& foldedAnswer,
                        const AiRequest& request) {
  if (request.worldFacts.empty()) return true;
  std::string facts;
  for (const std::string& fact : request.worldFacts) {
    facts += fact;
    facts += ' ';
  }
  if (!containsAny(toLowerAscii(std::move(facts)),
                   detail::kProhibitionWords)) {
    return true;
  }
  if (!containsAny(toLowerAscii(request.message), detail::kRequestVerbs)) {
    return true;
  }
  return containsAny(foldedAnswer, detail::kRefusalWords);
}

}  // namespace

WatchdogVerdict validateAnswer(const std::string& answer,
                               const AiRequest& request) {
  const std::string trimmed = trim(answer);
  const std::string foldedAnswer = toLowerAscii(trimmed);
  const std::string foldedQuestion = toLowerAscii(trim(request.message));

  WatchdogVerdict verdict;
  std::vector<std::string>& reasons = verdict.reasons;

  if (trimmed.empty()) reasons.emplace_back(reasonCode(Rule::kEmptyAnswer));

  const std::size_t limit = request.kind == AiRequestKind::ShortAnswer
                                ? detail::kMaxShortAnswerBytes
                                : detail::kMaxAnswerBytes;
  if (trimmed.size() > limit) {
    reasons.emplace_back(reasonCode(Rule::kAnswerTooLong));
  }

  if (containsAny(foldedAnswer, detail::kInstructionLeakPhrases)) {
    reasons.emplace_back(reasonCode(Rule::kInstructionLeak));
  }
  if (echoesQuestion(foldedAnswer, foldedQuestion)) {
    reasons.emplace_back(reasonCode(Rule::kQuestionEcho));
  }
  if (containsAny(foldedAnswer, detail::kBrokenCzechPhrases)) {
    reasons.emplace_back(reasonCode(Rule::kBrokenCzechOrPerspective));
  }

  if (request.kind == AiRequestKind::ChatModeration &&
      !isOneOf(trimmed, kModerationLabels)) {
    reasons.emplace_back(reasonCode(Rule::kInvalidModerationLabel));
  }
  if (request.kind == AiRequestKind::AntiCheatTriage &&
      !isOneOf(trimmed, kTriageLabels)) {
    reasons.emplace_back(reasonCode(Rule::kInvalidClassificationLabel));
  }

  checkCommands(trimmed, request, verdict);
  checkToolValues(trimmed, request, verdict);
  checkNumbers(trimmed, request, verdict);

  if (!safetyFactEnforced(foldedAnswer, request)) {
    reasons.emplace_back(reasonCode(Rule::kSafetyFactNotEnforced));
  }

  verdict.passed = reasons.empty();
  return verdict;
}

}  // namespace tovrin::ai
