// A transport for tests: records every call and answers from a script.
#ifndef TOVRIN_AI_TESTING_SCRIPTED_TRANSPORT_HPP_
#define TOVRIN_AI_TESTING_SCRIPTED_TRANSPORT_HPP_

#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tovrin/ai.hpp"

namespace tovrin::ai::test {

// What the transport was called with.
struct TransportCall {
  std::string endpoint;
  std::string model;
  std::string systemPrompt;
  std::string userPrompt;
  std::size_t maxTokens = 0;
  std::int64_t timeoutMs = 0;
};

// One scripted reply: an answer text, or a std::runtime_error to throw.
struct ScriptStep {
  std::string answer;
  std::optional<std::string> error;
};

inline ScriptStep reply(std::string answer) { return {std::move(answer), {}}; }
inline ScriptStep failWith(std::string error) { return {{}, std::move(error)}; }

class ScriptedTransport {
 public:
  explicit ScriptedTransport(std::vector<ScriptStep> script = {})
      : state_(std::make_shared<State>()) {
    state_->script = std::move(script);
  }

  // The AiTransport to hand to a runtime; it shares this object's record.
  AiTransport transport() const {
    std::shared_ptr<State> state = state_;
    return [state](const AiRuntimeConfig& config, const std::string& endpoint,
                   const std::string& model, const std::string& systemPrompt,
                   const std::string& userPrompt,
                   std::size_t maxTokens) -> std::string {
      state->calls.push_back({endpoint, model, systemPrompt, userPrompt,
                              maxTokens, config.timeoutMs});
      if (state->next >= state->script.size()) {
        throw std::logic_error("scripted transport called too often");
      }
      const ScriptStep& step = state->script[state->next++];
      if (step.error) throw std::runtime_error(*step.error);
      return step.answer;
    };
  }

  const std::vector<TransportCall>& calls() const { return state_->calls; }

 private:
  struct State {
    std::vector<ScriptStep> script;
    std::size_t next = 0;
    std::vector<TransportCall> calls;
  };
  std::shared_ptr<State> state_;
};

}  // namespace tovrin::ai::test

#endif  // TOVRIN_AI_TESTING_SCRIPTED_TRANSPORT_HPP_
