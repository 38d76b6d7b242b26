#include "tovrin/ai/text.hpp"

#include <array>
#include <vector>

#include "runtime/byte_classes.hpp"

namespace tovrin::ai {

namespace {

// A needle up to this long keeps its failure table on the stack; questions
// and tool results are far shorter, so the watchdog allocates nothing here.
constexpr std::size_t kStackNeedleBytes = 256;

constexpr std::size_t kFoldBlockBytes = 16;

using detail::isTrimmedBlank;

// Written out rather than std::tolower so that a locale set by the
// embedding game cannot change the result; without a branch, so that
// mixed-case text costs no mispredictions.
char lowerAsciiByte(char c) {
  const auto byte = static_cast<unsigned char>(c);
  const bool upper = static_cast<unsigned char>(byte - 'A') < 26;
  return static_cast<char>(byte | (upper ? 0x20 : 0));
}

// True when needle occurs in text at pos. Looks at the last byte first:
// the phrase tables begin with common letters, and most places where the
// first byte matches differ there already.
bool occursAt(std::string_view text, std::size_t pos, std::string_view needle) {
  return pos + needle.size() <= text.size() &&
         text[pos + needle.size() - 1] == needle.back() &&
         text.compare(pos, needle.size() - 1,
                      needle.substr(0, needle.size() - 1)) == 0;
}

}  // namespace

// Erased in place, so that a text handed over by move is never copied.
std::string trim(std::string text) {
  std::size_t last = text.size();
  while (last > 0 && isTrimmedBlank(text[last - 1])) --last;
  text.erase(last);
  std::size_t first = 0;
  while (first < text.size() && isTrimmedBlank(text[first])) ++first;
  text.erase(0, first);
  return text;
}

std::string toLowerAscii(std::string text) {
  // Blocks of a fixed size let the compiler turn the loop into vector code
  // at -O2; the rest is done byte by byte.
  char* bytes = text.data();
  const std::size_t size = text.size();
  std::size_t i = 0;
  for (; i + kFoldBlockBytes <= size; i += kFoldBlockBytes) {
    for (std::size_t j = 0; j < kFoldBlockBytes; ++j) {
      bytes[i + j] = lowerAsciiByte(bytes[i + j]);
    }
  }
  for (; i < size; ++i) bytes[i] = lowerAsciiByte(bytes[i]);
  return text;
}

bool containsAny(std::string_view text,
                 std::initializer_list<std::string_view> needles) {
  return containsAny(text, std::span<const std::string_view>(needles.begin(),
                                                             needles.size()));
}

// One scan per distinct first byte: the occurrences of that byte are found
// once (at memchr speed) and every needle that starts with it is tried
// there. At most needle-size comparisons per text byte and needle, as with
// string_view::find.
bool containsAny(std::string_view text,
                 std::span<const std::string_view> needles) {
  for (std::size_t i = 0; i < needles.size(); ++i) {
    const std::string_view needle = needles[i];
    if (needle.size() > text.size()) continue;
    if (needle.empty()) return true;
    const char first = needle.front();
    bool scanned = false;
    for (std::size_t j = 0; j < i && !scanned; ++j) {
      scanned = !needles[j].empty() && needles[j].size() <= text.size() &&
                needles[j].front() == first;
    }
    if (scanned) continue;
    for (std::size_t pos = text.find(first); pos != std::string_view::npos;
         pos = text.find(first, pos + 1)) {
      for (std::size_t j = i; j < needles.size(); ++j) {
        if (!needles[j].empty() && needles[j].front() == first &&
            occursAt(text, pos, needles[j])) {
          return true;
        }
      }
    }
  }
  return false;
}

// Knuth-Morris-Pratt: the plain search is quadratic on texts such as a long
// run of one letter searched for in another, and both texts here may come
// from players or models. Between partial matches the search jumps to the
// next byte that can start one, which reads ordinary text at memchr speed;
// every byte is still looked at a bounded number of times.
bool containsText(std::string_view text, std::string_view needle) {
  if (needle.empty()) return true;
  if (needle.size() > text.size()) return false;
  if (needle.size() == 1) return text.find(needle[0]) != std::string_view::npos;

  std::array<std::size_t, kStackNeedleBytes> stackBorder;
  std::vector<std::size_t> heapBorder;
  std::size_t* border = stackBorder.data();
  if (needle.size() > stackBorder.size()) {
    heapBorder.resize(needle.size());
    border = heapBorder.data();
  }
  border[0] = 0;
  for (std::size_t i = 1, k = 0; i < needle.size(); ++i) {
    while (k > 0 && needle[i] != needle[k]) k = border[k - 1];
    if (needle[i] == needle[k]) ++k;
    border[i] = k;
  }

  for (std::size_t i = 0, k = 0; i < text.size(); ++i) {
    if (k == 0) {
      const std::size_t start = text.find(needle[0], i);
      if (start == std::string_view::npos ||
          text.size() - start < needle.size()) {
        return false;
      }
      i = start;
      k = 1;
      continue;
    }
    while (k > 0 && text[i] != needle[k]) k = border[k - 1];
    if (text[i] == needle[k]) ++k;
    if (k == needle.size()) return true;
  }
  return false;
}

}  // namespace tovrin::ai
