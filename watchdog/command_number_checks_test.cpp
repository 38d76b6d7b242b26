#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tovrin/ai/watchdog.hpp"

namespace tovrin::ai {
namespace {

using Texts = std::vector<std::string>;
using K = AiRequestKind;
using Check = void (*)(const std::string&, const AiRequest&, WatchdogVerdict&);

struct CheckCase {
  const char* name;
  Texts listed;  // allowed commands for checkCommands, tool results otherwise
  std::string answer;
  Texts reasons;
  K kind = K::NpcDialogue;
};

void expectCases(Check check, const std::vector<CheckCase>& cases) {
  for (const CheckCase& c : cases) {
    WatchdogVerdict verdict;
    const bool commands = check == &checkCommands;
    check(c.answer, {.message = "m", .allowedCommands = commands ? c.listed : Texts{},
                     .toolResults = commands ? Texts{} : c.listed, .kind = c.kind},
          verdict);
    EXPECT_EQ(verdict.reasons, c.reasons) << c.name;
  }
}

TEST(CheckCommands, Cases) {
  expectCases(checkCommands, {
      {"short_unit_is_command", {}, "Jedu rychlostí 50 km/h.", {"slash_command_forbidden"}, K::ShortAnswer},
      {"short_once_for_many", {"/heal"}, "/heal a /home", {"slash_command_forbidden"}, K::ShortAnswer},
      {"short_slash_blank_czech_or_last", {}, "Napiš / a pak /č. konec/", {}, K::ShortAnswer},
      {"help_first_invented_only", {"/heal", "/home"}, "Použij /heal nebo /fly a pak /warp.", {"invented_command:/fly"}, K::CommandHelp},
      {"help_allowed_without_slash", {"heal"}, "Použij /heal.", {"invented_command:/heal"}, K::CommandHelp},
      {"help_nothing_allowed", {}, "Zkus /home.", {"invented_command:/home"}, K::CommandHelp},
      {"help_case_sensitive", {"/heal"}, "/HEAL", {"invented_command:/HEAL"}, K::CommandHelp},
      {"help_entry_not_trimmed", {" /heal"}, "/heal", {"invented_command:/heal"}, K::CommandHelp},
      {"help_duplicates", {"/heal"}, "/heal, /heal!", {}, K::CommandHelp},
      {"help_czech_letter_ends_command", {"/p"}, "Napiš /přidej.", {}, K::CommandHelp},
      {"help_command_ends_at_slash", {"/tp:home"}, "/tp:home/x", {"invented_command:/x"}, K::CommandHelp},
      {"npc_no_rule", {}, "/fly", {}},
      {"moderation_no_rule", {}, "/fly", {}, K::ChatModeration},
      {"unknown_kind_no_rule", {}, "/fly", {}, static_cast<K>(9)},
  });
}

TEST(CheckNumbers, Cases) {
  expectCases(checkNumbers, {
      {"no_tools_no_rule", {}, "Za 10 mincí.", {}},
      {"first_unexpected", {"3", "1"}, "Za 10 mincí koupíš 3 chleby a zbude 1.", {"unexpected_number:10"}},
      {"comma_equals_dot", {"3.5"}, "Je to 3,5.", {}},
      {"entry_comma_normalised", {"2,5"}, "2.5", {}},
      {"negative_expected", {"-3"}, "Zbývá -3.", {}},
      {"minus_after_digits", {"-3"}, "Zbývá 10-3.", {"unexpected_number:10"}},
      {"sign_matters", {"3"}, "Zbývá -3.", {"unexpected_number:-3"}},
      {"no_numeric_equality", {"7"}, "7.0", {"unexpected_number:7.0"}},
      {"glued_to_letters", {"12"}, "B12", {}},
      {"separator_without_digits", {"3"}, "3, 3. a 3", {}},
      {"thousands_groups", {"1.000"}, "1,000,000", {"unexpected_number:000"}},
      {"substring_is_not_equal", {"42"}, "142", {"unexpected_number:142"}},
      {"reason_normalised", {"7"}, "7,25", {"unexpected_number:7.25"}},
      {"empty_entry_never_equal", {""}, "5", {"unexpected_number:5"}},
      {"no_numbers", {"1"}, "nic", {}},
  });
}

}  // namespace
}  // namespace tovrin::ai
