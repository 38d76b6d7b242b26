// The calculator, integer extraction, the arithmetic question and the tool
// facts on any bytes. Integer extraction is held against the ECMAScript
// pattern it replaces; the calculator against itself: a valid expression
// keeps its value in parentheses and between blanks.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_support.hpp"
#include "tovrin/ai/tools.hpp"

namespace tovrin::ai {
namespace {

constexpr std::size_t kMaxExpression = 128;

bool sameValue(const std::optional<double>& a, const std::optional<double>& b) {
  return a.has_value() == b.has_value() && (!a || *a == *b);
}

void checkCalculator(const std::string& text) {
  const std::optional<double> value = evaluateExpression(text);
  if (text.empty() || text.size() > kMaxExpression) {
    FUZZ_CHECK(!value);
    return;
  }
  if (!value) return;
  FUZZ_CHECK(std::isfinite(*value));
  if (text.size() + 2 <= kMaxExpression) {
    FUZZ_CHECK(sameValue(evaluateExpression("(" + text + ")"), value));
    FUZZ_CHECK(sameValue(evaluateExpression(" " + text + "\t"), value));
  }
}

// (?:^|[^0-9])([0-9]+)(?=$|[^0-9]) iterated, converted like strtoll;
// nothing when a run does not fit 64 bits.
std::optional<std::vector<std::int64_t>> regexIntegers(const std::string& text) {
  static const std::regex pattern("(?:^|[^0-9])([0-9]+)(?=$|[^0-9])");
  std::vector<std::int64_t> values;
  for (const std::string& run : fuzz::regexMatches(text, pattern, 1)) {
    try {
      values.push_back(std::stoll(run));
    } catch (const std::out_of_range&) {
      return std::nullopt;
    }
  }
  return values;
}

void checkIntegers(const std::string& text) {
  std::optional<std::vector<std::int64_t>> got;
  try {
    got = extractIntegers(text);
    for (const std::int64_t value : *got) FUZZ_CHECK(value >= 0);
  } catch (const std::out_of_range& error) {
    FUZZ_CHECK(std::string(error.what()) == "stoll argument out of range");
  }
  if (text.size() <= fuzz::kRegexInputLimit) {
    FUZZ_CHECK(got == regexIntegers(text));
  }
}

constexpr std::string_view kSpaceBytes = " \t\n\v\f\r";

bool isExpressionByte(char c) {
  return (c >= '0' && c <= '9') || kSpaceBytes.find(c) != std::string::npos ||
         std::string_view("%()*+-./").find(c) != std::string::npos;
}

void checkArithmeticQuestion(const std::string& text) {
  const std::string expression = extractArithmeticQuestion(text);
  if (expression.empty()) return;
  FUZZ_CHECK(text.find(expression) != std::string::npos);
  for (const char c : expression) FUZZ_CHECK(isExpressionByte(c));
  FUZZ_CHECK(kSpaceBytes.find(expression.back()) == std::string::npos);
}

bool startsWith(const std::vector<std::string>& list,
                const std::vector<std::string>& prefix) {
  return list.size() >= prefix.size() &&
         std::equal(prefix.begin(), prefix.end(), list.begin());
}

void checkAdded(const std::vector<std::string>& before,
                const std::vector<std::string>& after) {
  FUZZ_CHECK(startsWith(after, before));
  for (std::size_t i = before.size(); i < after.size(); ++i) {
    FUZZ_CHECK(!after[i].empty());
    for (std::size_t j = 0; j < i; ++j) FUZZ_CHECK(after[j] != after[i]);
  }
}

void checkToolFacts(const std::string& text) {
  AiRequest request;
  request.message = text;
  request.toolResults = {"3"};
  request.worldFacts = {"Hráč nesmí dostat pivo zdarma."};
  request.allowedCommands = {"/trade"};
  request.persona = "Karel";
  request.kind = AiRequestKind::ShortAnswer;
  const AiRequest result = applyToolFacts(request);
  FUZZ_CHECK(result.message == request.message);
  FUZZ_CHECK(result.allowedCommands == request.allowedCommands);
  FUZZ_CHECK(result.persona == request.persona);
  FUZZ_CHECK(result.kind == request.kind);
  FUZZ_CHECK(result.maxTokens == request.maxTokens);
  checkAdded(request.toolResults, result.toolResults);
  checkAdded(request.worldFacts, result.worldFacts);
  // One fact per solved question, at most one tool result more than facts
  // (the bread question adds two).
  const std::size_t facts = result.worldFacts.size() - 1;
  FUZZ_CHECK(facts <= 3);
  FUZZ_CHECK(result.toolResults.size() - 1 <= facts + 1);
}

// Whole numbers print plainly, everything else with 12 significant digits;
// either way the text reads back as (nearly) the value.
void checkFormat(const std::string& text) {
  double value = 0.0;
  if (text.size() < sizeof value) return;
  std::memcpy(&value, text.data(), sizeof value);
  const std::string formatted = formatToolNumber(value);
  FUZZ_CHECK(!formatted.empty());
  if (!std::isfinite(value)) return;
  // strtod rather than from_chars: it reads subnormals back too. The
  // harness never changes the "C" locale.
  char* end = nullptr;
  const double back = std::strtod(formatted.c_str(), &end);
  FUZZ_CHECK(end == formatted.c_str() + formatted.size());
  FUZZ_CHECK(std::fabs(back - value) <=
             std::max(1e-10, std::fabs(value) * 1e-11));
}

}  // namespace
}  // namespace tovrin::ai

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  using namespace tovrin::ai;
  const std::string input = fuzz::bytes(data, size);
  checkCalculator(input);
  checkIntegers(input);
  checkArithmeticQuestion(input);
  checkToolFacts(input);
  checkFormat(input);
  return 0;
}
