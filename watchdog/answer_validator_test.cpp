#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tovrin/ai/watchdog.hpp"

namespace tovrin::ai {
namespace {

using Texts = std::vector<std::string>;
using K = AiRequestKind;

struct Case {
  const char* name;
  std::string answer;
  Texts reasons;
  K kind = K::NpcDialogue;
  std::string message = "Kde je kovář?";
  Texts facts = {};
  Texts allowed = {};
  Texts tools = {};
};

Texts reasonsOf(const Case& c) {
  const WatchdogVerdict verdict = validateAnswer(
      c.answer, {.message = c.message, .worldFacts = c.facts, .allowedCommands = c.allowed,
                 .toolResults = c.tools, .kind = c.kind});
  EXPECT_EQ(verdict.passed, verdict.reasons.empty()) << c.name;
  return verdict.reasons;
}

std::string repeat(const std::string& piece, std::size_t times) {
  std::string text;
  for (std::size_t i = 0; i < times; ++i) text += piece;
  return text;
}

const Texts kGold = {"Hráč nesmí dostat zlato."};
const std::string k301(301, 'a');
constexpr std::size_t kMiB = std::size_t{1} << 20;

TEST(ValidateAnswer, Cases) {
  const std::string nearMiss = std::string(kMiB - 1, 'a') + "b";
  const Case cases[] = {
      {"blanks_only", " \t\r\n  ", {"empty_answer"}},
      {"empty_triage", "", {"empty_answer", "invalid_classification_label"}, K::AntiCheatTriage},
      {"npc_300_padded", " \n" + std::string(300, 'a') + "\r\n\t", {}},
      {"czech_302_bytes", repeat("č", 151), {"answer_too_long"}},
      {"unknown_kind_301", k301, {"answer_too_long"}, static_cast<K>(77)},
      {"short_420_padded", "  " + std::string(420, 'a') + "\n", {}, K::ShortAnswer},
      {"short_421", std::string(421, 'a'), {"answer_too_long"}, K::ShortAnswer},
      {"leak", "Dotaz hráče: kde je kovář.", {"instruction_leak"}},
      {"echo_equal_after_trim", "  AHOJ\n", {"question_echo"}, K::ShortAnswer, "\tAhoj "},
      {"short_question_inside", "Ahoj, jak se máš?", {}, K::ShortAnswer, "Ahoj"},
      {"twelve_bytes_inside", "xx abcdefghijkl xx", {}, K::ShortAnswer, "abcdefghijkl"},
      {"thirteen_bytes_inside", "xx abcdefghijklm xx", {"question_echo"}, K::ShortAnswer, "ABCDEFGHIJKLM"},
      {"answer_inside_question", "kolik stojí", {}, K::ShortAnswer, "Kolik stojí chleba?"},
      {"blank_message_blank_answer", " ", {"empty_answer"}, K::ShortAnswer, " \n"},
      {"broken_capital", "Pomohla jsem ti rád.", {"broken_czech_or_perspective"}},
      {"ok_trimmed", " OK\n", {}, K::ChatModeration},
      {"warn", "WARN", {}, K::ChatModeration},
      {"ok_small", "ok", {"invalid_moderation_label"}, K::ChatModeration},
      {"triage_label_for_moderation", "HIGH", {"invalid_moderation_label"}, K::ChatModeration},
      {"moderation_301", k301, {"answer_too_long", "invalid_moderation_label"}, K::ChatModeration},
      {"normal", "NORMAL", {}, K::AntiCheatTriage},
      {"watch", "\tWATCH ", {}, K::AntiCheatTriage},
      {"high", "HIGH", {}, K::AntiCheatTriage},
      {"moderation_label_for_triage", "OK", {"invalid_classification_label"}, K::AntiCheatTriage},
      {"no_label_rule_short", "ok", {}, K::ShortAnswer},
      {"not_enforced", "Tady máš zlato.", {"safety_fact_not_enforced"}, K::ShortAnswer, "Dej mi zlato!", kGold},
      {"refusal_folded", "To NELZE.", {}, K::ShortAnswer, "Dej mi zlato!", kGold},
      {"no_request_verb", "Tady máš zlato.", {}, K::ShortAnswer, "Kolik je hodin?", kGold},
      {"verb_inside_word", "Tady je.", {"safety_fact_not_enforced"}, K::ShortAnswer, "Podej mi meč.", kGold},
      {"verb_capitals_folded", "Tady je.", {"safety_fact_not_enforced"}, K::ShortAnswer, "DEJ MI TO", kGold},
      {"plain_prohibition_folded", "Ano.", {"safety_fact_not_enforced"}, K::ShortAnswer, "Dej!", {"Hráč Nesmi dostat zlato."}},
      {"prohibition_in_later_fact", "Ano.", {"safety_fact_not_enforced"}, K::ShortAnswer, "Dej!", {"Je noc.", "Zlato se nesmí dát."}},
      // Facts are joined with a blank, so a word split across two is lost.
      {"word_split_across_facts", "Ano.", {}, K::ShortAnswer, "Dej!", {"Zlato ne", "smí nikdo."}},
      // Reasons come in the order of the rules.
      {"help_everything",
       "Dotaz hráče: dej mi chleba za zlato. Pomohl jsem ti. Použij /fly a zaplať 7 mincí." + k301,
       {"answer_too_long", "instruction_leak", "question_echo", "broken_czech_or_perspective",
        "invented_command:/fly", "missing_tool_value:3", "unexpected_number:7", "safety_fact_not_enforced"},
       K::CommandHelp, "Dej mi chleba za zlato", kGold, {"/heal"}, {"3"}},
      {"short_everything", "Fakta herního světa: /give 2 zlata." + std::string(400, ' ') + "x",
       {"answer_too_long", "instruction_leak", "slash_command_forbidden", "missing_tool_value:5",
        "unexpected_number:2", "safety_fact_not_enforced"},
       K::ShortAnswer, "Přidej zlato", kGold, {}, {"5"}},
      // Mebibyte inputs; a near miss at the very end is the slow case.
      {"mixed_mebibyte", repeat("Dotaz hráče /heal -3,5 č/ ", kMiB / 29),
       {"answer_too_long", "instruction_leak", "missing_tool_value:-3.5", "missing_tool_value:7",
        "safety_fact_not_enforced"},
       K::CommandHelp, "Dej mi zlato", kGold, {"/heal"}, {"-3.5", "7"}},
      {"digit_run", std::string(kMiB, '7'), {"answer_too_long", "unexpected_number:" + std::string(kMiB, '7')},
       K::NpcDialogue, "x", {}, {}, {"7"}},
      {"near_miss_message", std::string(kMiB, 'a'), {"answer_too_long"}, K::NpcDialogue, nearMiss},
      {"message_at_the_end", std::string(kMiB, 'a') + "b", {"answer_too_long", "question_echo"}, K::NpcDialogue, nearMiss},
  };
  for (const Case& c : cases) EXPECT_EQ(reasonsOf(c), c.reasons) << c.name;
}

// Each phrase reacts whole, and with its first or last byte cut off it
// does not: the table holds exactly these bytes.
TEST(ValidateAnswer, PhrasesHoldExactBytes) {
  enum Table { kLeak, kBroken, kProhibition, kRequestVerb, kRefusal };
  const auto reacts = [](Table table, const std::string& text) {
    Case probe{"probe", text, {}, K::NpcDialogue, "dej", {"nesmí"}};
    if (table == kProhibition) probe.facts = {text};
    if (table == kRequestVerb) probe.message = text;
    if (table == kProhibition || table == kRequestVerb) probe.answer = "Ano.";
    const Texts reasons = reasonsOf(probe);
    const std::string wanted = table == kLeak     ? "instruction_leak"
                               : table == kBroken ? "broken_czech_or_perspective"
                                                  : "safety_fact_not_enforced";
    const bool found = std::find(reasons.begin(), reasons.end(), wanted) != reasons.end();
    return table == kRefusal ? !found : found;
  };
  const struct {
    Table table;
    std::string text;
    bool holdsShorterPhrase = false;
  } kPhrases[] = {
      {kLeak, "dotaz hráče"}, {kLeak, "dotaz hrace"}, {kLeak, "pravidla češtiny"},
      {kLeak, "pravidla cestiny"}, {kLeak, "fakta herního světa"}, {kLeak, "fakta herniho sveta"},
      {kBroken, "jsem to pamatuje"}, {kBroken, "ty mě pomohla"}, {kBroken, "ty mi pomohla"},
      {kBroken, "můžeš mě nabídnout"}, {kBroken, "muzes me nabidnout"},
      {kBroken, "pomohl jsem ti"}, {kBroken, "pomohla jsem ti"},
      {kProhibition, "nesmí"}, {kProhibition, "nesmi"},
      {kRequestVerb, "dej"}, {kRequestVerb, "přidej", true}, {kRequestVerb, "pridej", true},
      {kRequestVerb, "ignoruj"}, {kRequestVerb, "změň"}, {kRequestVerb, "zmen"},
      {kRefusal, "nemůžu"}, {kRefusal, "nemohu"}, {kRefusal, "nesmím"}, {kRefusal, "nedám"},
      {kRefusal, "nelze"}, {kRefusal, "nemuzes"}, {kRefusal, "nemůžeš"},
  };
  for (const auto& p : kPhrases) {
    EXPECT_TRUE(reacts(p.table, p.text)) << p.text;
    if (p.holdsShorterPhrase) continue;
    EXPECT_FALSE(reacts(p.table, p.text.substr(1))) << p.text;
    EXPECT_FALSE(reacts(p.table, p.text.substr(0, p.text.size() - 1))) << p.text;
  }
}

}  // namespace
}  // namespace tovrin::ai
