// The public calls: start, submit, poll, cancel, pending and shutdown.
#include "tovrin/ai/service.hpp"

#include <stdexcept>
#include <utility>

#include "service/lock_free_stack.hpp"
#include "service/service_state.hpp"

namespace tovrin::ai {

using detail::RecordState;

AiService::State::State(AiRuntimeConfig config, AiServiceOptions options,
                        AiTransport transport)
    : options(std::move(options)),
      gameTransport(std::move(transport)),
      runtime(std::move(config),
              [this](const AiRuntimeConfig& c, const std::string& endpoint,
                     const std::string& model, const std::string& system,
                     const std::string& user, std::size_t maxTokens) {
                return callModel(c, endpoint, model, system, user, maxTokens);
              }) {}

AiService::AiService(AiRuntimeConfig config, AiServiceOptions options,
                     AiTransport transport) {
  if (options.workers == 0) {
    throw std::invalid_argument("AiService needs at least one worker");
  }
  if (options.queueLimit == 0) {
    throw std::invalid_argument("AiService queue limit must be at least 1");
  }
  if (options.deadline.count() <= 0) {
    throw std::invalid_argument("AiService deadline must be positive");
  }
  state_ = std::make_shared<State>(std::move(config), std::move(options),
                                   std::move(transport));
  State& s = *state_;
  for (std::size_t i = 0; i < s.options.workers; ++i) {
    s.workers.push_back(std::make_unique<detail::Worker>());
    if (!s.gameTransport && !s.workers.back()->wake.isOpen()) {
      throw std::runtime_error("AiService cannot create its wake signals");
    }
  }
  // Started only once every worker exists, so that a failure above leaves
  // no thread to join. Each thread owns the state with the service: one
  // that shutdown leaves behind frees it when it ends.
  for (const auto& worker : s.workers) {
    detail::Worker& w = *worker;
    w.thread = std::thread([self = state_, &w] { self->workerLoop(w); });
  }
  s.timer = std::thread([self = state_] { self->timerLoop(); });
  s.substituter = std::thread([self = state_] { self->substituteLoop(); });
}

AiService::~AiService() { shutdown(); }

AiRequestId AiService::submit(AiSubmission submission) {
  State& s = *state_;
  const std::chrono::milliseconds limit =
      submission.deadline.value_or(s.options.deadline);
  if (limit.count() <= 0) {
    throw std::invalid_argument("AI request deadline must be positive");
  }
  const AiRequestId id = s.nextId.fetch_add(1);
  const State::Clock::time_point now = State::Clock::now();
  AiEnding refusal = AiEnding::kAnswered;
  if (s.closed.load()) {
    refusal = AiEnding::kShutdown;
  } else if (s.queued.fetch_add(1) >= s.options.queueLimit) {
    s.queued.fetch_sub(1);
    refusal = AiEnding::kQueueFull;
  }
  if (refusal != AiEnding::kAnswered) {
    AiCompletion completion;
    completion.id = id;
    completion.ending = refusal;
    completion.response = detail::failedResponse(refusal);
    completion.trace.submitted = now;
    s.completions.publish(std::move(completion));
    return id;
  }
  detail::Record* record = s.spares.take();
  if (record == nullptr) record = new detail::Record;
  record->id = id;
  record->stopReason.store(AiEnding::kAnswered);
  record->state = RecordState::kQueued;
  record->substituting = false;
  record->trace.submitted = now;
  record->deadline = detail::deadlineAfter(now, limit);
  record->submission = std::move(submission);
  s.unfinished.fetch_add(1);
  detail::pushNode(s.inbox, record, &detail::Record::next);
  return id;
}

std::size_t AiService::poll(std::vector<AiCompletion>& out) {
  State& s = *state_;
  if (s.joined.load() && s.inbox.load() != nullptr) {
    // Submitted while the service shut down: no thread is left to drain.
    const std::lock_guard<std::mutex> lock(s.mutex);
    s.drainInboxLocked();
  }
  return s.completions.takeInto(out);
}

std::vector<AiCompletion> AiService::poll() {
  std::vector<AiCompletion> out;
  poll(out);
  return out;
}

bool AiService::cancel(AiRequestId id) {
  State& s = *state_;
  const std::lock_guard<std::mutex> lock(s.mutex);
  s.drainInboxLocked();
  const auto it = s.live.find(id);
  if (it == s.live.end()) return false;
  detail::Record& record = *it->second;
  if (record.state == RecordState::kRunning && record.stop.stop_requested()) {
    // Already ending: true only when it ends as cancelled.
    return record.stopReason.load() == AiEnding::kCancelled;
  }
  const State::RecordPtr keep = it->second;
  s.stopLocked(record, AiEnding::kCancelled);
  return true;
}

std::size_t AiService::pending() const { return state_->unfinished.load(); }

void AiService::shutdown() {
  State& s = *state_;
  std::unique_lock<std::mutex> lock(s.mutex);
  const State::Clock::time_point begun = State::Clock::now();
  if (!s.shuttingDown) {
    s.closed = true;
    s.drainInboxLocked();
    s.shuttingDown = true;
    std::vector<State::RecordPtr> all;
    for (const auto& entry : s.live) all.push_back(entry.second);
    for (const auto& record : all) s.stopLocked(*record, AiEnding::kShutdown);
  }
  s.workReady.notify_all();
  s.timerWake.notify_all();
  // Workers complete their interrupted requests themselves within the
  // grace; the rest are completed here, without them.
  s.changed.wait_until(lock, begun + detail::kStopGrace,
                       [&s] { return s.live.empty(); });
  std::vector<State::RecordPtr> late;
  for (const auto& entry : s.live) {
    if (!entry.second->substituting) late.push_back(entry.second);
  }
  for (const State::RecordPtr& record : late) {
    if (record->state != RecordState::kRunning || record->substituting) continue;
    record->substituting = true;
    s.completeWithSubstitute(lock, record);
  }
  s.changed.wait(lock, [&s] { return s.live.empty(); });  // the substituter's
  s.threadsLeaving = true;
  s.substituteReady.notify_all();
  // A game's transport is waited for, as promised; a worker of the default
  // exchange still judging a huge answer is left to end alone.
  if (!s.gameTransport) {
    s.changed.wait_until(lock, begun + detail::kWorkerExitWait, [&s] {
      for (const auto& w : s.workers) {
        if (!w->exited) return false;
      }
      return true;
    });
  }
  std::vector<std::pair<std::thread*, bool>> threads;
  for (const auto& w : s.workers) {
    threads.emplace_back(&w->thread, w->exited || s.gameTransport);
  }
  lock.unlock();
  for (const auto& [thread, join] : threads) {
    if (!thread->joinable()) continue;
    if (join) {
      thread->join();
    } else {
      thread->detach();
    }
  }
  if (s.timer.joinable()) s.timer.join();
  if (s.substituter.joinable()) s.substituter.join();
  s.joined = true;
  lock.lock();
  s.drainInboxLocked();
}

const AiRuntime& AiService::runtime() const { return state_->runtime; }

}  // namespace tovrin::ai
