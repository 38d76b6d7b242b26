#include "tovrin/ai/service.hpp"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "tovrin/ai/tools.hpp"
#include "tovrin/ai/transport.hpp"
#include "transport/socket_platform.hpp"
#include "transport/wakeable_exchange.hpp"

namespace tovrin::ai {

namespace {

using Clock = std::chrono::steady_clock;

enum class RecordState { kQueued, kRunning, kFinished };

// One submitted request, with its own state: a small record per waiting
// caller. Fields below `state` are guarded by State::mutex.
struct Record {
  AiRequestId id = 0;
  AiSubmission submission;
  Clock::time_point deadline;
  std::stop_source stop{std::nostopstate};  // made when the request starts
  std::atomic<AiEnding> stopReason{AiEnding::kAnswered};  // set before stop

  Record* inboxNext = nullptr;  // inbox or spares; one list at a time

  RecordState state = RecordState::kQueued;
  bool substituting = false;  // the timer thread is completing it
  AiRequestTrace trace;
  std::optional<AiModelCallTrace> openCall;  // a game transport's call
};

// A completion on its way to poll.
struct CompletionNode {
  AiCompletion completion;
  CompletionNode* next = nullptr;
};

// Pushes node onto a lock-free stack (any number of threads).
template <typename Node>
void pushNode(std::atomic<Node*>& top, Node* node, Node* Node::*next) {
  node->*next = top.load(std::memory_order_relaxed);
  while (!top.compare_exchange_weak(node->*next, node,
                                    std::memory_order_release,
                                    std::memory_order_relaxed)) {
  }
}

// Takes the whole stack, oldest first.
template <typename Node>
Node* takeAll(std::atomic<Node*>& top, Node* Node::*next) {
  Node* node = top.exchange(nullptr, std::memory_order_acquire);
  Node* ordered = nullptr;
  while (node != nullptr) {
    Node* following = node->*next;
    node->*next = ordered;
    ordered = node;
    node = following;
  }
  return ordered;
}

constexpr auto kTimerTick = std::chrono::milliseconds(5);

struct Worker {
  detail::WakeSignal wake;
  std::thread thread;
};

// What the runtime's transport knows of the request it serves. A request
// runs wholly on one thread, so a thread-local finds it.
struct CallContext {
  Record* record = nullptr;
  const detail::WakeSignal* wake = nullptr;
  AiRequest enriched;  // as the runtime judges answers
  std::size_t pass = 0;
  std::size_t attempt = 0;
  bool lastRejected = false;
  bool interrupted = false;
};

thread_local CallContext* currentCall = nullptr;

const char* endingText(AiEnding ending) {
  switch (ending) {
    case AiEnding::kQueueFull:
      return kQueueFullError;
    case AiEnding::kSuperseded:
      return kSupersededError;
    case AiEnding::kCancelled:
      return kCancelledError;
    case AiEnding::kDeadline:
      return kDeadlineError;
    case AiEnding::kShutdown:
      return kShutdownError;
    case AiEnding::kAnswered:
    case AiEnding::kFailed:
      break;
  }
  return "";
}

AiResponse failedResponse(AiEnding ending) {
  AiResponse response;
  response.error = endingText(ending);
  return response;
}

std::chrono::microseconds since(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() -
                                                               start);
}

}  // namespace

struct AiService::State {
  State(AiRuntimeConfig config, AiServiceOptions options, AiTransport transport)
      : options(options),
        gameTransport(std::move(transport)),
        runtime(std::move(config),
                [this](const AiRuntimeConfig& c, const std::string& endpoint,
                       const std::string& model, const std::string& system,
                       const std::string& user, std::size_t maxTokens) {
                  return callModel(c, endpoint, model, system, user, maxTokens);
                }) {}
  ~State() {
    for (std::atomic<Record*>* list : {&inbox, &spares}) {
      for (Record* r = takeAll(*list, &Record::inboxNext); r != nullptr;) {
        delete std::exchange(r, r->inboxNext);
      }
    }
    for (Record* r = spareCache; r != nullptr;) {
      delete std::exchange(r, r->inboxNext);
    }
    freeNodes(outbox);
    freeNodes(graveyard);
  }

  std::string callModel(const AiRuntimeConfig& config,
                        const std::string& endpoint, const std::string& model,
                        const std::string& systemPrompt,
                        const std::string& userPrompt, std::size_t maxTokens);
  std::string callInner(const AiRuntimeConfig& config,
                        const std::string& endpoint, const std::string& model,
                        const std::string& systemPrompt,
                        const std::string& userPrompt, std::size_t maxTokens,
                        const CallContext* context);

  static void freeNodes(std::atomic<CompletionNode*>& stack) {
    for (CompletionNode* n = takeAll(stack, &CompletionNode::next);
         n != nullptr;) {
      delete std::exchange(n, n->next);
    }
  }
  Record* takeSpare();
  void recycle(Record* record);
  void publish(AiCompletion completion);
  void wakeWorker();
  void drainInboxLocked();
  void admitLocked(std::shared_ptr<Record> record);
  void finishLocked(Record& record, AiEnding ending, AiResponse response);
  void stopLocked(Record& record, AiEnding reason);
  std::shared_ptr<Record> takeReadyLocked();
  void workerLoop(Worker& worker);
  void run(Worker& worker, Record& record);
  void timerLoop();
  void substitute(std::unique_lock<std::mutex>& lock,
                  const std::shared_ptr<Record>& record);

  const AiServiceOptions options;
  const AiTransport gameTransport;  // empty: the wakeable HTTP exchange
  AiRuntime runtime;

  // The game's side takes no lock: submissions and completions pass
  // through two lock-free stacks, and the counts are atomic.
  std::atomic<Record*> inbox{nullptr};
  std::atomic<CompletionNode*> outbox{nullptr};
  std::atomic<CompletionNode*> graveyard{nullptr};  // freed by the timer
  // Finished records, reused by submit: the game's thread then allocates
  // nothing, and the request texts it moved in are freed where they were
  // allocated, when the next request is moved over them.
  std::atomic<Record*> spares{nullptr};
  std::atomic<bool> takingSpares{false};
  Record* spareCache = nullptr;  // only with takingSpares held
  std::atomic<AiRequestId> nextId{1};
  std::atomic<std::size_t> queued{0};      // admitted, not yet started
  std::atomic<std::size_t> unfinished{0};  // admitted, not yet completed
  std::atomic<bool> closed{false};         // shutdown has begun
  std::atomic<bool> joined{false};         // every thread has ended

  // The workers' and the timer's side.
  std::mutex mutex;
  std::condition_variable workReady;  // notified with mutex held
  std::condition_variable timerWake;
  bool shuttingDown = false;
  std::deque<std::shared_ptr<Record>> queue;  // not started, in order
  std::unordered_map<AiRequestId, std::shared_ptr<Record>> live;
  std::unordered_set<std::string> busyConversations;

  std::vector<std::unique_ptr<Worker>> workers;
  std::thread timer;
};

std::stop_token currentStopToken() {
  if (currentCall == nullptr) return {};
  return currentCall->record->stop.get_token();
}

std::string AiService::State::callInner(
    const AiRuntimeConfig& config, const std::string& endpoint,
    const std::string& model, const std::string& systemPrompt,
    const std::string& userPrompt, std::size_t maxTokens,
    const CallContext* context) {
  if (gameTransport) {
    return gameTransport(config, endpoint, model, systemPrompt, userPrompt,
                         maxTokens);
  }
  if (context == nullptr || context->wake == nullptr) {
    return httpChatCompletion(config, endpoint, model, systemPrompt,
                              userPrompt, maxTokens);
  }
  return detail::wakeableChatCompletion(config, endpoint, model, systemPrompt,
                                        userPrompt, maxTokens, *context->wake);
}

std::string AiService::State::callModel(const AiRuntimeConfig& config,
                                        const std::string& endpoint,
                                        const std::string& model,
                                        const std::string& systemPrompt,
                                        const std::string& userPrompt,
                                        std::size_t maxTokens) {
  CallContext* context = currentCall;
  if (context == nullptr) {  // the game called runtime().ask itself
    return callInner(config, endpoint, model, systemPrompt, userPrompt,
                     maxTokens, nullptr);
  }
  Record& record = *context->record;
  const std::stop_token token = record.stop.get_token();
  const char* stopText = nullptr;
  if (token.stop_requested()) {
    // A stopped request's later calls fail at once and leave no trace.
    context->interrupted = true;
    throw std::runtime_error(endingText(record.stopReason.load()));
  }

  // The generation loop's order: a rejected first attempt is repaired when
  // repair is on; anything else ends the pass.
  if (context->pass == 0) {
    context->pass = context->attempt = 1;
  } else if (context->attempt == 1 && context->lastRejected &&
             config.repairEnabled) {
    context->attempt = 2;
  } else {
    ++context->pass;
    context->attempt = 1;
  }
  AiModelCallTrace call;
  call.pass = context->pass;
  call.attempt = context->attempt;
  call.endpoint = endpoint;
  call.model = model;
  call.start = Clock::now();
  if (gameTransport) {
    const std::lock_guard<std::mutex> lock(mutex);
    record.openCall = call;
  }

  std::string answer;
  try {
    if (options.waitForModel) {
      options.waitForModel(token);
      if (token.stop_requested()) throw detail::ExchangeInterrupted();
    }
    answer = callInner(config, endpoint, model, systemPrompt, userPrompt,
                       maxTokens, context);
    // A game transport that returns after the stop is too late.
    if (token.stop_requested()) throw detail::ExchangeInterrupted();
    call.answered = true;
    call.answer = answer;
    if (config.watchdogEnabled) {
      call.verdict = validateAnswer(answer, context->enriched);
    }
  } catch (const std::exception& error) {
    call.error = error.what();
    if (token.stop_requested()) {
      stopText = endingText(record.stopReason.load());
      call.error = stopText;
      context->interrupted = true;
    }
  }
  call.duration = since(call.start);
  context->lastRejected = call.answered && !call.verdict.passed;
  const bool answered = call.answered;
  std::string error = call.error;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    record.trace.calls.push_back(std::move(call));
    record.openCall.reset();
  }
  if (!answered) throw std::runtime_error(error);
  return answer;
}

void AiService::State::finishLocked(Record& record, AiEnding ending,
                                    AiResponse response) {
  if (record.state == RecordState::kRunning &&
      !record.submission.conversation.empty()) {
    busyConversations.erase(record.submission.conversation);
  }
  record.state = RecordState::kFinished;
  AiCompletion completion;
  completion.id = record.id;
  completion.ending = ending;
  completion.response = std::move(response);
  completion.trace = std::move(record.trace);
  completion.trace.total = since(completion.trace.submitted);
  publish(std::move(completion));
  unfinished.fetch_sub(1);
  live.erase(record.id);  // may release record: nothing touches it after
}

Record* AiService::State::takeSpare() {
  // One taker at a time; a submit that finds another taking allocates.
  if (takingSpares.exchange(true, std::memory_order_acquire)) return nullptr;
  if (spareCache == nullptr) {
    spareCache = spares.exchange(nullptr, std::memory_order_acquire);
  }
  Record* record = spareCache;
  if (record != nullptr) spareCache = record->inboxNext;
  takingSpares.store(false, std::memory_order_release);
  return record;
}

// Runs where the last reference went, usually a worker: releases what the
// workers made and keeps the request texts for submit to replace.
void AiService::State::recycle(Record* record) {
  record->stop = std::stop_source(std::nostopstate);
  record->trace = AiRequestTrace{};
  record->openCall.reset();
  pushNode(spares, record, &Record::inboxNext);
}

void AiService::State::publish(AiCompletion completion) {
  pushNode(outbox, new CompletionNode{std::move(completion), nullptr},
           &CompletionNode::next);
}

void AiService::State::wakeWorker() { workReady.notify_one(); }

void AiService::State::drainInboxLocked() {
  Record* record = takeAll(inbox, &Record::inboxNext);
  while (record != nullptr) {
    Record* next = record->inboxNext;
    admitLocked(std::shared_ptr<Record>(record,
                                        [this](Record* r) { recycle(r); }));
    record = next;
  }
}

// Every queued request of a superseding request's conversation ends; the
// new one takes the place of the oldest.
void AiService::State::admitLocked(std::shared_ptr<Record> record) {
  if (shuttingDown) {
    queued.fetch_sub(1);
    finishLocked(*record, AiEnding::kShutdown,
                 failedResponse(AiEnding::kShutdown));
    return;
  }
  live.emplace(record->id, record);
  const std::string& key = record->submission.conversation;
  constexpr std::size_t kNone = static_cast<std::size_t>(-1);
  std::size_t place = kNone;
  if (record->submission.supersede && !key.empty()) {
    for (std::size_t i = 0; i < queue.size();) {
      if (queue[i]->submission.conversation != key) {
        ++i;
      } else if (place == kNone) {
        place = i++;
      } else {
        const std::shared_ptr<Record> old = std::move(queue[i]);
        queue.erase(queue.begin() + static_cast<std::ptrdiff_t>(i));
        queued.fetch_sub(1);
        finishLocked(*old, AiEnding::kSuperseded,
                     failedResponse(AiEnding::kSuperseded));
      }
    }
  }
  if (place == kNone) {
    queue.push_back(std::move(record));
    return;
  }
  const std::shared_ptr<Record> old = std::exchange(queue[place], record);
  queued.fetch_sub(1);
  finishLocked(*old, AiEnding::kSuperseded,
               failedResponse(AiEnding::kSuperseded));
}

void AiService::State::stopLocked(Record& record, AiEnding reason) {
  if (record.state == RecordState::kQueued) {
    queue.erase(std::find_if(
        queue.begin(), queue.end(),
        [&](const std::shared_ptr<Record>& r) { return r.get() == &record; }));
    queued.fetch_sub(1);
    finishLocked(record, reason, failedResponse(reason));
    return;
  }
  if (record.state != RecordState::kRunning || record.stop.stop_requested()) {
    return;
  }
  record.stopReason.store(reason);
  // Runs the worker's stop callback here, which raises its wake signal.
  record.stop.request_stop();
  if (gameTransport) timerWake.notify_one();
}

std::shared_ptr<Record> AiService::State::takeReadyLocked() {
  for (auto it = queue.begin(); it != queue.end(); ++it) {
    const std::string& key = (*it)->submission.conversation;
    if (!key.empty() && !busyConversations.insert(key).second) continue;
    std::shared_ptr<Record> record = std::move(*it);
    queue.erase(it);
    queued.fetch_sub(1);
    record->state = RecordState::kRunning;
    record->stop = std::stop_source();
    record->trace.queueWait = since(record->trace.submitted);
    return record;
  }
  return nullptr;
}

void AiService::State::workerLoop(Worker& worker) {
  std::unique_lock<std::mutex> lock(mutex);
  for (;;) {
    drainInboxLocked();
    if (shuttingDown) return;
    const std::shared_ptr<Record> record = takeReadyLocked();
    if (!record) {
      workReady.wait(lock);
      continue;
    }
    lock.unlock();
    run(worker, *record);
    lock.lock();
  }
}

void AiService::State::run(Worker& worker, Record& record) {
  CallContext context;
  context.record = &record;
  context.wake = &worker.wake;
  AiResponse response;
  AiEnding ending = AiEnding::kAnswered;
  {
    // Registered only while this worker serves the request, so a stop
    // never wakes a later request; the destructor waits for a callback
    // running on another thread.
    const std::stop_callback wakeOnStop(record.stop.get_token(),
                                        [&worker] { worker.wake.raise(); });
    currentCall = &context;
    try {
      context.enriched = applyToolFacts(record.submission.request);
      response = runtime.ask(record.submission.request);
    } catch (const std::exception& error) {
      response = AiResponse{};
      response.error = error.what();
      ending = AiEnding::kFailed;
    }
    currentCall = nullptr;
  }
  worker.wake.clear();
  if (context.interrupted && ending == AiEnding::kAnswered) {
    ending = record.stopReason.load();
    if (!response.ok) response.error = endingText(ending);
  }
  const std::lock_guard<std::mutex> lock(mutex);
  if (record.state == RecordState::kRunning) {
    finishLocked(record, ending, std::move(response));
  }
}

// Completes a stopped request whose game transport has not returned: the
// same request asked again with every call failing at once, so the
// template answer appears where it fits. What the transport returns later
// is dropped by its worker.
void AiService::State::substitute(std::unique_lock<std::mutex>& lock,
                                  const std::shared_ptr<Record>& record) {
  record->substituting = true;
  const AiEnding reason = record->stopReason.load();
  AiRequestTrace trace = record->trace;
  if (record->openCall) {
    AiModelCallTrace call = *record->openCall;
    call.duration = since(call.start);
    call.error = endingText(reason);
    trace.calls.push_back(std::move(call));
  }
  lock.unlock();
  CallContext context;
  context.record = record.get();
  currentCall = &context;
  AiResponse response = runtime.ask(record->submission.request);
  currentCall = nullptr;
  if (!response.ok) response.error = endingText(reason);
  lock.lock();
  if (record->state == RecordState::kRunning) {
    record->trace = std::move(trace);
    finishLocked(*record, reason, std::move(response));
    // Its conversation may go on while the worker is still held.
    wakeWorker();
  }
}

void AiService::State::timerLoop() {
  std::unique_lock<std::mutex> lock(mutex);
  while (!shuttingDown) {
    freeNodes(graveyard);
    drainInboxLocked();
    // The game's thread never wakes a worker itself: that system call could
    // hand its core to the worker. Sleeping workers are woken here, a tick
    // late at most; busy ones look for work whenever they finish.
    const bool ready = std::any_of(
        queue.begin(), queue.end(), [this](const std::shared_ptr<Record>& r) {
          return r->submission.conversation.empty() ||
                 busyConversations.count(r->submission.conversation) == 0;
        });
    if (ready) workReady.notify_all();
    const Clock::time_point now = Clock::now();
    Clock::time_point next = Clock::time_point::max();
    std::vector<std::shared_ptr<Record>> expired;
    std::shared_ptr<Record> orphan;
    for (const auto& entry : live) {
      Record& record = *entry.second;
      if (!record.stop.stop_requested()) {
        if (record.deadline <= now) {
          expired.push_back(entry.second);
        } else {
          next = std::min(next, record.deadline);
        }
      } else if (gameTransport && record.state == RecordState::kRunning &&
                 !record.substituting) {
        orphan = entry.second;
      }
    }
    for (const auto& record : expired) stopLocked(*record, AiEnding::kDeadline);
    if (orphan) {
      substitute(lock, orphan);
      continue;
    }
    if (!expired.empty()) continue;
    // Submissions do not wake the timer (the game's thread takes no lock),
    // so it looks at new deadlines every tick.
    timerWake.wait_until(lock, std::min(next, now + kTimerTick));
  }
}

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
  state_ = std::make_unique<State>(std::move(config), options,
                                   std::move(transport));
  State& s = *state_;
  for (std::size_t i = 0; i < options.workers; ++i) {
    s.workers.push_back(std::make_unique<Worker>());
    if (!s.gameTransport && !s.workers.back()->wake.isOpen()) {
      throw std::runtime_error("AiService cannot create its wake signals");
    }
  }
  // Started only once every worker exists, so that a failure above leaves
  // no thread to join.
  for (const auto& worker : s.workers) {
    Worker& w = *worker;
    w.thread = std::thread([&s, &w] { s.workerLoop(w); });
  }
  s.timer = std::thread([&s] { s.timerLoop(); });
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
  const Clock::time_point now = Clock::now();
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
    completion.response = failedResponse(refusal);
    completion.trace.submitted = now;
    s.publish(std::move(completion));
    return id;
  }
  Record* record = s.takeSpare();
  if (record == nullptr) record = new Record;
  record->id = id;
  record->stopReason.store(AiEnding::kAnswered);
  record->state = RecordState::kQueued;
  record->substituting = false;
  record->trace.submitted = now;
  // A deadline beyond what the clock can hold is no deadline.
  record->deadline = Clock::time_point::max() - now > limit
                         ? now + limit
                         : Clock::time_point::max();
  record->submission = std::move(submission);
  s.unfinished.fetch_add(1);
  pushNode(s.inbox, record, &Record::inboxNext);
  return id;
}

std::size_t AiService::poll(std::vector<AiCompletion>& out) {
  State& s = *state_;
  if (s.joined.load() && s.inbox.load() != nullptr) {
    // Submitted while the service shut down: no thread is left to drain.
    const std::lock_guard<std::mutex> lock(s.mutex);
    s.drainInboxLocked();
  }
  // The memory of a completion comes from a worker; freeing it here would
  // contend with that worker in the allocator. So each node goes back to
  // the timer thread, carrying the completion it replaces in out.
  std::size_t count = 0;
  for (CompletionNode* node = takeAll(s.outbox, &CompletionNode::next);
       node != nullptr; ++count) {
    CompletionNode* next = node->next;
    if (count < out.size()) {
      std::swap(out[count], node->completion);
    } else {
      out.push_back(std::move(node->completion));
    }
    pushNode(s.graveyard, node, &CompletionNode::next);
    node = next;
  }
  out.resize(count);
  return count;
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
  if (it == s.live.end() || it->second->stop.stop_requested()) return false;
  const std::shared_ptr<Record> record = it->second;
  s.stopLocked(*record, AiEnding::kCancelled);
  return true;
}

std::size_t AiService::pending() const { return state_->unfinished.load(); }

void AiService::shutdown() {
  State& s = *state_;
  {
    const std::lock_guard<std::mutex> lock(s.mutex);
    if (!s.shuttingDown) {
      s.closed = true;
      s.drainInboxLocked();
      s.shuttingDown = true;
      std::vector<std::shared_ptr<Record>> all;
      for (const auto& entry : s.live) all.push_back(entry.second);
      for (const auto& record : all) s.stopLocked(*record, AiEnding::kShutdown);
    }
  }
  s.workReady.notify_all();
  s.timerWake.notify_all();
  for (const auto& worker : s.workers) {
    if (worker->thread.joinable()) worker->thread.join();
  }
  if (s.timer.joinable()) s.timer.join();
  s.joined = true;
  const std::lock_guard<std::mutex> lock(s.mutex);
  s.drainInboxLocked();
}

const AiRuntime& AiService::runtime() const { return state_->runtime; }

}  // namespace tovrin::ai
