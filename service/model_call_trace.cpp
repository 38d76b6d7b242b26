// The transport that ask sees inside the service: it waits for the model
// where the game asked for that, picks the interruptible exchange, and
// records each model call in the request's trace.
#include <stdexcept>
#include <utility>

#include "service/service_state.hpp"
#include "tovrin/ai/tools.hpp"
#include "tovrin/ai/transport.hpp"
#include "tovrin/ai/watchdog.hpp"
#include "transport/wakeable_exchange.hpp"

namespace tovrin::ai {

namespace detail {

thread_local CallContext* currentCall = nullptr;

namespace {

// Numbers the next model call as the generation loop makes them
// (generation/generation_loop.cpp, generateAnswer): a pass starts at
// attempt 1; a rejected attempt 1 is repaired by attempt 2 when repair is
// on; anything else ends the pass, and the next call starts the next pass.
// This is the one place outside that loop that knows its order.
void numberNextCall(CallContext& context, bool repairEnabled) {
  if (context.pass == 0) {
    context.pass = context.attempt = 1;
  } else if (context.attempt == 1 && context.lastRejected && repairEnabled) {
    context.attempt = 2;
  } else {
    ++context.pass;
    context.attempt = 1;
  }
}

}  // namespace

}  // namespace detail

std::stop_token currentStopToken() {
  if (detail::currentCall == nullptr) return {};
  return detail::currentCall->record->stop.get_token();
}

std::string AiService::State::callTransport(
    const AiRuntimeConfig& config, const std::string& endpoint,
    const std::string& model, const std::string& systemPrompt,
    const std::string& userPrompt, std::size_t maxTokens,
    const detail::CallContext* context) {
  if (gameTransport) {
    return gameTransport(config, endpoint, model, systemPrompt, userPrompt,
                         maxTokens);
  }
  if (context == nullptr || context->wake == nullptr) {
    return httpChatCompletion(config, endpoint, model, systemPrompt,
                              userPrompt, maxTokens);
  }
  return detail::wakeableChatCompletion(config, endpoint, model, systemPrompt,
                                        userPrompt, maxTokens, *context->wake);
}

std::string AiService::State::callModel(const AiRuntimeConfig& config,
                                        const std::string& endpoint,
                                        const std::string& model,
                                        const std::string& systemPrompt,
                                        const std::string& userPrompt,
                                        std::size_t maxTokens) {
  detail::CallContext* context = detail::currentCall;
  if (context == nullptr) {  // the game called runtime().ask itself
    return callTransport(config, endpoint, model, systemPrompt, userPrompt,
                         maxTokens, nullptr);
  }
  Record& record = *context->record;
  const std::stop_token token = record.stop.get_token();
  if (token.stop_requested()) {
    // A stopped request's later calls fail at once and leave no trace.
    context->interrupted = true;
    throw std::runtime_error(detail::endingText(record.stopReason.load()));
  }

  detail::numberNextCall(*context, config.repairEnabled);
  AiModelCallTrace call;
  call.pass = context->pass;
  call.attempt = context->attempt;
  call.endpoint = endpoint;
  call.model = model;
  call.start = Clock::now();
  {
    const std::lock_guard<std::mutex> lock(mutex);
    record.openCall = call;  // what a substitute records if the call hangs
  }

  std::string answer;
  try {
    if (options.waitForModel) {
      options.waitForModel(token);
      if (token.stop_requested()) throw detail::ExchangeInterrupted();
    }
    answer = callTransport(config, endpoint, model, systemPrompt, userPrompt,
                           maxTokens, context);
    // A game transport that returns after the stop is too late.
    if (token.stop_requested()) throw detail::ExchangeInterrupted();
    call.answered = true;
    call.answer = answer;
    if (config.watchdogEnabled) {
      if (!context->enriched) {
        context->enriched = applyToolFacts(record.submission.request);
      }
      call.verdict = validateAnswer(answer, *context->enriched);
    }
  } catch (const detail::RefusedStatus& refused) {
    call.error = refused.what();
    call.errorBody = refused.body();
  } catch (const std::exception& error) {
    call.error = error.what();
  }
  if (token.stop_requested()) {
    // Stopped while waiting, calling or judging: the call counts as failed,
    // so that the runtime spends no more time on its answer. An answer
    // that came stays in the trace.
    context->interrupted = true;
    if (!call.answered) call.error = detail::endingText(record.stopReason.load());
  }
  call.duration = detail::since(call.start);
  context->lastRejected = call.answered && !call.verdict.passed;
  const bool failed = !call.answered || context->interrupted;
  std::string error = call.answered
                          ? detail::endingText(record.stopReason.load())
                          : call.error;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    record.trace.calls.push_back(std::move(call));
    record.openCall.reset();
  }
  if (failed) throw std::runtime_error(error);
  return answer;
}

}  // namespace tovrin::ai
