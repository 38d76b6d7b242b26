// What the service's threads share. The game's side (submit, poll,
// pending) touches only the atomics and the lock-free lists; everything
// else is guarded by `mutex`. Each part lives in a file of its own:
//   request_queue.cpp      admission, supersede, start order, stop, finish
//   worker_loop.cpp        the workers running ask
//   model_call_trace.cpp   the transport seen by ask, and each call's trace
//   deadline_timer.cpp     deadlines, late stops, waking sleeping workers
//   substitute_answer.cpp  completing a stopped request its worker still holds
//   ai_service.cpp         the public calls, start and shutdown
#ifndef TOVRIN_AI_SERVICE_SERVICE_STATE_HPP_
#define TOVRIN_AI_SERVICE_SERVICE_STATE_HPP_

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "service/completion_outbox.hpp"
#include "service/record_pool.hpp"
#include "service/request_record.hpp"
#include "tovrin/ai/service.hpp"
#include "transport/socket_platform.hpp"

namespace tovrin::ai {

namespace detail {

// How long a stopped request's worker may take to complete it itself
// (an interrupted exchange returns in well under a millisecond) before the
// service completes it without the worker.
inline constexpr auto kStopGrace = std::chrono::milliseconds(10);

// How long shutdown waits for a worker to leave; one still busy judging a
// huge answer is left to end alone (it holds the state until then).
inline constexpr auto kWorkerExitWait = std::chrono::milliseconds(40);

// The timer's longest sleep, and so the longest a sleeping worker waits
// to be woken for a new request: the game's thread never wakes one itself.
inline constexpr auto kTimerTick = std::chrono::milliseconds(4);

struct Worker {
  WakeSignal wake;
  std::thread thread;
  bool exited = false;  // guarded by the service's mutex
};

// What the transport seen by ask knows of the request it serves. A request
// runs wholly on one thread, so a thread-local finds it.
struct CallContext {
  Record* record = nullptr;
  const WakeSignal* wake = nullptr;   // null: the plain exchange
  std::optional<AiRequest> enriched;  // as the runtime judges, made when needed
  std::size_t pass = 0;
  std::size_t attempt = 0;
  bool lastRejected = false;
  bool interrupted = false;  // a call failed because the request was stopped
};

}  // namespace detail

struct AiService::State {
  using Record = detail::Record;
  using RecordPtr = std::shared_ptr<detail::Record>;
  using Clock = detail::ServiceClock;

  State(AiRuntimeConfig config, AiServiceOptions options, AiTransport transport);

  // model_call_trace.cpp
  std::string callModel(const AiRuntimeConfig& config,
                        const std::string& endpoint, const std::string& model,
                        const std::string& systemPrompt,
                        const std::string& userPrompt, std::size_t maxTokens);
  std::string callTransport(const AiRuntimeConfig& config,
                            const std::string& endpoint,
                            const std::string& model,
                            const std::string& systemPrompt,
                            const std::string& userPrompt,
                            std::size_t maxTokens,
                            const detail::CallContext* context);

  // request_queue.cpp
  void drainInboxLocked();
  void admitLocked(RecordPtr record);
  RecordPtr takeReadyLocked();
  bool anyReadyLocked() const;
  void stopLocked(Record& record, AiEnding reason);
  void finishLocked(Record& record, AiEnding ending, AiResponse response);

  // worker_loop.cpp
  void workerLoop(detail::Worker& worker);
  void run(detail::Worker& worker, const RecordPtr& record);
  void leaveLocked(detail::Worker& worker);

  // deadline_timer.cpp
  void timerLoop();

  // substitute_answer.cpp
  void substituteLoop();
  void completeWithSubstitute(std::unique_lock<std::mutex>& lock,
                              const RecordPtr& record);

  const AiServiceOptions options;
  const AiTransport gameTransport;  // empty: the wakeable HTTP exchange
  AiRuntime runtime;

  // The game's side takes no lock.
  std::atomic<Record*> inbox{nullptr};
  detail::CompletionOutbox completions;
  detail::RecordPool spares;
  std::atomic<AiRequestId> nextId{1};
  std::atomic<std::size_t> queued{0};      // admitted, not yet started
  std::atomic<std::size_t> unfinished{0};  // admitted, not yet completed
  std::atomic<bool> closed{false};         // shutdown has begun
  std::atomic<bool> joined{false};         // no thread drains the inbox

  // The service's threads' side.
  std::mutex mutex;
  std::condition_variable workReady;
  std::condition_variable timerWake;
  std::condition_variable substituteReady;
  std::condition_variable changed;  // a request finished or a thread left
  bool shuttingDown = false;        // no request starts any more
  bool threadsLeaving = false;      // every thread returns when idle
  std::deque<RecordPtr> queue;      // not started, in order
  std::unordered_map<AiRequestId, RecordPtr> live;
  std::unordered_set<std::string> busyConversations;
  std::deque<RecordPtr> substitutes;  // stopped, waiting for their answer

  std::vector<std::unique_ptr<detail::Worker>> workers;
  std::thread timer;
  std::thread substituter;
};

}  // namespace tovrin::ai

#endif  // TOVRIN_AI_SERVICE_SERVICE_STATE_HPP_
