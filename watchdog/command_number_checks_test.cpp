#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tovrin/ai/watchdog.hpp"

namespace tovrin::ai {
namespace {

using Reasons = std::vector<std::string>;

AiRequest makeRequest(AiRequestKind kind, std::vector<std::string> allowed,
                      std::vector<std::string> tools) {
  AiRequest request;
  request.message = "m";
  request.allowedCommands = std::move(allowed);
  request.toolResults = std::move(tools);
  request.kind = kind;
  return request;
}

struct CommandCase {
  const char* name;
  AiRequestKind kind;
  std::vector<std::string> allowed;
  std::string answer;
  Reasons reasons;
};

TEST(CheckCommands, Table) {
  constexpr auto kShort = AiRequestKind::ShortAnswer;
  constexpr auto kHelp = AiRequestKind::CommandHelp;
  const std::vector<CommandCase> cases = {
      {"short_unit_is_command", kShort, {}, "Jedu rychlostí 50 km/h.",
       {"slash_command_forbidden"}},
      {"short_once_for_many", kShort, {"/heal"}, "/heal a /home",
       {"slash_command_forbidden"}},
      {"short_slash_blank_or_czech", kShort, {}, "Napiš / a pak /č.", {}},
      {"short_trailing_slash", kShort, {}, "konec/", {}},
      {"help_first_invented_only", kHelp, {"/heal", "/home"},
       "Použij /heal nebo /fly a pak /warp.", {"invented_command:/fly"}},
      {"help_allowed_without_slash", kHelp, {"heal", "home"},
       "Použij /heal nebo /fly a pak /warp.", {"invented_command:/heal"}},
      {"help_nothing_allowed", kHelp, {}, "Zkus /home.",
       {"invented_command:/home"}},
      {"help_case_sensitive", kHelp, {"/heal"}, "/HEAL",
       {"invented_command:/HEAL"}},
      {"help_entry_not_trimmed", kHelp, {" /heal"}, "/heal",
       {"invented_command:/heal"}},
      {"help_duplicates", kHelp, {"/heal"}, "/heal, /heal!", {}},
      {"help_czech_letter_ends_command", kHelp, {"/p"}, "Napiš /přidej.", {}},
      {"help_command_ends_at_slash", kHelp, {"/tp:home"}, "/tp:home/x",
       {"invented_command:/x"}},
      {"help_no_commands", kHelp, {}, "Bez příkazů.", {}},
      {"npc_no_rule", AiRequestKind::NpcDialogue, {}, "/fly", {}},
      {"moderation_no_rule", AiRequestKind::ChatModeration, {}, "/fly", {}},
      {"unknown_kind_no_rule", static_cast<AiRequestKind>(9), {}, "/fly", {}},
  };
  for (const CommandCase& c : cases) {
    SCOPED_TRACE(c.name);
    WatchdogVerdict verdict;
    checkCommands(c.answer, makeRequest(c.kind, c.allowed, {}), verdict);
    EXPECT_EQ(verdict.reasons, c.reasons);
  }
}

struct ToolCase {
  const char* name;
  std::vector<std::string> tools;
  std::string answer;
  Reasons reasons;
};

void expectToolCases(const std::vector<ToolCase>& cases,
                     void (*check)(const std::string&, const AiRequest&,
                                   WatchdogVerdict&)) {
  for (const ToolCase& c : cases) {
    SCOPED_TRACE(c.name);
    WatchdogVerdict verdict;
    check(c.answer, makeRequest(AiRequestKind::NpcDialogue, {}, c.tools),
          verdict);
    EXPECT_EQ(verdict.reasons, c.reasons);
  }
}

TEST(CheckToolValues, Table) {
  expectToolCases(
      {
          {"all_present", {"3", "1"}, "Koupíš 3 chleby a zbude ti 1 mince.",
           {}},
          {"words_are_not_numbers", {"3", "1"}, "Koupíš tři chleby.",
           {"missing_tool_value:3", "missing_tool_value:1"}},
          {"comma_not_normalised", {"3.5"}, "Je to 3,5.",
           {"missing_tool_value:3.5"}},
          {"substring_counts", {"42"}, "142", {}},
          {"empty_entry_skipped", {"", "5"}, "5", {}},
          {"case_sensitive", {"Zlato"}, "zlato",
           {"missing_tool_value:Zlato"}},
          {"list_order", {"b", "a", "c"}, "c",
           {"missing_tool_value:b", "missing_tool_value:a"}},
          {"entry_bytes_unchanged", {"dva\nč"}, "x",
           {"missing_tool_value:dva\nč"}},
          {"no_tools", {}, "cokoli", {}},
      },
      checkToolValues);
}

TEST(CheckNumbers, Table) {
  expectToolCases(
      {
          {"no_tools_no_rule", {}, "Za 10 mincí.", {}},
          {"all_expected", {"3", "1"}, "Koupíš 3 chleby a zbude ti 1 mince.",
           {}},
          {"first_unexpected", {"3", "1"},
           "Za 10 mincí koupíš 3 chleby a zbude 1.", {"unexpected_number:10"}},
          {"operands_are_numbers", {"5"}, "Výsledek 2+3 je 5.",
           {"unexpected_number:2"}},
          {"comma_equals_dot", {"3.5"}, "Je to 3,5.", {}},
          {"entry_comma_normalised", {"2,5"}, "2.5", {}},
          {"negative_expected", {"-3"}, "Zbývá -3.", {}},
          {"minus_after_digits", {"-3"}, "Zbývá 10-3.",
           {"unexpected_number:10"}},
          {"sign_matters", {"3"}, "Zbývá -3.", {"unexpected_number:-3"}},
          {"no_numeric_equality", {"7"}, "7.0", {"unexpected_number:7.0"}},
          {"glued_to_letters", {"12"}, "B12", {}},
          {"glued_unexpected", {"1"}, "B12x", {"unexpected_number:12"}},
          {"separator_without_digits", {"3"}, "3, 3. a 3", {}},
          {"two_dots", {"1.5"}, "1.5.3", {"unexpected_number:3"}},
          {"thousands_groups", {"1.000"}, "1,000,000",
           {"unexpected_number:000"}},
          {"substring_is_not_equal", {"42"}, "142",
           {"unexpected_number:142"}},
          {"reason_normalised", {"7"}, "7,25", {"unexpected_number:7.25"}},
          {"empty_entry_never_equal", {""}, "5", {"unexpected_number:5"}},
          {"first_only", {"1"}, "2 3", {"unexpected_number:2"}},
          {"no_numbers", {"1"}, "nic", {}},
      },
      checkNumbers);
}

TEST(Checks, AppendWithoutTouchingPassed) {
  WatchdogVerdict verdict{.passed = true, .reasons = {"earlier"}};
  const AiRequest request =
      makeRequest(AiRequestKind::ShortAnswer, {}, {"3"});
  checkCommands("/x 4", request, verdict);
  checkToolValues("/x 4", request, verdict);
  checkNumbers("/x 4", request, verdict);
  EXPECT_TRUE(verdict.passed);
  EXPECT_EQ(verdict.reasons,
            (Reasons{"earlier", "slash_command_forbidden",
                     "missing_tool_value:3", "unexpected_number:4"}));
}

}  // namespace
}  // namespace tovrin::ai
