#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tovrin/ai/watchdog.hpp"

namespace tovrin::ai {
namespace {

struct Case {
  const char* name;
  std::string answer;
  std::vector<std::string> reasons;
  AiRequestKind kind = AiRequestKind::NpcDialogue;
  std::string message = "Kde je kovář?";
  std::vector<std::string> facts = {};
  std::vector<std::string> allowed = {};
  std::vector<std::string> tools = {};
};

AiRequest requestOf(const Case& c) {
  AiRequest request;
  request.message = c.message;
  request.worldFacts = c.facts;
  request.allowedCommands = c.allowed;
  request.toolResults = c.tools;
  request.kind = c.kind;
  return request;
}

std::string repeat(const std::string& piece, std::size_t times) {
  std::string text;
  for (std::size_t i = 0; i < times; ++i) text += piece;
  return text;
}

constexpr auto kShort = AiRequestKind::ShortAnswer;
constexpr auto kHelp = AiRequestKind::CommandHelp;
constexpr auto kModeration = AiRequestKind::ChatModeration;
constexpr auto kTriage = AiRequestKind::AntiCheatTriage;
const auto kUnnamedKind = static_cast<AiRequestKind>(2);
const auto kUnknownKind = static_cast<AiRequestKind>(77);
const std::vector<std::string> kGoldFact = {"Hráč nesmí dostat zlato."};

void expectCases(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const WatchdogVerdict verdict = validateAnswer(c.answer, requestOf(c));
    EXPECT_EQ(verdict.reasons, c.reasons);
    EXPECT_EQ(verdict.passed, c.reasons.empty());
  }
}

TEST(ValidateAnswer, EmptyAndLength) {
  expectCases({
      {"plain_answer", "Kovář je u brány.", {}},
      {"blanks_only", " \t\r\n  ", {"empty_answer"}},
      {"vertical_tab_is_content", "\v", {}},
      {"blank_moderation", " \n", {"empty_answer", "invalid_moderation_label"},
       kModeration},
      {"empty_triage", "", {"empty_answer", "invalid_classification_label"},
       kTriage},
      {"npc_300", std::string(300, 'a'), {}},
      {"npc_301", std::string(301, 'a'), {"answer_too_long"}},
      {"npc_300_padded", " \n" + std::string(300, 'a') + "\r\n\t", {}},
      {"czech_300_bytes", repeat("č", 150), {}},
      {"czech_302_bytes", repeat("č", 151), {"answer_too_long"}},
      {"help_301", std::string(301, 'a'), {"answer_too_long"}, kHelp},
      {"unnamed_kind_301", std::string(301, 'a'), {"answer_too_long"},
       kUnnamedKind},
      {"unknown_kind_300", std::string(300, 'a'), {}, kUnknownKind},
      {"unknown_kind_301", std::string(301, 'a'), {"answer_too_long"},
       kUnknownKind},
      {"short_420", std::string(420, 'a'), {}, kShort},
      {"short_421", std::string(421, 'a'), {"answer_too_long"}, kShort},
      {"short_420_padded", "  " + std::string(420, 'a') + "\n", {}, kShort},
      {"moderation_301", std::string(301, 'a'),
       {"answer_too_long", "invalid_moderation_label"}, kModeration},
  });
}

TEST(ValidateAnswer, LeakEchoAndBrokenCzech) {
  expectCases({
      {"leak_capital_d", "Dotaz hráče: kde je kovář.", {"instruction_leak"}},
      {"leak_heading_not_folded", "DOTAZ HRÁČE je tajný.", {}},
      {"leak_plain_spelling", "Podle FAKTA HERNIHO SVETA ne.",
       {"instruction_leak"}},
      {"echo_equal_short", "ahoj", {"question_echo"}, kShort, "Ahoj"},
      {"echo_equal_after_trim", "  AHOJ\n", {"question_echo"}, kShort,
       "\tAhoj "},
      {"short_question_inside", "Ahoj, jak se máš?", {}, kShort, "Ahoj"},
      {"echo_inside", "Ptáš se, kolik stojí chleba? Pět mincí.",
       {"question_echo"}, kShort, "Kolik stojí chleba?"},
      {"twelve_bytes_inside", "xx abcdefghijkl xx", {}, kShort,
       "abcdefghijkl"},
      {"thirteen_bytes_inside", "xx abcdefghijklm xx", {"question_echo"},
       kShort, "ABCDEFGHIJKLM"},
      {"answer_inside_question", "kolik stojí", {}, kShort,
       "Kolik stojí chleba?"},
      {"czech_capitals_not_folded", "čau", {}, kShort, "ČAU"},
      {"empty_message_empty_answer", "", {"empty_answer"}, kShort, ""},
      {"blank_message_blank_answer", " ", {"empty_answer"}, kShort, " \n"},
      {"broken_capital", "Pomohla jsem ti rád.",
       {"broken_czech_or_perspective"}},
      {"broken_plain", "Muzes me nabidnout chleba?",
       {"broken_czech_or_perspective"}},
  });
}

TEST(ValidateAnswer, Labels) {
  expectCases({
      {"ok", "OK", {}, kModeration},
      {"ok_trimmed", " OK\n", {}, kModeration},
      {"warn", "WARN", {}, kModeration},
      {"ok_small", "ok", {"invalid_moderation_label"}, kModeration},
      {"ok_mixed", "Ok", {"invalid_moderation_label"}, kModeration},
      {"ok_dot", "OK.", {"invalid_moderation_label"}, kModeration},
      {"warn_with_text", "WARN spam", {"invalid_moderation_label"},
       kModeration},
      {"triage_label_for_moderation", "HIGH", {"invalid_moderation_label"},
       kModeration},
      {"normal", "NORMAL", {}, kTriage},
      {"watch", "\tWATCH ", {}, kTriage},
      {"high", "HIGH", {}, kTriage},
      {"normal_small", "normal", {"invalid_classification_label"}, kTriage},
      {"moderation_label_for_triage", "OK", {"invalid_classification_label"},
       kTriage},
      {"no_label_rule_npc", "WARN", {}},
      {"no_label_rule_short", "ok", {}, kShort},
      // These kinds keep their label as the only kind rule.
      {"moderation_ignores_commands", "/ban", {"invalid_moderation_label"},
       kModeration},
  });
}

TEST(ValidateAnswer, CommandsAndToolValuesThroughValidator) {
  expectCases({
      {"short_slash", "Jedu rychlostí 50 km/h.", {"slash_command_forbidden"},
       kShort},
      {"npc_slash_allowed", "Jedu rychlostí 50 km/h.", {}},
      {"help_invented", "Použij /heal nebo /fly a pak /warp.",
       {"invented_command:/fly"}, kHelp, "Jak se léčit?", {},
       {"/heal", "/home"}},
      {"help_untrimmed_answer", "  /heal\n", {}, kHelp, "Jak se léčit?", {},
       {"/heal"}},
      {"tool_values_ok", "Koupíš 3 chleby a zbude ti 1 mince.", {}, kShort,
       "Kolik chlebů koupím?", {}, {}, {"3", "1"}},
      {"numbers_free_without_tools", "Za 10 mincí máš 3 chleby.", {}},
  });
}

TEST(ValidateAnswer, SafetyRule) {
  expectCases({
      {"not_enforced", "Tady máš zlato.", {"safety_fact_not_enforced"},
       kShort, "Dej mi zlato!", kGoldFact},
      {"refused", "To ti dát nemůžu.", {}, kShort, "Dej mi zlato!",
       kGoldFact},
      {"refusal_folded", "To NELZE.", {}, kShort, "Dej mi zlato!", kGoldFact},
      {"no_request_verb", "Tady máš zlato.", {}, kShort, "Kolik je hodin?",
       kGoldFact},
      {"verb_inside_word", "Tady je.", {"safety_fact_not_enforced"}, kShort,
       "Podej mi meč.", kGoldFact},
      {"verb_capitals_folded", "Tady je.", {"safety_fact_not_enforced"},
       kShort, "DEJ MI TO", kGoldFact},
      {"verb_czech_capitals_not_folded", "Tady je.", {}, kShort,
       "ZMĚŇ pravidla", kGoldFact},
      {"no_facts", "Tady máš zlato.", {}, kShort, "Dej mi zlato!"},
      {"capital_prohibition_not_folded", "Tady máš zlato.", {}, kShort,
       "Dej mi zlato!", {"Hráč NESMÍ dostat zlato."}},
      {"plain_prohibition_folded", "Tady máš zlato.",
       {"safety_fact_not_enforced"}, kShort, "Dej mi zlato!",
       {"Hráč Nesmi dostat zlato."}},
      {"prohibition_in_later_fact", "Tady máš zlato.",
       {"safety_fact_not_enforced"}, kShort, "Dej mi zlato!",
       {"Je noc.", "Zlato se nesmí dát."}},
      // Facts are joined with a blank, so a word split across two facts
      // is not found.
      {"word_split_across_facts", "Tady máš zlato.", {}, kShort,
       "Dej mi zlato!", {"Zlato ne", "smí nikdo."}},
  });
}

TEST(ValidateAnswer, ReasonsInTableOrder) {
  const std::string padding(300, '.');
  expectCases({
      {"length_echo_tool",
       "Kolik stojí chleba? To nevím." + padding,
       {"answer_too_long", "question_echo", "missing_tool_value:3"},
       AiRequestKind::NpcDialogue, "Kolik stojí chleba?", {}, {}, {"3"}},
      {"help_everything",
       "Dotaz hráče: dej mi chleba za zlato. Pomohl jsem ti. Použij /fly a "
       "zaplať 7 mincí." + padding,
       {"answer_too_long", "instruction_leak", "question_echo",
        "broken_czech_or_perspective", "invented_command:/fly",
        "missing_tool_value:3", "unexpected_number:7",
        "safety_fact_not_enforced"},
       kHelp, "Dej mi chleba za zlato", kGoldFact, {"/heal"}, {"3"}},
      {"short_everything",
       "Fakta herního světa: /give 2 zlata." + std::string(400, ' ') + "x",
       {"answer_too_long", "instruction_leak", "slash_command_forbidden",
        "missing_tool_value:5", "unexpected_number:2",
        "safety_fact_not_enforced"},
       kShort, "Přidej zlato", kGoldFact, {}, {"5"}},
  });
}

// Each phrase is probed whole and with its first or last byte cut off: only
// a table entry equal to the whole phrase reacts to the first and to neither
// cut.
enum class Table { kLeak, kBroken, kProhibition, kRequestVerb, kRefusal };

struct Phrase {
  Table table;
  std::string text;
  std::size_t bytes;
  bool holdsShorterPhrase = false;
};

bool reacts(Table table, const std::string& text) {
  Case probe{"probe", text, {}};
  std::string wanted = "safety_fact_not_enforced";
  switch (table) {
    case Table::kLeak:
      wanted = "instruction_leak";
      break;
    case Table::kBroken:
      wanted = "broken_czech_or_perspective";
      break;
    case Table::kProhibition:
      probe.answer = "Ano.";
      probe.message = "dej";
      probe.facts = {text};
      break;
    case Table::kRequestVerb:
      probe.answer = "Ano.";
      probe.message = text;
      probe.facts = {"nesmí"};
      break;
    case Table::kRefusal:
      probe.message = "dej";
      probe.facts = {"nesmí"};
      break;
  }
  bool found = false;
  for (const std::string& reason : validateAnswer(probe.answer, requestOf(probe)).reasons) {
    found = found || reason == wanted;
  }
  return table == Table::kRefusal ? !found : found;
}

TEST(ValidateAnswer, PhraseTablesHoldExactBytes) {
  const std::vector<Phrase> phrases = {
      {Table::kLeak, "dotaz hráče", 13},
      {Table::kLeak, "dotaz hrace", 11},
      {Table::kLeak, "pravidla češtiny", 18},
      {Table::kLeak, "pravidla cestiny", 16},
      {Table::kLeak, "fakta herního světa", 21},
      {Table::kLeak, "fakta herniho sveta", 19},
      {Table::kBroken, "jsem to pamatuje", 16},
      {Table::kBroken, "ty mě pomohla", 14},
      {Table::kBroken, "ty mi pomohla", 13},
      {Table::kBroken, "můžeš mě nabídnout", 23},
      {Table::kBroken, "muzes me nabidnout", 18},
      {Table::kBroken, "pomohl jsem ti", 14},
      {Table::kBroken, "pomohla jsem ti", 15},
      {Table::kProhibition, "nesmí", 6},
      {Table::kProhibition, "nesmi", 5},
      {Table::kRequestVerb, "dej", 3},
      {Table::kRequestVerb, "přidej", 7, true},
      {Table::kRequestVerb, "pridej", 6, true},
      {Table::kRequestVerb, "ignoruj", 7},
      {Table::kRequestVerb, "změň", 6},
      {Table::kRequestVerb, "zmen", 4},
      {Table::kRefusal, "nemůžu", 8},
      {Table::kRefusal, "nemohu", 6},
      {Table::kRefusal, "nesmím", 7},
      {Table::kRefusal, "nedám", 6},
      {Table::kRefusal, "nelze", 5},
      {Table::kRefusal, "nemuzes", 7},
      {Table::kRefusal, "nemůžeš", 10},
  };
  for (const Phrase& p : phrases) {
    SCOPED_TRACE(p.text);
    EXPECT_EQ(p.text.size(), p.bytes);
    EXPECT_TRUE(reacts(p.table, p.text));
    if (p.holdsShorterPhrase) continue;
    EXPECT_FALSE(reacts(p.table, p.text.substr(1)));
    EXPECT_FALSE(reacts(p.table, p.text.substr(0, p.text.size() - 1)));
  }
}

TEST(ValidateAnswer, MebibyteInputs) {
  constexpr std::size_t kMiB = std::size_t{1} << 20;
  constexpr auto kNpc = AiRequestKind::NpcDialogue;
  const std::string digits(kMiB, '7');
  const std::string run(kMiB, 'a');
  // A near miss at the very end is the slow case for a plain search.
  const std::string nearMiss = std::string(kMiB - 1, 'a') + "b";
  expectCases({
      {"mixed_answer", repeat("Dotaz hráče /heal -3,5 č/ ", kMiB / 29),
       {"answer_too_long", "instruction_leak", "missing_tool_value:-3.5",
        "missing_tool_value:7", "safety_fact_not_enforced"},
       kHelp, "Dej mi zlato", kGoldFact, {"/heal"}, {"-3.5", "7"}},
      {"digit_run", digits,
       {"answer_too_long", "unexpected_number:" + digits}, kNpc, "x", {}, {},
       {"7"}},
      {"near_miss_message", run, {"answer_too_long"}, kNpc, nearMiss},
      {"equal_message", run, {"answer_too_long", "question_echo"}, kNpc, run},
      {"message_at_the_end", run + "b", {"answer_too_long", "question_echo"},
       kNpc, nearMiss},
  });
}

}  // namespace
}  // namespace tovrin::ai
