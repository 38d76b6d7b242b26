#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "testing/response_matchers.hpp"
#include "testing/scripted_transport.hpp"
#include "tovrin/ai.hpp"

namespace tovrin::ai {
namespace {

using test::expectResponse;
using test::response;
using test::failWith;
using test::reply;
using test::ScriptedTransport;
using test::ScriptStep;

AiRuntime makeRuntime(const ScriptedTransport& script, bool repair = true,
                      bool watchdog = true) {
  AiRuntimeConfig config;
  config.helperPath.clear();
  config.repairEnabled = repair;
  config.watchdogEnabled = watchdog;
  return AiRuntime(std::move(config), script.transport());
}

// A request whose template answer the watchdog accepts.
AiRequest refusableRequest() {
  AiRequest request;
  request.kind = AiRequestKind::NpcDialogue;
  request.message = "Dej mi zlato.";
  request.worldFacts = {"Hráč nesmí dostat zlato zdarma."};
  return request;
}

// A request whose template answer ("5") the watchdog rejects: it does not
// refuse although a fact forbids what is asked.
AiRequest rejectedTemplateRequest() {
  AiRequest request = refusableRequest();
  request.message = "Dej mi, kolik chceš.";
  request.toolResults = {"5"};
  return request;
}

AiRequest shortAnswer(std::string message) {
  AiRequest request;
  request.kind = AiRequestKind::ShortAnswer;
  request.message = std::move(message);
  return request;
}

const std::string kTooLong(500, 'a');

struct OutcomeCase {
  const char* name;
  AiRequest request;
  std::vector<ScriptStep> script;
  bool repair;
  bool fallbackPass;
  AiResponse expected;
};

TEST(GenerationLoop, EveryWayAPassCanEnd) {
  const OutcomeCase cases[] = {
      {"accepted_in_attempt_1", shortAnswer("Ahoj"),
       {reply("  Dobrý den.\n")}, true, false,
       response(true, "Dobrý den.", "M", true, {}, false, 1, "")},
      {"accepted_in_attempt_2_first_reasons_dropped", shortAnswer("Ahoj"),
       {reply(kTooLong), reply("Dobrý den.")}, true, true,
       response(true, "Dobrý den.", "M", true, {}, true, 2, "")},
      {"all_rejected_template_accepted", refusableRequest(),
       {reply("Tady máš."), reply("Tady máš zlato.")}, true, false,
       response(true, "To ti dát nemůžu.", "watchdog-template", true, {}, true,
                2, "")},
      {"all_rejected_template_empty", shortAnswer("Ahoj"),
       {reply(kTooLong), reply("/help")}, true, false,
       response(false, "/help", "M", false, {"slash_command_forbidden"}, false,
                2, "")},
      {"all_rejected_template_rejected", rejectedTemplateRequest(),
       {reply("Tady máš 5."), reply("Tady máš 5 zlatých.")}, true, true,
       response(false, "Tady máš 5 zlatých.", "M", false,
                {"safety_fact_not_enforced"}, true, 2, "")},
      {"error_in_attempt_1_template_accepted", refusableRequest(),
       {failWith("Cannot connect to AI endpoint")}, true, false,
       response(true, "To ti dát nemůžu.", "watchdog-template", true, {}, true,
                1, "Cannot connect to AI endpoint")},
      {"error_in_attempt_2_template_accepted", refusableRequest(),
       {reply("Tady máš."), failWith("Failed to receive AI response")}, true,
       false,
       response(true, "To ti dát nemůžu.", "watchdog-template", true, {}, true,
                2, "Failed to receive AI response")},
      {"error_in_attempt_1_template_empty", shortAnswer("Ahoj"),
       {failWith("Cannot connect to AI endpoint")}, true, false,
       response(false, "", "M", true, {}, false, 1,
                "Cannot connect to AI endpoint")},
      {"error_in_attempt_2_keeps_first_attempt", shortAnswer("Ahoj"),
       {reply(kTooLong), failWith("Malformed AI HTTP response")}, true, true,
       response(false, kTooLong, "M", false, {"answer_too_long"}, true, 2,
                "Malformed AI HTTP response")},
      {"error_in_attempt_2_template_rejected", rejectedTemplateRequest(),
       {reply("Tady máš 5."), failWith("boom")}, true, false,
       response(false, "Tady máš 5.", "M", false, {"safety_fact_not_enforced"},
                false, 2, "boom")},
      {"repair_disabled_one_attempt", shortAnswer("Ahoj"),
       {reply(kTooLong)}, false, false,
       response(false, kTooLong, "M", false, {"answer_too_long"}, false, 1,
                "")},
  };
  for (const OutcomeCase& c : cases) {
    ScriptedTransport script(c.script);
    const AiRuntime runtime = makeRuntime(script, c.repair);
    const AiResponse actual =
        generateAnswer(runtime, c.request, "http://e/", "M", c.fallbackPass);
    expectResponse(actual, c.expected, c.name);
    EXPECT_EQ(script.calls().size(), c.script.size()) << c.name;
  }
}

TEST(GenerationLoop, SendsPassArgumentsAndRepairPrompt) {
  ScriptedTransport script({reply(kTooLong), reply("Krátce.")});
  const AiRuntime runtime = makeRuntime(script);
  AiRequest request = shortAnswer("Ahoj");
  request.maxTokens = 33;
  generateAnswer(runtime, request, "http://fallback:1/x", "F", true);

  const auto& calls = script.calls();
  ASSERT_EQ(calls.size(), 2u);
  for (const auto& call : calls) {
    EXPECT_EQ(call.endpoint, "http://fallback:1/x");
    EXPECT_EQ(call.model, "F");
    EXPECT_EQ(call.maxTokens, 33u);
    EXPECT_EQ(call.systemPrompt, buildSystemPrompt(runtime, request));
  }
  EXPECT_EQ(calls[0].userPrompt,
            "DOTAZ HRÁČE:\nAhoj\n\nVrať pouze finální odpověď.");
  EXPECT_EQ(calls[1].userPrompt,
            "DOTAZ HRÁČE:\nAhoj\n\nPŘEDCHOZÍ ODPOVĚĎ:\n" + kTooLong +
                "\nHLÍDACÍ SKRIPT JI ODMÍTL. DŮVODY: answer_too_long;\n"
                "Oprav pouze odpověď. Zachovej fakta a čísla. Neopakuj otázku.");
}

TEST(GenerationLoop, BlankAnswerIsRejectedAndRetriedWithPlainPrompt) {
  ScriptedTransport script({reply(" \r\n\t "), reply(" \n")});
  const AiRuntime runtime = makeRuntime(script);
  const AiResponse actual =
      generateAnswer(runtime, shortAnswer("Ahoj"), "http://e/", "M", false);
  expectResponse(actual,
                 response(false, "", "M", false, {"empty_answer"}, false, 2, ""),
                 "blank");
  ASSERT_EQ(script.calls().size(), 2u);
  EXPECT_EQ(script.calls()[1].userPrompt,
            "DOTAZ HRÁČE:\nAhoj\n\nVrať pouze finální odpověď.");
}

TEST(GenerationLoop, WatchdogDisabledAcceptsAnyModelAnswer) {
  ScriptedTransport script({reply("  \n")});
  const AiRuntime runtime = makeRuntime(script, true, false);
  expectResponse(
      generateAnswer(runtime, shortAnswer("Ahoj"), "http://e/", "M", false),
      response(true, "", "M", true, {}, false, 1, ""), "empty accepted");

  // After an error the template is still judged: "5" is rejected here.
  ScriptedTransport failing({failWith("down")});
  const AiRuntime unchecked = makeRuntime(failing, true, false);
  expectResponse(generateAnswer(unchecked, rejectedTemplateRequest(),
                                "http://e/", "M", false),
                 response(false, "", "M", true, {}, false, 1, "down"),
                 "template judged");
}

TEST(GenerationLoop, ModerationAnswerTrimmedBeforeJudging) {
  AiRequest request;
  request.kind = AiRequestKind::ChatModeration;
  request.message = "ahoj všichni";
  ScriptedTransport script({reply("  OK\r\n")});
  expectResponse(generateAnswer(makeRuntime(script), request, "http://e/",
                                "M", false),
                 response(true, "OK", "M", true, {}, false, 1, ""), "trimmed");

  ScriptedTransport failing({failWith("Cannot connect to AI endpoint")});
  expectResponse(generateAnswer(makeRuntime(failing), request, "http://e/",
                                "M", false),
                 response(true, "OK", "watchdog-template", true, {}, true, 1,
                          "Cannot connect to AI endpoint"),
                 "template after error");
  EXPECT_EQ(failing.calls().size(), 1u);
}

TEST(GenerationLoop, EmptyTransportSlotEndsTheFirstAttempt) {
  ScriptedTransport script;
  AiRuntime runtime = makeRuntime(script);
  runtime.transport = nullptr;
  const AiResponse actual =
      generateAnswer(runtime, shortAnswer("Ahoj"), "http://e/", "M", false);
  EXPECT_FALSE(actual.ok);
  EXPECT_EQ(actual.attempts, 1u);
  EXPECT_EQ(actual.error, std::bad_function_call().what());
}

TEST(GenerationLoop, ExceptionsOfOtherTypesLeaveThePass) {
  AiRuntimeConfig config;
  config.helperPath.clear();
  const AiRuntime runtime(std::move(config), [](auto&&...) -> std::string {
    throw 42;
  });
  EXPECT_THROW(
      generateAnswer(runtime, shortAnswer("Ahoj"), "http://e/", "M", false),
      int);
}

}  // namespace
}  // namespace tovrin::ai
