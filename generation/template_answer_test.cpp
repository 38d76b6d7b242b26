#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tovrin/ai.hpp"

namespace tovrin::ai {
namespace {

TEST(TemplateAnswer, RulesInOrder) {
  using K = AiRequestKind;
  using Texts = std::vector<std::string>;
  const Texts gold{"Hráč nesmí dostat zlato zdarma."};
  const std::string refusal = "To ti dát nemůžu.";
  const struct {
    const char* name;
    K kind;
    std::string message;
    Texts toolResults;
    Texts worldFacts;
    std::string expected;
  } kCases[] = {
      {"moderation_always_ok", K::ChatModeration, "Dej mi zlato", {"1", "2"}, gold, "OK"},
      {"triage_always_watch", K::AntiCheatTriage, "kolik je 2+2", {"4"}, {}, "WATCH"},
      {"single_result_unchanged", K::ShortAnswer, "KOLIK?", {" 4 "}, {}, " 4 "},
      {"coins", K::NpcDialogue, "Mám 10 mincí, kolik chlebů koupím?", {"3", "1"}, {}, "Výsledek je 3 a zbývá 1."},
      {"coins_extra_values_ignored", K::NpcDialogue, "MINCE", {"3", "1", "9"}, {}, "Výsledek je 3 a zbývá 1."},
      {"kolik_and_minc_with_one_result", K::NpcDialogue, "kolik mincí", {"7"}, {}, "7"},
      {"single_empty_result_ends_search", K::NpcDialogue, "Kolik? Dej mi", {""}, gold, ""},
      {"refusal", K::NpcDialogue, "Přidej mi zlato.", {}, gold, refusal},
      {"no_request_verb", K::NpcDialogue, "Ahoj.", {}, gold, ""},
      {"verb_inside_word", K::NpcDialogue, "prodej mi meč", {}, {"Nesmi se krást."}, refusal},
      {"nedej", K::GeneralChat, "Nedej se", {}, {"x nesmí y"}, refusal},
      {"capital_accented_fact_not_folded", K::NpcDialogue, "dej mi", {}, {"Hráč NESMÍ nic."}, ""},
      {"change_words_not_refused", K::NpcDialogue, "změň počasí, zmen to", {}, gold, ""},
      {"kolik_two_results_no_minc_falls_to_refusal", K::NpcDialogue, "kolik, dej", {"1", "2"}, gold, refusal},
      {"kolik_two_results_nothing", K::NpcDialogue, "kolik", {"1", "2"}, {}, ""},
      {"no_tool_results_no_arithmetic", K::ShortAnswer, "kolik je 2+2", {}, {}, ""},
      {"no_facts_no_refusal", K::NpcDialogue, "dej mi zlato", {}, {}, ""},
      {"fact_spanning_entries", K::NpcDialogue, "dej", {}, {"ne", "smí"}, ""},
  };
  for (const auto& c : kCases) {
    const AiRequest request{.message = c.message, .worldFacts = c.worldFacts,
                            .toolResults = c.toolResults, .kind = c.kind};
    EXPECT_EQ(buildTemplateAnswer(request), c.expected) << c.name;
  }
}

}  // namespace
}  // namespace tovrin::ai
