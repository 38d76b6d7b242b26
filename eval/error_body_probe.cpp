#include "error_body_probe.hpp"

#include <array>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "display_text.hpp"
#include "transport/socket_platform.hpp"

namespace tovrin::ai::eval {

namespace {

using Clock = std::chrono::steady_clock;

// Enough for any error document worth reading; the rest is not waited for.
constexpr std::size_t kMaxResponseBytes = 64 * 1024;
constexpr auto kWatchTick = std::chrono::milliseconds(5);

// The body of the server's answer to request when its status is not 200;
// "" when it is, or when no head came in time.
std::string refusedBody(const AiEndpoint& target, const std::string& request,
                        std::uint32_t timeoutMs,
                        const detail::WakeSignal& wake) {
  detail::Socket socket;
  if (detail::connectTcpWakeable(target.host, target.port, timeoutMs, wake,
                                 socket) != detail::ConnectResult::kConnected) {
    return "";
  }
  for (std::size_t sent = 0; sent < request.size();) {
    if (detail::waitReady(socket, true, timeoutMs, wake) !=
        detail::WaitResult::kReady) {
      return "";
    }
    const std::ptrdiff_t n = detail::sendSome(socket, request.data() + sent,
                                              request.size() - sent);
    if (n < 1) return "";
    sent += static_cast<std::size_t>(n);
  }
  // A server that keeps the connection open after its answer ends the
  // reading by its time-out; what came until then is kept.
  std::string response;
  std::array<char, 8192> buffer{};
  while (response.size() < kMaxResponseBytes &&
         detail::waitReady(socket, false, timeoutMs, wake) ==
             detail::WaitResult::kReady) {
    const std::ptrdiff_t n =
        detail::receiveSome(socket, buffer.data(), buffer.size());
    if (n <= 0) break;
    response.append(buffer.data(), static_cast<std::size_t>(n));
  }
  const std::size_t headEnd = response.find("\r\n\r\n");
  if (headEnd == std::string::npos) return "";
  const std::string_view statusLine =
      std::string_view(response).substr(0, response.find("\r\n"));
  if (statusLine.find(" 200 ") != std::string_view::npos) return "";
  return response.substr(headEnd + 4);
}

// The first call of pass against runtime, as the generation loop sends it.
std::string firstCallOf(const AiRuntime& runtime, const AiRequest& request,
                        std::size_t pass, AiEndpoint& target) {
  const AiRuntimeConfig& config = runtime.config;
  const std::string& endpoint =
      pass == 2 ? config.fallbackEndpoint : config.endpoint;
  const std::string& model = pass == 2 ? config.fallbackModel : config.model;
  target = parseEndpoint(endpoint);
  const AiRequest enriched = applyToolFacts(request);
  return buildHttpRequest(
      target, buildCompletionBody(model, buildSystemPrompt(runtime, enriched),
                                  buildUserPrompt(enriched), config.temperature,
                                  config.topP, enriched.maxTokens));
}

}  // namespace

void fetchErrorBodies(const AiRuntime& runtime,
                      const std::vector<EvalCase>& cases,
                      std::vector<EvalResult>& results,
                      std::chrono::milliseconds budget,
                      const std::atomic<bool>& interrupted) {
  std::map<std::pair<std::size_t, std::size_t>, std::string> bodies;
  for (const EvalResult& result : results) {
    if (result.refusedPass != 0 && bodies.size() < kMaxProbes) {
      bodies.emplace(std::pair(result.caseIndex, result.refusedPass), "");
    }
  }
  if (bodies.empty()) return;

  const detail::SocketLibrary library;
  const detail::WakeSignal wake;
  if (!library.started() || !wake.isOpen()) return;
  const Clock::time_point end = Clock::now() + budget;
  // Raises the signal once the budget is spent or the user interrupts, so
  // that no wait of a repeat outlasts either.
  const std::jthread watcher([&](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      if (interrupted.load() || Clock::now() >= end) {
        wake.raise();
        return;
      }
      std::this_thread::sleep_for(kWatchTick);
    }
  });
  const std::uint32_t timeoutMs =
      detail::socketTimeoutMs(runtime.config.timeoutMs);
  for (auto& [key, body] : bodies) {
    if (interrupted.load() || Clock::now() >= end) break;
    AiEndpoint target;
    const std::string request =
        firstCallOf(runtime, cases[key.first].request, key.second, target);
    body = cutText(refusedBody(target, request, timeoutMs, wake),
                   kKeptErrorBodyBytes);
  }
  for (EvalResult& result : results) {
    const auto found =
        bodies.find(std::pair(result.caseIndex, result.refusedPass));
    if (found != bodies.end()) result.errorBody = found->second;
  }
}

}  // namespace tovrin::ai::eval
