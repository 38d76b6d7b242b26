#include "figure_text.hpp"

#include <charconv>

namespace tovrin::ai::eval {

std::string fixedText(double value, int decimals) {
  char buffer[64];
  const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value,
                                          std::chars_format::fixed, decimals);
  return error == std::errc() ? std::string(buffer, end) : "?";
}

std::string percentText(std::size_t part, std::size_t whole) {
  if (whole == 0) return "-";
  return fixedText(
             100.0 * static_cast<double>(part) / static_cast<double>(whole),
             1) +
         " %";
}

std::string shortestText(float value) {
  char buffer[32];
  const auto [end, error] =
      std::to_chars(buffer, buffer + sizeof buffer, value);
  return error == std::errc() ? std::string(buffer, end) : "?";
}

std::string joinedText(const std::vector<std::string>& texts) {
  std::string line;
  for (const std::string& text : texts) {
    if (!line.empty()) line += ", ";
    line += text;
  }
  return line;
}

}  // namespace tovrin::ai::eval
