#include "testing/loopback_server.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>
#include <utility>

namespace tovrin::ai::test {

namespace {

constexpr std::string_view kHeadEnd = "\r\n\r\n";
constexpr std::string_view kLengthHeader = "\ncontent-length:";
constexpr int kPollSliceMs = 20;
constexpr std::uint32_t kSendLimitMs = 5000;
constexpr std::size_t kSendPiece = 64 * 1024;

char lowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// True once request holds its head and as many body bytes as its
// Content-Length announces (none when it announces nothing).
bool requestComplete(const std::string& request) {
  const std::size_t headEnd = request.find(kHeadEnd);
  if (headEnd == std::string::npos) return false;
  std::string head = request.substr(0, headEnd);
  std::transform(head.begin(), head.end(), head.begin(), lowerAscii);
  const std::size_t header = head.find(kLengthHeader);
  if (header == std::string::npos) return true;
  std::size_t pos = header + kLengthHeader.size();
  while (pos < head.size() && (head[pos] == ' ' || head[pos] == '\t')) ++pos;
  std::size_t length = 0;
  std::from_chars(head.data() + pos, head.data() + head.size(), length);
  return request.size() - (headEnd + kHeadEnd.size()) >= length;
}

}  // namespace

LoopbackStep chatCompletionStep(std::string_view rawContent) {
  std::string body =
      "{\"id\":\"chatcmpl-loopback1\",\"object\":\"chat.completion\","
      "\"created\":1700000000,\"model\":\"loopback-model\",\"choices\":[{"
      "\"index\":0,\"message\":{\"role\":\"assistant\",\"content\":\"";
  body += rawContent;
  body +=
      "\"},\"logprobs\":null,\"finish_reason\":\"stop\"}],\"usage\":{"
      "\"prompt_tokens\":42,\"completion_tokens\":7,\"total_tokens\":49}}";
  return statusStep("HTTP/1.1 200 OK", body);
}

LoopbackStep rawStep(std::string bytes) {
  LoopbackStep step;
  step.answer = std::move(bytes);
  return step;
}

LoopbackStep statusStep(std::string_view statusLine, std::string_view body) {
  std::string answer(statusLine);
  answer += "\r\nContent-Type: application/json; charset=utf-8\r\n";
  answer += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  answer += "Connection: close\r\n\r\n";
  answer += body;
  return rawStep(std::move(answer));
}

LoopbackStep closeWithoutAnswerStep() { return LoopbackStep{}; }

LoopbackStep closeBeforeReadingStep() {
  LoopbackStep step;
  step.readRequest = false;
  return step;
}

LoopbackStep delayedStep(std::chrono::milliseconds delay, LoopbackStep step) {
  step.delay = delay;
  return step;
}

LoopbackStep drippedStep(LoopbackStep step, std::size_t dripBytes,
                         std::chrono::milliseconds pause) {
  step.dripBytes = dripBytes;
  step.dripPause = pause;
  return step;
}

LoopbackStep resetStep(LoopbackStep step) {
  step.resetAtEnd = true;
  return step;
}

LoopbackStep neverAnswerStep() {
  return delayedStep(std::chrono::hours(24), closeWithoutAnswerStep());
}

LoopbackServer::LoopbackServer(std::vector<LoopbackStep> script,
                               std::uint16_t port, Serving serving)
    : script_(std::move(script)), serving_(serving) {
  if (script_.empty()) {
    throw std::invalid_argument("LoopbackServer needs at least one step");
  }
  if (!library_.started() || !detail::listenLoopback(port, listener_, port_)) {
    throw std::runtime_error("LoopbackServer cannot listen on 127.0.0.1:" +
                             std::to_string(port));
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

bool LoopbackServer::pauseFor(std::chrono::milliseconds pause) {
  std::unique_lock<std::mutex> lock(mutex_);
  return !stopSignal_.wait_for(lock, pause, [this] { return stop_; });
}

void LoopbackServer::serve() {
  std::size_t served = 0;
  while (!stopping()) {
    if (!detail::waitReadable(listener_, kPollSliceMs)) continue;
    detail::Socket connection = detail::acceptConnection(listener_);
    if (!connection.isOpen()) continue;
    const LoopbackStep& step = script_[std::min(served, script_.size() - 1)];
    ++served;
    if (serving_ == Serving::kConcurrently) {
      handleConcurrently(std::move(connection), step);
    } else {
      handle(std::move(connection), step);
    }
  }
  // Every wait of a worker ends once stopping, so these joins are bounded.
  for (Worker& worker : workers_) worker.thread.join();
}

void LoopbackServer::handleConcurrently(detail::Socket connection,
                                        const LoopbackStep& step) {
  for (auto it = workers_.begin(); it != workers_.end();) {
    if (it->done->load()) {
      it->thread.join();
      it = workers_.erase(it);
    } else {
      ++it;
    }
  }
  auto done = std::make_shared<std::atomic<bool>>(false);
  std::thread thread(
      [this, &step, done](detail::Socket socket) {
        handle(std::move(socket), step);
        done->store(true);
      },
      std::move(connection));
  workers_.push_back({std::move(thread), std::move(done)});
}

void LoopbackServer::handle(detail::Socket connection,
                            const LoopbackStep& step) {
  std::string request;
  if (step.readRequest) {
    const auto deadline = std::chrono::steady_clock::now() + kReadLimit;
    std::array<char, 8192> buffer{};
    while (!requestComplete(request) &&
           std::chrono::steady_clock::now() < deadline && !stopping()) {
      if (!detail::waitReadable(connection, kPollSliceMs)) continue;
      const std::ptrdiff_t n =
          detail::receiveSome(connection, buffer.data(), buffer.size());
      if (n <= 0) break;
      request.append(buffer.data(), static_cast<std::size_t>(n));
    }
  }
  std::string computed;
  const std::string* answer = &step.answer;
  if (step.readRequest && step.respond) {
    computed = step.respond(request);
    answer = &computed;
  }
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(std::move(request));
  }
  if (!step.readRequest) return;
  if (step.delay.count() > 0 && !pauseFor(step.delay)) return;

  detail::setTimeouts(connection, kSendLimitMs);
  // The fill is made up piece by piece, so a huge answer costs the server
  // one piece of memory.
  const std::size_t total = answer->size() + step.fillBytes;
  const std::size_t piece = step.dripBytes > 0 ? step.dripBytes : kSendPiece;
  std::string bytes;
  std::size_t sent = 0;
  while (sent < total) {
    if (sent > 0 && step.dripPause.count() > 0 && !pauseFor(step.dripPause)) {
      return;
    }
    const std::size_t end = std::min(total, sent + piece);
    bytes.clear();
    if (sent < answer->size()) {
      bytes.append(*answer, sent, std::min(end, answer->size()) - sent);
    }
    bytes.append(end - sent - bytes.size(), step.fillByte);
    std::size_t done = 0;
    while (done < bytes.size()) {
      const std::ptrdiff_t n = detail::sendSome(
          connection, bytes.data() + done, bytes.size() - done);
      if (n < 1) return;
      done += static_cast<std::size_t>(n);
    }
    sent = end;
  }
  if (step.resetAtEnd) detail::resetOnClose(connection);
}

}  // namespace tovrin::ai::test
