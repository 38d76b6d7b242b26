// A transport for tests that records every call and answers from a script,
// and a whole-response comparison that names every field.
#ifndef TOVRIN_AI_TESTING_SCRIPTED_TRANSPORT_HPP_
#define TOVRIN_AI_TESTING_SCRIPTED_TRANSPORT_HPP_

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tovrin/ai.hpp"

namespace tovrin::ai::test {

// What the transport was called with.
struct TransportCall {
  std::string endpoint, model, systemPrompt, userPrompt;
  std::size_t maxTokens = 0;
};

// One scripted reply: an answer text, or with failed set the text of a
// std::runtime_error to throw.
struct ScriptStep {
  std::string text;
  bool failed = false;
};
inline ScriptStep reply(std::string answer) { return {std::move(answer)}; }
inline ScriptStep failWith(std::string error) { return {std::move(error), true}; }

// Hands out an AiTransport that shares this object's record of calls. A
// call beyond the script throws std::logic_error.
class ScriptedTransport {
 public:
  explicit ScriptedTransport(std::vector<ScriptStep> script = {}) : script_(std::move(script)) {}

  AiTransport transport() const {
    return [script = script_, calls = calls_](const AiRuntimeConfig&, const std::string& endpoint,
                                              const std::string& model, const std::string& systemPrompt,
                                              const std::string& userPrompt, std::size_t maxTokens) -> std::string {
      calls->push_back({endpoint, model, systemPrompt, userPrompt, maxTokens});
      if (calls->size() > script.size()) throw std::logic_error("scripted transport called too often");
      const ScriptStep& step = script[calls->size() - 1];
      if (step.failed) throw std::runtime_error(step.text);
      return step.text;
    };
  }
  const std::vector<TransportCall>& calls() const { return *calls_; }

 private:
  std::vector<ScriptStep> script_;
  std::shared_ptr<std::vector<TransportCall>> calls_ = std::make_shared<std::vector<TransportCall>>();
};

// One line naming every field, so that a failure shows all of them side by
// side. Write expected with designated initializers: {.ok = true, ...}.
inline void expectResponse(const AiResponse& actual, const AiResponse& expected, const std::string& context) {
  const auto describe = [](const AiResponse& r) {
    std::string reasons;
    for (const std::string& reason : r.watchdogReasons) reasons += reason + ";";
    return "ok=" + std::to_string(r.ok) + " answer=" + r.answer + " model=" + r.model +
           " passed=" + std::to_string(r.watchdogPassed) + " reasons=" + reasons +
           " fallback=" + std::to_string(r.fallback) + " attempts=" + std::to_string(r.attempts) + " error=" + r.error;
  };
  EXPECT_EQ(describe(actual), describe(expected)) << context;
}

}  // namespace tovrin::ai::test

#endif  // TOVRIN_AI_TESTING_SCRIPTED_TRANSPORT_HPP_
