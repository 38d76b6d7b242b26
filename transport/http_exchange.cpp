#include <array>
#include <stdexcept>
#include <string>
#include <string_view>

#include "socket_platform.hpp"
#include "tovrin/ai/transport.hpp"
#include "wakeable_exchange.hpp"

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

// The wakeable twins of sendAll and receiveAll: each call is made after a
// wait for the socket or the wake signal, on a socket that never blocks, so
// a raise is seen at the next wait. A wait of the whole time-out without
// progress fails as the plain exchange's blocking call would.
void waitOrThrow(const detail::Socket& socket, bool forWrite,
                 std::uint32_t timeoutMs, const detail::WakeSignal& wake,
                 const char* failure) {
  switch (detail::waitReady(socket, forWrite, timeoutMs, wake)) {
    case detail::WaitResult::kReady:
      return;
    case detail::WaitResult::kWoken:
      throw detail::ExchangeInterrupted();
    case detail::WaitResult::kTimedOut:
    case detail::WaitResult::kFailed:
      break;
  }
  throw std::runtime_error(failure);
}

void sendAllWakeable(const detail::Socket& socket, const std::string& request,
                     std::uint32_t timeoutMs,
                     const detail::WakeSignal& wake) {
  std::size_t sent = 0;
  while (sent < request.size()) {
    waitOrThrow(socket, true, timeoutMs, wake, kSendFailed);
    const std::ptrdiff_t n =
        detail::sendNow(socket, request.data() + sent, request.size() - sent);
    if (n == detail::kWouldBlock) continue;
    if (n < 1) throw std::runtime_error(kSendFailed);
    sent += static_cast<std::size_t>(n);
  }
}

std::string receiveAllWakeable(const detail::Socket& socket,
                               std::uint32_t timeoutMs,
                               const detail::WakeSignal& wake) {
  std::array<char, kReceiveBufferSize> buffer{};
  std::string response;
  for (;;) {
    waitOrThrow(socket, false, timeoutMs, wake, kReceiveFailed);
    const std::ptrdiff_t n =
        detail::receiveNow(socket, buffer.data(), buffer.size());
    if (n == 0) return response;
    if (n == detail::kWouldBlock) continue;
    if (n < 0) throw std::runtime_error(kReceiveFailed);
    response.append(buffer.data(), static_cast<std::size_t>(n));
  }
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
    case detail::ConnectResult::kInterrupted:
      throw std::runtime_error(kCannotConnect);
  }

  sendAll(socket, request);
  std::string response = receiveAll(socket);
  socket.close();

  // The head is dropped in place; the body is not copied out.
  response.erase(0, acceptedBodyStart(response));
  return extractMessageContent(response);
}

namespace detail {

std::string wakeableChatCompletion(const AiRuntimeConfig& config,
                                   const std::string& endpoint,
                                   const std::string& model,
                                   const std::string& systemPrompt,
                                   const std::string& userPrompt,
                                   std::size_t maxTokens,
                                   const WakeSignal& wake) {
  const SocketLibrary library;
  if (!library.started() || !wake.isOpen()) {
    throw std::runtime_error(kCannotStart);
  }
  const AiEndpoint target = parseEndpoint(endpoint);
  const std::string request = buildHttpRequest(
      target, buildCompletionBody(model, systemPrompt, userPrompt,
                                  config.temperature, config.topP, maxTokens));
  const std::uint32_t timeoutMs = socketTimeoutMs(config.timeoutMs);
  Socket socket;
  switch (connectTcpWakeable(target.host, target.port, timeoutMs, wake,
                             socket)) {
    case ConnectResult::kConnected:
      break;
    case ConnectResult::kUnresolved:
      throw std::runtime_error(kCannotResolve);
    case ConnectResult::kNotAccepted:
      throw std::runtime_error(kCannotConnect);
    case ConnectResult::kInterrupted:
      throw ExchangeInterrupted();
  }
  sendAllWakeable(socket, request, timeoutMs, wake);
  std::string response = receiveAllWakeable(socket, timeoutMs, wake);
  socket.close();
  std::size_t bodyStart = 0;
  try {
    bodyStart = acceptedBodyStart(response);
  } catch (const std::runtime_error& error) {
    // The same text, and the start of the server's own explanation beside it.
    const std::size_t headEnd = response.find(kHeadEnd);
    if (headEnd == std::string::npos) throw;
    throw RefusedStatus(error.what(),
                        response.substr(headEnd + kHeadEnd.size(),
                                        kRefusedBodyLimit));
  }
  response.erase(0, bodyStart);
  return extractMessageContent(response);
}

}  // namespace detail

}  // namespace tovrin::ai
