#include <gtest/gtest.h>

#include <string>

#include "tovrin/ai.hpp"

namespace tovrin::ai {
namespace {

const std::string kBase =
    "Jsi lokální AI modul hry postavené na Tovrin Engine. Odpovídej stručně a "
    "přirozeně česky. Nevymýšlej příkazy, čísla, odměny, oprávnění ani fakta "
    "herního světa. Dodaná fakta a výsledky nástrojů jsou závazné. ";

AiRuntime runtimeWithHelper(std::string helperText) {
  AiRuntimeConfig config;
  config.helperPath.clear();
  AiRuntime runtime(std::move(config), [](auto&&...) { return std::string(); });
  runtime.helperText = std::move(helperText);
  return runtime;
}

AiRequest tavernRequest() {
  AiRequest request;
  request.kind = AiRequestKind::CommandHelp;
  request.persona = "Hostinský Karel";
  request.worldFacts = {"Pivo stojí 4 mince.", "Hráč nesmí dostat pivo zdarma."};
  request.allowedCommands = {"/trade"};
  request.message = "Jak si koupím pivo?";
  return request;
}

TEST(SystemPrompt, TavernExampleIsExact) {
  EXPECT_EQ(buildSystemPrompt(runtimeWithHelper("Piš spisovně."), tavernRequest()),
            kBase +
                "ROLE/OSOBNOST POSTAVY: Hostinský Karel\n"
                "\n"
                "ČESKÝ POMOCNÍK A PRAVIDLA:\n"
                "Piš spisovně.");
}

TEST(SystemPrompt, DependsOnKind) {
  struct Case {
    const char* name;
    std::uint32_t kind;
    std::string expected;
  };
  const Case cases[] = {
      {"npc", 0,
       kBase + "Mluv jako postava v první osobě, ne jako systémový popis NPC. "},
      {"command_help", 1, kBase},
      {"kind_two", 2, kBase},
      {"short_answer", 3,
       kBase + "Maximálně dvě krátké věty. Když si nejsi jistý, řekni to. "},
      {"outside_enumeration", 77, kBase},
  };
  const AiRuntime runtime = runtimeWithHelper("");
  for (const Case& c : cases) {
    AiRequest request;
    request.kind = static_cast<AiRequestKind>(c.kind);
    EXPECT_EQ(buildSystemPrompt(runtime, request), c.expected) << c.name;
  }
}

TEST(SystemPrompt, LabelKindsIgnorePersonaAndHelper) {
  const AiRuntime runtime = runtimeWithHelper("Piš spisovně.");
  AiRequest request;
  request.persona = "Strážný";
  request.kind = AiRequestKind::ChatModeration;
  const std::string moderation = buildSystemPrompt(runtime, request);
  EXPECT_EQ(moderation,
            "Jsi filtr herního chatu. Vrať přesně jen OK nebo WARN. Nic dalšího.");
  EXPECT_EQ(moderation.size(), 73u);

  request.kind = AiRequestKind::AntiCheatTriage;
  const std::string triage = buildSystemPrompt(runtime, request);
  EXPECT_EQ(triage,
            "Jsi anti-cheat triage. Vrať přesně jen NORMAL, WATCH nebo HIGH. "
            "Neprovádíš trest.");
  EXPECT_EQ(triage.size(), 87u);
}

TEST(SystemPrompt, PersonaLineEndsInLineFeedEvenWithoutHelper) {
  AiRequest request;
  request.kind = AiRequestKind::GeneralChat;
  request.persona = "Kovář";
  EXPECT_EQ(buildSystemPrompt(runtimeWithHelper(""), request),
            kBase + "ROLE/OSOBNOST POSTAVY: Kovář\n");
  request.persona.clear();
  EXPECT_EQ(buildSystemPrompt(runtimeWithHelper("a\r\nb\n"), request),
            kBase + "\nČESKÝ POMOCNÍK A PRAVIDLA:\na\r\nb\n");
}

TEST(UserPrompt, TavernExampleFirstAndRepairAttempts) {
  const AiRequest request = tavernRequest();
  const std::string head =
      "FAKTA HERNÍHO SVĚTA:\n"
      "- Pivo stojí 4 mince.\n"
      "- Hráč nesmí dostat pivo zdarma.\n"
      "POVOLENÉ HERNÍ PŘÍKAZY:\n"
      "- /trade\n"
      "DOTAZ HRÁČE:\n"
      "Jak si koupím pivo?";
  EXPECT_EQ(buildUserPrompt(request, "", nullptr),
            head + "\n\nVrať pouze finální odpověď.");

  const WatchdogVerdict verdict{false, {"invented_command:/buy"}};
  const std::string repair =
      head +
      "\n"
      "\n"
      "PŘEDCHOZÍ ODPOVĚĎ:\n"
      "Napiš /buy pivo.\n"
      "HLÍDACÍ SKRIPT JI ODMÍTL. DŮVODY: invented_command:/buy;\n"
      "Oprav pouze odpověď. Zachovej fakta a čísla. Neopakuj otázku.";
  EXPECT_EQ(buildUserPrompt(request, "Napiš /buy pivo.", &verdict), repair);
  EXPECT_EQ(buildUserPrompt(request, "Napiš /buy pivo.",
                            std::optional<WatchdogVerdict>(verdict)),
            repair);
}

TEST(UserPrompt, SectionsAndEndings) {
  AiRequest plain;
  plain.message = "Ahoj";
  AiRequest all;
  all.message = "Kolik?";
  all.worldFacts = {"F1", ""};
  all.toolResults = {"3", "1"};
  all.allowedCommands = {"/a\nb"};
  const WatchdogVerdict none{false, {}};
  const WatchdogVerdict two{false, {"r1", "r2"}};
  const WatchdogVerdict passed{true, {"ignored_flag"}};

  struct Case {
    const char* name;
    const AiRequest* request;
    std::string previous;
    const WatchdogVerdict* verdict;
    std::string expected;
  };
  const Case cases[] = {
      {"lists_empty", &plain, "", nullptr,
       "DOTAZ HRÁČE:\nAhoj\n\nVrať pouze finální odpověď."},
      {"tool_results_before_commands_and_empty_item", &all, "", nullptr,
       "FAKTA HERNÍHO SVĚTA:\n- F1\n- \n"
       "VÝSLEDKY NÁSTROJE/KALKULAČKY, JSOU ZÁVAZNÉ:\n- 3\n- 1\n"
       "POVOLENÉ HERNÍ PŘÍKAZY:\n- /a\nb\n"
       "DOTAZ HRÁČE:\nKolik?\n\nVrať pouze finální odpověď."},
      {"verdict_but_empty_previous_answer", &plain, "", &two,
       "DOTAZ HRÁČE:\nAhoj\n\nVrať pouze finální odpověď."},
      {"previous_answer_without_verdict", &plain, "x", nullptr,
       "DOTAZ HRÁČE:\nAhoj\n\nVrať pouze finální odpověď."},
      {"empty_reason_list", &plain, "Ahoj!", &none,
       "DOTAZ HRÁČE:\nAhoj\n\nPŘEDCHOZÍ ODPOVĚĎ:\nAhoj!\n"
       "HLÍDACÍ SKRIPT JI ODMÍTL. DŮVODY:\n"
       "Oprav pouze odpověď. Zachovej fakta a čísla. Neopakuj otázku."},
      {"two_reasons", &plain, "Ahoj!", &two,
       "DOTAZ HRÁČE:\nAhoj\n\nPŘEDCHOZÍ ODPOVĚĎ:\nAhoj!\n"
       "HLÍDACÍ SKRIPT JI ODMÍTL. DŮVODY: r1; r2;\n"
       "Oprav pouze odpověď. Zachovej fakta a čísla. Neopakuj otázku."},
      {"passed_flag_not_read", &plain, "Ahoj!", &passed,
       "DOTAZ HRÁČE:\nAhoj\n\nPŘEDCHOZÍ ODPOVĚĎ:\nAhoj!\n"
       "HLÍDACÍ SKRIPT JI ODMÍTL. DŮVODY: ignored_flag;\n"
       "Oprav pouze odpověď. Zachovej fakta a čísla. Neopakuj otázku."},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(buildUserPrompt(*c.request, c.previous, c.verdict), c.expected)
        << c.name;
  }
  EXPECT_EQ(buildUserPrompt(plain, "x", std::nullopt),
            "DOTAZ HRÁČE:\nAhoj\n\nVrať pouze finální odpověď.");
}

}  // namespace
}  // namespace tovrin::ai
