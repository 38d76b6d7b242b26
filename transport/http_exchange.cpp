#include <array>
#include <stdexcept>
#include <string>
#include <string_view>

#include "socket_platform.hpp"
#include "tovrin/ai/transport.hpp"

namespace tovrin::ai {

namespace {

constexpr const char* kCannotStart = "Cannot initialize socket runtime";
constexpr const char* kCannotResolve = "Cannot resolve AI endpoint host";
constexpr const char* kCannotConnect = "Cannot connect to AI endpoint";
constexpr const char* kSendFailed = "Failed to send AI request";
constexpr const char* kReceiveFailed = "Failed to receive AI response";
constexpr const char* kMalformed = "Malformed AI HTTP response";
constexpr const char* kRefusedStatus = "AI endpoint returned ";

constexpr std::string_view kHeadEnd = "\r\n\r\n";
constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kAcceptedCode = " 200 ";

constexpr std::size_t kReceiveBufferSize = 8192;

void sendAll(const detail::Socket& socket, const std::string& request) {
  std::size_t sent = 0;
  while (sent < request.size()) {
    const std::ptrdiff_t n =
        detail::sendSome(socket, request.data() + sent, request.size() - sent);
    if (n < 1) throw std::runtime_error(kSendFailed);
    sent += static_cast<std::size_t>(n);
  }
}

// The server closes after its answer ("Connection: close"), so the end of
// the stream is the end of the response; no header is consulted.
std::string receiveAll(const detail::Socket& socket) {
  std::array<char, kReceiveBufferSize> buffer{};
  std::string response;
  for (;;) {
    const std::ptrdiff_t n =
        detail::receiveSome(socket, buffer.data(), buffer.size());
    if (n == 0) return response;
    if (n < 0) throw std::runtime_error(kReceiveFailed);
    response.append(buffer.data(), static_cast<std::size_t>(n));
  }
}

// Checks the status line and returns where the body begins. The head is
// only searched for its end; the status code is recognised by " 200 "
// anywhere in the first line, whatever the HTTP version.
std::size_t acceptedBodyStart(std::string_view text) {
  const std::size_t headEnd = text.find(kHeadEnd);
  if (headEnd == std::string_view::npos) throw std::runtime_error(kMalformed);
  const std::string_view statusLine = text.substr(0, text.find(kLineEnd));
  if (statusLine.find(kAcceptedCode) == std::string_view::npos) {
    throw std::runtime_error(std::string(kRefusedStatus) +
                             std::string(statusLine));
  }
  return headEnd + kHeadEnd.size();
}

}  // namespace

std::string parseHttpResponse(const std::string& response) {
  return extractMessageContent(response.substr(acceptedBodyStart(response)));
}

std::string httpChatCompletion(const AiRuntimeConfig& config,
                               const std::string& endpoint,
                               const std::string& model,
                               const std::string& systemPrompt,
                               const std::string& userPrompt,
                               std::size_t maxTokens) {
  // Declared first so that it is released last, after the socket, on every
  // way out.
  const detail::SocketLibrary library;
  if (!library.started()) throw std::runtime_error(kCannotStart);

  const AiEndpoint target = parseEndpoint(endpoint);
  // Built before connecting, so that an open connection never waits for
  // it; building cannot fail, so every error comes as it would otherwise.
  const std::string request = buildHttpRequest(
      target, buildCompletionBody(model, systemPrompt, userPrompt,
                                  config.temperature, config.topP, maxTokens));
  detail::Socket socket;
  switch (detail::connectTcp(target.host, target.port,
                             detail::socketTimeoutMs(config.timeoutMs),
                             socket)) {
    case detail::ConnectResult::kConnected:
      break;
    case detail::ConnectResult::kUnresolved:
      throw std::runtime_error(kCannotResolve);
    case detail::ConnectResult::kNotAccepted:
      throw std::runtime_error(kCannotConnect);
  }

  sendAll(socket, request);
  std::string response = receiveAll(socket);
  socket.close();

  // The head is dropped in place; the body is not copied out.
  response.erase(0, acceptedBodyStart(response));
  return extractMessageContent(response);
}

}  // namespace tovrin::ai
