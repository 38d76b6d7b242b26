// The default transport's exchange with waits another thread can end: the
// same bytes on the wire, the same failures and texts, plus one more way
// out, raising the wake signal. Used by layers that run requests for a game
// and must stop one on a deadline or a cancellation.
#ifndef TOVRIN_AI_TRANSPORT_WAKEABLE_EXCHANGE_HPP_
#define TOVRIN_AI_TRANSPORT_WAKEABLE_EXCHANGE_HPP_

#include <cstddef>
#include <stdexcept>
#include <string>

#include "tovrin/ai/records.hpp"
#include "socket_platform.hpp"

namespace tovrin::ai::detail {

// Thrown when the wake signal ends an exchange.
class ExchangeInterrupted : public std::runtime_error {
 public:
  ExchangeInterrupted() : std::runtime_error("AI exchange interrupted") {}
};

// httpChatCompletion whose connect, send and receive waits also end, within
// one poll, when wake is raised; then the connection is closed on this
// thread and ExchangeInterrupted is thrown. A raised signal interrupts
// before the first byte is sent. Each send and receive is the plain
// exchange's blocking call, made once a wait of at most
// max(config.timeoutMs, 1) ms finds the socket ready.
std::string wakeableChatCompletion(const AiRuntimeConfig& config,
                                   const std::string& endpoint,
                                   const std::string& model,
                                   const std::string& systemPrompt,
                                   const std::string& userPrompt,
                                   std::size_t maxTokens,
                                   const WakeSignal& wake);

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_TRANSPORT_WAKEABLE_EXCHANGE_HPP_
