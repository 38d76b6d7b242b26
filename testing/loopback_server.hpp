// A scripted HTTP server on 127.0.0.1 for the test suites. It listens
// before its constructor returns and serves one connection at a time on its
// own thread: connection n gets step n of the script, the last step serves
// every further one. Every wait is bounded and the destructor interrupts
// delays, so a test never hangs on the server.
#ifndef TOVRIN_AI_TESTING_LOOPBACK_SERVER_HPP_
#define TOVRIN_AI_TESTING_LOOPBACK_SERVER_HPP_

#include <chrono>
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

using std::chrono::milliseconds;

// What the server does with one connection; {} reads the request and
// closes without a byte of answer.
struct LoopbackStep {
  std::string answer;              // bytes sent back
  bool readRequest = true;         // false: close after the delay, unread
  milliseconds delay{0};           // pause before answering (or closing)
  milliseconds readPause{0};       // >0: pause before reading the request
  std::size_t readPart = 0;        //   and again once this much of it is in
  std::size_t fillBytes = 0;       // then this many 'a', made up while sent
  std::size_t dripBytes = 0;       // >0: send this many at a time
  milliseconds dripPause{0};       //   with this pause between pieces
  bool resetAtEnd = false;         // abort (RST) instead of closing
  // Set: the answer is made from the raw request instead (server thread).
  std::function<std::string(const std::string& request)> respond;
};

// statusLine (without line end), JSON headers with a matching
// Content-Length, the empty line and body.
LoopbackStep statusStep(std::string_view statusLine, std::string_view body);

// A 200 answer shaped like an OpenAI-compatible server's, with rawContent
// (JSON string contents, escapes as written) as the assistant's message.
LoopbackStep chatCompletionStep(std::string_view rawContent);

// step, answered after delay.
inline LoopbackStep delayedStep(milliseconds delay, LoopbackStep step) {
  step.delay = delay;
  return step;
}

// Whether connections wait for each other or are served side by side, each
// on a thread of its own (for clients on several threads at once).
enum class Serving { kOneAtATime, kConcurrently };

// One httpChatCompletion to url with the given time-out and user prompt,
// or with wake the wakeable exchange: "returned: <answer>", or the message
// of the exception it threw.
std::string exchangeOutcome(const std::string& url, std::int64_t timeoutMs = 5000,
                            const std::string& userPrompt = "Ahoj", const detail::WakeSignal* wake = nullptr);

class LoopbackServer {
 public:
  // Listens on port (0: one the system picks); throws std::runtime_error
  // when it cannot.
  explicit LoopbackServer(std::vector<LoopbackStep> script, std::uint16_t port = 0,
                          Serving serving = Serving::kOneAtATime);
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  std::uint16_t port() const { return port_; }
  // "http://127.0.0.1:<port>" followed by path.
  std::string endpoint(std::string_view path = "/v1/chat/completions") const;
  // Raw request bytes of the connections so far, in order; each is recorded
  // before its answer is sent.
  std::vector<std::string> requests() const;

 private:
  void serve();
  void handle(detail::Socket connection, const LoopbackStep& step);
  bool pauseFor(milliseconds pause);  // false when the server is stopping
  bool stopping() const;

  detail::SocketLibrary library_;
  detail::Socket listener_;
  std::uint16_t port_ = 0;
  std::vector<LoopbackStep> script_;
  Serving serving_;
  std::vector<std::thread> workers_;  // only touched by the serving thread
  mutable std::mutex mutex_;
  std::condition_variable stopSignal_;
  bool stop_ = false;
  std::vector<std::string> requests_;
  std::thread thread_;  // last: starts after everything above exists
};

}  // namespace tovrin::ai::test

#endif  // TOVRIN_AI_TESTING_LOOPBACK_SERVER_HPP_
