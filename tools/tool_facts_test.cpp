#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tovrin/ai/tools.hpp"

namespace tovrin::ai {
namespace {

using Texts = std::vector<std::string>;

const std::string kInt64Max = "9223372036854775807";

std::string bread(const std::string& pieces, const std::string& rest) {
  return "Hráč si může koupit přesně " + pieces + " kus chleba a zůstanou mu přesně " +
         rest + " mince.";
}

TEST(ApplyToolFacts, Cases) {
  const struct {
    const char* name;
    std::string message;
    Texts toolResults;
    Texts worldFacts;
  } kCases[] = {
      {"arithmetic_whole", "Kolik je 12*(3+4)?", {"84"}, {"Přesný výsledek výpočtu  12*(3+4) je 84."}},
      {"arithmetic_third", "kolik je 1/3", {"0.333333333333"}, {"Přesný výsledek výpočtu  1/3 je 0.333333333333."}},
      {"arithmetic_capitals_comma_ends", "KOLIK JE 2,5*2?", {"2"}, {"Přesný výsledek výpočtu  2 je 2."}},
      {"arithmetic_words", "Kolik je dvakrát tři?", {}, {}},
      {"bread", "Mám 10 mincí a chleba stojí 3 mince. Kolik si koupím?", {"3", "1"}, {bread("3", "1")}},
      {"bread_equal_numbers", "Mám 8 mincí, chléb stojí 3 mince.", {"2"}, {bread("2", "2")}},
      {"bread_order_decides", "Chleba stojí 3 mince a mám 10 mincí.", {"0", "3"}, {bread("0", "3")}},
      {"bread_unaccented", "mam 7 minci, chleb stoji 2", {"3", "1"}, {bread("3", "1")}},
      {"bread_price_zero", "Mám 5 mincí a chleba stojí 0 mincí.", {}, {}},
      {"bread_one_number", "Mám 5 mincí, kolik stojí chleba?", {}, {}},
      {"bread_without_coins", "Chleba stojí 3 zlaté a mám 10 zlatých.", {}, {}},
      {"bread_largest", "Mám " + kInt64Max + " mincí, chleba stojí 2.", {"4611686018427387903", "1"}, {bread("4611686018427387903", "1")}},
      {"apples", "Na stole je 5 jablek. Vezmu si 2 a 1 vrátím. Kolik jich zůstane?", {"4"}, {"Na stole zůstanou přesně 4 jablka."}},
      {"apples_negative", "Na stole je 1 jablko, vezmu 5 a vrátím 1.", {"-3"}, {"Na stole zůstanou přesně -3 jablka."}},
      {"apples_two_numbers", "Na stole je 5 jablek, vezmu 2 a vrátím je.", {}, {}},
      {"apples_without_return", "Na stole je 5 jablek, vezmu 2, snim 1.", {}, {}},
      {"apples_largest", "Na stole je " + kInt64Max + " jablek, vezmu 0 a vratim 0.", {kInt64Max}, {"Na stole zůstanou přesně " + kInt64Max + " jablka."}},
      {"apples_lowest", "Na stole je 0 jablek, vezmu " + kInt64Max + " a vratim 0.", {"-" + kInt64Max}, {"Na stole zůstanou přesně -" + kInt64Max + " jablka."}},
      {"apples_overflow", "Na stole je " + kInt64Max + " jablek, vezmu 0 a vratim 1.", {}, {}},
      // All three in that order; the expression's numbers feed the others.
      {"all_three", "Kolik je 2+3? Mám 10 mincí, chleba stojí 4 mince. Jablka: vezmu a vrátím.",
       {"5", "0", "2", "9"},
       {"Přesný výsledek výpočtu  2+3 je 5.", bread("0", "2"), "Na stole zůstanou přesně 9 jablka."}},
      {"run_beyond_64_bits", "Mám 99999999999999999999 mincí a chleba stojí 3 mince. Vezmu 1 jablko a vrátím 2. Kolik je 1+1?",
       {"2"}, {"Přesný výsledek výpočtu  1+1 je 2."}},
      {"nothing_asked", "Ahoj, jak se máš?", {}, {}},
      // Words one letter short of each phrase ask for nothing.
      {"coin_near_miss", "Mám 10 minut a chleba stojí 3.", {}, {}},
      {"price_near_miss", "Mám 10 mincí a chleba: stojánek 3.", {}, {}},
      {"bread_near_miss", "Mám 10 mincí, chlev a chlévy stojí 3.", {}, {}},
      {"apple_near_miss", "Na stole je 5 jabot, vezmu 2 a 1 vrátím.", {}, {}},
      {"take_near_miss", "Na stole je 5 jablek, vezu 2 a 1 vrátím.", {}, {}},
      {"return_near_miss", "Na stole je 5 jablek, vezmu 2, 1 vrácím, vrazím.", {}, {}},
  };
  for (const auto& c : kCases) {
    const AiRequest got = applyToolFacts({.message = c.message});
    EXPECT_EQ(got.toolResults, c.toolResults) << c.name;
    EXPECT_EQ(got.worldFacts, c.worldFacts) << c.name;
    EXPECT_EQ(got.message, c.message) << c.name;
  }
}

TEST(ApplyToolFacts, CallerEntriesComeFirstOthersPassThrough) {
  const AiRequest got = applyToolFacts({
      .message = "Kolik je 12*(3+4)? Mám 10 mincí, chleba stojí 3 mince.",
      .worldFacts = {bread("4", "0")},
      .allowedCommands = {"/help"},
      .toolResults = {"84", "x"},
      .persona = "kovář",
      .kind = AiRequestKind::ChatModeration,
      .maxTokens = 7});
  EXPECT_EQ(got.toolResults, (Texts{"84", "x", "4", "0"}));
  EXPECT_EQ(got.worldFacts, (Texts{bread("4", "0"), "Přesný výsledek výpočtu  12*(3+4) je 84."}));
  EXPECT_EQ(got.persona, "kovář");
  EXPECT_EQ(got.allowedCommands, Texts{"/help"});
  EXPECT_EQ(got.kind, AiRequestKind::ChatModeration);
  EXPECT_EQ(got.maxTokens, 7u);
}

TEST(ApplyToolFacts, MebibyteMessages) {
  constexpr std::size_t kMebibyte = 1024 * 1024;
  std::string manyNumbers = "minc stojí chleb ";
  while (manyNumbers.size() < kMebibyte) manyNumbers += "7 ";
  const struct {
    const char* name;
    std::string message;
    Texts toolResults;
  } kCases[] = {
      {"letters_then_question", std::string(kMebibyte, 'a') + "kolik je 2*3", {"6"}},
      {"long_expression", "kolik je " + std::string(kMebibyte, '1'), {}},
      {"many_numbers", manyNumbers, {"1", "0"}},
      {"zeros_run", "Mám " + std::string(kMebibyte, '0') + "9 mincí, chleba stojí 4.", {"2", "1"}},
      {"nines_run", "Mám " + std::string(kMebibyte, '9') + " mincí, chleba stojí 4. Kolik je 1?", {"1"}},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(applyToolFacts({.message = c.message}).toolResults, c.toolResults) << c.name;
  }
}

TEST(ExtractArithmeticQuestion, Cases) {
  const struct {
    const char* name;
    std::string message;
    std::string expected;
  } kCases[] = {
      {"phrase_only", "kolik je", ""},
      {"phrase_near_miss", "kolik ji 5", ""},
      {"skips_until_accepted", "Řekni, kolik je: (1 + 2) * 3 !", " (1 + 2) * 3"},
      {"white_space_kinds", "KOLIK JE\t\v5\f\r\n", "\t\v5"},
      {"first_phrase_only", "kolik je x, kolik je 3", ""},
      {"no_word_boundary", "kolik jest 4", " 4"},
      {"high_bytes_skipped", "kolik je\xc2\xa0" "5+1", "5+1"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(extractArithmeticQuestion(c.message), c.expected) << c.name;
  }
}

TEST(FormatToolNumber, Cases) {
  constexpr double kInf = std::numeric_limits<double>::infinity();
  const struct {
    double value;
    const char* expected;
  } kCases[] = {
      {84.00000000001, "84"}, {-2.0, "-2"}, {-0.0, "0"}, {1e-11, "0"}, {4.35 * 100, "435"},
      {84.0000000002, "84.0000000002"}, {1.0 / 3.0, "0.333333333333"},
      {2.0 / 3.0, "0.666666666667"}, {1.5e20, "1.5e+20"}, {2.5e-10, "2.5e-10"},
      {0.0001, "0.0001"}, {0.00001, "1e-05"}, {0.1 + 0.2, "0.3"},
      {123456.7890123456, "123456.789012"}, {123456789012.5, "123456789012"},
      {1234567890123.5, "1.23456789012e+12"}, {9.2e18, "9200000000000000000"},
      {-9223372036854775808.0, "-9223372036854775808"},
      {9223372036854775808.0, "9.22337203685e+18"}, {-2.5e-5, "-2.5e-05"},
      {5e-324, "0"}, {kInf, "inf"}, {-kInf, "-inf"},
      {std::numeric_limits<double>::quiet_NaN(), "nan"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(formatToolNumber(c.value), c.expected) << c.expected;
  }
}

}  // namespace
}  // namespace tovrin::ai
