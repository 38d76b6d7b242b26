// The scanners must find exactly what the iterated ECMAScript patterns find;
// std::regex serves as the reference here and nowhere in the library.
#include <cstddef>
#include <cstdio>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tovrin/ai/watchdog.hpp"

namespace tovrin::ai {
namespace {

using Matches = std::vector<std::string>;

constexpr const char* kCommandPattern = "/([A-Za-z0-9:_-]+)";
constexpr const char* kNumberPattern = "(-?[0-9]+(?:[.,][0-9]+)?)";

Matches regexMatches(const std::string& text, const std::regex& pattern) {
  Matches matches;
  for (std::sregex_iterator it(text.begin(), text.end(), pattern), end;
       it != end; ++it) {
    matches.push_back(it->str());
  }
  return matches;
}

std::string escaped(const std::string& text) {
  std::string out;
  for (unsigned char c : text) {
    if (c >= 0x20 && c < 0x7F && c != '\\') {
      out += static_cast<char>(c);
    } else {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned>(c));
      out += hex;
    }
  }
  return out;
}

// Bytes repeated to weight the draw toward what the patterns care about;
// "\xC4\x8D" is the UTF-8 of 'č', "\xC3\xAD" of 'í'.
const std::string kAlphabet =
    "//////------......,,,,,,0123456789012345678901234567890123456789"
    "aZkq::__    \t\n+x\xC4\x8D\xC3\xAD\x80\xFF";

// Mostly prose: long stretches without a digit or a slash, as in real
// answers, so that the scanners' skipping of whole blocks is exercised.
const std::string kProseAlphabet =
    "abcdefghijklmnopqrstuvwxyz      ..,,\xC4\x8D\xC3\xAD\n-9/";

std::string randomText(std::mt19937& rng, const std::string& alphabet,
                       std::size_t maxLength) {
  std::uniform_int_distribution<std::size_t> length(0, maxLength);
  std::uniform_int_distribution<std::size_t> pick(0, alphabet.size() - 1);
  std::string text(length(rng), ' ');
  for (char& c : text) c = alphabet[pick(rng)];
  return text;
}

void compareWithRegex(const char* pattern, Matches (*scan)(const std::string&),
                      std::mt19937::result_type seed,
                      const std::string& alphabet = kAlphabet,
                      std::size_t maxLength = 24) {
  const std::regex reference(pattern, std::regex::ECMAScript);
  std::mt19937 rng(seed);
  for (int i = 0; i < 100000; ++i) {
    const std::string text = randomText(rng, alphabet, maxLength);
    const Matches want = regexMatches(text, reference);
    const Matches got = scan(text);
    if (got != want) {
      FAIL() << "text \"" << escaped(text) << "\" (sample " << i
             << "): scanner " << testing::PrintToString(got) << ", regex "
             << testing::PrintToString(want);
    }
  }
}

TEST(PatternScanners, SlashCommandsEqualRegex) {
  compareWithRegex(kCommandPattern, extractSlashCommands, 20240611u);
}

TEST(PatternScanners, NumbersEqualRegex) {
  compareWithRegex(kNumberPattern, extractNumbers, 77031u);
}

TEST(PatternScanners, SlashCommandsInProseEqualRegex) {
  compareWithRegex(kCommandPattern, extractSlashCommands, 5150u,
                   kProseAlphabet, 80);
}

TEST(PatternScanners, NumbersInProseEqualRegex) {
  compareWithRegex(kNumberPattern, extractNumbers, 90210u, kProseAlphabet,
                   80);
}

struct ScanCase {
  const char* name;
  std::string text;
  Matches matches;
};

TEST(PatternScanners, SlashCommandExamples) {
  const std::vector<ScanCase> cases = {
      {"between_letters", "a/b/c", {"/b", "/c"}},
      {"double_slash", "//x", {"/x"}},
      {"colon_and_next", "/tp:home/x", {"/tp:home", "/x"}},
      {"all_classes", "/A-b_9:z!", {"/A-b_9:z"}},
      {"blank_after", "/ ", {}},
      {"czech_after", "/č", {}},
      {"czech_inside", "/přidej", {"/p"}},
      {"duplicates_kept", "/a /a", {"/a", "/a"}},
      {"empty", "", {}},
  };
  for (const ScanCase& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(extractSlashCommands(c.text), c.matches);
  }
}

TEST(PatternScanners, NumberExamples) {
  const std::vector<ScanCase> cases = {
      {"trailing_comma", "3,", {"3"}},
      {"trailing_dot", "3.", {"3"}},
      {"two_dots", "1.5.3", {"1.5", "3"}},
      {"thousands", "1,000,000", {"1,000", "000"}},
      {"double_minus", "--5", {"-5"}},
      {"minus_dot", "-.5", {"5"}},
      {"minus_after_digits", "10-3", {"10", "-3"}},
      {"plus_not_sign", "2+3", {"2", "3"}},
      {"glued", "B12x", {"12"}},
      {"lone_minus", "-", {}},
      {"empty", "", {}},
  };
  for (const ScanCase& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(extractNumbers(c.text), c.matches);
  }
}

TEST(PatternScanners, NormalizeDecimalComma) {
  EXPECT_EQ(normalizeDecimalComma("1,5,x"), "1.5.x");
  EXPECT_EQ(normalizeDecimalComma("č, 2.0"), "č. 2.0");
  EXPECT_EQ(normalizeDecimalComma(""), "");
}

}  // namespace
}  // namespace tovrin::ai
