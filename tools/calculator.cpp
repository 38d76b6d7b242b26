#include <charconv>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "runtime/byte_classes.hpp"
#include "tovrin/ai/tools.hpp"

namespace tovrin::ai {

namespace {

// Longer expressions are refused; the limit also bounds the recursion of
// the parse rules, one level per '(' or sign.
constexpr std::size_t kMaxExpressionLength = 128;

using detail::isAsciiDigit;
using detail::isCSpace;

void skipSpace(ExpressionCursor& cursor) {
  while (cursor.position < cursor.length &&
         isCSpace(cursor.data[cursor.position])) {
    ++cursor.position;
  }
}

// The next byte, or '\0' at the end; '\0' is never an operator.
char peek(const ExpressionCursor& cursor) {
  return cursor.position < cursor.length ? cursor.data[cursor.position] : '\0';
}

double readOperand(ExpressionCursor& cursor) {
  if (acceptChar(cursor, '+')) return parseUnary(cursor);
  if (acceptChar(cursor, '-')) return -parseUnary(cursor);
  return parsePrimary(cursor);
}

// from_chars rather than strtod: the same correctly rounded value, but no
// locale. strtod also reports a range error for a result that is rounded
// into the subnormals, which from_chars accepts; both need far more digits
// than an expression may hold, but a cursor may be longer.
double convertNumber(const char* first, const char* last) {
  double value = 0.0;
  const std::from_chars_result result =
      std::from_chars(first, last, value, std::chars_format::fixed);
  if (result.ec == std::errc::invalid_argument) {
    throw std::invalid_argument("invalid stod argument");
  }
  if (result.ec == std::errc::result_out_of_range ||
      (value != 0.0 && value < std::numeric_limits<double>::min())) {
    throw std::out_of_range("stod argument out of range");
  }
  return value;
}

}  // namespace

std::optional<double> evaluateExpression(std::string_view expression) {
  return evaluateExpression(expression.data(), expression.size());
}

std::optional<double> evaluateExpression(const char* data,
                                         std::size_t length) {
  if (length == 0 || length > kMaxExpressionLength) return std::nullopt;
  ExpressionCursor cursor{data, length, 0};
  double value = 0.0;
  try {
    value = parseSum(cursor);
  } catch (const std::exception&) {
    return std::nullopt;
  }
  skipSpace(cursor);
  if (cursor.position != cursor.length) return std::nullopt;
  if (!std::isfinite(value)) return std::nullopt;
  return value;
}

bool acceptChar(ExpressionCursor& cursor, char c) {
  skipSpace(cursor);
  if (cursor.position < cursor.length && cursor.data[cursor.position] == c) {
    ++cursor.position;
    return true;
  }
  return false;
}

double parseSum(ExpressionCursor& cursor) {
  double value = parseProduct(cursor);
  for (;;) {
    skipSpace(cursor);
    const char op = peek(cursor);
    if (op == '+') {
      ++cursor.position;
      value += parseProduct(cursor);
    } else if (op == '-') {
      ++cursor.position;
      value -= parseProduct(cursor);
    } else {
      return value;
    }
  }
}

double parseProduct(ExpressionCursor& cursor) {
  double value = readOperand(cursor);
  for (;;) {
    skipSpace(cursor);
    const char op = peek(cursor);
    if (op != '*' && op != '/' && op != '%') return value;
    ++cursor.position;
    const double operand = readOperand(cursor);
    if (op == '*') {
      value *= operand;
    } else if (operand == 0.0) {
      throw std::runtime_error("division by zero");
    } else if (op == '/') {
      value /= operand;
    } else {
      value = std::fmod(value, operand);
    }
  }
}

double parseUnary(ExpressionCursor& cursor) {
  while (acceptChar(cursor, '+')) {
  }
  if (acceptChar(cursor, '-')) return -parseUnary(cursor);
  return parsePrimary(cursor);
}

double parsePrimary(ExpressionCursor& cursor) {
  skipSpace(cursor);
  if (peek(cursor) == '(') {
    ++cursor.position;
    const double value = parseSum(cursor);
    if (!acceptChar(cursor, ')')) {
      throw std::runtime_error("missing parenthesis");
    }
    return value;
  }
  const std::size_t start = cursor.position;
  bool seenPoint = false;
  while (cursor.position < cursor.length) {
    const char c = cursor.data[cursor.position];
    if (c == '.' && !seenPoint) {
      seenPoint = true;
    } else if (!isAsciiDigit(c)) {
      break;
    }
    ++cursor.position;
  }
  if (cursor.position == start) throw std::runtime_error("expected number");
  return convertNumber(cursor.data + start, cursor.data + cursor.position);
}

}  // namespace tovrin::ai
