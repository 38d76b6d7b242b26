#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/scripted_transport.hpp"
#include "tovrin/ai.hpp"

namespace tovrin::ai {
namespace {

using test::failWith;
using test::reply;
using Texts = std::vector<std::string>;

const std::string kPrimary = "http://primary:1/v1/chat/completions";
const AiRequest kHello{.message = "Ahoj", .kind = AiRequestKind::ShortAnswer};
const std::string kNoConnect = "Cannot connect to AI endpoint";
const std::string kRejected = "AI answer rejected by watchdog";

struct EntryCase {
  const char* name;
  std::vector<test::ScriptStep> script;
  AiResponse expected;
  Texts calls;  // "<endpoint> <model>" of every transport call
  AiRequest request = kHello;
  AiRuntimeConfig config = {.endpoint = kPrimary, .model = "P", .helperPath = {},
                            .fallbackEndpoint = "http://fb/", .fallbackModel = "F"};
};

AiRuntimeConfig with(std::string fallbackEndpoint, std::string fallbackModel) {
  return {.endpoint = kPrimary, .model = "P", .helperPath = {},
          .fallbackEndpoint = std::move(fallbackEndpoint), .fallbackModel = std::move(fallbackModel)};
}

TEST(RequestEntry, Cases) {
  const AiResponse slashRejected{.answer = "/x", .model = "P", .watchdogPassed = false,
                                 .watchdogReasons = {"slash_command_forbidden"}, .attempts = 2,
                                 .error = kRejected};
  const std::string p = kPrimary + " P";
  const std::string f = "http://fb/ F";
  AiRuntimeConfig disabled = with("", "");
  disabled.enabled = false;
  AiRuntimeConfig noEndpoint = with("", "");
  noEndpoint.endpoint.clear();
  AiRuntimeConfig noModel = with("", "");
  noModel.model.clear();
  const EntryCase cases[] = {
      {"disabled_before_empty_message", {}, {.error = "AI runtime disabled"}, {}, {}, disabled},
      {"empty_message_before_empty_endpoint", {}, {.error = "AI request message is empty"}, {}, {}, noEndpoint},
      {"empty_endpoint", {}, {.error = "AI endpoint is empty"}, {}, kHello, noEndpoint},
      {"single_space_message_and_empty_model", {reply("Ano.")},
       {.ok = true, .answer = "Ano.", .attempts = 1}, {kPrimary + " "}, {.message = " "}, noModel},
      {"first_pass_accepted", {reply("Nazdar.")}, {.ok = true, .answer = "Nazdar.", .model = "P", .attempts = 1}, {p}},
      {"rejected_no_fallback_pair", {reply("/x"), reply("/x")}, slashRejected, {p, p}, kHello, with("", "")},
      {"fallback_endpoint_without_model", {reply("/x"), reply("/x")}, slashRejected, {p, p}, kHello, with("http://fb/", "")},
      {"fallback_model_without_endpoint", {failWith(kNoConnect)},
       {.model = "P", .attempts = 1, .error = kNoConnect}, {p}, kHello, with("", "F")},
      {"second_pass_accepted", {failWith(kNoConnect), reply("Nazdar.")},
       {.ok = true, .answer = "Nazdar.", .model = "F", .fallback = true, .attempts = 1}, {p, f}},
      {"rejected_then_transport_failure", {reply("/x"), reply("/x"), failWith(kNoConnect)},
       {.answer = "/x", .model = "P", .watchdogPassed = false, .watchdogReasons = {"slash_command_forbidden"},
        .attempts = 2, .error = kNoConnect}, {p, p, f}},
      {"both_transport_failures_joined", {failWith(kNoConnect), failWith("Failed to receive AI response")},
       {.model = "P", .attempts = 1, .error = kNoConnect + "; Failed to receive AI response"}, {p, f}},
      {"both_rejected", {reply("/x"), reply("/x"), reply("/y"), reply("/z")}, slashRejected, {p, p, f, f}},
      {"failure_then_rejection_keeps_first_error", {failWith("Malformed AI HTTP response"), reply("/y"), reply("/z")},
       {.model = "P", .attempts = 1, .error = "Malformed AI HTTP response"}, {p, f, f}},
      {"template_after_failure_ends_request", {failWith(kNoConnect)},
       {.ok = true, .answer = "OK", .model = "watchdog-template", .fallback = true, .attempts = 1, .error = kNoConnect},
       {p}, {.message = "ahoj", .kind = AiRequestKind::ChatModeration}},
      // The tool's exact result binds the answer and feeds the template.
      {"tool_result_template", {reply("Je to 85."), reply("Asi 80.")},
       {.ok = true, .answer = "84", .model = "watchdog-template", .fallback = true, .attempts = 2}, {p, p},
       {.message = "Kolik je 12*(3+4)?", .kind = AiRequestKind::ShortAnswer}, with("", "")},
  };
  for (const EntryCase& c : cases) {
    test::ScriptedTransport script(c.script);
    test::expectResponse(AiRuntime(c.config, script.transport()).ask(c.request), c.expected, c.name);
    Texts calls;
    for (const test::TransportCall& call : script.calls()) calls.push_back(call.endpoint + " " + call.model);
    EXPECT_EQ(calls, c.calls) << c.name;
  }
}

}  // namespace
}  // namespace tovrin::ai
