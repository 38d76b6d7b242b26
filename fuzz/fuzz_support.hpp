// Shared by the libFuzzer harnesses: a check that stops the run with a
// message (libFuzzer saves the input that made it fail), the input as
// bytes, and the reference matches of std::regex for the differential
// checks of the scanners.
#ifndef TOVRIN_AI_FUZZ_FUZZ_SUPPORT_HPP_
#define TOVRIN_AI_FUZZ_FUZZ_SUPPORT_HPP_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#define FUZZ_CHECK(condition)                                               \
  ((condition) ? (void)0                                                    \
               : ::tovrin::ai::fuzz::fail(#condition, __FILE__, __LINE__))

namespace tovrin::ai::fuzz {

[[noreturn]] inline void fail(const char* condition, const char* file,
                              int line) {
  std::fprintf(stderr, "%s:%d: check failed: %s\n", file, line, condition);
  std::abort();
}

inline std::string bytes(const std::uint8_t* data, std::size_t size) {
  return std::string(reinterpret_cast<const char*>(data), size);
}

// Inputs up to this length are also run through std::regex; longer ones
// would mostly measure the reference's own slowness.
inline constexpr std::size_t kRegexInputLimit = 64;

// Every match of pattern, searched repeatedly from where the previous one
// ended: what the scanners promise to equal. group 0 is the whole match.
inline std::vector<std::string> regexMatches(const std::string& text,
                                             const std::regex& pattern,
                                             int group = 0) {
  std::vector<std::string> matches;
  for (std::sregex_iterator it(text.begin(), text.end(), pattern), end;
       it != end; ++it) {
    matches.push_back(it->str(group));
  }
  return matches;
}

}  // namespace tovrin::ai::fuzz

#endif  // TOVRIN_AI_FUZZ_FUZZ_SUPPORT_HPP_
