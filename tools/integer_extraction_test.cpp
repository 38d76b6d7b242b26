#include <cstdint>
#include <random>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tovrin/ai/tools.hpp"

namespace tovrin::ai {
namespace {

using Integers = std::vector<std::int64_t>;

TEST(ExtractIntegers, Cases) {
  const struct {
    const char* name;
    std::string text;
    Integers expected;
  } kCases[] = {
      {"sentence", "Mám 3 jablka a 12 hrušek, -5 a 3.14", {3, 12, 5, 3, 14}},
      {"inside_word", "abc123def", {123}},
      {"leading_zeros", "007", {7}},
      {"no_digits", "žádná čísla, jen slova.", {}},
      {"empty", "", {}},
      {"minus_is_not_sign", "-5", {5}},
      {"decimal_comma", "1,5", {1, 5}},
      {"decimal_point", "3.14", {3, 14}},
      {"whole_text", "42", {42}},
      {"line_breaks", "1\n2\r\n3", {1, 2, 3}},
      {"one_byte_apart", "1a2b3", {1, 2, 3}},
      {"nul_separates", std::string("4\0" "5", 3), {4, 5}},
      {"high_bytes_separate", "6\xc3\xa1" "7\xff" "8", {6, 7, 8}},
      {"arabic_indic_digit", "\xd9\xa3", {}},
      {"fullwidth_digit", "\xef\xbc\x93", {}},
      {"zero", "0", {0}},
      {"largest", "9223372036854775807", {INT64_MAX}},
      {"largest_with_zeros", "0009223372036854775807", {INT64_MAX}},
      {"largest_twice", "9223372036854775807-9223372036854775807",
       {INT64_MAX, INT64_MAX}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(extractIntegers(c.text), c.expected);
  }
}

TEST(ExtractIntegers, RunBeyondSixtyFourBitsThrows) {
  const struct {
    const char* name;
    std::string text;
  } kCases[] = {
      {"largest_plus_one", "9223372036854775808"},
      {"twenty_digits", "a 12 b 99999999999999999999"},
      {"after_valid_runs", "1 2 3 18446744073709551616"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    try {
      extractIntegers(c.text);
      ADD_FAILURE() << "no exception";
    } catch (const std::out_of_range& e) {
      EXPECT_STREQ(e.what(), "stoll argument out of range");
    }
  }
}

constexpr std::size_t kMebibyte = 1024 * 1024;

// Each of these would take minutes if any run were rescanned per byte.
TEST(ExtractIntegers, MebibyteInputs) {
  EXPECT_EQ(extractIntegers(std::string(kMebibyte - 1, '0') + "7"),
            Integers{7});
  EXPECT_THROW(extractIntegers(std::string(kMebibyte, '9')), std::out_of_range);
  std::string many;
  for (std::size_t i = 0; i < kMebibyte / 2; ++i) many += "1a";
  const Integers got = extractIntegers(many);
  EXPECT_EQ(got.size(), kMebibyte / 2);
  EXPECT_EQ(got.front(), 1);
  EXPECT_EQ(got.back(), 1);
}

// The reference: the pattern the scanner replaces, iterated with std::regex.
// Returns the values, or sets threw for a run std::stoll refuses.
Integers regexIntegers(const std::string& text, bool& threw) {
  static const std::regex pattern("(?:^|[^0-9])([0-9]+)(?=$|[^0-9])");
  Integers values;
  threw = false;
  try {
    for (std::sregex_iterator it(text.begin(), text.end(), pattern), end;
         it != end; ++it) {
      values.push_back(std::stoll((*it)[1].str()));
    }
  } catch (const std::out_of_range&) {
    threw = true;
    values.clear();
  }
  return values;
}

std::string escaped(const std::string& text) {
  static const char kHex[] = "0123456789abcdef";
  std::string out;
  for (unsigned char c : text) {
    if (c >= 0x20 && c < 0x7f && c != '\\') {
      out += static_cast<char>(c);
    } else {
      out += "\\x";
      out += kHex[c >> 4];
      out += kHex[c & 0xf];
    }
  }
  return out;
}

// Short texts drawn from the bytes that matter to the pattern: digits most
// of all, then separators that look like parts of numbers, letters, blanks,
// line breaks and the bytes of UTF-8 sequences. Now and then a long run of
// digits goes in whole, so that runs near and beyond 64 bits occur.
std::string randomText(std::mt19937& random) {
  static const std::string kBytes[] = {
      "0123456789", "0123456789", "0123456789", "0123456789",
      "-", ".", ",", "abcXYZ", " \t", "\n\r", "\x80\xa1\xc3\xff",
  };
  constexpr std::size_t kByteKinds = sizeof kBytes / sizeof kBytes[0];
  std::uniform_int_distribution<std::size_t> lengthOf(0, 24);
  std::uniform_int_distribution<std::size_t> kindOf(0, kByteKinds);
  std::uniform_int_distribution<std::size_t> longRunOf(17, 21);
  std::uniform_int_distribution<int> digitOf(0, 9);
  std::string text;
  const std::size_t length = lengthOf(random);
  for (std::size_t i = 0; i < length; ++i) {
    const std::size_t kind = kindOf(random);
    if (kind == kByteKinds) {
      if (std::uniform_int_distribution<int>(0, 7)(random) != 0) continue;
      // A leading "92" keeps 19-digit runs on both sides of the limit.
      const std::size_t runLength = longRunOf(random);
      text += "92";
      for (std::size_t d = 2; d < runLength; ++d) {
        text += static_cast<char>('0' + digitOf(random));
      }
      continue;
    }
    const std::string& bytes = kBytes[kind];
    text += bytes[std::uniform_int_distribution<std::size_t>(
        0, bytes.size() - 1)(random)];
  }
  return text;
}

TEST(ExtractIntegers, EqualsRegexOnGeneratedTexts) {
  std::mt19937 random(20240611);
  int overflowSeen = 0;
  for (int i = 0; i < 100000; ++i) {
    const std::string text = randomText(random);
    bool regexThrew = false;
    const Integers expected = regexIntegers(text, regexThrew);
    bool threw = false;
    Integers got;
    try {
      got = extractIntegers(text);
    } catch (const std::out_of_range&) {
      threw = true;
    }
    if (regexThrew) ++overflowSeen;
    ASSERT_EQ(threw, regexThrew) << "text \"" << escaped(text) << "\"";
    ASSERT_EQ(got, expected) << "text \"" << escaped(text) << "\"";
  }
  // The generator must reach the overflow path, or half the contract goes
  // unchecked.
  EXPECT_GT(overflowSeen, 0);
}

}  // namespace
}  // namespace tovrin::ai
