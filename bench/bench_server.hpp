// A lean chat-completion server on 127.0.0.1 for the benchmarks. It reads
// each request whole (head and Content-Length bytes), answers the same
// bytes after a fixed hold, and closes. Unlike the test suites' scripted
// server it records nothing, so a long run keeps a constant footprint, and
// it does no more per connection than any server must.
#ifndef TOVRIN_AI_BENCH_BENCH_SERVER_HPP_
#define TOVRIN_AI_BENCH_BENCH_SERVER_HPP_

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "transport/socket_platform.hpp"

namespace tovrin::ai::bench {

class BenchServer {
 public:
  // Listens on a free port before returning and answers every connection
  // with response after hold. With workers 0 the listening thread answers
  // each connection itself, one at a time; otherwise that many threads
  // answer side by side. Throws std::runtime_error when it cannot listen.
  BenchServer(std::string response, std::chrono::milliseconds hold,
              std::size_t workers);
  ~BenchServer();  // stops and joins every thread
  BenchServer(const BenchServer&) = delete;
  BenchServer& operator=(const BenchServer&) = delete;

  // "http://127.0.0.1:<port>/v1/chat/completions".
  std::string endpoint() const;
  std::string port() const { return std::to_string(port_); }

  // Connections answered so far.
  std::uint64_t answered() const { return answered_.load(); }

 private:
  void acceptLoop();
  void workerLoop();
  void serve(detail::Socket connection);

  detail::SocketLibrary library_;
  detail::Socket listener_;
  std::uint16_t port_ = 0;
  const std::string response_;
  const std::chrono::milliseconds hold_;
  std::atomic<std::uint64_t> answered_{0};
  std::atomic<bool> stop_{false};

  std::mutex mutex_;
  std::condition_variable queued_;
  std::deque<detail::Socket> pending_;

  std::vector<std::thread> workers_;
  std::thread acceptor_;  // last: starts once everything above exists
};

}  // namespace tovrin::ai::bench

#endif  // TOVRIN_AI_BENCH_BENCH_SERVER_HPP_
