#include "tovrin/ai/text.hpp"

#include <gtest/gtest.h>

#include <string>

namespace tovrin::ai {
namespace {

struct TextCase {
  const char* name;
  std::string input;
  std::string expected;
};

TEST(Trim, RemovesOnlyTheFourSpaceBytesAtBothEnds) {
  const TextCase cases[] = {
      {"empty", "", ""},
      {"only_spaces", " \t\r\n \n", ""},
      {"vertical_tab_and_form_feed_stay", "\vA\f", "\vA\f"},
      {"czech_with_inner_space", "  Ahoj světe \r\n", "Ahoj světe"},
      {"nul_is_not_space", std::string("\0a\0", 3), std::string("\0a\0", 3)},
      {"no_break_space_stays", "\xC2\xA0x\xC2\xA0", "\xC2\xA0x\xC2\xA0"},
      {"single_byte", "\tx\t", "x"},
  };
  for (const TextCase& c : cases) {
    EXPECT_EQ(trim(c.input), c.expected) << c.name;
  }
}

TEST(ToLowerAscii, ChangesAsciiCapitalsOnly) {
  const TextCase cases[] = {
      {"ascii", "Kolik JE 2+2?", "kolik je 2+2?"},
      {"czech_capitals_keep_case", "ČESKÝ", "ČeskÝ"},
      {"rekni", "ŘEKNI", "Řekni"},
      {"all_high_bytes", "\x80\xC3\x9A\xFF", "\x80\xC3\x9A\xFF"},
      {"edges_of_the_range", "@AZ[`az{", "@az[`az{"},
      {"longer_than_a_block", "ABCDEFGHIJKLMNOPQRSTUVWXYZ ŘEKNI @[`{ Q",
       "abcdefghijklmnopqrstuvwxyz Řekni @[`{ q"},
  };
  for (const TextCase& c : cases) {
    EXPECT_EQ(toLowerAscii(c.input), c.expected) << c.name;
  }
}

TEST(ContainsAny, FindsExactByteRuns) {
  EXPECT_TRUE(containsAny("ahoj", {"x", ""}));
  EXPECT_FALSE(containsAny("ab", {"abc"}));
  EXPECT_FALSE(containsAny("ab", {}));
  EXPECT_TRUE(containsAny("", {""}));
  EXPECT_FALSE(containsAny("", {"a"}));
  EXPECT_TRUE(containsAny("nesmí", {"nesmi", "smí"}));
  EXPECT_FALSE(containsAny("NESMÍ", {"nesmí"}));
}

TEST(ContainsAny, NeedlesSharingTheirFirstByteAreAllTried) {
  struct Case {
    const char* name;
    std::string_view text;
    std::initializer_list<std::string_view> needles;
    bool found;
  };
  const Case cases[] = {
      {"second_of_a_pair", "pomohla jsem ti", {"pomohl jsem ti", "pomohla"},
       true},
      {"pair_absent", "pomoc", {"pomohl", "pomohla"}, false},
      {"longer_needle_first", "xab", {"abcdef", "ab"}, true},
      {"found_late_in_text", "aaaaaaaaaaaaaaaaaaaaaaab", {"ac", "ab"}, true},
      {"last_byte_differs", "abd abd", {"abc", "abe"}, false},
      {"needle_at_the_very_end", "xxxxnedám", {"nelze", "nedám"}, true},
      {"other_first_byte_after", "dej mi to", {"ddd", "xyz", "mi"}, true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(containsAny(c.text, c.needles), c.found) << c.name;
  }
}

TEST(ContainsText, MatchesNaiveSearchOnAllShortTexts) {
  // Every text and needle of up to 6 bytes over a two-letter alphabet:
  // the border table's corner cases all show up here.
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
      ASSERT_EQ(containsText(text, needle),
                text.find(needle) != std::string::npos)
          << "text '" << text << "' needle '" << needle << "'";
    }
  }
}

TEST(ContainsText, LongRepetitiveTextsFinishQuickly) {
  const std::string text(1 << 20, 'a');
  const std::string needle = std::string(1 << 19, 'a') + "b";
  EXPECT_FALSE(containsText(text, needle));
  EXPECT_TRUE(containsText(text + "b", needle));
}

}  // namespace
}  // namespace tovrin::ai
