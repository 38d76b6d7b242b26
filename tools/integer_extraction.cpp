#include <charconv>
#include <stdexcept>

#include "runtime/byte_classes.hpp"
#include "tovrin/ai/tools.hpp"

namespace tovrin::ai {

namespace {

using detail::isAsciiDigit;

}  // namespace

// One pass over maximal digit runs: a regular expression would do the same
// but is slow and recursion-hungry on long player texts.
std::vector<std::int64_t> extractIntegers(const std::string& text) {
  std::vector<std::int64_t> values;
  const char* const end = text.data() + text.size();
  const char* cursor = text.data();
  while (cursor != end) {
    if (!isAsciiDigit(*cursor)) {
      ++cursor;
      continue;
    }
    const char* const runStart = cursor;
    while (cursor != end && isAsciiDigit(*cursor)) ++cursor;
    std::int64_t value = 0;
    const std::from_chars_result result =
        std::from_chars(runStart, cursor, value, 10);
    if (result.ec == std::errc::result_out_of_range) {
      throw std::out_of_range("stoll argument out of range");
    }
    values.push_back(value);
  }
  return values;
}

}  // namespace tovrin::ai
