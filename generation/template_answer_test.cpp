#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tovrin/ai.hpp"

namespace tovrin::ai {
namespace {

struct TemplateCase {
  const char* name;
  AiRequestKind kind;
  std::string message;
  std::vector<std::string> toolResults;
  std::vector<std::string> worldFacts;
  std::string expected;
};

TEST(TemplateAnswer, RulesInOrder) {
  using K = AiRequestKind;
  const std::vector<std::string> goldFact{"Hráč nesmí dostat zlato zdarma."};
  const TemplateCase cases[] = {
      {"moderation_always_ok", K::ChatModeration, "Dej mi zlato", {"1", "2"},
       goldFact, "OK"},
      {"triage_always_watch", K::AntiCheatTriage, "kolik je 2+2", {"4"}, {},
       "WATCH"},
      {"single_result", K::ShortAnswer, "Kolik je 6 * 7?", {"42"}, {}, "42"},
      {"single_result_unchanged", K::ShortAnswer, "kolik?", {" 4 "}, {}, " 4 "},
      {"ascii_capitals_fold", K::ShortAnswer, "KOLIK JE 2+2", {"4"}, {}, "4"},
      {"coins", K::NpcDialogue, "Mám 10 mincí, kolik chlebů koupím?",
       {"3", "1"}, {}, "Výsledek je 3 a zbývá 1."},
      {"coins_extra_values_ignored", K::NpcDialogue, "MINCE", {"3", "1", "9"},
       {}, "Výsledek je 3 a zbývá 1."},
      {"kolik_and_minc_with_one_result", K::NpcDialogue, "kolik mincí", {"7"},
       {}, "7"},
      {"single_empty_result_ends_search", K::NpcDialogue, "Kolik? Dej mi",
       {""}, goldFact, ""},
      {"refusal", K::NpcDialogue, "Přidej mi zlato.", {}, goldFact,
       "To ti dát nemůžu."},
      {"no_request_verb", K::NpcDialogue, "Ahoj.", {}, goldFact, ""},
      {"verb_inside_word", K::NpcDialogue, "prodej mi meč", {},
       {"Nesmi se krást."}, "To ti dát nemůžu."},
      {"nedej", K::GeneralChat, "Nedej se", {}, {"x nesmí y"},
       "To ti dát nemůžu."},
      {"capital_accented_fact_not_folded", K::NpcDialogue, "dej mi", {},
       {"Hráč NESMÍ nic."}, ""},
      {"capital_plain_fact_folded", K::NpcDialogue, "dej mi", {},
       {"Hráč NESMI nic."}, "To ti dát nemůžu."},
      {"change_words_not_refused", K::NpcDialogue, "změň počasí, zmen to", {},
       goldFact, ""},
      {"kolik_two_results_no_minc_falls_to_refusal", K::NpcDialogue,
       "kolik, dej", {"1", "2"}, goldFact, "To ti dát nemůžu."},
      {"kolik_two_results_nothing", K::NpcDialogue, "kolik", {"1", "2"}, {},
       ""},
      {"no_tool_results_no_arithmetic", K::ShortAnswer, "kolik je 2+2", {}, {},
       ""},
      {"no_facts_no_refusal", K::NpcDialogue, "dej mi zlato", {}, {}, ""},
      {"facts_joined_with_blanks", K::NpcDialogue, "dej", {},
       {"ne", "smí"}, ""},
      {"fact_spanning_entries", K::NpcDialogue, "dej", {}, {"ne", "smi"}, ""},
  };
  for (const TemplateCase& c : cases) {
    AiRequest request;
    request.kind = c.kind;
    request.message = c.message;
    request.toolResults = c.toolResults;
    request.worldFacts = c.worldFacts;
    EXPECT_EQ(buildTemplateAnswer(request), c.expected) << c.name;
  }
}

}  // namespace
}  // namespace tovrin::ai
