// The runtime object: built once from a configuration and a transport,
// then read-only; ask() serves one request on the caller's thread.
#ifndef TOVRIN_AI_RUNTIME_HPP_
#define TOVRIN_AI_RUNTIME_HPP_

#include <string>

#include "tovrin/ai/records.hpp"

namespace tovrin::ai {

struct AiRuntime {
  // Moves both arguments in. An empty transport is replaced by
  // httpChatCompletion. Reads the helper text file once, as the last step;
  // a missing or unreadable file simply leaves helperText empty.
  explicit AiRuntime(AiRuntimeConfig config, AiTransport transport = {});

  // Serves one request and never throws for an ordinary failure: refusals,
  // transport failures and watchdog rejections come back as ok == false with
  // a text in error. Makes at most two passes of at most two model attempts.
  // The caller's request is not changed. Safe to call from several threads
  // at once when the transport is.
  AiResponse ask(const AiRequest& request) const;

  // Fills helperText with the bytes of config.helperPath, unchanged (binary
  // read, no size limit). Called by the constructor only.
  void loadHelperText();

  AiRuntimeConfig config;  // fixed at construction
  AiTransport transport;   // never empty after construction
  std::string helperText;  // appended to the system prompt when not empty
};

}  // namespace tovrin::ai

#endif  // TOVRIN_AI_RUNTIME_HPP_
