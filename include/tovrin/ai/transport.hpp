// The default model transport: endpoint URL, chat-completion request body,
// one HTTP/1.1 exchange per call, and extraction of the answer text.
#ifndef TOVRIN_AI_TRANSPORT_HPP_
#define TOVRIN_AI_TRANSPORT_HPP_

#include <cstddef>
#include <string>
#include <string_view>

#include "tovrin/ai/records.hpp"

namespace tovrin::ai {

// A parsed endpoint URL. After a successful parse host and port are not
// empty and path begins with '/'.
struct AiEndpoint {
  std::string host;  // passed unchanged to the resolver and the Host header
  std::string port;  // service text; "80" when the URL names none
  std::string path;  // request target, query included; "/" when none
};

// Splits "http://host[:port][/path]". Throws std::runtime_error with
// "AI endpoint must use http://" or "Invalid AI endpoint URL".
AiEndpoint parseEndpoint(const std::string& url);

// The contents of a JSON string for the given bytes (no quotes around).
// Escapes '"', '\\' and bytes below 0x20; every other byte is copied.
std::string jsonEscape(const char* data, std::size_t length);
std::string jsonEscape(std::string_view text);

// The one-line JSON body of a chat-completion request: model, the system
// and user messages, temperature, top_p, max_tokens, cache_prompt, stream.
std::string buildCompletionBody(const std::string& model,
                                const std::string& systemPrompt,
                                const std::string& userPrompt,
                                float temperature, float topP,
                                std::size_t maxTokens);

// The complete request bytes: request line, headers and body.
std::string buildHttpRequest(const AiEndpoint& endpoint,
                             const std::string& body);

// The unescaped string value of the last string-valued "content" member of
// body. Throws std::runtime_error("AI response does not contain
// message.content") when there is none or it is empty.
std::string extractMessageContent(const std::string& body);

// Resolves the escapes of raw JSON string contents. "\uXXXX" stays as its
// six bytes. Never fails.
std::string jsonUnescape(const char* data, std::size_t length);
std::string jsonUnescape(std::string_view raw);

// Everything a server sent on one connection, up to its close, turned into
// the answer: the head must end in "\r\n\r\n", the status line (up to the
// first "\r\n") must contain " 200 ", and the body after the head goes to
// extractMessageContent. No header is read. Throws std::runtime_error with
// "Malformed AI HTTP response", "AI endpoint returned " + the status line,
// or extractMessageContent's message. Any bytes at all are accepted.
std::string parseHttpResponse(const std::string& response);

// The default AiTransport: one POST over a fresh TCP connection with
// "Connection: close", read until the server closes, status line checked,
// message content extracted. Each send and receive waits at most
// max(config.timeoutMs, 1) ms. Throws std::runtime_error with a fixed
// message on every failure. Keeps nothing between calls.
std::string httpChatCompletion(const AiRuntimeConfig& config,
                               const std::string& endpoint,
                               const std::string& model,
                               const std::string& systemPrompt,
                               const std::string& userPrompt,
                               std::size_t maxTokens);

}  // namespace tovrin::ai

#endif  // TOVRIN_AI_TRANSPORT_HPP_
