#include <optional>
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

TEST(EvaluateExpression, Cases) {
  const struct {
    const char* name;
    std::string expression;
    std::optional<double> expected;
  } kCases[] = {
      {"one_byte", "7", 7.0},
      {"precedence", "2+3*4", 14.0},
      {"parentheses", "(2+3)*4", 20.0},
      {"unclosed_parenthesis", "2*(3", std::nullopt},
      {"wrong_closer", "(1]", std::nullopt},
      {"division_by_zero", "10/0", std::nullopt},
      {"remainder_by_zero", "10 % -0.0", std::nullopt},
      {"division_by_negative_zero", "1/-0", std::nullopt},
      {"sign_after_operator", "2*-3", -6.0},
      {"minus_minus", "2--3", 5.0},
      {"plus_minus_plus", "+-+2", -2.0},
      {"remainder_negative_left", "-7 % 3", -1.0},
      {"remainder_negative_right", "7 % -3", 1.0},
      {"remainder_fraction", "7.5 % 2", 1.5},
      {"left_to_right", "10-4-3+100/10/5", 5.0},
      {"product_then_remainder", "2*7%4", 2.0},
      {"surrounding_blanks", "  12  ", 12.0},
      {"blank_between_numbers", "1 2", std::nullopt},
      {"point_numbers", "1.5+.5", 2.0},
      {"trailing_point", "5.", 5.0},
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
      {"nul_inside", std::string("2\0+3", 4), std::nullopt},
      {"third", "1/3", 1.0 / 3.0},
      // Limits of length and nesting: none may crash or exhaust the stack.
      {"length_128", std::string(127, ' ') + "7", 7.0},
      {"length_129", std::string(128, ' ') + "7", std::nullopt},
      {"digits_128", "1" + std::string(127, '0'), 1e127},
      {"small_fraction", "." + std::string(126, '0') + "1", 1e-127},
      {"groups_63", repeat("(", 63) + "12" + repeat(")", 63), 12.0},
      {"open_128", std::string(128, '('), std::nullopt},
      {"minus_127_then_digit", std::string(127, '-') + "2", -2.0},
      {"plus_128", std::string(128, '+'), std::nullopt},
      {"minus_group_42", repeat("-(", 42) + "1" + repeat(")", 42), 1.0},
      {"minus_group_unclosed", repeat("-(", 64), std::nullopt},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(evaluateExpression(c.expression), c.expected) << c.name;
  }
  EXPECT_EQ(evaluateExpression("2+3*4 and more", 5), 14.0);
  EXPECT_EQ(evaluateExpression(nullptr, 0), std::nullopt);
}

// Every C-locale white-space byte separates tokens; nothing else does.
TEST(EvaluateExpression, WhiteSpaceKinds) {
  for (const char space : {' ', '\t', '\n', '\v', '\f', '\r', '\0', '\b', '\x85'}) {
    std::string expression(1, space);
    for (const char* token : {"2", "*", "(", "3", "+", "-", "1", ")"}) {
      expression += token;
      expression += space;
    }
    const bool isSpace = space != '\0' && space != '\b' && space != '\x85';
    EXPECT_EQ(evaluateExpression(expression), isSpace ? std::optional(4.0) : std::nullopt)
        << static_cast<int>(space);
  }
}

}  // namespace
}  // namespace tovrin::ai
