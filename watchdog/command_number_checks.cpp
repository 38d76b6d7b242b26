#include <algorithm>
#include <string>
#include <string_view>
#include <unordered_set>

#include "needle_set.hpp"
#include "pattern_scanners.hpp"
#include "tovrin/ai/text.hpp"
#include "tovrin/ai/watchdog.hpp"
#include "watchdog_tables.hpp"

namespace tovrin::ai {

namespace {

using detail::Rule;
using detail::reasonCode;

// A set keeps an answer full of commands or numbers linear against a long
// list; a list this short is searched directly, which costs less than
// building the set.
constexpr std::size_t kShortListEntries = 8;

std::string withPrefix(std::string_view prefix, std::string_view text) {
  std::string reason(prefix);
  reason.append(text);
  return reason;
}

char withDecimalPoint(char c) { return c == ',' ? '.' : c; }

// value == number once both have their commas made points.
bool equalNormalized(std::string_view value, std::string_view number) {
  return value.size() == number.size() &&
         std::equal(value.begin(), value.end(), number.begin(),
                    [](char a, char b) {
                      return withDecimalPoint(a) == withDecimalPoint(b);
                    });
}

}  // namespace

void checkCommands(const std::string& trimmedAnswer, const AiRequest& request,
                   WatchdogVerdict& verdict) {
  const std::string_view answer = trimmedAnswer;
  if (request.kind == AiRequestKind::ShortAnswer) {
    if (detail::findSlashCommand(answer, 0)) {
      verdict.reasons.emplace_back(reasonCode(Rule::kSlashCommandForbidden));
    }
    return;
  }
  if (request.kind != AiRequestKind::CommandHelp) return;
  const std::vector<std::string>& list = request.allowedCommands;
  const bool shortList = list.size() <= kShortListEntries;
  std::unordered_set<std::string_view> allowed;
  if (!shortList) allowed.insert(list.begin(), list.end());
  std::size_t pos = 0;
  while (auto match = detail::findSlashCommand(answer, pos)) {
    const std::string_view command =
        answer.substr(match->begin, match->end - match->begin);
    const bool known =
        shortList ? std::find(list.begin(), list.end(), command) != list.end()
                  : allowed.contains(command);
    if (!known) {
      verdict.reasons.push_back(
          withPrefix(reasonCode(Rule::kInventedCommand), command));
      return;
    }
    pos = match->end;
  }
}

void checkToolValues(const std::string& trimmedAnswer,
                     const AiRequest& request, WatchdogVerdict& verdict) {
  const std::vector<std::string>& values = request.toolResults;
  // A short list is searched one entry at a time at memchr speed; a long one
  // in a single pass, so that the cost stays the answer plus the list.
  std::vector<bool> found;
  if (values.size() > kShortListEntries) {
    found = detail::findNeedles(trimmedAnswer, values);
  }
  for (std::size_t i = 0; i < values.size(); ++i) {
    const std::string& value = values[i];
    if (value.empty()) continue;
    const bool present =
        found.empty() ? containsText(trimmedAnswer, value) : found[i];
    if (!present) {
      verdict.reasons.push_back(
          withPrefix(reasonCode(Rule::kMissingToolValue), value));
    }
  }
}

void checkNumbers(const std::string& trimmedAnswer, const AiRequest& request,
                  WatchdogVerdict& verdict) {
  const std::vector<std::string>& values = request.toolResults;
  if (values.empty()) return;
  const bool shortList = values.size() <= kShortListEntries;
  std::unordered_set<std::string> expected;
  if (!shortList) {
    for (const std::string& value : values) {
      if (!value.empty()) expected.insert(normalizeDecimalComma(value));
    }
  }
  const std::string_view answer = trimmedAnswer;
  std::size_t pos = 0;
  while (auto match = detail::findNumber(answer, pos)) {
    const std::string_view number =
        answer.substr(match->begin, match->end - match->begin);
    // A number is never empty, so an empty entry matches none.
    const bool known =
        shortList
            ? std::any_of(values.begin(), values.end(),
                          [number](const std::string& value) {
                            return equalNormalized(value, number);
                          })
            : expected.contains(normalizeDecimalComma(std::string(number)));
    if (!known) {
      verdict.reasons.push_back(withPrefix(
          reasonCode(Rule::kUnexpectedNumber),
          normalizeDecimalComma(std::string(number))));
      return;
    }
    pos = match->end;
  }
}

}  // namespace tovrin::ai
