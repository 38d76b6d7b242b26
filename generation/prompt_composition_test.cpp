#include <gtest/gtest.h>

#include <string>

#include "tovrin/ai.hpp"

namespace tovrin::ai {
namespace {

const std::string kBase =
    "Jsi lokální AI modul hry postavené na Tovrin Engine. Odpovídej stručně a "
    "přirozeně česky. Nevymýšlej příkazy, čísla, odměny, oprávnění ani fakta "
    "herního světa. Dodaná fakta a výsledky nástrojů jsou závazné. ";
const std::string kAsk = "DOTAZ HRÁČE:\nAhoj\n\nVrať pouze finální odpověď.";
const std::string kFix = "Oprav pouze odpověď. Zachovej fakta a čísla. Neopakuj otázku.";

AiRuntime runtimeWithHelper(std::string helperText) {
  AiRuntime runtime(AiRuntimeConfig{.helperPath = {}}, [](auto&&...) { return std::string(); });
  runtime.helperText = std::move(helperText);
  return runtime;
}

TEST(SystemPrompt, Cases) {
  using K = AiRequestKind;
  const struct {
    const char* name;
    K kind;
    std::string persona;
    std::string helper;
    std::string expected;
  } kCases[] = {
      {"tavern", K::CommandHelp, "Hostinský Karel", "Piš spisovně.",
       kBase + "ROLE/OSOBNOST POSTAVY: Hostinský Karel\n\nČESKÝ POMOCNÍK A PRAVIDLA:\nPiš spisovně."},
      {"npc", K::NpcDialogue, "", "", kBase + "Mluv jako postava v první osobě, ne jako systémový popis NPC. "},
      {"kind_two", static_cast<K>(2), "", "", kBase},
      {"short_answer", K::ShortAnswer, "", "", kBase + "Maximálně dvě krátké věty. Když si nejsi jistý, řekni to. "},
      {"outside_enumeration", static_cast<K>(77), "", "", kBase},
      {"persona_without_helper", K::GeneralChat, "Kovář", "", kBase + "ROLE/OSOBNOST POSTAVY: Kovář\n"},
      {"helper_without_persona", K::GeneralChat, "", "a\r\nb\n", kBase + "\nČESKÝ POMOCNÍK A PRAVIDLA:\na\r\nb\n"},
      {"moderation_ignores_persona_and_helper", K::ChatModeration, "Strážný", "Piš spisovně.",
       "Jsi filtr herního chatu. Vrať přesně jen OK nebo WARN. Nic dalšího."},
      {"triage_ignores_persona_and_helper", K::AntiCheatTriage, "Strážný", "Piš spisovně.",
       "Jsi anti-cheat triage. Vrať přesně jen NORMAL, WATCH nebo HIGH. Neprovádíš trest."},
  };
  for (const auto& c : kCases) {
    const AiRequest request{.persona = c.persona, .kind = c.kind};
    EXPECT_EQ(buildSystemPrompt(runtimeWithHelper(c.helper), request), c.expected) << c.name;
  }
}

TEST(UserPrompt, Cases) {
  const AiRequest plain{.message = "Ahoj"};
  const AiRequest tavern{.message = "Jak si koupím pivo?",
                         .worldFacts = {"Pivo stojí 4 mince.", "Hráč nesmí dostat pivo zdarma."},
                         .allowedCommands = {"/trade"}};
  const AiRequest all{.message = "Kolik?", .worldFacts = {"F1", ""}, .allowedCommands = {"/a\nb"},
                      .toolResults = {"3", "1"}};
  const WatchdogVerdict none{false, {}};
  const WatchdogVerdict two{false, {"r1", "r2"}};
  const WatchdogVerdict passed{true, {"ignored_flag"}};
  const WatchdogVerdict buy{false, {"invented_command:/buy"}};
  const std::string tavernHead =
      "FAKTA HERNÍHO SVĚTA:\n- Pivo stojí 4 mince.\n- Hráč nesmí dostat pivo zdarma.\n"
      "POVOLENÉ HERNÍ PŘÍKAZY:\n- /trade\nDOTAZ HRÁČE:\nJak si koupím pivo?";
  const std::string tavernRepair = tavernHead +
      "\n\nPŘEDCHOZÍ ODPOVĚĎ:\nNapiš /buy pivo.\n"
      "HLÍDACÍ SKRIPT JI ODMÍTL. DŮVODY: invented_command:/buy;\n" + kFix;
  const struct {
    const char* name;
    const AiRequest& request;
    std::string previous;
    const WatchdogVerdict* verdict;
    std::string expected;
  } kCases[] = {
      {"tavern_first", tavern, "", nullptr, tavernHead + "\n\nVrať pouze finální odpověď."},
      {"tavern_repair", tavern, "Napiš /buy pivo.", &buy, tavernRepair},
      {"tool_results_before_commands_and_empty_item", all, "", nullptr,
       "FAKTA HERNÍHO SVĚTA:\n- F1\n- \nVÝSLEDKY NÁSTROJE/KALKULAČKY, JSOU ZÁVAZNÉ:\n- 3\n- 1\n"
       "POVOLENÉ HERNÍ PŘÍKAZY:\n- /a\nb\nDOTAZ HRÁČE:\nKolik?\n\nVrať pouze finální odpověď."},
      {"verdict_but_empty_previous_answer", plain, "", &two, kAsk},
      {"previous_answer_without_verdict", plain, "x", nullptr, kAsk},
      {"empty_reason_list", plain, "Ahoj!", &none,
       "DOTAZ HRÁČE:\nAhoj\n\nPŘEDCHOZÍ ODPOVĚĎ:\nAhoj!\nHLÍDACÍ SKRIPT JI ODMÍTL. DŮVODY:\n" + kFix},
      {"two_reasons", plain, "Ahoj!", &two,
       "DOTAZ HRÁČE:\nAhoj\n\nPŘEDCHOZÍ ODPOVĚĎ:\nAhoj!\nHLÍDACÍ SKRIPT JI ODMÍTL. DŮVODY: r1; r2;\n" + kFix},
      {"passed_flag_not_read", plain, "Ahoj!", &passed,
       "DOTAZ HRÁČE:\nAhoj\n\nPŘEDCHOZÍ ODPOVĚĎ:\nAhoj!\nHLÍDACÍ SKRIPT JI ODMÍTL. DŮVODY: ignored_flag;\n" + kFix},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(buildUserPrompt(c.request, c.previous, c.verdict), c.expected) << c.name;
  }
  EXPECT_EQ(buildUserPrompt(tavern, "Napiš /buy pivo.", std::optional(buy)), tavernRepair);
  EXPECT_EQ(buildUserPrompt(plain, "x", std::nullopt), kAsk);
}

}  // namespace
}  // namespace tovrin::ai
