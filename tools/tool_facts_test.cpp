#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tovrin/ai/tools.hpp"

namespace tovrin::ai {
namespace {

using Texts = std::vector<std::string>;

struct FactsCase {
  const char* name;
  std::string message;
  Texts toolResults;
  Texts worldFacts;
};

const FactsCase kFactsCases[] = {
    {"arithmetic_whole", "Kolik je 12*(3+4)?",
     {"84"},
     {"Přesný výsledek výpočtu  12*(3+4) je 84."}},
    {"arithmetic_fraction", "Kolik je 7/2?",
     {"3.5"},
     {"Přesný výsledek výpočtu  7/2 je 3.5."}},
    {"arithmetic_division_by_zero", "Kolik je 1/0?", {}, {}},
    {"arithmetic_words", "Kolik je dvakrát tři?", {}, {}},
    {"arithmetic_stops_at_comma", "Kolik je 2,5*2?",
     {"2"},
     {"Přesný výsledek výpočtu  2 je 2."}},
    {"arithmetic_capitals", "KOLIK JE 6*7",
     {"42"},
     {"Přesný výsledek výpočtu  6*7 je 42."}},
    {"arithmetic_third", "kolik je 1/3",
     {"0.333333333333"},
     {"Přesný výsledek výpočtu  1/3 je 0.333333333333."}},
    {"arithmetic_too_long", "kolik je " + std::string(128, '1'), {}, {}},
    {"bread", "Mám 10 mincí a chleba stojí 3 mince. Kolik si koupím?",
     {"3", "1"},
     {"Hráč si může koupit přesně 3 kus chleba a zůstanou mu přesně 1 "
      "mince."}},
    {"bread_equal_numbers", "Mám 8 mincí, chléb stojí 3 mince.",
     {"2"},
     {"Hráč si může koupit přesně 2 kus chleba a zůstanou mu přesně 2 "
      "mince."}},
    {"bread_order_decides", "Chleba stojí 3 mince a mám 10 mincí.",
     {"0", "3"},
     {"Hráč si může koupit přesně 0 kus chleba a zůstanou mu přesně 3 "
      "mince."}},
    {"bread_unaccented", "mam 7 minci, chleb stoji 2",
     {"3", "1"},
     {"Hráč si může koupit přesně 3 kus chleba a zůstanou mu přesně 1 "
      "mince."}},
    {"bread_price_zero", "Mám 5 mincí a chleba stojí 0 mincí.", {}, {}},
    {"bread_one_number", "Mám 5 mincí, kolik stojí chleba?", {}, {}},
    {"bread_without_coins", "Chleba stojí 3 zlaté a mám 10 zlatých.", {},
     {}},
    // Capital accented letters are not folded, so "STOJÍ" is not "stojí".
    {"bread_capital_accent", "CHLEBA STOJÍ 4 MINCE, MÁM 9", {}, {}},
    {"bread_capital_plain", "CHLEBA STOJI 4 MINCE, MAM 9",
     {"0", "4"},
     {"Hráč si může koupit přesně 0 kus chleba a zůstanou mu přesně 4 "
      "mince."}},
    {"apples", "Na stole je 5 jablek. Vezmu si 2 a 1 vrátím. Kolik jich "
               "zůstane?",
     {"4"},
     {"Na stole zůstanou přesně 4 jablka."}},
    {"apples_negative", "Na stole je 1 jablko, vezmu 5 a vrátím 1.",
     {"-3"},
     {"Na stole zůstanou přesně -3 jablka."}},
    {"apples_two_numbers", "Na stole je 5 jablek, vezmu 2 a vrátím je.", {},
     {}},
    {"apples_without_return", "Na stole je 5 jablek, vezmu 2, snim 1.", {},
     {}},
    {"apples_largest", "Na stole je 9223372036854775807 jablek, vezmu 0 a "
                       "vratim 0.",
     {"9223372036854775807"},
     {"Na stole zůstanou přesně 9223372036854775807 jablka."}},
    {"apples_lowest", "Na stole je 0 jablek, vezmu 9223372036854775807 a "
                      "vratim 0.",
     {"-9223372036854775807"},
     {"Na stole zůstanou přesně -9223372036854775807 jablka."}},
    {"apples_overflow", "Na stole je 9223372036854775807 jablek, vezmu 0 a "
                        "vratim 1.",
     {}, {}},
    {"bread_largest", "Mám 9223372036854775807 mincí, chleba stojí 2.",
     {"4611686018427387903", "1"},
     {"Hráč si může koupit přesně 4611686018427387903 kus chleba a zůstanou "
      "mu přesně 1 mince."}},
    // Arithmetic, bread and apples in one message, in that order; the
    // integers are shared, so the expression's numbers feed the others.
    {"all_three", "Kolik je 2+3? Mám 10 mincí, chleba stojí 4 mince. Jablka: "
                  "vezmu a vrátím.",
     {"5", "0", "2", "9"},
     {"Přesný výsledek výpočtu  2+3 je 5.",
      "Hráč si může koupit přesně 0 kus chleba a zůstanou mu přesně 2 mince.",
      "Na stole zůstanou přesně 9 jablka."}},
    {"run_beyond_64_bits",
     "Mám 99999999999999999999 mincí a chleba stojí 3 mince. Vezmu 1 jablko "
     "a vrátím 2. Kolik je 1+1?",
     {"2"},
     {"Přesný výsledek výpočtu  1+1 je 2."}},
    {"nothing_asked", "Ahoj, jak se máš?", {}, {}},
};

TEST(ApplyToolFacts, Cases) {
  for (const FactsCase& c : kFactsCases) {
    SCOPED_TRACE(c.name);
    AiRequest request;
    request.message = c.message;
    const AiRequest got = applyToolFacts(request);
    EXPECT_EQ(got.toolResults, c.toolResults);
    EXPECT_EQ(got.worldFacts, c.worldFacts);
    EXPECT_EQ(got.message, c.message);
  }
}

TEST(ApplyToolFacts, FactBytesAreUtf8) {
  AiRequest request;
  request.message = "kolik je 1";
  const AiRequest got = applyToolFacts(request);
  ASSERT_EQ(got.worldFacts.size(), 1u);
  EXPECT_EQ(got.worldFacts[0],
            "P\xc5\x99" "esn\xc3\xbd v\xc3\xbdsledek v\xc3\xbdpo\xc4\x8dtu  1 "
            "je 1.");
}

TEST(ApplyToolFacts, CallerEntriesComeFirstAndAreNotRepeated) {
  AiRequest request;
  request.message = "Kolik je 12*(3+4)? Mám 10 mincí, chleba stojí 3 mince.";
  request.toolResults = {"84", "x"};
  request.worldFacts = {"Hráč si může koupit přesně 4 kus chleba a zůstanou "
                        "mu přesně 0 mince."};
  const AiRequest got = applyToolFacts(request);
  EXPECT_EQ(got.toolResults, (Texts{"84", "x", "4", "0"}));
  EXPECT_EQ(got.worldFacts,
            (Texts{"Hráč si může koupit přesně 4 kus chleba a zůstanou mu "
                   "přesně 0 mince.",
                   "Přesný výsledek výpočtu  12*(3+4) je 84."}));
}

TEST(ApplyToolFacts, OtherFieldsPassThrough) {
  AiRequest request;
  request.message = "kolik je 2+2";
  request.persona = "kovář";
  request.allowedCommands = {"/help"};
  request.kind = AiRequestKind::ChatModeration;
  request.maxTokens = 7;
  const AiRequest got = applyToolFacts(request);
  EXPECT_EQ(got.toolResults, Texts{"4"});
  EXPECT_EQ(got.persona, "kovář");
  EXPECT_EQ(got.allowedCommands, Texts{"/help"});
  EXPECT_EQ(got.kind, AiRequestKind::ChatModeration);
  EXPECT_EQ(got.maxTokens, 7u);
}

constexpr std::size_t kMebibyte = 1024 * 1024;

TEST(ApplyToolFacts, MebibyteMessages) {
  const struct {
    const char* name;
    std::string message;
    Texts toolResults;
  } kCases[] = {
      {"letters_then_question", std::string(kMebibyte, 'a') + "kolik je 2*3",
       {"6"}},
      {"long_expression", "kolik je " + std::string(kMebibyte, '1'), {}},
      {"many_numbers", [] {
         std::string m = "minc stojí chleb ";
         while (m.size() < kMebibyte) m += "7 ";
         return m;
       }(), {"1", "0"}},
      {"zeros_run", "Mám " + std::string(kMebibyte, '0') +
                        "9 mincí, chleba stojí 4.", {"2", "1"}},
      {"nines_run", "Mám " + std::string(kMebibyte, '9') +
                        " mincí, chleba stojí 4. Kolik je 1?", {"1"}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    AiRequest request;
    request.message = c.message;
    AiRequest got;
    ASSERT_NO_THROW(got = applyToolFacts(request));
    EXPECT_EQ(got.toolResults, c.toolResults);
  }
}

TEST(ExtractArithmeticQuestion, Cases) {
  const struct {
    const char* name;
    std::string message;
    std::string expected;
  } kCases[] = {
      {"usual", "Kolik je 2+3?", " 2+3"},
      {"phrase_only", "kolik je", ""},
      {"shorter_than_phrase", "kolik j", ""},
      {"empty", "", ""},
      {"word_after", "Kolik je dvakrát tři?", ""},
      {"comma_ends", "Kolik je 2,5*2?", " 2"},
      {"all_operators", "kolik je (1+2)*3-4/5%6.5=", " (1+2)*3-4/5%6.5"},
      {"skips_until_accepted", "Řekni, kolik je: (1 + 2) * 3 !",
       " (1 + 2) * 3"},
      {"white_space_kinds", "KOLIK JE\t\v5\f\r\n", "\t\v5"},
      {"first_phrase_only", "kolik je x, kolik je 3", ""},
      {"no_word_boundary", "kolik jest 4", " 4"},
      {"high_bytes_skipped", "kolik je\xc2\xa0" "5+1", "5+1"},
      {"letter_ends", "kolik je 5 a 6", " 5"},
      {"mixed_case_phrase", "KoLiK jE 9", " 9"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(extractArithmeticQuestion(c.message), c.expected);
  }
}

TEST(FormatToolNumber, Cases) {
  const struct {
    const char* name;
    double value;
    const char* expected;
  } kCases[] = {
      {"near_whole", 84.00000000001, "84"},
      {"negative_whole", -2.0, "-2"},
      {"negative_zero", -0.0, "0"},
      {"zero", 0.0, "0"},
      {"tiny", 1e-11, "0"},
      {"rounding_noise", 4.35 * 100, "435"},
      {"just_outside_tolerance", 84.0000000002, "84.0000000002"},
      {"half", 3.5, "3.5"},
      {"third", 1.0 / 3.0, "0.333333333333"},
      {"two_thirds", 2.0 / 3.0, "0.666666666667"},
      {"large", 1.5e20, "1.5e+20"},
      {"small", 2.5e-10, "2.5e-10"},
      {"small_fixed", 0.0001, "0.0001"},
      {"small_exponent", 0.00001, "1e-05"},
      {"sum_noise", 0.1 + 0.2, "0.3"},
      {"twelve_digits", 123456.7890123456, "123456.789012"},
      {"half_to_even", 123456789012.5, "123456789012"},
      {"thirteen_digits", 1234567890123.5, "1.23456789012e+12"},
      {"large_whole", 9.2e18, "9200000000000000000"},
      {"lowest_int64", -9223372036854775808.0, "-9223372036854775808"},
      {"two_to_63", 9223372036854775808.0, "9.22337203685e+18"},
      {"negative_fraction", -3.5, "-3.5"},
      {"negative_small", -2.5e-5, "-2.5e-05"},
      {"subnormal", 5e-324, "0"},
      {"infinity", std::numeric_limits<double>::infinity(), "inf"},
      {"negative_infinity", -std::numeric_limits<double>::infinity(), "-inf"},
      {"nan", std::numeric_limits<double>::quiet_NaN(), "nan"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(formatToolNumber(c.value), c.expected);
  }
}

TEST(AppendUnique, Cases) {
  const struct {
    const char* name;
    Texts list;
    std::string text;
    Texts expected;
  } kCases[] = {
      {"into_empty", {}, "a", {"a"}},
      {"at_end", {"a", "b"}, "c", {"a", "b", "c"}},
      {"empty_text", {"a"}, "", {"a"}},
      {"empty_text_into_empty", {}, "", {}},
      {"duplicate_last", {"a", "b"}, "b", {"a", "b"}},
      {"duplicate_first", {"a", "b"}, "a", {"a", "b"}},
      {"trailing_blank_differs", {"84"}, "84 ", {"84", "84 "}},
      {"case_differs", {"ok"}, "OK", {"ok", "OK"}},
      {"accent_differs", {"vrat"}, "vrát", {"vrat", "vrát"}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    Texts list = c.list;
    appendUnique(list, c.text);
    EXPECT_EQ(list, c.expected);
  }
}

}  // namespace
}  // namespace tovrin::ai
