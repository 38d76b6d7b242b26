// Deterministic tools: exact results that bind the model. An arithmetic
// expression after "kolik je", bread bought with coins and apples on a table
// are computed here before any model is asked.
//
// All functions here run in time linear in their input and never recurse on
// it beyond the calculator's 128-byte limit.
#ifndef TOVRIN_AI_TOOLS_HPP_
#define TOVRIN_AI_TOOLS_HPP_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tovrin/ai/records.hpp"

namespace tovrin::ai {

// ---- Calculator -----------------------------------------------------------
//
// Grammar (white space allowed between tokens):
//   sum     := product (('+' | '-') product)*
//   product := operand (('*' | '/' | '%') operand)*
//   operand := '+' unary | '-' unary | primary
//   unary   := '+'* ('-' unary | primary)
//   primary := '(' sum ')' | number
//   number  := digits and at most one '.', e.g. "5", "5.", ".5"
// '%' is the floating remainder whose sign follows the left operand.

// Returns the value of an expression of 1 to 128 bytes, or no value for any
// failure: bad syntax, trailing text, division or remainder by zero, a
// result that is not finite. Never raises.
std::optional<double> evaluateExpression(std::string_view expression);
std::optional<double> evaluateExpression(const char* data, std::size_t length);

// The state of one evaluation: the expression bytes and a position.
struct ExpressionCursor {
  const char* data = nullptr;
  std::size_t length = 0;
  std::size_t position = 0;
};

// The calculator's rules, each advancing the cursor. The parse rules throw
// std::exception-derived errors ("missing parenthesis", "expected number",
// "division by zero", "invalid stod argument", "stod argument out of range")
// which evaluateExpression turns into no value.
bool acceptChar(ExpressionCursor& cursor, char c);  // skips white space first
double parseSum(ExpressionCursor& cursor);
double parseProduct(ExpressionCursor& cursor);
double parseUnary(ExpressionCursor& cursor);
double parsePrimary(ExpressionCursor& cursor);

// ---- Integer extraction ---------------------------------------------------

// Every maximal run of ASCII digits in text, in order, as a signed 64-bit
// value ('-5' gives 5, '3.14' gives 3 and 14). Throws std::out_of_range
// ("stoll argument out of range") for a run above 9223372036854775807.
std::vector<std::int64_t> extractIntegers(const std::string& text);

// ---- Tool facts -----------------------------------------------------------

// Returns request with the exact results of the questions its message asks
// appended to toolResults and one Czech sentence per solved question
// appended to worldFacts. Other fields pass through unchanged. A digit run
// too large for 64 bits adds no bread or apple result; the request goes on.
AiRequest applyToolFacts(AiRequest request);

// The expression text after the first "kolik je" (ASCII case folded), leading
// white space kept, trailing white space removed; "" when there is none.
std::string extractArithmeticQuestion(const std::string& message);

// A whole number (within 1e-10) as plain decimal, otherwise printf's %.12g.
std::string formatToolNumber(double value);

// Appends text unless it is empty or list already holds an equal entry.
void appendUnique(std::vector<std::string>& list, std::string text);

}  // namespace tovrin::ai

#endif  // TOVRIN_AI_TOOLS_HPP_
