#include "bench/regex_validator.hpp"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "watchdog/watchdog_tables.hpp"

namespace tovrin::ai::bench {

namespace {

using detail::reasonCode;
using detail::Rule;

// A phrase table of the watchdog as one alternation. No phrase holds a
// regular expression's special character.
std::string alternation(std::span<const std::string_view> phrases) {
  std::string pattern;
  for (std::string_view phrase : phrases) {
    if (!pattern.empty()) pattern += '|';
    pattern += phrase;
  }
  return pattern;
}

bool isOneOf(const std::string& text,
             std::span<const std::string_view> labels) {
  for (std::string_view label : labels) {
    if (text == label) return true;
  }
  return false;
}

constexpr const char* kSlashCommand = "/([A-Za-z0-9:_-]+)";
constexpr const char* kNumber = "(-?[0-9]+(?:[.,][0-9]+)?)";

bool found(const std::string& text, const std::regex& pattern) {
  return std::regex_search(text, pattern);
}

void checkCommands(const std::string& answer, const AiRequest& request,
                   const WatchdogPatterns& patterns,
                   std::vector<std::string>& reasons) {
  if (request.kind == AiRequestKind::ShortAnswer) {
    if (found(answer, patterns.slashCommand)) {
      reasons.emplace_back(reasonCode(Rule::kSlashCommandForbidden));
    }
    return;
  }
  if (request.kind != AiRequestKind::CommandHelp) return;
  for (std::sregex_iterator
           it(answer.begin(), answer.end(), patterns.slashCommand),
       end;
       it != end; ++it) {
    const std::string command = it->str();
    bool allowed = false;
    for (const std::string& entry : request.allowedCommands) {
      if (entry == command) allowed = true;
    }
    if (!allowed) {
      reasons.push_back(std::string(reasonCode(Rule::kInventedCommand)) +
                        command);
      return;
    }
  }
}

void checkToolValues(const std::string& answer, const AiRequest& request,
                     std::vector<std::string>& reasons) {
  for (const std::string& value : request.toolResults) {
    if (!value.empty() && answer.find(value) == std::string::npos) {
      reasons.push_back(std::string(reasonCode(Rule::kMissingToolValue)) +
                        value);
    }
  }
}

void checkNumbers(const std::string& answer, const AiRequest& request,
                  const WatchdogPatterns& patterns,
                  std::vector<std::string>& reasons) {
  if (request.toolResults.empty()) return;
  for (std::sregex_iterator it(answer.begin(), answer.end(), patterns.number),
       end;
       it != end; ++it) {
    const std::string number = normalizeDecimalComma(it->str());
    bool expected = false;
    for (const std::string& value : request.toolResults) {
      if (!value.empty() && normalizeDecimalComma(value) == number) {
        expected = true;
      }
    }
    if (!expected) {
      reasons.push_back(std::string(reasonCode(Rule::kUnexpectedNumber)) +
                        number);
      return;
    }
  }
}

}  // namespace

WatchdogPatterns compileWatchdogPatterns() {
  return {std::regex(alternation(detail::kInstructionLeakPhrases)),
          std::regex(alternation(detail::kBrokenCzechPhrases)),
          std::regex(alternation(detail::kProhibitionWords)),
          std::regex(alternation(detail::kRequestVerbs)),
          std::regex(alternation(detail::kRefusalWords)),
          std::regex(kSlashCommand),
          std::regex(kNumber)};
}

WatchdogVerdict validateAnswerWithRegex(const std::string& answer,
                                        const AiRequest& request,
                                        const WatchdogPatterns& patterns) {
  const std::string trimmed = trim(answer);
  const std::string foldedAnswer = toLowerAscii(trimmed);
  const std::string foldedQuestion = toLowerAscii(trim(request.message));

  WatchdogVerdict verdict;
  std::vector<std::string>& reasons = verdict.reasons;
  if (trimmed.empty()) reasons.emplace_back(reasonCode(Rule::kEmptyAnswer));
  const std::size_t limit = request.kind == AiRequestKind::ShortAnswer
                                ? detail::kMaxShortAnswerBytes
                                : detail::kMaxAnswerBytes;
  if (trimmed.size() > limit)
    reasons.emplace_back(reasonCode(Rule::kAnswerTooLong));
  if (found(foldedAnswer, patterns.instructionLeak)) {
    reasons.emplace_back(reasonCode(Rule::kInstructionLeak));
  }
  if (!foldedQuestion.empty() &&
      (foldedQuestion == foldedAnswer ||
       (foldedQuestion.size() >= detail::kMinEchoBytes &&
        foldedAnswer.find(foldedQuestion) != std::string::npos))) {
    reasons.emplace_back(reasonCode(Rule::kQuestionEcho));
  }
  if (found(foldedAnswer, patterns.brokenCzech)) {
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
  checkCommands(trimmed, request, patterns, reasons);
  checkToolValues(trimmed, request, reasons);
  checkNumbers(trimmed, request, patterns, reasons);
  if (!request.worldFacts.empty()) {
    std::string facts;
    for (const std::string& fact : request.worldFacts) facts += fact + ' ';
    if (found(toLowerAscii(facts), patterns.prohibitionWords) &&
        found(toLowerAscii(request.message), patterns.requestVerbs) &&
        !found(foldedAnswer, patterns.refusalWords)) {
      reasons.emplace_back(reasonCode(Rule::kSafetyFactNotEnforced));
    }
  }
  verdict.passed = reasons.empty();
  return verdict;
}

}  // namespace tovrin::ai::bench
