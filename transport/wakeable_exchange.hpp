// The default transport's exchange with waits another thread can end: the
// same bytes on the wire, the same failures and texts, plus one more way
// out, raising the wake signal. Used by layers that run requests for a game
// and must stop one on a deadline or a cancellation.
#ifndef TOVRIN_AI_TRANSPORT_WAKEABLE_EXCHANGE_HPP_
#define TOVRIN_AI_TRANSPORT_WAKEABLE_EXCHANGE_HPP_

#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>

#include "tovrin/ai/records.hpp"
#include "socket_platform.hpp"

namespace tovrin::ai::detail {

// Thrown when the wake signal ends an exchange.
class ExchangeInterrupted : public std::runtime_error {
 public:
  ExchangeInterrupted() : std::runtime_error("AI exchange interrupted") {}
};

// Thrown instead of the plain exchange's error when the server answered
// with a status other than 200: what() is the same text ("AI endpoint
// returned " and the status line), body() the first kRefusedBodyLimit bytes
// of the body the server sent with it, often its own reason.
inline constexpr std::size_t kRefusedBodyLimit = 4096;
class RefusedStatus : public std::runtime_error {
 public:
  RefusedStatus(const std::string& what, std::string body)
      : std::runtime_error(what), body_(std::move(body)) {}
  const std::string& body() const { return body_; }

 private:
  std::string body_;
};

// httpChatCompletion that ends, within one poll, when wake is raised: the
// connection never blocks, and every wait of connecting, sending and
// receiving watches wake beside the socket. Then the connection is closed on
// this thread and ExchangeInterrupted is thrown; wake stays raised. Raised
// before the call, it interrupts before the first byte is sent. The name
// lookup is the one step a raise cannot end: it takes as long as the
// system's resolver, and a raise meanwhile is seen at the first wait after.
// Otherwise the bytes sent, the answers and the fixed failure texts are the
// plain exchange's; sending or receiving fails exactly when one wait of
// max(config.timeoutMs, 1) ms sees no progress. An unopened wake fails as a
// socket library that cannot start.
std::string wakeableChatCompletion(const AiRuntimeConfig& config,
                                   const std::string& endpoint,
                                   const std::string& model,
                                   const std::string& systemPrompt,
                                   const std::string& userPrompt,
                                   std::size_t maxTokens,
                                   const WakeSignal& wake);

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_TRANSPORT_WAKEABLE_EXCHANGE_HPP_
