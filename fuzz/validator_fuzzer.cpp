// validateAnswer on any answer and request: the verdict is consistent with
// itself and with what the answer holds, reasons come in the order of the
// rule table, and trimming first changes nothing. The scanners are held
// against the ECMAScript patterns they replace, the linear substring search
// against std::string_view::find.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_support.hpp"
#include "tovrin/ai/text.hpp"
#include "tovrin/ai/watchdog.hpp"

namespace tovrin::ai {
namespace {

using detail::Rule;
using detail::reasonCode;

std::size_t rankOf(const std::string& reason) {
  for (std::size_t i = 0; i < std::size(kReasonCodes); ++i) {
    const std::string_view code = kReasonCodes[i];
    const bool matches = code.back() == ':'
                             ? reason.compare(0, code.size(), code) == 0
                             : reason == code;
    if (matches) return i;
  }
  fuzz::fail(reason.c_str(), __FILE__, __LINE__);
}

bool contains(const std::vector<std::string>& list, const std::string& item) {
  return std::find(list.begin(), list.end(), item) != list.end();
}

std::vector<std::string> reasonsWith(const std::vector<std::string>& reasons,
                                     std::string_view code) {
  std::vector<std::string> subjects;
  for (const std::string& reason : reasons) {
    if (reason.compare(0, code.size(), code) == 0) {
      subjects.push_back(reason.substr(code.size()));
    }
  }
  return subjects;
}

void checkScanners(const std::string& text) {
  static const std::regex commands("/([A-Za-z0-9:_-]+)");
  static const std::regex numbers("(-?[0-9]+(?:[.,][0-9]+)?)");
  if (text.size() > fuzz::kRegexInputLimit) return;
  FUZZ_CHECK(extractSlashCommands(text) == fuzz::regexMatches(text, commands));
  FUZZ_CHECK(extractNumbers(text) == fuzz::regexMatches(text, numbers));
}

void checkVerdict(const std::string& answer, const AiRequest& request,
                  const WatchdogVerdict& verdict) {
  const std::vector<std::string>& reasons = verdict.reasons;
  FUZZ_CHECK(verdict.passed == reasons.empty());
  for (std::size_t i = 0; i < reasons.size(); ++i) {
    const std::size_t rank = rankOf(reasons[i]);
    if (i == 0) continue;
    const std::size_t before = rankOf(reasons[i - 1]);
    FUZZ_CHECK(before < rank ||
               (before == rank && kReasonCodes[rank] == "missing_tool_value:"));
  }

  const std::string trimmed = trim(answer);
  FUZZ_CHECK(contains(reasons, "empty_answer") == trimmed.empty());
  const AiRequestKind kind = request.kind;
  if (contains(reasons, "invalid_moderation_label")) {
    FUZZ_CHECK(kind == AiRequestKind::ChatModeration);
  }
  if (contains(reasons, "invalid_classification_label")) {
    FUZZ_CHECK(kind == AiRequestKind::AntiCheatTriage);
  }
  FUZZ_CHECK(contains(reasons, "slash_command_forbidden") ==
             (kind == AiRequestKind::ShortAnswer &&
              !extractSlashCommands(trimmed).empty()));
  if (contains(reasons, "safety_fact_not_enforced")) {
    FUZZ_CHECK(!request.worldFacts.empty());
  }

  // The first command not allowed, and only for command help.
  std::string invented;
  if (kind == AiRequestKind::CommandHelp) {
    for (const std::string& command : extractSlashCommands(trimmed)) {
      if (!contains(request.allowedCommands, command)) {
        invented = command;
        break;
      }
    }
  }
  const std::vector<std::string> inventedReasons =
      reasonsWith(reasons, reasonCode(Rule::kInventedCommand));
  FUZZ_CHECK(inventedReasons ==
             (invented.empty() ? std::vector<std::string>{}
                               : std::vector<std::string>{invented}));

  std::vector<std::string> missing;
  for (const std::string& value : request.toolResults) {
    if (!value.empty() && trimmed.find(value) == std::string::npos) {
      missing.push_back(value);
    }
  }
  FUZZ_CHECK(reasonsWith(reasons, reasonCode(Rule::kMissingToolValue)) == missing);

  // The first number equal to no tool result, both comma-normalised.
  std::string unexpected;
  if (!request.toolResults.empty()) {
    for (const std::string& number : extractNumbers(trimmed)) {
      const std::string normalized = normalizeDecimalComma(number);
      bool known = false;
      for (const std::string& value : request.toolResults) {
        known = known || (!value.empty() &&
                          normalizeDecimalComma(value) == normalized);
      }
      if (!known) {
        unexpected = normalized;
        break;
      }
    }
  }
  const std::vector<std::string> unexpectedReasons =
      reasonsWith(reasons, reasonCode(Rule::kUnexpectedNumber));
  FUZZ_CHECK(unexpectedReasons ==
             (unexpected.empty() ? std::vector<std::string>{}
                                 : std::vector<std::string>{unexpected}));
}

}  // namespace
}  // namespace tovrin::ai

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  tovrin::ai::fuzz::writeWatchdogDictionaryIfAsked();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  using namespace tovrin::ai;
  FuzzedDataProvider input(data, size);
  const AiRequest request = fuzz::fuzzedRequest(input, 128);
  const std::string answer = input.ConsumeRemainingBytesAsString();

  const WatchdogVerdict verdict = validateAnswer(answer, request);
  checkVerdict(answer, request, verdict);
  const WatchdogVerdict again = validateAnswer(trim(answer), request);
  FUZZ_CHECK(again.passed == verdict.passed && again.reasons == verdict.reasons);

  checkScanners(answer);
  checkScanners(request.message);
  FUZZ_CHECK(containsText(answer, request.message) ==
             (std::string_view(answer).find(request.message) !=
              std::string_view::npos));
  return 0;
}
