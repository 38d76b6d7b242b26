// How the reports and the usage text write figures, so that the console,
// the HTML page and --help agree.
#ifndef TOVRIN_AI_EVAL_FIGURE_TEXT_HPP_
#define TOVRIN_AI_EVAL_FIGURE_TEXT_HPP_

#include <cstddef>
#include <string>
#include <vector>

namespace tovrin::ai::eval {

// value with exactly decimals digits after the point ("2.4"); "?" when it
// does not fit.
std::string fixedText(double value, int decimals);

// part of whole as "33.3 %"; "-" when whole is 0.
std::string percentText(std::size_t part, std::size_t whole);

// The shortest text that reads back as value: "0.03", not "0.0299999993".
std::string shortestText(float value);

// The texts separated by ", ".
std::string joinedText(const std::vector<std::string>& texts);

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_FIGURE_TEXT_HPP_
