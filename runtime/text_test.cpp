#include "tovrin/ai/text.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tovrin::ai {
namespace {

TEST(Text, TrimAndFold) {
  const struct {
    std::string (*apply)(std::string);
    std::string input;
    std::string expected;
  } kCases[] = {
      // trim: only blank, tab, carriage return and line feed, at both ends.
      {trim, "", ""},
      {trim, " \t\r\n \n", ""},
      {trim, "  Ahoj světe \r\n", "Ahoj světe"},
      {trim, "\tx\t", "x"},
      {trim, std::string("\v\0a\0\f", 5), std::string("\v\0a\0\f", 5)},
      {trim, "\xC2\xA0x\xC2\xA0", "\xC2\xA0x\xC2\xA0"},
      // toLowerAscii: ASCII capitals only, in and after whole blocks.
      {toLowerAscii, "ŘEKNI ČESKÝ \x80\xFF", "Řekni ČeskÝ \x80\xFF"},
      {toLowerAscii, "@AZ[`az{", "@az[`az{"},
      {toLowerAscii, "ABCDEFGHIJKLMNOPQRSTUVWXYZ ŘEKNI @[`{ Q", "abcdefghijklmnopqrstuvwxyz Řekni @[`{ q"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(c.apply(c.input), c.expected) << testing::PrintToString(c.input);
  }
}

TEST(Text, ContainsAnyFindsExactByteRuns) {
  const struct {
    const char* name;
    std::string_view text;
    std::initializer_list<std::string_view> needles;
    bool found;
  } kCases[] = {
      {"empty_needle", "ahoj", {"x", ""}, true},
      {"no_needles", "ab", {}, false},
      {"accent_is_not_folded", "NESMÍ", {"nesmí"}, false},
      {"last_byte_differs", "abd abd", {"abc", "abe"}, false},
      {"empty_in_empty", "", {""}, true},
      {"second_of_a_pair", "pomohla jsem ti", {"pomohl jsem ti", "pomohla"}, true},
      {"longer_needle_first", "xab", {"abcdef", "ab"}, true},
      {"needle_at_the_very_end", "xxxxnedám", {"nelze", "nedám"}, true},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(containsAny(c.text, c.needles), c.found) << c.name;
  }
}

TEST(Text, ContainsTextMatchesNaiveSearchOnAllShortTexts) {
  // Every text and needle of up to 6 bytes over two letters: the border
  // table's corner cases all show up here.
  std::vector<std::string> words{""};
  for (std::size_t length = 1; length <= 6; ++length) {
    for (unsigned bits = 0; bits < (1u << length); ++bits) {
      std::string word;
      for (std::size_t i = 0; i < length; ++i) word += (bits >> i) & 1 ? 'b' : 'a';
      words.push_back(word);
    }
  }
  for (const std::string& text : words) {
    for (const std::string& needle : words) {
      ASSERT_EQ(containsText(text, needle), text.find(needle) != std::string::npos)
          << "text '" << text << "' needle '" << needle << "'";
    }
  }
  // Long and repetitive: quadratic if any byte were read again and again.
  const std::string text(1 << 20, 'a');
  const std::string needle = std::string(1 << 19, 'a') + "b";
  EXPECT_FALSE(containsText(text, needle));
  EXPECT_TRUE(containsText(text + "b", needle));
}

}  // namespace
}  // namespace tovrin::ai
