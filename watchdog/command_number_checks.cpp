#include <string>
#include <string_view>
#include <unordered_set>

#include "pattern_scanners.hpp"
#include "tovrin/ai/text.hpp"
#include "tovrin/ai/watchdog.hpp"

namespace tovrin::ai {

namespace {

constexpr std::string_view kSlashCommandForbidden = "slash_command_forbidden";
constexpr std::string_view kInventedCommand = "invented_command:";
constexpr std::string_view kMissingToolValue = "missing_tool_value:";
constexpr std::string_view kUnexpectedNumber = "unexpected_number:";

std::string withPrefix(std::string_view prefix, std::string_view text) {
  std::string reason(prefix);
  reason.append(text);
  return reason;
}

}  // namespace

void checkCommands(const std::string& trimmedAnswer, const AiRequest& request,
                   WatchdogVerdict& verdict) {
  const std::string_view answer = trimmedAnswer;
  if (request.kind == AiRequestKind::ShortAnswer) {
    if (detail::findSlashCommand(answer, 0)) {
      verdict.reasons.emplace_back(kSlashCommandForbidden);
    }
    return;
  }
  if (request.kind != AiRequestKind::CommandHelp) return;
  // A set keeps an answer full of commands linear against a long list.
  const std::unordered_set<std::string_view> allowed(
      request.allowedCommands.begin(), request.allowedCommands.end());
  std::size_t pos = 0;
  while (auto match = detail::findSlashCommand(answer, pos)) {
    const std::string_view command =
        answer.substr(match->begin, match->end - match->begin);
    if (!allowed.contains(command)) {
      verdict.reasons.push_back(withPrefix(kInventedCommand, command));
      return;
    }
    pos = match->end;
  }
}

void checkToolValues(const std::string& trimmedAnswer,
                     const AiRequest& request, WatchdogVerdict& verdict) {
  for (const std::string& value : request.toolResults) {
    if (value.empty()) continue;
    if (!containsText(trimmedAnswer, value)) {
      verdict.reasons.push_back(withPrefix(kMissingToolValue, value));
    }
  }
}

void checkNumbers(const std::string& trimmedAnswer, const AiRequest& request,
                  WatchdogVerdict& verdict) {
  if (request.toolResults.empty()) return;
  std::unordered_set<std::string> expected;
  for (const std::string& value : request.toolResults) {
    if (!value.empty()) expected.insert(normalizeDecimalComma(value));
  }
  const std::string_view answer = trimmedAnswer;
  std::size_t pos = 0;
  while (auto match = detail::findNumber(answer, pos)) {
    std::string number = normalizeDecimalComma(
        std::string(answer.substr(match->begin, match->end - match->begin)));
    if (!expected.contains(number)) {
      verdict.reasons.push_back(withPrefix(kUnexpectedNumber, number));
      return;
    }
    pos = match->end;
  }
}

}  // namespace tovrin::ai
