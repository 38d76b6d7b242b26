// tovrin::ai::AiService -- requests that never stall a game's frame.
//
// AiRuntime::ask blocks its caller for up to four model calls. The service
// runs ask for the game on a fixed number of worker threads that share one
// AiRuntime, and gives the game's thread four calls that never wait for the
// network or for another request:
//
//   submit   hands a request in and returns its id at once;
//   poll     collects the requests finished since the last poll, on the
//            calling thread (once per frame, say);
//   cancel   ends one request;
//   pending  counts the requests submitted and not yet finished.
//
// Use:
//
//   tovrin::ai::AiService service(tovrin::ai::AiRuntimeConfig{},
//                                 tovrin::ai::AiServiceOptions{});
//   AiSubmission submission;
//   submission.request.message = "Kolik stojí pivo?";
//   submission.conversation = "karel:player42";
//   const AiRequestId id = service.submit(std::move(submission));
//   ...
//   for (AiCompletion& done : service.poll()) {   // every frame
//     if (done.response.ok) show(done.id, done.response.answer);
//   }
//
// Guarantees:
//   * submit, poll and pending take no lock and make no system call beyond
//     the allocator's: requests and completions pass through lock-free
//     lists, so the game's thread never waits for a worker. It wakes no
//     thread either: when every worker sleeps, a new request starts at the
//     service timer's next look, at most 4 ms later, plus the time the
//     system takes to run the timer and the worker: p99 4.1 ms with a core
//     to spare, more on a machine whose cores are all busy (figures in
//     docs/performance.md).
//     cancel takes the service's lock for bookkeeping only; no lock is held
//     while ask runs.
//   * Exactly one completion for every submitted request: answered by the
//     runtime, rejected by a full queue, superseded, cancelled, timed out,
//     failed, or ended by the service's shutdown. Its ending says which.
//   * Requests with the same conversation key are answered one after
//     another in the order submitted; other requests run side by side, up
//     to the number of workers.
//   * A deadline bounds the whole request, from submission. Any deadline
//     from 1 ms to milliseconds::max() holds; one beyond what the clock can
//     hold is no deadline.
//   * A cancel, a deadline or the service's shutdown ends its request
//     within 50 ms, whatever the server does (silent, dripping, never
//     reading) and however large the request or the answer. The model call
//     in flight is interrupted and the request ends as if that call had
//     failed: the template answer where one fits, otherwise ok == false
//     with the ending's fixed error text. When the worker cannot let go at
//     once (a game's transport that ignores its token, an answer of many
//     megabytes being judged, or a stop that came after the last model
//     call) the service completes the request 10 ms after the stop without
//     it, in the same way, and drops what the worker produces later.
//   * Where these bounds stop: completing a stopped request means building
//     its template answer, about 3.5 ms per MiB of message, so a message
//     of more than about 10 MiB takes that much longer. A name lookup (an
//     endpoint host that is not an IP address) cannot be interrupted: the
//     request still ends on time, but its worker stays busy until the
//     resolver returns.
//   * With the default transport an interrupted exchange closes its own
//     connection on its worker; nothing else ever touches the socket.
//   * A transport the game supplies is never interrupted. It may read
//     currentStopToken() and return early; the service does not wait for
//     it, and drops whatever it returns later.
//   * The destructor ends every request and, with the default transport,
//     returns within 50 ms whatever the server. A worker still judging an
//     answer of many megabytes then (about 2 ms per MiB) finishes that
//     alone and releases the service's memory and descriptors when it
//     ends. With a transport the game supplies the destructor waits for
//     every call of it to return.
//
// This header is not part of <tovrin/ai.hpp>: a game that links only
// tovrin::ai gets no thread. Link tovrin::ai_service to use it.
#ifndef TOVRIN_AI_SERVICE_HPP_
#define TOVRIN_AI_SERVICE_HPP_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "tovrin/ai/records.hpp"
#include "tovrin/ai/runtime.hpp"
#include "tovrin/ai/watchdog.hpp"

namespace tovrin::ai {

// Error texts of the endings that do not come from the runtime.
inline constexpr const char* kQueueFullError = "AI request queue is full";
inline constexpr const char* kSupersededError =
    "AI request superseded by a newer request";
inline constexpr const char* kCancelledError = "AI request cancelled";
inline constexpr const char* kDeadlineError = "AI request deadline passed";
inline constexpr const char* kShutdownError = "AI service shut down";

// How the service is built.
struct AiServiceOptions {
  std::size_t workers = 2;          // threads running ask; at least 1
  std::size_t queueLimit = 64;      // requests waiting to start; at least 1
  std::chrono::milliseconds deadline{30000};  // default per request; > 0
  // Set: called on the worker before every model call with the request's
  // stop token, and returns once a model call can be made (for instance
  // when a model server has loaded its model) or once the token is
  // stopped, at once then. A stopped request's call ends as interrupted.
  std::function<void(std::stop_token)> waitForModel;
};

using AiRequestId = std::uint64_t;  // 1, 2, 3... in submission order

// One request as the game's thread hands it in.
struct AiSubmission {
  AiRequest request;
  std::string conversation;  // same key: one after another; empty: no order
  bool supersede = false;    // replaces its conversation's queued request
  std::optional<std::chrono::milliseconds> deadline;  // unset: the service's
};

// How a request ended.
enum class AiEnding {
  kAnswered,    // ask returned; response is its result, ok or not
  kQueueFull,   // the queue held queueLimit requests; never started
  kSuperseded,  // a newer request of its conversation replaced it
  kCancelled,   // cancel() ended it
  kDeadline,    // its deadline passed
  kShutdown,    // the service was destroyed or shut down first
  kFailed,      // ask raised an exception; its what() is response.error
};

// One model call of the request, as the transport saw it.
struct AiModelCallTrace {
  std::size_t pass = 1;       // 1: first pass, 2: fallback pass
  std::size_t attempt = 1;    // 1, or 2 for the repair attempt
  std::string endpoint;
  std::string model;
  std::chrono::steady_clock::time_point start;
  std::chrono::microseconds duration{0};
  bool answered = false;      // the transport returned an answer
  std::string answer;         // as received, untrimmed
  WatchdogVerdict verdict;    // the watchdog's verdict on answer, when judged
  std::string error;          // what the transport threw, when not answered
  std::string errorBody;      // with the default transport, when the server
                              // refused the call with an HTTP status: the
                              // first 4 KiB of the body it sent with it
};

// What happened to a request besides its response.
struct AiRequestTrace {
  std::chrono::steady_clock::time_point submitted;
  std::chrono::microseconds queueWait{0};  // submission to start on a worker
  std::chrono::microseconds total{0};      // submission to completion
  std::vector<AiModelCallTrace> calls;     // in call order
};

// A finished request.
struct AiCompletion {
  AiRequestId id = 0;
  AiEnding ending = AiEnding::kAnswered;
  AiResponse response;  // for endings other than kAnswered, ok is false and
                        // error holds the ending's text (or the template
                        // answer when an interrupted call left one)
  AiRequestTrace trace;
};

// Inside a transport called by an AiService: the token of the request being
// served, stopped once the request is cancelled, timed out or shut down.
// Elsewhere: a token that is never stopped.
std::stop_token currentStopToken();

class AiService {
 public:
  // Builds the runtime from config and transport (empty: the default HTTP
  // transport, whose waits the service can interrupt) and starts the
  // workers. Throws std::invalid_argument for zero workers, a zero queue
  // limit or a deadline that is not positive.
  AiService(AiRuntimeConfig config, AiServiceOptions options,
            AiTransport transport = {});

  // shutdown(), then releases everything.
  ~AiService();
  AiService(const AiService&) = delete;
  AiService& operator=(const AiService&) = delete;

  // Queues the request and returns its id at once. A full queue (queueLimit
  // requests admitted and not started), or a service already shut down,
  // completes it at once instead. A superseding request counts against the
  // limit until the requests it replaces are gone, within a few
  // milliseconds. Throws std::invalid_argument for a deadline that is not
  // positive.
  AiRequestId submit(AiSubmission submission);

  // Moves every completion finished since the last poll into out, in the
  // order they finished, and returns how many. What out held before is
  // replaced; its capacity is reused, and the completions it held are
  // mostly freed on a service thread rather than the caller's. Never waits
  // for a request.
  std::size_t poll(std::vector<AiCompletion>& out);
  std::vector<AiCompletion> poll();

  // Ends the request with kCancelled: at once when it is queued, within
  // 50 ms when it runs. True means it ends with kCancelled, also for a
  // second cancel of it; false when id is unknown, already finished, or
  // already ending for its deadline or the service's shutdown.
  bool cancel(AiRequestId id);

  // Requests submitted and not yet finished (queued or running).
  std::size_t pending() const;

  // Ends every request with kShutdown and stops the threads, as the
  // destructor does; afterwards poll() still hands out the last
  // completions. Waits for a transport the game supplied to return. Safe
  // to call twice.
  void shutdown();

  // The runtime the workers share (read-only).
  const AiRuntime& runtime() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace tovrin::ai

#endif  // TOVRIN_AI_SERVICE_HPP_
