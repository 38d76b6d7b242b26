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
constexpr std::size_t kMebibyte = 1024 * 1024;

TEST(ExtractIntegers, Cases) {
  const struct {
    const char* name;
    std::string text;
    Integers expected;
  } kCases[] = {
      {"sentence", "Mám 3 jablka a 12 hrušek, -5 a 3,14", {3, 12, 5, 3, 14}},
      {"whole_text_with_zeros", "007", {7}},
      {"empty", "", {}},
      {"nul_and_high_bytes_separate", std::string("4\0" "5\xc3\xa1" "6\xff" "7", 8), {4, 5, 6, 7}},
      {"other_digits_are_not_digits", "\xd9\xa3 \xef\xbc\x93", {}},
      {"largest_twice", "0009223372036854775807-9223372036854775807", {INT64_MAX, INT64_MAX}},
      // Each of these would take minutes if a run were rescanned per byte.
      {"mebibyte_of_zeros", std::string(kMebibyte - 1, '0') + "7", {7}},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(extractIntegers(c.text), c.expected) << c.name;
  }
  std::string many;
  for (std::size_t i = 0; i < kMebibyte / 2; ++i) many += "1a";
  EXPECT_EQ(extractIntegers(many), Integers(kMebibyte / 2, 1));
  for (const std::string& text : {std::string("1 2 9223372036854775808"), std::string(kMebibyte, '9')}) {
    try {
      extractIntegers(text);
      ADD_FAILURE() << "no exception for " << text.substr(0, 30);
    } catch (const std::out_of_range& e) {
      EXPECT_STREQ(e.what(), "stoll argument out of range");
    }
  }
}

// Short texts drawn from the bytes that matter to the pattern: digits most
// of all, separators that look like parts of numbers, letters, blanks and
// UTF-8 bytes; now and then a run of 17 to 21 digits starting "92", so that
// runs on both sides of the 64-bit limit occur.
std::string randomText(std::mt19937& random) {
  static const std::string kBytes = "01234567890123456789-.,aX \n\x80\xc3\xff";
  std::string text;
  for (std::size_t i = random() % 25; i > 0; --i) {
    if (random() % 40 == 0) {
      text += "92";
      for (std::size_t d = 15 + random() % 5; d > 0; --d) text += static_cast<char>('0' + random() % 10);
    } else {
      text += kBytes[random() % kBytes.size()];
    }
  }
  return text;
}

// The reference is the pattern the scanner replaces, iterated with std::regex.
TEST(ExtractIntegers, EqualsRegexOnGeneratedTexts) {
  const std::regex pattern("(?:^|[^0-9])([0-9]+)(?=$|[^0-9])");
  std::mt19937 random(20240611);
  int overflows = 0;
  for (int i = 0; i < 100000; ++i) {
    const std::string text = randomText(random);
    Integers expected;
    bool expectThrow = false;
    try {
      for (std::sregex_iterator it(text.begin(), text.end(), pattern), end; it != end; ++it) {
        expected.push_back(std::stoll((*it)[1].str()));
      }
    } catch (const std::out_of_range&) {
      expectThrow = true;
      ++overflows;
    }
    if (expectThrow) {
      ASSERT_THROW(extractIntegers(text), std::out_of_range) << testing::PrintToString(text);
    } else {
      ASSERT_EQ(extractIntegers(text), expected) << testing::PrintToString(text);
    }
  }
  EXPECT_GT(overflows, 0) << "the generator must reach the overflow path";
}

}  // namespace
}  // namespace tovrin::ai
