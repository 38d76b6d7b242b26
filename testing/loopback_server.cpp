#include "testing/loopback_server.hpp"

#include "tovrin/ai/text.hpp"
#include "tovrin/ai/transport.hpp"
#include "transport/wakeable_exchange.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>
#include <utility>

namespace tovrin::ai::test {

namespace {

constexpr int kPollSliceMs = 20;
constexpr milliseconds kReadLimit{5000};

// True once request holds its head and the body its Content-Length
// announces (none when it announces nothing).
bool requestComplete(const std::string& request) {
  const std::size_t headEnd = request.find("\r\n\r\n");
  if (headEnd == std::string::npos) return false;
  const std::string head = toLowerAscii(request.substr(0, headEnd));
  const std::size_t at = head.find("\ncontent-length:");
  if (at == std::string::npos) return true;
  std::size_t pos = at + 16;
  while (pos < head.size() && head[pos] == ' ') ++pos;
  std::size_t length = 0;
  std::from_chars(head.data() + pos, head.data() + head.size(), length);
  return request.size() - (headEnd + 4) >= length;
}

}  // namespace

LoopbackStep statusStep(std::string_view statusLine, std::string_view body) {
  return {.answer = std::string(statusLine) + "\r\nContent-Type: application/json; charset=utf-8\r\nContent-Length: " +
                    std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + std::string(body)};
}

LoopbackStep chatCompletionStep(std::string_view rawContent) {
  return statusStep("HTTP/1.1 200 OK",
                    "{\"id\":\"chatcmpl-loopback1\",\"object\":\"chat.completion\",\"created\":1700000000,"
                    "\"model\":\"loopback-model\",\"choices\":[{\"index\":0,\"message\":{\"role\":\"assistant\","
                    "\"content\":\"" + std::string(rawContent) + "\"},\"logprobs\":null,\"finish_reason\":\"stop\"}],"
                    "\"usage\":{\"prompt_tokens\":42,\"completion_tokens\":7,\"total_tokens\":49}}");
}

std::string exchangeOutcome(const std::string& url, std::int64_t timeoutMs, const std::string& userPrompt,
                            const detail::WakeSignal* wake) {
  const AiRuntimeConfig config{.timeoutMs = timeoutMs};
  const std::string model = "Qwen2.5-1.5B-Instruct-Q8";
  try {
    return "returned: " + (wake ? detail::wakeableChatCompletion(config, url, model, "system", userPrompt, 80, *wake)
                                : httpChatCompletion(config, url, model, "system", userPrompt, 80));
  } catch (const std::runtime_error& e) {
    return e.what();
  }
}

LoopbackServer::LoopbackServer(std::vector<LoopbackStep> script, std::uint16_t port, Serving serving)
    : script_(std::move(script)), serving_(serving) {
  if (script_.empty() || !library_.started() || !detail::listenLoopback(port, listener_, port_)) {
    throw std::runtime_error("LoopbackServer cannot listen on 127.0.0.1:" + std::to_string(port));
  }
  thread_ = std::thread([this] { serve(); });
}

LoopbackServer::~LoopbackServer() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  stopSignal_.notify_all();
  thread_.join();
}

std::string LoopbackServer::endpoint(std::string_view path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + std::string(path);
}

std::vector<std::string> LoopbackServer::requests() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

bool LoopbackServer::stopping() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return stop_;
}

bool LoopbackServer::pauseFor(milliseconds pause) {
  std::unique_lock<std::mutex> lock(mutex_);
  return !stopSignal_.wait_for(lock, pause, [this] { return stop_; });
}

void LoopbackServer::serve() {
  for (std::size_t served = 0; !stopping();) {
    if (!detail::waitReadable(listener_, kPollSliceMs)) continue;
    detail::Socket connection = detail::acceptConnection(listener_);
    if (!connection.isOpen()) continue;
    const LoopbackStep& step = script_[std::min(served++, script_.size() - 1)];
    if (serving_ == Serving::kOneAtATime) {
      handle(std::move(connection), step);
    } else {
      workers_.emplace_back([this, &step](detail::Socket socket) { handle(std::move(socket), step); },
                            std::move(connection));
    }
  }
  // Every wait of a worker ends once stopping, so these joins are bounded.
  for (std::thread& worker : workers_) worker.join();
}

void LoopbackServer::handle(detail::Socket connection, const LoopbackStep& step) {
  std::string request;
  const auto deadline = std::chrono::steady_clock::now() + kReadLimit;
  std::array<char, 8192> buffer{};
  bool reading = step.readRequest && (step.readPause.count() == 0 || pauseFor(step.readPause));
  while (reading && !requestComplete(request) && std::chrono::steady_clock::now() < deadline && !stopping()) {
    if (!detail::waitReadable(connection, kPollSliceMs)) continue;
    const std::ptrdiff_t n = detail::receiveSome(connection, buffer.data(), buffer.size());
    if (n <= 0) break;
    const bool partIn = request.size() < step.readPart && request.size() + static_cast<std::size_t>(n) >= step.readPart;
    request.append(buffer.data(), static_cast<std::size_t>(n));
    reading = !partIn || pauseFor(step.readPause);
  }
  const std::string answer = step.respond ? step.respond(request) : step.answer;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(std::move(request));
  }
  if ((step.delay.count() > 0 && !pauseFor(step.delay)) || !step.readRequest) return;
  detail::setTimeouts(connection, 5000);
  // The fill is made up piece by piece, so a huge answer costs one piece.
  const std::size_t total = answer.size() + step.fillBytes;
  const std::size_t piece = step.dripBytes > 0 ? step.dripBytes : 64 * 1024;
  for (std::size_t sent = 0; sent < total;) {
    if (sent > 0 && step.dripPause.count() > 0 && !pauseFor(step.dripPause)) return;
    const std::size_t end = std::min(total, sent + piece);
    std::string bytes = sent < answer.size() ? answer.substr(sent, std::min(end, answer.size()) - sent) : "";
    bytes.append(end - sent - bytes.size(), 'a');
    for (std::size_t done = 0; done < bytes.size();) {
      const std::ptrdiff_t n = detail::sendSome(connection, bytes.data() + done, bytes.size() - done);
      if (n < 1) return;
      done += static_cast<std::size_t>(n);
    }
    sent = end;
  }
  if (step.resetAtEnd) detail::resetOnClose(connection);
}

}  // namespace tovrin::ai::test
