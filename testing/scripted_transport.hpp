// A transport for tests: records every call and answers from a script.
#ifndef TOVRIN_AI_TESTING_SCRIPTED_TRANSPORT_HPP_
#define TOVRIN_AI_TESTING_SCRIPTED_TRANSPORT_HPP_

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
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

class ScriptedTransport {
 public:
  explicit ScriptedTransport(std::vector<ScriptStep> script = {})
      : state_(std::make_shared<State>()) {
    state_->script = std::move(script);
  }

  // The AiTransport to hand to a runtime; it shares this object's record.
  AiTransport transport() const {
    return [state = state_](const AiRuntimeConfig&, const std::string& endpoint,
                            const std::string& model, const std::string& systemPrompt,
                            const std::string& userPrompt,
                            std::size_t maxTokens) -> std::string {
      state->calls.push_back({endpoint, model, systemPrompt, userPrompt, maxTokens});
      if (state->calls.size() > state->script.size()) {
        throw std::logic_error("scripted transport called too often");
      }
      const ScriptStep& step = state->script[state->calls.size() - 1];
      if (step.failed) throw std::runtime_error(step.text);
      return step.text;
    };
  }

  const std::vector<TransportCall>& calls() const { return state_->calls; }

 private:
  struct State {
    std::vector<ScriptStep> script;
    std::vector<TransportCall> calls;
  };
  std::shared_ptr<State> state_;
};

}  // namespace tovrin::ai::test

#endif  // TOVRIN_AI_TESTING_SCRIPTED_TRANSPORT_HPP_
