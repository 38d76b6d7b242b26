#include "bench/bench_server.hpp"

#include <array>
#include <charconv>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace tovrin::ai::bench {

namespace {

constexpr std::string_view kHeadEnd = "\r\n\r\n";
// The transport writes the header in exactly this form.
constexpr std::string_view kLengthHeader = "\r\nContent-Length: ";
// How often the listening thread looks at the stop flag while idle.
constexpr int kPollSliceMs = 20;
// No client of the benchmarks is slower than this; a stuck one is dropped.
constexpr std::uint32_t kSocketLimitMs = 5000;

// True once request holds its head and the body its Content-Length
// announces.
bool requestComplete(std::string_view request) {
  const std::size_t headEnd = request.find(kHeadEnd);
  if (headEnd == std::string_view::npos) return false;
  const std::string_view head = request.substr(0, headEnd);
  const std::size_t header = head.find(kLengthHeader);
  if (header == std::string_view::npos) return true;
  std::size_t length = 0;
  std::from_chars(head.data() + header + kLengthHeader.size(),
                  head.data() + head.size(), length);
  return request.size() - headEnd - kHeadEnd.size() >= length;
}

}  // namespace

BenchServer::BenchServer(std::string response, std::chrono::milliseconds hold,
                         std::size_t workers)
    : response_(std::move(response)), hold_(hold) {
  if (!library_.started() || !detail::listenLoopback(0, listener_, port_)) {
    throw std::runtime_error("bench server cannot listen on 127.0.0.1");
  }
  for (std::size_t i = 0; i < workers; ++i) {
    workers_.emplace_back([this] { workerLoop(); });
  }
  acceptor_ = std::thread([this] { acceptLoop(); });
}

BenchServer::~BenchServer() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  queued_.notify_all();
  acceptor_.join();
  for (std::thread& worker : workers_) worker.join();
}

std::string BenchServer::endpoint() const {
  return "http://127.0.0.1:" + port() + "/v1/chat/completions";
}

void BenchServer::acceptLoop() {
  while (!stop_) {
    if (!detail::waitReadable(listener_, kPollSliceMs)) continue;
    detail::Socket connection = detail::acceptConnection(listener_);
    if (!connection.isOpen()) continue;
    if (workers_.empty()) {
      serve(std::move(connection));
      continue;
    }
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      pending_.push_back(std::move(connection));
    }
    queued_.notify_one();
  }
}

void BenchServer::workerLoop() {
  for (;;) {
    detail::Socket connection;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      queued_.wait(lock, [this] { return stop_ || !pending_.empty(); });
      if (stop_) return;
      connection = std::move(pending_.front());
      pending_.pop_front();
    }
    serve(std::move(connection));
  }
}

void BenchServer::serve(detail::Socket connection) {
  detail::setTimeouts(connection, kSocketLimitMs);
  std::string request;
  std::array<char, 16384> buffer;
  while (!requestComplete(request)) {
    const std::ptrdiff_t n =
        detail::receiveSome(connection, buffer.data(), buffer.size());
    if (n <= 0) return;
    request.append(buffer.data(), static_cast<std::size_t>(n));
  }
  if (hold_.count() > 0) std::this_thread::sleep_for(hold_);
  std::size_t sent = 0;
  while (sent < response_.size()) {
    const std::ptrdiff_t n = detail::sendSome(
        connection, response_.data() + sent, response_.size() - sent);
    if (n < 1) return;
    sent += static_cast<std::size_t>(n);
  }
  answered_.fetch_add(1);
}

}  // namespace tovrin::ai::bench
