#include "pattern_scanners.hpp"

#include <string>
#include <vector>

#include "runtime/byte_classes.hpp"
#include "tovrin/ai/watchdog.hpp"

namespace tovrin::ai {

namespace detail {

namespace {

bool isCommandByte(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || isAsciiDigit(c) ||
         c == ':' || c == '_' || c == '-';
}

std::size_t skipNonDigits(std::string_view text, std::size_t pos) {
  // One subtraction and compare per byte, so that blocks vectorise.
  return findFirstByte(text.data(), pos, text.size(), [](unsigned char b) {
    return static_cast<unsigned char>(b - '0') < 10;
  });
}

std::size_t skipDigits(std::string_view text, std::size_t pos) {
  while (pos < text.size() && isAsciiDigit(text[pos])) ++pos;
  return pos;
}

}  // namespace

std::optional<TextSpan> findSlashCommand(std::string_view text,
                                         std::size_t from) {
  for (std::size_t i = text.find('/', from); i != std::string_view::npos;
       i = text.find('/', i + 1)) {
    if (i + 1 >= text.size() || !isCommandByte(text[i + 1])) continue;
    std::size_t end = i + 2;
    while (end < text.size() && isCommandByte(text[end])) ++end;
    return TextSpan{i, end};
  }
  return std::nullopt;
}

std::optional<TextSpan> findNumber(std::string_view text, std::size_t from) {
  if (from >= text.size()) return std::nullopt;
  const std::size_t digits = skipNonDigits(text, from);
  if (digits == text.size()) return std::nullopt;
  // The leftmost match begins at the first digit, or at a '-' right before
  // it (no earlier byte can begin one).
  const std::size_t begin =
      digits > from && text[digits - 1] == '-' ? digits - 1 : digits;
  std::size_t end = skipDigits(text, digits);
  // The fraction is taken only whole: a separator needs a digit after it,
  // otherwise the number ends before the separator.
  if (end + 1 < text.size() && (text[end] == '.' || text[end] == ',') &&
      isAsciiDigit(text[end + 1])) {
    end = skipDigits(text, end + 1);
  }
  return TextSpan{begin, end};
}

}  // namespace detail

namespace {

template <typename Finder>
std::vector<std::string> collect(const std::string& text, Finder find) {
  std::vector<std::string> matches;
  std::size_t pos = 0;
  while (auto match = find(text, pos)) {
    matches.emplace_back(text, match->begin, match->end - match->begin);
    pos = match->end;
  }
  return matches;
}

}  // namespace

std::vector<std::string> extractSlashCommands(const std::string& text) {
  return collect(text, detail::findSlashCommand);
}

std::vector<std::string> extractNumbers(const std::string& text) {
  return collect(text, detail::findNumber);
}

std::string normalizeDecimalComma(std::string text) {
  for (char& c : text) {
    if (c == ',') c = '.';
  }
  return text;
}

}  // namespace tovrin::ai
