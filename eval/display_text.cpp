#include "display_text.hpp"

namespace tovrin::ai::eval {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD
constexpr std::string_view kEllipsis = "\xE2\x80\xA6";     // U+2026

bool inRange(std::string_view text, std::size_t at, unsigned char low,
             unsigned char high) {
  if (at >= text.size()) return false;
  const auto byte = static_cast<unsigned char>(text[at]);
  return byte >= low && byte <= high;
}

// The length of the well-formed character at text[at], or 0: no overlong
// forms, no surrogates, nothing above U+10FFFF.
std::size_t characterLength(std::string_view text, std::size_t at) {
  const auto lead = static_cast<unsigned char>(text[at]);
  if (lead < 0x80) return 1;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  std::size_t length = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (!inRange(text, at + 1, low, high)) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if (!inRange(text, at + i, 0x80, 0xBF)) return 0;
  }
  return length;
}

bool isControl(std::string_view character, bool oneLine) {
  const auto first = static_cast<unsigned char>(character[0]);
  if (character.size() == 1) {
    if (first == '\t' || first == '\n' || first == '\r') return oneLine;
    return first < 0x20 || first == 0x7F;
  }
  return first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

}  // namespace

std::string validText(std::string_view text, bool oneLine) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = characterLength(text, at);
    if (length == 0) {
      out += kReplacement;
      ++at;
      continue;
    }
    const std::string_view character = text.substr(at, length);
    out += isControl(character, oneLine) ? kReplacement : character;
    at += length;
  }
  return out;
}

std::string cutText(std::string_view text, std::size_t maxBytes) {
  if (text.size() <= maxBytes) return std::string(text);
  // A character has at most three bytes after its first.
  std::size_t end = maxBytes;
  for (int back = 0; back < 3 && end > 0 && inRange(text, end, 0x80, 0xBF);
       ++back) {
    --end;
  }
  return std::string(text.substr(0, end)) + std::string(kEllipsis);
}

}  // namespace tovrin::ai::eval
