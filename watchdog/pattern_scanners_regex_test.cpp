// The scanners must find exactly what the iterated ECMAScript patterns find;
// std::regex serves as the reference here and nowhere in the library.
#include <cstddef>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tovrin/ai/watchdog.hpp"

namespace tovrin::ai {
namespace {

using Matches = std::vector<std::string>;

// Bytes repeated to weight the draw toward what the patterns care about
// ("\xC4\x8D" is 'č', "\xC3\xAD" is 'í').
const std::string kDense =
    "//////------......,,,,,,0123456789012345678901234567890123456789"
    "aZkq::__    \t\n+x\xC4\x8D\xC3\xAD\x80\xFF";
// Mostly prose, as in real answers, so that the scanners' skipping of whole
// blocks without a digit is exercised.
const std::string kProse = "abcdefghijklmnopqrstuvwxyz      ..,,\xC4\x8D\xC3\xAD\n-9/";

TEST(PatternScanners, EqualRegexOnGeneratedTexts) {
  const struct {
    const char* name;
    const char* pattern;
    Matches (*scan)(const std::string&);
    const std::string& alphabet;
    std::size_t maxLength;
    std::mt19937::result_type seed;
  } kCases[] = {
      {"commands", "/([A-Za-z0-9:_-]+)", extractSlashCommands, kDense, 24, 20240611u},
      {"numbers", "(-?[0-9]+(?:[.,][0-9]+)?)", extractNumbers, kDense, 24, 77031u},
      {"commands_in_prose", "/([A-Za-z0-9:_-]+)", extractSlashCommands, kProse, 80, 5150u},
      {"numbers_in_prose", "(-?[0-9]+(?:[.,][0-9]+)?)", extractNumbers, kProse, 80, 90210u},
  };
  for (const auto& c : kCases) {
    const std::regex reference(c.pattern, std::regex::ECMAScript);
    std::mt19937 rng(c.seed);
    for (int i = 0; i < 100000; ++i) {
      std::string text(rng() % (c.maxLength + 1), ' ');
      for (char& byte : text) byte = c.alphabet[rng() % c.alphabet.size()];
      Matches want;
      for (std::sregex_iterator it(text.begin(), text.end(), reference), end; it != end; ++it) {
        want.push_back(it->str());
      }
      ASSERT_EQ(c.scan(text), want) << c.name << ": " << testing::PrintToString(text);
    }
  }
}

}  // namespace
}  // namespace tovrin::ai
