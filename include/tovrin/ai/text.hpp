// Byte-level text helpers shared by the watchdog, the generation loop, the
// template answer and the tools. They know nothing of characters: no byte of
// 0x80 or above is ever changed or treated as a space, and there is no
// folding of Czech diacritics anywhere (rules list both spellings instead).
#ifndef TOVRIN_AI_TEXT_HPP_
#define TOVRIN_AI_TEXT_HPP_

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

namespace tovrin::ai {

// Returns text without leading and trailing space bytes. Exactly four bytes
// are space: ' ', '\t', '\r' and '\n' (not vertical tab, form feed or NUL).
std::string trim(std::string text);

// Returns text with the ASCII capitals 'A' to 'Z' made small; every other
// byte, including all bytes of 0x80 and above, stays ("ŘEKNI" -> "Řekni").
std::string toLowerAscii(std::string text);

// True when any needle occurs in text as a contiguous run of bytes, compared
// exactly. An empty needle counts as found; no needles gives false.
bool containsAny(std::string_view text,
                 std::initializer_list<std::string_view> needles);
bool containsAny(std::string_view text,
                 std::span<const std::string_view> needles);

// True when needle occurs in text. Linear in both lengths whatever the
// content, so a long player text can be searched for in a long answer.
bool containsText(std::string_view text, std::string_view needle);

}  // namespace tovrin::ai

#endif  // TOVRIN_AI_TEXT_HPP_
