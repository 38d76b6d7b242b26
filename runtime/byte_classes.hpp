// Byte classes and the block-wise byte search shared by the text helpers,
// the tools, the watchdog's scanners and the transport. The classes are
// explicit ranges rather than <cctype>: no locale set by the game may widen
// them, and bytes of 0x80 and above (negative as char) never qualify.
#ifndef TOVRIN_AI_RUNTIME_BYTE_CLASSES_HPP_
#define TOVRIN_AI_RUNTIME_BYTE_CLASSES_HPP_

#include <cstddef>

namespace tovrin::ai::detail {

// The blanks that trim removes: ' ', '\t', '\r' and '\n'.
constexpr bool isTrimmedBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// The "C" locale's isspace: the trimmed blanks plus '\v' and '\f'. The
// calculator and the tool facts skip these around expressions.
constexpr bool isCSpace(char c) {
  return isTrimmedBlank(c) || c == '\v' || c == '\f';
}

constexpr bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }

// Bytes tested together; the fixed size lets the compiler test a block with
// vector code.
inline constexpr std::size_t kScanBlockBytes = 16;

// The first position in [from, size) of data whose byte satisfies wanted
// (called with the byte as unsigned char), or size when there is none.
// Blocks without such a byte are passed over whole.
template <typename ByteTest>
std::size_t findFirstByte(const char* data, std::size_t from, std::size_t size,
                          ByteTest wanted) {
  std::size_t i = from;
  while (i + kScanBlockBytes <= size) {
    unsigned char found = 0;
    for (std::size_t j = 0; j < kScanBlockBytes; ++j) {
      found |= static_cast<unsigned char>(
          wanted(static_cast<unsigned char>(data[i + j])));
    }
    if (found != 0) break;
    i += kScanBlockBytes;
  }
  while (i < size && !wanted(static_cast<unsigned char>(data[i]))) ++i;
  return i;
}

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_RUNTIME_BYTE_CLASSES_HPP_
