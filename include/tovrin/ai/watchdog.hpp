// The watchdog: fixed rules that judge one model answer against the request
// it answers. It never changes the answer; it returns a verdict with short
// machine-readable reason codes in the order the checks found them:
//
//   empty_answer, answer_too_long, instruction_leak, question_echo,
//   broken_czech_or_perspective, invalid_moderation_label,
//   invalid_classification_label, slash_command_forbidden,
//   invented_command:<command>, missing_tool_value:<value>,
//   unexpected_number:<number>, safety_fact_not_enforced
//
// Every function here runs in time linear in its input (no backtracking
// regular expressions, no recursion on input) and raises nothing for any
// content.
#ifndef TOVRIN_AI_WATCHDOG_HPP_
#define TOVRIN_AI_WATCHDOG_HPP_

#include <string>
#include <string_view>
#include <vector>

#include "tovrin/ai/records.hpp"

namespace tovrin::ai {

// Every reason code, in the order the checks run. The three ending in ':'
// are followed directly by the offending command, tool result or number.
inline constexpr std::string_view kReasonCodes[] = {
    "empty_answer",
    "answer_too_long",
    "instruction_leak",
    "question_echo",
    "broken_czech_or_perspective",
    "invalid_moderation_label",
    "invalid_classification_label",
    "slash_command_forbidden",
    "invented_command:",
    "missing_tool_value:",
    "unexpected_number:",
    "safety_fact_not_enforced",
};

// The labels a moderation and a triage answer may consist of.
inline constexpr std::string_view kModerationLabels[] = {"OK", "WARN"};
inline constexpr std::string_view kTriageLabels[] = {"NORMAL", "WATCH", "HIGH"};

// The watchdog's result. passed is true exactly when reasons is empty.
struct WatchdogVerdict {
  bool passed = true;
  std::vector<std::string> reasons;
};

// Judges answer (trimmed here, whatever the caller did) against request.
// Reads message, worldFacts, allowedCommands, toolResults and kind.
WatchdogVerdict validateAnswer(const std::string& answer,
                               const AiRequest& request);

// Slash commands: a '/' followed by one or more of A-Z a-z 0-9 ':' '_' '-',
// found left to right without overlap, duplicates kept, slash included.
// Same matches as the ECMAScript pattern /([A-Za-z0-9:_-]+)/ iterated.
std::vector<std::string> extractSlashCommands(const std::string& text);

// Numbers: an optional '-' right before a run of ASCII digits, optionally
// followed by one '.' or ',' and another run of digits. Same matches as the
// ECMAScript pattern (-?[0-9]+(?:[.,][0-9]+)?) iterated.
std::vector<std::string> extractNumbers(const std::string& text);

// Returns a copy of text with every ',' replaced by '.'.
std::string normalizeDecimalComma(std::string text);

// The rules about hard data. Each reads the trimmed answer and the request
// and appends its reasons to verdict.reasons; none touches verdict.passed.
//
// ShortAnswer: "slash_command_forbidden" once when any command appears.
// CommandHelp: "invented_command:" + the first command not byte-equal to an
// entry of allowedCommands.
void checkCommands(const std::string& trimmedAnswer, const AiRequest& request,
                   WatchdogVerdict& verdict);
// "missing_tool_value:" + entry for every non-empty tool result that is not a
// byte substring of the answer, in list order.
void checkToolValues(const std::string& trimmedAnswer,
                     const AiRequest& request, WatchdogVerdict& verdict);
// With tool results present: "unexpected_number:" + the first number of the
// answer (comma normalised) that equals no normalised tool result.
void checkNumbers(const std::string& trimmedAnswer, const AiRequest& request,
                  WatchdogVerdict& verdict);

}  // namespace tovrin::ai

#endif  // TOVRIN_AI_WATCHDOG_HPP_
