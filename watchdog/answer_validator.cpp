// Phrases are UTF-8 and compared byte for byte; accented and plain spellings
// are listed separately because nothing folds diacritics.
#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tovrin/ai/text.hpp"
#include "tovrin/ai/watchdog.hpp"

namespace tovrin::ai {

namespace {

// Prompt headings and rule wording that must not come back to the player.
constexpr std::array<std::string_view, 6> kInstructionLeakPhrases = {
    "dotaz hráče",
    "dotaz hrace",
    "pravidla češtiny",
    "pravidla cestiny",
    "fakta herního světa",
    "fakta herniho sveta",
};

// Mistakes a small model makes in Czech grammar or in who is speaking.
constexpr std::array<std::string_view, 7> kBrokenCzechPhrases = {
    "jsem to pamatuje",
    "ty mě pomohla",
    "ty mi pomohla",
    "můžeš mě nabídnout",
    "muzes me nabidnout",
    "pomohl jsem ti",
    "pomohla jsem ti",
};

// A fact holding one of these states a prohibition.
constexpr std::array<std::string_view, 2> kProhibitionWords = {
    "nesmí",
    "nesmi",
};

// A message holding one of these asks for something to be given or changed.
constexpr std::array<std::string_view, 6> kRequestVerbs = {
    "dej",
    "přidej",
    "pridej",
    "ignoruj",
    "změň",
    "zmen",
};

// An answer holding one of these refuses.
constexpr std::array<std::string_view, 7> kRefusalWords = {
    "nemůžu",
    "nemohu",
    "nesmím",
    "nedám",
    "nelze",
    "nemuzes",
    "nemůžeš",
};

constexpr std::size_t kMaxAnswerBytes = 300;
constexpr std::size_t kMaxShortAnswerBytes = 420;
// Shorter questions are common words that a fair answer may repeat.
constexpr std::size_t kMinEchoBytes = 13;

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
  return foldedQuestion.size() >= kMinEchoBytes &&
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
  if (!containsAny(toLowerAscii(std::move(facts)), kProhibitionWords)) {
    return true;
  }
  if (!containsAny(toLowerAscii(request.message), kRequestVerbs)) return true;
  return containsAny(foldedAnswer, kRefusalWords);
}

}  // namespace

WatchdogVerdict validateAnswer(const std::string& answer,
                               const AiRequest& request) {
  const std::string trimmed = trim(answer);
  const std::string foldedAnswer = toLowerAscii(trimmed);
  const std::string foldedQuestion = toLowerAscii(trim(request.message));

  WatchdogVerdict verdict;
  std::vector<std::string>& reasons = verdict.reasons;

  if (trimmed.empty()) reasons.emplace_back("empty_answer");

  const std::size_t limit = request.kind == AiRequestKind::ShortAnswer
                                ? kMaxShortAnswerBytes
                                : kMaxAnswerBytes;
  if (trimmed.size() > limit) reasons.emplace_back("answer_too_long");

  if (containsAny(foldedAnswer, kInstructionLeakPhrases)) {
    reasons.emplace_back("instruction_leak");
  }
  if (echoesQuestion(foldedAnswer, foldedQuestion)) {
    reasons.emplace_back("question_echo");
  }
  if (containsAny(foldedAnswer, kBrokenCzechPhrases)) {
    reasons.emplace_back("broken_czech_or_perspective");
  }

  if (request.kind == AiRequestKind::ChatModeration &&
      !isOneOf(trimmed, kModerationLabels)) {
    reasons.emplace_back("invalid_moderation_label");
  }
  if (request.kind == AiRequestKind::AntiCheatTriage &&
      !isOneOf(trimmed, kTriageLabels)) {
    reasons.emplace_back("invalid_classification_label");
  }

  checkCommands(trimmed, request, verdict);
  checkToolValues(trimmed, request, verdict);
  checkNumbers(trimmed, request, verdict);

  if (!safetyFactEnforced(foldedAnswer, request)) {
    reasons.emplace_back("safety_fact_not_enforced");
  }

  verdict.passed = reasons.empty();
  return verdict;
}

}  // namespace tovrin::ai
