#include <gtest/gtest.h>

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

AiRuntimeConfig config(std::string fallbackEndpoint = {},
                       std::string fallbackModel = {}) {
  AiRuntimeConfig c;
  c.endpoint = "http://primary:1/v1/chat/completions";
  c.model = "P";
  c.helperPath.clear();
  c.fallbackEndpoint = std::move(fallbackEndpoint);
  c.fallbackModel = std::move(fallbackModel);
  return c;
}

AiRequest shortAnswer(std::string message) {
  AiRequest request;
  request.kind = AiRequestKind::ShortAnswer;
  request.message = std::move(message);
  return request;
}

TEST(RequestEntry, RefusalsInFixedOrder) {
  struct Case {
    const char* name;
    bool enabled;
    std::string endpoint;
    std::string message;
    std::string error;
  };
  const Case cases[] = {
      {"disabled_before_empty_message", false, "", "", "AI runtime disabled"},
      {"empty_message_before_empty_endpoint", true, "", "",
       "AI request message is empty"},
      {"empty_endpoint", true, "", "Ahoj", "AI endpoint is empty"},
  };
  for (const Case& c : cases) {
    ScriptedTransport script;
    AiRuntimeConfig cfg = config();
    cfg.enabled = c.enabled;
    cfg.endpoint = c.endpoint;
    const AiRuntime runtime(std::move(cfg), script.transport());
    AiResponse expected;
    expected.error = c.error;
    expectResponse(runtime.ask(shortAnswer(c.message)), expected, c.name);
    EXPECT_TRUE(script.calls().empty()) << c.name;
  }
}

TEST(RequestEntry, SingleSpaceMessageAndEmptyModelAreServed) {
  ScriptedTransport script({reply("Ano.")});
  AiRuntimeConfig cfg = config();
  cfg.model.clear();
  const AiRuntime runtime(std::move(cfg), script.transport());
  const AiResponse response = runtime.ask(shortAnswer(" "));
  EXPECT_TRUE(response.ok);
  EXPECT_EQ(response.model, "");
  ASSERT_EQ(script.calls().size(), 1u);
  EXPECT_EQ(script.calls()[0].model, "");
}

struct PassCase {
  const char* name;
  std::string fallbackEndpoint;
  std::string fallbackModel;
  AiRequest request;
  std::vector<ScriptStep> script;
  AiResponse expected;
  std::vector<std::string> models;  // pass model of every transport call
};

TEST(RequestEntry, PassesAndFallback) {
  const std::string slash = "/x";
  const std::vector<std::string> forbidden{"slash_command_forbidden"};
  AiRequest moderation;
  moderation.kind = AiRequestKind::ChatModeration;
  moderation.message = "ahoj";

  const PassCase cases[] = {
      {"first_pass_accepted", "http://fb/", "F", shortAnswer("Ahoj"),
       {reply("Nazdar.")},
       response(true, "Nazdar.", "P", true, {}, false, 1, ""), {"P"}},
      {"rejected_no_fallback_pair", "", "", shortAnswer("Ahoj"),
       {reply(slash), reply(slash)},
       response(false, slash, "P", false, forbidden, false, 2,
                "AI answer rejected by watchdog"),
       {"P", "P"}},
      {"fallback_endpoint_without_model", "http://fb/", "", shortAnswer("Ahoj"),
       {reply(slash), reply(slash)},
       response(false, slash, "P", false, forbidden, false, 2,
                "AI answer rejected by watchdog"),
       {"P", "P"}},
      {"fallback_model_without_endpoint", "", "F", shortAnswer("Ahoj"),
       {failWith("Cannot connect to AI endpoint")},
       response(false, "", "P", true, {}, false, 1,
                "Cannot connect to AI endpoint"),
       {"P"}},
      {"second_pass_accepted", "http://fb/", "F", shortAnswer("Ahoj"),
       {failWith("Cannot connect to AI endpoint"), reply("Nazdar.")},
       response(true, "Nazdar.", "F", true, {}, true, 1, ""), {"P", "F"}},
      {"rejected_then_transport_failure", "http://fb/", "F",
       shortAnswer("Ahoj"),
       {reply(slash), reply(slash), failWith("Cannot connect to AI endpoint")},
       response(false, slash, "P", false, forbidden, false, 2,
                "Cannot connect to AI endpoint"),
       {"P", "P", "F"}},
      {"both_transport_failures_joined", "http://fb/", "F",
       shortAnswer("Ahoj"),
       {failWith("Cannot connect to AI endpoint"),
        failWith("Failed to receive AI response")},
       response(false, "", "P", true, {}, false, 1,
                "Cannot connect to AI endpoint; Failed to receive AI response"),
       {"P", "F"}},
      {"both_rejected", "http://fb/", "F", shortAnswer("Ahoj"),
       {reply(slash), reply(slash), reply("/y"), reply("/z")},
       response(false, slash, "P", false, forbidden, false, 2,
                "AI answer rejected by watchdog"),
       {"P", "P", "F", "F"}},
      {"failure_then_rejection_keeps_first_error", "http://fb/", "F",
       shortAnswer("Ahoj"),
       {failWith("Malformed AI HTTP response"), reply("/y"), reply("/z")},
       response(false, "", "P", true, {}, false, 1,
                "Malformed AI HTTP response"),
       {"P", "F", "F"}},
      {"template_after_failure_ends_request", "http://fb/", "F", moderation,
       {failWith("Cannot connect to AI endpoint")},
       response(true, "OK", "watchdog-template", true, {}, true, 1,
                "Cannot connect to AI endpoint"),
       {"P"}},
  };
  for (const PassCase& c : cases) {
    ScriptedTransport script(c.script);
    const AiRuntime runtime(config(c.fallbackEndpoint, c.fallbackModel),
                            script.transport());
    expectResponse(runtime.ask(c.request), c.expected, c.name);
    std::vector<std::string> models;
    for (const auto& call : script.calls()) models.push_back(call.model);
    EXPECT_EQ(models, c.models) << c.name;
    for (const auto& call : script.calls()) {
      EXPECT_EQ(call.endpoint, call.model == "F" ? c.fallbackEndpoint
                                                 : "http://primary:1/v1/chat/completions")
          << c.name;
    }
  }
}

TEST(RequestEntry, ToolFactsReachThePromptButNotTheCallersRequest) {
  ScriptedTransport script({reply("Je to 84.")});
  const AiRuntime runtime(config(), script.transport());
  AiRequest request = shortAnswer("Kolik je 12*(3+4)?");
  request.worldFacts = {"Jsme v hospodě."};
  const AiRequest before = request;

  const AiResponse response = runtime.ask(request);
  EXPECT_TRUE(response.ok);
  EXPECT_EQ(request.worldFacts, before.worldFacts);
  EXPECT_EQ(request.toolResults, before.toolResults);
  EXPECT_EQ(request.message, before.message);
  ASSERT_EQ(script.calls().size(), 1u);
  EXPECT_EQ(script.calls()[0].userPrompt,
            "FAKTA HERNÍHO SVĚTA:\n"
            "- Jsme v hospodě.\n"
            "- Přesný výsledek výpočtu  12*(3+4) je 84.\n"
            "VÝSLEDKY NÁSTROJE/KALKULAČKY, JSOU ZÁVAZNÉ:\n"
            "- 84\n"
            "DOTAZ HRÁČE:\n"
            "Kolik je 12*(3+4)?\n"
            "\n"
            "Vrať pouze finální odpověď.");
}

TEST(RequestEntry, ToolResultBindsTheAnswerAndFeedsTheTemplate) {
  ScriptedTransport script({reply("Je to 85."), reply("Asi 80.")});
  const AiRuntime runtime(config(), script.transport());
  expectResponse(runtime.ask(shortAnswer("Kolik je 12*(3+4)?")),
                 response(true, "84", "watchdog-template", true, {}, true, 2,
                          ""),
                 "template");
}

}  // namespace
}  // namespace tovrin::ai
