#include <optional>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "tovrin/ai/tools.hpp"

namespace tovrin::ai {
namespace {

std::string repeat(const std::string& piece, int times) {
  std::string out;
  for (int i = 0; i < times; ++i) out += piece;
  return out;
}

struct ValueCase {
  const char* name;
  std::string expression;
  std::optional<double> expected;
};

const ValueCase kValueCases[] = {
    {"precedence", "2+3*4", 14.0},
    {"parentheses", "(2+3)*4", 20.0},
    {"unclosed_parenthesis", "2*(3", std::nullopt},
    {"division", "10/4", 2.5},
    {"division_by_zero", "10/0", std::nullopt},
    {"remainder_by_zero", "10 % 0", std::nullopt},
    {"division_by_negative_zero", "1/-0", std::nullopt},
    {"division_by_zero_expression", "1/(2-2)", std::nullopt},
    {"sign_before_product", "-2*3", -6.0},
    {"sign_after_operator", "2*-3", -6.0},
    {"minus_minus", "2--3", 5.0},
    {"plus_plus", "2++3", 5.0},
    {"plus_minus_plus", "+-+2", -2.0},
    {"double_minus", "--2", 2.0},
    {"signs_with_blanks", "- + - 2", 2.0},
    {"minus_group", "-(1+2)", -3.0},
    {"remainder", "7 % 3", 1.0},
    {"remainder_negative_left", "-7 % 3", -1.0},
    {"remainder_negative_right", "7 % -3", 1.0},
    {"remainder_fraction", "7.5 % 2", 1.5},
    {"left_to_right", "10-4-3+100/10/5", 5.0},
    {"product_then_remainder", "2*7%4", 2.0},
    {"surrounding_blanks", "  12  ", 12.0},
    {"blank_between_numbers", "1 2", std::nullopt},
    {"point_numbers", "1.5+.5", 2.0},
    {"trailing_point", "5.", 5.0},
    {"leading_zeros", "007", 7.0},
    {"lone_point", ".", std::nullopt},
    {"two_points", "1.2.3", std::nullopt},
    {"decimal_comma", "1,5", std::nullopt},
    {"exponent", "1e5", std::nullopt},
    {"power", "2^3", std::nullopt},
    {"implicit_product", "2(3)", std::nullopt},
    {"double_star", "2**3", std::nullopt},
    {"empty_group", "()", std::nullopt},
    {"empty", "", std::nullopt},
    {"blanks_only", "   ", std::nullopt},
    {"dangling_plus", "2+", std::nullopt},
    {"leading_remainder", "%3", std::nullopt},
    {"extra_closing", "(2))", std::nullopt},
    {"trailing_question_mark", "2+3?", std::nullopt},
    {"no_break_space_byte", "2\xa0+3", std::nullopt},
    {"nul_inside", std::string("2\0+3", 4), std::nullopt},
    {"third", "1/3", 1.0 / 3.0},
    // The length limit, and the deepest nesting 128 bytes allow: none of
    // these may crash or exhaust the stack, well formed or not.
    {"length_128", std::string(127, ' ') + "7", 7.0},
    {"length_129", std::string(128, ' ') + "7", std::nullopt},
    {"digits_128", "1" + std::string(127, '0'), 1e127},
    {"digits_129", "1" + std::string(128, '0'), std::nullopt},
    {"groups_63", repeat("(", 63) + "12" + repeat(")", 63), 12.0},
    {"open_128", std::string(128, '('), std::nullopt},
    {"open_127_then_digit", std::string(127, '(') + "1", std::nullopt},
    {"minus_127_then_digit", std::string(127, '-') + "2", -2.0},
    {"minus_128", std::string(128, '-'), std::nullopt},
    {"plus_127_then_digit", std::string(127, '+') + "2", 2.0},
    {"plus_128", std::string(128, '+'), std::nullopt},
    {"minus_group_42", repeat("-(", 42) + "1" + repeat(")", 42), 1.0},
    {"minus_group_unclosed", repeat("-(", 64), std::nullopt},
};

TEST(EvaluateExpression, Cases) {
  for (const ValueCase& c : kValueCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(evaluateExpression(c.expression), c.expected);
  }
}

// Every C-locale white-space byte separates tokens; nothing else does.
TEST(EvaluateExpression, WhiteSpaceKinds) {
  const struct {
    const char* name;
    char space;
    std::optional<double> expected;
  } kCases[] = {
      {"blank", ' ', 4.0},          {"tab", '\t', 4.0},
      {"line_feed", '\n', 4.0},     {"vertical_tab", '\v', 4.0},
      {"form_feed", '\f', 4.0},     {"carriage_return", '\r', 4.0},
      {"nul", '\0', std::nullopt},  {"backspace", '\b', std::nullopt},
      {"high_byte", '\x85', std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    std::string expression(1, c.space);
    for (const char* token : {"2", "*", "(", "3", "+", "-", "1", ")"}) {
      expression += token;
      expression += c.space;
    }
    EXPECT_EQ(evaluateExpression(expression), c.expected);
  }
}

TEST(EvaluateExpression, PointerAndLength) {
  EXPECT_EQ(evaluateExpression("2+3*4 and more", 5), 14.0);
  EXPECT_EQ(evaluateExpression(nullptr, 0), std::nullopt);
}

using Rule = double (*)(ExpressionCursor&);

// Runs a rule and describes its failure as "<kind>: <message>".
std::string failureOf(Rule rule, const std::string& text) {
  ExpressionCursor cursor{text.data(), text.size(), 0};
  try {
    rule(cursor);
  } catch (const std::invalid_argument& e) {
    return std::string("invalid_argument: ") + e.what();
  } catch (const std::out_of_range& e) {
    return std::string("out_of_range: ") + e.what();
  } catch (const std::runtime_error& e) {
    return std::string("runtime_error: ") + e.what();
  }
  return "no failure";
}

// A cursor is not length-checked, so the range errors are reachable here.
TEST(ParseRules, FailureMessages) {
  const std::string kZeros(400, '0');
  const struct {
    const char* name;
    Rule rule;
    std::string text;
    const char* expected;
  } kCases[] = {
      {"unclosed", parseSum, "(1+2", "runtime_error: missing parenthesis"},
      {"wrong_closer", parsePrimary, "(1]",
       "runtime_error: missing parenthesis"},
      {"nothing", parsePrimary, "", "runtime_error: expected number"},
      {"sign_in_primary", parsePrimary, "-1",
       "runtime_error: expected number"},
      {"after_operator", parseSum, "1+", "runtime_error: expected number"},
      {"divide_by_zero", parseSum, "1/0", "runtime_error: division by zero"},
      {"remainder_by_zero", parseProduct, "1%-0.0",
       "runtime_error: division by zero"},
      {"lone_point", parseUnary, ".",
       "invalid_argument: invalid stod argument"},
      {"too_large", parsePrimary, "1" + kZeros,
       "out_of_range: stod argument out of range"},
      {"too_small", parsePrimary, "." + kZeros + "1",
       "out_of_range: stod argument out of range"},
      {"subnormal", parsePrimary, "." + std::string(310, '0') + "1",
       "out_of_range: stod argument out of range"},
      {"long_zero", parsePrimary, "." + kZeros, "no failure"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(failureOf(c.rule, c.text), c.expected);
  }
}

TEST(ParseRules, CursorStopsAfterWhatTheyRead) {
  const struct {
    const char* name;
    Rule rule;
    std::string text;
    double value;
    std::size_t position;
  } kCases[] = {
      {"sum_stops_at_closer", parseSum, "1 + 2 )", 3.0, 6},
      {"unary_reads_signs", parseUnary, "+ -+ 5*2", -5.0, 6},
      {"primary_second_point", parsePrimary, " 1.5.2", 1.5, 4},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    ExpressionCursor cursor{c.text.data(), c.text.size(), 0};
    EXPECT_EQ(c.rule(cursor), c.value);
    EXPECT_EQ(cursor.position, c.position);
  }
}

TEST(AcceptChar, SkipsWhiteSpaceEvenWhenNotFound) {
  const std::string text = " \t x";
  ExpressionCursor cursor{text.data(), text.size(), 0};
  EXPECT_FALSE(acceptChar(cursor, '+'));
  EXPECT_EQ(cursor.position, 3u);
  EXPECT_TRUE(acceptChar(cursor, 'x'));
  EXPECT_FALSE(acceptChar(cursor, 'x'));
  EXPECT_EQ(cursor.position, 4u);
}

}  // namespace
}  // namespace tovrin::ai
