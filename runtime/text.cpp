#include "tovrin/ai/text.hpp"

#include <vector>

namespace tovrin::ai {

namespace {

bool isSpaceByte(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

}  // namespace

std::string trim(std::string text) {
  std::size_t first = 0;
  while (first < text.size() && isSpaceByte(text[first])) ++first;
  std::size_t last = text.size();
  while (last > first && isSpaceByte(text[last - 1])) --last;
  return text.substr(first, last - first);
}

std::string toLowerAscii(std::string text) {
  // Written out rather than std::tolower so that a locale set by the
  // embedding game cannot change the result.
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

bool containsAny(std::string_view text,
                 std::initializer_list<std::string_view> needles) {
  return containsAny(text, std::span<const std::string_view>(needles.begin(),
                                                             needles.size()));
}

bool containsAny(std::string_view text,
                 std::span<const std::string_view> needles) {
  for (std::string_view needle : needles) {
    if (needle.size() > text.size()) continue;
    if (needle.empty()) return true;
    if (text.find(needle) != std::string_view::npos) return true;
  }
  return false;
}

// Knuth-Morris-Pratt: the plain search is quadratic on texts such as a long
// run of one letter searched for in another, and both texts here may come
// from players or models.
bool containsText(std::string_view text, std::string_view needle) {
  if (needle.empty()) return true;
  if (needle.size() > text.size()) return false;
  std::vector<std::size_t> border(needle.size(), 0);
  for (std::size_t i = 1, k = 0; i < needle.size(); ++i) {
    while (k > 0 && needle[i] != needle[k]) k = border[k - 1];
    if (needle[i] == needle[k]) ++k;
    border[i] = k;
  }
  for (std::size_t i = 0, k = 0; i < text.size(); ++i) {
    while (k > 0 && text[i] != needle[k]) k = border[k - 1];
    if (text[i] == needle[k]) ++k;
    if (k == needle.size()) return true;
  }
  return false;
}

}  // namespace tovrin::ai
