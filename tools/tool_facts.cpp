#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>

#include "runtime/byte_classes.hpp"
#include "tovrin/ai/text.hpp"
#include "tovrin/ai/tools.hpp"

namespace tovrin::ai {

namespace {

// The question phrases, matched as bytes of the ASCII-folded message with
// no word boundaries; accented and plain spellings are both listed.
constexpr std::string_view kArithmeticPhrase = "kolik je";

constexpr std::string_view kBreadCoinWords[] = {
    "minc",
};
constexpr std::string_view kBreadPriceWords[] = {
    "stojí",
    "stoji",
};
constexpr std::string_view kBreadWords[] = {
    "chleb",
    "chléb",
};

constexpr std::string_view kAppleWords[] = {
    "jabl",
};
constexpr std::string_view kAppleTakeWords[] = {
    "vezm",
};
constexpr std::string_view kAppleReturnWords[] = {
    "vrát",
    "vrat",
};

// The fact sentences, split where a number goes in.
constexpr std::string_view kArithmeticFactStart = "Přesný výsledek výpočtu ";
constexpr std::string_view kArithmeticFactMiddle = " je ";
constexpr std::string_view kArithmeticFactEnd = ".";
constexpr std::string_view kBreadFactStart = "Hráč si může koupit přesně ";
constexpr std::string_view kBreadFactMiddle =
    " kus chleba a zůstanou mu přesně ";
constexpr std::string_view kBreadFactEnd = " mince.";
constexpr std::string_view kAppleFactStart = "Na stole zůstanou přesně ";
constexpr std::string_view kAppleFactEnd = " jablka.";

// A result closer than this to a whole number is shown as that number, so
// the rounding noise of decimal fractions (4.35*100) does not show.
constexpr double kWholeNumberTolerance = 1e-10;

using detail::isAsciiDigit;
using detail::isCSpace;

bool isExpressionByte(char c) {
  if (isAsciiDigit(c)) return true;
  if (isCSpace(c)) return true;
  switch (c) {
    case '%': case '(': case ')': case '*':
    case '+': case '-': case '.': case '/':
      return true;
    default:
      return false;
  }
}

std::string decimalText(std::int64_t value) {
  char buffer[24];
  const std::to_chars_result result =
      std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

// a - b + c, or nothing when the result leaves the 64-bit range.
std::optional<std::int64_t> checkedAppleCount(std::int64_t a, std::int64_t b,
                                              std::int64_t c) {
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
  if ((b < 0 && a > kMax + b) || (b > 0 && a < kMin + b)) return std::nullopt;
  const std::int64_t difference = a - b;
  if ((c > 0 && difference > kMax - c) || (c < 0 && difference < kMin - c)) {
    return std::nullopt;
  }
  return difference + c;
}

// Any digit run of the player's beyond 64 bits means no integers at all, so
// no bread or apple answer is guessed from a partial list.
std::vector<std::int64_t> integersOrNone(const std::string& message) {
  try {
    return extractIntegers(message);
  } catch (const std::out_of_range&) {
    return {};
  }
}

// The expression after the first "kolik je" of folded (message folded with
// toLowerAscii), taken from message; shared so that a long message is
// folded once.
std::string arithmeticQuestion(const std::string& message,
                               std::string_view folded) {
  const std::size_t found = folded.find(kArithmeticPhrase);
  if (found == std::string_view::npos) return {};
  std::string expression;
  for (std::size_t i = found + kArithmeticPhrase.size(); i < message.size();
       ++i) {
    const char c = message[i];
    if (isExpressionByte(c)) {
      expression += c;
    } else if (!expression.empty()) {
      break;
    }
  }
  while (!expression.empty() && isCSpace(expression.back())) {
    expression.pop_back();
  }
  return expression;
}

void applyArithmetic(const std::string& message, std::string_view folded,
                     AiRequest& request) {
  const std::string expression = arithmeticQuestion(message, folded);
  if (expression.empty()) return;
  const std::optional<double> value = evaluateExpression(expression);
  if (!value) return;
  const std::string text = formatToolNumber(*value);
  appendUnique(request.toolResults, text);
  std::string fact(kArithmeticFactStart);
  fact += expression;
  fact += kArithmeticFactMiddle;
  fact += text;
  fact += kArithmeticFactEnd;
  appendUnique(request.worldFacts, std::move(fact));
}

void applyBread(std::string_view folded,
                const std::vector<std::int64_t>& numbers,
                AiRequest& request) {
  if (numbers.size() < 2) return;
  if (!containsAny(folded, kBreadCoinWords) ||
      !containsAny(folded, kBreadPriceWords) ||
      !containsAny(folded, kBreadWords)) {
    return;
  }
  const std::int64_t coins = numbers[0];
  const std::int64_t price = numbers[1];
  if (price <= 0) return;
  const std::string pieces = decimalText(coins / price);
  const std::string rest = decimalText(coins % price);
  appendUnique(request.toolResults, pieces);
  appendUnique(request.toolResults, rest);
  std::string fact(kBreadFactStart);
  fact += pieces;
  fact += kBreadFactMiddle;
  fact += rest;
  fact += kBreadFactEnd;
  appendUnique(request.worldFacts, std::move(fact));
}

void applyApples(std::string_view folded,
                 const std::vector<std::int64_t>& numbers,
                 AiRequest& request) {
  if (numbers.size() < 3) return;
  if (!containsAny(folded, kAppleWords) ||
      !containsAny(folded, kAppleTakeWords) ||
      !containsAny(folded, kAppleReturnWords)) {
    return;
  }
  const std::optional<std::int64_t> count =
      checkedAppleCount(numbers[0], numbers[1], numbers[2]);
  if (!count) return;
  const std::string text = decimalText(*count);
  appendUnique(request.toolResults, text);
  std::string fact(kAppleFactStart);
  fact += text;
  fact += kAppleFactEnd;
  appendUnique(request.worldFacts, std::move(fact));
}

}  // namespace

AiRequest applyToolFacts(AiRequest request) {
  const std::string folded = toLowerAscii(request.message);
  applyArithmetic(request.message, folded, request);
  const std::vector<std::int64_t> numbers = integersOrNone(request.message);
  applyBread(folded, numbers, request);
  applyApples(folded, numbers, request);
  return request;
}

std::string extractArithmeticQuestion(const std::string& message) {
  return arithmeticQuestion(message, toLowerAscii(message));
}

std::string formatToolNumber(double value) {
  // 2^63 is exact as a double; the whole numbers below it fit int64.
  constexpr double kTwoTo63 = 9223372036854775808.0;
  const double whole = std::round(value);
  if (std::fabs(value - whole) < kWholeNumberTolerance && whole >= -kTwoTo63 &&
      whole < kTwoTo63) {
    return decimalText(static_cast<std::int64_t>(whole));
  }
  // to_chars with general notation and a precision is defined as %.12g in
  // the "C" locale, without depending on the locale in force.
  char buffer[64];
  const std::to_chars_result result = std::to_chars(
      buffer, buffer + sizeof buffer, value, std::chars_format::general, 12);
  return std::string(buffer, result.ptr);
}

void appendUnique(std::vector<std::string>& list, std::string text) {
  if (text.empty()) return;
  if (std::find(list.begin(), list.end(), text) != list.end()) return;
  list.push_back(std::move(text));
}

}  // namespace tovrin::ai
