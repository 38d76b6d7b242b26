// A scripted HTTP server on the loopback interface for the test suites.
//
// The server listens on 127.0.0.1 before its constructor returns and
// serves one connection at a time on its own thread. Connection n is
// handled by step n of the script; once the script is used up its last step
// serves every further connection. For each connection it records the raw
// request bytes, then answers as the step says. Every wait is bounded and
// the destructor interrupts delays, so a test never hangs on the server.
//
//   LoopbackServer server({chatCompletionStep("Ahoj")});
//   httpChatCompletion(config, server.endpoint(), ...);
//   EXPECT_EQ(server.requests().at(0), "POST /v1/chat/completions ...");
#ifndef TOVRIN_AI_TESTING_LOOPBACK_SERVER_HPP_
#define TOVRIN_AI_TESTING_LOOPBACK_SERVER_HPP_

#include <atomic>
#include <chrono>
#include <list>
#include <memory>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "transport/socket_platform.hpp"

namespace tovrin::ai::test {

// What the server does with one connection.
struct LoopbackStep {
  bool readRequest = true;                 // false: close at once, unread
  std::chrono::milliseconds delay{0};      // pause before answering
  std::string answer;                      // bytes sent back; empty: none
  std::size_t fillBytes = 0;               // then this many fillByte bytes,
  char fillByte = 'a';                     //   made up while sending
  std::size_t dripBytes = 0;               // >0: send this many at a time
  std::chrono::milliseconds dripPause{0};  // pause between dripped pieces
  bool resetAtEnd = false;                 // abort (RST) instead of closing
  // Set: the answer is made from the raw request bytes instead of taken
  // from answer. Called on the serving threads, so it must be thread-safe.
  std::function<std::string(const std::string& request)> respond;
};

// A 200 answer shaped like an OpenAI-compatible server's, with rawContent
// (JSON string contents, escapes as written) as the assistant's message.
LoopbackStep chatCompletionStep(std::string_view rawContent);

// Exactly these bytes, then close.
LoopbackStep rawStep(std::string bytes);

// statusLine (without line end), JSON headers with a matching
// Content-Length, the empty line and body.
LoopbackStep statusStep(std::string_view statusLine, std::string_view body);

// Reads the request, then closes without a byte of answer.
LoopbackStep closeWithoutAnswerStep();

// Closes right after accepting, with the request unread.
LoopbackStep closeBeforeReadingStep();

// step, answered only after delay.
LoopbackStep delayedStep(std::chrono::milliseconds delay, LoopbackStep step);

// step, its answer sent dripBytes at a time with pause between pieces.
LoopbackStep drippedStep(LoopbackStep step, std::size_t dripBytes,
                         std::chrono::milliseconds pause);

// step, its connection reset once the answer is sent.
LoopbackStep resetStep(LoopbackStep step);

// Reads the request and then holds the connection without a byte of
// answer until the server is destroyed.
LoopbackStep neverAnswerStep();

// Whether connections wait for each other or are served side by side, each
// on a thread of its own (for clients on several threads at once).
enum class Serving { kOneAtATime, kConcurrently };

class LoopbackServer {
 public:
  // Listens on port (0: a free one the system picks). Throws
  // std::runtime_error when it cannot listen.
  explicit LoopbackServer(std::vector<LoopbackStep> script,
                          std::uint16_t port = 0,
                          Serving serving = Serving::kOneAtATime);
  ~LoopbackServer();  // stops serving and joins the thread
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  std::uint16_t port() const { return port_; }

  // "http://127.0.0.1:<port>" followed by path.
  std::string endpoint(std::string_view path = "/v1/chat/completions") const;

  // Raw request bytes of the connections served so far, in order; empty
  // for a connection closed before reading. A request is recorded before
  // its answer is sent, so it is there once the client has its answer.
  std::vector<std::string> requests() const;

  // How long one request may take to arrive before the server stops
  // reading and answers what it has.
  static constexpr std::chrono::milliseconds kReadLimit{5000};

 private:
  struct Worker {
    std::thread thread;
    std::shared_ptr<std::atomic<bool>> done;
  };

  void serve();
  void handle(detail::Socket connection, const LoopbackStep& step);
  // Starts a worker for connection; joins the workers that have finished.
  void handleConcurrently(detail::Socket connection, const LoopbackStep& step);
  // Sleeps for pause unless the server is stopping; false when stopping.
  bool pauseFor(std::chrono::milliseconds pause);
  bool stopping() const;

  detail::SocketLibrary library_;
  detail::Socket listener_;
  std::uint16_t port_ = 0;
  std::vector<LoopbackStep> script_;
  Serving serving_;
  std::list<Worker> workers_;  // only touched by the serving thread

  mutable std::mutex mutex_;
  std::condition_variable stopSignal_;
  bool stop_ = false;
  std::vector<std::string> requests_;

  std::thread thread_;  // last: starts after everything above exists
};

}  // namespace tovrin::ai::test

#endif  // TOVRIN_AI_TESTING_LOOPBACK_SERVER_HPP_
