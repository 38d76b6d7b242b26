#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "testing/scripted_transport.hpp"
#include "tovrin/ai.hpp"

namespace tovrin::ai {
namespace {

using test::expectResponse;
using test::failWith;
using test::reply;
using test::ScriptedTransport;

AiRuntime makeRuntime(const ScriptedTransport& script, bool repair = true,
                      bool watchdog = true) {
  AiRuntimeConfig config{.helperPath = {}, .watchdogEnabled = watchdog, .repairEnabled = repair};
  return AiRuntime(std::move(config), script.transport());
}

const std::string kTooLong(500, 'a');
const std::string kTemplate = "watchdog-template";
const std::string kRefusal = "To ti dát nemůžu.";
const AiRequest kHello{.message = "Ahoj", .kind = AiRequestKind::ShortAnswer};
// The template answer refuses, and the watchdog accepts it.
const AiRequest kRefusable{.message = "Dej mi zlato.", .worldFacts = {"Hráč nesmí dostat zlato zdarma."}};
// The template answer ("5") does not refuse what a fact forbids: rejected.
const AiRequest kBadTemplate{.message = "Dej mi, kolik chceš.",
                             .worldFacts = {"Hráč nesmí dostat zlato zdarma."},
                             .toolResults = {"5"}};
const AiRequest kModeration{.message = "ahoj všichni", .kind = AiRequestKind::ChatModeration};

TEST(GenerationLoop, EveryWayAPassCanEnd) {
  const struct {
    const char* name;
    AiRequest request;
    std::vector<test::ScriptStep> script;
    AiResponse expected;
    bool fallbackPass = false;
    bool repair = true;
    bool watchdog = true;
  } kCases[] = {
      {"accepted_in_attempt_1", kHello, {reply("  Dobrý den.\n")},
       {.ok = true, .answer = "Dobrý den.", .model = "M", .attempts = 1}},
      {"accepted_in_attempt_2_first_reasons_dropped", kHello, {reply(kTooLong), reply("Dobrý den.")},
       {.ok = true, .answer = "Dobrý den.", .model = "M", .fallback = true, .attempts = 2}, true},
      {"blank_answers_rejected", kHello, {reply(" \r\n\t "), reply(" \n")},
       {.model = "M", .watchdogPassed = false, .watchdogReasons = {"empty_answer"}, .attempts = 2}},
      {"all_rejected_template_accepted", kRefusable, {reply("Tady máš."), reply("Tady máš zlato.")},
       {.ok = true, .answer = kRefusal, .model = kTemplate, .fallback = true, .attempts = 2}},
      {"all_rejected_template_empty", kHello, {reply(kTooLong), reply("/help")},
       {.answer = "/help", .model = "M", .watchdogPassed = false,
        .watchdogReasons = {"slash_command_forbidden"}, .attempts = 2}},
      {"all_rejected_template_rejected", kBadTemplate, {reply("Tady máš 5."), reply("Tady máš 5 zlatých.")},
       {.answer = "Tady máš 5 zlatých.", .model = "M", .watchdogPassed = false,
        .watchdogReasons = {"safety_fact_not_enforced"}, .fallback = true, .attempts = 2}, true},
      {"error_in_attempt_1_template_accepted", kRefusable, {failWith("Cannot connect to AI endpoint")},
       {.ok = true, .answer = kRefusal, .model = kTemplate, .fallback = true, .attempts = 1,
        .error = "Cannot connect to AI endpoint"}},
      {"error_in_attempt_2_template_accepted", kRefusable, {reply("Tady máš."), failWith("Failed to receive AI response")},
       {.ok = true, .answer = kRefusal, .model = kTemplate, .fallback = true, .attempts = 2,
        .error = "Failed to receive AI response"}},
      {"error_in_attempt_1_template_empty", kHello, {failWith("down")},
       {.model = "M", .attempts = 1, .error = "down"}},
      {"error_in_attempt_2_keeps_first_attempt", kHello, {reply(kTooLong), failWith("Malformed AI HTTP response")},
       {.answer = kTooLong, .model = "M", .watchdogPassed = false, .watchdogReasons = {"answer_too_long"},
        .fallback = true, .attempts = 2, .error = "Malformed AI HTTP response"}, true},
      {"error_in_attempt_2_template_rejected", kBadTemplate, {reply("Tady máš 5."), failWith("boom")},
       {.answer = "Tady máš 5.", .model = "M", .watchdogPassed = false,
        .watchdogReasons = {"safety_fact_not_enforced"}, .attempts = 2, .error = "boom"}},
      {"repair_disabled_one_attempt", kHello, {reply(kTooLong)},
       {.answer = kTooLong, .model = "M", .watchdogPassed = false, .watchdogReasons = {"answer_too_long"},
        .attempts = 1}, false, false},
      {"moderation_trimmed_before_judging", kModeration, {reply("  OK\r\n")},
       {.ok = true, .answer = "OK", .model = "M", .attempts = 1}},
      {"moderation_template_after_error", kModeration, {failWith("Cannot connect to AI endpoint")},
       {.ok = true, .answer = "OK", .model = kTemplate, .fallback = true, .attempts = 1,
        .error = "Cannot connect to AI endpoint"}},
      {"watchdog_off_accepts_empty", kHello, {reply("  \n")},
       {.ok = true, .model = "M", .attempts = 1}, false, true, false},
      // After an error the template is judged even so: "5" is rejected.
      {"watchdog_off_still_judges_template", kBadTemplate, {failWith("down")},
       {.model = "M", .attempts = 1, .error = "down"}, false, true, false},
  };
  for (const auto& c : kCases) {
    ScriptedTransport script(c.script);
    const AiRuntime runtime = makeRuntime(script, c.repair, c.watchdog);
    expectResponse(generateAnswer(runtime, c.request, "http://e/", "M", c.fallbackPass),
                   c.expected, c.name);
    EXPECT_EQ(script.calls().size(), c.script.size()) << c.name;
  }
}

TEST(GenerationLoop, SendsPassArgumentsAndRepairPrompt) {
  ScriptedTransport script({reply(kTooLong), reply("")});
  AiRequest request = kHello;
  request.maxTokens = 33;
  generateAnswer(makeRuntime(script), request, "http://fallback:1/x", "F", true);
  const std::string system =
      "Jsi lokální AI modul hry postavené na Tovrin Engine. Odpovídej stručně a přirozeně česky. "
      "Nevymýšlej příkazy, čísla, odměny, oprávnění ani fakta herního světa. Dodaná fakta a "
      "výsledky nástrojů jsou závazné. Maximálně dvě krátké věty. Když si nejsi jistý, řekni to. ";
  const std::string repair = "DOTAZ HRÁČE:\nAhoj\n\nPŘEDCHOZÍ ODPOVĚĎ:\n" + kTooLong +
      "\nHLÍDACÍ SKRIPT JI ODMÍTL. DŮVODY: answer_too_long;\n"
      "Oprav pouze odpověď. Zachovej fakta a čísla. Neopakuj otázku.";
  const std::vector<std::string> userPrompts = {"DOTAZ HRÁČE:\nAhoj\n\nVrať pouze finální odpověď.", repair};
  ASSERT_EQ(script.calls().size(), 2u);
  for (std::size_t i = 0; i < 2; ++i) {
    const test::TransportCall& call = script.calls()[i];
    EXPECT_EQ(call.endpoint + " " + call.model + " " + std::to_string(call.maxTokens), "http://fallback:1/x F 33");
    EXPECT_EQ(call.systemPrompt, system);
    EXPECT_EQ(call.userPrompt, userPrompts[i]);
  }
}

TEST(GenerationLoop, TransportFailuresOfEveryKind) {
  ScriptedTransport script;
  AiRuntime runtime = makeRuntime(script);
  runtime.transport = nullptr;
  expectResponse(generateAnswer(runtime, kHello, "http://e/", "M", false),
                 {.model = "M", .attempts = 1, .error = std::bad_function_call().what()}, "empty slot");
  const AiRuntime throwing(AiRuntimeConfig{.helperPath = {}},
                           [](auto&&...) -> std::string { throw 42; });
  EXPECT_THROW(generateAnswer(throwing, kHello, "http://e/", "M", false), int);
}

}  // namespace
}  // namespace tovrin::ai
